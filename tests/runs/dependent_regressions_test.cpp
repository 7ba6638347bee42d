// Plain regressions of which one is exactly the sum of two others: the single solutions are not determined,
// and the two bodies of the scan leave different ones. What the data determine, the estimable sums, is the
// same in both.
#include "runs/small_herd.h"

#include <array>
#include <cmath>

namespace {

using namespace zeph_test;

// x1 and x2 are orthogonal (by sign, x1 at each |x2|), so that by least squares without an intercept the
// coefficient of x1 is sum x1 y / sum x1^2, likewise of x2. With x3 = x1 + x2 these are the estimable sums b1
// + b3 and b2 + b3.
struct row {
  double x1, x2, y;
};
constexpr std::array<row, 8> rows = {{{1301.5, 707.5, 12.1},
                                      {-1301.5, 707.5, 9.3},
                                      {1301.5, -707.5, 14.0},
                                      {-1301.5, -707.5, 10.2},
                                      {2117.5, -1513.5, 11.8},
                                      {-2117.5, -1513.5, 12.6},
                                      {2117.5, 1513.5, 13.3},
                                      {-2117.5, 1513.5, 8.9}}};

// scale: a power of 2, so that every covariable is exact in 32 bits. The pivot of the third row is rounding
// alone: of the covariables as they are it is above the tolerance of the sweep and swept, of small ones it is
// left out.
void expect_estimable_sums(double scale, int test_level) {
  const small_herd place;
  std::string csv = "x1,x2,x3,y\n";
  double x1y = 0.0, x2y = 0.0, x1x1 = 0.0, x2x2 = 0.0, x1x2 = 0.0;
  for (const row& r : rows) {
    const double x1 = r.x1 * scale, x2 = r.x2 * scale;
    char line[160];
    std::snprintf(line, sizeof line, "%.20g,%.20g,%.20g,%g\n", x1, x2, x1 + x2, r.y);
    csv += line;
    x1y += x1 * r.y, x2y += x2 * r.y;
    x1x1 += x1 * x1, x2x2 += x2 * x2, x1x2 += x1 * x2;
  }
  ASSERT_EQ(x1x2, 0.0);
  place.directory.write("dependent.csv", csv);
  const whole_run run =
      place.run("[data]\nfile = \"dependent.csv\"\n[covariable.x1]\n[covariable.x2]\n[covariable.x3]\n"
                "[trait.y]\nformula = \"0 + x1 + x2 + x3\"\n[residual]\nstart = 3.0\n"
                "[run]\nanalysis = \"solve\"\nrestrict = true\nrounds = 60\ntest_level = " +
                std::to_string(test_level) + "\n");
  const std::vector<double>& b = run.solution;
  ASSERT_EQ(b.size(), 3U);
  // the observations are 32-bit numbers: 6e-8 of them
  EXPECT_NEAR(b[0] + b[2], x1y / x1x1, 2e-7 * x1y / x1x1);
  EXPECT_NEAR(b[1] + b[2], x2y / x2x2, 2e-6 * std::fabs(x2y / x2x2)); // x2y is a small difference
}

TEST(dependent_regressions, have_the_estimable_sums_of_least_squares_in_the_fast_body) {
  expect_estimable_sums(1.0, 1);
  expect_estimable_sums(1.0 / 1024, 1);
}

TEST(dependent_regressions, have_the_estimable_sums_of_least_squares_in_the_plain_body) {
  expect_estimable_sums(1.0, 2); // test prints are the plain body's
  expect_estimable_sums(1.0 / 1024, 2);
}

} // namespace
