#include "results/accumulators.h"

#include <algorithm>
#include <cmath>

namespace zeph {
namespace {

// Rows p above NGR(g,2) of each level of group g.
bool leaves_out_rows(const equation_layout& layout, std::int32_t g) {
  return layout.group(g).kind == group_kind::random_factor && layout.NGR(g, 2) < layout.group(g).stride;
}

// `to` has the shape of `from`: both are made at the start of the run.
template <class Array> void copy_values(const Array& from, Array& to) {
  std::copy_n(from.begin(), std::min(from.size(), to.size()), to.begin());
}

} // namespace

bool smaller_model(const equation_layout& layout) {
  for (std::int32_t g = 1; g <= layout.ngroups; ++g)
    if (leaves_out_rows(layout, g)) return true;
  return false;
}

bool inactive_equation(const equation_layout& layout, std::int64_t e) {
  for (std::int32_t g = 1; g <= layout.ngroups; ++g) {
    if (!leaves_out_rows(layout, g)) continue;
    const equation_group& group = layout.group(g);
    const std::int64_t x = e - group.base - 1; // 0-based place in the group
    if (x < 0 || x >= layout.NGR(g, 1) * group.stride) continue;
    if (x % group.stride + 1 > layout.NGR(g, 2)) return true;
  }
  return false;
}

void accumulate_solutions(const model_records&, const equation_layout& layout, sampler_store& store,
                          run_frame& frame) {
  frame.nsamples += 1;
  const bool smaller = smaller_model(layout);
  for (std::int64_t e = 1; e <= layout.neq; ++e) {
    if (smaller && inactive_equation(layout, e)) continue;
    const double x = store.sol(e);
    store.solpostmean(e) += x;
    store.pev(e) += x * x;
  }
}

void solution_moments(const run_frame& frame, sampler_store& store) {
  if (frame.analysis_type <= 0) {
    copy_values(store.sol, store.solpostmean);
    store.pev.fill(0);
    return;
  }
  const double n = frame.nsamples;
  const bool variances = static_cast<std::int64_t>(n) > 1;
  for (std::int64_t e = 1; e <= store.solpostmean.size(); ++e) {
    const double sum = store.solpostmean(e);
    store.pev(e) = variances ? (store.pev(e) - sum * sum / n) / (n - 1) : 0.0;
    store.solpostmean(e) = sum / n;
  }
}

void hand_over_sums(sampler_store& store, run_frame& frame) {
  copy_values(store.solpostmean, store.sols);
  copy_values(store.PARPOSTMEAN, store.pars);
  frame.nsamples = 0;
  store.solpostmean.fill(0);
  store.pev.fill(0);
  store.PARPOSTMEAN.fill(0);
  store.PARVAR.fill(0);
  store.dic_ressum.fill(0);
  store.dic_rrsum.fill(0);
  store.dic_s.fill(0);
}

} // namespace zeph
