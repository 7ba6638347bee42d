#include "gibbs/residuals/record_values.h"

#include "numerics/column_view.h"

namespace zeph {
namespace {

// A trait that is missing in the solver has residual and fitted value 0, whatever Y_M holds. With sampling
// every trait has a value in Y_M, observed or imputed.
void clear_missing(const record_entries& x, record_values& v, std::int32_t irec, std::int32_t nt) {
  for (std::int32_t t = 1; t <= nt; ++t)
    if (!trait_present(x.design.ISIT_M(irec), t, nt)) v.res(t) = v.fitted(t) = 0.0;
}

} // namespace

void allocate_record_values(const model_records& m, record_values& v, reporting& report) {
  v.weighted = m.has_weights();
  allocate(report, v.fitted, "fitted", "liab_sample", m.nt);
  allocate(report, v.res, "res", "Bddrmc_sscp", m.nt);
}

void read_record(const record_entries& x, record_values& v, std::int32_t irec) {
  const auto nt = static_cast<std::int32_t>(v.res.size());
  const auto y = col_of(x.design.Y_M, irec);
  if (v.kept == nullptr) { // fitted = Z b
    v.fitted.fill(0.0);
    add_fitted(x, irec, v.fitted.data());
    for (std::int32_t t = 1; t <= nt; ++t) v.res(t) = static_cast<double>(y(t)) - v.fitted(t);
  } else { // fitted = y - e
    const mat<double>& E = *v.kept;
    for (std::int32_t t = 1; t <= nt; ++t) {
      v.res(t) = E(irec, t);
      v.fitted(t) = static_cast<double>(y(t)) - v.res(t);
    }
  }
  if (solves(x.analysis_type)) clear_missing(x, v, irec, nt);
}

void take_record(const record_entries& x, record_values& v, std::int32_t irec) {
  read_record(x, v, irec);
  if (!v.weighted) return;
  // res(t) = w_t^1/2 e(t); the fitted values stay without weights
  const auto root = col_of(x.design.WV_SQRT_M, irec);
  for (std::int64_t t = 1; t <= v.res.size(); ++t) v.res(t) *= static_cast<double>(root(t));
}

void store_coefficient(design_store& d, const record_entries& x, record_values& v, std::int32_t irec,
                       std::int32_t e, double z) {
  double& stored = d.ZD_M(e, irec);
  if (v.kept != nullptr && entry_active(x, irec, e)) // e -= (z - z_old) b
    (*v.kept)(irec, x.design.XD2_M(e, irec)) -= (z - stored) * x.sol(x.design.XD1_M(e, irec));
  stored = z;
}

} // namespace zeph
