#include "prepare/description/description_words.h"

#include <algorithm>

namespace zeph::prepare {

std::string word_of(relationship_kind kind) { return KINDS[static_cast<std::size_t>(kind)]; }

std::string word_of(trait_kind kind) {
  const auto found = std::find(TRAIT_KIND_CODES.begin(), TRAIT_KIND_CODES.end(), kind);
  return TRAIT_KINDS[static_cast<std::size_t>(found - TRAIT_KIND_CODES.begin())];
}

std::string word_of(analysis_type analysis) {
  const auto found = std::find(ANALYSIS_CODES.begin(), ANALYSIS_CODES.end(), analysis);
  return ANALYSES[static_cast<std::size_t>(found - ANALYSIS_CODES.begin())];
}

} // namespace zeph::prepare
