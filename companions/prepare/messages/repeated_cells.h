// One fault for all records that hold the same wrong text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zeph::prepare {

constexpr std::size_t first_lines = 5; // of the records that hold a text, as a message names them

// Where a text was found.
struct repeated_lines {
  std::int64_t n = 0;
  std::vector<std::int64_t> first; // first_lines at most, of the file
};

void add_line(repeated_lines& lines, std::int64_t line);

// " (17 records, lines 3, 9, 12, 20, 31, ..)"; empty for a single record. `what`: the plural.
std::string where_in_words(const repeated_lines& lines, std::string_view what = "records");

struct repeated_cell {
  std::string text;
  repeated_lines lines;
};

// Different texts in the order in which they were found. Beyond most_texts of them only records are counted.
struct repeated_cells {
  static constexpr std::size_t most_texts = 10000;
  std::vector<repeated_cell> cells;
  std::unordered_map<std::string, std::size_t> number; // text -> place in cells
  std::int64_t n_beyond = 0;
};

void add_cell(repeated_cells& found, std::string_view text, std::int64_t line);

} // namespace zeph::prepare
