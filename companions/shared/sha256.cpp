#include "shared/sha256.h"

#include "formats/byte_file.h"

#include <array>
#include <fmt/format.h>
#include <memory>
#include <new>
#include <openssl/evp.h>
#include <vector>

namespace zeph::shared {
namespace {

struct digest_end {
  void operator()(EVP_MD_CTX* s) const { EVP_MD_CTX_free(s); }
};
using digest = std::unique_ptr<EVP_MD_CTX, digest_end>;

// With SHA-256 given by name, libcrypto's calls fail for want of memory alone.
void demand(int ok) {
  if (ok != 1) throw std::bad_alloc();
}

digest begin_digest() {
  digest s(EVP_MD_CTX_new());
  demand(s ? EVP_DigestInit_ex(s.get(), EVP_sha256(), nullptr) : 0);
  return s;
}

std::string digits_of(const digest& s) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> sum{};
  unsigned length = 0;
  demand(EVP_DigestFinal_ex(s.get(), sum.data(), &length));
  std::string text;
  for (unsigned i = 0; i < length; ++i) text += fmt::format("{:02x}", sum[i]);
  return text;
}

} // namespace

std::string sha256_of(std::string_view bytes) {
  const digest s = begin_digest();
  demand(EVP_DigestUpdate(s.get(), bytes.data(), bytes.size()));
  return digits_of(s);
}

bool print_of_file(const std::filesystem::path& path, file_print& print) {
  byte_source file;
  if (!file.open(path.string())) return false;
  const digest s = begin_digest();
  std::vector<char> piece(std::size_t{1} << 20);
  std::int64_t bytes = 0;
  for (;;) {
    const std::int64_t n = file.read(piece.data(), static_cast<std::int64_t>(piece.size()));
    demand(EVP_DigestUpdate(s.get(), piece.data(), static_cast<std::size_t>(n)));
    bytes += n;
    if (n < static_cast<std::int64_t>(piece.size())) break;
  }
  if (bytes != file.size()) return false;
  print.bytes = bytes;
  print.sha256 = digits_of(s);
  return true;
}

} // namespace zeph::shared
