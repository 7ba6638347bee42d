#include "prepare/records/data_columns.h"

#include "prepare/tables/column_numbers.h"
#include "prepare/tables/csv_reader.h"

#include "prepare/description/effect_columns.h"
#include "prepare/messages/messages.h"
#include "prepare/tables/missing_codes.h"
#include "prepare/tables/readable_file.h"

#include <fmt/format.h>

#include <algorithm>
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

// "named in model.toml:11"; a file or column of the description, by the line that names it.
std::string named_in(const model_description& d, int line) {
  return line > 0 ? fmt::format("named in {}:{}", d.path, line) : std::string{};
}

// Columns by use; a set each, in the order of names.
struct columns_in_use {
  std::set<std::string> observations, other_numbers, classes, texts;
  std::set<std::string> levels, own_levels; // of factors with a relationship, of all others
  std::map<std::string, int> line;          // of the description, where the column is named first
  int here = 0;                             // the line that is looked at

  void add(std::set<std::string>& part, const std::string& column) {
    part.insert(column);
    line.emplace(column, here);
  }
};

void add_effect(const model_description& d, const effect& e, columns_in_use& out) {
  if (const atom* x = covariable_atom(e))
    for (const std::string& column : numbers_of_covariable(d, x->name)) out.add(out.other_numbers, column);
  for (const std::string& column : class_columns(e)) out.add(out.classes, column);
}

// Observations of categories are read as texts; an indicator and a cured trait need not have any.
void add_observation(const trait_section& trait, columns_in_use& out) {
  const text_value& column = trait.column;
  out.here = column.given ? column.at.line : trait.at.line;
  switch (trait.kind.value) {
  case trait_kind::gaussian:
  case trait_kind::censored:
    out.add(out.observations, column.value);
    break;
  case trait_kind::cured:
    break;
  case trait_kind::indicator:
    if (column.given) out.add(out.texts, column.value);
    break;
  default:
    out.add(out.texts, column.value);
  }
}

void add_stated(const text_value& column, std::set<std::string>& part, columns_in_use& out) {
  if (!column.given) return;
  out.here = column.at.line;
  out.add(part, column.value);
}

// True when the data name the levels of a factor; else its relationship does.
bool has_own_levels(const model_description& d, const std::string& factor) {
  return std::ranges::none_of(d.factors, [&](const factor_section& f) {
    return f.name == factor && f.kind != relationship_kind::identity;
  });
}

columns_in_use columns_of(const model_description& d) {
  columns_in_use out;
  for (const trait_section& trait : d.traits) {
    add_observation(trait, out);
    for (const text_value* column : {&trait.limits_upper, &trait.position, &trait.weight})
      add_stated(*column, out.other_numbers, out);
    for (const text_value* column : {&trait.limits_code, &trait.limits_event, &trait.subject})
      add_stated(*column, out.texts, out);
    out.here = trait.formula_text.at.line;
    for (const effect& e : trait.terms.fixed) add_effect(d, e, out);
    for (const random_term& term : trait.terms.random) {
      for (const effect& e : term.left) add_effect(d, e, out);
      std::set<std::string>& levels = has_own_levels(d, term.factor) ? out.own_levels : out.levels;
      for (const named_column& column : term.columns) // combinations are of classes, as in the fixed part
        for (const named_part& part : column.parts)
          out.add(column.parts.size() > 1 ? out.classes : levels, part.name);
    }
  }
  if (d.residual.indicator < 0 && !d.residual.groups.value.empty())
    add_stated(d.residual.groups, out.classes, out);
  return out;
}

// A column that the data lack, with the place of the description that names it.
std::size_t used_column(const model_description& d, const csv_columns& table, const std::string& name,
                        int line, message_log& log) {
  const std::size_t c = require_column(table, name, log);
  if (c != no_column) return c;
  std::string& hint = log.entries.back().hint;
  hint = named_in(d, line) + (hint.empty() ? "" : "; ") + hint;
  return c;
}

void refuse_fraction(const csv_columns& table, std::size_t c, message_log& log) {
  const std::size_t r = first_fraction(table, c);
  if (r >= table.n_records()) return;
  const std::string& name = table.header[c];
  add_error(log, {table.file, static_cast<int>(table.line[r]), 0},
            fmt::format("\"{}\" in column {}: a class with a fraction? for a covariable add [covariable.{}]",
                        shown(table.cell(c, r)), name, name));
}

} // namespace

void show_as_written(const model_description& d, message_log& log, std::size_t first, const std::string& path,
                     const text_value& file) {
  const bool unreadable = log.entries.size() > first && !why_unreadable(path).empty();
  for (std::size_t i = first; i < log.entries.size(); ++i) {
    message& m = log.entries[i];
    if (m.at.file != path) continue;
    m.at.file = file.value;
    if (unreadable && m.level == severity::error) m.hint = named_in(d, file.at.line);
  }
}

data_columns read_data_columns(const model_description& d, message_log& log) {
  data_columns out;
  const std::string path = path_of(d, d.data.file.value).string();
  const std::size_t first = log.entries.size();
  out.table = read_csv(path, layout_of(d.data), log);
  out.table.file = d.data.file.value;
  show_as_written(d, log, first, path, d.data.file);
  const auto has_no_names = [](const message& m) { return m.kind == "header"; };
  if (out.table.header.empty() ||
      std::any_of(log.entries.begin() + static_cast<std::ptrdiff_t>(first), log.entries.end(), has_no_names))
    return out;

  const columns_in_use used = columns_of(d);
  std::set<std::string> all = used.observations;
  for (const auto* part : {&used.other_numbers, &used.classes, &used.levels, &used.own_levels, &used.texts})
    all.insert(part->begin(), part->end());
  const int errors = count_of(log, severity::error);
  std::vector<other_decimal> other_decimals;
  for (const std::string& name : all) {
    const std::size_t c = used_column(d, out.table, name, used.line.at(name), log);
    if (c == no_column) continue;
    if (used.classes.contains(name)) refuse_fraction(out.table, c, log);
    if (used.classes.contains(name) || used.own_levels.contains(name))
      warn_of_missing_levels(out.table, c, log);
    if (!used.observations.contains(name) && !used.other_numbers.contains(name)) continue;
    std::vector<double> values = column_numbers(out.table, c, other_decimals, log);
    if (used.observations.contains(name)) warn_of_missing_codes(out.table, c, values, log);
    out.numbers.emplace(name, std::move(values));
  }
  refuse_other_decimals(out.table, other_decimals, log);
  if (count_of(log, severity::error) == errors)
    out.traits = read_trait_values(d, out.table, out.numbers, log);
  return out;
}

} // namespace zeph::prepare
