// The move of two factors on the same levels, animal and permanent environment say: x -> x + B w, w -> C w with
// C = I - B, so that no fitted value changes; G_w -> C G_w C'.
//
// For every record both factors have the same places with the same coefficients. With W the solutions of w at
// the levels of x (0 without a partner), U those of x and A_x the relationship matrix of x,
//   Q = W'A_x^-1 W,  X = U'A_x^-1 W,  vec B ~ N(-X Q^-1, (G_x^-1 (x) Q)^-1),
// what the density of x given G_x is in B. Accepted with probability min(1, exp(r)),
//   r = (N_w - DDF_w - nu_w - p) log |det C| - tr(V_w (C'^-1 G_w^-1 C^-1 - G_w^-1)) / 2
// (nu and V as in factor_moves.h): powers of |C|: of w N_w, of G_w p + 1, of C -> C^-1 -2 p, of the normalising
// constants p, of the priors -DDF_w and -(nu_w + p + 1).
#pragma once

#include "gibbs/moves/move_store.h"
#include "input/relationships.h"
#include "input/run_records.h"
#include "input/sampler_store.h"

namespace zeph {

// Q and X of the pair of factors x and w: partner of the levels of x in w, from 1, 0 without one. The first p
// rows. row: work of 2 p.
void sum_pair(const relationship_store& relations, const model_records& model, const sampler_store& sampler,
              std::int32_t x, std::int32_t w, const vec<std::int32_t>& partner, std::int32_t p,
              mat<double>& Q, mat<double>& X, vec<double>& row);

} // namespace zeph
