// Seeds of the chains of a study. Draws of (co)variances and liabilities depend on A alone, so all A differ.
#pragma once

#include <cstdint>
#include <string_view>

namespace zeph::chains {

constexpr std::int32_t largest_a = 31328, largest_b = 30081;

struct seed_pair {
  std::int32_t A = 0, B = 0; // 1..31328, 1..30081; a 0 means "not given"
  bool operator==(const seed_pair&) const = default;
};

// Chain 1 has the given pair, each further one a fixed step more, around the ranges. The step of A has no
// divisor in common with 31328: the A of up to 31328 chains are all different.
seed_pair seeds_of_chain(seed_pair given, int chain);

// The pair with each 0 replaced by a number taken from the text (a hash of the inputs), never from the clock.
seed_pair without_zeros(seed_pair given, std::string_view hash);

} // namespace zeph::chains
