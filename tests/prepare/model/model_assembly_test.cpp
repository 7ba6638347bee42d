#include "prepare/model/model_assembly.h"

#include "prepare/model/trait_records.h"
#include "support/prepared_case.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using zeph_test::prepared_case;
using rows_i = std::vector<std::int32_t>;

// Six records, two sexes, an animal's number each; the mother of some.
const std::string CALVES = "id,sex,herd,age,bw,ww,dam\n"
                           "4,M,1,10,40,200,2\n"
                           "5,F,1,12,35,NA,2\n"
                           "6,F,2,11,NA,190,1\n"
                           "7,M,2,NA,42,210,5\n"
                           "8,NA,2,14,41,NA,5\n"
                           "9,M,1,15,NA,NA,6\n";
const std::string PEDIGREE =
    "animal,sire,dam\n1,0,0\n2,0,0\n3,0,0\n4,3,2\n5,3,2\n6,3,1\n7,4,5\n8,4,5\n9,4,6\n";

// [data], then what is given, then the residual and the run.
std::string toml(const std::string& middle, const std::string& run = "", const std::string& residual = "") {
  return "[data]\nfile = \"d.csv\"\n" + middle + "\n[residual]\n" + residual + "\n[run]\n" + run;
}

prepared_case prepare(const std::string& text, const std::string& data = CALVES) {
  return prepared_case(text, {{"d.csv", data}, {"p.csv", PEDIGREE}});
}

const std::string ANIMAL = "[factor.animal]\npedigree = \"p.csv\"\nstart = 20.0\n";

// Hand: records 1, 2, 4 have bw, sex and so are used; sex F = 1, M = 2; record 5 lacks the sex, 3 and 6 lack
// bw.
TEST(model_assembly, animal_model_has_columns_masks_and_positions_of_the_users_data) {
  const prepared_case c = prepare(toml(ANIMAL + "[trait.bw]\nformula = \"1 + sex + (1 | animal | id)\"\n"));
  ASSERT_TRUE(c.p.complete) << c.messages();
  const zeph::model_records& m = c.p.model;
  EXPECT_EQ(m.nobs(), 3);
  EXPECT_EQ(m.iv_50, 5); // level of animal, of sex, mask, pattern, position
  EXPECT_EQ(m.n_real, 1);
  EXPECT_EQ(c.p.rows.integers, (std::vector<rows_i>{{4, 5, 7}, {2, 1, 2}, {1, 1, 1}, {1, 1, 1}, {1, 2, 4}}));
  EXPECT_EQ(c.p.rows.reals, (std::vector<std::vector<float>>{{40.0F, 35.0F, 42.0F}}));
  EXPECT_EQ(m.nt, 1);
  EXPECT_EQ(m.mnef, 1);
  EXPECT_EQ(m.MODEL(1).n_ef, 2);
  EXPECT_EQ(m.MODEL(1).Y_RCI, 1);
  EXPECT_EQ(m.MODEL(1).f_ef_rci(1), 2);
  EXPECT_EQ(m.MODEL(1).r_ef_rci(1), 1);
  EXPECT_EQ(m.MODEL(1).F_EF_NAME(1), "sex     ");
  EXPECT_EQ(m.NLEV(1, 1), 2);
  EXPECT_EQ(m.nfreg, 0);
  EXPECT_EQ(m.nfeq, 2);
  EXPECT_EQ(m.NBEGF(1, 1), 0);
  EXPECT_EQ(m.NBEGRA(1), 2);
  EXPECT_EQ(m.NBEGRA(2), 11); // nine animals
  EXPECT_EQ(m.RMAT(1).CV_STRUCT, "PED         ");
  EXPECT_EQ(m.RMAT(1).r36 % 10, 1);
  EXPECT_EQ(m.RMAT(1).COV_MAT(1, 1), 20.0);
  EXPECT_DOUBLE_EQ(m.RMAT(1).GIF(1, 1), 0.05);
  EXPECT_DOUBLE_EQ(m.RMAT(1).r3304, std::log(20.0));
  EXPECT_EQ(m.RMAT(1).CONT_EFF_RCI(1), 1);
  EXPECT_EQ(c.p.largest_row, 2);
  EXPECT_EQ(design_bytes(c.p), 36 * 2 * 3);
}

TEST(model_assembly, what_is_dropped_or_made_missing_is_reported_with_counts) {
  const prepared_case c = prepare(toml(ANIMAL + "[trait.bw]\nformula = \"1 + sex + (1 | animal | id)\"\n"));
  EXPECT_TRUE(c.says("d.csv: warning: sex is missing in 1 record with bw: bw set missing there"))
      << c.messages();
  EXPECT_TRUE(c.says("3 of 6 records have no trait left and are dropped")) << c.messages();
}

