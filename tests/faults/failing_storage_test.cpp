// Requests of storage that fail. The arrays of a run take theirs through one door:
// each of its calls fails once, and the listing names the variable and the routine.
// Beyond it every other request of the whole program fails: no run ends by a signal.
#include "control/run_driver.h"
#include "faults/small_runs.h"
#include "support/skip_reasons.h"

namespace {

using namespace zeph_test;

class each_run_without_storage : public testing::TestWithParam<small_run> {};

// The text after a label of the report, to the end of its line.
std::string told_behind(const std::string& text, const std::string& label) {
  const std::size_t at = text.find("\n" + label);
  if (at == std::string::npos) return {};
  std::string rest = text.substr(at + 1 + label.size());
  rest.resize(rest.find('\n'));
  return rest.substr(std::min(rest.find_first_not_of(' '), rest.size()));
}

TEST_P(each_run_without_storage, names_variable_and_routine_of_each_array) {
  prepared_run run(GetParam());
  const auto go = [&](std::int64_t fail_at, std::int64_t& calls, std::string& text) {
    std::ostringstream listing;
    put_files(run.place.path(), run.input);
    zeph::run r(listing, run.place.path());
    r.report.door.fail_at = fail_at;
    const int code = zeph::exit_code_of_run(r);
    calls = r.report.door.calls;
    text = listing.str();
    return code;
  };
  std::int64_t calls = 0, reached = 0;
  std::string text;
  ASSERT_EQ(go(0, calls, text), 0) << text;
  ASSERT_GT(calls, 50);
  for (std::int64_t n = 1; n <= calls; ++n) {
    const int code = go(n, reached, text);
    if (text.find("\n\nERROR allocating memory\n\nZEPH terminates.\n") != std::string::npos) {
      // stores of the sampler: reported, and the run continues to its end or to the routine that needs them
      EXPECT_TRUE(code == 0 || text.find("\nERROR - Computation impossible in ") != std::string::npos)
          << text;
      continue;
    }
    EXPECT_EQ(code, text.find("Allocation of pedmat failed") != std::string::npos ? 2 : 16) << n << text;
    if (code == 2) continue;
    EXPECT_NE(told_behind(text, "Trying to allocate memory for: "), "") << n << '\n' << text;
    EXPECT_NE(told_behind(text, "Called in                    : "), "") << n << '\n' << text;
    EXPECT_TRUE(text.ends_with("\n\nProgram terminates with exit code 16\n")) << n << text;
    EXPECT_NE(run.place.read("ZEPH.log").find("ZEPH FATAL ERROR"), std::string::npos) << n;
    std::filesystem::remove(run.place / "ZEPH.log");
  }
}

// Every k-th request of the process, k such that some 40 runs are made.
TEST_P(each_run_without_storage, ends_with_words_whatever_request_fails) {
  if (!calls_can_fail()) GTEST_SKIP() << sanitizer_build;
  prepared_run run(GetParam());
  const long calls = run.calls("storage");
  ASSERT_GT(calls, 100);
  const long step = std::getenv("ZEPH_EVERY_FAULT") != nullptr ? 1 : std::max(calls / 40, 1L);
  for (long n = 1; n <= calls; n += step) {
    child_options with;
    with.fault = {"storage", n};
    const child_end end = run.go(with);
    const std::string what = "storage " + std::to_string(n) + " of " + std::to_string(calls);
    if (end.code == 0) continue; // a text that was not needed, or the stores of the sampler
    EXPECT_TRUE(end.code == 16 || end.code == 2) << what << ": " << end.code << '\n' << end.all();
    EXPECT_NE(end.all(), "") << what;
    expect_nothing_half_written(run, what);
  }
}

INSTANTIATE_TEST_SUITE_P(of, each_run_without_storage, testing::ValuesIn(small_runs()),
                         [](const auto& info) { return info.param.name; });

} // namespace
