// All arrays of the chain: right-hand sides and solutions, covariance matrices
// and their inverses, sums of squares, and the sums kept for the reports.
#pragma once

#include "input/density_store.h"
#include "input/equation_layout.h"

namespace zeph {

// What the draw of one covariance matrix works with, of the matrix's order. Between
// rounds only SCALE is kept.
struct inverse_wishart_store {
  mat<double> sscp_f; // scale of the draw: inverse of the sums of squares; scratch once W is drawn
  mat<double> W;      // the sums of squares, then the new covariance matrix
  mat<double> W_INV;  // its inverse; scratch until W is drawn
  vec<double> SCALE;  // 1.0 at the start; scaling of the constrained residual draw, kept between rounds
};

struct sampler_store {
  std::int32_t nf = 0;     // larger of nt and the largest n_rc
  std::int32_t G = 1;      // residual groups
  vec<double> RHS, sol;    // neq
  vec<double> solpostmean; // neq: sum of sol, then mean
  vec<double> pev;         // neq: sum of squares of sol, then variance
  vec<double> sols;        // neq: mean solutions of the model before

  cube<double> GIF;         // nf x nf x nramat: active inverse of each factor's matrix
  vec<double> GDET;         // nramat: of the model file, printed and saved
  vec<double> RDET;         // 2^nt - 1; kept: 0 throughout, part of the saved state
  cube<double> RCOV, RCOVI; // nt x nt x G: residual matrices and inverses
  // kept: SRCOV and SRCOVI (nt x nt x G), W_RCOV and COVSAMPM (nt x nt) are allocated under their
  // names, which a failure reports; nothing reads them
  cube<double> SRCOV, SRCOVI;
  mat<double> W_RCOV, COVSAMPM;
  vec<double> IDET_RVAR; // nramat+G: root of the determinant of the active inverse
  vec<double> LVDET;     // nramat+G
  mat<double> sscp;      // packed nf(nf+1)/2 x nramat+G: sums of squares, after a draw the new matrix
  mat<double> PARPOSTMEAN, PARVAR, pars;     // the same shape
  std::vector<inverse_wishart_store> IW_STR; // nramat+G, f counts from 1: IW_STR_of
  vec<logical> LNCOV;                        // packed nt(nt+1)/2: residual covariance held at zero

  vec<std::int32_t> IREST; // equations restricted to zero
  std::int32_t n_IREST = 0;

  mat<double> dic_ressum;   // nt x nobs: sum of residuals over samples
  mat<double> dic_rrsum;    // nt x G: squared residuals of the current sample
  vec<double> dic_s, dic_m; // nt

  density_store density; // of the exact sampler
};

// Stores of the covariance draws: IW_STR(f) of order n_rc for each random factor,
// nt for each residual group; SCALE = 1.0. Returns 0, or the status of an
// allocation that failed: nothing is printed, and IW_STR is left empty.
int ZEPHVAR_ALLOC(const model_records& m, sampler_store& s, reporting& report);

// IW_STR(f), f = 1..nramat+G. `routine` stops as impossible when the store could
// not be had at the start of the run.
inverse_wishart_store& IW_STR_of(sampler_store& s, std::int64_t f, std::string_view routine,
                                 reporting& report);
const inverse_wishart_store& IW_STR_of(const sampler_store& s, std::int64_t f, std::string_view routine,
                                       reporting& report);

// Stores of the sampler that depend on the model; routine name "QVAgib_ALLOC".
void QVAgib_ALLOC(const model_records& m, sampler_store& s, reporting& report);

} // namespace zeph
