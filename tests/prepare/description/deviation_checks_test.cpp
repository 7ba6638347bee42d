#include "prepare/description/deviation_checks.h"

#include "support/prepared_case.h"

#include <gtest/gtest.h>

namespace {

using zeph_test::prepared_case;

const std::string CALVES =
    "id,dam,pen,sex,bw,ww\n4,2,1,M,40,200\n5,2,2,F,35,190\n6,1,1,F,33,180\n7,5,2,M,42,210\n";
const std::string PEDIGREE = "animal,sire,dam\n1,0,0\n2,0,0\n3,0,0\n4,3,2\n5,3,2\n6,3,1\n7,4,5\n";

prepared_case prepare(const std::string& factors, const std::string& formula, const std::string& run = "") {
  return prepared_case("[data]\nfile = \"d.csv\"\n" + factors + "\n[trait.bw]\nformula = \"" + formula +
                           "\"\n[run]\n" + run,
                       {{"d.csv", CALVES}, {"p.csv", PEDIGREE}});
}

const std::string ANIMAL = "[factor.animal]\npedigree = \"p.csv\"\nstart = 2.0\n";

TEST(check_deviations, marks_the_factor_in_the_model_file) {
  const prepared_case c = prepare(
      "[factor.pen]\n" + ANIMAL + "deviations = \"progeny\"\ndeviations_every = 50\ndeviations_above = 3\n",
      "1 + (1 | pen) + (1 | animal | id)", "analysis = \"gibbs\"\n");
  ASSERT_TRUE(c.p.complete) << c.messages();
  const zeph::model_records& m = c.p.model;
  EXPECT_TRUE(m.L_TD);
  EXPECT_TRUE(m.L_PTD);
  EXPECT_EQ(m.TD_FACTOR, 2);
  EXPECT_EQ(m.PTD_INT, 50);
  EXPECT_EQ(m.PTD_LIMIT, 3);
  EXPECT_EQ(m.model_kind, 2); // means over the samples
  EXPECT_FALSE(m.l_residuals);
}

TEST(check_deviations, keeps_the_last_values_of_a_solver) {
  const prepared_case c = prepare(ANIMAL + "deviations = \"own\"\n", "1 + (1 | animal | id)");
  ASSERT_TRUE(c.p.complete) << c.messages();
  EXPECT_TRUE(c.p.model.L_TD);
  EXPECT_FALSE(c.p.model.L_PTD);
  EXPECT_EQ(c.p.model.model_kind, 0);
}

TEST(check_deviations, takes_no_factor_for_granted) {
  const prepared_case c = prepare(ANIMAL, "1 + (1 | animal | id)");
  EXPECT_FALSE(c.p.model.L_TD);
  EXPECT_EQ(c.p.model.TD_FACTOR, 0);
}

struct bad_description {
  std::string factors, formula, run, message;
};

TEST(check_deviations, refuses_what_the_run_cannot_give) {
  const std::string pen = "[factor.pen]\n", own = "deviations = \"own\"\n",
                    progeny = "deviations = \"progeny\"\n";
  const bad_description cases[] = {
      {pen + progeny, "1 + (1 | pen)", "", "[factor.pen] deviations = \"progeny\" needs a pedigree"},
      {pen + own + ANIMAL + own, "1 + (1 | pen) + (1 | animal | id)", "",
       "[factor.animal] deviations: [factor.pen] has them, and one factor can"},
      {ANIMAL + progeny + "[factor.mother]\npedigree = \"p.csv\"\n",
       "1 + (1 | animal | id) + (1 | mother | dam)", "",
       "[factor.animal] deviations = \"progeny\" takes no second factor with pedigree, and [factor.mother] "
       "is one"},
      {ANIMAL + own + "deviations_every = 5\n", "1 + (1 | animal | id)", "",
       "deviations_every and deviations_above need deviations = \"progeny\""},
      {ANIMAL + "deviations = \"all\"\n", "1 + (1 | animal | id)", "", "deviations"},
      {ANIMAL + own + "[covariable.ww]\n", "1 + (ww | animal | id)", "",
       "bw.ww is a random regression and has none"},
      {pen + own, "1 + (1 | pen)", "analysis = \"models\"\n", "deviations: analysis \"models\" gives none"},
  };
  for (const bad_description& bad : cases) {
    std::string factors = bad.factors;
    if (bad.formula.find("ww |") != std::string::npos) factors.replace(factors.find("start = 2.0\n"), 12, "");
    const prepared_case c = prepare(factors, bad.formula, bad.run);
    EXPECT_FALSE(c.p.complete) << bad.message;
    EXPECT_TRUE(c.says(bad.message)) << c.messages();
  }
}

// The level of a deviation is that of one column.
TEST(check_deviations, refuses_rows_whose_first_levels_come_from_two_columns) {
  const std::string text =
      "[data]\nfile = \"d.csv\"\n[factor.g]\npedigree = \"p.csv\"\ndeviations = \"own\"\n"
      "[trait.bw]\nformula = \"1 + (1 | g | id)\"\n[trait.ww]\nformula = \"1 + (1 | g | dam)\"\n";
  const prepared_case c(text, {{"d.csv", CALVES}, {"p.csv", PEDIGREE}});
  EXPECT_TRUE(c.says("[factor.g] deviations are those of id, and the first row of ww is ww.dam"))
      << c.messages();
}

TEST(check_deviations, takes_direct_and_maternal_effects_with_the_direct_rows_first) {
  const prepared_case c = prepare("[factor.g]\npedigree = \"p.csv\"\ndeviations = \"progeny\"\n",
                                  "1 + (1 | g | id) + (1 | g | dam)");
  ASSERT_TRUE(c.p.complete) << c.messages();
  const zeph::structure_record& g = c.p.model.RMAT(1);
  EXPECT_EQ(g.R_EFF_RCI(1), g.CONT_EFF_RCI(1));
}

} // namespace
