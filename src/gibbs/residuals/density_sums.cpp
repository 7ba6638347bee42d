#include "gibbs/residuals/density_sums.h"

#include "numerics/exponentials.h"

#include <algorithm>
#include <cmath>

namespace zeph {

void add_densities(density_store& store, std::int64_t first, const double* __restrict x, std::int64_t n) {
  double* __restrict top = store.top.data() + first;
  double* __restrict sum = store.sum.data() + first;
  double* __restrict mean = store.mean.data() + first;
  double* __restrict ss = store.ss.data() + first;
  if (store.samples == 1) {
    std::copy_n(x, n, top);
    std::fill_n(sum, n, 1.0);
    std::copy_n(x, n, mean);
    std::fill_n(ss, n, 0.0);
    return;
  }
  const double share = 1.0 / static_cast<double>(store.samples);
  for (std::int64_t i = 0; i < n; ++i) {
    const double highest = top[i], above = x[i] - highest, smaller = exp_of_negative(-std::fabs(above));
    // values chosen, not statements: the loop is vectorized
    const bool rises = above > 0;
    const double former = rises ? smaller : 1.0, added = rises ? 1.0 : smaller;
    sum[i] = sum[i] * former + added;
    top[i] = rises ? x[i] : highest;
    const double d = x[i] - mean[i], moved = mean[i] + d * share;
    mean[i] = moved;
    ss[i] += d * (x[i] - moved);
  }
}

} // namespace zeph
