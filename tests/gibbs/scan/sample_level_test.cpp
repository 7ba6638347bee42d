#include "gibbs/scan/group_scan.h"

#include "gibbs/scan_case.h"

#include "numerics/normal_draws.h"

#include <cmath>

namespace {

using namespace zeph_test;

// One level of n equations in a group of its own: the factor of the model.
struct level_case : scan_case {
  explicit level_case(std::int32_t n, std::int32_t levels = 1) : scan_case(described(n, levels)) {
    start(1);
    RMARIN(sources.marsaglia, 1802, 9373);
    number_sequence x(9);
    for (double& b : s.RHS) b = x.between(-4, 4);
    for (std::int32_t l = 1; l <= levels; ++l) block(l, x);
  }
  static described_model described(std::int32_t n, std::int32_t levels) {
    described_model d;
    d.traits.resize(static_cast<std::size_t>(n));
    described_factor factor{"I", levels, n, {}};
    for (std::int32_t i = 1; i <= n; ++i) factor.contributions.push_back({i, 1, i});
    d.factors = {factor};
    d.integers = 4, d.reals = n, d.records = 1;
    return d;
  }
  // C = X X' + I, packed
  void block(std::int32_t l, number_sequence& x) {
    const std::int32_t n = layout.NGR(1, 2);
    dense_matrix X(n), C(n);
    for (double& cell : X.cells) cell = x.between(-1, 1);
    double* packed = layout.DI_of(1).unchecked_col(l);
    for (std::int32_t i = 1; i <= n; ++i)
      for (std::int32_t j = 1; j <= i; ++j) {
        C(i, j) = i == j ? 1.0 : 0.0;
        for (std::int32_t k = 1; k <= n; ++k) C(i, j) += X(i, k) * X(j, k);
        C(j, i) = C(i, j);
        *packed++ = C(i, j);
      }
    blocks.push_back(C);
  }
  void draw(std::int32_t l) {
    scan_records all = records();
    ranmar_draws draws(sources.marsaglia);
    sample_level(all.layout, all.sampler, all.work.levels, all.report, f.counts, draws, 1, l);
  }
  std::vector<dense_matrix> blocks;
};

// Cholesky factor by its definition, rows after rows.
dense_matrix lower_factor(const dense_matrix& C) {
  dense_matrix L(C.n);
  for (std::int64_t i = 1; i <= C.n; ++i)
    for (std::int64_t j = 1; j <= i; ++j) {
      double rest = C(i, j);
      for (std::int64_t k = 1; k < j; ++k) rest -= L(i, k) * L(j, k);
      L(i, j) = i == j ? std::sqrt(rest) : rest / L(j, j);
    }
  return L;
}

TEST(sample_level, adds_the_back_substituted_normals_to_the_conditional_mean) {
  for (const std::int32_t n : {1, 2, 3, 5}) {
    level_case c(n);
    marsaglia_source same = c.sources.marsaglia;
    c.draw(1);
    std::vector<double> z;
    for (std::int32_t i = 1; i <= n; ++i) z.push_back(ranmar_snorm(same));
    // C (sol - mean) = C sol - RHS must be L z
    const dense_matrix &C = c.blocks[0], L = lower_factor(C);
    for (std::int32_t i = 1; i <= n; ++i) {
      double left = -c.s.RHS(i), right = 0;
      for (std::int32_t j = 1; j <= n; ++j) left += C(i, j) * c.s.sol(j);
      for (std::int32_t j = 1; j <= i; ++j) right += L(i, j) * z[static_cast<std::size_t>(j - 1)];
      EXPECT_NEAR(left, right, 1e-12);
    }
    EXPECT_EQ(RANMAR(c.sources.marsaglia), RANMAR(same)); // n normals and no more
  }
}

TEST(sample_level, leaves_block_and_right_hand_side_as_they_are) {
  level_case c(3);
  const std::vector<double> rhs(c.s.RHS.begin(), c.s.RHS.end());
  const double* packed = c.layout.DI_of(1).unchecked_col(1);
  const std::vector<double> block(packed, packed + 6);
  c.draw(1);
  EXPECT_EQ(std::vector<double>(c.s.RHS.begin(), c.s.RHS.end()), rhs);
  EXPECT_EQ(std::vector<double>(packed, packed + 6), block);
}

TEST(sample_level, has_mean_and_covariance_of_the_conditional_distribution) {
  level_case c(2);
  constexpr int draws = 20000;
  const dense_matrix inverse = dense_inverse(c.blocks[0]).inverse;
  dense_vector b(2);
  b(1) = c.s.RHS(1), b(2) = c.s.RHS(2);
  const dense_vector mean = solve(c.blocks[0], b);
  dense_vector sum(2);
  dense_matrix products(2);
  for (int k = 0; k < draws; ++k) {
    c.draw(1);
    for (std::int32_t i = 1; i <= 2; ++i) {
      sum(i) += c.s.sol(i) - mean(i);
      for (std::int32_t j = 1; j <= 2; ++j) products(i, j) += (c.s.sol(i) - mean(i)) * (c.s.sol(j) - mean(j));
    }
  }
  for (std::int32_t i = 1; i <= 2; ++i) {
    EXPECT_NEAR(sum(i) / draws, 0.0, 4.5 * std::sqrt(inverse(i, i) / draws)); // 4.5 standard errors: 7e-6
    for (std::int32_t j = 1; j <= 2; ++j)
      EXPECT_NEAR(products(i, j) / draws, inverse(i, j),
                  4.5 * std::sqrt((inverse(i, i) * inverse(j, j) + inverse(i, j) * inverse(i, j)) / draws));
  }
}

TEST(sample_level, stops_with_the_group_when_a_block_is_not_positive_definite) {
  level_case c(2);
  double* packed = c.layout.DI_of(1).unchecked_col(1);
  packed[0] = 1.0, packed[1] = 2.0, packed[2] = 1.0; // determinant -3: minor 2
  const std::string text = expect_stop(27, c.run, [&](reporting&) { c.draw(1); });
  EXPECT_EQ(text, "Group: " + I(1) + "  1 potrf info= " + I(2) + "\n");
  level_case zero(2);
  zero.layout.DI_of(1).unchecked_col(1)[0] = 0.0;
  const std::string first = expect_stop(27, zero.run, [&](reporting&) { zero.draw(1); });
  EXPECT_EQ(first, "Group: " + I(1) + "  1 potrf info= " + I(1) + "\n");
}

TEST(scan_levels, draws_n_normals_per_level_in_order_of_levels) {
  level_case whole(2, 4), parts(2, 4);
  whole.f.asked.analysis_type = analysis::predict;
  scan_records all = whole.records();
  solver_sums sums;
  scan_levels(all, whole.f.asked, whole.f.state, whole.f.counts, scan_stage::all, 1, sums);
  for (std::int32_t l = 1; l <= 4; ++l) parts.draw(l);
  for (std::int32_t e = 1; e <= 8; ++e) EXPECT_EQ(whole.s.sol(e), parts.s.sol(e));
  EXPECT_EQ(RANMAR(whole.sources.marsaglia), RANMAR(parts.sources.marsaglia));
  EXPECT_EQ(sums.ssd, 0.0); // sums of the solver only
}

TEST(scan_levels, draws_nothing_for_a_group_that_is_not_updated) {
  level_case c(2, 4);
  c.f.asked.analysis_type = analysis::gibbs;
  c.f.state.gropd(1) = 0;
  c.s.sol.fill(0.75);
  marsaglia_source same = c.sources.marsaglia;
  scan_records all = c.records();
  solver_sums sums;
  scan_levels(all, c.f.asked, c.f.state, c.f.counts, scan_stage::all, 1, sums);
  for (const double u : c.s.sol) EXPECT_EQ(u, 0.75);
  EXPECT_EQ(RANMAR(c.sources.marsaglia), RANMAR(same));
}

// The samplers ask which residual covariances are held at zero: none here.
void no_zero_covariances(scan_case& c) {
  heard_run quiet;
  mark_zero_covariances(c.m, c.s, quiet.report);
}

TEST(GIBSCAN, draws_for_all_groups_in_order_before_the_missing_traits) {
  // 19 equations and two missing values, one stream
  two_trait_case c(8, false, true, false);
  no_zero_covariances(c);
  c.f.asked.analysis_type = analysis::predict;
  c.f.state.iround = 1;
  c.f.asked.nburn = 10;
  RMARIN(c.sources.marsaglia, 1802, 9373);
  marsaglia_source same = c.sources.marsaglia;
  scan_records all = c.records();
  GIBSCAN(all, c.f.asked, c.f.state, c.f.counts, c.files);
  for (int k = 0; k < 19 + 2; ++k) ranmar_snorm(same);
  EXPECT_EQ(RANMAR(c.sources.marsaglia), RANMAR(same));
}

TEST(GIBSCAN, does_not_relax_samples) {
  two_trait_case early(8, false, false, false), late(8, false, false, false);
  for (two_trait_case* c : {&early, &late}) {
    no_zero_covariances(*c);
    c->f.asked.analysis_type = analysis::predict;
    c->f.asked.nburn = 1000;
    RMARIN(c->sources.marsaglia, 5, 6);
  }
  early.f.state.iround = 1;
  late.f.state.iround = 101;
  scan_records one = early.records(), other = late.records();
  GIBSCAN(one, early.f.asked, early.f.state, early.f.counts, early.files);
  GIBSCAN(other, late.f.asked, late.f.state, late.f.counts, late.files);
  for (std::int32_t e = 1; e <= 19; ++e) EXPECT_EQ(early.s.sol(e), late.s.sol(e));
}

} // namespace
