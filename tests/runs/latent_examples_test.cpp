// The examples of latent traits, and the published threshold models, as short
// chains; long ones stand in tests/slow.
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

} // namespace
