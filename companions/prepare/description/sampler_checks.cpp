#include "prepare/description/sampler_checks.h"

#include "prepare/description/classic_checks.h"
#include "prepare/description/description_words.h"
#include "prepare/description/kind_checks.h"
#include "shared/indexing.h"

#include <algorithm>
#include <fmt/format.h>
#include <numeric>

namespace zeph::prepare {

namespace {

using reasons = std::vector<sampler_reason>;

void check_state(const model_description& d, message_log& log) {
  const run_section& r = d.run;
  if (r.state_every.given && r.saves_state() && !samples_solutions(r.analysis.value))
    error_at(d, log, r.state_every.at,
             fmt::format("[run] state_every: analysis \"{}\" has no chain whose state could be saved",
                         word_of(r.analysis.value)));
}

// Unless the description says so: the chains that sample one model's matrices, where none is said to be
// classic and each round has one stage.
void choose_moves(model_description& d, message_log& log) {
  run_section& r = d.run;
  const bool in_stages =
      std::ranges::any_of(d.covariables, [](const covariable_section& c) { return c.solution.given; });
  if (!r.moves.given)
    r.moves.value = r.analysis.value == analysis_type::gibbs && !r.is_said_classic() && !in_stages;
  else if (r.moves.value && !samples_solutions(r.analysis.value))
    error_at(d, log, r.moves.at,
             fmt::format("[run] moves: analysis \"{}\" has none, since moves belong to sampled matrices",
                         word_of(r.analysis.value)));
  else if (r.moves.value && in_stages)
    error_at(d, log, r.moves.at,
             "[run] moves: a round with covariables made from solutions has two stages, and no moves");
}

void check_model_prior(const model_description& d, message_log& log, const factor_section& f,
                       bool rows_known) {
  if (!f.model_prior.given) return;
  const std::string title = fmt::format("[factor.{}] model_prior", f.name);
  const auto error = [&](const std::string& text) { error_at(d, log, f.model_prior.at, title + text); };
  if (!moves_between_models(d.run.analysis.value)) error(" needs [run] analysis = \"jump\"");
  const std::vector<double>& weights = f.model_prior.value;
  if (std::ranges::any_of(weights, [](double w) { return !(w > 0.0); })) error(": weights are above 0");
  if (rows_known && weights.size() != f.rows.size())
    error(fmt::format(" has {} weights and {} rows: one weight for each number of rows", weights.size(),
                      f.rows.size()));
}

void add_directives(const model_description& d, reasons& out) {
  const run_section& r = d.run;
  if (r.test_level.value > 1)
    out.push_back({r.test_level.at, fmt::format("test_level = {}: an exact run prints no test output above 1",
                                                r.test_level.value)});
  if (r.continue_chain.value && !samples_solutions(r.analysis.value))
    out.push_back({r.continue_chain.at, "continue = true: an exact solver begins from zero"});
  else if (r.continue_chain.value && !r.saves_state())
    out.push_back({r.continue_chain.at,
                   "continue = true: an exact chain continues from its saved state alone, "
                   "and state_every = false saves none"});
  for (const covariable_section& c : d.covariables)
    if (c.solution.given)
      out.push_back({c.solution.at,
                     fmt::format("[covariable.{}] is made from solutions, for which there is no exact draw: "
                                 "fit {} itself",
                                 c.name, c.solution.value)});
}

void add_separable_effects(const model_description& d, reasons& out) {
  for (const trait_section& t : d.traits)
    if ((t.kind.value == trait_kind::indicator || t.kind.value == trait_kind::cured) &&
        !t.terms.fixed.empty())
      out.push_back({t.formula_text.at,
                     fmt::format("{} has fixed effects beside its mean, which some allocation of the records "
                                 "separates: make them random",
                                 t.name)});
}

void add_flat_priors(const model_description& d, reasons& out) {
  if (!has_several_models(d.run.analysis.value)) return;
  for (const factor_section& f : d.factors) {
    const auto rows = static_cast<std::int32_t>(f.rows.size());
    if (rows > 1 && f.prior_df.fraction == 0.0 && f.prior_df.value <= rows + 1)
      out.push_back({f.prior_df.given ? f.prior_df.at : f.at,
                     fmt::format("[factor.{}] prior_df = {} is flat, and under a flat prior the comparison "
                                 "of models depends on the units of the traits: give {} or more",
                                 f.name, f.prior_df.value, rows + 2)});
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

void add_zero_pairs(const model_description& d, reasons& out) {
  if (!samples_matrices(d.run.analysis.value)) return;
  const std::vector<int> part = residual_parts(d);
  for (const trait_pair& p : d.residual.zero) {
    const int own = part[from0(p.first)];
    if (part[from0(p.second)] != own) continue;
    for (std::size_t t = 0; t < d.traits.size(); ++t) {
      if (part[t] != own || !has_unit_variance(d.traits[t].kind.value)) continue;
      out.push_back({p.at.line > 0 ? p.at : d.residual.at,
                     fmt::format("no draw holds the residual covariance of {} at zero in one part with {}, "
                                 "whose variance is 1: free it, or hold all that join them",
                                 pair_text(d, p), d.traits[t].name)});
      break;
    }
  }
}

} // namespace

std::vector<sampler_reason> reasons_against_exact(const model_description& d, bool rows_known) {
  reasons out;
  add_directives(d, out);
  add_separable_effects(d, out);
  if (rows_known) add_flat_priors(d, out);
  add_zero_pairs(d, out);
  return out;
}

void refuse_exact(const model_description& d, const std::vector<sampler_reason>& why, message_log& log) {
  for (const sampler_reason& r : why) error_at(d, log, r.at, "sampler = \"exact\": " + r.text);
}

void warn_of_classic(const model_description& d, const std::vector<sampler_reason>& why, message_log& log) {
  const bool chain = samples_solutions(d.run.analysis.value);
  std::string text =
      chain ? "this chain is classic, and its limit may differ from the posterior of the model. It can't be "
              "exact, since"
            : "levels of a factor meet in a record, and this solver can't take their newest values, since";
  for (const sampler_reason& r : why) {
    const std::string place =
        r.at.line > 0 ? fmt::format("{}:{}:{}: ", d.path, r.at.line, r.at.column) : std::string{};
    text += "\n  " + place + r.text;
  }
  text += fmt::format("\nChange {}, or set [run] sampler = \"classic\" if such a {} is what you want",
                      why.size() == 1 ? "that" : "these", chain ? "chain" : "solver");
  warning_at(d, log, d.run.analysis.at, text);
}

void check_sampler(model_description& d, message_log& log, bool rows_known) {
  run_section& run = d.run;
  check_state(d, log);
  choose_moves(d, log);
  for (const factor_section& f : d.factors) check_model_prior(d, log, f, rows_known);
  if (run.is_exact() || (!run.sampler.given && samples_solutions(run.analysis.value))) {
    const reasons why = reasons_against_exact(d, rows_known);
    if (run.sampler.given)
      refuse_exact(d, why, log);
    else if (!why.empty())
      warn_of_classic(d, why, log);
    else
      run.sampler.value = sampler_kind::exact;
  }
  if (!run.is_exact()) check_classic_chain(d, log, rows_known);
}

} // namespace zeph::prepare
