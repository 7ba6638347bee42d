// Each call by which a run writes its files fails once: the listing names the file,
// the exit code is 16, and what was written stays whole.
#include "faults/small_runs.h"
#include "support/skip_reasons.h"

namespace {

using namespace zeph_test;

class each_run : public testing::TestWithParam<small_run> {
protected:
  void SetUp() override {
    if (!calls_can_fail()) GTEST_SKIP() << sanitizer_build;
  }
  void fail_every(const std::string& kind) {
    prepared_run run(GetParam());
    const long calls = run.calls(kind);
    for (long n = 1; n <= calls; ++n) {
      child_options with;
      with.fault = {kind, n};
      const child_end end = run.go(with);
      const std::string what = kind + " " + std::to_string(n) + " of " + std::to_string(calls);
      const std::string file = file_named_in(end.listing);
      EXPECT_EQ(end.code, 16) << what << '\n' << end.listing;
      EXPECT_NE(file, "") << what << '\n' << end.listing;
      EXPECT_TRUE(file == "mix" || growing_names().contains(file) || whole_names().contains(file) ||
                  file == "status" || file.starts_with("PTD"))
          << what << ": " << file;
      expect_nothing_half_written(run, what);
    }
    EXPECT_GT(calls, 0);
  }
};

TEST_P(each_run, reports_each_write_that_fails) { fail_every("write"); }
TEST_P(each_run, reports_each_place_where_the_disk_is_full) { fail_every("full"); }
TEST_P(each_run, reports_each_close_that_fails) { fail_every("close"); }
TEST_P(each_run, reports_each_name_that_can_not_be_given) { fail_every("rename"); }
TEST_P(each_run, reports_each_file_that_can_not_be_opened_for_writing) { fail_every("open"); }

// A read that fails ends the run with a message, or nothing depends on it.
TEST_P(each_run, reports_each_read_that_fails) {
  prepared_run run(GetParam());
  const long calls = run.calls("read");
  for (long n = 1; n <= calls; ++n) {
    child_options with;
    with.fault = {"read", n};
    const child_end end = run.go(with);
    const std::string what = "read " + std::to_string(n) + " of " + std::to_string(calls);
    if (end.code == 0) {
      for (const auto& [name, bytes] : run.whole)
        EXPECT_EQ(bytes_of(run.place / name), bytes) << what << ": " << name;
    } else {
      EXPECT_TRUE(end.code == 2 || end.code == 16) << what << ": " << end.code << end.errors;
      EXPECT_NE(end.listing, "") << what;
      expect_nothing_half_written(run, what);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(of, each_run, testing::ValuesIn(small_runs()),
                         [](const auto& info) { return info.param.name; });

} // namespace