// Hand: masks of (bw, ww): records 1 and 4 3 (age missing in 4: only ww needs it, so 2), 2 -> 2, 3 -> 1, 5 ->
// 2.
TEST(model_assembly, missing_traits_have_masks_and_patterns_the_complete_one_first) {
  const prepared_case c =
      prepare(toml(ANIMAL.substr(0, ANIMAL.find("start")) +
                       "[trait.bw]\nformula = \"1 + herd + (1 | animal | id)\"\n"
                       "[trait.ww]\nformula = \"1 + herd + age + (1 | animal | id)\"\n[covariable.age]\n",
                   "", "start = [[2.0, 1.0], [1.0, 2.0]]"));
  ASSERT_TRUE(c.p.complete) << c.messages();
  const std::size_t n = c.p.rows.integers.size();
  EXPECT_EQ(c.p.rows.integers[n - 3], (rows_i{3, 2, 1, 2, 2}));
  EXPECT_EQ(c.p.rows.integers[n - 2], (rows_i{1, 2, 3, 2, 2}));
  EXPECT_EQ(c.p.rows.integers[n - 1], (rows_i{1, 2, 3, 4, 5}));
  const zeph::structure_record& r = c.p.model.residual();
  EXPECT_EQ(r.n_pat, 3);
  EXPECT_EQ(r.carried.ISIT(1), 3);
  EXPECT_EQ(r.carried.ISIT(2), 2);
  EXPECT_EQ(r.carried.ISIT(3), 1);
  EXPECT_EQ(r.carried.ISIT_B(2), 3);
  // inverse of [[2,1],[1,2]] is [[2,-1],[-1,2]]/3, determinant 3; of a single trait 1/2, determinant 2
  EXPECT_DOUBLE_EQ(r.HETGR_RIIF(1, 1, 1, 1), 2.0 / 3.0);
  EXPECT_DOUBLE_EQ(r.HETGR_RIIF(1, 1, 2, 1), -1.0 / 3.0);
  EXPECT_DOUBLE_EQ(r.HETGR_RIIF(1, 2, 1, 1), 0.5);
  EXPECT_EQ(r.HETGR_RIIF(1, 2, 2, 1), 0.0);
  EXPECT_EQ(r.HETGR_RIIF(1, 2, 2, 2), 0.0);
  EXPECT_DOUBLE_EQ(r.HETGR_RIIF(1, 3, 2, 2), 0.5);
  EXPECT_DOUBLE_EQ(r.HETGR_RDET(1, 1), std::log(3.0));
  EXPECT_DOUBLE_EQ(r.HETGR_RDET(1, 2), std::log(2.0));
  EXPECT_EQ(r.HETG_N_OBS(1), 5);
  EXPECT_EQ(r.carried.HETGR_NOBS(1, 1, 2), 1);
  EXPECT_EQ(c.p.rows.reals[1][1], 0.0F); // a missing observation is written as 0
}

// Two traits with two class effects each; sex loses the level with most records (hand: F in both, first of
// equals).
TEST(model_assembly, class_effects_are_numbered_effect_outer_trait_inner) {
  const std::string data = "id,a,b,y,z\n1,1,1,3,4\n2,1,2,5,6\n3,2,1,7,8\n4,2,2,9,1\n5,3,1,2,3\n6,3,2,4,4\n";
  const prepared_case c =
      prepare(toml("[trait.y]\nformula = \"a + b\"\n[trait.z]\nformula = \"a + b\"\n"), data);
  ASSERT_TRUE(c.p.complete) << c.messages();
  const zeph::model_records& m = c.p.model;
  EXPECT_EQ(m.NBEGF(1, 1), 0);
  EXPECT_EQ(m.NBEGF(2, 1), 3);
  EXPECT_EQ(m.NBEGF(1, 2), 6);
  EXPECT_EQ(m.NBEGF(2, 2), 7);
  EXPECT_EQ(m.NLEV(1, 2), 1);
  EXPECT_EQ(m.nfeq, 8);
  EXPECT_EQ(m.nramat, 0);
  EXPECT_EQ(m.NBEGRA(1), 8);
  EXPECT_EQ(c.p.model.MODEL(2).INTERCEPT(2), 1);
}

// Hand: trait y has x plain (equation 1), z has x plain (2) and x within a (3..5); a itself has no equations.
TEST(model_assembly, regressions_come_first_and_nested_ones_name_a_class_effect_without_equations) {
  const std::string data = "a,x,y,z\n1,1,3,4\n1,2,5,6\n2,3,7,8\n2,4,9,1\n3,5,2,3\n3,7,4,9\n";
  const prepared_case c = prepare(toml("[trait.y]\nformula = \"1 + x\"\n[trait.z]\nformula = \"1 + a:x\"\n"
                                       "[covariable.x]\n"),
                                  data);
  ASSERT_TRUE(c.p.complete) << c.messages();
  const zeph::model_records& m = c.p.model;
  EXPECT_EQ(m.NBEGREG(1, 1), 0);
  EXPECT_EQ(m.NBEGREG(2, 1), 1);
  EXPECT_EQ(m.nfreg, 4);
  EXPECT_EQ(m.nregt, 2);
  EXPECT_EQ(m.MODEL(1).REG_TYPE(1), 0);
  EXPECT_EQ(m.MODEL(2).REG_TYPE(1), 1);
  EXPECT_EQ(m.MODEL(2).REG_N_EF_INP(1), 2);
  EXPECT_EQ(m.MODEL(2).carried.REG_NAME_N(1), "a                 ");
  EXPECT_EQ(m.NLEV(2, 2), 3);
  EXPECT_EQ(m.MODEL(2).INTERCEPT(1), 1); // the mean: a class effect of one level
  EXPECT_EQ(m.MODEL(2).INTERCEPT(2), 0);
  EXPECT_EQ(m.NLEV(1, 1), 1);
  EXPECT_EQ(m.NBEGF(1, 1), 4);
  EXPECT_EQ(m.NBEGF(2, 1), 5);
  EXPECT_EQ(m.nfeq, 6);
  EXPECT_EQ(m.MODEL(1).F_EF_NAME(1), "mean    ");
  EXPECT_EQ(c.p.rows.integers[static_cast<std::size_t>(m.MODEL(2).REG_N_RCI(1) - 1)],
            (rows_i{1, 1, 2, 2, 3, 3}));
  EXPECT_EQ(c.p.rows.reals[static_cast<std::size_t>(m.MODEL(2).REG_RCI(1) - 1)],
            (std::vector<float>{1, 2, 3, 4, 5, 7}));
}

