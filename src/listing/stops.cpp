#include "listing/stops.h"

#include "formats/column_format.h"
#include "formats/free_format.h"
#include "listing/listing_rows.h"
#include "listing/reporting.h"
#include "listing/work_files.h"

#include <cerrno>
#include <fmt/format.h>
#include <ostream>

namespace zeph {
namespace {

std::string indices_text(std::initializer_list<std::int64_t> indices) {
  if (indices.size() == 0) return {};
  std::string text = "(";
  for (const std::int64_t index : indices) text += (text.size() > 1 ? "," : "") + std::to_string(index);
  return text + ")";
}

} // namespace

void stop_run(reporting& report, int exit_code) {
  report.listing->flush();
  throw run_stop{exit_code};
}

void zeph_terminates(reporting& report, bool blank_line) {
  if (blank_line) say(report);
  say(report, "ZEPH terminates.");
  stop_run(report, exit_diagnosed);
}

void illegal_input(reporting& report, std::string_view file, std::string_view item,
                   std::initializer_list<std::int64_t> indices, std::string_view value,
                   std::string_view rule) {
  say(report);
  say(report, fmt::format("ERROR - Illegal input in {}: {}{} = {}, legal: {}", file, item,
                          indices_text(indices), value, rule));
  zeph_terminates(report);
}

void write_fault(reporting& report, std::string_view file, std::string_view what) {
  // the failed call has left its number; nothing between it and here may change it
  if (errno == ENOSPC || errno == EDQUOT) {
    say(report);
    say(report, fmt::format("ERROR - {}: no space left on the device", file));
    zeph_terminates(report);
  }
  illegal_input(report, file, "write", {}, what, "the file can be opened and written");
}

void read_fault(reporting& report, std::string_view file) {
  illegal_input(report, file, "read", {}, "input/output error", "a file that can be read to its end");
}

void computation_impossible(reporting& report, std::string_view routine, std::string_view text) {
  say(report);
  say(report, fmt::format("ERROR - Computation impossible in {}: {}", routine, text));
  zeph_terminates(report);
}

void QVA_LOG(reporting& report, std::int32_t flag) {
  text_reader directives;
  // kept: QVA1 is the name under which the input stage ends
  if (flag != 0 && directives.open(path_of(report, "QVA_LOG"))) {
    banner(report);
    say_lines(report, {"", "ERROR(S) found in model directives / prior (co)variance", "", "",
                       "A listing of information in the directive file follows.", ""});
    say(report, std::string(61, '-'));
    std::string line;
    while (directives.line(line)) say(report, std::string_view(line).substr(0, 98));
  }
  say_lines(report,
            {"", "Fatal error", "", "See list file for details", "", "QVA1 terminates wth exit code 16"});
  stop_run(report, exit_diagnosed);
}

std::string integer_to_text(reporting& report, std::int64_t value, int length) {
  std::string text = std::to_string(value);
  if (static_cast<int>(text.size()) <= length) return text;
  say(report, column_line().A("ERROR - Converting integer value to text", 40).str());
  say(report, free_row().text(fmt::format("{:<26}", "        Value to convert: ")).i(value).str());
  say(report, free_row()
                  .text(fmt::format("{:<59}", "        Length of character variable to hold the result is:"))
                  .i(length)
                  .str());
  say_lines(report, {"", "Program terminates"});
  stop_run(report, exit_diagnosed);
}

} // namespace zeph
