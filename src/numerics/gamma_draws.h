// Gamma and exponential draws from the combined source, all in 32 bits: each
// operation is rounded to 32 bits, logarithms, exponentials and roots too.
#pragma once

#include "numerics/random_sources.h"

namespace zeph {

// A standard gamma deviate of shape a > 0 and scale 1; mean and variance a.
// Shapes of 1 and above by method GD of Ahrens and Dieter (1982), below by their
// method GS (1974). The cache holds the set-up of the last shape of 1 or above, so
// that a repeated shape skips it; the draws don't depend on it. A shape that is not
// above 0 stops: "Computation impossible in sgamma", code 16.
// Chi-square with d degrees of freedom is 2 sgamma(d/2).
float sgamma(combined_source& source, float a, gamma_cache& cache);

// A standard exponential deviate, mean 1, by algorithm SA of Ahrens and Dieter
// (1972).
float sexpo(combined_source& source);

} // namespace zeph
