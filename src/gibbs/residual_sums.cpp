#include "gibbs/residual_sums.h"

#include "gibbs/record_product.h"
#include "numerics/normal_functions.h"
#include "numerics/packed_matrix.h"

#include <cmath>

namespace zeph {

void record_residuals(scan_records& r, const run_frame& f, std::int32_t irec, bool weights) {
  const design_store& d = r.design;
  vec<double>& res = r.work.res;
  res.fill(0.0);
  for (std::int32_t j = 1; j <= d.M_M(irec); ++j)
    if (entry_active(r, irec, j, f.analysis_type))
      res(d.XD2_M(j, irec)) += r.sampler.sol(d.XD1_M(j, irec)) * d.ZD_M(j, irec);
  for (std::int32_t t = 1; t <= r.model.nt; ++t) {
    res(t) = static_cast<double>(d.Y_M(t, irec)) - res(t);
    if (weights) res(t) *= static_cast<double>(d.WV_SQRT_M(t, irec));
  }
}

void score_record(vec<double>& res, std::int32_t isit, std::int32_t nt, const double* R, scan_work& work,
                  double& lik) {
  double* p = work.PARM.data();
  for (std::int32_t i = 1; i <= nt; ++i) {
    if (!trait_present(isit, i, nt)) res(i) = 0;
    for (std::int32_t j = 1; j <= i; ++j) *p++ = R[(i - 1) + (j - 1) * nt];
  }
  for (std::int32_t i = 1; i <= nt; ++i) *p++ = res(i);
  *p = 0;
  work.LOGI.fill(0);
  for (std::int32_t t = 1; t <= nt; ++t) {
    if (!trait_present(isit, t, nt)) continue;
    const double z = work.PARM(ihmij(t, nt + 1, nt + 1)) / std::sqrt(work.PARM(ihmij(t, t, nt + 1)));
    double lower = 0, upper = 0, density = 0;
    normal_tail(z, lower, upper, density);
    lik -= std::log(density);
    double pivot = 0;
    int info = 0;
    sweep(t, work.PARM.data(), nt + 1, 1e-12, work.LOGI.data(), pivot, info);
  }
}

void Bddrmc_sscp(scan_records& r, const run_frame& f, double& lik) {
  const design_store& d = r.design;
  const std::int32_t nt = r.model.nt;
  const bool weights = r.model.has_weights(), sampled = is_sample_round(f);
  lik = 0;
  if (sampled) r.sampler.dic_rrsum.fill(0.0);
  for (std::int32_t irec = 1; irec <= d.nobs; ++irec) {
    record_residuals(r, f, irec, weights);
    const std::int32_t g = d.IRESG_M(irec);
    score_record(r.work.res, d.ISIT_M(irec), nt, r.sampler.RCOV.slice(g), r.work, lik);
    if (!sampled) continue;
    for (std::int32_t t = 1; t <= nt; ++t) {
      const double e = r.work.res(t);
      r.sampler.dic_ressum(t, irec) += e;
      r.sampler.dic_rrsum(t, g) += e * e;
      if (r.model.keeps_residuals()) r.design.ZEPH_RES(t, irec) = e;
    }
  }
}

} // namespace zeph
