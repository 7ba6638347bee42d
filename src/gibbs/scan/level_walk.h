// The walk over the levels of one group that draws them in line, as level_draws.h says: its templates, for
// the two sources that hold their instances, level_draws.cpp the draws as they are and relaxed_draws.cpp
// the over-relaxed ones.
#pragma once

#include "gibbs/scan/scan_records.h"
#include "numerics/column_view.h"
#include "numerics/normal_draws.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace zeph {

constexpr std::int64_t batch_levels = 128;       // levels that are prepared at a time
constexpr std::int64_t equations_near = 1 << 16; // solutions of fewer equations stay in the near caches

// What the walk over the levels of one group reads and writes; levels from 0.
struct level_walk {
  std::int64_t levels = 0;
  std::int64_t stride = 0;
  column_view<double> rhs, sol; // level l at l stride
  column_view<double> change;   // the same; none: not wanted
  const group_form* form = nullptr;
  const link_form* links = nullptr;      // null: none
  column_view<const double> diag;        // of the relationship inverse; none: 1 throughout
  column_view<const double> data_blocks; // changing groups: D of level l at l packed_stride
  std::int64_t packed_stride = 0;
  column_view<const double> multipliers;    // of the terms
  const group_meetings* meetings = nullptr; // levels that meet in a record; null: none
  const design_store* design = nullptr;     // with them, for coefficients that move
  const sampler_store* sampler = nullptr;
  bool weighted = false;
  bool random = false;
  double G[largest_unrolled_order][largest_unrolled_order] = {}; // inverse of the factor's matrix
  bool relaxed = false;                                          // over-relaxed draws
  level_sums* sums = nullptr; // with them, for the factor's move; null: not wanted
};

constexpr int packed_of(int n) { return n * (n + 1) / 2; }

// One batch: by element, then by level of the batch.
template <int n, bool moved> struct level_batch {
  static constexpr int packed = packed_of(n);
  double z[batch_levels * n];
  double x[n][batch_levels];      // RHS + D sol, before the links
  double L[packed][batch_levels]; // factor, its diagonal inverted
  double least[batch_levels];     // smallest pivot
};

using two_doubles = double __attribute__((vector_size(16)));

// With over-relaxed draws also what the sums of a move need of levels without classes.
template <int n> struct level_batch<n, true> : level_batch<n, false> {
  static constexpr int pairs = (packed_of(n) + 1) / 2;
  double D[packed_of(n)][batch_levels];
  two_doubles squares[batch_levels][pairs]; // by level: u u'
};

// block(k) = D of levels from..from+count-1
template <int n>
static void sum_terms(const level_walk& w, std::int64_t from, std::int64_t count,
                      double (*block)[batch_levels]) {
  // a changing group: D of each level was summed over its records at the head of the round
  if (w.data_blocks) {
    for (int k = 0; k < packed_of(n); ++k)
      for (std::int64_t l = 0; l < count; ++l) block[k][l] = w.data_blocks[(from + l) * w.packed_stride + k];
    return;
  }
  // D_l = sum over terms of R^-1(ti,tj) S_term(l): sums of coefficient products by level, which stay,
  // times the element of the residual inverse of this round
  for (int k = 0; k < packed_of(n); ++k) std::fill_n(block[k], count, 0.0);
  const std::vector<block_term>& terms = w.form->terms;
  for (std::size_t k = 0; k < terms.size() && terms[k].element < packed_of(n); ++k) {
    const double m = w.multipliers[static_cast<std::int64_t>(k)];
    const auto sums = col_of(w.form->sums, static_cast<std::int64_t>(k) + 1).part(from, count);
    double* to = block[terms[k].element];
    for (std::int64_t l = 0; l < count; ++l) to[l] += m * sums[l];
  }
}

// Diagonal elements of levels from..from+count-1; none where they are 1 throughout.
inline column_view<const double> diag_of(const level_walk& w, std::int64_t from, std::int64_t count) {
  return w.diag ? w.diag.part(from, count) : w.diag;
}

