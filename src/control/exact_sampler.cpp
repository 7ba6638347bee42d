#include "control/exact_sampler.h"

#include "control/sampler_file.h"
#include "gibbs/scan/residual_body.h"
#include "input/structures.h"
#include "listing/stops.h"

#include <string>

namespace zeph {
namespace {

[[noreturn]] void refuse(reporting& report, std::string_view item,
                         std::initializer_list<std::int64_t> indices, std::string_view value,
                         std::string_view rule) {
  illegal_input(report, sampler_file, item, indices, value, rule);
}

bool latent_kind(std::int32_t kind) { return kind != trait_gaussian; }

void refuse_directives(run& r) {
  if (r.asked.test_level > 1)
    refuse(r.report, "exact", {}, "test level " + std::to_string(r.asked.test_level), "test level 0 or 1");
  if (r.asked.nfeto > 0)
    refuse(r.report, "exact", {}, "covariables made from solutions",
           "no such covariables: fit the effect itself, or leave exact out");
  if (r.asked.restart)
    refuse(r.report, "exact", {}, "r_parm and oldsol",
           "continue a chain from r_state: the two files do not hold the state of an exact chain");
  for (std::int32_t t = 1; t <= r.model.nt; ++t)
    if (!samples_solutions(r.asked.analysis_type) && latent_kind(r.model.MODEL(t).TRAIT_TYPE))
      refuse(r.report, "TRAIT_TYPE", {t}, std::to_string(r.model.MODEL(t).TRAIT_TYPE),
             "1 below type of analysis 2: a solver has no exact step for latent values");
  for (std::int32_t k = 1; k <= r.model.nramat; ++k)
    if (r.model.RMAT(k).L_RAM)
      refuse(r.report, "L_RAM", {k}, "T",
             "the whole animal model: a reduced one leaves levels out of its sum");
}

// Structure and prior degrees of freedom of every factor of two rows and more, for analyses over models.
void refuse_factors(run& r) {
  if (!has_several_models(r.asked.analysis_type)) return;
  for (std::int32_t k = 1; k <= r.model.nramat; ++k) {
    const std::int32_t q = r.model.RMAT(k).n_rc;
    if (q > 1 && moves_between_models(r.asked.analysis_type) && !is_identity(r.model.RMAT(k)) &&
        !is_pedigree(r.model.RMAT(k)))
      refuse(r.report, "CV_STRUCT", {k},
             r.model.RMAT(k).CV_STRUCT.substr(0, r.model.RMAT(k).CV_STRUCT.find(' ')),
             "no structure or a pedigree for a factor whose rows come and go");
    if (q > 1 && r.asked.PDF(k) <= q + 1)
      refuse(r.report, "PDF", {k}, std::to_string(r.asked.PDF(k)),
             "above " + std::to_string(q + 1) + ": models are compared under proper priors only");
  }
}

void refuse_record(run& r, std::int32_t irec) {
  const design_store& d = r.design;
  const std::int32_t nt = r.model.nt, mask = d.ISIT_M(irec);
  for (std::int32_t t = 1; t <= nt; ++t) {
    if (trait_present(mask, t, nt) && !(d.WV_M(t, irec) > 0.0F))
      refuse(r.report, "weight", {irec, t}, "0", "above 0: make the trait missing in this record");
    if (r.model.MODEL(t).TRAIT_TYPE == trait_cured && trait_present(mask, t, nt) != (d.SEQ_M(irec) < 0))
      refuse(r.report, "mask of traits", {irec}, std::to_string(mask),
             "a trait of type 8 in the last record of each sequence and in no other");
  }
  for (std::int32_t j = 1; j <= d.M_M(irec); ++j)
    if (d.XD6_M(j, irec) > 0 && r.model.MODEL(d.XD6_M(j, irec)).TRAIT_TYPE == trait_mixture &&
        !trait_present(mask, d.XD6_M(j, irec), nt))
      refuse(r.report, "mask of traits", {irec}, std::to_string(mask),
             "the indicator too where a record has a coefficient of it");
}

// Flat effects of an indicator: some allocation of the records separates every effect beside one mean, and
// would have infinite weight.
void refuse_flat_effects(run& r, std::int32_t t) {
  const trait_record& trait = r.model.MODEL(t);
  std::int64_t equations = 0;
  for (std::int32_t j = 1; j <= trait.n_f; ++j)
    if (trait.INTERCEPT(j)) equations += r.model.NLEV(t, j);
  for (std::int32_t j = 1; j <= trait.n_reg; ++j) {
    if (trait.REG_TYPE(j) == 0) ++equations;
    if (trait.REG_TYPE(j) == 1) equations += r.model.NLEV(t, trait.REG_N_EF_INP(j));
  }
  bool changes_sign = false;
  double first = 0;
  for (std::int32_t irec = 1; irec <= r.design.nobs && equations == 1; ++irec)
    for (std::int32_t j = 1; j <= r.design.M_M(irec); ++j) {
      if (r.design.XD2_M(j, irec) != t || r.design.XD7_M(j, irec) != 0) continue;
      if (first == 0) first = r.design.ZD_M(j, irec);
      changes_sign = changes_sign || first * r.design.ZD_M(j, irec) < 0;
    }
  if (equations > 1 || changes_sign)
    refuse(r.report, "flat effects", {t}, std::to_string(equations),
           "a mean alone for a trait of type 5 or 8: make the other effects random");
}

} // namespace

void begin_exact_sampler(run& r) {
  if (!r.asked.sampler.exact) return;
  refuse_directives(r);
  refuse_factors(r);
  for (std::int32_t irec = 1; irec <= r.design.nobs; ++irec) refuse_record(r, irec);
  for (std::int32_t t = 1; t <= r.model.nt; ++t)
    if (r.model.MODEL(t).TRAIT_TYPE == trait_mixture || r.model.MODEL(t).TRAIT_TYPE == trait_cured)
      refuse_flat_effects(r, t);
  round_components(r.model, r.design, r.sampler);
  count_group_records(r.model, r.design);
  count_components(r.model, r.design, r.sampler, r.asked, r.work.sweep, r.report);
  if (samples_matrices(r.asked.analysis_type))
    find_residual_parts(r.model, r.asked, r.work.matrices.parts, r.work.matrices.draw, r.report);
}

void find_exact_forms(run& r) {
  if (!r.asked.sampler.exact) return;
  scan_records records = records_of(r);
  if (body_of(records, r.asked) != scan_body::fast)
    refuse(r.report, "exact", {}, "records that cannot be stored as columns",
           "equations of a record within their own group and level");
  if (!solves(r.asked.analysis_type)) prepare_densities(records, r.asked);
  find_level_meetings(r.model, r.layout, r.design, r.sampler, r.asked, r.work.meetings, r.report);
  std::int64_t largest = 0;
  for (std::int32_t g = 1; g <= r.layout.ngroups; ++g)
    if (r.work.meetings.groups[static_cast<std::size_t>(g - 1)].any())
      largest = std::max(largest, std::int64_t{r.layout.NGR(g, 1)} * r.layout.group(g).stride);
  if (largest > 0) allocate(r.report, r.work.levels.entered, "entered", "level_meetings", largest);
}

} // namespace zeph
