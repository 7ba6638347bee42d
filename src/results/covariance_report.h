// Posterior means and standard deviations of all (co)variances: on the listing,
// and by rows in two text files, written from scratch for each model:
//
// gparout  3I3, 2G25.15, 2X, 5I4   matrix, row, column, mean, standard deviation,
//                                  first five entries of the model vector
// PAROUT   3I3, G25.15             matrix, row, column, mean; for residual groups
//                                  then 2X, I8: code of the group
//
// Matrices are the random factors 1..nramat, then nramat+g for residual group g;
// rows are those of the current model, columns run to the row.
#pragma once

#include "input/run_records.h"
#include "input/sampler_store.h"

namespace zeph {

// PARPOSTMEAN and PARVAR hold the means and standard deviations. A file that
// can't be written is a write_fault.
void report_covariances(const model_records& m, const sampler_store& store, const round_state& state,
                        reporting& report);

} // namespace zeph
