#include "listing/listing_rows.h"

#include "support/check.h"

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

} // namespace
