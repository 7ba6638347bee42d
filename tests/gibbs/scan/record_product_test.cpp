#include "gibbs/scan/record_product.h"

#include "gibbs/scan_case.h"

namespace {

using namespace zeph_test;

double root_weight(const scan_case& c, std::int32_t r, std::int32_t t) {
  return static_cast<double>(c.design.WV_SQRT_M(t, r));
}

TEST(make_riff, is_the_inverse_of_the_observed_part_in_the_solver) {
  two_trait_case c(12, false, true, true);
  const scan_records records = c.records();
  for (std::int32_t r = 1; r <= 12; ++r) {
    make_riff(records.model, records.design, records.sampler, records.work.inverses, r, analysis::solve,
              false);
    const dense_matrix expected = dense_equations::residual_inverse(c, r, analysis::solve);
    for (std::int32_t i = 1; i <= 2; ++i)
      for (std::int32_t j = 1; j <= 2; ++j) EXPECT_NEAR(c.work.inverses.riff(i, j), expected(i, j), 1e-14);
  }
  // record 4 observes trait 1 alone: 1 / R(1,1), and nothing else
  ASSERT_EQ(c.design.ISIT_M(4), 2);
  make_riff(records.model, records.design, records.sampler, records.work.inverses, 4, analysis_of(-1), false);
  EXPECT_EQ(c.work.inverses.riff(1, 2), 0.0);
  EXPECT_EQ(c.work.inverses.riff(2, 2), 0.0);
  EXPECT_NEAR(c.work.inverses.riff(1, 1), 1.0 / group_matrix(c.design.IRESG_M(4))(1, 1), 1e-15);
}

TEST(make_riff, is_the_full_inverse_of_the_group_above_type_0) {
  two_trait_case c(12, false, true, true);
  for (std::int32_t r = 1; r <= 12; ++r) {
    make_riff(c.records().model, c.records().design, c.records().sampler, c.records().work.inverses, r,
              analysis::sums, false);
    const dense_matrix expected = dense_inverse(group_matrix(c.design.IRESG_M(r))).inverse;
    for (std::int32_t i = 1; i <= 2; ++i)
      for (std::int32_t j = 1; j <= 2; ++j) EXPECT_NEAR(c.work.inverses.riff(i, j), expected(i, j), 1e-14);
  }
}

TEST(make_riff, takes_the_roots_of_both_weights_and_the_weight_itself_on_the_diagonal) {
  two_trait_case c(3, true, false, false);
  c.design.WV_M(1, 2) = 7.0F; // no square of its root: shows which of the two is used
  make_riff(c.records().model, c.records().design, c.records().sampler, c.records().work.inverses, 2,
            analysis::sums, true);
  const dense_matrix R = dense_inverse(group_matrix(1)).inverse;
  EXPECT_NEAR(c.work.inverses.riff(1, 1), R(1, 1) * 7.0, 1e-14);
  EXPECT_NEAR(c.work.inverses.riff(2, 2), R(2, 2) * root_weight(c, 2, 2) * root_weight(c, 2, 2), 1e-14);
  EXPECT_NEAR(c.work.inverses.riff(1, 2), R(1, 2) * root_weight(c, 2, 1) * root_weight(c, 2, 2), 1e-14);
  EXPECT_EQ(c.work.inverses.riff(1, 2), c.work.inverses.riff(2, 1));
}

TEST(record_product, is_the_weighted_product_of_two_coefficients) {
  two_trait_case c(1, false, false, false);
  make_riff(c.records().model, c.records().design, c.records().sampler, c.records().work.inverses, 1,
            analysis::sums, false);
  // entry 1: trait 1; entry 2: trait 2
  const double z1 = c.design.ZD_M(1, 1), z2 = c.design.ZD_M(2, 1);
  const dense_matrix R = dense_inverse(group_matrix(1)).inverse;
  EXPECT_NEAR(record_product(c.design, c.work.inverses.riff, 1, 1, 1), R(1, 1) * z1 * z1, 1e-14);
  EXPECT_NEAR(record_product(c.design, c.work.inverses.riff, 1, 2, 1), R(2, 1) * z1 * z2, 1e-14);
  EXPECT_EQ(record_product(c.design, c.work.inverses.riff, 1, 1, 2),
            record_product(c.design, c.work.inverses.riff, 1, 2, 1));
}

TEST(record_product, is_doubled_for_two_coefficients_of_one_equation_but_not_on_the_diagonal) {
  two_trait_case c(1, false, false, false);
  // the last two entries are traits 1 and 2 in the equation of factor 2, z 0.75 and 1
  const std::int32_t m = c.design.M_M(1);
  ASSERT_EQ(c.design.XD1_M(m, 1), c.design.XD1_M(m - 1, 1));
  make_riff(c.records().model, c.records().design, c.records().sampler, c.records().work.inverses, 1,
            analysis::sums, false);
  const dense_matrix R = dense_inverse(group_matrix(1)).inverse;
  EXPECT_NEAR(record_product(c.design, c.work.inverses.riff, 1, m, m - 1), 2.0 * 0.75 * R(2, 1), 1e-14);
  EXPECT_NEAR(record_product(c.design, c.work.inverses.riff, 1, m, m), R(2, 2), 1e-14);
  EXPECT_NEAR(record_product(c.design, c.work.inverses.riff, 1, m - 1, m - 1), 0.75 * 0.75 * R(1, 1), 1e-14);
}

} // namespace
