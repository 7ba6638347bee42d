// The observations of the traits, brought from the words of the data to the numbers that their kinds have in
// the files.
#pragma once

#include "prepare/description/model_description.h"
#include "prepare/tables/csv_columns.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace zeph::prepare {

// How a censored value is known. The numbers are those of the files.
enum censoring : std::int32_t { censored_left = -1, observed = 0, censored_right = 1, censored_interval = 2 };

// Bounds at and beyond it mean no bound in the files.
constexpr double no_bound = 999999.0;

// Per record of the file.
struct trait_values {
  // gaussian: the number. censored: the number, or the bound (of an interval the lower one). ordered: 1..n.
  // binary, sequence: 0, 1. indicator: first membership, 0 or 1. cured: 1 for subjects that were seen to
  // fail.
  std::vector<double> y;          // NaN where missing; an indicator and a cured trait have no missing value
  std::vector<std::int32_t> code; // censored
  std::vector<double> upper;      // censored: upper bound of an interval, else 0
  std::vector<std::string> categories; // ordered, binary, sequence: their texts, lowest first
};

// Values of all traits. `numbers`: the columns of numbers by name, NaN where missing. Errors with file and
// line: a text that is no category, a code of censoring that is none, an interval without its upper bound or
// with one below the lower, a bound at or beyond no_bound. An interval of no width is an observed value.
std::vector<trait_values> read_trait_values(const model_description& d, const csv_columns& table,
                                            const std::map<std::string, std::vector<double>>& numbers,
                                            message_log& log);

} // namespace zeph::prepare
