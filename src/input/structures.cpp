#include "input/structures.h"

namespace zeph {

namespace {

constexpr bool rows_in_order() {
  for (std::size_t i = 0; i < structure_rows.size(); ++i)
    if (static_cast<std::size_t>(structure_rows[i].kind) != i) return false;
  return structure_rows.size() == static_cast<std::size_t>(structure_kind::unknown);
}
static_assert(rows_in_order());

} // namespace

structure_kind structure_of(const structure_record& factor) {
  for (const structure_row& row : structure_rows)
    if (structure_is(factor, row.name)) return row.kind;
  return structure_kind::unknown;
}

} // namespace zeph
