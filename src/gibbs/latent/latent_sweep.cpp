#include "gibbs/latent/latent_sweep.h"

#include "gibbs/latent/mixing_proportions.h"
#include "gibbs/latent/record_components.h"
#include "gibbs/latent/subject_status.h"
#include "gibbs/scan/scan_records.h"
#include "listing/stops.h"
#include "numerics/normal_draws.h"
#include "numerics/truncated_normals.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace zeph {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double coefficient_on = 1e-4; // above: a start coefficient is on

bool is_indicator(const model_records& m, std::int32_t t) { return m.MODEL(t).TRAIT_TYPE == trait_mixture; }

std::int32_t last_indicator(const model_records& m) {
  std::int32_t last = 0;
  for (std::int32_t t = 1; t <= m.nt; ++t)
    if (is_indicator(m, t)) last = t;
  return last;
}

// The side on which the coefficients of indicator t put record irec: -1 where it has none.
int side_of_coefficients(const design_store& d, std::int32_t irec, std::int32_t t) {
  int side = -1;
  for (std::int32_t j = 1; j <= d.M_M(irec); ++j)
    if (d.XD6_M(j, irec) == t) side = std::max(side, d.ZD_M(j, irec) > coefficient_on ? 1 : 0);
  return side;
}

// The sign of a stored liability, its size kept.
void turn(float& y, bool positive) {
  y = positive ? std::max(std::fabs(y), std::numeric_limits<float>::min()) : -std::fabs(y);
}

void round_record(const model_records& model, design_store& d, std::int32_t irec, std::int32_t t) {
  const int side = side_of_coefficients(d, irec, t);
  if (side < 0) return;
  for (std::int32_t j = 1; j <= d.M_M(irec); ++j)
    if (d.XD6_M(j, irec) == t) d.ZD_M(j, irec) = side;
  if (trait_present(d.ISIT_M(irec), t, model.nt)) turn(d.Y_M(t, irec), side == 1);
}

// True when the sequence that ends with record `last` has an event of trait t7.
bool has_event(const design_store& d, std::int32_t last, std::int32_t t7) {
  for (std::int32_t i = last + d.SEQ_M(last) + 1; i <= last; ++i)
    if (d.CURE_Y[static_cast<std::size_t>(t7 - 1)](i) != 0) return true;
  return false;
}

// A subject with an event can fail.
void turn_failed_subjects(const model_records& model, design_store& d, std::int32_t t8) {
  const std::int32_t t7 = model.MODEL(t8).link1;
  for (std::int32_t irec = 1; irec <= d.nobs; ++irec)
    if (d.SEQ_M(irec) < 0 && has_event(d, irec, t7)) turn(d.Y_M(t8, irec), true);
}

void count_trait(const model_records& model, const design_store& d, std::int32_t t, component_counts& n) {
  n.records[0] = n.records[1] = 0;
  for (std::int32_t irec = 1; irec <= d.nobs; ++irec)
    if (trait_present(d.ISIT_M(irec), t, model.nt)) ++n.records[d.Y_M(t, irec) > 0.0F ? 1 : 0];
}

// Codes of CENS_M: -1 left, 1 right, 2 interval.
void draw_censored(scan_records& r, std::int32_t irec, std::int32_t t) {
  const design_store& d = r.design;
  const std::int32_t code = d.CENS_M(t, irec);
  if (code != -1 && code != 1 && code != 2) return; // seen exactly
  draw_between(r, irec, t, code == -1 ? -infinity : static_cast<double>(d.Y_MMIN(t, irec)),
               code == 1 ? infinity : static_cast<double>(d.Y_MMAX(t, irec)));
}

void draw_category(scan_records& r, std::int32_t irec, std::int32_t t) {
  std::int64_t c = 0;
  for (const category_record& x : r.categories.catstr) {
    ++c;
    if (x.trait != t) continue;
    const std::int32_t k = r.categories.catobs(c, irec);
    draw_between(r, irec, t, k <= 1 ? -infinity : x.thr(k - 1), k >= x.ncat_t ? infinity : x.thr(k));
  }
}

