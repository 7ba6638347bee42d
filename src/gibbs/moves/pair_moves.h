// The move of two factors on the same levels, animal and permanent environment say: x -> x + B w, w -> C w
// with C = I - B, so that no fitted value changes; G_w -> C G_w C'.
//
// For every record both factors have the same places with the same coefficients. With W the solutions of w at
// the levels of x (0 without a partner), U_x those of x and A_x the relationship matrix of x,
//   Q = W'A_x^-1 W,  X = U_x'A_x^-1 W,  vec B ~ N(-X Q^-1, (G_x^-1 (x) Q)^-1),
// which is what the density of x given G_x is in B. Accepted with probability min(1, exp(r)),
//   r = (N_w - DDF_w - nu_w - p) log |det C| - tr(V_w (C'^-1 G_w^-1 C^-1 - G_w^-1)) / 2
// (nu and V of the prior of G_w, factor_prior): powers of |C|: of w N_w, of G_w p + 1, of C -> C^-1
// -2 p, of the normalising constants p, of the priors -DDF_w and -(nu_w + p + 1).
//
// The sums of the second direction are those of the state after the first. Where its relationship is the
// identity they are plain sums over the levels with a partner, taken in the walk of the first direction; the
// solutions then change once, by the product of both maps.
// J. S. Liu and C. Sabatti, Biometrika 87 (2000) 353-369.
#pragma once

#include "gibbs/matrices/covariance_draws.h"
#include "gibbs/moves/move_store.h"
#include "input/relationships.h"
#include "input/run_records.h"
#include "input/sampler_store.h"

namespace zeph {

struct scan_records;

// One pair, first x = k, then x = the other one, with the priors of their matrices: solutions, GIF, and the
// sums of squares that the scan has made. p^2 normals, row by row, and a uniform of the Marsaglia source for
// each direction; nothing is drawn where Q has no safe factor, or where the matrix of w is not updated.
void move_pair(scan_records& r, const directives& asked, const round_state& state, pair_move& pair,
               const factor_prior& prior_of_k, const factor_prior& prior_of_other);

// Q and X of direction d (0: x = k, 1: x = the other one), and where the other one's relationship is the
// identity for d = 0 the plain sums, into pair.work.
void sum_pair(const relationship_store& relations, const model_records& model, const sampler_store& sampler,
              pair_move& pair, int d);

} // namespace zeph
