#include "numerics/normal_boxes.h"

#include "numerics/storage_door.h"
#include "numerics/truncated_normals.h"

#include <array>
#include <boost/math/quadrature/gauss.hpp>
#include <cmath>
#include <limits>

namespace zeph {
namespace {

constexpr double no_number = std::numeric_limits<double>::quiet_NaN();
constexpr double minus_infinity = -std::numeric_limits<double>::infinity();

// Sum of terms that are known by their logarithms.
struct log_sum {
  double top = minus_infinity, sum = 0;
  void add(double x) {
    if (x == minus_infinity) return;
    if (x <= top) {
      sum += std::exp(x - top);
    } else {
      sum = sum * std::exp(top - x) + 1.0;
      top = x;
    }
  }
  double value() const { return sum > 0 ? top + std::log(sum) : minus_infinity; }
};

// L of V, lower; false when V is not positive definite.
bool factor(std::int32_t n, const double* V, std::int64_t ldv, double* L) {
  for (std::int32_t j = 0; j < n; ++j)
    for (std::int32_t i = j; i < n; ++i) {
      double sum = V[i + j * ldv];
      for (std::int32_t k = 0; k < j; ++k) sum -= L[i + k * n] * L[j + k * n];
      if (i == j && !(sum > 0)) return false;
      L[i + j * n] = i == j ? std::sqrt(sum) : sum / L[j + j * n];
    }
  return true;
}

struct box {
  std::int32_t n = 0;
  const double *mean = nullptr, *low = nullptr, *high = nullptr, *L = nullptr;
};

// log of the conditional probability of variable i (from 0) given z of those before it; its bounds in a, b.
double conditional(const box& x, const double* z, std::int32_t i, double& a, double& b) {
  double centre = x.mean[i];
  for (std::int32_t k = 0; k < i; ++k) centre += x.L[i + k * x.n] * z[k];
  a = (x.low[i] - centre) / x.L[i + i * x.n];
  b = (x.high[i] - centre) / x.L[i + i * x.n];
  return log_normal_between(a, b);
}

// log of the integrand at the uniforms u(k) of variables 0..n-2, the first variable's probability left out.
template <class Uniform> double log_integrand(const box& x, double* z, const Uniform& u) {
  double a = 0, b = 0, log_p = 0;
  conditional(x, z, 0, a, b);
  for (std::int32_t i = 1; i < x.n; ++i) {
    z[i - 1] = normal_between(a, b, u(i - 1));
    log_p += conditional(x, z, i, a, b);
    if (log_p == minus_infinity) break;
  }
  return log_p;
}

double two_variables(const box& x, double* z) {
  using rule = boost::math::quadrature::gauss<double, box_nodes>;
  log_sum total;
  for (std::size_t k = 0; k < rule::abscissa().size(); ++k) // the non-negative half of the nodes in (-1,1)
    for (const double side : {-1.0, 1.0}) {
      const double u = 0.5 * (1.0 + side * rule::abscissa()[k]);
      total.add(std::log(0.5 * rule::weights()[k]) + log_integrand(x, z, [u](std::int32_t) { return u; }));
    }
  return total.value();
}

double more_variables(const box& x, double* z, std::int32_t points) {
  constexpr std::array<double, 31> primes = {2,  3,  5,  7,   11,  13,  17,  19,  23, 29, 31,
                                             37, 41, 43, 47,  53,  59,  61,  67,  71, 73, 79,
                                             83, 89, 97, 101, 103, 107, 109, 113, 127};
  log_sum total;
  for (std::int32_t i = 1; i <= points; ++i)
    total.add(log_integrand(x, z, [&](std::int32_t j) {
      const double step = i * std::sqrt(primes[static_cast<std::size_t>(j) % primes.size()]);
      return std::fabs(2.0 * (step - std::floor(step)) - 1.0);
    }));
  return total.value() - std::log(static_cast<double>(points));
}

} // namespace

void allocate_box_work(reporting& report, box_work& work, std::int32_t n, std::string_view routine) {
  allocate(report, work.factor, "factor", routine, std::int64_t{n} * n);
  allocate(report, work.z, "z", routine, n);
}

double log_box_probability(box_work& work, std::int32_t n, const double* mean, const double* V,
                           std::int64_t ldv, const double* low, const double* high, std::int32_t points) {
  if (n == 0) return 0.0;
  if (n > 2 && points < 1) return no_number;
  if (!factor(n, V, ldv, work.factor.data())) return no_number;
  const box x{n, mean, low, high, work.factor.data()};
  double a = 0, b = 0;
  const double first = conditional(x, work.z.data(), 0, a, b);
  if (n == 1 || first == minus_infinity) return first;
  if (n == 2 && x.L[1] == 0.0) return first + conditional(x, work.z.data(), 1, a, b); // independent
  return first + (n == 2 ? two_variables(x, work.z.data()) : more_variables(x, work.z.data(), points));
}

} // namespace zeph
