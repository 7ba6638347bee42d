// Which pairs of random factors are on the same levels, so that solutions can go from one to the other
// without a change of any fitted value.
#pragma once

#include "gibbs/moves/move_store.h"
#include "input/design_store.h"

#include <vector>

namespace zeph {

// Pairs of factors of equal order p > 0, ascending by (k, other), for which
//  - each record has the same places with the same coefficients in both, in one level of each, or nothing in
//    either;
//  - coefficients stay through the run (rounds of two stages, where covariables change, have no moves);
//  - a level of k meets one level of other only, and the reverse. A level without a partner has no records.
// None with a reduced animal model, phantom parent groups, or a structure of which no sum of squares is made.
// One walk over the records for each pair of equal order, ended by the first breach. Storage under
// "find_pairs".
void find_pairs(const model_records& model, const design_store& design, std::vector<pair_move>& pairs,
                reporting& report);

} // namespace zeph
