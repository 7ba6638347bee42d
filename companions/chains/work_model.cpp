#include "chains/work_model.h"

#include "input/equation_layout.h"
#include "input/model_information.h"
#include "input/structures.h"
#include "input/trait_kinds.h"
#include "listing/reporting.h"
#include "listing/stops.h"
#include "listing/work_files.h"

#include <algorithm>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

namespace zeph::chains {
namespace {

constexpr std::int64_t bytes_of_marsaglia_state = 812;
constexpr const char* sampler_name = "sampler";

std::string without_blanks(const std::string& text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool plain_name(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

// The name of MODINF that holds directives: the first whose text begins as they do, else the first of all.
std::string directive_name_of(const fs::path& work, const model_records& m) {
  std::vector<std::string> candidates;
  for (const std::string& text : m.mi_text)
    if (std::string name = without_blanks(text); !name.empty()) candidates.push_back(std::move(name));
  for (const std::string& name : candidates) {
    directive_text d;
    std::string ignored;
    if (plain_name(name) && take_apart(text_of(work / name), d, ignored)) return name;
  }
  return candidates.empty() ? "DUMMY" : candidates.front();
}

bool read_directives(const fs::path& work, const model_records& m, work_model& out, std::string& fault) {
  out.directive_name = directive_name_of(work, m);
  const fs::path path = work / out.directive_name;
  if (out.directive_name == "DUMMY") {
    fault = fmt::format("{} names no directive file", (work / "MODINF").string());
    return false;
  }
  if (!plain_name(out.directive_name)) {
    fault = fmt::format("the directive file \"{}\" is not in {} itself", out.directive_name, work.string());
    return false;
  }
  std::string text, what;
  if (!read_text(path, text)) {
    fault = fmt::format("can't read the directive file {}", path.string());
    return false;
  }
  if (take_apart(text, out.directives, what)) return true;
  fault = fmt::format("{}: {}", path.string(), what);
  return false;
}

// The records of gparlast in the order of the file.
void lay_out_state(const model_records& m, work_model& out) {
  std::int64_t nf = m.nt;
  for (const structure_record& r : m.RMAT_rows) nf = std::max<std::int64_t>(nf, r.n_rc);
  const std::int64_t nt = m.nt, G = m.n_groups_residual(), columns = m.nramat + G, nobs = m.nobs();
  const auto add = [&](std::string name, std::int64_t bytes) {
    out.state_names.push_back(std::move(name));
    out.state.push_back(bytes);
  };
  add("the round", 4);
  add("the seeds", 8);
  add("the current seeds", 8);
  add("the state of the random source", bytes_of_marsaglia_state);
  for (std::int32_t k = 1; k <= m.nramat; ++k) add("GIF", 8 * nf * nf);
  add("GDET", 8 * m.nramat);
  add("RCOV", 8 * nt * nt * G);
  add("RDET", 8 * ((std::int64_t{1} << nt) - 1));
  add("RCOVI", 8 * nt * nt * G);
  add("LVDET", 8 * columns);
  add("IDET_RVAR", 8 * columns);
  for (std::int32_t g = 1; g <= m.residual().n_hetgr; ++g) add("SCALE", 8 * nt);
  for (std::int32_t j = 1; j <= m.nt; ++j) {
    const trait_record& trait = m.MODEL(j);
    if (kind_of(trait).stored) add("Y_M", 4 * nobs);
    for (std::int32_t x = 1; x <= trait.n_reg; ++x)
      if (trait.REG_MIXTURE(x)) add("ZD_M", 8 * nobs);
  }
  if (G > 1) add("IRESG_M", 4 * nobs);
}

bool is_numbered(std::string_view name, std::string_view prefix) {
  if (!name.starts_with(prefix)) return false;
  const std::string_view number = name.substr(prefix.size());
  return !number.empty() && number.find_first_not_of("0123456789") == std::string_view::npos;
}

bool is_relationship(const std::string& name) {
  if (is_numbered(name, reduced_prefix) || is_numbered(name, parents_prefix)) return true;
  return std::ranges::any_of(structure_rows, [&](const structure_row& row) {
    return !row.file_prefix.empty() && is_numbered(name, row.file_prefix);
  });
}

std::vector<std::string> names_listed(const fs::path& work) {
  const nlohmann::json all = nlohmann::json::parse(text_of(work / "names.json"), nullptr, false);
  std::vector<std::string> out;
  if (!all.is_object() || !all.contains("files") || !all["files"].is_array()) return out;
  for (const auto& name : all["files"])
    if (name.is_string() && plain_name(name.get<std::string>())) out.push_back(name.get<std::string>());
  return out;
}

} // namespace

bool work_model::draws_thresholds() const {
  return std::ranges::any_of(types, [](std::int32_t type) { return kind_of(type).thresholds; });
}

bool work_model::forgets_values() const {
  return std::ranges::any_of(types, [](std::int32_t type) { return kind_of(type).forgotten(); });
}

bool read_work_model(const fs::path& work, work_model& out, std::string& fault) {
  out = {};
  std::ostringstream listing;
  reporting report(listing, work.string());
  for (const char* name : {"MODINF", "RCDATA_I", "RCDATA_R", "CODE_TABLE"})
    if (!file_exists(report, name)) {
      fault = fmt::format("{} is not a work directory: {} is missing", work.string(), name);
      return false;
    }
  model_records m;
  equation_layout layout;
  try {
    if (QVAMRD(m, report) != 0) throw run_stop{exit_diagnosed};
    count_equations(m, layout, report);
  } catch (const run_stop&) {
    fault = fmt::format("can't read the model in {}:\n{}", (work / "MODINF").string(), listing.str());
    return false;
  }
  out.neq = layout.neq;
  out.exact = sampler_asks_for(work, "exact");
  out.saves_state = sampler_asks_for(work, "state");
  for (std::int32_t j = 1; j <= m.nt; ++j) out.types.push_back(m.MODEL(j).TRAIT_TYPE);
  lay_out_state(m, out);
  return read_directives(work, m, out, fault);
}

bool sampler_asks_for(const fs::path& work, std::string_view word) {
  std::istringstream lines(text_of(work / sampler_name));
  for (std::string line; std::getline(lines, line);) {
    std::string first;
    std::istringstream(line) >> first;
    if (first.substr(0, first.find('#')) == word) return true;
  }
  return false;
}

std::vector<std::string> input_names(const fs::path& work, const work_model& m) {
  std::set<std::string> names = {"MODINF", "RCDATA_I", "RCDATA_R", "CODE_TABLE"};
  const std::vector<std::string> listed = names_listed(work);
  names.insert(listed.begin(), listed.end());
  for (const char* name : {"names.json", "ytopredict", "QVA_LOG", sampler_name}) names.insert(name);
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(work, ignored))
    if (is_relationship(entry.path().filename())) names.insert(entry.path().filename());
  for (const char* own : {"oldsol", "r_parm", "r_state", "statelast"}) names.erase(own);
  names.erase(m.directive_name);
  std::erase_if(names, [&](const std::string& name) { return !fs::is_regular_file(work / name, ignored); });
  return {names.begin(), names.end()};
}

bool print_inputs(const fs::path& work, const std::vector<std::string>& names,
                  std::vector<input_record>& inputs, std::string& fault) {
  inputs.clear();
  for (const std::string& name : names) {
    file_print print;
    if (!print_of_file(work / name, print)) {
      fault = fmt::format("can't read {}", (work / name).string());
      return false;
    }
    inputs.push_back({name, print.bytes, print.sha256});
  }
  return true;
}

std::vector<std::string> changed_inputs(const fs::path& work, const study& s, bool quick) {
  std::vector<std::string> lines;
  for (const input_record& i : s.inputs) {
    std::error_code fault;
    file_print print;
    const auto bytes = fs::file_size(work / i.file, fault);
    if (fault)
      lines.push_back(fmt::format("{} is gone", (work / i.file).string()));
    else if (!quick && !print_of_file(work / i.file, print))
      lines.push_back(fmt::format("can't read {}", (work / i.file).string()));
    else if (static_cast<std::int64_t>(bytes) != i.bytes || (!quick && print.sha256 != i.sha256))
      lines.push_back(fmt::format("{} has changed since the chains began", (work / i.file).string()));
  }
  return lines;
}

} // namespace zeph::chains
