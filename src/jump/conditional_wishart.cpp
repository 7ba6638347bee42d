#include "jump/conditional_wishart.h"

#include "formats/free_format.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "numerics/packed_matrix.h"

#include <string>

namespace zeph {
namespace {

void say_matrix(reporting& report, std::string_view label, const mat<double>& x) {
  free_row row;
  row.text(label);
  for (const double value : x) row.r8(value);
  say(report, row.str());
}

} // namespace

void invert_or_stop(reporting& report, std::string_view name, const mat<double>& a, std::int32_t n,
                    mat<double>& inverse) {
  double logdet = 0;
  int info = 0;
  inverse_logdet(a, inverse, n, logdet, info);
  if (info == 0) return;
  say(report, std::string(name) + " not p.d.");
  say_matrix(report, "Matrix was", a);
  say_matrix(report, "Inverse is", inverse);
  stop_run(report, exit_diagnosed);
}

void describe_conditional(reporting& report, conditional_wishart& c, std::int32_t n, std::int32_t m,
                          const double* X, std::int64_t ldx, const double* S, std::int64_t lds) {
  constexpr std::string_view routine = "sciwhinag";
  c.n = n;
  c.m = m;
  c.r = n - m;
  allocate(report, c.scale, "scale", routine, n, n);
  allocate(report, c.L, "L", routine, n, n);
  allocate(report, c.V, "V", routine, m, m);
  allocate(report, c.Vinv, "T3inv", routine, m, m);
  allocate(report, c.L11i, "L11i", routine, c.r, c.r);
  allocate(report, c.VB, "VB", routine, m, c.r);
  allocate(report, c.VQV, "VQV", routine, m, m);
  allocate(report, c.T, "LittleT1", routine, c.r, c.r);
  allocate(report, c.mean, "mean", routine, c.r * m);
  allocate(report, c.x, "x", routine, c.r * m);
  allocate(report, c.cov, "cov", routine, c.r * m, c.r * m);
  allocate(report, c.B, "B", routine, m, c.r);
  allocate(report, c.Q, "Q", routine, m, m);
  allocate(report, c.VQ, "VQ", routine, m, m);
  // order of the parts: row i <= m of X is row r + i here, row m + i is row i
  const auto rotated = [&](std::int32_t i) { return i <= m ? i + c.r : i - m; };
  for (std::int32_t j = 1; j <= n; ++j)
    for (std::int32_t i = 1; i <= n; ++i) c.scale(rotated(i), rotated(j)) = S[(i - 1) + (j - 1) * lds];
  for (std::int32_t j = 1; j <= m; ++j)
    for (std::int32_t i = 1; i <= m; ++i) c.V(i, j) = X[(i - 1) + (j - 1) * ldx];
  double logdet = 0;
  int info = 0;
  inverse_logdet(c.scale, c.L, n, logdet, info); // a failure shows at its leading block
}

void find_moments(conditional_wishart& c) {
  const std::int32_t m = c.m, r = c.r;
  mat<double>&B = c.B, &Q = c.Q, &VQ = c.VQ;
  // B = -L21 L11^-1, m x r
  B.fill(0.0);
  for (std::int32_t i = 1; i <= r; ++i)
    for (std::int32_t a = 1; a <= m; ++a)
      for (std::int32_t j = 1; j <= r; ++j) B(a, i) -= c.L(r + a, j) * c.L11i(j, i);
  // Q = L22 - L21 L11^-1 L21', m x m
  for (std::int32_t b = 1; b <= m; ++b)
    for (std::int32_t a = 1; a <= m; ++a) {
      Q(a, b) = c.L(r + a, r + b); // L22 + B L21'
      for (std::int32_t i = 1; i <= r; ++i) Q(a, b) += B(a, i) * c.L(r + b, i);
    }
  // xy = x y, x m x m, y m x columns
  const auto product = [m](const mat<double>& x, const mat<double>& y, std::int32_t columns,
                           mat<double>& xy) {
    xy.fill(0.0);
    for (std::int32_t j = 1; j <= columns; ++j)
      for (std::int32_t k = 1; k <= m; ++k)
        for (std::int32_t i = 1; i <= m; ++i) xy(i, j) += x(i, k) * y(k, j);
  };
  // mean of the cross block V B, its covariance T (x) V Q V
  product(c.V, B, r, c.VB);
  product(c.V, Q, m, VQ);
  product(VQ, c.V, m, c.VQV);
}

void describe_cross_block(conditional_wishart& c) {
  const std::int32_t m = c.m;
  for (std::int32_t i = 1; i <= c.r; ++i)
    for (std::int32_t a = 1; a <= m; ++a) {
      // element (i,a) of the cross block is number (i-1) m + a: row after row
      c.mean((i - 1) * m + a) = c.VB(a, i);
      for (std::int32_t j = 1; j <= c.r; ++j)
        for (std::int32_t b = 1; b <= m; ++b)
          c.cov((i - 1) * m + a, (j - 1) * m + b) = c.T(i, j) * c.VQV(a, b);
    }
}

} // namespace zeph
