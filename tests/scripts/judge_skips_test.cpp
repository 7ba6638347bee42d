// Skipped tests are judged from the report that ctest writes. The cases below are in the form of ctest 3.25.1
// (--output-junit), with what GoogleTest 1.12 and the tests in R print when they skip.
#include "scripts/script_run.h"
#include "support/skip_reasons.h"

#include <gtest/gtest.h>

namespace {

using namespace zeph_test;

// A test that GoogleTest skipped with this message.
std::string skipped(const std::string& name, const std::string& message) {
  return "<testcase name=\"" + name + "\" classname=\"" + name +
         "\" time=\"0.01\" status=\"notrun\"><skipped "
         "message=\"SKIP_REGULAR_EXPRESSION_MATCHED\"/><system-out>"
         "[ RUN      ] " +
         name + "\n/tests/a_test.cpp:50: Skipped\n" + message + "\n\n[  SKIPPED ] " + name +
         " (0 ms)\n</system-out></testcase>\n";
}

const std::string passed =
    "<testcase name=\"a.b\" status=\"run\"><system-out>[       OK ] a.b</system-out></testcase>\n";
const std::string in_R =
    "<testcase name=\"report.a\" status=\"notrun\"><skipped message=\"SKIP_RETURN_CODE=77\"/>"
    "<system-out>skipped: [no-shared] ../shared is absent\n</system-out></testcase>\n";

script_end judged(const std::string& cases, const std::string& accepted = {}) {
  const scratch_directory place;
  place.write("tests.xml", "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuite name=\"tests\">\n" +
                               cases + "</testsuite>\n");
  return run_script("scripts/judge_skips " + place / "tests.xml" + " " + accepted);
}

TEST(judge_skips, counts_the_skipped_tests_by_reason) {
  const script_end end = judged(passed + in_R + skipped("c.d", no_shared) + skipped("e.f", no_right) +
                                skipped("g.h", sanitizer_build) + skipped("i.j", no_dev_full));
  EXPECT_EQ(end.code, 0) << end.said;
  EXPECT_EQ(end.said,
            "skipped: 5 of 6 tests: 2 no-shared (../shared is absent); 1 no-right (no right to mount or to "
            "change the user); 1 sanitizer (the sanitizer owns the allocator and calls of the system); "
            "1 no-dev-full (there is no /dev/full)\n");
  EXPECT_EQ(judged(passed).said, "skipped: 0 of 1 tests\n");
}

TEST(judge_skips, fails_at_a_skip_without_a_reason) {
  for (const std::string& message : {std::string(), std::string("")}) {
    const script_end end = judged(passed + skipped("c.d", message));
    EXPECT_EQ(end.code, 1);
    EXPECT_EQ(end.said, "FAULT c.d: skipped without a reason\nskipped: 1 of 2 tests\n");
  }
  EXPECT_EQ(judged("<testcase name=\"c.d\" status=\"disabled\"/>").said,
            "FAULT c.d: skipped without a reason\nskipped: 1 of 1 tests\n");
  EXPECT_EQ(
      judged("<testcase name=\"r\" status=\"notrun\"><skipped message=\"SKIP_RETURN_CODE=77\"/><system-out>"
             "</system-out></testcase>")
          .code,
      1);
}

TEST(judge_skips, fails_at_a_reason_that_is_not_in_the_list) {
  const script_end end = judged(skipped("c.d", "R packages that are not installed: png"));
  EXPECT_EQ(end.code, 1);
  EXPECT_EQ(end.said, "FAULT c.d: skipped for no reason of the list: R packages that are not installed: png\n"
                      "skipped: 1 of 1 tests\n");
  EXPECT_EQ(judged(skipped("c.d", "[no-package] png")).code, 1);
}

TEST(judge_skips, fails_at_a_reason_that_is_not_accepted_here) {
  const std::string cases = skipped("c.d", no_shared) + skipped("e.f", no_right);
  EXPECT_EQ(judged(cases, "no-shared no-right").code, 0);
  const script_end end = judged(cases, "no-shared");
  EXPECT_EQ(end.code, 1);
  EXPECT_EQ(end.said,
            "FAULT e.f: skipped for a reason that does not hold here: [no-right] no right to mount or to "
            "change the user\nskipped: 2 of 2 tests: 1 no-shared (../shared is absent); 1 no-right (no "
            "right to mount or to change the user)\n");
}

// A skip that ctest takes for a pass: nothing looked for the word in its output.
TEST(judge_skips, finds_a_skip_that_is_reported_as_a_pass) {
  const script_end end =
      judged("<testcase name=\"a.b\" status=\"run\"><system-out>/a.cpp:1: Skipped\nno time\n"
             "</system-out></testcase>");
  EXPECT_EQ(end.code, 1);
  EXPECT_EQ(end.said, "FAULT a.b: skipped for no reason of the list: no time\nskipped: 1 of 1 tests\n");
}

TEST(judge_skips, fails_without_a_report_and_at_an_unknown_code) {
  EXPECT_EQ(run_script("scripts/judge_skips /nonexistent/tests.xml").code, 1);
  EXPECT_EQ(judged(passed, "no-time").code, 2);
}

// What real tests print: ctest on a test of its own, skipped with and without a reason.
TEST(judge_skips, reads_what_ctest_writes) {
  const scratch_directory place;
  place.write("CTestTestfile.cmake",
              "add_test(good \"/bin/sh\" \"-c\" \"echo 'skipped: [no-right] no'; exit 77\")\n"
              "add_test(bad \"/bin/sh\" \"-c\" \"exit 77\")\n"
              "set_tests_properties(good bad PROPERTIES SKIP_RETURN_CODE 77)\n");
  const std::string run = "ctest --test-dir " + place.path() + " --output-junit " + place / "tests.xml";
  EXPECT_EQ(run_script(run).code, 0); // for ctest a skip is no failure
  const script_end end = run_script("scripts/judge_skips " + place / "tests.xml");
  EXPECT_EQ(end.code, 1);
  EXPECT_EQ(end.said,
            "FAULT bad: skipped without a reason\nskipped: 2 of 2 tests: 1 no-right (no right to mount or "
            "to change the user)\n");
}

} // namespace