// x within a beside x: one of the four slopes depends on the others. Hand: x is the sum of the three nested
// columns, so the last of them is dropped; its records keep the covariable 0 at a legal level.
TEST(model_assembly, dropped_level_of_a_nested_regression_keeps_covariable_zero) {
  const std::string data = "a,x,y\n1,1,3\n1,2,5\n2,3,7\n2,4,9\n3,5,2\n3,7,4\n";
  const prepared_case c = prepare(toml("[trait.y]\nformula = \"1 + x + a:x\"\n[covariable.x]\n"), data);
  ASSERT_TRUE(c.p.complete) << c.messages();
  const zeph::trait_record& t = c.p.model.MODEL(1);
  EXPECT_EQ(c.p.model.NLEV(1, 2), 2);
  EXPECT_EQ(c.p.rows.integers[static_cast<std::size_t>(t.REG_N_RCI(2) - 1)], (rows_i{1, 1, 2, 2, 1, 1}));
  EXPECT_EQ(c.p.rows.reals[static_cast<std::size_t>(t.REG_RCI(2) - 1)],
            (std::vector<float>{1, 2, 3, 4, 0, 0}));
  EXPECT_EQ(c.p.model.nfreg, 3);
  EXPECT_TRUE(c.says("a:x:[3] is dropped")) << c.messages();
}

TEST(model_assembly, equations_of_factors_without_pedigree_come_before_those_with_one) {
  const prepared_case c =
      prepare(toml(ANIMAL + "[factor.mother]\n[trait.bw]\nformula = \"1 + (1 | animal | id) + "
                            "(1 | mother | dam)\"\n"));
  ASSERT_TRUE(c.p.complete) << c.messages();
  const zeph::model_records& m = c.p.model; // bw in records 1, 2, 4, 5: dams 2 and 5
  EXPECT_EQ(m.NRALEV(1), 9);
  EXPECT_EQ(m.NRALEV(2), 2);
  EXPECT_EQ(m.NBEGRA(2), 1);
  EXPECT_EQ(m.NBEGRA(1), 3);
  EXPECT_EQ(m.NBEGRA(3), 12);
  EXPECT_EQ(m.RMAT(2).CV_STRUCT, "I           ");
  EXPECT_EQ(c.p.factors[1].identification, (std::vector<std::string>{"2", "5"}));
  EXPECT_EQ(c.p.factors[1].n_records, (std::vector<std::int64_t>{2, 2}));
}

TEST(model_assembly, direct_and_maternal_rows_are_in_the_users_order_and_their_meeting_is_reported) {
  const prepared_case c =
      prepare(toml("[factor.genetic]\npedigree = \"p.csv\"\norder = [\"bw.dam\", \"bw.id\"]\n"
                   "[trait.bw]\nformula = \"1 + (1 | genetic | id) + (1 | genetic | dam)\"\n",
                   "sampler = \"classic\"\n"));
  ASSERT_TRUE(c.p.complete) << c.messages();
  const zeph::structure_record& g = c.p.model.RMAT(1);
  EXPECT_EQ(g.n_rc, 2);
  EXPECT_EQ(g.n_cont, 2);
  EXPECT_EQ(g.n_t, 2);
  EXPECT_EQ(g.CONT_POS(1), 1);
  EXPECT_EQ(g.CONT_POS(2), 2);
  EXPECT_EQ(g.CONT_RC(1), 1);
  EXPECT_EQ(g.T_NO(2), 2);
  EXPECT_EQ(g.TRAIT_NO(2), 1);
  EXPECT_EQ(g.T_NAME(1), "bw.dam  ");
  EXPECT_EQ(c.p.rows.integers[static_cast<std::size_t>(g.CONT_EFF_RCI(1) - 1)], (rows_i{2, 2, 5, 5}));
  EXPECT_EQ(c.p.rows.integers[static_cast<std::size_t>(g.CONT_EFF_RCI(2) - 1)], (rows_i{4, 5, 7, 8}));
  EXPECT_TRUE(c.says("two levels of genetic meet in 4 records")) << c.messages();
  EXPECT_TRUE(c.says("[run] sampler = \"exact\" draws each given the newest values of the others"))
      << c.messages();
  // animal 5: its own record, and dam of two others
  EXPECT_EQ(c.p.factors[0].n_records[4], 3);
}

