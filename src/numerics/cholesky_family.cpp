#include "numerics/cholesky_family.h"

#include "formats/free_format.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "numerics/storage_door.h"

#include <cmath>

namespace zeph {

namespace {

// Storage of a result of trait size, zeroed.
mat<double> square(reporting& report, int n, std::string_view variable, std::string_view routine) {
  mat<double> x;
  if (!x.take(n, n)) allocation_failure(report, routine, variable, std::int64_t{n} * n, allocation_status);
  return x;
}

[[noreturn]] void not_semidefinite(reporting& report, int row) {
  say(report, free_row().text(" Matrix not semipositive-definite, row ").i(row).str());
  stop_run(report, exit_diagnosed);
}

// The lower triangle of A into that of L, in place, and its rank; the strict
// upper triangle stays. a(i,j) is a[(i-1) + (j-1) lda].
int semidefinite_factor(reporting& report, double* a, std::int64_t lda, int n) {
  int rank = 0;
  for (int i = 0; i < n; ++i) {
    double* diagonal = a + i + i * lda;
    double sum = 0.0;
    for (int k = 0; k < i; ++k) sum += a[i + k * lda] * a[i + k * lda];
    // d = a_ii - sum over k < i of l_ik^2, then l_ri = (a_ri - sum over k < i of l_rk l_ik) / l_ii
    const double d = *diagonal - sum;
    if (std::fabs(d) < pivot_zero) {
      for (int r = i; r < n; ++r) a[r + i * lda] = 0.0;
      continue;
    }
    if (d < 0.0) not_semidefinite(report, i + 1);
    *diagonal = std::sqrt(d);
    ++rank;
    for (int r = i + 1; r < n; ++r) {
      double product = 0.0;
      for (int k = 0; k < i; ++k) product += a[r + k * lda] * a[i + k * lda];
      a[r + i * lda] = (a[r + i * lda] - product) / *diagonal;
    }
  }
  return rank;
}

// The lower factor of A in an array of its own, zeros above the diagonal.
mat<double> factor_copy(reporting& report, const double* a, std::int64_t lda, int n,
                        std::string_view routine) {
  mat<double> l = square(report, n, "L", routine);
  for (int j = 0; j < n; ++j)
    for (int i = j; i < n; ++i) l.data()[i + std::int64_t{j} * n] = a[i + j * lda];
  semidefinite_factor(report, l.data(), n, n);
  return l;
}

} // namespace

void spofa(double* a, std::int64_t lda, int n, int& info) {
  for (int j = 0; j < n; ++j) {
    double* aj = a + j * lda; // column j+1
    double s = 0.0;
    // column j: u_kj = (a_kj - sum over i < k of u_ik u_ij) / u_kk, u_jj = (a_jj - sum of u_kj^2)^1/2
    for (int k = 0; k < j; ++k) {
      const double* ak = a + k * lda;
      double dot = 0.0;
      for (int i = 0; i < k; ++i) dot += ak[i] * aj[i];
      const double t = (aj[k] - dot) / ak[k];
      aj[k] = t;
      s += t * t;
    }
    s = aj[j] - s;
    if (s <= 0.0) {
      info = j + 1;
      return;
    }
    aj[j] = std::sqrt(s);
  }
  info = 0;
}

int chol_semi(reporting& report, double* a, std::int64_t lda, int n) {
  const int rank = semidefinite_factor(report, a, lda, n);
  for (int j = 1; j < n; ++j)
    for (int i = 0; i < j; ++i) a[i + j * lda] = 0.0;
  return rank;
}

mat<double> chol_of(reporting& report, const double* a, std::int64_t lda, int n) {
  return factor_copy(report, a, lda, n, "chol_of");
}

void ginverse_into(reporting& report, const double* a, std::int64_t lda, int n, double* g, std::int64_t ldg,
                   double* l, double* m) {
  for (std::int64_t j = 0; j < n; ++j)
    for (std::int64_t i = j; i < n; ++i) l[i + j * n] = a[i + j * lda];
  semidefinite_factor(report, l, n, n);
  // M = inverse of L, row by row; a zero pivot's row is 0
  for (std::int64_t i = 0; i < n; ++i) {
    const double pivot = l[i + i * n];
    const bool inverts = std::fabs(pivot) > pivot_zero;
    for (std::int64_t j = 0; j < i; ++j) {
      // m_ij = -(sum over k = j..i-1 of l_ik m_kj) / l_ii
      double sum = 0.0;
      if (inverts)
        for (std::int64_t k = j; k < i; ++k) sum += l[i + k * n] * m[k + j * n];
      m[i + j * n] = inverts ? -sum / pivot : 0.0;
    }
    m[i + i * n] = inverts ? 1.0 / pivot : 0.0;
  }
  for (std::int64_t j = 0; j < n; ++j) // G = M'M
    for (std::int64_t i = j; i < n; ++i) {
      double sum = 0.0;
      for (std::int64_t k = i; k < n; ++k) sum += m[k + i * n] * m[k + j * n];
      g[i + j * ldg] = g[j + i * ldg] = sum;
    }
}

mat<double> ginverse_of(reporting& report, const double* a, std::int64_t lda, int n) {
  mat<double> l = square(report, n, "L", "ginverse_of");
  mat<double> m = square(report, n, "M", "ginverse_of");
  mat<double> g = square(report, n, "G", "ginverse_of");
  ginverse_into(report, a, lda, n, g.data(), n, l.data(), m.data());
  return g;
}

double det_into(reporting& report, const double* a, std::int64_t lda, int n, double* l) {
  for (std::int64_t j = 0; j < n; ++j)
    for (std::int64_t i = j; i < n; ++i) l[i + j * n] = a[i + j * lda];
  semidefinite_factor(report, l, n, n);
  // |A| = product of l_ii^2 over the pivots that are not zero
  double product = 1.0;
  for (std::int64_t i = 0; i < n; ++i)
    if (std::fabs(l[i + i * n]) > pivot_zero) product *= l[i + i * n];
  return product * product;
}

double det_of(reporting& report, const double* a, std::int64_t lda, int n) {
  mat<double> l = square(report, n, "L", "det_of");
  return det_into(report, a, lda, n, l.data());
}

} // namespace zeph
