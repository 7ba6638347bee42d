#include "listing/run_log.h"

#include "support/check.h"
#include "support/scratch_directory.h"

#include <filesystem>

namespace {

using namespace zeph;
using namespace zeph_test;

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

TEST(log_message, with_code_0_reports_the_end_on_both_and_returns) {
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

} // namespace
