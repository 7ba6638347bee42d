#include "results/whole_file.h"

#include <filesystem>

namespace zeph {

namespace fs = std::filesystem;

whole_file::whole_file(const reporting& report, std::string_view file)
    : name_(file), target_(path_of(report, file)) {
  std::error_code none;
  const fs::file_type kind = fs::symlink_status(target_, none).type();
  const bool plain = kind == fs::file_type::not_found || kind == fs::file_type::regular;
  path_ = plain ? target_ + ".part" : target_;
}

whole_file::~whole_file() {
  std::error_code none;
  if (!published_ && path_ != target_) fs::remove(path_, none);
}

void whole_file::publish(reporting& report) {
  std::error_code fault;
  if (path_ != target_) fs::rename(path_, target_, fault);
  if (fault) write_fault(report, name_, "rename");
  published_ = true;
}

} // namespace zeph
