// The inverse Wishart distribution of the new rows and columns of a covariance
// matrix, given the block of the rows that exist already. The given rows are
// 1..m, the new ones m+1..n; r = n - m. Inside, the new rows come first.
//
// With V the given block, X_rr and X_rm the others, L the inverse of the scale with
// blocks L11 (r x r), L21 (m x r), L22:
//   T = X_rr - X_rm V^-1 X_rm' is inverse Wishart (df, L11^-1);
//   x, x((i-1)m+a) = X_rm(i,a), is normal given T: mean (V B)(a,i), covariance
//   T(i,j) (V Q V)(a,b), with B = -L21 L11^-1, Q = L22 - L21 L11^-1 L21'.
// T. W. Anderson, An Introduction to Multivariate Statistical Analysis, third edition
// (2003), section 7.7.
#pragma once

#include "numerics/arrays.h"

#include <cstdint>
#include <string_view>

namespace zeph {

struct conditional_wishart {
  std::int32_t n = 0, m = 0, r = 0;
  mat<double> scale;   // n x n, new rows first
  mat<double> L;       // its inverse
  mat<double> V, Vinv; // m x m: given block and its inverse
  mat<double> L11i;    // r x r
  mat<double> VB, VQV; // m x r, m x m
  mat<double> T;       // r x r
  vec<double> mean, x; // r m
  mat<double> cov;     // r m x r m
  mat<double> B, Q;    // m x r, m x m: of find_moments
  mat<double> VQ;      // m x m
};

// Sizes the parts; V from the leading m rows of X, scale and its inverse L from S.
void describe_conditional(reporting& report, conditional_wishart& c, std::int32_t n, std::int32_t m,
                          const double* X, std::int64_t ldx, const double* S, std::int64_t lds);

// inverse = a^-1 of order n; without one: "<name> not p.d.", "Matrix was" with the matrix,
// "Inverse is" with what was found, stop, code 16.
void invert_or_stop(reporting& report, std::string_view name, const mat<double>& a, std::int32_t n,
                    mat<double>& inverse);

// VB and VQV from V, L and L11i.
void find_moments(conditional_wishart& c);
// mean and cov of the cross block, for T.
void describe_cross_block(conditional_wishart& c);

} // namespace zeph
