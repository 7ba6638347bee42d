#include "prepare/factor_levels.h"

#include "prepare/given_matrix.h"
#include "prepare/level_codes.h"
#include "prepare/messages.h"
#include "prepare/missing_codes.h"
#include "prepare/repeated_cells.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <set>

namespace zeph::prepare {

namespace {

constexpr std::size_t most_levels_by_name = 1000; // beyond it every level has neighbours that are spelt alike

// ---- contributions

const random_term& term_of(const model_description& d, const factor_row& row) {
  return d.traits[static_cast<std::size_t>(row.trait)].terms.random[static_cast<std::size_t>(row.term)];
}

contribution coefficient_of(const model_description& d, const data_columns& data,
                            const record_selection& records, const factor_row& row, factor_levels& f,
                            message_log& log) {
  contribution c;
  c.trait = row.trait;
  if (row.effect < 0) return c;
  const atom& x = *covariable_atom(term_of(d, row).left[static_cast<std::size_t>(row.effect)]);
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
    for (const int t : traits) wanted = wanted || records.present[static_cast<std::size_t>(t)][r] != 0;
    if (wanted) visit(r);
  }
}

bool whole_number(std::string_view text, std::int64_t& value) {
  const auto [stop, fault] = std::from_chars(text.data(), text.data() + text.size(), value);
  return fault == std::errc{} && stop == text.data() + text.size();
}

// Ascending: by number when all are whole numbers, else by text.
void sort_identifications(std::vector<std::string>& ids) {
  std::int64_t a = 0, b = 0;
  const bool numbers = std::ranges::all_of(ids, [&a](const std::string& s) { return whole_number(s, a); });
  std::ranges::sort(ids, [&](const std::string& x, const std::string& y) {
    if (!numbers) return x < y;
    whole_number(x, a);
    whole_number(y, b);
    return a != b ? a < b : x < y;
  });
}

void levels_of_data(const data_columns& data, const record_selection& records, factor_levels& f) {
  std::set<std::string, std::less<>> seen;
  for (const std::string& column : columns_of(f)) {
    const std::size_t c = find_column(data.table, column);
    for_each_use(records, f, column, [&](std::size_t r) {
      if (!is_missing(data.table, c, r) && !seen.contains(data.table.cell(c, r)))
        seen.emplace(data.table.cell(c, r));
    });
  }
  f.identification.assign(seen.begin(), seen.end());
  sort_identifications(f.identification);
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

// Level of every record by identification; an unknown one is an error when `file` is not empty.
void look_up_levels(const data_columns& data, const record_selection& records, const std::string& file,
                    factor_levels& f, message_log& log) {
  const level_table number_of = table_of(f.identification);
  for (const std::string& column : columns_of(f)) {
    const std::size_t c = find_column(data.table, column);
    std::vector<std::int32_t> level(data.n_records(), 0);
    repeated_cells unknown;
    for_each_use(records, f, column, [&](std::size_t r) {
      if (is_missing(data.table, c, r)) return;
      const auto at = number_of.find(data.table.cell(c, r));
      if (at != number_of.end())
        level[r] = at->second;
      else
        add_cell(unknown, data.table.cell(c, r), data.table.line[r]);
    });
    if (!file.empty()) refuse_levels(data, column, file, unknown, f, log);
    f.level.emplace(column, std::move(level));
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
  std::vector<std::uint8_t> seen(static_cast<std::size_t>(n), 0);
  for (const auto& entry : f.level)
    for_each_use(records, f, entry.first, [&seen, &level = entry.second](std::size_t r) {
      if (level[r] > 0) seen[static_cast<std::size_t>(level[r] - 1)] = 1;
    });
  return seen;
}

pedigree prune_pedigree(const pedigree& ped, std::span<const std::uint8_t> seen, factor_levels& f) {
  std::vector<std::int32_t> new_number;
  pedigree out = pruned(ped, connected_to_data(ped, seen), new_number);
  for (auto& [column, level] : f.level)
    for (std::int32_t& l : level)
      if (l > 0) l = new_number[static_cast<std::size_t>(l - 1)];
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

void name_structure(relationship_kind kind, factor_levels& f) {
  switch (kind) {
  case relationship_kind::pedigree:
    f.structure = "PED";
    f.file_prefix = "AINV";
    break;
  case relationship_kind::inverse:
  case relationship_kind::relationship:
    f.structure = "GREL";
    f.file_prefix = "GINV";
    break;
  case relationship_kind::correlation:
    f.structure = "COR";
    f.file_prefix = "COR";
    break;
  case relationship_kind::dominance:
    f.structure = "DOM";
    f.file_prefix = "DOM";
    break;
  default:
    f.structure = "I";
    break;
  }
}

// ---- counts over the used records

// Levels of present traits in record r, each once.
void levels_in_record(const record_selection& records, const factor_levels& f, std::size_t r,
                      std::vector<std::int32_t>& levels, bool& without) {
  levels.clear();
  without = false;
  for (const contribution& c : f.contributions) {
    if (records.present[static_cast<std::size_t>(c.trait)][r] == 0) continue;
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
    for (const std::int32_t l : levels) ++f.n_records[static_cast<std::size_t>(l - 1)];
  }
}

// Levels of one factor in one record are solved and drawn given each other's last value, as if they met
// nowhere.
std::string words_of_meeting(analysis_type analysis, const factor_levels& f) {
  const std::string where =
      fmt::format("two levels of {} meet in {}: ", f.name, records_in_words(f.n_meeting));
  if (analysis <= analysis_type::sums)
    return where + "the solver takes each with the other's last value\nand may diverge from round 101 on";
  return where + "the chain draws each given the other's value of the round before,\n" +
         (analysis == analysis_type::predict ? "and the standard deviations of the solutions are wrong"
                                             : "and the (co)variances of this model are wrong, in made data "
                                               "by two to three posterior standard "
                                               "deviations");
}

void tell(analysis_type analysis, const data_columns& data, const factor_levels& f, message_log& log) {
  if (f.n_without > 0)
    add_warning(log, {data.table.file, 0, 0},
                fmt::format("no level of {} in {}: the effect is left out there", f.name,
                            records_in_words(f.n_without)));
  if (f.n_meeting > 0) add_warning(log, {data.table.file, 0, 0}, words_of_meeting(analysis, f));
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
    name_structure(section.kind, f);
    add_contributions(d, data, records, section, f, log);
    if (f.structure == "PED") {
      levels_of_pedigree(d, data, records, section, prune, f, log);
    } else if (f.structure == "I") {
      levels_of_data(data, records, f);
      look_up_levels(data, records, "", f, log);
    } else {
      levels_of_matrix(d, data, records, section, f, log);
    }
    if (count_of(log, severity::error) == errors) {
      count_records(records, f);
      tell(d.run.analysis.value, data, f, log);
    }
    out.push_back(std::move(f));
  }
  return out;
}

} // namespace zeph::prepare
