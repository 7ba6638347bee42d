#include "numerics/normal_functions.h"

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
  const double e = std::exp(-v * v / 2.0);
  pdf = e / root_two_pi;
  const double tail = v < fraction_from ? e * polynomial(N, v) / polynomial(D, v)
                                        : pdf / (v + 1.0 / (v + 2.0 / (v + 3.0 / (v + 4.0 / (v + 0.65)))));
  lower = x < 0.0 ? tail : 1.0 - tail;
  upper = x < 0.0 ? 1.0 - tail : tail;
}

} // namespace zeph
