// The table of relationship structures: what the name in CV_STRUCT of a factor means.
#pragma once

#include "input/model_records.h"

#include <array>
#include <cstdint>
#include <string_view>

namespace zeph {

// In the order of the rows of structure_rows.
enum class structure_kind : std::int32_t {
  identity,
  pedigree,
  given,
  correlation,
  dominance,
  group_mixture, // pedigree with a mixture of phantom groups
  snp,
  qtl,    // on the levels of another factor
  unknown // no row: any other name
};

// Where the equations of a factor are counted.
enum class equation_block : std::int32_t { plain, pedigree, of_other_factor };

struct structure_row {
  structure_kind kind;
  std::string_view name;        // CV_STRUCT without its trailing blanks
  std::string_view file_prefix; // file of the inverse relationship, the factor's number follows; empty: none
  equation_block block;
  bool has_related_sum;      // sums of squares over the levels are taken through the relationship
  std::string_view equation; // in headings of solutions, 10 characters
  std::string_view heading;  // of its solutions on the listing
};

inline constexpr std::string_view plain_heading = " First 250 equations for Random Factor ";
inline constexpr std::string_view animal_heading = " First 250 Animal equations for Random Factor ";
inline constexpr std::string_view dominance_heading = " First 250 Dominance equations for Random Factor ";
inline constexpr std::string_view snp_heading = " First 250 SNP equations for Random Factor ";
inline constexpr std::string_view qtl_heading = " First 250 QTL equations for Random Factor ";

// The kinds that most factors have come first: a name is looked up from the top.
inline constexpr std::array<structure_row, 8> structure_rows = {{
    // kind, name, prefix, block, related sum, equation, heading
    {structure_kind::identity, "I", "", equation_block::plain, false, "I(x)G0    ", plain_heading},
    {structure_kind::pedigree, "PED", "AINV", equation_block::pedigree, true, "A(x)G0    ", animal_heading},
    {structure_kind::given, "GREL", "GINV", equation_block::plain, true, "G(x)G0    ", animal_heading},
    {structure_kind::correlation, "COR", "COR", equation_block::plain, true, "COR(x)G0  ", plain_heading},
    {structure_kind::dominance, "DOM", "DOM", equation_block::plain, true, "DOM(x)G0  ", dominance_heading},
    {structure_kind::group_mixture, "PGMIX", "HINV", equation_block::pedigree, true, "PGMIX(x)G0",
     animal_heading},
    {structure_kind::snp, "SNP", "", equation_block::plain, false, "I(x)G0    ", snp_heading},
    {structure_kind::qtl, "ABS_QTL", "", equation_block::of_other_factor, false, "IBD(X)G0  ", qtl_heading},
}};

constexpr const structure_row& row_of(structure_kind kind) {
  return structure_rows.at(static_cast<std::size_t>(kind)); // not of structure_kind::unknown
}

// Of a factor; `unknown` when its name is in no row. count_equations stops at
// such a factor, so later routines meet none.
structure_kind structure_of(const structure_record& factor);
inline bool is_identity(const structure_record& factor) {
  return structure_of(factor) == structure_kind::identity;
}
inline bool is_pedigree(const structure_record& factor) {
  return structure_of(factor) == structure_kind::pedigree;
}

// Phantom parent groups: some, or a pedigree of their form.
inline bool has_parent_groups(const structure_record& factor) {
  return factor.n_phg > 0 || (is_pedigree(factor) && factor.r36 % 10 == 6);
}

// The residual's CV_STRUCT when records belong to residual groups.
inline constexpr std::string_view residual_groups = "GROUP";
inline bool has_residual_groups(const structure_record& residual) {
  return structure_is(residual, residual_groups);
}

// Files of a reduced animal model and of parents, before the factor's number.
inline constexpr std::string_view reduced_prefix = "AINV_RAM", parents_prefix = "PEDFILE";

} // namespace zeph
