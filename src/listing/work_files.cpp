#include "listing/work_files.h"

#include "listing/listing_rows.h"
#include "listing/reporting.h"

#include <filesystem>
#include <fmt/format.h>

namespace zeph {

std::string path_of(const reporting& report, std::string_view file) {
  return report.directory + std::string(file);
}

bool file_exists(const reporting& report, std::string_view file) {
  std::error_code none;
  return std::filesystem::exists(path_of(report, file), none);
}

// Names those of the four input files that are missing; 1 when there is any.
int check_input_files(reporting& report) {
  int status = 0;
  for (const std::string_view name : {"RCDATA_I", "RCDATA_R", "MODINF", "CODE_TABLE"}) {
    if (file_exists(report, name)) continue;
    say(report, fmt::format("File \"{}\" not found", name));
    status = 1;
  }
  return status;
}

} // namespace zeph
