#include "gibbs/level_draws.h"

#include "formats/free_format.h"
#include "gibbs/group_scan.h"
#include "numerics/normal_draws.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace zeph {
namespace {

// What the walk over the levels of one group reads and writes; levels from 0.
struct level_walk {
  std::int32_t levels = 0;
  std::int64_t stride = 0;
  double *rhs = nullptr, *sol = nullptr, *change = nullptr; // level l at l stride
  const group_form* form = nullptr;
  const double* data_blocks = nullptr;     // changing groups: D of level l at l packed_stride
  std::int64_t packed_stride = 0;          // packed elements of a level of full order
  const double* multipliers = nullptr;     // of the terms
  const relationship_rows* rows = nullptr; // links; null: none
  bool random = false;
  double G[largest_written_order][largest_written_order] = {}; // inverse of the factor's matrix
  double* square = nullptr;                                    // packed sum of squares; null: not wanted
};

constexpr std::int64_t links_ahead = 32; // solutions of related levels are fetched so many links ahead

std::int64_t packed_of(std::int64_t n) { return n * (n + 1) / 2; }

template <int n> void sum_terms(const level_walk& w, const double* sums, double* block) {
  for (int k = 0; k < n * (n + 1) / 2; ++k) block[k] = 0.0;
  const std::vector<block_term>& terms = w.form->terms;
  for (std::size_t k = 0; k < terms.size(); ++k) {
    if (terms[k].element >= n * (n + 1) / 2) break; // places beyond the current model
    block[terms[k].element] += w.multipliers[k] * sums[k];
  }
}

// L of block + G a, its diagonal inverted. Returns 0, or the row whose pivot is
// not above 0.
template <int n> int factor(const level_walk& w, const double* block, double a, double* L) {
  double c[n * (n + 1) / 2];
  for (int i = 0, k = 0; i < n; ++i)
    for (int j = 0; j <= i; ++j, ++k) c[k] = w.random ? block[k] + w.G[i][j] * a : block[k];
  for (int j = 0; j < n; ++j) {
    const double* row = L + j * (j + 1) / 2;
    double pivot = c[j * (j + 1) / 2 + j];
    for (int k = 0; k < j; ++k) pivot -= row[k] * row[k];
    if (!(pivot > 0.0)) return j + 1;
    const double inverse = 1.0 / std::sqrt(pivot);
    L[j * (j + 1) / 2 + j] = inverse;
    for (int i = j + 1; i < n; ++i) {
      double x = c[i * (i + 1) / 2 + j];
      for (int k = 0; k < j; ++k) x -= L[i * (i + 1) / 2 + k] * row[k];
      L[i * (i + 1) / 2 + j] = x * inverse;
    }
  }
  return 0;
}

// x(i) -= sum over related levels c of a(l,c) G sol_c; earlier: the same sums over
// the levels before l only, without G.
template <int n, bool squares>
void take_links(const level_walk& w, std::int64_t l, double* x, double* earlier) {
  const relationship_rows& rows = *w.rows;
  const std::int64_t last = rows.start.data()[l + 1] - 1;
  double s[n] = {};
  const std::int64_t end = rows.col.size() - links_ahead;
  for (std::int64_t node = rows.start.data()[l] - 1; node < last; ++node) {
    const std::int64_t c = rows.col.data()[node] - 1;
    const double a = rows.val.data()[node];
    const double* other = w.sol + c * w.stride;
    if (node < end) __builtin_prefetch(w.sol + (rows.col.data()[node + links_ahead] - 1) * w.stride);
    const std::int64_t before = -static_cast<std::int64_t>(c < l); // all bits, or none
    for (int j = 0; j < n; ++j) {
      const double term = a * other[j];
      s[j] += term;
      if constexpr (squares) earlier[j] += std::bit_cast<double>(std::bit_cast<std::int64_t>(term) & before);
    }
  }
  for (int i = 0; i < n; ++i) {
    double link = 0;
    for (int j = 0; j < n; ++j) link += w.G[i][j] * s[j];
    x[i] -= link;
  }
}

template <int n, bool linked, bool squares>
int draw_range(const level_walk& w, std::int64_t from, std::int64_t to, const double* z, double* square) {
  constexpr int packed = n * (n + 1) / 2;
  const group_form& form = *w.form;
  const std::int32_t* classes = form.level_class.allocated() ? form.level_class.data() : nullptr;
  const std::int64_t class_stride = classes != nullptr ? form.class_block.extent(1) : 0;
  const double* diag = w.rows != nullptr ? w.rows->diag.data() : nullptr;
  for (std::int64_t l = from; l < to; ++l, z += n) {
    double* u = w.sol + l * w.stride;
    double* rhs = w.rhs + l * w.stride;
    const double *own, *L;
    double made[packed], made_factor[packed];
    const double a = diag != nullptr ? diag[l] : 1.0;
    if (classes != nullptr) {
      const std::int64_t c = classes[l];
      own = form.class_block.data() + c * class_stride;
      L = form.class_factor.data() + c * class_stride;
      if (form.class_info.data()[c] != 0) return form.class_info.data()[c];
    } else {
      if (w.data_blocks != nullptr)
        std::copy_n(w.data_blocks + l * w.packed_stride, packed, made);
      else
        sum_terms<n>(w, form.sums.data() + l * form.sums.extent(1), made);
      own = made;
      L = made_factor;
      const int info = factor<n>(w, made, a, made_factor);
      if (info != 0) return info;
    }
    double x[n], earlier[n] = {};
    for (int i = 0; i < n; ++i) x[i] = rhs[i];
    for (int i = 0, k = 0; i < n; ++i)
      for (int j = 0; j <= i; ++j, ++k) {
        x[i] += own[k] * u[j];
        if (j < i) x[j] += own[k] * u[i];
      }
    if constexpr (linked) take_links<n, squares>(w, l, x, earlier);
    for (int i = 0; i < n; ++i) rhs[i] = x[i];
    for (int i = 0; i < n; ++i) {
      for (int j = 0; j < i; ++j) x[i] -= L[i * (i + 1) / 2 + j] * x[j];
      x[i] *= L[i * (i + 1) / 2 + i];
    }
    for (int i = n - 1; i >= 0; --i) {
      x[i] += z[i];
      for (int j = i + 1; j < n; ++j) x[i] -= L[j * (j + 1) / 2 + i] * x[j];
      x[i] *= L[i * (i + 1) / 2 + i];
    }
    for (int i = 0; i < n; ++i) {
      w.change[l * w.stride + i] = x[i] - u[i];
      u[i] = x[i];
    }
    if constexpr (squares)
      for (int i = 0, k = 0; i < n; ++i)
        for (int j = 0; j <= i; ++j, ++k)
          square[k] += a * x[i] * x[j] + (x[i] * earlier[j] + earlier[i] * x[j]);
  }
  return 0;
}

template <int n, bool linked, bool squares> int draw_all(scan_records& r, level_walk& w) {
  double square[n * (n + 1) / 2] = {};
  double* z = r.work.fast.normals.data();
  constexpr std::int64_t batch = normals_at_once / n;
  for (std::int64_t from = 0; from < w.levels; from += batch) {
    const std::int64_t to = std::min<std::int64_t>(from + batch, w.levels);
    ranmar_snorms(r.sources.marsaglia, z, (to - from) * n);
    const int info = draw_range<n, linked, squares>(w, from, to, z, square);
    if (info != 0) return info;
  }
  if constexpr (squares) std::copy_n(square, n * (n + 1) / 2, w.square);
  return 0;
}

template <int n> void factor_classes(level_walk& w, group_form& form) {
  for (std::int64_t c = 1; c <= form.class_diag.size(); ++c) {
    double* block = form.class_block.col(c);
    sum_terms<n>(w, form.sums.col(c), block);
    form.class_info(c) = factor<n>(w, block, form.class_diag(c), form.class_factor.col(c));
  }
}

template <int n> int draw_order(scan_records& r, level_walk& w, group_form& form) {
  if (form.level_class.allocated()) factor_classes<n>(w, form);
  if (w.rows != nullptr)
    return w.square != nullptr ? draw_all<n, true, true>(r, w) : draw_all<n, true, false>(r, w);
  return w.square != nullptr ? draw_all<n, false, true>(r, w) : draw_all<n, false, false>(r, w);
}

double multiplier_of(const scan_records& r, const block_term& term) {
  return term.ti == 0 ? 1.0 : r.sampler.RCOVI(term.ti, term.tj, term.h);
}

// The second list of a reduced animal model is summed elsewhere.
bool squared_in_walk(const scan_records& r, const run_frame& f, const equation_group& group) {
  if (f.analysis_type <= 2 || group.kind != group_kind::random_factor) return false;
  return !(structure_is(r.model.RMAT(group.number), "PED") && r.model.RMAT(group.number).L_RAM);
}

void describe_factor(const scan_records& r, std::int32_t n, const equation_group& group, level_walk& w) {
  w.random = true;
  if (!structure_is(r.model.RMAT(group.number), "I")) w.rows = &r.relations.of(group.number);
  for (std::int32_t i = 0; i < n; ++i)
    for (std::int32_t j = 0; j < n; ++j) w.G[i][j] = r.sampler.GIF(i + 1, j + 1, group.number);
}

} // namespace