// block = L with L L' = block + G a(l,l), row by row, levels side by side; its diagonal is inverted,
// so that the draws multiply. a without elements: 1. least: smallest pivot of each level, before its root.
template <int n>
static void factor(const level_walk& w, column_view<const double> a, std::int64_t count,
                   double (*block)[batch_levels], double* least) {
  if (w.random)
    for (int i = 0, k = 0; i < n; ++i)
      for (int j = 0; j <= i; ++j, ++k) {
        const double g = w.G[i][j];
        if (a)
          for (std::int64_t l = 0; l < count; ++l) block[k][l] += g * a[l];
        else
          for (std::int64_t l = 0; l < count; ++l) block[k][l] += g;
      }
  for (int j = 0; j < n; ++j) {              // column j of L
    double* pivot = block[packed_of(j) + j]; // c_jj - sum over k < j of l_jk^2
    for (int k = 0; k < j; ++k) {
      const double* row = block[packed_of(j) + k];
      for (std::int64_t l = 0; l < count; ++l) pivot[l] -= row[l] * row[l];
    }
    if (j == 0)
      std::copy_n(pivot, count, least);
    else // a pivot that is no number stays
      for (std::int64_t l = 0; l < count; ++l) least[l] = least[l] < pivot[l] ? least[l] : pivot[l];
    for (std::int64_t l = 0; l < count; ++l) pivot[l] = 1.0 / std::sqrt(pivot[l]);
    for (int i = j + 1; i < n; ++i) { // l_ij = (c_ij - sum over k < j of l_ik l_jk) / l_jj
      double* x = block[packed_of(i) + j];
      for (int k = 0; k < j; ++k) {
        const double *row = block[packed_of(j) + k], *other = block[packed_of(i) + k];
        for (std::int64_t l = 0; l < count; ++l) x[l] -= other[l] * row[l];
      }
      for (std::int64_t l = 0; l < count; ++l) x[l] *= pivot[l];
    }
  }
}

// x = RHS + D sol of the levels of a batch, D by element and level
template <int n>
static void add_own(const level_walk& w, std::int64_t from, std::int64_t count, double (*block)[batch_levels],
                    double (*x)[batch_levels]) {
  const std::int64_t span = (count - 1) * w.stride + n; // of the batch, gaps between levels included
  const column_view<const double> rhs = w.rhs.part(from * w.stride, span);
  const column_view<const double> u = w.sol.part(from * w.stride, span);
  // D is symmetric and packed: element (i,j) is (max, min)
  for (int i = 0; i < n; ++i) {
    for (std::int64_t l = 0; l < count; ++l) x[i][l] = rhs[l * w.stride + i];
    for (int j = 0; j < n; ++j) {
      const double* d = block[i > j ? packed_of(i) + j : packed_of(j) + i];
      for (std::int64_t l = 0; l < count; ++l) x[i][l] += d[l] * u[l * w.stride + j];
    }
  }
}

// The row at which the factor of a level failed, found again for the message.
template <int n> static int failed_row(const level_walk& w, std::int64_t level) {
  level_batch<n, false> b;
  sum_terms<n>(w, level, 1, b.L);
  // factored from scratch for each order: the first diagonal element that is no number is the row
  for (int order = 1; order <= n; ++order) {
    sum_terms<n>(w, level, 1, b.L);
    factor<n>(w, diag_of(w, level, 1), 1, b.L, b.least);
    if (!std::isfinite(b.L[packed_of(order - 1) + order - 1][0])) return order;
  }
  return n;
}

// What the classes of levels share: for class c n(n+1)/2 elements of D, as many
// of L and the diagonal element of the relationship inverse.
template <int n> static constexpr std::int64_t class_size() { return 2 * packed_of(n) + 1; }

