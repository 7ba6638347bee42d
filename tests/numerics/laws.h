// Tests of draws by their law. Seeds are fixed, so a test always ends alike; over
// all seeds a right draw would fail each single check with probability 1e-4.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace laws {

inline constexpr double kolmogorov_bound = 2.2253; // 2 exp(-2 x^2) = 1e-4
inline constexpr double normal_bound = 3.8906;     // 2 P(Z > x) = 1e-4

// Root n times the largest distance of the empirical distribution from F.
template <class cdf> double kolmogorov(std::vector<double> x, cdf F) {
  std::sort(x.begin(), x.end());
  const double n = static_cast<double>(x.size());
  double largest = 0.0;
  for (std::size_t i = 0; i < x.size(); ++i) {
    const double f = F(x[i]), below = static_cast<double>(i) / n;
    largest = std::max({largest, f - below, below + 1.0 / n - f});
  }
  return std::sqrt(n) * largest;
}
template <class cdf> void expect_law(const std::vector<double>& x, cdf F, const std::string& what = "") {
  EXPECT_LT(kolmogorov(x, F), kolmogorov_bound) << what;
}

// The sum of n independent variables with this mean and variance each, as a
// standard normal.
inline void expect_sum(double sum, double n, double mean, double variance, const std::string& what) {
  EXPECT_LT(std::fabs(sum - n * mean) / std::sqrt(n * variance), normal_bound) << what;
}

// First three moments about the true mean; m2, m3, m4, m6 are central moments.
struct moments {
  double mean, m2, m3, m4, m6;
};
inline void expect_moments(const std::vector<double>& x, const moments& m, const std::string& what = "") {
  double s1 = 0.0, s2 = 0.0, s3 = 0.0;
  for (const double v : x) {
    const double d = v - m.mean;
    s1 += d;
    s2 += d * d;
    s3 += d * d * d;
  }
  const double n = static_cast<double>(x.size());
  expect_sum(s1, n, 0.0, m.m2, what + " mean");
  expect_sum(s2, n, m.m2, m.m4 - m.m2 * m.m2, what + " variance");
  expect_sum(s3, n, m.m3, m.m6 - m.m3 * m.m3, what + " third moment");
}
inline constexpr moments standard_normal = {0.0, 1.0, 0.0, 3.0, 15.0};

inline double normal_cdf(double x) { return 0.5 * std::erfc(-x * std::sqrt(0.5)); }

// Distribution function of the standard gamma law of shape a: the power series of
// the incomplete gamma function below a + 1, Legendre's continued fraction beyond
// (Abramowitz and Stegun 6.5.29, 6.5.31).
inline double gamma_cdf(double a, double x) {
  if (x <= 0.0) return 0.0;
  const double front = std::exp(a * std::log(x) - x - std::lgamma(a));
  if (x < a + 1.0) {
    double term = 1.0 / a, sum = term;
    for (double k = a + 1.0; term > 1e-17 * sum; k += 1.0) sum += term *= x / k;
    return front * sum;
  }
  double b = x + 1.0 - a, c = 1e300, d = 1.0 / b, h = d;
  for (int i = 1; i < 1000; ++i) {
    const double an = -i * (i - a);
    b += 2.0;
    d = 1.0 / (an * d + b);
    c = b + an / c;
    h *= d * c;
    if (std::fabs(d * c - 1.0) < 1e-15) break;
  }
  return 1.0 - front * h;
}
inline double chi_square_cdf(double degrees, double x) { return gamma_cdf(degrees / 2.0, x / 2.0); }

// n values of draw() in 64 bits.
template <class draw> std::vector<double> sample(int n, draw next) {
  std::vector<double> x(static_cast<std::size_t>(n));
  for (double& v : x) v = static_cast<double>(next());
  return x;
}

} // namespace laws
