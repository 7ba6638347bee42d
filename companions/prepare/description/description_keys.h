// The table of the keys of a model description: which keys each of its tables may hold. The parser refuses
// all others, says which table knows a key that is in the wrong one, and finds the nearest known key;
// docs/prepare.md names the same keys. How a key is read is in model_description.cpp.
#pragma once

#include <array>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zeph::prepare {

// The tables of a description, in the order in which they are asked for a key that another one holds.
enum class key_section {
  top, // beside the tables
  data,
  run,
  pedigree,
  relationship,
  matrix_or_inverse, // dominance and correlation
  factor,
  trait,
  covariable,
  residual,
  keep,
  limits,
  first,
  inverse
};

// The tables as messages write them, NAME for the user's own name; in the order of key_section.
inline constexpr std::array<std::string_view, 14> section_titles = {
    "",
    "[data]",
    "[run]",
    "pedigree = { .. }",
    "relationship = { .. }",
    "dominance = { .. } or correlation = { .. }",
    "[factor.NAME]",
    "[trait.NAME]",
    "[covariable.NAME]",
    "[residual]",
    "[keep]",
    "limits = { .. }",
    "first = { .. }",
    "inverse = { .. }"};
static_assert(section_titles.size() == static_cast<std::size_t>(key_section::inverse) + 1);

// What the value of a key may be.
enum class key_type {
  text,
  texts, // a list; a single text is a list of one
  codes, // the same, with numbers
  truth,
  whole, // number
  wholes,
  number,
  numbers,         // a list
  range,           // two numbers
  truth_or_number, // center
  false_or_whole,  // number of minutes
  truth_or_texts,
  word, // one of a few texts
  matrix,
  matrices, // by code
  pairs,    // of traits
  table,
  file_or_table,
  unsupported
};

struct key_row {
  key_section section;
  std::string_view key;
  key_type type;
  std::string_view meaning; // one line
};

// All keys; those of a section are in the order in which messages list them.
std::span<const key_row> description_keys();

std::vector<std::string> keys_of(key_section section);

// The title of the first table that holds the key, those inside a key of a factor or of a trait among them;
// empty when none does.
std::string table_of_key(std::string_view key);

} // namespace zeph::prepare
