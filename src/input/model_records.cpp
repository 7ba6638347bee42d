#include "input/model_records.h"

namespace zeph {

bool structure_is(const structure_record& r, std::string_view name) {
  std::string_view text = r.CV_STRUCT;
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return text == name;
}

bool model_records::has_type(std::int32_t type) const {
  for (const trait_record& trait : MODEL_rows)
    if (trait.TRAIT_TYPE == type) return true;
  return false;
}

bool model_records::has_weights() const {
  for (const trait_record& trait : MODEL_rows)
    if (trait.WGT_FLAG != 0) return true;
  return false;
}

} // namespace zeph
