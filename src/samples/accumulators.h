// Sums kept during the chain and their change into the reported moments.
//
// During the chain solpostmean and pev hold the sum and the sum of squares of
// `sol` over the sample rounds; after `solution_moments` the mean and the
// variance. PARPOSTMEAN and PARVAR are the same for the packed (co)variances.
#pragma once

#include "input/run_records.h"
#include "input/sampler_store.h"

namespace zeph {

// True when equation e of the layout belongs to a row that the current, smaller
// model leaves out: row p of a level with p above NGR(g,2). 1 <= e <= neq.
bool inactive_equation(const equation_layout& layout, std::int64_t e);

// True when some random factor has fewer active rows than its full order.
bool smaller_model(const equation_layout& layout);

// One sample: nsamples += 1, solpostmean += sol, pev += sol^2. Rows that the
// current model leaves out count as 0.0, whatever `sol` still holds there.
void accumulate_solutions(const model_records& m, const equation_layout& layout, sampler_store& store,
                          chain_counts& counts);

// One sample of the (co)variances: PARPOSTMEAN += sscp, PARVAR += sscp^2 over the
// packed leading block of each factor's and each residual group's current order.
void accumulate_covariances(const model_records& m, sampler_store& store, const round_state& state);

// In sample rounds of runs of one model, after the scan: dic%dic_s(j) +=
// N(g) log(RCOV(j,j,g)) + dic%rrsum(j,g) / RCOV(j,j,g) for each residual group g
// and trait j, N(g) being HETG_N_OBS. Other rounds add nothing.
void accumulate_deviance(const model_records& m, sampler_store& store, const directives& asked,
                         const round_state& state);

// Sums to moments, n = nsamples. From the solver: solpostmean = the last
// sol, pev = 0. Otherwise solpostmean = sum / n (n = 0 gives what the arithmetic
// gives), pev = (sum of squares - sum^2 / n) / (n - 1), or 0 for integer n <= 1.
void solution_moments(const directives& asked, const chain_counts& counts, sampler_store& store);

// PARVAR = standard deviations sqrt((sum of squares - n mean^2) / (n - 1)), with
// PARPOSTMEAN holding the means; 0 for integer n <= 1, and where the difference
// is not above 1e-12. Nothing in the solver.
void covariance_moments(const model_records& m, const directives& asked, const round_state& state,
                        const chain_counts& counts, sampler_store& store);

// Hand-over to the next model: sols = solpostmean, pars = PARPOSTMEAN; then all
// sums of samples and their count are zero. `sol` and `RCOV` stay as they are.
void hand_over_sums(sampler_store& store, chain_counts& counts);

} // namespace zeph
