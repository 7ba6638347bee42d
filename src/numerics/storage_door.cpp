#include "numerics/storage_door.h"

#include "formats/free_format.h"
#include "listing/listing_rows.h"
#include "listing/reporting.h"
#include "listing/run_log.h"
#include "listing/stops.h"

#include <string>
#include <vector>

namespace zeph {

bool door_opens(reporting& report) {
  ++report.door.calls;
  return report.door.calls != report.door.fail_at;
}

void allocation_failure(reporting& report, std::string_view routine, std::string_view variable,
                        std::int64_t elements, int status, std::string_view message) {
  const std::string name = short_program_name(report);
  std::vector<std::string> rows;
  rows.push_back(free_row().text("Trying to allocate memory for: ").text(variable).str());
  rows.push_back(free_row().text("With elements                : ").i(elements).str());
  rows.push_back(free_row().text("Retur status from allocate   : ").i(status).str());
  if (!message.empty())
    rows.push_back(free_row().text("Error messaged               : ").text(message).str());
  rows.push_back(free_row().text("Called in                    : ").text(routine).str());

  say_lines(report, {"", name + ": FATAL ERROR", ""});
  for (const std::string& row : rows) say(report, row);
  say_lines(report, {"", "Program terminates with exit code 16"});

  std::vector<std::string> log = {"", name + " FATAL ERROR", ""};
  for (const std::string& row : rows) log.push_back(" " + row);
  log.insert(log.end(), {"", "Program terminates with exit code 16"});
  append_log(report, log);
  stop_run(report, exit_diagnosed);
}

void deallocation_failure(reporting& report, std::string_view routine, std::string_view variable,
                          int status) {
  say_lines(report, {"ERROR", ""});
  say(report, free_row().text("Trying to deallocate                  : ").text(variable).str());
  say(report, free_row().text("Retur status from deallocate          : ").i(status).str());
  say(report, free_row().text("Called in subroutine(function/program): ").text(routine).str());
  if (short_program_name(report) == "QVA1") QVA_LOG(report);
  say_lines(report, {"", "Program terminates"});
  stop_run(report, exit_diagnosed);
}

} // namespace zeph
