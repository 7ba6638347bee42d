#include "input/mixture_store.h"

#include "input/trait_kinds.h"

namespace zeph {
namespace {

// MIX_EQ_TYPE of a trait with mixture regressions: the indicator that has the covariable's input number.
void name_indicators(model_records& m) {
  for (trait_record& trait : m.MODEL_rows) {
    if (!trait.L_MIX_TRAIT) continue;
    for (std::int32_t j = 1; j <= trait.n_reg; ++j) {
      if (!trait.REG_MIXTURE(j)) continue;
      for (std::int32_t t = 1; t <= m.nt; ++t)
        if (kind_of(m.MODEL(t)).indicator && m.MODEL(t).TRAIT_INP == trait.REG_INP(j)) trait.MIX_EQ_TYPE = t;
    }
  }
}

} // namespace

void allocate_mixtures(model_records& m, mixture_store& mixtures, reporting& report) {
  bool any = false;
  for (const trait_record& t : m.MODEL_rows) {
    any = any || kind_of(t).indicator;
    mixtures.flag = mixtures.flag || kind_of(t).proportion;
  }
  name_indicators(m);
  if (!any) return;
  const std::int64_t nobs = m.nobs();
  allocate(report, mixtures.mix_pi, "M_PI", "ZEPH", m.nt);
  allocate(report, mixtures.mix_pi_sum, "M_PI%SUM", "ZEPH", m.nt);
  allocate(report, mixtures.mix_pi_ss, "M_PI%SS", "ZEPH", m.nt);
  allocate_rows(report, mixtures.TAU_STAT, "TAU_STAT", "ZEPH", m.nt);
  for (std::int32_t t = 1; t <= m.nt; ++t) {
    if (m.MODEL(t).TRAIT_TYPE != trait_mixture) continue;
    tau_sums& sums = mixtures.TAU_STAT[static_cast<std::size_t>(t - 1)];
    allocate(report, sums.SUM, "TAU_STAT%SUM", "ZEPH", nobs);
    allocate(report, sums.SS, "TAU_STAT%SS", "ZEPH", nobs);
  }
  allocate(report, mixtures.MIXZ_COUNT, "MIXZ_COUNT", "ZEPH", m.nt, nobs);
  allocate(report, mixtures.MIXZ_LAST, "MIXZ_LAST", "ZEPH", m.nt, nobs);
}

void clear_mixture_sums(mixture_store& mixtures) {
  mixtures.mix_pi_sum.fill(0.0);
  mixtures.mix_pi_ss.fill(0.0);
  for (tau_sums& sums : mixtures.TAU_STAT) {
    sums.SUM.fill(0.0);
    sums.SS.fill(0.0);
  }
  mixtures.MIXZ_COUNT.fill(0);
}

} // namespace zeph
