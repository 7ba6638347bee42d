#include "prepare/description/text_places.h"

#include "prepare/messages/messages.h"
#include "shared/indexing.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <string_view>

namespace zeph::prepare {

namespace {

// A position in the lines of the file: 0-based line, byte within it.
struct cursor {
  std::size_t line = 0;
  std::size_t byte = 0;
};

// The byte of the 1-based column; the size of the line when the column is beyond.
std::size_t byte_of(std::string_view line, int column) {
  std::size_t byte = 0;
  while (byte < line.size() && characters(line.substr(0, byte + 1)) < column) ++byte;
  return byte;
}

// Bytes in UTF-8 of the code point whose hexadecimal digits are given.
std::size_t utf8_length(std::string_view digits) {
  std::uint32_t code = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), code, 16);
  if (code < 0x80) return 1;
  if (code < 0x800) return 2;
  return code < 0x10000 ? 3 : 4;
}

// Steps over one escape; returns the number of bytes that it represents.
std::size_t pass_escape(std::string_view line, cursor& at) {
  const char kind = at.byte + 1 < line.size() ? line[at.byte + 1] : ' ';
  const std::size_t digits = kind == 'u' ? 4 : kind == 'U' ? 8 : 0;
  const std::size_t length =
      digits == 0 ? 1 : utf8_length(line.substr(std::min(at.byte + 2, line.size()), digits));
  at.byte += 2 + digits;
  return length;
}

bool only_blanks_after(std::string_view line, std::size_t byte) {
  return line.find_first_not_of(" \t", byte) == std::string_view::npos;
}

// A backslash at the end of a line: the text continues at the next character that is no blank.
void pass_line_join(const std::vector<std::string>& lines, cursor& at) {
  ++at.line;
  while (at.line < lines.size() && only_blanks_after(lines[at.line], 0)) ++at.line;
  at.byte = at.line < lines.size() ? lines[at.line].find_first_not_of(" \t") : 0;
}

} // namespace

text_place place_in_text(const model_description& d, const text_value& value, std::size_t offset) {
  if (!value.given || value.at.line < 1 || value.at.line > static_cast<int>(d.lines.size())) return value.at;
  cursor at{from0(value.at.line) - 1, 0};
  at.byte = byte_of(d.lines[at.line], value.at.column);
  const std::string_view opening = std::string_view(d.lines[at.line]).substr(at.byte);
  const bool basic = opening.starts_with('"');
  if (!basic && !opening.starts_with('\'')) return value.at;
  const bool several = opening.starts_with("\"\"\"") || opening.starts_with("'''");
  at.byte += several ? 3 : 1;
  if (several && at.byte >= d.lines[at.line].size())
    at = {at.line + 1, 0}; // a line end right after the quotes

  for (std::size_t decoded = 0; at.line < d.lines.size();) {
    const std::string_view line = d.lines[at.line];
    const bool escape = basic && at.byte < line.size() && line[at.byte] == '\\';
    if (escape && several && only_blanks_after(line, at.byte + 1)) {
      pass_line_join(d.lines, at);
      continue;
    }
    if (decoded >= offset)
      return {static_cast<int>(at.line) + 1, characters(line.substr(0, std::min(at.byte, line.size()))) + 1};
    if (at.byte >= line.size()) {
      if (!several) return value.at;
      at = {at.line + 1, 0};
      ++decoded;
    } else if (escape) {
      decoded += pass_escape(line, at);
    } else {
      ++at.byte;
      ++decoded;
    }
  }
  return value.at;
}

} // namespace zeph::prepare
