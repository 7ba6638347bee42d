#include "prepare/description/description_records.h"

namespace zeph::prepare {

std::filesystem::path path_of(const model_description& description, const std::string& file) {
  return std::filesystem::path(description.path).parent_path() / file; // an absolute file stays as it is
}

const covariable_section* find_covariable(const model_description& description, std::string_view name) {
  for (const covariable_section& c : description.covariables)
    if (c.name == name) return &c;
  return nullptr;
}

} // namespace zeph::prepare
