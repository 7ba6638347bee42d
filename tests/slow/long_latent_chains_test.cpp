// The examples of latent traits as long chains.
#include "runs/latent_examples.h"
#include "runs/textbook_chains.h"

namespace {

using namespace zeph_test;

TEST(long_latent_chains, ordered_categories_of_the_textbook) {
  hold_ordered_categories("R=1 G=0.0526", 1.0, 0.0526, 2000000);
}
TEST(long_latent_chains, ordered_categories_with_larger_variances) {
  hold_ordered_categories("R=3 G=0.158", 3.0, 0.158, 2000000);
}
TEST(long_latent_chains, a_binary_and_a_gaussian_trait_of_the_textbook) { hold_binary_and_gaussian(1000000); }
TEST(long_latent_chains, censored_times) { hold_censored_times(2000000); }
TEST(long_latent_chains, mixture) { hold_mixture(500000); }
TEST(long_latent_chains, cure) { hold_cure(200000); }

} // namespace
