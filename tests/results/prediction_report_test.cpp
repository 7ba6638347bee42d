#include "results/prediction_report.h"

#include "support/chain_frame.h"
#include "support/result_case.h"

using namespace results_test;
using namespace zeph;

TEST(prediction_report, says_nothing_without_samples) {
  result_case c;
  zeph_test::chain_frame frame;
  prediction_store predictions;
  predictions.YPRED.resize(2);
  report_predictions(frame.counts, predictions, c.report);
  EXPECT_EQ(c.said(), "");
  EXPECT_FALSE(c.exists("ypredicted"));
}

TEST(prediction_report, rows_hold_mean_and_standard_deviation) {
  result_case c;
  zeph_test::chain_frame frame;
  prediction_store predictions;
  frame.counts.nsamp_pred = 3;
  // samples 1, 2, 6: sum 9, squares 41, mean 3, variance (41 - 27) / 2 = 7
  predictions.YPRED = {{17, 2, 0.5F, 9.0, 41.0}, {3, 1, 0.0F, -3.0, 3.0}};
  report_predictions(frame.counts, predictions, c.report);
  EXPECT_EQ(c.said(), "\n   Predictive distributions written on file \"ypredicted\"\n"
                      "   No of samples included           3\n");
  EXPECT_EQ(c.content("ypredicted"),
            "       17       2         0.5000000         3.0000000         2.6457513\n"
            "        3       1         0.0000000        -1.0000000         0.0000000\n");
}

TEST(prediction_report, write_faults_stop_with_code_16) {
  result_case c;
  zeph_test::chain_frame frame;
  prediction_store predictions;
  predictions.YPRED.resize(1);
  frame.counts.nsamp_pred = 1;
  c.make_full("ypredicted");
  EXPECT_EQ(exit_code_of([&] { report_predictions(frame.counts, predictions, c.report); }), 16);
  EXPECT_NE(c.said().find("\nERROR - ypredicted: no space left on the device\n\nZEPH terminates.\n"),
            std::string::npos);
}