// The same four records under each analysis. Sampled matrices are wrong in such a model of a classic chain; a
// chain with given matrices has wrong spreads; a solver still ends at the solutions, if it ends.
TEST(model_assembly, levels_that_meet_are_warned_of_by_what_they_do_to_the_analysis) {
  const auto prepared = [](const std::string& analysis) {
    return prepare(toml("[factor.genetic]\npedigree = \"p.csv\"\norder = [\"bw.dam\", \"bw.id\"]\n"
                        "[trait.bw]\nformula = \"1 + (1 | genetic | id) + (1 | genetic | dam)\"\n",
                        "analysis = \"" + analysis + "\"\n"));
  };
  const auto classic = [&](const std::string& analysis) {
    return prepared(analysis + "\"\nsampler = \"classic");
  };
  for (const char* analysis : {"gibbs", "models"}) {
    const prepared_case c = classic(analysis);
    EXPECT_TRUE(
        c.says("two levels of genetic meet in 4 records: the chain draws each given the other's value of "
               "the round before,\n    and the (co)variances of this model are wrong, in made data by two to "
               "three posterior standard deviations"))
        << c.messages();
  }
  for (const char* analysis : {"gibbs", "predict", "solve", "sums"}) {
    EXPECT_FALSE(prepared(std::string(analysis) + "\"\nsampler = \"exact").says("meet in")) << analysis;
    EXPECT_FALSE(prepared(analysis).says("meet in")) << analysis;
  }
  for (const char* analysis : {"solve", "sums", "predict"})
    EXPECT_FALSE(classic(analysis).says("(co)variances of this model are wrong")) << analysis;
  EXPECT_TRUE(classic("predict").says("and the standard deviations of the solutions are wrong"));
  EXPECT_TRUE(
      classic("solve").says("the solver takes each with the other's last value\n    and may diverge"));
}

TEST(model_assembly, two_columns_after_the_bar_put_two_levels_into_one_row) {
  const std::string data = "id,m1,m2,y\n4,5,6,1\n5,4,6,2\n6,4,NA,4\n";
  const prepared_case c =
      prepare(toml("[factor.social]\n[trait.y]\nformula = \"1 + (1 | social | m1 + m2)\"\n"), data);
  ASSERT_TRUE(c.p.complete) << c.messages();
  const zeph::structure_record& g = c.p.model.RMAT(1);
  EXPECT_EQ(g.n_rc, 1);
  EXPECT_EQ(g.n_cont, 2);
  EXPECT_EQ(g.CONT_POS(2), 1);
  EXPECT_EQ(c.p.factors[0].identification, (std::vector<std::string>{"4", "5", "6"}));
  EXPECT_EQ(c.p.rows.integers[static_cast<std::size_t>(g.CONT_EFF_RCI(2) - 1)], (rows_i{3, 3, 0}));
  EXPECT_TRUE(c.says("no level of social in 1 record: the effect is left out there")) << c.messages();
  EXPECT_EQ(c.p.largest_row, 3);
}

// leg(x, 1) on -1..1: rows sqrt(1/2) and sqrt(3/2) x. The covariable is among the trait's regressions as
// well.
TEST(model_assembly, random_regression_is_a_contribution_and_a_regression_of_kind_two) {
  const std::string data = "cow,x,y\n1,10,3\n1,20,5\n2,15,7\n2,20,1\n";
  const prepared_case c =
      prepare(toml("[factor.pe]\n[trait.y]\nformula = \"1 + (leg(x, 1) | pe | cow)\"\n"), data);
  ASSERT_TRUE(c.p.complete) << c.messages();
  const zeph::model_records& m = c.p.model;
  EXPECT_EQ(m.MODEL(1).n_reg, 1);
  EXPECT_EQ(m.MODEL(1).REG_TYPE(1), 2);
  EXPECT_EQ(m.MODEL(1).REG_R_MATNO(1), 1);
  EXPECT_EQ(m.nfreg, 0);
  EXPECT_EQ(m.nregt, 1);
  const zeph::structure_record& g = m.RMAT(1);
  EXPECT_EQ(g.n_cont, 2);
  EXPECT_EQ(g.carried.n_reff, 1);
  EXPECT_EQ(g.INTERCEPT(1), 1);
  EXPECT_EQ(g.CONT_RR_EFF(1), 0);
  EXPECT_DOUBLE_EQ(g.CONT_COEFF(1), std::sqrt(0.5));
  EXPECT_EQ(g.CONT_RR_EFF(2), 1);
  EXPECT_EQ(g.CONT_RR_RCI(2), m.MODEL(1).REG_RCI(1));
  const std::vector<float>& x = c.p.rows.reals[static_cast<std::size_t>(g.CONT_RR_RCI(2) - 1)];
  EXPECT_EQ(x, (std::vector<float>{static_cast<float>(-std::sqrt(1.5)), static_cast<float>(std::sqrt(1.5)),
                                   0.0F, static_cast<float>(std::sqrt(1.5))}));
  EXPECT_EQ(c.p.largest_row, 4); // mean, the regression, two contributions
}

