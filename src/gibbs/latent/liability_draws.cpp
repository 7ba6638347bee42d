#include "gibbs/latent/liability_draws.h"

#include "gibbs/scan/scan_records.h"
#include "numerics/normal_draws.h"

#include <algorithm>
#include <cmath>

namespace zeph {
namespace {

// kept: minus infinity of a binary liability is this number; a fitted value beyond it stops the draw
constexpr double far_below = -99999.0;
constexpr float nearest = 1e-10F; // size of a binary liability that would otherwise change its sign

// Coefficients of the other traits in the mean of t, and its variance given them.
void sweep_others(const model_records& model, const sampler_store& sampler, latent_work& latent,
                  std::int32_t h, std::int32_t t) {
  residual_conditional& given = latent.given;
  const std::int32_t nt = model.nt;
  // swept on all traits but t: row t holds its coefficients on the others, its diagonal its variance
  set_matrix(given, sampler.RCOV.unchecked_slice(h));
  sweep_mask(given, all_traits(nt) & ~trait_bit(t, nt));
  for (std::int32_t i = 1; i <= nt; ++i)
    latent.coefficient(i, t, h) = i == t ? 0.0 : coefficient_given(given, t, i);
  latent.variance(t, h) = covariance_given(given, t, t);
}

// m = sum over i other than t of coefficient(i,t,h) e_i
double conditional_mean(const model_records& model, const latent_work& latent, const double* res,
                        std::int32_t t, std::int32_t h) {
  const double* c = &latent.coefficient(1, t, h);
  double mean = 0;
  for (std::int32_t i = 0; i < model.nt; ++i)
    if (i != t - 1) mean += c[i] * res[i];
  return mean;
}

// x ~ N(m,v) between a and b; rounding of the inverse distribution function may leave the interval
double between(combined_source& source, double a, double b, double m, double v) {
  return std::clamp(GEN_TRUNC_NORMAL(source, a, b, m, v), a, b);
}

// e + x at most 0, or above 0; the upper tail is minus the lower tail of N(-m,v)
double one_sided(combined_source& source, bool positive, double e, double m, double v) {
  return positive ? -between(source, far_below, e, -m, v) : between(source, far_below, -e, m, v);
}

// thr(k-1) < e + x <= thr(k), k the category
double categorical(const category_store& categories, combined_source& source, std::int32_t t,
                   std::int32_t category, double e, double m, double v) {
  for (const category_record& c : categories.catstr)
    if (c.trait == t)
      return between(source, threshold_bound(c, category - 1) - e, threshold_bound(c, category) - e, m, v);
  return m;
}

} // namespace

void allocate_latent_work(const model_records& m, latent_work& work, reporting& report) {
  constexpr std::string_view routine = "liab_sample";
  const std::int32_t groups = m.n_groups_residual();
  allocate_conditional(report, work.given, m.nt, routine);
  allocate(report, work.coefficient, "coefficient", routine, m.nt, m.nt, groups);
  allocate(report, work.variance, "variance", routine, m.nt, groups);
  allocate(report, work.pos, "pos", routine, m.nt);
  allocate(report, work.cured, "cured", routine, m.nt);
  allocate(report, work.category, "category", routine, m.nt);
}

void prepare_conditionals(const model_records& model, const sampler_store& sampler, latent_work& latent) {
  for (std::int32_t h = 1; h <= sampler.G; ++h)
    for (std::int32_t t = 1; t <= model.nt; ++t) sweep_others(model, sampler, latent, h, t);
}

void liab_sample(const model_records& model, const category_store& categories, const latent_work& latent,
                 combined_source& source, double* res, const liability_record& x) {
  for (std::int32_t t = 1; t <= model.nt; ++t) {
    const std::int32_t type = model.MODEL(t).TRAIT_TYPE;
    const bool observed = trait_present(x.isit, t, model.nt), pos = x.pos[t - 1] != 0;
    // m, v: mean and variance of e_t given the other residuals, those drawn before t with their new values
    const bool drawn = type == trait_censored
                           ? pos
                           : observed && (type == trait_categorical || type == trait_liability ||
                                          type == trait_sequence || type == trait_cured);
    if (!drawn || (x.censored_only && type != trait_censored)) continue;
    const double m = conditional_mean(model, latent, res, t, x.h), v = latent.variance(t, x.h);
    const double e = x.mean[t - 1];
    // truncated so that y = e_fit + e_t stays in the interval of the observation; e below is the fitted value
    if (type == trait_censored)
      res[t - 1] = between(source, static_cast<double>(x.low[t - 1]) - e,
                           static_cast<double>(x.high[t - 1]) - e, m, v);
    else if (type == trait_categorical)
      res[t - 1] = categorical(categories, source, t, x.cat[t - 1], e, m, v);
    else if (type == trait_sequence && x.cured[t - 1] == 0)
      res[t - 1] = normal_draw(source, m, v);
    else
      res[t - 1] = one_sided(source, pos, e, m, v);
  }
}

float stored_liability(double mean, double res, bool positive) {
  // rounding to 32 bits may end at 0 or beyond: then the nearest number that keeps the sign
  const float y = static_cast<float>(mean + res);
  if (positive) return y > 0.0F ? y : nearest;
  return y < 0.0F ? y : -nearest;
}

} // namespace zeph
