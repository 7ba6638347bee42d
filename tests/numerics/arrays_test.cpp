#include "numerics/arrays.h"

#include "stops.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <vector>

namespace zeph {
namespace {

TEST(arrays, are_zero_filled) {
  kept_listing run;
  mat<double> x;
  allocate(run.report, x, "x", "arrays_test", 37, 11);
  ASSERT_EQ(x.size(), 37 * 11);
  for (const double v : x) EXPECT_EQ(v, 0.0);
}

TEST(arrays, count_from_one_with_the_first_index_fastest) {
  kept_listing run;
  cube<int> x;
  allocate(run.report, x, "x", "arrays_test", 2, 3, 4);
  x(2, 1, 1) = 21;
  x(1, 2, 1) = 12;
  x(1, 1, 2) = 112;
  EXPECT_EQ(x.data()[1], 21);
  EXPECT_EQ(x.data()[2], 12);
  EXPECT_EQ(x.data()[6], 112); // 2 x 3 elements before it
  EXPECT_EQ(x.unchecked_slice(2), x.data() + 6);
  x(2, 3, 4) = 5;
  EXPECT_EQ(x.data()[23], 5);
}

TEST(arrays, column_pointer_is_the_first_element_of_the_column) {
  kept_listing run;
  mat<float> x;
  allocate(run.report, x, "x", "arrays_test", 5, 3);
  EXPECT_EQ(x.unchecked_col(3), &x(1, 3));
  x.unchecked_col(2)[4] = 2.5F;
  EXPECT_EQ(x(5, 2), 2.5F);
}

TEST(arrays, keep_their_lower_bounds) {
  kept_listing run;
  mat<int> x;
  allocate(run.report, x, "x", "arrays_test", range(0, 2), range(-1, 1));
  EXPECT_EQ(x.size(), 9);
  EXPECT_EQ(x.low(1), 0);
  EXPECT_EQ(x.low(2), -1);
  EXPECT_EQ(x.extent(2), 3);
  EXPECT_EQ(&x(0, -1), x.data());
  EXPECT_EQ(&x(2, 1), x.data() + 8);
  EXPECT_EQ(x.unchecked_col(0), &x(0, 0));
}

TEST(arrays, of_no_elements_are_allocated) {
  kept_listing run;
  mat<double> x;
  EXPECT_FALSE(x.allocated());
  allocate(run.report, x, "x", "arrays_test", 0, 8);
  EXPECT_TRUE(x.allocated());
  EXPECT_EQ(x.size(), 0);
  EXPECT_EQ(x.begin(), x.end());
}

TEST(arrays, give_their_storage_back) {
  kept_listing run;
  vec<double> x;
  allocate(run.report, x, "x", "arrays_test", 3);
  x.release();
  EXPECT_FALSE(x.allocated());
  EXPECT_EQ(x.size(), 0);
  EXPECT_EQ(x.extent(1), 0);
}

TEST(arrays, allocated_again_are_zeroed_again) {
  kept_listing run;
  vec<int> x;
  allocate(run.report, x, "x", "arrays_test", 4);
  x.fill(9);
  allocate(run.report, x, "x", "arrays_test", 6);
  EXPECT_EQ(std::vector<int>(x.begin(), x.end()), std::vector<int>(6, 0));
}

const std::string failure_report = "\n"
                                   "ZEPH: FATAL ERROR\n"
                                   "\n"
                                   "Trying to allocate memory for:  cov\n"
                                   "With elements                :           20\n"
                                   "Retur status from allocate   :           41\n"
                                   "Called in                    :  RMAT_ALLOC\n"
                                   "\n"
                                   "Program terminates with exit code 16\n";

TEST(allocation_door, fails_at_the_call_that_a_test_names) {
  const scratch place;
  for (int n = 1; n <= 3; ++n) {
    kept_listing run(place.path);
    run.report.door.fail_at = n;
    mat<double> x[3];
    const int code = run.exit_code([&] {
      for (mat<double>& one : x) allocate(run.report, one, "cov", "RMAT_ALLOC", 4, 5);
    });
    EXPECT_EQ(code, 16);
    EXPECT_EQ(run.report.door.calls, n);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(x[i].allocated(), i + 1 < n);
    EXPECT_EQ(run.out.str(), failure_report);
  }
  EXPECT_TRUE(std::filesystem::exists(place.path + "ZEPH.log"));
}

TEST(allocation_door, counts_calls_and_opens_without_a_failure_named) {
  kept_listing run;
  vec<int> x;
  std::vector<int> rows;
  for (int i = 0; i < 5; ++i) allocate(run.report, x, "x", "arrays_test", 1);
  allocate_rows(run.report, rows, "rows", "arrays_test", 7);
  EXPECT_EQ(run.report.door.calls, 6);
  EXPECT_EQ(rows.size(), 7U);
  EXPECT_EQ(run.out.str(), "");
}

TEST(allocation_door, reports_rows_of_records_alike) {
  const scratch place;
  kept_listing run(place.path);
  run.report.door.fail_at = 1;
  std::vector<double> rows;
  EXPECT_EQ(run.exit_code([&] { allocate_rows(run.report, rows, "cov", "RMAT_ALLOC", 20); }), 16);
  EXPECT_EQ(run.out.str(), failure_report);
}

TEST(allocation_door, rows_that_nobody_can_hold_are_reported) {
  const scratch place;
  kept_listing run(place.path);
  std::vector<double> rows;
  EXPECT_EQ(run.exit_code([&] { allocate_rows(run.report, rows, "r", "arrays_test", INT64_MAX); }), 16);
  EXPECT_EQ(run.exit_code([&] { allocate_rows(run.report, rows, "r", "arrays_test", -1); }), 16);
}

TEST(allocation_door, product_of_sizes_beyond_64_bits_is_a_failed_allocation) {
  const scratch place;
  kept_listing run(place.path);
  cube<double> x;
  const std::int64_t big = std::int64_t{1} << 31; // 2^31 x 2^31 x 4 = 2^64
  EXPECT_EQ(run.exit_code([&] { allocate(run.report, x, "x", "arrays_test", big, big, 4); }), 16);
  EXPECT_NE(run.out.str().find("Trying to allocate memory for:  x\n"), std::string::npos);
  EXPECT_FALSE(x.allocated());
}

TEST(allocation_door, product_of_bytes_beyond_64_bits_is_a_failed_allocation) {
  const scratch place;
  kept_listing run(place.path);
  vec<double> x;
  const std::int64_t big = std::int64_t{1} << 61; // elements fit in 64 bits, bytes do not
  EXPECT_EQ(run.exit_code([&] { allocate(run.report, x, "x", "arrays_test", big); }), 16);
  EXPECT_NE(run.out.str().find("With elements                :  2305843009213693952\n"), std::string::npos);
}

TEST(allocation_door, negative_size_is_a_failed_allocation) {
  const scratch place;
  kept_listing run(place.path);
  mat<double> x;
  EXPECT_EQ(run.exit_code([&] { allocate(run.report, x, "x", "arrays_test", -2, -3); }), 16);
}

TEST(arrays_death, bounds_fault_names_index_and_bounds) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(bounds_fault(7, 1, 6), "array index 7 is outside 1\\.\\.6");
}

#ifdef ZEPH_DEBUG_VIEWS
TEST(arrays_death, every_index_is_checked) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  kept_listing run;
  mat<double> x;
  allocate(run.report, x, "x", "arrays_test", range(0, 2), 4);
  EXPECT_DEATH(x(3, 1) = 1.0, "array index 3 is outside 0\\.\\.2");
  EXPECT_DEATH(x(0, 0) = 1.0, "array index 0 is outside 1\\.\\.4");
  EXPECT_DEATH(x.unchecked_col(5), "array index 5 is outside 1\\.\\.4");
}
#endif

} // namespace
} // namespace zeph
