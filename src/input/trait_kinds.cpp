#include "input/trait_kinds.h"

#include <algorithm>

namespace zeph {
namespace {

constexpr std::int32_t first_moved = trait_liability; // of the numbers without a row

constexpr trait_kind_row without_row(bool scaled) {
  return {0, "", residual_variance::undefined, value_pass::undefined, scaled, false, false, false, false};
}
constexpr trait_kind_row unmoved = without_row(false), moved = without_row(true);

} // namespace

const trait_kind_row& kind_of(std::int32_t number) {
  for (const trait_kind_row& row : kind_rows)
    if (row.number == number) return row;
  return number >= first_moved ? moved : unmoved;
}

std::string legal_kinds() {
  std::string text;
  for (const trait_kind_row& row : kind_rows) {
    if (!text.empty()) text += row.number == kind_rows.back().number ? " or " : ", ";
    text += std::to_string(row.number);
  }
  return text;
}

bool has_pass(const model_records& m, value_pass pass) {
  return std::ranges::any_of(m.MODEL_rows,
                             [pass](const trait_record& trait) { return kind_of(trait).pass == pass; });
}

bool has_proportion(const model_records& m) {
  return std::ranges::any_of(m.MODEL_rows,
                             [](const trait_record& trait) { return kind_of(trait).proportion; });
}

} // namespace zeph
