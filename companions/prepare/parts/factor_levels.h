// The levels of the random factors, their relationship, and what every record says about them.
#pragma once

#include "input/structures.h"
#include "prepare/parts/covariable_values.h"
#include "prepare/parts/pedigree_inverse.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace zeph::prepare {

// One coefficient of a record: (row of the factor's matrix, trait, column of the level).
struct contribution {
  int row = 0;          // 1-based
  int trait = 0;        // 0-based
  std::string column;   // of the data, names the level; of a combination the columns joined by ":"
  bool constant = true; // coefficient `factor`; else the curve's value times 1
  double factor = 1.0;
  covariable_curve curve;
};

// A factor that the formulas use. Levels count from 1.
struct factor_levels {
  std::size_t section = 0; // index into model_description::factors
  std::string name;
  structure_kind structure = structure_kind::identity;
  std::vector<std::string> row_names;
  std::vector<int> row_trait;              // 0-based
  std::vector<contribution> contributions; // row by row
  std::vector<covariable_scale> scales;    // of the covariables of its rows, each once
  std::vector<std::string> identification; // per level; of a combination its parts joined by ":"
  std::map<std::string, std::vector<std::string>>
      parts;                                         // by column: the columns that it combines, one or more
  std::vector<std::string> part_names;               // of combinations, else empty; "herd", "year"
  std::vector<std::vector<std::string>> level_parts; // per level, its texts; empty: no combinations
  std::vector<std::int32_t> code;                    // per level, for CODE_TABLE
  std::vector<std::int64_t> n_records;               // per level: used records that hold it
  std::vector<double> inbreeding;                    // per animal; empty: no pedigree
  std::int32_t n_groups = 0;                         // phantom parent groups: the last levels
  std::vector<matrix_element> inverse;               // of the relationship; empty: identity
  std::vector<std::int32_t> sire_dam;                // pedigree: pair per level
  std::map<std::string, std::vector<std::int32_t>> level; // by column: per record of the file; 0 none
  std::int64_t n_meeting = 0;                             // used records in which two different levels meet
  std::int64_t n_without = 0;       // used records in which a level of a present trait is missing
  double smallest_eigenvalue = 0.0; // of a matrix that was inverted here
  double blended = 0.0;

  [[nodiscard]] std::int32_t n_levels() const { return static_cast<std::int32_t>(identification.size()); }
  [[nodiscard]] int order() const { return static_cast<int>(row_names.size()); }
};

// Makes the factors that a formula uses, in the order of the description. Identity: the levels are those of
// the used records, in ascending order: by number where all are whole numbers, else by text; those of
// combinations part by part, the first part first. Pedigree: all animals, parents first, then the phantom
// parent groups; with `prune` only animals with records and their ancestors. A given matrix: the levels of
// its file. Errors: those of the files, and levels of the data that a file does not have. Warning: records
// without level.
std::vector<factor_levels> make_factors(const model_description& d, const data_columns& data,
                                        const record_selection& records, bool prune, message_log& log);

// Warnings of a classic run: records where levels of one factor meet, in the words of what that does to the
// analysis.
void warn_of_meetings(const model_description& d, const data_columns& data,
                      const std::vector<factor_levels>& factors, message_log& log);

} // namespace zeph::prepare
