#include "samples/accumulators.h"

#include "support/chain_frame.h"
#include "support/result_case.h"

#include <cmath>

using namespace results_test;
using namespace zeph;

namespace {

struct sums {
  model_records m = dairy_model();
  equation_layout layout = dairy_layout();
  sampler_store store;
  zeph_test::chain_frame frame;
  sums() {
    frame.asked.analysis_type = analysis::sums;
    for (vec<double>* x : {&store.sol, &store.solpostmean, &store.pev, &store.sols}) x->take(dairy_neq);
    for (mat<double>* x : {&store.PARPOSTMEAN, &store.PARVAR, &store.pars}) x->take(3, 3);
  }
  void sample(double x) {
    store.sol.fill(x);
    accumulate_solutions(m, layout, store, frame.counts);
  }
};

} // namespace

TEST(accumulators, a_sample_adds_solutions_and_their_squares) {
  sums c;
  c.sample(3.0);
  c.sample(-1.0);
  EXPECT_EQ(c.frame.counts.nsamples, 2.0);
  for (int e = 1; e <= dairy_neq; ++e) {
    EXPECT_EQ(c.store.solpostmean(e), 2.0); // 3 - 1
    EXPECT_EQ(c.store.pev(e), 10.0);        // 9 + 1
  }
}

TEST(accumulators, rows_left_out_by_a_smaller_model_count_as_zero) {
  sums c;
  c.sample(3.0); // full model
  c.layout = dairy_layout(1);
  c.sample(5.0); // row 2 of factor 1, equations 10, 12, 14, is out
  EXPECT_EQ(c.frame.counts.nsamples, 2.0);
  for (int e = 1; e <= dairy_neq; ++e) {
    const bool out = e == 10 || e == 12 || e == 14;
    EXPECT_EQ(c.store.solpostmean(e), out ? 3.0 : 8.0) << e;
    EXPECT_EQ(c.store.pev(e), out ? 9.0 : 34.0) << e;
  }
}

TEST(accumulators, what_is_in_a_row_left_out_is_not_read) {
  sums c;
  c.layout = dairy_layout(0);
  c.store.sol.fill(1.0);
  c.store.sol(9) = c.store.sol(14) = std::nan("");
  accumulate_solutions(c.m, c.layout, c.store, c.frame.counts);
  EXPECT_EQ(c.store.solpostmean(9), 0.0);
  EXPECT_EQ(c.store.solpostmean(14), 0.0);
  EXPECT_EQ(c.store.solpostmean(15), 1.0);
}

TEST(accumulators, moments_are_mean_and_sample_variance) {
  sums c;
  for (const double x : {1.0, 2.0, 6.0}) c.sample(x);
  solution_moments(c.frame.asked, c.frame.counts, c.store);
  // mean 3; variance ((-2)^2 + (-1)^2 + 3^2) / 2 = 7
  EXPECT_EQ(c.store.solpostmean(1), 3.0);
  EXPECT_DOUBLE_EQ(c.store.pev(16), 7.0);
}

TEST(accumulators, one_sample_has_variance_zero) {
  sums c;
  c.sample(4.0);
  solution_moments(c.frame.asked, c.frame.counts, c.store);
  EXPECT_EQ(c.store.solpostmean(1), 4.0);
  EXPECT_EQ(c.store.pev(1), 0.0);
}

TEST(accumulators, no_samples_give_what_the_arithmetic_gives) {
  sums c;
  solution_moments(c.frame.asked, c.frame.counts, c.store);
  EXPECT_TRUE(std::isnan(c.store.solpostmean(1))); // 0 / 0
  EXPECT_EQ(c.store.pev(1), 0.0);
}

TEST(accumulators, solver_reports_its_last_solutions) {
  for (const std::int32_t type : {0, -3}) {
    sums c;
    c.frame.asked.analysis_type = analysis_of(type);
    c.store.pev.fill(9.0);
    fill_quarters(c.store.sol);
    solution_moments(c.frame.asked, c.frame.counts, c.store);
    for (int e = 1; e <= dairy_neq; ++e) EXPECT_EQ(c.store.solpostmean(e), e / 4.0);
    for (int e = 1; e <= dairy_neq; ++e) EXPECT_EQ(c.store.pev(e), 0.0);
  }
}

