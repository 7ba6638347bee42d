#include "listing/reporting.h"

namespace zeph {

reporting::reporting(std::ostream& listing_stream, std::string work_directory)
    : listing(&listing_stream), directory(std::move(work_directory)) {
  if (!directory.empty() && directory.back() != '/') directory += '/';
}

std::string short_program_name(const reporting& report) {
  return report.program_name.substr(0, report.program_name.find_last_not_of(' ') + 1);
}

} // namespace zeph
