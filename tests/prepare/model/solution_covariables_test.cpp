#include "prepare/model/solution_covariables.h"

#include "support/prepared_case.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using zeph_test::prepared_case;
using rows_i = std::vector<std::int32_t>;

// Herd 1, 2, 3 with milk; fat is missing in one record, milk in another.
const std::string COWS = "cow,herd,year,sire,dim,milk,fat\n"
                         "1,1,1,A,10,25,4.1\n"
                         "2,1,2,B,20,26,4.0\n"
                         "3,2,1,A,30,21,4.4\n"
                         "4,2,2,B,40,22,NA\n"
                         "5,3,1,A,50,NA,3.9\n"
                         "6,3,2,C,60,28,3.8\n"
                         "7,3,1,C,70,29,3.7\n";

std::string toml(const std::string& milk, const std::string& fat, const std::string& covariable,
                 const std::string& more = "") {
  return "[data]\nfile = \"d.csv\"\n[factor.sire]\nstart = 1.0\n[factor.fatsire]\nstart = "
         "0.1\n[trait.milk]\nformula = \"" +
         milk + "\"\n[trait.fat]\nformula = \"" + fat + "\"\n[covariable.level]\n" + covariable +
         "\n[residual]\nstart = [[4.0, 0.0], [0.0, 0.1]]\nzero = [[\"milk\", \"fat\"]]\n" + more +
         "\n[run]\n";
}

prepared_case prepare(const std::string& text, const std::string& data = COWS) {
  return prepared_case(text, {{"d.csv", data}});
}

TEST(solution_covariables, give_records_a_base_and_the_directive_file_its_lines) {
  const prepared_case c = prepare(toml("1 + herd + (1 | sire)", "1 + level", "solution = \"milk.herd\""));
  ASSERT_TRUE(c.p.complete) << c.messages();
  const zeph::model_records& m = c.p.model;
  ASSERT_EQ(m.MODEL(2).n_reg, 1);
  EXPECT_EQ(m.MODEL(2).REG_TYPE(1), 0);
  EXPECT_EQ(m.MODEL(2).REG_INP(1), 1000001);
  EXPECT_EQ(c.p.rows.reals[static_cast<std::size_t>(m.MODEL(2).REG_RCI(1) - 1)],
            (std::vector<float>{1, 1, 1, 0, 1, 1, 1})); // 0 where fat is missing
  const std::vector<std::string>& lines = c.p.directives;
  ASSERT_GE(lines.size(), 9U);
  EXPECT_EQ((std::vector<std::string>(lines.end() - 9, lines.end())),
            (std::vector<std::string>{"10", "1.0", "1.0", "0", "1", "1 1 1", "1000001 0", "0", "0"}));
}

// Record 5 has no milk, but its herd has a solution.
TEST(solution_covariables, tell_the_level_where_the_source_s_trait_is_missing) {
  const prepared_case c = prepare(toml("1 + herd + (1 | sire)", "1 + level", "solution = \"milk.herd\""));
  ASSERT_TRUE(c.p.complete) << c.messages();
  const zeph::trait_record& milk = c.p.model.MODEL(1);
  EXPECT_EQ(c.p.rows.integers[static_cast<std::size_t>(milk.f_ef_rci(1) - 1)], (rows_i{1, 1, 2, 2, 3, 3, 3}));
}

TEST(solution_covariables, come_from_random_effects_too) {
  const prepared_case c = prepare(toml("1 + herd + (1 | sire)", "1 + level", "solution = \"milk.sire\""));
  ASSERT_TRUE(c.p.complete) << c.messages();
  const std::vector<std::string>& lines = c.p.directives;
  EXPECT_EQ(lines.at(lines.size() - 4), "1 2 1"); // the effect after herd
  const zeph::trait_record& milk = c.p.model.MODEL(1);
  EXPECT_EQ(milk.EF_INP(2), milk.r_ef_inp(1));
  EXPECT_EQ(c.p.rows.integers[static_cast<std::size_t>(milk.r_ef_rci(1) - 1)], (rows_i{1, 2, 1, 2, 1, 3, 3}));
  EXPECT_NE(milk.f_ef_inp(1), milk.r_ef_inp(1));
}

