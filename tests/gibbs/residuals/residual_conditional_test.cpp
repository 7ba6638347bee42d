// Sweeps of a residual matrix against the partitioned inverse.
#include "gibbs/residuals/residual_conditional.h"

#include "support/check.h"
#include "support/dense_matrix.h"

#include <gtest/gtest.h>

namespace {

using namespace zeph;
using namespace zeph_test;

const dense_matrix R(3, {2.0, 0.6, -0.5, 0.6, 1.0, 0.3, -0.5, 0.3, 1.5});

struct swept_case {
  explicit swept_case(const dense_matrix& matrix = R) {
    allocate_conditional(run.report, c, 3, "test");
    std::vector<double> columns;
    for (std::int32_t j = 1; j <= 3; ++j)
      for (std::int32_t i = 1; i <= 3; ++i) columns.push_back(matrix(i, j));
    set_matrix(c, columns.data());
  }
  heard_run run;
  residual_conditional c;
};

// Trait 2 given 1 and 3: with Q = R^-1 mean -(Q21 e1 + Q23 e3)/Q22, variance 1/Q22.
TEST(residual_conditional, gives_mean_and_variance_of_a_trait_given_the_others) {
  const dense_matrix Q = dense_inverse(R).inverse;
  swept_case x;
  const double e[3] = {0.7, 9.0, 0.5}; // 9: outside the mask, not read
  set_border(x.c, e, 5);
  sweep_mask(x.c, 5);
  EXPECT_NEAR(mean_given(x.c, 2), -(Q(2, 1) * 0.7 + Q(2, 3) * 0.5) / Q(2, 2), 1e-14);
  EXPECT_NEAR(covariance_given(x.c, 2, 2), 1.0 / Q(2, 2), 1e-14);
  EXPECT_NEAR(coefficient_given(x.c, 2, 1), -Q(2, 1) / Q(2, 2), 1e-14);
  EXPECT_NEAR(coefficient_given(x.c, 2, 3), -Q(2, 3) / Q(2, 2), 1e-14);
}

// Traits 1 and 3 given 2, by hand: R_tu - R_t2 R_2u / R_22.
TEST(residual_conditional, gives_the_covariance_of_several_traits_given_one) {
  swept_case x;
  const double e[3] = {0.0, 0.4, 0.0};
  set_border(x.c, e, 2);
  sweep_mask(x.c, 2);
  EXPECT_NEAR(covariance_given(x.c, 1, 1), 2.0 - 0.36, 1e-15);
  EXPECT_NEAR(covariance_given(x.c, 1, 3), -0.5 - 0.18, 1e-15);
  EXPECT_NEAR(covariance_given(x.c, 3, 1), -0.5 - 0.18, 1e-15);
  EXPECT_NEAR(covariance_given(x.c, 3, 3), 1.5 - 0.09, 1e-15);
  EXPECT_NEAR(mean_given(x.c, 1), 0.24, 1e-15);
  EXPECT_NEAR(mean_given(x.c, 3), 0.12, 1e-15);
}

TEST(sweep_trait, returns_the_variance_given_the_traits_before) {
  swept_case x;
  EXPECT_EQ(sweep_trait(x.c, 1), 2.0);
  EXPECT_NEAR(sweep_trait(x.c, 2), 1.0 - 0.18, 1e-15);
  double product = 2.0 * (1.0 - 0.18) * sweep_trait(x.c, 3);
  // by the first row: 2 (1.5 - .09) - .6 (.9 + .15) - .5 (.18 + .5)
  EXPECT_NEAR(product, 2.82 - 0.63 - 0.34, 1e-14);
  const dense_matrix Q = dense_inverse(R).inverse;
  for (std::int32_t i = 1; i <= 3; ++i)
    for (std::int32_t j = 1; j <= 3; ++j) EXPECT_NEAR(covariance_given(x.c, i, j), Q(i, j), 1e-14);
}

// 0.9e-12 is below the tolerance, 1.1e-12 isn't.
TEST(sweep_trait, leaves_a_trait_of_next_to_no_variance_unswept) {
  for (const double v : {0.9e-12, 1.1e-12}) {
    swept_case x(dense_matrix(3, {v, 0.0, 1e-13, 0.0, 1.0, 0.3, 1e-13, 0.3, 1.5}));
    EXPECT_EQ(sweep_trait(x.c, 1), v);
    EXPECT_EQ(x.c.swept(1) != 0, v > residual_tolerance);
    if (v < residual_tolerance)
      EXPECT_EQ(coefficient_given(x.c, 3, 1), 0.0);
    else
      EXPECT_NEAR(coefficient_given(x.c, 3, 1), 1e-13 / v, 1e-12);
  }
}

} // namespace
