#include "shared/check_sum.h"

#include <fmt/format.h>

#include <fstream>
#include <vector>

namespace zeph::shared {

std::uint64_t fnv1a64(std::string_view bytes, std::uint64_t before) {
  constexpr std::uint64_t fnv_prime = 1099511628211ULL;
  std::uint64_t hash = before;
  for (const char byte : bytes) hash = (hash ^ static_cast<unsigned char>(byte)) * fnv_prime;
  return hash;
}

std::string check_sum_of_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return "";
  std::uint64_t hash = fnv_basis;
  std::vector<char> block(1 << 16);
  while (in) {
    in.read(block.data(), static_cast<std::streamsize>(block.size()));
    hash = fnv1a64({block.data(), static_cast<std::size_t>(in.gcount())}, hash);
  }
  return fmt::format("{:016x}", hash);
}

} // namespace zeph::shared
