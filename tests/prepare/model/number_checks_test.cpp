#include "prepare/model/number_checks.h"

#include "support/prepared_case.h"

#include <gtest/gtest.h>

namespace {

using zeph_test::prepared_case;

const std::string HEAD = "[data]\nfile = \"d.csv\"\n[covariable.x]\n[trait.y]\n";
const std::string SAMPLED = "[run]\nanalysis = \"gibbs\"\nseeds = [1, 2]\n";

prepared_case case_of(const std::string& formula, const std::string& more, const std::string& data) {
  return prepared_case(HEAD + "formula = \"" + formula + "\"\n" + more, {{"d.csv", data}});
}

// The largest real of 32 bits is (2 - 2^-23) 2^127 = 3.4028e38, the smallest above zero 2^-149 = 1.4e-45.
TEST(number_checks, numbers_that_32_bits_can_not_hold_are_errors_with_file_line_and_column) {
  const prepared_case large = case_of("1", "", "x,y\n1,3\n2,4\n1,3.5e38\n2,4\n");
  EXPECT_TRUE(large.says("d.csv:4: error: \"3.5e38\" in column y is beyond what 32 bits hold (3.4e38): use a "
                         "larger unit\n"))
      << large.messages();
  const prepared_case small = case_of("1 + x", "", "x,y\n1,3\n1e-46,4\n0,5\n2,4\n");
  EXPECT_TRUE(small.says("d.csv:3: error: \"1e-46\" in column x becomes 0 in 32 bits: use a smaller unit\n"))
      << small.messages();
  const prepared_case fits = case_of("1", "", "x,y\n1,3.4e38\n2,1e-40\n2,-3.4e38\n");
  EXPECT_FALSE(fits.says("32 bits: take") || fits.says("what 32 bits hold")) << fits.messages();
}

TEST(number_checks, curves_of_a_covariable_that_32_bits_can_not_hold_are_errors) {
  const prepared_case c = case_of("1 + poly(x, 2)", "", "x,y\n1,3\n2e20,4\n1e20,5\n4e20,4\n3e20,6\n");
  EXPECT_TRUE(c.says("d.csv:3: error: x.poly2 is 4e+40 here, beyond what 32 bits hold (3.4e38): use a larger "
                     "unit\n"))
      << c.messages();
}

// Reals of 32 bits have 24 binary digits: near 2^21 they lie 1/4 apart, near 100 2^-17. Rounded by 0.1,
// 0.05, 0.1, 0.05; SD 1.223.
TEST(number_checks, rounding_above_a_thousandth_of_the_standard_deviation_is_a_warning) {
  const prepared_case c = case_of("1", "", "x,y\n1,2097152.1\n2,2097153.3\n3,2097154.4\n2,2097151.7\n");
  EXPECT_TRUE(c.says(
      "d.csv: warning: 32 bits round y by up to 0.082 of its standard deviation: subtract a constant\n"))
      << c.messages();
  const prepared_case near_one_hundred = case_of("1", "", "x,y\n1,100.1\n2,101.3\n3,102.4\n2,99.7\n");
  EXPECT_FALSE(near_one_hundred.says("32 bits round")) << near_one_hundred.messages();
}

TEST(number_checks, a_trait_without_variance_stops_a_sampled_model_with_a_flat_prior) {
  const std::string data = "x,y\n1,7\n2,7\n3,7\n2,7\n";
  const prepared_case flat = case_of("1", SAMPLED, data);
  EXPECT_TRUE(flat.says("error: y is 7 in all records in use: it has no variance\n")) << flat.messages();
  EXPECT_TRUE(flat.says("give [residual] prior_df and start")) << flat.messages();
  const prepared_case proper = case_of("1", "[residual]\nprior_df = 5\nstart = 2\n" + SAMPLED, data);
  EXPECT_TRUE(proper.says("warning: y is 7 in all records in use: it has no variance\n"))
      << proper.messages();
  EXPECT_TRUE(proper.p.complete);
  EXPECT_TRUE(case_of("1", "", data).p.complete);
}

// With a flat prior the residual variance of n records and rank r is a scaled inverse chi-square of n - r -
// 2 degrees of freedom once the fixed effects are integrated out; below 0 there is nothing to draw.
TEST(number_checks, too_few_records_for_the_fixed_part_stop_a_sampled_model_with_a_flat_prior) {
  const std::string two = "x,y\n1,7\n2,8\n5,NA\n", four = "x,y\n1,7\n2,8\n3,8\n2,5\n";
  const std::string words =
      "y has 2 records and 2 fixed equations: a residual variance needs 4 records or more";
  const prepared_case flat = case_of("1 + x", SAMPLED, two);
  EXPECT_TRUE(flat.says("error: " + words)) << flat.messages();
  const prepared_case proper = case_of("1 + x", "[residual]\nprior_df = 5\nstart = 2\n" + SAMPLED, two);
  EXPECT_TRUE(proper.says("warning: " + words)) << proper.messages();
  EXPECT_FALSE(case_of("1 + x", SAMPLED, four).says("fixed equations"));
  EXPECT_FALSE(
      case_of("1 + x", "[run]\nanalysis = \"predict\"\nseeds = [1, 2]\n", two).says("fixed equations"));
}

} // namespace
