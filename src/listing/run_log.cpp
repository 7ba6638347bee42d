#include "listing/run_log.h"

#include "formats/free_format.h"
#include "formats/text_file.h"
#include "listing/listing_rows.h"
#include "listing/reporting.h"
#include "listing/stops.h"
#include "listing/work_files.h"

namespace zeph {

void append_log(const reporting& report, const std::vector<std::string>& lines) {
  text_writer log;
  if (!log.open_append(path_of(report, short_program_name(report) + ".log"))) return;
  for (const std::string& text : lines) log.line(text);
  log.close();
}

void log_message(reporting& report, std::string_view message, std::string_view second, std::string_view third,
                 bool has_code, std::int32_t code) {
  const std::string name = short_program_name(report);
  // kept: without a code none of the three texts is written, only that the program starts
  if (!has_code) {
    append_log(report, {name + ": Starting"});
    return;
  }
  if (code == 0) {
    say(report, name + ": Finished with exit code 0");
    append_log(report, {name + ": Finished with exit code 0"});
    return;
  }
  // the fatal kind: no code, no closing remark on the listing, exit code 127
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
    if (!fatal && text.find_last_not_of(' ') == std::string_view::npos) continue;
    lines.push_back((fatal ? "" : "           ") + std::string(text));
    log.push_back(lines.back());
  }
  const std::vector<std::string> closing =
      fatal ? std::vector<std::string>{"", "Program terminates with exit code 127"}
            : std::vector<std::string>{"See lst file for more infomation(s)",
                                       "Program terminates with exit code 16"};
  lines.insert(lines.end(), closing.begin(), closing.end());
  log.insert(log.end(), closing.begin(), closing.end());
  for (const std::string& text : lines) say(report, text);
  append_log(report, log);
  stop_run(report, fatal ? exit_fatal_kind : exit_diagnosed);
}

void write_status(reporting& report, std::string_view line) {
  if (report.status_file.empty()) report.status_file = path_of(report, "status");
  if (!rewrite_line(report.status_file, line)) write_fault(report, "status", "open");
}

} // namespace zeph
