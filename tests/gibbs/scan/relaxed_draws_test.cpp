// Over-relaxed draws of random factors: u -> m + a (u - m) + (1 - a^2)^1/2 w, a = -0.7, w ~ N(0, C^-1).
#include "gibbs/moves/moved_case.h"
#include "numerics/normal_draws.h"

namespace zeph_test {
namespace {

constexpr double a = -0.7;

// Conditional distribution of level l of factor 1, an identity factor that is the only group: precision
// C = Z'R^-1 Z + G^-1, mean C^-1 Z'R^-1 y.
struct level_law {
  level_law(const moved_case& c, std::int32_t l) : C(c.rows(1)), mean(c.rows(1)) {
    const std::int32_t p = c.rows(1), nt = c.m.nt;
    dense_vector b(p);
    for (std::int32_t i = 1; i <= p; ++i)
      for (std::int32_t j = 1; j <= p; ++j) C(i, j) = c.s.GIF(i, j, 1);
    for (std::int32_t r = 1; r <= c.design.nobs; ++r) {
      const dense_matrix inverse = dense_inverse(c.R_of(c.design.IRESG_M(r))).inverse;
      const auto weight = [&](std::int32_t t, std::int32_t u) {
        return inverse(t, u) * static_cast<double>(c.design.WV_SQRT_M(t, r)) *
               static_cast<double>(c.design.WV_SQRT_M(u, r));
      };
      for (std::int32_t e = 1; e <= c.design.M_M(r); ++e) {
        if (c.design.XD4_M(e, r) != l) continue;
        const std::int32_t i = c.design.XD5_M(e, r), t = c.design.XD2_M(e, r);
        for (std::int32_t u = 1; u <= nt; ++u)
          b(i) += c.design.ZD_M(e, r) * weight(t, u) * static_cast<double>(c.design.Y_M(u, r));
        for (std::int32_t h = 1; h <= c.design.M_M(r); ++h)
          if (c.design.XD4_M(h, r) == l)
            C(i, c.design.XD5_M(h, r)) +=
                c.design.ZD_M(e, r) * weight(t, c.design.XD2_M(h, r)) * c.design.ZD_M(h, r);
      }
    }
    mean = solve(C, b);
  }
  dense_matrix C;
  dense_vector mean;
};

template <class Body> void draw(moved_case& c, Body body) {
  scan_records r = c.records();
  solver_sums sums;
  body.begin_round(r, c.f.asked, c.f.state, scan_stage::all);
  body.enter_group(r, c.f.asked, c.f.state, scan_stage::all, 1);
  body.solve_group(r, c.f.asked, c.f.state, c.f.counts, scan_stage::all, 1, sums);
  body.leave_group(r, 1);
}
void draw(moved_case& c, bool plain) {
  if (plain)
    draw(c, record_pass());
  else
    draw(c, residual_body());
}

moved_options of_order(std::int32_t order, bool weights = true) {
  moved_options with;
  with.type = 2;
  with.order = order;
  with.weights = weights;
  with.levels = 5;
  return with;
}

// C (u_new - m - a (u - m)) = (1 - a^2)^1/2 L z for the normals z of each level, in their order.
TEST(relaxed_draws, combine_mean_present_value_and_normals) {
  for (std::int32_t order = 1; order <= 6; ++order)
    for (const bool plain : {false, true}) {
      moved_case c(of_order(order));
      if (plain) c.work.body = scan_body::plain;
      scan_records r = c.records();
      ASSERT_EQ(body_of(r, c.f.asked) == scan_body::plain, plain);
      const std::vector<double> before(c.s.sol.begin(), c.s.sol.end());
      marsaglia_source same = c.sources.marsaglia;
      draw(c, plain);
      for (std::int32_t l = 1; l <= 5; ++l) {
        const level_law law(c, l);
        const dense_matrix L = prior_case::factor(law.C, order);
        std::vector<double> z, d;
        for (std::int32_t i = 1; i <= order; ++i) {
          z.push_back(ranmar_snorm(same));
          const std::int32_t e = (l - 1) * order + i;
          d.push_back(c.s.sol(e) - law.mean(i) - a * (before[static_cast<std::size_t>(e - 1)] - law.mean(i)));
        }
        for (std::int32_t i = 1; i <= order; ++i) {
          double left = 0, right = 0;
          // w = L'^-1 z: L'd against the normals
          for (std::int32_t j = i; j <= order; ++j) left += L(j, i) * d[static_cast<std::size_t>(j - 1)];
          right = std::sqrt(1.0 - a * a) * z[static_cast<std::size_t>(i - 1)];
          EXPECT_NEAR(left, right, 1e-11) << "order " << order << " level " << l << " row " << i << plain;
        }
      }
      EXPECT_EQ(RANMAR(c.sources.marsaglia), RANMAR(same));
    }
}

// Repeated draws of the levels: an autoregression with coefficient a around m with covariance C^-1. 4.5
// standard errors (error probability 7e-6 each): of a mean C^-1_ii (1 + a)/((1 - a) n), of a (co)variance
// (C^-1_ii C^-1_jj + C^-1_ij^2) (1 + a^2)/((1 - a^2) n), of the correlation of neighbours (1 - a^2)/n.
TEST(relaxed_draws, have_the_conditional_distribution_and_alternate) {
  constexpr int n = 4000;
  for (const std::int32_t order : {1, 3, 5})
    for (const bool plain : {false, true}) {
      moved_case c(of_order(order, false));
      if (plain) c.work.body = scan_body::plain;
      scan_records r = c.records();
      body_of(r, c.f.asked);
      const level_law law(c, 2);
      const dense_matrix V = dense_inverse(law.C).inverse;
      dense_vector sum(order), neighbours(order), last(order);
      dense_matrix products(order);
      for (int k = 0; k < n + 20; ++k) { // a^20: the start is forgotten
        draw(c, plain);
        dense_vector d(order);
        for (std::int32_t i = 1; i <= order; ++i) d(i) = c.s.sol(order + i) - law.mean(i);
        for (std::int32_t i = 1; i <= order && k >= 20; ++i) {
          sum(i) += d(i);
          neighbours(i) += d(i) * last(i);
          for (std::int32_t j = 1; j <= order; ++j) products(i, j) += d(i) * d(j);
        }
        last = d;
      }
      for (std::int32_t i = 1; i <= order; ++i) {
        EXPECT_NEAR(sum(i) / n, 0.0, 4.5 * std::sqrt(V(i, i) * (1 + a) / ((1 - a) * n)));
        EXPECT_NEAR(neighbours(i) / products(i, i), a, 4.5 * std::sqrt((1 - a * a) / n));
        for (std::int32_t j = 1; j <= order; ++j)
          EXPECT_NEAR(
              products(i, j) / n, V(i, j),
              4.5 * std::sqrt((V(i, i) * V(j, j) + V(i, j) * V(i, j)) * (1 + a * a) / ((1 - a * a) * n)));
      }
    }
}

std::string bytes_of(const double* x, std::int64_t n) {
  return {reinterpret_cast<const char*>(x), static_cast<std::size_t>(n) * sizeof(double)};
}

// Without `exact` a factor of which levels meet is drawn as without the word, by the byte, with the matrices
// as given; with `exact` it is relaxed.
TEST(relaxed_draws, leave_factors_of_meeting_levels_as_they_are) {
  for (const bool exact : {false, true})
    for (const std::int32_t order : {2, 6})
      for (const bool plain : {false, true}) {
        moved_options with = of_order(order);
        with.exact = exact;
        with.meet = true;
        with.levels = 8;
        moved_case c(with), without(with);
        without.work.moves = {};
        for (moved_case* one : {&c, &without}) {
          if (plain) one->work.body = scan_body::plain;
          one->rounds(3);
        }
        EXPECT_EQ(bytes_of(c.s.sol.data(), c.s.sol.size()) ==
                      bytes_of(without.s.sol.data(), without.s.sol.size()),
                  !exact);
      }
}

// Groups before the first random factor have the same bytes in the first round; the factor has others.
TEST(relaxed_draws, leave_fixed_effects_as_they_are) {
  for (const bool plain : {false, true}) {
    two_trait_case c(60, true, true, false, 11), without(60, true, true, false, 11);
    for (two_trait_case* one : {&c, &without}) {
      heard_run quiet;
      mark_zero_covariances(one->m, one->s, quiet.report);
      ASSERT_EQ(ZEPHVAR_ALLOC(one->m, one->s, quiet.report), 0);
      fill_vec(one->f.asked.PDF, {9, 8, 9});
      fill_vec(one->f.asked.DDF, {4, 3, 0});
      count_group_records(one->m, one->design);
      SETALL(one->sources.combined, 12345, 67890);
      RMARIN(one->sources.marsaglia, 1802, 9373);
      one->f.asked.analysis_type = analysis::predict;
      one->f.asked.isamp = one->f.asked.nburn = 1000;
      if (plain) one->work.body = scan_body::plain;
      scan_records r = one->records();
      start_missing_traits(r);
      one->f.asked.sampler.moves = one == &c;
      find_moves(r, one->f.asked, one->f.state);
      one->f.state.iround = 1;
      GIBSCAN(r, one->f.asked, one->f.state, one->f.counts, one->files);
    }
    // groups 1 to 4, and factor 1, of which levels meet: equations 1 to 16
    EXPECT_EQ(bytes_of(c.s.sol.data(), 16), bytes_of(without.s.sol.data(), 16));
    for (std::int32_t e = 17; e <= 19; ++e) EXPECT_NE(c.s.sol(e), without.s.sol(e));
  }
}

} // namespace
} // namespace zeph_test
