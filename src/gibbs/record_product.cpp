#include "gibbs/record_product.h"

#include <algorithm>

namespace zeph {

void make_riff(const scan_records& r, std::int32_t irec, std::int32_t analysis_type, bool weights) {
  const design_store& d = r.design;
  mat<double>& riff = r.work.riff;
  const std::int32_t nt = r.model.nt, g = d.IRESG_M(irec);
  const double* source =
      analysis_type <= 0 ? &r.work.pattern_inverse(1, 1, d.C_ISIT_M(irec), g) : r.sampler.RCOVI.slice(g);
  std::copy_n(source, riff.size(), riff.data());
  if (!weights) return;
  const float* root = d.WV_SQRT_M.col(irec);
  for (std::int32_t i = 1; i <= nt; ++i) {
    const double wi = static_cast<double>(root[i - 1]);
    for (std::int32_t j = 1; j < i; ++j) {
      const double wj = static_cast<double>(root[j - 1]);
      riff(i, j) = riff(i, j) * wi * wj;
      riff(j, i) = riff(j, i) * wi * wj;
    }
    riff(i, i) *= static_cast<double>(d.WV_M(i, irec));
  }
}

} // namespace zeph
