#include "numerics/truncated_normals.h"

#include "numerics/normal_draws.h"
#include "numerics/normal_functions.h"

#include <algorithm>
#include <boost/math/special_functions/erf.hpp>
#include <cmath>
#include <limits>

namespace zeph {
namespace {

constexpr double root_half = 0.70710678118654752440;
constexpr double root_two = 1.41421356237309504880;
constexpr double half_log_two_pi = 0.91893853320467274178;
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double far_out = 37.0;   // beyond: tail probabilities are no normal numbers of 64 bits
constexpr double far_bound = 40.0; // in place of an infinite bound: its tail is 0
constexpr double likely = 1e-4;    // least probability of an interval that is drawn by the plain routine

double upper_tail(double x) { return 0.5 * std::erfc(x * root_half); }

// log Q(x) for large x, by the asymptotic series
//   Q(x) = phi(x)/x (1 - 1/x^2 + 3/x^4 - 15/x^6 + ..)
double log_upper_far(double x) {
  const double s = 1.0 / (x * x);
  return -0.5 * x * x - half_log_two_pi - std::log(x) + std::log1p(s * (-1.0 + s * (3.0 - 15.0 * s)));
}

// Standard normal between a > 37 and b: a plus an exponential variable with rate a, cut at b, is taken
// with probability exp(-(x - a)^2/2). A uniform here is in (0,1].
double far_draw(combined_source& source, double a, double b) {
  const double mass = -std::expm1(-a * (b - a)); // 1 where b is infinite
  for (;;) {
    const double beyond = -std::log1p(-(1.0 - uniform_range(source)) * mass) / a;
    if (std::log(uniform_range(source)) <= -0.5 * beyond * beyond) return a + beyond;
  }
}

// Standard normal between a and b, an interval of some probability: the numbers of GEN_TRUNC_NORMAL, but for
// probabilities that NORMAL_INVCDF would clip.
double likely_draw(combined_source& source, double a, double b) {
  double pa = 0, pb = 0, upper = 0;
  cumnor(std::max(a, -far_bound), pa, upper);
  cumnor(std::min(b, far_bound), pb, upper);
  const double p = pa + (pb - pa) * static_cast<double>(ranf(source));
  if (p >= lowest_probability && p <= highest_probability) return normal_quantile(p);
  const double tail = std::max(std::min(p, 1.0 - p), std::numeric_limits<double>::min());
  return (p < 0.5 ? -root_two : root_two) * boost::math::erfc_inv(2.0 * tail);
}

// Standard normal between a and b, the interval not in the lower half: a + b >= 0.
double upper_draw(combined_source& source, double a, double b) {
  if (a > far_out) return far_draw(source, a, b);
  const double qa = upper_tail(a), qb = b < infinity ? upper_tail(b) : 0.0;
  const double q = std::max(qb + (qa - qb) * uniform_range(source), std::numeric_limits<double>::min());
  return root_two * boost::math::erfc_inv(2.0 * q);
}

// True where the interval's probability is above `likely` at a glance: Q(3) = 0.00135; within 2.5 of 0 the
// density is at least 0.0175.
bool surely_likely(double lo, double hi) {
  if (hi == infinity && lo <= 3.0) return true;
  if (lo == -infinity && hi >= -3.0) return true;
  return lo >= -2.5 && hi <= 2.5 && hi - lo >= 0.01;
}

bool is_likely(double lo, double hi) {
  if (surely_likely(lo, hi)) return true;
  return (lo > 0.0 ? upper_tail(lo) - upper_tail(hi) : upper_tail(-hi) - upper_tail(-lo)) >= likely;
}

} // namespace

double log_normal_lower(double x) {
  if (x > -far_out) return x > 5.0 ? std::log1p(-upper_tail(x)) : std::log(upper_tail(-x));
  return x == -infinity ? -infinity : log_upper_far(-x);
}

double log_normal_between(double a, double b) {
  if (!(a < b)) return -infinity;
  if (a + b < 0.0) return log_normal_between(-b, -a);
  // log(Q(a) - Q(b)) in the upper half
  const double la = log_normal_lower(-a), lb = b < infinity ? log_normal_lower(-b) : -infinity;
  return la + std::log1p(-std::exp(lb - la));
}

double normal_between(double a, double b, double u) {
  if (a + b < 0.0 || (b == infinity && a == -infinity && u < 0.5)) return -normal_between(-b, -a, 1.0 - u);
  if (a > far_out) // a plus an exponential variable with rate a, cut at b
    return std::clamp(a - std::log1p(u * std::expm1(-a * (b - a))) / a, a, b);
  const double qa = upper_tail(a), qb = b < infinity ? upper_tail(b) : 0.0;
  const double q = std::max(qa + (qb - qa) * u, std::numeric_limits<double>::min());
  return std::clamp(root_two * boost::math::erfc_inv(2.0 * std::min(q, 1.0 - 1e-16)), a, b);
}

double truncated_normal(combined_source& source, double a, double b, double mean, double var) {
  const double sd = std::sqrt(var);
  const double lo = (a - mean) / sd, hi = (b - mean) / sd;
  double x = 0;
  if (is_likely(lo, hi)) {
    x = mean + sd * likely_draw(source, lo, hi);
  } else if (lo + hi >= 0.0) {
    x = mean + sd * upper_draw(source, lo, hi);
  } else {
    x = mean - sd * upper_draw(source, -hi, -lo);
  }
  return std::clamp(x, a, b); // rounding may leave the interval
}

} // namespace zeph
