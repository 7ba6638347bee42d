#include "input/equation_layout.h"

#include "input_frame.h"
#include "support/model_builder.h"

#include <gtest/gtest.h>
#include <limits>

namespace {

using namespace zeph_test;

// Two traits, two plain regressions, one nested regression, three class effects
// of which one has no equations, one factor of order 2 with 4 levels:
//   1 2 plain | 3-5 nested | 6-8, 9-11 class effects | 12-19 factor
described_model two_traits() {
  described_model d;
  d.traits.resize(2);
  d.traits[0].regressions = {{3}, {4, 1, 1}};
  d.traits[0].effects = {{1, 3}};
  d.traits[1].regressions = {{3}};
  d.traits[1].effects = {{1, 3}, {3, 2, false}};
  d.factors = {{"I", 4, 2, {{1, 2, 1}, {2, 2, 2}}}};
  d.integers = 6;
  d.reals = 4;
  return d;
}

// A model of one trait and factors of these structures, each with 3 levels of
// order 2; 5 equations come before them.
model_records factors(const std::vector<std::string>& structures) {
  described_model d;
  d.traits.resize(1);
  d.traits[0].effects = {{1, 5}};
  for (const std::string& name : structures) d.factors.push_back({name, 3, 2, {{1, 2, 1}}});
  return build_model(d);
}

struct formed {
  explicit formed(const described_model& d, std::int32_t test_level = 0) : m(build_model(d)) {
    count_equations(m, layout, frame.report);
    SETGROUPS(m, layout, frame.report, test_level);
  }
  input_frame frame;
  model_records m;
  equation_layout layout;
};

TEST(count_equations, adds_plain_and_pedigree_structures_by_name) {
  input_frame frame;
  equation_layout layout;
  count_equations(factors({"I", "SNP", "DOM", "COR", "GREL", "PED", "PGMIX"}), layout, frame.report);
  EXPECT_EQ(layout.n_plain, 5 * 6); // order 2 x 3 levels each
  EXPECT_EQ(layout.n_ped, 2 * 6);
  EXPECT_EQ(layout.nbegr, 5);
  EXPECT_EQ(layout.nbega, 5 + 30);
  EXPECT_EQ(layout.neq, 5 + 30 + 12);
  EXPECT_EQ(layout.neq_r, 42);
}

TEST(count_equations, adds_group_equations_for_solvers_20_to_22_only) {
  for (const std::int32_t solver : {19, 20, 22, 23}) {
    input_frame frame;
    equation_layout layout;
    model_records m = factors({"PED"});
    m.solver_code = solver;
    m.RMAT(1).n_phg = 1;
    count_equations(m, layout, frame.report);
    EXPECT_EQ(layout.n_ped, solver == 20 || solver == 22 ? 8 : 6) << solver;
  }
}

TEST(count_equations, adds_no_group_equations_without_groups_or_against_the_flag) {
  input_frame frame;
  equation_layout layout;
  model_records m = factors({"PED", "PGMIX"});
  m.solver_code = 21;
  m.RMAT(2).n_phg = 1;
  m.RMAT(2).r216 = true;
  count_equations(m, layout, frame.report);
  EXPECT_EQ(layout.n_ped, 12);
}

TEST(count_equations, leaves_absorbed_qtl_out_of_the_system) {
  input_frame frame;
  equation_layout layout;
  model_records m = factors({"PED", "ABS_QTL"});
  m.RMAT(2).QTL_FACTOR = 1;
  count_equations(m, layout, frame.report);
  EXPECT_EQ(layout.n_qtl, 6);
  EXPECT_EQ(layout.neq, 5 + 6);
}

TEST(count_equations, refuses_a_qtl_factor_that_does_not_exist) {
  input_frame frame;
  equation_layout layout;
  const model_records m = factors({"ABS_QTL"}); // QTL_FACTOR 0
  EXPECT_EQ(frame.exit_code([&] { count_equations(m, layout, frame.report); }), 16);
  EXPECT_TRUE(frame.says("ERROR - Illegal input in MODINF: QTL_FACTOR(1) = 0, legal: 1..1"));
}

TEST(count_equations, stops_with_code_2_at_an_unknown_structure) {
  input_frame frame;
  equation_layout layout;
  const model_records m = factors({"I", "PEDIGREE"});
  EXPECT_EQ(frame.exit_code([&] { count_equations(m, layout, frame.report); }), 2);
  EXPECT_EQ(frame.listing(), "\nERROR - Unknown type of variance structure: PEDIGREE    \n\n"
                             "Computations terminates \n");
}

TEST(count_equations, equals_nfeq_without_factors) {
  input_frame frame;
  equation_layout layout;
  count_equations(factors({}), layout, frame.report);
  EXPECT_EQ(layout.neq, 5);
  EXPECT_EQ(layout.neq_r, 0);
}

TEST(count_equations, refuses_more_equations_than_32_bits_count) {
  input_frame frame;
  equation_layout layout;
  model_records m = factors({"I"});
  m.NRALEV(1) = std::numeric_limits<std::int32_t>::max() / 2 - 1; // 2 x that + 5 = 2147483649
  EXPECT_EQ(frame.exit_code([&] { count_equations(m, layout, frame.report); }), 16);
  EXPECT_TRUE(frame.says("ERROR - Illegal input in MODINF: nbega = 2147483649, legal: 0..2147483647"));
}

TEST(number_fixed_equations, runs_over_traits_inside_effects) {
  described_model d;
  d.traits.resize(2);
  d.traits[0].effects = {{1, 3}, {2, 2}};
  d.traits[1].effects = {{1, 2}, {2, 4}};
  input_frame frame;
  equation_layout layout;
  model_records m = build_model(d);
  m.nfreg = 1;
  number_fixed_equations(m, layout, frame.report);
  EXPECT_EQ(layout.max_n_f, 2);
  EXPECT_EQ(layout.IFEQNO(1, 1), 2);
  EXPECT_EQ(layout.IFEQNO(2, 1), 2 + 3);
  EXPECT_EQ(layout.IFEQNO(1, 2), 5 + 2);
  EXPECT_EQ(layout.IFEQNO(2, 2), 7 + 2);
}

TEST(SETGROUPS, forms_groups_in_order_with_base_and_stride) {
  formed f(two_traits());
  ASSERT_EQ(f.layout.ngroups, 5);
  EXPECT_EQ(f.layout.n_reg0, 2); // one plain regression of each trait: one group
  EXPECT_EQ(f.layout.n_reg1, 1);
  const std::int64_t expected[5][4] = {{0, 2, 1, 2}, {2, 1, 3, 1}, {5, 1, 3, 1}, {8, 1, 3, 1}, {11, 2, 4, 2}};
  for (int g = 1; g <= 5; ++g) {
    EXPECT_EQ(f.layout.group(g).base, expected[g - 1][0]) << g;
    EXPECT_EQ(f.layout.group(g).stride, expected[g - 1][1]) << g;
    EXPECT_EQ(f.layout.NGR(g, 1), expected[g - 1][2]) << g;
    EXPECT_EQ(f.layout.NGR(g, 2), expected[g - 1][3]) << g;
  }
  EXPECT_EQ(f.layout.group(2).kind, group_kind::nested_regression);
  EXPECT_EQ(f.layout.group(2).number, 2);
  EXPECT_EQ(f.layout.group(4).trait, 2);
  EXPECT_EQ(f.layout.group_of_factor(1, 1), 5);
}

TEST(SETGROUPS, allocates_a_packed_block_for_each_level) {
  formed f(two_traits());
  for (const auto* blocks : {&f.layout.DI, &f.layout.CDI}) {
    ASSERT_EQ(blocks->size(), 5U);
    const std::int64_t packed[5] = {3, 1, 1, 1, 3}; // e(e+1)/2
    for (int g = 1; g <= 5; ++g) {
      EXPECT_EQ((*blocks)[static_cast<std::size_t>(g - 1)].extent(2), f.layout.NGR(g, 1));
      EXPECT_EQ((*blocks)[static_cast<std::size_t>(g - 1)].extent(1), packed[g - 1]);
    }
  }
}

TEST(SETGROUPS, gives_a_nested_regression_group_1_without_plain_ones) {
  described_model d;
  d.traits.resize(1);
  d.traits[0].effects = {{1, 4, false}};
  d.traits[0].regressions = {{2, 1, 1}, {3, 2}}; // one nested, one random
  formed f(d);
  ASSERT_EQ(f.layout.ngroups, 1); // neither the effect without equations nor the random regression
  EXPECT_EQ(f.layout.group(1).kind, group_kind::nested_regression);
  EXPECT_EQ(f.layout.NGR(1, 1), 4);
}

TEST(SETGROUPS, takes_a_factors_base_from_the_model_whatever_the_order) {
  described_model d;
  d.traits.resize(1);
  d.factors = {{"I", 3, 1, {{1, 1, 1}}}, {"I", 2, 2, {{1, 2, 1}}}};
  input_frame frame;
  equation_layout layout;
  model_records m = build_model(d);
  m.NBEGRA(1) = 4; // the second factor comes first
  m.NBEGRA(2) = 0;
  count_equations(m, layout, frame.report);
  SETGROUPS(m, layout, frame.report, 0);
  EXPECT_EQ(layout.group(1).base, 4);
  EXPECT_EQ(layout.group(2).base, 0);
  EXPECT_EQ(layout.group(2).stride, 2);
}

TEST(SETGROUPS, prints_the_layout) {
  formed f(two_traits());
  // columns: label right-justified to 60, integer 11; trait 10-14, values of 6 from 18
  EXPECT_EQ(f.frame.listing(), "\n"
                               "       Number of \"fixed\" regressions in model ..............          5\n"
                               "         Total no of equations in system ...................         19\n"
                               "         Total no of random equations ......................          8\n"
                               "\n"
                               "       First Equation Number for \"Fixed\" Effects            \n"
                               "\n"
                               "             1        6\n"
                               "\n"
                               "             2        9     1\n"
                               "\n"
                               "         First Equation Number for Regressions Effects      \n"
                               "\n"
                               "             1        1     3\n"
                               "\n"
                               "             2        2\n"
                               "\n"
                               "         Real input number for covariables                  \n"
                               "\n"
                               "             1        3     4\n"
                               "\n"
                               "             2        3\n"
                               "\n"
                               "         No of groups defined ..............................          5\n"
                               "\n"
                               "                               Group   Levels  Equations    \n"
                               "                                  1         1         2\n"
                               "                                  2         3         1\n"
                               "                                  3         3         1\n"
                               "                                  4         3         1\n"
                               "                                  5         4         2\n"
                               "\n");
}

TEST(SETGROUPS, prints_levels_and_nesting_above_test_level_1) {
  const std::string more = "                      No of levels for each \"fixed\" effect\n"
                           "\n"
                           "             1        3\n"
                           "\n"
                           "             2        3     2\n"
                           "                                      Nesting of regressions\n"
                           "\n"
                           "             1        0     1\n"
                           "\n"
                           "             2        0\n"
                           "\n";
  EXPECT_TRUE(formed(two_traits(), 2).frame.says(more));
  EXPECT_FALSE(formed(two_traits(), 1).frame.says("Nesting of regressions"));
}

TEST(SETGROUPS, leaves_out_the_regression_tables_without_regressions) {
  described_model d;
  d.traits.resize(1);
  d.traits[0].effects = {{1, 2}};
  formed f(d);
  EXPECT_FALSE(f.frame.says("Regressions Effects"));
  EXPECT_FALSE(f.frame.says("covariables"));
}

TEST(SETGROUPS, breaks_a_table_row_after_36_values) {
  described_model d;
  d.traits.resize(2);
  d.traits[0].effects.assign(37, {1, 1});
  d.traits[1].effects.assign(36, {1, 1});
  formed f(d);
  // effect outer, trait inner: trait 1 has equations 1, 3, 5, .., 71, and 73 as its 37th
  const std::string text = f.frame.listing();
  EXPECT_NE(text.find("    69    71\n" + std::string(17, ' ') + "    73\n\n             2        2"),
            std::string::npos);
  EXPECT_NE(text.find("    70    72\n\n         No of groups"), std::string::npos); // no empty row
}

TEST(SETGROUPS, stops_at_each_failed_allocation_under_its_name) {
  described_model d;
  d.traits.resize(1);
  d.traits[0].effects = {{1, 2}};
  const auto names = walk_of_allocations([&](input_frame& frame) {
    const model_records m = build_model(d);
    equation_layout layout;
    count_equations(m, layout, frame.report);
    number_fixed_equations(m, layout, frame.report);
    SETGROUPS(m, layout, frame.report, 0);
  });
  const std::vector<std::string> expected = {
      "IFEQNO in QVAgib_ALLOC", "NGR in SETGROUPS", "groups in SETGROUPS", "DI in SETGROUPS",
      "DI.AG in SETGROUPS",     "CDI in SETGROUPS", "CDI.AG in SETGROUPS"};
  EXPECT_EQ(names, expected);
}

} // namespace
