// The pass over all records after the groups: residuals, the data's negative
// log density, and the sums that the reports need.
//
// This wing has no single door, since its users need different things of it: a residual matrix
// conditioned on some traits (residual_conditional.h) and a record's values (record_values.h) serve draws
// of other wings and the start of a run; the two passes (here, fast_residual_pass.h) belong to the two
// bodies of the scan, and trait_deviations.h to the chain loop. One header for all would rebuild the
// users of each whenever another changes.
#pragma once

#include "gibbs/residuals/record_values.h"
#include "gibbs/residuals/residual_conditional.h"
#include "input/run_records.h"
#include "numerics/matrix_draws.h"
#include "numerics/random_sources.h"

namespace zeph {

struct scan_records;

// Work of the draws of missing traits, m of a record.
struct missing_draws {
  residual_conditional given; // R of a group swept on the observed traits, bordered by a record's residuals
  vec<std::int32_t> traits;   // nt: the missing traits
  vec<std::int32_t> IW1;      // nt; kept: room for the traits present, which nothing reads
  vec<double> mean, x, z;     // nt: minus the conditional means, one draw, standard normals
  vec<double> covariance;     // nt^2, leading dimension m
  vec<double> setup;          // gmn_size(nt): set-up of the draw
  matrix_draw_work draw;
};

void allocate_missing_draws(const model_records& m, missing_draws& work, reporting& report);

// Scores one record and draws the residuals of its missing traits.
// Adds to lik -log of the standard normal density of each observed trait's
// residual, conditional on the observed traits before it, in trait order; the
// log of its standard deviation stays out. res(t) of a missing trait becomes a
// draw from its distribution given the observed ones: one standard normal of the
// Marsaglia source per missing trait, traits ascending. isit: mask of observed
// traits; R: nt x nt residual matrix, column-major. A complete record draws nothing.
void sample_missing(const model_records& model, missing_draws& draws, marsaglia_source& marsaglia,
                    reporting& report, vec<double>& res, std::int32_t isit, const double* R, double& lik);

// The first half of it: adds the record's part to lik and leaves in `conditional` the
// matrix bordered by res and swept on the observed traits.
void score_record(residual_conditional& conditional, const vec<double>& res, std::int32_t isit,
                  const double* R, double& lik);

// Start values of missing traits: a draw around 0 for each incomplete record,
// stored in Y_M as 32-bit numbers.
void start_missing_traits(scan_records& r);

// Residuals of all records with the present solutions; lik is their negative
// log density. When solutions are sampled, their products go into sscp by residual
// group, pairs of LNCOV left out, before the missing residuals are drawn; these
// go into Y_M as they are, without the fitted value. In sample rounds residuals and
// their squares are summed by trait and kept for the sample files.
void Bddrmc_sscp(scan_records& r, const directives& asked, const round_state& state, double& lik);

} // namespace zeph
