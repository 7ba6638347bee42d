// Predictive distributions of chosen records.
#pragma once

#include "input/prediction_store.h"
#include "input/run_records.h"

namespace zeph {

// With nsamp_pred = p >= 1: says so on the listing and writes `ypredicted`, a
// row for each entry in the format 1X, 2I8, 3F18.7: record, trait, value, mean
// s / p and standard deviation sqrt((q - s^2/p) / (p-1)). The chain of this
// program fills no predictions, so p is 0 and nothing happens; other fillers may.
void report_predictions(const chain_counts& counts, const prediction_store& predictions, reporting& report);

} // namespace zeph
