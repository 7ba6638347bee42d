#include "listing/stops.h"

#include "formats/text_file.h"
#include "support/check.h"
#include "support/scratch_directory.h"
#include "support/skip_reasons.h"

#include <cerrno>
#include <filesystem>

namespace {

using namespace zeph;
using namespace zeph_test;

std::string blanks(std::size_t n) { return std::string(n, ' '); }

const std::string fatal_text =
    "\nFatal error\n\nSee list file for details\n\nQVA1 terminates wth exit code 16\n";

TEST(QVA_LOG, writes_the_fatal_text_alone_without_flag_or_file) {
  scratch_directory directory;
  EXPECT_EQ(expect_stop(
                16, [](reporting& report) { QVA_LOG(report, 1); }, directory.path()),
            fatal_text);
  directory.write("QVA_LOG", "some lines\n");
  EXPECT_EQ(expect_stop(
                16, [](reporting& report) { QVA_LOG(report); }, directory.path()),
            fatal_text);
}

TEST(QVA_LOG, copies_the_file_under_the_banner_98_columns_a_line) {
  scratch_directory directory;
  const std::string long_line = std::string(97, 'a') + "bcd";
  directory.write("QVA_LOG", "  first\n\n" + long_line + "\n");
  heard_run run(directory.path());
  run.report.run_stamp = {1, 2, 2026, 3, 4, 5};
  run.report.nlines = 10;
  const std::string text = expect_stop(16, run, [](reporting& report) { QVA_LOG(report, 1); });
  const std::string head = "1ZEPH    " + blanks(20) + "Ostrelo Linear Effects Workbench" + blanks(15) +
                           "    1-02-2026 - 03:04:05\n\n";
  EXPECT_EQ(text, head +
                      "\nERROR(S) found in model directives / prior (co)variance\n\n\n"
                      "A listing of information in the directive file follows.\n\n" +
                      std::string(61, '-') + "\n  first\n\n" + std::string(97, 'a') + "b\n" + fatal_text);
}

TEST(integer_to_text, is_left_justified_and_as_long_as_its_digits) {
  heard_run run;
  EXPECT_EQ(integer_to_text(run.report, 123, 3), "123");
  EXPECT_EQ(integer_to_text(run.report, -45, 20), "-45");
  EXPECT_EQ(integer_to_text(run.report, INT64_MIN, 20), "-9223372036854775808");
  EXPECT_EQ(run.text(), "");
}

TEST(integer_to_text, stops_with_value_and_length_when_the_text_is_too_short) {
  const std::string text = expect_stop(16, [](reporting& report) { integer_to_text(report, 1234, 3); });
  // labels of 40, 26 and 59 columns, values in free format
  EXPECT_EQ(text, "ERROR - Converting integer value to text\n        Value to convert: " + blanks(8) +
                      "1234\n        Length of character variable to hold the result is:" + blanks(11) +
                      "3\n\nProgram terminates\n");
}

TEST(illegal_input, has_one_form) {
  EXPECT_EQ(expect_stop(16,
                        [](reporting& r) {
                          illegal_input(r, "MODINF", "NLEV", {1, 2}, "-3", ">= 0");
                        }),
            "\nERROR - Illegal input in MODINF: NLEV(1,2) = -3, legal: >= 0\n\nZEPH terminates.\n");
  EXPECT_EQ(expect_stop(16, [](reporting& r) { illegal_input(r, "MODINF", "nt", {}, "0", "1..20"); }),
            "\nERROR - Illegal input in MODINF: nt = 0, legal: 1..20\n\nZEPH terminates.\n");
}

TEST(write_fault, says_that_the_disk_is_full) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << no_dev_full;
  text_writer file;
  ASSERT_TRUE(file.open("/dev/full"));
  ASSERT_TRUE(file.line("a row"));
  ASSERT_FALSE(file.close());
  EXPECT_EQ(expect_stop(16, [](reporting& report) { write_fault(report, "gibsol", "write"); }),
            "\nERROR - gibsol: no space left on the device\n\nZEPH terminates.\n");
}

TEST(write_fault, takes_write_as_the_item) {
  errno = EISDIR;
  const std::string text = expect_stop(16, [](reporting& report) { write_fault(report, "gibsol", "open"); });
  EXPECT_EQ(text.find("\nERROR - Illegal input in gibsol: write = open, legal: "), 0U);
}

TEST(computation_impossible, has_the_same_frame) {
  EXPECT_EQ(
      expect_stop(16, [](reporting& r) { computation_impossible(r, "ZEPH", "sampling interval is 0"); }),
      "\nERROR - Computation impossible in ZEPH: sampling interval is 0\n\nZEPH terminates.\n");
}

TEST(stop_run, carries_its_code) {
  for (const int code : {exit_input_stage, exit_diagnosed, exit_block_factor, exit_fatal_kind})
    expect_stop(code, [code](reporting& report) { stop_run(report, code); });
  EXPECT_EQ(exit_input_stage, 2);
  EXPECT_EQ(exit_diagnosed, 16);
  EXPECT_EQ(exit_block_factor, 27);
  EXPECT_EQ(exit_fatal_kind, 127);
}

TEST(zeph_terminates, writes_the_blank_line_when_asked) {
  EXPECT_EQ(expect_stop(16, [](reporting& report) { zeph_terminates(report); }), "\nZEPH terminates.\n");
  EXPECT_EQ(expect_stop(16, [](reporting& report) { zeph_terminates(report, false); }), "ZEPH terminates.\n");
}

} // namespace
