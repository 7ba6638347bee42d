// Texts that people write where a value or a parent is not known.
#pragma once

#include <string_view>

namespace zeph::prepare {

// True for a text without letter or digit ("." "-" "*"), and for a word such as NA, NaN, none, null, missing,
// unknown, in upper or lower case and whatever signs stand in it ("#N/A", "<NA>"). False for an empty text
// and for numbers.
bool is_word_for_nothing(std::string_view text);

} // namespace zeph::prepare
