#include "prepare/description/derived_checks.h"

#include "prepare/description/description_words.h"
#include "prepare/description/text_places.h"
#include "shared/indexing.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <string>
#include <string_view>
#include <vector>

namespace zeph::prepare {

namespace {

// The functions of formulas, and how many values they take.
struct formula_function {
  std::string_view name;
  int least, most;
};
constexpr int any_number = 1 << 30;
constexpr std::array<formula_function, 6> functions{{{"sqrt", 1, 1},
                                                     {"exp", 1, 1},
                                                     {"log", 1, 2},
                                                     {"abs", 1, 1},
                                                     {"min", 1, any_number},
                                                     {"max", 1, any_number}}};
constexpr std::size_t deepest = 40; // brackets within brackets; the report's language reads no more than 49
constexpr std::string_view blanks = " \t\r\n";
// kinds whose brackets the report itself fills
constexpr std::array<const char*, 16> reported{"VP",
                                               "h2",
                                               "m2",
                                               "p2",
                                               "d2",
                                               "c2",
                                               "pe2",
                                               "repeatability",
                                               "rg",
                                               "share",
                                               "r",
                                               "re",
                                               "rp",
                                               "G.unit",
                                               "threshold.unit",
                                               "h2.observed"};

// One formula under check: its value, and where a fault is reported.
struct formula_text {
  const model_description& d;
  message_log& log;
  const derived_value& value;

