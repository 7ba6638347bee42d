// What the fast body of the scan keeps of the design: per group columns of
// equation numbers in record order instead of rows of entries, the residuals of
// all records, and the sums of coefficient products that the diagonal blocks
// are made from.
//
// With e = y - Z b the residuals as they are when group g is entered, the
// right-hand sides of its level l are, for the rows Z_l of the level,
//   RHS_l = Z_l' R^-1 e + D_l b_l,   D_l = Z_l' R^-1 Z_l,
// since e lacks the level's own part too. It equals Z' R^-1 y less the parts of
// all other levels and groups, at the cost of one pass over the group's entries.
#pragma once

#include "input/design_store.h"
#include "input/equation_layout.h"
#include "input/run_records.h"
#include "numerics/arrays.h"
#include "numerics/matrix_draws.h"

#include <cstdint>
#include <vector>

namespace zeph {

struct scan_records;

// One kind of entry of a group: trait `trait` on place `place` of the levels.
// At most one element a record; elements in record order.
struct design_slot {
  std::int32_t trait = 0, place = 0; // from 1
  bool every_record = false;         // element r belongs to record r; otherwise rec
  bool ones = true;                  // all coefficients are 1; otherwise z holds them
  bool changing = false;             // coefficients are read again from ZD_M in each round
  vec<std::int32_t> row;             // equation of the group, from 0: (level-1) stride + place - 1
  vec<std::int32_t> rec;             // record, from 0, ascending
  vec<double> z;
  vec<std::int32_t> entry; // entry of the record (changing slots), from 1
  vec<std::int64_t> first; // blocks+1: first element of each block of records (not every_record)
};

// One sum of coefficient products: it goes to element `element` (from 0) of the
// packed block, multiplied by RCOVI(ti,tj,h); ti = 0: by 1.
struct block_term {
  std::int32_t element = 0;
  std::int32_t ti = 0, tj = 0, h = 0;
};

struct group_form {
  std::vector<design_slot> slots; // ordered by trait
  std::vector<std::int32_t> traits;
  bool changing = false; // D has to be summed over the records in each round, into DI
  std::vector<block_term> terms;
  mat<double> sums; // levels x terms, or classes x terms
  // Levels that share sums and diagonal element share their factored block.
  vec<std::int32_t> level_class; // levels, from 0; empty: each level for itself
  vec<double> class_diag;        // classes: diagonal element of the relationship inverse
  vec<double> class_data;        // per class D and L of the round and the diagonal element
};

// The relationship rows of a factor for the walk over its levels, in the order of
// the levels: first the links to levels before the row's own, then to those
// after it. So the sum of squares comes out of the walk:
//   u' A^-1 u = sum over l of a(l,l) u_l^2 + 2 u_l sum over c < l of a(l,c) u_c.
struct link_form {
  vec<std::int32_t> before, after; // levels: numbers of links
  vec<std::int32_t> col;           // related level, from 0
  vec<double> val;
};

// Conditional distribution of the missing traits of one mask, given the others,
// in one residual group: made once a round.
struct mask_form {
  std::int32_t mask = 0;
  std::vector<std::int32_t> present, missing; // traits, ascending
};

inline constexpr std::int64_t records_of_block = 512;     // records that a pass takes at a time
inline constexpr std::int32_t largest_unrolled_order = 4; // blocks up to it are factored in line, unrolled
// The number of partial sums that each sum of a group of up to most_partial equations has: neighbouring
// records often meet in one sum, and each addition would wait for the one before.
inline constexpr std::int64_t n_partial_sums = 4;
inline constexpr std::int64_t most_partial = 8192;

// The body that scans the rounds of a run: chosen once, at the first of them.
enum class scan_body : std::int32_t { unchosen, fast, plain };

// What the draws of a factor's levels leave for its move U -> U A' (moves/factor_moves.h), n rows in force:
//   H(i n + j + 1)   sum over levels of rhs u', rhs = Z'R^-1 e + D u before the draw and without the links
//   squares          orders above 1, by class of levels: sum of u u', packed
//   products         the others: sum of D (x) u u', packed, a row for each element of D
struct level_sums {
  bool ready = false; // sized
  vec<double> H, squares, products;
  // of blocks of larger order than are factored in line
  vec<double> rhs;   // of all levels
  vec<double> level; // 2 packed: D and u u' of one level
  // of levels that meet in records, for a block of records
  vec<double> columns; // columns of the group times n: z u of each record's level
  vec<double> scaled;  // 2: elements of the residual inverse, and a column times them
};

struct residual_form {
  bool one_matrix = false;        // all records share one residual inverse, without weights
  bool constant_R = false;        // the residual matrices stay in this run: terms are whole
  std::vector<group_form> groups; // [g-1]
  std::vector<link_form> links;   // [k-1]; empty for identity and in the solver
  mat<double> E;                  // nobs x nt: residuals, not weighted
  vec<double> change;             // largest group: new less old solutions of the group left last
  std::int32_t pending = 0;       // that group, while its change is not yet in E; 0: none
  std::int64_t valid_round = -1;  // round at whose head E still holds; -1: none
  mat<double> W;                  // records_of_block x nt: R^-1 e of a block of records
  vec<double> weighed;            // nt: weighted residuals of one record
  vec<double> partial;            // partial sums of small groups
  vec<double> multipliers;        // of the terms of one group
  vec<double> normals;            // a batch of standard normals

  // sums of squares made in the same walk as the links
  vec<logical> square_done; // nramat
  mat<double> square;       // packed x nramat
  level_sums moved;         // of the group in hand

  // residual pass
  std::vector<mask_form> masks;
  vec<std::int32_t> mask_of;      // nobs: index into masks
  bool by_masks = false;          // false: too many masks, records are scored one by one
  array<double, 3> products;      // packed nt x masks x groups: residual products
  array<double, 3> conditional;   // what each mask and residual group needs for its draws
  vec<double> largest;            // nt: largest size of a weighted residual in the pass
  mat<std::int64_t> counts;       // masks x groups: records
  bool counts_move = false;       // records change their residual group
  vec<logical> prepared;          // masks x groups: conditional is set in this round
  array<double, 4> swept_inverse; // nt x nt x masks x groups: inverse of R of the observed traits, by
                                  // sweeps; for the sources of covariables in the solver
};

// Builds the form for the run's design. False when the records can't be stored as
// columns (equations outside their group's numbering, groups that share equations):
// the plain body has to run.
bool build_residual_form(scan_records& r, const directives& asked);

// Counts the records of each mask and residual group.
void count_masks(const design_store& design, residual_form& form);

// True when the coefficient of entry e of record irec can change in the run:
// mixture coefficients and covariables made from solutions.
bool coefficient_changes(const equation_layout& layout, const design_store& design, const directives& asked,
                         std::int32_t irec, std::int32_t e);

} // namespace zeph
