#include "gibbs/liability_draws.h"

#include "gibbs/record_product.h"
#include "gibbs/residual_body.h"
#include "numerics/normal_draws.h"
#include "numerics/packed_matrix.h"

#include <algorithm>
#include <cmath>

namespace zeph {
namespace {

constexpr double far_below = -99999.0; // stands for minus infinity
constexpr float nearest = 1e-10F;      // size of a binary liability that would else change its sign

// With all traits but t swept: coefficients of the others and variance of t.
void sweep_others(scan_records& r, std::int32_t h, std::int32_t t) {
  const std::int32_t nt = r.model.nt;
  const double* R = r.sampler.RCOV.slice(h);
  double* p = r.work.PARM.data();
  for (std::int32_t i = 0; i < nt; ++i)
    for (std::int32_t j = 0; j <= i; ++j) *p++ = R[i + j * nt];
  r.work.LOGI.fill(0);
  for (std::int32_t i = 1; i <= nt; ++i) {
    if (i == t) continue;
    double pivot = 0;
    int info = 0;
    sweep(i, r.work.PARM.data(), nt, 1e-12, r.work.LOGI.data(), pivot, info);
  }
  for (std::int32_t i = 1; i <= nt; ++i) {
    const double c = r.work.PARM(ihmij(t, i, 0));
    // a row left unswept, i = t or of next to no variance, adds nothing
    r.work.conditional_coefficient(i, t, h) = r.work.LOGI(i) == 0 ? 0.0 : (t > i ? c : -c);
  }
  r.work.conditional_variance(t, h) = r.work.PARM(ihmij(t, t, 0));
}

double conditional_mean(const scan_records& r, const double* res, std::int32_t t, std::int32_t h) {
  const double* c = &r.work.conditional_coefficient(1, t, h);
  double mean = 0;
  for (std::int32_t i = 0; i < r.model.nt; ++i)
    if (i != t - 1) mean += c[i] * res[i];
  return mean;
}

double between(combined_source& source, double a, double b, double m, double v) {
  return std::clamp(GEN_TRUNC_NORMAL(source, a, b, m, v), a, b);
}

// e + x at most 0, or above 0
double one_sided(combined_source& source, bool positive, double e, double m, double v) {
  return positive ? -between(source, far_below, e, -m, v) : between(source, far_below, -e, m, v);
}

double categorical(const scan_records& r, std::int32_t t, std::int32_t category, double e, double m,
                   double v) {
  for (const category_record& c : r.categories.catstr)
    if (c.trait == t)
      return between(r.sources.combined, threshold_bound(c, category - 1) - e,
                     threshold_bound(c, category) - e, m, v);
  return m;
}

} // namespace

void prepare_conditionals(scan_records& r) {
  for (std::int32_t h = 1; h <= r.sampler.G; ++h)
    for (std::int32_t t = 1; t <= r.model.nt; ++t) sweep_others(r, h, t);
}

bool ready_residuals(scan_records& r, const directives& asked, bool fast) {
  if (!fast) return false;
  if (asked.analysis_type > 0 && r.work.fast.by_masks) return true;
  for (std::int64_t lo = 0; lo < r.design.nobs; lo += records_of_block)
    fresh_residuals(r, asked, lo, std::min(lo + records_of_block, std::int64_t{r.design.nobs}));
  return true;
}

void take_record(scan_records& r, const directives& asked, std::int32_t irec, bool ready) {
  const design_store& d = r.design;
  vec<double>&res = r.work.res, &fitted = r.work.fitted;
  if (!ready) {
    fitted.fill(0.0);
    for (std::int32_t j = 1; j <= d.M_M(irec); ++j)
      if (entry_active(r, irec, j, asked.analysis_type))
        fitted(d.XD2_M(j, irec)) += r.sampler.sol(d.XD1_M(j, irec)) * d.ZD_M(j, irec);
  }
  for (std::int32_t t = 1; t <= r.model.nt; ++t) {
    const double y = static_cast<double>(d.Y_M(t, irec));
    if (ready) {
      res(t) = r.work.fast.E(irec, t);
      fitted(t) = y - res(t);
    } else {
      res(t) = y - fitted(t);
    }
    if (asked.analysis_type <= 0 && !trait_present(d.ISIT_M(irec), t, r.model.nt)) res(t) = fitted(t) = 0.0;
    if (r.work.weighted) res(t) *= static_cast<double>(d.WV_SQRT_M(t, irec));
  }
}

void liab_sample(scan_records& r, double* res, const liability_record& x) {
  combined_source& source = r.sources.combined;
  for (std::int32_t t = 1; t <= r.model.nt; ++t) {
    const std::int32_t type = r.model.MODEL(t).TRAIT_TYPE;
    const bool observed = trait_present(x.isit, t, r.model.nt), pos = x.pos[t - 1] != 0;
    const bool drawn = type == trait_censored
                           ? pos
                           : observed && (type == trait_categorical || type == trait_liability ||
                                          type == trait_sequence || type == trait_cured);
    if (!drawn || (x.censored_only && type != trait_censored)) continue;
    const double m = conditional_mean(r, res, t, x.h), v = r.work.conditional_variance(t, x.h);
    const double e = x.mean[t - 1];
    if (type == trait_censored)
      res[t - 1] = between(source, static_cast<double>(x.low[t - 1]) - e,
                           static_cast<double>(x.high[t - 1]) - e, m, v);
    else if (type == trait_categorical)
      res[t - 1] = categorical(r, t, x.cat[t - 1], e, m, v);
    else if (type == trait_sequence && x.cured[t - 1] == 0)
      res[t - 1] = normal_draw(source, m, v);
    else
      res[t - 1] = one_sided(source, pos, e, m, v);
  }
}

float stored_liability(double mean, double res, bool positive) {
  const float y = static_cast<float>(mean + res);
  if (positive) return y > 0.0F ? y : nearest;
  return y < 0.0F ? y : -nearest;
}

void store_liability(scan_records& r, std::int32_t irec, std::int32_t t, float y, bool ready) {
  if (ready) r.work.fast.E(irec, t) = static_cast<double>(y) - r.work.fitted(t);
  r.design.Y_M(t, irec) = y;
}

} // namespace zeph
