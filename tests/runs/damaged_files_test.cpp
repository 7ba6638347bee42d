#include "runs/damaged_files.h"

namespace {

using namespace zeph_test;

class damaged_files : public ::testing::TestWithParam<std::string> {};

TEST_P(damaged_files, end_the_run_with_a_message_and_never_by_a_signal) {
  damaged_directory d(prepared_directory(GetParam()));
  d.damage(25, 25);
  EXPECT_GT(d.runs, 200 / damage_share);
  EXPECT_GT(d.refused, d.runs / 4);
  RecordProperty("runs", d.runs);
  RecordProperty("ended_well", d.ended_well);
}

INSTANTIATE_TEST_SUITE_P(runs, damaged_files, ::testing::ValuesIn(damaged_kinds()),
                         [](const auto& kind) { return kind.param; });

} // namespace
