#include "results/model_fit.h"

#include "support/chain_frame.h"
#include "support/result_case.h"

#include <cmath>
#include <limits>

using namespace results_test;
using namespace zeph;

namespace {

// A row of py with a model vector of two entries.
std::string py_row(const std::string& v) { return "           7           1           2 " + v + "\n"; }

fit_statistics fit_of(const std::vector<std::string>& values) {
  result_case c;
  std::string rows;
  for (const std::string& v : values) rows += py_row(v);
  c.write("py", rows);
  return fit_of_py(2, c.report);
}

constexpr double infinity = std::numeric_limits<double>::infinity();

} // namespace

TEST(model_fit, three_rows_agree_with_the_closed_forms) {
  const fit_statistics fit = fit_of({"1.0", "2.0", "3.0"});
  EXPECT_EQ(fit.nsamp_py, 3);
  EXPECT_EQ(fit.m, 3.0);
  EXPECT_DOUBLE_EQ(fit.S, 1 + std::exp(-1.0) + std::exp(-2.0));
  EXPECT_EQ(fit.Q, 14.0);
  EXPECT_EQ(fit.T, 6.0);
  // log(1.5032147244080551 / 3) - 3 = -0.6910062... - 3
  EXPECT_DOUBLE_EQ(fit.L, std::log(1.5032147244080551) - std::log(3.0) - 3);
  EXPECT_DOUBLE_EQ(fit.V, 1.0);
  EXPECT_EQ(fit.A, 2.0);
}

TEST(model_fit, two_rows_agree_with_the_closed_forms) {
  const fit_statistics fit = fit_of({"10.0", "14.0"});
  EXPECT_DOUBLE_EQ(fit.L, std::log((1 + std::exp(-4.0)) / 2) - 14);
  EXPECT_DOUBLE_EQ(fit.V, 8.0); // (2^2 + 2^2) / 1
  EXPECT_EQ(fit.A, 12.0);
}

TEST(model_fit, one_row_has_no_variance) {
  const fit_statistics fit = fit_of({"5.25"});
  EXPECT_EQ(fit.L, -5.25); // log(1) - 5.25
  EXPECT_EQ(fit.V, 0.0);
  EXPECT_EQ(fit.A, 5.25);
}

TEST(model_fit, empty_file_gives_what_the_arithmetic_gives) {
  const fit_statistics fit = fit_of({});
  EXPECT_EQ(fit.nsamp_py, 0);
  EXPECT_EQ(fit.m, -1.7976931348623157e308);
  EXPECT_EQ(fit.S, 0.0);
  EXPECT_TRUE(std::isnan(fit.L));
  EXPECT_EQ(fit.V, 0.0);
  EXPECT_TRUE(std::isnan(fit.A));
}

TEST(model_fit, rows_that_are_no_numbers_are_legal) {
  const fit_statistics fit = fit_of({"1.0", "NaN", "4.0"});
  EXPECT_EQ(fit.nsamp_py, 3);
  EXPECT_EQ(fit.m, 4.0); // no comparison with NaN holds
  EXPECT_TRUE(std::isnan(fit.S));
  EXPECT_TRUE(std::isnan(fit.L));
  EXPECT_TRUE(std::isnan(fit.V));
  EXPECT_TRUE(std::isnan(fit.A));
}

TEST(model_fit, infinite_rows_follow_the_arithmetic) {
  const fit_statistics low = fit_of({"-Infinity", "2.0"}); // exp(-inf) = 0
  EXPECT_EQ(low.m, 2.0);
  EXPECT_EQ(low.S, 1.0);
  EXPECT_DOUBLE_EQ(low.L, std::log(0.5) - 2);
  EXPECT_EQ(low.A, -infinity);
  const fit_statistics high = fit_of({"Infinity", "2.0"}); // inf - inf
  EXPECT_TRUE(std::isnan(high.S));
  EXPECT_EQ(high.A, infinity);
}

