// Set-up of ordered categorical traits, once the data are in memory.
#pragma once

#include "input/category_store.h"
#include "input/design_store.h"
#include "numerics/random_sources.h"

namespace zeph {

// For each trait of kind 3, in trait order: its categories from Y_M (the integer
// part of Y_M + 1/2, counted from 1), start thresholds from their frequencies,
//   thr(g) = inverse normal distribution function of (records up to g) / records,
// then moved and stretched so that thr(1) = 0 and thr(n-1) = 1, which fixes
// location and scale of the liability; and a start liability for each record,
// drawn from the combined source between its thresholds around 1/2, into Y_M.
// Prints the frequencies. Categories that are not coded 1, 2, ..., n, each with a
// record, stop the run after their message (code 16); may_be_empty: the first and the
// last one need a record. With n = 2 there is one inner threshold, 1.0, and the outer
// limits are infinite.
void SETCAT(const model_records& m, design_store& design, category_store& categories, combined_source& source,
            bool may_be_empty, reporting& report);

} // namespace zeph
