// Lists of records that grow one by one, as what they hold is found. Their storage is
// taken through the allocation door, each time for twice as many elements.
#pragma once

#include "numerics/arrays.h"
#include "numerics/storage_door.h"

#include <algorithm>
#include <utility>

namespace zeph {

// Room for `count` elements in all, without making one. A failure goes to the
// allocation report under the two names, code 16. Rows: std::vector or alike.
template <class Rows>
void reserve_rows(reporting& report, Rows& rows, std::string_view variable, std::string_view routine,
                  std::int64_t count) {
  bool taken = false;
  if (door_opens(report) && count >= 0) {
    try {
      rows.reserve(static_cast<std::size_t>(count));
      taken = true;
    } catch (const std::bad_alloc&) {
    } catch (const std::length_error&) {}
  }
  if (!taken) allocation_failure(report, routine, variable, count, allocation_status);
}

// Room for one more element beyond those that are in `rows`.
template <class Rows>
void make_room(reporting& report, Rows& rows, std::string_view variable, std::string_view routine) {
  constexpr std::size_t least = 8;
  if (rows.size() < rows.capacity()) return;
  reserve_rows(report, rows, variable, routine, static_cast<std::int64_t>(std::max(least, 2 * rows.size())));
}

// Adds one element at the end of `rows` and returns it.
template <class Rows>
typename Rows::value_type& append_row(reporting& report, Rows& rows, std::string_view variable,
                                      std::string_view routine, typename Rows::value_type row = {}) {
  make_room(report, rows, variable, routine);
  return rows.emplace_back(std::move(row));
}

} // namespace zeph
