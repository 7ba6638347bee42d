#include "prepare/model/solution_covariables.h"

#include "prepare/messages/messages.h"
#include "prepare/model/trait_records.h"

#include <fmt/format.h>

#include <algorithm>
#include <unordered_map>

namespace zeph::prepare {

namespace {

constexpr std::int32_t first_input = 1000001;

std::size_t at(int i) { return static_cast<std::size_t>(i); }

std::vector<std::size_t> places_of(const data_columns& data, const covariable_section& c) {
  std::vector<std::size_t> places;
  for (const std::string& name : c.source_columns) places.push_back(find_column(data.table, name));
  return places;
}

// Identification of the source's level in record r, joined as level_codes joins it; "" where a column is
// missing.
std::string level_text(const csv_columns& table, const std::vector<std::size_t>& places, std::size_t r) {
  std::string out;
  for (const std::size_t c : places) {
    if (is_missing(table, c, r)) return {};
    if (c != places.front()) out += ':';
    out += table.cell(c, r);
  }
  return out;
}

// A number between 1 and 2 that the text alone decides (G. Fowler, L. C. Noll and P. Vo: FNV-1a, 64 bits).
double number_of_text(const std::string& text) {
  std::uint64_t h = 0xCBF29CE484222325U;
  for (const char byte : text) h = (h ^ static_cast<unsigned char>(byte)) * 0x100000001B3U;
  h ^= h >> 29;
  return 1.0 + static_cast<double>((h * 0xBF58476D1CE4E5B9U) >> 11) * 0x1p-53;
}

// "herd:year", as class effects are named.
std::string joined_name(const covariable_section& c) {
  std::string name;
  for (const std::string& column : c.source_columns) name += (name.empty() ? "" : ":") + column;
  return name;
}

// Number of the source among the effects of its trait: the "fixed" ones, then the random ones. 0: dropped.
std::int32_t source_effect(const prepared_model& p, const covariable_section& c) {
  const std::vector<class_effect>& classes = p.fixed[at(c.source_trait)].classes;
  std::int32_t e = 0;
  for (const class_effect& x : classes) {
    ++e;
    if (c.source_factor.empty() && x.source && x.name == joined_name(c)) return e;
  }
  for (const auto& [k, column] : random_of_trait(p.factors, c.source_trait).effects) {
    ++e;
    if (p.factors[at(k - 1)].name == c.source_factor && column == joined_name(c)) return e;
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
  for (class_effect& e : p.fixed[at(c.source_trait)].classes)
    if (e.source && e.name == joined_name(c)) return &e;
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
               c.name, source.name, d.traits[at(c.source_trait)].name, source.lost))
      .hint = "make it a random factor, or take the other effect out of the formula";
}

// level(r) of all used records by the identification of the level.
void complete(const model_description& d, const covariable_section& c, const prepared_model& p,
              int covariable, const std::vector<std::string>& identification,
              std::vector<std::int32_t>& level, message_log& log) {
  std::unordered_map<std::string, std::int32_t> number_of;
  for (std::size_t l = 0; l < identification.size(); ++l)
    number_of.emplace(identification[l], static_cast<std::int32_t>(l) + 1);
  const std::vector<std::size_t> places = places_of(p.data, c);
  const std::vector<std::uint8_t> needed = needing_records(p, covariable);
  for (const std::uint32_t r : p.records.records) {
    if (level[r] > 0) continue;
    const std::string text = level_text(p.data.table, places, r);
    const auto found = number_of.find(text);
    if (found != number_of.end())
      level[r] = found->second;
    else if (needed[r] != 0)
      add_error(log, {p.data.table.file, static_cast<int>(p.data.table.line[r]), 0},
                fmt::format("[covariable.{}]: \"{}\" has no record of {}, and so no solution", c.name, text,
                            d.traits[at(c.source_trait)].name),
                "no solution " + c.name);
  }
}

} // namespace

std::vector<double> solution_bases(const data_columns& data, const covariable_section& c) {
  if (!c.times.value.empty()) return data.number(c.times.value);
  return std::vector<double>(data.n_records(), 1.0);
}

std::vector<double> stand_in_values(const data_columns& data, const covariable_section& c) {
  std::vector<double> out = solution_bases(data, c);
  const std::vector<std::size_t> places = places_of(data, c);
  for (std::size_t r = 0; r < out.size(); ++r) out[r] *= number_of_text(level_text(data.table, places, r));
  return out;
}

bool is_source(const model_description& d, int t, const std::vector<std::string>& columns) {
  return std::ranges::any_of(d.covariables, [&](const covariable_section& c) {
    return c.solution.given && c.source_trait == t && c.source_factor.empty() && c.source_columns == columns;
  });
}

bool is_random_source(const model_description& d, const std::string& factor, const std::string& column) {
  return std::ranges::any_of(d.covariables, [&](const covariable_section& c) {
    return c.solution.given && c.source_factor == factor && joined_name(c) == column;
  });
}

void complete_source_levels(const model_description& d, prepared_model& p, message_log& log) {
  for (std::size_t k = 0; k < d.covariables.size(); ++k) {
    const covariable_section& c = d.covariables[k];
    const int number = static_cast<int>(k);
    if (!c.solution.given || !in_use(p, number)) continue;
    if (class_effect* source = source_class(c, p); source != nullptr) {
      refuse_lost_levels(d, c, *source, log);
      if (source->lost.empty()) complete(d, c, p, number, source->identification, source->level, log);
    } else if (factor_levels* factor = source_factor(c, p); factor != nullptr) {
      complete(d, c, p, number, factor->identification, factor->level.at(joined_name(c)), log);
    }
  }
}

std::int32_t solution_input(int k) { return first_input + k; }

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
