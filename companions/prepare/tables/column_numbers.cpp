#include "prepare/tables/column_numbers.h"

#include "prepare/tables/missing_codes.h"
#include "shared/indexing.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace zeph::prepare {

namespace {

// Cells of a column of numbers that are none: the texts, and numbers written with the other decimal sign.
struct wrong_numbers {
  repeated_cells texts;
  repeated_cell other_decimal;
};

message& refuse_cell(const csv_columns& table, const std::string& name, const repeated_cell& cell,
                     message_log& log) {
  return add_error(log, place_of(table, cell.lines.first.front()),
                   fmt::format("\"{}\" in column {} is not a number", shown(cell.text), name),
                   "number " + table.file + " " + name);
}

void refuse_texts(const csv_columns& table, std::size_t c, const repeated_cells& texts, message_log& log) {
  const std::string& name = table.header[c];
  for (const repeated_cell& cell : texts.cells) {
    message& m = refuse_cell(table, name, cell, log);
    m.text += where_in_words(cell.lines);
    m.hint = missing_hint(table, cell.text);
  }
  if (texts.n_beyond > 0)
    add_error(log, {table.file, 0, 0},
              fmt::format("{} further values of column {} are not numbers", texts.n_beyond, name));
}

// The files hold reals of 32 bits.
void refuse_beyond_range(const csv_columns& table, std::size_t c, std::size_t r, double value,
                         message_log& log) {
  const bool zero = value != 0.0 && static_cast<float>(value) == 0.0F;
  if (std::fabs(value) <= std::numeric_limits<float>::max() && !zero) return;
  add_error(log, place_of(table, table.line[r]),
            fmt::format("\"{}\" in column {} {}", shown(table.cell(c, r)), table.header[c],
                        zero ? "becomes 0 in 32 bits: use a smaller unit"
                             : "is beyond what 32 bits hold (3.4e38): use a larger unit"),
            "range " + table.file + " " + table.header[c]);
}

std::vector<double> numbers_of(const csv_columns& table, std::size_t c, wrong_numbers& wrong,
                               message_log& log) {
  std::vector<double> values(table.n_records(), std::numeric_limits<double>::quiet_NaN());
  const char decimal = table.layout.decimal, other = decimal == '.' ? ',' : '.';
  const std::vector<double> codes = missing_numbers(table.layout);
  for (std::size_t r = 0; r < values.size(); ++r) {
    if (is_missing(table, c, r)) continue;
    double value = 0.0;
    const std::string_view cell = table.cell(c, r);
    if (number_in(cell, decimal, value)) {
      if (std::ranges::find(codes, value) != codes.end()) continue;
      values[r] = value;
      refuse_beyond_range(table, c, r, value, log);
    } else if (number_in(cell, other, value)) {
      if (wrong.other_decimal.text.empty()) wrong.other_decimal.text = cell;
      add_line(wrong.other_decimal.lines, table.line[r]);
    } else {
      add_cell(wrong.texts, cell, table.line[r]);
    }
  }
  return values;
}

} // namespace

std::vector<double> column_numbers(const csv_columns& table, std::size_t c, message_log& log) {
  wrong_numbers wrong;
  std::vector<double> values = numbers_of(table, c, wrong, log);
  if (wrong.other_decimal.lines.n > 0)
    refuse_other_decimals(table, {{table.header[c], wrong.other_decimal}}, log);
  refuse_texts(table, c, wrong.texts, log);
  return values;
}

std::vector<double> column_numbers(const csv_columns& table, std::size_t c, std::vector<other_decimal>& noted,
                                   message_log& log) {
  wrong_numbers wrong;
  std::vector<double> values = numbers_of(table, c, wrong, log);
  if (wrong.other_decimal.lines.n > 0) noted.push_back({table.header[c], std::move(wrong.other_decimal)});
  refuse_texts(table, c, wrong.texts, log);
  return values;
}

void refuse_other_decimals(const csv_columns& table, const std::vector<other_decimal>& noted,
                           message_log& log) {
  if (noted.empty()) return;
  const auto first_line = [](const other_decimal& o) { return o.cell.lines.first.front(); };
  const other_decimal& first = *std::ranges::min_element(noted, {}, first_line);
  const bool point = table.layout.decimal == '.';
  message& m = refuse_cell(table, first.column, first.cell, log);
  m.text += fmt::format(" (decimal {}? set decimal = \"{}\" in [data])", point ? "comma" : "point",
                        point ? ',' : '.');
  if (noted.size() == 1) {
    m.text += where_in_words(first.cell.lines, "such records");
    return;
  }
  std::int64_t n = 0;
  std::vector<std::string> columns;
  for (const other_decimal& o : noted) {
    n += o.cell.lines.n;
    columns.push_back(o.column);
  }
  m.text += fmt::format(":\n{} values in the columns {}", n, joined(columns));
}

