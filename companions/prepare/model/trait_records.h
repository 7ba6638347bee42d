// MODEL: the records of the traits, with the columns of their class effects and covariables.
#pragma once

#include "prepare/model/prepared_model.h"

#include <string>
#include <utility>
#include <vector>

namespace zeph::prepare {

// What the factors add to a trait.
struct trait_random {
  std::vector<std::pair<int, std::string>> effects; // factor k (from 1) and column of the level
  std::vector<std::pair<int, const contribution*>>
      curves; // factor k and the first contribution of each row with
              // a covariable: a regression of kind 2 of the trait
};
trait_random random_of_trait(const std::vector<factor_levels>& factors, int t);

// Regression of a trait that is no equation of the fixed part.
constexpr std::int32_t random_regression = 2;

// Input number of the regressions on covariable k (0-based): no column of the data has it.
std::int32_t solution_input(int k);

// Sets the sizes of MODEL(i); its arrays can then be allocated.
void size_trait(const prepared_model& p, int t, trait_record& out);

// Fills MODEL(t+1), NLEV, and adds the trait's columns to p.rows. The columns of the factors' levels are
// there already: level_column[k-1] by column name.
void fill_trait(const model_description& d, int t,
                const std::vector<std::map<std::string, std::int32_t>>& level_column, prepared_model& p);

// First equations: NBEGREG, NBEGF, NBEGRA, NBEGRAT, nfreg, nfeq. Returns neq.
std::int64_t number_equations(prepared_model& p);

} // namespace zeph::prepare
