#include "gibbs/scan/record_pass.h"

#include "gibbs/scan/record_product.h"
#include "gibbs/scan_case.h"
#include "numerics/packed_matrix.h"

#include <cmath>
#include <limits>

namespace {

using namespace zeph_test;

void init(scan_case& c, std::int32_t analysis_type, std::int64_t iround = 1) {
  c.f.asked.analysis_type = analysis_of(analysis_type);
  c.f.state.iround = iround;
  scan_records records = c.records();
  bddrmc_init(records, c.f.asked, c.f.state, scan_stage::all);
}

// RHS and the diagonal blocks are those of the full matrices, inactive rows apart.
void expect_equations(const scan_case& c, const dense_equations& full) {
  for (std::int32_t e = 1; e <= c.layout.neq; ++e)
    EXPECT_NEAR(c.s.RHS(e), full.b(e), 1e-11) << "equation " << e;
  const dense_matrix sum = full.sum();
  for (std::int32_t g = 1; g <= c.layout.ngroups; ++g)
    for (std::int32_t l = 1; l <= c.layout.NGR(g, 1); ++l)
      for (std::int32_t i = 1; i <= c.layout.NGR(g, 2); ++i)
        for (std::int32_t j = 1; j <= i; ++j)
          EXPECT_NEAR(c.layout.DI_of(g)(ihmij(i, j, 0), l), sum(c.equation(g, l, i), c.equation(g, l, j)),
                      1e-11)
              << "group " << g << " level " << l << " element " << i << ' ' << j;
}

TEST(bddrmc_init, agrees_with_full_matrices_in_the_solver_with_missing_traits_weights_and_groups) {
  for (const bool weights : {false, true})
    for (const bool groups : {false, true}) {
      two_trait_case c(25, weights, true, groups);
      init(c, 0);
      expect_equations(c, dense_equations(c, analysis::solve));
    }
}

TEST(bddrmc_init, agrees_with_full_matrices_above_type_0) {
  for (const bool weights : {false, true}) {
    two_trait_case c(25, weights, false, true);
    init(c, 1);
    expect_equations(c, dense_equations(c, analysis::sums));
  }
}

TEST(bddrmc_init, lets_imputed_values_of_missing_traits_act_above_type_0) {
  two_trait_case c(16, false, true, false);
  init(c, 2);
  expect_equations(c, dense_equations(c, analysis::predict)); // full inverse for every record
}

TEST(bddrmc_init, takes_nothing_from_a_missing_trait_in_the_solver_whatever_is_there) {
  two_trait_case c(8, false, true, false), same(8, false, true, false);
  ASSERT_EQ(c.design.ISIT_M(4), 2);
  c.design.Y_M(2, 4) = std::numeric_limits<float>::quiet_NaN();
  c.design.Y_M(1, 8) = std::numeric_limits<float>::infinity();
  init(c, 0);
  init(same, 0);
  for (std::int32_t e = 1; e <= c.layout.neq; ++e) EXPECT_EQ(c.s.RHS(e), same.s.RHS(e));
}

TEST(bddrmc_init, doubles_the_cross_term_of_two_coefficients_in_one_equation) {
  two_trait_case c(1, false, false, false);
  c.design.M_M(1) = 0;
  c.entry(1, 1, 5, 2, 1, 1.0);
  c.entry(1, 1, 5, 2, 1, 0.5);
  c.m.RMAT(1).GIF.fill(0.0);
  c.s.GIF.fill(0.0);
  init(c, 1);
  // one coefficient 1.5: R^-1(1,1) 1.5^2, with R^-1(1,1) = 1 / 1.75
  EXPECT_NEAR(c.layout.DI_of(5)(1, 2), 2.25 / 1.75, 1e-14);
}

TEST(bddrmc_init, adds_off_diagonals_of_a_level_for_two_rows_of_one_record) {
  two_trait_case c(1, false, false, false);
  c.design.M_M(1) = 0;
  c.entry(1, 2, 5, 3, 2, 2.0); // the second row of the block first
  c.entry(1, 1, 5, 3, 1, 1.0);
  c.entry(1, 1, 5, 4, 1, 1.0); // another level: no block holds it with the others
  c.s.GIF.fill(0.0);
  init(c, 1);
  // R^-1 = (1, -0.5; -0.5, 2) / 1.75
  EXPECT_NEAR(c.layout.DI_of(5)(2, 3), 2.0 * -0.5 / 1.75, 1e-14);
  EXPECT_NEAR(c.layout.DI_of(5)(3, 3), 4.0 * 2.0 / 1.75, 1e-14);
  EXPECT_EQ(c.layout.DI_of(5)(2, 4), 0.0);
}

TEST(bddrmc_init, leaves_a_record_without_entries_out) {
  two_trait_case c(3, false, false, false);
  c.design.M_M(2) = 0;
  c.design.C_ISIT_M(2) = 0;
  init(c, 0);
  expect_equations(c, dense_equations(c, analysis::solve));
}

TEST(bddrmc_init, keeps_the_blocks_without_prior_precision_in_a_call_with_round_0_only) {
  two_trait_case c(9, false, false, false);
  init(c, 1, 1);
  for (std::int32_t g = 1; g <= c.layout.ngroups; ++g)
    for (const double element : c.layout.CDI_of(g)) EXPECT_EQ(element, 0.0);
  init(c, 1, 0);
  const dense_equations full(c, analysis::sums);
  for (std::int32_t l = 1; l <= 4; ++l)
    for (std::int32_t i = 1; i <= 2; ++i)
      for (std::int32_t j = 1; j <= i; ++j)
        EXPECT_NEAR(c.layout.CDI_of(5)(ihmij(i, j, 0), l), full.D(c.equation(5, l, i), c.equation(5, l, j)),
                    1e-12);
  expect_equations(c, full); // the blocks in use hold the precision all the same
  const double kept = c.layout.CDI_of(5)(1, 1);
  c.design.M_M(1) = 0;
  init(c, 1, 2);
  EXPECT_EQ(c.layout.CDI_of(5)(1, 1), kept);
}

TEST(bddrmc_init, adds_the_precision_alone_for_identity_and_times_the_diagonal_for_a_pedigree) {
  two_trait_case c(1, false, false, false);
  c.design.M_M(1) = 0;
  init(c, 1);
  // G^-1 = (2, 0.5; 0.5, 1.25), diagonal elements 3, 2.5, 2, 2.25; factor 2: 3
  const double diagonal[4] = {3.0, 2.5, 2.0, 2.25};
  for (std::int32_t l = 1; l <= 4; ++l) {
    EXPECT_EQ(c.layout.DI_of(5)(1, l), 2.0 * diagonal[l - 1]);
    EXPECT_EQ(c.layout.DI_of(5)(2, l), 0.5 * diagonal[l - 1]);
    EXPECT_EQ(c.layout.DI_of(5)(3, l), 1.25 * diagonal[l - 1]);
  }
  for (std::int32_t l = 1; l <= 3; ++l) EXPECT_EQ(c.layout.DI_of(6)(1, l), 3.0);
  for (std::int32_t g = 1; g <= 4; ++g)
    for (const double element : c.layout.DI_of(g)) EXPECT_EQ(element, 0.0);
}

TEST(bddrmc_init, takes_the_active_inverse_not_the_prior_one) {
  two_trait_case c(1, false, false, false);
  c.design.M_M(1) = 0;
  c.s.GIF(1, 1, 2) = 8.0;
  init(c, 1);
  EXPECT_EQ(c.layout.DI_of(6)(1, 2), 8.0);
  EXPECT_EQ(c.m.RMAT(2).GIF(1, 1), 3.0);
}

TEST(bddrmc_init, leaves_rows_beyond_the_current_model_out) {
  two_trait_case c(20, false, false, false);
  c.layout.NGR(5, 2) = 1;
  c.f.state.ntr[0] = 1;
  init(c, 1);
  expect_equations(c, dense_equations(c, analysis::sums));
  for (std::int32_t l = 1; l <= 4; ++l) EXPECT_EQ(c.s.RHS(c.equation(5, l, 2)), 0.0);
}

TEST(bddrmc_init, adds_no_precision_to_a_factor_without_traits_in_the_model) {
  two_trait_case c(20, false, false, false);
  c.layout.NGR(6, 2) = 0;
  c.f.state.ntr[1] = 0;
  init(c, 1);
  expect_equations(c, dense_equations(c, analysis::sums));
  for (const double element : c.layout.DI_of(6)) EXPECT_EQ(element, 0.0);
}

TEST(bddrmc_init, passes_a_factor_without_levels) {
  described_model d;
  d.traits.resize(1);
  d.traits[0].effects = {{1, 1}};
  d.factors = {{"I", 0, 1, {{1, 2, 1}}}, {"I", 2, 1, {{1, 3, 1}}}};
  d.integers = 6, d.reals = 1, d.records = 1;
  scan_case c(d);
  c.start(3);
  c.entry(1, 1, 1, 1, 1, 1.0);
  c.entry(1, 1, 3, 2, 1, 1.0);
  c.design.Y_M(1, 1) = 4.0F;
  init(c, 0);
  EXPECT_EQ(c.layout.DI_of(1)(1, 1), 1.0);
  EXPECT_EQ(c.layout.DI_of(3)(1, 1), 1.0); // precision 1
  EXPECT_EQ(c.layout.DI_of(3)(1, 2), 2.0); // and the record
  EXPECT_EQ(c.s.RHS(3), 4.0);
  EXPECT_EQ(c.layout.DI_of(2).size(), 0);
}

// The right-hand sides of group g less the data part of every equation that
// is in another group or level.
void expect_adjusted(two_trait_case& c, std::int32_t g, std::int32_t analysis_type) {
  init(c, analysis_type, 7);
  number_sequence x(23);
  for (double& value : c.s.sol) value = x.between(-2, 2);
  scan_records records = c.records();
  BDDRMC_GS(records, c.f.asked, c.f.state, scan_stage::all, g);
  const dense_equations full(c, analysis_of(analysis_type));
  for (std::int32_t h = 1; h <= c.layout.ngroups; ++h)
    for (std::int32_t l = 1; l <= c.layout.NGR(h, 1); ++l)
      for (std::int32_t p = 1; p <= c.layout.NGR(h, 2); ++p) {
        const std::int32_t e = c.equation(h, l, p);
        double expected = full.b(e);
        for (std::int32_t other = 1; other <= c.layout.neq && h == g; ++other) {
          const bool same_level =
              other >= c.equation(h, l, 1) && other <= c.equation(h, l, c.layout.NGR(h, 2));
          if (!same_level) expected -= full.D(e, other) * c.s.sol(other);
        }
        EXPECT_NEAR(c.s.RHS(e), expected, 1e-11) << "group " << g << " equation " << e;
      }
}

TEST(BDDRMC_GS, takes_out_what_shares_no_group_and_level_and_leaves_other_groups) {
  for (std::int32_t g = 1; g <= 6; ++g) {
    two_trait_case c(25, true, true, true);
    expect_adjusted(c, g, 0);
  }
}

TEST(BDDRMC_GS, does_so_above_type_0) {
  for (std::int32_t g = 1; g <= 6; ++g) {
    two_trait_case c(25, true, false, true);
    expect_adjusted(c, g, 1);
  }
}

TEST(BDDRMC_GS, passes_rows_beyond_the_current_model_as_both_partners) {
  for (std::int32_t g = 1; g <= 6; ++g) {
    two_trait_case c(25, false, false, false);
    c.layout.NGR(5, 2) = 1;
    c.f.state.ntr[0] = 1;
    expect_adjusted(c, g, 1);
  }
}

TEST(BDDRMC_GS, passes_a_coefficient_with_equation_number_0) {
  two_trait_case c(1, false, false, false), less(1, false, false, false);
  for (two_trait_case* one : {&c, &less}) {
    init(*one, 1, 7);
    one->s.sol.fill(1.0);
  }
  c.design.XD1_M(1, 1) = 0;
  less.design.ZD_M(1, 1) = 0.0;
  for (two_trait_case* one : {&c, &less}) {
    scan_records records = one->records();
    BDDRMC_GS(records, one->f.asked, one->f.state, scan_stage::all, 3);
  }
  EXPECT_EQ(c.s.RHS(5), less.s.RHS(5));
  EXPECT_EQ(c.s.RHS(6), less.s.RHS(6));
}

TEST(BDDRMC_GS, passes_a_coefficient_without_trait_above_type_0) {
  two_trait_case c(1, false, false, false), less(1, false, false, false);
  for (two_trait_case* one : {&c, &less}) {
    init(*one, 1, 7);
    one->s.sol.fill(1.0);
  }
  c.design.XD2_M(1, 1) = 0;
  less.design.ZD_M(1, 1) = 0.0;
  for (two_trait_case* one : {&c, &less}) {
    scan_records records = one->records();
    BDDRMC_GS(records, one->f.asked, one->f.state, scan_stage::all, 3);
  }
  EXPECT_EQ(c.s.RHS(5), less.s.RHS(5));
}

std::size_t occurrences(const std::string& text, const std::string& part) {
  std::size_t n = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

TEST(BDDRMC_GS, prints_the_first_ten_records_in_rounds_below_6_at_test_level_2) {
  two_trait_case c(14, false, false, false);
  const auto prints = [&](std::int32_t test_level, std::int64_t round) {
    init(c, 0, round);
    c.f.asked.test_level = test_level;
    scan_records records = c.records();
    BDDRMC_GS(records, c.f.asked, c.f.state, scan_stage::all, 2);
    return occurrences(c.said(), "\nBDDRMC_GS   OBS=  ");
  };
  EXPECT_EQ(prints(1, 1), 0U);
  EXPECT_EQ(prints(2, 1), 10U);
  EXPECT_EQ(prints(2, 5), 10U);
  EXPECT_EQ(prints(2, 6), 0U);
}

// One record of two traits with two entries, for the print.
struct printed_case : two_trait_case {
  printed_case() : two_trait_case(1, false, false, false) {
    design.M_M(1) = 0;
    entry(1, 2, 5, 3, 2, 0.5);
    entry(1, 1, 3, 2, 1, 1.0);
    design.XD6_M(2, 1) = 4;
    design.Y_M(1, 1) = 4.5F;
    design.Y_M(2, 1) = -2.0F;
    design.WV_M(1, 1) = 0.25F;
    s.sol(equation(5, 3, 2)) = 0.125;
    s.sol(equation(3, 2, 1)) = -7.0;
    work.inverses.riff(1, 1) = 1.0;
    work.inverses.riff(1, 2) = -0.25;
    work.inverses.riff(2, 1) = -0.25;
    work.inverses.riff(2, 2) = 2.0;
  }
  std::string print(std::int32_t nxd) {
    BDDRMC_XD_PRINT(records().model, records().design, records().sampler, records().work.inverses,
                    records().report, "BDDRMC_GS", 1, nxd);
    return said();
  }
};

const std::string first_lines = "\nBDDRMC_GS   OBS=  " + I(1) + " Isit= " + I(3) + " iresg= " + I(1) +
                                "\n\nRINP : " + R4("4.5") + R4("-2.0") + "\n\nRIIF : " + R8("1.0") +
                                R8("-0.25") + R8("-0.25") + R8("2.0") + "\n\nWEIGHT_VEC : " + R4("0.25") +
                                R4("1.0") + "\n";

TEST(BDDRMC_XD_PRINT, names_and_prints_the_columns_that_nxd_asks_for) {
  printed_case c;
  const std::string end1 = R8("0.5") + R8("0.125") + "\n", end2 = R8("1.0") + R8("-7.0") + "\n";
  // the columns: equation, trait, group, level, place, type, factor
  const std::vector<std::int64_t> row1 = {14, 2, 5, 3, 2, 0, 1}, row2 = {6, 1, 3, 2, 1, 4, 0};
  const char* headers[6] = {
      "   No   Equation Trait  Contribution         Solutions\n",
      "   No   Equation Trait Group  Contribution         Solutions\n",
      "   No   Equation Trait Group    level  Contribution         Solutions\n",
      "   No   Equation Trait Group    level Eq/level  Contribution         Solutions\n",
      "   No   Equation Trait Group    level Eq/level Eq type  Contribution         Solutions\n",
      ("   No   Equation Trait Group    level Eq/level Eq type  R eff. Contribution         "
       "Solutions\n")};
  for (std::int32_t nxd = 2; nxd <= 7; ++nxd) {
    std::string expected = first_lines + headers[nxd - 2] + I(1);
    for (std::int32_t i = 0; i < nxd; ++i) expected += I(row1[static_cast<std::size_t>(i)]);
    expected += end1 + I(2);
    for (std::int32_t i = 0; i < nxd; ++i) expected += I(row2[static_cast<std::size_t>(i)]);
    EXPECT_EQ(c.print(nxd), expected + end2) << nxd;
  }
}

TEST(BDDRMC_XD_PRINT, continues_with_a_wrong_nxd_and_only_the_log_gains_a_line) {
  for (const std::int32_t nxd : {1, 8, -3}) {
    printed_case c;
    EXPECT_EQ(c.print(nxd), "");
    EXPECT_EQ(c.directory.read("ZEPH.log"), "ZEPH: Starting\n");
  }
}

} // namespace
