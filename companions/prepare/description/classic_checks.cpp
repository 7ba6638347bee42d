#include "prepare/description/classic_checks.h"

#include "prepare/description/description_words.h"
#include "prepare/description/kind_checks.h"
#include "shared/indexing.h"

#include <algorithm>
#include <fmt/format.h>

namespace zeph::prepare {

namespace {

bool has_pair(const std::vector<trait_pair>& list, const trait_pair& pair) {
  return std::ranges::any_of(
      list, [&](const trait_pair& p) { return p.first == pair.first && p.second == pair.second; });
}

// An error about something that an exact chain takes.
void refuse(const model_description& d, message_log& log, text_place at, std::string text) {
  message& m = error_at(d, log, at, std::move(text));
  if (!samples_solutions(d.run.analysis.value)) return;
  m.hint = d.run.sampler.given ? "sampler = \"exact\" takes it"
                               : "an exact chain takes it: see the warning of what prevents one";
}

// The draws of latent values leave weights out.
void refuse_weights(const model_description& d, message_log& log) {
  for (const trait_section& t : d.traits) {
    if (!t.weight.given) continue;
    if (t.kind.value != trait_kind::gaussian)
      refuse(d, log, t.weight.at,
             fmt::format("[trait.{}] weight: a trait of kind {} takes no weight", t.name,
                         word_of(t.kind.value)));
    if (!t.terms.shifts.empty())
      refuse(d, log, t.weight.at,
             fmt::format("[trait.{}] weight: a trait with shift(..) takes no weight", t.name));
  }
}

void refuse_words(const model_description& d, message_log& log) {
  if (d.run.density_points.given)
    refuse(d, log, d.run.density_points.at, "[run] density_points needs sampler = \"exact\"");
  for (const factor_section& f : d.factors)
    if (f.model_prior.given)
      refuse(d, log, f.model_prior.at,
             fmt::format("[factor.{}] model_prior needs [run] sampler = \"exact\"", f.name));
}

void warn_of_indicators(const model_description& d, message_log& log) {
  const auto is_indicator = [](const trait_section& t) { return t.kind.value == trait_kind::indicator; };
  if (std::ranges::count_if(d.traits, is_indicator) < 2) return;
  const trait_section& last = *std::find_if(d.traits.rbegin(), d.traits.rend(), is_indicator);
  warning_at(d, log, last.kind.given ? last.kind.at : last.at,
             "more than one indicator: each record's indicators are drawn as if they switched together,\n"
             "so that the chain is exact with one indicator only");
}

void check_free(const model_description& d, message_log& log, const trait_pair& p) {
  const residual_section& r = d.residual;
  const auto apart = [&](int t) { return stands_apart(d.traits[from0(t)].kind.value); };
  if (has_pair(r.apart, p) || has_pair(r.zero, p) || (!apart(p.first) && !apart(p.second))) return;
  const std::string names = pair_text(d, p);
  if (p.first == r.indicator || p.second == r.indicator)
    refuse(d, log, p.at,
           fmt::format("[residual] free: with residual groups by {} the covariance of {} stays at zero: such "
                       "a chain loses a component",
                       r.groups.value, names));
  else
    warning_at(
        d, log, p.at,
        fmt::format("with a residual covariance of {} the chain is not exact: the memberships are drawn\n"
                    "with the liability of the round before",
                    names));
}

// Flat priors of matrices of different order have no common constant. Where no sampler is named this is among
// the reasons that the chain is classic.
void warn_of_compared_rows(const model_description& d, message_log& log, const factor_section& f) {
  const std::size_t rows = f.rows.size();
  if (rows < 2 || !d.run.sampler.given || f.prior_df.fraction > 0.0 ||
      f.prior_df.value > static_cast<std::int32_t>(rows) + 1)
    return;
  warning_at(
      d, log, f.prior_df.given ? f.prior_df.at : d.run.analysis.at,
      fmt::format("analysis \"{}\" compares numbers of rows, and [factor.{}] has {} rows and a flat prior "
                  "(prior_df = {}): the result depends on the units of the traits; give "
                  "prior_df = {} or more",
                  word_of(d.run.analysis.value), f.name, rows, f.prior_df.value, rows + 2));
}

void warn_of_model_moves(const model_description& d, message_log& log, bool rows_known) {
  const analysis_type analysis = d.run.analysis.value;
  if (!has_several_models(analysis)) return;
  for (const factor_section& f : d.factors) {
    if (moves_between_models(analysis) && f.kind == relationship_kind::pedigree && f.rows.size() > 1)
      warning_at(d, log, d.run.analysis.at,
                 fmt::format("the run ends (code 16) at the first move of [factor.{}] down to one row: a "
                             "pedigree factor can't go back there",
                             f.name));
    if (rows_known) warn_of_compared_rows(d, log, f);
  }
}

} // namespace

void check_classic_chain(const model_description& d, message_log& log, bool rows_known) {
  refuse_weights(d, log);
  refuse_words(d, log);
  warn_of_indicators(d, log);
  for (const trait_pair& p : d.residual.free) check_free(d, log, p);
  warn_of_model_moves(d, log, rows_known);
}

} // namespace zeph::prepare