  message& fault(std::size_t offset, const std::string& text) const {
    return error_at(d, log, place_in_text(d, value.text, offset),
                    fmt::format("[derive] {}: {}", value.name, text));
  }
};

bool letter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
bool digit(char c) { return c >= '0' && c <= '9'; }
bool word_sign(char c) { return letter(c) || digit(c) || c == '.'; }

// "genetic, bwt.animal ,wwt": the parts without blanks around them.
std::vector<std::string> parts_of(std::string_view inside) {
  std::vector<std::string> out(1);
  for (const char c : inside)
    if (c == ',')
      out.emplace_back();
    else if (blanks.find(c) == std::string_view::npos)
      out.back() += c;
  return out;
}

std::vector<std::string> trait_names(const model_description& d) {
  std::vector<std::string> out;
  for (const trait_section& t : d.traits) out.push_back(t.name);
  return out;
}

bool known_trait(const formula_text& f, const std::string& name, std::size_t at) {
  const std::vector<std::string> known = trait_names(f.d);
  if (std::ranges::find(known, name) != known.end()) return true;
  f.fault(at, fmt::format("there is no trait \"{}\"", name)).hint = nearest_hint(name, known);
  return false;
}

// A row by its name, or by a trait that has one row of the factor.
void check_row(const formula_text& f, const factor_section& factor, const std::string& word, std::size_t at) {
  std::vector<std::string> names;
  std::ptrdiff_t of_trait = 0;
  for (const factor_row& row : factor.rows) {
    names.push_back(row.name);
    of_trait += f.d.traits[from0(row.trait)].name == word ? 1 : 0;
  }
  if (of_trait == 1 || std::ranges::find(names, word) != names.end()) return;
  const std::string rows = joined(names);
  if (of_trait > 1)
    f.fault(at, fmt::format("factor {} has {} rows of {}: {}", factor.name, of_trait, word, rows));
  else
    f.fault(at, fmt::format("factor {} has no row \"{}\"; its rows are: {}", factor.name, word, rows)).hint =
        nearest_hint(word, names);
}

void check_factor_element(const formula_text& f, const std::vector<std::string>& parts, std::size_t at) {
  if (parts.size() != 3) {
    f.fault(at, "G holds a factor and two rows: G[factor,row,row]");
    return;
  }
  std::vector<std::string> names;
  for (const factor_section& factor : f.d.factors) names.push_back(factor.name);
  const auto found = std::ranges::find(names, parts[0]);
  if (found == names.end()) {
    f.fault(at, fmt::format("factor \"{}\" is not defined", parts[0])).hint = nearest_hint(parts[0], names);
    return;
  }
  const factor_section& factor = f.d.factors[from0(found - names.begin())];
  check_row(f, factor, parts[1], at);
  if (parts[2] != parts[1]) check_row(f, factor, parts[2], at);
}

void check_residual_element(const formula_text& f, const std::vector<std::string>& parts, std::size_t at) {
  const bool groups = !f.d.residual.groups.value.empty();
  if (parts.size() != (groups ? 3U : 2U)) {
    f.fault(at, groups ? "R holds a group's code and two traits: R[group,trait,trait]"
                       : "R holds two traits: R[trait,trait]");
    return;
  }
  const bool first = known_trait(f, parts[parts.size() - 2], at);
  if (first && parts[parts.size() - 1] != parts[parts.size() - 2]) known_trait(f, parts.back(), at);
}

void check_threshold(const formula_text& f, const std::vector<std::string>& parts, std::size_t at) {
  if (parts.size() != 2 || parts[1].empty() || !std::ranges::all_of(parts[1], digit)) {
    f.fault(at, "threshold holds a trait and a number: threshold[trait,1]");
    return;
  }
  if (!known_trait(f, parts[0], at)) return;
  for (const trait_section& t : f.d.traits) {
    if (t.name != parts[0]) continue;
    const std::size_t n = t.categories.size(); // 0: those of the data
    const std::size_t number = parts[1].size() < 4 ? std::stoul(parts[1]) : 1000;
    if (t.kind.value != trait_kind::ordered)
      f.fault(at,
              fmt::format("{} is {}: only ordered traits have thresholds", t.name, word_of(t.kind.value)));
    else if (number == 0 || (n > 0 && number >= n) || parts[1].front() == '0')
      f.fault(at, fmt::format("{} has no threshold {}: they are numbered 1, 2, .., one below the number of "
                              "its categories",
                              t.name, parts[1]));
  }
}

// What a model's report can name in brackets: traits, factors, their rows and numbers.
bool is_part(const model_description& d, const std::string& word) {
  if (!word.empty() && std::ranges::all_of(word, digit)) return true;
  for (const trait_section& t : d.traits)
    if (t.name == word) return true;
  for (const factor_section& factor : d.factors) {
    if (factor.name == word) return true;
    for (const factor_row& row : factor.rows)
      if (row.name == word) return true;
  }
  return false;
}

// Which of them the report derives depends on the data too; a part that no name of the model has is in none.
void check_reported(const formula_text& f, const std::string& kind, const std::vector<std::string>& parts,
                    std::size_t at) {
  const bool groups = !f.d.residual.groups.value.empty();
  for (std::size_t i = groups && parts.size() > 1 ? 1 : 0; i < parts.size(); ++i)
    if (!is_part(f.d, parts[i])) {
      f.fault(at, fmt::format("{} holds \"{}\", which is not a trait, factor or row", kind, parts[i])).hint =
          nearest_hint(parts[i], trait_names(f.d));
      return;
    }
}

void check_share(const formula_text& f, const std::vector<std::string>& parts, std::size_t at) {
  if (parts.size() != 1) {
    f.fault(at, "pi holds an indicator: pi[trait]");
    return;
  }
  if (!known_trait(f, parts[0], at)) return;
  for (const trait_section& t : f.d.traits)
    if (t.name == parts[0] && t.kind.value != trait_kind::indicator)
      f.fault(at, fmt::format("{} is {}: only indicators have a proportion", t.name, word_of(t.kind.value)));
}

void check_name(const formula_text& f, const std::string& kind, std::string_view inside, std::size_t at) {
  const std::vector<std::string> parts = parts_of(inside);
  if (kind == "G")
    check_factor_element(f, parts, at);
  else if (kind == "R")
    check_residual_element(f, parts, at);
  else if (kind == "threshold")
    check_threshold(f, parts, at);
  else if (kind == "pi")
    check_share(f, parts, at);
  else if (std::ranges::find(reported, kind) == reported.end())
    f.fault(at,
            fmt::format("there is no {}[..]; known: G R threshold pi {}", kind, fmt::join(reported, " ")));
  else
    check_reported(f, kind, parts, at);
}

// A word without brackets: a derived value further up.
void check_word(const formula_text& f, const std::string& word, std::size_t at) {
  std::vector<std::string> known;
  for (const derived_value& v : f.d.derive) {
    if (&v == &f.value) break;
    known.push_back(v.name);
  }
  bool function = false;
  for (const formula_function& g : functions) {
    function = function || g.name == word;
    known.emplace_back(g.name);
  }
  const auto derived = known.end() - static_cast<std::ptrdiff_t>(functions.size());
  if (function)
    f.fault(at, fmt::format("{} is a function and needs brackets: {}(..)", word, word));
  else if (std::find(known.begin(), derived, word) == derived)
    f.fault(at, fmt::format("there is no \"{}\"", word)).hint = nearest_hint(word, known);
}

// ---- the grammar
//
//   formula = { sign } operand { operator { sign } operand }        sign + -, operator + - * / ^
//   operand = number | word | word "[" .. "]" | "(" formula ")" | function "(" formula { "," formula } ")"
//
// The report reads by the same one (companions/report/R/formula_draws.R), and
// tests/data/derived_formulas.txt holds what both take and refuse.

struct open_bracket {
  std::size_t at = 0;
  const formula_function* function = nullptr; // none: plain brackets
  int n_values = 1;
};

// The state between two signs of a formula.
struct formula_reading {
  const formula_text& f;
  const std::string& text;
  std::size_t i = 0;
  bool wants_operand = true;
  std::vector<open_bracket> open;