template <int n> static std::int64_t factor_classes(level_walk& w, group_form& form) {
  double block[packed_of(n)][batch_levels], L[packed_of(n)][batch_levels], least[batch_levels];
  const std::int64_t classes = form.class_diag.size();
  for (std::int64_t from = 0; from < classes; from += batch_levels) {
    const std::int64_t count = std::min(batch_levels, classes - from);
    // the terms of classes are stored as those of levels: row c for class c
    sum_terms<n>(w, from, count, block);
    for (int k = 0; k < packed_of(n); ++k) std::copy_n(block[k], count, L[k]);
    factor<n>(w, part_of(form.class_diag, from, count), count, L, least);
    for (std::int64_t c = 0; c < count; ++c) {
      const auto to = part_of(form.class_data, (from + c) * class_size<n>(), class_size<n>());
      for (int k = 0; k < packed_of(n); ++k) {
        to[k] = block[k][c];
        to[packed_of(n) + k] = L[k][c];
      }
      to[2 * packed_of(n)] = form.class_diag(from + c + 1);
      // also true of a pivot that is no number
      if (!(least[c] > 0.0)) return from + c;
    }
  }
  return -1;
}

inline void fetch_related(const level_walk& w, std::int64_t first, std::int64_t last) {
  const auto col = view_of(w.links->col);
  for (std::int64_t node = first; node < last; ++node) __builtin_prefetch(&w.sol[col[node] * w.stride]);
}

// The levels that each level of the group has met before it, for the walk: levels from 0.
struct met_levels {
  column_view<const std::int64_t> first; // links of level l: first[l] .. first[l+1] - 1
  const level_link* links = nullptr;     // null: coefficients or groups move
  const double* inverse = nullptr;       // of their elements
};

// x(place) -= R^-1(t,t') z_i z_k change(k) for links from..to-1 of a level, whose coefficients or groups move
template <int n>
[[gnu::noinline]] static void take_moving(const level_walk& w, std::int64_t from, std::int64_t to,
                                          double* x) {
  for (std::int64_t k = from; k < to; ++k) {
    const moving_link& link = w.meetings->moving[static_cast<std::size_t>(k)];
    if (link.place < n)
      x[link.place] -= moving_value(link, *w.design, *w.sampler, w.weighted) * w.change[link.row];
  }
}

// x less what the levels before level l (from 0) that it meets in a record have changed
template <int n>
static inline void take_meetings(const level_walk& w, const met_levels& met, std::int64_t l, double (&x)[n]) {
  const std::int64_t from = met.first[l], to = met.first[l + 1];
  if (met.links == nullptr && from != to) {
    double moved[n]; // a copy, so that x stays in registers
    for (int i = 0; i < n; ++i) moved[i] = x[i];
    take_moving<n>(w, from, to, moved);
    for (int i = 0; i < n; ++i) x[i] = moved[i];
    return;
  }
  for (std::int64_t k = from; k < to; ++k) {
    const level_link& link = met.links[k];
    const double part = met.inverse[link.element] * link.v * w.change[link.row];
    for (int i = 0; i < n; ++i) x[i] -= link.place == i ? part : 0.0; // x[place] would be in memory
  }
}

