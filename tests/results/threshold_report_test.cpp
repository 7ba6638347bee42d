#include "results/threshold_report.h"

#include "support/chain_frame.h"
#include "support/result_case.h"

#include <cmath>

using namespace results_test;
using namespace zeph;

namespace {

// Two ordered traits, 2 and 5, of four and of two categories; 4 samples.
struct threshold_end : result_case {
  category_store categories;
  zeph_test::chain_frame frame;
  threshold_end() {
    for (const std::int32_t n : {4, 2}) {
      category_record& c = categories.catstr.emplace_back();
      c.trait = n == 4 ? 2 : 5;
      c.ncat_t = n;
      for (vec<double>* v : {&c.thr, &c.thrpostm, &c.thrpostsd}) v->take(range(0, n));
    }
    frame.asked.analysis_type = analysis::gibbs;
    frame.counts.nsamples = 4;
  }
};

} // namespace

// Samples 0.1, 0.2, 0.3, 0.4: mean 0.25, mean square about it 0.05 / 4.
TEST(threshold_report, has_all_but_the_last_and_the_divisor_n) {
  threshold_end c;
  for (const double x : {0.1, 0.2, 0.3, 0.4}) {
    c.categories.catstr[0].thrpostm(2) += x;
    c.categories.catstr[0].thrpostsd(2) += x * x;
  }
  c.categories.catstr[0].thrpostm(3) = c.categories.catstr[0].thrpostsd(3) = 4.0; // 1 in each
  c.categories.catstr[1].thrpostm(1) = 4.0;
  c.categories.catstr[1].thrpostsd(1) = 4.0 - 1e-12; // below the square of the mean by rounding
  report_thresholds(c.categories, c.frame.asked, c.frame.counts, c.report);
  std::istringstream lines(c.said());
  std::string line;
  const auto numbers = [&] {
    std::getline(lines, line);
    std::istringstream cells(line);
    std::vector<double> row;
    for (double x = 0; cells >> x;) row.push_back(x);
    return row;
  };
  std::getline(lines, line);
  EXPECT_EQ(line, "       Posterior mean and Std of thresholds");
  std::getline(lines, line);
  EXPECT_EQ(line, "       Trait           2");
  EXPECT_EQ(numbers(), (std::vector<double>{1, 0, 0}));
  const std::vector<double> second = numbers();
  ASSERT_EQ(second.size(), 3U);
  EXPECT_NEAR(second[1], 0.25, 1e-15);
  EXPECT_NEAR(second[2], std::sqrt(0.0125), 1e-14);
  EXPECT_EQ(numbers(), (std::vector<double>{3, 1, 0}));
  std::getline(lines, line);
  EXPECT_EQ(line, "       Trait           5");
  EXPECT_EQ(numbers(), (std::vector<double>{1, 1, 0}));
  EXPECT_FALSE(std::getline(lines, line));
}

TEST(threshold_report, of_no_samples_gives_what_the_arithmetic_gives) {
  threshold_end c;
  c.frame.counts.nsamples = 0;
  report_thresholds(c.categories, c.frame.asked, c.frame.counts, c.report);
  EXPECT_NE(c.said().find("                     NaN                      NaN\n"), std::string::npos);
}

TEST(threshold_report, says_nothing_of_the_solver) {
  threshold_end c;
  c.frame.asked.analysis_type = analysis::solve;
  c.frame.counts.nsamples = 0;
  report_thresholds(c.categories, c.frame.asked, c.frame.counts, c.report);
  EXPECT_EQ(c.said(), "");
}

TEST(threshold_report, says_nothing_without_ordered_traits) {
  threshold_end c;
  report_thresholds({}, c.frame.asked, c.frame.counts, c.report);
  EXPECT_EQ(c.said(), "");
}

TEST(clear_threshold_sums, lets_the_next_model_start_from_0) {
  threshold_end c;
  c.categories.catstr[0].thr(2) = 0.5;
  c.categories.catstr[0].thrpostm(2) = c.categories.catstr[0].thrpostsd(2) = 3.0;
  clear_threshold_sums(c.categories);
  EXPECT_EQ(c.categories.catstr[0].thrpostm(2), 0.0);
  EXPECT_EQ(c.categories.catstr[0].thrpostsd(2), 0.0);
  EXPECT_EQ(c.categories.catstr[0].thr(2), 0.5);
}
