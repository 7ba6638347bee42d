#include "chains/seeds.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using namespace zeph::chains;

TEST(seeds_of_chain, begin_with_the_given_pair) {
  EXPECT_EQ(seeds_of_chain({1201, 707}, 1), (seed_pair{1201, 707}));
}

// 7919 and 6007 more a chain, around 1..31328 and 1..30081
TEST(seeds_of_chain, continue_by_fixed_steps_around_the_ranges) {
  EXPECT_EQ(seeds_of_chain({11, 12}, 2), (seed_pair{7930, 6019}));
  EXPECT_EQ(seeds_of_chain({31328, 30081}, 2), (seed_pair{7919, 6007}));
  EXPECT_EQ(seeds_of_chain({11, 12}, 5), (seed_pair{11 + 4 * 7919 - 31328, 12 + 4 * 6007}));
}

TEST(seeds_of_chain, have_all_A_different_and_within_the_ranges) {
  std::set<int> seen;
  for (int k = 1; k <= largest_a; ++k) {
    const seed_pair s = seeds_of_chain({20000, 30000}, k);
    ASSERT_TRUE(s.A >= 1 && s.A <= largest_a && s.B >= 1 && s.B <= largest_b) << k;
    seen.insert(s.A);
  }
  EXPECT_EQ(seen.size(), 31328U);
}

TEST(without_zeros, keeps_given_seeds_and_takes_the_others_from_the_text_alone) {
  EXPECT_EQ(without_zeros({5, 6}, "abc"), (seed_pair{5, 6}));
  const seed_pair a = without_zeros({0, 6}, "abc"), b = without_zeros({5, 0}, "abc");
  EXPECT_EQ(a.B, 6);
  EXPECT_EQ(b.A, 5);
  EXPECT_EQ(without_zeros({0, 0}, "abc"), (seed_pair{a.A, b.B}));
  EXPECT_NE(without_zeros({0, 0}, "abd"), (seed_pair{a.A, b.B}));
  for (int i = 0; i < 1000; ++i) {
    const seed_pair s = without_zeros({0, 0}, std::to_string(i));
    ASSERT_TRUE(s.A >= 1 && s.A <= largest_a && s.B >= 1 && s.B <= largest_b) << i;
  }
}

} // namespace
