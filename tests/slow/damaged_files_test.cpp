// The long form of the tests of damaged files; figures in docs/validation.md.
#include "runs/damaged_files.h"

#include <iostream>

namespace {

using namespace zeph_test;

// A row for docs/validation.md into the file that ZEPH_FIGURES names, else to the screen.
void print(const std::string& kind, const std::string& damage, const damaged_directory& d) {
  std::string codes;
  for (const auto& [code, n] : d.exit_codes)
    codes += (codes.empty() ? "" : ", ") + std::to_string(code) + ": " + std::to_string(n);
  const std::string failed = ::testing::Test::HasFailure() ? ", FAILED" : "";
  std::string row =
      "| damaged | " + kind + " | " + damage + failed + " | " + std::to_string(d.runs) + " | " + codes;
  for (const long n : {long{d.stopped}, long{d.checked_runs - d.unfinished_runs}, d.seconds()})
    row += " | " + std::to_string(n);
  row += " |\n";
  const char* file = std::getenv("ZEPH_FIGURES");
  if (file == nullptr)
    std::cout << row;
  else
    std::ofstream(file, std::ios::app) << row;
}

// Chains that leave a state from which they continue: the solver leaves none, and ordered traits can't be
// continued.
std::vector<std::string> continued_kinds() {
  std::vector<std::string> kinds = damaged_kinds();
  std::erase_if(kinds, [](const std::string& kind) { return kind.ends_with("_t0") || kind == "cat3_t3"; });
  return kinds;
}

class much_damaged_files : public ::testing::TestWithParam<std::string> {};

TEST_P(much_damaged_files, end_the_run_with_a_message_and_never_by_a_signal) {
  damaged_directory d(prepared_directory(GetParam()));
  d.damage(1000, 500);
  print(GetParam(), "cut and changed", d);
}

// Counts near the largest number, products beyond 64 bits, gigabytes asked for.
TEST_P(much_damaged_files, with_absurd_numbers_end_with_a_message) {
  damaged_directory d(prepared_directory(GetParam()));
  for (const std::int32_t value : {2147483647, 1000000000, 30000000, -1, 0})
    d.put_in_each_number("MODINF", value, 1);
  print(GetParam(), "absurd numbers", d);
}

// The state of the part before, and the records to predict.
class much_damaged_states : public ::testing::TestWithParam<std::string> {};

TEST_P(much_damaged_states, end_the_run_with_a_message) {
  const scratch_directory first;
  first.take_files_of(prepared_directory(GetParam()));
  ASSERT_EQ(run_program({}, first.path()).exit_code, 0);
  ASSERT_TRUE(first.has("lastsol"));
  const scratch_directory next;
  next.take_files_of(prepared_directory(GetParam()));
  next.write("oldsol", first.read("lastsol"));
  next.write("r_parm", first.read("gparlast"));
  next.write("ytopredict", "1 1\n2 1\n5 1\n");
  const scratch_directory trial;
  trial.take_files_of(next.path());
  ASSERT_EQ(run_program({}, trial.path()).exit_code, 0);
  damaged_directory d(next.path());
  d.damage({"oldsol", "r_parm", "ytopredict"}, 1000, 500);
  print(GetParam(), "a continued chain", d);
}

INSTANTIATE_TEST_SUITE_P(runs, much_damaged_files, ::testing::ValuesIn(damaged_kinds()),
                         [](const auto& kind) { return kind.param; });
INSTANTIATE_TEST_SUITE_P(runs, much_damaged_states, ::testing::ValuesIn(continued_kinds()),
                         [](const auto& kind) { return kind.param; });

} // namespace
