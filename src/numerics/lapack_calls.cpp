#include "numerics/lapack_calls.h"

#include "numerics/arrays.h"

#include <cstddef>

// The trailing arguments are the lengths of the character arguments.
extern "C" {
void dpotrf_(const char* uplo, const int* n, double* a, const int* lda, int* info, std::size_t uplo_length);
void dpotrs_(const char* uplo, const int* n, const int* nrhs, const double* a, const int* lda, double* b,
             const int* ldb, int* info, std::size_t uplo_length);
void dgesv_(const int* n, const int* nrhs, double* a, const int* lda, int* ipiv, double* b, const int* ldb,
            int* info);
}

namespace zeph {

void DPOTRF(int n, double* a, int lda, int& info) { dpotrf_("L", &n, a, &lda, &info, 1); }

void DPOTRS(int n, int nrhs, const double* a, int lda, double* b, int ldb, int& info) {
  dpotrs_("L", &n, &nrhs, a, &lda, b, &ldb, &info, 1);
}

void LA_GESV(int n, int nrhs, double* a, int lda, double* b, int ldb, int& info) {
  // row exchanges of orders of trait size are on the stack, so that nothing is allocated
  constexpr int on_stack = 64;
  constexpr int no_room = -100;
  int few[on_stack];
  vec<int> many;
  if (n > on_stack && !many.take(n)) {
    info = no_room;
    return;
  }
  dgesv_(&n, &nrhs, a, &lda, n > on_stack ? many.data() : few, b, &ldb, &info);
}

void LA_GESV(int n, double* a, int lda, double* ainv, int ldainv, int& info) {
  for (std::ptrdiff_t j = 0; j < n; ++j)
    for (std::ptrdiff_t i = 0; i < n; ++i) ainv[i + j * ldainv] = i == j ? 1.0 : 0.0;
  LA_GESV(n, n, a, lda, ainv, ldainv, info);
}

} // namespace zeph
