#include "prepare/tables/missing_words.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string>

namespace zeph::prepare {

namespace {

constexpr std::array<std::string_view, 18> words_for_nothing = {
    "na",          "nan",        "none",          "null",          "nil",           "missing",
    "unk",         "unkn",       "unknown",       "notknown",      "notavailable",  "undefined",
    "unknownsire", "unknowndam", "unknownfather", "unknownmother", "unknownparent", "nodata"};

// Letters in lower case and digits; a byte beyond ASCII belongs to a letter.
std::string letters_of(std::string_view text) {
  std::string out;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) != 0 || byte >= 0x80) out += static_cast<char>(std::tolower(byte));
  }
  return out;
}

} // namespace

bool is_word_for_nothing(std::string_view text) {
  if (text.empty()) return false;
  const std::string letters = letters_of(text);
  return letters.empty() || std::ranges::find(words_for_nothing, letters) != words_for_nothing.end();
}

bool is_sign_for_nothing(std::string_view text) {
  if (text.empty() || text == "+") return false;
  std::array<char, 3> letters{};
  std::size_t n = 0;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) == 0 && byte < 0x80) continue;
    if (n == letters.size()) return false;
    letters[n++] = static_cast<char>(std::tolower(byte));
  }
  const std::string_view word(letters.data(), n);
  return word.empty() || word == "na" || word == "nan";
}

} // namespace zeph::prepare
