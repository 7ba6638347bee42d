#include "numerics/packed_matrix.h"

#include <algorithm>
#include <cmath>

namespace zeph {

namespace {

// Row m of a, as a pointer whose element i-1 is a(m,i).
inline double* row(double* a, std::int64_t m) { return a + (m - 1) * m / 2; }

// Takes b(i) bj / d, i = first..last, out of row j. The product comes before
// the quotient: a dependency of whole numbers then leaves an exact 0.
inline void reduce(double* __restrict aj, const double* __restrict b, std::int64_t count, double bj,
                   double d) {
  for (std::int64_t i = 0; i < count; ++i) aj[i] -= b[i] * bj / d;
}

// Rows and columns before k: the factors of column i are in row k.
void reduce_front_columns(int k, double* a, int n, double d, const logical* swept) {
  const double* ak = row(a, k);
  for (int j = 1; j < k; ++j) {
    const double bj = swept[j - 1] != swept[k - 1] ? -ak[j - 1] : ak[j - 1];
    reduce(row(a, j), ak, j, bj, d);
  }
  for (int j = k + 1; j <= n; ++j) reduce(row(a, j), ak, k - 1, row(a, j)[k - 1], d);
}

// Columns after k: their factors are in column k, and are brought together
// with their signs for a strip of columns at a time.
void reduce_back_columns(int k, double* a, int n, double d, const logical* swept) {
  constexpr int strip = 32;
  double b[strip];
  for (int first = k + 1; first <= n; first += strip) {
    const int last = std::min(first + strip - 1, n);
    for (int i = first; i <= last; ++i) {
      const double aik = row(a, i)[k - 1];
      b[i - first] = swept[i - 1] != swept[k - 1] ? -aik : aik;
    }
    for (int j = first; j <= n; ++j) {
      double* aj = row(a, j);
      reduce(aj + first - 1, b, std::min(j, last) - first + 1, aj[k - 1], d);
    }
  }
}

// matrices up to this order are on the stack: inverses of trait size allocate nothing
constexpr std::int64_t order_on_stack = 20; // the largest number of traits

} // namespace

void sweep(int k, double* a, int n, double tol, logical* swept, double& pivot, int& info) {
  double* ak = row(a, k);
  const double d = ak[k - 1];
  pivot = d;
  info = 0;
  if (std::fabs(d) < tol) {
    info = -1;
    return;
  }
  if (std::fabs(d) < small_pivot) info = -2;
  // a_ij -= a_ik a_kj / d for i, j other than k; then row and column k over d, with the sign of the
  // elements that the other triangle would hold; a_kk = 1/d
  reduce_front_columns(k, a, n, d, swept);
  reduce_back_columns(k, a, n, d, swept);
  for (int x = 1; x < k; ++x) ak[x - 1] = -ak[x - 1] / d;
  for (int x = k + 1; x <= n; ++x) row(a, x)[k - 1] /= d;
  ak[k - 1] = 1.0 / d;
  swept[k - 1] = 1;
}

void inverse_logdet(const double* a, std::int64_t lda, double* ainv, std::int64_t ldainv, int n,
                    double& logdet, int& info) {
  logdet = 0.0;
  info = 0;
  if (n <= 0) return;
  double few[order_on_stack * (order_on_stack + 1) / 2];
  logical few_flags[order_on_stack] = {};
  vec<double> many;
  vec<logical> many_flags;
  double* p = few;
  logical* swept = few_flags;
  if (n > order_on_stack) {
    if (!many.take(ihmij64(n, n, n)) || !many_flags.take(n)) {
      info = 1;
      return;
    }
    p = many.data();
    swept = many_flags.data();
  }

  for (int i = 0; i < n; ++i)
    for (int j = 0; j <= i; ++j) row(p, i + 1)[j] = a[i + j * lda];
  for (int k = 1; k <= n; ++k) {
    double d;
    int status;
    sweep(k, p, n, inverse_tolerance, swept, d, status);
    // the pivots multiply to |a|: logdet is the sum of their logs
    if (inverse_tolerance > d) info = 1; // remembered: logdet grows no more
    if (info == 0) logdet += std::log(d);
  }
  for (int i = 0; i < n; ++i)
    for (int j = 0; j <= i; ++j) ainv[i + j * ldainv] = ainv[j + i * ldainv] = row(p, i + 1)[j];
}

} // namespace zeph
