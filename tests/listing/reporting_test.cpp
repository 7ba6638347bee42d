#include "listing/reporting.h"

#include "support/check.h"
#include "support/scratch_directory.h"

#include <filesystem>

namespace {

using namespace zeph;
using namespace zeph_test;

std::string blanks(std::size_t n) { return std::string(n, ' '); }

TEST(banner, puts_name_title_and_stamp_in_their_columns) {
  heard_run run;
  run.report.run_stamp = {5, 1, 2026, 7, 4, 9};
  banner(run.report);
  //                     column 2 ZEPH, column 30 the title, column 77 a blank and the stamp
  const std::string line =
      " ZEPH    " + blanks(20) + "Ostrelo Linear Effects Workbench" + blanks(15) + "    5-01-2026 - 07:04:09";
  EXPECT_EQ(run.text(), line + "\n\n");
  EXPECT_EQ(line.find("Ostrelo"), 29U);
  EXPECT_EQ(line.find("-01-"), 81U); // column 77 blank, 78 to 81 the day
  EXPECT_EQ(run.report.nlines, 2);
}

TEST(banner, ejects_the_page_only_when_lines_were_counted) {
  heard_run run;
  run.report.run_stamp = {31, 12, 1999, 23, 59, 58};
  run.report.nlines = 70;
  banner(run.report);
  EXPECT_EQ(run.text().substr(0, 6), "1ZEPH ");
  EXPECT_EQ(run.text().substr(76, 25), "   31-12-1999 - 23:59:58\n");
  EXPECT_EQ(run.report.nlines, 2);
  banner(run.report); // the counter is 2 now
  EXPECT_EQ(run.text().find("\n\n1ZEPH"), 100U);
}

TEST(say_count, right_justifies_the_label_to_column_60) {
  heard_run run;
  say_count(run.report, "No of sampling rounds .............................", 12345);
  say_count(run.report, "x", -1);
  EXPECT_EQ(run.text(), blanks(9) + "No of sampling rounds ............................." + "      12345\n" +
                            blanks(59) + "x         -1\n");
}

TEST(say_label, and_say_real_use_the_same_columns) {
  heard_run run;
  say_label(run.report, "in a restart of the chain                          ");
  say_real(run.report, "Variance of proposal distribution .................", 0.5);
  EXPECT_EQ(run.text(), blanks(9) + "in a restart of the chain                          \n" + blanks(9) +
                            "Variance of proposal distribution .................        0.50000000\n");
}

TEST(check_input_files, names_each_missing_file_in_order) {
  const char* names[4] = {"RCDATA_I", "RCDATA_R", "MODINF", "CODE_TABLE"};
  for (unsigned present = 0; present < 16; ++present) {
    scratch_directory directory;
    heard_run run(directory.path());
    std::string expected;
    for (unsigned i = 0; i < 4; ++i) {
      if ((present >> i & 1U) != 0)
        directory.write(names[i], "");
      else
        expected += "File \"" + std::string(names[i]) + "\" not found\n";
    }
    EXPECT_EQ(check_input_files(run.report), present == 15 ? 0 : 1);
    EXPECT_EQ(run.text(), expected);
  }
}

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

TEST(allocation_failure, reports_on_the_listing_and_in_the_log) {
  scratch_directory directory;
  const std::string text = expect_stop(
      16, [](reporting& report) { allocation_failure(report, "ZEPH2", "RCOVI", 123456789012, 41); },
      directory.path());
  const std::string rows = "Trying to allocate memory for:  RCOVI\n"
                           "With elements                :  123456789012\n"
                           "Retur status from allocate   :           41\n"
                           "Called in                    :  ZEPH2\n";
  EXPECT_EQ(text, "\nZEPH: FATAL ERROR\n\n" + rows + "\nProgram terminates with exit code 16\n");
  EXPECT_EQ(directory.read("ZEPH.log"), "\nZEPH FATAL ERROR\n\n"
                                        " Trying to allocate memory for:  RCOVI\n"
                                        " With elements                :  123456789012\n"
                                        " Retur status from allocate   :           41\n"
                                        " Called in                    :  ZEPH2\n"
                                        "\nProgram terminates with exit code 16\n");
}

TEST(allocation_failure, has_a_row_for_a_message_and_appends_to_an_existing_log) {
  scratch_directory directory;
  directory.write("ZEPH.log", "ZEPH: Starting\n");
  const std::string text = expect_stop(
      16, [](reporting& report) { allocation_failure(report, "GIBSCAN", "CMAT", 9, 41, "no room"); },
      directory.path());
  const std::string row = "Error messaged               :  no room\nCalled in";
  EXPECT_NE(text.find("41\n" + row), std::string::npos);
  const std::string log = directory.read("ZEPH.log");
  EXPECT_EQ(log.find("ZEPH: Starting\n\nZEPH FATAL ERROR\n"), 0U);
  EXPECT_NE(log.find("41\n Error messaged               :  no room\n Called in"), std::string::npos);
}

TEST(allocation_failure, is_told_though_the_log_can_not_be_written) {
  scratch_directory directory;
  std::filesystem::create_directory(directory / "ZEPH.log");
  const std::string text = expect_stop(
      16, [](reporting& report) { allocation_failure(report, "ZEPH", "LNCOV", 3, 41); }, directory.path());
  EXPECT_EQ(text, allocation_text("LNCOV", "3", "ZEPH"));
}

const std::string deallocation_text = "ERROR\n\n"
                                      "Trying to deallocate                  :  CMAT\n"
                                      "Retur status from deallocate          :            7\n"
                                      "Called in subroutine(function/program):  GIBSCAN\n";

TEST(deallocation_failure, ends_the_program) {
  EXPECT_EQ(expect_stop(16, [](reporting& report) { deallocation_failure(report, "GIBSCAN", "CMAT", 7); }),
            deallocation_text + "\nProgram terminates\n");
}

TEST(deallocation_failure, goes_through_the_exit_of_the_input_stage_in_the_input_program) {
  heard_run run;
  run.report.program_name = "QVA1    ";
  EXPECT_EQ(
      expect_stop(16, run, [](reporting& report) { deallocation_failure(report, "GIBSCAN", "CMAT", 7); }),
      deallocation_text + fatal_text);
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

struct message_case {
  scratch_directory directory;
  heard_run run{directory.path()};
  void send(bool has_code, std::int32_t code, const char* second = "second", const char* third = "third") {
    log_message(run.report, "first", second, third, has_code, code);
  }
  std::string stop(int exit_code, std::int32_t code, const char* second = "second",
                   const char* third = "third") {
    return expect_stop(exit_code, run, [&](reporting&) { send(true, code, second, third); });
  }
  std::string log() const { return directory.read("ZEPH.log"); }
};

TEST(log_message, without_code_writes_the_start_on_the_log_only) {
  message_case c;
  c.send(false, 5);
  EXPECT_EQ(c.run.text(), "");
  EXPECT_EQ(c.log(), "ZEPH: Starting\n");
}

TEST(log_message, with_code_0_tells_the_end_on_both_and_returns) {
  message_case c;
  c.send(false, 0);
  c.send(true, 0);
  EXPECT_EQ(c.run.text(), "ZEPH: Finished with exit code 0\n");
  EXPECT_EQ(c.log(), "ZEPH: Starting\nZEPH: Finished with exit code 0\n");
}

TEST(log_message, of_the_fatal_kind_ends_with_127) {
  message_case c;
  const std::string text = "ZEPH: : first\nsecond\nthird\n\nProgram terminates with exit code 127\n";
  EXPECT_EQ(c.stop(127, 100000000), text);
  EXPECT_EQ(c.log(), text);
}

TEST(log_message, with_an_error_code_shows_the_code_on_the_log_only) {
  for (const std::int32_t code : {1, 59, 99999999}) {
    message_case c;
    const std::string head = "\nMESSAGE  : first\n", end = "           second\n           third\n"
                                                           "See lst file for more infomation(s)\n"
                                                           "Program terminates with exit code 16\n";
    EXPECT_EQ(c.stop(16, code), head + end);
    const std::string digits = std::to_string(code);
    EXPECT_EQ(c.log(),
              head + "     Error code is :  " + std::string(11 - digits.size(), ' ') + digits + "\n" + end);
  }
}

TEST(log_message, leaves_blank_texts_out) {
  message_case c;
  EXPECT_EQ(c.stop(16, 3, "   ", ""), "\nMESSAGE  : first\nSee lst file for more infomation(s)\n"
                                      "Program terminates with exit code 16\n");
}

TEST(log_message, with_code_minus_9_shows_no_code) {
  message_case c;
  const std::string text = "\nMESSAGE  : first\n           second\nSee lst file for more infomation(s)\n"
                           "Program terminates with exit code 16\n";
  EXPECT_EQ(c.stop(16, -9, "second", " "), text);
  EXPECT_EQ(c.log(), text);
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

TEST(write_fault, takes_write_as_the_item) {
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

TEST(write_status, replaces_the_one_line_of_the_file) {
  scratch_directory directory;
  heard_run run(directory.path());
  write_status(run.report, "a first line that is longer");
  write_status(run.report, "Program ZEPH has concluded");
  EXPECT_EQ(directory.read("status"), "Program ZEPH has concluded\n");
}

TEST(write_status, stops_when_the_file_can_not_be_written) {
  scratch_directory directory;
  std::filesystem::create_directory(directory / "status");
  const std::string text = expect_stop(
      16, [](reporting& report) { write_status(report, "line"); }, directory.path());
  EXPECT_EQ(text.find("\nERROR - Illegal input in status: write = "), 0U);
}

TEST(path_of, joins_directory_and_name) {
  std::ostringstream listing;
  EXPECT_EQ(path_of(reporting(listing), "py"), "py");
  EXPECT_EQ(path_of(reporting(listing, "here"), "py"), "here/py");
  EXPECT_EQ(path_of(reporting(listing, "here/"), "py"), "here/py");
}

} // namespace
