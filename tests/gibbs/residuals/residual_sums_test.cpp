#include "gibbs/residuals/residual_sums.h"

#include "gibbs/scan_case.h"

#include <cmath>

namespace {

using namespace zeph_test;

const double log_2_pi = std::log(2.0 * 3.14159265358979323846);

// -log of the density of e, observed traits only, under R, without the scales
// (half the log determinant): n/2 log 2 pi + e'R^-1 e / 2. The sum over traits
// of z^2, z conditional on the traits before, is the quadratic form.
double unscaled_density(const std::vector<double>& e, const dense_matrix& R) {
  const dense_matrix inverse = dense_inverse(R).inverse;
  double form = 0;
  for (std::int64_t i = 1; i <= R.n; ++i)
    for (std::int64_t j = 1; j <= R.n; ++j)
      form += e[static_cast<std::size_t>(i - 1)] * inverse(i, j) * e[static_cast<std::size_t>(j - 1)];
  return 0.5 * static_cast<double>(R.n) * log_2_pi + 0.5 * form;
}

// Weighted residuals from the full design.
std::vector<double> residuals(const scan_case& c, std::int32_t r) {
  std::vector<double> e;
  for (std::int32_t t = 1; t <= c.m.nt; ++t) {
    double fitted = 0;
    for (std::int32_t i = 1; i <= c.design.M_M(r); ++i)
      if (c.design.XD2_M(i, r) == t) fitted += c.design.ZD_M(i, r) * c.s.sol(c.design.XD1_M(i, r));
    e.push_back((static_cast<double>(c.design.Y_M(t, r)) - fitted) *
                static_cast<double>(c.design.WV_SQRT_M(t, r)));
  }
  return e;
}

void some_solutions(scan_case& c) {
  number_sequence x(31);
  for (double& value : c.s.sol) value = x.between(-1, 1);
}

double sums(scan_case& c, std::int64_t round) {
  c.f.asked.analysis_type = analysis::sums;
  c.f.state.iround = round;
  scan_records records = c.records();
  double lik = 99;
  Bddrmc_sscp(records, c.f.asked, c.f.state, lik);
  return lik;
}

TEST(Bddrmc_sscp, sums_the_negative_log_density_without_the_scales) {
  for (const bool weights : {false, true}) {
    two_trait_case c(30, weights, false, true);
    some_solutions(c);
    double expected = 0;
    for (std::int32_t r = 1; r <= 30; ++r)
      expected += unscaled_density(residuals(c, r), group_matrix(c.design.IRESG_M(r)));
    EXPECT_NEAR(sums(c, 1), expected, 1e-10 * expected);
  }
}

TEST(Bddrmc_sscp, starts_from_zero_in_each_call) {
  two_trait_case c(5, false, false, false);
  const double lik = sums(c, 1);
  EXPECT_EQ(sums(c, 2), lik);
}

TEST(sample_missing, scores_the_observed_traits_of_a_record) {
  described_model d;
  d.traits.resize(3);
  d.integers = 4, d.reals = 3, d.records = 1;
  d.residual = {4.0, 1.0, -0.5, 1.0, 3.0, 0.75, -0.5, 0.75, 2.0};
  scan_case c(d);
  c.start(1);
  RMARIN(c.sources.marsaglia, 1802, 9373);
  const double e[3] = {0.5, -1.25, 2.0};
  for (std::int32_t mask = 0; mask <= 7; ++mask) {
    std::vector<std::int32_t> seen;
    std::vector<double> observed;
    for (std::int32_t t = 1; t <= 3; ++t) {
      c.work.values.res(t) = e[t - 1];
      if (!trait_present(mask, t, 3)) continue;
      seen.push_back(t);
      observed.push_back(e[t - 1]);
    }
    dense_matrix R(static_cast<std::int64_t>(seen.size()));
    for (std::size_t i = 0; i < seen.size(); ++i)
      for (std::size_t j = 0; j < seen.size(); ++j)
        R(static_cast<std::int64_t>(i) + 1, static_cast<std::int64_t>(j) + 1) =
            d.residual[static_cast<std::size_t>((seen[i] - 1) * 3 + seen[j] - 1)];
    double lik = 1.0;
    scan_records records = c.records();
    sample_missing(records.model, records.work.missing, records.sources.marsaglia, records.report,
                   c.work.values.res, mask, c.s.RCOV.unchecked_slice(1), lik);
    EXPECT_NEAR(lik, 1.0 + unscaled_density(observed, R), 1e-13) << mask;
    for (std::int32_t t = 1; t <= 3; ++t) {
      if (!trait_present(mask, t, 3)) continue;
      EXPECT_EQ(c.work.values.res(t), e[t - 1]);
    }
  }
}

TEST(sample_missing, leaves_the_conditional_moments_of_a_missing_trait) {
  described_model d;
  d.traits.resize(2);
  d.integers = 4, d.reals = 2, d.records = 1;
  d.residual = {2.0, 0.5, 0.5, 1.0};
  scan_case c(d);
  c.start(1);
  c.work.values.res(1) = 3.0, c.work.values.res(2) = 8.0;
  double lik = 0;
  RMARIN(c.sources.marsaglia, 1802, 9373);
  scan_records records = c.records();
  sample_missing(records.model, records.work.missing, records.sources.marsaglia, records.report,
                 c.work.values.res, 2, c.s.RCOV.unchecked_slice(1), lik);
  // trait 2 given residual 3 of trait 1: mean 0.5 / 2 x 3, variance 1 - 0.25 / 2
  EXPECT_NEAR(c.work.missing.given.P(5), -0.75, 1e-15);
  EXPECT_NEAR(c.work.missing.given.P(3), 0.875, 1e-15);
}

TEST(Bddrmc_sscp, sums_residuals_by_record_and_squares_by_group_in_sample_rounds_only) {
  two_trait_case c(20, true, false, true);
  some_solutions(c);
  c.f.asked.nburn = 4;
  c.f.asked.isamp = 3;
  for (std::int64_t round = 1; round <= 6; ++round) sums(c, round);
  for (const double value : c.s.dic_ressum) EXPECT_EQ(value, 0.0);
  sums(c, 7);
  c.s.sol(5) += 0.5;
  c.s.sol(6) += 0.5;
  sums(c, 8);
  sums(c, 10);
  dense_matrix squares(2);
  for (std::int32_t r = 1; r <= 20; ++r) {
    const std::vector<double> e = residuals(c, r);
    const double shift =
        0.5 * static_cast<double>(c.design.WV_SQRT_M(1, r)); // of trait 1 between the samples
    EXPECT_NEAR(c.s.dic_ressum(1, r), 2.0 * e[0] + shift, 1e-13);
    EXPECT_NEAR(c.s.dic_ressum(2, r), 2.0 * e[1], 1e-13);
    for (std::int32_t t = 1; t <= 2; ++t)
      squares(t, c.design.IRESG_M(r)) +=
          e[static_cast<std::size_t>(t - 1)] * e[static_cast<std::size_t>(t - 1)];
  }
  // squares are those of the last sample
  for (std::int32_t t = 1; t <= 2; ++t)
    for (std::int32_t h = 1; h <= 2; ++h) EXPECT_NEAR(c.s.dic_rrsum(t, h), squares(t, h), 1e-12);
}

TEST(Bddrmc_sscp, keeps_the_residuals_of_a_sample_when_asked) {
  two_trait_case c(4, false, false, false);
  some_solutions(c);
  EXPECT_FALSE(c.design.ZEPH_RES.allocated());
  c.m.l_residuals = true;
  c.m.model_kind = 2;
  c.design.ZEPH_RES.take(2, 4);
  c.f.asked.isamp = 2;
  sums(c, 1);
  for (const double value : c.design.ZEPH_RES) EXPECT_EQ(value, 0.0);
  sums(c, 2);
  for (std::int32_t r = 1; r <= 4; ++r)
    for (std::int32_t t = 1; t <= 2; ++t)
      EXPECT_NEAR(c.design.ZEPH_RES(t, r), residuals(c, r)[static_cast<std::size_t>(t - 1)], 1e-14);
}

TEST(Bddrmc_sscp, counts_a_record_without_entries_with_its_observations) {
  two_trait_case c(1, false, false, false);
  c.design.M_M(1) = 0;
  const std::vector<double> y = {static_cast<double>(c.design.Y_M(1, 1)),
                                 static_cast<double>(c.design.Y_M(2, 1))};
  EXPECT_NEAR(sums(c, 1), unscaled_density(y, group_matrix(1)), 1e-13);
}

} // namespace
