// SHA-256 (FIPS 180-4): the state of a chain knows its inputs by it, and a reader finds out whether
// a byte was changed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace zeph {

// The sum of bytes that come piece by piece. Throws std::bad_alloc where there is no storage for it.
class sha256 {
public:
  sha256();
  ~sha256();
  sha256(const sha256&) = delete;
  sha256& operator=(const sha256&) = delete;

  static constexpr std::size_t length = 64; // digits of a sum

  void add(const void* x, std::size_t n);
  void restart(); // as if nothing had been added
  // 64 hexadecimal digits, lower case, of all that was added; add again only after restart.
  std::string digits();

private:
  struct hidden;
  std::unique_ptr<hidden> state_;
};

std::string sha256_of(std::string_view bytes);

struct file_print {
  std::int64_t bytes = 0;
  std::string sha256;
};

// Of a whole file, read in pieces. False when it can't be read.
bool print_of_file(const std::string& path, file_print& print);

} // namespace zeph
