#include "gibbs/scan/group_scan.h"

#include "gibbs/scan/record_pass.h"
#include "gibbs/scan/scan_groups.h"
#include "gibbs/scan_case.h"

#include <cmath>

namespace {

using namespace zeph_test;

// One round of the block Gauss-Seidel on the full matrices. Data of other
// levels of the group act with the solutions at the group's head, prior links
// with the solutions as they are; x is moved by omega beyond the block's own
// solution. Restricted equations are zero at the end of each group.
void dense_round(const scan_case& c, const dense_equations& full, dense_vector& x, double omega,
                 const std::vector<std::int32_t>& restricted = {}, std::int32_t fixed_group = 0) {
  const std::int32_t neq = c.layout.neq;
  for (std::int32_t g = 1; g <= c.layout.ngroups; ++g) {
    const dense_vector head = x;
    const std::int32_t n = c.layout.NGR(g, 2);
    for (std::int32_t l = 1; l <= c.layout.NGR(g, 1) && g != fixed_group; ++l) {
      const std::int32_t first = c.equation(g, l, 1);
      const auto in_block = [&](std::int32_t e) { return e >= first && e < first + n; };
      dense_matrix block(n);
      dense_vector rhs(n);
      for (std::int32_t i = 1; i <= n; ++i) {
        const std::int32_t e = first + i - 1;
        rhs(i) = full.b(e);
        for (std::int32_t other = 1; other <= neq; ++other) {
          if (!in_block(other))
            rhs(i) -= full.D(e, other) * head(other) + full.P(e, other) * x(other);
          else
            block(i, other - first + 1) = full.D(e, other) + full.P(e, other);
        }
      }
      const dense_vector found = solve(block, rhs);
      for (std::int32_t i = 1; i <= n; ++i) {
        const double before = x(first + i - 1);
        x(first + i - 1) = found(i) + omega * (found(i) - before);
      }
    }
    for (const std::int32_t e : restricted) x(e) = 0.0;
  }
}

void scan(scan_case& c, std::int32_t analysis_type, std::int64_t iround, double omega) {
  c.f.asked.analysis_type = analysis_of(analysis_type);
  c.f.state.iround = iround;
  scan_records records = c.records();
  solver_sums sums;
  sums.omega = omega;
  record_pass body;
  body.begin_round(records, c.f.asked, c.f.state, scan_stage::all);
  scan_groups(body, records, c.f.asked, c.f.state, c.f.counts, scan_stage::all, sums);
}

void expect_solutions(const scan_case& c, const dense_vector& x, double bound) {
  for (std::int32_t e = 1; e <= c.layout.neq; ++e) EXPECT_NEAR(c.s.sol(e), x(e), bound) << "equation " << e;
}

TEST(scan_groups, is_a_block_gauss_seidel_round_from_zero) {
  for (const bool missing : {false, true})
    for (const bool weights : {false, true}) {
      two_trait_case c(40, weights, missing, true);
      scan(c, 0, 1, 0.0);
      dense_vector x(c.layout.neq);
      dense_round(c, dense_equations(c, analysis::solve), x, 0.0);
      expect_solutions(c, x, 1e-12);
    }
}

TEST(scan_groups, continues_from_the_solutions_of_the_round_before) {
  two_trait_case c(40, true, true, true);
  const dense_equations full(c, analysis::solve);
  dense_vector x(c.layout.neq);
  for (std::int32_t round = 1; round <= 5; ++round) {
    scan(c, 0, round, 0.0);
    dense_round(c, full, x, 0.0);
    expect_solutions(c, x, 1e-12);
  }
}

TEST(scan_groups, over_relaxes_each_block_by_omega) {
  two_trait_case c(40, false, false, false);
  const dense_equations full(c, analysis::sums);
  dense_vector x(c.layout.neq);
  for (std::int32_t round = 1; round <= 3; ++round) {
    scan(c, 1, round, 0.4);
    dense_round(c, full, x, 0.4);
    expect_solutions(c, x, 1e-12);
  }
}

TEST(scan_groups, holds_restricted_equations_at_zero_from_the_end_of_the_first_group_on) {
  two_trait_case c(40, false, false, false);
  c.s.IREST.take(2);
  c.s.IREST(1) = 6;  // group 3 solves it, then it is 0 for the groups after it
  c.s.IREST(2) = 17; // group 6 comes last
  c.s.n_IREST = 2;
  const dense_equations full(c, analysis::solve);
  dense_vector x(c.layout.neq);
  for (std::int32_t e = 1; e <= c.layout.neq; ++e) x(e) = c.s.sol(e) = 0.1 * e;
  for (std::int32_t round = 1; round <= 2; ++round) {
    scan(c, 0, round, 0.0);
    dense_round(c, full, x, 0.0, {6, 17});
    expect_solutions(c, x, 1e-12);
  }
  EXPECT_EQ(c.s.sol(6), 0.0);
  EXPECT_EQ(c.s.sol(17), 0.0);
}

TEST(scan_groups, keeps_the_solutions_of_a_group_that_is_not_updated_but_adjusts_its_right_hand_sides) {
  two_trait_case c(40, false, false, false);
  const dense_equations full(c, analysis::solve);
  dense_vector x(c.layout.neq);
  for (std::int32_t e = 1; e <= c.layout.neq; ++e) x(e) = c.s.sol(e) = 0.1 * e;
  c.f.state.gropd(5) = 0;
  scan(c, 0, 1, 0.0);
  dense_round(c, full, x, 0.0, {}, 5);
  expect_solutions(c, x, 1e-12);
  // after group 5 only group 6 moved; its part in RHS of group 5 was the old one
  for (std::int32_t l = 1; l <= 4; ++l)
    for (std::int32_t p = 1; p <= 2; ++p) {
      const std::int32_t e = c.equation(5, l, p);
      double expected = full.b(e);
      for (std::int32_t other = 1; other <= c.layout.neq; ++other) {
        const bool same_level = other >= c.equation(5, l, 1) && other <= c.equation(5, l, 2);
        const double value = other >= 17 ? 0.1 * other : x(other);
        if (!same_level) expected -= (full.D(e, other) + full.P(e, other)) * value;
      }
      EXPECT_NEAR(c.s.RHS(e), expected, 1e-12);
    }
}

TEST(scan_groups, works_on_the_leading_rows_of_a_factor_in_a_smaller_model) {
  two_trait_case c(40, false, false, false);
  c.layout.NGR(5, 2) = 1;
  c.f.state.ntr[0] = 1;
  for (std::int32_t l = 1; l <= 4; ++l) c.s.sol(c.equation(5, l, 2)) = 99.0; // neither read nor changed
  scan(c, 1, 1, 0.0);
  dense_vector x(c.layout.neq);
  dense_round(c, dense_equations(c, analysis::sums), x, 0.0);
  for (std::int32_t l = 1; l <= 4; ++l) x(c.equation(5, l, 2)) = 99.0;
  expect_solutions(c, x, 1e-12);
}

TEST(scan_groups, leaves_a_factor_out_that_is_not_in_the_model) {
  two_trait_case c(40, false, false, false);
  c.layout.NGR(6, 2) = 0;
  c.f.state.ntr[1] = 0;
  scan(c, 1, 1, 0.0);
  dense_vector x(c.layout.neq);
  dense_round(c, dense_equations(c, analysis::sums), x, 0.0);
  expect_solutions(c, x, 1e-12);
}

TEST(scan_groups, converges_to_the_solution_of_the_full_equations) {
  two_trait_case c(60, true, true, true);
  c.design.M_M.fill(0); // without levels that meet in one record
  number_sequence x(11);
  for (std::int32_t r = 1; r <= 60; ++r) {
    if (trait_present(c.design.ISIT_M(r), 1, 2)) c.entry(r, 1, 3, x.one_of(2), 1, 1.0);
    if (trait_present(c.design.ISIT_M(r), 2, 2)) c.entry(r, 2, 4, x.one_of(2), 1, 1.0);
    const std::int32_t animal = x.one_of(4);
    if (trait_present(c.design.ISIT_M(r), 1, 2)) c.entry(r, 1, 5, animal, 1, 1.0);
    if (trait_present(c.design.ISIT_M(r), 2, 2)) c.entry(r, 2, 5, animal, 2, 1.0);
  }
  dense_equations full(c, analysis::solve);
  for (std::int32_t e = 1; e <= 4; ++e) full.D(e, e) = 1.0; // regressions without data stay 0
  c.run.report.nlines = -100000;                            // their dependency prints do not end the test
  for (std::int32_t round = 1; round <= 400; ++round) scan(c, 0, round, 0.0);
  expect_solutions(c, solve(full.sum(), full.b), 1e-10);
}

TEST(scan_groups, names_each_group_at_test_level_2) {
  two_trait_case c(1, false, false, false);
  c.f.asked.test_level = 1;
  c.f.state.gropd.fill(0);
  scan(c, 0, 6, 0.0);
  EXPECT_EQ(c.said(), "");
  c.f.asked.test_level = 2;
  scan(c, 0, 6, 0.0);
  std::string expected;
  for (std::int32_t g = 1; g <= 6; ++g) expected += "Starting on group" + I(g) + "\n";
  EXPECT_EQ(c.said(), expected);
}

TEST(subtract_links, takes_the_related_levels_without_the_level_itself) {
  two_trait_case c(1, false, false, false);
  number_sequence x(5);
  for (double& value : c.s.sol) value = x.between(-2, 2);
  const dense_equations full(c, analysis::solve);
  for (std::int32_t l = 1; l <= 4; ++l)
    for (const std::int32_t p : {2, 1}) {
      c.s.RHS.fill(1.0);
      scan_records records = c.records();
      subtract_links(records.model, records.relations, records.sampler, records.work.levels, 1, l, p);
      for (std::int32_t e = 1; e <= c.layout.neq; ++e) {
        double expected = 1.0;
        for (std::int32_t h = 1; h <= 4; ++h)
          for (std::int32_t j = 1; j <= p && h != l; ++j)
            if (e >= c.equation(5, l, 1) && e <= c.equation(5, l, p))
              expected -= full.P(e, c.equation(5, h, j)) * c.s.sol(c.equation(5, h, j));
        EXPECT_NEAR(c.s.RHS(e), expected, 1e-14) << "level " << l << " rows " << p << " equation " << e;
      }
    }
}

TEST(solve_level, solves_one_block_and_sums_squared_changes_and_old_solutions) {
  two_trait_case c(1, false, false, false);
  double* block = c.layout.DI_of(5).unchecked_col(2);
  block[0] = 4.0, block[1] = 1.0, block[2] = 3.0;
  c.s.RHS(11) = 6.0, c.s.RHS(12) = 7.0; // solution 1, 2
  c.s.sol(11) = 0.5, c.s.sol(12) = 3.0;
  scan_records records = c.records();
  solver_sums sums;
  sums.ssd = 10.0, sums.ssq = 20.0, sums.omega = 0.25;
  c.f.state.ist = 3;
  solve_level(records.layout, records.sampler, records.work.levels, records.report, c.f.state,
              scan_stage::all, 5, 2, sums);
  EXPECT_NEAR(c.s.sol(11), 1.0 + 0.25 * 0.5, 1e-15);
  EXPECT_NEAR(c.s.sol(12), 2.0 - 0.25 * 1.0, 1e-15);
  EXPECT_NEAR(sums.ssd, 10.0 + 0.25 + 1.0, 1e-14); // of the block's solution, before relaxation
  EXPECT_NEAR(sums.ssq, 20.0 + 0.25 + 9.0, 1e-14);
  EXPECT_EQ(c.f.state.ist, 0);
  EXPECT_EQ(c.said(), "");
}

TEST(solve_level, reports_a_dependency_with_its_block_and_leaves_the_row_unswept) {
  two_trait_case c(1, false, false, false);
  double* block = c.layout.DI_of(5).unchecked_col(3);
  block[0] = 2.0, block[1] = 2.0, block[2] = 2.0; // the second row hangs on the first
  c.s.RHS(13) = 6.0, c.s.RHS(14) = 6.0;
  c.f.state.iround = 12;
  c.run.report.nlines = 40;
  scan_records records = c.records();
  solver_sums sums;
  solve_level(records.layout, records.sampler, records.work.levels, records.report, c.f.state,
              scan_stage::all, 5, 3, sums);
  // swept on row 1 alone: 1/2, coefficient 2/2, residual 0
  EXPECT_EQ(c.said(), "Round " + I(12) + "  Linear dependency in group= " + I(5) + " Level= " + I(3) +
                          " Equation= " + I(2) + " Diagonal= " + R8("0.0") + "\nError in diagonal block" +
                          I(5) + I(3) + "\nj,j1,k,l : " + I(1) + I(1) + I(5) + I(1) + "\n" + I(1) + I(1) +
                          R8("2.0") + R8("0.5") + "\nj,j1,k,l : " + I(2) + I(1) + I(5) + I(2) + "\n" + I(2) +
                          I(1) + R8("2.0") + R8("1.0") + "\nj,j1,k,l : " + I(2) + I(2) + I(5) + I(3) + "\n" +
                          I(2) + I(2) + R8("2.0") + R8("0.0") + "\n");
  EXPECT_EQ(c.run.report.nlines, 43); // three pairs
  EXPECT_EQ(c.f.state.ist, 1);
  EXPECT_EQ(c.s.sol(13), 3.0);
  EXPECT_EQ(c.s.sol(14), 0.0); // the residual of its right-hand side
}

TEST(solve_level, counts_a_negative_pivot_as_a_problem_though_it_is_swept) {
  two_trait_case c(1, false, false, false);
  c.layout.DI_of(6)(1, 1) = -4.0;
  c.s.RHS(17) = 2.0;
  scan_records records = c.records();
  solver_sums sums;
  solve_level(records.layout, records.sampler, records.work.levels, records.report, c.f.state,
              scan_stage::all, 6, 1, sums);
  EXPECT_EQ(c.f.state.ist, 1);
  EXPECT_EQ(c.s.sol(17), -0.5);
  EXPECT_NE(c.said().find("Diagonal= " + R8("-4.0") + "\n"), std::string::npos);
}

TEST(solve_level, counts_problems_of_its_own_block_only) {
  two_trait_case c(1, false, false, false);
  c.layout.DI_of(6)(1, 2) = 1.0;
  scan_records records = c.records();
  solver_sums sums;
  solve_level(records.layout, records.sampler, records.work.levels, records.report, c.f.state,
              scan_stage::all, 6, 1,
              sums); // a block of zeros
  EXPECT_EQ(c.f.state.ist, 1);
  c.said();
  solve_level(records.layout, records.sampler, records.work.levels, records.report, c.f.state,
              scan_stage::all, 6, 2, sums);
  EXPECT_EQ(c.f.state.ist, 0);
  EXPECT_EQ(c.said(), "");
}

TEST(solve_level, reports_a_pivot_between_the_limits_without_sweeping_it) {
  two_trait_case c(1, false, false, false);
  scan_records records = c.records();
  solver_sums sums;
  c.layout.DI_of(6)(1, 1) = 2e-18; // below the sweep's tolerance, above the limit of the message
  c.s.RHS(17) = 5.0;
  solve_level(records.layout, records.sampler, records.work.levels, records.report, c.f.state,
              scan_stage::all, 6, 1, sums);
  EXPECT_EQ(c.said(), "");
  EXPECT_EQ(c.s.sol(17), 5.0); // unswept: the border as it was
  c.layout.DI_of(6)(1, 1) = 1e-18;
  solve_level(records.layout, records.sampler, records.work.levels, records.report, c.f.state,
              scan_stage::all, 6, 1, sums);
  EXPECT_NE(c.said().find("Linear dependency"), std::string::npos);
}

TEST(solve_level, stops_beyond_1000_lines_after_the_pair) {
  two_trait_case c(1, false, false, false);
  c.run.report.nlines = 999;
  scan_records records = c.records();
  solver_sums sums;
  c.f.state.iround = 1;
  const std::string text = expect_stop(16, c.run, [&](reporting&) {
    solve_level(records.layout, records.sampler, records.work.levels, records.report, c.f.state,
                scan_stage::all, 5, 1, sums);
  });
  // pair 1 makes 1000 lines and is let pass, pair 2 is the one too many
  const std::string end = "j,j1,k,l : " + I(2) + I(1) + I(5) + I(2) + "\n" + I(2) + I(1) + R8("0.0") +
                          R8("0.0") + "\n\nMore then 1000 lines printed\nProgram terminates\n";
  ASSERT_GT(text.size(), end.size());
  EXPECT_EQ(text.substr(text.size() - end.size()), end);
  EXPECT_EQ(c.run.report.nlines, 1001);
}

TEST(restrict_solutions, sets_the_listed_equations_to_zero) {
  sampler_store s;
  s.sol.take(4);
  s.sol.fill(2.0);
  restrict_solutions(s);
  EXPECT_EQ(s.sol(1), 2.0);
  s.IREST.take(2);
  s.IREST(1) = 4, s.IREST(2) = 2, s.n_IREST = 2;
  restrict_solutions(s);
  EXPECT_EQ(s.sol(1), 2.0);
  EXPECT_EQ(s.sol(2), 0.0);
  EXPECT_EQ(s.sol(3), 2.0);
  EXPECT_EQ(s.sol(4), 0.0);
}

} // namespace
