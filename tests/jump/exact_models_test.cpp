#include "jump/exact_models.h"

namespace {

TEST(moves, visit_the_models_by_their_posterior_probability_when_the_ratio_is_exact) {
  zeph_test::hold_visits(40, 400, 0.03);
}

} // namespace