// The draws of one batch in the order of the levels, for level l of n equations, u its solutions:
//   x = RHS + D u             D the data's block of the level: its own part is in the residuals
//   x -= R^-1 z z' change     of earlier levels that meet l in a record
//   s = sum of a(l,c) u(c)    over the related levels c, those before l with their new solutions
//   x = x - G s               what the prior gives the level, G the inverse of the factor's matrix
//   RHS = x                   as the level is drawn
//   x = L^-1 x                L L' = D + G a(l,l)
//   x = L'^-1 (x + z)         mean C^-1 RHS plus L'^-1 z
//   change = x - u, u = x
// square += x a(l,l) x' + x earlier' + earlier x', earlier = sum over c < l of a(l,c) u(c): over all
// levels U' A^-1 U. node: first link of the batch, moved on. linked: the factor has relationship
// links; classed: levels share blocks by class; full: the stride is n;
// met: levels meet in records; moved: the draws are over-relaxed,
//   x = L'^-1 ((1 - a) x + (1 - a^2)^1/2 z) + a u
// in place of the one above, and, unless levels meet, leave the sums of the factor's move where w.sums
// wants them.
template <int n, bool linked, bool classed, bool full, bool met, bool moved>
static void draw_batch(const level_walk& w, level_batch<n, moved>& b, std::int64_t from, std::int64_t count,
                       std::int64_t& node, double* square) {
  constexpr bool summed = moved && !met;
  const std::int64_t stride = full ? n : w.stride;
  const std::int64_t span = (count - 1) * stride + n; // of the batch, gaps between levels included
  const auto sol = w.sol, rhs_of_batch = w.rhs.part(from * stride, span);
  const auto change = w.change ? w.change.part(from * stride, span) : w.change;
  column_view<const std::int32_t> classes, before, after, col;
  column_view<const double> class_data, val;
  const auto diag = diag_of(w, from, count);
  if constexpr (classed) {
    classes = part_of(w.form->level_class, from, count);
    class_data = view_of(w.form->class_data);
  }
  if constexpr (linked) {
    before = part_of(w.links->before, from, count);
    after = part_of(w.links->after, from, count);
    col = view_of(w.links->col);
    val = view_of(w.links->val);
  }
  met_levels before_level;
  if constexpr (met) {
    before_level.first = view_of(w.meetings->first);
    if (w.meetings->moving.empty()) {
      before_level.links = w.meetings->links.data();
      before_level.inverse = w.meetings->inverse.data();
    }
  }
  double G[n][n], sums[packed_of(n)]; // copies that no store through a pointer can change
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) G[i][j] = w.G[i][j];
  for (int k = 0; k < packed_of(n); ++k) sums[k] = square[k];
  [[maybe_unused]] const bool wanted = summed && w.sums != nullptr;
  [[maybe_unused]] double H[summed ? n * n : 1] = {};
  [[maybe_unused]] double product = 0;          // n = 1: sum of D u^2
  [[maybe_unused]] column_view<double> squares; // of classes
  if constexpr (summed && classed && n > 1)
    if (wanted) squares = view_of(w.sums->squares);
  const double* z = b.z;
  const auto sol_of_batch = sol.part(from * stride, span);
  std::int64_t at = node;
  for (std::int64_t l = 0; l < count; ++l, z += n) {
    const auto rhs = rhs_of_batch.part(l * stride, n), u = sol_of_batch.part(l * stride, n);
    double x[n], L[packed_of(n)], earlier[n] = {}, a;
    [[maybe_unused]] double before_links[n];
    if constexpr (classed) {
      const auto data = class_data.part(classes[l] * class_size<n>(), class_size<n>());
      for (int i = 0; i < n; ++i) x[i] = rhs[i];
      for (int i = 0; i < n; ++i) // x = RHS + D u
        for (int j = 0; j < n; ++j) x[i] += data[i > j ? packed_of(i) + j : packed_of(j) + i] * u[j];
      for (int k = 0; k < packed_of(n); ++k) L[k] = data[packed_of(n) + k];
      a = data[2 * packed_of(n)]; // a(l,l)
    } else {
      for (int i = 0; i < n; ++i) x[i] = b.x[i][l]; // RHS + D u, by add_own
      for (int k = 0; k < packed_of(n); ++k) L[k] = b.L[k][l];
      a = diag ? diag[l] : 1.0;
    }
    if constexpr (met) take_meetings<n>(w, before_level, from + l, x);
    if constexpr (summed)
      for (int i = 0; i < n; ++i) before_links[i] = x[i];
    if constexpr (linked) {
      double s[n] = {}; // s = sum over c < l of a(l,c) u(c), then over c > l too
      for (const std::int64_t end = at + before[l]; at < end; ++at)
        for (int j = 0; j < n; ++j) s[j] += val[at] * sol[col[at] * stride + j];
      for (int j = 0; j < n; ++j) earlier[j] = s[j];
      for (const std::int64_t end = at + after[l]; at < end; ++at)
        for (int j = 0; j < n; ++j) s[j] += val[at] * sol[col[at] * stride + j];
      for (int i = 0; i < n; ++i) { // x -= G s
        double link = 0;
        for (int j = 0; j < n; ++j) link += G[i][j] * s[j];
        x[i] -= link;
      }
    }
    for (int i = 0; i < n; ++i) rhs[i] = x[i];
    for (int i = 0; i < n; ++i) { // x = L^-1 x, the diagonal of L inverted
      for (int j = 0; j < i; ++j) x[i] -= L[packed_of(i) + j] * x[j];
      x[i] *= L[packed_of(i) + i];
    }
    if constexpr (moved)
      for (int i = 0; i < n; ++i) x[i] = (1.0 - draw_relaxation) * x[i] + relaxed_noise * z[i];
    for (int i = n - 1; i >= 0; --i) { // x = L'^-1 (x + z)
      if constexpr (!moved) x[i] += z[i];
      for (int j = i + 1; j < n; ++j) x[i] -= L[packed_of(j) + i] * x[j];
      x[i] *= L[packed_of(i) + i];
    }
    if constexpr (moved)
      for (int i = 0; i < n; ++i) x[i] += draw_relaxation * u[i];
    if (change)
      for (int i = 0; i < n; ++i) change[l * stride + i] = x[i] - u[i];
    for (int i = 0; i < n; ++i) u[i] = x[i];
    // the levels after l meet l in their `earlier`: each off-diagonal element once, both ways
    for (int i = 0, k = 0; i < n; ++i)
      for (int j = 0; j <= i; ++j, ++k) {
        sums[k] += a * x[i] * x[j];
        if constexpr (linked) sums[k] += x[i] * earlier[j] + earlier[i] * x[j];
      }
    if constexpr (summed) {
      if (!wanted) continue;
      for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) H[i * n + j] += before_links[i] * x[j];
      if constexpr (n == 1) {
        if constexpr (classed)
          product += class_data[classes[l] * class_size<n>()] * (x[0] * x[0]);
        else
          product += b.D[0][l] * (x[0] * x[0]);
      } else if constexpr (classed) {
        const auto to = squares.part(classes[l] * packed_of(n), packed_of(n));
        for (int i = 0, k = 0; i < n; ++i)
          for (int j = 0; j <= i; ++j, ++k) to[k] += x[i] * x[j];
      } else {
        constexpr int pairs = level_batch<n, true>::pairs;
        double squares_of_level[2 * pairs] = {};
        for (int i = 0, k = 0; i < n; ++i)
          for (int j = 0; j <= i; ++j, ++k) squares_of_level[k] = x[i] * x[j];
        for (int m = 0; m < pairs; ++m)
          b.squares[l][m] = two_doubles{squares_of_level[2 * m], squares_of_level[2 * m + 1]};
      }
    }
  }
  if constexpr (linked) node = at;
  for (int k = 0; k < packed_of(n); ++k) square[k] = sums[k];
  if constexpr (summed)
    if (wanted) {
      for (int k = 0; k < n * n; ++k) w.sums->H(k + 1) += H[k];
      if constexpr (n == 1) w.sums->products(1) += product;
    }
}

