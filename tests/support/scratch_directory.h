// A directory of a test's own, removed with everything in it at the end.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

namespace zeph_test {

// The bytes of a file; empty when it can't be read.
inline std::string bytes_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

class scratch_directory {
public:
  scratch_directory() {
    std::string name = (std::filesystem::temp_directory_path() / "zeph_test_XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no scratch directory");
    path_ = name + "/";
  }
  ~scratch_directory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  scratch_directory(const scratch_directory&) = delete;
  scratch_directory& operator=(const scratch_directory&) = delete;

  const std::string& path() const { return path_; } // with a closing '/'
  std::string operator/(std::string_view file) const { return path_ + std::string(file); }

  // Writes a file of exactly these bytes, replacing one of that name.
  void write(std::string_view file, std::string_view bytes) const {
    std::ofstream out(path_ + std::string(file), std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out.flush()) throw std::runtime_error("can't write " + std::string(file));
  }
  std::string read(std::string_view file) const { return bytes_of(path_ + std::string(file)); }
  bool has(std::string_view file) const { return std::filesystem::exists(path_ + std::string(file)); }
  void remove(std::string_view file) const { std::filesystem::remove(path_ + std::string(file)); }
  // Copies every plain file of another directory into this one.
  void take_files_of(const std::string& directory) const {
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
      if (!entry.is_regular_file()) continue;
      const std::filesystem::path copy = std::filesystem::path(path_) / entry.path().filename();
      std::filesystem::copy_file(entry.path(), copy, std::filesystem::copy_options::overwrite_existing);
      std::filesystem::permissions(copy, std::filesystem::perms::owner_write,
                                   std::filesystem::perm_options::add);
    }
  }

private:
  std::string path_;
};

} // namespace zeph_test
