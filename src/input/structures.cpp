#include "input/structures.h"

namespace zeph {

namespace {

constexpr bool rows_in_order() {
  for (std::size_t i = 0; i < STRUCTURES.size(); ++i)
    if (static_cast<std::size_t>(STRUCTURES[i].kind) != i) return false;
  return STRUCTURES.size() == static_cast<std::size_t>(structure_kind::unknown);
}
static_assert(rows_in_order());

} // namespace

structure_kind structure_of(const structure_record& factor) {
  for (const structure_row& row : STRUCTURES)
    if (structure_is(factor, row.name)) return row.kind;
  return structure_kind::unknown;
}

} // namespace zeph
