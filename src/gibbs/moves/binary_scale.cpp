#include "gibbs/moves/binary_scale.h"

#include "gibbs/latent/latent_sweep.h"
#include "gibbs/moves/proposals.h"
#include "gibbs/moves/trait_scaling.h"
#include "gibbs/scan/scan_records.h"
#include "numerics/normal_draws.h"

#include <cmath>
#include <limits>

namespace zeph {
namespace {

struct scale_density {
  double m = 0, alpha = 0, beta = 0, c1 = 0, c2 = 0;
  double at(double x) const {
    const double c = std::exp(x);
    return m * x - 0.5 * alpha * c * c - beta * c - 0.5 * (2.0 * c1 / c + c2 / (c * c));
  }
};

// c y as a 32-bit number of the sign of y
float scaled(float y, double c) {
  const auto x = static_cast<float>(c * static_cast<double>(y));
  return y > 0.0F ? std::max(x, std::numeric_limits<float>::min()) : x;
}

void add_residuals(scan_records& r, const directives& asked, std::int32_t t, scale_density& f) {
  const record_entries entries = entries_of(r, asked.analysis_type);
  for (std::int32_t irec = 1; irec <= r.design.nobs; ++irec) {
    take_record(entries, r.work.values, irec);
    const std::int32_t h = r.design.IRESG_M(irec);
    const double e = r.work.values.res(t), v = r.work.latent.variance(t, h);
    const double k = mean_of_residual(r.work.latent, r.work.values.res.data(), r.model.nt, t, h);
    f.alpha += e * e / v;
    f.beta -= e * k / v;
  }
}

} // namespace

void move_binary_scale(scan_records& r, const directives& asked, const round_state& state,
                       trait_move& trait) {
  scale_density f;
  add_residuals(r, asked, trait.t, f);
  if (!(f.alpha > 0.0)) return;
  const scale_terms terms = terms_of_factors(r, asked, trait);
  const double n0 = static_cast<double>(r.design.nobs + trait.n_t);
  f.m = n0 + terms.m;
  f.c1 = terms.c1;
  f.c2 = terms.c2;
  const double c0 = (-f.beta + std::sqrt(f.beta * f.beta + 4.0 * f.alpha * n0)) / (2.0 * f.alpha);
  const double x0 = std::log(c0), precision = 2.0 * f.alpha * c0 * c0 + f.beta * c0;
  const double x = x0 + ranmar_snorm(r.sources.marsaglia) / std::sqrt(precision), c = std::exp(x);
  const double ratio = f.at(x) - f.at(0.0) + 0.5 * precision * ((x - x0) * (x - x0) - x0 * x0);
  const bool legal = std::isfinite(c) && c > 0.0;
  if (!accept_move(r.sources.marsaglia, ratio, legal, is_burn_in(asked, state), trait.count)) return;
  for (std::int32_t irec = 1; irec <= r.design.nobs; ++irec)
    store_scaled(r, irec, trait.t, scaled(r.design.Y_M(trait.t, irec), c), c);
  scale_solutions(r, trait, c);
}

} // namespace zeph
