#include "gibbs/moves/pair_moves.h"

#include "gibbs/moves/factor_moves.h"
#include "gibbs/moves/moves.h"
#include "gibbs/moves/proposals.h"
#include "gibbs/scan/scan_records.h"
#include "input/structures.h"
#include "numerics/normal_draws.h"
#include "numerics/packed_matrix.h"

#include <algorithm>
#include <cmath>

namespace zeph {
namespace {

// Solutions of level l (from 1) of factor k.
const double* level_of(const model_records& model, const sampler_store& sampler, std::int32_t k,
                       std::int32_t l) {
  return sampler.sol.data() + model.NBEGRA(k) + (std::int64_t{l} - 1) * model.RMAT(k).n_rc;
}
double* level_of(const model_records& model, sampler_store& sampler, std::int32_t k, std::int32_t l) {
  return sampler.sol.data() + model.NBEGRA(k) + (std::int64_t{l} - 1) * model.RMAT(k).n_rc;
}

// Q += w t', X += u t' for t = sum over c of a(l,c) w_c
void add_row(const double* u, const double* w, const double* t, std::int32_t p, mat<double>& Q,
             mat<double>& X) {
  for (std::int32_t j = 0; j < p; ++j)
    for (std::int32_t i = 0; i < p; ++i) {
      if (w != nullptr) Q(i + 1, j + 1) += w[i] * t[j];
      X(i + 1, j + 1) += u[i] * t[j];
    }
}

// C = I - B with B = -X Q^-1 + L_g'^-1 Z L_Q^-1, from work.Q, work.X; L_g L_g' the precision of x. False where
// Q has no safe factor: nothing is drawn.
bool draw_B(move_work& work, marsaglia_source& source, const sampler_store& sampler, std::int32_t x,
            std::int32_t p) {
  const std::int64_t ld = work.C.extent(1);
  mat<double>&B = work.A, &L = work.Q, &G = work.D;
  if (!factor_safely(L.data(), ld, p)) return false;
  for (std::int32_t i = 1; i <= p; ++i)
    for (std::int32_t j = 1; j <= p; ++j) G(i, j) = sampler.GIF(i, j, x);
  if (!factor_safely(G.data(), ld, p)) return false;
  for (std::int32_t i = 1; i <= p; ++i)
    for (std::int32_t j = 1; j <= p; ++j) B(i, j) = ranmar_snorm(source);
  for (std::int32_t j = 1; j <= p; ++j) solve_upper(G.data(), ld, p, &B(1, j)); // L_g'^-1 Z
  // row i: (b - x L_Q'^-1 ..) L_Q^-1: first y = -X L_Q'^-1 by rows, forwards, then (y + z) L_Q^-1, backwards
  double* row = work.row.data();
  for (std::int32_t i = 1; i <= p; ++i) {
    for (std::int32_t j = 0; j < p; ++j) {
      double sum = -work.X(i, j + 1);
      for (std::int32_t k = 0; k < j; ++k) sum -= L(j + 1, k + 1) * row[k];
      row[j] = sum / L(j + 1, j + 1);
    }
    for (std::int32_t j = 0; j < p; ++j) row[j] += B(i, j + 1);
    solve_upper(L.data(), ld, p, row);
    for (std::int32_t j = 0; j < p; ++j) B(i, j + 1) = row[j];
  }
  for (std::int32_t i = 1; i <= p; ++i)
    for (std::int32_t j = 1; j <= p; ++j) work.C(i, j) = (i == j ? 1.0 : 0.0) - B(i, j);
  return true;
}

// x += B w at the partnered levels, w = C w at all levels of w.
void take_levels(move_work& work, const model_records& model, sampler_store& sampler, std::int32_t x,
                 std::int32_t w, const vec<std::int32_t>& partner, std::int32_t p) {
  for (std::int32_t l = 1; l <= model.NRALEV(x); ++l) {
    if (partner(l) == 0) continue;
    double* u = level_of(model, sampler, x, l);
    const double* v = level_of(model, static_cast<const sampler_store&>(sampler), w, partner(l));
    for (std::int32_t i = 0; i < p; ++i)
      for (std::int32_t j = 0; j < p; ++j) u[i] += work.A(i + 1, j + 1) * v[j];
  }
  double* row = work.row.data();
  for (std::int32_t l = 1; l <= model.NRALEV(w); ++l) {
    double* v = level_of(model, sampler, w, l);
    for (std::int32_t i = 0; i < p; ++i) {
      row[i] = 0;
      for (std::int32_t j = 0; j < p; ++j) row[i] += work.C(i + 1, j + 1) * v[j];
    }
    std::copy_n(row, p, v);
  }
}

// One direction; true where it was accepted.
bool move_direction(scan_records& r, const directives& asked, const round_state& state, std::int32_t x,
                    std::int32_t w, const vec<std::int32_t>& partner, std::int32_t p, move_count& count) {
  move_work& work = r.work.moves.work;
  sum_pair(r.relations, r.model, r.sampler, x, w, partner, p, work.Q, work.X, work.row);
  if (!draw_B(work, r.sources.marsaglia, r.sampler, x, p)) return false;
  const std::int64_t ld = work.C.extent(1);
  std::copy(work.C.begin(), work.C.end(), work.D.begin());
  double log_det = 0, ratio = 0;
  const bool legal = invert_with_det(work.D.data(), ld, p, work.A_inverse.data(), log_det);
  const factor_prior prior = prior_of_factor(r.model, asked, w, p);
  double* precision = r.sampler.GIF.unchecked_slice(w);
  const std::int64_t ldp = r.sampler.GIF.extent(1);
  if (legal)
    ratio = static_cast<double>(r.model.NRALEV(w) - asked.DDF(w) - prior.nu - p) * log_det -
            0.5 * change_of_trace(r.model.RMAT(w).COV_MAT, prior.weight, precision, ldp,
                                  work.A_inverse.data(), ld, p);
  if (!accept_move(r.sources.marsaglia, ratio, legal, is_burn_in(asked, state), count)) return false;
  take_levels(work, r.model, r.sampler, x, w, partner, p);
  transform_precision(precision, ldp, work.A_inverse.data(), ld, p, work.D.data());
  // the sums of squares are made again from the new solutions
  r.work.fast.square_done(x) = r.work.fast.square_done(w) = 0;
  return true;
}

} // namespace

void sum_pair(const relationship_store& relations, const model_records& model, const sampler_store& sampler,
              std::int32_t x, std::int32_t w, const vec<std::int32_t>& partner, std::int32_t p,
              mat<double>& Q, mat<double>& X, vec<double>& row) {
  Q.fill(0.0);
  X.fill(0.0);
  const bool related = !is_identity(model.RMAT(x));
  double* t = row.data();
  for (std::int32_t l = 1; l <= model.NRALEV(x); ++l) {
    const double* own = partner(l) > 0 ? level_of(model, sampler, w, partner(l)) : nullptr;
    const double* u = level_of(model, sampler, x, l);
    if (!related) {
      if (own != nullptr) add_row(u, own, own, p, Q, X);
      continue;
    }
    const relationship_rows& rows = relations.of(x);
    for (std::int32_t j = 0; j < p; ++j) t[j] = own != nullptr ? rows.diag(l) * own[j] : 0.0;
    for (std::int64_t node = rows.start(l); node < rows.start(l + 1); ++node) {
      const std::int32_t m = partner(rows.col(node));
      if (m == 0) continue;
      const double* other = level_of(model, sampler, w, m);
      for (std::int32_t j = 0; j < p; ++j) t[j] += rows.val(node) * other[j];
    }
    add_row(u, own, t, p, Q, X);
  }
}

void move_pairs(scan_records& r, const directives& asked, const round_state& state) {
  for (pair_move& pair : r.work.moves.pairs) {
    const std::int32_t p = r.model.RMAT(pair.k).n_rc;
    if (state.ntr[static_cast<std::size_t>(pair.k - 1)] < p ||
        state.ntr[static_cast<std::size_t>(pair.other - 1)] < p)
      continue;
    move_direction(r, asked, state, pair.k, pair.other, pair.partner, p, pair.count[0]);
    move_direction(r, asked, state, pair.other, pair.k, pair.back, p, pair.count[1]);
  }
}

} // namespace zeph
