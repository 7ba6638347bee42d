// Whole descriptions as a user writes them, on data made here: a univariate animal model, two traits with a
// maternal effect, and a random regression with residual groups.
#include "control/run_driver.h"
#include "prepare/output/work_directory.h"
#include "support/prepared_case.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

namespace {

using zeph_test::prepared_case;
using zeph_test::scratch_directory;

// Exit code of the program in a directory made of the case.
int solve(const prepared_case& c, std::string& listing) {
  const scratch_directory work;
  const auto written = write_work_directory(c.description, c.p, work.path(), "");
  if (!written.ok) return -1;
  std::ostringstream out;
  zeph::run run(out, work.path());
  const int code = exit_code_of_run(run);
  listing = out.str();
  return code;
}

std::string as_solver(std::string text) {
  const std::string gibbs = "analysis = \"gibbs\"";
  text.replace(text.find(gibbs), gibbs.size(), "analysis = \"solve\"");
  return text;
}

const std::string GRYPHON = R"TOML(title = "Gryphons: birth weight"

[data]
file    = "gryphon.csv"
missing = ["NA"]

[factor.animal]
pedigree = "gryphonped.csv"

[trait.bwt]
formula = "1 + sex + (1 | animal)"

[run]
analysis = "gibbs"
burnin   = 10000
rounds   = 200000
interval = 20
seeds    = [1201, 707]
)TOML";

// 40 animals, parents 1..10; every fifth record without bwt.
std::map<std::string, std::string> gryphons() {
  std::string data = "animal,sex,bwt\n", ped = "id,dam,sire\n";
  for (int a = 1; a <= 40; ++a) {
    if (a > 10) ped += fmt::format("{},{},{}\n", a, a % 5 + 1, a % 5 + 6);
    const std::string bwt = a % 5 == 0 ? "NA" : fmt::format("{:.2f}", 7.0 + a % 7 * 0.3 + a % 2);
    if (a > 10) data += fmt::format("{},{},{}\n", a, a % 2 + 1, bwt);
  }
  return {{"gryphon.csv", data}, {"gryphonped.csv", ped}};
}

TEST(described_models, animal_model_has_one_class_effect_one_pedigree_factor_and_keeps_positions) {
  const prepared_case c(GRYPHON, gryphons());
  ASSERT_TRUE(c.p.complete) << c.messages();
  const zeph::model_records& m = c.p.model;
  EXPECT_EQ(m.nobs(), 24); // 30 records, six of them (15, 20, .., 40) without bwt
  EXPECT_EQ(m.MODEL(1).TRAIT_TYPE, 1);
  EXPECT_EQ(m.MODEL(1).n_f, 1);
  EXPECT_EQ(m.NLEV(1, 1), 2);
  EXPECT_EQ(m.RMAT(1).CV_STRUCT, "PED         ");
  EXPECT_EQ(m.RMAT(1).n_rc, 1);
  EXPECT_EQ(m.NRALEV(1), 40);
  EXPECT_EQ(c.p.rows.integers.back()[4], 6); // records 1 to 4, then 6
  EXPECT_EQ(c.p.directives, (std::vector<std::string>{"3 0", "1201 707", "10000 200000 20", "1 0", "2 0"}));
  EXPECT_TRUE(c.says("6 of 30 records have no trait left and are dropped")) << c.messages();
  EXPECT_TRUE(c.says("added as founders")) << c.messages();
}

const std::string CALVES = R"TOML(title = "Birth and weaning weight, with the dam's effect on birth weight"

[data]
file = "calves.csv"

[factor.genetic]
pedigree = { file = "pedigree.csv", animal = "id", sire = "sire", dam = "dam" }
order    = ["bwt.animal", "wwt.animal", "bwt.dam"]
start    = [[18.0,  6.0, 8.0],
            [ 6.0, 40.0, 0.0],
            [ 8.0,  0.0, 9.0]]
prior_df = 6

[factor.dampe]

