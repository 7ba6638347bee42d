// A move between two models of one random factor by posterior probability.
//
// The prior is coherent: the leading m rows of a factor of order q have an inverse Wishart prior of
// v - q + m degrees of freedom and scale (v - q - 1) COV_MAT[1..m], v = PDF > q + 1, which the leading
// block of a larger matrix has too. A new row n = m + 1 is drawn from this prior given the block, so that
// the densities of the matrices cancel. With e the residuals without row n, R^-1 that of each record
// (weighted), and the entries of row n,
//   p_l = sum z^2 R^-1(t,t),  h_l = sum z [R^-1 e](t),  T = g_nn - g'V^-1 g,  a_l = g'V^-1 u_l
// (cross terms where a level is twice in a record). A factor with identity whose levels do not meet: the new
// solutions are v_l ~ N((h_l + a_l/T)/P_l, 1/P_l), P_l = p_l + 1/T, and the log ratio from small to large is
//   ln rminus(n) - ln rplus(m) + ln(w_n/w_m)
//     + sum over l of -ln(1 + T p_l)/2 + T (h_l - p_l a_l)^2/(2 (1 + T p_l)) + a_l h_l - p_l a_l^2/2,
// w the prior weights of the numbers of rows. Where levels meet and for pedigrees, t_l = v_l - a_l is drawn
// in level (settling) order from N((h_l - p_l a_l + w_l t0_l)/(p_l + w_l), 1/(p_l + w_l)), w_l = 1/(c_l^2
// T), t0_l half the parents' t, c_l^2 = 1 - (known parents)/4, and in place of the sum is
//   ln p(t; 0, T A) - sum of ln q(t_l) + (ssq_small - ssq_large)/2.
// P. J. Green, Biometrika 82 (1995) 711-732.
#pragma once

#include "jump/jump_store.h"

namespace zeph {

// Sizes the work of exact moves, once, after jump_setup.
void allocate_exact_moves(jump_records& r);

// The proposed move (propose_move): up, the new row of the matrix (`sciwhinag`, combined source) and a
// standard normal a level (Marsaglia source); log ratio of the move in log_ratio, its three terms from
// small to large in terms. A structure other than identity and pedigree is reported and stops.
void weigh_exact_move(jump_records& r);

// The accepted move: matrix, inverse, layout and solutions; a row that is left has solutions 0.
void take_exact_move(jump_records& r);

// One row of zeinfo: round, factor, rows in force, rows proposed, the three terms, log ratio of the move,
// log of the uniform, T or F.
void report_exact_move(jump_records& r, std::int32_t rows);

} // namespace zeph
