// Relationships between the levels of random factors: the elements of the
// inverse matrices, kept per level, and the pedigree of trait deviations.
//
// A row's walk gives the level itself with its diagonal element first, then the
// off-diagonal elements, the last one read first. Each off-diagonal element of
// the file is in the rows of both its levels; one given twice is summed.
#pragma once

#include "input/design_store.h"
#include "input/model_records.h"

namespace zeph {

// Rows 1..n in one block: the walk of row r is the diagonal diag(r), then
// elements start(r)..start(r+1)-1 of col and val.
struct relationship_rows {
  vec<double> diag;        // n
  vec<std::int64_t> start; // n+1, positions from 1
  vec<std::int32_t> col;   // off-diagonal elements
  vec<double> val;
  bool present() const { return diag.allocated(); }
};

struct relationship_store {
  std::vector<relationship_rows> CV_STR;     // [k-1]; empty for "I"
  std::vector<relationship_rows> CV_STR_RAM; // [k-1]; second list of a reduced animal model
  mat<std::int32_t> pedmat;                  // 2 x levels: sire, dam of each level of the "PED" factor
  std::int32_t pedigree_factor = 0;

  const relationship_rows& of(std::int64_t k) const { return CV_STR[static_cast<std::size_t>(k - 1)]; }
  const relationship_rows& ram_of(std::int64_t k) const {
    return CV_STR_RAM[static_cast<std::size_t>(k - 1)];
  }
};

// Reads the files of all structures other than "I" (second half of READTOMEM).
// Returns 0, or 1 when a file has no first record (reported on the listing).
int read_relationships(const model_records& m, relationship_store& relations, reporting& report);

// Names of the files that give the relationships and the pedigree of the model's factors, whether or
// not they are there.
std::vector<std::string> relationship_files(const model_records& m);

// Number of diagonal elements in "AINV_RAM"k, or `otherwise` when unreadable.
std::int32_t count_ram_diagonals(std::int32_t k, std::int32_t otherwise, reporting& report);

// The one "PED" factor, or 0. Two of them: a message and code 2.
std::int32_t find_pedigree(const model_records& m, reporting& report);

// Reads the pedigree of the one "PED" factor into pedmat. Faults stop with code 2.
void PEDFILE(const model_records& m, relationship_store& relations, reporting& report);

} // namespace zeph
