// A plain reader of CSV text for tests: a header line, cells by one separator,
// quotes around a cell taken off. No quoted separators.
#pragma once

#include "support/scratch_directory.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace zeph_test {

struct csv_table {
  std::vector<std::string> header;
  std::vector<std::vector<std::string>> rows;

  std::size_t size() const { return rows.size(); }
  std::size_t column(const std::string& name) const {
    const auto at = std::find(header.begin(), header.end(), name);
    if (at == header.end()) throw std::runtime_error("no column " + name);
    return static_cast<std::size_t>(at - header.begin());
  }
  const std::string& cell(std::size_t row, const std::string& name) const {
    return rows.at(row).at(column(name));
  }
};

inline std::vector<std::string> csv_cells(std::string line, char separator) {
  line.erase(std::remove(line.begin(), line.end(), '\r'), line.end());
  line.erase(std::remove(line.begin(), line.end(), '"'), line.end());
  std::vector<std::string> cells;
  std::istringstream in(line + separator);
  for (std::string cell; std::getline(in, cell, separator);) cells.push_back(cell);
  return cells;
}

inline csv_table csv_of_text(const std::string& text, char separator = ',') {
  csv_table table;
  std::istringstream in(text);
  std::string line;
  if (std::getline(in, line)) table.header = csv_cells(line, separator);
  while (std::getline(in, line))
    if (!line.empty()) table.rows.push_back(csv_cells(line, separator));
  return table;
}

inline csv_table csv_of_file(const std::string& path, char separator = ',') {
  return csv_of_text(bytes_of(path), separator);
}

// The number in a cell; a decimal comma counts as a point.
inline double number_in(std::string cell) {
  std::replace(cell.begin(), cell.end(), ',', '.');
  return std::strtod(cell.c_str(), nullptr);
}

} // namespace zeph_test
