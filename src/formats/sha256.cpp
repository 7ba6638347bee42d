#include "formats/sha256.h"

#include "formats/byte_file.h"

#include <array>
#include <new>
#include <openssl/evp.h>
#include <vector>

namespace zeph {

struct sha256::hidden {
  EVP_MD_CTX* context = EVP_MD_CTX_new();
  ~hidden() { EVP_MD_CTX_free(context); }
};

namespace {

// With SHA-256 given by name, libcrypto's calls fail for want of memory alone.
void demand(int ok) {
  if (ok != 1) throw std::bad_alloc();
}

} // namespace

sha256::sha256() : state_(std::make_unique<hidden>()) { restart(); }
sha256::~sha256() = default;

void sha256::restart() {
  demand(state_->context != nullptr ? EVP_DigestInit_ex(state_->context, EVP_sha256(), nullptr) : 0);
}

void sha256::add(const void* x, std::size_t n) { demand(EVP_DigestUpdate(state_->context, x, n)); }

std::string sha256::digits() {
  constexpr std::string_view hexadecimal = "0123456789abcdef";
  std::array<unsigned char, EVP_MAX_MD_SIZE> sum{};
  unsigned bytes = 0;
  demand(EVP_DigestFinal_ex(state_->context, sum.data(), &bytes));
  std::string text;
  for (unsigned i = 0; i < bytes; ++i) {
    text.push_back(hexadecimal[sum[i] >> 4]);
    text.push_back(hexadecimal[sum[i] & 15]);
  }
  return text;
}

std::string sha256_of(std::string_view bytes) {
  sha256 sum;
  sum.add(bytes.data(), bytes.size());
  return sum.digits();
}

bool print_of_file(const std::string& path, file_print& print) {
  byte_source file;
  if (!file.open(path)) return false;
  sha256 sum;
  std::vector<char> piece(std::size_t{1} << 20);
  std::int64_t bytes = 0;
  for (;;) {
    const std::int64_t n = file.read(piece.data(), static_cast<std::int64_t>(piece.size()));
    sum.add(piece.data(), static_cast<std::size_t>(n));
    bytes += n;
    if (n < static_cast<std::int64_t>(piece.size())) break;
  }
  if (bytes != file.size()) return false;
  print.bytes = bytes;
  print.sha256 = sum.digits();
  return true;
}

} // namespace zeph
