// The widely applicable information criterion of an exact chain: S. Watanabe, Journal of Machine Learning
// Research 11 (2010) 3571-3594; A. Vehtari, A. Gelman and J. Gabry, Statistics and Computing 27 (2017)
// 1413-1432.
//
// With x the log densities of unit u over S samples: lppd = sum over units of log(mean of exp x), p_waic =
// sum of the variances of x (divisor S - 1), elpd_waic = lppd - p_waic, standard error (n var of the units'
// elpd)^1/2.
#pragma once

#include "input/density_store.h"
#include "samples/sample_files.h"

namespace zeph {

struct waic_statistics {
  double lppd = 0, p_waic = 0, elpd = 0, se = 0;
  std::int64_t units = 0, doubtful = 0; // units; of them those of variance above 0.4
};

waic_statistics waic_of(const density_store& density);

// Closes py, prints the statistics on the listing, adds a row to lpm (model vector, samples, elpd_waic,
// p_waic, mean of py) and writes the file `waic` whole: for each unit in free format its position in the
// user's data (of a sequence that of its first record), samples, log-mean-exp, mean, sum of squared
// deviations. The sums start again.
void report_waic(density_store& density, const round_state& state, sample_files& files, reporting& report);

} // namespace zeph
