#include "control/state_inputs.h"

#include <gtest/gtest.h>

namespace {

using namespace zeph;

TEST(plain_words, leave_out_comments_blanks_and_the_word_state) {
  EXPECT_EQ(plain_words("# of this chain\n\n  exact # all of it\nstate 5\n\tdensity   64\r\n"),
            "exact\ndensity 64\n");
  EXPECT_EQ(plain_words("state\n# exact\n"), "");
  EXPECT_EQ(plain_words(""), "");
  EXPECT_EQ(plain_words("exact"), "exact\n");
  EXPECT_NE(plain_words("model_prior 1 1 2"), plain_words("model_prior 1 1 3"));
}

TEST(plain_directives, leave_out_the_number_of_rounds_alone) {
  const std::string lines = "3 0\n12 34\n10 60 3\n1 8\n2 8\n";
  EXPECT_EQ(plain_directives(lines), "3 0\n12 34\n10 3\n1 8\n2 8\n");
  EXPECT_EQ(plain_directives("3 0\n12 34\n10 600 3\n1 8\n2 8\n"), plain_directives(lines));
  for (const char* other : {"4 0\n12 34\n10 60 3\n1 8\n2 8\n", "3 1\n12 34\n10 60 3\n1 8\n2 8\n",
                            "3 0\n13 34\n10 60 3\n1 8\n2 8\n", "3 0\n12 34\n11 60 3\n1 8\n2 8\n",
                            "3 0\n12 34\n10 60 2\n1 8\n2 8\n", "3 0\n12 34\n10 60 3\n1 8\n2 9\n",
                            "3 0\n12 34\n10 60 3\n1 8\n2 8\n10\n"})
    EXPECT_NE(plain_directives(other), plain_directives(lines)) << other;
}

// The first three reads drop the rest of their last lines, and take as many lines as they need.
TEST(plain_directives, read_lines_as_the_program_does) {
  const std::string plain = "3 0\n12 34\n10 3\n1 8\n";
  EXPECT_EQ(plain_directives("3, 0 type and level\n\n12\n34 seeds\n10 60\n3 burn-in, rounds\n1 8\n"), plain);
  EXPECT_EQ(plain_directives("3 0\r\n12 34\r\n10 60 3\r\n1 8\r\n\r\n"), plain);
  EXPECT_EQ(plain_directives("3 0\n12 34\n2*10 3\n1 8"), plain);
  EXPECT_EQ(plain_directives("3 0\n12 34\n3*7\n1 8"), "3 0\n12 34\n7 7\n1 8\n");
  EXPECT_EQ(plain_directives("3 0\n12 34\n2000000000*7\n"), "3 0\n12 34\n7 7\n");
  EXPECT_EQ(plain_directives(""), "");
}

} // namespace
