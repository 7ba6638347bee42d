#include "prepare/derived_checks.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <fmt/format.h>
#include <string>
#include <string_view>
#include <vector>

namespace zeph::prepare {

namespace {

constexpr std::array<const char*, 6> FUNCTIONS{"sqrt", "exp", "log", "abs", "min", "max"};
// kinds whose brackets the report itself fills
constexpr std::array<const char*, 16> REPORTED{"VP",
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

// One formula under check: its value, and where a fault is told.
struct formula_text {
  const model_description& d;
  message_log& log;
  const derived_value& value;

  message& fault(std::size_t offset, const std::string& text) const {
    return error_at(d, log, place_in_text(d, value.text, offset),
                    fmt::format("[derive] {}: {}", value.name, text));
  }
};

bool letter(char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0 || c == '_'; }
bool digit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }
bool word_sign(char c) { return letter(c) || digit(c) || c == '.'; }

// "genetic, bwt.animal ,wwt": the parts without blanks around them.
std::vector<std::string> parts_of(std::string_view inside) {
  std::vector<std::string> out(1);
  for (const char c : inside)
    if (c == ',')
      out.emplace_back();
    else if (c != ' ' && c != '\t')
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
    of_trait += f.d.traits[static_cast<std::size_t>(row.trait)].name == word ? 1 : 0;
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
  const factor_section& factor = f.d.factors[static_cast<std::size_t>(found - names.begin())];
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
  for (const trait_section& t : f.d.traits)
    if (t.name == parts[0] && t.kind.value != trait_kind::ordered)
      f.fault(at,
              fmt::format("{} is {}: only ordered traits have thresholds", t.name, word_of(t.kind.value)));
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
    known_trait(f, parts[0], at);
  else if (std::ranges::find(REPORTED, kind) == REPORTED.end())
    f.fault(at,
            fmt::format("there is no {}[..]; known: G R threshold pi {}", kind, fmt::join(REPORTED, " ")));
}

// A word without brackets: a function, or a derived value further up.
void check_word(const formula_text& f, const std::string& word, std::size_t at) {
  if (std::ranges::find(FUNCTIONS, word) != FUNCTIONS.end()) return;
  std::vector<std::string> before;
  for (const derived_value& v : f.d.derive) {
    if (&v == &f.value) break;
    before.push_back(v.name);
  }
  if (std::ranges::find(before, word) != before.end()) return;
  before.insert(before.end(), FUNCTIONS.begin(), FUNCTIONS.end());
  f.fault(at, fmt::format("there is no \"{}\"", word)).hint = nearest_hint(word, before);
}

// A word at i, with its brackets; gives the place behind it.
std::size_t check_operand(const formula_text& f, const std::string& text, std::size_t i) {
  std::size_t end = i;
  while (end < text.size() && word_sign(text[end])) ++end;
  const std::string word = text.substr(i, end - i);
  if (end == text.size() || text[end] != '[') {
    check_word(f, word, i);
    return end;
  }
  const std::size_t close = text.find(']', end);
  if (close == std::string::npos) {
    f.fault(end, "this bracket is not closed");
    return text.size();
  }
  check_name(f, word, std::string_view(text).substr(end + 1, close - end - 1), i);
  return close + 1;
}

// A number at i, with its exponent; gives the place behind it.
std::size_t behind_number(const std::string& text, std::size_t i) {
  while (i < text.size() && (digit(text[i]) || text[i] == '.')) ++i;
  if (i == text.size() || (text[i] != 'e' && text[i] != 'E')) return i;
  std::size_t k = i + 1;
  if (k < text.size() && (text[k] == '+' || text[k] == '-')) ++k;
  if (k == text.size() || !digit(text[k])) return i;
  while (k < text.size() && digit(text[k])) ++k;
  return k;
}

void check_formula(const formula_text& f) {
  const std::string& text = f.value.text.value;
  std::vector<std::size_t> open;
  if (text.find_first_not_of(" \t") == std::string::npos) f.fault(0, "the formula is empty");
  for (std::size_t i = 0; i < text.size();) {
    const char c = text[i];
    if (letter(c)) {
      i = check_operand(f, text, i);
      continue;
    }
    if (digit(c) || c == '.') {
      i = behind_number(text, i);
      continue;
    }
    if (c == '(') open.push_back(i);
    if (c == ')') {
      if (open.empty()) f.fault(i, "this bracket was not opened");
      if (!open.empty()) open.pop_back();
    } else if (c != '(' && std::string_view("+-*/^, \t").find(c) == std::string_view::npos) {
      f.fault(i, fmt::format("\"{}\" can't stand in a formula", c));
    }
    ++i;
  }
  for (const std::size_t at : open) f.fault(at, "this bracket is not closed");
}

} // namespace

void check_derived(const model_description& d, message_log& log) {
  for (const derived_value& v : d.derive)
    if (v.text.given) check_formula({d, log, v});
}

} // namespace zeph::prepare
