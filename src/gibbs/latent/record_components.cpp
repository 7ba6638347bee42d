#include "gibbs/latent/record_components.h"

#include "gibbs/latent/latent_sweep.h"
#include "gibbs/latent/mixing_proportions.h"
#include "gibbs/scan/scan_records.h"
#include "numerics/truncated_normals.h"

#include <cmath>
#include <limits>

namespace zeph {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

// One component of a record as indicator t sees it.
struct component_side {
  std::int32_t h = 1;  // residual group
  double m = 0, v = 1; // mean and variance of e_t given the other residuals
  double log_p = 0;    // up to what both components share
};

double root_weight(const record_values& values, const design_store& d, std::int32_t t, std::int32_t irec) {
  return values.weighted ? static_cast<double>(d.WV_SQRT_M(t, irec)) : 1.0;
}

// e: residuals in component c. With q = e'R^-1 e, e_t = 0 in it,
//   log N(e'; 0, R without t) = -(q - m^2/v)/2 - log|R|/2 + log(v)/2 - ..
component_side side_of(const scan_records& r, const double* e, std::int32_t irec, std::int32_t t, int c,
                       std::int32_t h) {
  const std::int32_t nt = r.model.nt;
  component_side x;
  x.h = h;
  x.m = mean_of_residual(r.work.latent, e, nt, t, h);
  x.v = r.work.latent.variance(t, h);
  const double* Q = r.sampler.RCOVI.unchecked_slice(h);
  double q = 0;
  for (std::int32_t i = 0; i < nt; ++i)
    for (std::int32_t j = 0; j < nt; ++j)
      if (i != t - 1 && j != t - 1) q += e[i] * Q[i + j * nt] * e[j];
  const double z =
      (root_weight(r.work.values, r.design, t, irec) * r.work.values.fitted(t) + x.m) / std::sqrt(x.v);
  x.log_p = -0.5 * (q - x.m * x.m / x.v) + r.work.sweep.log_root(h) + 0.5 * std::log(x.v) +
            log_normal_lower(c == 1 ? z : -z);
  return x;
}

// other = residuals of record irec if indicator t had the other component
void other_residuals(const scan_records& r, const record_entries& entries, std::int32_t irec, std::int32_t t,
                     bool on, vec<double>& other) {
  const record_values& values = r.work.values;
  const design_store& d = r.design;
  std::copy(values.res.begin(), values.res.end(), other.begin());
  for (std::int32_t j = 1; j <= d.M_M(irec); ++j) {
    if (d.XD6_M(j, irec) != t || !entry_active(entries, irec, j)) continue;
    const std::int32_t u = d.XD2_M(j, irec);
    const double part = root_weight(values, d, u, irec) * r.sampler.sol(d.XD1_M(j, irec));
    other(u) += on ? part : -part;
  }
}

// The record moves to the other component: coefficients, residuals, group, counts.
void switch_component(scan_records& r, const record_entries& entries, std::int32_t irec, std::int32_t t,
                      bool on, std::int32_t h) {
  design_store& d = r.design;
  for (std::int32_t j = 1; j <= d.M_M(irec); ++j)
    if (d.XD6_M(j, irec) == t) store_coefficient(d, entries, r.work.values, irec, j, on ? 1.0 : 0.0);
  component_counts& n = r.work.sweep.components[static_cast<std::size_t>(t - 1)];
  --n.records[on ? 0 : 1];
  ++n.records[on ? 1 : 0];
  if (d.IRESG_M(irec) != h) {
    vec<std::int32_t>& group = r.model.residual().HETG_N_OBS;
    --group(r.model.hetgr_index(d.IRESG_M(irec)));
    ++group(r.model.hetgr_index(h));
    d.IRESG_M(irec) = h;
  }
  take_record(entries, r.work.values, irec);
}

// tau, 0 or 1 where the record has to stay
double tau_of(component_counts& n, bool on, const component_side& one, const component_side& none) {
  if (n.records[on ? 1 : 0] > n.least) return 1.0 / (1.0 + std::exp(none.log_p - one.log_p));
  ++n.kept;
  return on ? 1.0 : 0.0;
}

void draw_component(scan_records& r, const directives& asked, const round_state& state, std::int32_t irec,
                    std::int32_t t, bool chooses_group) {
  const record_entries entries = entries_of(r, asked.analysis_type);
  sweep_work& work = r.work.sweep;
  const bool before = r.design.Y_M(t, irec) > 0.0F;
  const std::int32_t h = r.design.IRESG_M(irec);
  other_residuals(r, entries, irec, t, before, work.other);
  component_side sides[2];
  for (const int c : {0, 1}) {
    const double* e = (c == 1) == before ? r.work.values.res.data() : work.other.data();
    sides[c] = side_of(r, e, irec, t, c, chooses_group ? 1 + c : h);
  }
  component_counts& n = work.components[static_cast<std::size_t>(t - 1)];
  const double tau = tau_of(n, before, sides[1], sides[0]);
  if (takes_sample(asked, state)) {
    tau_sums& sums = r.mixtures.TAU_STAT[static_cast<std::size_t>(t - 1)];
    sums.SUM(irec) += tau;
    sums.SS(irec) += tau * tau;
  }
  const bool on = uniform_range(r.sources.combined) <= tau; // a uniform is above 0
  const component_side& side = sides[on ? 1 : 0];
  if (on != before) switch_component(r, entries, irec, t, on, side.h);
  const double low = on ? 0.0 : -infinity, high = on ? infinity : 0.0;
  const double root = root_weight(r.work.values, r.design, t, irec), fitted = r.work.values.fitted(t);
  const double e =
      truncated_normal(r.sources.combined, root * (low - fitted), root * (high - fitted), side.m, side.v);
  store_latent(r.design, r.work.values, irec, t, e, low, high);
}

} // namespace

void draw_components(scan_records& r, const directives& asked, const round_state& state, std::int32_t irec) {
  std::int32_t last = 0;
  for (std::int32_t t = 1; t <= r.model.nt; ++t)
    if (r.model.MODEL(t).TRAIT_TYPE == trait_mixture) last = t;
  for (std::int32_t t = 1; t <= last; ++t)
    if (r.model.MODEL(t).TRAIT_TYPE == trait_mixture && trait_present(r.design.ISIT_M(irec), t, r.model.nt))
      draw_component(r, asked, state, irec, t, r.sampler.G > 1 && t == last);
}

void count_components_of_record(scan_records& r, const directives& asked, const round_state& state,
                                std::int32_t irec) {
  const design_store& d = r.design;
  for (std::int32_t u = 1; u <= r.model.nt; ++u) {
    if (!r.model.MODEL(u).L_MIX_TRAIT || !trait_present(d.ISIT_M(irec), u, r.model.nt)) continue;
    bool on = false; // of the last indicator of the trait
    std::int32_t last = 0;
    for (std::int32_t j = 1; j <= d.M_M(irec); ++j)
      if (d.XD2_M(j, irec) == u && d.XD6_M(j, irec) >= std::max(last, 1)) {
        last = d.XD6_M(j, irec);
        on = d.ZD_M(j, irec) > 0.5;
      }
    if (on) count_member(r.mixtures, asked, state, irec, u);
  }
}

} // namespace zeph
