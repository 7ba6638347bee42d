// The sums over samples of the log densities of units.
#pragma once

#include "input/density_store.h"

namespace zeph {

// Takes x[0..n-1] of the units first+1..first+n into the sums of sample number store.samples.
void add_densities(density_store& store, std::int64_t first, const double* x, std::int64_t n);

inline void add_density(density_store& store, std::int64_t u, double x) {
  add_densities(store, u - 1, &x, 1);
}

} // namespace zeph
