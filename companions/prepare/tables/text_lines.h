// Lines and words of a text in memory.
#pragma once

#include <string_view>

namespace zeph::prepare {

// The next line of `rest` with its end (LF, CRLF or CR), taken off from `rest`.
std::string_view take_line(std::string_view& rest);

std::string_view without_end(std::string_view line);

// Without blanks and tabs at both ends.
std::string_view trimmed(std::string_view text);

} // namespace zeph::prepare
