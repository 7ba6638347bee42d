#include "gibbs/scan/level_walk.h"

namespace zeph {

int draw_relaxed(marsaglia_source& marsaglia, level_walk& w, group_form& form, std::int32_t n,
                 double* square) {
  return draw_by_order<true>(marsaglia, w, form, n, square);
}

} // namespace zeph
