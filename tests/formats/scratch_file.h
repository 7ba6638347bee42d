// A file of a test's own in a fresh directory, removed at the end of the test.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string>
#include <string_view>

namespace zeph_test {

// The bytes as text: bytes({8, 0, 0, 0}).
inline std::string bytes(std::initializer_list<int> values) {
  std::string text;
  for (const int value : values) text.push_back(static_cast<char>(value));
  return text;
}

class scratch_file {
public:
  scratch_file() {
    std::string pattern = (std::filesystem::temp_directory_path() / "zeph_formats_XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) std::abort();
    directory_ = pattern;
  }
  explicit scratch_file(std::string_view content) : scratch_file() { write(content); }
  ~scratch_file() {
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
  }
  scratch_file(const scratch_file&) = delete;
  scratch_file& operator=(const scratch_file&) = delete;

  const std::string& directory() const { return directory_; }
  std::string path() const { return directory_ + "/file"; }

  void write(std::string_view content) const {
    std::ofstream out(path(), std::ios::binary | std::ios::trunc);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
  }
  std::string read() const {
    std::ifstream in(path(), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }

private:
  std::string directory_;
};

} // namespace zeph_test
