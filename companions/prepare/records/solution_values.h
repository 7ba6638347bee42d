// Covariables that are solutions of a class effect: the values that represent them until there are
// solutions.
#pragma once

#include "prepare/records/data_columns.h"

#include <cstddef>
#include <string>
#include <vector>

namespace zeph::prepare {

// Columns of the data whose combination names the level of the source.
std::vector<std::size_t> source_places(const data_columns& data, const covariable_section& c);

// Identification of the source's level in record r (0-based), joined as level_codes joins it; empty where a
// column is missing.
std::string source_level(const csv_columns& table, const std::vector<std::size_t>& places, std::size_t r);

// What the solutions are multiplied by: the column `times`, or 1, per record of the file.
std::vector<double> solution_bases(const data_columns& data, const covariable_section& c);

// The same times a number of its own for each level of the source, between 1 and 2: for the search for
// dependent effects, since the solutions are not known.
std::vector<double> stand_in_values(const data_columns& data, const covariable_section& c);

} // namespace zeph::prepare
