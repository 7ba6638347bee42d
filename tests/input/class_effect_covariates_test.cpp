#include "input/class_effect_covariates.h"

#include "input/data_loading.h"
#include "input_frame.h"
#include "support/chain_frame.h"
#include "support/model_builder.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace {

using namespace zeph_test;
using namespace zeph;

// Trait 1: herd (4 levels, integers 1), a second effect without equations, a
// random litter (row 2 of factor 1, integers 3). Trait 2: a plain regression on
// x3, one on x4 and one on x5 nested in herd.
described_model description() {
  described_model d;
  d.traits.resize(2);
  d.traits[0].regressions = {{3}};
  d.traits[0].effects = {{1, 4}, {2, 2, false}};
  d.traits[1].regressions = {{3}, {4}, {5, 1, 1}};
  d.traits[1].effects = {{1, 4}};
  d.factors = {{"I", 3, 2, {{2, 3, 1}, {1, 3, 2}}}};
  d.integers = 6;
  d.reals = 5;
  d.records = 3;
  return d;
}

struct covariate_case : input_frame {
  explicit covariate_case(const described_model& d = description()) : m(build_model(d)) {
    trait_record& t = m.MODEL(1);
    t.n_r = 1;
    t.n_ef = 3;
    for (vec<std::int32_t>* x : {&t.r_ef_inp, &t.r_ef_rci, &t.r_ef_matno}) x->take(1);
    fill_vec(t.EF_INP, {11, 12, 13});
    fill_vec(t.f_ef_inp, {11, 12});
    t.r_ef_inp(1) = 13;
    t.r_ef_rci(1) = 3;
    t.r_ef_matno(1) = 1;
    m.MODEL(1).REG_INP(1) = 30; // trait 2 has 3, 4 and 5
    heard_run quiet;
    count_equations(m, layout, quiet.report);
    SETGROUPS(m, layout, quiet.report, 0);
  }
  void ask(std::vector<fetocv_entry> list, std::int32_t stdef = 0) {
    f.asked.FETOCV = std::move(list);
    f.asked.nfeto = static_cast<std::int32_t>(f.asked.FETOCV.size());
    f.asked.stdef = stdef;
  }
  int find() {
    return exit_code([&] { FETOCV(m, layout, f.asked, "DIR", design, report); });
  }
  const class_effect_source& source(std::size_t i = 0) const { return design.covariates.FETOCVRC.at(i); }

  model_records m;
  equation_layout layout;
  design_store design;
  zeph_test::chain_frame f;
};

std::string echo(const std::string& label, const std::vector<int>& values) {
  std::string line = std::string(60 - label.size(), ' ') + label;
  for (const int x : values) {
    const std::string number = std::to_string(x);
    line += std::string(11 - number.size(), ' ') + number;
  }
  return line + "\n";
}

TEST(FETOCV, reports_the_list_on_the_listing) {
  covariate_case c;
  c.ask({{1, 1, 2, {4, 5}, {0, 30}}, {1, 3, 1, {3}, {0}}}, 1);
  ASSERT_EQ(c.find(), 0) << c.listing();
  EXPECT_EQ(c.listing(), "\n" + echo("  Variables in relation to Class-effect solutions  ", {}) +
                             echo("  used as covariates                               ", {}) + "\n" +
                             echo("  Trait no. .......................................", {1}) +
                             echo("  Effect no. in model .............................", {1}) +
                             echo("  No.of covariates ................................", {2}) +
                             echo("  Covariates ......................................", {4, 5}) +
                             echo("  Associated-Cov ..................................", {0, 30}) + "\n" +
                             echo("  Trait no. .......................................", {1}) +
                             echo("  Effect no. in model .............................", {3}) +
                             echo("  No.of covariates ................................", {1}) +
                             echo("  Covariates ......................................", {3}) +
                             echo("  Associated-Cov ..................................", {0}) + "\n" +
                             echo("  Standardize option ..............................", {1}));
}

