// Reads a table of text cells: a CSV file (quotes as usual) or one separated by blanks.
// The cells stay text; numbers, levels and identifications are made from them column by column.
#pragma once

#include "prepare/messages/messages.h"
#include "prepare/messages/repeated_cells.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zeph::prepare {

// How the file is written. The defaults suit an ordinary CSV file.
struct csv_layout {
  char separator = '\0';              // '\0': found from the first line; ' ': any run of blanks and tabs
  char decimal = '.';                 // '.' or ','
  std::vector<std::string> missing{}; // codes of a missing value; an empty cell is missing always
  std::vector<std::string>
      columns{}; // names of the columns of a file without header; empty: line 1 is the header
};

// Cells are trimmed of blanks. Record r and column c count from 0.
struct csv_columns {
  std::string file;                    // name as the messages show it
  csv_layout layout;                   // with the separator that was found
  std::vector<std::string> header;     // size n_columns
  std::vector<std::int64_t> line;      // size n_records: line of the file where the record begins, from 1
  std::string text;                    // all cells, record by record, one behind the other
  std::vector<std::uint64_t> cell_end; // size n_records x n_columns: end of cell r * n_columns + c in text

  [[nodiscard]] std::size_t n_columns() const { return header.size(); }
  [[nodiscard]] std::size_t n_records() const { return line.size(); }
  [[nodiscard]] std::string_view cell(std::size_t c, std::size_t r) const {
    const std::size_t at = r * header.size() + c;
    const std::uint64_t begin = at == 0 ? 0 : cell_end[at - 1];
    return {text.data() + begin, static_cast<std::size_t>(cell_end[at] - begin)};
  }
};

// Reads the file. Handles a byte-order mark, LF, CRLF and CR ends, empty lines, quotes with line breaks
// inside. Errors go to the log with their line: file unreadable or empty, no header (a number among the
// names), a name twice, rows with more or fewer cells than the header (one error for each width; such rows
// are left out), what csv_shape.h finds, a quote that is not closed. What could be read comes back; without
// records, no header.
csv_columns read_csv(const std::string& path, const csv_layout& layout, message_log& log);

// The same from text in memory; `file` is the name for messages.
csv_columns read_csv_text(std::string_view content, const std::string& file, const csv_layout& layout,
                          message_log& log);

constexpr std::size_t no_column = static_cast<std::size_t>(-1);

// Column of that name, or no_column.
std::size_t find_column(const csv_columns& table, std::string_view name);

// The same; a missing column is an error that lists the columns there are.
std::size_t require_column(const csv_columns& table, std::string_view name, message_log& log);

// True for an empty cell and for a cell equal to one of the missing codes.
bool is_missing(const csv_columns& table, std::size_t c, std::size_t r);

// Finite number in a cell, with '.' or ',' as decimal sign and an optional '+'. False: no number.
bool number_in(std::string_view cell, char decimal, double& value);

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
