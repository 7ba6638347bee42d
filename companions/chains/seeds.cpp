#include "chains/seeds.h"

namespace zeph::chains {
namespace {

// primes; 31328 = 2^5 11 89 and 30081 = 3 37 271
constexpr std::int64_t step_a = 7919, step_b = 6007;

std::int32_t stepped(std::int32_t seed, std::int64_t step, std::int64_t n, std::int32_t largest) {
  return static_cast<std::int32_t>((seed - 1 + step * n) % largest + 1);
}

// Fowler, Noll and Vo's hash 1a of 64 bits.
std::uint64_t number_of(std::string_view text) {
  std::uint64_t h = 14695981039346656037ULL;
  for (const char c : text) h = (h ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
  return h;
}

} // namespace

seed_pair seeds_of_chain(seed_pair given, int chain) {
  return {stepped(given.A, step_a, chain - 1, largest_a), stepped(given.B, step_b, chain - 1, largest_b)};
}

seed_pair without_zeros(seed_pair given, std::string_view hash) {
  const std::uint64_t h = number_of(hash);
  if (given.A == 0) given.A = static_cast<std::int32_t>((h >> 32) % largest_a + 1);
  if (given.B == 0) given.B = static_cast<std::int32_t>((h & 0xffffffff) % largest_b + 1);
  return given;
}

} // namespace zeph::chains
