#include "formats/whole_file.h"

#include "support/scratch_directory.h"

#include <gtest/gtest.h>

namespace {

using namespace zeph_test;
using zeph::whole_file;

void put(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

TEST(whole_file, has_its_own_name_only_when_published) {
  const scratch_directory c;
  c.write("out", "old");
  whole_file whole(c / "out");
  put(whole.path(), "new");
  EXPECT_EQ(c.read("out"), "old");
  EXPECT_TRUE(whole.publish());
  EXPECT_EQ(c.read("out"), "new");
  EXPECT_FALSE(c.has("out.part"));
}

TEST(whole_file, unfinished_file_is_taken_away) {
  const scratch_directory c;
  {
    whole_file whole(c / "out");
    put(whole.path(), "half");
  }
  EXPECT_FALSE(c.has("out"));
  EXPECT_FALSE(c.has("out.part"));
}

TEST(whole_file, link_is_written_in_place) {
  const scratch_directory c;
  c.write("elsewhere", "old");
  std::filesystem::create_symlink(c / "elsewhere", c / "out");
  whole_file whole(c / "out");
  EXPECT_EQ(whole.path(), c / "out");
  put(whole.path(), "new");
  EXPECT_TRUE(whole.publish());
  EXPECT_EQ(c.read("elsewhere"), "new");
  EXPECT_TRUE(std::filesystem::is_symlink(c / "out"));
}

TEST(whole_file, name_that_cannot_be_given_is_reported_and_leaves_no_file_beside_it) {
  const scratch_directory c;
  {
    whole_file whole(c / "out"); // there is nothing under path()
    EXPECT_FALSE(whole.publish());
  }
  {
    whole_file whole(c / "out");
    put(whole.path(), "new");
    std::filesystem::create_directory(c / "out");
    EXPECT_FALSE(whole.publish());
  }
  EXPECT_FALSE(c.has("out.part"));
}

} // namespace
