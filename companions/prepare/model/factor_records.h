// RMAT: the records of the random factors.
#pragma once

#include "prepare/model/prepared_model.h"

#include <map>
#include <string>
#include <vector>

namespace zeph::prepare {

// Effect of a factor: the levels that one trait takes from one column.
struct factor_effect {
  int trait = 0;
  std::string column;
  bool intercept = false; // one of its contributions is a constant
  std::int32_t n_coefficients = 0;
};
std::vector<factor_effect> effects_of(const factor_levels& f);

// Sets the sizes of RMAT(k); its arrays can then be allocated.
void size_factor(const factor_levels& f, structure_record& out);

// Adds the columns of the factor's levels to p.rows and returns their numbers by name.
std::map<std::string, std::int32_t> add_level_columns(const model_description& d, const factor_levels& f,
                                                      prepared_model& p);

// Fills RMAT(k). One trait entry per row of the matrix, so that every row is reported; the contributions of a
// record in the order of the rows. The traits' records are filled already. Errors: a start matrix that is not
// positive definite.
void fill_factor(const model_description& d, int k, const std::map<std::string, std::int32_t>& level_column,
                 prepared_model& p, message_log& log);

} // namespace zeph::prepare
