#include "prepare/tables/csv_columns.h"

#include "prepare/messages/repeated_cells.h"
#include "prepare/tables/csv_shape.h"
#include "prepare/tables/missing_codes.h"
#include "prepare/tables/readable_file.h"
#include "prepare/tables/text_encoding.h"
#include "prepare/tables/text_lines.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <fstream>
#include <limits>
#include <set>

#include <csv.h>

namespace zeph::prepare {

namespace {

// The rows as they come from the file, before they are cells of a table.
struct row_sink {
  csv_columns* table = nullptr;
  message_log* log = nullptr;
  std::int64_t line = 0;        // of the file, being read
  std::int64_t row_line = 0;    // where the row began; 0: no row is open
  std::vector<std::string> row; // cells of the open row
  std::size_t n = 0;            // cells in use
  bool header_done = false;
  ragged_rows ragged;
};

void add_cell(row_sink& sink, std::string_view cell) {
  if (sink.n == sink.row.size()) sink.row.emplace_back();
  sink.row[sink.n++].assign(trimmed(cell));
}

source_place place_of(const csv_columns& table, std::int64_t line) {
  return {table.file, static_cast<int>(line), 0};
}

void note_ragged(row_sink& sink) {
  add_line(sink.ragged.by_width[sink.n], sink.row_line);
  if (sink.ragged.n++ == 0) sink.ragged.first_line = sink.row_line;
  sink.ragged.n_empty_end += sink.n > 0 && sink.row[sink.n - 1].empty() ? 1 : 0;
}

void end_row(row_sink& sink) {
  csv_columns& table = *sink.table;
  if (!sink.header_done) {
    table.header.assign(sink.row.begin(), sink.row.begin() + static_cast<std::ptrdiff_t>(sink.n));
    sink.header_done = true;
  } else if (sink.n != table.n_columns()) {
    note_ragged(sink);
  } else {
    table.line.push_back(sink.row_line);
    for (std::size_t c = 0; c < sink.n; ++c) {
      table.text += sink.row[c];
      table.cell_end.push_back(table.text.size());
    }
  }
  sink.n = 0;
  sink.row_line = 0;
}

void on_cell(void* text, std::size_t n, void* sink) {
  add_cell(*static_cast<row_sink*>(sink), {static_cast<const char*>(text), n});
}

void on_row(int, void* sink) { end_row(*static_cast<row_sink*>(sink)); }

// Lines are fed one by one, so that a record knows the line where it begins.
void read_separated(std::string_view content, row_sink& sink) {
  csv_parser parser;
  if (csv_init(&parser, CSV_STRICT | CSV_STRICT_FINI) != 0) {
    add_error(*sink.log, place_of(*sink.table, 0), "no memory to read the file");
    return;
  }
  csv_set_delim(&parser, static_cast<unsigned char>(sink.table->layout.separator));
  bool good = true;
  while (good && !content.empty()) {
    const std::string_view line = take_line(content);
    ++sink.line;
    if (sink.row_line == 0) sink.row_line = sink.line;
    good = csv_parse(&parser, line.data(), line.size(), on_cell, on_row, &sink) == line.size();
    if (good && sink.n == 0 && parser.entry_pos == 0 && parser.quoted == 0) sink.row_line = 0;
  }
  if (!good)
    add_error(*sink.log, place_of(*sink.table, sink.line),
              "a quote stands inside a value; put the whole value in quotes and write the inner quote twice");
  else if (csv_fini(&parser, on_cell, on_row, &sink) != 0)
    add_error(*sink.log, place_of(*sink.table, sink.row_line), "a quote is opened here and never closed");
  csv_free(&parser);
}

// A cell is a run of bytes that are not blanks, or a text in quotes.
void read_blank_separated(std::string_view content, row_sink& sink) {
  while (!content.empty()) {
    std::string_view line = trimmed(without_end(take_line(content)));
    sink.row_line = ++sink.line;
    if (line.empty()) continue;
    while (!line.empty()) {
      const bool quoted = line.front() == '"';
      if (quoted) line.remove_prefix(1);
      std::size_t end = quoted ? line.find('"') : line.find_first_of(" \t");
      if (quoted && end == std::string_view::npos)
        add_error(*sink.log, place_of(*sink.table, sink.line), "a quote is opened here and never closed");
      end = std::min(end, line.size());
      add_cell(sink, line.substr(0, end));
      line = trimmed(line.substr(std::min(end + (quoted ? 1 : 0), line.size())));
    }
    end_row(sink);
  }
}

void check_header(const csv_columns& table, message_log& log) {
  const bool given = !table.layout.columns.empty();
  std::set<std::string_view> seen;
  for (const std::string& name : table.header) {
    double value = 0.0;
    if (!given && number_in(name, table.layout.decimal, value)) {
      add_error(
          log, place_of(table, 1),
          fmt::format("the first line holds the number {}; it must hold the names of the columns", name),
          "header");
      return;
    }
    if (!name.empty() && !seen.insert(name).second)
      add_error(log, place_of(table, given ? 0 : 1), fmt::format("two columns have the name \"{}\"", name));
  }
}

} // namespace

csv_columns read_csv_text(std::string_view content, const std::string& file, const csv_layout& layout,
                          message_log& log) {
  csv_columns table;
  table.file = file;
  table.layout = layout;
  if (content.starts_with("\xEF\xBB\xBF")) content.remove_prefix(3);
  const std::string_view first = header_line(content);
  if (trimmed(first).empty()) {
    add_error(log, {file, 0, 0}, "the file is empty");
    return table;
  }
  if (first.find('\0') != std::string_view::npos) {
    add_error(log, {file, 1, 0}, "this is no text (save the file as CSV in UTF-8)");
    return table;
  }
  if (layout.separator == '\0') table.layout.separator = separator_of(first);
  if (refuse_comments(content, table, log)) return table;
  if (layout.columns.empty() && refuse_separator(first, table, log)) return table;

  row_sink sink;
  sink.table = &table;
  sink.log = &log;
  if (!layout.columns.empty()) {
    table.header = layout.columns;
    sink.header_done = true;
  }
  table.text.reserve(content.size());
  if (table.layout.separator == ' ')
    read_blank_separated(content, sink);
  else
    read_separated(content, sink);

  check_header(table, log);
  refuse_ragged_rows(sink.ragged, content, layout.columns.empty() ? first : std::string_view{}, table, log);
  if (table.n_records() == 0 && sink.ragged.n == 0)
    add_error(log, {file, 0, 0}, "there are no records below the header");
  if (table.n_records() == 0) table.header.clear(); // nothing can be said of its columns
  return table;
}

csv_columns read_csv(const std::string& path, const csv_layout& layout, message_log& log) {
  std::string why = why_unreadable(path), content;
  if (why.empty()) {
    std::ifstream in(path, std::ios::binary);
    in.seekg(0, std::ios::end);
    const std::streamoff size = in.tellg();
    in.seekg(0);
    if (size > 0) {
      content.resize(static_cast<std::size_t>(size));
      in.read(content.data(), size);
    }
    if (!in) why = "reading broke off";
  }
  if (!why.empty()) {
    add_error(log, {path, 0, 0}, "the file can't be read: " + why);
    csv_columns none;
    none.file = path;
    none.layout = layout;
    return none;
  }
  return read_csv_text(utf8_content(std::move(content), path, log), path, layout, log);
}

std::size_t find_column(const csv_columns& table, std::string_view name) {
  const auto at = std::find(table.header.begin(), table.header.end(), name);
  return at == table.header.end() || name.empty() ? no_column
                                                  : static_cast<std::size_t>(at - table.header.begin());
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
  constexpr std::size_t LONGEST = 400; // no double needs more digits
  if (cell.size() > 1 && cell.front() == '+' && cell[1] != '-') cell.remove_prefix(1);
  if (cell.empty() || cell.size() > LONGEST) return false;
  std::array<char, LONGEST> copy{};
  std::copy(cell.begin(), cell.end(), copy.begin());
  char* const end = copy.data() + cell.size();
  if (decimal != '.') {
    if (std::find(copy.data(), end, '.') != end) return false;
    std::replace(copy.data(), end, decimal, '.');
  }
  const auto [stop, fault] = std::from_chars(copy.data(), end, value);
  return fault == std::errc{} && stop == end && std::isfinite(value);
}

namespace {

// Cells of a column of numbers that are none: the texts, and numbers written with the other decimal sign.
struct wrong_numbers {
  repeated_cells texts;
  repeated_cell other_decimal;
};

message& refuse_cell(const csv_columns& table, const std::string& name, const repeated_cell& cell,
                     message_log& log) {
  return add_error(log, place_of(table, cell.lines.first.front()),
                   fmt::format("\"{}\" in column {} is no number", shown(cell.text), name),
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
              fmt::format("{} further values of column {} are no numbers", texts.n_beyond, name));
}

// The files hold reals of 32 bits.
void refuse_beyond_range(const csv_columns& table, std::size_t c, std::size_t r, double value,
                         message_log& log) {
  const bool zero = value != 0.0 && static_cast<float>(value) == 0.0F;
  if (std::fabs(value) <= std::numeric_limits<float>::max() && !zero) return;
  add_error(log, place_of(table, table.line[r]),
            fmt::format("\"{}\" in column {} {}", shown(table.cell(c, r)), table.header[c],
                        zero ? "becomes 0 in 32 bits: take a smaller unit"
                             : "is beyond what 32 bits hold (3.4e38): take a larger unit"),
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
  const auto lower =
      static_cast<std::size_t>(std::upper_bound(all.begin(), all.end(), all.front()) - all.begin());
  const auto upper =
      static_cast<std::size_t>(all.end() - std::lower_bound(all.begin(), all.end(), all.back()));
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
