// Mixture and sequence traits in memory: proportions, memberships and their
// sums over the samples.
#pragma once

#include "input/model_records.h"
#include "numerics/arrays.h"

#include <vector>

namespace zeph {

// Sums of the probability tau of component 1 over the samples, by record.
struct tau_sums {
  vec<double> SUM, SS; // nobs, of traits of kind 5
};

struct mixture_store {
  bool flag = false;                 // the model has a trait of kind 5 or 8
  vec<double> mix_pi;                // nt: proportion of the observed records in component 1, of this round
  vec<double> mix_pi_sum, mix_pi_ss; // nt: its sum and sum of squares over the samples
  std::vector<tau_sums> TAU_STAT;    // [t-1]
  mat<std::int32_t> MIXZ_COUNT;      // nt x nobs: samples with the record in component 1
  mat<std::int32_t> MIXZ_LAST;       // nt x nobs: 1 when it was there at its last update
  bool membership_made[2] = {false, false}; // mixz_prob and mixz_last were made in this run
};

// Allocates the stores when a trait is of kind 5, 7 or 8. In each trait that carries
// mixture regressions MIX_EQ_TYPE becomes the number of the indicator trait: the
// last one of kind 5, 7 or 8 whose column of the data (TRAIT_INP) is the
// covariable of such a regression (REG_INP); without one it stays.
void allocate_mixtures(model_records& m, mixture_store& mixtures, reporting& report);

// Zeroes all sums over samples.
void clear_mixture_sums(mixture_store& mixtures);

} // namespace zeph