TEST(FETOCV, finds_a_fixed_effect_its_equations_and_the_regressions_it_feeds) {
  covariate_case c;
  c.ask({{1, 1, 2, {4, 5}, {0, 30}}});
  ASSERT_EQ(c.find(), 0) << c.listing();
  const class_effect_source& x = c.source();
  EXPECT_EQ(x.ef_type, source_kind::fixed_effect);
  EXPECT_EQ(x.ef_no_w, 1);
  EXPECT_EQ(x.ef_rci, 1);
  EXPECT_EQ(x.levels, 4);
  EXPECT_EQ(x.first, c.m.NBEGF(1, 1) + 1);
  EXPECT_EQ(x.step, 1);
  ASSERT_EQ(x.regressions.size(), 2U);
  EXPECT_EQ(x.regressions[0].trait, 2);
  EXPECT_EQ(x.regressions[0].regression, 2);
  EXPECT_EQ(x.regressions[0].base_rci, 4); // its own covariable
  EXPECT_EQ(x.regressions[0].first, c.m.NBEGREG(2, 2) + 1);
  EXPECT_EQ(x.regressions[0].last, x.regressions[0].first);
  EXPECT_EQ(x.regressions[1].base_rci, 3); // the associated one: REG_RCI of the regression with number 30
  EXPECT_EQ(x.regressions[1].last, x.regressions[1].first + 3);
  for (std::int32_t g = 1; g <= c.layout.ngroups; ++g) {
    const equation_group& group = c.layout.group(g);
    const bool herd = group.kind == group_kind::fixed_effect && group.trait == 1;
    EXPECT_EQ(c.design.covariates.feeds(g), herd) << g;
  }
}

TEST(FETOCV, finds_the_row_of_the_trait_in_a_random_effect) {
  covariate_case c;
  c.ask({{1, 3, 1, {4}, {0}}});
  ASSERT_EQ(c.find(), 0) << c.listing();
  EXPECT_EQ(c.source().ef_type, source_kind::random_effect);
  EXPECT_EQ(c.source().ef_rci, 3);
  EXPECT_EQ(c.source().levels, 3);
  EXPECT_EQ(c.source().first, c.m.NBEGRA(1) + 2);
  EXPECT_EQ(c.source().step, 2);
  EXPECT_EQ(c.source().group, c.layout.ngroups);
}

TEST(FETOCV, lets_the_random_effect_go_before_a_fixed_one_of_the_same_number) {
  covariate_case c;
  c.m.MODEL(1).r_ef_inp(1) = 11;
  c.ask({{1, 1, 1, {4}, {0}}});
  ASSERT_EQ(c.find(), 0);
  EXPECT_EQ(c.source().ef_type, source_kind::random_effect);
}

TEST(FETOCV, turns_the_regressions_of_all_traits_with_the_covariable) {
  covariate_case c;
  c.m.MODEL(1).REG_INP(1) = 3;
  c.ask({{1, 1, 1, {3}, {0}}});
  ASSERT_EQ(c.find(), 0);
  ASSERT_EQ(c.source().regressions.size(), 2U);
  EXPECT_EQ(c.source().regressions[0].trait, 1);
  EXPECT_EQ(c.source().regressions[1].trait, 2);
}

// 9 is the covariable of no regression; 4 is that of the second one of trait 2.
TEST(FETOCV, turns_nothing_for_a_covariable_that_no_regression_has) {
  covariate_case c;
  c.ask({{1, 1, 2, {9, 4}, {0, 0}}, {1, 1, 1, {9}, {0}}});
  ASSERT_EQ(c.find(), 0) << c.listing();
  ASSERT_EQ(c.source(0).regressions.size(), 1U);
  EXPECT_EQ(c.source(0).regressions[0].regression, 2);
  EXPECT_TRUE(c.source(1).regressions.empty());
}

// Both pairs turn the regression on x4: first with base x4, then with base x3.
TEST(FETOCV, lets_the_last_pair_of_a_covariable_count) {
  covariate_case c;
  c.ask({{1, 1, 2, {4, 4}, {0, 3}}});
  ASSERT_EQ(c.find(), 0) << c.listing();
  relationship_store relations;
  zeph_test::write_integer_records(c.path("RCDATA_I"),
                                   std::vector<std::vector<std::int32_t>>(3, {2, 0, 1, 3, 3, 1}));
  zeph_test::write_real_records(c.path("RCDATA_R"), std::vector<std::vector<float>>(3, {1, 2, 7, 11, 13}));
  ASSERT_EQ(READTOMEM(c.m, c.layout, c.design, relations, c.report), 0) << c.listing();
  vec<double> sol;
  sol.take(c.layout.neq);
  for (int l = 0; l < 4; ++l)
    sol(c.source().first + l) = std::vector<double>{1, 2, 4, 5}[static_cast<std::size_t>(l)];
  refresh_covariates(sol, c.design);
  const std::int32_t e = c.source().entry(1, 1);
  ASSERT_GT(e, 0);
  EXPECT_EQ(c.design.ZD_M(e, 1), 7.0 * (2.0 - 3.0)); // x3 times the solution of level 2 less the mean
}

