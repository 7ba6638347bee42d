#include "prepare/parts/pedigree.h"

#include "prepare/tables/csv_reader.h"

#include "prepare/messages/repeated_cells.h"
#include "prepare/parts/unlisted_parents.h"
#include "prepare/tables/missing_codes.h"
#include "shared/indexing.h"

#include <boost/graph/compressed_sparse_row_graph.hpp>
#include <boost/graph/strong_components.hpp>
#include <boost/graph/topological_sort.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <iterator>
#include <utility>

namespace zeph::prepare {

namespace {

using parent_graph = boost::compressed_sparse_row_graph<boost::directedS>;

struct parent_columns {
  std::size_t animal = no_column;
  std::size_t sire = no_column;
  std::size_t dam = no_column;
};

bool same_word(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
         });
}

// The column of the name asked for, or of one of the usual names.
std::size_t parent_column(const csv_columns& table, const std::string& asked,
                          std::span<const std::string_view> usual) {
  if (!asked.empty()) return find_column(table, asked);
  for (const std::string_view word : usual)
    for (std::size_t c = 0; c < table.n_columns(); ++c)
      if (same_word(table.header[c], word)) return c;
  return no_column;
}

bool header_is_data(const csv_columns& table) {
  double value = 0.0;
  return std::any_of(table.header.begin(), table.header.end(),
                     [&](const std::string& name) { return number_in(name, '.', value); });
}

bool find_parent_columns(const csv_columns& table, const pedigree_request& request, parent_columns& columns,
                         message_log& log) {
  using namespace std::string_view_literals;
  columns.animal = parent_column(table, request.animal, std::array{"animal"sv, "id"sv});
  columns.sire = parent_column(table, request.sire, std::array{"sire"sv, "father"sv});
  columns.dam = parent_column(table, request.dam, std::array{"dam"sv, "mother"sv});
  if (columns.animal != no_column && columns.sire != no_column && columns.dam != no_column) return true;

  if (header_is_data(table)) {
    add_error(log, {table.file, 0, 0},
              "the columns have no header; say which is sire and which is dam:\n"
              "pedigree = { file = .., columns = [\"animal\", \"sire\", \"dam\"] }");
    return false;
  }
  const std::array<std::pair<std::size_t, const std::string*>, 3> asked{
      {{columns.animal, &request.animal}, {columns.sire, &request.sire}, {columns.dam, &request.dam}}};
  bool told = false;
  for (const auto& [column, name] : asked)
    if (column == no_column && !name->empty()) {
      require_column(table, *name, log);
      told = true;
    }
  if (!told)
    add_error(log, {table.file, 0, 0},
              fmt::format("the header does not name animal, sire and dam; the columns are: {}\n"
                          "say which is which: pedigree = {{ file = .., animal = .., sire = .., dam = .. }}",
                          joined(table.header)));
  return false;
}