std::size_t first_fraction(const csv_columns& table, std::size_t c) {
  for (std::size_t r = 0; r < table.n_records(); ++r) {
    double value = 0.0;
    if (!is_missing(table, c, r) && number_in(table.cell(c, r), table.layout.decimal, value) &&
        value != std::floor(value))
      return r;
  }
  return table.n_records();
}

column_statistics statistics_of(std::span<const double> values) {
  column_statistics s;
  double sum = 0.0;
  for (const double x : values) {
    if (std::isnan(x)) continue;
    s.min = s.n == 0 ? x : std::min(s.min, x);
    s.max = s.n == 0 ? x : std::max(s.max, x);
    sum += x;
    ++s.n;
  }
  if (s.n == 0) return s;
  s.mean = sum / static_cast<double>(s.n);
  double squares = 0.0;
  for (const double x : values)
    if (!std::isnan(x)) squares += (x - s.mean) * (x - s.mean);
  if (s.n > 1) s.sd = std::sqrt(squares / static_cast<double>(s.n - 1));
  return s;
}

namespace {

// A value that many records share and that is apart from the rest, which runs from others.front() to
// .back().
bool far_from(double value, std::span<const double> others) {
  double widest = 0.0;
  std::size_t n_different = others.empty() ? 0 : 1;
  for (std::size_t k = 1; k < others.size(); ++k) {
    widest = std::max(widest, others[k] - others[k - 1]);
    if (others[k] > others[k - 1]) ++n_different;
  }
  if (n_different < 3) return false;
  const double gap = value < others.front() ? others.front() - value : value - others.back();
  return gap > widest && gap > 2.0 * statistics_of(others).sd;
}

std::string_view records(std::size_t n) { return n == 1 ? "record" : "records"; }

// -9, 99, -999, 9999.. and -1: the usual codes.
bool looks_like_code(double value, bool smallest) {
  if (smallest && value == -1.0) return true;
  double nines = std::abs(value);
  if (smallest && value == -9.0) return true;
  if (nines < 99.0 || nines > 1e12 || nines != std::floor(nines)) return false;
  while (nines >= 9.0 && std::fmod(nines, 10.0) == 9.0) nines = std::floor(nines / 10.0);
  return nines == 0.0;
}

} // namespace

void warn_of_missing_codes(const csv_columns& table, std::size_t c, std::span<const double> values,
                           message_log& log) {
  std::vector<double> sorted;
  for (const double x : values)
    if (!std::isnan(x)) sorted.push_back(x);
  std::sort(sorted.begin(), sorted.end());
  if (sorted.empty()) return;
  const std::span<const double> all(sorted);
  const auto lower = from0(std::upper_bound(all.begin(), all.end(), all.front()) - all.begin());
  const auto upper = from0(all.end() - std::lower_bound(all.begin(), all.end(), all.back()));
  const std::string& name = table.header[c];

  if (all.front() == 0.0 && far_from(0.0, all.subspan(lower)))
    add_warning(log, {table.file, 0, 0},
                fmt::format("{} is exactly 0 in {} of {} records, the next smallest value is {};\n"
                            "if 0 means missing, add it to [data] missing",
                            name, lower, all.size(), all[lower]));
  else if (looks_like_code(all.front(), true) && all.front() < 0.0 &&
           far_from(all.front(), all.subspan(lower)))
    add_warning(log, {table.file, 0, 0},
                fmt::format("{} is {} in {} {}, all others lie between {} and {}: missing code?", name,
                            all.front(), lower, records(lower), all[lower], all.back()));
  if (looks_like_code(all.back(), false) && far_from(all.back(), all.first(all.size() - upper)))
    add_warning(log, {table.file, 0, 0},
                fmt::format("{} is {} in {} {}, all others lie between {} and {}: missing code?", name,
                            all.back(), upper, records(upper), all.front(), all[all.size() - upper - 1]));
}

} // namespace zeph::prepare
