#include "input/relationships.h"

#include "formats/free_format.h"
#include "formats/sequential_file.h"
#include "input/structures.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "listing/work_files.h"
#include "numerics/storage_door.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

namespace zeph {
namespace {

constexpr double no_diagonal = std::numeric_limits<double>::quiet_NaN(); // a value of a file is finite

// One element of a file: row, column, value.
struct relationship_element {
  std::int32_t i = 0, j = 0;
  double v = 0;
};

int read_element(sequential_reader& file, relationship_element& e) {
  file.next();
  file.take(e.i);
  file.take(e.j);
  file.take(e.v);
  return file.code();
}

void check_element(const relationship_element& e, std::int64_t number, std::int32_t n, std::string_view name,
                   reporting& report) {
  const std::string levels = "1.." + std::to_string(n);
  if (e.i < 1 || e.i > n) illegal_input(report, name, "row", {number}, std::to_string(e.i), levels);
  if (e.j < 1 || e.j > n) illegal_input(report, name, "column", {number}, std::to_string(e.j), levels);
  if (!std::isfinite(e.v)) {
    const std::string field = free_row().r8(e.v).str();
    illegal_input(report, name, "value", {number}, field.substr(field.find_first_not_of(' ')),
                  "a finite number");
  }
}

// A file that the system can't read ends the run.
void check_read(int code, std::string_view name, reporting& report) {
  if (code == sequential_reader::read_fault) read_fault(report, name);
}

// First pass: checks every element, keeps the diagonal, and counts in start(r)
// the off-diagonal elements of row r. Returns the number of elements; `code` is
// that of the first read.
std::int64_t count_elements(sequential_reader& file, std::string_view name, relationship_rows& rows,
                            int& code, reporting& report) {
  const auto n = static_cast<std::int32_t>(rows.diag.size());
  std::int64_t elements = 0;
  relationship_element e;
  int now = code = read_element(file, e);
  for (; now == 0; now = read_element(file, e)) {
    ++elements;
    if (e.i < 1 || e.i > n || e.j < 1 || e.j > n || !std::isfinite(e.v))
      check_element(e, elements, n, name, report);
    if (e.i == e.j) {
      rows.diag(e.i) = e.v;
    } else {
      ++rows.start(e.i);
      ++rows.start(e.j);
    }
  }
  check_read(now, name, report);
  return elements;
}

// Counts become ends: start(r) is one beyond the last place of row r.
std::int64_t counts_to_ends(relationship_rows& rows) {
  std::int64_t next = 1;
  // start(r) = 1 + elements of rows 1..r, and so one beyond row r; filling moves it back to the row's first
  for (std::int64_t& cell : rows.start) {
    next += cell;
    cell = next;
  }
  return next - 1;
}

// Second pass: each element goes before those of its rows that were read
// earlier, which leaves start(r) at the first place of row r.
void place_elements(sequential_reader& file, std::string_view name, std::int64_t elements,
                    relationship_rows& rows, reporting& report) {
  relationship_element e;
  for (std::int64_t read = 0; read < elements; ++read) {
    const int code = read_element(file, e);
    check_read(code, name, report);
    if (code != 0) return;
    if (e.i == e.j) continue;
    // each off-diagonal element in the rows of both its levels
    const std::int64_t in_j = --rows.start(e.j), in_i = --rows.start(e.i);
    rows.col(in_j) = e.i;
    rows.val(in_j) = e.v;
    rows.col(in_i) = e.j;
    rows.val(in_i) = e.v;
  }
}

// Reads the file `name` into rows 1..n; elements(0) leaves no off-diagonals.
// Rows without a diagonal element have NaN there. Returns the number of
// elements; `code` is that of the first read.
std::int64_t read_rows(std::string_view name, std::int32_t n, relationship_rows& rows, int& code,
                       reporting& report) {
  allocate(report, rows.diag, "AILST", "READTOMEM", n);
  allocate(report, rows.start, "AILST", "READTOMEM", std::int64_t{n} + 1);
  rows.diag.fill(no_diagonal);
  sequential_reader file;
  file.open(path_of(report, name));
  const std::int64_t elements = count_elements(file, name, rows, code, report);
  const std::int64_t off_diagonal = counts_to_ends(rows);
  allocate(report, rows.col, "AILST", "READTOMEM", off_diagonal);
  allocate(report, rows.val, "AILST", "READTOMEM", off_diagonal);
  if (off_diagonal > 0) {
    file.rewind();
    place_elements(file, name, elements, rows, report);
  }
  return elements;
}

// A level related to itself alone.
void identity_rows(std::int32_t n, relationship_rows& rows, reporting& report) {
  allocate(report, rows.diag, "AILST", "READTOMEM", n);
  allocate(report, rows.start, "AILST", "READTOMEM", std::int64_t{n} + 1);
  allocate(report, rows.col, "AILST", "READTOMEM", 0);
  allocate(report, rows.val, "AILST", "READTOMEM", 0);
  rows.diag.fill(1.0);
  rows.start.fill(1);
}

void first_record_error(std::string_view text, std::int32_t k, int code, reporting& report) {
  say(report);
  say(report, free_row().text(text).i(k).str());
  say(report, free_row().text("       error code ").i(code).str());
  say(report);
}

std::string numbered(std::string_view prefix, std::int32_t k) {
  return std::string(prefix) + std::to_string(k);
}

int read_structure(const model_records& m, std::int32_t k, relationship_rows& rows, reporting& report) {
  const std::string name = numbered(row_of(structure_of(m.RMAT(k))).file_prefix, k);
  say(report);
  say_count(report, "Reading variance structure for random effect ......", k);
  int code = 0;
  const std::int64_t elements = read_rows(name, m.NRALEV(k), rows, code, report);
  if (code != 0) first_record_error("ERROR  reading 1st record for variance structure ", k, code, report);
  say_count(report, "Number of elements in variance structure ..........", elements);
  if (code != 0) return 1;
  for (std::int32_t row = 1; row <= m.NRALEV(k); ++row)
    if (std::isnan(rows.diag(row)))
      illegal_input(report, name, "diagonal element", {row}, "missing", "one for every level");
  return 0;
}

// The second list of a reduced animal model; a level that is not in it has
// diagonal 0 and so adds nothing to a sum.
int read_ram_structure(const model_records& m, std::int32_t k, relationship_rows& rows, reporting& report) {
  say_label(report, "Reduced Animal Model for sampling dispersion parm..");
  say_count(report, "Reading RAM pedigree for random effect ............", k);
  int code = 0;
  const std::int64_t elements = read_rows(numbered(reduced_prefix, k), m.NRALEV(k), rows, code, report);
  if (code != 0) first_record_error("ERROR  reading 1st record for RAM variance structure ", k, code, report);
  say_count(report, "Number of elements read in RAM A-inverse ..........", elements);
  for (double& d : rows.diag)
    if (std::isnan(d)) d = 0.0;
  return code != 0 ? 1 : 0;
}

[[noreturn]] void pedigree_error(int code, reporting& report) {
  say(report, free_row().text("Error reading pedigree info").i(code).str());
  stop_run(report, exit_input_stage);
}

void check_parents(const mat<std::int32_t>& pedmat, std::int32_t first, std::int32_t last, std::int32_t n,
                   std::string_view name, reporting& report) {
  for (std::int32_t level = first; level <= last; ++level)
    for (std::int32_t parent = 1; parent <= 2; ++parent)
      if (std::abs(std::int64_t{pedmat(parent, level)}) > n)
        illegal_input(report, name, "parent", {parent, level}, std::to_string(pedmat(parent, level)),
                      std::to_string(-std::int64_t{n}) + ".." + std::to_string(n));
}

} // namespace

std::int32_t find_pedigree(const model_records& m, reporting& report) {
  std::int32_t found = 0;
  for (std::int32_t k = 1; k <= m.nramat; ++k) {
    if (!is_pedigree(m.RMAT(k))) continue;
    if (found != 0) {
      say(report, "More than one pedigree file found");
      say(report, "Not currently supported in ZEPH");
      stop_run(report, exit_input_stage);
    }
    found = k;
  }
  return found;
}

int read_relationships(const model_records& m, relationship_store& relations, reporting& report) {
  allocate_rows(report, relations.CV_STR, "CV_STR", "READTOMEM", m.nramat);
  allocate_rows(report, relations.CV_STR_RAM, "CV_STR_RAM", "READTOMEM", m.nramat);
  int ierr = 0;
  for (std::int32_t k = 1; k <= m.nramat; ++k) {
    const structure_record& r = m.RMAT(k);
    relationship_rows& rows = relations.CV_STR[static_cast<std::size_t>(k - 1)];
    const structure_kind kind = structure_of(r);
    if (kind == structure_kind::identity) continue;
    if (row_of(kind).file_prefix.empty()) {
      identity_rows(m.NRALEV(k), rows, report);
      continue;
    }
    if (read_structure(m, k, rows, report) != 0) ierr = 1;
    if (kind == structure_kind::pedigree && r.L_RAM &&
        read_ram_structure(m, k, relations.CV_STR_RAM[static_cast<std::size_t>(k - 1)], report) != 0)
      ierr = 1;
  }
  return ierr;
}

std::vector<std::string> relationship_files(const model_records& m) {
  std::vector<std::string> names;
  for (std::int32_t k = 1; k <= m.nramat; ++k) {
    const structure_kind kind = structure_of(m.RMAT(k));
    if (row_of(kind).file_prefix.empty()) continue;
    names.push_back(numbered(row_of(kind).file_prefix, k));
    if (kind != structure_kind::pedigree) continue;
    names.push_back(numbered(parents_prefix, k));
    if (m.RMAT(k).L_RAM) names.push_back(numbered(reduced_prefix, k));
  }
  return names;
}

std::int32_t count_ram_diagonals(std::int32_t k, std::int32_t otherwise, reporting& report) {
  const std::string name = numbered(reduced_prefix, k);
  sequential_reader file;
  relationship_element e;
  file.open(path_of(report, name));
  std::int32_t elements = 0, diagonals = 0;
  int code = 0;
  while ((code = read_element(file, e)) == 0) {
    ++elements;
    diagonals += e.i == e.j;
  }
  check_read(code, name, report);
  return elements == 0 ? otherwise : diagonals;
}

void PEDFILE(const model_records& m, relationship_store& relations, reporting& report) {
  // sire and dam of 100,000 levels a record, the rest in the last one
  constexpr std::int32_t levels_a_record = 100000;
  const std::int32_t k = relations.pedigree_factor = find_pedigree(m, report);
  if (k == 0) {
    say(report, "No pedigree file found");
    return;
  }
  const std::int32_t n = m.NRALEV(k);
  if (!door_opens(report) || !relations.pedmat.take(2, n)) {
    say(report, "Allocation of pedmat failed");
    stop_run(report, exit_input_stage);
  }
  const std::string name = numbered(parents_prefix, k);
  sequential_reader file;
  file.open(path_of(report, name));
  for (std::int32_t done = 0; done < n;) {
    const std::int32_t levels = std::min(levels_a_record, n - done);
    file.next();
    file.take(relations.pedmat.unchecked_col(done + 1), 2 * std::int64_t{levels});
    if (file.code() != 0) pedigree_error(file.code(), report);
    check_parents(relations.pedmat, done + 1, done + levels, n, name, report);
    done += levels;
  }
}

} // namespace zeph
