#include "gibbs/moves/binary_scale.h"

#include "gibbs/latent/latent_updates.h"
#include "gibbs/moves/proposals.h"
#include "gibbs/moves/trait_scaling.h"
#include "gibbs/scan/scan_records.h"
#include "numerics/normal_draws.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace zeph {
namespace {

// c y as a 32-bit number on the side of 0 that y is on: what is not positive stays so.
float scaled(float y, double c) {
  const auto x = static_cast<float>(c * static_cast<double>(y));
  return y > 0.0F ? std::max(x, std::numeric_limits<float>::min()) : x;
}

// Records and equations of the trait: the powers of c in its likelihood.
double likelihood_power(const scan_records& r, const trait_move& trait) {
  return static_cast<double>(r.design.nobs + trait.n_t);
}

} // namespace

double log_density(const scale_density& f, double x) {
  const double c = std::exp(x);
  return f.m * x - 0.5 * f.alpha * c * c - f.beta * c - 0.5 * (2.0 * f.c1 / c + f.c2 / (c * c));
}

scale_density density_of_scale(scan_records& r, const directives& asked, const trait_move& trait) {
  scale_density f;
  const std::int32_t t = trait.t, nt = r.model.nt;
  const record_entries entries = entries_of(r, asked.analysis_type);
  for (std::int32_t irec = 1; irec <= r.design.nobs; ++irec) { // those with t missing too: imputed residuals
    take_record(entries, r.work.values, irec);
    const std::int32_t h = r.design.IRESG_M(irec);
    const double e = r.work.values.res(t), v = r.work.latent.variance(t, h);
    f.alpha += e * e / v;
    f.beta -= e * mean_of_residual(r.work.latent, r.work.values.res.data(), nt, t, h) / v;
  }
  const scale_terms terms = terms_of_factors(r, asked, trait);
  f.m = likelihood_power(r, trait) + terms.m;
  f.c1 = terms.c1;
  f.c2 = terms.c2;
  return f;
}

void move_binary_scale(scan_records& r, const directives& asked, const round_state& state,
                       trait_move& trait) {
  const scale_density f = density_of_scale(r, asked, trait);
  if (!(f.alpha > 0.0)) return;
  const double n0 = likelihood_power(r, trait);
  const double c0 = (-f.beta + std::sqrt(f.beta * f.beta + 4.0 * f.alpha * n0)) / (2.0 * f.alpha);
  const double x0 = std::log(c0), precision = 2.0 * f.alpha * c0 * c0 + f.beta * c0;
  const double x = x0 + ranmar_snorm(r.sources.marsaglia) / std::sqrt(precision), c = std::exp(x);
  const double ratio =
      log_density(f, x) - log_density(f, 0.0) + 0.5 * precision * ((x - x0) * (x - x0) - x0 * x0);
  const bool legal = std::isfinite(c) && c > 0.0;
  if (!accept_move(r.sources.marsaglia, ratio, legal, is_burn_in(asked, state), trait.count)) return;
  for (std::int32_t irec = 1; irec <= r.design.nobs; ++irec)
    store_scaled(r, irec, trait.t, scaled(r.design.Y_M(trait.t, irec), c), c);
  scale_solutions(r, trait, c);
}

} // namespace zeph
