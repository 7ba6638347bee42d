// Latent values of one record: each is drawn from its normal distribution given
// the record's other residuals, truncated to what its observation allows. Data
// augmentation: M. A. Tanner and W. H. Wong, Journal of the American Statistical
// Association 82 (1987) 528-540; binary traits as in J. H. Albert and S. Chib, the
// same journal, 88 (1993) 669-679.
//
// With residuals e of all traits, missing ones as they were imputed, and R the
// residual matrix of the record's group, trait t given the others is normal with
//   mean R_to R_oo^-1 e_o  and variance  R_tt - R_to R_oo^-1 R_ot.
// Coefficients and variance are the same for all records of a group, and are made
// once a round.
#pragma once

#include "gibbs/residuals/record_values.h"
#include "gibbs/residuals/residual_conditional.h"
#include "input/category_store.h"
#include "input/run_records.h"
#include "input/sampler_store.h"
#include "numerics/random_sources.h"

namespace zeph {

struct scan_records;

// Work of the latent passes.
struct latent_work {
  residual_conditional given; // R of a group swept on all traits but one
  cube<double> coefficient;   // nt x nt x groups: of trait i in the mean of trait t, (i,t,h)
  mat<double> variance;       // nt x groups
  vec<logical> pos, cured;    // nt: what the latent traits of a record are known to be
  vec<std::int32_t> category; // nt
};

void allocate_latent_work(const model_records& m, latent_work& work, reporting& report);

// Coefficients and variances of all traits and residual groups from RCOV.
void prepare_conditionals(const model_records& model, const sampler_store& sampler, latent_work& latent);

// What is known of the traits of one record, [t-1].
struct liability_record {
  const double* mean = nullptr;      // fitted values
  const logical* pos = nullptr;      // binary: the observation is 1; censored: the value is censored
  const std::int32_t* cat = nullptr; // category
  const float *low = nullptr, *high = nullptr; // bounds of a censored trait
  const logical* cured = nullptr;              // sequences: draw as for a binary trait
  bool censored_only = false;                  // the other latent traits stay as they are
  std::int32_t isit = 0;                       // mask of observed traits
  std::int32_t h = 1;                          // residual group
};

// Draws the residuals of the latent traits of one record in trait order, each
// given those drawn before, from the combined source. Types 3, 4, 7 and 8 take
// part where observed, type 2 where pos is set. The upper tail of a binary trait
// is drawn as the mirror image of the lower one. Draws never leave their interval.
void liab_sample(const model_records& model, const category_store& categories, const latent_work& latent,
                 combined_source& source, double* res, const liability_record& x);

// Fitted value plus residual as a 32-bit liability. Those of binary traits keep
// the sign that their observation gives them: never 0, since the sign is what
// remembers the observation.
float stored_liability(double mean, double res, bool positive);

} // namespace zeph