[trait.bwt]
formula = "1 + sex + herd:year + (1 | genetic | animal) + (1 | genetic | dam) + (1 | dampe | dam)"

[trait.wwt]
formula = "1 + sex + herd:year + age + (1 | genetic | animal)"

[covariable.age]
center = true

[residual]
start = [[30.0, 8.0], [8.0, 60.0]]

[run]
analysis = "gibbs"
burnin   = 20000
rounds   = 400000
interval = 40
seeds    = [1202, 708]
)TOML";

// 60 calves of dams D1..D12 and sires S1..S4 in two herds and two years; herd 2 has no year 1999.
std::map<std::string, std::string> calves() {
  std::string data = "animal,dam,sex,herd,year,age,bwt,wwt\n", ped = "id,sire,dam\n";
  for (int i = 1; i <= 60; ++i) {
    const int dam = i % 12 + 1, herd = i % 3 == 0 ? 2 : 1, year = herd == 2 || i % 2 == 0 ? 1998 : 1999;
    ped += fmt::format("C{},S{},D{}\n", i, i % 4 + 1, dam);
    data += fmt::format("C{},D{},{},{},{},{},{:.1f},{}\n", i, dam, i % 5 < 2 ? "m" : "f", herd, year,
                        190 + i * 7 % 31, 35 + i * 11 % 9 + 0.5 * dam,
                        i % 6 == 0 ? "NA" : std::to_string(200 + i * 13 % 41));
  }
  return {{"calves.csv", data}, {"pedigree.csv", ped}};
}

TEST(described_models, maternal_effect_shares_a_factor_of_order_three_with_both_traits) {
  const prepared_case c(CALVES, calves());
  ASSERT_TRUE(c.p.complete) << c.messages();
  const zeph::model_records& m = c.p.model;
  const zeph::structure_record& g = m.RMAT(1);
  EXPECT_EQ(g.n_rc, 3);
  ASSERT_EQ(g.n_cont, 3);
  EXPECT_EQ(g.CONT_T_NO(1), 1);
  EXPECT_EQ(g.CONT_T_NO(2), 2);
  EXPECT_EQ(g.CONT_T_NO(3), 1);
  EXPECT_EQ(g.CONT_EFF_RCI(1), g.CONT_EFF_RCI(2));
  EXPECT_NE(g.CONT_EFF_RCI(1), g.CONT_EFF_RCI(3));
  EXPECT_EQ(g.COV_MAT(3, 1), 8.0);
  EXPECT_EQ(m.NRALEV(1), 76); // 60 calves, 12 dams and 4 sires without lines
  EXPECT_EQ(m.RMAT(2).CV_STRUCT, "I           ");
  EXPECT_EQ(m.NRALEV(2), 12);
  // herd:year keeps its three pairs, sex loses a level; the regression on age is equation 1
  EXPECT_EQ(m.NLEV(1, 1), 1);
  EXPECT_EQ(m.NLEV(1, 2), 3);
  EXPECT_EQ(m.nfreg, 1);
  EXPECT_EQ(m.NBEGREG(2, 1), 0);
  EXPECT_EQ(m.nfeq, 9);
  EXPECT_EQ(m.NBEGRA(2), 9);
  EXPECT_EQ(m.NBEGRA(1), 21);
  EXPECT_EQ(c.p.fixed[0].classes[1].identification, (std::vector<std::string>{"1:1998", "1:1999", "2:1998"}));
  EXPECT_EQ(m.residual().n_pat, 2);
  EXPECT_EQ(c.p.directives[3], "1 6");
  EXPECT_EQ(c.p.factors[0].n_meeting, 60); // which an exact chain takes into account
  EXPECT_EQ(c.p.sampler, (std::vector<std::string>{"exact", "state 10", "moves"}));
  EXPECT_FALSE(c.says("meet in")) << c.messages();
}

TEST(described_models, maternal_model_is_solved_by_the_program) {
  const prepared_case c(as_solver(CALVES), calves());
  ASSERT_TRUE(c.p.complete) << c.messages();
  std::string listing;
  EXPECT_EQ(solve(c, listing), 0) << listing;
}

