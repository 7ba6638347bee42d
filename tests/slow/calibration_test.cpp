// Long tests of the whole sampler on many small data sets; minutes, not seconds.
#include "runs/calibration_kinds.h"
#include "slow/simulated_herds.h"

namespace {

using namespace zeph_test;

void note_row(const std::string& row) {
  if (const char* file = std::getenv("ZEPH_FIGURES")) std::ofstream(file, std::ios::app) << row << '\n';
}

// Number of samples below the truth, 0 .. number of samples.
int rank_of(const followed& q) {
  int rank = 0;
  for (const double x : q.samples) rank += x < q.truth ? 1 : 0;
  return rank;
}

// Ranks 0..63 of 640 data sets in 16 classes: chi-square with 15 degrees of
// freedom is above 42.0 with probability 0.0002; for 14 quantities 0.003.
TEST(simulation_based_calibration, finds_uniform_ranks_of_matrices_and_solutions_with_complete_data) {
  constexpr int sets = 640, samples = 63, classes = 16;
  const scratch_directory directory;
  std::map<std::string, std::array<int, classes>> counts;
  std::map<std::string, double> worth; // mean share of effective samples
  for (int n = 0; n < sets; ++n)
    for (const followed& q : run_simulated(directory, n, 0.0, 200, samples, 40)) {
      ASSERT_EQ(q.samples.size(), static_cast<std::size_t>(samples)) << q.name;
      ++counts[q.name][static_cast<std::size_t>(rank_of(q) * classes / (samples + 1))];
      worth[q.name] += estimate_of(q.samples).ess / samples / sets;
    }
  for (const auto& [name, count] : counts) {
    double chi_square = 0.0;
    const double expected = static_cast<double>(sets) / classes;
    for (const int c : count) chi_square += (c - expected) * (c - expected) / expected;
    EXPECT_LT(chi_square, 42.0) << name;
    char row[200];
    std::snprintf(row, sizeof row, "| calibration | herds | %s | %.1f | %.2f |", name.c_str(), chi_square,
                  worth[name]);
    note_row(row);
  }
}

class calibration : public testing::TestWithParam<calibrated_kind> {};

// The same for exact chains of every kind: 42.0 for each of 72 quantities, 0.015 in all.
TEST_P(calibration, finds_uniform_ranks_with_the_exact_sampler) {
  for (const ranks_of_quantity& q : calibrate(GetParam(), 640)) {
    const double chi_square = q.chi_square(16);
    EXPECT_LT(chi_square, 42.0) << q.name;
    EXPECT_LT(std::fabs(q.z()), 4.0) << q.name;
    char row[200];
    std::snprintf(row, sizeof row, "| calibration | %s | %s | %.1f | %.2f |", GetParam().name.c_str(),
                  q.name.c_str(), chi_square, q.worth);
    note_row(row);
  }
}

INSTANTIATE_TEST_SUITE_P(of, calibration, testing::ValuesIn(calibrated_kinds()),
                         [](const auto& info) { return info.param.name; });

// What the plain sampler does where an animal and its dam meet in a record.
TEST(calibration_of_the_plain_sampler, finds_it_out_where_levels_meet) {
  double largest = 0.0;
  for (const calibrated_kind& kind : calibrated_kinds())
    if (kind.name == "maternal")
      for (const ranks_of_quantity& q : calibrate(kind, 640, "classic"))
        largest = std::max(largest, q.chi_square(16));
  EXPECT_GT(largest, 100.0);
}

// Central 50 % and 90 % intervals of 200 data sets, each with 40 % of trait 2 and
// 20 % of trait 1 deleted. The numbers that hold the truth are binomial; the
// bounds leave 0.0002 outside on either side together.
TEST(posterior_intervals, hold_the_truth_as_often_as_they_should_when_values_are_missing_at_random) {
  constexpr int sets = 200, samples = 199;
  const scratch_directory directory;
  std::map<std::string, std::array<int, 2>> held;
  for (int n = 0; n < sets; ++n)
    for (const followed& q : run_simulated(directory, 10000 + n, 0.4, 200, samples, 15)) {
      ASSERT_EQ(q.samples.size(), static_cast<std::size_t>(samples)) << q.name;
      const int rank = rank_of(q); // 0..199, uniform
      held[q.name][0] += rank >= 50 && rank < 150 ? 1 : 0;
      held[q.name][1] += rank >= 10 && rank < 190 ? 1 : 0;
    }
  for (const auto& [name, count] : held) {
    EXPECT_GE(count[0], 74) << name; // binomial(200, 0.5)
    EXPECT_LE(count[0], 126) << name;
    EXPECT_GE(count[1], 163) << name; // binomial(200, 0.9)
    EXPECT_LE(count[1], 194) << name;
    char row[200];
    std::snprintf(row, sizeof row, "| coverage | %s | %d | %d |", name.c_str(), count[0], count[1]);
    note_row(row);
  }
}

} // namespace
