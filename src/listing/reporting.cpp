#include "listing/reporting.h"

#include "formats/column_format.h"
#include "formats/free_format.h"
#include "formats/text_file.h"

#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <iostream>
#include <vector>

namespace zeph {
namespace {

constexpr std::string_view package_title = "Ostrelo Linear Effects Workbench";

std::string trimmed(std::string_view text) {
  const std::size_t last = text.find_last_not_of(' ');
  return std::string(last == std::string_view::npos ? std::string_view{} : text.substr(0, last + 1));
}

std::string log_name(const reporting& report) { return trimmed(report.program_name) + ".log"; }

// Appends lines to the `.log` file; a log that can't be written is passed over,
// since the same words stand on the listing.
void append_log(const reporting& report, const std::vector<std::string>& lines) {
  text_writer log;
  if (!log.open_append(path_of(report, log_name(report)))) return;
  for (const std::string& text : lines) log.line(text);
  log.close();
}

void say_all(reporting& report, const std::vector<std::string>& lines) {
  for (const std::string& text : lines) say(report, text);
}

std::string indices_text(std::initializer_list<std::int64_t> indices) {
  if (indices.size() == 0) return {};
  std::string text = "(";
  for (const std::int64_t index : indices) text += (text.size() > 1 ? "," : "") + std::to_string(index);
  return text + ")";
}

} // namespace

reporting::reporting(std::ostream& listing_stream, std::string work_directory)
    : listing(&listing_stream), directory(std::move(work_directory)) {
  if (!directory.empty() && directory.back() != '/') directory += '/';
}

std::string path_of(const reporting& report, std::string_view file) {
  return report.directory + std::string(file);
}

bool file_exists(const reporting& report, std::string_view file) {
  std::error_code none;
  return std::filesystem::exists(path_of(report, file), none);
}

void say(reporting& report, std::string_view line) {
  *report.listing << line << '\n' << std::flush;
  if (!report.listing->good()) std::cerr << line << '\n' << std::flush;
}

void say_count(reporting& report, std::string_view label, std::int64_t value) {
  say(report, column_line().X(1).T(1).A(label, 60).I(value, 11).str());
}

void say_label(reporting& report, std::string_view label) {
  say(report, column_line().X(1).T(1).A(label, 60).str());
}

void say_real(reporting& report, std::string_view label, double value) {
  say(report, column_line().X(1).T(1).A(label, 60).F(value, 18, 8).str());
}

void banner(reporting& report) {
  const std::array<std::int32_t, 6>& stamp = report.run_stamp;
  column_line line;
  if (report.nlines != 0) line.A("1", 1);
  line.T(2).A(report.program_name, 8).T(30).A(package_title, static_cast<int>(package_title.size()));
  line.T(77).X(1).I(stamp[0], 4).A("-", 1).I(stamp[1], 2, 2).A("-", 1).I(stamp[2], 4, 4).A(" - ", 3);
  line.I(stamp[3], 2, 2).A(":", 1).I(stamp[4], 2, 2).A(":", 1).I(stamp[5], 2, 2);
  say(report, line.str());
  say(report);
  report.nlines = 2;
}

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
  if (flag != 0 && directives.open(path_of(report, "QVA_LOG"))) {
    banner(report);
    say_all(report, {"", "ERROR(S) found in model directives / prior (co)variance", "", "",
                     "A listing of information in the directive file follows.", "", std::string(61, '-')});
    std::string line;
    while (directives.line(line)) say(report, std::string_view(line).substr(0, 98));
  }
  say_all(report,
          {"", "Fatal error", "", "See list file for details", "", "QVA1 terminates wth exit code 16"});
  stop_run(report, exit_diagnosed);
}

void allocation_failure(reporting& report, std::string_view routine, std::string_view variable,
                        std::int64_t elements, int status, std::string_view message) {
  const std::string name = trimmed(report.program_name);
  std::vector<std::string> rows;
  rows.push_back(free_row().text("Trying to allocate memory for: ").text(variable).str());
  rows.push_back(free_row().text("With elements                : ").i(elements).str());
  rows.push_back(free_row().text("Retur status from allocate   : ").i(status).str());
  if (!message.empty())
    rows.push_back(free_row().text("Error messaged               : ").text(message).str());
  rows.push_back(free_row().text("Called in                    : ").text(routine).str());

  say_all(report, {"", name + ": FATAL ERROR", ""});
  say_all(report, rows);
  say_all(report, {"", "Program terminates with exit code 16"});

  std::vector<std::string> log = {"", name + " FATAL ERROR", ""};
  for (const std::string& row : rows) log.push_back(" " + row);
  log.insert(log.end(), {"", "Program terminates with exit code 16"});
  append_log(report, log);
  stop_run(report, exit_diagnosed);
}

void deallocation_failure(reporting& report, std::string_view routine, std::string_view variable,
                          int status) {
  say_all(report, {"ERROR", ""});
  say(report, free_row().text("Trying to deallocate                  : ").text(variable).str());
  say(report, free_row().text("Retur status from deallocate          : ").i(status).str());
  say(report, free_row().text("Called in subroutine(function/program): ").text(routine).str());
  if (trimmed(report.program_name) == "QVA1") QVA_LOG(report);
  say_all(report, {"", "Program terminates"});
  stop_run(report, exit_diagnosed);
}

void log_message(reporting& report, std::string_view message, std::string_view second, std::string_view third,
                 bool has_code, std::int32_t code) {
  const std::string name = trimmed(report.program_name);
  if (!has_code) {
    append_log(report, {name + ": Starting"});
    return;
  }
  if (code == 0) {
    say(report, name + ": Finished with exit code 0");
    append_log(report, {name + ": Finished with exit code 0"});
    return;
  }
  constexpr std::int32_t fatal_kind = 100000000;
  const bool fatal = code == fatal_kind;
  std::vector<std::string> lines = {""};
  if (fatal)
    lines = {name + ": : " + std::string(message)};
  else
    lines.push_back("MESSAGE  : " + std::string(message));
  std::vector<std::string> log = lines;
  if (!fatal && code > 0) log.push_back(free_row().text("     Error code is : ").i(code).str());
  for (const std::string_view text : {second, third}) {
    if (!fatal && trimmed(text).empty()) continue;
    lines.push_back((fatal ? "" : "           ") + std::string(text));
    log.push_back(lines.back());
  }
  const std::vector<std::string> closing =
      fatal ? std::vector<std::string>{"", "Program terminates with exit code 127"}
            : std::vector<std::string>{"See lst file for more infomation(s)",
                                       "Program terminates with exit code 16"};
  lines.insert(lines.end(), closing.begin(), closing.end());
  log.insert(log.end(), closing.begin(), closing.end());
  say_all(report, lines);
  append_log(report, log);
  stop_run(report, fatal ? exit_fatal_kind : exit_diagnosed);
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
  say_all(report, {"", "Program terminates"});
  stop_run(report, exit_diagnosed);
}

int check_input_files(reporting& report) {
  int status = 0;
  for (const std::string_view name : {"RCDATA_I", "RCDATA_R", "MODINF", "CODE_TABLE"}) {
    if (file_exists(report, name)) continue;
    say(report, fmt::format("File \"{}\" not found", name));
    status = 1;
  }
  return status;
}

void write_status(reporting& report, std::string_view line) {
  if (report.status_file.empty()) report.status_file = path_of(report, "status");
  if (!rewrite_line(report.status_file, line)) write_fault(report, "status", "open");
}

} // namespace zeph
