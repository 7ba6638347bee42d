// What a description asks of the sampler beyond the classic chain: the words of the file `sampler`.
#pragma once

#include "prepare/description/description_messages.h"

#include <string>
#include <vector>

namespace zeph::prepare {

// Why a run can't be exact, and what to do about it: a sentence without its end, and its place.
struct sampler_reason {
  text_place at;
  std::string text;
};

// What the description has that no exact run exists for: test output above level 1, a run continued otherwise
// than from its saved state, covariables made from solutions, fixed effects beside the mean of an indicator
// or cured trait (some allocation of the records separates them and has infinite weight), flat priors of
// compared numbers of rows, covariances held at zero beside a trait of unit residual variance. The rows of
// the factors are known when the formulas are good. Needs link_kinds before it.
std::vector<sampler_reason> reasons_against_exact(const model_description& d, bool rows_known);

// The reasons as errors, where the description says sampler = "exact".
void refuse_exact(const model_description& d, const std::vector<sampler_reason>& reasons, message_log& log);

// The reasons as one warning, where it does not say which sampler, and would have an exact one but for them.
void warn_of_classic(const model_description& d, const std::vector<sampler_reason>& reasons,
                     message_log& log);

// Checks [run] sampler, state_every, moves, density_points and [factor.NAME] model_prior, and chooses the
// sampler of a chain whose description does not: exact unless there are reasons against it, of which a
// warning is given. Solvers stay classic here: whether levels meet in their records is not known yet. Moves
// that are not stated are on in "gibbs", unless the sampler is said to be classic or covariables are made
// from solutions. Errors:
//   - state_every in an analysis without a chain; moves = true there, and with covariables made from
//   solutions
//   - model_prior in another analysis than "jump", a weight of 0 or below, not one for each number of rows
//   - with sampler = "exact" the reasons against it; of a classic run what check_classic_chain says
void check_sampler(model_description& d, message_log& log, bool rows_known);

} // namespace zeph::prepare
