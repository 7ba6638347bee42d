#include "prepare/description/description_words.h"

#include <algorithm>

namespace zeph::prepare {

std::string word_of(relationship_kind kind) { return KINDS[static_cast<std::size_t>(kind)]; }

std::string word_of(trait_kind kind) {
  const auto found = std::find(TRAIT_KIND_CODES.begin(), TRAIT_KIND_CODES.end(), kind);
  return TRAIT_KINDS[static_cast<std::size_t>(found - TRAIT_KIND_CODES.begin())];
}

std::vector<std::string> words_of_analyses() {
  std::vector<std::string> words;
  for (const analysis_word& a : analysis_words) words.emplace_back(a.word);
  return words;
}

std::string word_of(analysis_type analysis) {
  for (const analysis_word& a : analysis_words)
    if (a.value == analysis) return std::string(a.word);
  return {};
}

} // namespace zeph::prepare
