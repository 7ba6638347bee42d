// Fit of a model from the rows of `py`: log marginal likelihood, variance and
// average of v = -log p(y|theta) over the samples.
#pragma once

#include "samples/sample_files.h"

namespace zeph {

struct fit_statistics {
  std::int64_t nsamp_py = 0; // rows of py
  double m = 0;              // largest v; -1.7976931348623157e308 without rows
  double S = 0;              // sum of exp(v - m)
  double Q = 0, T = 0;       // sums of v^2 and of v
  double L = 0;              // log(S / nsamp_py) - m: kept with this sign of the logarithm
  double V = 0;              // variance of v; 0 for fewer than 2 rows
  double A = 0;              // average of v
};

// Reads `py` of the work directory twice: first for the count and m, then for
// the sums. A row is 1 + n_vector integers and v; the values count as they are
// in the file, non-finite ones too. A text that is no number is illegal input.
fit_statistics fit_of_py(std::int32_t n_vector, reporting& report);

// Closes py, prints the statistics on the listing and adds a row to lpm: model
// vector, nsamp_py, L, V, A. py is left closed with its rows; the next write_py
// starts it again. No rows give what the arithmetic gives (NaN).
void report_model_fit(const round_state& state, sample_files& files, reporting& report);

} // namespace zeph
