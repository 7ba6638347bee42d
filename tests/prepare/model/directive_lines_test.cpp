#include "prepare/model/directive_lines.h"

#include <gtest/gtest.h>

namespace {

using zeph::prepare::directive_lines;
using zeph::prepare::run_section;

run_section gibbs() {
  run_section run;
  run.analysis.value = zeph::prepare::analysis_type::gibbs;
  run.burnin.value = 1000;
  run.rounds.value = 20000;
  run.interval.value = 20;
  run.seed_a.value = 1201;
  run.seed_b.value = 707;
  return run;
}

TEST(directive_lines, end_after_the_degrees_of_freedom) {
  EXPECT_EQ(directive_lines(gibbs(), {6, 0}),
            (std::vector<std::string>{"3 0", "1201 707", "1000 20000 20", "1 6", "2 0"}));
}

TEST(directive_lines, restrictions_come_after_all_optional_lines) {
  run_section run = gibbs();
  run.analysis.value = zeph::prepare::analysis_type::solve;
  run.restrict_solutions.value = true;
  run.test_level.value = 2;
  EXPECT_EQ(directive_lines(run, {0}), (std::vector<std::string>{"0 2", "1201 707", "1000 20000 20", "1 0",
                                                                 "10", "1.0", "1.0", "0", "0", "1"}));
}

} // namespace
