#include "gibbs/scan/mixture_distance.h"

#include "input/trait_kinds.h"

namespace zeph {

std::vector<std::int32_t> mixture_distances(const model_records& m) {
  std::vector<std::int32_t> places;
  if (!has_proportion(m)) return places;
  // plain regressions (REG_TYPE 0) come first in the equations, trait by trait: NBEGREG + 1 is the equation
  for (std::int32_t i = 1; i <= m.nt; ++i)
    for (std::int32_t j = 1; j <= m.MODEL(i).n_reg; ++j)
      if (m.MODEL(i).REG_TYPE(j) == 0 && m.MODEL(i).REG_MIXTURE(j)) places.push_back(m.NBEGREG(i, j) + 1);
  return places;
}

} // namespace zeph