TEST(model_assembly, residual_groups_have_numbers_codes_and_matrices_of_their_own) {
  const std::string data = "g,a,y\n25,1,3\n7,1,5\n7,2,7\n25,2,1\nNA,1,2\n";
  const prepared_case c = prepare(
      toml("[trait.y]\nformula = \"a\"\n", "", "start = 4.0\ngroups = \"g\"\nstart_by_group = { 25 = 8.0 }"),
      data);
  ASSERT_TRUE(c.p.complete) << c.messages();
  const zeph::structure_record& r = c.p.model.residual();
  EXPECT_EQ(r.CV_STRUCT, "GROUP       ");
  EXPECT_EQ(r.n_hetgr, 2);
  EXPECT_EQ(r.HETGR_CODE(1), 7);
  EXPECT_EQ(r.HETGR_CODE(2), 25);
  EXPECT_EQ(r.HETG_N_OBS(2), 2);
  EXPECT_EQ(r.HETGR_COV_MAT(1, 1, 1), 4.0);
  EXPECT_EQ(r.HETGR_COV_MAT(2, 1, 1), 8.0);
  EXPECT_DOUBLE_EQ(r.HETGR_RIIF(2, 1, 1, 1), 0.125);
  EXPECT_EQ(r.carried.HETGR_NAME, "g       ");
  EXPECT_EQ(c.p.rows.integers[static_cast<std::size_t>(r.HETGR_RCI - 1)], (rows_i{2, 1, 1, 2}));
  EXPECT_TRUE(c.says("1 of 5 records have no residual group (g is missing) and are dropped")) << c.messages();
}

TEST(model_assembly, group_that_the_data_do_not_have_is_refused) {
  const std::string data = "g,y\n1,3\n2,5\n2,7\n";
  const prepared_case c =
      prepare(toml("[trait.y]\nformula = \"1\"\n", "", "groups = \"g\"\nstart_by_group = { 9 = 8.0 }"), data);
  EXPECT_TRUE(c.says("no record is in residual group \"9\"; the groups are: 1, 2")) << c.messages();
}

TEST(model_assembly, residual_pairs_held_at_zero_are_in_both_tables) {
  const prepared_case c = prepare(
      toml("[trait.bw]\nformula = \"1\"\n[trait.ww]\nformula = \"1\"\n", "", "zero = [[\"ww\", \"bw\"]]"));
  ASSERT_TRUE(c.p.complete) << c.messages();
  EXPECT_EQ(c.p.model.n_norcov, 1);
  EXPECT_EQ(c.p.model.NORCOV(1, 1), 2);
  EXPECT_EQ(c.p.model.NORCOV(1, 2), 1);
  EXPECT_EQ(c.p.model.residual().carried.L_RCOV_ZERO(1, 2), 1);
  EXPECT_EQ(c.p.model.residual().carried.L_RCOV_ZERO(2, 1), 1);
}

// y = 1, 3, 5, 7: variance 20/3. Half to the residual, a quarter to each of two factors; of the one with a
// slope on x = 1, 1, 3, 3 (mean square 5) half of it to each row, the slope's divided by 5.
TEST(model_assembly, default_start_values_share_the_phenotypic_variance) {
  const std::string data = "a,b,x,y\n1,1,1,1\n2,1,1,3\n1,2,3,5\n2,2,3,7\n";
  const prepared_case c = prepare(
      toml("[factor.a]\n[factor.b]\n[covariable.x]\n[trait.y]\nformula = \"1 + (1 | a) + (1 + x | b)\"\n"),
      data);
  ASSERT_TRUE(c.p.complete) << c.messages();
  const double variance = 20.0 / 3.0;
  EXPECT_DOUBLE_EQ(c.p.model.residual().COV_MAT(1, 1), variance / 2);
  EXPECT_DOUBLE_EQ(c.p.model.RMAT(1).COV_MAT(1, 1), variance / 4);
  EXPECT_DOUBLE_EQ(c.p.model.RMAT(2).COV_MAT(1, 1), variance / 8);
  EXPECT_DOUBLE_EQ(c.p.model.RMAT(2).COV_MAT(2, 2), variance / 40);
  EXPECT_EQ(c.p.model.RMAT(2).COV_MAT(2, 1), 0.0);
  EXPECT_TRUE(c.says("have no start: the defaults below are used")) << c.messages();
}

