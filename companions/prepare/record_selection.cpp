#include "prepare/record_selection.h"

#include "prepare/messages.h"

#include <fmt/format.h>

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
  if (const atom* x = covariable_atom(e)) add_once(out.covariables, column_of_covariable(d, x->name));
}

needed_columns columns_of_trait(const model_description& d, const trait_section& trait) {
  needed_columns out;
  for (const effect& e : trait.terms.fixed) add_effect(d, e, out);
  for (const random_term& term : trait.terms.random)
    for (const effect& e : term.left) add_effect(d, e, out);
  return out;
}

flags presence_of(const model_description& d, const data_columns& data, int t, record_selection& out,
                  message_log& log) {
  const trait_section& trait = d.traits[static_cast<std::size_t>(t)];
  const std::vector<double>& y = data.number(trait.column.value);
  flags present(data.n_records());
  for (std::size_t r = 0; r < present.size(); ++r) present[r] = std::isnan(y[r]) ? 0 : 1;

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

void tell(const model_description& d, const data_columns& data, const record_selection& s, message_log& log) {
  for (const removal& r : s.removals) {
    const std::string& trait = d.traits[static_cast<std::size_t>(r.trait)].name;
    add_warning(log, {data.table.file, 0, 0},
                fmt::format("{} in {} with {}: {} set missing there (prepare.txt lists them)", r.why,
                            records_in_words(static_cast<std::int64_t>(r.lines.size())), trait, trait));
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
  for (int t = 0; t < nt; ++t) out.present.push_back(presence_of(d, data, t, out, log));

  const std::string& groups = d.residual.groups.value;
  const std::size_t group_column = groups.empty() ? no_column : find_column(data.table, groups);
  out.use.assign(data.n_records(), 0);
  for (std::size_t r = 0; r < data.n_records(); ++r) {
    bool any = false;
    for (const flags& present : out.present) any = any || present[r] != 0;
    const bool grouped = group_column == no_column || !is_missing(data.table, group_column, r);
    if (any && grouped) {
      out.use[r] = 1;
      out.records.push_back(static_cast<std::uint32_t>(r));
      continue;
    }
    ++(any ? out.n_without_group : out.n_without_trait);
    for (flags& present : out.present) present[r] = 0;
  }

  tell(d, data, out, log);
  for (int t = 0; t < nt; ++t) {
    std::int64_t n = 0;
    for (const std::uint32_t r : out.records) n += out.present[static_cast<std::size_t>(t)][r];
    if (n == 0)
      add_error(log, {data.table.file, 0, 0},
                fmt::format("no record of trait {} can be used", d.traits[static_cast<std::size_t>(t)].name));
  }
  return out;
}

} // namespace zeph::prepare
