// Indicators and liabilities of two-component mixtures.
//
// A trait t of kind 5 is the latent indicator of a mixture: its liability is
// normal around its fitted value e(t), and a record belongs to component 1 with
// prior probability Phi(e(t)). In component 1 the record's mixture coefficients
// (XD6_M > 0) are 1, in component 0 they are 0; with two residual groups the
// component chooses the group too: D. Gianola and others, Genetics Selection Evolution
// 36 (2004) 3-27; J. Odegard and others, Journal of Dairy Science 86 (2003) 3694-3703.
#pragma once

#include "gibbs/latent/liability_draws.h"
#include "input/run_records.h"

namespace zeph {

struct scan_records;

// Work of one record of the pass.
struct mixture_work {
  residual_conditional given; // R of its group swept on the traits known so far
  vec<logical> z;             // nt: its indicators
  vec<logical> l_mix_z;       // nt: traits whose mixture coefficients are on
  vec<double> e1, e0;         // nt: its residuals in component 1 and in 0
};

void allocate_mixture_work(const model_records& m, mixture_work& work, reporting& report);

// One pass over the records for the traits of kind 5. Each takes a uniform of the
// combined source for its indicator,
//   tau = p1/(p1 + p0), p1 = exp(-e1'R1^-1 e1/2) |R1|^-1/2 Phi, p0 alike with 1 - Phi,
// then the liabilities of the record's traits of kind 5 are drawn. A tau that is no
// number puts the record into component 0.
void bddrmc_mix(scan_records& r, const directives& asked, const round_state& state);

// Liabilities of the traits of kind 5 of one record: each given the observed other
// traits and those of kind 5 drawn before, on the side given by z. On return
// res(t) of those traits is the liability itself.
void liab_sample_mix(const model_records& model, const sampler_store& sampler, mixture_work& mixture,
                     combined_source& source, double* res, const double* mean, const logical* z,
                     std::int32_t isit, std::int32_t h);

} // namespace zeph
