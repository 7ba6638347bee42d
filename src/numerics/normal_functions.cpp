#include "numerics/normal_functions.h"

#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "numerics/published_tables.h"

#include <cmath>

namespace zeph {

namespace {

constexpr double root_two_pi = 2.506628274631001;
constexpr double no_tail = 37.0;        // tails beyond are 0
constexpr double fraction_from = 7.071; // here the continued fraction takes over

// Numerator and denominator of the tail over exp(-v^2/2), highest power first.
constexpr double N[] = {0.03526249659989109, 0.7003830644436881, 6.37396220353165, 33.912866078383,
                        112.0792914978709,   221.2135961699311,  220.2068679123761};
constexpr double D[] = {0.08838834764831845, 1.755667163182642, 16.06417757920695, 86.78073220294608,
                        296.5642487796737,   637.3336333788311, 793.8265125199484, 440.4137358247522};

template <int n> double polynomial(const double (&c)[n], double v) {
  double sum = c[0];
  for (int i = 1; i < n; ++i) sum = sum * v + c[i];
  return sum;
}

} // namespace

void normal_tail(double x, double& lower, double& upper, double& pdf) {
  const double v = std::fabs(x);
  if (v > no_tail) {
    pdf = 0.0;
    lower = x > 0.0 ? 1.0 : 0.0;
    upper = x > 0.0 ? 0.0 : 1.0;
    return;
  }
  // tail = e^(-v^2/2) N(v)/D(v), or the density over v+1/(v+2/(v+3/(v+4/(v+0.65))))
  const double e = std::exp(-v * v / 2.0);
  pdf = e / root_two_pi;
  const double tail = v < fraction_from ? e * polynomial(N, v) / polynomial(D, v)
                                        : pdf / (v + 1.0 / (v + 2.0 / (v + 3.0 / (v + 4.0 / (v + 0.65)))));
  lower = x < 0.0 ? tail : 1.0 - tail;
  upper = x < 0.0 ? 1.0 - tail : tail;
}

namespace {

using cody = cody_tables;

// factor times a quotient of polynomials in v as Cody's tables give it: the last
// element of top leads and the one before it ends; bottom is led by 1.
template <int n, int m>
double quotient(const double (&top)[n], const double (&bottom)[m], double v, double factor = 1.0) {
  static_assert(n == m + 1);
  double over = top[n - 1] * v, under = v;
  for (int i = 0; i < m - 1; ++i) {
    over = (over + top[i]) * v;
    under = (under + bottom[i]) * v;
  }
  return factor * (over + top[m - 1]) / (under + bottom[m - 1]);
}

// exp(-y^2/2), the exponent in two parts so that its digits are kept
double split_exponential(double y) {
  const double head = std::trunc(y * cody::sixten) / cody::sixten;
  const double rest = (y - head) * (y + head);
  return std::exp(-head * head * 0.5) * std::exp(-rest * 0.5);
}

// Tail of y > thrsh
double cody_tail(double y) {
  // From here on the tail is below 2^-1022, and the split could overflow.
  constexpr double certainly_zero = 40.0;
  if (y > certainly_zero) return 0.0;
  if (y <= cody::root32) return split_exponential(y) * quotient(cody::C, cody::D, y);
  const double v = 1.0 / (y * y);
  const double r = quotient(cody::P, cody::Q, v, v);
  return split_exponential(y) * ((cody::sqrpi - r) / y);
}

// Starting value of the inverse for p <= 1/2
double starting_value(double p) {
  using table = inverse_tables;
  const double y = std::sqrt(-2.0 * std::log(p));
  double top = table::XNUM[4], bottom = table::XDEN[4];
  for (int i = 3; i >= 0; --i) {
    top = table::XNUM[i] + top * y;
    bottom = table::XDEN[i] + bottom * y;
  }
  return -(y + top / bottom);
}

// The standard normal x with lower tail p <= 1/2
double inverse_tail(double p) {
  using table = inverse_tables;
  const double start = starting_value(p);
  double x = start;
  for (int step = 1; step <= table::maxit; ++step) {
    double lower, upper;
    cumnor(x, lower, upper);
    // Newton: x - (Phi(x) - p) / phi(x); without convergence the start value is the result
    const double dx = (lower - p) / (table::r2pi * std::exp(table::nhalf * x * x));
    x -= dx;
    if (std::fabs(dx / x) < table::eps) return x;
  }
  return start;
}

[[noreturn]] void parameters_incorrect(reporting& report, const char* words) {
  say(report, words);
  stop_run(report, exit_diagnosed);
}

} // namespace

void cumnor(double x, double& lower, double& upper) {
  const double y = std::fabs(x);
  if (y <= cody::thrsh) {
    // near 0: Phi = 1/2 + x A(x^2)/B(x^2)
    const double part = quotient(cody::A, cody::B, y > cody::eps ? x * x : 0.0, x);
    lower = 0.5 + part;
    upper = 0.5 - part;
    return;
  }
  const double tail = cody_tail(y), small = tail < cody::min ? 0.0 : tail;
  lower = x > 0.0 ? 1.0 - tail : small;
  upper = x > 0.0 ? small : 1.0 - tail;
}

double NORMALCDF(reporting& report, double x, double mean, double sd) {
  if (!(sd > 0.0)) parameters_incorrect(report, "Parameters for NORMALCDF incorrect");
  double lower, upper;
  cumnor((x - mean) / sd, lower, upper);
  return lower;
}

double normal_quantile(double p) {
  const double q = 1.0 - p;
  return p <= q ? inverse_tail(p) : -inverse_tail(q);
}

double NORMAL_INVCDF(reporting& report, double& p, double mean, double sd) {
  p = clipped_probability(p);
  if (!(sd > 0.0) || std::isnan(p)) parameters_incorrect(report, "Parameters for NORMAL_INVCDF incorrect");
  return sd * normal_quantile(p) + mean;
}

} // namespace zeph
