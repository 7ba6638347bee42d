// The distances between the components of a mixture are kept positive, so that
// the components don't change their labels.
#pragma once

#include "input/model_records.h"

#include <vector>

namespace zeph {

inline constexpr double least_distance = 1e-12;

// Equations, from 1, of the mixture regressions among the plain ones; empty without a trait
// of kind 5 or 8.
std::vector<std::int32_t> mixture_distances(const model_records& m);

// True when a distance of the draw mean + w of the plain regressions is too small.
inline bool breaks_distance_rule(const std::vector<std::int32_t>& distances, const double* mean,
                                 const double* w) {
  for (const std::int32_t x : distances)
    if (mean[x - 1] + w[x - 1] < least_distance) return true;
  return false;
}

// The same of a finished draw x.
inline bool distance_too_small(const std::vector<std::int32_t>& distances, const double* x) {
  for (const std::int32_t e : distances)
    if (x[e - 1] < least_distance) return true;
  return false;
}

} // namespace zeph
