#include "formats/free_format.h"
#include "input/equation_layout.h"
#include "input/model_information.h"
#include "input/relationships.h"
#include "input/structures.h"
#include "listing/stops.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace zeph {

namespace {

using indices = std::initializer_list<std::int64_t>;

struct checks {
  const model_records& m;
  const equation_layout& layout;
  reporting& report;

  [[noreturn]] void refuse(std::string_view item, indices at, std::int64_t value,
                           std::string_view rule) const {
    illegal_input(report, "MODINF", item, at, std::to_string(value), rule);
  }
  void within(std::string_view item, indices at, std::int64_t value, std::int64_t low,
              std::int64_t high) const {
    if (value < low || value > high) refuse(item, at, value, legal_range(low, high));
  }
  // A place in the reals, in the integers of a data record.
  void real_place(std::string_view item, indices at, std::int32_t value) const {
    within(item, at, value, 1, m.n_real);
  }
  void integer_place(std::string_view item, indices at, std::int32_t value) const {
    within(item, at, value, 1, m.iv_50);
  }
  void finite(std::string_view item, indices at, double value) const {
    if (std::isfinite(value)) return;
    const std::string field = free_row().r8(value).str();
    illegal_input(report, "MODINF", item, at, field.substr(field.find_first_not_of(' ')), "a finite number");
  }
  void finite_matrix(std::string_view item, std::int64_t k, const mat<double>& a) const {
    for (std::int64_t j = 1; j <= a.extent(2); ++j)
      for (std::int64_t i = 1; i <= a.extent(1); ++i) finite(item, {k, i, j}, a(i, j));
  }
};

void check_observation_places(const checks& c) {
  // Y_M is read as nt reals from the place of trait 1 on
  const std::int64_t first = c.m.MODEL(1).Y_RCI;
  for (std::int32_t i = 1; i <= c.m.nt; ++i) {
    const std::int32_t place = c.m.MODEL(i).Y_RCI;
    c.real_place("MODEL%Y_RCI", {i}, place);
    if (place != first + i - 1)
      c.refuse("MODEL%Y_RCI", {i}, place, fmt::format("{} (observations stand side by side)", first + i - 1));
  }
}

// Partners of the sequence and cured traits, censoring, weights.
void check_trait_kind(const checks& c, std::int32_t i) {
  const trait_record& t = c.m.MODEL(i);
  if (t.WGT_FLAG != 0) c.real_place("MODEL%WGT_RCI", {i}, t.WGT_RCI);
  c.within("MODEL%MIX_EQ_TYPE", {i}, t.MIX_EQ_TYPE, 0, c.m.nt);
  if (t.TRAIT_TYPE == trait_censored) {
    if (!t.L_CENS) illegal_input(c.report, "MODINF", "MODEL%L_CENS", {i}, "F", "T for a trait of type 2");
    c.integer_place("MODEL%CENS_RCI", {i}, t.CENS_RCI);
  }
  if (t.TRAIT_TYPE == trait_sequence) {
    c.integer_place("MODEL%SEQ_RCI", {i}, t.SEQ_RCI);
    c.within("MODEL%link2", {i}, t.link2, 0, c.m.nt);
  }
  if (t.TRAIT_TYPE == trait_cured &&
      (t.link1 < 1 || t.link1 > c.m.nt || c.m.MODEL(t.link1).TRAIT_TYPE != trait_sequence))
    c.refuse("MODEL%link1", {i}, t.link1, "a trait of type 7");
}

void check_trait_effects(const checks& c, std::int32_t i) {
  const trait_record& t = c.m.MODEL(i);
  for (std::int32_t j = 1; j <= t.n_f; ++j)
    if (t.INTERCEPT(j)) c.integer_place("MODEL%f_ef_rci", {i, j}, t.f_ef_rci(j));
  for (std::int32_t j = 1; j <= t.n_r; ++j)
    c.within("MODEL%r_ef_matno", {i, j}, t.r_ef_matno(j), 0, c.m.nramat);
  for (std::int32_t j = 1; j <= t.n_reg; ++j) {
    const std::int32_t type = t.REG_TYPE(j);
    if (type == 0 || type == 1) c.real_place("MODEL%REG_RCI", {i, j}, t.REG_RCI(j));
    if (type == 1) {
      c.integer_place("MODEL%REG_N_RCI", {i, j}, t.REG_N_RCI(j));
      c.within("MODEL%REG_N_EF_INP", {i, j}, t.REG_N_EF_INP(j), 1, c.m.mnef);
    }
    c.within("MODEL%REG_R_MATNO", {i, j}, t.REG_R_MATNO(j), 0, c.m.nramat);
  }
}

// Rows of the traits in the matrix of structure k, and its numbers.
void check_structure(const checks& c, std::int32_t k) {
  const structure_record& r = c.m.RMAT(k);
  // row nramat+1 is the residual, which has no solutions and no inverse to check
  const bool factor = k <= c.m.nramat;
  // the solution writer takes scales by trait number
  const std::int32_t first_trait = factor && c.m.sol_layout == 1 ? 1 : 0;
  for (std::int32_t j = 1; j <= r.n_t; ++j) {
    c.within("RMAT%TRAIT_NO", {k, j}, r.TRAIT_NO(j), first_trait, c.m.nt);
    c.within("RMAT%T_NO", {k, j}, r.T_NO(j), 0, r.n_rc);
  }
  c.finite_matrix("RMAT%COV_MAT", k, r.COV_MAT);
  c.finite_matrix("RMAT%P_COV_MAT", k, r.P_COV_MAT);
  if (!factor) return;
  c.finite_matrix("RMAT%GIF", k, r.GIF);
  if (structure_of(r) == structure_kind::qtl) c.within("RMAT%QTL_FACTOR", {k}, r.QTL_FACTOR, 1, c.m.nramat);
}

void check_contributions(const checks& c, std::int32_t k) {
  const structure_record& r = c.m.RMAT(k);
  for (std::int32_t e = 1; e <= r.n_cont; ++e) {
    c.within("RMAT%CONT_T_NO", {k, e}, r.CONT_T_NO(e), 1, c.m.nt);
    c.within("RMAT%CONT_POS", {k, e}, r.CONT_POS(e), 1, r.n_rc);
    // with CONT_LC it is a level, and the entry of each record is checked
    const std::int64_t room = std::int64_t{r.n_rc} - r.CONT_POS(e) + 1;
    c.within("RMAT%CONT_RC", {k, e}, r.CONT_RC(e), 1, r.CONT_LC(e) ? INT32_MAX : room);
    c.integer_place("RMAT%CONT_EFF_RCI", {k, e}, r.CONT_EFF_RCI(e));
    if (r.CONT_RR_EFF(e)) c.real_place("RMAT%CONT_RR_RCI", {k, e}, r.CONT_RR_RCI(e));
    c.finite("RMAT%CONT_COEFF", {k, e}, r.CONT_COEFF(e));
  }
}

void check_residual(const checks& c) {
  const structure_record& r = c.m.residual();
  const std::int32_t k = c.m.nramat + 1;
  if (has_residual_groups(r)) {
    c.within("RMAT%n_hetgr", {k}, r.n_hetgr, 1, INT32_MAX);
    c.integer_place("RMAT%HETGR_RCI", {k}, r.HETGR_RCI);
  }
  for (std::int32_t j = 1; j <= c.m.nt; ++j)
    for (std::int32_t i = 1; i <= c.m.nt; ++i)
      for (std::int32_t g = 0; g <= r.n_hetgr; ++g) {
        c.finite("RMAT%HETGR_COV_MAT", {k, g, i, j}, r.HETGR_COV_MAT(g, i, j));
        for (std::int32_t p = 0; p <= r.n_pat; ++p)
          c.finite("RMAT%HETGR_RIIF", {k, g, p, i, j}, r.HETGR_RIIF(g, p, i, j));
      }
  for (std::int32_t n = 1; n <= c.m.n_norcov; ++n) {
    c.within("NORCOV", {n, 1}, c.m.NORCOV(n, 1), 1, c.m.nt);
    c.within("NORCOV", {n, 2}, c.m.NORCOV(n, 2), 1, c.m.nt);
    if (c.m.NORCOV(n, 1) == c.m.NORCOV(n, 2)) c.refuse("NORCOV", {n, 2}, c.m.NORCOV(n, 2), "another trait");
  }
}

void check_deviations_and_samples(const checks& c) {
  // deviations of progeny are those of the one factor with a pedigree
  const std::int32_t pedigree = c.m.L_PTD ? find_pedigree(c.m, c.report) : 0;
  if (pedigree > 0 && c.m.TD_FACTOR != pedigree)
    c.refuse("TD_FACTOR", {}, c.m.TD_FACTOR, fmt::format("{}, the factor with pedigree", pedigree));
  if (c.m.L_TD) {
    const std::int32_t k = c.m.TD_FACTOR;
    c.within("TD_FACTOR", {}, k, 1, c.m.nramat);
    c.within("RMAT%n_rid", {k}, c.m.RMAT(k).n_rid, 1, INT32_MAX);
    c.integer_place("RMAT%R_EFF_RCI", {k, 1}, c.m.RMAT(k).R_EFF_RCI(1));
  }
  for (std::int32_t n = 1; n <= c.m.n_sol_cv; ++n)
    c.within("SOL_CV%EQ_NO", {n}, c.m.SOL_CV_EQ_NO(n), 1, c.layout.neq);
}

// The equations first+1 .. first+count of one group, and where MODINF says so.
struct equation_range {
  std::int64_t first, count;
  const char* table;
  std::int32_t i, j; // j: 0 for a table with one index
};

// Equations of a group that has any lie within 1..neq.
void add_range(const checks& c, std::vector<equation_range>& ranges, const equation_range& r) {
  if (r.count < 1) return;
  if (r.first < 0 || r.count > c.layout.neq - r.first) {
    const std::string rule = fmt::format("{} equations within 1..{}", r.count, c.layout.neq);
    if (r.j > 0) c.refuse(r.table, {r.i, r.j}, r.first, rule);
    c.refuse(r.table, {r.i}, r.first, rule);
  }
  ranges.push_back(r);
}

// Plain regressions are the equations 1..n_reg0, each once; returns n_reg0.
std::int64_t check_plain_regressions(const checks& c) {
  std::int64_t n_reg0 = 0;
  for (const trait_record& t : c.m.MODEL_rows) n_reg0 += std::count(t.REG_TYPE.begin(), t.REG_TYPE.end(), 0);
  // a permutation of 0..n_reg0-1
  std::vector<bool> taken(static_cast<std::size_t>(n_reg0));
  for (std::int32_t i = 1; i <= c.m.nt; ++i)
    for (std::int32_t j = 1; j <= c.m.MODEL(i).n_reg; ++j) {
      if (c.m.MODEL(i).REG_TYPE(j) != 0) continue;
      const std::int64_t offset = c.m.NBEGREG(i, j);
      if (offset < 0 || offset >= n_reg0 || taken[static_cast<std::size_t>(offset)])
        c.refuse("NBEGREG", {i, j}, offset, legal_range(0, n_reg0 - 1) + ", each once");
      taken[static_cast<std::size_t>(offset)] = true;
    }
  return n_reg0;
}

std::vector<equation_range> group_ranges(const checks& c) {
  std::vector<equation_range> ranges;
  add_range(c, ranges, {0, check_plain_regressions(c), "n_reg0", 1, 0});
  for (std::int32_t i = 1; i <= c.m.nt; ++i) {
    const trait_record& t = c.m.MODEL(i);
    for (std::int32_t j = 1; j <= t.n_reg; ++j)
      if (t.REG_TYPE(j) == 1)
        add_range(c, ranges, {c.m.NBEGREG(i, j), c.m.NLEV(i, t.REG_N_EF_INP(j)), "NBEGREG", i, j});
    for (std::int32_t j = 1; j <= t.n_f; ++j)
      if (t.INTERCEPT(j)) add_range(c, ranges, {c.m.NBEGF(i, j), c.m.NLEV(i, j), "NBEGF", i, j});
  }
  for (std::int32_t k = 1; k <= c.m.nramat; ++k)
    add_range(c, ranges, {c.m.NBEGRA(k), std::int64_t{c.m.RMAT(k).n_rc} * c.m.NRALEV(k), "NBEGRA", k, 0});
  return ranges;
}

// No equation belongs to two groups; "ABS_QTL" lies on the levels of another factor.
void check_disjoint(const checks& c, std::vector<equation_range> ranges) {
  std::erase_if(ranges, [&](const equation_range& r) {
    return std::string_view(r.table) == "NBEGRA" && structure_of(c.m.RMAT(r.i)) == structure_kind::qtl;
  });
  std::stable_sort(ranges.begin(), ranges.end(),
                   [](const equation_range& a, const equation_range& b) { return a.first < b.first; });
  std::int64_t last = 0; // highest equation of the groups so far
  for (const equation_range& r : ranges) {
    const std::string rule = fmt::format("no equation of another group, such as {}", last);
    if (r.first < last && r.j > 0) c.refuse(r.table, {r.i, r.j}, r.first, rule);
    if (r.first < last) c.refuse(r.table, {r.i}, r.first, rule);
    // ascending by first equation: each range begins where the one before has ended, or later
    last = r.first + r.count;
  }
}

} // namespace

void check_model_indices(const model_records& m, const equation_layout& layout, reporting& report) {
  const checks c{m, layout, report};
  check_observation_places(c);
  for (std::int32_t i = 1; i <= m.nt; ++i) {
    check_trait_kind(c, i);
    check_trait_effects(c, i);
  }
  for (std::int32_t k = 1; k <= m.nramat + 1; ++k) check_structure(c, k);
  for (std::int32_t k = 1; k <= m.nramat; ++k) check_contributions(c, k);
  check_residual(c);
  check_deviations_and_samples(c);
  check_disjoint(c, group_ranges(c));
}

} // namespace zeph
