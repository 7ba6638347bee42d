// A table of text cells, as a CSV file holds it. The cells stay text; numbers, levels
// and identifications are made from them column by column.
#pragma once

#include "prepare/messages/messages.h"

#include <cstddef>
#include <cstdint>
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
  std::string text;                    // all cells, record by record, one after the other
  std::vector<std::uint64_t> cell_end; // size n_records x n_columns: end of cell r * n_columns + c in text

  [[nodiscard]] std::size_t n_columns() const { return header.size(); }
  [[nodiscard]] std::size_t n_records() const { return line.size(); }
  [[nodiscard]] std::string_view cell(std::size_t c, std::size_t r) const {
    const std::size_t at = r * header.size() + c;
    const std::uint64_t begin = at == 0 ? 0 : cell_end[at - 1];
    return {text.data() + begin, static_cast<std::size_t>(cell_end[at] - begin)};
  }
};

// A line of the file, for messages.
source_place place_of(const csv_columns& table, std::int64_t line);

constexpr std::size_t no_column = static_cast<std::size_t>(-1);

// Column of that name, or no_column.
std::size_t find_column(const csv_columns& table, std::string_view name);

// The same; a missing column is an error that lists the columns there are.
std::size_t require_column(const csv_columns& table, std::string_view name, message_log& log);

// True for an empty cell and for a cell equal to one of the missing codes.
bool is_missing(const csv_columns& table, std::size_t c, std::size_t r);

// Finite number in a cell, with '.' or ',' as decimal sign and an optional '+'. False: no number.
bool number_in(std::string_view cell, char decimal, double& value);

} // namespace zeph::prepare
