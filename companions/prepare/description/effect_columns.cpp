#include "prepare/description/effect_columns.h"
#include "shared/indexing.h"

namespace zeph::prepare {

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
  return e.covariable < 0 ? nullptr : &e.atoms[from0(e.covariable)];
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

} // namespace zeph::prepare
