// The residual pass of the fast body: one walk over blocks of records gives the
// residuals, their sums of products, the draws of missing traits and the data's
// negative log density.
#pragma once

#include "gibbs/scan/scan_records.h"
#include "input/run_records.h"

namespace zeph {

// Does what Bddrmc_sscp does, with the same draws in the same order. Products of
// residuals are summed by mask of present traits and residual group. The
// conditional distribution of the missing traits given the others is worked out
// once per mask and group, and so is the negative log density:
//   lik = sum over masks and groups of tr(R_oo^-1 S_oo)/2 + n log(2 pi)/2,
// R_oo the residual matrix of the observed traits, S_oo their products, n the
// observations. Where a residual may be so far out that its density is 0 in
// 64 bits, the records are scored one by one instead. E holds the residuals with
// which the next round begins; valid_round says so when nothing changes them in
// between.
void fast_residual_pass(scan_records& r, const directives& asked, const round_state& state, double& lik);

} // namespace zeph
