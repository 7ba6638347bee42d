// One proposed move between two models: its probabilities, and its log ratio.
#pragma once

#include "jump/jump_store.h"

namespace zeph {

// Probability of a move up and of one down at dimension m of low..high: at high 0
// and 1, at low 1 and 0, between them 1/2; low = high: both 0. Outside: "Illegal model move
// suggested in rplus" or "... in rminus" on the listing, and 0.
double rplus(reporting& report, std::int32_t m, std::int32_t low, std::int32_t high);
double rminus(reporting& report, std::int32_t m, std::int32_t low, std::int32_t high);

// Exchanges the first model(k) places of each level of factor k between sol and conv_sol.
void swap_solutions(jump_records& r, std::int32_t k, const std::vector<std::int32_t>& model);

// Over all records, with the rows that the layout has as active and the present sol:
//   ssq = sum of e' R^-1 e, e = y - Z sol, R^-1 the weighted inverse of the record's group
//   fit = sum of ln |R|
// A missing trait's residual is what Y_M holds.
void residual_pass(jump_records& r, double& fit, double& ssq);

// log_ratio of the move from the small to the large model, of factor jump_k, imax rows in the
// large one, df = imax + prodf:
//   ln rplus(m_s) - ln rminus(m_l) + jacobian + (D_l - D_s) + (A - C) - Q
//     + (fit_s - fit_l - ssq(1) + ssq(2))/2
// A, C: density of the matrix's last row, by the factor's prior degrees of freedom and by df, both with
// prop_scale; D: log density of the factor's solutions; Q: of prop_z, variance prop_var. Kept: the
// probability of the proposed direction has the sign of the reverse one. Prints the four sums of
// squares and leaves five rows for zeinfo in jump.diagnostic (the first one empty). sol,
// sscp, the layout and the effect codes are afterwards as they were.
void model_move(jump_records& r);

} // namespace zeph
