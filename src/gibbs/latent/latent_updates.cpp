#include "gibbs/latent/latent_updates.h"

#include "gibbs/latent/cure_sequences.h"
#include "gibbs/scan/scan_records.h"
#include "input/trait_kinds.h"
#include "samples/sample_files.h"

#include <algorithm>

namespace zeph {
namespace {

// What is known of record irec, for liab_sample: fitted values, signs, categories, bounds.
liability_record described(const design_store& design, const record_values& values, const latent_work& latent,
                           std::int32_t irec) {
  liability_record x;
  x.mean = values.fitted.data();
  x.pos = latent.pos.data();
  x.cat = latent.category.data();
  if (design.Y_MMIN.allocated()) {
    x.low = design.Y_MMIN.unchecked_col(irec);
    x.high = design.Y_MMAX.unchecked_col(irec);
  }
  x.cured = latent.cured.data();
  x.isit = design.ISIT_M(irec);
  x.h = design.IRESG_M(irec);
  return x;
}

// Codes of CENS_M: -1 left, 1 right, 2 interval; Y_MMIN and Y_MMAX bound the value.
bool censored_code(std::int32_t code) { return code == -1 || code == 1 || code == 2; }

} // namespace

// One walk: e = y - Z b of the record, then each latent trait given the others, then y = Z b + e. The
// sign of the liability before says which side a binary trait is drawn on.
void bddrmc_cat(scan_records& r, const directives& asked) {
  const std::int32_t nt = r.model.nt;
  const record_entries entries = entries_of(r, asked.analysis_type);
  r.work.latent.cured.fill(0);
  for (std::int32_t irec = 1; irec <= r.design.nobs; ++irec) {
    take_record(entries, r.work.values, irec);
    for (std::int32_t t = 1; t <= nt; ++t) {
      const bool present = trait_present(r.design.ISIT_M(irec), t, nt);
      r.work.latent.pos(t) =
          r.design.Y_M(t, irec) > 0.0F && (present || r.model.MODEL(t).TRAIT_TYPE != trait_censored);
      r.work.latent.category(t) = -1;
    }
    std::int64_t c = 0; // row of catobs: the c-th ordered trait
    for (const category_record& category : r.categories.catstr)
      r.work.latent.category(category.trait) = r.categories.catobs(++c, irec);
    liab_sample(r.model, r.categories, r.work.latent, r.sources.combined, r.work.values.res.data(),
                described(r.design, r.work.values, r.work.latent, irec));
    for (std::int32_t t = 1; t <= nt; ++t) {
      if (!trait_present(r.design.ISIT_M(irec), t, nt)) continue;
      const double mean = r.work.values.fitted(t), res = r.work.values.res(t);
      if (r.model.MODEL(t).TRAIT_TYPE == trait_liability)
        store_observation(r.design, r.work.values, irec, t,
                          stored_liability(mean, res, r.work.latent.pos(t) != 0));
      if (r.model.MODEL(t).TRAIT_TYPE == trait_categorical)
        store_observation(r.design, r.work.values, irec, t, static_cast<float>(mean + res));
    }
  }
}

// kept: a censored trait is drawn in bddrmc_cat too where its value is positive; here it is stored
void bddrmc_cens(scan_records& r, const directives& asked) {
  const std::int32_t nt = r.model.nt;
  const record_entries entries = entries_of(r, asked.analysis_type);
  for (std::int32_t irec = 1; irec <= r.design.nobs; ++irec) {
    bool any = false;
    for (std::int32_t t = 1; t <= nt; ++t) {
      r.work.latent.pos(t) = r.model.MODEL(t).TRAIT_TYPE == trait_censored &&
                             censored_code(r.design.CENS_M(t, irec)) &&
                             trait_present(r.design.ISIT_M(irec), t, nt);
      any = any || r.work.latent.pos(t) != 0;
    }
    if (!any) continue;
    take_record(entries, r.work.values, irec);
    liability_record x = described(r.design, r.work.values, r.work.latent, irec);
    x.censored_only = true;
    liab_sample(r.model, r.categories, r.work.latent, r.sources.combined, r.work.values.res.data(), x);
    for (std::int32_t t = 1; t <= nt; ++t)
      if (r.work.latent.pos(t) != 0)
        store_observation(r.design, r.work.values, irec, t,
                          static_cast<float>(r.work.values.fitted(t) + r.work.values.res(t)));
  }
}

namespace {

// minu(k), maxu(k): smallest and largest liability of the records of category k
void find_extremes(const design_store& d, const category_store& categories, std::int32_t c,
                   category_record& x) {
  x.minu.fill(outer_limit);
  x.maxu.fill(-outer_limit);
  for (std::int32_t irec = 1; irec <= d.nobs; ++irec) {
    const std::int32_t k = categories.catobs(c, irec);
    if (k < 1) continue;
    const double y = static_cast<double>(d.Y_M(x.trait, irec));
    x.minu(k) = std::min(x.minu(k), y);
    x.maxu(k) = std::max(x.maxu(k), y);
  }
}

// In sample rounds of all types above 0: sums of the thresholds and their rows in `threshold`.
void keep_thresholds(category_store& categories, reporting& report, const directives& asked,
                     const round_state& state, sample_files& files) {
  if (!takes_sample(asked, state)) return;
  for (category_record& x : categories.catstr)
    for (std::int32_t k = 1; k <= x.ncat_t - 1; ++k) {
      x.thrpostm(k) += x.thr(k);
      x.thrpostsd(k) += x.thr(k) * x.thr(k);
      // kept: every row names the first ordered trait; readers go by the order of the rows
      write_threshold(files, state, categories.catstr.front().trait, k, x.thr(k), report);
    }
  flush_thresholds(files, report);
}

} // namespace

void samp_thresholds(const design_store& design, category_store& categories, combined_source& source,
                     reporting& report, const directives& asked, const round_state& state,
                     sample_files& files) {
  std::int32_t c = 0;
  for (category_record& x : categories.catstr) find_extremes(design, categories, ++c, x);
  for (category_record& x : categories.catstr)
    for (std::int32_t k = 2; k <= x.ncat_t - 2; ++k)
      // given the liabilities thr(k) is uniform between the largest of category k and the smallest of k+1
      x.thr(k) = uniform_range(source, x.maxu(k), x.minu(k + 1));
  // the two outer thresholds fix location and scale of the liability
  for (category_record& x : categories.catstr) {
    x.thr(1) = 0.0;
    x.thr(x.ncat_t - 1) = 1.0;
  }
  keep_thresholds(categories, report, asked, state, files);
}

bool has_latent_traits(const model_records& m, const directives& asked) {
  for (const value_pass pass : {value_pass::liabilities, value_pass::sequences, value_pass::mixtures})
    if (has_pass(m, pass)) return true;
  return has_pass(m, value_pass::bounds) && !scans_in_two_stages(asked);
}

void update_latent_variables(scan_records& r, const directives& asked, const round_state& state,
                             sample_files& files) {
  const model_records& m = r.model;
  const bool liabilities = has_pass(m, value_pass::liabilities), mixture = has_pass(m, value_pass::mixtures);
  const bool sequence = has_pass(m, value_pass::sequences);
  // kept: the form with covariables made from solutions leaves thresholds and censored values as they are
  const bool two_stages = scans_in_two_stages(asked);
  // in this order: liabilities, thresholds from them, sequences, mixtures, censored values; all from the
  // combined source
  if (asked.sampler.exact) {
    sweep_latent_values(r, asked, state);
    if (m.has_type(trait_categorical)) {
      draw_thresholds(r.design, r.categories, r.sources.combined);
      keep_thresholds(r.categories, r.report, asked, state, files);
    }
  } else {
    prepare_conditionals(r.model, r.sampler, r.work.latent);
    if (liabilities && !sequence) bddrmc_cat(r, asked);
    if (m.has_type(trait_categorical) && !two_stages)
      samp_thresholds(r.design, r.categories, r.sources.combined, r.report, asked, state, files);
    if (sequence) bddrmc_cure(r, asked, state);
    if (mixture) bddrmc_mix(r, asked, state);
    if (has_pass(m, value_pass::bounds) && !two_stages) bddrmc_cens(r, asked);
  }
  if (!sequence && !mixture) return;
  if (!takes_sample(asked, state)) return;
  write_mix_pi(files, state, r.mixtures.mix_pi, r.report);
  for (std::int32_t t = 1; t <= m.nt; ++t) {
    const double share = r.mixtures.mix_pi(t);
    r.mixtures.mix_pi_sum(t) += share;
    r.mixtures.mix_pi_ss(t) += share * share;
  }
}

} // namespace zeph
