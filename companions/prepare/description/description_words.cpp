#include "prepare/description/description_words.h"

#include <algorithm>

namespace zeph::prepare {

std::string word_of(relationship_kind kind) { return kinds[static_cast<std::size_t>(kind)]; }

std::string word_of(trait_kind kind) {
  const auto found = std::find(trait_kind_codes.begin(), trait_kind_codes.end(), kind);
  return trait_kinds[static_cast<std::size_t>(found - trait_kind_codes.begin())];
}

std::string word_of(analysis_type analysis) {
  const auto found = std::find(analysis_codes.begin(), analysis_codes.end(), analysis);
  return analyses[static_cast<std::size_t>(found - analysis_codes.begin())];
}

} // namespace zeph::prepare
