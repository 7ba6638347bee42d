// Proportions of mixtures and sequences: mix_pi(t), the share of the observed records of trait t that
// are in component 1, counted from scratch in each pass.
#pragma once

#include "input/design_store.h"
#include "input/mixture_store.h"
#include "input/run_records.h"

namespace zeph {

// Proportions at the start: entries of a trait whose mixture coefficient is on, over
// the trait's observed records.
void start_mixing_proportions(const model_records& model, const design_store& design,
                              mixture_store& mixtures);

// Counts record irec in component 1 of trait t; in sample rounds in MIXZ_COUNT too.
void count_member(mixture_store& mixtures, const directives& asked, const round_state& state,
                  std::int32_t irec, std::int32_t t);

// mix_pi(t) = count / records with trait t; 0 where there is none.
void divide_by_observations(const model_records& model, const design_store& design, mixture_store& mixtures,
                            std::int32_t t);

} // namespace zeph