// * matches any text, ? for one byte.
bool matches(std::string_view text, std::string_view pattern) {
  std::size_t t = 0, p = 0, star = std::string_view::npos, mark = 0;
  while (t < text.size()) {
    if (p < pattern.size() && (pattern[p] == '?' || (pattern[p] == text[t] && pattern[p] != '*'))) {
      ++t;
      ++p;
    } else if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      mark = t;
    } else if (star != std::string_view::npos) {
      p = star + 1;
      t = ++mark;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', p) == std::string_view::npos;
}

bool is_among(const std::vector<std::string>& codes, std::string_view text) {
  return std::find(codes.begin(), codes.end(), text) != codes.end();
}

bool is_group(const pedigree_request& request, std::string_view text) {
  return is_among(request.groups, text) ||
         (!request.group_pattern.empty() && matches(text, request.group_pattern));
}

bool is_unknown(const csv_columns& table, const pedigree_request& request, std::size_t c, std::size_t r) {
  const std::string_view cell = table.cell(c, r);
  if (is_among(request.founders, cell)) return false;
  return cell == "0" || cell == "NA" || is_missing(table, c, r) || is_among(request.unknown, cell);
}

source_place at_line(const pedigree& ped, std::int64_t line) { return {ped.file, static_cast<int>(line), 0}; }

std::int32_t add_animal(pedigree& ped, std::string_view text, std::int64_t line) {
  ped.identification.emplace_back(text);
  ped.line.push_back(line);
  ped.sire.push_back(0);
  ped.dam.push_back(0);
  ped.number_of.emplace(std::string(text), ped.n_animals());
  return ped.n_animals();
}

// Animals that have a line get the numbers 1, 2, .. in the order of the file. row[a - 1]: record of its line.
void take_animals(const csv_columns& table, const pedigree_request& request, const parent_columns& columns,
                  pedigree& ped, std::vector<std::size_t>& row, message_log& log) {
  for (std::size_t r = 0; r < table.n_records(); ++r) {
    const std::string_view text = table.cell(columns.animal, r);
    const auto at = ped.number_of.find(text);
    if (is_unknown(table, request, columns.animal, r)) {
      add_error(log, at_line(ped, table.line[r]),
                fmt::format("\"{}\" is the code of an unknown parent, not of an animal", shown(text)),
                "no animal " + ped.file);
    } else if (is_group(request, text)) {
      add_error(
          log, at_line(ped, table.line[r]),
          fmt::format("\"{}\" is a phantom parent group and cannot have a line of its own", shown(text)),
          "group line " + ped.file);
    } else if (at == ped.number_of.end()) {
      add_animal(ped, text, table.line[r]);
      row.push_back(r);
    } else {
      const auto first = from1(at->second);
      const auto parent = [&](std::size_t c, std::size_t k) {
        return is_unknown(table, request, c, k) ? std::string_view{} : table.cell(c, k);
      };
      const bool same = parent(columns.sire, r) == parent(columns.sire, row[first]) &&
                        parent(columns.dam, r) == parent(columns.dam, row[first]);
      if (same)
        add_note(log, at_line(ped, table.line[r]),
                 fmt::format("animal \"{}\" has two identical lines (first: line {})", shown(text),
                             ped.line[first]),
                 "equal lines " + ped.file);
      else
        add_error(log, at_line(ped, table.line[r]),
                  fmt::format("animal \"{}\" has two lines with different parents (first: line {})",
                              shown(text), ped.line[first]),
                  "different parents " + ped.file);
    }
  }
}

// Number of the parent in a cell: an animal, 0, or minus the group. Parents without a line become animals.
std::int32_t parent_in(const csv_columns& table, const pedigree_request& request, std::size_t c,
                       std::size_t r, pedigree& ped) {
  if (is_unknown(table, request, c, r)) return 0;
  const std::string_view text = table.cell(c, r);
  if (const auto at = ped.number_of.find(text); at != ped.number_of.end()) return at->second;
  if (!is_group(request, text)) return add_animal(ped, text, 0);
  auto at = std::find(ped.group.begin(), ped.group.end(), text);
  if (at == ped.group.end()) at = ped.group.insert(at, std::string(text));
  return -static_cast<std::int32_t>(at - ped.group.begin() + 1);
}

// Groups into the order in which they are declared, those of a pattern by text after them.
void order_groups(const pedigree_request& request, pedigree& ped, message_log& log) {
  std::vector<std::string> sorted = ped.group;
  const auto declared = [&](const std::string& text) {
    return std::find(request.groups.begin(), request.groups.end(), text) - request.groups.begin();
  };
  std::sort(sorted.begin(), sorted.end(), [&](const std::string& a, const std::string& b) {
    return std::pair(declared(a), a) < std::pair(declared(b), b);
  });
  std::vector<std::int32_t> new_number(sorted.size() + 1, 0);
  for (std::size_t g = 0; g < sorted.size(); ++g)
    new_number[g + 1] =
        static_cast<std::int32_t>(std::find(sorted.begin(), sorted.end(), ped.group[g]) - sorted.begin() + 1);
  for (std::vector<std::int32_t>* parents : {&ped.sire, &ped.dam})
    for (std::int32_t& parent : *parents)
      if (parent < 0) parent = -new_number[from0(-parent)];
  ped.group = std::move(sorted);
  for (const std::string& text : request.groups)
    if (std::find(ped.group.begin(), ped.group.end(), text) == ped.group.end())
      add_warning(log, {ped.file, 0, 0},
                  fmt::format("phantom parent group \"{}\" is nobody's parent; it is left out", text));
  if (ped.group.empty() && !request.group_pattern.empty())
    add_warning(
        log, {ped.file, 0, 0},
        fmt::format("no parent matches the pattern \"{}\" of phantom parent groups", request.group_pattern));
}

// Parents without a line were looked at before, but for those that the description calls animals.
void check_sexes(const pedigree& ped, const pedigree_request& request, message_log& log) {
  const auto n = from0(ped.n_animals());
  std::vector<std::int64_t> as_sire(n, 0), as_dam(n, 0); // first line where the animal is a sire, a dam
  for (std::size_t a = 0; a < n; ++a) {
    if (ped.sire[a] > 0 && as_sire[from1(ped.sire[a])] == 0) as_sire[from1(ped.sire[a])] = ped.line[a];
    if (ped.dam[a] > 0 && as_dam[from1(ped.dam[a])] == 0) as_dam[from1(ped.dam[a])] = ped.line[a];
  }
  for (std::size_t a = 0; a < n; ++a)
    if (as_sire[a] > 0 && as_dam[a] > 0 &&
        (ped.line[a] > 0 || is_among(request.founders, ped.identification[a])))
      add_error(log, {ped.file, 0, 0},
                fmt::format("\"{}\" is a sire in line {} and a dam in line {} (plants: set selfing = true)",
                            shown(ped.identification[a]), as_sire[a], as_dam[a]),
                "sire and dam " + ped.file);
}

// Edges from each animal to its parents; vertices from 0.
parent_graph graph_of(const pedigree& ped) {
  std::vector<std::pair<std::size_t, std::size_t>> edges;
  const auto n = from0(ped.n_animals());
  edges.reserve(2 * n);
  for (std::size_t a = 0; a < n; ++a)
    for (const std::int32_t parent : {ped.sire[a], ped.dam[a]})
      if (parent > 0) edges.emplace_back(a, from1(parent));
  return {boost::edges_are_sorted, edges.begin(), edges.end(), n};
}

// Each strong component with a cycle is shown by one loop in it, from the animal of the lowest line on.
void report_loops(const pedigree& ped, const parent_graph& graph, message_log& log) {
  const auto n = from0(ped.n_animals());
  std::vector<std::size_t> component(n);
  boost::strong_components(
      graph, boost::make_iterator_property_map(component.begin(), get(boost::vertex_index, graph)));
  const auto parent_within = [&](std::size_t a) {
    for (const std::int32_t parent : {ped.sire[a], ped.dam[a]})
      if (parent > 0 && component[from1(parent)] == component[a]) return from1(parent);
    return n;
  };
  std::vector<std::uint8_t> told(n, 0); // by component
  for (std::size_t a = 0; a < n; ++a) {
    if (told[component[a]] != 0 || parent_within(a) == n) continue;
    told[component[a]] = 1;
    std::vector<std::size_t> walk{a};
    auto back = walk.end();
    while (true) { // along parents of the component until an animal comes again
      const std::size_t next = parent_within(walk.back());
      back = std::find(walk.begin(), walk.end(), next);
      if (back != walk.end()) break;
      walk.push_back(next);
    }
    walk.erase(walk.begin(), back);
    std::rotate(walk.begin(), std::min_element(walk.begin(), walk.end()), walk.end());
    std::string text = fmt::format("loop of {} {}: ", walk.size(), walk.size() == 1 ? "animal" : "animals");
    for (const std::size_t b : walk)
      text += fmt::format("{} (line {}) -> ", shown(ped.identification[b]), ped.line[b]);
    add_error(log, {ped.file, 0, 0}, text + shown(ped.identification[walk.front()]), "loop " + ped.file);
  }
}

// The pedigree with its animals in the order given (indices from 0, parents first).
pedigree reordered(const pedigree& ped, std::span<const std::size_t> order,
                   std::vector<std::int32_t>& new_number) {
  pedigree sorted;
  sorted.file = ped.file;
  sorted.group = ped.group;
  new_number.assign(from0(ped.n_animals()), 0);
  sorted.number_of.reserve(order.size());
  for (const std::size_t a : order) {
    new_number[a] = add_animal(sorted, ped.identification[a], ped.line[a]);
    const auto renumbered = [&](std::int32_t parent) {
      return parent > 0 ? new_number[from1(parent)] : parent;
    };
    sorted.sire.back() = renumbered(ped.sire[a]);
    sorted.dam.back() = renumbered(ped.dam[a]);
  }
  return sorted;
}

} // namespace

