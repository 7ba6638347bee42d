// The latent variables of a round, after the (co)variance matrices: the door of this wing. With the
// headers that it includes it declares all that the scan and the start of a run use of it: the pass over
// the latent values, the work records of its units, and the proportions at the start.
#pragma once

#include "gibbs/latent/latent_sweep.h"
#include "gibbs/latent/liability_draws.h"
#include "gibbs/latent/mixing_proportions.h"
#include "gibbs/latent/mixture_updates.h"
#include "input/run_records.h"

namespace zeph {

struct sample_files;
struct scan_records;

// True when a round of the run replaces latent values.
bool has_latent_traits(const model_records& m, const directives& asked);

// Replaces the latent values of all records, by the types of traits in the model:
// liabilities of types 3 and 4 (unless 7 or 8 is there too), thresholds, cure
// sequences, mixtures, censored traits. In sample rounds, unless the run solves,
// the proportions of mixtures and sequences are summed and written to `mix_pi`.
// The body has readied the records' values.
void update_latent_variables(scan_records& r, const directives& asked, const round_state& state,
                             sample_files& files);

// Liabilities of ordered and binary traits, record by record; from the combined
// source one draw per latent trait that is observed, and per censored trait whose
// value is positive, whose draw only serves the traits after it.
void bddrmc_cat(scan_records& r, const directives& asked);

// Values of censored observations (codes -1, 1, 2), record by record.
void bddrmc_cens(scan_records& r, const directives& asked);

// Thresholds 2..n-2 of each ordered trait, uniform between the largest liability
// of the category below and the smallest of the one above; thr(1) = 0 and
// thr(n-1) = 1. In sample rounds of all types above 0 they are summed and written
// to `threshold`: round, number of the first ordered trait (on every row), k, thr(k).
void samp_thresholds(const design_store& design, category_store& categories, combined_source& source,
                     reporting& report, const directives& asked, const round_state& state,
                     sample_files& files);

} // namespace zeph
