// The columns of the data that the effects and covariables of the formulas name.
#pragma once

#include "prepare/description/description_records.h"

#include <string>
#include <vector>

namespace zeph::prepare {

// Column of the data that a covariable's name means: that of its section, or the name itself.
std::string column_of_covariable(const model_description& d, const std::string& name);

// The columns of numbers that a covariable reads: its own, or for one made from solutions what they are
// multiplied by.
std::vector<std::string> numbers_of_covariable(const model_description& d, const std::string& name);

// Class columns of an effect, in the order of its atoms; empty for a plain regression.
std::vector<std::string> class_columns(const effect& e);

// The covariable atom of an effect, or none for a class effect.
const atom* covariable_atom(const effect& e);

// "herd:year": the class part of an effect's name.
std::string class_name(const effect& e);

} // namespace zeph::prepare
