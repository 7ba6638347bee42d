// Why a file can't be read, in words for its user.
#pragma once

#include <string>

namespace zeph::prepare {

// "there is no such file", "it is a folder", or the system's words for what else keeps it from being opened;
// empty when it can be read. path: relative to the working directory.
std::string why_unreadable(const std::string& path);

} // namespace zeph::prepare
