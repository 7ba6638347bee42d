#include "prepare/records/record_selection.h"

#include "prepare/description/effect_columns.h"

#include "prepare/description/solution_checks.h"
#include "prepare/messages/messages.h"
#include "prepare/messages/repeated_cells.h"
#include "shared/indexing.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <set>

namespace zeph::prepare {

namespace {

using flags = std::vector<std::uint8_t>;

// Takes the records out of `present` that `missing(r)` names, and remembers them.
template <class Missing>
void take_out(const data_columns& data, int trait, const std::string& column, const std::string& why,
              flags& present, record_selection& out, const Missing& missing) {
  removal removed{trait, column, why, {}};
  for (std::size_t r = 0; r < present.size(); ++r) {
    if (present[r] == 0 || !missing(r)) continue;
    present[r] = 0;
    removed.lines.push_back(data.table.line[r]);
  }
  if (!removed.lines.empty()) out.removals.push_back(std::move(removed));
}

void take_out_weights(const data_columns& data, const trait_section& trait, int t, flags& present,
                      record_selection& out, message_log& log) {
  const std::string& column = trait.weight.value;
  const std::vector<double>& w = data.number(column);
  for (std::size_t r = 0; r < w.size(); ++r)
    if (present[r] != 0 && w[r] < 0.0)
      add_error(log, {data.table.file, static_cast<int>(data.table.line[r]), 0},
                fmt::format("weight {} in column {} is below zero", w[r], column), "weight");
  take_out(data, t, column, column + " is missing", present, out,
           [&](std::size_t r) { return std::isnan(w[r]); });
  take_out(data, t, column, "weight " + column + " is 0", present, out,
           [&](std::size_t r) { return w[r] == 0.0; });
}

// Columns of classes and of covariables, each once, in the order of the formula.
struct needed_columns {
  std::vector<std::string> classes, covariables;
};

void add_once(std::vector<std::string>& list, const std::string& name) {
  for (const std::string& other : list)
    if (other == name) return;
  list.push_back(name);
}

void add_effect(const model_description& d, const effect& e, needed_columns& out) {
  for (const std::string& column : class_columns(e)) add_once(out.classes, column);
  const atom* x = covariable_atom(e);
  if (x == nullptr) return;
  for (const std::string& column : numbers_of_covariable(d, x->name)) add_once(out.covariables, column);
  if (const covariable_section* solution = solution_covariable(d, *x))
    for (const std::string& column : solution->source_columns) add_once(out.classes, column);
}

needed_columns columns_of_trait(const model_description& d, const trait_section& trait) {
  needed_columns out;
  for (const effect& e : trait.terms.fixed) add_effect(d, e, out);
  for (const random_term& term : trait.terms.random)
    for (const effect& e : term.left) add_effect(d, e, out);
  return out;
}

bool is_observed(const trait_section& t) {
  return t.kind.value != trait_kind::indicator && t.kind.value != trait_kind::cured;
}

// Some trait was observed in record r.
bool is_observed_in(const model_description& d, const data_columns& data, std::size_t r) {
  for (std::size_t t = 0; t < d.traits.size(); ++t)
    if (is_observed(d.traits[t]) && !std::isnan(data.traits[t].y[r])) return true;
  return false;
}

flags presence_of(const model_description& d, const data_columns& data, int t, record_selection& out,
                  message_log& log) {
  const trait_section& trait = d.traits[from0(t)];
  const std::vector<double>& y = data.traits[from0(t)].y;
  flags present(data.n_records());
  for (std::size_t r = 0; r < present.size(); ++r)
    present[r] = std::isnan(y[r]) || (!is_observed(trait) && !is_observed_in(d, data, r)) ? 0 : 1;

  if (!trait.weight.value.empty()) take_out_weights(data, trait, t, present, out, log);
  const needed_columns needed = columns_of_trait(d, trait);
  for (const std::string& column : needed.classes) {
    const std::size_t c = find_column(data.table, column);
    take_out(data, t, column, column + " is missing", present, out,
             [&](std::size_t r) { return is_missing(data.table, c, r); });
  }
  for (const std::string& column : needed.covariables) {
    const std::vector<double>& x = data.number(column);
    take_out(data, t, column, column + " is missing", present, out,
             [&](std::size_t r) { return std::isnan(x[r]); });
  }
  return present;
}

// A mixed trait needs its indicator.
void take_out_mixed_traits(const model_description& d, const data_columns& data, record_selection& out) {
  for (std::size_t t = 0; t < d.traits.size(); ++t) {
    if (d.traits[t].indicator < 0) continue;
    const auto i = from0(d.traits[t].indicator);
    const std::string& name = d.traits[i].name;
    take_out(data, static_cast<int>(t), name, name + " is missing", out.present[t], out,
             [&](std::size_t r) { return out.present[i][r] == 0; });
  }
}

// Some observed trait is still present in record r.
bool has_trait(const model_description& d, const record_selection& s, std::size_t r) {
  for (std::size_t t = 0; t < d.traits.size(); ++t)
    if (is_observed(d.traits[t]) && s.present[t][r] != 0) return true;
  return false;
}

// Records without a residual group lose all traits.
void take_out_groups(const model_description& d, const data_columns& data, record_selection& out) {
  const std::string& groups = d.residual.groups.value;
  if (groups.empty() || d.residual.indicator >= 0) return;
  const std::size_t c = find_column(data.table, groups);
  for (std::size_t r = 0; r < data.n_records(); ++r) {
    if (!is_missing(data.table, c, r)) continue;
    out.n_without_group += has_trait(d, out, r) ? 1 : 0;
    for (flags& present : out.present) present[r] = 0;
  }
}

// The last record of every sequence.
std::vector<std::size_t> last_records(const record_sequences& s, const flags& present) {
  std::vector<std::size_t> out;
  for (std::size_t r = 0; r < present.size(); ++r)
    if (present[r] != 0 && s.position[r] < 0) out.push_back(r);
  return out;
}

// Sequences of subjects whose trait of kind cured lacks a column are dropped.
void take_out_sequences(const model_description& d, const data_columns& data, std::size_t t,
                        record_selection& out) {
  const auto cured = from0(d.traits[t].partner);
  const std::size_t c = find_column(data.table, d.traits[t].subject.value);
  std::set<std::string, std::less<>> without;
  for (const std::size_t r : last_records(out.sequences, out.present[t]))
    if (out.present[cured][r] == 0) without.emplace(data.table.cell(c, r));
  const std::string& name = d.traits[cured].name;
  take_out(data, static_cast<int>(t), name, name + " is missing at the end of the sequence", out.present[t],
           out, [&](std::size_t r) { return without.contains(data.table.cell(c, r)); });
}

void place_sequences(const model_description& d, const data_columns& data, int number, record_selection& out,
                     message_log& log) {
  const auto t = from0(number);
  const trait_section& trait = d.traits[t];
  const std::size_t subject = find_column(data.table, trait.subject.value);
  take_out(data, number, trait.subject.value, trait.subject.value + " is missing", out.present[t], out,
           [&](std::size_t r) { return is_missing(data.table, subject, r); });
  if (trait.position.given)
    take_out(data, number, trait.position.value, trait.position.value + " is missing", out.present[t], out,
             [&](std::size_t r) { return std::isnan(data.number(trait.position.value)[r]); });
  out.sequences = make_sequences(d, data, number, out.present[t], log);
  take_out_sequences(d, data, t, out);
  message_log told; // the same faults again
  out.sequences = make_sequences(d, data, number, out.present[t], told);
  flags& cured = out.present[from0(trait.partner)];
  flags last(cured.size(), 0);
  for (const std::size_t r : last_records(out.sequences, out.present[t])) last[r] = cured[r];
  cured = last;
}

void use_records(const model_description& d, const data_columns& data, record_selection& out) {
  out.use.assign(data.n_records(), 0);
  for (std::size_t r = 0; r < data.n_records(); ++r) {
    if (has_trait(d, out, r)) {
      out.use[r] = 1;
      out.records.push_back(static_cast<std::uint32_t>(r));
      continue;
    }
    ++out.n_without_trait;
    for (flags& present : out.present) present[r] = 0;
  }
  out.n_without_trait -= out.n_without_group; // these are reported separately
  if (!out.sequences.rank.empty())
    std::ranges::stable_sort(out.records, {}, [&out](std::uint32_t r) { return out.sequences.rank[r]; });
}

void refuse_empty_categories(const model_description& d, const data_columns& data, const record_selection& s,
                             std::size_t t, message_log& log) {
  const trait_values& values = data.traits[t];
  const double first = d.traits[t].kind.value == trait_kind::ordered ? 1.0 : 0.0;
  for (std::size_t k = 0; k < values.categories.size(); ++k) {
    const double code = first + static_cast<double>(k);
    const bool found = std::ranges::any_of(
        s.records, [&](std::uint32_t r) { return s.present[t][r] != 0 && values.y[r] == code; });
    if (!found)
      add_error(log, {data.table.file, 0, 0},
                fmt::format("{} has no record of \"{}\"{}", d.traits[t].name, values.categories[k],
                            first > 0.0 ? "; leave the category out" : ""));
  }
}

// The first lines; prepare.txt lists all of them.
std::string lines_in_words(const removal& r) {
  repeated_lines lines;
  for (const std::int64_t line : r.lines) add_line(lines, line);
  return lines.n == 1 ? fmt::format(" (line {})", lines.first.front()) : where_in_words(lines);
}

void tell(const model_description& d, const data_columns& data, const record_selection& s, message_log& log) {
  for (const removal& r : s.removals) {
    const std::string& trait = d.traits[from0(r.trait)].name;
    add_warning(log, {data.table.file, 0, 0},
                fmt::format("{} in {} with {}: {} set missing there{}", r.why,
                            records_in_words(static_cast<std::int64_t>(r.lines.size())), trait, trait,
                            lines_in_words(r)));
  }
  if (s.n_without_trait > 0)
    add_note(log, {data.table.file, 0, 0},
             fmt::format("{} of {} records have no trait left and are dropped", s.n_without_trait,
                         data.n_records()));
  if (s.n_without_group > 0)
    add_warning(log, {data.table.file, 0, 0},
                fmt::format("{} of {} records have no residual group ({} is missing) and are dropped",
                            s.n_without_group, data.n_records(), d.residual.groups.value));
}

} // namespace

std::string records_in_words(std::int64_t n) { return fmt::format("{} record{}", n, n == 1 ? "" : "s"); }

record_selection select_records(const model_description& d, const data_columns& data, message_log& log) {
  record_selection out;
  const int nt = static_cast<int>(d.traits.size());
  for (int t = 0; t < nt; ++t) {
    record_selection unneeded; // most records do without a trait of kind cured
    const bool cured = d.traits[from0(t)].kind.value == trait_kind::cured;
    out.present.push_back(presence_of(d, data, t, cured ? unneeded : out, log));
  }
  take_out_mixed_traits(d, data, out);
  take_out_groups(d, data, out);
  for (int t = 0; t < nt; ++t)
    if (d.traits[from0(t)].kind.value == trait_kind::sequence) place_sequences(d, data, t, out, log);
  use_records(d, data, out);

  tell(d, data, out, log);
  for (int t = 0; t < nt; ++t) {
    std::int64_t n = 0;
    for (const std::uint32_t r : out.records) n += out.present[from0(t)][r];
    if (n == 0)
      add_error(log, {data.table.file, 0, 0},
                fmt::format("no record of trait {} can be used", d.traits[from0(t)].name));
    else
      refuse_empty_categories(d, data, out, from0(t), log);
  }
  return out;
}

} // namespace zeph::prepare
