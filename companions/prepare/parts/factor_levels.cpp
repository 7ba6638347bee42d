#include "prepare/parts/factor_levels.h"

#include "input/structures.h"
#include "prepare/description/effect_columns.h"

#include "prepare/messages/messages.h"
#include "prepare/messages/repeated_cells.h"
#include "prepare/parts/given_matrix.h"
#include "prepare/tables/level_codes.h"
#include "prepare/tables/missing_codes.h"
#include "shared/indexing.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <set>

namespace zeph::prepare {

namespace {

constexpr std::size_t most_levels_by_name = 1000; // beyond it every level has neighbours that are spelt alike

// ---- contributions

const random_term& term_of(const model_description& d, const factor_row& row) {
  return d.traits[from0(row.trait)].terms.random[from0(row.term)];
}

contribution coefficient_of(const model_description& d, const data_columns& data,
                            const record_selection& records, const factor_row& row, factor_levels& f,
                            message_log& log) {
  contribution c;
  c.trait = row.trait;
  if (row.effect < 0) return c;
  const atom& x = *covariable_atom(term_of(d, row).left[from0(row.effect)]);
  const covariable_scale scale = scale_of(d, data, records, x, log);
  if (std::ranges::find(f.scales, scale.name, &covariable_scale::name) == f.scales.end())
    f.scales.push_back(scale);
  c.curve = curve_of(d, data, scale, x, x.kind == atom_kind::column ? 1 : row.degree);
  c.constant = c.curve.constant;
  c.factor = c.curve.factor;
  return c;
}

void add_contributions(const model_description& d, const data_columns& data, const record_selection& records,
                       const factor_section& section, factor_levels& f, message_log& log) {
  for (std::size_t i = 0; i < section.rows.size(); ++i) {
    const factor_row& row = section.rows[i];
    f.row_names.push_back(row.name);
    f.row_trait.push_back(row.trait);
    contribution c = coefficient_of(d, data, records, row, f, log);
    c.row = static_cast<int>(i) + 1;
    for (const named_column& column : term_of(d, row).columns) {
      c.column = column.name;
      f.contributions.push_back(c);
      std::vector<std::string> parts;
      for (const named_part& part : column.parts) parts.push_back(part.name);
      f.parts.emplace(column.name, std::move(parts));
    }
  }
}

std::set<std::string> columns_of(const factor_levels& f) {
  std::set<std::string> out;
  for (const contribution& c : f.contributions) out.insert(c.column);
  return out;
}

// ---- levels that the used records name

// Calls visit(column's cell number, record) for every level that a present trait asks for.
template <class Visit>
void for_each_use(const record_selection& records, const factor_levels& f, const std::string& column,
                  const Visit& visit) {
  std::set<int> traits;
  for (const contribution& c : f.contributions)
    if (c.column == column) traits.insert(c.trait);
  for (const std::uint32_t r : records.records) {
    bool wanted = false;
    for (const int t : traits) wanted = wanted || records.present[from0(t)][r] != 0;
    if (wanted) visit(r);
  }
}

bool whole_number(std::string_view text, std::int64_t& value) {
  const auto [stop, fault] = std::from_chars(text.data(), text.data() + text.size(), value);
  return fault == std::errc{} && stop == text.data() + text.size();
}

using level_parts = std::vector<std::string>;

// Whether all levels have a whole number at place i of their parts; levels with fewer parts do not count.
bool numbers_at(const std::vector<level_parts>& levels, std::size_t i) {
  std::int64_t value = 0;
  return std::ranges::all_of(
      levels, [&](const level_parts& l) { return i >= l.size() || whole_number(l[i], value); });
}

// Ascending part by part: by number where all are whole numbers there, else by text.
void sort_levels(std::vector<level_parts>& levels) {
  std::vector<bool> numbers;
  std::size_t most = 0;
  for (const level_parts& l : levels) most = std::max(most, l.size());
  for (std::size_t i = 0; i < most; ++i) numbers.push_back(numbers_at(levels, i));
  std::ranges::sort(levels, [&numbers](const level_parts& x, const level_parts& y) {
    for (std::size_t i = 0; i < std::min(x.size(), y.size()); ++i) {
      std::int64_t a = 0, b = 0;
      if (numbers[i] && whole_number(x[i], a) && whole_number(y[i], b) && a != b) return a < b;
      if (x[i] != y[i]) return x[i] < y[i];
    }
    return x.size() < y.size();
  });
}

// What a column, or a combination, says in the records that ask for a level of it.
struct column_levels {
  std::vector<level_parts> levels;
  std::vector<std::int32_t> level; // per record of the file: from 1; 0: missing, or not asked for
};

column_levels levels_of_column(const data_columns& data, const record_selection& records,
                               const factor_levels& f, const std::string& column) {
  std::vector<std::size_t> places;
  for (const std::string& name : f.parts.at(column)) places.push_back(find_column(data.table, name));
  std::vector<std::uint8_t> use(data.n_records(), 0);
  for_each_use(records, f, column, [&use](std::size_t r) { use[r] = 1; });
  level_codes codes = codes_of_columns(data.table, places, use);
  column_levels out{std::vector<level_parts>(codes.identification.size()), std::move(codes.level)};
  for (std::size_t r = 0; r < out.level.size(); ++r) {
    if (out.level[r] == 0) continue;
    level_parts& parts = out.levels[from1(out.level[r])];
    for (std::size_t k = parts.size(); k < places.size(); ++k)
      parts.emplace_back(data.table.cell(places[k], r));
  }
  return out;
}

std::string joined_parts(const level_parts& parts) { return fmt::format("{}", fmt::join(parts, ":")); }

// The heads of the parts: "herd", "year"; where columns of the factor differ "herd+farm", "year".
void name_parts(factor_levels& f) {
  std::vector<std::vector<std::string>> names;
  for (const auto& [column, parts] : f.parts)
    for (std::size_t i = 0; i < parts.size(); ++i) {
      if (names.size() <= i) names.emplace_back();
      if (std::ranges::find(names[i], parts[i]) == names[i].end()) names[i].push_back(parts[i]);
    }
  if (names.size() < 2) return;
  for (const auto& place : names) f.part_names.push_back(fmt::format("{}", fmt::join(place, "+")));
}

void levels_of_data(const data_columns& data, const record_selection& records, factor_levels& f) {
  std::map<std::string, column_levels> found;
  std::set<level_parts> all;
  for (const std::string& column : columns_of(f)) {
    column_levels c = levels_of_column(data, records, f, column);
    all.insert(c.levels.begin(), c.levels.end());
    found.emplace(column, std::move(c));
  }
  std::vector<level_parts> levels(all.begin(), all.end());
  sort_levels(levels);
  std::map<level_parts, std::int32_t> number_of;
  for (const level_parts& parts : levels) {
    f.identification.push_back(joined_parts(parts));
    number_of.emplace(parts, f.n_levels());
  }
  for (auto& [column, c] : found) {
    std::vector<std::int32_t> number(c.levels.size());
    for (std::size_t l = 0; l < number.size(); ++l) number[l] = number_of.at(c.levels[l]);
    for (std::int32_t& l : c.level)
      if (l > 0) l = number[from1(l)];
    f.level.emplace(column, std::move(c.level));
  }
  name_parts(f);
  if (!f.part_names.empty()) f.level_parts = std::move(levels);
  codes_of_identifications(f.identification, f.code);
}

level_table table_of(const std::vector<std::string>& ids) {
  level_table out;
  out.reserve(ids.size());
  for (std::size_t l = 0; l < ids.size(); ++l) out.emplace(ids[l], static_cast<std::int32_t>(l) + 1);
  return out;
}

void refuse_levels(const data_columns& data, const std::string& column, const std::string& file,
                   const repeated_cells& unknown, const factor_levels& f, message_log& log) {
  for (const repeated_cell& cell : unknown.cells) {
    message& m = add_error(log, {data.table.file, static_cast<int>(cell.lines.first.front()), 0},
                           fmt::format("{} \"{}\" is not among the levels of {}{}", column, shown(cell.text),
                                       file, where_in_words(cell.lines)),
                           "no level in " + file);
    m.hint = missing_hint(data.table, cell.text);
    if (m.hint.empty() && f.identification.size() <= most_levels_by_name)
      m.hint = nearest_hint(cell.text, f.identification);
  }
}

// Level of every record by identification; one that `file` does not have is an error.
void look_up_levels(const data_columns& data, const record_selection& records, const std::string& file,
                    factor_levels& f, message_log& log) {
  const level_table number_of = table_of(f.identification);
  for (const std::string& column : columns_of(f)) {
    column_levels c = levels_of_column(data, records, f, column);
    repeated_cells unknown;
    for (std::size_t r = 0; r < c.level.size(); ++r) {
      if (c.level[r] == 0) continue;
      const std::string id = joined_parts(c.levels[from1(c.level[r])]);
      const auto at = number_of.find(id);
      c.level[r] = at == number_of.end() ? 0 : at->second;
      if (at == number_of.end()) add_cell(unknown, id, data.table.line[r]);
    }
    refuse_levels(data, column, file, unknown, f, log);
    f.level.emplace(column, std::move(c.level));
  }
}

// ---- pedigree

pedigree_request request_of(const model_description& d, const data_columns& data,
                            const factor_section& section) {
  const pedigree_source& source = section.pedigree;
  pedigree_request q;
  q.factor = section.name;
  q.file_as_written = source.file.value;
  q.file = path_of(d, source.file.value).string();
  q.layout.decimal = data.table.layout.decimal;
  q.layout.missing = data.table.layout.missing;
  if (source.animal.given) q.animal = source.animal.value;
  if (source.sire.given) q.sire = source.sire.value;
  if (source.dam.given) q.dam = source.dam.value;
  for (const text_value& code : source.group_codes) q.groups.push_back(code.value);
  q.group_pattern = source.group_pattern.value;
  for (const text_value& name : source.columns) q.layout.columns.push_back(name.value);
  q.selfing = source.selfing.value;
  for (const text_value& code : source.unknown) q.unknown.push_back(code.value);
  for (const text_value& code : source.founders) q.founders.push_back(code.value);
  return q;
}

// Animals pass their numbers through when they all are some; the groups among them are -1, -2, .. when theirs
// are not.
void codes_of_pedigree(const pedigree& ped, factor_levels& f) {
  f.identification = ped.identification;
  f.identification.insert(f.identification.end(), ped.group.begin(), ped.group.end());
  std::vector<std::int32_t> animals;
  const bool numbers = codes_of_identifications(ped.identification, animals);
  const bool all = codes_of_identifications(f.identification, f.code);
  const bool room = std::ranges::all_of(animals, [](std::int32_t code) { return code > 0; });
  if (all || !numbers || !room) return;
  f.code = animals;
  for (std::int32_t g = 1; g <= ped.n_groups(); ++g) f.code.push_back(-g);
}

std::vector<std::uint8_t> animals_seen(const record_selection& records, const factor_levels& f,
                                       std::int32_t n) {
  std::vector<std::uint8_t> seen(from0(n), 0);
  for (const auto& entry : f.level)
    for_each_use(records, f, entry.first, [&seen, &level = entry.second](std::size_t r) {
      if (level[r] > 0) seen[from1(level[r])] = 1;
    });
  return seen;
}

pedigree prune_pedigree(const pedigree& ped, std::span<const std::uint8_t> seen, factor_levels& f) {
  std::vector<std::int32_t> new_number;
  pedigree out = pruned(ped, connected_to_data(ped, seen), new_number);
  for (auto& [column, level] : f.level)
    for (std::int32_t& l : level)
      if (l > 0) l = new_number[from1(l)];
  return out;
}

void levels_of_pedigree(const model_description& d, const data_columns& data, const record_selection& records,
                        const factor_section& section, bool prune, factor_levels& f, message_log& log) {
  const int errors = count_of(log, severity::error);
  const std::size_t first = log.entries.size();
  const pedigree_request request = request_of(d, data, section);
  pedigree ped = read_pedigree(request, log);
  show_as_written(d, log, first, request.file, section.pedigree.file);
  ped.file = section.pedigree.file.value;
  if (count_of(log, severity::error) > errors) return;
  std::int64_t n_unknown = 0;
  for (const std::string& column : columns_of(f)) {
    column_animals found = animals_of_column(ped, data.table, find_column(data.table, column), log);
    n_unknown += found.n_unknown;
    f.level.emplace(column, std::move(found.animal));
  }
  const std::vector<std::uint8_t> seen = animals_seen(records, f, ped.n_animals());
  note_pedigree_size(ped, seen, n_unknown, log);
  if (count_of(log, severity::error) > errors) return;
  if (prune) ped = prune_pedigree(ped, seen, f);

  codes_of_pedigree(ped, f);
  f.n_groups = ped.n_groups();
  f.inbreeding = inbreeding_of(ped);
  f.inverse = a_inverse(ped, f.inbreeding, group_place::after_animals, log);
  f.sire_dam = parents_of_levels(ped, group_place::after_animals);
}

// ---- given matrices

void levels_of_matrix(const model_description& d, const data_columns& data, const record_selection& records,
                      const factor_section& section, factor_levels& f, message_log& log) {
  matrix_request q;
  q.file = path_of(d, section.matrix.file.value).string();
  q.form = section.matrix.form.value;
  if (section.matrix.blend.given) q.blend = section.matrix.blend.value;
  q.kind = matrix_kind::inverse;
  if (!section.matrix.holds_inverse.value) {
    q.kind = section.kind == relationship_kind::correlation ? matrix_kind::correlation
             : section.kind == relationship_kind::dominance ? matrix_kind::dominance
                                                            : matrix_kind::relationship;
  }
  const int errors = count_of(log, severity::error);
  const std::size_t first = log.entries.size();
  given_inverse given = read_given_matrix(q, log);
  show_as_written(d, log, first, q.file, section.matrix.file);
  if (count_of(log, severity::error) > errors) return;
  f.identification = std::move(given.identification);
  f.inverse = std::move(given.element);
  f.smallest_eigenvalue = given.smallest_eigenvalue;
  f.blended = given.blended;
  codes_of_identifications(f.identification, f.code);
  look_up_levels(data, records, section.matrix.file.value, f, log);
}

structure_kind structure_of(relationship_kind kind) {
  switch (kind) {
  case relationship_kind::pedigree:
    return structure_kind::pedigree;
  case relationship_kind::inverse:
  case relationship_kind::relationship:
    return structure_kind::given;
  case relationship_kind::correlation:
    return structure_kind::correlation;
  case relationship_kind::dominance:
    return structure_kind::dominance;
  default:
    return structure_kind::identity;
  }
}

// ---- counts over the used records

// Levels of present traits in record r, each once.
void levels_in_record(const record_selection& records, const factor_levels& f, std::size_t r,
                      std::vector<std::int32_t>& levels, bool& without) {
  levels.clear();
  without = false;
  for (const contribution& c : f.contributions) {
    if (records.present[from0(c.trait)][r] == 0) continue;
    const std::int32_t l = f.level.at(c.column)[r];
    if (l == 0)
      without = true;
    else if (std::ranges::find(levels, l) == levels.end())
      levels.push_back(l);
  }
}

void count_records(const record_selection& records, factor_levels& f) {
  f.n_records.assign(f.identification.size(), 0);
  std::vector<std::int32_t> levels;
  for (const std::uint32_t r : records.records) {
    bool without = false;
    levels_in_record(records, f, r, levels, without);
    f.n_without += without ? 1 : 0;
    f.n_meeting += levels.size() > 1 ? 1 : 0;
    for (const std::int32_t l : levels) ++f.n_records[from1(l)];
  }
}

// Levels of one factor in one record are solved and drawn given each other's last value, as if they met
// nowhere.
std::string words_of_meeting(analysis_type analysis, const factor_levels& f) {
  const std::string where =
      fmt::format("two levels of {} meet in {}: ", f.name, records_in_words(f.n_meeting));
  if (!samples_solutions(analysis))
    return where + "the solver takes each with the other's last value\nand may diverge from round 101 on";
  return where + "the chain draws each given the other's value of the round before,\n" +
         (analysis == analysis_type::predict ? "and the standard deviations of the solutions are wrong"
                                             : "and the (co)variances of this model are wrong, in made data "
                                               "by two to three posterior standard "
                                               "deviations");
}

void warn_of_meeting(const data_columns& data, const factor_levels& f, message_log& log) {
  if (f.n_without > 0)
    add_warning(log, {data.table.file, 0, 0},
                fmt::format("no level of {} in {}: the effect is left out there", f.name,
                            records_in_words(f.n_without)));
}

} // namespace

std::vector<factor_levels> make_factors(const model_description& d, const data_columns& data,
                                        const record_selection& records, bool prune, message_log& log) {
  std::vector<factor_levels> out;
  for (std::size_t i = 0; i < d.factors.size(); ++i) {
    const factor_section& section = d.factors[i];
    if (section.rows.empty()) continue;
    const int errors = count_of(log, severity::error);
    factor_levels f;
    f.section = i;
    f.name = section.name;
    f.structure = structure_of(section.kind);
    add_contributions(d, data, records, section, f, log);
    if (f.structure == structure_kind::pedigree) {
      levels_of_pedigree(d, data, records, section, prune, f, log);
    } else if (f.structure == structure_kind::identity) {
      levels_of_data(data, records, f);
    } else {
      levels_of_matrix(d, data, records, section, f, log);
    }
    if (count_of(log, severity::error) == errors) {
      count_records(records, f);
      warn_of_meeting(data, f, log);
    }
    out.push_back(std::move(f));
  }
  return out;
}

void warn_of_meetings(const model_description& d, const data_columns& data,
                      const std::vector<factor_levels>& factors, message_log& log) {
  for (const factor_levels& f : factors) {
    if (f.n_meeting == 0) continue;
    message& m = add_warning(log, {data.table.file, 0, 0}, words_of_meeting(d.run.analysis.value, f));
    if (d.run.sampler.given)
      m.hint = "[run] sampler = \"exact\" draws each given the newest values of the others";
  }
}

} // namespace zeph::prepare
