// Text files in UTF-8, and those that are not.
#pragma once

#include "prepare/messages/messages.h"

#include <string>
#include <string_view>

namespace zeph::prepare {

// True for well-formed UTF-8 (RFC 3629: no overlong forms, no surrogates, up to U+10FFFF).
bool is_utf8(std::string_view text);

// The content with every line that is not UTF-8 read as Latin-1 (ISO 8859-1: byte = code point). One warning
// for the file, with the first of these lines. A file with a zero byte in its first line (UTF-16, a
// spreadsheet) comes back as it is.
std::string utf8_content(std::string content, const std::string& file, message_log& log);

} // namespace zeph::prepare
