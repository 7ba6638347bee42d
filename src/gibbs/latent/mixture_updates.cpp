#include "gibbs/latent/mixture_updates.h"

#include "formats/free_format.h"
#include "gibbs/latent/liability_draws.h"
#include "gibbs/latent/mixing_proportions.h"
#include "gibbs/scan/record_pass.h"
#include "gibbs/scan/record_product.h"
#include "gibbs/scan/scan_records.h"
#include "listing/listing_rows.h"
#include "numerics/normal_draws.h"
#include "numerics/normal_functions.h"

#include <algorithm>
#include <cmath>

namespace zeph {
namespace {

constexpr double coefficient_on = static_cast<double>(1e-5F); // below: the mixture coefficient is off
constexpr double lowest = -9999999.0;       // kept: minus infinity of a mixture liability is this number
constexpr double lowest_bound = -9999990.0; // kept: minus the fitted value is held above `lowest`

bool prints(const directives& asked, const round_state& state, std::int32_t irec) {
  return asked.test_level > 0 && irec < 11 && state.iround < 4;
}

// e' Q e, Q nt x nt
double quadratic_form(const double* Q, const double* e, std::int32_t nt) {
  double sum = 0;
  for (std::int32_t i = 0; i < nt; ++i)
    for (std::int32_t j = 0; j < nt; ++j) sum += e[i] * Q[i + j * nt] * e[j];
  return sum;
}

// Residuals as if the record were in component 1 (e1) and in 0 (e0): a coefficient that is off
// takes its solution s out of e1, one that is on gives it back to e0.
void split_residuals(const equation_layout& layout, const design_store& design, const sampler_store& sampler,
                     const record_values& values, mixture_work& mixture, const directives& asked,
                     std::int32_t irec) {
  // e = y - x0'b0 - z s with z the present indicator: e1 = e - (1 - z) s, e0 = e + z s
  std::copy(values.res.begin(), values.res.end(), mixture.e1.begin());
  std::copy(values.res.begin(), values.res.end(), mixture.e0.begin());
  for (std::int32_t j = 1; j <= design.M_M(irec); ++j) {
    if (design.XD6_M(j, irec) <= 0 || !entry_active(design, layout, irec, j, asked.analysis_type)) continue;
    const double s = sampler.sol(design.XD1_M(j, irec));
    const std::int32_t u = design.XD2_M(j, irec);
    if (design.ZD_M(j, irec) < coefficient_on)
      mixture.e1(u) -= s;
    else
      mixture.e0(u) += s;
  }
}

// Mixture coefficients of indicator t in record irec.
void switch_coefficients(const equation_layout& layout, design_store& design, const sampler_store& sampler,
                         record_values& values, mixture_work& mixture, const directives& asked,
                         std::int32_t irec, std::int32_t t, bool on) {
  const record_entries entries = entries_of(design, layout, sampler, asked.analysis_type);
  for (std::int32_t j = 1; j <= design.M_M(irec); ++j) {
    if (design.XD6_M(j, irec) != t) continue;
    store_coefficient(design, entries, values, irec, j, on ? 1.0 : 0.0);
    if (design.XD2_M(j, irec) > 0) mixture.l_mix_z(design.XD2_M(j, irec)) = on;
  }
}

// tau = P(component 1 | residuals) and the uniform a1 that it is compared with: p1 and p0 are the normal
// densities of e1 under R1 and of e0 under R0, up to (2 pi)^-nt/2, times the prior Phi and Q = 1 - Phi.
// kept: p1 + p0 = 0 at a far outlier gives no number, and a1 <= tau is false
double draw_tau(scan_records& r, const directives& asked, const round_state& state, std::int32_t irec,
                std::int32_t t, double& a1) {
  const std::int32_t nt = r.model.nt, first = r.model.nramat + 1;
  // one residual group: both components share R1; two: component 1 has group 2
  const std::int32_t second = r.sampler.G < 2 ? 1 : 2;
  double Phi = 0, Q = 0, density = 0;
  normal_tail(r.work.values.fitted(t), Phi, Q, density);
  const double p1 =
      std::exp(-0.5 * quadratic_form(r.sampler.RCOVI.unchecked_slice(second), r.work.mixture.e1.data(), nt)) *
      r.sampler.IDET_RVAR(first + second - 1) * Phi;
  const double p0 =
      std::exp(-0.5 * quadratic_form(r.sampler.RCOVI.unchecked_slice(1), r.work.mixture.e0.data(), nt)) *
      r.sampler.IDET_RVAR(first) * Q;
  const double tau = p1 / (p1 + p0);
  if (takes_sample(asked, state)) {
    tau_sums& sums = r.mixtures.TAU_STAT[static_cast<std::size_t>(t - 1)];
    sums.SUM(irec) += tau;
    sums.SS(irec) += tau * tau;
  }
  // one uniform a record and trait, drawn even where tau is 0, 1 or no number
  a1 = uniform_range(r.sources.combined);
  if (prints(asked, state, irec)) say(r.report, free_row().text("tau,a1: ").r8(tau).r8(a1).str());
  return tau;
}

void update_indicator(scan_records& r, const directives& asked, const round_state& state, std::int32_t irec,
                      std::int32_t t) {
  double a1 = 0;
  const double tau = draw_tau(r, asked, state, irec, t, a1);
  const bool on = a1 <= tau;
  r.work.mixture.z(t) = on;
  switch_coefficients(r.layout, r.design, r.sampler, r.work.values, r.work.mixture, asked, irec, t, on);
  if (prints(asked, state, irec)) {
    free_row row;
    row.text("l_mix_z: ");
    for (const logical flag : r.work.mixture.l_mix_z) row.l(flag != 0);
    say(r.report, row.str());
  }
  // kept: the liabilities of all traits of kind 5 are drawn after each indicator, those with z of before too
  liab_sample_mix(r.model, r.sampler, r.work.mixture, r.sources.combined, r.work.values.res.data(),
                  r.work.values.fitted.data(), r.work.mixture.z.data(), r.design.ISIT_M(irec),
                  r.design.IRESG_M(irec));
  store_observation(r.design, r.work.values, irec, t, static_cast<float>(r.work.values.res(t)));
}

void print_mixture_record(const model_records& model, const design_store& design,
                          const sampler_store& sampler, residual_inverses& inverses,
                          const record_values& values, reporting& report, const directives& asked,
                          const round_state& state, std::int32_t irec) {
  if (asked.test_level <= 1 || state.iround >= 4 || irec >= 11) return;
  make_riff(model, design, sampler, inverses, irec, asked.analysis_type, values.weighted);
  BDDRMC_XD_PRINT(model, design, sampler, inverses, report, "BDDRMC_MIX", irec, 6);
  if (irec < 4) say(report, "Computing residuals for liabilities");
}

// One record: its residuals in either component, then for each indicator in trait order the indicator,
// its mixture coefficients and its liability. With two residual groups the last indicator chooses the
// record's group.
void mix_record(scan_records& r, const directives& asked, const round_state& state, std::int32_t irec) {
  const std::int32_t nt = r.model.nt;
  print_mixture_record(r.model, r.design, r.sampler, r.work.inverses, r.work.values, r.report, asked, state,
                       irec);
  take_record(entries_of(r, asked.analysis_type), r.work.values, irec);
  split_residuals(r.layout, r.design, r.sampler, r.work.values, r.work.mixture, asked, irec);
  r.work.mixture.l_mix_z.fill(0);
  r.work.mixture.z.fill(0);
  std::int32_t last = 0;
  for (std::int32_t t = 1; t <= nt; ++t) {
    if (r.model.MODEL(t).TRAIT_TYPE != trait_mixture) continue;
    update_indicator(r, asked, state, irec, t);
    last = t;
  }
  if (r.sampler.G > 1 && last > 0) {
    r.design.IRESG_M(irec) = r.work.mixture.z(last) != 0 ? 2 : 1;
    ++r.model.residual().HETG_N_OBS(r.model.hetgr_index(r.design.IRESG_M(irec)));
  }
  for (std::int32_t t = 1; t <= nt; ++t)
    if (r.model.MODEL(t).L_MIX_TRAIT && trait_present(r.design.ISIT_M(irec), t, nt) &&
        r.work.mixture.l_mix_z(t) != 0)
      count_member(r.mixtures, asked, state, irec, t);
}

// x ~ N(m,v) with mean + x above 0 (on) or at most 0; the bound is held above `lowest`, so that the
// interval is never empty
double mixture_liability(combined_source& source, bool on, double mean, double m, double v) {
  const double a = std::max(-mean, lowest_bound);
  if (on) return -std::clamp(GEN_TRUNC_NORMAL(source, lowest, -a, -m, v), lowest, -a);
  return std::clamp(GEN_TRUNC_NORMAL(source, lowest, a, m, v), lowest, a);
}

} // namespace

void allocate_mixture_work(const model_records& m, mixture_work& work, reporting& report) {
  constexpr std::string_view routine = "bddrmc_mix";
  allocate_conditional(report, work.given, m.nt, routine);
  allocate(report, work.z, "z", routine, m.nt);
  allocate(report, work.l_mix_z, "l_mix_z", routine, m.nt);
  allocate(report, work.e1, "e1", routine, m.nt);
  allocate(report, work.e0, "e0", routine, m.nt);
}

void bddrmc_mix(scan_records& r, const directives& asked, const round_state& state) {
  if (asked.test_level > 1 && state.iround < 4)
    say(r.report, free_row().text("bddrmc_mix - round:").i(state.iround).str());
  if (r.sampler.G > 1) r.model.residual().HETG_N_OBS.fill(0);
  r.mixtures.MIXZ_LAST.fill(0);
  r.mixtures.mix_pi.fill(0.0);
  for (std::int32_t irec = 1; irec <= r.design.nobs; ++irec) mix_record(r, asked, state, irec);
  for (std::int32_t t = 1; t <= r.model.nt; ++t)
    if (r.model.MODEL(t).L_MIX_TRAIT) divide_by_observations(r.model, r.design, r.mixtures, t);
  if (asked.test_level <= 0) return;
  free_row row;
  row.text("Round,mix_pi: ").i(state.iround);
  for (const double share : r.mixtures.mix_pi) row.r8(share);
  say(r.report, row.str());
}

void liab_sample_mix(const model_records& model, const sampler_store& sampler, mixture_work& mixture,
                     combined_source& source, double* res, const double* mean, const logical* z,
                     std::int32_t isit, std::int32_t h) {
  const std::int32_t nt = model.nt;
  residual_conditional& given = mixture.given;
  const auto listed = [&](std::int32_t t) {
    return model.MODEL(t).TRAIT_TYPE == trait_mixture && trait_present(isit, t, nt);
  };
  std::int32_t mask = isit; // traits whose residuals are known
  for (std::int32_t t = 1; t <= nt; ++t)
    if (listed(t)) mask &= ~trait_bit(t, nt);
  for (std::int32_t t = 1; t <= nt; ++t) {
    if (!listed(t)) continue;
    // P(nt+1,t) of an unswept row with border 0 is minus the mean of e_t given the traits of the mask
    set_matrix(given, sampler.RCOV.unchecked_slice(h));
    set_border(given, res, mask);
    sweep_mask(given, mask);
    const double m = mean_given(given, t), v = covariance_given(given, t, t);
    res[t - 1] = mixture_liability(source, z[t - 1] != 0, mean[t - 1], m, v);
    mask |= trait_bit(t, nt); // drawn: known to the traits after it
  }
  for (std::int32_t t = 1; t <= nt; ++t)
    if (listed(t)) res[t - 1] += mean[t - 1];
}

} // namespace zeph
