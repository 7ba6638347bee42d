// Log density of the observed data, record by record, with all latent values integrated out.
//
// With residuals e scaled by the roots of the weights w, G the traits of a record that are seen exactly
// (Gaussian ones and censored ones with a plain code) and L its latent ones, missing traits left out,
//   log p = log N(e_G; 0, R_GG) + sum over G of log w^1/2 + log P(e_L within its bounds | e_G),
// summed over the components of all indicators of the record. The unit of a cure sequence is the sequence,
// summed over whether its subject can fail: of one that cannot, kind 7 says nothing.
#pragma once

#include "gibbs/residuals/residual_conditional.h"
#include "input/run_records.h"
#include "numerics/normal_boxes.h"

#include <vector>

namespace zeph {

struct scan_records;

// One set of exact and of latent traits, in one residual group.
struct density_conditional {
  bool prepared = false;   // in this round
  double log_constant = 0; // -(n log(2 pi) + log |R_GG|)/2
  mat<double> inverse;     // |G| x |G|: R_GG^-1
  mat<double> coefficient; // |G| x |L|: of e_G in the means of e_L
  mat<double> covariance;  // |L| x |L|: of e_L given e_G
};

struct density_form {
  std::int32_t exact = 0, latent = 0;      // masks
  std::vector<std::int32_t> g, l;          // traits, ascending
  std::vector<density_conditional> groups; // [h-1]
};

struct density_work {
  vec<std::int32_t> exact;         // nobs: mask of the traits seen exactly
  vec<std::int32_t> seen_form;     // nobs: form of a record without latent values, from 0; -1: another record
  vec<double> log_roots;           // nobs, with weights: sum of log w^1/2 over the traits seen exactly
  bool single = false;             // all records: one trait, seen, without weights or groups
  std::vector<density_form> forms; // found as they are needed
  residual_conditional given;
  box_work box;
  vec<double> e, fitted;                       // nt: of one choice of components
  vec<double> mean, low, high;                 // nt: of the latent traits
  std::vector<std::int32_t> indicators, cured; // of the record, of the model
  vec<logical> can_fail;                       // nt: of the pairs of a subject
};

// Work and sums of the units. A unit of three and more latent values has no density without points for it:
// the listing then says so.
void prepare_densities(scan_records& r, const directives& asked);

// log p of all units with the state as it is, into their sums; returns minus their sum. The body has readied
// the records' values. A call is a sample.
double score_units(scan_records& r, const directives& asked);

} // namespace zeph
