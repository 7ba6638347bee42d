// Set-up of ordered traits: codes, frequencies, thresholds, start liabilities.
#include "input/categorical_traits.h"

#include "support/check.h"

#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace {

using namespace zeph;
using namespace zeph_test;

struct category_case {
  // Codes of one trait of kind 3; -1: missing.
  explicit category_case(const std::vector<float>& codes) {
    m.nt = 1;
    m.ncat = 1;
    m.MODEL_rows.resize(1);
    m.MODEL(1).TRAIT_TYPE = trait_categorical;
    const auto n = static_cast<std::int64_t>(codes.size());
    design.nobs = static_cast<std::int32_t>(n);
    design.Y_M.take(1, n);
    design.ISIT_M.take(n);
    for (std::int64_t r = 1; r <= n; ++r) {
      design.Y_M(1, r) = codes[static_cast<std::size_t>(r - 1)];
      design.ISIT_M(r) = codes[static_cast<std::size_t>(r - 1)] == -1.0F ? 0 : 1;
    }
    SETALL(source, 17, 4242);
  }
  bool may_be_empty = false;
  void set() { SETCAT(m, design, categories, source, may_be_empty, run.report); }
  const category_record& record() const { return categories.catstr[0]; }
  heard_run run;
  model_records m;
  design_store design;
  category_store categories;
  combined_source source{run.report};
};

std::vector<float> repeated(const std::vector<int>& frequencies) {
  std::vector<float> codes;
  for (std::size_t k = 0; k < frequencies.size(); ++k)
    codes.insert(codes.end(), static_cast<std::size_t>(frequencies[k]), static_cast<float>(k + 1));
  return codes;
}

TEST(SETCAT, sets_thresholds_from_frequencies_with_the_outer_ones_at_0_and_1) {
  // cumulative shares 0.1586553, 0.5, 0.8413447: normal quantiles -1, 0, 1 (tables), so the middle one is 1/2
  category_case c(repeated({1587, 3413, 3413, 1587}));
  c.set();
  ASSERT_EQ(c.record().ncat_t, 4);
  EXPECT_EQ(c.record().thr(1), 0.0);
  EXPECT_NEAR(c.record().thr(2), 0.5, 1e-12);
  EXPECT_EQ(c.record().thr(3), 1.0);
  // outer limits move with the scale 1/(b - a), a = -1 and b = 1 to the four digits of the shares
  EXPECT_NEAR(c.record().thr(0), (-999999.0 + 1.0) / 2.0, 100.0);
  EXPECT_NEAR(c.record().thr(4), (999999.0 + 1.0) / 2.0, 100.0);
  for (std::int32_t k = 0; k <= 4; ++k) EXPECT_EQ(c.record().thrpostm(k), 0.0);
}

TEST(SETCAT, draws_start_liabilities_between_the_thresholds_of_the_category) {
  std::vector<float> codes = repeated({30, 50, 20});
  codes.push_back(-1.0F); // missing
  category_case c(codes);
  c.set();
  for (std::int32_t r = 1; r <= 100; ++r) {
    const std::int32_t g = c.categories.catobs(1, r);
    EXPECT_EQ(static_cast<float>(g), codes[static_cast<std::size_t>(r - 1)]);
    EXPECT_GE(static_cast<double>(c.design.Y_M(1, r)), c.record().thr(g - 1) - 1e-6);
    EXPECT_LE(static_cast<double>(c.design.Y_M(1, r)), c.record().thr(g) + 1e-6);
  }
  EXPECT_EQ(c.categories.catobs(1, 101), -1);
  EXPECT_EQ(c.design.Y_M(1, 101), -1.0F);
}

TEST(SETCAT, prints_the_frequencies) {
  category_case c(repeated({3, 2, 4}));
  c.set();
  const std::string text = c.run.text();
  EXPECT_EQ(text.find("       Number of Category traits =           1"), 0U) << text;
  EXPECT_NE(
      text.find("       Trait           1\n       Number of category           3\n       Catagory   Freq\n"
                "           1           3\n           2           2\n           3           4\n"),
      std::string::npos)
      << text;
}

TEST(SETCAT, leaves_two_categories_with_one_threshold_at_1_and_infinite_limits) {
  category_case c(repeated({12, 8}));
  c.set();
  EXPECT_EQ(c.record().thr(1), 1.0);
  EXPECT_FALSE(std::isfinite(c.record().thr(0)));
  EXPECT_FALSE(std::isfinite(c.record().thr(2)));
  EXPECT_EQ(threshold_bound(c.record(), 0), -999999.0);
  EXPECT_EQ(threshold_bound(c.record(), 2), 999999.0);
  for (std::int32_t r = 1; r <= 20; ++r) EXPECT_EQ(c.design.Y_M(1, r) > 1.0F, r > 12);
}

TEST(SETCAT, stops_for_codes_that_are_not_1_to_n_each_with_a_record) {
  const std::string end = "Categories should be coded as 1, 2, ..., n\n"
                          "Each category should have at least one record\n";
  const float huge = 3e9F;
  for (const std::vector<float>& codes : {std::vector<float>{1, 1, 3, 3},
                                          {0, 1, 2, 3},
                                          {1, 1, 1, 1},
                                          {1, 2, huge, 3},
                                          {1, 2, 5, 3},
                                          {-2, 1, 2, 3},
                                          {-1, -1, -1, -1}}) {
    category_case c(codes);
    const std::string text = expect_stop(16, c.run, [&](reporting&) { c.set(); });
    EXPECT_NE(text.find("Fail in category code for trait           1\n" + end), std::string::npos) << text;
  }
}

TEST(SETCAT, lets_inner_categories_be_empty_where_the_chain_may) {
  // 3, 5 and 8 of 10 records up to thresholds 1, 2 (and 3) and 4: Phi^-1 is -0.524401, 0 and 0.841621
  // (tables), so that thr(2) = 0.524401/(0.841621 + 0.524401)
  category_case c({1, 1, 1, 2, 2, 4, 4, 4, 5, 5});
  c.may_be_empty = true;
  c.set();
  EXPECT_EQ(c.record().ncat_t, 5);
  EXPECT_EQ(c.record().thr(1), 0.0);
  EXPECT_NEAR(c.record().thr(2), 0.383889, 1e-6);
  EXPECT_EQ(c.record().thr(3), c.record().thr(2));
  EXPECT_EQ(c.record().thr(4), 1.0);
  // none but the outer categories: places apart by themselves
  category_case two({1, 1, 4, 4});
  two.may_be_empty = true;
  two.set();
  EXPECT_EQ(two.record().thr(1), 0.0);
  EXPECT_EQ(two.record().thr(2), 0.5);
  EXPECT_EQ(two.record().thr(3), 1.0);
  for (std::int32_t r = 1; r <= 4; ++r) EXPECT_TRUE(std::isfinite(two.design.Y_M(1, r)));
  // an outer one needs a record
  category_case outer({2, 2, 3, 3});
  outer.may_be_empty = true;
  expect_stop(16, outer.run, [&](reporting&) { outer.set(); });
}

} // namespace