pedigree pedigree_of_table(const csv_columns& table, const pedigree_request& request, message_log& log) {
  pedigree ped;
  ped.file = table.file;
  const int n_errors = count_of(log, severity::error);
  parent_columns columns;
  if (!find_parent_columns(table, request, columns, log)) return ped;

  std::vector<std::size_t> row;
  ped.number_of.reserve(table.n_records());
  take_animals(table, request, columns, ped, row, log);
  for (std::size_t a = 0; a < row.size(); ++a) {
    // the lists may grow in parent_in, so it is called before the place is looked up
    const std::int32_t sire = parent_in(table, request, columns.sire, row[a], ped);
    const std::int32_t dam = parent_in(table, request, columns.dam, row[a], ped);
    ped.sire[a] = sire;
    ped.dam[a] = dam;
  }
  check_unlisted_parents(ped, request, log);
  order_groups(request, ped, log);
  if (!request.selfing) check_sexes(ped, request, log);

  std::vector<std::size_t> order;
  order.reserve(ped.identification.size());
  const parent_graph graph = graph_of(ped);
  try {
    boost::topological_sort(graph, std::back_inserter(order)); // parents come out first
  } catch (const boost::not_a_dag&) {
    report_loops(ped, graph, log);
  }
  if (count_of(log, severity::error) > n_errors) {
    pedigree none;
    none.file = table.file;
    return none;
  }
  std::vector<std::int32_t> new_number;
  return reordered(ped, order, new_number);
}

