// Numbering of the equations and their division into groups. A group is what
// the scan handles as a unit: levels, each a block of equations that are solved
// or sampled together. The system itself is never stored.
//
// Groups in order: all plain regressions together (one level); each nested
// regression; each "fixed" class effect with equations; each random factor.
// Equation p of level l of group g is base(g) + (l-1) * stride(g) + p.
#pragma once

#include "input/model_records.h"

namespace zeph {

enum class group_kind : std::int32_t { plain_regressions, nested_regression, fixed_effect, random_factor };

struct equation_group {
  group_kind kind = group_kind::plain_regressions;
  std::int32_t trait = 0;  // nested regression, fixed effect
  std::int32_t number = 0; // regression j, effect j, or factor k
  std::int64_t base = 0;   // equation before the first of level 1
  std::int64_t stride = 0; // equations from level to level; a factor's full order, also in a smaller model
};

struct equation_layout {
  std::int64_t n_plain = 0, n_ped = 0, n_qtl = 0; // equations of factors by kind of structure
  std::int32_t nbegr = 0;                         // equations before the first random factor = nfeq
  std::int32_t nbega = 0;                         // equations before the first pedigree structure
  std::int32_t neq = 0, neq_r = 0;
  std::int32_t n_reg0 = 0, n_reg1 = 0; // plain and nested regressions over all traits
  std::int32_t ngroups = 0;
  std::int32_t max_n_f = 0;           // largest number of "fixed" effects of a trait
  mat<std::int32_t> IFEQNO;           // nt x max(mnef, max_n_f): first equations, effect outer, trait inner
  mat<std::int32_t> NGR;              // ngroups x 2: levels, equations per level (shrinks in smaller models)
  std::vector<equation_group> groups; // groups[g-1]
  std::vector<mat<double>> DI, CDI;   // DI[g-1](packed index, level): diagonal blocks and their copy

  const equation_group& group(std::int64_t g) const { return groups[static_cast<std::size_t>(g - 1)]; }
  mat<double>& DI_of(std::int64_t g) { return DI[static_cast<std::size_t>(g - 1)]; }
  const mat<double>& DI_of(std::int64_t g) const { return DI[static_cast<std::size_t>(g - 1)]; }
  mat<double>& CDI_of(std::int64_t g) { return CDI[static_cast<std::size_t>(g - 1)]; }
  // Group of random factor k.
  std::int32_t group_of_factor(std::int32_t k, std::int32_t nramat) const { return ngroups - nramat + k; }
};

// Counts the equations by the structures' names: fills n_plain, n_ped, n_qtl,
// nbegr, nbega, neq, neq_r. An unknown structure name stops with code 2; a sum
// beyond 32 bits is illegal input of MODINF.
void count_equations(const model_records& m, equation_layout& layout, reporting& report);

// Checks every index of the model that later stages address by: places in the
// data record, traits, factors, equations, ranges of groups (within 1..neq and
// disjoint). Run after count_equations; the first fault found stops, code 16; two factors
// with a pedigree where deviations of progeny are wanted: code 2. The place of an upper limit
// is left to the first record that has one.
void check_model_indices(const model_records& m, const equation_layout& layout, reporting& report);

// Fills IFEQNO: a running number starts at nfreg+1; effect outer, trait inner.
void number_fixed_equations(const model_records& m, equation_layout& layout, reporting& report);

// Forms the groups, prints the layout tables, allocates NGR, DI, CDI.
void SETGROUPS(const model_records& m, equation_layout& layout, reporting& report, std::int32_t test_level);

} // namespace zeph
