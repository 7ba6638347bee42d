// Where a byte of a text value is in the file of the description, so that a caret can point into a
// formula.
#pragma once

#include "prepare/description/description_records.h"

#include <cstddef>

namespace zeph::prepare {

// The place in the file of byte `offset` (0-based, of the decoded text) of a text value; offset = its length
// is the closing quote. Follows the four kinds of TOML strings: basic and literal, on one line or on several,
// with their escapes. The place of the value itself when it is not known (a default, or an offset beyond the
// text).
text_place place_in_text(const model_description& description, const text_value& value, std::size_t offset);

} // namespace zeph::prepare
