#include "results/accumulators.h"

#include "result_case.h"

#include <cmath>

using namespace results_test;
using namespace zeph;

namespace {

struct sums {
  model_records m = dairy_model();
  equation_layout layout = dairy_layout();
  sampler_store store;
  run_frame frame;
  sums() {
    frame.analysis_type = 1;
    for (vec<double>* x : {&store.sol, &store.solpostmean, &store.pev, &store.sols}) x->take(dairy_neq);
    for (mat<double>* x : {&store.PARPOSTMEAN, &store.PARVAR, &store.pars}) x->take(3, 3);
  }
  void sample(double x) {
    store.sol.fill(x);
    accumulate_solutions(m, layout, store, frame);
  }
};

} // namespace

TEST(accumulators, a_sample_adds_solutions_and_their_squares) {
  sums c;
  c.sample(3.0);
  c.sample(-1.0);
  EXPECT_EQ(c.frame.nsamples, 2.0);
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
  EXPECT_EQ(c.frame.nsamples, 2.0);
  for (int e = 1; e <= dairy_neq; ++e) {
    const bool out = e == 10 || e == 12 || e == 14;
    EXPECT_EQ(c.store.solpostmean(e), out ? 3.0 : 8.0) << e;
    EXPECT_EQ(c.store.pev(e), out ? 9.0 : 34.0) << e;
  }
}

TEST(accumulators, what_stands_in_a_row_left_out_is_not_read) {
  sums c;
  c.layout = dairy_layout(0);
  c.store.sol.fill(1.0);
  c.store.sol(9) = c.store.sol(14) = std::nan("");
  accumulate_solutions(c.m, c.layout, c.store, c.frame);
  EXPECT_EQ(c.store.solpostmean(9), 0.0);
  EXPECT_EQ(c.store.solpostmean(14), 0.0);
  EXPECT_EQ(c.store.solpostmean(15), 1.0);
}

TEST(accumulators, moments_are_mean_and_sample_variance) {
  sums c;
  for (const double x : {1.0, 2.0, 6.0}) c.sample(x);
  solution_moments(c.frame, c.store);
  // mean 3; variance ((-2)^2 + (-1)^2 + 3^2) / 2 = 7
  EXPECT_EQ(c.store.solpostmean(1), 3.0);
  EXPECT_DOUBLE_EQ(c.store.pev(16), 7.0);
}

TEST(accumulators, one_sample_has_variance_zero) {
  sums c;
  c.sample(4.0);
  solution_moments(c.frame, c.store);
  EXPECT_EQ(c.store.solpostmean(1), 4.0);
  EXPECT_EQ(c.store.pev(1), 0.0);
}

TEST(accumulators, no_samples_give_what_the_arithmetic_gives) {
  sums c;
  solution_moments(c.frame, c.store);
  EXPECT_TRUE(std::isnan(c.store.solpostmean(1))); // 0 / 0
  EXPECT_EQ(c.store.pev(1), 0.0);
}

TEST(accumulators, solver_reports_its_last_solutions) {
  for (const std::int32_t type : {0, -3}) {
    sums c;
    c.frame.analysis_type = type;
    c.store.pev.fill(9.0);
    fill_quarters(c.store.sol);
    solution_moments(c.frame, c.store);
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
  hand_over_sums(c.store, c.frame);
  EXPECT_EQ(c.frame.nsamples, 0.0);
  EXPECT_EQ(c.store.sols(16), 4.0);
  EXPECT_EQ(c.store.pars(3, 3), 2.5);
  EXPECT_EQ(c.store.sol(1), 4.0); // the chain's state goes on
  for (const double x : c.store.solpostmean) EXPECT_EQ(x, 0.0);
  for (const double x : c.store.pev) EXPECT_EQ(x, 0.0);
  for (mat<double>* y : {&c.store.PARPOSTMEAN, &c.store.PARVAR, &c.store.dic_ressum, &c.store.dic_rrsum})
    for (const double x : *y) EXPECT_EQ(x, 0.0);
  for (const double x : c.store.dic_s) EXPECT_EQ(x, 0.0);
}
