// The moves of a round, which leave the posterior as it is and let (co)variances, scales and thresholds move
// freely: the door of this wing. With factor_moves.h, whose move the scan takes after a factor's last level,
// it declares all that a run uses of it.
//
// All numbers come from the Marsaglia source, of a move its normals first, its uniform last.
#pragma once

#include "gibbs/moves/move_store.h"
#include "input/run_records.h"

namespace zeph {

struct reporting;
struct scan_records;

// What each factor, pair of factors and latent trait of the run gets, into work.moves, and the lines of the
// listing that say so. Only with the word `moves`. Needs the design, and the meetings of an exact sampler.
void find_moves(scan_records& r, const directives& asked, const round_state& state);

// At the head of a round: scales and thresholds, traits ascending. The body has readied the records' values.
void move_traits(scan_records& r, const directives& asked, const round_state& state);

// After the last group of a round: each pair of factors in turn, first x = k, then x = the other one. p^2
// normals and a uniform for each direction whose proposal has a safe factor; nothing is drawn for another.
void move_pairs(scan_records& r, const directives& asked, const round_state& state);

// A line each with the share accepted, in burn-in and after.
void report_moves(const move_store& moves, reporting& report);

} // namespace zeph
