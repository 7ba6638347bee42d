#include "input/deviation_store.h"

#include "numerics/column_view.h"

#include <algorithm>

namespace zeph {
namespace {

// Row of trait t in a level of the factor; t itself where the file names no traits; 0: none.
std::int32_t row_of_trait(const structure_record& f, std::int32_t t) {
  const std::int32_t rows = std::min(f.n_t, f.n_rc);
  for (std::int32_t j = 1; j <= rows; ++j)
    if (f.TRAIT_NO(j) == t) return j;
  const bool unnamed =
      std::all_of(f.TRAIT_NO.begin(), f.TRAIT_NO.end(), [](std::int32_t n) { return n == 0; });
  return unnamed && t <= f.n_rc ? t : 0;
}

bool any_above_zero(const mat<std::int32_t>& counts, std::int32_t level) {
  for (std::int64_t t = 1; t <= counts.extent(1); ++t)
    if (counts(t, level) > 0) return true;
  return false;
}

} // namespace

void allocate_deviations(const model_records& m, deviation_store& d, reporting& report) {
  if (!m.L_TD) return;
  constexpr std::string_view routine = "ZEPH";
  const std::int32_t nt = m.nt;
  d.factor = m.TD_FACTOR;
  d.levels = m.NRALEV(d.factor);
  d.progeny = m.L_PTD;
  allocate(report, d.row, "TD_PTD%SUBJ", routine, nt);
  for (std::int32_t t = 1; t <= nt; ++t) d.row(t) = row_of_trait(m.RMAT(d.factor), t);
  allocate(report, d.TD, "TD_PTD%SUBJ%TD", routine, nt, d.levels);
  allocate(report, d.N_TD, "TD_PTD%SUBJ%N_TD", routine, nt, d.levels);
  allocate(report, d.W, "TD_PTD%SUBJ%W", routine, nt, nt, d.levels);
  allocate(report, d.S_TD, "TD_PTD%SUBJ%S_TD", routine, nt, d.levels);
  allocate(report, d.SS_TD, "TD_PTD%SUBJ%SS_TD", routine, nt, d.levels);
  allocate(report, d.A, "A", "TD_PTD", nt);
  if (!d.progeny) return;
  allocate(report, d.PTD, "TD_PTD%SUBJ%PTD", routine, nt, d.levels);
  allocate(report, d.N_PTD, "TD_PTD%SUBJ%N_PTD", routine, nt, d.levels);
  allocate(report, d.W_PTD, "TD_PTD%SUBJ%W_PTD", routine, nt, nt, d.levels);
  allocate(report, d.S_PTD, "TD_PTD%SUBJ%S_PTD", routine, nt, d.levels);
  allocate(report, d.SS_PTD, "TD_PTD%SUBJ%SS_PTD", routine, nt, d.levels);
  allocate(report, d.block, "block", "TD_PTD", nt, nt);
  allocate(report, d.inverse, "inverse", "TD_PTD", nt, nt);
  allocate(report, d.v, "v", "TD_PTD", nt);
  allocate(report, d.traits_ptd, "traits", "TD_PTD", nt);
}

void count_level_records(const model_records& m, const design_store& design, deviation_store& d) {
  if (d.factor == 0) return;
  d.N_TD.fill(0);
  for (std::int32_t r = 1; r <= design.nobs; ++r) {
    const std::int32_t level = design.G_TD_LEVEL(r);
    if (level <= 0) continue;
    for (std::int32_t t = 1; t <= m.nt; ++t)
      if (d.row(t) > 0 && trait_present(design.ISIT_M(r), t, m.nt)) ++d.N_TD(t, level);
  }
}

void count_progeny(const model_records& m, const relationship_store& relations, deviation_store& d) {
  if (!d.progeny || relations.pedigree_factor != d.factor) return;
  d.N_PTD.fill(0);
  for (std::int32_t level = 1; level <= d.levels; ++level)
    for (std::int32_t p = 1; p <= 2; ++p) {
      // known parents only: a negative one is a group of parents, 0 is unknown
      const std::int32_t parent = relations.pedmat(p, level);
      if (parent <= 0) continue;
      for (std::int32_t t = 1; t <= m.nt; ++t)
        if (d.N_TD(t, level) > 0) ++d.N_PTD(t, parent);
    }
}

bool has_records(const deviation_store& d, std::int32_t level) { return any_above_zero(d.N_TD, level); }
bool has_progeny(const deviation_store& d, std::int32_t level) { return any_above_zero(d.N_PTD, level); }

} // namespace zeph
