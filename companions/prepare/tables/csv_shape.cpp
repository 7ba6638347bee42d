#include "prepare/tables/csv_shape.h"

#include "prepare/messages/messages.h"
#include "prepare/tables/text_lines.h"
#include "shared/indexing.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace zeph::prepare {

namespace {

constexpr std::array<char, 3> separators{'\t', ';', ','};

std::size_t count_outside_quotes(std::string_view line, char wanted) {
  std::size_t n = 0;
  bool quoted = false;
  for (const char c : line) {
    if (c == '"') quoted = !quoted;
    if (!quoted && c == wanted) ++n;
  }
  return n;
}

std::size_t words_of(std::string_view line) {
  std::size_t n = 0;
  bool quoted = false, inside = false;
  for (const char c : line) {
    const bool blank = !quoted && (c == ' ' || c == '\t');
    if (!blank && !inside) ++n;
    inside = !blank;
    if (c == '"') quoted = !quoted;
  }
  return n;
}

bool is_comment(std::string_view line) { return line.starts_with('#'); }

std::string_view first_line(std::string_view content, bool comments_too) {
  while (!content.empty()) {
    const std::string_view line = without_end(take_line(content));
    if (!trimmed(line).empty() && (comments_too || !is_comment(line))) return line;
  }
  return {};
}

source_place at(const csv_columns& table, std::int64_t line) {
  return {table.file, static_cast<int>(line), 0};
}

std::string_view line_at(std::string_view content, std::int64_t number) {
  std::string_view line;
  for (std::int64_t i = 0; i < number; ++i) line = without_end(take_line(content));
  return line;
}

// A cause for one width of all records; empty when none is known.
std::string cause_of(const ragged_rows& ragged, std::string_view record, std::string_view header,
                     const csv_columns& table) {
  const std::size_t names = table.n_columns(), values = ragged.by_width.begin()->first;
  const char used = table.layout.separator, other = separator_of(record);
  if (values == 1 && other != used && width_of_line(record, other) == names)
    return fmt::format("line 1 is separated by {} and the records by {}; use one for both",
                       word_of_separator(used), word_of_separator(other));
  if (header.empty() || values != names + 1) return {};
  if (ragged.n_empty_end == ragged.n)
    return "every record ends with a separator; remove it, or name the column in line 1";
  const bool quoted = trimmed(record).starts_with('"');
  std::string text = "line 1 lacks a name, as in tables that R writes with row names: write.table(.., "
                     "row.names = FALSE)";
  if (used == ',' && !quoted)
    text += ",\nor fractions are written with a comma: then separator = \";\" and decimal = \",\"";
  return text;
}

} // namespace

std::size_t width_of_line(std::string_view line, char separator) {
  line = separator == '\t' ? line : trimmed(line);
  if (trimmed(line).empty()) return 0;
  return separator == ' ' ? words_of(line) : count_outside_quotes(line, separator) + 1;
}

char separator_of(std::string_view line) {
  std::size_t most = 0;
  char best = ',';
  for (const char c : separators)
    if (const std::size_t n = count_outside_quotes(line, c); n > most) {
      most = n;
      best = c;
    }
  if (most > 0) return best;
  return count_outside_quotes(trimmed(line), ' ') > 0 ? ' ' : ',';
}

std::string word_of_separator(char separator) {
  if (separator == '\t') return "\"tab\"";
  return separator == ' ' ? std::string("\"blanks\"") : fmt::format("\"{}\"", separator);
}

std::string_view header_line(std::string_view content) {
  const std::string_view first = first_line(content, true), other = first_line(content, false);
  if (!is_comment(first) || other.empty()) return first;
  const char separator = separator_of(first);
  std::string_view after = content.substr(from0(first.data() - content.data()) + first.size());
  const bool is_header = !is_comment(first_line(after, true)) && width_of_line(first, separator) > 1 &&
                         width_of_line(first, separator) == width_of_line(other, separator);
  return is_header ? first : other;
}

bool refuse_comments(std::string_view content, const csv_columns& table, message_log& log) {
  if (!is_comment(content) && content.find("\n#") == std::string_view::npos &&
      content.find("\r#") == std::string_view::npos)
    return false;
  const std::string_view header = header_line(content);
  const char separator = table.layout.separator;
  const std::size_t width =
      table.layout.columns.empty() ? width_of_line(header, separator) : table.layout.columns.size();
  repeated_lines comments;
  bool quoted = false; // a text in quotes runs over line ends
  for (std::int64_t number = 1; !content.empty(); ++number) {
    const std::string_view line = without_end(take_line(content));
    if (!quoted && is_comment(line) && line.data() != header.data()) {
      if (width_of_line(line, separator) != width || line.data() < header.data()) add_line(comments, number);
    } else if (std::ranges::count(line, '"') % 2 == 1) {
      quoted = !quoted;
    }
  }
  if (comments.n == 0) return false;
  add_error(log, at(table, comments.first.front()),
            "a line that begins with # is not a record; a CSV file has no comments: remove them" +
                where_in_words(comments, "in all"));
  return true;
}

bool refuse_separator(std::string_view line, const csv_columns& table, message_log& log) {
  const char used = table.layout.separator, other = separator_of(line);
  if (used == other || width_of_line(line, other) < 2) return false;
  const bool all_end_in_it = used == ' ' && width_of_line(line, used) <= width_of_line(line, other);
  if (width_of_line(line, used) > 1 && !all_end_in_it) return false;
  add_error(log, at(table, 0),
            fmt::format("the first line is separated by {1} and not by {0}; set separator = {1} in [data]",
                        word_of_separator(used), word_of_separator(other)));
  return true;
}

void refuse_ragged_rows(const ragged_rows& ragged, std::string_view content, std::string_view header,
                        const csv_columns& table, message_log& log) {
  if (ragged.n == 0) return;
  const std::size_t names = table.n_columns();
  const bool all = table.n_records() == 0 && ragged.by_width.size() == 1 && ragged.n > 1;
  const std::string cause =
      all ? cause_of(ragged, line_at(content, ragged.first_line), header, table) : std::string{};
  const std::size_t first = log.entries.size();
  for (const auto& [width, lines] : ragged.by_width)
    add_error(log, at(table, lines.first.front()),
              fmt::format("{} {} here, but {} columns in the header{}", width,
                          width == 1 ? "value" : "values", names, where_in_words(lines)));
  sort_by_place(log, first);
  message& m = log.entries[first];
  const auto widest = ragged.by_width.rbegin();
  if (!cause.empty())
    m.text += ":\n" + cause;
  else if (widest->first > names && widest->second.first.front() == m.at.line)
    m.hint = "put quotes around a value that contains the separator";
}

} // namespace zeph::prepare
