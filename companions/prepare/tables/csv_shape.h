// The shape of a CSV file, looked at before its cells: a cause that makes every line faulty is one error.
#pragma once

#include "prepare/messages/repeated_cells.h"
#include "prepare/tables/csv_columns.h"

#include <map>
#include <string>
#include <string_view>

namespace zeph::prepare {

// Number of values of a line: separators outside quotes and 1; for ' ' the words. 0 for a blank line.
std::size_t width_of_line(std::string_view line, char separator);

// The most frequent of tab, semicolon and comma outside quotes; else ' ' when blanks are between words; else
// ','.
char separator_of(std::string_view line);

// "\";\"", "\"tab\"" or "\"blanks\"": the separator as the description writes it.
std::string word_of_separator(char separator);

// The first line that is not blank and no comment. A line that begins with # is a header when the line after
// it has as many values.
std::string_view header_line(std::string_view content);

// Error for the file when lines that begin with # are not as wide as the others. True after an error.
bool refuse_comments(std::string_view content, const csv_columns& table, message_log& log);

// Error when the first line is one value by the separator given, and several by another one. True after an
// error.
bool refuse_separator(std::string_view first_line, const csv_columns& table, message_log& log);

// Rows that are wider or narrower than the header, by their width.
struct ragged_rows {
  std::map<std::size_t, repeated_lines> by_width;
  std::size_t n = 0;
  std::int64_t first_line = 0; // of the file, where the first of them begins
  std::size_t n_empty_end = 0; // their last cell is empty
};

// Errors for them: one that names the cause where all records have one width that is not the header's, else
// one for each width. `header`: the line of the names, empty when the description names the columns.
void refuse_ragged_rows(const ragged_rows& ragged, std::string_view content, std::string_view header,
                        const csv_columns& table, message_log& log);

} // namespace zeph::prepare
