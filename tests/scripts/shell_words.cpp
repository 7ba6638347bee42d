#include "scripts/shell_words.h"

#include <algorithm>
#include <array>
#include <vector>

namespace zeph_test {
namespace {

constexpr std::array<std::string_view, 13> keywords = {"if",    "then",  "else", "elif", "fi", "do",  "done",
                                                       "while", "until", "{",    "}",    "!",  "time"};

struct script_reader {
  std::string_view text;
  std::size_t at = 0;
  std::vector<std::string> here = {}; // ends of here-documents that begin at the next line
  int cases = 0;                      // nested case .. esac
  shell_words words = {};

  [[nodiscard]] char next(std::size_t ahead = 0) const {
    return at + ahead < text.size() ? text[at + ahead] : '\0';
  }
  [[nodiscard]] bool more() const { return at < text.size(); }

  void pass(char end) {
    while (more() && next() != end) ++at;
    ++at;
  }
  void pass_nested(char open, char close) {
    for (int depth = 1; more() && depth > 0; ++at) depth += next() == open ? 1 : next() == close ? -1 : 0;
  }
  // At '$': a command in parentheses, a braced name or a sum; else the sign alone.
  void expansion() {
    if (next(1) == '(' && next(2) == '(') {
      at += 3, pass_nested('(', ')'), ++at;
    } else if (next(1) == '(') {
      at += 2, commands(')');
    } else if (next(1) == '{') {
      at += 2, pass_nested('{', '}');
    } else {
      ++at;
    }
  }
  void double_quoted() {
    while (more() && next() != '"') {
      if (next() == '\\')
        at += 2;
      else if (next() == '$')
        expansion();
      else
        ++at;
    }
    ++at;
  }
  // At the end of a line: the texts of its here-documents.
  void here_documents() {
    for (const std::string& end : here)
      while (more()) {
        const std::size_t from = at;
        pass('\n');
        if (text.substr(from, at - from - 1) == end) break;
      }
    here.clear();
  }
  void redirection() {
    if (next(1) == '<' && next(2) == '<') { // a here-string
      at += 3;
    } else if (next() == '<' && next(1) == '<') {
      at += 2;
      if (next() == '-') ++at;
      while (next() == ' ' || next() == '\'') ++at;
      std::string end;
      for (; std::isalnum(static_cast<unsigned char>(next())) != 0; ++at) end += next();
      if (next() == '\'') ++at;
      here.push_back(end);
    } else {
      ++at;
      if (next() == '(') return ++at, commands(')'); // <(command)
      while (std::string_view("&> \t").find(next()) != std::string_view::npos && more()) ++at;
      word(); // the file
    }
  }
  // A word with its quoted parts; those and expansions are in it as '$'.
  std::string word() {
    std::string out;
    while (more() && std::string_view(" \t\n;|&()<>`").find(next()) == std::string_view::npos) {
      if (next() == '\'') {
        ++at, pass('\''), out += '$';
      } else if (next() == '"') {
        ++at, double_quoted(), out += '$';
      } else if (next() == '$') {
        expansion(), out += '$';
      } else {
        if (next() == '\\') ++at;
        out += next(), ++at;
      }
    }
    return out;
  }
  // The words of an array are named, not called.
  void array_words() {
    for (++at; more() && next() != ')';)
      if (std::isspace(static_cast<unsigned char>(next())) != 0)
        ++at;
      else
        words.named.insert(word());
    ++at;
  }
  // `case WORD in`: at its first pattern.
  void begin_case() {
    while (more() && word() != "in") ++at;
    ++cases;
    pass_pattern();
  }
  // Passes a pattern of `case` and its ')'; nothing at esac.
  void pass_pattern() {
    while (std::isspace(static_cast<unsigned char>(next())) != 0) ++at;
    if (text.substr(at, 4) != "esac") pass(')');
  }
  // Takes a word; true when the next one may begin a command.
  bool take(const std::string& word, bool first) {
    if (first && word == "case") return begin_case(), true;
    if (first && word == "esac") return --cases, true;
    const auto keyword = std::find(keywords.begin(), keywords.end(), word);
    if (first && keyword != keywords.end()) return true;
    if (first && word == "for") return false;
    if (next() == '(' && word.ends_with('=')) return array_words(), first;
    const std::size_t equals = word.find('=');
    if (first && equals != std::string::npos && equals > 0) return true;
    const bool number = word.find_first_not_of("0123456789") == std::string::npos;
    if (number && (next() == '<' || next() == '>')) return first; // 2> errors
    if (next() == '(' && next(1) == ')') {
      words.functions.insert(word);
      at += 2;
      return true;
    }
    if (word.find('$') == std::string::npos && !word.empty()) {
      words.named.insert(word);
      if (first) words.called.insert(word);
    }
    return false;
  }
  void commands(char end) {
    bool first = true;
    while (more() && next() != end) {
      const char c = next();
      if (c == '\\' && next(1) == '\n') {
        at += 2;
      } else if (c == ' ' || c == '\t') {
        ++at;
      } else if (c == '#') {
        while (more() && next() != '\n') ++at;
      } else if (c == '\n') {
        ++at, here_documents(), first = true;
      } else if (c == '&' && next(1) == '>') {
        ++at;
      } else if (c == '<' || c == '>') {
        redirection();
      } else if (c == '(' && next(1) == '(') {
        at += 2, pass_nested('(', ')'), first = true;
        if (next() == ')') ++at;
      } else if (c == ';' && next(1) == ';' && cases > 0) {
        at += 2, pass_pattern(), first = true;
      } else if (c == '(') {
        ++at, commands(')'), first = true;
      } else if (std::string_view(";|&`)").find(c) != std::string_view::npos) {
        ++at, first = true;
      } else {
        first = take(word(), first);
      }
    }
    ++at;
  }
};

} // namespace

shell_words words_of_script(std::string_view text) {
  script_reader reader{text};
  reader.commands('\0');
  return reader.words;
}

} // namespace zeph_test
