// What a chain reports of mixtures and cure sequences: proportions, and the
// membership of each record.
#pragma once

#include "input/design_store.h"
#include "input/mixture_store.h"
#include "input/run_records.h"

namespace zeph {

// On the listing: mean and standard deviation of the proportion of each trait that
// carries mixture regressions or is of kind 8. Only when the model has a trait of
// kind 5 or 8, as all below. Analysis type 0 takes no samples and lists none.
void report_mixing_proportions(const model_records& m, const mixture_store& mixtures, const directives& asked,
                               const chain_counts& counts, reporting& report);

// taupostmean: per record one row in free format, mean and standard deviation of
// the probability of component 1 for each trait of kind 5; 1 and 0 where it was 1
// in every sample, hence in every row of the solver, which takes none.
void write_taupostmean(const model_records& m, const mixture_store& mixtures, const chain_counts& counts,
                       std::int32_t nobs, reporting& report);

// Rows of membership in free format, a row per record of RCDATA_I: its first
// integer, then per trait the share of the sample rounds in component 1, in 32
// bits. icode 1: mixz_prob, headed by nobs, round, nburn, isamp; 2: mixz_last, whose
// rows continue with the last membership and the stored values of the traits. Both
// files must be new when they are first made; the next model of a run writes them
// again. Any other icode is reported on the listing. Returns 0, or 1 after a failure.
int WR_MIXZ(const model_records& m, const design_store& design, mixture_store& mixtures,
            const directives& asked, const chain_counts& counts, std::int32_t icode, std::int64_t round,
            reporting& report);

// Both files of WR_MIXZ for the last round of the chain, the second also when the
// first failed. Returns 0, or the icode of the first that failed: the caller ends
// the run by stop_memberships when its state is saved.
std::int32_t write_memberships(const model_records& m, const design_store& design, mixture_store& mixtures,
                               const directives& asked, const round_state& state, const chain_counts& counts,
                               reporting& report);

// Reports the failure of `icode` on the listing and stops with code 16.
[[noreturn]] void stop_memberships(std::int32_t icode, reporting& report);

} // namespace zeph
