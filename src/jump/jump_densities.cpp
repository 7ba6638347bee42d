#include "jump/jump_densities.h"

#include "formats/free_format.h"
#include "jump/conditional_wishart.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "numerics/packed_matrix.h"

#include <cmath>
#include <vector>

namespace zeph {
namespace {

constexpr double log_pi = 1.1447298858494002;
constexpr double half_log_two = 0.34657359027997264;
constexpr double two_pi = 6.283185307179586;
// kept: constants of the conditional density have the digits of 32-bit numbers
constexpr double half_log_two_short = 0.3465735912322998; // as a 32-bit number
constexpr double half_log_pi_short = 0.5723649429247001;
constexpr double pivot_limit = 9.999999960041972E-12; // 1.0E-11 as a 32-bit number

// A packed copy of the leading n x n part, its rows unswept.
struct packed_copy {
  std::vector<double> a;
  std::vector<logical> swept;
  std::int32_t n;

  packed_copy(const double* x, std::int64_t ld, std::int32_t order)
      : a(static_cast<std::size_t>(order * (order + 1) / 2)), swept(static_cast<std::size_t>(order)),
        n(order) {
    double* to = a.data();
    for (std::int32_t i = 0; i < n; ++i)
      for (std::int32_t j = 0; j <= i; ++j) *to++ = x[i + j * ld];
  }
  // Sweeps row k; its pivot. False when the pivot lies below the limit.
  bool sweep_row(std::int32_t k, double& pivot) {
    int info = 0;
    sweep(k, a.data(), n, pivot_limit, swept.data(), pivot, info);
    return pivot >= pivot_limit;
  }
  // sum over i, j = 1..rows of S(i,j) a(i,j)
  double sum_with(const double* S, std::int64_t lds, std::int32_t rows) const {
    double sum = 0;
    for (std::int32_t i = 1; i <= rows; ++i)
      for (std::int32_t j = 1; j <= rows; ++j)
        sum += S[(i - 1) + (j - 1) * lds] * a[static_cast<std::size_t>(ihmij(i, j, n) - 1)];
    return sum;
  }
};

void say_leading(reporting& report, std::string_view label, const double* x, std::int64_t ld,
                 std::int32_t n) {
  free_row row;
  row.text(label);
  for (std::int32_t j = 0; j < n; ++j)
    for (std::int32_t i = 0; i < n; ++i) row.r8(x[i + j * ld]);
  say(report, row.str());
}

} // namespace

double log_gamma(double a) {
  constexpr double c[6] = {76.18009173, -86.50532033, 24.01409822, -1.231739516, 0.00120858003, -5.36382E-6};
  const double x = a - 1.0;
  // Lanczos: Gamma(x+1) = (x+5.5)^(x+.5) e^-(x+5.5) root(2 pi) (1 + sum of c_i/(x+i)), x = a - 1
  double series = 1.0;
  for (int i = 0; i < 6; ++i) series += c[i] / (x + (i + 1));
  return (a - 0.5) * std::log(a + 4.5) - (a + 4.5) + std::log(2.50662827465 * series);
}

double normal_logdens(double x, double var, double mean) {
  return -0.5 * std::log(two_pi * var) - 0.5 * (x - mean) * (x - mean) / var;
}

double iwdens(reporting& report, std::int32_t n, std::int64_t v, const double* X, std::int64_t ldx,
              const double* S, std::int64_t lds) {
  if (v == 0) return 0;
  const double df = static_cast<double>(v);
  mat<double> inverse;
  allocate(report, inverse, "inverse", "iwdens", n, n);
  double logdet_S = 0, logdet_X = 0;
  int info = 0;
  inverse_logdet(S, lds, inverse.data(), n, n, logdet_S, info);
  if (info != 0) {
    say(report, "Scale matrix n.p.d.");
    stop_run(report, exit_diagnosed);
  }
  inverse_logdet(X, ldx, inverse.data(), n, n, logdet_X, info);
  if (info != 0) return 0;
  // t = tr(X^-1 S); c = -ln of 2^(vn/2) Gamma_n(v/2), Gamma_n by its n factors
  double t = 0;
  for (std::int32_t j = 0; j < n; ++j)
    for (std::int32_t i = 0; i < n; ++i) t += inverse(i + 1, j + 1) * S[i + j * lds];
  double c = -(static_cast<double>(n) * (n - 1) / 4.0) * log_pi - half_log_two * df * n;
  for (std::int32_t i = 0; i < n; ++i) c -= log_gamma((df - i) / 2.0);
  return -0.5 * ((df + n + 1) * logdet_X + t) + c + 0.5 * df * logdet_S;
}

double CWisdens(reporting& report, std::int32_t n, std::int64_t v, const double* X, std::int64_t ldx,
                const double* S, std::int64_t lds) {
  if (v == 0) return 0;
  // kept: formally the difference of two inverse Wishart densities, of order n and n-1, both with v degrees
  // of freedom, by the last pivots of X and S and the traces of both orders
  const double df = static_cast<double>(v);
  const double a = (df + 1 - n) / 2.0;
  if (a <= 0) return 0;
  packed_copy x(X, ldx, n);
  double log_p = 0, pivot = 0;
  bool definite = true;
  for (std::int32_t k = 1; k < n; ++k) {
    definite = x.sweep_row(k, pivot) && definite;
    log_p += std::log(pivot);
  }
  // t1, t2: tr(X^-1 S) of order n-1 and n; log_p: ln of the determinant of order n-1
  const double t1 = x.sum_with(S, lds, n - 1);
  definite = x.sweep_row(n, pivot) && definite;
  const double last = pivot;
  if (!definite) {
    say_leading(report, "CWisdens: Wishart matrx npd. density=", X, ldx, n);
    return 0;
  }
  const double t2 = x.sum_with(S, lds, n);
  packed_copy scale(S, lds, n);
  for (std::int32_t k = 1; k <= n; ++k) definite = scale.sweep_row(k, pivot) && definite;
  if (!definite) {
    say(report, "CWisdens: Scale matrix n.p.d.");
    stop_run(report, exit_diagnosed);
  }
  return -log_gamma(a) - ((df + n + 1) / 2.0) * std::log(last) - half_log_two_short * df -
         half_log_pi_short * (n - 1) + 0.5 * (t1 - t2 - log_p + df * std::log(pivot));
}

double mvn_last_logdens(const double* x, std::int32_t n, const double* mean, const double* V, int& info) {
  std::vector<double> inverse(static_cast<std::size_t>(n) * static_cast<std::size_t>(n));
  double logdet = 0;
  inverse_logdet(V, n, inverse.data(), n, n, logdet, info);
  if (info != 0) return 0;
  // kept: only the last component enters the quadratic form
  const double d = x[n - 1] - mean[n - 1];
  return -0.5 * (n * std::log(two_pi) + logdet) - 0.5 * d * d * inverse.back();
}

double g0kainv(reporting& report, std::int32_t m_large, std::int32_t m_small, const double* X,
               std::int64_t ldx, std::int64_t v, const double* S, std::int64_t lds) {
  constexpr std::string_view name = "g0kainv";
  conditional_wishart c;
  describe_conditional(report, c, m_large, m_small, X, ldx, S, lds);
  const std::int32_t m = c.m, r = c.r;
  invert_or_stop(report, name, c.V, m, c.Vinv);
  invert_or_stop(report, name, c.L, r, c.L11i);
  find_moments(c);
  const auto element = [&](std::int32_t i, std::int32_t j) { return X[(i - 1) + (j - 1) * ldx]; };
  for (std::int32_t i = 1; i <= r; ++i)
    for (std::int32_t a = 1; a <= m; ++a) c.x((i - 1) * m + a) = element(m + i, a);
  // T = X_rr - X_rm V^-1 X_rm'
  for (std::int32_t i = 1; i <= r; ++i)
    for (std::int32_t j = 1; j <= r; ++j) {
      c.T(i, j) = element(m + i, m + j);
      for (std::int32_t a = 1; a <= m; ++a)
        for (std::int32_t b = 1; b <= m; ++b)
          c.T(i, j) -= element(m + i, a) * c.Vinv(a, b) * element(m + j, b);
    }
  describe_cross_block(c);
  int info = 0;
  const double cross = mvn_last_logdens(c.x.data(), r * m, c.mean.data(), c.cov.data(), info);
  // the covariance has no inverse: print it and stop
  if (info != 0) invert_or_stop(report, name, c.cov, r * m, c.cov);
  return iwdens(report, r, v, c.T.data(), r, c.L11i.data(), r) + cross;
}

} // namespace zeph
