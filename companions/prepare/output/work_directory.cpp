#include "prepare/output/work_directory.h"

#include "formats/sequential_file.h"
#include "formats/text_file.h"
#include "formats/whole_file.h"
#include "input/modinf_writer.h"
#include "input/structures.h"
#include "prepare/model/directive_lines.h"
#include "prepare/model/sampler_lines.h"
#include "prepare/output/side_files.h"
#include "shared/indexing.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <list>
#include <system_error>
#include <utility>

namespace zeph::prepare {

namespace {

namespace fs = std::filesystem;

constexpr std::int64_t levels_per_record = 100000; // of PEDFILEk
constexpr std::int32_t class_row = 2, factor_row_code = 3;

// ": No space left on device" after a call that failed, or nothing when the system gave no reason.
std::string reason() { return errno == 0 ? "" : ": " + std::generic_category().message(errno); }

// Where the files go, and how it went so far.
struct writing {
  fs::path directory;
  directory_result result;
  std::list<whole_file> written = {}; // that of result.files, beside their names

  [[nodiscard]] std::string target(const std::string& name) const { return (directory / name).string(); }
  // Where the file `name` is written to.
  std::string path(const std::string& name) {
    const std::string& place = written.emplace_back(target(name)).path();
    errno = 0;
    return place;
  }
  bool done(const std::string& name, bool ok) {
    result.files.push_back(name);
    if (!ok && result.fault.empty()) result.fault = "can't write " + target(name) + reason();
    errno = 0;
    return result.fault.empty();
  }
  // Gives all files their names, once each of them could be written.
  void publish() {
    auto name = result.files.begin();
    for (whole_file& file : written) {
      if (!result.fault.empty()) return;
      if (!file.publish()) result.fault = "can't write " + target(*name) + reason();
      result.mixed = !result.fault.empty() && name != result.files.begin();
      ++name;
    }
  }
};

bool write_lines(writing& w, const std::string& name, const std::vector<std::string>& lines) {
  text_writer file;
  bool ok = file.open(w.path(name));
  for (const std::string& line : lines) ok = ok && file.line(line);
  return w.done(name, file.close() && ok);
}

bool write_text(writing& w, const std::string& name, const std::string& text) {
  byte_sink file;
  bool ok = file.open(w.path(name), open_mode::truncate);
  ok = ok && file.write(text.data(), static_cast<std::int64_t>(text.size()));
  return w.done(name, file.close() && ok);
}

// One record of every file per row, the columns side by side.
template <class T>
bool write_columns(writing& w, const std::string& name, const std::vector<std::vector<T>>& columns,
                   std::size_t n) {
  sequential_writer file;
  bool ok = file.open(w.path(name));
  std::vector<T> row(columns.size());
  for (std::size_t r = 0; r < n && ok; ++r) {
    for (std::size_t c = 0; c < columns.size(); ++c) row[c] = columns[c][r];
    file.begin();
    file.put(row.data(), static_cast<std::int64_t>(row.size()));
    ok = file.end();
  }
  return w.done(name, file.close() && ok);
}

void put_class(sequential_writer& file, const class_effect& c, std::int32_t trait, std::int32_t number) {
  for (std::int32_t l = 1; l <= c.n_levels(); ++l) {
    const auto at = from1(l);
    const std::array<std::int32_t, 6> row{class_row, c.code[at], static_cast<std::int32_t>(c.n_records[at]),
                                          l,         trait,      number};
    file.begin();
    file.put(row.data(), 6);
    file.end();
  }
}

std::int32_t code_of_parent(const factor_levels& f, std::int32_t parent) {
  const std::int32_t level = parent < 0 ? -parent : parent;
  return level == 0 ? 0 : f.code[from1(level)];
}

void put_factor(sequential_writer& file, const factor_levels& f, std::int32_t k) {
  for (std::int32_t l = 1; l <= f.n_levels(); ++l) {
    const auto at = from1(l);
    std::array<std::int32_t, 13> row{factor_row_code, f.code[at], static_cast<std::int32_t>(f.n_records[at]),
                                     l, k};
    if (!f.sire_dam.empty()) {
      row[7] = code_of_parent(f, f.sire_dam[2 * at]);
      row[8] = code_of_parent(f, f.sire_dam[2 * at + 1]);
    }
    file.begin();
    file.put(row.data(), 13);
    file.end();
  }
}

bool write_codes(writing& w, const prepared_model& p) {
  sequential_writer file;
  const bool ok = file.open(w.path("CODE_TABLE"));
  for (std::size_t t = 0; t < p.fixed.size(); ++t)
    for (std::size_t j = 0; j < p.fixed[t].classes.size(); ++j)
      put_class(file, p.fixed[t].classes[j], static_cast<std::int32_t>(t) + 1,
                static_cast<std::int32_t>(j) + 1);
  for (std::size_t k = 0; k < p.factors.size(); ++k)
    put_factor(file, p.factors[k], static_cast<std::int32_t>(k) + 1);
  return w.done("CODE_TABLE", file.close() && ok);
}

bool write_relationship(writing& w, const std::string& name, const std::vector<matrix_element>& elements) {
  sequential_writer file;
  const bool ok = file.open(w.path(name));
  for (const matrix_element& e : elements) {
    file.begin();
    file.put(e.i);
    file.put(e.j);
    file.put(e.v);
    file.end();
  }
  return w.done(name, file.close() && ok);
}

bool write_pedigree(writing& w, const std::string& name, const std::vector<std::int32_t>& sire_dam) {
  sequential_writer file;
  const bool ok = file.open(w.path(name));
  const auto n = static_cast<std::int64_t>(sire_dam.size() / 2);
  for (std::int64_t first = 0; first < n; first += levels_per_record) {
    file.begin();
    file.put(sire_dam.data() + 2 * first, 2 * std::min(levels_per_record, n - first));
    file.end();
  }
  return w.done(name, file.close() && ok);
}

void write_factors(writing& w, const prepared_model& p) {
  for (std::size_t k = 0; k < p.factors.size(); ++k) {
    const factor_levels& f = p.factors[k];
    const std::string number = std::to_string(k + 1);
    if (const std::string prefix(row_of(f.structure).file_prefix); !prefix.empty())
      write_relationship(w, prefix + number, f.inverse);
    if (!f.sire_dam.empty()) write_pedigree(w, std::string(parents_prefix) + number, f.sire_dam);
  }
}

bool write_model(writing& w, const prepared_model& p) {
  std::string fault;
  const bool ok = write_modinf(p.model, w.path("MODINF"), fault);
  if (!ok && fault != "write") w.result.fault = "can't write " + w.target("MODINF") + ": " + fault;
  return w.done("MODINF", ok);
}

// Names that an earlier names.json lists as files of its directory.
std::vector<std::string> former_files(const fs::path& directory) {
  std::ifstream in(directory / "names.json");
  if (!in) return {};
  const nlohmann::json all = nlohmann::json::parse(in, nullptr, false);
  std::vector<std::string> out;
  if (!all.is_object() || !all.contains("files") || !all["files"].is_array()) return out;
  for (const auto& name : all["files"])
    if (name.is_string() && fs::path(name.get<std::string>()).filename() == name.get<std::string>())
      out.push_back(name.get<std::string>());
  return out;
}

// Those of `former` that are not written now. Room for the names of what is removed is taken here: once the
// new files have their names nothing may fail for want of memory.
std::vector<fs::path> leaving_files(writing& w, const std::vector<std::string>& former) {
  std::vector<fs::path> out;
  for (const std::string& name : former)
    if (std::ranges::find(w.result.files, name) == w.result.files.end()) out.push_back(w.directory / name);
  w.result.removed.reserve(out.size());
  return out;
}

void remove_files(writing& w, const std::vector<fs::path>& leaving, std::vector<std::string>& names) {
  std::error_code ignored;
  for (std::size_t i = 0; i < leaving.size(); ++i)
    if (fs::remove(leaving[i], ignored)) w.result.removed.push_back(std::move(names[i]));
}

} // namespace

directory_result write_work_directory(const model_description& d, const prepared_model& p,
                                      const fs::path& directory, const std::string& listing) {
  writing w{directory, {}};
  std::error_code fault, ignored;
  fs::create_directories(directory, fault);
  if (!fs::is_directory(directory, ignored)) {
    w.result.fault = "can't make the directory " + directory.string() +
                     (fs::exists(directory, ignored) ? ": there is a file of that name"
                      : fault                        ? ": " + fault.message()
                                                     : "");
    return w.result;
  }
  errno = 0;
  std::vector<std::string> former = former_files(directory);
  former.emplace_back(sampler_file); // whoever wrote it: it changes what the chain is
  write_model(w, p);
  write_columns(w, "RCDATA_I", p.rows.integers, p.records.n_used());
  write_columns(w, "RCDATA_R", p.rows.reals, p.records.n_used());
  write_codes(w, p);
  write_lines(w, directive_file, p.directives);
  if (!p.sampler.empty()) write_lines(w, sampler_file, p.sampler);
  write_factors(w, p);
  for (const side_file& f : factor_code_files(p)) write_text(w, f.name, f.text);
  const side_file classes = class_code_file(d, p);
  write_text(w, classes.name, classes.text);
  write_text(w, "prepare.txt", listing);

  std::vector<std::string> files = w.result.files;
  files.push_back("names.json");
  write_text(w, "names.json", names_json(d, p, files));
  const std::vector<fs::path> leaving = leaving_files(w, former);
  std::vector<std::string> names;
  for (const fs::path& path : leaving) names.push_back(path.filename().string());
  w.publish();
  if (w.result.fault.empty()) remove_files(w, leaving, names);
  w.result.ok = w.result.fault.empty();
  return std::move(w.result);
}

std::optional<std::array<std::int32_t, 6>> stamp_of_directory(const fs::path& directory) {
  sequential_reader file;
  std::int32_t version = 0; // four characters
  std::array<std::int32_t, 6> stamp{};
  constexpr std::int64_t length = sizeof version + sizeof stamp;
  if (!file.open((directory / "MODINF").string()) || file.next() != 0 || file.record_length() != length)
    return {};
  file.take(version);
  file.take(stamp.data(), 6);
  return stamp;
}

std::vector<std::string> disturbing_files(const fs::path& directory, bool exact, bool from_state) {
  std::vector<std::string> out;
  std::error_code ignored;
  const auto has = [&](const char* name) { return fs::exists(directory / name, ignored); };
  if (has("STOP")) out.emplace_back("STOP is present: the run would end after one round");
  const bool oldsol = has("oldsol"), r_parm = has("r_parm");
  if (oldsol && r_parm)
    out.emplace_back(
        exact ? "oldsol and r_parm are present: an exact run would end with code 16; move them away"
              : "oldsol and r_parm are present: the run would continue an old chain");
  if (oldsol != r_parm)
    out.push_back(std::string(oldsol ? "oldsol" : "r_parm") +
                  " is present without the other restart file: the run would stop");
  if (has("r_state") && !from_state)
    out.emplace_back("r_state is present: a run that saves its state would continue that chain");
  if ((has("mixz_prob") || has("mixz_last")) && !from_state)
    out.emplace_back("mixz_prob or mixz_last of an earlier run is present: a mixture would end with code 16; "
                     "move them away");
  if (has("ytopredict")) out.emplace_back("ytopredict is present: its records would be predicted");
  return out;
}

} // namespace zeph::prepare
