// Records whose predictive distribution is asked for.
#pragma once

#include <cstdint>
#include <vector>

namespace zeph {

struct prediction {
  std::int32_t record = 0; // 1..nobs
  std::int32_t trait = 0;  // 1..nt
  float value = 0;         // third column of the report; nothing fills it
  double s = 0, q = 0;     // sum and sum of squares over samples; no chain adds to them
};

struct prediction_store {
  std::vector<prediction> YPRED; // YPRED[n-1], n = 1..npred
};

} // namespace zeph
