#include "gibbs/moves/threshold_moves.h"

#include "gibbs/latent/latent_updates.h"
#include "gibbs/moves/proposals.h"
#include "gibbs/moves/trait_scaling.h"
#include "gibbs/scan/scan_records.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace zeph {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

category_record& categories_of(scan_records& r, const trait_move& trait) {
  return r.categories.catstr[static_cast<std::size_t>(trait.c - 1)];
}

// Place of category k among the sums and maps: 0 for missing.
std::size_t place_of(std::int32_t k) { return static_cast<std::size_t>(std::max(k, 0)); }

// Sums over all records by category: w = (y - low)/width inside, y - 1 at the top. Those of records that are
// missing or in category 1 have no use.
void sum_categories(scan_records& r, const directives& asked, const trait_move& trait,
                    const category_record& x, threshold_work& work) {
  const std::int32_t t = trait.t, K = x.ncat_t, nobs = r.design.nobs;
  for (std::int32_t k = 0; k <= K; ++k) {
    work.sums[place_of(k)] = {};
    const bool inside = k > 1 && k < K;
    work.maps[place_of(k)] = {.low = k > 1 ? x.thr(k - 1) : 0.0,
                              .slope = inside ? 1.0 / (x.thr(k) - x.thr(k - 1)) : 1.0};
  }
  const bool weighted = r.work.values.weighted;
  trait_residuals of;
  for (std::int32_t lo = 0; lo < nobs; lo += trait_residuals::most) {
    const std::int32_t hi = std::min(lo + trait_residuals::most, nobs);
    read_residuals(r, asked, t, lo, hi, of);
    for (std::int32_t irec = lo + 1; irec <= hi; ++irec) {
      const auto i = static_cast<std::size_t>(irec - lo - 1);
      const std::size_t k = place_of(r.categories.catobs(trait.c, irec));
      const double root = weighted ? static_cast<double>(r.design.WV_SQRT_M(t, irec)) : 1.0;
      const double q = root * root / r.work.latent.variance(t, r.design.IRESG_M(irec));
      const double y = static_cast<double>(r.design.Y_M(t, irec));
      // fitted value y - e/root, plus the mean of the residual
      const double hq = q * (y - (of.e[i] - of.mean[i]) / root);
      const double w = (y - work.maps[k].low) * work.maps[k].slope;
      category_sums& sum = work.sums[k];
      sum.n += 1.0;
      sum.q += q;
      sum.wq += w * q;
      sum.wwq += w * w * q;
      sum.hq += hq;
      sum.whq += w * hq;
    }
  }
}

// H and g of the liabilities: (1 - w) tau_(k-1) + w tau_k inside, tau_(K-1) + w at the top.
void add_categories(const threshold_work& work, std::int32_t K, threshold_density& f) {
  for (std::int32_t k = 2; k < K; ++k) {
    const category_sums& sum = work.sums[place_of(k)];
    const std::int32_t i = k - 1;
    f.n(i) = sum.n;
    f.diagonal(i) += sum.wwq;
    f.g(i) += sum.whq;
    if (i == 1) continue; // the threshold below is 0
    f.diagonal(i - 1) += sum.q - 2.0 * sum.wq + sum.wwq;
    f.next(i - 1) += sum.wq - sum.wwq;
    f.g(i - 1) += sum.hq - sum.whq;
  }
  const category_sums& top = work.sums[place_of(K)];
  f.diagonal(f.d) += top.q;
  f.g(f.d) += top.hq - top.wq;
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
  sum_categories(r, asked, trait, x, work);
  add_categories(work, x.ncat_t, f);
  scale_terms terms = terms_of_factors(r, asked, trait);
  add_residual_terms(r, asked, trait, terms);
  f.diagonal(f.d) += terms.c2;
  f.g(f.d) -= terms.c1;
  f.M = static_cast<double>(trait.n_t) + terms.m + f.d;
}

void take_thresholds(scan_records& r, const trait_move& trait) {
  category_record& x = categories_of(r, trait);
  threshold_work& work = r.work.moves.thresholds;
  const std::int32_t t = trait.t, K = x.ncat_t, d = K - 2;
  const double s = 1.0 / work.tau(d);
  const auto threshold = [&](std::int32_t k) {
    return k == 1 ? 0.0 : k == K - 1 ? 1.0 : work.tau(k - 1) * s;
  };
  // missing and category 1: y s; inside: the place is kept; top: 1 + (y - 1) s
  work.maps[0] = {.slope = s, .above = -infinity, .limit = infinity};
  work.maps[1] = {.slope = s, .above = -infinity, .limit = 0.0};
  for (std::int32_t k = 2; k < K; ++k) {
    const double width = threshold(k) - threshold(k - 1);
    work.maps[place_of(k)] = {.low = x.thr(k - 1),
                              .slope = width / (x.thr(k) - x.thr(k - 1)),
                              .shift = threshold(k - 1),
                              .above = threshold(k - 1),
                              .limit = threshold(k)};
  }
  work.maps[place_of(K)] = {.low = 1.0, .slope = s, .shift = 1.0, .above = 1.0, .limit = infinity};
  double* e = kept_residuals(r.work.values, t);
  for (std::int32_t irec = 1; irec <= r.design.nobs; ++irec) {
    const category_map& map = work.maps[place_of(r.categories.catobs(trait.c, irec))];
    float& stored = r.design.Y_M(t, irec);
    const double y = map.shift + map.slope * (static_cast<double>(stored) - map.low);
    float moved = static_cast<float>(y);
    if (!(static_cast<double>(moved) > map.above) || static_cast<double>(moved) > map.limit)
      moved = within(y, map.above, map.limit);
    store_scaled(stored, e == nullptr ? nullptr : e + irec - 1, moved, s);
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
