#include "prepare/parts/column_dependence.h"

#include "shared/indexing.h"

#include <SuiteSparseQR.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <new>
#include <numeric>
#include <span>

extern "C" {
void dpstrf_(const char* uplo, const int* n, double* a, const int* lda, int* piv, int* rank,
             const double* tol, double* work, int* info);
void dtrsm_(const char* side, const char* uplo, const char* transa, const char* diag, const int* m,
            const int* n, const double* alpha, const double* a, const int* lda, double* b, const int* ldb);
}

namespace zeph::prepare {

namespace {

constexpr double dependent_squared = 1e-11; // of cross-products of columns of length 1
constexpr double dependent_length = 1e-6;   // of the columns themselves
constexpr std::size_t most_in_order = 1500; // columns beside the wide class, by the ways of the header
constexpr std::size_t most_dense = 20000;
constexpr double cheap_work = 1e10; // operations

// 1 / length of every column; 0 for a column of zeros.
std::vector<double> scales_of(const fixed_columns& x) {
  std::vector<double> scale(x.decision.size(), 0.0);
  for (std::size_t k = 0; k < x.column.size(); ++k) scale[from0(x.column[k])] += x.value[k] * x.value[k];
  for (double& s : scale) s = s > 0.0 ? 1.0 / std::sqrt(s) : 0.0;
  return scale;
}

// Cross-products of the scaled columns beside the widest class, within its levels: S = Z'(I - W (W'W)^-1
// W')Z. Order m = n - n_wide, full, column by column.
std::vector<double> within_class_products(const fixed_columns& x, std::span<const double> scale) {
  const auto m = from0(x.n() - x.n_wide);
  std::vector<double> s(m * m, 0.0);
  const auto wide = from0(x.n_wide);
  // records by level of the widest class; those without one come last and are not centred
  std::vector<std::size_t> begin(wide + 2, 0), record(x.n_records());
  const auto place = [&](std::size_t r) {
    const std::int32_t w = wide_column(x, r);
    return w < 0 ? wide : from0(w);
  };
  for (std::size_t r = 0; r < x.n_records(); ++r) ++begin[place(r) + 1];
  std::partial_sum(begin.begin(), begin.end(), begin.begin());
  std::vector<std::size_t> next(begin.begin(), begin.end() - 1);
  for (std::size_t r = 0; r < x.n_records(); ++r) record[next[place(r)]++] = r;

  std::vector<double> sum(m, 0.0);
  std::vector<std::size_t> touched;
  for (std::size_t w = 0; w <= wide; ++w) {
    for (std::size_t q = begin[w]; q < begin[w + 1]; ++q)
      for (std::size_t k = x.start[record[q]]; k < x.start[record[q] + 1]; ++k) {
        if (x.column[k] < x.n_wide) continue;
        const auto j = from0(x.column[k] - x.n_wide);
        const double zj = x.value[k] * scale[wide + j];
        if (sum[j] == 0.0) touched.push_back(j);
        sum[j] += zj;
        for (std::size_t h = x.start[record[q]]; h < x.start[record[q] + 1]; ++h)
          if (x.column[h] >= x.n_wide) {
            const auto i = from0(x.column[h] - x.n_wide);
            s[j * m + i] += zj * x.value[h] * scale[wide + i];
          }
      }
    std::sort(touched.begin(), touched.end());
    touched.erase(std::unique(touched.begin(), touched.end()), touched.end());
    const double n = static_cast<double>(begin[w + 1] - begin[w]);
    for (const std::size_t j : touched)
      for (const std::size_t i : touched)
        if (w < wide) s[j * m + i] -= sum[j] * sum[i] / n;
    for (const std::size_t j : touched) sum[j] = 0.0;
    touched.clear();
  }
  return s;
}

// A sparse matrix of SuiteSparse, column by column, from entries that are given by row.
cholmod_sparse* sparse_of_columns(const fixed_columns& x, std::span<const double> scale, cholmod_common* cc) {
  const auto n = from0(x.n());
  cholmod_sparse* a = cholmod_l_allocate_sparse(x.n_records(), n, x.column.size(), 1, 1, 0, CHOLMOD_REAL, cc);
  if (a == nullptr) return a;
  auto* p = static_cast<SuiteSparse_long*>(a->p);
  auto* i = static_cast<SuiteSparse_long*>(a->i);
  auto* v = static_cast<double*>(a->x);
  std::fill(p, p + n + 1, 0);
  for (const std::int32_t c : x.column) ++p[c + 1];
  std::partial_sum(p, p + n + 1, p);
  std::vector<SuiteSparse_long> next(p, p + n);
  for (std::size_t r = 0; r < x.n_records(); ++r)
    for (std::size_t k = x.start[r]; k < x.start[r + 1]; ++k) {
      const auto c = from0(x.column[k]);
      i[next[c]] = static_cast<SuiteSparse_long>(r);
      v[next[c]++] = x.value[k] * scale[c];
    }
  return a;
}

cholmod_sparse* sparse_of_dense(const std::vector<double>& s, std::size_t m, cholmod_common* cc) {
  cholmod_dense view{};
  view.nrow = view.ncol = view.d = m;
  view.nzmax = m * m;
  view.x = const_cast<double*>(s.data()); // only read
  view.xtype = CHOLMOD_REAL;
  view.dtype = CHOLMOD_DOUBLE;
  return cholmod_l_dense_to_sparse(&view, 1, cc);
}

// The triangular factor with its columns in the order of the factorization; columns of A at e[p].
struct triangular_factor {
  std::vector<std::int32_t> e;
  std::vector<std::size_t> start;
  std::vector<std::int32_t> row;
  std::vector<double> value;
  std::vector<std::int32_t> live; // column p of pivot row k at live[k]
  std::vector<std::int32_t> dead; // columns p without a pivot: they depend on the live ones before them
  bool in_order = true;           // e is the identity
  bool good = false;              // false: no memory
};

// A row k is pivotal for the first column that reaches it; a column that reaches no new row is dead.
void find_pivots(triangular_factor& r) {
  for (std::size_t p = 0; p < r.e.size(); ++p) {
    std::int32_t last = -1;
    for (std::size_t k = r.start[p]; k < r.start[p + 1]; ++k)
      if (r.value[k] != 0.0) last = std::max(last, r.row[k]);
    if (last == static_cast<std::int32_t>(r.live.size()))
      r.live.push_back(static_cast<std::int32_t>(p));
    else
      r.dead.push_back(static_cast<std::int32_t>(p));
  }
}

// Rank-revealing factor by SuiteSparseQR (Davis 2011, ACM TOMS 38:8); the matrix is freed.
triangular_factor factor_of(cholmod_sparse* a, int ordering, double tolerance, cholmod_common* cc) {
  triangular_factor r;
  if (a == nullptr) return r;
  cholmod_sparse* found = nullptr;
  SuiteSparse_long* e = nullptr;
  SuiteSparseQR<double>(ordering, tolerance, static_cast<SuiteSparse_long>(0), a, &found, &e, cc);
  if (found != nullptr && cc->status >= CHOLMOD_OK) {
    const auto* p = static_cast<const SuiteSparse_long*>(found->p);
    const auto* i = static_cast<const SuiteSparse_long*>(found->i);
    const auto* v = static_cast<const double*>(found->x);
    const std::size_t n = found->ncol;
    for (std::size_t c = 0; c < n; ++c) {
      r.e.push_back(e == nullptr ? static_cast<std::int32_t>(c) : static_cast<std::int32_t>(e[c]));
      r.in_order = r.in_order && r.e.back() == static_cast<std::int32_t>(c);
    }
    r.start.assign(p, p + n + 1);
    for (SuiteSparse_long k = 0; k < p[n]; ++k) r.row.push_back(static_cast<std::int32_t>(i[k]));
    r.value.assign(v, v + p[n]);
    r.good = true;
    find_pivots(r);
  }
  const std::size_t n = a->ncol;
  cholmod_l_free_sparse(&found, cc);
  cholmod_l_free_sparse(&a, cc);
  if (e != nullptr) cholmod_l_free(n, sizeof(SuiteSparse_long), e, cc);
  return r;
}

// The dead column as a combination of live ones: R(live) c = R(:,dead), by back substitution.
combination combination_of(const triangular_factor& r, std::int32_t dead) {
  std::vector<double> b(r.live.size(), 0.0);
  const auto p = from0(dead);
  for (std::size_t k = r.start[p]; k < r.start[p + 1]; ++k)
    if (static_cast<std::size_t>(r.row[k]) < b.size()) b[static_cast<std::size_t>(r.row[k])] = r.value[k];
  combination c;
  c.column = r.e[p];
  for (std::size_t row = b.size(); row-- > 0;) {
    if (b[row] == 0.0) continue;
    const auto q = from0(r.live[row]);
    double pivot = 0.0;
    for (std::size_t k = r.start[q]; k < r.start[q + 1]; ++k)
      if (from0(r.row[k]) == row) pivot = r.value[k];
    const double x = b[row] / pivot;
    for (std::size_t k = r.start[q]; k < r.start[q + 1]; ++k) b[from0(r.row[k])] -= x * r.value[k];
    if (std::abs(x) > no_coefficient) c.term.emplace_back(r.e[q], x);
  }
  return c;
}

using null_vector = std::map<std::int32_t, double>; // column -> coefficient of a combination that is zero

// v - factor * b, rounding left out.
void subtract(null_vector& v, double factor, const null_vector& b) {
  for (const auto& [column, x] : b) {
    double& y = v[column];
    y -= factor * x;
    if (std::abs(y) <= no_coefficient) v.erase(column);
  }
}

// Dependent columns by pivoted Cholesky of the cross-products (LAPACK, order n, overwritten), as combinations
// of the independent ones: S = U'U, U = [U1 U2], coefficients U1^-1 U2.
std::vector<combination> pivoted_dependence(std::vector<double>& s, std::size_t order) {
  const int n = static_cast<int>(order);
  int rank = 0, info = 0;
  std::vector<int> piv(order);
  std::vector<double> work(2 * order);
  dpstrf_("U", &n, s.data(), &n, piv.data(), &rank, &dependent_squared, work.data(), &info);
  std::vector<combination> found;
  const int k = n - rank;
  if (k == 0) return found;
  const double one = 1.0;
  double* const u2 = s.data() + from0(rank) * order;
  dtrsm_("L", "U", "N", "N", &rank, &k, &one, s.data(), &n, u2, &n);
  for (std::size_t c = 0; c < from0(k); ++c) {
    found.emplace_back();
    found.back().column = piv[from0(rank) + c] - 1;
    for (std::size_t row = 0; row < from0(rank); ++row)
      if (const double x = u2[c * order + row]; std::abs(x) > no_coefficient)
        found.back().term.emplace_back(piv[row] - 1, x);
  }
  return found;
}

// Combinations in which any column may show its dependence become those of the latest columns: a column
// depends on columns before it exactly when some null vector ends there; echelon form from the end.
std::vector<combination> later_columns(const std::vector<combination>& dependent) {
  std::map<std::int32_t, null_vector> ending;
  for (const combination& c : dependent) {
    null_vector v{{c.column, -1.0}};
    v.insert(c.term.begin(), c.term.end());
    while (!v.empty()) {
      const auto [last, x] = *v.rbegin();
      const auto at = ending.find(last);
      if (at == ending.end()) {
        ending.emplace(last, std::move(v));
        break;
      }
      subtract(v, x / at->second.at(last), at->second);
      v.erase(last);
    }
  }
  std::vector<combination> found;
  for (auto& [last, v] : ending) { // ascending: what an earlier one still holds is reduced already
    for (const auto& [other, w] : ending)
      if (other < last && v.contains(other)) subtract(v, v.at(other) / w.at(other), w);
    combination c;
    c.column = last;
    for (const auto& [column, x] : v)
      if (column != last) c.term.emplace_back(column, -x / v.at(last));
    found.push_back(std::move(c));
  }
  return found;
}

// The dead columns of a factor, combinations worked out for the first `at_most`.
std::vector<combination> dead_columns(const triangular_factor& r, std::size_t at_most) {
  std::vector<combination> found;
  for (const std::int32_t dead : r.dead) {
    found.emplace_back();
    found.back().column = r.e[from0(dead)];
    if (found.size() <= at_most) found.back() = combination_of(r, dead);
  }
  return found;
}

// Work of the sparse factor by its symbolic analysis; infinite when that fails.
double sparse_work(cholmod_sparse* a, cholmod_common* cc) {
  if (a == nullptr) return std::numeric_limits<double>::infinity();
  SuiteSparseQR_factorization<double>* qr = SuiteSparseQR_symbolic<double>(SPQR_ORDERING_DEFAULT, 1, a, cc);
  const double work = qr == nullptr ? std::numeric_limits<double>::infinity() : cc->SPQR_flopcount_bound;
  SuiteSparseQR_free<double>(&qr, cc);
  return work;
}

std::vector<combination> columns_of_factor(const triangular_factor& r) {
  return r.in_order ? dead_columns(r, most_combined) : later_columns(dead_columns(r, r.dead.size()));
}

// Few columns: their cross-products in order. Many: the sparse factor of all columns when that is cheap, and
// the pivoted one of the cross-products when it isn't. Column numbers of the cross-products start after the
// wide class.
std::vector<combination> scaled_dependence(const fixed_columns& x, std::span<const double> scale,
                                           cholmod_common* cc, std::int32_t& shift, bool& good) {
  const auto m = from0(x.n() - x.n_wide);
  shift = x.n_wide;
  if (m <= most_in_order) {
    const triangular_factor r = factor_of(sparse_of_dense(within_class_products(x, scale), m, cc),
                                          SPQR_ORDERING_FIXED, dependent_squared, cc);
    good = r.good;
    return columns_of_factor(r);
  }
  cholmod_sparse* a = sparse_of_columns(x, scale, cc);
  if (m <= most_dense && sparse_work(a, cc) > cheap_work) {
    cholmod_l_free_sparse(&a, cc);
    std::vector<double> s = within_class_products(x, scale);
    good = true;
    return later_columns(pivoted_dependence(s, m));
  }
  shift = 0;
  const triangular_factor r = factor_of(a, SPQR_ORDERING_DEFAULT, dependent_length, cc);
  good = r.good;
  return columns_of_factor(r);
}

} // namespace

std::int32_t wide_column(const fixed_columns& x, std::size_t r) {
  for (std::size_t k = x.start[r]; k < x.start[r + 1]; ++k)
    if (x.column[k] < x.n_wide) return x.column[k];
  return -1;
}

std::vector<combination> dependent_columns(const fixed_columns& x, bool& good) {
  const std::vector<double> scale = scales_of(x);
  std::vector<combination> found;
  good = true;
  if (x.n() == x.n_wide) return found;
  std::int32_t shift = 0;
  cholmod_common common;
  cholmod_l_start(&common);
  common.print = 0;
  try {
    found = scaled_dependence(x, scale, &common, shift, good);
  } catch (const std::bad_alloc&) {
    good = false;
  }
  cholmod_l_finish(&common);
  if (!good) found.clear();

  for (combination& c : found) {
    c.column += shift;
    const double own = scale[from0(c.column)];
    for (auto& [column, coefficient] : c.term) {
      column += shift;
      coefficient *= own == 0.0 ? 0.0 : scale[from0(column)] / own;
    }
    std::sort(c.term.begin(), c.term.end());
  }
  return found;
}

} // namespace zeph::prepare
