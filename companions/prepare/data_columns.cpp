#include "prepare/data_columns.h"

#include "prepare/messages.h"

#include <fmt/format.h>

#include <set>

namespace zeph::prepare {

namespace {

csv_layout layout_of(const data_section& data) {
  csv_layout layout;
  if (data.separator.given) layout.separator = data.separator.value;
  if (data.decimal.value != '\0') layout.decimal = data.decimal.value;
  for (const text_value& code : data.missing) layout.missing.push_back(code.value);
  for (const text_value& name : data.columns) layout.columns.push_back(name.value);
  return layout;
}

// Columns by use; a set each, in the order of names.
struct columns_in_use {
  std::set<std::string> observations, other_numbers, classes, levels, texts;
};

void add_effect(const model_description& d, const effect& e, columns_in_use& out) {
  if (const atom* x = covariable_atom(e))
    for (const std::string& column : numbers_of_covariable(d, x->name)) out.other_numbers.insert(column);
  for (const std::string& column : class_columns(e)) out.classes.insert(column);
}

// Observations of categories are read as texts; an indicator and a cured trait need not have any.
void add_observation(const trait_section& trait, columns_in_use& out) {
  switch (trait.kind.value) {
  case trait_kind::gaussian:
  case trait_kind::censored:
    out.observations.insert(trait.column.value);
    break;
  case trait_kind::cured:
    break;
  case trait_kind::indicator:
    if (trait.column.given) out.texts.insert(trait.column.value);
    break;
  default:
    out.texts.insert(trait.column.value);
  }
  if (trait.limits_upper.given) out.other_numbers.insert(trait.limits_upper.value);
  if (trait.position.given) out.other_numbers.insert(trait.position.value);
  for (const text_value* column : {&trait.limits_code, &trait.limits_event, &trait.subject})
    if (column->given) out.texts.insert(column->value);
}

columns_in_use columns_of(const model_description& d) {
  columns_in_use out;
  for (const trait_section& trait : d.traits) {
    add_observation(trait, out);
    if (!trait.weight.value.empty()) out.other_numbers.insert(trait.weight.value);
    for (const effect& e : trait.terms.fixed) add_effect(d, e, out);
    for (const random_term& term : trait.terms.random) {
      for (const effect& e : term.left) add_effect(d, e, out);
      for (const named_column& column : term.columns) out.levels.insert(column.name);
    }
  }
  if (!d.residual.groups.value.empty() && d.residual.indicator < 0)
    out.classes.insert(d.residual.groups.value);
  return out;
}

void refuse_fraction(const csv_columns& table, std::size_t c, message_log& log) {
  const std::size_t r = first_fraction(table, c);
  if (r >= table.n_records()) return;
  const std::string& name = table.header[c];
  add_error(log, {table.file, static_cast<int>(table.line[r]), 0},
            fmt::format("\"{}\" in column {}: a class with a fraction? for a covariable say [covariable.{}]",
                        table.cell(c, r), name, name));
}

} // namespace

std::string column_of_covariable(const model_description& d, const std::string& name) {
  const covariable_section* section = find_covariable(d, name);
  return section != nullptr && !section->column.value.empty() ? section->column.value : name;
}

std::vector<std::string> numbers_of_covariable(const model_description& d, const std::string& name) {
  const covariable_section* section = find_covariable(d, name);
  if (section == nullptr || !section->solution.given) return {column_of_covariable(d, name)};
  if (section->times.value.empty()) return {};
  return {section->times.value};
}

const atom* covariable_atom(const effect& e) {
  return e.covariable < 0 ? nullptr : &e.atoms[static_cast<std::size_t>(e.covariable)];
}

std::vector<std::string> class_columns(const effect& e) {
  std::vector<std::string> out;
  for (std::size_t a = 0; a < e.atoms.size(); ++a)
    if (static_cast<int>(a) != e.covariable) out.push_back(e.atoms[a].name);
  return out;
}

std::string class_name(const effect& e) {
  std::string out;
  for (const std::string& column : class_columns(e)) out += (out.empty() ? "" : ":") + column;
  return out;
}

data_columns read_data_columns(const model_description& d, message_log& log) {
  data_columns out;
  const std::string path = path_of(d, d.data.file.value).string();
  const std::size_t first = log.entries.size();
  out.table = read_csv(path, layout_of(d.data), log);
  out.table.file = d.data.file.value; // as the description names it, in messages too
  for (std::size_t i = first; i < log.entries.size(); ++i)
    if (log.entries[i].at.file == path) log.entries[i].at.file = out.table.file;
  if (out.table.header.empty()) return out;

  const columns_in_use used = columns_of(d);
  std::set<std::string> all = used.observations;
  for (const auto* part : {&used.other_numbers, &used.classes, &used.levels, &used.texts})
    all.insert(part->begin(), part->end());
  const int errors = count_of(log, severity::error);
  for (const std::string& name : all) {
    const std::size_t c = require_column(out.table, name, log);
    if (c == no_column) continue;
    if (used.classes.contains(name)) refuse_fraction(out.table, c, log);
    if (!used.observations.contains(name) && !used.other_numbers.contains(name)) continue;
    std::vector<double> values = column_numbers(out.table, c, log);
    if (used.observations.contains(name)) warn_of_missing_codes(out.table, c, values, log);
    out.numbers.emplace(name, std::move(values));
  }
  if (count_of(log, severity::error) == errors)
    out.traits = read_trait_values(d, out.table, out.numbers, log);
  return out;
}

} // namespace zeph::prepare
