// The pass over all records after the groups: residuals, the data's negative
// log density, and the sums that the reports need.
#pragma once

#include "gibbs/scan_records.h"
#include "input/run_frame.h"

namespace zeph {

// Scores one record and draws the residuals of its missing traits.
// Adds to lik -log of the standard normal density of each observed trait's
// residual, conditional on the observed traits before it, in trait order; the
// log of its standard deviation stays out. res(t) of a missing trait becomes a
// draw from its distribution given the observed ones: one standard normal of the
// Marsaglia source per missing trait, traits ascending. isit: mask of observed
// traits; R: nt x nt residual matrix, column-major. A complete record draws nothing.
void sample_missing(scan_records& r, vec<double>& res, std::int32_t isit, const double* R, double& lik);

// The first half of it: adds the record's part to lik and leaves in `conditional` the
// matrix bordered by res and swept on the observed traits.
void score_record(residual_conditional& conditional, const vec<double>& res, std::int32_t isit,
                  const double* R, double& lik);

// Start values of missing traits: a draw around 0 for each incomplete record,
// stored in Y_M as 32-bit numbers.
void start_missing_traits(scan_records& r);

// Residuals of all records with the present solutions; lik is their negative
// log density. Above analysis type 1 their products go into sscp by residual
// group, pairs of LNCOV left out, before the missing residuals are drawn; these
// go into Y_M as they are, without the fitted value. In sample rounds residuals and
// their squares are summed by trait and kept for the sample files.
void Bddrmc_sscp(scan_records& r, const run_frame& f, double& lik);

} // namespace zeph