TEST(model_fit, very_large_rows_keep_the_likelihood_finite) {
  const fit_statistics near = fit_of({"1.0E+8", "1.00000001E+8"}); // one apart
  EXPECT_DOUBLE_EQ(near.S, 1 + std::exp(-1.0));
  EXPECT_DOUBLE_EQ(near.L, std::log((1 + std::exp(-1.0)) / 2) - 100000001.0);
  const fit_statistics far = fit_of({"1.0E+300", "1.0E+300"});
  EXPECT_EQ(far.S, 2.0);
  EXPECT_EQ(far.L, -1e300);
  EXPECT_EQ(far.A, 1e300);
  EXPECT_TRUE(std::isnan(far.V)); // squares beyond the range: inf - inf
}

TEST(model_fit, rounds_beyond_32_bits_are_read) {
  result_case c;
  c.write("py", " 3000000000 1 2 1.5\n");
  EXPECT_EQ(fit_of_py(2, c.report).A, 1.5);
}

TEST(model_fit, text_in_py_is_illegal_input) {
  result_case c;
  c.write("py", py_row("1.0") + py_row("one"));
  EXPECT_EQ(exit_code_of([&] { fit_of_py(2, c.report); }), 16);
  EXPECT_EQ(c.said(), zeph_test::illegal_input_text("py", "row(2)", "a text", "numbers only"));
}

namespace {

struct fit_case : result_case {
  model_records m = dairy_model();
  equation_layout layout = dairy_layout();
  zeph_test::chain_frame frame;
  sample_files files;
  fit_case() {
    frame.asked.analysis_type = analysis::sums;
    frame.state.iround = 10;
    frame.state.ntr = {2, 1, 2};
  }
  void open() { open_sample_files(m, layout, frame.asked, files, report); }
  void rows(std::initializer_list<double> values) {
    for (const double v : values) write_py(files, frame.state, v, report);
  }
};

} // namespace

TEST(model_fit, listing_and_lpm_of_two_samples) {
  fit_case c;
  c.open();
  c.rows({2.0, 2.0});
  report_model_fit(c.frame.state, c.files, c.report);
  // labels of 41 columns end in column 50; the count's label ends in column 60
  EXPECT_EQ(c.said(), "\nModel fit statistics         \n\n"
                      "         Log Marginal Likelihood:p(y)                    -2.00000000\n"
                      "         Var(-log(p(y|theta))                             0.00000000\n"
                      "         Average(-log(p(y|theta))                         2.00000000\n"
                      "                   No of samples                                   2\n\n");
  EXPECT_EQ(c.content("lpm"), "           2           1           2           2                     -2.0"
                              "                      0.0                      2.0\n");
}

TEST(model_fit, no_samples_are_printed_as_the_arithmetic_gives) {
  fit_case c;
  c.open();
  report_model_fit(c.frame.state, c.files, c.report);
  EXPECT_EQ(c.said(), "\nModel fit statistics         \n\n"
                      "         Log Marginal Likelihood:p(y)                            NaN\n"
                      "         Var(-log(p(y|theta))                             0.00000000\n"
                      "         Average(-log(p(y|theta))                                NaN\n"
                      "                   No of samples                                   0\n\n");
  EXPECT_EQ(c.content("lpm"), "           2           1           2           0                      NaN"
                              "                      0.0                      NaN\n");
}

TEST(model_fit, lpm_gains_a_row_for_each_model_and_py_starts_again) {
  fit_case c;
  c.open();
  c.rows({2.0, 2.0});
  report_model_fit(c.frame.state, c.files, c.report);
  EXPECT_NE(c.content("py"), ""); // reading leaves the rows
  c.frame.state.ntr = {1, 1, 2};
  c.rows({8.0});
  report_model_fit(c.frame.state, c.files, c.report);
  EXPECT_EQ(c.content("py"), "          10           1           1           2                      8.0\n");
  EXPECT_EQ(c.content("lpm"), "           2           1           2           2                     -2.0"
                              "                      0.0                      2.0\n"
                              "           1           1           2           1                     -8.0"
                              "                      0.0                      8.0\n");
}

TEST(model_fit, lpm_that_cannot_be_written_stops_with_code_16) {
  fit_case c;
  std::filesystem::create_symlink("/dev/full", c.path("lpm"));
  c.open();
  c.rows({2.0});
  c.said();
  EXPECT_EQ(exit_code_of([&] { report_model_fit(c.frame.state, c.files, c.report); }), 16);
  EXPECT_NE(c.said().find("\nERROR - lpm: no space left on the device\n\nZEPH terminates.\n"),
            std::string::npos);
}
