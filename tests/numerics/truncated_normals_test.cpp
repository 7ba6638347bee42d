#include "numerics/truncated_normals.h"

#include "support/check.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace zeph_test {

using namespace zeph;

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

// Natural logarithms of the lower tail: M. Abramowitz and I. A. Stegun, Handbook of Mathematical Functions,
// table 26.2 (-log10 Q(x)), 5 decimals.
TEST(log_normal_lower, agrees_with_published_tails) {
  const double log_10 = std::log(10.0);
  for (const auto& [x, minus_log10] : {std::pair{5.0, 6.54265},
                                       {10.0, 23.11805},
                                       {20.0, 88.56010},
                                       {50.0, 544.96634},
                                       {100.0, 2173.87154},
                                       {500.0, 54289.90830}})
    EXPECT_NEAR(log_normal_lower(-x), -minus_log10 * log_10, 1e-5 * log_10 + 1e-9 * minus_log10) << x;
  EXPECT_NEAR(log_normal_lower(0.0), std::log(0.5), 1e-15);
  EXPECT_EQ(log_normal_lower(infinity), 0.0);
  EXPECT_EQ(log_normal_lower(-infinity), -infinity);
}

// Both sides of x = -37 give the same function.
TEST(log_normal_lower, has_no_step_where_the_series_begins) {
  const double below = log_normal_lower(-37.0 - 1e-9), above = log_normal_lower(-37.0 + 1e-9);
  EXPECT_NEAR(below, above, 2e-9 * 37.1 + 1e-9);
}

TEST(log_normal_between, is_the_difference_of_the_tails) {
  EXPECT_NEAR(log_normal_between(-1.0, 1.0), std::log(std::erf(std::sqrt(0.5))), 1e-14);
  EXPECT_NEAR(log_normal_between(-infinity, 1.3), std::log(0.5 * std::erfc(-1.3 / std::sqrt(2.0))), 1e-14);
  // far out the interval (a, a + d) has the probability of (a, infinity) times 1 - exp(-a d), nearly
  EXPECT_NEAR(log_normal_between(60.0, 60.0 + 1.0 / 60.0),
              log_normal_lower(-60.0) + std::log1p(-std::exp(-1.0 - 0.5 / 3600)), 1e-3);
  EXPECT_NEAR(log_normal_between(-60.0 - 1.0 / 60.0, -60.0), log_normal_between(60.0, 60.0 + 1.0 / 60.0),
              1e-12);
  EXPECT_EQ(log_normal_between(infinity, infinity), -infinity);
}

TEST(normal_between, is_the_inverse_of_the_truncated_distribution) {
  for (const auto& [a, b] : {std::pair{-1.0, 2.0},
                             {3.0, 4.0},
                             {9.0, infinity},
                             {-infinity, -20.0},
                             {40.0, 40.1},
                             {-0.1, -0.09999}})
    for (const double u : {0.01, 0.3, 0.5, 0.99}) {
      const double x = normal_between(a, b, u);
      ASSERT_GE(x, a);
      ASSERT_LE(x, b);
      const double got = std::exp(log_normal_between(a, x) - log_normal_between(a, b));
      EXPECT_NEAR(got, u, b < 0.0 || a < 30.0 ? 1e-6 : 2e-3)
          << a << " " << b; // far out the first term of a series
    }
}

// Mean of N(m, s^2) between a and b: m + s (phi(a') - phi(b'))/P, by the closed form in long double, in
// every regime of the draw; error probability 7e-6 each.
TEST(truncated_normal, has_the_mean_of_the_truncated_distribution) {
  heard_run run;
  random_sources sources{run.report};
  SETALL(sources.combined, 12345, 67890);
  const auto phi = [](long double x) { return std::exp(-0.5L * x * x) / std::sqrt(2.0L * std::acos(-1.0L)); };
  for (const auto& [a, b] : {std::pair{-1.0, 1.5},
                             {-infinity, 0.3},
                             {4.5, infinity},
                             {-9.0, -6.0},
                             {0.2, 0.20005},
                             {-infinity, -12.0}}) {
    constexpr int n = 40000;
    double sum = 0, squares = 0;
    for (int i = 0; i < n; ++i) {
      const double x = truncated_normal(sources.combined, 2 + 3 * a, 2 + 3 * b, 2.0, 9.0);
      ASSERT_TRUE(x >= 2 + 3 * a && x <= 2 + 3 * b);
      const double z = (x - 2) / 3;
      sum += z, squares += z * z;
    }
    const long double la = a, lb = b,
                      P = 0.5L * (std::erfc(la / std::sqrt(2.0L)) - std::erfc(lb / std::sqrt(2.0L)));
    const long double Q =
        a < 0 && b < 0 ? 0.5L * (std::erfc(-lb / std::sqrt(2.0L)) - std::erfc(-la / std::sqrt(2.0L))) : P;
    const double exact = static_cast<double>((phi(la) - phi(lb)) / Q), mean = sum / n;
    EXPECT_NEAR(mean, exact, 4.5 * std::sqrt(std::max(squares / n - mean * mean, 1e-14) / n) + 1e-9)
        << a << " " << b;
  }
}

// Beyond 37 standard deviations the excess over the bound is exponential: mean 1/a - 1/a^3 ...
TEST(truncated_normal, draws_an_exponential_excess_far_out) {
  heard_run run;
  random_sources sources{run.report};
  SETALL(sources.combined, 12345, 67890);
  constexpr int n = 40000;
  double up = 0, down = 0;
  for (int i = 0; i < n; ++i) {
    up += truncated_normal(sources.combined, 100.0, infinity, 0.0, 1.0) - 100.0;
    down += -100.0 - truncated_normal(sources.combined, -infinity, -100.0, 0.0, 1.0);
  }
  for (const double mean : {up / n, down / n}) EXPECT_NEAR(mean, 0.01 - 2e-6, 4.5 * 0.01 / std::sqrt(n));
}

} // namespace
} // namespace zeph_test
