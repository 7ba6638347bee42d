#include "numerics/normal_functions.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace zeph {
namespace {

struct tails {
  explicit tails(double x) { normal_tail(x, lower, upper, pdf); }
  double lower, upper, pdf;
};

const double root_half = std::sqrt(0.5);

TEST(normal_tail, at_zero) {
  const tails z(0.0);
  EXPECT_EQ(z.lower, 0.5);
  EXPECT_EQ(z.upper, 0.5);
  EXPECT_NEAR(z.pdf, 0.3989422804014327, 2e-16); // 1/sqrt(2 pi)
}

// Percentage points of the normal distribution as tables print them.
TEST(normal_tail, at_published_points) {
  EXPECT_NEAR(tails(1.959963984540054).lower, 0.975, 1e-15);
  EXPECT_NEAR(tails(1.644853626951472).lower, 0.95, 1e-15);
  EXPECT_NEAR(tails(-2.326347874040841).lower, 0.01, 1e-16);
  EXPECT_NEAR(tails(3.090232306167814).upper, 0.001, 1e-16);
  EXPECT_NEAR(tails(1.0).lower, 0.8413447460685429, 1e-15);
  EXPECT_NEAR(tails(6.0).upper, 9.865876450376981e-10, 1e-17);
  EXPECT_NEAR(tails(1.0).pdf, 0.24197072451914337, 1e-16); // exp(-1/2)/sqrt(2 pi)
}

// The approximation is published as good to 1e-15; the library's erfc is another road.
TEST(normal_tail, agrees_with_erfc_to_the_published_bound) {
  for (int i = -7071; i <= 7071; ++i) {
    const double x = i / 1000.0;
    const tails z(x);
    EXPECT_NEAR(z.upper, 0.5 * std::erfc(x * root_half), 1e-15) << x;
    EXPECT_NEAR(z.lower, 0.5 * std::erfc(-x * root_half), 1e-15) << x;
  }
}

// Both forms lose at most 9e-9 of the tail itself: the rational one just below
// 7.071, the fraction near 8 (extended-precision erfc).
TEST(normal_tail, keeps_its_small_tail_to_eight_digits) {
  for (int i = 0; i < 3700; ++i) {
    const double x = i / 100.0, exact = 0.5 * std::erfc(x * root_half);
    EXPECT_NEAR(tails(x).upper / exact, 1.0, 1e-8) << x;
    EXPECT_NEAR(tails(-x).lower / exact, 1.0, 1e-8) << x;
  }
}

TEST(normal_tail, is_continuous_where_the_fraction_takes_over) {
  const double before = std::nextafter(7.071, 0.0);
  EXPECT_NEAR(tails(before).upper / tails(7.071).upper, 1.0, 1e-8);
  EXPECT_NEAR(tails(before).pdf / tails(7.071).pdf, 1.0, 1e-14);
}

TEST(normal_tail, is_symmetric_and_sums_to_one) {
  for (const double x : {0.001, 0.5, 1.0, 2.75, 7.0, 7.071, 12.0, 36.9, 37.0, 38.0}) {
    const tails z(x), mirrored(-x);
    EXPECT_EQ(z.lower, mirrored.upper);
    EXPECT_EQ(z.upper, mirrored.lower);
    EXPECT_EQ(z.pdf, mirrored.pdf);
    EXPECT_EQ(z.lower, 1.0 - z.upper);
  }
}

TEST(normal_tail, vanishes_beyond_37) {
  for (const double x : {37.5, 1e300, std::numeric_limits<double>::infinity(), std::nextafter(37.0, 38.0)}) {
    const tails z(x), mirrored(-x);
    EXPECT_EQ(z.lower, 1.0);
    EXPECT_EQ(z.upper, 0.0);
    EXPECT_EQ(z.pdf, 0.0);
    EXPECT_EQ(mirrored.lower, 0.0);
    EXPECT_EQ(mirrored.upper, 1.0);
    EXPECT_EQ(mirrored.pdf, 0.0);
  }
  EXPECT_GT(tails(37.0).upper, 0.0);
  EXPECT_GT(tails(37.0).pdf, 0.0);
}

} // namespace
} // namespace zeph
