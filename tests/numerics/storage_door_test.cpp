#include "numerics/storage_door.h"

#include "support/check.h"
#include "support/scratch_directory.h"

#include <filesystem>

namespace {

using namespace zeph;
using namespace zeph_test;

const std::string fatal_text =
    "\nFatal error\n\nSee list file for details\n\nQVA1 terminates wth exit code 16\n";

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
  EXPECT_EQ(directory.read("ZEPH.log"), "ZEPH FATAL ERROR\n\n"
                                        " Trying to allocate memory for: RCOVI\n"
                                        " With elements                : 123456789012\n"
                                        " Retur status from allocate   : 41\n"
                                        " Called in                    : ZEPH2\n"
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
  EXPECT_EQ(log.find("ZEPH: Starting\nZEPH FATAL ERROR\n"), 0U);
  EXPECT_NE(log.find("41\n Error messaged               : no room\n Called in"), std::string::npos);
}

TEST(allocation_failure, is_reported_though_the_log_can_not_be_written) {
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

} // namespace
