#include "prepare/output/side_files.h"

#include "input/structures.h"
#include "input/trait_kinds.h"
#include "prepare/description/description_words.h"

#include "shared/check_sum.h"
#include "shared/indexing.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <set>

namespace zeph::prepare {

namespace {

using json = nlohmann::ordered_json;

std::string file_part(const std::string& name) {
  std::string out = name;
  for (char& c : out)
    if (std::isalnum(static_cast<unsigned char>(c)) == 0 && c != '.' && c != '-') c = '_';
  return out;
}

json matrix_json(const start_matrix& m) {
  json rows = json::array();
  for (int i = 0; i < m.order; ++i) {
    json row = json::array();
    for (int j = 0; j < m.order; ++j) row.push_back(m.at(i, j));
    rows.push_back(row);
  }
  return rows;
}

json traits_json(const model_description& d, const prepared_model& p) {
  json out = json::array();
  for (std::size_t t = 0; t < d.traits.size(); ++t) {
    const trait_section& trait = d.traits[t];
    out.push_back({{"number", t + 1},
                   {"name", trait.name},
                   {"short", p.names.traits[t]},
                   {"kind", word_of(trait.kind.value)},
                   {"column", trait.column.value},
                   {"weight", trait.weight.value},
                   {"categories", p.data.traits[t].categories},
                   {"indicator", trait.indicator < 0 ? "" : d.traits[from0(trait.indicator)].name},
                   {"partner", trait.partner < 0 ? "" : d.traits[from0(trait.partner)].name},
                   {"records", p.start.traits[t].observed.n}});
  }
  return out;
}

std::string_view word_of(value_pass pass) {
  switch (pass) {
  case value_pass::bounds:
    return "bounds";
  case value_pass::liabilities:
    return "liabilities";
  case value_pass::mixtures:
    return "mixtures";
  case value_pass::sequences:
    return "sequences";
  default:
    return "none";
  }
}

// The kinds of the traits, by rising number: what a reader of the samples must know of them.
json kinds_json(const model_description& d) {
  json out = json::array();
  for (const trait_kind_row& row : kind_rows)
    if (std::ranges::any_of(
            d.traits, [&](const trait_section& t) { return kind_of(t.kind.value).number == row.number; }))
      out.push_back({{"number", row.number},
                     {"word", row.word},
                     {"unit_variance", has_unit_variance(static_cast<trait_kind>(row.number))},
                     {"drawn_by", word_of(row.pass)},
                     {"stored", row.stored},
                     {"thresholds", row.thresholds}});
  return out;
}

// How the covariables of random curves were moved and scaled: x - shift, then low..high to -1..1 when mapped.
json scales_json(const factor_levels& f) {
  json out = json::object();
  for (const covariable_scale& s : f.scales)
    out[s.name] = {{"shift", s.shift}, {"mapped", s.mapped}, {"low", s.low}, {"high", s.high}};
  return out;
}

json derive_json(const model_description& d) {
  json out = json::array();
  for (const derived_value& v : d.derive) out.push_back({{"name", v.name}, {"formula", v.text.value}});
  return out;
}

// What the coefficient of a row is: "1", a covariable, or a degree of leg or poly, and the columns of its
// levels.
json row_term_json(const model_description& d, const factor_row& row) {
  const random_term& r = d.traits[from0(row.trait)].terms.random[from0(row.term)];
  json columns = json::array();
  for (const named_column& c : r.columns) columns.push_back(c.name);
  json out = {{"columns", columns}, {"basis", "1"}, {"covariable", ""}, {"degree", 0}};
  if (row.effect < 0) return out;
  const atom& a = r.left[from0(row.effect)].atoms.front();
  out["basis"] = a.kind == atom_kind::column ? "covariable" : a.kind == atom_kind::leg ? "leg" : "poly";
  out["covariable"] = a.name;
  out["degree"] = row.degree;
  return out;
}

json factors_json(const model_description& d, const prepared_model& p) {
  json out = json::array();
  for (std::size_t k = 0; k < p.factors.size(); ++k) {
    const factor_levels& f = p.factors[k];
    const structure_row& structure = row_of(f.structure);
    json rows = json::array();
    for (std::size_t i = 0; i < f.row_names.size(); ++i)
      rows.push_back({{"row", i + 1},
                      {"name", f.row_names[i]},
                      {"short", p.names.rows[k][i]},
                      {"trait", f.row_trait[i] + 1},
                      {"term", row_term_json(d, d.factors[f.section].rows[i])}});
    out.push_back(
        {{"number", k + 1},
         {"name", f.name},
         {"structure", structure.name},
         {"file", structure.file_prefix.empty() ? "" : fmt::format("{}{}", structure.file_prefix, k + 1)},
         {"levels", f.n_levels()},
         {"groups", f.n_groups},
         {"rows", rows},
         {"start", matrix_json(p.start.factors[k])},
         {"start_given", p.start.factors[k].given},
         {"scales", scales_json(f)}});
    if (!f.part_names.empty()) out.back()["parts"] = f.part_names;
  }
  return out;
}

json residual_json(const model_description& d, const prepared_model& p) {
  json groups = json::array();
  for (std::size_t g = 0; g < p.patterns.group_codes.size(); ++g)
    groups.push_back({{"number", g + 1},
                      {"code", p.patterns.group_codes[g]},
                      {"start", matrix_json(p.start.residual_groups[g])}});
  return {{"start", matrix_json(p.start.residual)},
          {"start_given", p.start.residual.given},
          {"column", d.residual.groups.value},
          {"groups", groups}};
}

json equations_json(const model_description& d, const prepared_model& p) {
  json out = json::array();
  for (const equation_range& e : equation_ranges(d, p))
    out.push_back({{"part", e.part},
                   {"trait", e.trait < 0 ? "" : d.traits[from0(e.trait)].name},
                   {"name", e.name},
                   {"first", e.first},
                   {"equations", e.n},
                   {"per_level", e.order},
                   {"nested_in", e.nested_in}});
  return out;
}

std::set<std::string> inputs_of(const model_description& d) {
  std::set<std::string> out{d.data.file.value};
  for (const factor_section& f : d.factors) {
    if (!f.pedigree.file.value.empty()) out.insert(f.pedigree.file.value);
    if (!f.matrix.file.value.empty()) out.insert(f.matrix.file.value);
  }
  return out;
}

json inputs_json(const model_description& d) {
  json out = json::array();
  out.push_back({{"file", d.path}, {"fnv1a64", shared::check_sum_of_file(d.path)}});
  for (const std::string& file : inputs_of(d))
    out.push_back({{"file", file}, {"fnv1a64", shared::check_sum_of_file(path_of(d, file).string())}});
  return out;
}

std::string factor_codes(const factor_levels& f) {
  std::string out = "level,code,identification,F,records,in_pedigree";
  for (const std::string& part : f.part_names) out += "," + csv_cell(part);
  out += "\n";
  const std::size_t n_animals = f.inbreeding.size();
  for (std::size_t l = 0; l < f.identification.size(); ++l) {
    const bool animal = l < n_animals;
    out += fmt::format("{},{},{},{},{},{}", l + 1, f.code[l], csv_cell(f.identification[l]),
                       animal ? fmt::format("{:.10g}", f.inbreeding[l]) : "", f.n_records[l],
                       animal ? "yes" : (n_animals > 0 ? "group" : "no"));
    for (std::size_t i = 0; i < f.part_names.size(); ++i)
      out += "," + (i < f.level_parts[l].size() ? csv_cell(f.level_parts[l][i]) : "");
    out += "\n";
  }
  return out;
}

} // namespace

std::string csv_cell(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string out = "\"";
  for (const char c : text) out += c == '"' ? std::string("\"\"") : std::string(1, c);
  return out + "\"";
}

std::string names_json(const model_description& d, const prepared_model& p,
                       const std::vector<std::string>& files) {
  const json all = {{"title", d.title.value},
                    {"analysis", word_of(d.run.analysis.value)},
                    {"records", p.records.n_used()},
                    {"equations", equations_of(p.model)},
                    {"traits", traits_json(d, p)},
                    {"kinds", kinds_json(d)},
                    {"factors", factors_json(d, p)},
                    {"residual", residual_json(d, p)},
                    {"equations_of", equations_json(d, p)},
                    {"derive", derive_json(d)},
                    {"inputs", inputs_json(d)},
                    {"files", files}};
  return all.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

std::vector<side_file> factor_code_files(const prepared_model& p) {
  std::vector<side_file> out;
  std::set<std::string> taken{"codes_fixed.csv"};
  for (const factor_levels& f : p.factors) {
    std::string name = "codes_" + file_part(f.name);
    while (taken.contains(name + ".csv")) name += "_";
    taken.insert(name + ".csv");
    out.push_back({name + ".csv", factor_codes(f)});
  }
  return out;
}

side_file class_code_file(const model_description& d, const prepared_model& p) {
  side_file out{"codes_fixed.csv", "trait,effect,level,code,identification,records,equation,number\n"};
  for (std::size_t t = 0; t < p.fixed.size(); ++t)
    for (std::size_t j = 0; j < p.fixed[t].classes.size(); ++j) {
      const class_effect& c = p.fixed[t].classes[j];
      for (std::size_t l = 0; l < c.code.size(); ++l)
        out.text += fmt::format(
            "{},{},{},{},{},{},{},{}\n", csv_cell(d.traits[t].name), csv_cell(c.name), l + 1, c.code[l],
            csv_cell(c.identification[l]), c.n_records[l],
            c.intercept ? p.model.NBEGF(t + 1, j + 1) + static_cast<std::int64_t>(l) + 1 : 0, j + 1);
    }
  return out;
}

} // namespace zeph::prepare
