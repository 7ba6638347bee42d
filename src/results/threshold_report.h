// Posterior means of the thresholds of ordered traits.
#pragma once

#include "input/category_store.h"
#include "input/run_records.h"

namespace zeph {

// For each ordered trait, on the listing: its number, then for each threshold
// 1..n-1 its number, mean s/N and standard deviation sqrt((q - s^2/N)/N), 0 where
// the sum of squares falls short, over the N samples. Nothing without such traits,
// nor in the solver, which takes no samples.
void report_thresholds(const category_store& categories, const directives& asked, const chain_counts& counts,
                       reporting& report);

// Zeroes the sums over samples.
void clear_threshold_sums(category_store& categories);

} // namespace zeph
