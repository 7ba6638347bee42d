// Covariables that are solutions of a class effect of another trait, in the files: the values that stand in
// for them, the levels by which the records find their solution, and the lines of the directive file.
#pragma once

#include "prepare/model/model_assembly.h"

#include <string>
#include <vector>

namespace zeph::prepare {

// What the solutions are multiplied by: the column `times`, or 1, per record of the file.
std::vector<double> solution_bases(const data_columns& data, const covariable_section& c);

// The same times a number of its own for each level of the source, between 1 and 2: for the search of effects
// that hang together, since the solutions are not known.
std::vector<double> stand_in_values(const data_columns& data, const covariable_section& c);

// True when the class effect of these columns in trait t (0-based) gives its solutions to a covariable.
bool is_source(const model_description& d, int t, const std::vector<std::string>& columns);

// The same of the random effect of this column in a factor.
bool is_random_source(const model_description& d, const std::string& factor, const std::string& column);

// Gives every used record the level of each source effect, also where its own trait is missing. Errors: a
// source that has lost levels for the sake of full rank; a level without solution in a record that needs it.
void complete_source_levels(const model_description& d, prepared_model& p, message_log& log);

// Input number of the regressions on covariable k (0-based): no column of the data has it.
std::int32_t solution_input(int k);

// The lines of the directive file from their number on: per covariable in use trait, effect, one covariable
// and its number; then the standardize option. Empty: none.
std::vector<std::string> solution_lines(const model_description& d, const prepared_model& p);

} // namespace zeph::prepare