struct bad_list {
  fetocv_entry entry;
  std::string item, value, rule;
};

TEST(FETOCV, refuses_what_it_cannot_find) {
  const bad_list cases[] = {
      {{0, 1, 1, {4}, {0}}, "FETOCV%trait(1)", "0", "1..2"},
      {{3, 1, 1, {4}, {0}}, "FETOCV%trait(1)", "3", "1..2"},
      {{1, 1, -1, {}, {}}, "FETOCV%ncv(1)", "-1", ">= 0"},
      {{1, 0, 1, {4}, {0}}, "FETOCV%effect(1)", "0", "1..3"},
      {{1, 4, 1, {4}, {0}}, "FETOCV%effect(1)", "4", "1..3"},
      {{1, 2, 1, {4}, {0}}, "FETOCV%effect(1)", "2", "an effect that has equations"},
      {{1, 1, 2, {4, 5}, {0, 9}},
       "FETOCV%ACVNO(1,2)",
       "9",
       "the number of a covariable of a regression, or 0"},
  };
  for (const bad_list& bad : cases) {
    covariate_case c;
    c.ask({bad.entry});
    EXPECT_EQ(c.find(), 16);
    EXPECT_TRUE(c.says(illegal_input_text("DIR", bad.item, bad.value, bad.rule))) << c.listing();
  }
}

// The number of the effect names neither a "fixed" nor a random class effect.
TEST(FETOCV, refuses_a_regression_as_source) {
  covariate_case c;
  c.m.MODEL(1).EF_INP(2) = 30;
  c.ask({{1, 2, 1, {4}, {0}}});
  EXPECT_EQ(c.find(), 16);
  EXPECT_TRUE(c.says(
      illegal_input_text("DIR", "FETOCV%effect(1)", "2", "a class effect of the trait, no regression")))
      << c.listing();
}

TEST(FETOCV, refuses_a_random_effect_without_contribution) {
  for (const std::int32_t factor : {0, 1}) {
    covariate_case c;
    c.m.MODEL(1).r_ef_matno(1) = factor;
    c.m.MODEL(1).r_ef_rci(1) = 2; // no contribution has its level there
    c.ask({{1, 3, 1, {4}, {0}}});
    EXPECT_EQ(c.find(), 16);
    EXPECT_TRUE(c.says("legal: a random effect that contributes to a factor")) << c.listing();
  }
}

TEST(FETOCV, refuses_mixture_regressions) {
  covariate_case c;
  c.m.MODEL(2).REG_MIXTURE(2) = 1;
  c.ask({{1, 1, 1, {4}, {0}}});
  EXPECT_EQ(c.find(), 16);
  EXPECT_TRUE(c.says("legal: no covariable of a mixture regression")) << c.listing();
}

TEST(FETOCV, prints_its_tables_above_test_level_1) {
  covariate_case c;
  c.f.asked.test_level = 2;
  c.ask({{1, 1, 1, {4}, {30}}});
  ASSERT_EQ(c.find(), 0);
  const auto I = [](int x) {
    const std::string t = std::to_string(x);
    return " " + std::string(11 - t.size(), ' ') + t;
  };
  const std::string tables =
      "        fetocvrc(i)%trait, feno, trait_no, ef_type, ef_no_w, ncv" + I(1) + I(1) + I(1) + I(1) + I(1) +
      I(1) + "\n        cv_no, arn-cv_no" + I(4) + I(30) + "\n        fetocv(:)%fe_m=" + I(3) +
      "\n        regrncv_rci(:)=" + I(4) + "\n        regrnacv_rci(:)=" + I(3) +
      "\n        regrnfe_rci(:)=" + I(1) + "\n        regrntrait_no(:)=" + I(2) +
      "\n        regrn_m(:)=" + I(2) + "\n        regrnacv_m(:)=" + I(30) + "\n        regrnfe_m(:)=" + I(1) +
      "\n        regrnfeno_m(:)=" + I(1) +
      "\n        regrn, trait_no reg_no reg_type ef_rci ef_no_w group_no neq\n" + I(1) + I(2) + I(2) + I(0) +
      I(1) + I(1) + I(1) + I(3) + "\n        group  ef_type reg_rn no-PED_regrn\n" + I(1) + I(0) + I(0) +
      I(1) + "\n" + I(2) + I(0) + I(0) + I(0) + "\n" + I(3) + I(1) + I(1) + I(0) + "\n";
  EXPECT_TRUE(c.says(tables)) << c.listing() << tables;
}

