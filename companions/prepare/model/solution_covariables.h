// Covariables that are solutions of a class effect of another trait, in the files: the values that hold
// their places, the levels by which the records find their solution, and the lines of the directive file.
#pragma once

#include "prepare/model/prepared_model.h"

#include <string>
#include <vector>

namespace zeph::prepare {

// Gives every used record the level of each source effect, also where its own trait is missing. Errors: a
// source that has lost levels for the sake of full rank; a level without solution in a record that needs it.
void complete_source_levels(const model_description& d, prepared_model& p, message_log& log);

// The lines of the directive file from their number on: per covariable in use trait, effect, one covariable
// and its number; then the standardize option. Empty: none.
std::vector<std::string> solution_lines(const model_description& d, const prepared_model& p);

} // namespace zeph::prepare
