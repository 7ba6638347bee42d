// Ranks of the truth among the samples of exact chains: 40 data sets of some kinds; 640 of every kind are in
// tests/slow. Chi-square of 8 classes of 8 ranks: that of 40 uniform ranks is above 30 with probability
// 0.00013 (a million draws); the mean rank is 4 standard errors away with probability 0.00006.
#include "runs/calibration_kinds.h"

namespace {

using namespace zeph_test;

class forty_truths : public testing::TestWithParam<calibrated_kind> {};

TEST_P(forty_truths, have_uniform_ranks_among_the_samples_of_exact_chains) {
  const std::vector<ranks_of_quantity> found = calibrate(GetParam(), 40);
  EXPECT_GE(found.size(), 5U);
  for (const ranks_of_quantity& q : found) {
    EXPECT_LT(q.chi_square(8), 30.0) << q.name;
    EXPECT_LT(std::fabs(q.z()), 4.0) << q.name;
  }
}

// Kinds whose chains are quick, and a cure model at a third of its interval.
std::vector<calibrated_kind> kinds_of_default_tests() {
  std::vector<calibrated_kind> out;
  for (calibrated_kind kind : calibrated_kinds())
    for (const char* name : {"missing", "maternal", "censored", "cure", "zero_pair", "groups", "jump"})
      if (kind.name == name) {
        if (kind.name == "cure") kind.interval /= 3;
        out.push_back(kind);
      }
  return out;
}

INSTANTIATE_TEST_SUITE_P(of, forty_truths, testing::ValuesIn(kinds_of_default_tests()),
                         [](const auto& info) { return info.param.name; });

} // namespace
