// The start of a run over models: the smallest model, the stores of the moves,
// and `zeinfo`, the chain's record of the moves that it proposed.
#pragma once

#include "jump/jump_store.h"

namespace zeph {

// Brings the layout in line with a model: NGR(g,2) of each random factor's group is the
// factor's entry; in the trait record `record` (none: nothing) the random
// regressions of factor k get the effect codes 2, row active, and 3. The first row of a
// factor is always active, so that the c-th of its regressions is row c+1. Nothing
// reads the difference of the two codes.
void set_structure(model_records& m, equation_layout& layout, const std::vector<std::int32_t>& model,
                   std::int32_t k, std::int32_t record);
inline void set_structure(jump_records& r, const std::vector<std::int32_t>& model, std::int32_t k) {
  set_structure(r.model, r.scan.layout, model, k, k); // the factor's number serves as trait number
}

// GIF(:,:,k) = inverse of the leading block of COV_MAT of factor k, of the order that the
// model in force gives it; other elements stay.
void invert_start_matrix(jump_records& r, std::int32_t k);

// Makes new_model the model in force, with cov_new as the matrix of factor jump_k: GIF is its inverse, which
// passes through prop_scale; the layout and the model vector follow. Solutions stay.
void enter_new_model(jump_records& r);

// Once, before the first round. Reads the pedigree (PEDFILE). start of analysis::jump: the model in force
// becomes one row of each factor, with GIF(1,1,k) = 1/COV_MAT(1,1). Without a factor
// of two rows or more: "All random effects have covariance matrix of dimension
// one", stop, code 16. Sizes the stores of the moves, log_det_A by the relationship
// inverses. `zeinfo` holds the word "starting" until its first row; where it is open, as in a chain
// that is continued, it is left alone. Sums of samples stay as they are.
void jump_setup(jump_records& r, relationship_store& relations, analysis start);

// One row of zeinfo, the first in place of "starting"; a fault is a write_fault.
void write_zeinfo(jump_store& jump, std::string_view row, reporting& report);
void flush_zeinfo(jump_store& jump, reporting& report);
void close_zeinfo(jump_store& jump, reporting& report);

} // namespace zeph
