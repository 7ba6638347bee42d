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
  std::vector<std::string> rows, log = {name + " FATAL ERROR", ""};
  // the listing in free format; the log T2, A, A: the value as text right after its label
  const auto add = [&](std::string_view label, std::string_view value, const std::string& row) {
    rows.push_back(row);
    log.push_back(" " + std::string(label) + std::string(value));
  };
  const auto add_text = [&](std::string_view label, std::string_view value) {
    add(label, value, free_row().text(label).text(value).str());
  };
  const auto add_number = [&](std::string_view label, std::int64_t value) {
    add(label, std::to_string(value), free_row().text(label).i(value).str());
  };
  add_text("Trying to allocate memory for: ", variable);
  add_number("With elements                : ", elements);
  add_number("Retur status from allocate   : ", status);
  if (!message.empty()) add_text("Error messaged               : ", message);
  add_text("Called in                    : ", routine);

  say_lines(report, {"", name + ": FATAL ERROR", ""});
  for (const std::string& row : rows) say(report, row);
  say_lines(report, {"", "Program terminates with exit code 16"});

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
