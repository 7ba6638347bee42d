// Which ordered and binary traits have a move of their scale.
#pragma once

#include "input/run_records.h"

namespace zeph {

struct scan_records;

// Fills the traits of the move store, kinds 3 and 4 ascending: those that move with what belongs to them, the
// others with the words of the listing. A trait does not move
//  - where the run does not sample matrices,
//  - where a row of a factor is shared with another trait, or is one of a factor with a reduced animal model
//  or
//    phantom parent groups, or where a matrix with a row of it is not sampled,
//  - where it takes part in a mixture,
//  - kind 3: with fewer than three categories; without records in the two highest ones together; without the
//    exact sampler, where a covariance is held at zero within its part of the residual matrix.
// Takes the work areas of the moves.
void find_traits(scan_records& r, const directives& asked, const round_state& state);

} // namespace zeph
