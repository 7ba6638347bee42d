#include "shared/indexing.h"

#include <array>
#include <cstdint>
#include <gtest/gtest.h>

namespace {

using zeph::shared::from0;
using zeph::shared::from1;

constexpr std::array letters = {'a', 'b', 'c'};

TEST(from0, is_the_place_of_a_number_that_counts_from_0) {
  EXPECT_EQ(letters[from0(0)], 'a');
  EXPECT_EQ(letters[from0(std::int64_t{2})], 'c');
}

TEST(from1, is_the_place_of_a_number_that_counts_from_1) {
  EXPECT_EQ(letters[from1(1)], 'a');
  EXPECT_EQ(letters[from1(std::int64_t{3})], 'c');
}

// A number of bytes or a length counts nothing: it is not taken for a place by mistake.
template <class I> constexpr bool is_a_number = requires(I i) { from0(i); };
static_assert(is_a_number<int> && !is_a_number<std::size_t> && !is_a_number<double>);

#if defined(ZEPH_DEBUG_VIEWS) && !defined(NDEBUG)
TEST(from0_death, ends_below_the_first) { EXPECT_DEATH((void)from0(-1), "number >= 0"); }
TEST(from1_death, ends_below_the_first) { EXPECT_DEATH((void)from1(0), "number >= 1"); }
#endif

} // namespace
