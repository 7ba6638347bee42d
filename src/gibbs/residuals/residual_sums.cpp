#include "gibbs/residuals/residual_sums.h"

#include "gibbs/scan/scan_records.h"
#include "numerics/column_view.h"
#include "numerics/normal_functions.h"
#include "numerics/packed_matrix.h"

#include <cmath>

namespace zeph {

namespace {

// res(missing) = -X, X ~ N(m, V): m the border of the missing traits, minus their means given the
// observed ones, V their covariance.
void draw_missing(missing_draws& draws, marsaglia_source& marsaglia, reporting& report, vec<double>& res,
                  const std::int32_t* missing, std::int32_t m) {
  const residual_conditional& given = draws.given;
  for (std::int32_t i = 0; i < m; ++i) {
    draws.mean(i + 1) = -mean_given(given, missing[i]);
    for (std::int32_t j = 0; j < m; ++j)
      draws.covariance(1 + i + j * m) = covariance_given(given, missing[i], missing[j]);
  }
  ranmar_setgmn(report, draws.mean.data(), draws.covariance.data(), m, m, draws.setup.data(), draws.draw);
  ranmar_genmn(marsaglia, draws.setup.data(), draws.x.data(), draws.z.data());
  for (std::int32_t i = 0; i < m; ++i) res(missing[i]) = -draws.x(i + 1);
}

void add_products(const model_records& model, sampler_store& sampler, const record_values& values,
                  std::int32_t g, bool all_pairs) {
  const vec<double>& res = values.res;
  const std::int32_t nt = model.nt;
  // sscp(k,nramat+g) += e_i e_j, k = ihmij(i,j), missing traits with the value imputed last
  const auto sums = col_of(sampler.sscp, model.nramat + g);
  for (std::int32_t i = 1, k = 1; i <= nt; ++i)
    for (std::int32_t j = 1; j <= i; ++j, ++k)
      if (all_pairs || !sampler.LNCOV(k)) sums(k) += res(i) * res(j);
}

// Y_M = the imputed residual itself, without the fitted value: the equations of the next round read it so.
void store_missing(design_store& d, std::int32_t irec, std::int32_t nt, const vec<double>& res) {
  for (std::int32_t t = 1; t <= nt; ++t)
    if (!trait_present(d.ISIT_M(irec), t, nt)) d.Y_M(t, irec) = static_cast<float>(res(t));
}

// All traits observed.
bool complete(std::int32_t isit, std::int32_t nt) {
  for (std::int32_t t = 1; t <= nt; ++t)
    if (!trait_present(isit, t, nt)) return false;
  return true;
}

} // namespace

void allocate_missing_draws(const model_records& m, missing_draws& work, reporting& report) {
  constexpr std::string_view routine = "Bddrmc_sscp";
  allocate_conditional(report, work.given, m.nt, routine);
  // kept: IW1 has room for the traits present, which nothing reads
  allocate(report, work.IW1, "IW1", routine, m.nt);
  allocate(report, work.traits, "IW2", routine, m.nt);
  allocate(report, work.mean, "MEAN", routine, m.nt);
  allocate(report, work.x, "X", routine, m.nt);
  allocate(report, work.z, "WORK", routine, m.nt);
  allocate(report, work.covariance, "COV", routine, std::int64_t{m.nt} * m.nt);
  allocate(report, work.setup, "PARM", routine, gmn_size(m.nt));
  fit_matrix_work(report, work.draw, m.nt);
}

void score_record(residual_conditional& conditional, const vec<double>& res, std::int32_t isit,
                  const double* R, double& lik) {
  set_matrix(conditional, R);
  set_border(conditional, res.data(), isit);
  // p(e_o) factor by factor: z_t given the observed traits before t, then t is swept for those after it.
  // kept: lik lacks the sum of log s.d.; a density of 0 in 64 bits makes it infinite
  for (std::int32_t t = 1; t <= conditional.nt; ++t) {
    if (!trait_present(isit, t, conditional.nt)) continue;
    // z = (e_t - mean) / s.d., both given the observed traits before t
    const double z = -mean_given(conditional, t) / std::sqrt(covariance_given(conditional, t, t));
    double lower = 0, upper = 0, density = 0;
    normal_tail(z, lower, upper, density);
    lik -= std::log(density);
    sweep_trait(conditional, t);
  }
}

void sample_missing(const model_records& model, missing_draws& draws, marsaglia_source& marsaglia,
                    reporting& report, vec<double>& res, std::int32_t isit, const double* R, double& lik) {
  score_record(draws.given, res, isit, R, lik);
  std::int32_t m = 0;
  for (std::int32_t t = 1; t <= model.nt; ++t)
    if (!trait_present(isit, t, model.nt)) draws.traits(++m) = t;
  if (m > 0) draw_missing(draws, marsaglia, report, res, draws.traits.data(), m);
}

void start_missing_traits(scan_records& r) {
  design_store& d = r.design;
  const std::int32_t nt = r.model.nt;
  double lik = 0;
  for (std::int32_t irec = 1; irec <= d.nobs; ++irec) {
    // e = 0 in all traits: the missing ones are drawn around 0; lik is not used
    if (complete(d.ISIT_M(irec), nt)) continue;
    r.work.values.res.fill(0.0);
    sample_missing(r.model, r.work.missing, r.sources.marsaglia, r.report, r.work.values.res, d.ISIT_M(irec),
                   r.sampler.RCOV.unchecked_slice(d.IRESG_M(irec)), lik);
    store_missing(d, irec, nt, r.work.values.res);
  }
}

void Bddrmc_sscp(scan_records& r, const directives& asked, const round_state& state, double& lik) {
  design_store& d = r.design;
  const std::int32_t nt = r.model.nt;
  const bool sampled = is_sample_round(asked, state);
  lik = 0;
  if (sampled) r.sampler.dic_rrsum.fill(0.0);
  const record_entries entries = entries_of(r, asked.analysis_type);
  values_from_entries(r.work.values);
  for (std::int32_t irec = 1; irec <= d.nobs; ++irec) {
    take_record(entries, r.work.values, irec);
    const std::int32_t g = d.IRESG_M(irec);
    const bool exact = asked.sampler.exact; // sums of the residuals that the next round has
    if (samples_solutions(asked.analysis_type) && !exact)
      add_products(r.model, r.sampler, r.work.values, g, false);
    sample_missing(r.model, r.work.missing, r.sources.marsaglia, r.report, r.work.values.res, d.ISIT_M(irec),
                   r.sampler.RCOV.unchecked_slice(g), lik);
    store_missing(d, irec, nt, r.work.values.res);
    if (samples_solutions(asked.analysis_type) && exact)
      add_products(r.model, r.sampler, r.work.values, g, true);
    if (!sampled) continue;
    for (std::int32_t t = 1; t <= nt; ++t) {
      const double e = r.work.values.res(t);
      r.sampler.dic_ressum(t, irec) += e;
      r.sampler.dic_rrsum(t, g) += e * e;
      if (r.model.keeps_residuals()) r.design.ZEPH_RES(t, irec) = e;
    }
  }
}

} // namespace zeph
