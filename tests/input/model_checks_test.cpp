#include "input/equation_layout.h"
#include "input/model_information.h"
#include "support/check.h"
#include "support/skip_reasons.h"
#include "support/small_modinf.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <limits>
#include <string>

namespace {

using namespace zeph;
using namespace zeph_test;

constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();
constexpr double infinite = std::numeric_limits<double>::infinity();

equation_layout fifteen_equations() {
  equation_layout layout;
  layout.neq = 15; // 1 plain, 3 nested, 3 of the class effect, 2 x 4 of the factor
  return layout;
}

// One thing of the small model damaged: the text of the stop, code 16.
template <class Damage>
void expect_refused(const std::string& item, const std::string& value, const std::string& rule,
                    Damage&& damage) {
  heard_run run;
  model_records m = small_model(run.report, {true, true, true});
  damage(m);
  const equation_layout layout = fifteen_equations();
  EXPECT_EQ(expect_stop(exit_diagnosed, run, [&](reporting& r) { check_model_indices(m, layout, r); }),
            illegal_input_text("MODINF", item, value, rule));
}

template <class Change> void expect_accepted(Change&& change) {
  heard_run run;
  model_records m = small_model(run.report, {true, true, true});
  change(m);
  check_model_indices(m, fifteen_equations(), run.report);
  EXPECT_EQ(run.text(), "");
}

// The small model with a second trait like the first one, without effects.
model_records two_traits(reporting& report) {
  model_records m;
  const small_model_form form{false, false, false};
  fill_header_sizes(m, form);
  m.nt = 2;
  m.MODEL_rows.resize(2);
  m.RMAT_rows.resize(1);
  for (trait_record& t : m.MODEL_rows) t.TRAIT_TYPE = trait_gaussian;
  m.residual().n_rc = 2;
  m.residual().n_t = 2;
  m.n_norcov = 1;
  m.n_sol_cv = 0;
  allocate_modinf(m, report);
  m.MODEL(1).Y_RCI = 2;
  m.MODEL(2).Y_RCI = 3;
  fill(m.NORCOV, {1, 0, 0, 2, 0, 0});
  return m;
}

template <class Damage>
void expect_two_traits_refused(const std::string& item, const std::string& value, const std::string& rule,
                               Damage&& damage) {
  heard_run run;
  model_records m = two_traits(run.report);
  damage(m);
  EXPECT_EQ(expect_stop(exit_diagnosed, run, [&](reporting& r) { check_model_indices(m, {}, r); }),
            illegal_input_text("MODINF", item, value, rule));
}

using M = model_records;

TEST(check_model_indices, passes_sound_models) {
  expect_accepted([](M&) {});
  heard_run run;
  check_model_indices(two_traits(run.report), {}, run.report);
  EXPECT_EQ(run.text(), "");
}

// the equations of the prepared directories, counted by hand from the structures
TEST(check_model_indices, passes_the_prepared_directories) {
  const std::string directories = shared_folder("data/workdirs");
  if (directories.empty()) GTEST_SKIP() << no_shared;
  for (const auto& entry : std::filesystem::directory_iterator(directories)) {
    if (!entry.is_directory()) continue;
    heard_run run(entry.path().string() + "/");
    model_records m;
    ASSERT_EQ(QVAMRD(m, run.report), 0) << entry.path();
    equation_layout layout;
    layout.neq = m.nfeq;
    for (std::int32_t k = 1; k <= m.nramat; ++k) layout.neq += m.RMAT(k).n_rc * m.NRALEV(k);
    try {
      check_model_indices(m, layout, run.report);
    } catch (const run_stop&) {
      ADD_FAILURE() << entry.path();
    }
    EXPECT_EQ(run.text(), "") << entry.path();
  }
}

TEST(check_model_indices, wants_observations_side_by_side_in_the_reals) {
  expect_refused("MODEL%Y_RCI(1)", "0", "1..4", [](M& m) { m.MODEL(1).Y_RCI = 0; });
  expect_refused("MODEL%Y_RCI(1)", "5", "1..4", [](M& m) { m.MODEL(1).Y_RCI = 5; });
  expect_two_traits_refused("MODEL%Y_RCI(2)", "4", "3 (observations stand side by side)",
                            [](M& m) { m.MODEL(2).Y_RCI = 4; });
  expect_two_traits_refused("MODEL%Y_RCI(2)", "5", "1..4", [](M& m) {
    m.MODEL(1).Y_RCI = 4;
    m.MODEL(2).Y_RCI = 5;
  });
}

TEST(check_model_indices, wants_places_in_the_reals_where_they_are_used) {
  expect_refused("MODEL%WGT_RCI(1)", "5", "1..4", [](M& m) { m.MODEL(1).WGT_RCI = 5; });
  expect_accepted([](M& m) { m.MODEL(1).WGT_RCI = 5, m.MODEL(1).WGT_FLAG = 0; });
  expect_refused("MODEL%REG_RCI(1,1)", "0", "1..4", [](M& m) { m.MODEL(1).REG_RCI(1) = 0; });
  expect_refused("MODEL%REG_RCI(1,2)", "9", "1..4", [](M& m) { m.MODEL(1).REG_RCI(2) = 9; });
  expect_refused("RMAT%CONT_RR_RCI(1,2)", "5", "1..4", [](M& m) { m.RMAT(1).CONT_RR_RCI(2) = 5; });
  // only a record with an interval needs it
  expect_accepted([](M& m) { m.MODEL(1).TRAIT_TYPE = trait_censored, m.MODEL(1).UPPER_RCI = 0; });
}

TEST(check_model_indices, wants_places_in_the_integers_where_they_are_used) {
  expect_refused("MODEL%f_ef_rci(1,1)", "7", "1..6", [](M& m) { m.MODEL(1).f_ef_rci(1) = 7; });
  expect_accepted([](M& m) { m.MODEL(1).f_ef_rci(1) = 7, m.MODEL(1).INTERCEPT(1) = 0; });
  expect_refused("MODEL%REG_N_RCI(1,2)", "0", "1..6", [](M& m) { m.MODEL(1).REG_N_RCI(2) = 0; });
  expect_refused("RMAT%CONT_EFF_RCI(1,3)", "7", "1..6", [](M& m) { m.RMAT(1).CONT_EFF_RCI(3) = 7; });
  expect_refused("RMAT%HETGR_RCI(2)", "0", "1..6", [](M& m) { m.residual().HETGR_RCI = 0; });
  expect_accepted([](M& m) { m.residual().HETGR_RCI = 0, m.residual().CV_STRUCT = "I"; });
  expect_refused("RMAT%R_EFF_RCI(1,1)", "7", "1..6", [](M& m) { m.RMAT(1).R_EFF_RCI(1) = 7; });
  expect_accepted([](M& m) { m.RMAT(1).R_EFF_RCI(1) = 7, m.L_TD = false; });
  expect_refused("MODEL%SEQ_RCI(1)", "1812", "1..6", [](M& m) { m.MODEL(1).TRAIT_TYPE = trait_sequence; });
  expect_refused("MODEL%CENS_RCI(1)", "7", "1..6", [](M& m) {
    m.MODEL(1).TRAIT_TYPE = trait_censored;
    m.MODEL(1).CENS_RCI = 7;
  });
}

TEST(check_model_indices, wants_a_nesting_effect_of_the_model) {
  expect_refused("MODEL%REG_N_EF_INP(1,2)", "2", "1", [](M& m) { m.MODEL(1).REG_N_EF_INP(2) = 2; });
  expect_refused("MODEL%REG_N_EF_INP(1,2)", "0", "1", [](M& m) { m.MODEL(1).REG_N_EF_INP(2) = 0; });
}

TEST(check_model_indices, wants_contributions_within_the_level) {
  expect_refused("RMAT%CONT_T_NO(1,1)", "0", "1", [](M& m) { m.RMAT(1).CONT_T_NO(1) = 0; });
  expect_refused("RMAT%CONT_T_NO(1,3)", "2", "1", [](M& m) { m.RMAT(1).CONT_T_NO(3) = 2; });
  expect_refused("RMAT%CONT_POS(1,1)", "0", "1..2", [](M& m) { m.RMAT(1).CONT_POS(1) = 0; });
  expect_refused("RMAT%CONT_RC(1,1)", "0", "1..2", [](M& m) { m.RMAT(1).CONT_RC(1) = 0; });
  expect_refused("RMAT%CONT_RC(1,2)", "2", "1", [](M& m) { m.RMAT(1).CONT_RC(2) = 2; }); // 2 + 2 - 1 > 2
  expect_accepted([](M& m) { m.RMAT(1).CONT_RC(1) = 2; });
  expect_accepted([](M& m) { m.RMAT(1).CONT_RC(3) = 4000; }); // CONT_LC: a level
  expect_refused("RMAT%CONT_COEFF(1,2)", "NaN", "a finite number",
                 [](M& m) { m.RMAT(1).CONT_COEFF(2) = not_a_number; });
}

TEST(check_model_indices, wants_factors_that_exist) {
  expect_refused("MODEL%r_ef_matno(1,1)", "2", "0..1", [](M& m) { m.MODEL(1).r_ef_matno(1) = 2; });
  expect_refused("MODEL%REG_R_MATNO(1,2)", "-1", "0..1", [](M& m) { m.MODEL(1).REG_R_MATNO(2) = -1; });
  expect_refused("RMAT%QTL_FACTOR(1)", "37", "1", [](M& m) { m.RMAT(1).CV_STRUCT = "ABS_QTL"; });
  expect_accepted([](M& m) { m.RMAT(1).CV_STRUCT = "ABS_QTL", m.RMAT(1).QTL_FACTOR = 1; });
}

TEST(check_model_indices, wants_traits_and_rows_of_structures_that_exist) {
  expect_refused("RMAT%TRAIT_NO(1,2)", "2", "1", [](M& m) { m.RMAT(1).TRAIT_NO(2) = 2; });
  expect_refused("RMAT%TRAIT_NO(1,2)", "0", "1", [](M& m) { m.RMAT(1).TRAIT_NO(2) = 0; }); // sol_layout 1
  expect_accepted([](M& m) { m.RMAT(1).TRAIT_NO(2) = 0, m.sol_layout = 2; });
  expect_accepted([](M& m) { m.residual().TRAIT_NO(1) = 0; });
  expect_refused("RMAT%T_NO(1,1)", "3", "0..2", [](M& m) { m.RMAT(1).T_NO(1) = 3; });
  expect_refused("RMAT%T_NO(2,1)", "-1", "0..1", [](M& m) { m.residual().T_NO(1) = -1; });
}

TEST(check_model_indices, wants_the_deviations_on_a_factor_with_levels) {
  expect_refused("TD_FACTOR", "2", "1", [](M& m) { m.TD_FACTOR = 2; });
  expect_refused("RMAT%n_rid(1)", "0", ">= 1", [](M& m) { m.RMAT(1).n_rid = 0; });
  expect_refused("TD_FACTOR", "0", "1, the factor with pedigree", [](M& m) {
    m.L_PTD = true;
    m.TD_FACTOR = 0;
  });
  expect_accepted([](M& m) { m.L_PTD = true; });
  expect_accepted([](M& m) { m.L_TD = false, m.TD_FACTOR = 0; });
}

TEST(check_model_indices, wants_partners_of_the_latent_traits) {
  expect_refused("MODEL%MIX_EQ_TYPE(1)", "2", "0..1", [](M& m) { m.MODEL(1).MIX_EQ_TYPE = 2; });
  expect_refused("MODEL%link1(1)", "186", "a trait of type 7",
                 [](M& m) { m.MODEL(1).TRAIT_TYPE = trait_cured; });
  expect_refused("MODEL%link1(1)", "1", "a trait of type 7", [](M& m) {
    m.MODEL(1).TRAIT_TYPE = trait_cured;
    m.MODEL(1).link1 = 1;
  });
  expect_refused("MODEL%link2(1)", "185", "0..1", [](M& m) {
    m.MODEL(1).TRAIT_TYPE = trait_sequence;
    m.MODEL(1).SEQ_RCI = 6;
  });
  expect_refused("MODEL%L_CENS(1)", "F", "T for a trait of type 2", [](M& m) {
    m.MODEL(1).TRAIT_TYPE = trait_censored;
    m.MODEL(1).L_CENS = false;
  });
  expect_accepted([](M& m) { m.MODEL(1).TRAIT_TYPE = trait_censored; });
  heard_run run;
  model_records m = two_traits(run.report);
  m.MODEL(1).TRAIT_TYPE = trait_sequence, m.MODEL(1).SEQ_RCI = 3, m.MODEL(1).link2 = 2;
  m.MODEL(2).TRAIT_TYPE = trait_cured, m.MODEL(2).link1 = 1;
  check_model_indices(m, {}, run.report);
  EXPECT_EQ(run.text(), "");
}

TEST(check_model_indices, wants_pairs_of_two_traits_without_covariance) {
  expect_two_traits_refused("NORCOV(1,1)", "0", "1..2", [](M& m) { m.NORCOV(1, 1) = 0; });
  expect_two_traits_refused("NORCOV(1,2)", "3", "1..2", [](M& m) { m.NORCOV(1, 2) = 3; });
  expect_two_traits_refused("NORCOV(1,2)", "1", "another trait", [](M& m) { m.NORCOV(1, 2) = 1; });
}

TEST(check_model_indices, wants_a_residual_group_when_the_residual_has_groups) {
  expect_refused("RMAT%n_hetgr(2)", "0", ">= 1", [](M& m) { m.residual().n_hetgr = 0; });
}

TEST(check_model_indices, wants_kept_equations_that_exist) {
  expect_refused("SOL_CV%EQ_NO(2)", "16", "1..15", [](M& m) { m.SOL_CV_EQ_NO(2) = 16; });
  expect_refused("SOL_CV%EQ_NO(1)", "0", "1..15", [](M& m) { m.SOL_CV_EQ_NO(1) = 0; });
}

TEST(check_model_indices, wants_finite_matrices) {
  expect_refused("RMAT%COV_MAT(1,2,1)", "NaN", "a finite number",
                 [](M& m) { m.RMAT(1).COV_MAT(2, 1) = not_a_number; });
  expect_refused("RMAT%P_COV_MAT(2,1,1)", "Infinity", "a finite number",
                 [](M& m) { m.residual().P_COV_MAT(1, 1) = infinite; });
  expect_refused("RMAT%GIF(1,1,2)", "-Infinity", "a finite number",
                 [](M& m) { m.RMAT(1).GIF(1, 2) = -infinite; });
  expect_refused("RMAT%HETGR_COV_MAT(2,1,1,1)", "NaN", "a finite number",
                 [](M& m) { m.residual().HETGR_COV_MAT(1, 1, 1) = not_a_number; });
  expect_refused("RMAT%HETGR_RIIF(2,2,1,1,1)", "NaN", "a finite number",
                 [](M& m) { m.residual().HETGR_RIIF(2, 1, 1, 1) = not_a_number; });
}

TEST(check_model_indices, wants_plain_regressions_first_and_each_once) {
  expect_refused("NBEGREG(1,1)", "1", "0, each once", [](M& m) { m.NBEGREG(1, 1) = 1; });
  expect_refused("NBEGREG(1,1)", "-1", "0, each once", [](M& m) { m.NBEGREG(1, 1) = -1; });
  expect_refused("NBEGREG(1,2)", "0", "0..1, each once", [](M& m) {
    m.MODEL(1).REG_TYPE(2) = 0;
    m.NBEGREG(1, 2) = 0;
  });
}

TEST(check_model_indices, wants_the_equations_of_a_group_within_the_system) {
  expect_refused("NBEGREG(1,2)", "13", "3 equations within 1..15", [](M& m) { m.NBEGREG(1, 2) = 13; });
  expect_refused("NBEGF(1,1)", "-1", "3 equations within 1..15", [](M& m) { m.NBEGF(1, 1) = -1; });
  expect_refused("NBEGRA(1)", "8", "8 equations within 1..15", [](M& m) { m.NBEGRA(1) = 8; });
  // n_rc x NRALEV in 64 bits
  expect_refused("NBEGRA(1)", "7", "4294967294 equations within 1..15",
                 [](M& m) { m.NRALEV(1) = INT32_MAX; });
  expect_accepted([](M& m) { m.NRALEV(1) = 0, m.NBEGRA(1) = 99; }); // no levels: nothing is addressed
}

TEST(check_model_indices, wants_groups_that_share_no_equation) {
  expect_refused("NBEGREG(1,2)", "0", "no equation of another group, such as 1",
                 [](M& m) { m.NBEGREG(1, 2) = 0; });
  expect_refused("NBEGF(1,1)", "3", "no equation of another group, such as 4",
                 [](M& m) { m.NBEGF(1, 1) = 3; });
  expect_refused("NBEGRA(1)", "6", "no equation of another group, such as 7", [](M& m) { m.NBEGRA(1) = 6; });
  // groups need not be in the order of their numbers, nor fill the system
  expect_accepted([](M& m) { m.NBEGF(1, 1) = 1, m.NBEGREG(1, 2) = 4; });
  // this structure lies on the levels of another factor
  expect_accepted([](M& m) {
    m.RMAT(1).CV_STRUCT = "ABS_QTL";
    m.RMAT(1).QTL_FACTOR = 1;
    m.NBEGRA(1) = 2;
  });
}

} // namespace