TEST(accumulators, hand_over_keeps_means_and_clears_sums) {
  sums c;
  c.sample(4.0);
  c.store.PARPOSTMEAN.fill(2.5);
  c.store.PARVAR.fill(1.5);
  for (mat<double>* x : {&c.store.dic_ressum, &c.store.dic_rrsum}) {
    x->take(2, 2);
    x->fill(1.0);
  }
  c.store.dic_s.take(2);
  c.store.dic_s.fill(1.0);
  hand_over_sums(c.store, c.frame.counts);
  EXPECT_EQ(c.frame.counts.nsamples, 0.0);
  EXPECT_EQ(c.store.sols(16), 4.0);
  EXPECT_EQ(c.store.pars(3, 3), 2.5);
  EXPECT_EQ(c.store.sol(1), 4.0); // the chain's state stays
  for (const double x : c.store.solpostmean) EXPECT_EQ(x, 0.0);
  for (const double x : c.store.pev) EXPECT_EQ(x, 0.0);
  for (mat<double>* y : {&c.store.PARPOSTMEAN, &c.store.PARVAR, &c.store.dic_ressum, &c.store.dic_rrsum})
    for (const double x : *y) EXPECT_EQ(x, 0.0);
  for (const double x : c.store.dic_s) EXPECT_EQ(x, 0.0);
}

namespace {

// Two factors, of orders 2 and 1, and the residual of two traits in `groups` groups.
struct matrix_sums : sums {
  explicit matrix_sums(std::int32_t groups = 1) {
    structure_record& residual = m.residual();
    residual.n_hetgr = groups;
    residual.HETG_N_OBS.take(range(0, groups));
    store.G = groups;
    for (mat<double>* x : {&store.sscp, &store.PARPOSTMEAN, &store.PARVAR}) x->take(3, 2 + groups);
    store.RCOV.take(2, 2, groups);
    store.dic_rrsum.take(2, groups);
    store.dic_s.take(2);
    frame.asked.analysis_type = analysis::gibbs;
    frame.state.ntr = {2, 1, 2};
    frame.asked.isamp = 5;
    frame.state.iround = 10;
  }
  void draw(double x) {
    store.sscp.fill(x);
    accumulate_covariances(m, store, frame.state);
    frame.counts.nsamples += 1;
  }
  void moments() {
    for (double& x : store.PARPOSTMEAN) x /= frame.counts.nsamples;
    covariance_moments(m, frame.asked, frame.state, frame.counts, store);
  }
};

} // namespace

TEST(accumulators, a_draw_adds_the_leading_block_of_each_matrix) {
  matrix_sums c(2);
  c.draw(3.0);
  c.draw(-1.0);
  // 3 - 1 and 9 + 1; factor 2 has one element
  for (const std::int32_t column : {1, 3, 4})
    for (std::int32_t e = 1; e <= 3; ++e) {
      EXPECT_EQ(c.store.PARPOSTMEAN(e, column), 2.0);
      EXPECT_EQ(c.store.PARVAR(e, column), 10.0);
    }
  EXPECT_EQ(c.store.PARPOSTMEAN(1, 2), 2.0);
  EXPECT_EQ(c.store.PARPOSTMEAN(2, 2), 0.0);
  EXPECT_EQ(c.store.PARVAR(3, 2), 0.0);
}

TEST(accumulators, a_smaller_model_adds_its_rows_only) {
  matrix_sums c;
  c.frame.state.ntr = {1, 1, 2};
  c.draw(3.0);
  EXPECT_EQ(c.store.PARPOSTMEAN(1, 1), 3.0);
  EXPECT_EQ(c.store.PARPOSTMEAN(2, 1), 0.0);
  EXPECT_EQ(c.store.PARPOSTMEAN(3, 3), 3.0);
}

TEST(accumulators, covariance_moments_are_standard_deviations) {
  matrix_sums c;
  for (const double x : {1.0, 2.0, 6.0}) c.draw(x);
  c.moments();
  EXPECT_EQ(c.store.PARPOSTMEAN(1, 1), 3.0);
  EXPECT_DOUBLE_EQ(c.store.PARVAR(1, 1), std::sqrt(7.0)); // ((-2)^2 + (-1)^2 + 3^2) / 2
  EXPECT_DOUBLE_EQ(c.store.PARVAR(3, 3), std::sqrt(7.0));
  EXPECT_EQ(c.store.PARVAR(2, 2), 0.0); // not in factor 2
}

TEST(accumulators, a_spread_at_or_below_1e_12_or_negative_is_no_deviation) {
  matrix_sums c;
  c.frame.counts.nsamples = 2;
  c.store.PARPOSTMEAN.fill(1.0); // n mean^2 = 2
  c.store.PARVAR(1, 1) = 2.0 + 0.9e-12;
  c.store.PARVAR(2, 1) = 2.0 + 4e-12;
  c.store.PARVAR(3, 1) = 1.0; // rounding can leave it below
  covariance_moments(c.m, c.frame.asked, c.frame.state, c.frame.counts, c.store);
  EXPECT_EQ(c.store.PARVAR(1, 1), 0.0);
  EXPECT_NEAR(c.store.PARVAR(2, 1), 2e-6, 1e-9); // sqrt(4e-12 / 1)
  EXPECT_EQ(c.store.PARVAR(3, 1), 0.0);
}

