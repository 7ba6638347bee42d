#include "results/deviance.h"

#include "support/chain_frame.h"
#include "support/result_case.h"

#include <cmath>

using namespace results_test;
using namespace zeph;

namespace {

// Three records of two traits in two residual groups, sums over two samples:
//   group 1 (codes are of no use here): records 1 and 3, mean variances 2 and 4
//   group 2: record 2, mean variances 0.5 and 1
// Mean residuals: record 1 (1, 2), record 2 (3, 1), record 3 (-1, 0).
struct deviances : result_case {
  model_records m = dairy_model();
  design_store design;
  sampler_store store;
  zeph_test::chain_frame frame;
  deviances() {
    structure_record& residual = m.residual();
    residual.n_hetgr = 2;
    residual.HETG_N_OBS.take(range(0, 2));
    design.nobs = 3;
    zeph_test::fill_vec(design.IRESG_M, {1, 2, 1});
    count_group_records(m, design);
    store.G = 2;
    store.PARPOSTMEAN.take(3, 4);
    store.PARPOSTMEAN(1, 3) = 4.0, store.PARPOSTMEAN(3, 3) = 8.0;
    store.PARPOSTMEAN(1, 4) = 1.0, store.PARPOSTMEAN(3, 4) = 2.0;
    store.PARPOSTMEAN(2, 1) = -3.0;
    store.dic_ressum.take(2, 3);
    const double sums[3][2] = {{2, 4}, {6, 2}, {-2, 0}};
    for (int i = 1; i <= 3; ++i)
      for (int j = 1; j <= 2; ++j) store.dic_ressum(j, i) = sums[i - 1][j - 1];
    store.dic_s.take(2);
    store.dic_m.take(2);
    frame.asked.analysis_type = analysis::gibbs;
    frame.counts.nsamples = 2;
  }
};

// trait 1: 1/2 + 9/0.5 + 1/2 + 2 log 2 + log 0.5; trait 2: 4/4 + 1/1 + 0 + 2 log 4 + log 1
const double at_means[2] = {19.0 + std::log(2.0), 2.0 + 4 * std::log(2.0)};

} // namespace

TEST(deviance, sums_become_means) {
  deviances c;
  deviance_means(c.frame.counts, c.store);
  EXPECT_EQ(c.store.dic_ressum(1, 2), 3.0);
  EXPECT_EQ(c.store.PARPOSTMEAN(3, 3), 4.0);
  EXPECT_EQ(c.store.PARPOSTMEAN(2, 1), -1.5); // all columns
}

TEST(deviance, at_the_means_takes_the_variance_of_each_records_group) {
  deviances c;
  c.store.dic_m.fill(77.0);
  deviance_means(c.frame.counts, c.store);
  deviance_at_means(c.m, c.design, c.store);
  EXPECT_DOUBLE_EQ(c.store.dic_m(1), at_means[0]);
  EXPECT_DOUBLE_EQ(c.store.dic_m(2), at_means[1]);
}

TEST(deviance, report_has_a_row_for_each_trait) {
  deviances c;
  // mean deviances 20.69314718 + 1.5 and 4.77258872 + 0.25: pD 2.5, 0.25
  c.store.dic_s(1) = 2 * (at_means[0] + 2.5);
  c.store.dic_s(2) = 2 * (at_means[1] + 0.25);
  report_deviance(c.m, c.design, c.frame.counts, c.store, c.report);
  // DIC = dic_m + 2 pD: 24.693147 and 5.2725887; T8, A10, 2G15.8
  EXPECT_EQ(c.said(), "\n"
                      "DIC per trait                            \n"
                      "\n"
                      "Trait       DIC            pD            \n"
                      "         milk      24.693147      2.5000000    \n"
                      "         fat       5.2725887     0.25000000    \n");
}

TEST(deviance, no_samples_give_what_the_arithmetic_gives) {
  deviances c;
  c.frame.counts.nsamples = 0;
  c.store.PARPOSTMEAN.fill(0);
  c.store.dic_ressum.fill(0);
  report_deviance(c.m, c.design, c.frame.counts, c.store, c.report);
  EXPECT_NE(c.said().find("         milk                NaN            NaN\n"), std::string::npos);
}
