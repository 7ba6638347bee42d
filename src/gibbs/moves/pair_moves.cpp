#include "gibbs/moves/pair_moves.h"

#include "gibbs/moves/moves.h"
#include "gibbs/moves/proposals.h"
#include "gibbs/scan/scan_records.h"
#include "input/structures.h"
#include "numerics/column_view.h"
#include "numerics/normal_draws.h"

#include <algorithm>
#include <cmath>

namespace zeph {
namespace {

// Direction d: x + B w, C w.
std::int32_t factor_x(const pair_move& pair, int d) { return d == 0 ? pair.k : pair.other; }
std::int32_t factor_w(const pair_move& pair, int d) { return d == 0 ? pair.other : pair.k; }

// Solutions of factor k: level l (from 0) at l p.
template <class Sampler> auto solutions_of(const model_records& model, Sampler& sampler, std::int32_t k) {
  return part_of(sampler.sol, model.NBEGRA(k), std::int64_t{model.NRALEV(k)} * model.RMAT(k).n_rc);
}

// c += a b' and c += a b, p x p
void add_product_t(const mat<double>& a, const mat<double>& b, mat<double>& c) {
  const std::int64_t p = c.extent(1);
  for (std::int64_t j = 1; j <= p; ++j)
    for (std::int64_t k = 1; k <= p; ++k)
      for (std::int64_t i = 1; i <= p; ++i) c(i, j) += a(i, k) * b(j, k);
}
void add_product(const mat<double>& a, const mat<double>& b, mat<double>& c) {
  const std::int64_t p = c.extent(1);
  for (std::int64_t j = 1; j <= p; ++j)
    for (std::int64_t k = 1; k <= p; ++k)
      for (std::int64_t i = 1; i <= p; ++i) c(i, j) += a(i, k) * b(k, j);
}

void copy(const mat<double>& from, mat<double>& to) { std::copy(from.begin(), from.end(), to.begin()); }

void stay(pair_work& work, int d) {
  work.B[d].fill(0.0);
  work.C[d].fill(0.0);
  for (std::int64_t i = 1; i <= work.C[d].extent(1); ++i) work.C[d](i, i) = 1.0;
}

// What a walk over the levels of x reads; levels from 0, their solutions at l p.
struct pair_levels {
  std::int32_t p = 0, levels = 0;
  column_view<const double> x, w;
  column_view<const std::int32_t> partner; // level of w, from 1; 0: none
  const relationship_rows* rows = nullptr; // null: identity
};

// t = sum over c of a(l,c) w_c, the diagonal first, over the levels c of x that have a partner
inline void relate(const pair_levels& a, std::int32_t l, int p, double* t) {
  for (int j = 0; j < p; ++j) t[j] = 0;
  const auto add = [&](std::int32_t partner, double v) {
    if (partner == 0) return;
    const auto w = a.w.part((std::int64_t{partner} - 1) * p, p);
    for (int j = 0; j < p; ++j) t[j] += v * w[j];
  };
  add(a.partner[l], a.rows->diag(l + 1));
  for (std::int64_t node = a.rows->start(l + 1); node < a.rows->start(l + 2); ++node)
    add(a.partner[a.rows->col(node) - 1], a.rows->val(node));
}

// Sums over the levels l of x, x and w their solutions, p x p by rows one after the other; of symmetric
// ones the lower triangle.
// linked: Q += w t', X += x t' with t = sum over c of a(l,c) w_c, w 0 without a partner.
// Otherwise over the levels with a partner ww += w w', xw += x w', xx += x x'.
// n: the order, so that the sums stay in registers; 0: that of a.p, summed where `work` is.
template <int n, bool linked> void sum_levels(const pair_levels& a, column_view<double> work) {
  const int p = n > 0 ? n : a.p;
  double near[n > 0 ? 3 * n * n + n : 1];
  double* const first = n > 0 ? near : work.unchecked();
  double *const second = first + p * p, *const third = second + p * p, *const t = third + p * p;
  std::fill_n(first, 3 * p * p, 0.0);
  for (std::int32_t l = 0; l < a.levels; ++l) {
    const auto x = a.x.part(std::int64_t{l} * p, p);
    if constexpr (linked) {
      relate(a, l, p, t);
      for (int i = 0; i < p; ++i)
        for (int j = 0; j < p; ++j) second[i * p + j] += x[i] * t[j];
    }
    if (a.partner[l] == 0) continue;
    const auto w = a.w.part((std::int64_t{a.partner[l]} - 1) * p, p);
    for (int i = 0; i < p; ++i) {
      for (int j = 0; j <= i; ++j) first[i * p + j] += w[i] * (linked ? t[j] : w[j]);
      if constexpr (linked) continue;
      for (int j = 0; j < p; ++j) second[i * p + j] += x[i] * w[j];
      for (int j = 0; j <= i; ++j) third[i * p + j] += x[i] * x[j];
    }
  }
  if (n > 0) std::copy_n(near, 3 * p * p, work.unchecked());
}

template <bool linked> void sum_order(const pair_levels& a, column_view<double> work) {
  switch (a.p) {
  case 1:
    return sum_levels<1, linked>(a, work);
  case 2:
    return sum_levels<2, linked>(a, work);
  case 3:
    return sum_levels<3, linked>(a, work);
  case 4:
    return sum_levels<4, linked>(a, work);
  default:
    return sum_levels<0, linked>(a, work);
  }
}

// Both triangles of x from the lower one by rows; all of x from p x p by rows.
void mirror(const double* lower, mat<double>& x) {
  const std::int64_t p = x.extent(1);
  for (std::int64_t i = 0; i < p; ++i)
    for (std::int64_t j = 0; j <= i; ++j) x(i + 1, j + 1) = x(j + 1, i + 1) = lower[i * p + j];
}
void by_columns(const double* rows, mat<double>& x) {
  const std::int64_t p = x.extent(1);
  for (std::int64_t i = 0; i < p; ++i)
    for (std::int64_t j = 0; j < p; ++j) x(i + 1, j + 1) = rows[i * p + j];
}

// B = -X Q^-1 + L_g'^-1 Z L_Q^-1 and C = I - B, L_g L_g' the precision of x. False where Q, or the precision,
// has no safe factor: nothing is drawn.
bool draw_step(pair_work& work, marsaglia_source& source, const sampler_store& sampler, std::int32_t x,
               int d) {
  mat<double>&B = work.B[d], &C = work.C[d], &L = work.L, &G = work.G;
  const auto p = static_cast<std::int32_t>(B.extent(1));
  copy(work.Q, L);
  for (std::int32_t i = 1; i <= p; ++i)
    for (std::int32_t j = 1; j <= p; ++j) G(i, j) = sampler.GIF(i, j, x);
  if (!factor_safely(L.data(), p, p) || !factor_safely(G.data(), p, p)) return false;
  for (std::int32_t i = 1; i <= p; ++i)
    for (std::int32_t j = 1; j <= p; ++j) B(i, j) = ranmar_snorm(source);
  for (std::int32_t j = 1; j <= p; ++j) solve_upper(G.data(), p, p, &B(1, j)); // L_g'^-1 Z
  double* y = work.sums.data();
  for (std::int32_t i = 1; i <= p; ++i) {
    for (std::int32_t j = 1; j <= p; ++j) { // row i of -X L_Q'^-1
      double sum = -work.X(i, j);
      for (std::int32_t k = 1; k < j; ++k) sum -= L(j, k) * y[k - 1];
      y[j - 1] = sum / L(j, j);
    }
    for (std::int32_t j = 1; j <= p; ++j) y[j - 1] += B(i, j);
    solve_upper(L.data(), p, p, y); // (..) L_Q^-1
    for (std::int32_t j = 1; j <= p; ++j) {
      B(i, j) = y[j - 1];
      C(i, j) = (i == j ? 1.0 : 0.0) - y[j - 1];
    }
  }
  return true;
}

// S = C S C'
void transform_square(const mat<double>& C, mat<double>& S, mat<double>& CS) {
  CS.fill(0.0);
  add_product(C, S, CS);
  S.fill(0.0);
  add_product_t(CS, C, S);
}

// S_x + B X' + X B' + B Q B' and C S_w C', where the walk over the levels has made the sums of squares.
void follow_squares(residual_form& fast, pair_work& work, std::int32_t x, std::int32_t w, int d) {
  if (!fast.square_done.allocated()) return;
  const mat<double>&B = work.B[d], &C = work.C[d];
  mat<double>&S = work.L, &Y = work.G;
  const std::int64_t p = B.extent(1);
  for (const std::int32_t k : {x, w}) {
    if (!fast.square_done(k)) continue;
    const auto packed = col_of(fast.square, k);
    for (std::int64_t i = 1, n = 0; i <= p; ++i)
      for (std::int64_t j = 1; j <= i; ++j, ++n) S(i, j) = S(j, i) = packed[n];
    if (k == x) {
      copy(work.X, Y);
      add_product(B, work.Q, Y);
      add_product_t(B, work.X, S);
      add_product_t(Y, B, S);
    } else {
      transform_square(C, S, Y);
    }
    for (std::int64_t i = 1, n = 0; i <= p; ++i)
      for (std::int64_t j = 1; j <= i; ++j, ++n) packed[n] = S(i, j);
  }
}

// Proposes and decides direction d from work.Q and work.X: B and C, GIF of w, sums of squares. True where it
// was accepted; B = 0 and C = I otherwise. The solutions stay as they are.
bool decide_step(scan_records& r, const directives& asked, const round_state& state, pair_move& pair, int d,
                 const factor_prior& prior) {
  pair_work& work = pair.work;
  const std::int32_t x = factor_x(pair, d), w = factor_w(pair, d);
  const auto p = static_cast<std::int32_t>(work.C[d].extent(1));
  if (!state.matopd(w) || !draw_step(work, r.sources.marsaglia, r.sampler, x, d)) {
    stay(work, d);
    return false;
  }
  copy(work.C[d], work.L);
  double log_det = 0, ratio = 0;
  const bool legal = invert_with_det(work.L.data(), p, p, work.inverse.data(), log_det);
  double* precision = r.sampler.GIF.unchecked_slice(w);
  const std::int64_t ld = r.sampler.GIF.extent(1);
  if (legal)
    ratio = static_cast<double>(r.model.NRALEV(w) - asked.DDF(w) - prior.nu - p) * log_det -
            0.5 * change_of_trace(r.model.RMAT(w).COV_MAT, prior.weight, precision, ld, work.inverse.data(),
                                  p, p);
  if (!accept_move(r.sources.marsaglia, ratio, legal, state.iround <= asked.nburn, pair.count[d])) {
    stay(work, d);
    return false;
  }
  transform_precision(precision, ld, work.inverse.data(), p, p, work.L.data());
  follow_squares(r.work.fast, work, x, w, d);
  return true;
}

// Q and X of the second direction from the plain sums u u', u w', w w', after the first one's map:
// Q = sum of u* u*', X = sum of w* u*' with u* = u + B w, w* = C w.
void transform_plain_sums(pair_work& work) {
  const mat<double>& B = work.B[0];
  mat<double>& T = work.G; // sum of u* w' = uw + B ww
  copy(work.uw, T);
  add_product(B, work.ww, T);
  copy(work.uu, work.Q);
  add_product_t(B, work.uw, work.Q);
  add_product_t(T, B, work.Q);
  work.X.fill(0.0);
  add_product_t(work.C[0], T, work.X);
}

// u -> UU u + UW w, w -> WU u + WW w: direction 0, then 1
void join_steps(pair_work& work) {
  copy(work.C[1], work.UU);
  copy(work.B[1], work.WU);
  work.UW.fill(0.0);
  add_product(work.C[1], work.B[0], work.UW);
  copy(work.C[0], work.WW);
  add_product(work.B[1], work.B[0], work.WW);
}

// x = C x at the levels without a partner
void move_lone(const mat<double>& C, const vec<std::int32_t>& partner, column_view<double> solutions,
               column_view<double> work) {
  const auto p = static_cast<int>(C.extent(1));
  for (std::int64_t l = 0; l < partner.size(); ++l) {
    if (partner(l + 1) != 0) continue;
    const auto x = solutions.part(l * p, p);
    for (int i = 0; i < p; ++i) {
      work[i] = 0;
      for (int j = 0; j < p; ++j) work[i] += C(i + 1, j + 1) * x[j];
    }
    for (int i = 0; i < p; ++i) x[i] = work[i];
  }
}

// The joint map at the levels with a partner, levels of k from 0. n as in sum_levels.
template <int n> void move_partners(pair_move& pair, column_view<double> u_of, column_view<double> w_of) {
  pair_work& work = pair.work;
  const int p = n > 0 ? n : static_cast<int>(work.UU.extent(1));
  double near[n > 0 ? 6 * n * n : 1]; // the four matrices, then a level's new solutions
  if (n > 0) {
    const mat<double>* from[4] = {&work.UU, &work.UW, &work.WU, &work.WW};
    for (int b = 0; b < 4; ++b) std::copy_n(from[b]->data(), p * p, near + b * p * p);
  }
  const double *UU = n > 0 ? near : work.UU.data(), *UW = n > 0 ? near + p * p : work.UW.data();
  const double *WU = n > 0 ? near + 2 * p * p : work.WU.data(),
               *WW = n > 0 ? near + 3 * p * p : work.WW.data();
  double* y = n > 0 ? near + 4 * p * p : work.sums.data(); // 2 p
  const auto partner = view_of(pair.partner);
  for (std::int64_t l = 0; l < pair.partner.size(); ++l) {
    if (partner[l] == 0) continue;
    const auto u = u_of.part(l * p, p), w = w_of.part((std::int64_t{partner[l]} - 1) * p, p);
    for (int i = 0; i < p; ++i) {
      double a = 0, b = 0;
      for (int j = 0; j < p; ++j) {
        a += UU[i + j * p] * u[j] + UW[i + j * p] * w[j];
        b += WU[i + j * p] * u[j] + WW[i + j * p] * w[j];
      }
      y[i] = a;
      y[p + i] = b;
    }
    for (int i = 0; i < p; ++i) u[i] = y[i];
    for (int i = 0; i < p; ++i) w[i] = y[p + i];
  }
}

// Both steps at all levels of both factors.
void move_levels(const model_records& model, sampler_store& sampler, pair_move& pair) {
  pair_work& work = pair.work;
  join_steps(work);
  const auto u = solutions_of(model, sampler, pair.k), w = solutions_of(model, sampler, pair.other);
  switch (work.UU.extent(1)) {
  case 1:
    move_partners<1>(pair, u, w);
    break;
  case 2:
    move_partners<2>(pair, u, w);
    break;
  case 3:
    move_partners<3>(pair, u, w);
    break;
  case 4:
    move_partners<4>(pair, u, w);
    break;
  default:
    move_partners<0>(pair, u, w);
  }
  move_lone(work.C[1], pair.partner, u, view_of(work.sums));
  move_lone(work.C[0], pair.back, w, view_of(work.sums));
}

} // namespace

void sum_pair(const relationship_store& relations, const model_records& model, const sampler_store& sampler,
              pair_move& pair, int d) {
  pair_work& work = pair.work;
  const std::int32_t x = factor_x(pair, d), w = factor_w(pair, d);
  const bool linked = !is_identity(model.RMAT(x)), plain = d == 0 && is_identity(model.RMAT(w));
  pair_levels a;
  a.p = model.RMAT(x).n_rc;
  a.levels = model.NRALEV(x);
  a.x = solutions_of(model, sampler, x);
  a.w = solutions_of(model, sampler, w);
  a.partner = view_of(d == 0 ? pair.partner : pair.back);
  const auto sums = view_of(work.sums);
  const double *first = sums.unchecked(), *second = first + a.p * a.p, *third = second + a.p * a.p;
  if (linked) {
    a.rows = &relations.of(x);
    sum_order<true>(a, sums);
    mirror(first, work.Q);
    by_columns(second, work.X);
  }
  if (linked && !plain) return;
  sum_order<false>(a, sums);
  if (!linked) {
    mirror(first, work.Q);
    by_columns(second, work.X);
  }
  if (!plain) return;
  mirror(first, work.ww);
  by_columns(second, work.uw);
  mirror(third, work.uu);
}

void move_pair(scan_records& r, const directives& asked, const round_state& state, pair_move& pair,
               const factor_prior& prior_of_k, const factor_prior& prior_of_other) {
  stay(pair.work, 1);
  sum_pair(r.relations, r.model, r.sampler, pair, 0);
  bool moved = decide_step(r, asked, state, pair, 0, prior_of_other);
  if (is_identity(r.model.RMAT(pair.other))) {
    transform_plain_sums(pair.work);
  } else { // its sums need a walk of their own
    if (moved) move_levels(r.model, r.sampler, pair);
    moved = false;
    stay(pair.work, 0);
    sum_pair(r.relations, r.model, r.sampler, pair, 1);
  }
  if (decide_step(r, asked, state, pair, 1, prior_of_k)) moved = true;
  if (moved) move_levels(r.model, r.sampler, pair);
}

void move_pairs(scan_records& r, const directives& asked, const round_state& state) {
  for (pair_move& pair : r.work.moves.pairs) {
    const std::int32_t p = r.model.RMAT(pair.k).n_rc;
    const auto all_rows = [&](std::int32_t k) { return state.ntr[static_cast<std::size_t>(k - 1)] == p; };
    if (all_rows(pair.k) && all_rows(pair.other))
      move_pair(r, asked, state, pair, prior_of_factor(r.model, asked, pair.k, p),
                prior_of_factor(r.model, asked, pair.other, p));
  }
}

} // namespace zeph
