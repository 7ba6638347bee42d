#include "numerics/arrays.h"

#include <sys/mman.h>

#include <cinttypes>
#include <cstdio>

namespace zeph {

void bounds_fault(std::int64_t index, std::int64_t low, std::int64_t high) {
  std::fprintf(stderr, "array index %" PRId64 " is outside %" PRId64 "..%" PRId64 "\n", index, low, high);
  std::abort();
}

void* zeroed_storage(std::size_t count, std::size_t size) {
  constexpr std::uintptr_t large_page = std::uintptr_t{1} << 21;
  void* block = std::calloc(count, size);
  if (block == nullptr || count * size < 4 * large_page) return block;
  const auto begin = reinterpret_cast<std::uintptr_t>(block);
  const std::uintptr_t first = (begin + large_page - 1) / large_page * large_page;
  const std::uintptr_t last = (begin + count * size) / large_page * large_page;
  madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE); // a wish: refusals do no harm
  return block;
}

} // namespace zeph