TEST(FETOCV, reports_each_store_that_it_cannot_have) {
  const std::vector<std::string> names = walk_of_allocations([](input_frame& frame) {
    covariate_case c;
    c.ask({{1, 1, 1, {4}, {0}}});
    FETOCV(c.m, c.layout, c.f.asked, "DIR", c.design, frame.report);
  });
  EXPECT_EQ(names, (std::vector<std::string>{"FETOCVRC in FETOCV", "REGRM in FETOCV", "gfetocv in FETOCV",
                                             "HCSOL in FETOCV", "regrnfe_m in FETOCV", "regrn_m in FETOCV",
                                             "regrnacv_m in FETOCV"}));
}

// Three records: levels 2, 0 and 4 of herd; trait 2 is missing in the third.
struct loaded_case : covariate_case {
  std::vector<std::vector<std::int32_t>> integers = {
      {2, 1, 3, 3, 3, 1}, {0, 2, 0, 3, 3, 2}, {4, 1, 1, 2, 2, 3}};
  std::vector<std::vector<float>> reals = {
      {1.0F, 2.0F, 0.5F, 1.5F, 2.0F}, {1.0F, 2.0F, 0.25F, 3.0F, 1.0F}, {1.0F, 2.0F, 0.5F, 1.5F, 2.0F}};
  relationship_store relations;
  vec<double> sol;

  int load() {
    write_integer_records(path("RCDATA_I"), integers);
    write_real_records(path("RCDATA_R"), reals);
    if (const int code = find(); code != 0) return code;
    return exit_code([&] { EXPECT_EQ(READTOMEM(m, layout, design, relations, report), 0) << listing(); });
  }
  void refresh(std::initializer_list<double> solutions) {
    sol.take(layout.neq);
    std::int64_t l = 0;
    for (const double s : solutions) sol(source().first + source().step * l++) = s;
    refresh_covariates(sol, design);
  }
  // Coefficient of the entry of trait 2 at an equation.
  double z(std::int32_t r, std::int32_t equation) const {
    for (std::int32_t e = 1; e <= design.M_M(r); ++e)
      if (design.XD1_M(e, r) == equation) return design.ZD_M(e, r);
    return -99.0;
  }
};

// The nested regression needs a level, so herd 0 takes its place only where it
// isn't nested.
struct plain_loaded_case : loaded_case {
  plain_loaded_case() { m.MODEL(2).REG_N_RCI(3) = 4; } // nested in another class
};

TEST(keep_covariates, keeps_level_entry_and_base_of_each_record) {
  plain_loaded_case c;
  c.ask({{1, 1, 1, {4}, {0}}});
  ASSERT_EQ(c.load(), 0) << c.listing();
  const class_effect_source& x = c.source();
  EXPECT_EQ(x.FE_LEV(1), 2);
  EXPECT_EQ(x.FE_LEV(2), 0);
  EXPECT_EQ(x.base(1, 1), 1.5F);
  EXPECT_EQ(x.base(1, 2), 3.0F);
  EXPECT_GT(x.entry(1, 1), 0);
  EXPECT_EQ(x.entry(1, 3), 0); // trait 2 is missing
  EXPECT_EQ(x.FE_LEV(3), 4);   // kept all the same
}

TEST(keep_covariates, refuses_a_level_beyond_the_effect) {
  plain_loaded_case c;
  c.integers[2][0] = 5;
  c.integers[2][3] = 0; // no trait present: nothing else reads the level
  c.ask({{1, 1, 1, {4}, {0}}});
  EXPECT_EQ(c.load(), 16);
  EXPECT_TRUE(c.says(illegal_input_text("RCDATA_I", "level of covariable source(3,1,1)", "5", "at most 4")))
      << c.listing();
}

TEST(keep_covariates, refuses_a_base_that_is_no_number) {
  plain_loaded_case c;
  c.integers[1][3] = 1; // trait 1, whose covariable it is, is missing
  c.reals[1][2] = std::numeric_limits<float>::quiet_NaN();
  c.m.MODEL(2).REG_RCI(1) = 5;
  c.ask({{1, 1, 1, {4}, {30}}});
  EXPECT_EQ(c.load(), 16);
  EXPECT_TRUE(c.says("associated covariable(2,2,2) = NaN, legal: a finite number")) << c.listing();
}

