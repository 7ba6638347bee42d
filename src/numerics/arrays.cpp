#include "numerics/arrays.h"

#include <cinttypes>
#include <cstdio>

namespace zeph {

void bounds_fault(std::int64_t index, std::int64_t low, std::int64_t high) {
  std::fprintf(stderr, "array index %" PRId64 " is outside %" PRId64 "..%" PRId64 "\n", index, low, high);
  std::abort();
}

} // namespace zeph
