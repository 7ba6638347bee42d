#include "gibbs/scan/record_pass.h"

#include "formats/free_format.h"
#include "gibbs/scan/record_product.h"
#include "input/structures.h"
#include "listing/listing_rows.h"
#include "listing/run_log.h"
#include "numerics/packed_matrix.h"

#include <array>

namespace zeph {
namespace {

// RHS(XD1(i)) += sum over t of y(t) ZDRII(i,t). Elements that are 0 are passed
// over: Y_M of a missing trait may be no number.
void add_right_hand_side(const model_records& model, const design_store& design, sampler_store& sampler,
                         const residual_inverses& inverses, std::int32_t irec, std::int32_t i) {
  const std::int32_t nt = model.nt, trait = design.XD2_M(i, irec);
  const double z = design.ZD_M(i, irec);
  const float* y = design.Y_M.unchecked_col(irec);
  double sum = 0;
  for (std::int32_t t = 1; t <= nt; ++t)
    if (const double w = inverses.riff(trait, t); w != 0.0) sum += static_cast<double>(y[t - 1]) * (w * z);
  sampler.RHS(design.XD1_M(i, irec)) += sum;
}

// Adds one record to RHS and to the diagonal blocks: products of entries of one level of one group, k <= i.
void add_record(const model_records& model, equation_layout& layout, const design_store& design,
                sampler_store& sampler, const residual_inverses& inverses, analysis analysis_type,
                std::int32_t irec) {
  for (std::int32_t i = 1; i <= design.M_M(irec); ++i) {
    if (!entry_active(design, layout, irec, i, analysis_type)) continue;
    add_right_hand_side(model, design, sampler, inverses, irec, i);
    const std::int32_t g = design.XD3_M(i, irec), level = design.XD4_M(i, irec);
    double* block = layout.DI_of(g).unchecked_col(level);
    for (std::int32_t k = 1; k <= i; ++k) {
      if (design.XD3_M(k, irec) != g || design.XD4_M(k, irec) != level) continue;
      if (!entry_active(design, layout, irec, k, analysis_type)) continue;
      block[ihmij(design.XD5_M(i, irec), design.XD5_M(k, irec), 0) - 1] +=
          record_product(design, inverses.riff, irec, i, k);
    }
  }
}

// DI(l) += GIF(:,:,r) a(l,l), leading block of order p
void add_prior_precision(const model_records& model, equation_layout& layout,
                         const relationship_store& relations, const sampler_store& sampler, std::int32_t k,
                         std::int32_t p) {
  const std::int32_t g = layout.group_of_factor(k, model.nramat), levels = layout.NGR(g, 1);
  const bool identity = is_identity(model.RMAT(k));
  for (std::int32_t l = 1; l <= levels; ++l) {
    double* block = layout.DI_of(g).unchecked_col(l);
    const double a = identity ? 1.0 : relations.of(k).diag(l);
    for (std::int32_t i = 1; i <= p; ++i)
      for (std::int32_t j = 1; j <= i; ++j) *block++ += sampler.GIF(i, j, k) * a;
  }
}

// A row of the record print: entry, the first nxd columns XD1.., coefficient, solution.
std::string coefficient_row(const design_store& design, const sampler_store& sampler, std::int32_t irec,
                            std::int32_t nxd, std::int32_t e) {
  const std::array<const mat<std::int32_t>*, 7> columns = {&design.XD1_M, &design.XD2_M, &design.XD3_M,
                                                           &design.XD4_M, &design.XD5_M, &design.XD6_M,
                                                           &design.XD7_M};
  free_row row;
  row.i(e);
  for (std::int32_t c = 1; c <= nxd; ++c) row.i((*columns[static_cast<std::size_t>(c - 1)])(e, irec));
  return row.r8(design.ZD_M(e, irec)).r8(sampler.sol(design.XD1_M(e, irec))).str();
}

} // namespace

void bddrmc_init(scan_records& r, std::int64_t iround, analysis analysis_type,
                 const std::vector<std::int32_t>& ntr, scan_stage stage) {
  // RHS = Z'R^-1 y and DI = block diagonal of Z'R^-1 Z, one record after the other
  r.sampler.RHS.fill(0.0);
  for (mat<double>& block : r.layout.DI) block.fill(0.0);
  const bool weights = r.model.has_weights();
  for (std::int32_t irec = 1; irec <= r.design.nobs; ++irec) {
    if (r.design.M_M(irec) == 0) continue;
    make_stage_riff(r.model, r.design, r.sampler, r.work.inverses, stage, irec, analysis_type, weights);
    add_record(r.model, r.layout, r.design, r.sampler, r.work.inverses, analysis_type, irec);
  }
  // CDI: the data's part of the blocks alone, before the prior precision comes in
  if (iround == 0)
    for (std::size_t g = 0; g < r.layout.DI.size(); ++g)
      std::copy(r.layout.DI[g].begin(), r.layout.DI[g].end(), r.layout.CDI[g].begin());
  // factors that are not in the model have no rows to add
  for (std::int32_t k = 1; k <= r.model.nramat; ++k)
    if (ntr[static_cast<std::size_t>(k - 1)] > 0)
      add_prior_precision(r.model, r.layout, r.relations, r.sampler, k, ntr[static_cast<std::size_t>(k - 1)]);
}

void BDDRMC_GS(scan_records& r, const directives& asked, const round_state& state, scan_stage stage,
               std::int32_t g) {
  const design_store& d = r.design;
  const bool weights = r.model.has_weights();
  for (std::int32_t irec = 1; irec <= d.nobs; ++irec) {
    // the first ten records in the first five rounds
    const bool printed = asked.test_level > 1 && state.iround < 6 && irec < 11;
    const std::int32_t m = d.M_M(irec);
    bool concerned = printed; // the record has an entry of the group
    for (std::int32_t i = 1; i <= m && !concerned; ++i) concerned = d.XD3_M(i, irec) == g;
    if (!concerned) continue;
    make_stage_riff(r.model, r.design, r.sampler, r.work.inverses, stage, irec, asked.analysis_type, weights);
    if (printed)
      BDDRMC_XD_PRINT(r.model, r.design, r.sampler, r.work.inverses, r.report, "BDDRMC_GS", irec, 3);
    for (std::int32_t i = 1; i <= m; ++i) {
      if (d.XD3_M(i, irec) != g || !entry_active(r.design, r.layout, irec, i, asked.analysis_type)) continue;
      // RHS_i -= z_i' R^-1 z_j sol_j over the entries j of other levels and groups, entry by entry: the
      // order of the terms is part of what the plain body means
      double rhs = r.sampler.RHS(d.XD1_M(i, irec));
      for (std::int32_t j = 1; j <= m; ++j) {
        const bool same_level = d.XD3_M(j, irec) == g && d.XD4_M(j, irec) == d.XD4_M(i, irec);
        if (same_level || d.XD1_M(j, irec) <= 0 ||
            !entry_active(r.design, r.layout, irec, j, asked.analysis_type))
          continue;
        rhs -= r.sampler.sol(d.XD1_M(j, irec)) * record_product(d, r.work.inverses.riff, irec, i, j);
      }
      r.sampler.RHS(d.XD1_M(i, irec)) = rhs;
    }
  }
}

void BDDRMC_XD_PRINT(const model_records& model, const design_store& design, const sampler_store& sampler,
                     const residual_inverses& inverses, reporting& report, std::string_view name,
                     std::int32_t irec, std::int32_t nxd) {
  if (nxd < 2 || nxd > 7) {
    // kept: without a code the message routine writes none of these words
    log_message(report, "ERROR BDDRMC_XD_PRINT must be calle with", "2 <= nxd <= 7", "");
    return;
  }
  // nxd = 2..7: one column of the design more each time
  constexpr std::array<std::string_view, 6> headers = {
      "   No   Equation Trait  Contribution         Solutions",
      "   No   Equation Trait Group  Contribution         Solutions",
      "   No   Equation Trait Group    level  Contribution         Solutions",
      "   No   Equation Trait Group    level Eq/level  Contribution         Solutions",
      "   No   Equation Trait Group    level Eq/level Eq type  Contribution         Solutions",
      "   No   Equation Trait Group    level Eq/level Eq type  R eff. Contribution         Solutions"};
  const std::int32_t nt = model.nt;
  // record, mask of its traits, residual group; then y, R^-1 of the record and its weights
  say(report);
  say(report, free_row()
                  .text(name)
                  .text("  OBS=  ")
                  .i(irec)
                  .text("Isit= ")
                  .i(design.ISIT_M(irec))
                  .text("iresg= ")
                  .i(design.IRESG_M(irec))
                  .str());
  free_row y, riif, weights;
  y.text("RINP : ");
  riif.text("RIIF : ");
  weights.text("WEIGHT_VEC : ");
  for (std::int32_t t = 1; t <= nt; ++t) y.r4(design.Y_M(t, irec));
  for (std::int32_t i = 1; i <= nt; ++i)
    for (std::int32_t j = 1; j <= nt; ++j) riif.r8(inverses.riff(i, j));
  for (std::int32_t t = 1; t <= nt; ++t) weights.r4(design.WV_M(t, irec));
  for (const free_row* row : {&y, &riif, &weights}) {
    say(report);
    say(report, row->str());
  }
  say(report, headers[static_cast<std::size_t>(nxd - 2)]);
  for (std::int32_t e = 1; e <= design.M_M(irec); ++e)
    say(report, coefficient_row(design, sampler, irec, nxd, e));
}

} // namespace zeph
