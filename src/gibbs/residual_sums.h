// The pass over all records after the groups: residuals, the data's negative
// log density, and the sums that the reports need.
#pragma once

#include "control/run_frame.h"
#include "gibbs/scan_records.h"

namespace zeph {

// Fills work.res with the weighted residuals (Y_M - fitted) W^1/2 of record irec.
void record_residuals(scan_records& r, const run_frame& f, std::int32_t irec, bool weights);

// Adds to lik -log of the standard normal density of each observed trait's
// residual, conditional on the observed traits before it, in trait order; the
// log of its standard deviation stays out. isit: mask of observed traits; R:
// nt x nt residual matrix, column-major; res(t) of a missing trait is set to 0.
// work.PARM holds the swept bordered matrix afterwards.
void score_record(vec<double>& res, std::int32_t isit, std::int32_t nt, const double* R, scan_work& work,
                  double& lik);

// Residuals of all records with the present solutions; lik is their negative
// log density. In sample rounds residuals and their squares are summed by trait
// and kept for the sample files.
void Bddrmc_sscp(scan_records& r, const run_frame& f, double& lik);

} // namespace zeph