// Two factors number the levels of one column alike; the chain knows effects by their columns.
TEST(solution_covariables, come_from_the_first_of_two_effects_of_one_column) {
  std::string cows = COWS; // milk in all records
  cows.replace(cows.find("50,NA"), 5, "50,24");
  const prepared_case c = prepare(
      toml("1 + herd + (1 | sire) + (1 | fatsire | sire)", "1 + level", "solution = \"milk.sire\""), cows);
  ASSERT_TRUE(c.p.complete) << c.messages();
  const zeph::trait_record& milk = c.p.model.MODEL(1);
  ASSERT_EQ(milk.n_r, 2);
  EXPECT_EQ(c.p.directives.at(c.p.directives.size() - 4), "1 2 1"); // the effect after herd
  EXPECT_EQ(milk.r_ef_matno(1), 1);
  EXPECT_NE(milk.r_ef_inp(1), milk.r_ef_inp(2));
  EXPECT_EQ(c.p.rows.integers[static_cast<std::size_t>(milk.r_ef_rci(1) - 1)],
            c.p.rows.integers[static_cast<std::size_t>(milk.r_ef_rci(2) - 1)]);
}

TEST(solution_covariables, are_multiplied_by_a_column) {
  const prepared_case c = prepare(toml("1 + herd + (1 | sire)", "1 + level",
                                       "solution = \"milk.herd\"\ntimes = \"dim\"\nstandardize = true"));
  ASSERT_TRUE(c.p.complete) << c.messages();
  const zeph::model_records& m = c.p.model;
  EXPECT_EQ(c.p.rows.reals[static_cast<std::size_t>(m.MODEL(2).REG_RCI(1) - 1)],
            (std::vector<float>{10, 20, 30, 0, 50, 60, 70}));
  EXPECT_EQ(c.p.directives.at(c.p.directives.size() - 2), "1"); // the standardize option
}

TEST(solution_covariables, nest_in_classes) {
  const prepared_case c =
      prepare(toml("0 + herd + (1 | sire)", "1 + year:level", "solution = \"milk.herd\""));
  ASSERT_TRUE(c.p.complete) << c.messages();
  EXPECT_EQ(c.p.model.MODEL(2).REG_TYPE(1), 1);
  EXPECT_EQ(c.p.model.MODEL(2).REG_INP(1), 1000001);
}

// A constant covariable would hang together with the mean, the solutions of the herds do with the herds.
TEST(solution_covariables, hang_together_with_the_class_of_their_source_alone) {
  const prepared_case c =
      prepare(toml("1 + herd + (1 | sire)", "1 + herd + level", "solution = \"milk.herd\""));
  EXPECT_TRUE(c.says("fixed effects of fat are dependent")) << c.messages();
  EXPECT_EQ(c.p.model.MODEL(2).n_reg, 0);
  EXPECT_EQ(c.p.directives.size(), 5U); // no list: nothing uses the covariable
}

// Herd keeps its levels, though sire comes first and has as many.
TEST(solution_covariables, let_their_source_keep_all_its_levels) {
  const prepared_case c =
      prepare(toml("1 + sire + herd + (1 | sire)", "1 + level", "solution = \"milk.herd\""));
  ASSERT_TRUE(c.p.complete) << c.messages();
  const zeph::trait_record& milk = c.p.model.MODEL(1);
  EXPECT_EQ(milk.F_EF_NAME(2), "herd    ");
  EXPECT_EQ(c.p.model.NLEV(1, 2), 3);
}

TEST(solution_covariables, refuse_a_source_that_lost_levels) {
  const prepared_case c =
      prepare(toml("1 + herd + year + (1 | sire)", "1 + level + other", "solution = \"milk.herd\"",
                   "[covariable.other]\nsolution = \"milk.year\""));
  EXPECT_TRUE(c.says(
      "[covariable.other]: year of milk has lost a level for the sake of full rank (year:1: most records "
      "of year; its mean is in herd)"))
      << c.messages();
}

TEST(solution_covariables, refuse_levels_without_solution) {
  std::string data = COWS;
  data.replace(data.find("28,3.8"), 2, "NA");
  data.replace(data.find("29,3.7"), 2, "NA"); // herd 3 has no milk at all
  const prepared_case c =
      prepare(toml("1 + herd + (1 | sire)", "1 + level", "solution = \"milk.herd\""), data);
  EXPECT_TRUE(c.says("d.csv:6: error: [covariable.level]: \"3\" has no record of milk, and so no solution"))
      << c.messages();
}

