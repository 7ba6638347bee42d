// From a model description to solutions with names: zeph-prepare makes the
// work directory, the program solves in it, and the files that zeph-prepare
// leaves beside (names.json, codes_*.csv) say which equation is what.
//
// Names: class|trait|effect|level, regression|trait|name|level (the level is
// empty for a plain regression), factor|name|row|level.
#pragma once

#include "runs/csv_table.h"
#include "runs/whole_run.h"

#include "prepare/description/model_description.h"
#include "prepare/model/model_assembly.h"
#include "prepare/output/work_directory.h"

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace zeph_test {

using named_values = std::map<std::string, double>;

struct prepared_run {
  std::string messages; // of zeph-prepare
  bool prepared = false;
  whole_run run;
  named_values solution;
};

// The levels of a class of a trait in order, from codes_fixed.csv. A nested
// regression prefers the class without equations (equation 0) of its size.
inline std::vector<std::string> class_levels(const csv_table& codes, const std::string& trait,
                                             const std::string& effect, bool with_equations) {
  std::vector<std::string> levels;
  for (std::size_t i = 0; i < codes.size(); ++i)
    if (codes.cell(i, "trait") == trait && codes.cell(i, "effect") == effect &&
        (codes.cell(i, "equation") != "0") == with_equations)
      levels.push_back(codes.cell(i, "identification"));
  return levels;
}

inline std::vector<std::string> levels_of_regression(const csv_table& codes, const std::string& trait,
                                                     const std::string& name, std::size_t n) {
  const std::string nesting = name.substr(0, name.rfind(':') == std::string::npos ? 0 : name.rfind(':'));
  if (nesting.empty()) return {""};
  std::vector<std::string> levels = class_levels(codes, trait, nesting, false);
  if (levels.size() != n) levels = class_levels(codes, trait, nesting, true);
  return levels;
}

inline void name_factor(const std::string& directory, const nlohmann::json& factor, std::size_t first,
                        const std::vector<double>& solution, named_values& out) {
  const std::string name = factor["name"];
  const csv_table codes = csv_of_file(directory + "codes_" + name + ".csv");
  std::size_t e = first - 1;
  for (std::size_t l = 0; l < codes.size(); ++l)
    for (const auto& row : factor["rows"])
      out["factor|" + name + "|" + row["name"].get<std::string>() + "|" + codes.cell(l, "identification")] =
          solution.at(e++);
}

inline named_values names_of(const std::string& directory, const std::vector<double>& solution) {
  const nlohmann::json names = nlohmann::json::parse(bytes_of(directory + "names.json"));
  const csv_table codes = csv_of_file(directory + "codes_fixed.csv");
  named_values out;
  std::size_t k = 0;
  for (const auto& range : names["equations_of"]) {
    const std::string part = range["part"], trait = range["trait"], name = range["name"];
    const std::size_t first = range["first"], n = range["equations"];
    if (part == "factor") {
      name_factor(directory, names["factors"][k++], first, solution, out);
      continue;
    }
    const std::vector<std::string> levels = part == "class" ? class_levels(codes, trait, name, true)
                                                            : levels_of_regression(codes, trait, name, n);
    if (levels.size() != n) throw std::runtime_error("levels of " + name + " do not fit its equations");
    for (std::size_t l = 0; l < n; ++l)
      out[part + "|" + trait + "|" + name + "|" + levels[l]] = solution.at(first - 1 + l);
  }
  if (out.size() != solution.size()) throw std::runtime_error("equations without a name");
  return out;
}

// Prepares `toml` (file names are meant from `directory`) in its folder work,
// runs there, and names the solutions.
inline prepared_run prepare_and_solve(const scratch_directory& directory, const std::string& toml) {
  using namespace zeph::prepare;
  prepared_run out;
  directory.write("model.toml", toml);
  message_log log;
  const model_description d = read_description(directory / "model.toml", log);
  const std::string work = directory / "work/";
  if (exit_code(log) == 0) {
    const prepared_model p = assemble_model(d, {}, log);
    out.prepared = exit_code(log) == 0 && write_work_directory(d, p, work, full_text(log)).ok;
  }
  out.messages = full_text(log);
  if (!out.prepared) return out;
  out.run = run_in(work);
  if (out.run.exit_code == 0) out.solution = names_of(work, out.run.solution);
  return out;
}

} // namespace zeph_test
