// SHA-256 (FIPS 180-4), by which a study knows its inputs again.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace zeph::shared {

// 64 hexadecimal digits, lower case.
std::string sha256_of(std::string_view bytes);

struct file_print {
  std::int64_t bytes = 0;
  std::string sha256;
};

// Of a whole file, read in pieces. False when it can't be read.
bool print_of_file(const std::filesystem::path& path, file_print& print);

} // namespace zeph::shared
