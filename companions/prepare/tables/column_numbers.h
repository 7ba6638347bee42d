// The numbers of a column of a table, their statistics, and values among them that look like missing codes.
#pragma once

#include "prepare/messages/repeated_cells.h"
#include "prepare/tables/csv_columns.h"

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace zeph::prepare {

// Numbers of a column, one per record; NaN where missing (codes count by value) or no number. A text that is
// no number is one error for all its records.
std::vector<double> column_numbers(const csv_columns& table, std::size_t c, message_log& log);

// A column with numbers that are written with the other decimal sign.
struct other_decimal {
  std::string column;
  repeated_cell cell;
};

// The same, but such numbers are only noted: one cause of all columns, for refuse_other_decimals.
std::vector<double> column_numbers(const csv_columns& table, std::size_t c, std::vector<other_decimal>& noted,
                                   message_log& log);

// One error for all columns that were noted.
void refuse_other_decimals(const csv_columns& table, const std::vector<other_decimal>& noted,
                           message_log& log);

// First record whose cell is a number with a fraction, or n_records: such a column is hardly a class.
std::size_t first_fraction(const csv_columns& table, std::size_t c);

struct column_statistics {
  std::size_t n = 0; // values that are not NaN
  double mean = 0.0;
  double sd = 0.0; // divisor n - 1; 0 for fewer than two values
  double min = 0.0;
  double max = 0.0;
};

// NaN values are passed over.
column_statistics statistics_of(std::span<const double> values);

// Warns of values that look like a code for missing: exact zeros far below all others, and a smallest or
// largest value such as -999, -1 or 9999 far from all others. Far means: the gap is above two standard
// deviations of the others and above every gap between them, and there are three different others or more.
void warn_of_missing_codes(const csv_columns& table, std::size_t c, std::span<const double> values,
                           message_log& log);

} // namespace zeph::prepare