TEST(accumulators, what_is_no_number_has_no_deviation_that_is_one) {
  matrix_sums c;
  c.draw(std::nan(""));
  c.draw(1.0);
  c.moments();
  EXPECT_TRUE(std::isnan(c.store.PARPOSTMEAN(1, 1)) && std::isnan(c.store.PARVAR(1, 1)));
}

TEST(accumulators, fewer_than_two_draws_have_no_deviation) {
  for (const int n : {0, 1}) {
    matrix_sums c;
    for (int i = 0; i < n; ++i) c.draw(4.0);
    c.moments();
    for (const double x : c.store.PARVAR) EXPECT_EQ(x, 0.0);
    if (n == 0)
      EXPECT_TRUE(std::isnan(c.store.PARPOSTMEAN(1, 1)));
    else
      EXPECT_EQ(c.store.PARPOSTMEAN(1, 1), 4.0);
  }
}

TEST(accumulators, solver_has_no_covariance_moments) {
  matrix_sums c;
  c.frame.asked.analysis_type = analysis::solve;
  c.store.PARVAR.fill(5.0);
  covariance_moments(c.m, c.frame.asked, c.frame.state, c.frame.counts, c.store);
  EXPECT_EQ(c.store.PARVAR(1, 1), 5.0);
}

TEST(accumulators, deviance_of_a_sample_is_summed_over_groups) {
  matrix_sums c(2);
  c.m.residual().HETG_N_OBS(1) = 3;
  c.m.residual().HETG_N_OBS(2) = 5;
  c.store.RCOV(1, 1, 1) = 2.0, c.store.RCOV(2, 2, 1) = 4.0;
  c.store.RCOV(1, 1, 2) = 0.5, c.store.RCOV(2, 2, 2) = 1.0;
  c.store.dic_rrsum(1, 1) = 6.0, c.store.dic_rrsum(2, 1) = 8.0;
  c.store.dic_rrsum(1, 2) = 1.0, c.store.dic_rrsum(2, 2) = 7.0;
  c.store.dic_s(1) = 100.0;
  accumulate_deviance(c.m, c.store, c.frame.asked, c.frame.state);
  EXPECT_DOUBLE_EQ(c.store.dic_s(1), 100.0 + 3 * std::log(2.0) + 3.0 - 5 * std::log(2.0) + 2.0);
  EXPECT_DOUBLE_EQ(c.store.dic_s(2), 3 * std::log(4.0) + 2.0 + 7.0);
}

TEST(accumulators, deviance_is_summed_in_sample_rounds_of_types_below_5_only) {
  matrix_sums c;
  c.m.residual().HETG_N_OBS(1) = 3;
  c.store.RCOV.fill(2.0);
  c.frame.state.iround = 11;
  accumulate_deviance(c.m, c.store, c.frame.asked, c.frame.state);
  c.frame.state.iround = 10;
  c.frame.asked.analysis_type = analysis::models;
  accumulate_deviance(c.m, c.store, c.frame.asked, c.frame.state);
  EXPECT_EQ(c.store.dic_s(1), 0.0);
  c.frame.asked.analysis_type = analysis::gibbs_no_groups;
  accumulate_deviance(c.m, c.store, c.frame.asked, c.frame.state);
  EXPECT_DOUBLE_EQ(c.store.dic_s(1), 3 * std::log(2.0));
}

TEST(accumulators, deviance_takes_the_place_0_of_a_model_without_groups) {
  matrix_sums c;
  c.m.residual().n_hetgr = 0;
  c.m.residual().HETG_N_OBS(0) = 4;
  c.store.RCOV.fill(2.0);
  accumulate_deviance(c.m, c.store, c.frame.asked, c.frame.state);
  EXPECT_DOUBLE_EQ(c.store.dic_s(1), 4 * std::log(2.0));
}

TEST(accumulators, deviance_of_a_variance_of_zero_is_not_finite) {
  matrix_sums c;
  c.m.residual().HETG_N_OBS(1) = 1;
  c.store.dic_rrsum(1, 1) = 1.0;
  accumulate_deviance(c.m, c.store, c.frame.asked, c.frame.state);
  EXPECT_FALSE(std::isfinite(c.store.dic_s(1))); // log of 0
}
