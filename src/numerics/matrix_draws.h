// Multivariate normal, Wishart and inverse Wishart draws of trait size.
//
// Matrices are column-major; a pointer points at element (1,1), ld is the leading
// dimension. Only lower triangles are read where a matrix is factored by the
// semidefinite family, upper ones by `spofa`; a full symmetric matrix serves both.
// Results are full matrices. No argument may lie in the work area.
#pragma once

#include "numerics/arrays.h"
#include "numerics/random_sources.h"

#include <cstdint>

namespace zeph {

// Work area of the draws, owned by the caller. It grows to the largest order met
// through the allocation door and never shrinks: from then on nothing is allocated.
struct matrix_draw_work {
  std::int32_t order = 0; // of the arrays
  mat<double> T, L, V;    // order x order
  vec<double> z;          // order
};
// Makes the area ready for matrices up to this order.
void fit_matrix_work(reporting& report, matrix_draw_work& work, std::int32_t order);

// ---- Multivariate normal from the Marsaglia source ----

// Numbers that `parm` holds for p variables: p as a float, the p means, the
// upper Cholesky factor row by row.
inline std::int64_t gmn_size(std::int64_t p) { return 1 + p + p * (p + 1) / 2; }

// Fills parm(1..gmn_size(p)) for draws with this mean and covariance matrix; cov
// is left as it is. p <= 0: "Value of P: " and p, "P nonpositive in SETGMN", stop.
// cov without a factor: " COVM not positive definite in SETGMN", stop. Code 16.
void ranmar_setgmn(reporting& report, const double* mean, const double* cov, std::int64_t ldcov,
                   std::int32_t p, double* parm, matrix_draw_work& work);

// One draw into x(1..p), p = parm(1): work(1..p) = p normals of `ranmar_snorm` in
// ascending order, x(i) = mean(i) + sum over j <= i of factor(j,i) work(j).
// p < 1: nothing happens.
void ranmar_genmn(marsaglia_source& source, const double* parm, double* x, double* work);

// ---- From the combined source ----

// x = mean + L z, L = `chol_of`(cov) of order n, z(i) = snorm, i ascending. cov may
// be singular; a negative pivot stops as `chol_of` does. n <= 0: nothing happens.
void mvn_draw(reporting& report, combined_source& source, double* x, const double* mean, const double* cov,
              std::int64_t ldcov, std::int32_t n, matrix_draw_work& work);

// Stops unless a Wishart matrix of order n has df >= n degrees of freedom:
// "Computation impossible in wishart_draw: df = .. below order ..", code 16.
void wishart_df_check(reporting& report, std::int64_t df, std::int32_t n);

// w = L T T' L' of order n, L = `chol_of`(scale): a Wishart matrix, mean df scale.
// T is lower triangular (M. S. Bartlett, Proceedings of the Royal Society of
// Edinburgh 53 (1933) 260-283), drawn row by row, the diagonal of a row first:
// T(i,i) = sqrt(2 sgamma((df - i + 1)/2)), T(i,j) = snorm for j < i. Shape, gamma
// deviate and its double are 32-bit numbers, widened before the root.
// df < n stops before anything is drawn.
void wishart_draw(reporting& report, random_sources& sources, double* w, std::int64_t ldw,
                  const double* scale, std::int64_t ldscale, std::int32_t n, std::int64_t df,
                  matrix_draw_work& work);

// w = `ginverse_of`(`wishart_draw`(S, df)): an inverse Wishart matrix. S is the
// inverse of the sums of squares; with df > n+1 the mean is S^-1 / (df - n - 1).
void rinvwish(reporting& report, random_sources& sources, double* w, std::int64_t ldw, const double* S,
              std::int64_t lds, std::int32_t n, std::int64_t df, matrix_draw_work& work);

} // namespace zeph