  bool fault(std::size_t at, const std::string& what) const {
    f.fault(at, what);
    return false;
  }
};

std::size_t after_digits(const std::string& text, std::size_t i) {
  while (i < text.size() && digit(text[i])) ++i;
  return i;
}

// A number at i, with its exponent; gives the place after it, or i when there is none.
std::size_t after_number(const std::string& text, std::size_t i) {
  std::size_t end = after_digits(text, i);
  std::size_t n_digits = end - i;
  if (end < text.size() && text[end] == '.') {
    const std::size_t last = after_digits(text, end + 1);
    n_digits += last - end - 1;
    end = last;
  }
  if (n_digits == 0) return i;
  if (end == text.size() || (text[end] != 'e' && text[end] != 'E')) return end;
  std::size_t k = end + 1;
  if (k < text.size() && (text[k] == '+' || text[k] == '-')) ++k;
  return after_digits(text, k) > k ? after_digits(text, k) : end;
}

bool open_new_bracket(formula_reading& s, std::size_t at, const formula_function* function) {
  if (s.open.size() == deepest) return s.fault(at, fmt::format("more than {} brackets are nested", deepest));
  s.open.push_back({at, function, 1});
  s.i = at + 1;
  return true;
}

// A function, a name with its brackets, or a word.
bool read_word(formula_reading& s) {
  const std::size_t begin = s.i;
  std::size_t end = begin;
  while (end < s.text.size() && word_sign(s.text[end])) ++end;
  const std::string word = s.text.substr(begin, end - begin);
  if (end < s.text.size() && s.text[end] == '[') {
    const std::size_t close = s.text.find(']', end);
    if (close == std::string::npos) return s.fault(end, "this bracket is not closed");
    check_name(s.f, word, std::string_view(s.text).substr(end + 1, close - end - 1), begin);
    s.i = close + 1;
    s.wants_operand = false;
    return true;
  }
  const std::size_t next = s.text.find_first_not_of(blanks, end);
  const auto function = std::ranges::find(functions, std::string_view(word), &formula_function::name);
  if (function != functions.end() && next != std::string::npos && s.text[next] == '(')
    return open_new_bracket(s, next, &*function);
  check_word(s.f, word, begin);
  s.i = end;
  s.wants_operand = false;
  return true;
}

bool read_operand(formula_reading& s) {
  const char c = s.text[s.i];
  if (c == '+' || c == '-') {
    ++s.i;
    return true;
  }
  if (c == '(') return open_new_bracket(s, s.i, nullptr);
  if (letter(c)) return read_word(s);
  const std::size_t end = after_number(s.text, s.i);
  if (end > s.i) {
    s.i = end;
    s.wants_operand = false;
    return true;
  }
  if (c == ')' && s.open.empty()) return s.fault(s.i, "this bracket was not opened");
  if (std::string_view("*/^,)").find(c) != std::string_view::npos)
    return s.fault(s.i, fmt::format("expected a number, a name or a bracket before \"{}\"", c));
  return s.fault(s.i, fmt::format("\"{}\" can't appear in a formula", c));
}

bool close_bracket(formula_reading& s) {
  if (s.open.empty()) return s.fault(s.i, "this bracket was not opened");
  const open_bracket b = s.open.back();
  if (b.function != nullptr && (b.n_values < b.function->least || b.n_values > b.function->most))
    return s.fault(b.at, fmt::format("{} takes {}, not {} values", b.function->name,
                                     b.function->most == 1 ? "one value" : "one value or two", b.n_values));
  s.open.pop_back();
  ++s.i;
  return true;
}

// After an operand.
bool read_operator(formula_reading& s) {
  const char c = s.text[s.i];
  if (c == ')') return close_bracket(s);
  if (c == ',') {
    if (s.open.empty() || s.open.back().function == nullptr)
      return s.fault(s.i, "\",\" separates values of a function only");
    ++s.open.back().n_values;
  } else if (std::string_view("+-*/^").find(c) == std::string_view::npos) {
    return s.fault(s.i, letter(c) || digit(c) || c == '.' || c == '('
                            ? fmt::format("expected + - * / or ^ before \"{}\"", c)
                            : fmt::format("\"{}\" can't appear in a formula", c));
  }
  ++s.i;
  s.wants_operand = true;
  return true;
}

void check_formula(const formula_text& f) {
  formula_reading s{f, f.value.text.value, 0, true, {}};
  if (s.text.find_first_not_of(blanks) == std::string::npos) {
    f.fault(0, "the formula is empty");
    return;
  }
  while ((s.i = std::min(s.text.find_first_not_of(blanks, s.i), s.text.size())) < s.text.size())
    if (!(s.wants_operand ? read_operand(s) : read_operator(s))) return;
  if (!s.open.empty())
    f.fault(s.open.back().at, "this bracket is not closed");
  else if (s.wants_operand)
    f.fault(s.text.size() - 1, "expected a number, a name or a bracket at the end");
}

} // namespace

void check_derived(const model_description& d, message_log& log) {
  for (const derived_value& v : d.derive)
    if (v.text.given) check_formula({d, log, v});
}

} // namespace zeph::prepare
