#include "shared/check_sum.h"

#include "support/scratch_directory.h"

#include <gtest/gtest.h>

namespace {

using namespace zeph::shared;
using zeph_test::scratch_directory;

// Test vectors of draft-eastlake-fnv, appendix C (FNV-1a, 64 bits).
TEST(fnv1a64, gives_the_published_examples) {
  EXPECT_EQ(fnv1a64(""), 0xcbf29ce484222325ULL);
  EXPECT_EQ(fnv1a64("a"), 0xaf63dc4c8601ec8cULL);
  EXPECT_EQ(fnv1a64("foobar"), 0x85944171f73967e8ULL);
}

TEST(fnv1a64, continues_from_the_hash_of_what_came_before) {
  EXPECT_EQ(fnv1a64("bar", fnv1a64("foo")), fnv1a64("foobar"));
}

TEST(check_sum_of_file, is_that_of_its_bytes_and_empty_without_a_file) {
  const scratch_directory place;
  place.write("f", "foobar");
  EXPECT_EQ(check_sum_of_file(place / "f"), "85944171f73967e8");
  EXPECT_EQ(check_sum_of_file(place / "none"), "");
}

} // namespace
