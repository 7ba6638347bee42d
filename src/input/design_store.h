// The design of all records in memory: for each record the equations that it
// touches with their coefficients, its observations, weights, mask and groups.
// Rectangular, entry index fastest; M_M(r) entries of record r are in use.
#pragma once

#include "input/covariate_store.h"
#include "input/model_records.h"

namespace zeph {

struct design_store {
  std::int32_t m = 0;    // largest number of entries of a record
  std::int32_t nobs = 0; // records held (those read, at most the model's number)

  // working row of the record being loaded: 7 x m and m
  mat<std::int32_t> XD;
  vec<double> ZD;

  mat<std::int32_t> XD1_M; // m x nobs: equation number
  mat<std::int32_t> XD2_M; // trait
  mat<std::int32_t> XD3_M; // group
  mat<std::int32_t> XD4_M; // level of the group
  mat<std::int32_t> XD5_M; // equation within the level
  mat<std::int32_t> XD6_M; // 0, or the indicator trait of a mixture coefficient
  mat<std::int32_t> XD7_M; // random factor; 0 for "fixed" parts
  mat<double> ZD_M;        // coefficient

  mat<float> Y_M;              // nt x nobs: observation, liability or imputed residual; live state
  mat<float> WV_M, WV_SQRT_M;  // nt x nobs: weights and their roots
  vec<std::int32_t> ISIT_M;    // nobs: mask of present traits, trait t is bit nt-t
  vec<std::int32_t> C_ISIT_M;  // number of the missing pattern
  vec<std::int32_t> M_M;       // entries in use
  vec<std::int32_t> IRESG_M;   // residual group
  vec<std::int32_t> OBS_POS_M; // position in the user's data; kept with residuals only
  mat<double> ZEPH_RES;        // nt x nobs: residuals of the round; kept with residuals only

  std::vector<vec<std::int32_t>> CURE_Y; // per trait of kind 7: 1 in records that have it, above 0
  vec<std::int32_t> SEQ_M;               // position in the sequence, negative on its last record
  mat<float> CURE_YHAT;                  // nt x n_cure_seq
  mat<logical> LOG_Z;                    // nt x n_cure_seq
  mat<std::int32_t> CENS_M;              // nt x nobs: censoring codes
  mat<float> Y_MMIN, Y_MMAX;             // nt x nobs: bounds of censored observations

  vec<std::int32_t> G_TD_LEVEL; // nobs: level of the trait-deviation factor, when wanted

  covariate_store covariates; // coefficients made from solutions
};

// Bit of trait t in a mask of nt traits.
inline bool trait_present(std::int32_t mask, std::int32_t t, std::int32_t nt) {
  return (mask >> (nt - t)) & 1;
}

inline std::int32_t trait_bit(std::int32_t t, std::int32_t nt) { return std::int32_t{1} << (nt - t); }
inline std::int32_t all_traits(std::int32_t nt) {
  return static_cast<std::int32_t>((std::int64_t{1} << nt) - 1);
}

// Creates the stores of `m` entries and `nobs` records; failures are reported
// under "MME_ALLOC" and the array's name.
void MME_ALLOC(const model_records& model, std::int32_t m, design_store& design, reporting& report);

// Counts the records of each residual group by IRESG_M into HETG_N_OBS of the
// residual; where the model has fewer groups, in the one place that serves all groups.
void count_group_records(model_records& model, const design_store& design);

} // namespace zeph
