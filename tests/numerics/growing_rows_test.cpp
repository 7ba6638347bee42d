#include "numerics/growing_rows.h"

#include "stops.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace zeph;

TEST(growing_rows, ask_the_door_only_when_they_are_full) {
  kept_listing run;
  std::vector<int> rows;
  for (int i = 1; i <= 33; ++i) EXPECT_EQ(append_row(run.report, rows, "rows", "test", i), i);
  EXPECT_EQ(rows.size(), 33U);
  EXPECT_EQ(rows.front(), 1);
  EXPECT_EQ(rows.back(), 33);
  EXPECT_EQ(run.report.door.calls, 4); // for 8, 16, 32 and 64 rows
}

TEST(growing_rows, name_variable_and_routine_when_there_is_no_storage) {
  const scratch place;
  kept_listing run(place.path);
  run.report.door.fail_at = 2;
  std::vector<int> rows;
  EXPECT_EQ(run.exit_code([&] {
    for (int i = 0; i < 20; ++i) append_row(run.report, rows, "links", "arrays_test");
  }),
            16);
  EXPECT_EQ(rows.size(), 8U);
  EXPECT_EQ(run.out.str(), "\n"
                           "ZEPH: FATAL ERROR\n"
                           "\n"
                           "Trying to allocate memory for:  links\n"
                           "With elements                :           16\n"
                           "Retur status from allocate   :           41\n"
                           "Called in                    :  arrays_test\n"
                           "\n"
                           "Program terminates with exit code 16\n");
}

TEST(growing_rows, refuse_what_nobody_can_hold) {
  const scratch place;
  kept_listing run(place.path);
  std::vector<double> rows;
  EXPECT_EQ(run.exit_code([&] { reserve_rows(run.report, rows, "r", "arrays_test", INT64_MAX); }), 16);
}

} // namespace
