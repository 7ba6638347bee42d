// Inbreeding coefficients and the inverse of the relationship matrix of a pedigree.
#pragma once

#include "prepare/parts/pedigree.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace zeph::prepare {

// Element of a symmetric matrix: i >= j, both from 1; represents (i,j) and (j,i).
struct matrix_element {
  std::int32_t i = 0;
  std::int32_t j = 0;
  double v = 0.0;
};

// Where the levels of phantom groups are in the factor.
enum class group_place { after_animals, before_animals };

// Inbreeding coefficient of every animal, size n_animals. Groups count as unknown parents, F = 0.
// Meuwissen and Luo 1992, Genet. Sel. Evol. 24:305-313: F(i) = sum over ancestors j of L(i,j)^2 D(j) - 1.
// Full sibs are computed once. Memory is linear in the number of animals.
std::vector<double> inbreeding_of(const pedigree& ped);

// Mendelian variance of every animal as a fraction of the genetic variance: 1 - (1 + F) / 4 per known parent.
// An empty F counts as zero for all.
std::vector<double> mendelian_variance_of(const pedigree& ped, std::span<const double> f);

// Inverse of A by the rules of Henderson 1976 (Biometrics 32:69-83) and Quaas 1976 (Biometrics 32:949-953);
// with phantom groups by those of Quaas 1988 (J. Dairy Sci. 71:1338-1345): a group takes the place of the
// unknown parent, its own row gets nothing more, so groups are fixed and the matrix is singular. Empty f:
// inbreeding is ignored. Sorted by i, then j; each pair once, every diagonal once. Levels: animals 1..n and
// groups n+1..n+g, or groups 1..g and animals g+1..g+n. A Mendelian variance of 0 (inbred beyond rounding) is
// an error.
std::vector<matrix_element> a_inverse(const pedigree& ped, std::span<const double> f, group_place place,
                                      message_log& log);

// Level of animal a (a > 0) or of group g (given as -g); 0 for an unknown parent.
std::int32_t level_of(const pedigree& ped, std::int32_t parent, group_place place);

// Parents of every level for the pedigree file: sire_dam[2 l], sire_dam[2 l + 1] for level l + 1. A parent
// above 0 is a level, 0 unknown, below 0 a phantom group of level -parent. Groups have no parents.
std::vector<std::int32_t> parents_of_levels(const pedigree& ped, group_place place);

// Relationship matrix among the animals named (numbers from 1), dense, column by column, order n =
// animals.size(). Colleau 2002 (Genet. Sel. Evol. 34:409-421): a column is T D T' times a unit vector. Groups
// count as unknown.
std::vector<double> relationship_block(const pedigree& ped, std::span<const double> f,
                                       std::span<const std::int32_t> animals);

} // namespace zeph::prepare
