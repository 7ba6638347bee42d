#include "formats/whole_file.h"

#include <cstdio>
#include <filesystem>

namespace zeph {

namespace fs = std::filesystem;

whole_file::whole_file(const std::string& target) : target_(target) {
  std::error_code none;
  const fs::file_type kind = fs::symlink_status(target_, none).type();
  const bool plain = kind == fs::file_type::not_found || kind == fs::file_type::regular;
  path_ = plain ? target_ + ".part" : target_;
}

whole_file::~whole_file() {
  if (!published_ && path_ != target_) std::remove(path_.c_str());
}

bool whole_file::publish() {
  published_ = path_ == target_ || std::rename(path_.c_str(), target_.c_str()) == 0;
  return published_;
}

} // namespace zeph
