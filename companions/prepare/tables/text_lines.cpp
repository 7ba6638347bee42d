#include "prepare/tables/text_lines.h"

namespace zeph::prepare {

namespace {

bool is_blank(char c) { return c == ' ' || c == '\t'; }

} // namespace

std::string_view take_line(std::string_view& rest) {
  std::size_t end = rest.find_first_of("\r\n");
  if (end == std::string_view::npos)
    end = rest.size();
  else
    end += rest.substr(end, 2) == "\r\n" ? 2 : 1;
  const std::string_view line = rest.substr(0, end);
  rest.remove_prefix(end);
  return line;
}

std::string_view without_end(std::string_view line) {
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
  return line;
}

std::string_view trimmed(std::string_view s) {
  while (!s.empty() && is_blank(s.front())) s.remove_prefix(1);
  while (!s.empty() && is_blank(s.back())) s.remove_suffix(1);
  return s;
}

} // namespace zeph::prepare
