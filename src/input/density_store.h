// Log densities of the observed data, by unit, over the samples of an exact chain: what the widely applicable
// information criterion is made from.
#pragma once

#include "numerics/arrays.h"

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

} // namespace zeph
