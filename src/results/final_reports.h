// The end of a model: the reports in their order. Called once per model,
// however its chain ended.
#pragma once

#include "input/category_store.h"
#include "input/deviation_store.h"
#include "input/mixture_store.h"
#include "input/prediction_store.h"
#include "numerics/random_sources.h"
#include "samples/sample_files.h"

namespace zeph {

// What the reports of the end read, and the sums that they turn into means.
struct final_records {
  const model_records& model;
  const equation_layout& layout;
  const design_store& design;
  category_store& categories;
  mixture_store& mixtures;
  const prediction_store& predictions;
  const deviation_store& deviations;
  sampler_store& sampler;
  random_sources& sources;
  const directives& asked;
  const round_state& state;
  chain_counts& counts;
  sample_files& files;
  reporting& report;
};

// In this order, n being nsamples:
//  - fit statistics on the listing and in lpm (not from the solver)
//  - DIC of each trait (matrices sampled)
//  - sums to posterior means and variances
//  - thresholds of ordered traits on the listing
//  - (co)variances on the listing, in gparout and PAROUT (n >= 1, matrices sampled)
//  - mixing proportions on the listing
//  - ypredicted (predictions that were filled)
//  - gibsol and its listing by SOLWRITE, description of the sample files,
//    trait deviations, solpostmean (n > 1, or from the solver)
//    and, with mixtures, taupostmean, mixz_prob, mixz_last
//  - lastsol (solutions sampled) and gparlast (matrices sampled), for any n
//  - hand-over: the sums are zeroed, the means kept in `sols` and `pars`
// Files that can't be written stop with code 16; those of the memberships after
// the state of the chain has been saved.
void final_reports(const final_records& r);

// solpostmean: one record neq, then per equation a record of its number and
// solpostmean (real*8).
void write_solpostmean(const equation_layout& layout, const sampler_store& store, reporting& report);

} // namespace zeph
