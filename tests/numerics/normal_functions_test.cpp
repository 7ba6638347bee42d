#include "numerics/normal_functions.h"

#include "csv_rows.h"
#include "stops.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace zeph {
namespace {

struct tails {
  explicit tails(double x) { normal_tail(x, lower, upper, pdf); }
  double lower, upper, pdf;
};

const double root_half = std::sqrt(0.5);

TEST(normal_tail, at_zero) {
  const tails z(0.0);
  EXPECT_EQ(z.lower, 0.5);
  EXPECT_EQ(z.upper, 0.5);
  EXPECT_NEAR(z.pdf, 0.3989422804014327, 2e-16); // 1/sqrt(2 pi)
}

// Percentage points of the normal distribution as tables print them.
TEST(normal_tail, at_published_points) {
  EXPECT_NEAR(tails(1.959963984540054).lower, 0.975, 1e-15);
  EXPECT_NEAR(tails(1.644853626951472).lower, 0.95, 1e-15);
  EXPECT_NEAR(tails(-2.326347874040841).lower, 0.01, 1e-16);
  EXPECT_NEAR(tails(3.090232306167814).upper, 0.001, 1e-16);
  EXPECT_NEAR(tails(1.0).lower, 0.8413447460685429, 1e-15);
  EXPECT_NEAR(tails(6.0).upper, 9.865876450376981e-10, 1e-17);
  EXPECT_NEAR(tails(1.0).pdf, 0.24197072451914337, 1e-16); // exp(-1/2)/sqrt(2 pi)
}

// The approximation is published as good to 1e-15; the library's erfc is another road.
TEST(normal_tail, agrees_with_erfc_to_the_published_bound) {
  for (int i = -7071; i <= 7071; ++i) {
    const double x = i / 1000.0;
    const tails z(x);
    EXPECT_NEAR(z.upper, 0.5 * std::erfc(x * root_half), 1e-15) << x;
    EXPECT_NEAR(z.lower, 0.5 * std::erfc(-x * root_half), 1e-15) << x;
  }
}

// Both forms lose at most 9e-9 of the tail itself: the rational one just below
// 7.071, the fraction near 8 (extended-precision erfc).
TEST(normal_tail, keeps_its_small_tail_to_eight_digits) {
  for (int i = 0; i < 3700; ++i) {
    const double x = i / 100.0, exact = 0.5 * std::erfc(x * root_half);
    EXPECT_NEAR(tails(x).upper / exact, 1.0, 1e-8) << x;
    EXPECT_NEAR(tails(-x).lower / exact, 1.0, 1e-8) << x;
  }
}

TEST(normal_tail, is_continuous_where_the_fraction_takes_over) {
  const double before = std::nextafter(7.071, 0.0);
  EXPECT_NEAR(tails(before).upper / tails(7.071).upper, 1.0, 1e-8);
  EXPECT_NEAR(tails(before).pdf / tails(7.071).pdf, 1.0, 1e-14);
}

TEST(normal_tail, is_symmetric_and_sums_to_one) {
  for (const double x : {0.001, 0.5, 1.0, 2.75, 7.0, 7.071, 12.0, 36.9, 37.0, 38.0}) {
    const tails z(x), mirrored(-x);
    EXPECT_EQ(z.lower, mirrored.upper);
    EXPECT_EQ(z.upper, mirrored.lower);
    EXPECT_EQ(z.pdf, mirrored.pdf);
    EXPECT_EQ(z.lower, 1.0 - z.upper);
  }
}

TEST(normal_tail, vanishes_beyond_37) {
  for (const double x : {37.5, 1e300, std::numeric_limits<double>::infinity(), std::nextafter(37.0, 38.0)}) {
    const tails z(x), mirrored(-x);
    EXPECT_EQ(z.lower, 1.0);
    EXPECT_EQ(z.upper, 0.0);
    EXPECT_EQ(z.pdf, 0.0);
    EXPECT_EQ(mirrored.lower, 0.0);
    EXPECT_EQ(mirrored.upper, 1.0);
    EXPECT_EQ(mirrored.pdf, 0.0);
  }
  EXPECT_GT(tails(37.0).upper, 0.0);
  EXPECT_GT(tails(37.0).pdf, 0.0);
}

// ---- normal_tail, cumnor and NORMALCDF against 60-digit arithmetic ----

struct reference_tail {
  double x, lower, upper;
};
std::vector<reference_tail> reference_tails() {
  std::vector<reference_tail> rows;
  for (const auto& row : csv_rows("constants/normal_cdf_reference.csv"))
    rows.push_back(
        {std::stod(row[0]), std::strtod(row[1].c_str(), nullptr), std::strtod(row[2].c_str(), nullptr)});
  EXPECT_GT(rows.size(), 600U);
  return rows;
}

TEST(normal_tail, agrees_with_60_digit_arithmetic) {
  for (const reference_tail& r : reference_tails()) {
    const tails z(r.x);
    EXPECT_NEAR(z.lower, r.lower, 1e-15) << r.x;
    EXPECT_NEAR(z.upper, r.upper, 1e-15) << r.x;
    if (std::fabs(r.x) > 37.0) continue;
    EXPECT_NEAR(std::fmin(z.lower, z.upper) / std::fmin(r.lower, r.upper), 1.0, 1e-8) << r.x;
  }
}

// Of the smaller tail, Cody's quotients keep all but the last bits. The exponent
// -x^2/2 is rounded to a relative 2^-53, so its exponential to (x^2/2) 2^-53.
TEST(cumnor, agrees_with_60_digit_arithmetic) {
  for (const reference_tail& r : reference_tails()) {
    double lower, upper;
    cumnor(r.x, lower, upper);
    EXPECT_NEAR(lower, r.lower, 2.3e-16) << r.x;
    EXPECT_NEAR(upper, r.upper, 2.3e-16) << r.x;
    const double smaller = std::fmin(r.lower, r.upper);
    if (smaller < 0x1p-1022) {
      EXPECT_EQ(std::fmin(lower, upper), 0.0) << r.x;
    } else {
      EXPECT_NEAR(std::fmin(lower, upper) / smaller, 1.0, 1e-15 + r.x * r.x * 1.2e-16) << r.x;
    }
  }
}

// Just before and after each end of an approximation; the next number moves the
// logarithm of the tail by 5e-15 already.
TEST(cumnor, is_continuous_where_its_approximations_meet) {
  for (const double end : {0.66291, 5.656854248, -0.66291, -5.656854248}) {
    double below, at, above, unused;
    cumnor(std::nextafter(end, -40.0), below, unused);
    cumnor(end, at, unused);
    cumnor(std::nextafter(end, 40.0), above, unused);
    EXPECT_NEAR(below / at, 1.0, 1e-14);
    EXPECT_NEAR(above / at, 1.0, 1e-14);
  }
}

TEST(cumnor, is_0_and_1_for_points_of_any_size) {
  for (const double x : {38.0, 40.5, 99999.0, 1e10, 1e20, 1e200, std::numeric_limits<double>::max(),
                         std::numeric_limits<double>::infinity()}) {
    double lower, upper;
    cumnor(x, lower, upper);
    EXPECT_EQ(lower, 1.0) << x;
    EXPECT_EQ(upper, 0.0) << x;
    cumnor(-x, lower, upper);
    EXPECT_EQ(lower, 0.0) << x;
    EXPECT_EQ(upper, 1.0) << x;
  }
}

TEST(NORMALCDF, is_the_lower_tail_of_the_standardised_point) {
  kept_listing run;
  double lower, upper;
  cumnor(0.75, lower, upper);
  EXPECT_EQ(NORMALCDF(run.report, 0.75), lower);
  EXPECT_EQ(NORMALCDF(run.report, 3.5, 2.0, 2.0), lower); // (3.5 - 2)/2
  EXPECT_EQ(NORMALCDF(run.report, 1.75, 1.0), lower);
  EXPECT_EQ(NORMALCDF(run.report, 0.0), 0.5);
}

// Percentage points as tables print them, to 16 digits
TEST(NORMALCDF, at_published_points) {
  kept_listing run;
  EXPECT_NEAR(NORMALCDF(run.report, 1.959963984540054), 0.975, 2e-16);
  EXPECT_NEAR(NORMALCDF(run.report, 1.0), 0.8413447460685429, 2e-16);
  EXPECT_NEAR(NORMALCDF(run.report, -6.0) / 9.865876450376981e-10, 1.0, 5e-15);
}

TEST(NORMALCDF, stops_unless_the_standard_deviation_is_above_0) {
  for (const double sd : {0.0, -1.0, std::numeric_limits<double>::quiet_NaN()}) {
    kept_listing run;
    EXPECT_EQ(run.exit_code([&] { NORMALCDF(run.report, 1.0, 0.0, sd); }), 16);
    EXPECT_EQ(run.out.str(), "Parameters for NORMALCDF incorrect\n");
  }
}

// ---- NORMAL_INVCDF ----

// An error of p by its last bit moves x by 2^-53 p / density; the larger of both
// tails has no more digits.
TEST(NORMAL_INVCDF, agrees_with_60_digit_arithmetic) {
  kept_listing run;
  const auto rows = csv_rows("constants/normal_quantile_reference.csv");
  ASSERT_EQ(rows.size(), 85U);
  for (const auto& row : rows) {
    double p = std::stod(row[0]);
    const double given = p, x = std::stod(row[1]), density = tails(x).pdf;
    const double found = NORMAL_INVCDF(run.report, p);
    EXPECT_EQ(p, given);
    EXPECT_NEAR(found, x,
                4e-16 * std::fmin(p, 1.0 - p) * (1.0 + x * x) / density + 2e-13 * std::fabs(x) + 2e-16)
        << given;
  }
}

// The published routine has no case of its own for 1/2; this is where its Newton
// steps end in IEEE arithmetic.
TEST(NORMAL_INVCDF, of_one_half_ends_as_the_published_steps_do) {
  kept_listing run;
  double p = 0.5;
  EXPECT_EQ(NORMAL_INVCDF(run.report, p), 6.637989916170446e-17);
}

// No starting value is left unimproved: it is wrong by up to 4e-4, and would show.
TEST(NORMAL_INVCDF, inverts_NORMALCDF_over_the_whole_range) {
  kept_listing run;
  const auto check = [&](double given) {
    double p = given;
    const double x = NORMAL_INVCDF(run.report, p);
    const double smaller = given < 0.5 ? NORMALCDF(run.report, x) : NORMALCDF(run.report, -x);
    ASSERT_NEAR(smaller, given < 0.5 ? given : 1.0 - given, 1e-12 * std::fmin(given, 1.0 - given) + 1.2e-16)
        << given;
  };
  for (int i = 1; i < 100000; ++i) check(i / 100000.0);
  for (int i = 1; i < 1000; ++i) check(0.5 + (i - 500) * 0x1p-53); // next to 1/2, on the grid of 1 - p
  for (double p = 1.1e-10; p < 0.5; p *= 1.01) {
    check(p);
    check(1.0 - p);
  }
}

TEST(NORMAL_INVCDF, takes_mean_and_standard_deviation) {
  kept_listing run;
  double p = 0.975;
  const double z = NORMAL_INVCDF(run.report, p);
  EXPECT_EQ(NORMAL_INVCDF(run.report, p, 3.0, 2.0), 2.0 * z + 3.0);
  EXPECT_NEAR(z, 1.959963984540054, 1e-15);
}

TEST(NORMAL_INVCDF, clips_its_argument_and_leaves_the_clipped_value) {
  kept_listing run;
  const double low = static_cast<double>(1.0E-10F), high = 0.9999999999; // low is a 32-bit number
  EXPECT_EQ(low, 1.000000013351432E-10);
  double at_low = low, at_high = high;
  const double lowest = NORMAL_INVCDF(run.report, at_low), highest = NORMAL_INVCDF(run.report, at_high);
  for (const double below : {0.0, -1.0, 1e-10, -std::numeric_limits<double>::infinity()}) {
    double p = below;
    EXPECT_EQ(NORMAL_INVCDF(run.report, p), lowest);
    EXPECT_EQ(p, low);
  }
  for (const double above : {1.0, 2.0, 0.99999999995}) {
    double p = above;
    EXPECT_EQ(NORMAL_INVCDF(run.report, p), highest);
    EXPECT_EQ(p, high);
  }
}

TEST(NORMAL_INVCDF, stops_on_incorrect_parameters) {
  for (const double sd : {0.0, -1.0}) {
    kept_listing run;
    double p = 0.3;
    EXPECT_EQ(run.exit_code([&] { NORMAL_INVCDF(run.report, p, 0.0, sd); }), 16);
    EXPECT_EQ(run.out.str(), "Parameters for NORMAL_INVCDF incorrect\n");
  }
  kept_listing run;
  double p = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(run.exit_code([&] { NORMAL_INVCDF(run.report, p); }), 16);
}

} // namespace
} // namespace zeph
