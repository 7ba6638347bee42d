// One sweep over the latent values of all records in which each value is drawn given the newest value of
// everything else: the full conditional distributions of a Gibbs sampler.
//
// Residuals e = w^1/2 (y - Z b) are scaled by the root of the record's weight, for all kinds of traits, so
// that a bound c of y is w^1/2 (c - Z b) for e. A missing trait has weight 1 and no entries: its residual is
// the imputed one. Of one record first the indicators of mixtures are drawn, traits ascending (with their
// liabilities: record_components), then the values of kinds 2, 3 and 4 that are not seen exactly, traits
// ascending, each from its normal distribution given the present residuals of all other traits, truncated to
// its own bounds. The records of a cure sequence are drawn when its last one is reached (subject_status).
#pragma once

#include "gibbs/latent/liability_draws.h"
#include "input/run_records.h"

namespace zeph {

struct scan_records;

// Records, or subjects, of the two components of an indicator, and how many have kept their component since
// a flat prior needs it.
struct component_counts {
  std::int64_t records[2] = {0, 0}; // off, on
  std::int64_t least = 1;           // that each component must have
  std::int64_t kept = 0;            // over the chain
};

struct sweep_work {
  std::vector<component_counts> components; // [t-1], of traits of kinds 5 and 8
  vec<double> log_root;                     // groups: -log |R| / 2
  vec<double> other;                        // nt: residuals in the component that is not in force
  residual_conditional given;               // of the last record of a sequence
};

void allocate_sweep_work(const model_records& m, sweep_work& work, reporting& report);

// Mixture coefficients become exactly 0 or 1 (1 above 1e-4), the same in a record for each indicator, the
// sign of its liability is theirs, and so is the residual group of the last indicator where there are two.
// Not in a chain that is continued.
void round_components(const model_records& model, design_store& design, const sampler_store& sampler);

// Counts the components. Where one has fewer records than its prior needs the run stops in the form for bad
// input: item MIXZ of the file `sampler`, index the indicator and the component.
void count_components(const model_records& model, const design_store& design, const sampler_store& sampler,
                      const directives& asked, sweep_work& work, reporting& report);

// The sweep, from the combined source.
void sweep_latent_values(scan_records& r, const directives& asked, const round_state& state);

// True where the model has a trait of kind 2, 3 or 4.
bool has_bounded_values(const model_records& model);

// Draws kinds 2, 3 and 4 of record irec, whose values have been taken, and stores them.
void draw_bounded_values(scan_records& r, std::int32_t irec);

// Draws e_t of record irec between two bounds of y_t, given its other residuals, and stores y_t.
void draw_between(scan_records& r, std::int32_t irec, std::int32_t t, double low, double high);

// y_t = fitted + e / w^1/2 of record irec as a 32-bit number between the bounds; the residual that the
// record's values hold is that of the number stored.
void store_latent(design_store& design, record_values& values, std::int32_t irec, std::int32_t t, double e,
                  double low, double high);

// y as a 32-bit number above low and at most high, as far as 32 bits have such a number.
float within(double y, double low, double high);

// Mean of e_t of a record in group h given the residuals e (nt) of all other traits.
double mean_of_residual(const latent_work& latent, const double* e, std::int32_t nt, std::int32_t t,
                        std::int32_t h);

// Thresholds 2..n-2 of each ordered trait, ascending, after thr(1) = 0 and thr(n-1) = 1: uniform between
//   max(largest liability of category k, thr(k-1)) and min(smallest of k+1, thr(k+1)).
// A category without records is legal. From the combined source.
void draw_thresholds(const design_store& design, category_store& categories, combined_source& source);

} // namespace zeph
