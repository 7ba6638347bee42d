#include "gibbs/residuals/fast_residual_pass.h"

#include "gibbs/residuals/residual_sums.h"
#include "gibbs/scan/residual_body.h"
#include "input/trait_kinds.h"
#include "numerics/column_view.h"
#include "numerics/normal_draws.h"
#include "numerics/packed_matrix.h"

#include <algorithm>
#include <cmath>

namespace zeph {
namespace {

constexpr double half_log_two_pi = 0.91893853320467274178;
constexpr double far_out = 36.0; // normal_tail: density 0 beyond 37

// Layout of conditional(:,mask+1,h): R_mo R_oo^-1 (missing x present, row by row, room for nt^2), then the
// set-up of the draw of the missing traits: their number, means 0, the factor of R_mm - R_mo R_oo^-1 R_om.
column_view<double> coefficients_of(residual_form& fast, std::int64_t mask, std::int32_t h) {
  return {&fast.conditional(1, mask + 1, h), fast.conditional.extent(1)};
}
column_view<double> setup_of(const model_records& model, residual_form& fast, std::int64_t mask,
                             std::int32_t h) {
  const std::int64_t before = std::int64_t{model.nt} * model.nt;
  return coefficients_of(fast, mask, h).part(before, fast.conditional.extent(1) - before);
}

// R of group h swept on the present traits of the mask: the block of these holds R_oo^-1.
void sweep_present(const sampler_store& sampler, missing_draws& draws, const mask_form& mask,
                   std::int32_t h) {
  // without a border: one sweep of R serves all records of the mask and group
  set_matrix(draws.given, sampler.RCOV.unchecked_slice(h));
  for (const std::int32_t t : mask.present) sweep_trait(draws.given, t);
}

// Distribution of the missing traits given the present ones; once a round.
void prepare_conditional(const model_records& model, const sampler_store& sampler, missing_draws& draws,
                         residual_form& fast, reporting& report, std::int64_t index, std::int32_t h) {
  const mask_form& mask = fast.masks[static_cast<std::size_t>(index)];
  const std::int64_t m = static_cast<std::int64_t>(mask.missing.size());
  sweep_present(sampler, draws, mask, h);
  const residual_conditional& given = draws.given;
  const auto coefficients = coefficients_of(fast, index, h);
  std::int64_t at = 0;
  for (std::int64_t i = 0; i < m; ++i) {
    // row t of R_mo R_oo^-1, and of R_mm - R_mo R_oo^-1 R_om
    const std::int32_t t = mask.missing[static_cast<std::size_t>(i)];
    for (const std::int32_t u : mask.present) coefficients[at++] = coefficient_given(given, t, u);
    draws.mean(i + 1) = 0;
    for (std::int64_t j = 0; j < m; ++j)
      draws.covariance(1 + i + j * m) = covariance_given(given, t, mask.missing[static_cast<std::size_t>(j)]);
  }
  ranmar_setgmn(report, draws.mean.data(), draws.covariance.data(), m, static_cast<std::int32_t>(m),
                setup_of(model, fast, index, h).unchecked(), draws.draw);
  fast.prepared(index * sampler.G + h) = 1;
}

// res(missing) = conditional mean - L z, as sample_missing draws it.
void draw_conditional(const model_records& model, const sampler_store& sampler, missing_draws& draws,
                      residual_form& fast, reporting& report, std::int64_t index, std::int32_t h,
                      column_view<double> res, column_view<const double> z) {
  if (fast.prepared(index * sampler.G + h) == 0)
    prepare_conditional(model, sampler, draws, fast, report, index, h);
  const mask_form& mask = fast.masks[static_cast<std::size_t>(index)];
  const std::int64_t m = static_cast<std::int64_t>(mask.missing.size());
  const auto coefficients = coefficients_of(fast, index, h);
  // the factor U (U'U the covariance) by rows: row j begins m - j elements after row j-1
  const auto factor = setup_of(model, fast, index, h).part(1 + m, m * (m + 1) / 2);
  std::int64_t at = 0;
  for (std::int64_t i = 0; i < m; ++i) { // x_i = mean_i - sum over j <= i of u_ji z_j
    double mean = 0;
    for (const std::int32_t u : mask.present) mean += coefficients[at++] * res(u);
    double x = 0;
    std::int64_t element = i;
    for (std::int64_t j = 0; j <= i; ++j) {
      x += factor[element] * z[j];
      element += m - j - 1;
    }
    draws.x(i + 1) = mean - x;
  }
  for (std::int64_t i = 0; i < m; ++i) res(mask.missing[static_cast<std::size_t>(i)]) = draws.x(i + 1);
}

// Y_M and E of the missing traits of record i (from 0) from their new residuals.
void store_drawn(design_store& design, record_values& values, const mask_form& mask, std::int64_t i,
                 column_view<const double> res) {
  for (const std::int32_t t : mask.missing)
    store_observation(design, values, static_cast<std::int32_t>(i + 1), t, static_cast<float>(res(t)));
}

// Sums of a sample round: e by trait and record, e^2 by trait and group, e itself where residuals are kept.
void keep_sampled(const model_records& model, design_store& design, sampler_store& sampler, std::int64_t i,
                  std::int32_t h, column_view<const double> res) {
  for (std::int32_t t = 1; t <= model.nt; ++t) {
    const double e = res(t);
    sampler.dic_ressum(t, i + 1) += e;
    sampler.dic_rrsum(t, h) += e * e;
    if (model.keeps_residuals()) design.ZEPH_RES(t, i + 1) = e;
  }
}

// product += e e', packed, lower triangle by rows
inline void add_square(const double* e, std::int32_t nt, double* product) {
  for (std::int32_t j = 0; j < nt; ++j)
    for (std::int32_t k = 0; k <= j; ++k) *product++ += e[j] * e[k];
}

// Records lo+1..hi: products, largest sizes, draws. order: traits when known to
// the compiler, else 0.
template <int order>
void take_records(scan_records& r, bool exact, bool weights, bool sampled, std::int64_t lo, std::int64_t hi) {
  residual_form& form = r.work.fast;
  const std::int32_t nt = order > 0 ? order : r.model.nt;
  const column_view<const double> E = view_of(form.E);
  const std::int64_t nobs = r.design.nobs;
  const auto res = view_of(form.weighed);
  const auto largest = view_of(form.largest);
  const column_view<const std::int32_t> mask_of = view_of(form.mask_of), group_of = view_of(r.design.IRESG_M);
  const std::int64_t packed = std::int64_t{nt} * (nt + 1) / 2;
  const std::int64_t masks = static_cast<std::int64_t>(form.masks.size());
  const column_view<const double> normals = view_of(form.normals);
  std::int64_t taken = 0; // of them
  for (std::int64_t i = lo; i < hi; ++i) {
    const std::int64_t index = mask_of[i];
    const std::int32_t h = group_of[i];
    for (std::int32_t t = 0; t < nt; ++t) {
      // e weighted by w^1/2
      res[t] = E[i + t * nobs];
      if (weights) res[t] *= static_cast<double>(r.design.WV_SQRT_M(t + 1, i + 1));
      largest[t] = std::max(largest[t], std::fabs(res[t]));
    }
    // products(:,mask,h) += e e', packed: before the missing ones are drawn, in the exact sampler after it
    double* product = part_of(form.products, (index + (h - 1) * masks) * packed, packed).unchecked();
    if (!exact) add_square(res.unchecked(), nt, product);
    const mask_form& mask = form.masks[static_cast<std::size_t>(index)];
    if (!mask.missing.empty()) {
      // z: the next normals of the block, one for each missing trait, traits ascending
      const std::int64_t m = static_cast<std::int64_t>(mask.missing.size());
      draw_conditional(r.model, r.sampler, r.work.missing, r.work.fast, r.report, index, h, res,
                       normals.part(taken, m));
      taken += m;
      store_drawn(r.design, r.work.values, mask, i, res);
    }
    if (exact) add_square(res.unchecked(), nt, product);
    if (sampled) keep_sampled(r.model, r.design, r.sampler, i, h, res);
  }
}

// Records of one trait without weights, all present: their residuals' squares.
void take_single(residual_form& form, std::int64_t lo, std::int64_t hi) {
  const column_view<const double> e = col_of(form.E, 1);
  double largest = form.largest(1), sums[4] = {}; // four sums that do not wait for each other
  std::int64_t i = lo;
  for (; i + 4 <= hi; i += 4)
    for (int k = 0; k < 4; ++k) {
      sums[k] += e[i + k] * e[i + k];
      largest = std::max(largest, std::fabs(e[i + k]));
    }
  for (; i < hi; ++i) {
    sums[0] += e[i] * e[i];
    largest = std::max(largest, std::fabs(e[i]));
  }
  form.products(1, 1, 1) += (sums[0] + sums[1]) + (sums[2] + sums[3]);
  form.largest(1) = largest;
}

// The standard normals of a block of records at once, one for each missing trait in record order: the same
// numbers as one by one.
void draw_normals(residual_form& fast, marsaglia_source& marsaglia, std::int64_t lo, std::int64_t hi) {
  std::int64_t n = 0;
  for (std::int64_t i = lo; i < hi; ++i)
    n += static_cast<std::int64_t>(fast.masks[static_cast<std::size_t>(fast.mask_of(i + 1))].missing.size());
  if (n > 0) ranmar_snorms(marsaglia, part_of(fast.normals, 0, n).unchecked(), n);
}

// sscp(:,nramat+h) += products of all masks of group h; pairs of LNCOV are left out where the matrix is
// drawn without them, not in the exact sampler.
void add_products(const model_records& model, sampler_store& sampler, const residual_form& fast, bool exact) {
  const std::int64_t packed = fast.products.extent(1), masks = fast.products.extent(2);
  for (std::int32_t h = 1; h <= sampler.G; ++h)
    for (std::int64_t k = 1; k <= packed; ++k) {
      if (!exact && sampler.LNCOV(k)) continue;
      double& sum = sampler.sscp(k, model.nramat + h);
      for (std::int64_t m = 1; m <= masks; ++m) sum += fast.products(k, m, h);
    }
}

// Adds the part of one mask and group; false when a density may be 0, or when a
// pivot was too small to sweep: the records are then scored one by one.
bool add_density(const sampler_store& sampler, missing_draws& draws, const residual_form& fast,
                 std::int64_t index, std::int32_t h, std::int64_t records, double& lik) {
  const mask_form& mask = fast.masks[static_cast<std::size_t>(index)];
  sweep_present(sampler, draws, mask, h);
  const residual_conditional& swept = draws.given;
  const std::int64_t packed = fast.products.extent(1);
  const column_view<const double> S(&fast.products(1, index + 1, h), packed);
  // tr(R_oo^-1 S_oo) over the records of the mask, and a bound of |z|: sum over t of |e_t| (R_oo^-1)_tt^1/2,
  // e_t the largest residual of the trait
  // record by record -log p would be the sum over t of z_t^2/2 + log(2 pi)/2, z_t the t-th residual given
  // those before it, standardised; the sum of z_t^2 is e_o'R_oo^-1 e_o
  double quadratic = 0, bound = 0;
  for (const std::int32_t t : mask.present) {
    if (swept.swept(t) == 0) return false;
    for (const std::int32_t u : mask.present) {
      const std::int32_t k = ihmij(t, u, 0);
      // tr(R_oo^-1 S_oo): P holds R_oo^-1 in the swept rows
      quadratic += swept.P(k) * S(k);
    }
    bound += std::sqrt(swept.P(ihmij(t, t, 0))) * fast.largest(t);
  }
  lik += 0.5 * quadratic +
         static_cast<double>(records * static_cast<std::int64_t>(mask.present.size())) * half_log_two_pi;
  return bound <= far_out;
}

// lik record by record, by the residuals in E
void score_each(const equation_layout& layout, const design_store& design, const sampler_store& sampler,
                record_values& values, missing_draws& draws, const directives& asked, double& lik) {
  const record_entries entries = entries_of(design, layout, sampler, asked.analysis_type);
  lik = 0;
  for (std::int32_t irec = 1; irec <= design.nobs; ++irec) {
    take_record(entries, values, irec);
    score_record(draws.given, values.res, design.ISIT_M(irec),
                 sampler.RCOV.unchecked_slice(design.IRESG_M(irec)), lik);
  }
}

// lik from the sums of products; record by record where a density may be 0 in 64 bits
void find_density(const equation_layout& layout, const design_store& design, const sampler_store& sampler,
                  record_values& values, missing_draws& draws, residual_form& fast, const directives& asked,
                  double& lik) {
  const std::int64_t masks = static_cast<std::int64_t>(fast.masks.size());
  if (fast.counts_move) count_masks(design, fast);
  lik = 0;
  bool near = true;
  for (std::int32_t h = 1; h <= sampler.G; ++h)
    for (std::int64_t m = 0; m < masks; ++m)
      if (fast.counts(m + 1, h) > 0)
        near = add_density(sampler, draws, fast, m, h, fast.counts(m + 1, h), lik) && near;
  if (!near) score_each(layout, design, sampler, values, draws, asked, lik);
}

// True when neither observations nor coefficients change before the next round.
bool residuals_stay(const model_records& model, const directives& asked) {
  if (has_several_models(asked.analysis_type)) return false;
  for (std::int32_t t = 1; t <= model.nt; ++t)
    if (kind_of(model.MODEL(t)).pass != value_pass::none) return false;
  return true;
}

} // namespace

void fast_residual_pass(scan_records& r, const directives& asked, const round_state& state, double& lik) {
  residual_form& form = r.work.fast;
  if (!form.by_masks) return Bddrmc_sscp(r, asked, state, lik);
  const bool weights = r.model.has_weights(), sampled = is_sample_round(asked, state);
  const bool exact = asked.sampler.exact;
  const std::int64_t nobs = r.design.nobs;
  // one trait, all present, no sums of a sample: products are squares and there is nothing to draw
  const bool single = r.model.nt == 1 && form.masks.size() == 1 && form.masks[0].missing.empty() &&
                      r.sampler.G == 1 && !weights && !sampled;
  // E from scratch, block by block, with all solutions of the round; the sums follow while it is near
  values_from_residuals(r.work.values, form.E);
  form.products.fill(0.0);
  form.prepared.fill(0);
  form.largest.fill(0.0);
  if (sampled) r.sampler.dic_rrsum.fill(0.0);
  for (std::int64_t lo = 0; lo < nobs; lo += records_of_block) {
    const std::int64_t hi = std::min(lo + records_of_block, nobs);
    fresh_residuals(r.model, r.layout, r.design, r.sampler, r.work.fast, asked, lo, hi);
    if (single) {
      take_single(form, lo, hi);
      continue;
    }
    draw_normals(r.work.fast, r.sources.marsaglia, lo, hi);
    switch (r.model.nt) {
    case 1:
      take_records<1>(r, exact, weights, sampled, lo, hi);
      break;
    case 2:
      take_records<2>(r, exact, weights, sampled, lo, hi);
      break;
    case 3:
      take_records<3>(r, exact, weights, sampled, lo, hi);
      break;
    default:
      take_records<0>(r, exact, weights, sampled, lo, hi);
      break;
    }
  }
  if (samples_solutions(asked.analysis_type)) add_products(r.model, r.sampler, r.work.fast, exact);
  find_density(r.layout, r.design, r.sampler, r.work.values, r.work.missing, r.work.fast, asked, lik);
  // all traits Gaussian, no moves between models: y and Z are the same in the next round
  form.valid_round = residuals_stay(r.model, asked) ? state.iround + 1 : -1;
}

} // namespace zeph
