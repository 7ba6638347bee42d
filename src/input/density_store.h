// Log densities of the observed data, by unit, over the samples of an exact chain: what the widely applicable
// information criterion is made from.
#pragma once

#include "numerics/arrays.h"

#include <cmath>
#include <cstdint>

namespace zeph {

// A unit is a record, or a whole cure sequence. Units in record order; x the log density of a sample.
struct density_store {
  std::int64_t samples = 0;
  vec<std::int32_t> position; // units: of its first record in the user's data
  vec<double> top, sum;       // units: largest x, sum of exp(x - top)
  vec<double> mean, ss;       // units: mean of x, sum of squared deviations from it
  double total = 0;           // sum over samples of the sum of x
  bool without = false;       // some unit has no density: too many latent values and no points for them
};

// Takes x of unit u (1-based) into the sums of sample number store.samples.
inline void add_density(density_store& store, std::int64_t u, double x) {
  if (store.samples == 1) {
    store.top(u) = x;
    store.sum(u) = 1.0;
    store.mean(u) = x;
    store.ss(u) = 0.0;
    return;
  }
  const double above = x - store.top(u), smaller = std::exp(-std::fabs(above));
  if (above <= 0) {
    store.sum(u) += smaller;
  } else {
    store.sum(u) = store.sum(u) * smaller + 1.0;
    store.top(u) = x;
  }
  const double d = x - store.mean(u);
  store.mean(u) += d / static_cast<double>(store.samples);
  store.ss(u) += d * (x - store.mean(u));
}

} // namespace zeph