const std::string TEST_DAYS = R"TOML(title = "Test-day milk"

[data]
file = "testday.csv"

[covariable.dim]
range = [5, 305]

[factor.genetic]
pedigree = "pedigree.csv"

[factor.pe]

[trait.milk]
formula = "1 + htd + season:leg(dim, 4) + (leg(dim, 2) | genetic | cow) + (leg(dim, 2) | pe | cow)"

[residual]
groups = "stage"

[run]
analysis = "gibbs"
burnin   = 50000
rounds   = 500000
interval = 50
seeds    = [1203, 709]
)TOML";

// 20 cows with ten test days each, two seasons, three stages of lactation.
std::map<std::string, std::string> test_days() {
  std::string data = "cow,dim,htd,season,stage,milk\n", ped = "animal,sire,dam\n";
  for (int cow = 1; cow <= 20; ++cow) {
    ped += fmt::format("{},{},{}\n", cow, 100 + cow % 4, cow > 10 ? cow - 10 : 0);
    for (int k = 0; k < 10; ++k) {
      const int dim = 5 + 30 * k + cow;
      data +=
          fmt::format("{},{},{},{},{},{:.1f}\n", cow, dim, (k + cow) % 8 + 1, cow % 2 == 0 ? "dry" : "wet",
                      1 + k / 4, 25.0 - 0.03 * dim + cow % 7 + k * 17 % 5 * 0.7);
    }
  }
  return {{"testday.csv", data}, {"pedigree.csv", ped}};
}

TEST(described_models, random_regression_has_two_factors_of_order_three_and_nested_curves) {
  const prepared_case c(TEST_DAYS, test_days());
  ASSERT_TRUE(c.p.complete) << c.messages();
  const zeph::model_records& m = c.p.model;
  EXPECT_EQ(m.RMAT(1).n_rc, 3);
  EXPECT_EQ(m.RMAT(2).n_rc, 3);
  EXPECT_EQ(c.p.factors[0].row_names, (std::vector<std::string>{"milk.leg0", "milk.leg1", "milk.leg2"}));
  EXPECT_EQ(m.residual().CV_STRUCT, "GROUP       ");
  EXPECT_EQ(m.residual().n_hetgr, 3);
  // four curves within two seasons, and the two degrees of each factor among the trait's regressions
  EXPECT_EQ(m.MODEL(1).n_reg, 8);
  EXPECT_EQ(m.nfreg, 8);
  EXPECT_EQ(m.MODEL(1).REG_TYPE(4), 1);
  EXPECT_EQ(m.MODEL(1).REG_TYPE(5), 2);
  EXPECT_EQ(m.MODEL(1).REG_R_MATNO(8), 2);
  EXPECT_EQ(m.MODEL(1).n_f, 2); // htd, and season without equations
  EXPECT_EQ(m.MODEL(1).INTERCEPT(1), 1);
  EXPECT_EQ(m.MODEL(1).INTERCEPT(2), 0);
  EXPECT_EQ(m.nfeq, 16);
  EXPECT_EQ(c.p.largest_row, 8 + 1 + 3 + 3);
  // equal columns are written once: cow, htd, season, stage, mask, pattern, position; milk and the curves
  EXPECT_EQ(m.iv_50, 8);
  EXPECT_EQ(m.n_real, 5);
  // half of the variance is shared: a quarter to each factor, a third of that to each row, over the mean
  // square
  const double variance = std::pow(c.p.start.traits[0].observed.sd, 2);
  EXPECT_NEAR(m.RMAT(1).COV_MAT(1, 1), variance / 4 / 3 / 0.5, 1e-12 * variance);
}

TEST(described_models, random_regression_is_solved_by_the_program) {
  const prepared_case c(as_solver(TEST_DAYS), test_days());
  ASSERT_TRUE(c.p.complete) << c.messages();
  std::string listing;
  EXPECT_EQ(solve(c, listing), 0) << listing;
}

} // namespace