// products += D (x) u u' of the levels of a batch, a row for each element of D
template <int n>
static void add_products(const level_batch<n, true>& b, std::int64_t count, level_sums& sums) {
  constexpr int pairs = level_batch<n, true>::pairs;
  for (int k = 0; k < packed_of(n); ++k) {
    two_doubles row[pairs] = {};
    for (std::int64_t l = 0; l < count; ++l) {
      const two_doubles d = {b.D[k][l], b.D[k][l]};
      for (int m = 0; m < pairs; ++m) row[m] += d * b.squares[l][m];
    }
    for (int m = 0; m < packed_of(n); ++m) sums.products(k * packed_of(n) + m + 1) += row[m / 2][m % 2];
  }
}

// Returns -1, or the level whose block can't be factored.
template <int n, bool linked, bool classed, bool full, bool met, bool moved>
static std::int64_t draw_all(marsaglia_source& marsaglia, const level_walk& w, double* square) {
  level_batch<n, moved> b;
  std::int64_t node = 0, fetched = 0;
  // the solutions that a batch links to are scattered: they are fetched while its blocks are prepared
  const bool far = linked && w.levels * w.stride > equations_near;
  for (std::int64_t from = 0; from < w.levels; from += batch_levels) {
    const std::int64_t count = std::min(batch_levels, w.levels - from);
    if (far) {
      std::int64_t last = std::max(fetched, node);
      for (std::int64_t l = from; l < from + count; ++l)
        last += w.links->before(l + 1) + w.links->after(l + 1);
      fetch_related(w, node, last);
    }
    // n normals a level in the order of levels and equations, as sample_level takes them one by one
    ranmar_snorms(marsaglia, b.z, count * n);
    if constexpr (!classed) {
      sum_terms<n>(w, from, count, b.L);
      add_own<n>(w, from, count, b.L, b.x);
      if constexpr (moved && !met)
        if (w.sums != nullptr)
          for (int k = 0; k < packed_of(n); ++k) std::copy_n(b.L[k], count, b.D[k]);
      factor<n>(w, diag_of(w, from, count), count, b.L, b.least);
      for (std::int64_t l = 0; l < count; ++l)
        if (!(b.least[l] > 0.0)) return from + l;
    }
    draw_batch<n, linked, classed, full, met, moved>(w, b, from, count, node, square);
    if constexpr (moved && !met && !classed && n > 1)
      if (w.sums != nullptr) add_products<n>(b, count, *w.sums);
  }
  return -1;
}

