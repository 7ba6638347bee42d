// The end of a model: the reports in their order. Called once per model,
// however its chain ended.
#pragma once

#include "results/sample_files.h"

namespace zeph {

// In this order, n being nsamples:
//  - fit statistics on the listing and in lpm (analysis_type > 0)
//  - sums to posterior means and variances
//  - gibsol and its listing by SOLWRITE, description of the sample files,
//    solpostmean (n > 1, or analysis_type 0)
//  - hand-over: the sums are zeroed, the means kept in `sols` and `pars`
// Serves analysis types 0 and 1. Files that can't be written stop with code 16.
void final_reports(const model_records& m, const equation_layout& layout, sampler_store& store,
                   run_frame& frame, sample_files& files, reporting& report);

// solpostmean: one record neq, then per equation a record of its number and
// solpostmean (real*8).
void write_solpostmean(const equation_layout& layout, const sampler_store& store, reporting& report);

} // namespace zeph