TEST(model_assembly, weight_of_zero_makes_the_trait_missing_and_one_below_zero_is_refused) {
  const std::string data = "w,y\n1,3\n0,5\n2.5,7\n";
  const std::string text = toml("[trait.y]\nformula = \"1\"\nweight = \"w\"\n");
  const prepared_case c = prepare(text, data);
  ASSERT_TRUE(c.p.complete) << c.messages();
  EXPECT_EQ(c.p.model.nobs(), 2);
  EXPECT_EQ(c.p.model.MODEL(1).WGT_FLAG, 1);
  EXPECT_EQ(c.p.rows.reals[static_cast<std::size_t>(c.p.model.MODEL(1).WGT_RCI - 1)],
            (std::vector<float>{1.0F, 2.5F}));
  const prepared_case bad = prepare(text, "w,y\n1,3\n-1,5\n");
  EXPECT_TRUE(bad.says("d.csv:3: error: weight -1 in column w is below zero")) << bad.messages();
  EXPECT_FALSE(bad.p.complete);
}

TEST(model_assembly, phantom_groups_are_the_last_levels_and_mark_the_factor) {
  const std::string ped = "animal,sire,dam\n1,G1,G2\n2,G1,G2\n3,1,2\n";
  const prepared_case c(toml("[factor.animal]\npedigree = { file = \"p.csv\", groups = [\"G1\", \"G2\"] }\n"
                             "[trait.y]\nformula = \"1 + (1 | animal)\"\n"),
                        {{"d.csv", "animal,y\n1,3\n2,5\n3,7\n"}, {"p.csv", ped}});
  ASSERT_TRUE(c.p.complete) << c.messages();
  const zeph::structure_record& g = c.p.model.RMAT(1);
  EXPECT_EQ(g.r36 % 10, 6);
  EXPECT_EQ(g.n_phg, 2);
  EXPECT_EQ(c.p.model.NRALEV(1), 5);
  EXPECT_EQ(g.carried.PHG_LIST(2, 1), 4);
  EXPECT_EQ(g.carried.PHG_LIST(1, 2), -2);
  EXPECT_EQ(c.p.factors[0].code, (rows_i{1, 2, 3, -1, -2}));
  EXPECT_FALSE(g.r216);
}

TEST(model_assembly, kept_samples_are_all_listed_or_none) {
  const std::string model = ANIMAL + "[trait.bw]\nformula = \"1 + herd + (1 | animal | id)\"\n";
  EXPECT_EQ(prepare(toml(model)).p.model.n_sol_cv, 0);
  const prepared_case all = prepare(toml(model + "[keep]\nsolutions = true\nresiduals = true\n"));
  EXPECT_EQ(all.p.model.n_sol_cv, -1);
  EXPECT_TRUE(all.p.model.l_sol_samples);
  EXPECT_TRUE(all.p.model.keeps_residuals());
  const prepared_case some = prepare(toml(model + "[keep]\nsolutions = [\"bw.herd\"]\n"));
  ASSERT_EQ(some.p.model.n_sol_cv, 2) << some.messages();
  EXPECT_EQ(some.p.model.SOL_CV_EQ_NO(1), 1);
  EXPECT_EQ(some.p.model.SOL_CV_EQ_NO(2), 2);
  EXPECT_FALSE(some.p.model.keeps_residuals());
}

TEST(model_assembly, restrictions_ask_for_the_full_coding) {
  const std::string data = "a,b,y\n1,1,3\n1,2,5\n2,1,7\n2,2,9\n";
  const std::string model = "[trait.y]\nformula = \"1 + a + b\"\n";
  const prepared_case reduced = prepare(toml(model), data);
  EXPECT_EQ(reduced.p.model.nfeq, 3);
  const prepared_case full = prepare(toml(model, "restrict = true\n"), data);
  ASSERT_TRUE(full.p.complete) << full.messages();
  EXPECT_EQ(full.p.model.nfeq, 4);
  EXPECT_EQ(full.p.directives.back(), "1");
}

TEST(model_assembly, text_levels_take_running_codes_and_integers_pass_through) {
  const std::string data = "a,b,y\nx,70,3\nz,30,5\nx,30,7\nz,70,9\nz,70,1\n";
  const prepared_case c =
      prepare(toml("[trait.y]\nformula = \"0 + a\"\n[factor.b]\n[trait.z]\ncolumn = \"y\"\n"
                   "formula = \"1 + (1 | b)\"\n"),
              data);
  ASSERT_TRUE(c.p.complete) << c.messages();
  EXPECT_EQ(c.p.fixed[0].classes[0].code, (rows_i{1, 2}));
  EXPECT_EQ(c.p.fixed[0].classes[0].identification, (std::vector<std::string>{"x", "z"}));
  EXPECT_EQ(c.p.factors[0].code, (rows_i{30, 70}));
}

TEST(model_assembly, centred_covariable_has_mean_zero_over_the_records_in_use) {
  const std::string data = "x,y\n1,3\n3,5\n100,NA\n5,7\n";
  const prepared_case c =
      prepare(toml("[trait.y]\nformula = \"1 + x\"\n[covariable.x]\ncenter = true\n"), data);
  ASSERT_TRUE(c.p.complete) << c.messages();
  EXPECT_EQ(c.p.rows.reals[1], (std::vector<float>{-2.0F, 0.0F, 2.0F}));
}

