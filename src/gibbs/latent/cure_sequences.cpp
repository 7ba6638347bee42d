#include "gibbs/latent/cure_sequences.h"

#include "gibbs/latent/liability_draws.h"
#include "gibbs/latent/mixing_proportions.h"
#include "gibbs/scan/scan_records.h"
#include "numerics/normal_draws.h"
#include "numerics/normal_functions.h"

#include <algorithm>
#include <cstdlib>

namespace zeph {
namespace {

// CURE_YHAT(:,pos) += fitted values of record irec, summed in 32 bits
void add_fitted_row(const model_records& model, const equation_layout& layout, design_store& design,
                    const sampler_store& sampler, const record_values& values, const directives& asked,
                    std::int32_t irec, std::int32_t pos) {
  float* row = design.CURE_YHAT.unchecked_col(pos);
  add_fitted(entries_of(design, layout, sampler, asked.analysis_type), irec, row);
  if (!values.weighted) return;
  // weighted fitted values: w_t^1/2 (Z b)_t, a product of 32-bit numbers
  for (std::int32_t t = 1; t <= model.nt; ++t) row[t - 1] *= design.WV_SQRT_M(t, irec);
}

// LOG_Z(t,1..npos) = status
void set_status(design_store& design, std::int32_t t, std::int32_t npos, bool status) {
  for (std::int32_t i = 1; i <= npos; ++i) design.LOG_Z(t, i) = status;
}

// Status of kind 7 over the sequence that ends at irec: failed in any record.
void observe_status(const model_records& model, design_store& design, std::int32_t irec, std::int32_t npos) {
  for (std::int32_t t = 1; t <= model.nt; ++t) {
    const trait_record& trait = model.MODEL(t);
    if (trait.TRAIT_TYPE == trait_sequence) {
      // the sequence is records irec-npos+1..irec; one failure marks all its positions
      bool any = false;
      for (std::int32_t i = irec - npos + 1; i <= irec; ++i)
        any = any || design.CURE_Y[static_cast<std::size_t>(t - 1)](i) != 0;
      set_status(design, t, npos, any);
      if (trait.link2 > 0) set_status(design, trait.link2, npos, any);
    }
    // kind 8 belongs to the subject: only its last position keeps a fitted value
    if (trait.TRAIT_TYPE == trait_cured)
      for (std::int32_t i = 1; i < npos; ++i) design.CURE_YHAT(t, i) = 0.0F;
  }
}

double upper_tail(double x) {
  double lower = 0, upper = 0, density = 0;
  normal_tail(x, lower, upper, density);
  return upper;
}

// Where kind 7 has not failed in the sequence, whether the subject could fail (kind 8) is open:
//   P(cannot fail | no failure) = d = Q/(prod Phi + Q),  prod = product of Q(yhat_7(i)) over the
// positions, the chance that a subject that can fail does not; Phi and Q at kind 8's fitted value.
void draw_status(const model_records& model, design_store& design, combined_source& source,
                 std::int32_t npos) {
  for (std::int32_t t = 1; t <= model.nt; ++t) {
    const trait_record& trait = model.MODEL(t);
    // link1: the trait of kind 7 that belongs to t; where it has failed the subject can fail
    if (trait.TRAIT_TYPE != trait_cured || design.LOG_Z(trait.link1, npos) != 0) continue;
    double prod = 1.0;
    for (std::int32_t i = 1; i <= npos; ++i)
      prod *= upper_tail(static_cast<double>(design.CURE_YHAT(trait.link1, i)));
    double Phi = 0, Q = 0, density = 0;
    normal_tail(static_cast<double>(design.CURE_YHAT(t, npos)), Phi, Q, density);
    // a subject that can fail survives all positions with probability prod, one that cannot with 1
    const double d = Q / (prod * Phi + Q);
    const double a1 = uniform_range(source);
    if (!(a1 <= 1.0 - d)) continue;
    set_status(design, t, npos, true);
    set_status(design, trait.link1, npos, true);
  }
}

// What the record shows of each trait, and its residuals from the fitted row.
void describe_cure_record(const model_records& model, const design_store& design,
                          const category_store& categories, record_values& values, latent_work& latent,
                          const directives& asked, std::int32_t irec, std::int32_t i, std::int32_t npos) {
  const std::int32_t nt = model.nt;
  for (std::int32_t t = 1; t <= nt; ++t) {
    const std::int32_t type = model.MODEL(t).TRAIT_TYPE;
    const double y = static_cast<double>(design.Y_M(t, irec));
    // the sign of the stored liability remembers a binary observation; kind 7 has it in CURE_Y, kind 8 the
    // status of its last position
    latent.pos(t) = y > 0.0 && (type != trait_censored || trait_present(design.ISIT_M(irec), t, nt));
    if (type == trait_sequence) latent.pos(t) = design.CURE_Y[static_cast<std::size_t>(t - 1)](irec) != 0;
    if (type == trait_cured) latent.pos(t) = design.LOG_Z(t, npos);
    latent.category(t) = -1;
    values.fitted(t) = static_cast<double>(design.CURE_YHAT(t, i));
    values.res(t) = y - values.fitted(t);
    // as in take_record: nothing is imputed in type 0
    if (solves(asked.analysis_type) && !trait_present(design.ISIT_M(irec), t, nt))
      values.res(t) = values.fitted(t) = 0.0;
  }
  std::int64_t c = 0;
  for (const category_record& category : categories.catstr)
    latent.category(category.trait) = categories.catobs(++c, irec);
}

// Y_M = fitted value + residual of the latent traits; a value above 0 counts in mix_pi. Where the sign is
// known the stored one keeps it.
void store_cure_record(const model_records& model, design_store& design, mixture_store& mixtures,
                       record_values& values, const latent_work& latent, const directives& asked,
                       const round_state& state, std::int32_t irec, std::int32_t i) {
  const std::int32_t nt = model.nt;
  for (std::int32_t t = 1; t <= nt; ++t) {
    const std::int32_t type = model.MODEL(t).TRAIT_TYPE;
    if (!trait_present(design.ISIT_M(irec), t, nt)) continue;
    const double mean = values.fitted(t), res = values.res(t);
    // drawn on one side of 0, so that a rounded value must not cross it
    const bool one_sided =
        type == trait_liability || type == trait_cured || (type == trait_sequence && design.LOG_Z(t, i) != 0);
    if (one_sided)
      store_observation(design, values, irec, t, stored_liability(mean, res, latent.pos(t) != 0));
    else if (type == trait_categorical || type == trait_sequence)
      store_observation(design, values, irec, t, static_cast<float>(mean + res));
    const bool counted = type == trait_liability || type == trait_sequence || type == trait_cured;
    if (counted && design.Y_M(t, irec) > 0.0F) count_member(mixtures, asked, state, irec, t);
  }
}

// The sequence of records irec-npos+1..irec: what is known of it, the draws of its records in order, and
// CURE_YHAT back to 0 for the next one.
void close_sequence(scan_records& r, const directives& asked, const round_state& state, std::int32_t irec,
                    std::int32_t npos) {
  observe_status(r.model, r.design, irec, npos);
  draw_status(r.model, r.design, r.sources.combined, npos);
  for (std::int32_t i = 1; i <= npos; ++i) {
    const std::int32_t record = irec - npos + i;
    describe_cure_record(r.model, r.design, r.categories, r.work.values, r.work.latent, asked, record, i,
                         npos);
    liability_record x;
    x.mean = r.work.values.fitted.data();
    x.pos = r.work.latent.pos.data();
    x.cat = r.work.latent.category.data();
    x.cured = r.design.LOG_Z.unchecked_col(i);
    if (r.design.Y_MMIN.allocated()) {
      x.low = r.design.Y_MMIN.unchecked_col(record);
      x.high = r.design.Y_MMAX.unchecked_col(record);
    }
    x.isit = r.design.ISIT_M(record);
    x.h = r.design.IRESG_M(record);
    liab_sample(r.model, r.categories, r.work.latent, r.sources.combined, r.work.values.res.data(), x);
    store_cure_record(r.model, r.design, r.mixtures, r.work.values, r.work.latent, asked, state, record, i);
  }
  for (std::int32_t i = 1; i <= npos; ++i) std::fill_n(r.design.CURE_YHAT.unchecked_col(i), r.model.nt, 0.0F);
}

} // namespace

void bddrmc_cure(scan_records& r, const directives& asked, const round_state& state) {
  r.mixtures.MIXZ_LAST.fill(0);
  r.mixtures.mix_pi.fill(0.0);
  // |SEQ_M| is the position in the sequence; a negative one closes it
  for (std::int32_t irec = 1; irec <= r.design.nobs; ++irec) {
    const std::int32_t pos = std::abs(r.design.SEQ_M(irec));
    add_fitted_row(r.model, r.layout, r.design, r.sampler, r.work.values, asked, irec, pos);
    if (r.design.SEQ_M(irec) < 0) close_sequence(r, asked, state, irec, pos);
  }
  for (std::int32_t t = 1; t <= r.model.nt; ++t) divide_by_observations(r.model, r.design, r.mixtures, t);
}

} // namespace zeph
