// Cholesky factors of dense matrices of trait size, column-major.
//
// `spofa` is the plain factor of a positive definite matrix. The other four
// form one family that takes positive semidefinite matrices: they read the
// lower triangle only and share one rule for row i = 1..n of A = L L':
//   d = a(i,i) - sum over k < i of l(i,k)^2
//   |d| < pivot_zero   the pivot is zero: l(i,i) and column i below it are 0;
//   d < 0 otherwise    " Matrix not semipositive-definite, row " and i go to
//                      the listing on one line, and the run stops, code 16;
//   d > 0              l(i,i) = sqrt(d), and the rank grows by one.
// The tolerance is absolute: a matrix of very small numbers counts as zero.
//
// A pointer points at element (1,1); ld is the leading dimension, n the order.
// The forms on an array take its first extent as both; it must be square.
// Value forms return an n x n array; failing storage goes to the allocation
// report (code 16).
#pragma once

#include "numerics/arrays.h"

#include <cstdint>

namespace zeph {

// Pivots of the semidefinite family of at most this size are zero.
inline constexpr double pivot_zero = 1.0E-15;

// Upper factor of A = U'U in the upper triangle of a, in place; the strict
// lower triangle is neither read nor changed. info: 0, or the row at which the
// remaining diagonal is not above 0; rows before it are factored, column info
// is so above the diagonal. J. J. Dongarra and others, LINPACK Users' Guide
// (1979), the single-precision name on 64-bit floats.
void spofa(double* a, std::int64_t lda, int n, int& info);

// A into its lower factor L, in place, with zeros above the diagonal. Returns
// the rank, the number of pivots that are not zero.
int chol_semi(reporting& report, double* a, std::int64_t lda, int n);
inline int chol_semi(reporting& report, mat<double>& a) {
  return chol_semi(report, a.data(), a.extent(1), static_cast<int>(a.extent(1)));
}

// The lower factor L of A.
mat<double> chol_of(reporting& report, const double* a, std::int64_t lda, int n);
inline mat<double> chol_of(reporting& report, const mat<double>& a) {
  return chol_of(report, a.data(), a.extent(1), static_cast<int>(a.extent(1)));
}

// A symmetric generalised inverse G of A, A G A = A and G A G = G: the inverse
// of the rows and columns whose pivots are not zero, and zero elsewhere.
mat<double> ginverse_of(reporting& report, const double* a, std::int64_t lda, int n);
inline mat<double> ginverse_of(reporting& report, const mat<double>& a) {
  return ginverse_of(report, a.data(), a.extent(1), static_cast<int>(a.extent(1)));
}

// The same into g (leading dimension ldg), without allocating; l and m are work
// areas of n x n elements each. g may be a itself.
void ginverse_into(reporting& report, const double* a, std::int64_t lda, int n, double* g, std::int64_t ldg,
                   double* l, double* m);

// The square of the product of the diagonal elements of L that are not zero: of
// a singular matrix the determinant of the rows that `ginverse_of` inverts.
double det_of(reporting& report, const double* a, std::int64_t lda, int n);
// The same in a work area of n x n elements.
double det_into(reporting& report, const double* a, std::int64_t lda, int n, double* l);
inline double det_of(reporting& report, const mat<double>& a) {
  return det_of(report, a.data(), a.extent(1), static_cast<int>(a.extent(1)));
}

} // namespace zeph
