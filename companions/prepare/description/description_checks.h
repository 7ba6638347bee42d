// What can be checked in a model description without data: formulas against factors and covariables, the rows
// of each factor, matrices, and what this version supports.
#pragma once

#include "prepare/description/description_messages.h"

namespace zeph::prepare {

// Parses the formulas, marks the covariables of all effects, fills factor_section::rows, and adds every fault
// and warning to the log.
//
// Faults: the grammar; a factor that has no table; a class effect on the left of a bar; two covariables in
// one effect; an `order` that is not a permutation of the rows; a start matrix of wrong order or not positive
// definite; a start value where a residual covariance is held at zero; keys that do not go together; formulas
// of [derive] whose names the report will not find; what link_kinds refuses; what is not
// yet supported.
// Warnings: a prior_df that acts as flat; a flat prior of a factor whose numbers of rows are compared; a
// factor or covariable that no formula uses; a column used both as a class
// and inside leg or poly; two traits of one column; no sample round within the rounds.
void check_description(model_description& d, message_log& log);

// Smallest eigenvalue of the symmetric matrix m (LAPACK dsyev), m.order at least 1. NaN when dsyev fails.
double smallest_eigenvalue(const matrix_value& m);

// True when m, scaled to ones on the diagonal, has a smallest eigenvalue above 1e-10. A diagonal element that
// is not positive: false.
bool is_positive_definite(const matrix_value& m);

} // namespace zeph::prepare
