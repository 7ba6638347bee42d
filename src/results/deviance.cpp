#include "results/deviance.h"

#include "formats/column_format.h"
#include "listing/listing_rows.h"
#include "numerics/packed_matrix.h"

#include <cmath>

namespace zeph {
namespace {

// Mean residual variance of trait j in group g.
double mean_variance(const model_records& m, const sampler_store& store, std::int32_t j, std::int32_t g) {
  return store.PARPOSTMEAN(ihmij(j, j, m.nt), m.nramat + g);
}

} // namespace

void deviance_means(const chain_counts& counts, sampler_store& store) {
  for (double& x : store.dic_ressum) x /= counts.nsamples;
  for (double& x : store.PARPOSTMEAN) x /= counts.nsamples;
}

void deviance_at_means(const model_records& m, const design_store& design, sampler_store& store) {
  store.dic_m.fill(0);
  for (std::int32_t i = 1; i <= design.nobs; ++i)
    for (std::int32_t j = 1; j <= m.nt; ++j) {
      // D(means) = sum over i of e_ij^2 / r_j + sum over g of N_g ln r_j, e and r_j means over the samples
      const double e = store.dic_ressum(j, i);
      store.dic_m(j) += e * e / mean_variance(m, store, j, design.IRESG_M(i));
    }
  for (std::int32_t g = 1; g <= store.G; ++g)
    for (std::int32_t j = 1; j <= m.nt; ++j)
      store.dic_m(j) += m.residual().HETG_N_OBS(m.hetgr_index(g)) * std::log(mean_variance(m, store, j, g));
}

void report_deviance(const model_records& m, const design_store& design, const chain_counts& counts,
                     sampler_store& store, reporting& report) {
  deviance_means(counts, store);
  deviance_at_means(m, design, store);
  say(report);
  say(report, "DIC per trait                            ");
  say(report);
  say(report, "Trait       DIC            pD            ");
  for (std::int32_t j = 1; j <= m.nt; ++j) {
    // DIC = 2 mean(D) - D(means) and pD = mean(D) - D(means)
    const double mean = store.dic_s(j) / counts.nsamples;
    const double DIC = 2 * store.dic_s(j) / counts.nsamples - store.dic_m(j), pD = mean - store.dic_m(j);
    say(report, column_line().T(8).A(m.MODEL(j).TRAIT_NAME, 10).G(DIC, 15, 8).G(pD, 15, 8).str());
  }
}

} // namespace zeph
