#include "chains/directive_text.h"

#include <gtest/gtest.h>

namespace {

using namespace zeph::chains;

directive_text apart(const std::string& text) {
  directive_text d;
  std::string fault;
  EXPECT_TRUE(take_apart(text, d, fault)) << fault;
  return d;
}

std::string fault_of(const std::string& text) {
  directive_text d;
  std::string fault;
  EXPECT_FALSE(take_apart(text, d, fault));
  return fault;
}

TEST(take_apart, finds_the_values_of_the_first_three_lines) {
  const directive_text d = apart("3 1\n11 12\n1000 50000 10\n1 8\n2 7\n");
  EXPECT_EQ(d.analysis_type, 3);
  EXPECT_EQ(d.test_level, 1);
  EXPECT_EQ(d.seeds, (seed_pair{11, 12}));
  EXPECT_EQ(d.nburn, 1000);
  EXPECT_EQ(d.nround, 50000);
  EXPECT_EQ(d.isamp, 10);
  EXPECT_EQ(d.tail, "1 8\n2 7\n");
}

TEST(put_together, changes_seeds_and_rounds_and_nothing_else) {
  directive_text d = apart("3 1 a remark\n11 12\n1000 50000 10\n1 8  the rest\n2 7");
  d.seeds = {31328, 1};
  d.nburn = 0;
  d.nround = 77;
  EXPECT_EQ(put_together(d), "3 1 a remark\n31328 1\n0 77 10\n1 8  the rest\n2 7\n");
}

// each read begins on a fresh line, takes as many lines as it needs, and drops the rest of the last one
TEST(take_apart, reads_as_ZEPH_does) {
  const directive_text d = apart("3,\t0\r\n\n 2*7 99\n\n1000\n50000, +10 5\n1 8\n");
  EXPECT_EQ(d.seeds, (seed_pair{7, 7}));
  EXPECT_EQ(d.nburn, 1000);
  EXPECT_EQ(d.isamp, 10);
  EXPECT_EQ(put_together(d), "3,\t0\r\n7 7\n1000 50000 10\n1 8\n");
}

TEST(take_apart, names_the_line_that_it_cannot_read) {
  EXPECT_EQ(fault_of(""), "line 1 should hold the type of analysis and the test level");
  EXPECT_EQ(fault_of("3 x\n1 2\n1 2 3\n"), "line 1 should hold the type of analysis and the test level");
  EXPECT_EQ(fault_of("3 0\n1.5 2\n1 2 3\n"), "line 2 should hold the seeds A and B");
  EXPECT_EQ(fault_of("3 0\n0*1 2\n1 2 3\n"), "line 2 should hold the seeds A and B");
  EXPECT_EQ(fault_of("3 0\n1 2\n1 2\n"), "line 3 should hold burn-in rounds, sampling rounds and interval");
  EXPECT_EQ(fault_of("3 0\n1 2\n1 2 99999999999\n"),
            "line 3 should hold burn-in rounds, sampling rounds and interval");
}

} // namespace
