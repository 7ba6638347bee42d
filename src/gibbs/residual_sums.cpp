#include "gibbs/residual_sums.h"

#include "gibbs/record_product.h"
#include "numerics/normal_functions.h"
#include "numerics/packed_matrix.h"

#include <cmath>

namespace zeph {

void record_residuals(scan_records& r, const directives& asked, std::int32_t irec, bool weights) {
  const design_store& d = r.design;
  vec<double>& res = r.work.res;
  res.fill(0.0);
  for (std::int32_t j = 1; j <= d.M_M(irec); ++j)
    if (entry_active(r, irec, j, asked.analysis_type))
      res(d.XD2_M(j, irec)) += r.sampler.sol(d.XD1_M(j, irec)) * d.ZD_M(j, irec);
  for (std::int32_t t = 1; t <= r.model.nt; ++t) {
    res(t) = static_cast<double>(d.Y_M(t, irec)) - res(t);
    if (weights) res(t) *= static_cast<double>(d.WV_SQRT_M(t, irec));
  }
}

namespace {

// PARM = R bordered by res, last element 0; rows unswept. res(t) of missing traits 0.
void border_record(scan_work& work, vec<double>& res, std::int32_t isit, std::int32_t nt, const double* R) {
  double* p = work.PARM.data();
  for (std::int32_t i = 1; i <= nt; ++i) {
    if (!trait_present(isit, i, nt)) res(i) = 0;
    for (std::int32_t j = 1; j <= i; ++j) *p++ = R[(i - 1) + (j - 1) * nt];
  }
  for (std::int32_t i = 1; i <= nt; ++i) *p++ = res(i);
  *p = 0;
  for (std::int32_t i = 1; i <= nt + 1; ++i) work.LOGI(i) = 0;
}

// With the observed traits swept, P(t,nt+1) is minus the conditional mean of a
// missing trait t and P(t,t') the conditional covariance: res = -X, X ~ N(P, P).
void draw_missing(scan_records& r, vec<double>& res, const std::int32_t* missing, std::int32_t m) {
  scan_work& work = r.work;
  const std::int32_t nt = r.model.nt;
  for (std::int32_t i = 0; i < m; ++i) {
    work.MEAN(i + 1) = work.PARM(ihmij(missing[i], nt + 1, 0));
    for (std::int32_t j = 0; j < m; ++j)
      work.COV(1 + i + j * m) = work.PARM(ihmij(missing[i], missing[j], 0));
  }
  ranmar_setgmn(r.report, work.MEAN.data(), work.COV.data(), m, m, work.GMN.data(), work.matrix_work);
  ranmar_genmn(r.sources.marsaglia, work.GMN.data(), work.X.data(), work.WORK.data());
  for (std::int32_t i = 0; i < m; ++i) res(missing[i]) = -work.X(i + 1);
}

void add_products(scan_records& r, std::int32_t g) {
  const vec<double>& res = r.work.res;
  const std::int32_t nt = r.model.nt;
  double* sums = r.sampler.sscp.col(r.model.nramat + g);
  for (std::int32_t i = 1, k = 1; i <= nt; ++i)
    for (std::int32_t j = 1; j <= i; ++j, ++k)
      if (!r.sampler.LNCOV(k)) sums[k - 1] += res(i) * res(j);
}

void store_missing(design_store& d, std::int32_t irec, std::int32_t nt, const vec<double>& res) {
  for (std::int32_t t = 1; t <= nt; ++t)
    if (!trait_present(d.ISIT_M(irec), t, nt)) d.Y_M(t, irec) = static_cast<float>(res(t));
}

bool complete(std::int32_t isit, std::int32_t nt) {
  for (std::int32_t t = 1; t <= nt; ++t)
    if (!trait_present(isit, t, nt)) return false;
  return true;
}

} // namespace

void score_record(scan_records& r, vec<double>& res, std::int32_t isit, const double* R, double& lik) {
  scan_work& work = r.work;
  const std::int32_t nt = r.model.nt;
  border_record(work, res, isit, nt, R);
  for (std::int32_t t = 1; t <= nt; ++t) {
    if (!trait_present(isit, t, nt)) continue;
    const double z = work.PARM(ihmij(t, nt + 1, 0)) / std::sqrt(work.PARM(ihmij(t, t, 0)));
    double lower = 0, upper = 0, density = 0;
    normal_tail(z, lower, upper, density);
    lik -= std::log(density);
    double pivot = 0;
    int info = 0;
    sweep(t, work.PARM.data(), nt + 1, 1e-12, work.LOGI.data(), pivot, info);
  }
}

void sample_missing(scan_records& r, vec<double>& res, std::int32_t isit, const double* R, double& lik) {
  scan_work& work = r.work;
  score_record(r, res, isit, R, lik);
  std::int32_t m = 0;
  for (std::int32_t t = 1; t <= r.model.nt; ++t)
    if (!trait_present(isit, t, r.model.nt)) work.IW2(++m) = t;
  if (m > 0) draw_missing(r, res, work.IW2.data(), m);
}

void start_missing_traits(scan_records& r) {
  design_store& d = r.design;
  const std::int32_t nt = r.model.nt;
  double lik = 0;
  for (std::int32_t irec = 1; irec <= d.nobs; ++irec) {
    if (complete(d.ISIT_M(irec), nt)) continue;
    r.work.res.fill(0.0);
    sample_missing(r, r.work.res, d.ISIT_M(irec), r.sampler.RCOV.slice(d.IRESG_M(irec)), lik);
    store_missing(d, irec, nt, r.work.res);
  }
}

void Bddrmc_sscp(scan_records& r, const directives& asked, const round_state& state, double& lik) {
  design_store& d = r.design;
  const std::int32_t nt = r.model.nt;
  const bool weights = r.model.has_weights(), sampled = is_sample_round(asked, state);
  lik = 0;
  if (sampled) r.sampler.dic_rrsum.fill(0.0);
  for (std::int32_t irec = 1; irec <= d.nobs; ++irec) {
    record_residuals(r, asked, irec, weights);
    const std::int32_t g = d.IRESG_M(irec);
    if (asked.analysis_type > 1) add_products(r, g);
    sample_missing(r, r.work.res, d.ISIT_M(irec), r.sampler.RCOV.slice(g), lik);
    store_missing(d, irec, nt, r.work.res);
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
