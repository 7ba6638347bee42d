// Covariables that are solutions of a class effect of another trait: what the description says about them.
#pragma once

#include "prepare/description/description_messages.h"

#include <string>
#include <vector>

namespace zeph::prepare {

// Finds the trait and the class effect that covariable_section::solution names ("milk.herd": a class effect
// of the formula as it is written, or the column of a random term with a constant), and checks the keys that
// belong to it:
//   - no column, range or center beside it; times and standardize only with it, standardize alike in all
//   - a plain or nested regression of another trait, not of the left side of a random term, leg or poly
//   - no circle of traits that explain each other; no ordered or censored trait; no analysis over models
// A warning where source and turned trait share residual or random covariance: the draws are then from no
// posterior distribution.
void link_solutions(model_description& d, message_log& log, bool formulas_are_good);

// The covariable that an atom names, when it is made from solutions; else none.
const covariable_section* solution_covariable(const model_description& d, const atom& x);

// "herd:year": the name of the source, as class effects are named.
std::string source_name(const covariable_section& c);

// True when the class effect of these columns in trait t (0-based) gives its solutions to a covariable.
bool is_source(const model_description& d, int t, const std::vector<std::string>& columns);

// The same of the random effect of this column in a factor.
bool is_random_source(const model_description& d, const std::string& factor, const std::string& column);

} // namespace zeph::prepare
