// Log densities of the moves between models. Matrices are column-major with
// leading dimension ld; only their leading n x n parts are read.
#pragma once

#include <cstdint>

namespace zeph {

struct reporting;

// ln Gamma(a), a > 0, by six terms of the series of C. Lanczos, A precision
// approximation of the gamma function, SIAM Journal on Numerical Analysis B 1
// (1964) 86-96; relative error of Gamma below 2e-10.
double log_gamma(double a);

// -ln(2 pi var)/2 - (x - mean)^2 / (2 var)
double normal_logdens(double x, double var, double mean);

// Inverse Wishart density of order n, v degrees of freedom, scale S, at X:
//   |S|^(v/2) |X|^(-(v+n+1)/2) exp(-tr(X^-1 S)/2) / (2^(vn/2) Gamma_n(v/2)).
// v = 0: 0, a flat density. S without inverse: "Scale matrix n.p.d.", stop, code
// 16. X without inverse: 0.
double iwdens(reporting& report, std::int32_t n, std::int64_t v, const double* X, std::int64_t ldx,
              const double* S, std::int64_t lds);

// Density of the last row and column of X given its leading block, both orders with
// v degrees of freedom: iwdens(n, v) - iwdens(n-1, v) of the leading blocks. v = 0,
// and v below n: 0. X not positive definite: reported on the listing, 0. S not positive
// definite: "CWisdens: Scale matrix n.p.d.", stop, code 16. Constants have the
// digits of 32-bit numbers.
double CWisdens(reporting& report, std::int32_t n, std::int64_t v, const double* X, std::int64_t ldx,
                const double* S, std::int64_t lds);

// -(n ln 2 pi + ln det V)/2 - d(n)^2 Vinv(n,n)/2, d = x - mean: for n = 1 the normal
// density; above it the quadratic form has its last component alone. V: n x n,
// leading dimension n. V without inverse: info 1, 0.
double mvn_last_logdens(const double* x, std::int32_t n, const double* mean, const double* V, int& info);

// Density of the proposal of `sciwhinag` at X, by the factor's dimension in the
// large and in the small model, v degrees of freedom and scale S: iwdens of the
// conditional matrix of the new rows plus mvn_last_logdens of the cross block. A
// block without inverse: "g0kainv not p.d." with matrix and inverse, stop, code 16.
double g0kainv(reporting& report, std::int32_t m_large, std::int32_t m_small, const double* X,
               std::int64_t ldx, std::int64_t v, const double* S, std::int64_t lds);

} // namespace zeph
