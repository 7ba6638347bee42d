#include "prepare/tables/csv_columns.h"

#include "shared/indexing.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace zeph::prepare {

source_place place_of(const csv_columns& table, std::int64_t line) {
  return {table.file, static_cast<int>(line), 0};
}

std::size_t find_column(const csv_columns& table, std::string_view name) {
  const auto at = std::find(table.header.begin(), table.header.end(), name);
  return at == table.header.end() || name.empty() ? no_column : from0(at - table.header.begin());
}

std::size_t require_column(const csv_columns& table, std::string_view name, message_log& log) {
  const std::size_t c = find_column(table, name);
  if (c == no_column) {
    message& m = add_error(log, {table.file, 0, 0},
                           fmt::format("no column \"{}\"; the columns are: {}", name, joined(table.header)));
    m.hint = nearest_hint(name, table.header);
  }
  return c;
}

bool is_missing(const csv_columns& table, std::size_t c, std::size_t r) {
  const std::string_view cell = table.cell(c, r);
  const std::vector<std::string>& codes = table.layout.missing;
  return cell.empty() || std::find(codes.begin(), codes.end(), cell) != codes.end();
}

bool number_in(std::string_view cell, char decimal, double& value) {
  constexpr std::size_t longest = 400; // no double needs more digits
  if (cell.size() > 1 && cell.front() == '+' && cell[1] != '-') cell.remove_prefix(1);
  if (cell.empty() || cell.size() > longest) return false;
  std::array<char, longest> copy{};
  std::copy(cell.begin(), cell.end(), copy.begin());
  char* const end = copy.data() + cell.size();
  if (decimal != '.') {
    if (std::find(copy.data(), end, '.') != end) return false;
    std::replace(copy.data(), end, decimal, '.');
  }
  const auto [stop, fault] = std::from_chars(copy.data(), end, value);
  return fault == std::errc{} && stop == end && std::isfinite(value);
}

} // namespace zeph::prepare
