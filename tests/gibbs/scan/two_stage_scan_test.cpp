// Rounds in two stages: the sources of covariables, then the other groups.
#include "gibbs/scan/residual_body.h"

#include "gibbs/residuals/residual_sums.h"
#include "gibbs/scan/group_scan.h"
#include "gibbs/scan/record_pass.h"
#include "gibbs/staged_case.h"
#include "numerics/normal_draws.h"

#include <cmath>
#include <functional>

namespace {

using namespace zeph_test;

const staged_options ALL_OPTIONS[] = {{},
                                      {true, false, false, 0, false},
                                      {false, true, false, 1, false},
                                      {false, false, true, 0, true},
                                      {true, true, true, 1, true}};

void expect_near_all(const double* a, const double* b, std::int64_t n, double bound,
                     const std::string& what) {
  double size = 1e-300;
  for (std::int64_t i = 0; i < n; ++i) size = std::max({size, std::fabs(a[i]), std::fabs(b[i])});
  for (std::int64_t i = 0; i < n; ++i) EXPECT_NEAR(a[i], b[i], bound * size) << what << ' ' << i;
}

using change = std::function<void(staged_case&)>;

void expect_same_rounds(const staged_options& o, std::int32_t type, const change& make = {}) {
  staged_case plain(o, type), fast(o, type);
  for (staged_case* c : {&plain, &fast}) {
    if (make) make(*c);
    scan_records r = c->records();
    if (type > 0) start_missing_traits(r);
  }
  plain.work.body = scan_body::plain;
  for (int round = 1; round <= 5; ++round) {
    plain.round();
    fast.round();
    ASSERT_EQ(fast.work.body, scan_body::fast);
    const std::string at = " type " + std::to_string(type) + " round " + std::to_string(round);
    for (const std::int32_t g : {1, 2, 4}) { // the groups of the second stage: no source
      const std::int64_t base = plain.layout.group(g).base,
                         n = plain.layout.NGR(g, 1) * plain.layout.NGR(g, 2);
      if (round == 1)
        expect_near_all(plain.s.RHS.data() + base, fast.s.RHS.data() + base, n, 1e-10, "RHS" + at);
    }
    expect_near_all(plain.s.sol.data(), fast.s.sol.data(), plain.s.sol.size(), 1e-9, "sol" + at);
    expect_near_all(plain.design.ZD_M.data(), fast.design.ZD_M.data(), plain.design.ZD_M.size(), 1e-9,
                    "ZD" + at);
    expect_near_all(plain.s.sscp.data(), fast.s.sscp.data(), plain.s.sscp.size(), 1e-9, "sscp" + at);
    expect_near_all(plain.s.RCOV.data(), fast.s.RCOV.data(), plain.s.RCOV.size(), 1e-9, "RCOV" + at);
  }
  EXPECT_EQ(RANMAR(plain.sources.marsaglia), RANMAR(fast.sources.marsaglia));
}

TEST(two_stage_scan, is_the_same_by_both_bodies) {
  for (const staged_options& o : ALL_OPTIONS)
    for (std::int32_t type = 0; type <= 4; ++type) expect_same_rounds(o, type);
}

TEST(two_stage_scan, is_the_same_by_both_bodies_with_restrictions_and_kept_groups) {
  for (std::int32_t type = 0; type <= 2; ++type) {
    expect_same_rounds({true, true, true}, type, [](staged_case& c) {
      c.s.IREST.take(3);
      c.s.n_IREST = 3;
      const std::int32_t restricted[] = {2, 6, 11}; // a turned regression, a source, another group
      std::copy(restricted, restricted + 3, c.s.IREST.begin());
    });
    expect_same_rounds({true, true, true}, type,
                       [](staged_case& c) { c.f.state.gropd(3) = c.f.state.gropd(1) = 0; });
  }
}

// In the solver the sources take the inverse of R itself, also where the pattern
// inverses of the model file are others.
TEST(two_stage_scan, sweeps_R_for_the_sources_of_the_solver) {
  const change other = [](staged_case& c) {
    for (double& x : c.work.inverses.by_pattern) x *= 3.0;
  };
  expect_same_rounds({true, true, true}, 0, other);
  staged_case c({}, 0), same({}, 0);
  other(c);
  for (staged_case* x : {&c, &same}) {
    x->work.body = scan_body::plain;
    x->round();
  }
  for (std::int32_t e = 5; e <= 9; ++e) EXPECT_DOUBLE_EQ(c.s.sol(e), same.s.sol(e)); // herds of trait 1
  EXPECT_NE(c.s.sol(10), same.s.sol(10));
}

TEST(two_stage_scan, makes_the_coefficients_from_the_round_s_own_solutions) {
  for (const staged_options& o : ALL_OPTIONS)
    for (const std::int32_t type : {0, 3}) {
      staged_case c(o, type);
      for (int round = 0; round < 3; ++round) c.round();
      for (std::int32_t r = 1; r <= c.design.nobs; ++r)
        for (std::int32_t e = 1; e <= c.design.M_M(r); ++e) {
          if (c.design.XD2_M(e, r) != 2 || c.design.XD3_M(e, r) > 2) continue;
          EXPECT_NEAR(c.design.ZD_M(e, r), c.coefficient(r, c.design.XD3_M(e, r) - 1), 1e-12) << r;
        }
    }
}

TEST(two_stage_scan, leaves_other_coefficients_alone) {
  staged_case c({}, 2);
  c.round();
  for (std::int32_t r = 1; r <= c.design.nobs; ++r) {
    EXPECT_EQ(c.design.ZD_M(1, r), static_cast<double>(c.rows[static_cast<std::size_t>(r - 1)].x3));
    EXPECT_EQ(c.design.ZD_M(2, r), 1.0);
  }
}

// Before its first refresh the scan works with the coefficients as loaded: the
// sources of round 1 see x4 and x5.
TEST(two_stage_scan, solves_the_sources_with_the_coefficients_of_the_round_before) {
  staged_case c({}, 0);
  const dense_equations before(c, analysis::solve);
  const std::vector<double> start(c.s.sol.begin(), c.s.sol.end());
  c.work.body = scan_body::plain;
  c.round();
  // herds are solved first: (D + P) of level l alone, the others at their start
  for (std::int32_t l = 1; l <= 5; ++l) {
    const std::int32_t e = c.equation(3, l, 1);
    double right = before.b(e);
    for (std::int32_t k = 1; k <= c.layout.neq; ++k)
      if (k != e) right -= before.D(e, k) * start[static_cast<std::size_t>(k - 1)];
    EXPECT_NEAR(c.s.sol(e), right / before.D(e, e), 1e-10);
  }
  // the plain regressions are solved with the new coefficients and sources
  const dense_equations after(c, analysis::solve);
  dense_matrix block(2);
  dense_vector right(2);
  for (std::int32_t i = 1; i <= 2; ++i) {
    right(i) = after.b(i);
    for (std::int32_t k = 3; k <= c.layout.neq; ++k) {
      const bool source = (k >= 5 && k <= 9) || k >= 20;
      right(i) -= after.D(i, k) * (source ? c.s.sol(k) : start[static_cast<std::size_t>(k - 1)]);
    }
    for (std::int32_t j = 1; j <= 2; ++j) block(i, j) = after.D(i, j);
  }
  const dense_vector x = solve(block, right);
  EXPECT_NEAR(c.s.sol(1), x(1), 1e-10);
  EXPECT_NEAR(c.s.sol(2), x(2), 1e-10);
}

// At its end the solver is at a solution of the whole equations, with the
// covariables that its own solutions make.
TEST(two_stage_scan, converges_to_the_equations_with_the_found_covariables) {
  for (const bool plain : {false, true})
    for (const staged_options& o : ALL_OPTIONS) {
      staged_case c(o, 0, 80);
      c.follow_the_model();
      if (plain) c.work.body = scan_body::plain;
      while (c.f.state.ist != GS_CONVERGED && c.f.state.iround < 20000) c.round();
      ASSERT_EQ(c.f.state.ist, GS_CONVERGED);
      for (std::int32_t r = 1; r <= c.design.nobs; ++r)
        for (std::int32_t e = 1; e <= c.design.M_M(r); ++e)
          if (c.design.XD2_M(e, r) == 2 && c.design.XD3_M(e, r) <= 2)
            c.design.ZD_M(e, r) = c.coefficient(r, c.design.XD3_M(e, r) - 1);
      const dense_equations full(c, analysis::solve);
      const dense_vector x = solve(full.sum(), full.b);
      double largest = 0;
      for (std::int32_t e = 1; e <= c.layout.neq; ++e) largest = std::max(largest, std::fabs(x(e)));
      for (std::int32_t e = 1; e <= c.layout.neq; ++e) EXPECT_NEAR(c.s.sol(e), x(e), 1e-6 * largest) << e;
    }
}

TEST(two_stage_scan, sums_the_change_over_both_stages) {
  staged_case c({}, 0);
  const std::vector<double> start(c.s.sol.begin(), c.s.sol.end());
  c.round();
  double ssd = 0, ssq = 0;
  for (std::int32_t e = 1; e <= c.layout.neq; ++e) {
    const double x = start[static_cast<std::size_t>(e - 1)];
    ssd += (c.s.sol(e) - x) * (c.s.sol(e) - x); // round 1 is not relaxed
    ssq += x * x;
  }
  const std::string text = c.said();
  const std::size_t at = text.find("Cd= ");
  ASSERT_NE(at, std::string::npos) << text;
  EXPECT_NEAR(std::stod(text.substr(at + 4)), std::sqrt(ssd / ssq), 1e-9);
}

TEST(two_stage_scan, does_not_refresh_in_round_0) {
  staged_case c({}, 2);
  c.f.state.iround = -1;
  const std::vector<double> before(c.design.ZD_M.begin(), c.design.ZD_M.end());
  c.round();
  EXPECT_TRUE(std::equal(before.begin(), before.end(), c.design.ZD_M.begin()));
  c.round();
  EXPECT_FALSE(std::equal(before.begin(), before.end(), c.design.ZD_M.begin()));
}

TEST(two_stage_scan, is_left_to_the_plain_form_from_analysis_type_5_on) {
  staged_case c({}, 5);
  const std::vector<double> before(c.design.ZD_M.begin(), c.design.ZD_M.end());
  c.round();
  EXPECT_TRUE(std::equal(before.begin(), before.end(), c.design.ZD_M.begin()));
}

TEST(two_stage_scan, names_the_groups_of_both_stages_and_prints_before_the_second) {
  staged_case c({}, 1);
  c.f.asked.test_level = 3;
  c.round();
  const std::string text = c.said();
  std::size_t at = 0;
  for (const std::int32_t g : {3, 6}) {
    at = text.find("Starting on group" + I(g) + "\n", at);
    ASSERT_NE(at, std::string::npos) << g;
  }
  at = text.find("Current rhs and sol (max. 50), round=" + I(1) + "\n", at);
  ASSERT_NE(at, std::string::npos);
  for (const std::int32_t g : {1, 2, 4, 5}) {
    at = text.find("Starting on group" + I(g) + "\n", at);
    ASSERT_NE(at, std::string::npos) << g;
  }
  EXPECT_EQ(text.find("Current rhs"), text.rfind("Current rhs"));
}

// A block of order n in a case of its own.
struct swept_case : scan_case {
  explicit swept_case(std::int32_t n) : scan_case(described(n)) {
    start(1);
    RMARIN(sources.marsaglia, 1802, 9373);
    number_sequence x(9);
    for (double& b : s.RHS) b = x.between(-4, 4);
    C = dense_matrix(n);
    dense_matrix X(n);
    for (double& cell : X.cells) cell = x.between(-1, 1);
    double* packed = layout.DI_of(1).unchecked_col(1);
    for (std::int32_t i = 1; i <= n; ++i)
      for (std::int32_t j = 1; j <= i; ++j) {
        C(i, j) = i == j ? 1.0 : 0.0;
        for (std::int32_t k = 1; k <= n; ++k) C(i, j) += X(i, k) * X(j, k);
        *packed++ = C(j, i) = C(i, j);
      }
  }
  static described_model described(std::int32_t n) {
    described_model d;
    d.traits.resize(static_cast<std::size_t>(n));
    described_factor factor{"I", 1, n, {}};
    for (std::int32_t i = 1; i <= n; ++i) factor.contributions.push_back({i, 1, i});
    d.factors = {factor};
    d.integers = 4, d.reals = n, d.records = 1;
    return d;
  }
  void draw() {
    scan_records all = records();
    sample_level_swept(all.layout, all.sampler, all.work.levels, all.sources.marsaglia, all.report, f.state,
                       f.counts, scan_stage::others, 1, 1);
  }
  dense_matrix C;
};

// sol = C^-1 RHS + F z, F the lower factor of C^-1
TEST(sample_level_swept, adds_the_factor_of_the_inverse_times_the_normals_to_the_mean) {
  for (const std::int32_t n : {1, 2, 3, 5}) {
    swept_case c(n);
    marsaglia_source same = c.sources.marsaglia;
    c.draw();
    const dense_matrix inverse = dense_inverse(c.C).inverse;
    dense_matrix F(n);
    for (std::int64_t i = 1; i <= n; ++i)
      for (std::int64_t j = 1; j <= i; ++j) {
        double rest = inverse(i, j);
        for (std::int64_t k = 1; k < j; ++k) rest -= F(i, k) * F(j, k);
        F(i, j) = i == j ? std::sqrt(rest) : rest / F(j, j);
      }
    std::vector<double> z;
    for (std::int32_t i = 1; i <= n; ++i) z.push_back(ranmar_snorm(same));
    for (std::int32_t i = 1; i <= n; ++i) {
      double expected = 0;
      for (std::int32_t j = 1; j <= n; ++j) expected += inverse(i, j) * c.s.RHS(j);
      for (std::int32_t j = 1; j <= i; ++j) expected += F(i, j) * z[static_cast<std::size_t>(j - 1)];
      EXPECT_NEAR(c.s.sol(i), expected, 1e-12);
    }
    EXPECT_EQ(RANMAR(c.sources.marsaglia), RANMAR(same)); // n normals and no more
  }
}

TEST(sample_level_swept, reports_a_dependency_before_the_draw_stops) {
  swept_case c(2);
  double* packed = c.layout.DI_of(1).unchecked_col(1);
  packed[0] = 1.0, packed[1] = 2.0, packed[2] = 1.0; // indefinite
  const std::string text = expect_stop(16, c.run, [&](reporting&) { c.draw(); });
  EXPECT_NE(text.find(" Linear dependency in group= "), std::string::npos);
  EXPECT_NE(text.find("Error in diagonal block"), std::string::npos);
  EXPECT_NE(text.find(" COVM not positive definite in SETGMN"), std::string::npos);
}

TEST(sample_level_swept, ends_a_long_listing_in_its_own_words) {
  swept_case c(2);
  double* packed = c.layout.DI_of(1).unchecked_col(1);
  packed[0] = 1.0, packed[1] = 2.0, packed[2] = 1.0;
  c.run.report.nlines = 1000;
  const std::string text = expect_stop(16, c.run, [&](reporting&) { c.draw(); });
  EXPECT_TRUE(text.ends_with("\n\nMore than 1000 lines printed\nProgram terminates\n")) << text;
}

// One plain regression, a mixture distance.
struct distance_case : scan_case {
  static described_model described() {
    described_model d;
    d.traits.resize(2);
    d.traits[0].regressions = {{3, 0, 0, true}};
    d.traits[0].effects = {{1, 1}};
    d.traits[1].kind = trait_mixture;
    d.integers = 4, d.reals = 3, d.records = 1;
    return d;
  }
  distance_case() : scan_case(described()) {
    start(2);
    RMARIN(sources.marsaglia, 1802, 9373);
    f.state.iround = 7;
    work.levels.distances = {1};
    layout.DI_of(1).unchecked_col(1)[0] = 1.0;
  }
};

TEST(sample_level_swept, stops_where_no_normal_makes_a_mixture_distance_positive) {
  distance_case c;
  c.s.RHS(1) = -5.31; // the largest normal is 5.29
  const std::string text = expect_stop(16, c.run, [&](reporting&) {
    scan_records all = c.records();
    sample_level_swept(all.layout, all.sampler, all.work.levels, all.sources.marsaglia, all.report, c.f.state,
                       c.f.counts, scan_stage::sources, 1, 1);
  });
  EXPECT_NE(text.find("no positive mixture distance"), std::string::npos) << text;
}

TEST(sample_level_swept, draws_a_mixture_distance_again_until_it_is_positive) {
  for (const scan_stage stage : {scan_stage::sources, scan_stage::others}) {
    distance_case c;
    c.s.RHS(1) = -1.5; // far below 0
    scan_records all = c.records();
    int again = 0;
    for (int k = 0; k < 20; ++k) {
      sample_level_swept(all.layout, all.sampler, all.work.levels, all.sources.marsaglia, all.report,
                         c.f.state, c.f.counts, stage, 1, 1);
      EXPECT_GE(c.s.sol(1), 1e-12);
      const std::string text = c.said();
      EXPECT_TRUE(text.empty() || text == "Resampling of mixture distances - Round: " + I(7) + "\n") << text;
      again += text.empty() ? 0 : 1;
    }
    if (stage == scan_stage::sources) {
      EXPECT_GT(c.f.counts.nlabel, 10);
      EXPECT_EQ(again, 0);
    } else {
      EXPECT_EQ(c.f.counts.nlabel, 0);
      EXPECT_GT(again, 10);
    }
  }
}

} // namespace
