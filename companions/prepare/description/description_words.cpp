#include "prepare/description/description_words.h"

namespace zeph::prepare {

std::string word_of(relationship_kind kind) { return kinds[static_cast<std::size_t>(kind)]; }

std::vector<std::string> words_of_kinds() {
  std::vector<std::string> words;
  for (const trait_kind_row& row : kind_rows) words.emplace_back(row.word);
  return words;
}

std::string word_of(trait_kind kind) { return std::string(kind_of(kind).word); }

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
