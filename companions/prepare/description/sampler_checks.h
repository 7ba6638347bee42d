// What a description asks of the sampler beyond the classic chain: the words of the file `sampler`.
#pragma once

#include "prepare/description/description_messages.h"

namespace zeph::prepare {

// Checks [run] sampler, state_every, density_points and [factor.NAME] model_prior. Errors:
//   - state_every in an analysis without a chain; density_points or model_prior without sampler = "exact"
//   - model_prior in another analysis than "jump", a weight of 0 or below, not one for each number of rows
//   - with sampler = "exact" what no exact chain exists for: test output above level 1, covariables made from
//     solutions, fixed effects beside the mean of an indicator or cured trait (some allocation of the records
//     separates them and has infinite weight), flat priors of compared numbers of rows, covariances held at
//     zero beside a trait of unit residual variance, a chain continued otherwise than from its saved state
// The rows of the factors are known when the formulas are good. Needs link_kinds before it.
void check_sampler(const model_description& d, message_log& log, bool rows_known);

} // namespace zeph::prepare
