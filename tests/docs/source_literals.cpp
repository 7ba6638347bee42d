#include "docs/source_literals.h"

#include <cctype>

namespace zeph_test {
namespace {

bool is_letter(char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; }
bool is_blank(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

char escaped(char c) {
  if (c == 'n') return '\n';
  return c == 't' ? '\t' : c;
}

// Walks over a source and separates its literals from the rest.
struct scanner {
  std::string_view source;
  std::size_t at = 0;
  int line = 1;

  bool more() const { return at < source.size(); }
  bool here(std::string_view text) const { return source.substr(at, text.size()) == text; }
  char take() {
    if (source[at] == '\n') ++line;
    return source[at++];
  }
  void to_line_end() {
    while (more() && source[at] != '\n') ++at;
  }
  // The text from the opening quote on, which is `quote`.
  std::string quoted(char quote) {
    std::string text;
    take();
    while (more() && source[at] != quote) {
      char c = take();
      if (c == '\\' && more()) c = escaped(take());
      text += c;
    }
    if (more()) take();
    return text;
  }
  void raw_text() {
    const std::size_t open = source.find('(', at);
    const std::string close = ")" + std::string(source.substr(at + 2, open - at - 2)) + "\"";
    const std::size_t end = source.find(close, open);
    while (more() && at < end + close.size()) take();
  }
};

} // namespace

std::vector<text_literal> cpp_literals(std::string_view source) {
  std::vector<text_literal> found;
  std::string statement; // since the last ; { or }
  bool adjacent = false; // only blanks since the last literal
  for (scanner s{source}; s.more();) {
    const char c = s.source[s.at];
    const bool in_word = s.at > 0 && (is_letter(source[s.at - 1]) || std::isdigit(source[s.at - 1]) != 0);
    if (s.here("//") || s.here("#include")) {
      s.to_line_end();
    } else if (s.here("R\"") && !in_word) {
      s.raw_text();
      adjacent = false;
    } else if (c == '\'' && !in_word) {
      s.quoted('\'');
      adjacent = false;
    } else if (c == '"') {
      const int line = s.line;
      std::string text = s.quoted('"');
      if (adjacent)
        found.back().text += text;
      else
        found.push_back({line, std::move(text), statement});
      adjacent = true;
    } else {
      s.take();
      adjacent = adjacent && is_blank(c);
      if (c == ';' || c == '{' || c == '}')
        statement.clear();
      else
        statement += c;
    }
  }
  return found;
}

std::vector<text_literal> r_literals(std::string_view source, const std::vector<std::string>& calls) {
  std::vector<text_literal> found;
  std::string before;     // of the statement, without literals
  std::vector<bool> told; // per open bracket: within one of the calls
  for (scanner s{source}; s.more();) {
    const char c = s.source[s.at];
    if (c == '#') {
      s.to_line_end();
      continue;
    }
    if (c == '"' || c == '\'') {
      const int line = s.line;
      std::string text = s.quoted(c);
      if (calls.empty() || (!told.empty() && told.back())) found.push_back({line, std::move(text), before});
      continue;
    }
    before += s.take();
    if (c == '(') {
      bool named = !told.empty() && told.back();
      for (const std::string& call : calls) named = named || before.ends_with(call);
      told.push_back(named);
    } else if (c == ')' && !told.empty()) {
      told.pop_back();
    } else if (c == '\n' && told.empty()) {
      before.clear();
    }
  }
  return found;
}

std::vector<std::string> fixed_pieces(std::string_view text) {
  std::vector<std::string> pieces(1);
  const auto value_end = [&](std::size_t at) { // after {}, {:.3g} or a row of dots; `at` when there is none
    std::size_t end = at;
    if (text[at] == '.') {
      while (end < text.size() && text[end] == '.') ++end;
      return end - at >= 3 ? end : at;
    }
    if (text[at] != '{') return at;
    end = text.find_first_not_of(":.0123456789abcdefgx<>", at + 1);
    return end != std::string_view::npos && text[end] == '}' ? end + 1 : at;
  };
  for (std::size_t at = 0; at < text.size();) {
    if (text.substr(at, 2) == "{{" || text.substr(at, 2) == "}}") {
      pieces.back() += text[at];
      at += 2;
    } else if (const std::size_t end = value_end(at); end > at) {
      pieces.emplace_back();
      at = end;
    } else if (text[at] == '\n') {
      pieces.emplace_back();
      ++at;
    } else {
      pieces.back() += text[at++];
    }
  }
  constexpr std::string_view ends = " .\t";
  std::vector<std::string> trimmed;
  for (const std::string& piece : pieces) {
    const std::size_t first = piece.find_first_not_of(ends), last = piece.find_last_not_of(ends);
    if (first != std::string::npos) trimmed.push_back(piece.substr(first, last - first + 1));
  }
  return trimmed;
}

bool is_prose(std::string_view piece) {
  int letters = 0, words = 0;
  bool blank_since_word = true;
  for (const char c : piece) {
    if (is_letter(c)) {
      if (++letters == 2 && blank_since_word) {
        ++words;
        blank_since_word = false;
      }
      continue;
    }
    letters = 0;
    blank_since_word = blank_since_word || c == ' ';
  }
  return words >= 2;
}

} // namespace zeph_test
