// The levels of a class column, or of the combinations that occur of several class columns.
#pragma once

#include "prepare/tables/csv_columns.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zeph::prepare {

// Level l = 1..n_levels is at index l - 1. Levels are in ascending order: by number when all
// identifications of a column are integers, otherwise by text; combinations by their first column first.
struct level_codes {
  std::string name;                        // column, or columns joined by ':' ("herd:year")
  std::vector<std::string> identification; // size n_levels; combinations joined by ':' ("7:1998")
  std::vector<std::int32_t> code;          // size n_levels: integer that CODE_TABLE shows
  std::vector<std::int64_t> n_records;     // size n_levels: records with that level
  std::vector<std::int32_t> level;         // size n records: 1..n_levels, 0 where a column is missing
  bool codes_are_identifications =
      false; // false: running codes 1..n_levels; the identifications need a side file

  [[nodiscard]] std::int32_t n_levels() const { return static_cast<std::int32_t>(identification.size()); }
};

// Levels of the columns (one or more) over the records r with use[r] not 0; an empty `use` means all.
// Records not used get level 0.
level_codes codes_of_columns(const csv_columns& table, std::span<const std::size_t> columns,
                             std::span<const std::uint8_t> use = {});

// Codes of given identifications (animals of a pedigree, say) in the order given: integers in plain form that
// fit 32 bits and differ are passed through, and the return is true; otherwise running codes 1..n and false.
bool codes_of_identifications(std::span<const std::string> identification, std::vector<std::int32_t>& code);

// Integer in plain form that fits 32 bits: "-12", "0", "7"; not "+7", "07", "-0", "7.0".
bool plain_integer(std::string_view text, std::int32_t& value);

// Name of a level in tables and messages: "sex:2"; with several columns "herd:year:[7:1998]".
std::string level_name(std::string_view effect, std::string_view identification);

// Error when a class of integers has nearly as many levels as records (more than 100, and above nine tenths).
void check_class_size(const csv_columns& table, const level_codes& codes, message_log& log);

} // namespace zeph::prepare
