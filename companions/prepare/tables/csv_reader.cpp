#include "prepare/tables/csv_reader.h"

#include "prepare/messages/repeated_cells.h"
#include "prepare/tables/csv_shape.h"
#include "prepare/tables/readable_file.h"
#include "prepare/tables/text_encoding.h"
#include "prepare/tables/text_lines.h"
#include "shared/indexing.h"

#include <fmt/format.h>

#include <fstream>
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
              "a value contains a quote; put the whole value in quotes and write the inner quote twice");
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
    add_error(log, {file, 1, 0}, "this is not text (save the file as CSV in UTF-8)");
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
      content.resize(from0(size));
      in.read(content.data(), size);
    }
    if (!in) why = "reading stopped with an error";
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

} // namespace zeph::prepare
