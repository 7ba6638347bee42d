#include "gibbs/residuals/trait_deviations.h"

#include "formats/free_format.h"
#include "formats/text_file.h"
#include "formats/whole_file.h"
#include "gibbs/scan/record_product.h"
#include "listing/stops.h"
#include "listing/work_files.h"
#include "numerics/column_view.h"
#include "numerics/lapack_calls.h"

#include <algorithm>
#include <cstdlib>
#include <string>

namespace zeph {
namespace {

// kept: 2/3 as a 32-bit number
constexpr double weight_of_one_parent = static_cast<double>(0.6666666865348816F); // 2/3

// Solution of trait t in a level of the factor; 0 for level 0 and for traits without a row.
double solution(const model_records& model, const sampler_store& sampler, const deviation_store& d,
                std::int32_t level, std::int32_t t) {
  if (level == 0 || d.row(t) == 0) return 0.0;
  // equations of the factor: NBEGRA + (level-1) n_rc + row
  const std::int64_t order = model.RMAT(d.factor).n_rc;
  return sampler.sol(model.NBEGRA(d.factor) + (level - 1) * order + d.row(t));
}

// TD(level) += residuals of the traits present, W(level) += A R^-1 A
void add_record(const model_records& model, const equation_layout& layout, const design_store& design,
                const sampler_store& sampler, residual_inverses& inverses, record_values& values,
                const directives& asked, deviation_store& d, std::int32_t irec, bool weights) {
  const std::int32_t level = design.G_TD_LEVEL(irec), nt = model.nt;
  if (level <= 0) return;
  take_record(entries_of(design, layout, sampler, asked.analysis_type), values, irec);
  make_swept_riff(model, design, sampler, inverses, irec, asked.analysis_type, weights);
  d.A.fill(0.0); // A(t): coefficients of the factor in the record for trait t
  for (std::int32_t j = 1; j <= design.M_M(irec); ++j)
    if (design.XD7_M(j, irec) == d.factor && entry_active(design, layout, irec, j, asked.analysis_type))
      d.A(design.XD2_M(j, irec)) += 1.0;
  for (std::int32_t t = 1; t <= nt; ++t)
    if (trait_present(design.ISIT_M(irec), t, nt)) d.TD(t, level) += values.res(t);
  for (std::int32_t j = 1; j <= nt; ++j)
    for (std::int32_t i = 1; i <= nt; ++i) d.W(i, j, level) += d.A(i) * inverses.riff(i, j) * d.A(j);
}

// TD = sum of residuals / records + solution; 0 where the level has no record of the trait
void finish_own(const model_records& model, const sampler_store& sampler, deviation_store& d) {
  for (std::int32_t level = 1; level <= d.levels; ++level)
    for (std::int32_t t = 1; t <= model.nt; ++t) {
      double& TD = d.TD(t, level);
      if (d.N_TD(t, level) == 0) {
        TD = 0.0;
        continue;
      }
      TD = TD / d.N_TD(t, level) + solution(model, sampler, d, level, t);
      d.S_TD(t, level) += TD;
      d.SS_TD(t, level) += TD * TD;
    }
}

// PTD(parent) += w W (2 TD - u(mate)), W_PTD(parent) += w W
void give_to_parent(const model_records& model, const sampler_store& sampler, deviation_store& d,
                    std::int32_t level, std::int32_t parent, std::int32_t mate, double w) {
  const std::int32_t nt = model.nt;
  d.v.fill(0.0); // v = W (2 TD - u(mate)) over the traits with records
  for (std::int32_t j = 1; j <= nt; ++j) {
    if (d.N_TD(j, level) == 0) continue;
    const double corrected = 2.0 * d.TD(j, level) - solution(model, sampler, d, mate, j);
    for (std::int32_t i = 1; i <= nt; ++i) d.v(i) += d.W(i, j, level) * corrected;
  }
  for (std::int32_t i = 1; i <= nt; ++i) d.PTD(i, parent) += w * d.v(i);
  for (std::int32_t j = 1; j <= nt; ++j)
    for (std::int32_t i = 1; i <= nt; ++i) d.W_PTD(i, j, parent) += w * d.W(i, j, level);
}

// Each level with records gives to its parents; a parent is the level of its absolute value, 0 none.
void pass_to_parents(const model_records& model, const relationship_store& relations,
                     const sampler_store& sampler, deviation_store& d) {
  if (relations.pedigree_factor != d.factor) return;
  for (std::int32_t level = 1; level <= d.levels; ++level) {
    const std::int32_t sire = std::abs(relations.pedmat(1, level)),
                       dam = std::abs(relations.pedmat(2, level));
    if ((sire == 0 && dam == 0) || !has_records(d, level)) continue;
    const double w = sire > 0 && dam > 0 ? 1.0 : weight_of_one_parent;
    if (sire > 0) give_to_parent(model, sampler, d, level, sire, dam, w);
    if (dam > 0) give_to_parent(model, sampler, d, level, dam, sire, w);
  }
}

// inverse = inverse of the leading n x n block, element by element where it is
// diagonal. False when it has none.
bool invert_block(deviation_store& d, std::int32_t n, std::int32_t ld) {
  bool diagonal = true;
  for (std::int32_t j = 1; j <= n; ++j)
    for (std::int32_t i = 1; i <= n; ++i) diagonal = diagonal && (i == j || d.block(i, j) == 0.0);
  // a diagonal block is inverted element by element, any other by LU
  if (!diagonal) {
    int info = 0;
    LA_GESV(n, d.block.data(), ld, d.inverse.data(), ld, info);
    return info == 0;
  }
  d.inverse.fill(0.0);
  for (std::int32_t i = 1; i <= n; ++i) {
    if (d.block(i, i) == 0.0) return false;
    d.inverse(i, i) = 1.0 / d.block(i, i);
  }
  return true;
}

// PTD(level) = W_PTD^-1 PTD over the traits with counted progeny, 0 for the others.
void divide_by_information(deviation_store& d, std::int32_t level, std::int32_t nt) {
  std::int32_t n = 0;
  for (std::int32_t t = 1; t <= nt; ++t)
    if (d.N_PTD(t, level) >= 1) d.traits_ptd(++n) = t;
  for (std::int32_t j = 1; j <= n; ++j)
    for (std::int32_t i = 1; i <= n; ++i) d.block(i, j) = d.W_PTD(d.traits_ptd(i), d.traits_ptd(j), level);
  const bool inverted = invert_block(d, n, nt);
  d.v.fill(0.0);
  for (std::int32_t i = 1; i <= n && inverted; ++i)
    for (std::int32_t j = 1; j <= n; ++j)
      d.v(d.traits_ptd(i)) += d.inverse(i, j) * d.PTD(d.traits_ptd(j), level);
  for (std::int32_t t = 1; t <= nt; ++t) d.PTD(t, level) = d.v(t);
}

void finish_progeny(deviation_store& d, std::int32_t nt) {
  for (std::int32_t level = 1; level <= d.levels; ++level) {
    divide_by_information(d, level, nt); // groups have no counted progeny: 0
    if (!has_progeny(d, level)) continue;
    for (std::int32_t t = 1; t <= nt; ++t) {
      const double PTD = d.PTD(t, level);
      d.S_PTD(t, level) += PTD;
      d.SS_PTD(t, level) += PTD * PTD;
    }
  }
}

void write_progeny(const model_records& model, reporting& report, const round_state& state,
                   const deviation_store& d) {
  const std::string name = "PTD" + std::to_string(state.iround);
  whole_file whole(path_of(report, name));
  text_writer out;
  if (!out.open(whole.path())) write_fault(report, name, "open");
  for (std::int32_t level = 1; level <= d.levels; ++level) {
    std::int32_t most = 0;
    for (std::int32_t t = 1; t <= model.nt; ++t) most = std::max(most, d.N_PTD(t, level));
    if (most <= model.PTD_LIMIT) continue;
    free_row row;
    row.i(level);
    for (std::int32_t t = 1; t <= model.nt; ++t) row.i(d.N_PTD(t, level));
    for (std::int32_t t = 1; t <= model.nt; ++t) row.r8(d.PTD(t, level));
    out.line(row.str());
  }
  if (!out.close() || !whole.publish()) write_fault(report, name, "write");
}

} // namespace

void TD_PTD(scan_records& r, const directives& asked, const round_state& state, deviation_store& d) {
  const bool weights = r.model.has_weights();
  values_from_entries(r.work.values);
  // TD and W of all levels, one record after the other; the sums over calls S_TD .. SS_PTD stay
  d.TD.fill(0.0);
  d.W.fill(0.0);
  for (std::int32_t irec = 1; irec <= r.design.nobs; ++irec)
    add_record(r.model, r.layout, r.design, r.sampler, r.work.inverses, r.work.values, asked, d, irec,
               weights);
  finish_own(r.model, r.sampler, d);
  ++d.calls;
  if (!d.progeny) return;
  d.PTD.fill(0.0);
  d.W_PTD.fill(0.0);
  pass_to_parents(r.model, r.relations, r.sampler, d);
  finish_progeny(d, r.model.nt);
  if (r.model.PTD_INT > 0 && state.iround % r.model.PTD_INT == 0) write_progeny(r.model, r.report, state, d);
}

} // namespace zeph
