#include "prepare/model/solution_covariables.h"

#include "prepare/description/description_messages.h"

#include "prepare/description/solution_checks.h"
#include "prepare/messages/messages.h"
#include "prepare/model/trait_records.h"
#include "prepare/records/solution_values.h"
#include "shared/indexing.h"

#include <fmt/format.h>

#include <algorithm>
#include <unordered_map>

namespace zeph::prepare {

namespace {

// Number of the source among the effects of its trait: the "fixed" ones, then the random ones. 0: dropped.
std::int32_t source_effect(const prepared_model& p, const covariable_section& c) {
  const std::vector<class_effect>& classes = p.fixed[from0(c.source_trait)].classes;
  std::int32_t e = 0;
  for (const class_effect& x : classes) {
    ++e;
    if (c.source_factor.empty() && x.source && x.name == source_name(c)) return e;
  }
  for (const auto& [k, column] : random_of_trait(p.factors, c.source_trait).effects) {
    ++e;
    if (p.factors[from1(k)].name == c.source_factor && column == source_name(c)) return e;
  }
  return 0;
}

bool in_use(const prepared_model& p, int covariable) {
  for (const fixed_part& part : p.fixed)
    for (const fixed_regression& x : part.regressions)
      if (x.solution == covariable) return true;
  return false;
}

// Records that need the solution: those with a present trait that uses the covariable.
std::vector<std::uint8_t> needing_records(const prepared_model& p, int covariable) {
  std::vector<std::uint8_t> needed(p.records.use.size(), 0);
  for (std::size_t t = 0; t < p.fixed.size(); ++t) {
    const bool uses = std::ranges::any_of(
        p.fixed[t].regressions, [covariable](const fixed_regression& x) { return x.solution == covariable; });
    for (std::size_t r = 0; uses && r < needed.size(); ++r)
      needed[r] = static_cast<std::uint8_t>(needed[r] | p.records.present[t][r]);
  }
  return needed;
}

// The class effect with equations that the covariable names; none when it was dropped whole.
class_effect* source_class(const covariable_section& c, prepared_model& p) {
  if (!c.source_factor.empty()) return nullptr;
  for (class_effect& e : p.fixed[from0(c.source_trait)].classes)
    if (e.source && e.name == source_name(c)) return &e;
  return nullptr;
}

factor_levels* source_factor(const covariable_section& c, prepared_model& p) {
  const auto found = std::ranges::find(p.factors, c.source_factor, &factor_levels::name);
  return found == p.factors.end() ? nullptr : &*found;
}

void refuse_lost_levels(const model_description& d, const covariable_section& c, const class_effect& source,
                        message_log& log) {
  if (source.lost.empty()) return;
  error_at(d, log, c.solution.at,
           fmt::format(
               "[covariable.{}]: {} of {} has lost a level for the sake of full rank ({}), and its solutions "
               "no longer compare all levels",
               c.name, source.name, d.traits[from0(c.source_trait)].name, source.lost))
      .hint = "make it a random factor, or remove the other effect from the formula";
}

// level(r) of all used records by the identification of the level.
void complete(const model_description& d, const covariable_section& c, const prepared_model& p,
              int covariable, const std::vector<std::string>& identification,
              std::vector<std::int32_t>& level, message_log& log) {
  std::unordered_map<std::string, std::int32_t> number_of;
  for (std::size_t l = 0; l < identification.size(); ++l)
    number_of.emplace(identification[l], static_cast<std::int32_t>(l) + 1);
  const std::vector<std::size_t> places = source_places(p.data, c);
  const std::vector<std::uint8_t> needed = needing_records(p, covariable);
  for (const std::uint32_t r : p.records.records) {
    if (level[r] > 0) continue;
    const std::string text = source_level(p.data.table, places, r);
    const auto found = number_of.find(text);
    if (found != number_of.end())
      level[r] = found->second;
    else if (needed[r] != 0)
      add_error(log, {p.data.table.file, static_cast<int>(p.data.table.line[r]), 0},
                fmt::format("[covariable.{}]: \"{}\" has no record of {}, and so no solution", c.name, text,
                            d.traits[from0(c.source_trait)].name),
                "no solution " + c.name);
  }
}

} // namespace

void complete_source_levels(const model_description& d, prepared_model& p, message_log& log) {
  for (std::size_t k = 0; k < d.covariables.size(); ++k) {
    const covariable_section& c = d.covariables[k];
    const int number = static_cast<int>(k);
    if (!c.solution.given || !in_use(p, number)) continue;
    if (class_effect* source = source_class(c, p); source != nullptr) {
      refuse_lost_levels(d, c, *source, log);
      if (source->lost.empty()) complete(d, c, p, number, source->identification, source->level, log);
    } else if (factor_levels* factor = source_factor(c, p); factor != nullptr) {
      complete(d, c, p, number, factor->identification, factor->level.at(source_name(c)), log);
    }
  }
}

std::vector<std::string> solution_lines(const model_description& d, const prepared_model& p) {
  std::vector<std::string> lines;
  bool standardize = false;
  for (std::size_t k = 0; k < d.covariables.size(); ++k) {
    const covariable_section& c = d.covariables[k];
    if (!c.solution.given || !in_use(p, static_cast<int>(k))) continue;
    standardize = c.standardize.value;
    lines.push_back(fmt::format("{} {} 1", c.source_trait + 1, source_effect(p, c)));
    lines.push_back(fmt::format("{} 0", solution_input(static_cast<int>(k)))); // its own base, no other
  }
  if (lines.empty()) return lines;
  lines.insert(lines.begin(), fmt::format("{}", lines.size() / 2));
  lines.push_back(standardize ? "1" : "0");
  return lines;
}

} // namespace zeph::prepare