TEST(model_assembly, value_outside_of_its_range_is_refused_with_its_line) {
  const prepared_case c =
      prepare(toml("[trait.y]\nformula = \"1 + leg(x, 1)\"\n[covariable.x]\nrange = [5, 305]\n"),
              "x,y\n5,3\n306,5\n4,7\n");
  EXPECT_TRUE(c.says("d.csv:3: error: x = 306 is outside its range 5 to 305")) << c.messages();
  EXPECT_TRUE(c.says("d.csv:4: error: x = 4 is outside")) << c.messages();
}

TEST(model_assembly, animal_that_the_pedigree_does_not_have_is_refused) {
  const prepared_case c =
      prepare(toml(ANIMAL + "[trait.y]\nformula = \"1 + (1 | animal)\"\n"), "animal,y\n4,3\nK7,5\n");
  EXPECT_FALSE(c.p.complete);
  EXPECT_TRUE(c.says("K7")) << c.messages();
}

TEST(model_assembly, level_that_a_given_matrix_does_not_have_is_refused) {
  const prepared_case c(toml("[factor.g]\ninverse = \"g.txt\"\n[trait.y]\nformula = \"1 + (1 | g | id)\"\n"),
                        {{"d.csv", "id,y\na,3\nb,5\nc,7\n"}, {"g.txt", "a a 1\nb b 1\na b 0.5\n"}});
  EXPECT_TRUE(c.says("d.csv:4: error: id \"c\" is not among the levels of g.txt")) << c.messages();
}

TEST(model_assembly, given_matrices_have_structures_of_their_kind) {
  const std::string matrix = "a a 2\nb b 2\na b 1\n";
  const std::map<std::string, std::string> kinds = {{"inverse", "GREL        "},
                                                    {"relationship", "GREL        "},
                                                    {"correlation", "COR         "},
                                                    {"dominance", "DOM         "}};
  for (const auto& [kind, structure] : kinds) {
    const prepared_case c(
        toml("[factor.g]\n" + kind + " = \"g.txt\"\n[trait.y]\nformula = \"1 + (1 | g | id)\"\n"),
        {{"d.csv", "id,y\na,3\nb,5\na,7\n"}, {"g.txt", matrix}});
    ASSERT_TRUE(c.p.complete) << kind << c.messages();
    EXPECT_EQ(c.p.model.RMAT(1).CV_STRUCT, structure);
    ASSERT_EQ(c.p.factors[0].inverse.size(), 3U);
    // the inverse of [[2,1],[1,2]] is [[2,-1],[-1,2]]/3
    EXPECT_NEAR(c.p.factors[0].inverse[1].v, kind == "inverse" ? 1.0 : -1.0 / 3.0, 1e-14);
  }
}

TEST(model_assembly, class_with_a_fraction_is_refused_until_it_is_said_what_it_is) {
  const prepared_case c = prepare(toml("[trait.y]\nformula = \"1 + x\"\n"), "x,y\n1,3\n2.5,5\n");
  EXPECT_TRUE(c.says("d.csv:3: error: \"2.5\" in column x")) << c.messages();
  EXPECT_TRUE(c.says("[covariable.x]")) << c.messages();
}

TEST(model_assembly, unknown_column_is_refused_with_the_columns_there_are) {
  const prepared_case c = prepare(toml("[trait.y]\nformula = \"1 + agee\"\n"), "x,y\n1,3\n2,5\n");
  EXPECT_TRUE(c.says("no column \"agee\"; the columns are: x, y\n    named in ")) << c.messages();
  EXPECT_TRUE(c.says("model.toml:")) << c.messages();
}

TEST(model_assembly, unreadable_files_are_reported_with_the_line_that_names_them) {
  const std::string model =
      toml("[factor.g]\nrelationship = \"g.txt\"\n[trait.y]\nformula = \"1 + (1 | g | id)\"\n");
  const prepared_case no_matrix = prepare(model, "id,y\na,3\nb,5\n");
  EXPECT_TRUE(no_matrix.says("g.txt: error: the file can't be read: there is no such file\n    named in "))
      << no_matrix.messages();
}

// The liability of a binary trait has residual variance 1: nothing of the residual is left to a default.
TEST(model_assembly, no_default_is_reported_where_the_kinds_hold_the_residual) {
  const std::string data = "y\n0\n1\n0\n1\n1\n";
  const std::string run = "analysis = \"predict\"\n";
  const prepared_case held = prepare(toml("[trait.y]\nformula = \"1\"\nkind = \"binary\"\n", run), data);
  EXPECT_FALSE(held.says("no start")) << held.messages();
  const prepared_case cure =
      prepare(toml("[trait.ill]\nkind = \"sequence\"\nformula = \"1\"\nsubject = \"cow\"\nposition = \"at\"\n"
                   "[trait.can]\nkind = \"cured\"\nof = \"ill\"\nformula = \"1\"\n",
                   run),
              "cow,at,ill\na,1,0\na,2,1\nb,1,0\nb,2,0\n");
  ASSERT_TRUE(cure.p.complete) << cure.messages();
  EXPECT_FALSE(cure.says("no start")) << cure.messages();
  const prepared_case open = prepare(toml("[trait.y]\nformula = \"1\"\n", run), data);
  EXPECT_TRUE(open.says("and [residual] has no start: the defaults below are used")) << open.messages();
}

