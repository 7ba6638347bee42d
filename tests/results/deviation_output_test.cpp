#include "results/deviation_output.h"

#include "support/chain_frame.h"
#include "support/result_case.h"

using namespace results_test;
using namespace zeph;

namespace {

// Deviations of factor 1 of the small model: level 1 has 2 records and 1 progeny,
// level 2 none of both, level 3 one record of fat and 2 progeny with fat.
struct deviation_run : result_case {
  model_records m = dairy_model();
  deviation_store d;
  zeph_test::chain_frame frame;

  deviation_run(std::int32_t analysis_type, std::int32_t model_kind, bool progeny) {
    write_dairy_codes(*this);
    frame.asked.analysis_type = analysis_of(analysis_type);
    m.model_kind = model_kind;
    m.L_TD = true;
    m.L_PTD = progeny;
    m.TD_FACTOR = 1;
    allocate_deviations(m, d, report);
    d.N_TD(1, 1) = d.N_TD(2, 1) = 2;
    d.N_TD(2, 3) = 1;
    fill(d.TD, 1.5);
    if (!progeny) return;
    d.N_PTD(1, 1) = 1;
    d.N_PTD(2, 3) = 2;
    fill(d.PTD, -0.25);
  }
  static void fill(mat<double>& x, double first) {
    x(1, 1) = first;
    x(2, 1) = 2.0 * first;
    x(2, 3) = 4.0 * first;
  }
  // Sums of 4 calls: values v - 1, v - 1, v + 1, v + 1 around v of `fill`, so that
  // the mean is v and the variance 4/3.
  void sum_four_calls() {
    d.calls = 4;
    sum(d.TD, d.S_TD, d.SS_TD);
    if (d.progeny) sum(d.PTD, d.S_PTD, d.SS_PTD);
  }
  static void sum(const mat<double>& v, mat<double>& s, mat<double>& ss) {
    for (std::int64_t i = 0; i < v.size(); ++i) {
      const double x = v.data()[i];
      s.data()[i] = 4.0 * x;
      ss.data()[i] = 2.0 * (x - 1) * (x - 1) + 2.0 * (x + 1) * (x + 1);
    }
  }
  std::string reported() {
    said();
    report_deviations(m, d, frame.asked, report);
    return said();
  }
};

const std::string first_levels = "\n First 250 levels\n\n";

// sqrt(4/3) = 1.154700538...
TEST(report_deviations, writes_means_and_standard_deviations_with_progeny) {
  deviation_run c(3, 2, true);
  c.sum_four_calls();
  const std::string rows = edged(
      "          101    1      2        1.50000        1.15470        1      -0.250000        1.15470    |\n"
      "          101    2      2        3.00000        1.15470        0      -0.500000        1.15470    |\n"
      "          103    2      1        6.00000        1.15470        2       -1.00000        1.15470    "
      "|\n");
  EXPECT_EQ(
      c.reported(),
      "\n Posterior mean and standard error for Trait Deviation (TD) and\n"
      " Progeny Trait Deviation (PTD) for Random Factor            1\n" +
          first_levels +
          "        Code  Trait No. rec.       TD          SE(TD)    No. Prog.      PTD           SE(PTD)\n" +
          rows +
          "\nA filen named \"gib.td_ptd\" has been created\n"
          "It contains the following 8 variables:\n"
          "  1.  Class code (code in input data)\n"
          "  2.  Trait number\n"
          "  3.  No. of own reccords\n"
          "  4.  TD (Trait corrected for all effects except the breeding value) average over records\n"
          "  5.  Standard deviation for TD\n"
          "  6.  No. of progenies with records\n"
          "  7.  PTD ( 2*TD average over progenies)\n"
          "  8.  Standard deviation for PTD\n");
  EXPECT_EQ(c.content("gib.td_ptd"), rows);
  EXPECT_FALSE(c.exists("TD_PTD"));
}

TEST(report_deviations, writes_means_and_standard_deviations_without_progeny) {
  deviation_run c(2, 2, false);
  c.sum_four_calls();
  const std::string rows = edged("          101    1      2        1.50000        1.15470    |\n"
                                 "          101    2      2        3.00000        1.15470    |\n"
                                 "          103    2      1        6.00000        1.15470    |\n");
  EXPECT_EQ(c.reported(),
            "\n Posterior mean and standard error for Trait Deviation (TD) for Random Factor            1\n" +
                first_levels + "        Code  Trait No. rec.       TD          SE(TD)\n" + rows +
                "\nA filen named \"gib.td_ptd\" has been created\n"
                "It contains the following 5 variables:\n"
                "  1.  Class code (code in input data)\n"
                "  2.  Trait number\n"
                "  3.  No. of own reccords\n"
                "  4.  TD (Mendelian sample + residual) average over records\n"
                "  5.  Standard deviation for TD\n");
  EXPECT_EQ(c.content("gib.td_ptd"), rows);
}

TEST(report_deviations, writes_the_last_values_with_progeny) {
  deviation_run c(3, 1, true);
  const std::string rows = edged("          101    1      2        1.50000        1      -0.250000    |\n"
                                 "          101    2      2        3.00000        0      -0.500000    |\n"
                                 "          103    2      1        6.00000        2       -1.00000    |\n");
  EXPECT_EQ(c.reported(),
            "\n Trait Deviation (TD) and Progeny Trait Deviation (PTD) for Random Factor            1\n" +
                first_levels + "        Code  Trait No. rec.       TD        No. Prog.      PTD\n" + rows +
                "\nA filen named \"TD_PTD\" has been created\n"
                "It contains the following 6 variables:\n"
                "  1.  Class code (code in input data)\n"
                "  2.  Trait number\n"
                "  3.  No. of own reccords\n"
                "  4.  TD (Trait corrected for all effects except the breeding value) average over records\n"
                "  5.  No. of progenies with records\n"
                "  6.  PTD ( 2*TD average over progenies)\n");
  EXPECT_EQ(c.content("TD_PTD"), rows);
  EXPECT_FALSE(c.exists("gib.td_ptd"));
}

TEST(report_deviations, writes_the_last_values_without_progeny) {
  deviation_run c(1, 0, false);
  const std::string rows = edged("          101    1      2        1.50000    |\n"
                                 "          101    2      2        3.00000    |\n"
                                 "          103    2      1        6.00000    |\n");
  EXPECT_EQ(c.reported(), "\n Trait Deviation (TD) for Random Factor            1\n" + first_levels +
                              "        Code  Trait No. rec.       TD\n" + rows +
                              "\nA filen named \"TD_PTD\" has been created\n"
                              "It contains the following 4 variables:\n"
                              "  1.  Class code (code in input data)\n"
                              "  2.  Trait number\n"
                              "  3.  No. of own reccords\n"
                              "  4.  TD (Mendelian sample + residual) average over records\n");
  EXPECT_EQ(c.content("TD_PTD"), rows);
}

TEST(report_deviations, names_the_file_of_solver_runs_TD_PTD) {
  deviation_run c(1, 2, false);
  c.sum_four_calls();
  c.reported();
  EXPECT_TRUE(c.exists("TD_PTD"));
  EXPECT_FALSE(c.exists("gib.td_ptd"));
}

TEST(report_deviations, leaves_out_traits_without_records_and_progeny) {
  deviation_run c(3, 2, true);
  c.d.N_TD.fill(0);
  c.d.N_PTD.fill(0);
  c.reported();
  EXPECT_EQ(c.content("gib.td_ptd"), "");
  c.d.N_PTD(2, 2) = 1; // progeny alone give a row
  c.reported();
  EXPECT_EQ(c.content("gib.td_ptd").substr(0, 25), "          102    2      0");
}

TEST(report_deviations, multiplies_by_the_scale_of_the_trait) {
  deviation_run c(3, 2, true);
  c.sum_four_calls();
  c.m.sol_layout = 1;
  c.m.SPRE(1) = 10.0;
  c.reported();
  EXPECT_EQ(c.content("gib.td_ptd").substr(0, 94),
            "          101    1      2        15.0000        11.5470        1       -2.50000        11.5470");
  deviation_run last(3, 1, true);
  last.m.sol_layout = 1;
  last.m.SPRE(1) = 10.0;
  last.reported();
  EXPECT_EQ(last.content("TD_PTD").substr(0, 64),
            "          101    1      2        15.0000        1       -2.50000");
}

// By the number of calls: 0 gives 0, 1 gives no deviation.
TEST(report_deviations, divides_by_the_calls) {
  deviation_run c(3, 2, false);
  c.sum_four_calls();
  c.d.calls = 0;
  c.reported();
  EXPECT_EQ(c.content("gib.td_ptd").substr(0, 55), "          101    1      2        0.00000        0.00000");
  c.d.calls = 1;
  c.reported();
  EXPECT_EQ(c.content("gib.td_ptd").substr(0, 55), "          101    1      2        6.00000        0.00000");
}

// sqrt(999999995904) = 999999.997952
TEST(report_deviations, cuts_a_variance_at_its_largest) {
  deviation_run c(3, 2, false);
  c.d.calls = 2;
  c.d.SS_TD(1, 1) = 1e13;
  c.d.SS_TD(2, 1) = 4e6; // variance 4e6
  c.reported();
  EXPECT_NE(c.content("gib.td_ptd").find("0.100000E+07"), std::string::npos);
  EXPECT_NE(c.content("gib.td_ptd").find("2000.00"), std::string::npos);
}

// Two traits: 125 levels fill the listing, the file has all.
TEST(report_deviations, lists_250_rows) {
  deviation_run c(3, 2, false);
  c.m.NRALEV(1) = 130;
  c.m.NRALEV(2) = 0;
  c.d = deviation_store();
  allocate_deviations(c.m, c.d, c.report);
  c.d.N_TD.fill(1);
  std::vector<std::vector<std::int32_t>> codes = {{10, 5, 1}, {20, 7, 2}, {1, 6, 1},
                                                  {2, 6, 2},  {10, 4, 1}, {20, 3, 2}};
  for (std::int32_t l = 1; l <= 130; ++l) codes.push_back({1000 + l, 1, l, 13});
  c.write_codes(codes);
  const std::string text = c.reported(), file = c.content("gib.td_ptd");
  EXPECT_EQ(std::count(file.begin(), file.end(), '\n'), 260);
  EXPECT_NE(text.find("\n         1125    2"), std::string::npos);
  EXPECT_EQ(text.find("\n         1126    1"), std::string::npos);
}

TEST(report_deviations, counts_its_lines_and_turns_the_page_after_line_68) {
  deviation_run c(3, 2, true);
  c.report.nlines = 68;
  EXPECT_EQ(c.reported().substr(0, 2), "\n ");
  EXPECT_EQ(c.report.nlines, 68 + 7 + 3 + 11); // heading, rows, description
  c.report.nlines = 69;
  EXPECT_EQ(c.reported().substr(0, 1), "1");
  EXPECT_EQ(c.report.nlines, 2 + 7 + 3 + 11);
}

// The codes of fixed effects, also those without equations, and of the factors
// before the chosen one are skipped.
TEST(report_deviations, finds_the_codes_of_its_factor) {
  deviation_run c(3, 2, false);
  c.m.TD_FACTOR = 2;
  c.d = deviation_store();
  allocate_deviations(c.m, c.d, c.report);
  c.d.N_TD(2, 1) = c.d.N_TD(2, 2) = 1;
  c.reported();
  EXPECT_EQ(c.content("gib.td_ptd").substr(0, 25), "            7    2      1");
}

TEST(report_deviations, stops_where_the_codes_end) {
  deviation_run c(3, 2, false);
  c.write_codes({{10, 5, 1}, {20, 7, 2}, {1, 6, 1}, {2, 6, 2}, {10, 4, 1}, {20, 3, 2}, {101, 2, 1, 13}});
  EXPECT_EQ(exit_code_of([&] { report_deviations(c.m, c.d, c.frame.asked, c.report); }), 16);
  EXPECT_TRUE(c.said().ends_with(
      "READ  CODE_TABLE - iostat =           -1\n\n\ni2 :            2\nnralev(k) :            3\n"));
}

TEST(report_deviations, stops_where_the_file_cannot_be_written) {
  deviation_run c(3, 2, false);
  c.make_full("gib.td_ptd");
  EXPECT_EQ(exit_code_of([&] { report_deviations(c.m, c.d, c.frame.asked, c.report); }), 16);
}

TEST(report_deviations, says_nothing_when_none_are_wanted) {
  deviation_run c(3, 2, false);
  c.d = deviation_store();
  EXPECT_EQ(c.reported(), "");
}

} // namespace
