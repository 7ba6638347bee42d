#include "prepare/parts/kind_warnings.h"

#include "prepare/messages/messages.h"
#include "prepare/tables/level_codes.h"
#include "shared/indexing.h"

#include <fmt/format.h>

#include <algorithm>

namespace zeph::prepare {

namespace {

constexpr std::size_t names_shown = 10;

bool has_categories(trait_kind kind) {
  return kind == trait_kind::ordered || kind == trait_kind::binary || kind == trait_kind::sequence;
}

// Levels of a class effect that have the first category alone, or the last one alone.
std::vector<std::string> levels_of_one_category(const data_columns& data, const record_selection& records,
                                                std::size_t t, const class_effect& c, double first,
                                                double last) {
  std::vector<char> other_than_first(c.code.size(), 0), other_than_last(c.code.size(), 0);
  for (const std::uint32_t r : records.records) {
    if (records.present[t][r] == 0 || c.level[r] == 0) continue;
    const auto l = from1(c.level[r]);
    const double y = data.traits[t].y[r];
    if (y != first) other_than_first[l] = 1;
    if (y != last) other_than_last[l] = 1;
  }
  std::vector<std::string> out;
  for (std::size_t l = 0; l < c.code.size(); ++l)
    if (other_than_first[l] == 0 || other_than_last[l] == 0)
      out.push_back(level_name(c.name, shown(c.identification[l])));
  return out;
}

void warn_of_one_category(const model_description& d, const data_columns& data,
                          const record_selection& records, const fixed_part& fixed, std::size_t t,
                          message_log& log) {
  if (!has_categories(d.traits[t].kind.value)) return;
  const bool ordered = d.traits[t].kind.value == trait_kind::ordered;
  const double first = ordered ? 1.0 : 0.0;
  const double last = first + static_cast<double>(data.traits[t].categories.size()) - 1.0;
  for (const class_effect& c : fixed.classes) {
    if (!c.intercept) continue;
    const std::vector<std::string> levels = levels_of_one_category(data, records, t, c, first, last);
    if (!levels.empty())
      add_warning(
          log, {data.table.file, 0, 0},
          fmt::format("{} has only one outer category in {}: the solution there has no posterior and\n"
                      "drifts away; make the effect random, or merge levels",
                      d.traits[t].name, joined(levels, names_shown)));
  }
}

// Number of records of a mixed trait by first membership, and the means of its values.
struct component_start {
  double n = 0.0, mean = 0.0;
};

component_start component_of(const data_columns& data, const record_selection& records, std::size_t t,
                             std::size_t indicator, double member) {
  component_start out;
  for (const std::uint32_t r : records.records) {
    if (records.present[t][r] == 0 || data.traits[indicator].y[r] != member) continue;
    out.n += 1.0;
    out.mean += data.traits[t].y[r];
  }
  if (out.n > 0.0) out.mean /= out.n;
  return out;
}

void check_components(const model_description& d, const data_columns& data, const record_selection& records,
                      std::size_t t, message_log& log) {
  if (d.traits[t].indicator < 0) return;
  const auto indicator = from0(d.traits[t].indicator);
  const component_start zero = component_of(data, records, t, indicator, 0.0),
                        one = component_of(data, records, t, indicator, 1.0);
  if (zero.n == 0.0 || one.n == 0.0) {
    add_error(log, {data.table.file, 0, 0},
              fmt::format("no record of {} begins in component {} of {}", d.traits[t].name,
                          one.n == 0.0 ? 1 : 0, d.traits[indicator].name));
    return;
  }
  if (one.mean <= zero.mean)
    add_warning(
        log, {data.table.file, 0, 0},
        fmt::format("component 1 of {} begins with mean {:.5g} of {}, component 0 with {:.5g}: the shift "
                    "is held above zero,\nso swap the memberships, or change the sign of {}",
                    d.traits[indicator].name, one.mean, d.traits[t].name, zero.mean, d.traits[t].name));
}

// Residual matrices by component are drawn, under a flat prior.
bool has_flat_components(const model_description& d) {
  return d.residual.indicator >= 0 && samples_matrices(d.run.analysis.value) &&
         d.residual.prior_df.value <= static_cast<std::int32_t>(d.traits.size()) + 1;
}

void add_small_components(const model_description& d, const data_columns& data,
                          const record_selection& records, std::vector<sampler_reason>& out) {
  if (!has_flat_components(d)) return;
  const auto order = static_cast<std::int64_t>(d.traits.size()), least = 2 * order + 2;
  const trait_section& t = d.traits[from0(d.residual.indicator)];
  std::int64_t n[2] = {0, 0};
  for (const std::uint32_t r : records.records)
    ++n[data.traits[from0(d.residual.indicator)].y[r] > 0.0 ? 1 : 0];
  for (const int c : {0, 1})
    if (n[c] < least)
      out.push_back({t.at, fmt::format("{} of {} in component {} of {} at the start, where a flat residual "
                                       "prior needs {}: give [residual] prior_df = {} or more, or other "
                                       "first memberships",
                                       n[c], records.n_used(), c, t.name, least, order + 2)});
}

// A prior without information has no posterior where nobody is cured.
void add_empty_fractions(const model_description& d, const record_sequences& s,
                         std::vector<sampler_reason>& out) {
  if (s.position.empty() || s.n_with_event < s.n_subjects) return;
  for (const trait_section& t : d.traits)
    if (t.kind.value == trait_kind::cured)
      out.push_back({t.at, fmt::format("all sequences of {} end with an event, so that no subject is cured: "
                                       "make it kind = \"binary\" and leave {} out",
                                       d.traits[from0(t.partner)].name, t.name)});
}

void warn_of_small_components(const model_description& d, message_log& log) {
  const std::int32_t order = static_cast<std::int32_t>(d.traits.size());
  if (!has_flat_components(d)) return;
  add_warning(
      log, {},
      fmt::format("residual matrices by component and a flat prior: the run stops when a component has "
                  "fewer than {} records\nin some round; [residual] prior_df = {} or more is safer",
                  2 * order + 1, order + 2));
}

void warn_of_sequences(const model_description& d, const data_columns& data, const record_sequences& s,
                       message_log& log) {
  if (s.position.empty() || s.n_with_event < s.n_subjects) return;
  for (const trait_section& t : d.traits)
    if (t.kind.value == trait_kind::sequence)
      add_warning(log, {data.table.file, 0, 0},
                  fmt::format("all sequences of {} end with an event: the data say nothing about {}", t.name,
                              d.traits[from0(t.partner)].name));
}

void note_ordered(const model_description& d, message_log& log) {
  if (d.run.saves_state()) return;
  for (const trait_section& t : d.traits)
    if (t.kind.value == trait_kind::ordered) {
      add_note(log, {}, "with an ordered trait the chain can't be continued; choose its length now");
      return;
    }
}

} // namespace

std::vector<sampler_reason> small_components(const model_description& d, const data_columns& data,
                                             const record_selection& records) {
  std::vector<sampler_reason> out;
  add_small_components(d, data, records, out);
  add_empty_fractions(d, records.sequences, out);
  return out;
}

void warn_of_kinds(const model_description& d, const data_columns& data, const record_selection& records,
                   const std::vector<fixed_part>& fixed, bool exact, message_log& log) {
  for (std::size_t t = 0; t < d.traits.size(); ++t) {
    warn_of_one_category(d, data, records, fixed[t], t, log);
    check_components(d, data, records, t, log);
  }
  if (!exact) warn_of_small_components(d, log);
  warn_of_sequences(d, data, records.sequences, log);
  note_ordered(d, log);
}

} // namespace zeph::prepare
