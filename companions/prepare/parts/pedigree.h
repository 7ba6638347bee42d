// Reads a pedigree, checks it and puts parents before their progeny.
#pragma once

#include "prepare/parts/pedigree_records.h"

#include <cstdint>
#include <span>
#include <vector>

namespace zeph::prepare {

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
