// Draws of missing traits: conditional normal distributions, the order of the
// draws, and what goes back into the data.
#include "gibbs/residuals/residual_sums.h"

#include "gibbs/scan_case.h"

#include "numerics/normal_draws.h"
#include "numerics/packed_matrix.h"

#include <cmath>

namespace {

using namespace zeph_test;

// Three traits, without effects: an observation is its residual.
struct bare_case : scan_case {
  explicit bare_case(std::int32_t records = 1) : scan_case(described(records)) {
    start(1);
    RMARIN(sources.marsaglia, 1802, 9373);
    number_sequence x(3);
    for (std::int32_t r = 1; r <= records; ++r)
      for (std::int32_t t = 1; t <= 3; ++t) design.Y_M(t, r) = static_cast<float>(x.between(-2, 2));
  }
  static described_model described(std::int32_t records) {
    described_model d;
    d.traits.resize(3);
    d.integers = 4, d.reals = 3, d.records = records;
    d.residual = {4.0, 1.0, -0.5, 1.0, 3.0, 0.75, -0.5, 0.75, 2.0};
    return d;
  }
  double R(std::int32_t i, std::int32_t j) const { return s.RCOV(i, j, 1); }
  void draw(std::int32_t mask) {
    scan_records all = records();
    double lik = 0;
    sample_missing(all.model, all.work.missing, all.sources.marsaglia, all.report, work.values.res, mask,
                   s.RCOV.unchecked_slice(1), lik);
  }
};

// Mean and covariance of the missing traits given the observed residuals:
// R_mo R_oo^-1 e_o and R_mm - R_mo R_oo^-1 R_om.
struct conditional {
  conditional(const bare_case& c, std::int32_t mask, const double* e) : mean(0), cov(0) {
    for (std::int32_t t = 1; t <= 3; ++t) (trait_present(mask, t, 3) ? seen : missing).push_back(t);
    const auto o = static_cast<std::int64_t>(seen.size()), m = static_cast<std::int64_t>(missing.size());
    dense_matrix Roo(o);
    for (std::int64_t i = 1; i <= o; ++i)
      for (std::int64_t j = 1; j <= o; ++j) Roo(i, j) = c.R(at(seen, i), at(seen, j));
    const dense_matrix V = dense_inverse(Roo).inverse;
    mean = dense_vector(m);
    cov = dense_matrix(m);
    for (std::int64_t i = 1; i <= m; ++i)
      for (std::int64_t j = 1; j <= m; ++j) cov(i, j) = c.R(at(missing, i), at(missing, j));
    for (std::int64_t i = 1; i <= m; ++i)
      for (std::int64_t k = 1; k <= o; ++k)
        for (std::int64_t l = 1; l <= o; ++l) {
          const double b = c.R(at(missing, i), at(seen, k)) * V(k, l);
          mean(i) += b * e[at(seen, l) - 1];
          for (std::int64_t j = 1; j <= m; ++j) cov(i, j) -= b * c.R(at(seen, l), at(missing, j));
        }
  }
  static std::int32_t at(const std::vector<std::int32_t>& x, std::int64_t i) {
    return x[static_cast<std::size_t>(i - 1)];
  }
  std::vector<std::int32_t> seen, missing;
  dense_vector mean;
  dense_matrix cov;
};

TEST(sample_missing, draws_one_normal_per_missing_trait_from_the_conditional_distribution) {
  const double e[3] = {0.5, -1.25, 2.0};
  for (std::int32_t mask = 0; mask <= 6; ++mask) {
    bare_case c;
    for (std::int32_t t = 1; t <= 3; ++t) c.work.values.res(t) = e[t - 1];
    marsaglia_source same = c.sources.marsaglia;
    c.draw(mask);
    const conditional exact(c, mask, e);
    // res = mean - L z, L the lower factor of the covariance, z in order of traits
    const std::int64_t m = exact.cov.n;
    dense_matrix L(m);
    std::vector<double> z;
    for (std::int64_t i = 1; i <= m; ++i) {
      z.push_back(ranmar_snorm(same));
      double expected = exact.mean(i);
      for (std::int64_t j = 1; j <= i; ++j) {
        double rest = exact.cov(i, j);
        for (std::int64_t k = 1; k < j; ++k) rest -= L(i, k) * L(j, k);
        L(i, j) = i == j ? std::sqrt(rest) : rest / L(j, j);
        expected -= L(i, j) * z[static_cast<std::size_t>(j - 1)];
      }
      EXPECT_NEAR(c.work.values.res(conditional::at(exact.missing, i)), expected, 1e-13) << mask;
    }
    for (const std::int32_t t : exact.seen) EXPECT_EQ(c.work.values.res(t), e[t - 1]);
    EXPECT_EQ(RANMAR(c.sources.marsaglia), RANMAR(same)) << mask;
  }
}

TEST(sample_missing, draws_nothing_for_a_complete_record) {
  bare_case c;
  marsaglia_source same = c.sources.marsaglia;
  c.draw(7);
  EXPECT_EQ(RANMAR(c.sources.marsaglia), RANMAR(same));
}

TEST(sample_missing, adds_nothing_to_the_density_of_a_record_without_observations) {
  bare_case c;
  scan_records all = c.records();
  double lik = 3.5;
  sample_missing(all.model, all.work.missing, all.sources.marsaglia, all.report, c.work.values.res, 0,
                 c.s.RCOV.unchecked_slice(1), lik);
  EXPECT_EQ(lik, 3.5);
}

TEST(sample_missing, takes_what_was_in_a_missing_place_for_nothing) {
  bare_case one, other;
  one.work.values.res(1) = other.work.values.res(1) = 1.0;
  other.work.values.res(2) = 1e6;
  one.draw(4);
  other.draw(4);
  for (std::int32_t t = 1; t <= 3; ++t) EXPECT_EQ(one.work.values.res(t), other.work.values.res(t));
}

TEST(start_missing_traits, are_drawn_around_zero_record_by_record_and_stored_in_32_bits) {
  bare_case c(4);
  const std::int32_t masks[4] = {7, 5, 0, 3}; // complete; trait 2; all; trait 1 missing
  for (std::int32_t r = 1; r <= 4; ++r) c.observe(r, masks[r - 1]);
  const std::vector<float> before(c.design.Y_M.begin(), c.design.Y_M.end());
  marsaglia_source same = c.sources.marsaglia;
  scan_records all = c.records();
  start_missing_traits(all);

  bare_case alone; // the same draws, one record after the other
  ranmar_restore(alone.sources.marsaglia, ranmar_state(same));
  std::int32_t normals = 0;
  for (std::int32_t r = 1; r <= 4; ++r) {
    alone.work.values.res.fill(0.0);
    alone.draw(masks[r - 1]);
    for (std::int32_t t = 1; t <= 3; ++t) {
      const float old = before[static_cast<std::size_t>((r - 1) * 3 + t - 1)];
      if (trait_present(masks[r - 1], t, 3)) {
        EXPECT_EQ(c.design.Y_M(t, r), old);
        continue;
      }
      ++normals;
      EXPECT_EQ(c.design.Y_M(t, r), static_cast<float>(alone.work.values.res(t)));
      EXPECT_NE(static_cast<double>(c.design.Y_M(t, r)), alone.work.values.res(t)); // so narrowed
    }
  }
  for (; normals > 0; --normals) ranmar_snorm(same);
  EXPECT_EQ(RANMAR(c.sources.marsaglia), RANMAR(same));
}

TEST(Bddrmc_sscp, sums_products_before_it_draws_and_stores_what_it_draws_without_the_fitted_value) {
  two_trait_case c(12, true, true, true);
  heard_run quiet;
  mark_zero_covariances(c.m, c.s, quiet.report);
  c.f.asked.analysis_type = analysis::gibbs;
  c.f.state.iround = 1;
  c.f.asked.nburn = 5;
  number_sequence x(31);
  for (double& value : c.s.sol) value = x.between(-1, 1);
  RMARIN(c.sources.marsaglia, 7, 8);
  dense_matrix sums[2] = {dense_matrix(2), dense_matrix(2)};
  for (std::int32_t r = 1; r <= 12; ++r) {
    double e[2];
    for (std::int32_t t = 1; t <= 2; ++t) {
      double fitted = 0;
      for (std::int32_t i = 1; i <= c.design.M_M(r); ++i)
        if (c.design.XD2_M(i, r) == t) fitted += c.design.ZD_M(i, r) * c.s.sol(c.design.XD1_M(i, r));
      e[t - 1] =
          (static_cast<double>(c.design.Y_M(t, r)) - fitted) * static_cast<double>(c.design.WV_SQRT_M(t, r));
    }
    for (std::int32_t i = 1; i <= 2; ++i)
      for (std::int32_t j = 1; j <= 2; ++j) sums[c.design.IRESG_M(r) - 1](i, j) += e[i - 1] * e[j - 1];
  }
  scan_records all = c.records();
  double lik = 0;
  Bddrmc_sscp(all, c.f.asked, c.f.state, lik);
  for (std::int32_t h = 1; h <= 2; ++h)
    for (std::int32_t i = 1, k = 1; i <= 2; ++i)
      for (std::int32_t j = 1; j <= i; ++j, ++k)
        EXPECT_NEAR(c.s.sscp(k, c.m.nramat + h), sums[h - 1](i, j), 1e-11);
  // the last record of the case misses a trait, so what was drawn for it is still in the work area
  ASSERT_NE(c.design.ISIT_M(12), 3);
  for (std::int32_t t = 1; t <= 2; ++t) {
    if (trait_present(c.design.ISIT_M(12), t, 2)) continue;
    EXPECT_EQ(c.design.Y_M(t, 12), static_cast<float>(c.work.values.res(t)));
  }
}

TEST(Bddrmc_sscp, leaves_pairs_held_at_zero_out_of_the_sums) {
  two_trait_case free(10, false, false, false), held(10, false, false, false);
  for (two_trait_case* c : {&free, &held}) {
    heard_run quiet;
    mark_zero_covariances(c->m, c->s, quiet.report);
    c->f.asked.analysis_type = analysis::gibbs;
    c->f.asked.nburn = 5;
  }
  held.s.LNCOV(2) = 1;
  scan_records one = free.records(), other = held.records();
  double lik = 0;
  Bddrmc_sscp(one, free.f.asked, free.f.state, lik);
  Bddrmc_sscp(other, held.f.asked, held.f.state, lik);
  EXPECT_NE(free.s.sscp(2, 3), 0.0);
  EXPECT_EQ(held.s.sscp(2, 3), 0.0);
  EXPECT_EQ(free.s.sscp(1, 3), held.s.sscp(1, 3));
  EXPECT_EQ(free.s.sscp(3, 3), held.s.sscp(3, 3));
}

TEST(Bddrmc_sscp, makes_no_products_for_the_solver_with_sums) {
  two_trait_case c(10, false, false, false);
  c.f.asked.analysis_type = analysis::sums;
  c.f.asked.nburn = 5;
  scan_records all = c.records();
  double lik = 0;
  Bddrmc_sscp(all, c.f.asked, c.f.state, lik);
  for (const double sum : c.s.sscp) EXPECT_EQ(sum, 0.0);
}

} // namespace
