// Whether the subject of a cure sequence can fail, drawn together with the liabilities of kinds 7 and 8.
//
// Per pair of traits (7, 8), for a sequence without event: a and s^2 mean and variance of the liability of 8
// given the last record's other residuals without trait 7; q_i probability of "no event" at position i given
// the record's other residuals, at the last one without 8, positions with trait 7 only; P = Phi(a/s).
// "Can fail" is proposed with probability P prod q / (P prod q + 1 - P), a liability l of 8 from N(a, s^2) on
// that side; the pair is taken with probability min(1, w'/w), w = P(no event at the last position | the
// others, l)/q_last if it can fail, else 1. With an event the subject can fail, and l is drawn given all.
// Then kind 7 is drawn in every record in order, given all other residuals: on the side of its event where
// the subject can fail, not truncated where it cannot.
#pragma once

#include "input/run_records.h"

#include <cstdint>

namespace zeph {

struct scan_records;

// Draws the pairs of the sequence that ends with record `last`, traits ascending, and then kinds 2, 3 and 4
// of its records in order. Per pair and sequence without event three uniforms (proposal, l, acceptance). A
// subject that is the last one of its status keeps it.
void draw_sequence(scan_records& r, const directives& asked, const round_state& state, std::int32_t last);

} // namespace zeph
