// The data file with the columns that the model uses: numbers read once, classes looked at for slips.
#pragma once

#include "prepare/description/model_description.h"
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

// Column of the data that a covariable's name stands for: that of its section, or the name itself.
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

// Messages from entries[first] on name the file as the description does. That it can't be read is told with
// the place of the description that names it.
void show_as_written(const model_description& d, message_log& log, std::size_t first, const std::string& path,
                     const text_value& file);

// Reads the file, the numbers of observations, weights and covariables, and the observations of all kinds of
// traits. Errors: unknown columns, cells that are no numbers, classes that hold a number with a fraction,
// those of trait_values. Warnings: values and levels that look like codes for missing.
data_columns read_data_columns(const model_description& d, message_log& log);

} // namespace zeph::prepare
