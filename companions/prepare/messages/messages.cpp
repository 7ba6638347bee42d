#include "prepare/messages/messages.h"

#include "shared/indexing.h"

#include <algorithm>
#include <cctype>
#include <fmt/format.h>
#include <limits>
#include <map>
#include <tuple>
#include <utility>

namespace zeph::prepare {

namespace {

message& add(message_log& log, severity level, source_place at, std::string text, std::string kind) {
  message m;
  m.level = level;
  m.at = std::move(at);
  m.text = std::move(text);
  m.kind = std::move(kind);
  log.entries.push_back(std::move(m));
  return log.entries.back();
}

std::string_view level_word(severity level) {
  if (level == severity::error) return "error";
  return level == severity::warning ? "warning" : "note";
}

std::string place_text(const source_place& at) {
  std::string text = at.file;
  if (at.line > 0) text += fmt::format("{}{}", text.empty() ? "" : ":", at.line);
  if (at.line > 0 && at.column > 0) text += fmt::format(":{}", at.column);
  if (!text.empty()) text += ": ";
  return text;
}

// The source line and under it the caret with the hint. Control characters are shown as blanks, so that
// the caret stays under its column.
std::string source_block(const message& m) {
  std::string shown = m.source_line;
  for (char& c : shown)
    if (static_cast<unsigned char>(c) < ' ') c = ' ';
  std::string text = fmt::format("   {}\n", shown);
  if (m.at.column > 0) {
    text += std::string(from0(m.at.column) + 2, ' ') + '^';
    if (!m.hint.empty()) text += ' ' + m.hint;
    text += '\n';
  } else if (!m.hint.empty()) {
    text += fmt::format("   {}\n", m.hint);
  }
  return text;
}

bool is_control(char c) { return static_cast<unsigned char>(c) < 0x20U || c == '\x7F'; }

std::string escaped(char c) { return fmt::format("\\x{:02X}", static_cast<unsigned char>(c)); }

char lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

// d(i,j) = distance of the first i letters of a and the first j of b; three rows of d are kept.
std::size_t edit_distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> before(b.size() + 1), last(b.size() + 1), now(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) last[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    now[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const bool same = lower(a[i - 1]) == lower(b[j - 1]);
      now[j] = std::min({last[j] + 1, now[j - 1] + 1, last[j - 1] + (same ? 0 : 1)});
      const bool swapped =
          i > 1 && j > 1 && lower(a[i - 1]) == lower(b[j - 2]) && lower(a[i - 2]) == lower(b[j - 1]);
      if (swapped) now[j] = std::min(now[j], before[j - 2] + 1);
    }
    std::swap(before, last);
    std::swap(last, now);
  }
  return last[b.size()];
}

} // namespace

message& add_error(message_log& log, source_place at, std::string text, std::string kind) {
  return add(log, severity::error, std::move(at), std::move(text), std::move(kind));
}

message& add_warning(message_log& log, source_place at, std::string text, std::string kind) {
  return add(log, severity::warning, std::move(at), std::move(text), std::move(kind));
}

message& add_note(message_log& log, source_place at, std::string text, std::string kind) {
  return add(log, severity::note, std::move(at), std::move(text), std::move(kind));
}

int count_of(const message_log& log, severity level) {
  return static_cast<int>(std::count_if(log.entries.begin(), log.entries.end(),
                                        [level](const message& m) { return m.level == level; }));
}

int exit_code(const message_log& log) { return count_of(log, severity::error) > 0 ? 1 : 0; }

void sort_by_place(message_log& log, std::size_t first) {
  const auto key = [](const message& m) {
    return std::pair{m.at.line > 0 ? m.at.line : std::numeric_limits<int>::max(), m.at.column};
  };
  first = std::min(first, log.entries.size());
  std::stable_sort(log.entries.begin() + static_cast<std::ptrdiff_t>(first), log.entries.end(),
                   [&key](const message& a, const message& b) { return key(a) < key(b); });
}

std::string message_text(const message& m) {
  std::string text = fmt::format("{}{}: ", place_text(m.at), level_word(m.level));
  for (const char c : m.text) {
    if (c == '\n')
      text += "\n    ";
    else
      text += is_control(c) ? escaped(c) : std::string(1, c);
  }
  text += '\n';
  if (!m.source_line.empty()) return text + source_block(m);
  if (!m.hint.empty()) text += fmt::format("    {}\n", m.hint);
  return text;
}

std::string screen_text(const message_log& log, std::string_view listing) {
  using kind_key = std::pair<severity, std::string>;
  std::map<kind_key, int> total, shown;
  for (const message& m : log.entries)
    if (!m.kind.empty()) ++total[{m.level, m.kind}];
  std::string text;
  for (const message& m : log.entries) {
    if (m.kind.empty()) {
      text += message_text(m);
      continue;
    }
    const kind_key key{m.level, m.kind};
    const int number = ++shown[key];
    if (number > examples_shown) continue;
    text += message_text(m);
    if (number == examples_shown && total[key] > number)
      text += fmt::format("    and {} more of this kind ({} lists them)\n", total[key] - number, listing);
  }
  return text;
}

std::string full_text(const message_log& log) {
  std::string text;
  for (const message& m : log.entries) text += message_text(m);
  return text;
}

std::optional<std::string> nearest_word(std::string_view word, std::span<const std::string> known) {
  constexpr std::size_t longest = 200; // longer words are no slips of the pen
  std::optional<std::string> nearest;
  std::size_t best = std::numeric_limits<std::size_t>::max();
  if (word.size() > longest) return nearest;
  for (const std::string& candidate : known) {
    if (candidate.size() > longest) continue;
    const std::size_t distance = edit_distance(word, candidate);
    const std::size_t allowed = std::max<std::size_t>(1, std::max(word.size(), candidate.size()) / 3);
    if (distance <= allowed && distance < best && distance < std::max(word.size(), candidate.size())) {
      best = distance;
      nearest = candidate;
    }
  }
  return nearest;
}

std::string nearest_hint(std::string_view word, std::span<const std::string> known) {
  const std::optional<std::string> nearest = nearest_word(word, known);
  return nearest ? fmt::format("did you mean \"{}\"?", *nearest) : std::string{};
}

std::string joined(std::span<const std::string> words, std::size_t at_most) {
  std::string text;
  for (std::size_t i = 0; i < std::min(words.size(), at_most); ++i) text += (i > 0 ? ", " : "") + words[i];
  if (words.size() > at_most) text += fmt::format(", ... ({} in all)", words.size());
  return text;
}

std::string shown(std::string_view text, std::size_t at_most) {
  std::string out;
  std::size_t n = 0;
  for (const char c : text) {
    const bool begins_character = (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
    if (begins_character && ++n > at_most) return out + "..";
    out += is_control(c) ? escaped(c) : std::string(1, c);
  }
  return out;
}

int characters(std::string_view text) {
  int n = 0;
  for (const char c : text)
    if ((static_cast<unsigned char>(c) & 0xC0U) != 0x80U) ++n; // a continuation byte begins no character
  return n;
}

} // namespace zeph::prepare
