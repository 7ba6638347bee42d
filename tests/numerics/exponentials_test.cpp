// e^x against the long double function of the C library.
#include "numerics/exponentials.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace {

TEST(exponentials, of_negative_numbers_are_within_a_unit_in_the_last_place) {
  EXPECT_EQ(zeph::exp_of_negative(0.0), 1.0);
  EXPECT_EQ(zeph::exp_of_negative(-0.0), 1.0);
  double worst = 0;
  for (int i = 1; i <= 400000; ++i) {
    const double x = -708.0 * std::pow(i / 400000.0, 3.0);
    const long double truth = std::exp(static_cast<long double>(x));
    worst = std::fmax(worst, static_cast<double>(
                                 std::fabs(static_cast<long double>(zeph::exp_of_negative(x)) / truth - 1)));
  }
  EXPECT_LT(worst, std::numeric_limits<double>::epsilon());
}

TEST(exponentials, far_below_0_are_tiny_and_no_number_stays_none) {
  EXPECT_GT(zeph::exp_of_negative(-std::numeric_limits<double>::infinity()), 0.0);
  EXPECT_LT(zeph::exp_of_negative(-1e300), 1e-307);
  EXPECT_TRUE(std::isnan(zeph::exp_of_negative(std::numeric_limits<double>::quiet_NaN())));
}

} // namespace
