// The examples of latent traits, and the published threshold models, as short
// chains; long ones are in tests/slow.
#include "runs/all_kinds.h"
#include "runs/latent_examples.h"
#include "runs/textbook_chains.h"

namespace {

using namespace zeph_test;

TEST(latent_examples, ordered_categories_of_the_textbook) {
  hold_ordered_categories("R=1 G=0.0526", 1.0, 0.0526, 60000);
}
TEST(latent_examples, ordered_categories_with_larger_variances) {
  hold_ordered_categories("R=3 G=0.158", 3.0, 0.158, 60000);
}
TEST(latent_examples, a_binary_and_a_gaussian_trait_of_the_textbook) { hold_binary_and_gaussian(40000); }
TEST(latent_examples, censored_times_have_the_exact_posterior) { hold_censored_times(60000); }
TEST(latent_examples, a_mixture_has_the_exact_posterior) { hold_mixture(30000); }
TEST(latent_examples, a_cure_model_has_the_exact_posterior) { hold_cure(12000); }

TEST(latent_examples, all_kinds_side_by_side_keep_what_their_kinds_fix) {
  const scratch_directory place;
  place.write("data.csv", records_of_all_kinds());
  const prepared_run run = prepare_and_solve(place, ALL_KINDS);
  ASSERT_TRUE(run.prepared) << run.messages;
  ASSERT_EQ(run.run.exit_code, 0) << run.run.listing;
  const latent_chain chain = chain_in(place / "work/", true);
  const std::set<int> unit = {2, 5, 6, 7}, apart = {2, 6, 7};
  for (int i = 1; i <= 7; ++i)
    for (int j = 1; j <= i; ++j) {
      const series& x = chain.matrix.at({2, i, j});
      ASSERT_EQ(x.size(), 200U);
      const auto [least, most] = std::minmax_element(x.begin(), x.end());
      const bool fixed = i == j ? unit.contains(i) : apart.contains(i) || apart.contains(j);
      EXPECT_EQ(*least == *most, fixed) << i << "," << j;
      if (!fixed) continue;
      EXPECT_EQ(*least, i == j ? 1.0 : 0.0) << i << "," << j;
    }
  for (const double shift : chain.solution.at("regression|scs|shift(infected)|")) EXPECT_GT(shift, 0.0);
}

} // namespace
