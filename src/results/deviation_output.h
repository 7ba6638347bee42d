// The report of trait deviations (TD) and progeny trait deviations (PTD).
//
// A row of the file: level's code, trait, own records, TD, its standard
// deviation, progeny with records, PTD, its standard deviation, in the format
//   1X, I12, I5, I7, 4X, 2G15.6, I5, 4X, 2G15.6
// Without posterior sums (model_kind other than 2) the standard deviations are
// left out, G15.6 in place of 2G15.6; without PTD the row ends after TD.
#pragma once

#include "input/deviation_store.h"
#include "input/run_records.h"

namespace zeph {

// Writes the file, `gib.td_ptd` when solutions are sampled and model_kind is 2, else
// `TD_PTD`, and its first 250 rows under a heading on the listing, then the
// description of the file. With model_kind 2 values are means over the calls, with
// standard deviations (0 for less than two calls); otherwise those of the last
// call. With sol_layout = 1 all are multiplied by SPRE of the trait. A trait of a
// level without records, and without progeny when PTD is wanted, has no row.
// Each line counts in the line counter; after line 68 the heading begins a new
// page. Nothing when no deviations are wanted. A CODE_TABLE that can't be read and
// a write that fails stop with code 16.
void report_deviations(const model_records& m, const deviation_store& d, const directives& asked,
                       reporting& report);

} // namespace zeph