pedigree read_pedigree(const pedigree_request& request, message_log& log) {
  message_log found;
  const csv_columns table = read_csv(request.file, request.layout, found);
  pedigree none;
  none.file = request.file;
  // a file without header is reported by the missing columns, not by the number in its first line
  parent_columns columns;
  const bool no_header = request.layout.columns.empty() && table.n_columns() > 0 && header_is_data(table);
  if (no_header && !find_parent_columns(table, request, columns, log)) return none;
  log.entries.insert(log.entries.end(), found.entries.begin(), found.entries.end());
  if (exit_code(found) != 0) return none;
  return pedigree_of_table(table, request, log);
}

column_animals animals_of_column(const pedigree& ped, const csv_columns& table, std::size_t c,
                                 message_log& log) {
  column_animals found;
  found.animal.assign(table.n_records(), 0);
  repeated_cells unknown;
  std::unordered_map<std::string, std::size_t> record; // where each was found first
  for (std::size_t r = 0; r < table.n_records(); ++r) {
    if (is_missing(table, c, r)) continue;
    const std::string_view text = table.cell(c, r);
    if (const auto at = ped.number_of.find(text); at != ped.number_of.end()) {
      found.animal[r] = at->second;
      continue;
    }
    add_cell(unknown, text, table.line[r]);
    record.emplace(text, r + 1);
  }
  for (const repeated_cell& cell : unknown.cells) {
    message& m = add_error(
        log, {table.file, static_cast<int>(cell.lines.first.front()), 0},
        fmt::format("{} of record {} (\"{}\") is neither in the pedigree nor a missing code{}",
                    table.header[c], record.at(cell.text), shown(cell.text), where_in_words(cell.lines)),
        fmt::format("not in pedigree {} {}", table.file, table.header[c]));
    m.hint = missing_hint(table, cell.text);
  }
  found.n_unknown = static_cast<std::int64_t>(record.size());
  return found;
}

std::vector<std::uint8_t> connected_to_data(const pedigree& ped, std::span<const std::uint8_t> seen) {
  std::vector<std::uint8_t> connected(seen.begin(), seen.end());
  for (std::size_t a = connected.size(); a-- > 0;) {
    if (connected[a] == 0) continue;
    connected[a] = 1;
    for (const std::int32_t parent : {ped.sire[a], ped.dam[a]})
      if (parent > 0) connected[from1(parent)] = 1;
  }
  return connected;
}

pedigree pruned(const pedigree& ped, std::span<const std::uint8_t> keep,
                std::vector<std::int32_t>& new_number) {
  std::vector<std::size_t> order;
  for (std::size_t a = 0; a < keep.size(); ++a)
    if (keep[a] != 0) order.push_back(a);
  pedigree rest = reordered(ped, order, new_number);

  std::vector<std::int32_t> new_group(ped.group.size() + 1, 0);
  for (const std::vector<std::int32_t>* parents : {&rest.sire, &rest.dam})
    for (const std::int32_t parent : *parents)
      if (parent < 0) new_group[from0(-parent)] = 1;
  rest.group.clear();
  for (std::size_t g = 1; g < new_group.size(); ++g) {
    if (new_group[g] == 0) continue;
    rest.group.push_back(ped.group[g - 1]);
    new_group[g] = rest.n_groups();
  }
  for (std::vector<std::int32_t>* parents : {&rest.sire, &rest.dam})
    for (std::int32_t& parent : *parents)
      if (parent < 0) parent = -new_group[from0(-parent)];
  return rest;
}

void note_pedigree_size(const pedigree& ped, std::span<const std::uint8_t> seen, std::int64_t n_unknown,
                        message_log& log) {
  const auto is_set = [](std::uint8_t flag) { return flag != 0; };
  const std::vector<std::uint8_t> connected = connected_to_data(ped, seen);
  const auto n_seen = std::count_if(seen.begin(), seen.end(), is_set) + n_unknown;
  const auto n_apart = std::count(connected.begin(), connected.end(), std::uint8_t{0});
  std::string text = fmt::format("{} animals, ", ped.n_animals());
  text += n_unknown > 0 ? fmt::format("{} of {} with records not in it", n_unknown, n_seen)
                        : fmt::format("{} with records", n_seen);
  if (n_apart > 0) text += fmt::format("; {} without connection to data (--prune leaves them out)", n_apart);
  add_note(log, {ped.file, 0, 0}, text);
}

} // namespace zeph::prepare
