// One record's part in the equations: its residual inverse and the products of
// coefficients, residual inverse and coefficients.
//
// For a record with rows z_i (coefficient i of trait t_i, coefficient ZD(i)),
// residual inverse R^-1 = riff:
//   ZDRII(i,t) = riff(t_i,t) ZD(i)
//   ZMATLOW(i,k) = ZDRII(i,t_k) ZD(k), i >= k, doubled when i and k > i meet in
//   one equation: the cross term then occurs twice in z z'.
#pragma once

#include "gibbs/residuals/residual_conditional.h"
#include "input/design_store.h"
#include "input/run_records.h"
#include "input/sampler_store.h"

namespace zeph {

struct scan_records;

struct residual_inverses {
  bool weighted = false;       // the model has weights
  mat<double> riff;            // nt x nt: residual inverse of the current record
  array<double, 4> by_pattern; // nt x nt x patterns (0:n_pat) x groups: HETGR_RIIF, matrix first
  residual_conditional swept;  // R of a group swept on the observed traits
};

// Room for them, and HETGR_RIIF of the file with the matrix as the fastest axes, since a record
// needs one matrix at a time. Groups that the file does not hold take its last one.
void allocate_residual_inverses(const model_records& m, residual_inverses& work, reporting& report);

// Fills riff for record irec. The solver: the inverse of
// the observed part of the record's missing pattern, zero in missing traits;
// the others: the full inverse of its residual group. Weighted by w_i^1/2 w_j^1/2
// when the model has weights.
void make_riff(const model_records& model, const design_store& design, const sampler_store& sampler,
               residual_inverses& inverses, std::int32_t irec, analysis analysis_type, bool weights);

// The same, but in the solver the inverse of the observed part of
// RCOV itself, by sweeps over the traits of the record's mask.
void make_swept_riff(const model_records& model, const design_store& design, const sampler_store& sampler,
                     residual_inverses& inverses, std::int32_t irec, analysis analysis_type, bool weights);

// The one that belongs to the stage of the scan: the sources of covariables take
// the swept one.
void make_stage_riff(const model_records& model, const design_store& design, const sampler_store& sampler,
                     residual_inverses& inverses, scan_stage stage, std::int32_t irec, analysis analysis_type,
                     bool weights);

// inverse (nt x nt) of the part of R (nt x nt) that belongs to the traits of the
// mask, by sweeps; zero in the rows and columns of the others.
void invert_observed(residual_conditional& conditional, const double* R, std::int32_t mask, double* inverse);

// Element (i,k) of the record product, any order of i and k.
inline double record_product(const design_store& d, const mat<double>& riff, std::int32_t irec,
                             std::int32_t i, std::int32_t k) {
  const std::int32_t high = i > k ? i : k, low = i > k ? k : i;
  const double z = riff(d.XD2_M(high, irec), d.XD2_M(low, irec)) * d.ZD_M(high, irec) * d.ZD_M(low, irec);
  return high != low && d.XD1_M(high, irec) == d.XD1_M(low, irec) ? 2.0 * z : z;
}

} // namespace zeph
