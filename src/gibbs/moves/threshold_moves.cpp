#include "gibbs/moves/threshold_moves.h"

#include "gibbs/latent/latent_sweep.h"
#include "gibbs/moves/proposals.h"
#include "gibbs/moves/trait_scaling.h"
#include "gibbs/scan/scan_records.h"
#include "numerics/normal_draws.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace zeph {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double smallest_decrement = 1e-16;
constexpr int most_steps = 200;
constexpr int chi_square_normals = 5;

double before(const vec<double>& tau, std::int32_t i) { return i > 1 ? tau(i - 1) : 0.0; }

// tau'(g - H tau / 2)
double quadratic(const threshold_density& f, const vec<double>& tau) {
  double sum = 0;
  for (std::int32_t i = 1; i <= f.d; ++i) {
    sum += tau(i) * (f.g(i) - 0.5 * f.diagonal(i) * tau(i));
    if (i < f.d) sum -= f.next(i) * tau(i) * tau(i + 1);
  }
  return sum;
}

// A multiple of 1, 2, .., d: the best one.
void start_at_multiple(const threshold_density& f, vec<double>& tau) {
  for (std::int32_t i = 1; i <= f.d; ++i) tau(i) = i;
  double n = 0, linear = 0;
  for (std::int32_t i = 1; i <= f.d; ++i) {
    n += f.n(i) + 1.0;
    linear += f.g(i) * tau(i);
  }
  const double square = 2.0 * (linear - quadratic(f, tau)); // tau'H tau
  const double a = (linear + std::sqrt(linear * linear + 4.0 * square * n)) / (2.0 * square);
  for (std::int32_t i = 1; i <= f.d; ++i) tau(i) *= a;
}

// Gradient and negative Hessian (lower triangle) of the function with n_k + 1 and M = 0.
void slopes(const threshold_density& f, const vec<double>& tau, vec<double>& gradient, mat<double>& Hs) {
  Hs.fill(0.0);
  for (std::int32_t i = 1; i <= f.d; ++i) {
    gradient(i) = f.g(i) - f.diagonal(i) * tau(i);
    if (i < f.d) gradient(i) -= f.next(i) * tau(i + 1);
    if (i > 1) gradient(i) -= f.next(i - 1) * tau(i - 1);
    Hs(i, i) += f.diagonal(i);
    if (i > 1) Hs(i, i - 1) += f.next(i - 1);
  }
  for (std::int32_t i = 1; i <= f.d; ++i) {
    const double width = tau(i) - before(tau, i), one = (f.n(i) + 1.0) / width, two = one / width;
    gradient(i) += one;
    Hs(i, i) += two;
    if (i == 1) continue;
    gradient(i - 1) -= one;
    Hs(i - 1, i - 1) += two;
    Hs(i, i - 1) -= two;
  }
}

} // namespace

double log_density(const threshold_density& f, const vec<double>& tau, double more, double M) {
  double sum = quadratic(f, tau);
  for (std::int32_t i = 1; i <= f.d; ++i) {
    const double width = tau(i) - before(tau, i);
    if (!(width > 0.0)) return -infinity;
    sum += (f.n(i) + more) * std::log(width);
  }
  return sum - M * std::log(tau(f.d));
}

bool find_maximum(const threshold_density& f, vec<double>& tau, mat<double>& Hs) {
  const std::int32_t d = f.d;
  start_at_multiple(f, tau);
  vec<double> gradient, step, tried;
  // small: at most the number of categories
  gradient.take(d);
  step.take(d);
  tried.take(d);
  mat<double> L;
  L.take(d, d);
  for (int n = 0; n < most_steps; ++n) {
    slopes(f, tau, gradient, Hs);
    std::copy(Hs.begin(), Hs.end(), L.begin());
    if (!factor_safely(L.data(), d, d)) return false;
    for (std::int32_t i = 1; i <= d; ++i) { // step = Hs^-1 gradient
      double sum = gradient(i);
      for (std::int32_t k = 1; k < i; ++k) sum -= L(i, k) * step(k);
      step(i) = sum / L(i, i);
    }
    solve_upper(L.data(), d, d, step.data());
    double decrement = 0;
    for (std::int32_t i = 1; i <= d; ++i) decrement += gradient(i) * step(i);
    if (!(decrement >= smallest_decrement)) return decrement >= 0.0;
    const double now = log_density(f, tau, 1.0, 0.0);
    double share = 1.0;
    do {
      for (std::int32_t i = 1; i <= d; ++i) tried(i) = tau(i) + share * step(i);
      share *= 0.5;
    } while (!(log_density(f, tried, 1.0, 0.0) > now) && share > smallest_decrement);
    if (!(share > smallest_decrement)) return true; // no rise is left within rounding
    std::copy(tried.begin(), tried.end(), tau.begin());
  }
  return false;
}

} // namespace zeph
