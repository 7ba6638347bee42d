#include "prepare/tables/readable_file.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace zeph::prepare {

namespace fs = std::filesystem;

std::string why_unreadable(const std::string& path) {
  std::error_code fault;
  const fs::file_status status = fs::status(path, fault);
  if (status.type() == fs::file_type::not_found) return "there is no such file";
  if (fs::is_directory(status)) return "it is a folder";
  errno = 0;
  if (std::ifstream(path, std::ios::binary)) return {};
  return errno != 0 ? std::generic_category().message(errno) : "it can't be opened";
}

} // namespace zeph::prepare
