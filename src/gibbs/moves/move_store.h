// What the moves of a run act on, and how often they were tried and accepted: steps beside the draws of a
// round that leave the posterior as it is and let (co)variances, scales and thresholds move freely. They have
// no memory and adapt nothing; only the counts belong to the state of a chain.
#pragma once

#include "gibbs/moves/threshold_density.h"
#include "numerics/arrays.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace zeph {

// [0] in burn-in, [1] after it.
struct move_count {
  std::int64_t tried[2] = {0, 0};
  std::int64_t accepted[2] = {0, 0};
};

// One random factor.
struct factor_move {
  bool relaxed = false; // its levels are drawn over-relaxed
  bool moves = false;   // U -> U A', G -> A G A'
  bool meets = false;   // two of its levels meet in some record
  std::string_view why; // words of the listing where it does not move
  move_count count;
};

// What the move of one pair works with; matrices p x p, p the order of both factors. [0]: direction x = k,
// w = other; [1]: the reverse.
struct pair_work {
  mat<double> Q, X;           // of one direction: W'A_x^-1 W, U_x'A_x^-1 W
  mat<double> uu, uw, ww;     // sums of u u', u w', w w' over the levels with a partner
  mat<double> B[2], C[2];     // x -> x + B w, w -> C w; 0 and I where nothing moves
  mat<double> UU, UW, WU, WW; // both directions: u -> UU u + UW w, w -> WU u + WW w
  mat<double> L, G, inverse;
  vec<double> sums; // 3 p^2 + 2 p
};

// Two factors on the same levels: x + w stays, x -> x + B w, w -> (I - B) w.
struct pair_move {
  std::int32_t k = 0, other = 0; // factors from 1, k < other
  vec<std::int32_t> partner;     // levels of k: level of other, from 1; 0: none
  vec<std::int32_t> back;        // levels of other: level of k
  move_count count[2];           // x = k, x = other
  pair_work work;
};

// The scale of one trait of kind 3 or 4.
struct trait_move {
  std::int32_t t = 0;
  std::int32_t c = 0; // kind 3: index of its categories, from 1
  bool moves = false;
  std::string_view why;                        // words of the listing where it does not move
  std::vector<std::int32_t> equations;         // of its fixed part, from 1
  std::int64_t n_t = 0;                        // of them those with records, not restricted
  std::vector<std::vector<std::int32_t>> rows; // [k-1]: rows of factor k that are the trait's, from 1
  std::vector<std::int32_t> part;              // kind 3: traits of its part of R, ascending, t included
  std::int32_t free = 0;                       // kind 3: covariances of t in R that are free
  move_count count;
};

// Likelihood of B = A - I for U -> U A': exp(tr(H'B) - vec(B)' K vec(B) / 2), vec by rows.
struct factor_sums {
  mat<double> H; // p x p, (q,v): sum over levels of (Z_l' R^-1 e)_q u_lv
  mat<double> K; // p^2 x p^2, row (q-1) p + v
};

// Sized once for the largest order.
struct move_work {
  factor_sums sums;
  mat<double> A, A_inverse; // p x p
  mat<double> C;            // p x p, of one proposal
  vec<double> m;            // p^2: B by rows
  vec<double> row;          // 2 p
};

// All empty where the run has no moves.
struct move_store {
  bool on = false;
  std::vector<factor_move> factors; // [k-1]
  std::vector<pair_move> pairs;
  std::vector<trait_move> traits; // of kinds 3 and 4, ascending
  move_work work;
  threshold_work thresholds; // of ordered traits
};

} // namespace zeph
