// A pedigree as plain records, and what is asked of its file.
#pragma once

#include "prepare/tables/csv_columns.h"

#include <cstdint>
#include <functional>
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
  // phantom parent groups, which take the place of unknown parents: their codes, or a pattern of them (* is
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

// Animal a = 1..n_animals is at index a - 1; parents come before their progeny, otherwise the order of
// the file is kept. A parent is an animal (1..n_animals), unknown (0), or phantom group g (-g).
struct pedigree {
  std::string file;                        // name as the messages show it
  std::vector<std::string> identification; // size n_animals
  std::vector<std::int64_t> line;          // size n_animals; 0: a parent without a line of its own
  std::vector<std::int32_t> sire;          // size n_animals
  std::vector<std::int32_t> dam;           // size n_animals
  std::vector<std::string> group;          // size n_groups: groups that are a parent at least once
  level_table number_of;                   // identification -> animal

  [[nodiscard]] std::int32_t n_animals() const { return static_cast<std::int32_t>(identification.size()); }
  [[nodiscard]] std::int32_t n_groups() const { return static_cast<std::int32_t>(group.size()); }
};

} // namespace zeph::prepare
