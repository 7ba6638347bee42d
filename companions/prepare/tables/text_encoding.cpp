#include "prepare/tables/text_encoding.h"

#include "prepare/messages/repeated_cells.h"
#include "prepare/tables/text_lines.h"

namespace zeph::prepare {

namespace {

unsigned byte_at(std::string_view text, std::size_t i) { return static_cast<unsigned char>(text[i]); }

bool is_continuation(unsigned byte) { return (byte & 0xC0U) == 0x80U; }

// Bytes of the character that begins at i; 0 when it is malformed.
std::size_t character_length(std::string_view text, std::size_t i) {
  const unsigned lead = byte_at(text, i);
  if (lead < 0x80U) return 1;
  const std::size_t n = lead >= 0xC2U && lead < 0xE0U ? 2 : lead >= 0xE0U && lead < 0xF0U ? 3 : 4;
  if (lead < 0xC2U || lead > 0xF4U || i + n > text.size()) return 0;
  for (std::size_t k = 1; k < n; ++k)
    if (!is_continuation(byte_at(text, i + k))) return 0;
  const unsigned second = byte_at(text, i + 1); // its range depends on the lead
  if ((lead == 0xE0U && second < 0xA0U) || (lead == 0xEDU && second > 0x9FU)) return 0;
  if ((lead == 0xF0U && second < 0x90U) || (lead == 0xF4U && second > 0x8FU)) return 0;
  return n;
}

void append_latin1(std::string& out, std::string_view line) {
  for (const char c : line) {
    const auto code = static_cast<unsigned char>(c);
    if (code < 0x80U) {
      out += c;
    } else {
      out += static_cast<char>(0xC0U | (code >> 6U));
      out += static_cast<char>(0x80U | (code & 0x3FU));
    }
  }
}

} // namespace

bool is_utf8(std::string_view text) {
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t n = character_length(text, i);
    if (n == 0) return false;
    i += n;
  }
  return true;
}

std::string utf8_content(std::string content, const std::string& file, message_log& log) {
  const bool is_text =
      std::string_view(content).substr(0, content.find('\n')).find('\0') == std::string_view::npos;
  if (!is_text || is_utf8(content)) return content;
  std::string out;
  out.reserve(content.size() + content.size() / 16);
  repeated_lines lines;
  std::string_view rest = content;
  for (std::int64_t number = 1; !rest.empty(); ++number) {
    const std::string_view line = take_line(rest);
    if (is_utf8(line)) {
      out += line;
    } else {
      append_latin1(out, line);
      add_line(lines, number);
    }
  }
  add_warning(log, {file, static_cast<int>(lines.first.front()), 0},
              "not UTF-8; read as Latin-1" + where_in_words(lines, "in all"));
  return out;
}

} // namespace zeph::prepare