// Mean of 1, 2, 4, 9 is 4, the sum of squared deviations 9 + 4 + 0 + 25 = 38.
TEST(refresh_covariates, takes_centred_solutions_times_the_base) {
  plain_loaded_case c;
  c.ask({{1, 1, 1, {4}, {0}}});
  ASSERT_EQ(c.load(), 0);
  const std::int32_t e = c.source().regressions[0].first;
  EXPECT_EQ(c.z(1, e), 1.5); // as loaded
  c.refresh({1, 2, 4, 9});
  EXPECT_DOUBLE_EQ(c.z(1, e), 1.5 * (2 - 4));
  EXPECT_EQ(c.z(2, e), 0.0); // no level
  EXPECT_DOUBLE_EQ(c.source().mef, 4.0);
  EXPECT_DOUBLE_EQ(c.sol(c.source().first), 1.0); // not centred itself
  c.refresh({5, 5, 5, 9});                        // from the base again, not from the last coefficient
  EXPECT_DOUBLE_EQ(c.z(1, e), 1.5 * (5 - 6));
}

TEST(refresh_covariates, divides_by_the_standard_deviation_when_asked) {
  plain_loaded_case c;
  c.ask({{1, 1, 1, {4}, {0}}}, 1);
  ASSERT_EQ(c.load(), 0);
  c.refresh({1, 2, 4, 9});
  EXPECT_DOUBLE_EQ(c.z(1, c.source().regressions[0].first), 1.5 * (2 - 4) / std::sqrt(38.0 / 3));
}

TEST(refresh_covariates, takes_the_associated_covariable_as_base) {
  plain_loaded_case c;
  c.ask({{1, 1, 1, {4}, {30}}});
  ASSERT_EQ(c.load(), 0);
  c.refresh({1, 2, 4, 9});
  EXPECT_DOUBLE_EQ(c.z(1, c.source().regressions[0].first), 0.5 * (2 - 4));
}

TEST(refresh_covariates, reads_the_row_of_the_trait_of_a_random_source) {
  plain_loaded_case c;
  c.ask({{1, 3, 1, {4}, {0}}});
  ASSERT_EQ(c.load(), 0);
  c.refresh({3, -1, 1}); // mean 1
  const std::int32_t e = c.source().regressions[0].first;
  EXPECT_DOUBLE_EQ(c.z(1, e), 1.5 * (1 - 1)); // litter 3
  c.refresh({3, -1, 4});                      // mean 2
  EXPECT_DOUBLE_EQ(c.z(1, e), 1.5 * (4 - 2));
}

TEST(refresh_covariates, lifts_a_standard_deviation_of_0_to_its_least) {
  plain_loaded_case c;
  c.ask({{1, 1, 1, {4}, {0}}}, 1);
  ASSERT_EQ(c.load(), 0);
  c.refresh({2, 2, 2, 2});
  EXPECT_EQ(c.source().sd, 9.999999682655225e-21);
  EXPECT_EQ(c.z(1, c.source().regressions[0].first), 0.0);
}

TEST(refresh_covariates, lets_the_later_of_two_sources_count) {
  plain_loaded_case c;
  c.ask({{1, 3, 1, {4}, {0}}, {1, 1, 1, {4}, {0}}});
  ASSERT_EQ(c.load(), 0);
  c.sol.take(c.layout.neq);
  const class_effect_source& herd = c.source(1);
  for (std::int32_t l = 1; l <= 4; ++l) c.sol(herd.first + l - 1) = l; // mean 2.5
  refresh_covariates(c.sol, c.design);
  EXPECT_DOUBLE_EQ(c.z(1, herd.regressions[0].first), 1.5 * (2 - 2.5));
}

TEST(is_turned, knows_the_equations_of_turned_regressions) {
  covariate_case c;
  c.ask({{1, 1, 1, {5}, {0}}});
  ASSERT_EQ(c.find(), 0);
  const std::int32_t first = c.m.NBEGREG(2, 3) + 1;
  EXPECT_FALSE(is_turned(c.design.covariates, first - 1));
  EXPECT_TRUE(is_turned(c.design.covariates, first));
  EXPECT_TRUE(is_turned(c.design.covariates, first + 3));
  EXPECT_FALSE(is_turned(c.design.covariates, first + 4));
}

} // namespace
