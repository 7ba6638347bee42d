// Packed symmetric matrices of trait size: the lower triangle row by row,
// (1,1), (2,1), (2,2), (3,1), ..., n(n+1)/2 elements, counted from 1. A pointer
// to such a matrix points at element (1,1); element p is a[p-1].
//
// Nothing here prints or stops: `info` says what happened, the caller decides.
#pragma once

#include "numerics/arrays.h"

#include <cstdint>

namespace zeph {

// Position of element (i,j) = (j,i), 1-based: (m-1)m/2 + k with m the larger
// and k the smaller index. The order n of the matrix takes no part in it. The
// product is formed in 32 bits: m must stay below 46342.
inline std::int32_t ihmij(std::int32_t i, std::int32_t j, std::int32_t /*n*/) {
  const std::int32_t m = i > j ? i : j, k = i > j ? j : i;
  return (m - 1) * m / 2 + k;
}
// The same in 64 bits.
inline std::int64_t ihmij64(std::int64_t i, std::int64_t j, std::int64_t /*n*/) {
  const std::int64_t m = i > j ? i : j, k = i > j ? j : i;
  return (m - 1) * m / 2 + k;
}

// Size of d below which `sweep` reports a small pivot: 1.0E-9 as a 32-bit number.
inline constexpr double small_pivot = static_cast<double>(1.0E-9F);

// Symmetric sweep of the packed matrix a of order n on pivot k = 1..n, in place.
// pivot: d = a(k,k) before the sweep. swept(1..n): a flag per row, zeroed by
// the caller before the first sweep; the flag of k is set.
// info  0: swept.
//      -1: |d| < tol: a and the flags are as they were.
//      -2: swept, but |d| < small_pivot.
//
// From zeroed flags, with S the rows swept so far, each once, in any order:
// - the block of S holds the inverse of that block of the matrix given;
// - the block of the other rows holds the residual (co)variances given S;
// - row t after all of S holds the regression coefficients on S, positive:
//   a bordered matrix (block, border, 0) swept on its block holds in the border
//   the solution of block x = border. (An element of an unswept row t with a
//   swept column after t is the coefficient negated.)
// - the pivots multiply to the determinant of the block.
// A further sweep on the last pivot undoes it, up to its flag.
//
// J. H. Goodnight, A tutorial on the SWEEP operator, The American Statistician
// 33 (1979) 149-158. The form on one triangle, with a flag per row, takes the
// sign of the elements that the other triangle would hold from the flags.
void sweep(int k, double* a, int n, double tol, logical* swept, double& pivot, int& info);

// Pivot below which `inverse_logdet` fails: 1.0E-21 as a 32-bit number.
inline constexpr double inverse_tolerance = static_cast<double>(1.0E-21F);

// Inverse and log determinant of the symmetric matrix a (n x n, column-major,
// leading dimension lda >= n). Only the lower triangle of a is read and nothing
// of it is changed; ainv (leading dimension ldainv) gets both triangles of its
// first n rows and columns and may be a itself.
// info 0: logdet is the sum of the logs of the pivots. info 1: a pivot lay below
// inverse_tolerance; logdet holds the pivots before it, and ainv what the
// sweeps of all sufficient pivots leave. n <= 0: logdet 0, info 0. Without room
// for the packed copy (orders above 20 only): info 1, logdet 0, ainv untouched.
void inverse_logdet(const double* a, std::int64_t lda, double* ainv, std::int64_t ldainv, int n,
                    double& logdet, int& info);
// The same on the leading n x n parts of two arrays.
inline void inverse_logdet(const mat<double>& a, mat<double>& ainv, int n, double& logdet, int& info) {
  inverse_logdet(a.data(), a.extent(1), ainv.data(), ainv.extent(1), n, logdet, info);
}

} // namespace zeph
