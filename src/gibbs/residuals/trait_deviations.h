// Trait deviations of the levels of one random factor, from the state of a round.
//
// With e the residuals of the level's records (weighted by the root of their
// weights) and u the solutions of the factor:
//   TD(t)  = mean of e(t) over the level's records with trait t + u(t)
//   PTD    = (sum of w W)^-1 sum of w W (2 TD - u(mate)) over the progeny,
// W = sum over the progeny's records of A R^-1 A, A diagonal with the number of
// the factor's coefficients in the record by trait; w = 1 where both parents are
// known, 2/3 (as a 32-bit number) where one is. On deviations of daughters:
// P. M. VanRaden and G. R. Wiggans, Journal of Dairy
// Science 74 (1991) 2737-2746.
#pragma once

#include "gibbs/scan/scan_records.h"
#include "input/deviation_store.h"
#include "input/run_records.h"

namespace zeph {

// Computes TD, and PTD when wanted, of all levels and adds them and their squares
// to the sums of those that have records of the trait (progeny with records). Own
// deviations that don't exist are 0. A parent is the level of its absolute value; a
// level whose progeny's information can't be inverted has PTD 0. Every PTD_INT
// rounds (0: never) the file "PTD" and round number is written: in free format
// level, N_PTD by trait, PTD by trait, for the levels with more than PTD_LIMIT
// progeny in some trait.
// sol, Y_M and the residual matrices are read and not changed.
void TD_PTD(scan_records& r, const directives& asked, const round_state& state, deviation_store& d);

} // namespace zeph
