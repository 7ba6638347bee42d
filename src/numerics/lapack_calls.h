// The routines of LAPACK that the run uses, as typed calls. Matrices are
// column-major; a pointer points at element (1,1), ld is a leading dimension.
// info is that of LAPACK: 0, -i for an illegal i-th argument of the routine
// called, i > 0 as described below. Nothing here prints or stops.
#pragma once

namespace zeph {

// Lower factor L of A = L L', in the lower triangle of a, in place; the strict
// upper triangle is neither read nor changed.
// info > 0: the leading minor of that order is not positive.
void DPOTRF(int n, double* a, int lda, int& info);

// Solves A x = b for nrhs right-hand sides, in place in b (n x nrhs), from the
// factor that DPOTRF left in the lower triangle of a.
void DPOTRS(int n, int nrhs, const double* a, int lda, double* b, int ldb, int& info);

// Solves A x = b for a full square matrix and nrhs right-hand sides, in place
// in b (n x nrhs); a is left with the factors P L U of DGESV.
// info > 0: that diagonal element of U is exactly 0, and b is not solved.
// info -100: no room for the row exchanges (orders above 64 only).
void LA_GESV(int n, int nrhs, double* a, int lda, double* b, int ldb, int& info);

// The same with the identity as right-hand sides: ainv becomes the inverse of
// a, and a is left with its factors. With info not 0 ainv is no inverse.
void LA_GESV(int n, double* a, int lda, double* ainv, int ldainv, int& info);

} // namespace zeph
