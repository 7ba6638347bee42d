// Trait deviations (TD) and progeny trait deviations (PTD) of the levels of one
// random factor: what the chain holds and sums of them.
#pragma once

#include "input/design_store.h"
#include "input/relationships.h"

namespace zeph {

struct deviation_store {
  std::int32_t factor = 0; // the random factor k; 0: none wanted
  std::int32_t levels = 0; // of it
  bool progeny = false;    // PTD wanted too
  std::int64_t calls = 0;  // times that the sums were added to
  vec<std::int32_t> row;   // nt: row of the trait in the factor's matrix; 0: none

  mat<std::int32_t> N_TD, N_PTD; // nt x levels: own records, progeny with records
  mat<double> TD, PTD;           // nt x levels: of the last call
  cube<double> W, W_PTD;         // nt x nt x levels: information of own records, of the progeny
  mat<double> S_TD, SS_TD;       // nt x levels: sum and sum of squares over the calls
  mat<double> S_PTD, SS_PTD;

  // work
  vec<double> A;                // nt: coefficients of the factor in a record, by trait
  mat<double> block, inverse;   // nt x nt
  vec<double> v;                // nt
  vec<std::int32_t> traits_ptd; // nt: traits of a level that have progeny
};

// Allocates the stores of the factor TD_FACTOR of the model, all zero, and finds the
// rows of the traits in it: the first of the factor's rows that names the trait;
// where none names any, the row of the trait's number. Nothing without L_TD.
void allocate_deviations(const model_records& m, deviation_store& d, reporting& report);

// N_TD from the loaded records: those of the level in which the trait is present.
// Traits without a row have none.
void count_level_records(const model_records& m, const design_store& design, deviation_store& d);

// N_PTD from the pedigree: by sire and dam the progeny with records of the trait.
// Parents below 0 are groups and have none counted. Nothing where the factor has no
// pedigree.
void count_progeny(const model_records& m, const relationship_store& relations, deviation_store& d);

// True when the level has records, progeny with records, of some trait.
bool has_records(const deviation_store& d, std::int32_t level);
bool has_progeny(const deviation_store& d, std::int32_t level);

} // namespace zeph
