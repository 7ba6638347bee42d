#include "gibbs/residuals/residual_conditional.h"

#include "input/design_store.h"

#include <algorithm>

namespace zeph {

void allocate_conditional(reporting& report, residual_conditional& c, std::int32_t nt,
                          std::string_view routine) {
  const std::int64_t order = std::int64_t{nt} + 1;
  c.nt = c.order = nt;
  allocate(report, c.P, "PARM", routine, order * (order + 1) / 2);
  allocate(report, c.swept, "LOGI", routine, order);
}

void set_matrix(residual_conditional& c, const double* R) {
  const std::int32_t nt = c.nt;
  c.order = nt;
  double* p = c.P.data();
  for (std::int32_t i = 0; i < nt; ++i)
    for (std::int32_t j = 0; j <= i; ++j) *p++ = R[i + j * nt]; // P(i,j) = R(i,j), j <= i
  std::fill_n(c.swept.data(), nt + 1, logical{0});
}

void set_border(residual_conditional& c, const double* e, std::int32_t mask) {
  const std::int32_t nt = c.nt;
  c.order = nt + 1;
  double* border = c.P.data() + nt * (nt + 1) / 2; // row nt+1 of P
  // P(nt+1,t) = e_t of the given traits, 0 of those to be drawn: the border of an unswept row then ends as
  // minus its conditional mean
  for (std::int32_t t = 1; t <= nt; ++t) border[t - 1] = trait_present(mask, t, nt) ? e[t - 1] : 0.0;
  border[nt] = 0;
}

double sweep_trait(residual_conditional& c, std::int32_t t) {
  double pivot = 0;
  int info = 0; // a row left unswept shows in `swept`
  sweep(t, c.P.data(), c.order, residual_tolerance, c.swept.data(), pivot, info);
  return pivot;
}

void sweep_mask(residual_conditional& c, std::int32_t mask) {
  // in trait order; the result does not depend on it but for rounding
  for (std::int32_t t = 1; t <= c.nt; ++t)
    if (trait_present(mask, t, c.nt)) sweep_trait(c, t);
}

} // namespace zeph
