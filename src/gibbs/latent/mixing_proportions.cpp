#include "gibbs/latent/mixing_proportions.h"

namespace zeph {
namespace {

constexpr double start_on = static_cast<double>(1e-4F); // above: the mixture coefficient is on

// records with the trait's bit set
std::int64_t observations_of(const model_records& model, const design_store& design, std::int32_t t) {
  std::int64_t n = 0;
  for (std::int32_t irec = 1; irec <= design.nobs; ++irec)
    n += trait_present(design.ISIT_M(irec), t, model.nt) ? 1 : 0;
  return n;
}

} // namespace

// mix_pi(t): a count during the pass, a proportion after it.
void divide_by_observations(const model_records& model, const design_store& design, mixture_store& mixtures,
                            std::int32_t t) {
  const std::int64_t n = observations_of(model, design, t);
  double& share = mixtures.mix_pi(t);
  share = n > 0 ? share / static_cast<double>(n) : 0.0;
}

void count_member(mixture_store& mixtures, const directives& asked, const round_state& state,
                  std::int32_t irec, std::int32_t t) {
  mixtures.mix_pi(t) += 1;
  mixtures.MIXZ_LAST(t, irec) = 1;
  if (is_sample_round(asked, state)) ++mixtures.MIXZ_COUNT(t, irec);
}

void start_mixing_proportions(const model_records& model, const design_store& design,
                              mixture_store& mixtures) {
  if (!mixtures.mix_pi.allocated()) return;
  // at the start entries are counted, not records: a record with two coefficients counts twice
  for (std::int32_t irec = 1; irec <= design.nobs; ++irec)
    for (std::int32_t j = 1; j <= design.M_M(irec); ++j)
      if (design.XD6_M(j, irec) > 0 && design.ZD_M(j, irec) > start_on && design.XD2_M(j, irec) > 0)
        mixtures.mix_pi(design.XD2_M(j, irec)) += 1;
  for (std::int32_t t = 1; t <= model.nt; ++t)
    if (model.MODEL(t).L_MIX_TRAIT) divide_by_observations(model, design, mixtures, t);
}

} // namespace zeph
