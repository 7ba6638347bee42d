#include "prepare/description/formula.h"

#include <gtest/gtest.h>

namespace zeph::prepare {
namespace {

struct result {
  bool good = false;
  formula terms;
  std::vector<formula_fault> faults;
};

result read(std::string_view text) {
  result r;
  r.good = parse_formula(text, r.terms, r.faults);
  return r;
}

std::string fixed_text(const formula& f) {
  std::string text;
  for (const effect& e : f.fixed) text += effect_text(e) + " ";
  return text;
}

struct faulty_formula {
  std::string text;
  std::size_t at; // counted by hand
  std::string message;
  std::string hint;
};

TEST(formula, fixed_effects_keep_the_order_of_the_text) {
  const result r = read("1 + sex + herd:year + age");
  ASSERT_TRUE(r.good);
  EXPECT_TRUE(r.terms.mean);
  EXPECT_EQ(fixed_text(r.terms), "sex herd:year age ");
  EXPECT_EQ(r.terms.fixed[1].atoms.size(), 2U);
  EXPECT_EQ(r.terms.fixed[1].at.begin, 10U); // "1 + sex + " has ten characters
  EXPECT_EQ(r.terms.fixed[1].at.end, 19U);
  EXPECT_EQ(r.terms.fixed[1].atoms[1].at.begin, 15U);
}

TEST(formula, the_mean_is_understood_and_zero_takes_it_away) {
  EXPECT_TRUE(read("sex").terms.mean);
  EXPECT_TRUE(read("1").terms.mean);
  EXPECT_FALSE(read("0 + sex").terms.mean);
  EXPECT_FALSE(read("sex + 0").terms.mean);
}

TEST(formula, a_combination_of_classes_numbers_the_levels_of_a_random_term) {
  const result r = read("(1 | herd:year) + (0 + x | f | a : `b c`:d + e)");
  ASSERT_TRUE(r.good);
  ASSERT_EQ(r.terms.random.size(), 2U);
  const random_term& t = r.terms.random[0];
  EXPECT_EQ(t.factor, "herd:year");
  EXPECT_FALSE(t.factor_stated);
  ASSERT_EQ(t.columns.size(), 1U);
  EXPECT_EQ(t.columns[0].name, "herd:year");
  ASSERT_EQ(t.columns[0].parts.size(), 2U);
  EXPECT_EQ(t.columns[0].parts[1].name, "year");
  EXPECT_EQ(t.columns[0].parts[1].at.begin, 10U); // "(1 | herd:" has ten characters
  EXPECT_EQ(t.columns[0].at.begin, 5U);
  EXPECT_EQ(t.columns[0].at.end, 14U);
  const random_term& u = r.terms.random[1];
  EXPECT_EQ(u.factor, "f");
  ASSERT_EQ(u.columns.size(), 2U);
  EXPECT_EQ(u.columns[0].name, "a:b c:d");
  EXPECT_EQ(u.columns[0].parts.size(), 3U);
  EXPECT_EQ(u.columns[1].name, "e");
  EXPECT_EQ(u.columns[1].parts.size(), 1U);
}

TEST(formula, the_factor_of_a_combination_may_be_stated_in_full) {
  const result r = read("(1 | herd:year | herd:year)");
  ASSERT_TRUE(r.good);
  EXPECT_TRUE(r.terms.random[0].factor_stated);
  EXPECT_EQ(r.terms.random[0].factor, "herd:year");
  EXPECT_EQ(r.terms.random[0].columns[0].parts.size(), 2U);
}

TEST(formula, a_combination_holds_names_and_each_once) {
  result r = read("(1 | herd:)");
  ASSERT_EQ(r.faults.size(), 1U);
  EXPECT_EQ(r.faults[0].at, 10U);
  EXPECT_EQ(r.faults[0].text, "expected the name of a column after ':'");
  r = read("(1 | herd:year:herd)");
  ASSERT_EQ(r.faults.size(), 1U);
  EXPECT_EQ(r.faults[0].at, 15U);
  EXPECT_EQ(r.faults[0].text, "combination herd:year:herd holds column herd twice");
}

TEST(formula, a_random_term_without_middle_takes_the_name_of_its_column) {
  const result r = read("(1 | animal)");
  ASSERT_TRUE(r.good);
  ASSERT_EQ(r.terms.random.size(), 1U);
  const random_term& t = r.terms.random[0];
  EXPECT_TRUE(t.constant);
  EXPECT_TRUE(t.left.empty());
  EXPECT_EQ(t.factor, "animal");
  EXPECT_FALSE(t.factor_stated);
  ASSERT_EQ(t.columns.size(), 1U);
  EXPECT_EQ(t.columns[0].name, "animal");
  EXPECT_EQ(t.factor_at.begin, 5U);
  EXPECT_EQ(t.at.begin, 0U);
  EXPECT_EQ(t.at.end, 12U);
}

TEST(formula, a_random_term_with_middle_names_factor_and_column) {
  const result r = read("1 + (1 | genetic | dam) + (1|dampe|dam)");
  ASSERT_TRUE(r.good);
  ASSERT_EQ(r.terms.random.size(), 2U);
  EXPECT_EQ(r.terms.random[0].factor, "genetic");
  EXPECT_TRUE(r.terms.random[0].factor_stated);
  EXPECT_EQ(r.terms.random[0].columns[0].name, "dam");
  EXPECT_EQ(r.terms.random[0].factor_at.begin, 9U);
  EXPECT_EQ(r.terms.random[0].columns[0].at.begin, 19U);
  EXPECT_EQ(r.terms.random[1].factor, "dampe");
}

TEST(formula, the_one_of_a_random_term_is_understood_and_zero_takes_it_away) {
  const result r = read("(x | f | c) + (0 + x | g | c) + (1 + x + z | h | c)");
  ASSERT_TRUE(r.good);
  EXPECT_TRUE(r.terms.random[0].constant);
  EXPECT_FALSE(r.terms.random[1].constant);
  EXPECT_TRUE(r.terms.random[2].constant);
  EXPECT_EQ(r.terms.random[0].left.size(), 1U);
  EXPECT_EQ(r.terms.random[1].left.size(), 1U);
  ASSERT_EQ(r.terms.random[2].left.size(), 2U);
  EXPECT_EQ(effect_text(r.terms.random[2].left[1]), "z");
  EXPECT_TRUE(r.terms.fixed.empty());
}

TEST(formula, effects_left_of_the_bar_do_not_leak_into_the_fixed_part) {
  const result r = read("a + (x:z | f | c) + b");
  ASSERT_TRUE(r.good);
  EXPECT_EQ(fixed_text(r.terms), "a b ");
  EXPECT_EQ(effect_text(r.terms.random[0].left[0]), "x:z");
}

TEST(formula, several_columns_of_one_factor_are_written_with_plus_between_them) {
  const result r = read("(1 | genetic | mate1 + mate2)");
  ASSERT_TRUE(r.good);
  ASSERT_EQ(r.terms.random[0].columns.size(), 2U);
  EXPECT_EQ(r.terms.random[0].columns[1].name, "mate2");
  EXPECT_EQ(r.terms.random[0].columns[1].at.begin, 23U);
}

TEST(formula, curves_hold_their_covariable_and_order) {
  const result r = read("season:leg(dim, 4) + poly( age ,2) + (leg(dim, 2) | pe | cow)");
  ASSERT_TRUE(r.good);
  const atom& leg = r.terms.fixed[0].atoms[1];
  EXPECT_EQ(leg.kind, atom_kind::leg);
  EXPECT_EQ(leg.name, "dim");
  EXPECT_EQ(leg.order, 4);
  EXPECT_EQ(leg.at.begin, 7U);
  EXPECT_EQ(leg.at.end, 18U);
  EXPECT_EQ(leg.name_at.begin, 11U);
  EXPECT_EQ(r.terms.fixed[0].atoms[0].kind, atom_kind::column);
  EXPECT_EQ(r.terms.fixed[1].atoms[0].kind, atom_kind::poly);
  EXPECT_EQ(effect_text(r.terms.fixed[1]), "poly(age,2)");
  EXPECT_EQ(effect_text(r.terms.fixed[0]), "season:leg(dim,4)");
  EXPECT_EQ(r.terms.random[0].left[0].atoms[0].order, 2);
}

TEST(formula, words_of_the_grammar_are_names_where_no_bracket_follows) {
  const result r = read("leg + poly:shift + legume + shifty + leg2");
  ASSERT_TRUE(r.good);
  EXPECT_EQ(fixed_text(r.terms), "leg poly:shift legume shifty leg2 ");
  EXPECT_EQ(r.terms.fixed[0].atoms[0].kind, atom_kind::column);
}

TEST(formula, shift_names_a_trait) {
  const result r = read("shift(infected) + 1 + herd");
  ASSERT_TRUE(r.good);
  ASSERT_EQ(r.terms.shifts.size(), 1U);
  EXPECT_EQ(r.terms.shifts[0].trait, "infected");
  EXPECT_EQ(r.terms.shifts[0].trait_at.begin, 6U);
  EXPECT_EQ(r.terms.shifts[0].at.end, 15U);
}

TEST(formula, names_hold_letters_digits_points_and_anything_in_back_quotes) {
  const result r = read("_a.b9 + .x + `birth year`:`2nd` + k\xC3\xB8n + leg(`days in milk`,1)");
  ASSERT_TRUE(r.good);
  EXPECT_EQ(r.terms.fixed[0].atoms[0].name, "_a.b9");
  EXPECT_EQ(r.terms.fixed[2].atoms[0].name, "birth year");
  EXPECT_EQ(r.terms.fixed[2].atoms[0].name_at.begin, 14U); // after the back quote
  EXPECT_EQ(r.terms.fixed[2].atoms[0].at.begin, 13U);
  EXPECT_EQ(r.terms.fixed[2].atoms[1].name, "2nd");
  EXPECT_EQ(r.terms.fixed[3].atoms[0].name, "k\xC3\xB8n");
  EXPECT_EQ(r.terms.fixed[4].atoms[0].name, "days in milk");
}

TEST(formula, blanks_and_line_ends_may_be_anywhere) {
  const result r = read(" \n1\n + sex\t+(  0+x|f  |  c )\r\n");
  ASSERT_TRUE(r.good);
  EXPECT_EQ(fixed_text(r.terms), "sex ");
  EXPECT_EQ(r.terms.random[0].columns[0].name, "c");
}

TEST(formula, faults_of_the_grammar_name_what_was_expected_and_where) {
  const std::vector<faulty_formula> cases = {
      {"", 0, "expected a term: 1, 0, an effect or ( .. | factor | column)", ""},
      {"1 + ", 4, "expected a term: 1, 0, an effect or ( .. | factor | column)", ""},
      {"1 + sex + (1 genetic | animal)", 13, "expected '|' and the name of a factor", ""},
      {"(1)", 2, "expected '|' and the name of a factor", ""},
      {"(1 | )", 5, "expected the name of a factor or column", ""},
      {"(1 | f | )", 9, "expected the name of a column", ""},
      {"(1 | f | c", 10, "expected ')'", ""},
      {"(1 | f | c | d)", 11, "expected ')'", ""},
      {"( | f)", 2, "expected 1, 0 or an effect before the '|'", ""},
      {"a:", 2, "expected a column, leg(..) or poly(..) after ':'", ""},
      {"leg(", 4, "expected the name of a covariable", ""},
      {"leg(dim)", 7, "expected ',' and the order", ""},
      {"leg(dim 2)", 8, "expected ',' and the order", ""},
      {"leg(dim,)", 8, "expected the order, a whole number from 1 to 12", ""},
      {"leg(dim,-1)", 8, "expected the order, a whole number from 1 to 12", ""},
      {"leg(dim,1.5)", 9, "expected the order, a whole number from 1 to 12", ""},
      {"leg(dim,2", 9, "expected ')' after the order", ""},
      {"shift()", 6, "expected the name of a trait", ""},
      {"shift(a", 7, "expected ')'", ""},
      {"`a", 2, "expected the closing back quote", ""},
      {"``", 1, "expected a name between back quotes", ""},
      {"sex * herd", 4, "expected '+' or the end of the formula", "for a * b write a + b + a:b"},
      {"bwt ~ 1 + sex", 4, "expected '+' or the end of the formula",
       "leave out the left side: the table [trait.NAME] names it"},
      {"sex - 1", 4, "expected '+' or the end of the formula", "\"0 +\" leaves the mean out"},
      {"log(x)", 3, "expected '+' or the end of the formula", "make a column of log(..) in the CSV"},
      {"1 + I(x^2)", 5, "expected '+' or the end of the formula",
       "make a column of I(..) in the CSV; powers are poly(NAME, order)"},
      {"sex + factor(herd)", 12, "expected '+' or the end of the formula",
       "a column is a class unless it has a table [covariable.NAME]: write its name alone"},
      {"1 + (sex)", 8, "expected '|' and the name of a factor", ""},
      {"sex + x^2", 7, "expected '+' or the end of the formula",
       "make a column of the power in the CSV, or write poly(NAME, order)"},
      {"herd/pen", 4, "expected '+' or the end of the formula", "for a / b write a + a:b"},
      {"(1 | herd/pen)", 9, "expected ')'", "for (1 | a / b) write (1 | a) + (1 | a:b)"},
      {"(log(x) | g)", 4, "expected '|' and the name of a factor", "make a column of log(..) in the CSV"},
      {"(a * x | g)", 3, "expected '|' and the name of a factor", "for a * b write a + b + a:b"},
      {"(x || g)", 4, "expected the name of a factor or column",
       "'||' holds covariances at zero: give each effect a factor of its own, (1 | a | g) + (0 + x | b | g)"},
      {"1 + 2nd", 4, "expected a term: 1, 0, an effect or ( .. | factor | column)",
       "put a name that begins with a digit in back quotes"},
      {"1 | animal", 2, "expected '+' or the end of the formula",
       "put random terms in brackets: (1 | factor | column)"},
  };
  for (const faulty_formula& c : cases) {
    const result r = read(c.text);
    EXPECT_FALSE(r.good) << c.text;
    ASSERT_EQ(r.faults.size(), 1U) << c.text;
    EXPECT_EQ(r.faults[0].text, c.message) << c.text;
    EXPECT_EQ(r.faults[0].at, c.at) << c.text;
    EXPECT_EQ(r.faults[0].hint, c.hint) << c.text;
  }
}

TEST(formula, orders_outside_1_to_12_are_faults) {
  for (const char* order : {"0", "13", "10000", "99999999999999999999"}) {
    const result r = read(std::string("leg(dim, ") + order + ")");
    ASSERT_EQ(r.faults.size(), 1U) << order;
    EXPECT_EQ(r.faults[0].text, "the order of leg must be from 1 to 12");
    EXPECT_EQ(r.faults[0].at, 9U);
  }
  EXPECT_TRUE(read("poly(dim, 12)").good);
}

TEST(formula, all_faults_of_meaning_are_reported_in_the_order_of_the_text) {
  const result r = read("0 + 1 + a + a + b:a + a:b + c:c + (0 | f | c) + (1 | x + y) + (x + x | f | d + d)");
  std::vector<std::string> texts;
  for (const formula_fault& f : r.faults) texts.push_back(f.text);
  const std::vector<std::string> expected = {"1 and 0 contradict each other",
                                             "effect a appears twice",
                                             "effect a:b appears twice",
                                             "effect c:c contains one column twice",
                                             "a random term with 0 alone has no effect",
                                             "a term with several columns needs the name of a factor",
                                             "effect x appears twice",
                                             "column d appears twice"};
  EXPECT_EQ(texts, expected);
  EXPECT_EQ(read("1 + 1").faults[0].text, "1 appears twice");
}

TEST(formula, no_text_at_all_can_break_the_reading) {
  const std::string alphabet = "10ab_.`:+|(),~*- \n\tleg(poly(shift(\xC3\x80\xFF";
  std::uint32_t state = 12345; // minimal linear congruential generator: the texts are the same in every run
  for (int i = 0; i < 20000; ++i) {
    std::string text;
    const std::uint32_t length = (state >> 16) % 40;
    for (std::uint32_t k = 0; k < length; ++k) {
      state = state * 1664525U + 1013904223U;
      text += alphabet[(state >> 16) % alphabet.size()];
    }
    state = state * 1664525U + 1013904223U;
    const result r = read(text);
    EXPECT_EQ(r.good, r.faults.empty()) << text;
    for (const formula_fault& f : r.faults) EXPECT_LE(f.at, text.size()) << text;
  }
  EXPECT_FALSE(read(std::string(200000, '(')).good);
  EXPECT_FALSE(read(std::string("a\0b", 3)).good);
  std::string many = "a";
  for (int i = 0; i < 20000; ++i) many += "+(1|f|c)";
  EXPECT_TRUE(read(many).good);
}

} // namespace
} // namespace zeph::prepare
