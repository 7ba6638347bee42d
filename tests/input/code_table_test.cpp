#include "input/code_table.h"

#include "input_frame.h"
#include "support/model_builder.h"

#include <gtest/gtest.h>

namespace {

using namespace zeph_test;

// Two levels of a class effect (six integers), two of a random factor (thirteen).
void write_table(const input_frame& frame) {
  write_integer_records(frame.path("CODE_TABLE"), {{1, 501, 7, 1, 0, 0},
                                                   {1, 502, 3, 2, 0, 0},
                                                   {3, -9, 4, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0},
                                                   {3, 88, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0}});
}

TEST(code_table, gives_code_observations_and_level_of_both_record_forms) {
  input_frame frame;
  write_table(frame);
  code_table table;
  rewind_codes(table, frame.report);
  const code_record first = next_code(table, 1, 2, frame.report);
  EXPECT_EQ(first.code, 501);
  EXPECT_EQ(first.nobs, 7);
  EXPECT_EQ(first.level, 1);
  next_code(table, 2, 2, frame.report);
  const code_record third = next_code(table, 1, 2, frame.report);
  EXPECT_EQ(third.code, -9);
  EXPECT_EQ(third.nobs, 4);
  EXPECT_EQ(table.record, 3);
}

TEST(code_table, starts_again_and_passes_over_effects) {
  input_frame frame;
  write_table(frame);
  code_table table;
  rewind_codes(table, frame.report);
  skip_codes(table, 2, frame.report);
  EXPECT_EQ(next_code(table, 1, 2, frame.report).code, -9);
  rewind_codes(table, frame.report);
  EXPECT_EQ(table.record, 0);
  EXPECT_EQ(next_code(table, 1, 2, frame.report).code, 501);
}

// 2 + 2 levels: whole, without its last record, and with a level beyond those of its effect.
TEST(code_table, is_checked_by_one_walk_over_all_levels) {
  described_model d;
  d.traits.resize(1);
  d.traits[0].effects = {{1, 2}};
  d.factors = {{"I", 2, 1, {{1, 1, 1}}}};
  const zeph::model_records m = build_model(d);
  input_frame frame;
  write_table(frame);
  check_codes(m, frame.report);
  EXPECT_EQ(frame.listing(), "");

  const std::vector<std::vector<std::int32_t>> three = {
      {1, 501, 7, 1, 0, 0}, {1, 502, 3, 2, 0, 0}, {3, -9, 4, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0}};
  write_integer_records(frame.path("CODE_TABLE"), three);
  EXPECT_EQ(frame.exit_code([&] { check_codes(m, frame.report); }), 16);
  EXPECT_TRUE(frame.says("READ  CODE_TABLE - iostat =           -1\n\n\ni2 :            2\n"))
      << frame.listing();
}

TEST(code_table, stops_at_the_end_of_the_file) {
  input_frame frame;
  write_table(frame);
  code_table table;
  rewind_codes(table, frame.report);
  skip_codes(table, 2, frame.report);
  EXPECT_EQ(frame.exit_code([&] { skip_codes(table, 3, frame.report); }), 16);
  EXPECT_EQ(frame.listing(), "READ  CODE_TABLE - iostat =           -1\n"
                             "\n"
                             "\n"
                             "i2 :            3\n"
                             "nralev(k) :            3\n");
}

TEST(code_table, stops_at_a_short_record_and_a_missing_file) {
  input_frame frame;
  write_integer_records(frame.path("CODE_TABLE"), {{1, 501, 7, 1, 0}});
  code_table table;
  rewind_codes(table, frame.report);
  EXPECT_EQ(frame.exit_code([&] { next_code(table, 1, 1, frame.report); }), 16);
  EXPECT_TRUE(frame.says("READ  CODE_TABLE - iostat =           67\n"));

  input_frame empty;
  code_table none;
  rewind_codes(none, empty.report);
  EXPECT_EQ(empty.exit_code([&] { next_code(none, 1, 1, empty.report); }), 16);
  EXPECT_TRUE(empty.says("READ  CODE_TABLE - iostat =           -1\n"));
}

TEST(code_table, refuses_levels_outside_the_effect) {
  for (const std::int32_t level : {0, 3, -1}) {
    input_frame frame;
    write_integer_records(frame.path("CODE_TABLE"), {{1, 501, 7, 1, 0, 0}, {1, 502, 7, level, 0, 0}});
    code_table table;
    rewind_codes(table, frame.report);
    EXPECT_EQ(frame.exit_code([&] { skip_codes(table, 2, frame.report); }), 16);
    EXPECT_TRUE(frame.says("ERROR - Illegal input in CODE_TABLE: level(2) = " + std::to_string(level) +
                           ", legal: 1..2"));
  }
}

} // namespace