// Members of component 1 in models with sequences: positive liabilities.
void count_positive(scan_records& r, const directives& asked, const round_state& state, std::int32_t irec) {
  for (std::int32_t t = 1; t <= r.model.nt; ++t) {
    const std::int32_t kind = r.model.MODEL(t).TRAIT_TYPE;
    const bool binary = kind == trait_liability || kind == trait_sequence || kind == trait_cured;
    if (binary && !r.model.MODEL(t).L_MIX_TRAIT && trait_present(r.design.ISIT_M(irec), t, r.model.nt) &&
        r.design.Y_M(t, irec) > 0.0F)
      count_member(r.mixtures, asked, state, irec, t);
  }
}

void count_members(scan_records& r, const directives& asked, const round_state& state) {
  r.mixtures.MIXZ_LAST.fill(0);
  r.mixtures.mix_pi.fill(0.0);
  for (std::int32_t irec = 1; irec <= r.design.nobs; ++irec) {
    if (r.model.has_type(trait_mixture)) count_components_of_record(r, asked, state, irec);
    if (r.design.SEQ_M.allocated()) count_positive(r, asked, state, irec);
  }
  for (std::int32_t t = 1; t <= r.model.nt; ++t) divide_by_observations(r.model, r.design, r.mixtures, t);
}

} // namespace

void allocate_sweep_work(const model_records& m, sweep_work& work, reporting& report) {
  constexpr std::string_view routine = "latent_sweep";
  allocate_rows(report, work.components, "components", routine, m.nt);
  allocate(report, work.log_root, "log_root", routine, m.n_groups_residual());
  allocate(report, work.other, "other", routine, m.nt);
  allocate_conditional(report, work.given, m.nt, routine);
}

void round_components(const model_records& model, design_store& design, const sampler_store& sampler) {
  for (std::int32_t t = 1; t <= model.nt; ++t) {
    if (model.MODEL(t).TRAIT_TYPE == trait_cured) turn_failed_subjects(model, design, t);
    if (!is_indicator(model, t)) continue;
    for (std::int32_t irec = 1; irec <= design.nobs; ++irec) round_record(model, design, irec, t);
  }
  const std::int32_t last = last_indicator(model);
  if (sampler.G < 2 || last == 0) return;
  for (std::int32_t irec = 1; irec <= design.nobs; ++irec)
    if (trait_present(design.ISIT_M(irec), last, model.nt))
      design.IRESG_M(irec) = design.Y_M(last, irec) > 0.0F ? 2 : 1;
}

void count_components(const model_records& model, const design_store& design, const sampler_store& sampler,
                      const directives& asked, sweep_work& work, reporting& report) {
  const std::int32_t last = last_indicator(model);
  const bool flat = asked.PDF(model.nramat + 1) <= model.nt + 1;
  for (std::int32_t t = 1; t <= model.nt; ++t) {
    if (!is_indicator(model, t) && model.MODEL(t).TRAIT_TYPE != trait_cured) continue;
    component_counts& n = work.components[static_cast<std::size_t>(t - 1)];
    n.least =
        t == last && sampler.G > 1 && flat && samples_matrices(asked.analysis_type) ? 2 * model.nt + 2 : 1;
    count_trait(model, design, t, n);
    for (const int c : {0, 1})
      if (n.records[c] < n.least)
        illegal_input(report, "sampler", "MIXZ", {t, c}, std::to_string(n.records[c]),
                      "at least " + std::to_string(n.least) +
                          " in each component: start the chain from other memberships");
  }
}

double mean_of_residual(const latent_work& latent, const double* e, std::int32_t nt, std::int32_t t,
                        std::int32_t h) {
  const double* c = &latent.coefficient(1, t, h); // 0 at t itself
  double mean = 0;
  for (std::int32_t i = 0; i < nt; ++i) mean += c[i] * e[i];
  return mean;
}

float within(double y, double low, double high) {
  constexpr float up = std::numeric_limits<float>::infinity();
  float stored = static_cast<float>(y);
  if (!(static_cast<double>(stored) > low))
    for (stored = static_cast<float>(low); !(static_cast<double>(stored) > low);)
      stored = std::nextafter(stored, up);
  if (static_cast<double>(stored) > high)
    for (stored = static_cast<float>(high); static_cast<double>(stored) > high;)
      stored = std::nextafter(stored, -up);
  return stored;
}

