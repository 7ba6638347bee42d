#include "prepare/messages/repeated_cells.h"

#include <fmt/format.h>

namespace zeph::prepare {

void add_line(repeated_lines& lines, std::int64_t line) {
  if (++lines.n <= static_cast<std::int64_t>(first_lines)) lines.first.push_back(line);
}

std::string where_in_words(const repeated_lines& lines, std::string_view what) {
  if (lines.n < 2) return {};
  std::string out = fmt::format(" ({} {}, lines {}", lines.n, what, fmt::join(lines.first, ", "));
  return out + (lines.n > static_cast<std::int64_t>(lines.first.size()) ? ", ..)" : ")");
}

void add_cell(repeated_cells& found, std::string_view text, std::int64_t line) {
  auto at = found.number.find(std::string(text));
  if (at == found.number.end()) {
    if (found.cells.size() == repeated_cells::most_texts) {
      ++found.n_beyond;
      return;
    }
    at = found.number.emplace(std::string(text), found.cells.size()).first;
    found.cells.push_back({std::string(text), {}});
  }
  add_line(found.cells[at->second].lines, line);
}

} // namespace zeph::prepare
