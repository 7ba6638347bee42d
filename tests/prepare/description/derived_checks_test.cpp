#include "prepare/description/derived_checks.h"

#include "prepare/description/model_description.h"

#include "support/places.h"

#include <gtest/gtest.h>

#include <fstream>

namespace zeph::prepare {
namespace {

// The messages of a description with direct and maternal rows, an ordered trait, and one formula.
std::string messages_for(const std::string& formula, const std::string& more = "") {
  message_log log;
  parse_description(
      "[data]\nfile = \"d.csv\"\n[factor.genetic]\n[factor.pen]\n[trait.bwt]\n"
      "formula = \"1 + (1 | genetic | animal) + (1 | genetic | dam) + (1 | pen)\"\n[trait.ease]\n"
      "formula = \"1 + (1 | genetic | animal) + (1 | pen)\"\nkind = \"ordered\"\ncategories = [\"a\", "
      "\"b\", \"c\"]\n" +
          more + "[run]\nanalysis = \"gibbs\"\n[derive]\nfirst = \"1\"\nq = \"" + formula + "\"\n",
      "model.toml", log);
  std::string out;
  for (const message& m : log.entries)
    if (m.level == severity::error) out += m.text + (m.hint.empty() ? "" : " (" + m.hint + ")") + "\n";
  return out;
}

TEST(derived_checks, names_of_the_model_and_of_the_report_are_taken) {
  EXPECT_EQ(messages_for("G[genetic,bwt.animal,bwt.dam] + 2.5e-1 * G[genetic, ease, bwt.animal]"), "");
  EXPECT_EQ(messages_for("(R[bwt,ease] / sqrt(R[bwt,bwt]))^2 - first"), "");
  EXPECT_EQ(messages_for("h2[bwt] + rg[bwt.animal,ease.animal] + VP[bwt] + threshold[ease,2] + "
                         "h2.observed[ease]"),
            "");
  EXPECT_EQ(messages_for("max(G[pen,bwt,ease], 0.1)"), "");
  EXPECT_EQ(messages_for("R[a,bwt,ease]", "[residual]\ngroups = \"herd\"\n"), "");
}

TEST(derived_checks, an_unknown_name_is_reported_with_the_nearest) {
  EXPECT_EQ(messages_for("G[gentic,ease,ease]"),
            "[derive] q: factor \"gentic\" is not defined (did you mean \"genetic\"?)\n");
  EXPECT_EQ(messages_for("G[pen,bwt,eas]"),
            "[derive] q: factor pen has no row \"eas\"; its rows are: bwt.pen, ease.pen\n");
  EXPECT_EQ(messages_for("G[genetic,bwt,bwt]"),
            "[derive] q: factor genetic has 2 rows of bwt: bwt.animal, bwt.dam, ease.animal\n");
  EXPECT_EQ(messages_for("R[bwt,eese]"), "[derive] q: there is no trait \"eese\" (did you mean \"ease\"?)\n");
  EXPECT_EQ(messages_for("firs + 1"), "[derive] q: there is no \"firs\" (did you mean \"first\"?)\n");
  EXPECT_EQ(messages_for("h2[eese]"),
            "[derive] q: h2 holds \"eese\", which is not a trait, factor or row (did you mean \"ease\"?)\n");
  EXPECT_EQ(messages_for("q + 1"), "[derive] q: there is no \"q\"\n");
  EXPECT_EQ(messages_for("H[bwt]"),
            "[derive] q: there is no H[..]; known: G R threshold pi VP h2 m2 p2 d2 c2 pe2 repeatability rg "
            "share r re rp G.unit threshold.unit h2.observed\n");
}

TEST(derived_checks, the_parts_of_a_name_are_counted) {
  EXPECT_EQ(messages_for("G[genetic,ease]"),
            "[derive] q: G holds a factor and two rows: G[factor,row,row]\n");
  EXPECT_EQ(messages_for("R[a,bwt,ease]"), "[derive] q: R holds two traits: R[trait,trait]\n");
  EXPECT_EQ(messages_for("R[bwt,ease]", "[residual]\ngroups = \"herd\"\n"),
            "[derive] q: R holds a group's code and two traits: R[group,trait,trait]\n");
  EXPECT_EQ(messages_for("threshold[ease]"),
            "[derive] q: threshold holds a trait and a number: threshold[trait,1]\n");
  EXPECT_EQ(messages_for("threshold[bwt,1]"),
            "[derive] q: bwt is gaussian: only ordered traits have thresholds\n");
}

// TOML's escapes of a text in double quotes.
std::string quoted(const std::string& text) {
  std::string out;
  for (const char c : text) out += c == '"' ? std::string("\\\"") : std::string(1, c);
  return out;
}

// The list holds \\n for a line end, which TOML reads as such.
TEST(derived_checks, takes_and_refuses_the_formulas_that_the_report_does) {
  std::ifstream list(zeph_test::source_folder() + "/tests/data/derived_formulas.txt");
  int n = 0;
  for (std::string line; std::getline(list, line);) {
    const bool take = line.starts_with("take "), refuse = line.starts_with("refuse ");
    if (!take && !refuse) continue;
    ++n;
    const std::string messages = messages_for(quoted(line.substr(line.find(' ') + 1)));
    EXPECT_EQ(messages.empty(), take) << line << "\n" << messages;
  }
  EXPECT_GT(n, 100);
}

TEST(derived_checks, the_parts_of_formulas_follow_the_grammar) {
  EXPECT_EQ(messages_for("1 +"), "[derive] q: expected a number, a name or a bracket at the end\n");
  EXPECT_EQ(messages_for("1 * / 2"), "[derive] q: expected a number, a name or a bracket before \"/\"\n");
  EXPECT_EQ(messages_for("2 first"), "[derive] q: expected + - * / or ^ before \"f\"\n");
  EXPECT_EQ(messages_for("sqrt(1, 2)"), "[derive] q: sqrt takes one value, not 2 values\n");
  EXPECT_EQ(messages_for("log(1, 2, 3)"), "[derive] q: log takes one value or two, not 3 values\n");
  EXPECT_EQ(messages_for("(1, 2)"), "[derive] q: \",\" separates values of a function only\n");
  EXPECT_EQ(messages_for("exp + 1"), "[derive] q: exp is a function and needs brackets: exp(..)\n");
  EXPECT_EQ(messages_for("pi[ease]"), "[derive] q: ease is ordered: only indicators have a proportion\n");
  EXPECT_EQ(messages_for("threshold[ease,3]"),
            "[derive] q: ease has no threshold 3: they are numbered 1, 2, .., one "
            "below the number of its categories\n");
  EXPECT_EQ(messages_for(std::string(41, '(') + "1"), "[derive] q: more than 40 brackets are nested\n");
}

TEST(derived_checks, signs_and_brackets_that_can_not_be_there_are_reported) {
  EXPECT_EQ(messages_for("R[bwt,bwt] > 2"), "[derive] q: \">\" can't appear in a formula\n");
  EXPECT_EQ(messages_for("(1 + 2"), "[derive] q: this bracket is not closed\n");
  EXPECT_EQ(messages_for("1 + 2)"), "[derive] q: this bracket was not opened\n");
  EXPECT_EQ(messages_for("R[bwt,bwt"), "[derive] q: this bracket is not closed\n");
  EXPECT_EQ(messages_for(" "), "[derive] q: the formula is empty\n");
}

TEST(derived_checks, the_caret_points_into_the_formula) {
  message_log log;
  parse_description("[data]\nfile = \"d.csv\"\n[factor.a]\n[trait.y]\nformula = \"1 + (1 | a)\"\n[derive]\nq "
                    "= \"2 * R[y,z]\"\n",
                    "model.toml", log);
  ASSERT_EQ(log.entries.size(), 1U);
  EXPECT_EQ(log.entries[0].at.line, 7);
  EXPECT_EQ(log.entries[0].at.column, 10); // q = "2 * R: the R
}

} // namespace
} // namespace zeph::prepare