void level_block(const scan_records& r, const group_form& form, std::int32_t n, std::int32_t l,
                 double* block) {
  const std::int64_t packed = packed_of(n);
  const double* sums =
      form.sums.data() + (form.level_class.allocated() ? form.level_class(l) : std::int64_t{l} - 1) *
                             static_cast<std::int64_t>(form.terms.size());
  std::fill_n(block, packed, 0.0);
  for (std::size_t k = 0; k < form.terms.size() && form.terms[k].element < packed; ++k)
    block[form.terms[k].element] += multiplier_of(r, form.terms[k]) * sums[k];
}

void draw_levels(scan_records& r, run_frame& f, std::int32_t g) {
  residual_form& fast = r.work.fast;
  group_form& form = fast.groups[static_cast<std::size_t>(g - 1)];
  const equation_group& group = r.layout.group(g);
  const std::int32_t n = r.layout.NGR(g, 2);
  level_walk w;
  w.levels = r.layout.NGR(g, 1);
  w.stride = group.stride;
  w.rhs = r.sampler.RHS.data() + group.base;
  w.sol = r.sampler.sol.data() + group.base;
  w.change = fast.change.data();
  w.form = &form;
  if (form.changing) w.data_blocks = r.layout.DI_of(g).data();
  w.packed_stride = r.layout.DI_of(g).extent(1);
  double* multipliers = fast.multipliers.data();
  for (std::size_t k = 0; k < form.terms.size(); ++k) multipliers[k] = multiplier_of(r, form.terms[k]);
  w.multipliers = multipliers;
  if (group.kind == group_kind::random_factor) describe_factor(r, n, group, w);
  if (squared_in_walk(r, f, group)) w.square = fast.square.col(group.number);
  int info = 0;
  switch (n) {
  case 1:
    info = draw_order<1>(r, w, form);
    break;
  case 2:
    info = draw_order<2>(r, w, form);
    break;
  case 3:
    info = draw_order<3>(r, w, form);
    break;
  default:
    info = draw_order<4>(r, w, form);
    break;
  }
  if (info != 0) stop_at_block(r.report, g, " 1 potrf info= ", info);
  if (w.square != nullptr) fast.square_done(group.number) = 1;
}

} // namespace zeph
