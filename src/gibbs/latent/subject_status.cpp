#include "gibbs/latent/subject_status.h"

#include "gibbs/latent/latent_sweep.h"
#include "gibbs/scan/scan_records.h"
#include "numerics/normal_draws.h"
#include "numerics/truncated_normals.h"

#include <cmath>
#include <limits>

namespace zeph {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double root_half = 0.70710678118654752440;

// The pair of traits of one subject: records first..last.
struct subject_pair {
  std::int32_t t7 = 0, t8 = 0;
  std::int32_t first = 0, last = 0;
};

double root_weight(const record_values& values, const design_store& d, std::int32_t t, std::int32_t irec) {
  return values.weighted ? static_cast<double>(d.WV_SQRT_M(t, irec)) : 1.0;
}

// w^1/2 fitted of trait t in the record whose values are taken
double scaled_fitted(const scan_records& r, std::int32_t irec, std::int32_t t) {
  return root_weight(r.work.values, r.design, t, irec) * r.work.values.fitted(t);
}

bool has(const scan_records& r, std::int32_t irec, std::int32_t t) {
  return trait_present(r.design.ISIT_M(irec), t, r.model.nt);
}

bool has_event(const design_store& d, const subject_pair& x) {
  for (std::int32_t i = x.first; i <= x.last; ++i)
    if (d.CURE_Y[static_cast<std::size_t>(x.t7 - 1)](i) != 0) return true;
  return false;
}

// z of an event in record irec given its other residuals: P(no event) = Phi(-z)
double event_mean(const scan_records& r, std::int32_t irec, std::int32_t t7) {
  const std::int32_t h = r.design.IRESG_M(irec);
  const double m = mean_of_residual(r.work.latent, r.work.values.res.data(), r.model.nt, t7, h);
  return (scaled_fitted(r, irec, t7) + m) / std::sqrt(r.work.latent.variance(t7, h));
}

// Product of probabilities of no event, with one logarithm for many of them.
struct survival {
  static constexpr double near = 20.0, least = 1e-200; // Phi(-near) least is a number of 64 bits
  double q = 1.0, log_part = 0.0;                      // the product is q exp(log_part)
  void add(double z) {
    if (!(z < near)) {
      log_part += log_normal_lower(-z);
      return;
    }
    q *= 0.5 * std::erfc(z * root_half);
    if (q > least) return;
    log_part += std::log(q);
    q = 1.0;
  }
  double log() const { return log_part + std::log(q); }
};

// What the last record says of the pair without its liabilities of 7 and 8.
struct last_record {
  double a = 0, v = 1;  // mean and variance of the liability of 8
  bool at_risk = false; // it has trait 7
  double log_q = 0;     // log P(no event) there; 0 without trait 7
};

last_record describe_last(scan_records& r, const subject_pair& x) {
  last_record y;
  y.at_risk = has(r, x.last, x.t7);
  residual_conditional& given = r.work.sweep.given;
  std::int32_t mask = all_traits(r.model.nt) & ~trait_bit(x.t8, r.model.nt);
  if (y.at_risk) mask &= ~trait_bit(x.t7, r.model.nt);
  set_matrix(given, r.sampler.RCOV.unchecked_slice(r.design.IRESG_M(x.last)));
  set_border(given, r.work.values.res.data(), mask);
  sweep_mask(given, mask);
  y.a = scaled_fitted(r, x.last, x.t8) + mean_given(given, x.t8);
  y.v = covariance_given(given, x.t8, x.t8);
  if (y.at_risk)
    y.log_q = log_normal_lower(-(scaled_fitted(r, x.last, x.t7) + mean_given(given, x.t7)) /
                               std::sqrt(covariance_given(given, x.t7, x.t7)));
  return y;
}

// log of the weight of liability l of 8 in the last record, whose values are taken; 0 where 8 says nothing
// of 7
double log_weight(scan_records& r, const subject_pair& x, const last_record& y, double l) {
  if (!(l > 0.0) || !y.at_risk) return 0.0;
  if (r.work.latent.coefficient(x.t8, x.t7, r.design.IRESG_M(x.last)) == 0.0) return 0.0;
  double& e8 = r.work.values.res(x.t8);
  const double kept = e8;
  e8 = l - scaled_fitted(r, x.last, x.t8);
  const double log_p = log_normal_lower(-event_mean(r, x.last, x.t7));
  e8 = kept;
  return log_p - y.log_q;
}

void store_liability(scan_records& r, const subject_pair& x, double l) {
  const bool can = l > 0.0;
  store_latent(r.design, r.work.values, x.last, x.t8, l - scaled_fitted(r, x.last, x.t8),
               can ? 0.0 : -infinity, can ? infinity : 0.0);
}

// Status and liability of 8 of a subject without event.
void propose_status(scan_records& r, const directives& asked, const subject_pair& x) {
  const record_entries entries = entries_of(r, asked.analysis_type);
  survival none; // over the positions before the last one
  for (std::int32_t i = x.first; i < x.last; ++i) {
    if (!has(r, i, x.t7)) continue;
    take_record(entries, r.work.values, i);
    none.add(event_mean(r, i, x.t7));
  }
  take_record(entries, r.work.values, x.last);
  const last_record y = describe_last(r, x);
  const double log_q = none.log() + y.log_q;
  combined_source& source = r.sources.combined;
  const double z = y.a / std::sqrt(y.v);
  const bool before = r.design.Y_M(x.t8, x.last) > 0.0F;
  const double l = scaled_fitted(r, x.last, x.t8) + r.work.values.res(x.t8);
  component_counts& n = r.work.sweep.components[static_cast<std::size_t>(x.t8 - 1)];
  const bool stays = n.records[before ? 1 : 0] <= n.least;
  if (stays) ++n.kept;
  // P prod q / (P prod q + 1 - P)
  const double p = 1.0 / (1.0 + std::exp(log_normal_lower(-z) - log_normal_lower(z) - log_q));
  const bool drawn = uniform_range(source) <= p, can = stays ? before : drawn;
  const double proposal = truncated_normal(source, can ? 0.0 : -infinity, can ? infinity : 0.0, y.a, y.v);
  const double log_ratio = log_weight(r, x, y, proposal) - (before ? log_weight(r, x, y, l) : 0.0);
  const double u = uniform_range(source); // above 0, at most 1
  if (!(log_ratio >= 0.0) && !(std::log(u) <= log_ratio)) return;
  if (can != before) --n.records[before ? 1 : 0], ++n.records[can ? 1 : 0];
  store_liability(r, x,
                  can ? std::max(proposal, std::numeric_limits<double>::min()) : std::min(proposal, 0.0));
}

// Kind 7 in every record of the sequence, given all other residuals.
void draw_positions(scan_records& r, const directives& asked, const subject_pair& x, bool can_fail) {
  const record_entries entries = entries_of(r, asked.analysis_type);
  for (std::int32_t i = x.first; i <= x.last; ++i) {
    if (!has(r, i, x.t7)) continue;
    take_record(entries, r.work.values, i);
    if (can_fail) {
      const bool event = r.design.CURE_Y[static_cast<std::size_t>(x.t7 - 1)](i) != 0;
      draw_between(r, i, x.t7, event ? 0.0 : -infinity, event ? infinity : 0.0);
      continue;
    }
    const std::int32_t h = r.design.IRESG_M(i);
    const double m = mean_of_residual(r.work.latent, r.work.values.res.data(), r.model.nt, x.t7, h);
    store_latent(r.design, r.work.values, i, x.t7,
                 normal_draw(r.sources.combined, m, r.work.latent.variance(x.t7, h)), -infinity, infinity);
  }
}

void draw_pair(scan_records& r, const directives& asked, const subject_pair& x) {
  if (has_event(r.design, x)) {
    take_record(entries_of(r, asked.analysis_type), r.work.values, x.last);
    draw_between(r, x.last, x.t8, 0.0, infinity);
  } else {
    propose_status(r, asked, x);
  }
  draw_positions(r, asked, x, r.design.Y_M(x.t8, x.last) > 0.0F);
}

} // namespace

void draw_sequence(scan_records& r, const directives& asked, const round_state&, std::int32_t last) {
  subject_pair x;
  x.last = last;
  x.first = last + r.design.SEQ_M(last) + 1;
  for (x.t8 = 1; x.t8 <= r.model.nt; ++x.t8) {
    if (r.model.MODEL(x.t8).TRAIT_TYPE != trait_cured) continue;
    x.t7 = r.model.MODEL(x.t8).link1;
    draw_pair(r, asked, x);
  }
  if (!has_bounded_values(r.model)) return;
  const record_entries entries = entries_of(r, asked.analysis_type);
  for (std::int32_t i = x.first; i <= last; ++i) {
    take_record(entries, r.work.values, i);
    draw_bounded_values(r, i);
  }
}

} // namespace zeph
