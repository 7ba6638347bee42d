// Reads a pedigree, checks it and puts parents before their progeny.
#pragma once

#include "prepare/tables/csv_columns.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zeph::prepare {

struct pedigree_request {
  std::string file{};
  std::string file_as_written{}; // in the description, for advice; empty: `file`
  std::string factor{};          // likewise the name of the factor
  csv_layout layout{};           // its missing codes are codes of an unknown parent too
  std::string animal{};          // names of the columns; empty: animal or id, sire or father, dam or mother
  std::string sire{};
  std::string dam{};
  // phantom parent groups, which stand in place of unknown parents: their codes, or a pattern of them (* is
  // any text, ? any one byte)
  std::vector<std::string> groups{};
  std::string group_pattern{};         // empty: none
  bool selfing = false;                // an animal may be both sire and dam
  std::vector<std::string> unknown{};  // further codes of an unknown parent
  std::vector<std::string> founders{}; // codes that are animals, whatever they look like
};

struct text_hash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
};
using level_table = std::unordered_map<std::string, std::int32_t, text_hash, std::equal_to<>>;

// Animal a = 1..n_animals stands at index a - 1; parents come before their progeny, otherwise the order of
// the file is kept. A parent is an animal (1..n_animals), unknown (0), or phantom group g (-g).
struct pedigree {
  std::string file;                        // name as the messages show it
  std::vector<std::string> identification; // size n_animals
  std::vector<std::int64_t> line;          // size n_animals; 0: a parent without a line of its own
  std::vector<std::int32_t> sire;          // size n_animals
  std::vector<std::int32_t> dam;           // size n_animals
  std::vector<std::string> group;          // size n_groups: groups that stand as a parent at least once
  level_table number_of;                   // identification -> animal

  [[nodiscard]] std::int32_t n_animals() const { return static_cast<std::int32_t>(identification.size()); }
  [[nodiscard]] std::int32_t n_groups() const { return static_cast<std::int32_t>(group.size()); }
};

// Reads and checks. Unknown parents: "", "0", "NA", the missing codes and those of `unknown`, unless
// `founders` names them. Errors: columns not found, an animal twice with different parents, animal of a
// group's name, a sire that is also a dam, loops (each with its animals and lines), parents without a line
// that look like codes of an unknown parent (unlisted_parents.h). Notes: repeated lines, parents added as
// founders. Warning: a group that is nobody's parent (left out). After an error the pedigree comes back
// empty.
pedigree read_pedigree(const pedigree_request& request, message_log& log);

// The same from a table that was read.
pedigree pedigree_of_table(const csv_columns& table, const pedigree_request& request, message_log& log);

// The animals of a column of the data.
struct column_animals {
  std::vector<std::int32_t> animal; // size n_records: 1..n_animals, 0 where missing or not in the pedigree
  std::int64_t n_unknown = 0;       // different identifications that are not in the pedigree
};

// Looks up the cells of column c. A text that is not in the pedigree is one error for all its records.
column_animals animals_of_column(const pedigree& ped, const csv_columns& table, std::size_t c,
                                 message_log& log);

// connected[a - 1] = 1 for the animals named (seen[a - 1] not 0) and all their ancestors, else 0.
std::vector<std::uint8_t> connected_to_data(const pedigree& ped, std::span<const std::uint8_t> seen);

// The pedigree of the animals with keep[a - 1] not 0, which must hold the parents of each. new_number[a - 1]
// is the animal's new number or 0. Groups without progeny left are left out.
pedigree pruned(const pedigree& ped, std::span<const std::uint8_t> keep,
                std::vector<std::int32_t>& new_number);

// Note with the size of the pedigree: animals, those with records (seen[a - 1] not 0, and n_unknown that are
// not in it), animals without connection to data.
void note_pedigree_size(const pedigree& ped, std::span<const std::uint8_t> seen, std::int64_t n_unknown,
                        message_log& log);

} // namespace zeph::prepare
