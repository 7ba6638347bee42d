// Ordered categorical traits in memory: categories of the records, thresholds
// and their sums over the samples.
#pragma once

#include "numerics/arrays.h"

#include <cmath>
#include <vector>

namespace zeph {

// One trait of kind 3 with n = ncat_t categories.
struct category_record {
  std::int32_t ncat_t = 0;         // the highest code found
  std::int32_t trait = 0;          // trait number
  vec<double> thr;                 // 0:n, thresholds; elements 0 and n are the outer limits
  vec<double> thrpostm, thrpostsd; // 0:n, sums of samples and of their squares
  vec<double> minu, maxu;          // n, smallest and largest liability of a category
};

struct category_store {
  std::vector<category_record> catstr; // [c-1], in the order of the traits
  mat<std::int32_t> catobs;            // categorical traits x nobs: category, or -1 where missing
};

// kept: the outer limits are this finite number, and so is a threshold that is not finite where it
// bounds a draw. Liabilities beyond it, and the start of their extremes by category, know no other.
inline constexpr double outer_limit = 999999.0;

// Threshold k of a trait as a bound.
inline double threshold_bound(const category_record& c, std::int64_t k) {
  const double x = c.thr(k);
  if (std::isfinite(x)) return x;
  return x > 0 ? outer_limit : -outer_limit; // also for what is no number
}

} // namespace zeph
