// Moves between models with an exact ratio, in 400,000 rounds: 0.6150 with an error of 0.0039 found,
// 0.6155 by quadrature.
#include "jump/exact_models.h"

namespace {

TEST(long_jump_chain, visits_the_models_by_their_posterior_probability_when_the_ratio_is_exact) {
  zeph_test::hold_visits(400, 1000, 0.006);
}

} // namespace
