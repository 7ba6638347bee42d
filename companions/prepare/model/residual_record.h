// The residual element of the model: start matrices, held zeros, patterns and groups.
#pragma once

#include "input/model_records.h"
#include "prepare/parts/start_values.h"
#include "prepare/records/residual_patterns.h"

namespace zeph::prepare {

// Fills the arrays of the residual element: start matrix, held zeros, pattern tables, and for each group and
// pattern the inverse of the observed part (zero elsewhere) and its log determinant. The element's arrays
// have been taken for n_hetgr groups (at least 1) and n_pat patterns.
// Errors: a start matrix that is not positive definite. Warnings: two traits that are never in one record.
void fill_residual(const model_description& d, const record_selection& records,
                   const residual_patterns& patterns, const start_values& start, structure_record& residual,
                   message_log& log);

} // namespace zeph::prepare
