// What whole runs of each analysis type keep of latent variables: the samples of
// thresholds and of mixtures, and what the reports make of them.
#include "runs/whole_run.h"
#include "support/jump_case.h"
#include "support/places.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

namespace {

using namespace zeph_test;

std::vector<std::vector<double>> rows_of(const std::string& text) {
  std::vector<std::vector<double>> rows;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    rows.emplace_back();
    for (double x = 0; words >> x;) rows.back().push_back(x);
  }
  return rows;
}

// Two traits, the first ordered in four categories, one factor of two rows.
struct ordered_case : jump_case {
  ordered_case() : jump_case({{{"I", 2, 12}}, 2}) {
    m->MODEL(1).TRAIT_TYPE = zeph::trait_categorical;
    m->ncat = 1;
    for (std::size_t i = 0; i < reals.size(); ++i) reals[i][0] = static_cast<float>(1 + i % 4);
  }
};

// The three rows after each heading of the thresholds on the listing.
std::vector<std::vector<double>> reported_thresholds(const std::string& listing) {
  std::vector<std::vector<double>> rows;
  std::istringstream lines(listing);
  for (std::string line; std::getline(lines, line);) {
    if (line != "       Posterior mean and Std of thresholds") continue;
    std::getline(lines, line);
    EXPECT_EQ(line, "       Trait           1");
    std::string three;
    for (int k = 0; k < 3 && std::getline(lines, line); ++k) three += line + "\n";
    for (const auto& row : rows_of(three)) rows.push_back(row);
  }
  return rows;
}

// Sample rounds 4, 6 and 8 of each chain; the report by hand from the rows of the file.
TEST(thresholds, are_summed_written_and_reported_in_all_types_above_0) {
  for (const std::int32_t type : {1, 2, 3, 4, 5, 6}) {
    ordered_case c;
    ASSERT_EQ(c.go(c.lines(type, 2, 6, 2)), 0) << c.text();
    const auto rows = rows_of(c.directory.read("threshold"));
    const std::size_t models = type == 5 ? 2 : 1;
    ASSERT_EQ(rows.size(), 9 * models) << type;
    const auto reported = reported_thresholds(c.text());
    ASSERT_EQ(reported.size(), 3 * models) << type;
    for (std::size_t model = 0; model < models; ++model)
      for (std::size_t k = 0; k < 3; ++k) {
        double sum = 0, squares = 0;
        for (std::size_t sample = 0; sample < 3; ++sample) {
          const std::vector<double>& row = rows[9 * model + 3 * sample + k];
          ASSERT_EQ(row.size(), 4U);
          EXPECT_EQ(row[0], 4.0 + 2.0 * static_cast<double>(sample));
          EXPECT_EQ(row[2], static_cast<double>(k + 1));
          sum += row[3];
          squares += row[3] * row[3];
        }
        const std::vector<double>& told = reported[3 * model + k];
        EXPECT_NEAR(told[1], sum / 3.0, 1e-14) << type;
        EXPECT_NEAR(told[2], std::sqrt(std::max(0.0, (squares - sum * sum / 3.0) / 3.0)), 1e-7) << type;
        EXPECT_TRUE(k == 0 ? sum == 0.0 : k == 2 ? sum == 3.0 : sum > 0.0 && sum < 3.0);
      }
  }
}

TEST(thresholds, have_no_samples_in_the_solver) {
  ordered_case c;
  ASSERT_EQ(c.go(c.lines(0, 2, 6, 2)), 0) << c.text();
  EXPECT_EQ(c.directory.read("threshold"), "");
  EXPECT_FALSE(c.says("thresholds"));
  EXPECT_FALSE(c.says("NaN"));
}

TEST(mixtures, have_no_samples_in_the_solver) {
  const scratch_directory directory;
  directory.take_files_of(source_folder() + "/tests/data/workdirs/mix2_t3");
  directory.write("zeph.dir", "0 0\n1234 5678\n10 50 5\n1 0\n2 6\n");
  whole_run run = run_in(directory.path());
  ASSERT_EQ(run.exit_code, 0) << run.listing;
  EXPECT_EQ(directory.read("mix_pi"), "");
  // round 1 begins from 0: its relative change is of no size
  run.listing.erase(0, run.listing.find('\n', run.listing.find(" Cd= ")));
  for (const std::string words : {"mixing proportion", "Infinity", "NaN"})
    EXPECT_FALSE(run.says(words)) << words;
  const auto tau = rows_of(directory.read("taupostmean")); // as for records that never left component 1
  ASSERT_EQ(tau.size(), 80U);
  for (const auto& row : tau) EXPECT_EQ(row, (std::vector<double>{1.0, 0.0}));
}

// What is in the column of a missing value has no effect: record 2 of a subject
// without an event misses its status.
TEST(cure_sequences, take_no_event_from_the_column_of_a_missing_status) {
  std::string files[2];
  for (const float filler : {0.0F, 1.0F}) {
    const scratch_directory directory;
    directory.take_files_of(source_folder() + "/tests/data/workdirs/cure_t3");
    std::string integers = directory.read("RCDATA_I"), reals = directory.read("RCDATA_R");
    const std::int32_t none[2] = {0, 0}; // mask and pattern: places 6 and 7 of 8
    std::memcpy(integers.data() + (8 + 8 * 4) + 4 + 5 * 4, none, 8);
    std::memcpy(reals.data() + (8 + 2 * 4) + 4, &filler, 4);
    directory.write("RCDATA_I", integers);
    directory.write("RCDATA_R", reals);
    const whole_run run = run_in(directory.path());
    ASSERT_EQ(run.exit_code, 0) << run.listing;
    std::string& all = files[filler > 0.0F ? 1 : 0];
    for (const char* file : {"mix_pi", "py", "gib.samples", "gibsol", "mixz_prob", "mixz_last", "gparlast"})
      all += directory.read(file);
    all += run.listing;
  }
  EXPECT_FALSE(files[0].empty());
  EXPECT_EQ(files[0], files[1]);
}

} // namespace
