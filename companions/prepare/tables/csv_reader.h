// Reads a table of text cells: a CSV file (quotes as usual) or one separated by blanks.
#pragma once

#include "prepare/tables/csv_columns.h"

#include <string>
#include <string_view>

namespace zeph::prepare {

// Reads the file. Handles a byte-order mark, LF, CRLF and CR ends, empty lines, quotes with line breaks
// inside. Errors go to the log with their line: file unreadable or empty, no header (a number among the
// names), a name twice, rows with more or fewer cells than the header (one error for each width; such rows
// are left out), what csv_shape.h finds, a quote that is not closed. What could be read comes back; without
// records, no header.
csv_columns read_csv(const std::string& path, const csv_layout& layout, message_log& log);

// The same from text in memory; `file` is the name for messages.
csv_columns read_csv_text(std::string_view content, const std::string& file, const csv_layout& layout,
                          message_log& log);

} // namespace zeph::prepare