// full: levels without gaps, so that the stride is known to the compiler
template <int n, bool linked, bool classed, bool moved>
static std::int64_t draw_strided(marsaglia_source& marsaglia, const level_walk& w, double* square) {
  if (w.meetings != nullptr)
    return w.stride == n ? draw_all<n, linked, classed, true, true, moved>(marsaglia, w, square)
                         : draw_all<n, linked, classed, false, true, moved>(marsaglia, w, square);
  return w.stride == n ? draw_all<n, linked, classed, true, false, moved>(marsaglia, w, square)
                       : draw_all<n, linked, classed, false, false, moved>(marsaglia, w, square);
}

// 0, or the row at which the first failing block could not be factored. A failure among the classes
// is found before any draw, one among the levels after the draws of the batches before it.
template <int n, bool moved>
static int draw_order(marsaglia_source& marsaglia, level_walk& w, group_form& form, double* square) {
  const bool classed = form.level_class.allocated();
  std::int64_t failed = -1;
  if (classed) {
    failed = factor_classes<n>(w, form);
    if (failed >= 0) {
      w.diag = view_of(form.class_diag);
      return failed_row<n>(w, failed);
    }
    failed = w.links != nullptr ? draw_strided<n, true, true, moved>(marsaglia, w, square)
                                : draw_strided<n, false, true, moved>(marsaglia, w, square);
  } else {
    failed = w.links != nullptr ? draw_strided<n, true, false, moved>(marsaglia, w, square)
                                : draw_strided<n, false, false, moved>(marsaglia, w, square);
  }
  return failed >= 0 ? failed_row<n>(w, failed) : 0;
}

// Orders known to the compiler: the loops over the equations of a level are unrolled.
template <bool moved>
static int draw_by_order(marsaglia_source& marsaglia, level_walk& w, group_form& form, std::int32_t n,
                         double* square) {
  switch (n) {
  case 1:
    return draw_order<1, moved>(marsaglia, w, form, square);
  case 2:
    return draw_order<2, moved>(marsaglia, w, form, square);
  case 3:
    return draw_order<3, moved>(marsaglia, w, form, square);
  default:
    return draw_order<4, moved>(marsaglia, w, form, square);
  }
}

// draw_by_order<true>, of its own source.
int draw_relaxed(marsaglia_source& marsaglia, level_walk& w, group_form& form, std::int32_t n,
                 double* square);

} // namespace zeph
