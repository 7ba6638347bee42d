#include "chains/sha256.h"

#include "formats/byte_file.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <fmt/format.h>
#include <vector>

namespace zeph::chains {
namespace {

constexpr std::size_t block_bytes = 64;

// First 32 bits of the fractional parts of the square roots of the first 8 primes.
constexpr std::array<std::uint32_t, 8> H0 = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                             0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};

// The same of the cube roots of the first 64 primes.
constexpr std::array<std::uint32_t, 64> K = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

struct sha256_sum {
  std::array<std::uint32_t, 8> H = H0;
  std::array<unsigned char, block_bytes> block{};
  std::size_t held = 0; // bytes in `block`
  std::uint64_t bytes = 0;
};

std::uint32_t word_at(const unsigned char* p) {
  return std::uint32_t{p[0]} << 24 | std::uint32_t{p[1]} << 16 | std::uint32_t{p[2]} << 8 |
         std::uint32_t{p[3]};
}

void take_block(sha256_sum& s, const unsigned char* block) {
  std::array<std::uint32_t, 64> W{};
  for (std::size_t t = 0; t < 16; ++t) W[t] = word_at(block + 4 * t);
  for (std::size_t t = 16; t < 64; ++t) {
    const std::uint32_t s0 = std::rotr(W[t - 15], 7) ^ std::rotr(W[t - 15], 18) ^ W[t - 15] >> 3;
    const std::uint32_t s1 = std::rotr(W[t - 2], 17) ^ std::rotr(W[t - 2], 19) ^ W[t - 2] >> 10;
    W[t] = W[t - 16] + s0 + W[t - 7] + s1;
  }
  auto [a, b, c, d, e, f, g, h] = s.H;
  for (std::size_t t = 0; t < 64; ++t) {
    const std::uint32_t S1 = std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25);
    const std::uint32_t T1 = h + S1 + ((e & f) ^ (~e & g)) + K[t] + W[t];
    const std::uint32_t S0 = std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22);
    const std::uint32_t T2 = S0 + ((a & b) ^ (a & c) ^ (b & c));
    h = g, g = f, f = e, e = d + T1, d = c, c = b, b = a, a = T1 + T2;
  }
  const std::array<std::uint32_t, 8> round = {a, b, c, d, e, f, g, h};
  for (std::size_t i = 0; i < 8; ++i) s.H[i] += round[i];
}

void take_bytes(sha256_sum& s, const char* from, std::size_t n) {
  s.bytes += n;
  while (n > 0) {
    const std::size_t part = std::min(n, block_bytes - s.held);
    std::memcpy(s.block.data() + s.held, from, part);
    s.held += part, from += part, n -= part;
    if (s.held < block_bytes) return;
    take_block(s, s.block.data());
    s.held = 0;
  }
}

// Padding: one bit, zeros, and the length in bits as 8 bytes at the end of a block.
std::string digits_of(sha256_sum& s) {
  const std::uint64_t bits = 8 * s.bytes;
  std::string padding(1, '\x80');
  padding.append((2 * block_bytes - 8 - (s.held + 1)) % block_bytes, '\0');
  for (int shift = 56; shift >= 0; shift -= 8) padding += static_cast<char>(bits >> shift & 0xff);
  take_bytes(s, padding.data(), padding.size());
  std::string text;
  for (const std::uint32_t h : s.H) text += fmt::format("{:08x}", h);
  return text;
}

} // namespace

std::string sha256_of(std::string_view bytes) {
  sha256_sum s;
  take_bytes(s, bytes.data(), bytes.size());
  return digits_of(s);
}

bool print_of_file(const std::filesystem::path& path, file_print& print) {
  byte_source file;
  if (!file.open(path.string())) return false;
  sha256_sum s;
  std::vector<char> piece(std::size_t{1} << 20);
  for (;;) {
    const std::int64_t n = file.read(piece.data(), static_cast<std::int64_t>(piece.size()));
    take_bytes(s, piece.data(), static_cast<std::size_t>(n));
    if (n < static_cast<std::int64_t>(piece.size())) break;
  }
  if (static_cast<std::int64_t>(s.bytes) != file.size()) return false;
  print.bytes = file.size();
  print.sha256 = digits_of(s);
  return true;
}

} // namespace zeph::chains
