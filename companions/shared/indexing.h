// Places in arrays of signed numbers: of traits, rows, levels, records. A number says how it counts.
//
//   f.code[from1(level)]      level = 1, 2, ..: the first is at place 0
//   d.traits[from0(trait)]    trait = 0, 1, ..
//
// Debug builds check that the number is not below the first (and the library that it is not beyond the last).
#pragma once

#include <cassert>
#include <concepts>
#include <cstddef>

namespace zeph::shared {

template <std::signed_integral I> constexpr std::size_t from0(I number) {
#ifdef ZEPH_DEBUG_VIEWS
  assert(number >= 0);
#endif
  return static_cast<std::size_t>(number);
}

template <std::signed_integral I> constexpr std::size_t from1(I number) {
#ifdef ZEPH_DEBUG_VIEWS
  assert(number >= 1);
#endif
  return static_cast<std::size_t>(number - 1);
}

} // namespace zeph::shared

namespace zeph { // for all companions
using shared::from0;
using shared::from1;
} // namespace zeph
