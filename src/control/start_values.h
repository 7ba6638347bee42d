// Stores of the chain and the values that it starts from.
#pragma once

#include "input/design_store.h"
#include "input/equation_layout.h"
#include "input/run_records.h"
#include "input/sampler_store.h"

namespace zeph {

// LNCOV: true for each pair of traits of NORCOV.
void mark_zero_covariances(const model_records& m, sampler_store& s, reporting& report);

// RHS, sol and the sums of solutions, neq each.
void allocate_equations(const equation_layout& layout, sampler_store& s, reporting& report);

// The matrices of the residual groups, the sums of (co)variances and of the
// deviance, the model vector; prints the number of residual groups.
void allocate_dispersion(const model_records& m, const equation_layout& layout, round_state& state,
                         sampler_store& s, reporting& report);

// Start values from the priors: GDET and GIF of each factor, RCOV, RCOVI,
// IDET_RVAR and LVDET of each residual group. A residual matrix that is not
// positive definite is reported for each group, then the run stops with code 16.
void start_from_priors(const model_records& m, const directives& asked, sampler_store& s, reporting& report);

// Prior matrices and residual start matrices on the listing.
void print_start_matrices(const model_records& m, const sampler_store& s, reporting& report);

} // namespace zeph
