#include "prepare/parts/covariable_values.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using zeph::prepare::normalised_legendre;

// Closed forms: P0 = 1, P1 = x, P2 = (3x^2-1)/2, P3 = (5x^3-3x)/2, P4 = (35x^4-30x^2+3)/8, times
// sqrt((2n+1)/2).
TEST(covariable_values, legendre_polynomials_are_those_of_the_closed_forms) {
  for (const double x : {-1.0, -0.3, 0.0, 0.5, 1.0}) {
    EXPECT_DOUBLE_EQ(normalised_legendre(0, x), std::sqrt(0.5));
    EXPECT_DOUBLE_EQ(normalised_legendre(1, x), std::sqrt(1.5) * x);
    EXPECT_NEAR(normalised_legendre(2, x), std::sqrt(2.5) * (3 * x * x - 1) / 2, 1e-15);
    EXPECT_NEAR(normalised_legendre(3, x), std::sqrt(3.5) * (5 * x * x * x - 3 * x) / 2, 1e-15);
    EXPECT_NEAR(normalised_legendre(4, x), std::sqrt(4.5) * (35 * std::pow(x, 4) - 30 * x * x + 3) / 8,
                2e-15);
  }
}

// Mrode and Pocrnic 2023, example 10.1: day 38 of the range 4 to 310, printed to ten digits.
TEST(covariable_values, legendre_polynomials_are_those_printed_for_test_days) {
  const double x = 2.0 * (38.0 - 4.0) / (310.0 - 4.0) - 1.0;
  const double printed[] = {0.7071067812, -0.9525793444, 0.6441676715, -0.0179640615, -0.6204562931};
  for (int n = 0; n < 5; ++n) EXPECT_NEAR(normalised_legendre(n, x), printed[n], 5e-11);
}

} // namespace
