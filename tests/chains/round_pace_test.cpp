#include "chains/round_pace.h"

#include <gtest/gtest.h>

namespace {

using namespace zeph::chains;

TEST(rounds_per_second, is_not_known_before_two_looks) {
  round_pace pace;
  EXPECT_EQ(rounds_per_second(pace), 0);
  note_round(pace, 10, 500);
  EXPECT_EQ(rounds_per_second(pace), 0);
  note_round(pace, 12, 520);
  EXPECT_DOUBLE_EQ(rounds_per_second(pace), 10);
}

// 100 rounds a second for 200 seconds, then 5 a second: a minute later only the new pace counts
TEST(rounds_per_second, is_that_of_the_last_minute) {
  round_pace pace;
  for (int t = 0; t <= 200; ++t) note_round(pace, t, 100 * t);
  EXPECT_DOUBLE_EQ(rounds_per_second(pace), 100);
  for (int t = 1; t <= 60; ++t) note_round(pace, 200 + t, 20000 + 5 * t);
  EXPECT_DOUBLE_EQ(rounds_per_second(pace), 5);
  EXPECT_LE(pace.looks.size(), 62U);
}

TEST(rounds_per_second, is_zero_while_nothing_moves_and_begins_again_when_rounds_do) {
  round_pace pace;
  note_round(pace, 1, 50);
  note_round(pace, 2, 50);
  EXPECT_EQ(rounds_per_second(pace), 0);
  note_round(pace, 3, 7);
  EXPECT_EQ(pace.looks.size(), 1U);
}

TEST(time_text, uses_the_units_that_fit) {
  EXPECT_EQ(time_text(0), "0:00");
  EXPECT_EQ(time_text(65), "1:05");
  EXPECT_EQ(time_text(3723), "1:02:03");
  EXPECT_EQ(time_text(3 * 86400 + 4 * 3600 + 59), "3 d 4 h");
  EXPECT_EQ(time_text(-1), "");
}

TEST(pace_text, uses_the_units_that_fit) {
  EXPECT_EQ(pace_text(0), "");
  EXPECT_EQ(pace_text(212.4), "212/s");
  EXPECT_EQ(pace_text(3.14), "3.1/s");
  EXPECT_EQ(pace_text(0.05), "3.0/min");
}

} // namespace