TEST(solution_covariables, make_the_trait_missing_where_the_class_is) {
  std::string data = COWS;
  data.replace(data.find("\n3,2,1"), 6, "\n3,NA,1");
  const prepared_case c =
      prepare(toml("1 + herd + (1 | sire)", "1 + level", "solution = \"milk.herd\""), data);
  EXPECT_TRUE(c.says("herd is missing in 1 record with fat: fat set missing there")) << c.messages();
}

struct bad_description {
  std::string milk, fat, covariable, more, message;
};

TEST(solution_covariables, are_checked_in_the_description) {
  const std::string good_milk = "1 + herd + (1 | sire)", herd = "solution = \"milk.herd\"";
  const bad_description cases[] = {
      {good_milk, "1 + level", "solution = \"milk.hrd\"", "",
       "\"milk.hrd\" is not a class effect of a trait; known: milk.herd, milk.sire"},
      {good_milk + " + dim", "1 + level", "solution = \"milk.dim\"", "[covariable.dim]",
       "\"milk.dim\" is not a class effect"},
      {good_milk + " + level", "1 + level", herd, "",
       "level is made from solutions and can't explain its own trait milk"},
      {good_milk, "1 + leg(level, 2)", herd, "", "level is made from solutions and takes no leg(level,2)"},
      {good_milk, "1 + (level | fatsire | sire)", herd, "",
       "level is made from solutions and can't appear on the left"},
      {good_milk, "1 + level", herd + "\ncolumn = \"dim\"", "",
       "[covariable.level] is a solution and has no column"},
      {good_milk, "1 + level", herd + "\ncenter = true", "", "no range and no center"},
      {good_milk, "1 + level", "times = \"dim\"", "", "times and standardize need solution"},
      {good_milk, "1 + level + two", herd, "[covariable.two]\nsolution = \"milk.sire\"\nstandardize = true",
       "[covariable.two] standardize differs from that of [covariable.level]"},
      {good_milk + " + back", "1 + year + level", herd, "[covariable.back]\nsolution = \"fat.year\"",
       "the solutions of milk explain it by way of other traits"},
  };
  for (const bad_description& bad : cases) {
    const prepared_case c = prepare(toml(bad.milk, bad.fat, bad.covariable, bad.more));
    EXPECT_FALSE(c.p.complete) << bad.message;
    EXPECT_TRUE(c.says(bad.message)) << c.messages();
  }
}

TEST(solution_covariables, refuse_analyses_and_kinds_that_have_none) {
  const std::string text = toml("1 + herd + (1 | sire)", "1 + level", "solution = \"milk.herd\"");
  const prepared_case models = prepare(text + "analysis = \"jump\"\n");
  EXPECT_TRUE(models.says("[covariable.level] is made from solutions, which analysis \"jump\" doesn't do"))
      << models.messages();
  std::string censored = text + "analysis = \"gibbs\"\n";
  censored.replace(censored.find("[trait.fat]\n"), 12,
                   "[trait.fat]\nkind = \"censored\"\nlimits = { event = \"year\" }\n");
  EXPECT_TRUE(prepare(censored).says("then no trait may be of kind censored (fat)"))
      << prepare(censored).messages();
}

TEST(solution_covariables, warn_of_covariances_between_source_and_turned_trait) {
  std::string text = toml("1 + herd + (1 | sire)", "1 + level + (1 | sire)", "solution = \"milk.herd\"") +
                     "analysis = \"predict\"\n";
  text.replace(text.find("start = 1.0"), 11, "start = [[1.0, 0.0], [0.0, 0.1]]");
  const prepared_case c = prepare(text);
  EXPECT_TRUE(c.says("milk explains fat by its solutions, and the two share covariances")) << c.messages();
  const prepared_case apart =
      prepare(toml("1 + herd + (1 | sire)", "1 + level + (1 | fatsire | sire)", "solution = \"milk.herd\"") +
              "analysis = \"predict\"\n");
  EXPECT_TRUE(apart.p.complete) << apart.messages();
  EXPECT_FALSE(apart.says("share covariances")) << apart.messages();
}

} // namespace
