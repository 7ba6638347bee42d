#include "gibbs/moves/threshold_moves.h"

#include "gibbs/latent/latent_updates.h"
#include "gibbs/moves/proposals.h"
#include "gibbs/moves/trait_scaling.h"
#include "gibbs/scan/scan_records.h"

#include <cmath>
#include <limits>

namespace zeph {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

category_record& categories_of(scan_records& r, const trait_move& trait) {
  return r.categories.catstr[static_cast<std::size_t>(trait.c - 1)];
}

// A record of inner category i: l(tau) = (1 - w) tau_(i-1) + w tau_i, normal with mean h and precision q.
void add_inside(threshold_density& f, std::int32_t i, double w, double h, double q) {
  f.n(i) += 1.0;
  f.diagonal(i) += w * w * q;
  f.g(i) += w * h * q;
  if (i == 1) return; // the threshold below is 0
  f.diagonal(i - 1) += (1.0 - w) * (1.0 - w) * q;
  f.next(i - 1) += w * (1.0 - w) * q;
  f.g(i - 1) += (1.0 - w) * h * q;
}

void add_records(scan_records& r, const directives& asked, const trait_move& trait, const category_record& x,
                 threshold_density& f) {
  const std::int32_t t = trait.t, K = x.ncat_t;
  const record_entries entries = entries_of(r, asked.analysis_type);
  const record_values& values = r.work.values;
  for (std::int32_t irec = 1; irec <= r.design.nobs; ++irec) {
    const std::int32_t k = r.categories.catobs(trait.c, irec), h = r.design.IRESG_M(irec);
    if (k < 2) continue; // missing, or below all moving thresholds
    take_record(entries, r.work.values, irec);
    const double root = values.weighted ? static_cast<double>(r.design.WV_SQRT_M(t, irec)) : 1.0;
    const double mean = mean_of_residual(r.work.latent, values.res.data(), r.model.nt, t, h);
    const double centre = values.fitted(t) + mean / root, q = root * root / r.work.latent.variance(t, h);
    const double y = static_cast<double>(r.design.Y_M(t, irec));
    if (k < K) {
      add_inside(f, k - 1, (y - x.thr(k - 1)) / (x.thr(k) - x.thr(k - 1)), centre, q);
    } else { // l(tau) = tau_d + y - 1
      f.diagonal(f.d) += q;
      f.g(f.d) += (centre - (y - 1.0)) * q;
    }
  }
}

// Powers of the scale in the residual matrices and their priors, and the prior's part of H and g.
void add_residual_terms(const scan_records& r, const directives& asked, const trait_move& trait,
                        scale_terms& terms) {
  const std::int32_t nt = r.model.nt, t = trait.t, prior = asked.PDF(r.model.nramat + 1);
  const auto part = static_cast<std::int32_t>(trait.part.size());
  const bool flat = prior <= nt + 1;
  double m = trait.free + 2; // of one group
  if (!flat) m -= prior - nt + 2 * part + 1;
  // the block of a matrix of all traits, drawn whole, has the prior |R_b|^(nt - part)
  if (flat && !asked.sampler.exact) m += 2 * (nt - part);
  terms.m += r.sampler.G * m;
  for (std::int32_t h = 1; !flat && h <= r.sampler.G; ++h)
    for (const std::int32_t u : trait.part)
      (u == t ? terms.c2 : terms.c1) +=
          (prior - nt - 1) * residual_prior(r.model, h, u, t) * r.sampler.RCOVI(t, u, h);
}

void scale_residual_matrices(scan_records& r, std::int32_t t, double s) {
  for (std::int32_t h = 1; h <= r.sampler.G; ++h) {
    for (std::int32_t u = 1; u <= r.model.nt; ++u) { // the diagonal twice
      r.sampler.RCOV(t, u, h) *= s;
      r.sampler.RCOV(u, t, h) *= s;
      r.sampler.RCOVI(t, u, h) /= s;
      r.sampler.RCOVI(u, t, h) /= s;
    }
    r.sampler.IDET_RVAR(r.model.nramat + h) /= s; // |R|^-1/2
  }
}

bool is_legal(const threshold_density& f, const vec<double>& tau) {
  for (std::int32_t i = 1; i <= f.d; ++i)
    if (!std::isfinite(tau(i)) || !(tau(i) > (i > 1 ? tau(i - 1) : 0.0))) return false;
  return true;
}

} // namespace

void form_threshold_density(scan_records& r, const directives& asked, const trait_move& trait) {
  const category_record& x = categories_of(r, trait);
  threshold_work& work = r.work.moves.thresholds;
  threshold_density& f = work.f;
  f.d = x.ncat_t - 2;
  for (vec<double>* sums : {&f.n, &f.diagonal, &f.next, &f.g}) sums->fill(0.0);
  for (std::int32_t i = 1; i <= f.d; ++i) work.now(i) = x.thr(i + 1);
  add_records(r, asked, trait, x, f);
  scale_terms terms = terms_of_factors(r, asked, trait);
  add_residual_terms(r, asked, trait, terms);
  f.diagonal(f.d) += terms.c2;
  f.g(f.d) -= terms.c1;
  f.M = static_cast<double>(trait.n_t) + terms.m + f.d;
}

void take_thresholds(scan_records& r, const trait_move& trait) {
  category_record& x = categories_of(r, trait);
  const vec<double>& tau = r.work.moves.thresholds.tau;
  const std::int32_t t = trait.t, K = x.ncat_t, d = K - 2;
  const double s = 1.0 / tau(d);
  const auto threshold = [&](std::int32_t k) { return k == 1 ? 0.0 : k == K - 1 ? 1.0 : tau(k - 1) * s; };
  for (std::int32_t irec = 1; irec <= r.design.nobs; ++irec) {
    const std::int32_t k = r.categories.catobs(trait.c, irec);
    const double y = static_cast<double>(r.design.Y_M(t, irec));
    float moved = static_cast<float>(s * y); // missing: the imputed residual
    if (k == 1) {
      moved = within(s * y, -infinity, 0.0);
    } else if (k == K) {
      moved = within(1.0 + (y - 1.0) * s, 1.0, infinity);
    } else if (k > 1) {
      const double w = (y - x.thr(k - 1)) / (x.thr(k) - x.thr(k - 1));
      moved = within((1.0 - w) * threshold(k - 1) + w * threshold(k), threshold(k - 1), threshold(k));
    }
    store_scaled(r, irec, t, moved, s);
  }
  for (std::int32_t k = 1; k < K; ++k) x.thr(k) = threshold(k);
  scale_solutions(r, trait, s);
  scale_residual_matrices(r, t, s);
}

bool move_thresholds(scan_records& r, const directives& asked, const round_state& state, trait_move& trait) {
  threshold_work& work = r.work.moves.thresholds;
  form_threshold_density(r, asked, trait);
  if (!find_maximum(work)) return false;
  propose_thresholds(work, r.sources.marsaglia);
  const bool legal = is_legal(work.f, work.tau);
  double ratio = 0;
  if (legal)
    ratio = log_density(work.f, work.tau, 0.0, work.f.M) - log_proposal(work, work.tau) -
            log_density(work.f, work.now, 0.0, work.f.M) + log_proposal(work, work.now);
  if (!accept_move(r.sources.marsaglia, ratio, legal, state.iround <= asked.nburn, trait.count)) return false;
  take_thresholds(r, trait);
  return true;
}

} // namespace zeph
