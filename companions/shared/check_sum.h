// Check sums that need no library: Fowler, Noll and Vo's hash 1a of 64 bits
// (draft-eastlake-fnv; FNV-1a: h = (h XOR byte) * prime, byte by byte).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace zeph::shared {

constexpr std::uint64_t fnv_basis = 14695981039346656037ULL;

// The hash of the bytes after those whose hash is `before`.
std::uint64_t fnv1a64(std::string_view bytes, std::uint64_t before = fnv_basis);

// Of a file's bytes, 16 hexadecimal digits; empty when it can't be read.
std::string check_sum_of_file(const std::string& path);

} // namespace zeph::shared