TEST(model_assembly, large_mean_beside_a_small_deviation_is_warned_of) {
  const prepared_case c = prepare(toml("[trait.y]\nformula = \"1\"\n"), "y\n1000000\n1000001\n1000002\n");
  ASSERT_TRUE(c.p.complete);
  EXPECT_TRUE(c.says("mean of y is 1000001 times its standard deviation")) << c.messages();
}

TEST(model_assembly, large_mean_of_a_covariable_is_warned_of_once_wherever_it_is) {
  const std::string day = "[covariable.day]\n", records = "sex,id,day,y\nM,a,24590,3\nM,b,24592,5\n"
                                                          "F,a,24591,4\nF,b,24593,6\nF,c,24594,9\n";
  for (const char* formula :
       {"1 + sex + day", "1 + sex + sex:day", "1 + sex + (day | id)", "1 + day + (day | id)"}) {
    const prepared_case c =
        prepare(toml(day + "[factor.id]\n[trait.y]\nformula = \"" + formula + "\"\n"), records);
    const std::string text = c.messages(), words = "times its standard deviation";
    const std::size_t first = text.find(words);
    ASSERT_NE(first, std::string::npos) << formula << '\n' << text;
    EXPECT_EQ(text.find(words, first + 1), std::string::npos) << formula << '\n' << text;
  }
  const prepared_case centred =
      prepare(toml(day + "center = true\n[trait.y]\nformula = \"1 + sex + sex:day\"\n"), records);
  EXPECT_FALSE(centred.says("times its standard deviation")) << centred.messages();
}

TEST(model_assembly, levels_all_of_one_record_and_flat_priors_of_few_levels_are_warned_of) {
  const prepared_case c =
      prepare(toml("[factor.b]\n[trait.y]\nformula = \"1 + (1 | b)\"\n", "analysis = \"gibbs\"\n"),
              "b,y\n1,3\n2,5\n3,4\n");
  EXPECT_TRUE(c.says("b and the residual cannot be distinguished")) << c.messages();
  EXPECT_TRUE(c.says("b has 3 levels and a flat prior: its variances have no finite mean")) << c.messages();
}

TEST(model_assembly, factors_whose_levels_always_go_together_are_warned_of) {
  const std::string model = "[factor.b]\n[factor.c]\n[trait.y]\nformula = \"1 + (1 | b) + (1 | c)\"\n";
  const prepared_case twins = prepare(toml(model), "b,c,y\n1,x,3\n1,x,5\n2,z,4\n2,z,6\n");
  EXPECT_TRUE(twins.says("b and c cannot be distinguished")) << twins.messages();
  const prepared_case apart = prepare(toml(model), "b,c,y\n1,x,3\n1,z,5\n2,z,4\n2,z,6\n");
  EXPECT_FALSE(apart.says("cannot be distinguished")) << apart.messages();
}

TEST(model_assembly, file_without_records_and_trait_without_observations_are_refused) {
  const std::string model = toml(ANIMAL + "[trait.y]\nformula = \"1 + sex + (1 | animal)\"\n");
  const prepared_case none = prepare(model, "animal,sex,y\n");
  EXPECT_FALSE(none.p.complete);
  EXPECT_TRUE(none.says("error")) << none.messages();
  const prepared_case missing = prepare(model, "animal,sex,y\n4,M,NA\n5,F,\n");
  EXPECT_FALSE(missing.p.complete);
  EXPECT_TRUE(missing.says("no record of trait y can be used")) << missing.messages();
}

TEST(model_assembly, model_without_fixed_part_has_no_fixed_equations) {
  const prepared_case c = prepare(toml(ANIMAL + "[trait.bw]\nformula = \"0 + (1 | animal | id)\"\n"));
  ASSERT_TRUE(c.p.complete) << c.messages();
  EXPECT_EQ(c.p.model.mnef, 0);
  EXPECT_EQ(c.p.model.nfeq, 0);
  EXPECT_EQ(c.p.model.NBEGRA(1), 0);
  EXPECT_EQ(c.p.largest_row, 1);
}

TEST(model_assembly, pruning_leaves_out_animals_without_connection_to_data) {
  const std::string model = toml(ANIMAL + "[trait.y]\nformula = \"1 + (1 | animal)\"\n");
  const std::map<std::string, std::string> files = {{"d.csv", "animal,y\n4,3\n4,5\n"}, {"p.csv", PEDIGREE}};
  const prepared_case whole(model, files), few(model, files, true);
  EXPECT_EQ(whole.p.model.NRALEV(1), 9);
  EXPECT_EQ(few.p.model.NRALEV(1), 3); // 4 and its parents 3 and 2
  EXPECT_EQ(few.p.factors[0].identification, (std::vector<std::string>{"2", "3", "4"}));
  EXPECT_EQ(few.p.rows.integers[0], (rows_i{3, 3}));
}

} // namespace
