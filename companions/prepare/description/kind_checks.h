// What the kinds of the traits ask for in the description: their keys, their partners, and the residual
// (co)variances that they fix.
#pragma once

#include "prepare/description/description_messages.h"

namespace zeph::prepare {

// Finds the partners (trait_section::partner, ::indicator, residual_section::indicator), adds the residual
// covariances that the kinds hold at zero to residual_section::zero and ::apart, and checks every key that
// belongs to a kind.
//   binary, indicator, sequence, cured   residual variance 1, no weight
//   indicator, sequence, cured           no residual covariance with each other or with a binary trait
//                                        (apart); held at zero with any other trait, as long as `free` does
//                                        not name the pair
// The formulas have been read; formulas_are_good: without a fault. Errors and warnings are reported at their
// places.
void link_kinds(model_description& d, message_log& log, bool formulas_are_good);

// Errors where a start matrix of the residual (element order 0: none) is not 1 at the variance of a kind that
// has unit variance, or not 0 at a covariance that is held. `what` names the matrix.
void check_residual_start(const model_description& d, message_log& log, const matrix_value& m,
                          const std::string& what);

// "scs and infected", for messages and listings.
std::string pair_text(const model_description& d, const trait_pair& p);

} // namespace zeph::prepare
