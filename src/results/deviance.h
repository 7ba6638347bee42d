// Deviance information criterion of each trait, by the deviance at the means.
// D. J. Spiegelhalter, N. G. Best, B. P. Carlin and A. van der Linde, Bayesian
// measures of model complexity and fit, Journal of the Royal Statistical Society
// B 64 (2002) 583-639. The constant of the normal density is left out.
#pragma once

#include "input/design_store.h"
#include "input/run_records.h"
#include "input/sampler_store.h"

namespace zeph {

// Sums to means over n = nsamples: dic%ressum and all columns of PARPOSTMEAN.
void deviance_means(const chain_counts& counts, sampler_store& store);

// dic%dic_m(j), the deviance of trait j at these means: sum over records i, of
// residual group g, of ressum(j,i)^2 / r + sum over groups of N(g) log(r), with
// r the mean residual variance of j in g and N(g) the records in it.
void deviance_at_means(const model_records& m, const design_store& design, sampler_store& store);

// Both of these, then on the listing a row per trait in the format T8, A10,
// 2G15.8: name, DIC = 2 dic_s/n - dic_m, pD = dic_s/n - dic_m. No samples give
// what the arithmetic gives (NaN).
void report_deviance(const model_records& m, const design_store& design, const chain_counts& counts,
                     sampler_store& store, reporting& report);

} // namespace zeph
