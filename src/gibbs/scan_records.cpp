#include "gibbs/scan_records.h"

#include <algorithm>

namespace zeph {
namespace {

// Largest number of equations of a level over the groups.
std::int32_t largest_block(const equation_layout& layout) {
  std::int32_t n = 0;
  for (std::int32_t g = 1; g <= layout.ngroups; ++g) n = std::max(n, layout.NGR(g, 2));
  return n;
}

std::int32_t largest_order(const model_records& m) {
  std::int32_t n = 0;
  for (std::int32_t k = 1; k <= m.nramat + 1; ++k) n = std::max(n, m.RMAT(k).n_rc);
  return n;
}

// HETGR_RIIF with the matrix as the fastest axes, since a record needs one
// matrix at a time. Groups that the file does not hold take its last one.
void store_pattern_inverses(const model_records& m, scan_work& work, reporting& report) {
  const structure_record& residual = m.residual();
  const std::int32_t nt = m.nt, groups = m.n_groups_residual();
  allocate(report, work.pattern_inverse, "riff", "GIBSCAN", nt, nt, range(0, residual.n_pat), groups);
  for (std::int32_t g = 1; g <= groups; ++g)
    for (std::int32_t p = 0; p <= residual.n_pat; ++p)
      for (std::int32_t j = 1; j <= nt; ++j)
        for (std::int32_t i = 1; i <= nt; ++i)
          work.pattern_inverse(i, j, p, g) = residual.HETGR_RIIF(m.hetgr_index(g), p, i, j);
}

} // namespace

void allocate_scan_work(const model_records& m, const equation_layout& layout, scan_work& work,
                        reporting& report) {
  work.nmax = largest_block(layout);
  const std::int64_t order = std::max(work.nmax, m.nt) + 1;
  allocate(report, work.IW2, "IW2", "ZEPH1", m.nt);
  allocate_conditional(report, work.conditional, m.nt, "ZEPH2");
  allocate_record_values(m, work.values, report);
  allocate(report, work.PARM, "PARM", "ZEPH2", order * (order + 1) / 2);
  allocate(report, work.LOGI, "LOGI", "ZEPH2", order);
  allocate(report, work.PARMS, "PARMS", "GIBSCAN", std::int64_t{work.nmax} * (work.nmax + 3) / 2 + 1);
  allocate(report, work.link_sums, "IPARM", "GIBSCAN", work.nmax);
  allocate(report, work.riff, "riff", "QVAgib_ALLOC", m.nt, m.nt);
  allocate(report, work.pos, "pos", "liab_sample", m.nt);
  allocate(report, work.cured, "cured", "liab_sample", m.nt);
  allocate(report, work.category, "category", "liab_sample", m.nt);
  allocate(report, work.z, "z", "bddrmc_mix", m.nt);
  allocate(report, work.l_mix_z, "l_mix_z", "bddrmc_mix", m.nt);
  allocate(report, work.e1, "e1", "bddrmc_mix", m.nt);
  allocate(report, work.e0, "e0", "bddrmc_mix", m.nt);
  work.distances = mixture_distances(m);
  allocate(report, work.conditional_coefficient, "coefficient", "liab_sample", m.nt, m.nt,
           m.n_groups_residual());
  allocate(report, work.conditional_variance, "variance", "liab_sample", m.nt, m.n_groups_residual());
  allocate(report, work.CMAT, "CMAT", "GIBSCAN", std::int64_t{work.nmax} * work.nmax);
  allocate(report, work.MEAN, "MEAN", "ZEPH2", order);
  allocate(report, work.WORK, "WORK", "ZEPH2", order);
  allocate(report, work.W, "W", "GIBSCAN", order);
  allocate(report, work.COV, "COV", "Bddrmc_sscp", std::int64_t{m.nt} * m.nt);
  allocate(report, work.X, "X", "ZEPH2", order);
  allocate(report, work.GMN, "PARM", "Bddrmc_sscp", gmn_size(m.nt));
  fit_matrix_work(report, work.matrix_work, std::max({m.nt, work.nmax, largest_order(m)}));
  store_pattern_inverses(m, work, report);
}

} // namespace zeph
