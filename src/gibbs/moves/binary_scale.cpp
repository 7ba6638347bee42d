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
  trait_residuals x;
  // all records, those with t missing too: they have an imputed residual
  for (std::int32_t lo = 0; lo < r.design.nobs; lo += trait_residuals::most) {
    const std::int32_t hi = std::min(lo + trait_residuals::most, r.design.nobs);
    read_residuals(r, asked, trait.t, lo, hi, x);
    for (std::int32_t irec = lo + 1; irec <= hi; ++irec) {
      const auto i = static_cast<std::size_t>(irec - lo - 1);
      const double weighed = x.e[i] / r.work.latent.variance(trait.t, r.design.IRESG_M(irec));
      f.alpha += weighed * x.e[i];
      f.beta -= weighed * x.mean[i];
    }
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
  double* e = kept_residuals(r.work.values, trait.t);
  for (std::int32_t irec = 1; irec <= r.design.nobs; ++irec) {
    float& y = r.design.Y_M(trait.t, irec);
    store_scaled(y, e == nullptr ? nullptr : e + irec - 1, scaled(y, c), c);
  }
  scale_solutions(r, trait, c);
}

} // namespace zeph
