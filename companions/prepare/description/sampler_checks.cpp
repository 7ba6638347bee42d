#include "prepare/description/sampler_checks.h"

#include "prepare/description/description_words.h"
#include "prepare/description/kind_checks.h"
#include "shared/indexing.h"

#include <algorithm>
#include <fmt/format.h>
#include <numeric>

namespace zeph::prepare {

namespace {

void check_words(const model_description& d, message_log& log) {
  const run_section& r = d.run;
  if (r.state_every.given && r.saves_state() && !samples_solutions(r.analysis.value))
    error_at(d, log, r.state_every.at,
             fmt::format("[run] state_every: analysis \"{}\" has no chain whose state could be saved",
                         word_of(r.analysis.value)));
  if (r.density_points.given && !r.is_exact())
    error_at(d, log, r.density_points.at, "[run] density_points needs sampler = \"exact\"");
}

void check_model_prior(const model_description& d, message_log& log, const factor_section& f,
                       bool rows_known) {
  if (!f.model_prior.given) return;
  const std::string title = fmt::format("[factor.{}] model_prior", f.name);
  const auto error = [&](const std::string& text) { error_at(d, log, f.model_prior.at, title + text); };
  if (!d.run.is_exact()) error(" needs [run] sampler = \"exact\"");
  if (!moves_between_models(d.run.analysis.value)) error(" needs [run] analysis = \"jump\"");
  const std::vector<double>& weights = f.model_prior.value;
  if (std::ranges::any_of(weights, [](double w) { return !(w > 0.0); })) error(": weights are above 0");
  if (rows_known && weights.size() != f.rows.size())
    error(fmt::format(" has {} weights and {} rows: one weight for each number of rows", weights.size(),
                      f.rows.size()));
}

void refuse_directives(const model_description& d, message_log& log) {
  const run_section& r = d.run;
  if (r.test_level.value > 1)
    error_at(d, log, r.test_level.at, "sampler = \"exact\" prints no test output above test_level = 1");
  if (r.continue_chain.value && !r.saves_state())
    error_at(d, log, r.continue_chain.at,
             "an exact chain continues from its saved state alone: add state_every to [run]");
  for (const covariable_section& c : d.covariables)
    if (c.solution.given)
      error_at(
          d, log, c.solution.at,
          fmt::format("[covariable.{}] is made from solutions, for which there is no exact chain: fit {} "
                      "itself, or set sampler = \"classic\"",
                      c.name, c.solution.value));
}

void refuse_separable_effects(const model_description& d, message_log& log) {
  for (const trait_section& t : d.traits)
    if ((t.kind.value == trait_kind::indicator || t.kind.value == trait_kind::cured) &&
        !t.terms.fixed.empty())
      error_at(d, log, t.formula_text.at,
               fmt::format("sampler = \"exact\": {} has fixed effects beside its mean, which some allocation "
                           "of the records separates; make them random",
                           t.name));
}

void refuse_flat_priors(const model_description& d, message_log& log) {
  if (!has_several_models(d.run.analysis.value)) return;
  for (const factor_section& f : d.factors) {
    const auto rows = static_cast<std::int32_t>(f.rows.size());
    if (rows > 1 && f.prior_df.fraction == 0.0 && f.prior_df.value <= rows + 1)
      error_at(d, log, f.prior_df.given ? f.prior_df.at : f.at,
               fmt::format("[factor.{}] prior_df = {}: models are compared under proper priors only; give {} "
                           "or more",
                           f.name, f.prior_df.value, rows + 2));
  }
}

bool has_pair(const std::vector<trait_pair>& pairs, int i, int j) {
  return std::ranges::any_of(
      pairs, [&](const trait_pair& p) { return std::minmax(p.first, p.second) == std::minmax(i, j); });
}

// Connected parts of the graph of traits with free covariances: the number of its first trait for each.
std::vector<int> residual_parts(const model_description& d) {
  const int nt = static_cast<int>(d.traits.size());
  std::vector<int> part(from0(nt));
  std::iota(part.begin(), part.end(), 0);
  for (int i = 0; i < nt; ++i)
    for (int j = i + 1; j < nt; ++j) {
      if (has_pair(d.residual.zero, i, j) || has_pair(d.residual.apart, i, j)) continue;
      const int from = std::max(part[from0(i)], part[from0(j)]),
                to = std::min(part[from0(i)], part[from0(j)]);
      std::ranges::replace(part, from, to);
    }
  return part;
}

void refuse_zero_pairs(const model_description& d, message_log& log) {
  if (!samples_matrices(d.run.analysis.value)) return;
  const std::vector<int> part = residual_parts(d);
  for (const trait_pair& p : d.residual.zero) {
    const int own = part[from0(p.first)];
    if (part[from0(p.second)] != own) continue;
    for (std::size_t t = 0; t < d.traits.size(); ++t) {
      if (part[t] != own || !has_unit_variance(d.traits[t].kind.value)) continue;
      error_at(d, log, p.at.line > 0 ? p.at : d.residual.at,
               fmt::format("sampler = \"exact\": no draw holds the residual covariance of {} at zero in one "
                           "part with {}, whose variance is 1; free it, or hold all that join them",
                           pair_text(d, p), d.traits[t].name));
      break;
    }
  }
}

} // namespace

void check_sampler(const model_description& d, message_log& log, bool rows_known) {
  check_words(d, log);
  for (const factor_section& f : d.factors) check_model_prior(d, log, f, rows_known);
  if (!d.run.is_exact()) return;
  refuse_directives(d, log);
  refuse_separable_effects(d, log);
  if (rows_known) refuse_flat_priors(d, log);
  refuse_zero_pairs(d, log);
}

} // namespace zeph::prepare
