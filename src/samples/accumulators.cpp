#include "samples/accumulators.h"

#include <algorithm>
#include <cmath>

namespace zeph {
namespace {

// Rows p above NGR(g,2) of each level of group g.
bool leaves_out_rows(const equation_layout& layout, std::int32_t g) {
  return layout.group(g).kind == group_kind::random_factor && layout.NGR(g, 2) < layout.group(g).stride;
}

constexpr double smallest_spread =
    1e-12; // (co)variances: a sum of squares about the mean that counts as zero

// `to` has the shape of `from`: both are made at the start of the run.
template <class Array> void copy_values(const Array& from, Array& to) {
  std::copy_n(from.begin(), std::min(from.size(), to.size()), to.begin());
}

// Packed elements of column c of sscp: those of the current order of the factor,
// or of the residual for c > nramat.
std::int64_t packed_elements(const model_records& m, const round_state& state, std::int64_t c) {
  const std::int64_t d = state.ntr[static_cast<std::size_t>(std::min<std::int64_t>(c, m.nramat + 1) - 1)];
  return d * (d + 1) / 2;
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
                          chain_counts& counts) {
  counts.nsamples += 1;
  // rows that the model in force leaves out have no sample in this round; the divisor is the same for all
  const bool smaller = smaller_model(layout);
  for (std::int64_t e = 1; e <= layout.neq; ++e) {
    if (smaller && inactive_equation(layout, e)) continue;
    const double x = store.sol(e);
    store.solpostmean(e) += x;
    store.pev(e) += x * x;
  }
}

void accumulate_covariances(const model_records& m, sampler_store& store, const round_state& state) {
  for (std::int64_t c = 1; c <= m.nramat + store.G; ++c) {
    const std::int64_t n = packed_elements(m, state, c);
    for (std::int64_t e = 1; e <= n; ++e) {
      const double x = store.sscp(e, c);
      store.PARPOSTMEAN(e, c) += x;
      store.PARVAR(e, c) += x * x;
    }
  }
}

void accumulate_deviance(const model_records& m, sampler_store& store, const directives& asked,
                         const round_state& state) {
  if (has_several_models(asked.analysis_type) || !is_sample_round(asked, state)) return;
  for (std::int32_t g = 1; g <= store.G; ++g) {
    const double N = m.residual().HETG_N_OBS(m.hetgr_index(g));
    for (std::int32_t j = 1; j <= m.nt; ++j) {
      // D_j += N_g ln r_jj + sum of e_j^2 / r_jj over the records of group g
      const double r = store.RCOV(j, j, g);
      store.dic_s(j) = store.dic_s(j) + N * std::log(r) + store.dic_rrsum(j, g) / r;
    }
  }
}

void covariance_moments(const model_records& m, const directives& asked, const round_state& state,
                        const chain_counts& counts, sampler_store& store) {
  if (solves(asked.analysis_type)) return;
  const double n = counts.nsamples;
  if (static_cast<std::int64_t>(n) <= 1) {
    store.PARVAR.fill(0);
    return;
  }
  for (std::int64_t c = 1; c <= m.nramat + store.G; ++c) {
    const std::int64_t elements = packed_elements(m, state, c);
    for (std::int64_t e = 1; e <= elements; ++e) {
      // PARPOSTMEAN is a mean by now (deviance_means), PARVAR still a sum of squares
      const double mean = store.PARPOSTMEAN(e, c), D = store.PARVAR(e, c) - n * mean * mean;
      store.PARVAR(e, c) = D <= smallest_spread ? 0.0 : std::sqrt(D / (n - 1)); // NaN stays NaN
    }
  }
}

void solution_moments(const directives& asked, const chain_counts& counts, sampler_store& store) {
  if (solves(asked.analysis_type)) {
    copy_values(store.sol, store.solpostmean);
    store.pev.fill(0);
    return;
  }
  const double n = counts.nsamples;
  const bool variances = static_cast<std::int64_t>(n) > 1;
  for (std::int64_t e = 1; e <= store.solpostmean.size(); ++e) {
    // pev = (ss - s^2/n) / (n-1), a variance; solpostmean = s/n
    const double sum = store.solpostmean(e);
    store.pev(e) = variances ? (store.pev(e) - sum * sum / n) / (n - 1) : 0.0;
    store.solpostmean(e) = sum / n;
  }
}

void hand_over_sums(sampler_store& store, chain_counts& counts) {
  copy_values(store.solpostmean, store.sols);
  copy_values(store.PARPOSTMEAN, store.pars);
  counts.nsamples = 0;
  store.solpostmean.fill(0);
  store.pev.fill(0);
  store.PARPOSTMEAN.fill(0);
  store.PARVAR.fill(0);
  store.dic_ressum.fill(0);
  store.dic_rrsum.fill(0);
  store.dic_s.fill(0);
}

} // namespace zeph
