#include "numerics/normal_boxes.h"

#include "support/check.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace zeph_test {

using namespace zeph;

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

double box(const std::vector<double>& mean, const std::vector<double>& V, const std::vector<double>& low,
           const std::vector<double>& high, std::int32_t points = 0) {
  heard_run run;
  box_work work;
  const auto n = static_cast<std::int32_t>(mean.size());
  allocate_box_work(run.report, work, n, "test");
  return log_box_probability(work, n, mean.data(), V.data(), n, low.data(), high.data(), points);
}

// P(X > 0, Y > 0) = 1/4 + asin(rho)/(2 pi): W. F. Sheppard, Philosophical Transactions A 192 (1899) 101-167.
TEST(log_box_probability, of_a_quadrant_is_that_of_sheppard) {
  for (const double rho : {-0.9, -0.5, 0.0, 0.3, 0.8, 0.95})
    EXPECT_NEAR(std::exp(box({0, 0}, {1, rho, rho, 1}, {0, 0}, {infinity, infinity})),
                0.25 + std::asin(rho) / (2 * std::acos(-1.0)), 2e-4 * (1 + 20 * (std::fabs(rho) > 0.85)))
        << rho;
}

TEST(log_box_probability, of_independent_variables_is_a_product) {
  const double p = std::log(0.5 * std::erfc(-1.0 / std::sqrt(2.0))),
               q = std::log(0.5 * std::erfc(2.0 / std::sqrt(2.0)));
  EXPECT_NEAR(box({1, 3}, {4, 0, 0, 9}, {-infinity, 9}, {3, infinity}), p + q, 1e-12);
  EXPECT_NEAR(
      box({1, 3, 0}, {4, 0, 0, 0, 9, 0, 0, 0, 1}, {-infinity, 9, -infinity}, {3, infinity, infinity}, 64),
      p + q, 1e-12);
}

// Octant: 1/8 + (asin a + asin b + asin c)/(4 pi).
TEST(log_box_probability, of_an_octant_is_the_closed_form) {
  const double a = 0.5, b = 0.3, c = 0.6;
  const double exact = 0.125 + (std::asin(a) + std::asin(b) + std::asin(c)) / (4 * std::acos(-1.0));
  EXPECT_NEAR(
      std::exp(box({0, 0, 0}, {1, a, b, a, 1, c, b, c, 1}, {0, 0, 0}, {infinity, infinity, infinity}, 4096)),
      exact, 2e-3);
}

TEST(log_box_probability, of_three_variables_needs_points) {
  EXPECT_TRUE(std::isnan(box({0, 0, 0}, {1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}, {1, 1, 1})));
  EXPECT_EQ(box({}, {}, {}, {}), 0.0);
}

} // namespace
} // namespace zeph_test
