// docs/architecture.svg against the includes of the sources.
#include "support/places.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

namespace {

TEST(architecture_picture, is_what_the_includes_give) {
  const std::string script = zeph_test::source_folder() + "/scripts/draw_architecture";
  EXPECT_EQ(std::system(("'" + script + "' --check").c_str()), 0) << "run scripts/draw_architecture";
}

} // namespace
