#include "prepare/model/sampler_lines.h"

#include "prepare/description/classic_checks.h"
#include "prepare/parts/kind_warnings.h"

#include <algorithm>
#include <fmt/format.h>

namespace zeph::prepare {

namespace {

constexpr int values_in_closed_form = 2; // latent values of a record whose density needs no lattice

bool has_many_latent_values(const model_description& d, std::int32_t mask) {
  const std::size_t nt = d.traits.size();
  int n = 0;
  for (std::size_t t = 0; t < nt; ++t)
    n += (mask >> (nt - 1 - t)) % 2 == 1 && d.traits[t].kind.value != trait_kind::gaussian ? 1 : 0;
  return n > values_in_closed_form;
}

} // namespace

bool choose_exact(const model_description& d, const prepared_model& p, message_log& log) {
  const bool solver = !samples_solutions(d.run.analysis.value);
  const auto meet = [](const factor_levels& f) { return f.n_meeting > 0; };
  const bool chosen = solver && !d.run.sampler.given && std::ranges::any_of(p.factors, meet);
  if (!d.run.is_exact() && !chosen) return false;
  const std::vector<sampler_reason> why =
      chosen ? reasons_against_exact(d, true) : small_components(d, p.data, p.records);
  if (d.run.sampler.given) refuse_exact(d, why, log);
  if (why.empty() || d.run.sampler.given) return true;
  warn_of_classic(d, why, log);
  if (!solver) check_classic_chain(d, log, true); // the description was taken for that of an exact one
  return false;
}

std::vector<std::string> sampler_lines(const model_description& d, const prepared_model& p) {
  std::vector<std::string> lines;
  const run_section& run = d.run;
  if (p.exact) lines.emplace_back("exact");
  if (run.saves_state()) lines.push_back(fmt::format("state {}", run.state_every.value));
  if (run.moves.value) lines.emplace_back("moves");
  for (std::size_t k = 0; k < p.factors.size(); ++k) {
    const std::vector<double>& weights = d.factors[p.factors[k].section].model_prior.value;
    if (!weights.empty()) lines.push_back(fmt::format("model_prior {} {}", k + 1, fmt::join(weights, " ")));
  }
  if (run.density_points.given) lines.push_back(fmt::format("density {}", run.density_points.value));
  return lines;
}

void note_missing_density(const model_description& d, const prepared_model& p, message_log& log) {
  if (!p.exact || d.run.density_points.given) return;
  for (const std::int32_t mask : p.patterns.mask) {
    if (!has_many_latent_values(d, mask)) continue;
    add_note(log, {},
             "records with three and more latent values have no density, and py will be NaN: "
             "[run] density_points = 256 computes it");
    return;
  }
}

} // namespace zeph::prepare
