#include "numerics/column_view.h"

#include "stops.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <type_traits>
#include <utility>

namespace zeph {
namespace {

// Elements 10, 20, .., 120 of a 3 x 4 matrix in the order of storage.
TEST(column_view, counts_its_elements_from_1_from_0_or_from_a_given_number) {
  kept_listing run;
  mat<int> x;
  allocate(run.report, x, "x", "column_view_test", 3, 4);
  for (int i = 0; i < 12; ++i) x.data()[i] = 10 * (i + 1);
  const column_view<int> third = col_of(x, 3); // 70, 80, 90
  EXPECT_EQ(third(1), 70);
  EXPECT_EQ(third[0], 70);
  EXPECT_EQ(third(3), 90);
  const column_view<const int> rest = third.part(1, 2); // 80, 90
  EXPECT_EQ(rest[0], 80);
  EXPECT_EQ(rest.numbered_from(40)[41], 90);
  EXPECT_EQ(part_of(x, 4, 5)[4], 90);
  EXPECT_EQ(view_of(x)(12), 120);
  EXPECT_EQ(third.unchecked(), x.data() + 6);
  EXPECT_FALSE(column_view<int>());
  EXPECT_TRUE(third);
  third(2) = 5;
  EXPECT_EQ(x(2, 3), 5);
  static_assert(std::is_same_v<decltype(col_of(std::as_const(x), 1)), column_view<const int>>);
#ifndef ZEPH_DEBUG_VIEWS
  static_assert(sizeof(column_view<int>) == sizeof(int*)); // without checks: the pointer alone
#endif
}

#ifdef ZEPH_DEBUG_VIEWS
TEST(column_view_death, every_index_is_checked) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  kept_listing run;
  mat<double> x;
  cube<double> y;
  allocate(run.report, x, "x", "column_view_test", 3, 4);
  allocate(run.report, y, "y", "column_view_test", 2, 2, 2);
  const column_view<double> second = col_of(x, 2);
  EXPECT_DEATH(second(4) = 1.0, "array index 4 is outside 1\\.\\.3"); // in the matrix, not in the column
  EXPECT_DEATH(second(0) = 1.0, "array index 0 is outside 1\\.\\.3");
  EXPECT_DEATH(second[3] = 1.0, "array index 3 is outside 0\\.\\.2");
  EXPECT_DEATH(std::exit(slice_of(y, 1)[4] > 0), "array index 4 is outside 0\\.\\.3");
  const column_view<double> part = second.part(1, 2);
  EXPECT_DEATH(part[2] = 1.0, "array index 2 is outside 0\\.\\.1");
  EXPECT_DEATH(part.numbered_from(10)[9] = 1.0, "array index 9 is outside 10\\.\\.11");
  EXPECT_DEATH(second.part(2, 2), "array index 3 is outside 0\\.\\.2");
  EXPECT_DEATH(part_of(x, 12, 1), "array index 12 is outside 0\\.\\.11");
  EXPECT_DEATH(column_view<double>()[0] = 1.0, "array index 0 is outside 0\\.\\.-1");
}
#endif

} // namespace
} // namespace zeph
