#include "gibbs/scan/record_product.h"

#include "gibbs/scan/scan_records.h"
#include "numerics/column_view.h"
#include "numerics/packed_matrix.h"

#include <algorithm>

namespace zeph {
namespace {

// riff(i,j) *= w_i^1/2 w_j^1/2
void weigh_riff(const design_store& d, std::int32_t irec, std::int32_t nt, mat<double>& riff) {
  const auto root = col_of(d.WV_SQRT_M, irec);
  for (std::int32_t i = 1; i <= nt; ++i) {
    const double wi = static_cast<double>(root(i));
    for (std::int32_t j = 1; j < i; ++j) {
      const double wj = static_cast<double>(root(j));
      riff(i, j) = riff(i, j) * wi * wj;
      riff(j, i) = riff(j, i) * wi * wj;
    }
    riff(i, i) *= static_cast<double>(d.WV_M(i, irec));
  }
}

} // namespace

void allocate_residual_inverses(const model_records& m, residual_inverses& work, reporting& report) {
  const structure_record& residual = m.residual();
  const std::int32_t nt = m.nt, groups = m.n_groups_residual();
  work.weighted = m.has_weights();
  allocate(report, work.riff, "riff", "QVAgib_ALLOC", nt, nt);
  allocate_conditional(report, work.swept, nt, "GIBSCAN");
  allocate(report, work.by_pattern, "riff", "GIBSCAN", nt, nt, range(0, residual.n_pat), groups);
  for (std::int32_t g = 1; g <= groups; ++g)
    for (std::int32_t p = 0; p <= residual.n_pat; ++p)
      for (std::int32_t j = 1; j <= nt; ++j)
        // after the sweeps the rows of the mask hold R_oo^-1; the others hold what is left given them
        for (std::int32_t i = 1; i <= nt; ++i)
          // pattern p and group g last: the nt x nt matrix that a record needs is contiguous
          work.by_pattern(i, j, p, g) = residual.HETGR_RIIF(m.hetgr_index(g), p, i, j);
}

void make_riff(const model_records& model, const design_store& design, const sampler_store& sampler,
               residual_inverses& inverses, std::int32_t irec, analysis analysis_type, bool weights) {
  mat<double>& riff = inverses.riff;
  const std::int32_t g = design.IRESG_M(irec);
  // solver: R_oo^-1 of the record's pattern, 0 in missing traits; with sampling every missing trait
  // holds an imputed residual, so that the full R^-1 of the group applies
  const double* source = solves(analysis_type) ? &inverses.by_pattern(1, 1, design.C_ISIT_M(irec), g)
                                               : sampler.RCOVI.unchecked_slice(g);
  std::copy_n(source, riff.size(), riff.data());
  if (weights) weigh_riff(design, irec, model.nt, riff);
}

void make_swept_riff(const model_records& model, const design_store& design, const sampler_store& sampler,
                     residual_inverses& inverses, std::int32_t irec, analysis analysis_type, bool weights) {
  if (!solves(analysis_type))
    return make_riff(model, design, sampler, inverses, irec, analysis_type, weights);
  invert_observed(inverses.swept, sampler.RCOV.unchecked_slice(design.IRESG_M(irec)), design.ISIT_M(irec),
                  inverses.riff.data());
  if (weights) weigh_riff(design, irec, model.nt, inverses.riff);
}

void make_stage_riff(const model_records& model, const design_store& design, const sampler_store& sampler,
                     residual_inverses& inverses, scan_stage stage, std::int32_t irec, analysis analysis_type,
                     bool weights) {
  if (stage == scan_stage::sources)
    make_swept_riff(model, design, sampler, inverses, irec, analysis_type, weights);
  else
    make_riff(model, design, sampler, inverses, irec, analysis_type, weights);
}

void invert_observed(residual_conditional& conditional, const double* R, std::int32_t mask, double* inverse) {
  const std::int32_t nt = conditional.nt;
  set_matrix(conditional, R);
  sweep_mask(conditional, mask);
  for (std::int32_t i = 1; i <= nt; ++i)
    for (std::int32_t j = 1; j <= nt; ++j) {
      const bool both = trait_present(mask, i, nt) && trait_present(mask, j, nt);
      inverse[(i - 1) + (j - 1) * nt] = both ? conditional.P(ihmij(i, j, nt)) : 0.0;
    }
}

} // namespace zeph
