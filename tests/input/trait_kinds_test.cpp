#include "input/trait_kinds.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace zeph {
namespace {

std::set<std::int32_t> numbers_with(bool (*has)(const trait_kind_row&)) {
  std::set<std::int32_t> numbers;
  for (std::int32_t number = -1; number <= 12; ++number)
    if (has(kind_of(number))) numbers.insert(number);
  return numbers;
}

using numbers = std::set<std::int32_t>;

// Numbers as MODINF holds them (docs/files.md, docs/model.md): 1 Gaussian, 2 censored,
// 3 ordered, 4 binary, 5 indicator, 7 sequence, 8 cured.
TEST(trait_kinds, hold_each_number_of_the_model_file) {
  EXPECT_EQ(numbers_with([](const trait_kind_row& k) { return !k.word.empty(); }),
            (numbers{1, 2, 3, 4, 5, 7, 8}));
  EXPECT_EQ(legal_kinds(), "1, 2, 3, 4, 5, 7 or 8");
}

TEST(trait_kinds, with_a_binary_latent_scale_have_residual_variance_1) {
  EXPECT_EQ(numbers_with([](const trait_kind_row& k) { return k.variance == residual_variance::free; }),
            (numbers{1, 2, 3}));
  EXPECT_EQ(numbers_with([](const trait_kind_row& k) { return k.variance == residual_variance::unit; }),
            (numbers{4}));
  EXPECT_EQ(numbers_with(
                [](const trait_kind_row& k) { return k.variance == residual_variance::unit_uncorrelated; }),
            (numbers{5, 7, 8}));
}

// kept: from 4 on, numbers without a meaning too.
TEST(trait_kinds, move_the_observations_of_numbers_from_4_on) {
  EXPECT_EQ(numbers_with([](const trait_kind_row& k) { return k.scaled; }),
            (numbers{4, 5, 6, 7, 8, 9, 10, 11, 12}));
}

// The second part of r_parm holds Y_M of ordered, binary and indicator traits.
TEST(trait_kinds, keep_three_in_the_state_and_draw_three_again) {
  EXPECT_EQ(numbers_with([](const trait_kind_row& k) { return k.stored; }), (numbers{3, 4, 5}));
  EXPECT_EQ(numbers_with([](const trait_kind_row& k) { return !k.word.empty() && k.forgotten(); }),
            (numbers{2, 7, 8}));
}

} // namespace
} // namespace zeph
