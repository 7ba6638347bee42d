// The values of one record by trait: its fitted values and residuals with the solutions as they
// are, and the changes of its observations and coefficients. A pass over the records says first
// where the values come from: from the entries of the record, or from residuals that the scan
// body has kept. Either way they agree to rounding.
#pragma once

#include "input/analysis.h"
#include "input/design_store.h"
#include "input/equation_layout.h"

namespace zeph {

struct record_values {
  bool weighted = false;       // the model has weights
  mat<double>* kept = nullptr; // nobs x nt: y - Z b of all records, not weighted; null: from the entries
  vec<double> fitted;          // nt: Z b of the record
  vec<double> res;             // nt: its residuals
};

// What the entries of the records are read with.
struct record_entries {
  const design_store& design;
  const equation_layout& layout;
  const vec<double>& sol;
  analysis analysis_type;
};

void allocate_record_values(const model_records& m, record_values& v, reporting& report);

inline void values_from_entries(record_values& v) { v.kept = nullptr; }
inline void values_from_residuals(record_values& v, mat<double>& E) { v.kept = &E; }

// True when entry e (1-based) of record irec takes part: its equation belongs to the current model
// (and, unless the run solves, its trait is set).
inline bool entry_active(const design_store& d, const equation_layout& layout, std::int32_t irec,
                         std::int32_t e, analysis analysis_type) {
  if (!solves(analysis_type) && d.XD2_M(e, irec) <= 0) return false;
  return d.XD7_M(e, irec) == 0 || d.XD5_M(e, irec) <= layout.NGR(d.XD3_M(e, irec), 2);
}
inline bool entry_active(const record_entries& x, std::int32_t irec, std::int32_t e) {
  return entry_active(x.design, x.layout, irec, e, x.analysis_type);
}

// fitted(t) += sum over the entries of trait t of coefficient times solution, entry by entry in the
// precision of `fitted` (nt).
template <class Float> void add_fitted(const record_entries& x, std::int32_t irec, Float* fitted) {
  const design_store& d = x.design;
  for (std::int32_t j = 1; j <= d.M_M(irec); ++j) {
    if (!entry_active(x, irec, j)) continue;
    Float& sum = fitted[d.XD2_M(j, irec) - 1];
    sum = static_cast<Float>(static_cast<double>(sum) + x.sol(d.XD1_M(j, irec)) * d.ZD_M(j, irec));
  }
}

// v.fitted and v.res = y - fitted of record irec (1-based), without weights. In the solver
// both are 0 for a missing trait: nothing is imputed there.
void read_record(const record_entries& x, record_values& v, std::int32_t irec);

// The same with the weights of the model: res(t) = (y - fitted) w^1/2.
void take_record(const record_entries& x, record_values& v, std::int32_t irec);

// Y_M(t) = y for record irec; a kept residual follows, its fitted value unchanged.
inline void store_observation(design_store& d, record_values& v, std::int32_t irec, std::int32_t t, float y) {
  float& stored = d.Y_M(t, irec);
  if (v.kept != nullptr) {
    double& e = (*v.kept)(irec, t);
    e = static_cast<double>(y) - (static_cast<double>(stored) - e); // y - fitted
  }
  stored = y;
}

// Coefficient of entry e = z; a kept residual follows.
void store_coefficient(design_store& d, const record_entries& x, record_values& v, std::int32_t irec,
                       std::int32_t e, double z);

} // namespace zeph
