// The data file with the columns that the model uses: numbers read once, classes looked at for slips.
#pragma once

#include "prepare/description/description_messages.h"
#include "prepare/records/trait_values.h"
#include "prepare/tables/csv_columns.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace zeph::prepare {

struct message_log;

// Records count from 0, in the order of the file.
struct data_columns {
  csv_columns table;
  std::map<std::string, std::vector<double>>
      numbers;                      // by column of the file; NaN where missing; size n_records
  std::vector<trait_values> traits; // per trait

  [[nodiscard]] std::size_t n_records() const { return table.n_records(); }
  [[nodiscard]] const std::vector<double>& number(const std::string& column) const {
    return numbers.at(column);
  }
};

// Messages from entries[first] on name the file as the description does. That it can't be read is reported at
// the place of the description that names it.
void show_as_written(const model_description& d, message_log& log, std::size_t first, const std::string& path,
                     const text_value& file);

// Reads the file, the numbers of observations, weights and covariables, and the observations of all kinds of
// traits. Errors: unknown columns, cells that are not numbers, classes that hold a number with a fraction,
// those of trait_values. Warnings: values and levels that look like codes for missing.
data_columns read_data_columns(const model_description& d, message_log& log);

} // namespace zeph::prepare
