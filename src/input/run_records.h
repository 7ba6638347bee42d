// The driver's plain records: what the directive file asks for, where the chain
// is, what has been counted.
#pragma once

#include "input/analysis.h"
#include "input/model_records.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zeph {

// A larger prior is a slip of the keyboard: the draw would be its start matrix.
inline constexpr std::int32_t largest_prior_df = 2000000000;

inline constexpr std::int32_t GS_CONVERGED = -987654321; // status of the scan: the solver has converged

// One class-effect solution used as a covariate, as the directive lines give it.
struct fetocv_entry {
  std::int32_t trait = 0;          // trait number
  std::int32_t effect = 0;         // effect number in the model
  std::int32_t ncv = 0;            // number of covariates
  std::vector<std::int32_t> CVNO;  // their numbers
  std::vector<std::int32_t> ACVNO; // associated covariates
};

// The groups that a pass over the groups takes. Solutions used as covariables are
// scanned in two stages: first the groups that they come from, then the others.
enum class scan_stage : std::int32_t { all, sources, others };

// Prior weights of the models with 1..q rows of random factor k, q the order of its matrix.
struct row_weights {
  std::int32_t factor = 0;
  std::vector<double> weights; // [rows-1], all above 0
};

// Bounds of what the file asks for.
inline constexpr std::int32_t most_state_minutes = 1000000;
inline constexpr std::int32_t fewest_density_points = 16, most_density_points = 4096;

// What the optional file `sampler` asks for beyond the plain sampler.
struct sampler_words {
  bool exact = false;                 // each step draws from its full conditional distribution
  bool moves = false;                 // steps beside the draws that let scales move freely
  bool state = false;                 // the whole state of the chain is saved
  std::int32_t state_minutes = 10;    // between two saves; 0: at the end only
  std::vector<row_weights> row_prior; // factors ascending
  std::int32_t density_points = 0;    // of a record with three and more latent values; 0: no density
};

// What the directive file asks for: constant once it has been read.
struct directives {
  analysis analysis_type = analysis::solve;
  std::int32_t test_level = 0; // level of test information printed
  std::int32_t seed_a = 0, seed_b = 0;
  std::int32_t nburn = 0, nround = 0, isamp = 0;
  vec<std::int32_t> PDF, DDF;         // nramat+1: prior and data degrees of freedom
  std::int32_t prodf = 0;             // proposal degrees of freedom
  double prop_var = 0, conv_coef = 0; // proposal variance, conversion coefficient
  std::int32_t ncens = 0;
  std::vector<std::int32_t> cens_trait;
  std::int32_t nfeto = 0;
  std::vector<fetocv_entry> FETOCV;
  std::int32_t stdef = 0; // standardize option of those covariates
  std::int32_t irest_flag = 0;
  bool restart = false; // the work directory has both r_parm and oldsol
  sampler_words sampler;
};

// Where the chain is.
struct round_state {
  std::int64_t iround = 0; // current round; after a full loop last round + 1
  std::int32_t ist = 0;    // status of the scan
  std::vector<std::int32_t>
      ntr;             // the current model: entry k-1 is the dimension of factor k, then the residual
  vec<logical> gropd;  // ngroups: the group's solutions are updated
  vec<logical> matopd; // nramat+G+1: the drawn matrix becomes active
};

// What has been counted along the chain.
struct chain_counts {
  std::int64_t P_ROUND = 0;    // sampling follows this round: the last of burn-in, or of a chain continued
  double nsamples = 0;         // samples taken so far
  std::int32_t nsamp_pred = 0; // samples in the predictions
  std::int32_t nlabel = 0;     // label switches of mixtures
  bool stop_seen = false;      // a file STOP ended burn-in
};

// True when rounds have two stages: solutions of class effects are used as
// covariables, and the run keeps to one model.
inline bool scans_in_two_stages(const directives& asked) {
  return asked.nfeto > 0 && !has_several_models(asked.analysis_type);
}

// True in the rounds before those that samples are taken of.
inline bool is_burn_in(const directives& asked, const round_state& state) {
  return !asked.restart && state.iround <= asked.nburn;
}

// True in the rounds of which samples are taken.
inline bool is_sample_round(const directives& asked, const round_state& state) {
  const std::int64_t since = state.iround - asked.nburn;
  return since > 0 && since % (asked.isamp > 1 ? asked.isamp : 1) == 0;
}

// True when the state of the round enters the sums and the sample files: in sample
// rounds of all types but the plain solver.
inline bool takes_sample(const directives& asked, const round_state& state) {
  return !solves(asked.analysis_type) && is_sample_round(asked, state);
}

} // namespace zeph