void store_latent(design_store& design, record_values& values, std::int32_t irec, std::int32_t t, double e,
                  double low, double high) {
  const double root = values.weighted ? static_cast<double>(design.WV_SQRT_M(t, irec)) : 1.0;
  const float y = within(values.fitted(t) + e / root, low, high);
  store_observation(design, values, irec, t, y);
  values.res(t) = root * (static_cast<double>(y) - values.fitted(t));
}

void draw_between(scan_records& r, std::int32_t irec, std::int32_t t, double low, double high) {
  record_values& values = r.work.values;
  const std::int32_t h = r.design.IRESG_M(irec);
  const double root = values.weighted ? static_cast<double>(r.design.WV_SQRT_M(t, irec)) : 1.0;
  const double m = mean_of_residual(r.work.latent, values.res.data(), r.model.nt, t, h);
  const double v = r.work.latent.variance(t, h), fitted = values.fitted(t);
  const double e = truncated_normal(r.sources.combined, root * (low - fitted), root * (high - fitted), m, v);
  store_latent(r.design, values, irec, t, e, low, high);
}

bool has_bounded_values(const model_records& model) {
  return model.has_type(trait_censored) || model.has_type(trait_categorical) ||
         model.has_type(trait_liability);
}

void draw_bounded_values(scan_records& r, std::int32_t irec) {
  for (std::int32_t t = 1; t <= r.model.nt; ++t) {
    if (!trait_present(r.design.ISIT_M(irec), t, r.model.nt)) continue;
    switch (r.model.MODEL(t).TRAIT_TYPE) {
    case trait_censored:
      draw_censored(r, irec, t);
      break;
    case trait_categorical:
      draw_category(r, irec, t);
      break;
    case trait_liability: { // the sign of the stored liability remembers the observation
      const bool positive = r.design.Y_M(t, irec) > 0.0F;
      draw_between(r, irec, t, positive ? 0.0 : -infinity, positive ? infinity : 0.0);
      break;
    }
    default:
      break;
    }
  }
}

void sweep_latent_values(scan_records& r, const directives& asked, const round_state& state) {
  prepare_conditionals(r.model, r.sampler, r.work.latent);
  for (std::int32_t h = 1; h <= r.sampler.G; ++h) // IDET_RVAR = |R|^-1/2
    r.work.sweep.log_root(h) = std::log(r.sampler.IDET_RVAR(r.model.nramat + h));
  const record_entries entries = entries_of(r, asked.analysis_type);
  const bool mixtures = r.model.has_type(trait_mixture), sequences = r.design.SEQ_M.allocated();
  const bool bounded = has_bounded_values(r.model);
  const vec<std::int32_t>& seen_form = r.work.density.seen_form;
  for (std::int32_t irec = 1; irec <= r.design.nobs; ++irec) {
    if (!sequences && seen_form.allocated() && seen_form(irec) >= 0) continue; // no latent values
    if (mixtures || !sequences) take_record(entries, r.work.values, irec);
    if (mixtures) draw_components(r, asked, state, irec);
    if (!sequences && bounded)
      draw_bounded_values(r, irec);
    else if (sequences && r.design.SEQ_M(irec) < 0)
      draw_sequence(r, asked, state, irec);
  }
  if (mixtures || sequences) count_members(r, asked, state);
}

void draw_thresholds(const design_store& design, category_store& categories, combined_source& source) {
  std::int64_t c = 0;
  for (category_record& x : categories.catstr) {
    ++c;
    x.thr(1) = 0.0;
    x.thr(x.ncat_t - 1) = 1.0;
    x.minu.fill(infinity);
    x.maxu.fill(-infinity);
    for (std::int32_t irec = 1; irec <= design.nobs; ++irec) {
      const std::int32_t k = categories.catobs(c, irec);
      if (k < 1) continue;
      const double y = static_cast<double>(design.Y_M(x.trait, irec));
      x.minu(k) = std::min(x.minu(k), y);
      x.maxu(k) = std::max(x.maxu(k), y);
    }
    for (std::int32_t k = 2; k <= x.ncat_t - 2; ++k)
      x.thr(k) =
          uniform_range(source, std::max(x.maxu(k), x.thr(k - 1)), std::min(x.minu(k + 1), x.thr(k + 1)));
  }
}

} // namespace zeph
