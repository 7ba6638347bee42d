#include "prepare/description/formula.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <tao/pegtl.hpp>
#include <utility>

namespace zeph::prepare {

namespace {

namespace pegtl = tao::pegtl;

// What the rules fill while the text is read. `effects` and `columns` collect the parts of the term at hand.
struct reading {
  formula out;
  std::vector<formula_fault> faults;
  atom part;
  effect now;
  std::vector<effect> effects;
  std::vector<named_part> parts;   // of the columns at hand
  std::vector<named_column> names; // after the first bar
  std::size_t ones = 0, zeros = 0; // within the formula outside brackets
  std::size_t left_ones = 0, left_zeros = 0;
  bool middle = false;
};

namespace rules {

struct letter : pegtl::sor<pegtl::alpha, pegtl::one<'_', '.'>, pegtl::range<'\x80', '\xff'>> {};
struct name_sign : pegtl::sor<letter, pegtl::digit> {};
struct blank : pegtl::star<pegtl::one<' ', '\t', '\r', '\n'>> {};
struct plain_name : pegtl::seq<letter, pegtl::star<name_sign>> {};
struct quoted_text : pegtl::plus<pegtl::not_one<'`', '\n', '\r'>> {};
struct closing_quote : pegtl::one<'`'> {};
struct quoted_name : pegtl::seq<pegtl::one<'`'>, quoted_text, closing_quote> {};

// atoms
struct column_name : pegtl::sor<plain_name, quoted_name> {};
struct opening : pegtl::one<'('> {};
struct closing : pegtl::one<')'> {};
struct comma : pegtl::one<','> {};
struct curve_word : pegtl::sor<TAO_PEGTL_STRING("leg"), TAO_PEGTL_STRING("poly")> {};
struct curve_name : pegtl::sor<plain_name, quoted_name> {};
struct curve_order : pegtl::seq<pegtl::plus<pegtl::digit>, pegtl::not_at<pegtl::one<'.'>>> {};
struct curve_head : pegtl::seq<curve_word, pegtl::at<blank, opening>> {};
struct curve : pegtl::seq<curve_head, blank, opening, blank, curve_name, blank, comma, blank, curve_order,
                          blank, closing> {};
struct single_atom : pegtl::sor<curve, column_name> {};
struct next_atom : pegtl::seq<single_atom> {};
struct colon : pegtl::seq<blank, pegtl::one<':'>, blank> {};
struct whole_effect : pegtl::seq<single_atom, pegtl::star<colon, next_atom>> {};

// terms
struct plus_sign : pegtl::seq<blank, pegtl::one<'+'>, blank> {};
struct left_one : pegtl::seq<pegtl::one<'1'>, pegtl::not_at<name_sign>> {};
struct left_zero : pegtl::seq<pegtl::one<'0'>, pegtl::not_at<name_sign>> {};
struct left_item : pegtl::sor<left_one, left_zero, whole_effect> {};
struct bar : pegtl::one<'|'> {};
struct first_bar : pegtl::seq<bar> {};
struct bar_name : pegtl::sor<plain_name, quoted_name> {};
struct next_part : pegtl::seq<bar_name> {};
struct level_columns : pegtl::seq<bar_name, pegtl::star<colon, next_part>> {};
struct middle_name : pegtl::seq<level_columns> {};
struct second_bar : pegtl::seq<bar> {};
struct group_column : pegtl::seq<level_columns> {};
struct group_columns : pegtl::list<group_column, plus_sign> {};
struct random_end : pegtl::one<')'> {};
struct random_head : pegtl::one<'('> {};
struct random : pegtl::seq<random_head, blank, pegtl::list<left_item, plus_sign>, blank, first_bar, blank,
                           middle_name, blank, pegtl::opt<second_bar, blank, group_columns>,
                           pegtl::star<plus_sign, group_column>, blank, random_end> {};
struct shift_head : pegtl::seq<TAO_PEGTL_STRING("shift"), pegtl::at<blank, opening>> {};
struct shift_trait : pegtl::sor<plain_name, quoted_name> {};
struct shift_end : pegtl::one<')'> {};
struct shift : pegtl::seq<shift_head, blank, opening, blank, shift_trait, blank, shift_end> {};
struct mean_one : pegtl::seq<pegtl::one<'1'>, pegtl::not_at<name_sign>> {};
struct mean_zero : pegtl::seq<pegtl::one<'0'>, pegtl::not_at<name_sign>> {};
struct fixed_effect : pegtl::seq<whole_effect> {};
struct term : pegtl::sor<shift, random, mean_one, mean_zero, fixed_effect> {};
struct whole_end : pegtl::eof {};
struct whole : pegtl::seq<blank, pegtl::list<term, plus_sign>, blank, whole_end> {};

} // namespace rules

// The expectation that a rule states when it fails where nothing else is possible; none: the rule may fail.
template <typename Rule> constexpr const char* expectation = nullptr;
template <> constexpr const char* expectation<rules::quoted_text> = "expected a name between back quotes";
template <> constexpr const char* expectation<rules::closing_quote> = "expected the closing back quote";
template <> constexpr const char* expectation<rules::curve_name> = "expected the name of a covariable";
template <> constexpr const char* expectation<rules::comma> = "expected ',' and the order";
template <>
constexpr const char* expectation<rules::curve_order> = "expected the order, a whole number from 1 to 12";
template <> constexpr const char* expectation<rules::closing> = "expected ')' after the order";
template <>
constexpr const char* expectation<rules::next_atom> = "expected a column, leg(..) or poly(..) after ':'";
template <> constexpr const char* expectation<rules::left_item> = "expected 1, 0 or an effect before the '|'";
template <> constexpr const char* expectation<rules::first_bar> = "expected '|' and the name of a factor";
template <> constexpr const char* expectation<rules::middle_name> = "expected the name of a factor or column";
template <> constexpr const char* expectation<rules::group_column> = "expected the name of a column";
template <> constexpr const char* expectation<rules::next_part> = "expected the name of a column after ':'";
template <> constexpr const char* expectation<rules::random_end> = "expected ')'";
template <> constexpr const char* expectation<rules::shift_trait> = "expected the name of a trait";
template <> constexpr const char* expectation<rules::shift_end> = "expected ')'";
template <>
constexpr const char* expectation<rules::term> =
    "expected a term: 1, 0, an effect or ( .. | factor | column)";
template <> constexpr const char* expectation<rules::whole_end> = "expected '+' or the end of the formula";

struct expectations {
  template <typename Rule> static constexpr const char* message = expectation<Rule>;
};
template <typename Rule> using control = pegtl::must_if<expectations, pegtl::normal, false>::control<Rule>;

template <typename Input> stretch stretch_of(const Input& in) {
  const std::size_t begin = in.position().byte;
  return {begin, begin + in.size()};
}

// A name without its back quotes, and its stretch.
template <typename Input> std::pair<std::string, stretch> name_of(const Input& in) {
  std::string text = in.string();
  stretch at = stretch_of(in);
  if (text.size() >= 2 && text.front() == '`') {
    text = text.substr(1, text.size() - 2);
    ++at.begin;
    --at.end;
  }
  return {text, at};
}

std::vector<std::string> sorted_atoms(const effect& e) {
  std::vector<std::string> words;
  for (const atom& a : e.atoms) words.push_back(atom_text(a));
  std::sort(words.begin(), words.end());
  return words;
}

void check_order(const atom& a, std::size_t at, std::vector<formula_fault>& faults) {
  if (a.order >= 1 && a.order <= largest_order) return;
  faults.push_back({at,
                    fmt::format("the order of {} must be from 1 to {}",
                                a.kind == atom_kind::leg ? "leg" : "poly", largest_order),
                    ""});
}

void check_effects(const std::vector<effect>& effects, std::vector<formula_fault>& faults) {
  std::vector<std::vector<std::string>> seen;
  for (const effect& e : effects) {
    std::vector<std::string> words = sorted_atoms(e);
    if (std::adjacent_find(words.begin(), words.end()) != words.end())
      faults.push_back({e.at.begin, fmt::format("effect {} contains one column twice", effect_text(e)), ""});
    if (std::find(seen.begin(), seen.end(), words) != seen.end())
      faults.push_back({e.at.begin, fmt::format("effect {} appears twice", effect_text(e)), ""});
    seen.push_back(std::move(words));
  }
}

void check_constants(std::size_t ones, std::size_t zeros, std::size_t at,
                     std::vector<formula_fault>& faults) {
  if (ones > 0 && zeros > 0) faults.push_back({at, "1 and 0 contradict each other", "leave one of them out"});
  if (ones > 1) faults.push_back({at, "1 appears twice", ""});
}

void check_parts(const named_column& c, std::vector<formula_fault>& faults) {
  for (std::size_t i = 0; i < c.parts.size(); ++i)
    for (std::size_t j = 0; j < i; ++j)
      if (c.parts[i].name == c.parts[j].name)
        faults.push_back({c.parts[i].at.begin,
                          fmt::format("combination {} holds column {} twice", c.name, c.parts[i].name), ""});
}

void check_random(const random_term& r, std::vector<formula_fault>& faults) {
  if (!r.constant && r.left.empty())
    faults.push_back({r.at.begin, "a random term with 0 alone has no effect", ""});
  check_effects(r.left, faults);
  if (!r.factor_stated && r.columns.size() > 1)
    faults.push_back({r.factor_at.begin, "a term with several columns needs the name of a factor",
                      "write ( .. | factor | column + column)"});
  for (const named_column& c : r.columns) check_parts(c, faults);
  for (std::size_t i = 0; i < r.columns.size(); ++i)
    for (std::size_t j = 0; j < i; ++j)
      if (r.columns[i].name == r.columns[j].name)
        faults.push_back(
            {r.columns[i].at.begin, fmt::format("column {} appears twice", r.columns[i].name), ""});
}

template <typename Rule> struct action : pegtl::nothing<Rule> {};

template <> struct action<rules::curve_word> {
  template <typename Input> static void apply(const Input& in, reading& s) {
    s.part.kind = in.size() == 3 ? atom_kind::leg : atom_kind::poly;
  }
};
template <> struct action<rules::curve_name> {
  template <typename Input> static void apply(const Input& in, reading& s) {
    std::tie(s.part.name, s.part.name_at) = name_of(in);
  }
};
template <> struct action<rules::curve_order> {
  template <typename Input> static void apply(const Input& in, reading& s) {
    const auto result = std::from_chars(in.begin(), in.end(), s.part.order);
    if (result.ec != std::errc{}) s.part.order = largest_order + 1;
    check_order(s.part, in.position().byte, s.faults);
  }
};
template <> struct action<rules::column_name> {
  template <typename Input> static void apply(const Input& in, reading& s) {
    s.part = {};
    std::tie(s.part.name, s.part.name_at) = name_of(in);
  }
};
template <> struct action<rules::single_atom> {
  template <typename Input> static void apply(const Input& in, reading& s) {
    s.part.at = stretch_of(in);
    s.now.atoms.push_back(std::exchange(s.part, {}));
  }
};
template <> struct action<rules::whole_effect> {
  template <typename Input> static void apply(const Input& in, reading& s) {
    s.now.at = stretch_of(in);
    s.effects.push_back(std::exchange(s.now, {}));
  }
};
template <> struct action<rules::fixed_effect> {
  template <typename Input> static void apply(const Input&, reading& s) {
    s.out.fixed.push_back(std::move(s.effects.back()));
    s.effects.clear();
  }
};
template <> struct action<rules::left_one> {
  static void apply0(reading& s) { ++s.left_ones; }
};
template <> struct action<rules::left_zero> {
  static void apply0(reading& s) { ++s.left_zeros; }
};
template <> struct action<rules::mean_one> {
  static void apply0(reading& s) { ++s.ones; }
};
template <> struct action<rules::mean_zero> {
  static void apply0(reading& s) { ++s.zeros; }
};
template <> struct action<rules::bar_name> {
  template <typename Input> static void apply(const Input& in, reading& s) {
    const auto [name, at] = name_of(in);
    s.parts.push_back({name, at});
  }
};
template <> struct action<rules::level_columns> {
  template <typename Input> static void apply(const Input& in, reading& s) {
    named_column c;
    c.parts = std::exchange(s.parts, {});
    c.at = c.parts.size() == 1 ? c.parts.front().at : stretch_of(in);
    for (const named_part& part : c.parts) c.name += (c.name.empty() ? "" : ":") + part.name;
    s.names.push_back(std::move(c));
  }
};
template <> struct action<rules::second_bar> {
  static void apply0(reading& s) { s.middle = true; }
};
template <> struct action<rules::random> {
  template <typename Input> static void apply(const Input& in, reading& s) {
    random_term r;
    r.at = stretch_of(in);
    r.constant = s.left_zeros == 0;
    r.left = std::exchange(s.effects, {});
    r.columns = std::exchange(s.names, {});
    r.factor = r.columns.front().name;
    r.factor_at = r.columns.front().at;
    r.factor_stated = std::exchange(s.middle, false);
    if (r.factor_stated) r.columns.erase(r.columns.begin());
    check_constants(std::exchange(s.left_ones, 0), std::exchange(s.left_zeros, 0), r.at.begin, s.faults);
    check_random(r, s.faults);
    s.out.random.push_back(std::move(r));
  }
};
template <> struct action<rules::shift_trait> {
  template <typename Input> static void apply(const Input& in, reading& s) {
    const auto [name, at] = name_of(in);
    s.out.shifts.push_back({name, at, at});
  }
};
template <> struct action<rules::shift> {
  template <typename Input> static void apply(const Input& in, reading& s) {
    s.out.shifts.back().at = stretch_of(in);
  }
};

bool name_byte(char c) {
  const auto u = static_cast<unsigned char>(c);
  return (u >= '0' && u <= '9') || (u >= 'A' && u <= 'Z') || (u >= 'a' && u <= 'z') || u == '_' || u == '.' ||
         u >= 0x80;
}

// The word that ends at byte `end`, blanks passed over; may be empty.
std::string_view word_before(std::string_view text, std::size_t end) {
  while (end > 0 && (text[end - 1] == ' ' || text[end - 1] == '\t')) --end;
  std::size_t begin = end;
  while (begin > 0 && name_byte(text[begin - 1])) --begin;
  return text.substr(begin, end - begin);
}

// Functions of other formula languages: log(x), I(x^2), factor(x).
std::string hint_for_function(std::string_view word) {
  if (word == "factor" || word == "as.factor")
    return "a column is a class unless it has a table [covariable.NAME]: write its name alone";
  if (word == "I") return "make a column of I(..) in the CSV; powers are poly(NAME, order)";
  return fmt::format("make a column of {}(..) in the CSV", word);
}

// What a user of other formula languages most likely meant with the sign at which the reading ended.
// `after_bar`: a column was wanted after '|'; `inside`: the reading ended within a random term.
std::string hint_for_sign(char sign, bool after_bar, bool inside) {
  switch (sign) {
  case '*':
    return "for a * b write a + b + a:b";
  case '/':
    return inside ? "for (1 | a / b) write (1 | a) + (1 | a:b)" : "for a / b write a + a:b";
  case '^':
    return "make a column of the power in the CSV, or write poly(NAME, order)";
  case '~':
    return "leave out the left side: the table [trait.NAME] names it";
  case '-':
    return inside ? "\"0 +\" leaves the 1 out" : "\"0 +\" leaves the mean out";
  case '(':
    return "brackets are allowed only around random terms and after leg, poly and shift";
  case '|':
    if (inside) return {};
    return after_bar ? "'||' holds covariances at zero: give each effect a factor of its own, (1 | a | g) + "
                       "(0 + x | b | g)"
                     : "put random terms in brackets: (1 | factor | column)";
  default:
    return {};
  }
}

// The way out of a fault of the grammar; empty where the expectation says enough.
std::string hint_for(std::string_view text, std::size_t at, std::string_view expected) {
  if (at >= text.size()) return {};
  const bool between = expected == expectation<rules::whole_end> || expected == expectation<rules::term>;
  const bool left = expected == expectation<rules::first_bar> || expected == expectation<rules::left_item>;
  const bool right = expected == expectation<rules::random_end>;
  const bool after_bar = expected == expectation<rules::middle_name> ||
                         (expected == expectation<rules::group_column> && text[at] == '|');
  const bool name = between || expected.find("name") != std::string_view::npos ||
                    expected.find("column") != std::string_view::npos;
  if (name && text[at] >= '0' && text[at] <= '9') return "put a name that begins with a digit in back quotes";
  if (!between && !left && !right && !after_bar) return {};
  const std::string_view word = word_before(text, at);
  if (text[at] == '(' && !word.empty() && !after_bar) return hint_for_function(word);
  return hint_for_sign(text[at], after_bar, left || right);
}

} // namespace

bool parse_formula(std::string_view text, formula& out, std::vector<formula_fault>& faults) {
  reading s;
  const std::size_t before = faults.size();
  pegtl::memory_input<> in(text.data(), text.data() + text.size(), "formula");
  try {
    pegtl::parse<rules::whole, action, control>(in, s);
    check_constants(s.ones, s.zeros, 0, s.faults);
    check_effects(s.out.fixed, s.faults);
  } catch (const pegtl::parse_error& e) {
    const std::size_t at = e.positions().front().byte;
    const std::string_view expected = e.message();
    s.faults.push_back({at, std::string(expected), hint_for(text, at, expected)});
  }
  s.out.mean = s.zeros == 0;
  std::stable_sort(s.faults.begin(), s.faults.end(),
                   [](const formula_fault& a, const formula_fault& b) { return a.at < b.at; });
  faults.insert(faults.end(), s.faults.begin(), s.faults.end());
  out = std::move(s.out);
  return faults.size() == before;
}

std::string atom_text(const atom& a) {
  if (a.kind == atom_kind::column) return a.name;
  return fmt::format("{}({},{})", a.kind == atom_kind::leg ? "leg" : "poly", a.name, a.order);
}

std::string effect_text(const effect& e) {
  std::string text;
  for (const atom& a : e.atoms) text += (text.empty() ? "" : ":") + atom_text(a);
  return text;
}

std::string shift_text(const shift_term& s) { return fmt::format("shift({})", s.trait); }

} // namespace zeph::prepare
