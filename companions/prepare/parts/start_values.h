// Start values of the covariance matrices, and what the listing says about the traits.
#pragma once

#include "prepare/parts/factor_levels.h"
#include "prepare/tables/column_numbers.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zeph::prepare {

// Square symmetric matrix, element (i,j) 0-based at i * order + j.
struct start_matrix {
  int order = 0;
  std::vector<double> value;
  bool given = false; // false: the default

  [[nodiscard]] double at(int i, int j) const { return value[static_cast<std::size_t>(i * order + j)]; }
  [[nodiscard]] double& at(int i, int j) { return value[static_cast<std::size_t>(i * order + j)]; }
};

struct trait_summary {
  column_statistics observed; // over the records where the trait is present
};

struct start_values {
  std::vector<trait_summary> traits;
  std::vector<start_matrix> factors; // as make_factors
  start_matrix residual;
  std::vector<std::string> group_codes;      // residual groups in order; empty: one group
  std::vector<start_matrix> residual_groups; // as group_codes
};

// Inverse and log determinant of the rows and columns `kept` (0-based) of a symmetric positive definite
// matrix; the inverse is at those rows and columns, zero elsewhere (LAPACK's Cholesky factor and solve).
// False: not positive definite.
bool inverse_of_part(const start_matrix& m, const std::vector<int>& kept, std::vector<double>& inverse,
                     double& log_determinant);
bool inverse_of(const start_matrix& m, std::vector<double>& inverse, double& log_determinant);

// The matrices of the description, or the defaults: half of the variance of a trait to the residual (all of
// it without random factor), the other half shared evenly over its factors, within a factor over its rows; a
// row with a covariable x gets the share divided by the mean square of x. Correlations 0. The variance of an
// ordered trait is that of a liability with outer thresholds 0 and 1, that of the kinds with unit residual
// variance is 2. A trait without variance is taken as of variance 1, with a warning. Errors: group codes of
// the description that the data do not have.
start_values make_start_values(const model_description& d, const data_columns& data,
                               const record_selection& records, const std::vector<factor_levels>& factors,
                               const std::vector<std::string>& group_codes, message_log& log);

} // namespace zeph::prepare
