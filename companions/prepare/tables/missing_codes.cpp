#include "prepare/tables/missing_codes.h"

#include "prepare/messages/messages.h"
#include "prepare/messages/repeated_cells.h"
#include "prepare/tables/missing_words.h"

#include <fmt/format.h>

#include <algorithm>

namespace zeph::prepare {

std::vector<double> missing_numbers(const csv_layout& layout) {
  std::vector<double> out;
  double value = 0.0;
  for (const std::string& code : layout.missing)
    if (number_in(code, '.', value) || number_in(code, layout.decimal, value)) out.push_back(value);
  return out;
}

bool is_missing_number(const csv_columns& table, std::size_t c, std::size_t r) {
  if (is_missing(table, c, r)) return true;
  double value = 0.0;
  if (!number_in(table.cell(c, r), table.layout.decimal, value)) return false;
  const std::vector<double> codes = missing_numbers(table.layout);
  return std::ranges::find(codes, value) != codes.end();
}

std::string missing_hint(const csv_columns& table, std::string_view cell) {
  if (!is_word_for_nothing(cell)) return {};
  std::string codes;
  for (const std::string& code : table.layout.missing) codes += fmt::format("\"{}\", ", code);
  return fmt::format("if it means that there is no value: [data] missing = [{}\"{}\"]", codes, shown(cell));
}

void warn_of_missing_levels(const csv_columns& table, std::size_t c, message_log& log) {
  repeated_cells found;
  for (std::size_t r = 0; r < table.n_records(); ++r)
    if (is_sign_for_nothing(table.cell(c, r)) && !is_missing(table, c, r))
      add_cell(found, table.cell(c, r), table.line[r]);
  for (const repeated_cell& cell : found.cells)
    add_warning(log, {table.file, static_cast<int>(cell.lines.first.front()), 0},
                fmt::format("\"{}\" in column {} is taken as a level{}", shown(cell.text), table.header[c],
                            where_in_words(cell.lines)))
        .hint = missing_hint(table, cell.text);
}

} // namespace zeph::prepare
