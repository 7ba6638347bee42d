// Texts that people write where a value or a parent is not known.
#pragma once

#include <string_view>

namespace zeph::prepare {

// True for a text without letter or digit ("." "-" "*"), and for a word such as NA, NaN, none, null, missing,
// unknown, in upper or lower case and whatever signs it contains ("#N/A", "<NA>"). False for an empty text
// and for numbers.
bool is_word_for_nothing(std::string_view text);

// True for a text that is hardly the name of a class: one without letter or digit but for "+", and NA or NaN
// as above. Words such as none and unknown may well be classes.
bool is_sign_for_nothing(std::string_view text);

} // namespace zeph::prepare
