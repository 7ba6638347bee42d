#include "gibbs/moves/threshold_density.h"

#include "gibbs/moves/proposals.h"
#include "numerics/normal_draws.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace zeph {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double smallest_decrement = 1e-16;
constexpr int most_steps = 100;
constexpr int freedom = 5; // of the proposal

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

// The best multiple of 1, 2, .., d. False where the records say nothing of the scale.
bool start_at_multiple(const threshold_density& f, vec<double>& tau) {
  double n = 0, linear = 0;
  for (std::int32_t i = 1; i <= f.d; ++i) {
    tau(i) = i;
    n += f.n(i) + 1.0;
    linear += f.g(i) * tau(i);
  }
  const double square = 2.0 * (linear - quadratic(f, tau)); // tau'H tau
  const double a = (linear + std::sqrt(linear * linear + 4.0 * square * n)) / (2.0 * square);
  for (std::int32_t i = 1; i <= f.d; ++i) tau(i) *= a;
  return std::isfinite(a) && a > 0.0;
}

// Gradient and negative Hessian (lower triangle) of the function with n_i + 1 and M = 0.
void find_slopes(const threshold_density& f, const vec<double>& tau, vec<double>& gradient, mat<double>& Hs) {
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

// step = (L L')^-1 gradient
void solve_step(const mat<double>& L, std::int32_t d, const vec<double>& gradient, vec<double>& step) {
  for (std::int32_t i = 1; i <= d; ++i) {
    double sum = gradient(i);
    for (std::int32_t k = 1; k < i; ++k) sum -= L(i, k) * step(k);
    step(i) = sum / L(i, i);
  }
  solve_upper(L.data(), L.extent(1), d, step.data());
}

// x += the largest of step, step/2, step/4 .. with which the function rises; false where none does within
// rounding.
bool rise(threshold_work& work) {
  const threshold_density& f = work.f;
  const double now = log_density(f, work.x, 1.0, 0.0);
  for (double share = 1.0; share > smallest_decrement; share *= 0.5) {
    for (std::int32_t i = 1; i <= f.d; ++i) work.way(i) = work.x(i) + share * work.step(i);
    if (!(log_density(f, work.way, 1.0, 0.0) > now)) continue;
    for (std::int32_t i = 1; i <= f.d; ++i) work.x(i) = work.way(i);
    return true;
  }
  return false;
}

} // namespace

void allocate_threshold_work(reporting& report, threshold_work& work, std::int32_t d) {
  constexpr std::string_view routine = "find_moves";
  threshold_density& f = work.f;
  for (vec<double>* x : {&f.n, &f.diagonal, &f.next, &f.g, &work.x, &work.now, &work.tau, &work.gradient,
                         &work.step, &work.way})
    allocate(report, *x, "tau", routine, d);
  allocate_rows(report, work.sums, "sums", routine, d + 3);
  allocate_rows(report, work.maps, "maps", routine, d + 3);
  for (mat<double>* x : {&work.Hs, &work.L}) allocate(report, *x, "Hs", routine, d, d);
}

double log_density(const threshold_density& f, const vec<double>& tau, double more, double M) {
  double sum = quadratic(f, tau);
  for (std::int32_t i = 1; i <= f.d; ++i) {
    const double width = tau(i) - before(tau, i);
    if (!(width > 0.0)) return -infinity;
    sum += (f.n(i) + more) * std::log(width);
  }
  return sum - M * std::log(tau(f.d));
}

bool find_maximum(threshold_work& work) {
  const std::int32_t d = work.f.d;
  if (!start_at_multiple(work.f, work.x)) return false;
  for (int n = 0; n < most_steps; ++n) {
    find_slopes(work.f, work.x, work.gradient, work.Hs);
    std::copy(work.Hs.begin(), work.Hs.end(), work.L.begin());
    if (!factor_safely(work.L.data(), work.L.extent(1), d)) return false;
    solve_step(work.L, d, work.gradient, work.step);
    double decrement = 0;
    for (std::int32_t i = 1; i <= d; ++i) decrement += work.gradient(i) * work.step(i);
    if (decrement < smallest_decrement || (decrement >= smallest_decrement && !rise(work))) return true;
    if (!(decrement >= smallest_decrement)) return false; // no number
  }
  return false;
}

void propose_thresholds(threshold_work& work, marsaglia_source& source) {
  const std::int32_t d = work.f.d;
  for (std::int32_t i = 1; i <= d; ++i) work.tau(i) = ranmar_snorm(source);
  double chi_square = 0;
  for (int i = 0; i < freedom; ++i) {
    const double z = ranmar_snorm(source);
    chi_square += z * z;
  }
  solve_upper(work.L.data(), work.L.extent(1), d, work.tau.data());
  const double root = std::sqrt(freedom / chi_square);
  for (std::int32_t i = 1; i <= d; ++i) work.tau(i) = work.x(i) + root * work.tau(i);
}

double log_proposal(const threshold_work& work, const vec<double>& tau) {
  const std::int32_t d = work.f.d;
  double square = 0; // |L'(tau - x)|^2
  for (std::int32_t j = 1; j <= d; ++j) {
    double sum = 0;
    for (std::int32_t i = j; i <= d; ++i) sum += work.L(i, j) * (tau(i) - work.x(i));
    square += sum * sum;
  }
  return -0.5 * (freedom + d) * std::log1p(square / freedom);
}

} // namespace zeph
