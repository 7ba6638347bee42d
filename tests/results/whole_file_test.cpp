#include "results/whole_file.h"

#include "result_case.h"

using namespace results_test;
using namespace zeph;

TEST(whole_file, has_its_own_name_only_when_published) {
  result_case c;
  c.write("out", "old");
  whole_file whole(c.report, "out");
  std::ofstream(whole.path()) << "new";
  EXPECT_EQ(c.content("out"), "old");
  whole.publish(c.report);
  EXPECT_EQ(c.content("out"), "new");
  EXPECT_FALSE(c.exists("out.part"));
}

TEST(whole_file, unfinished_file_is_taken_away) {
  result_case c;
  {
    whole_file whole(c.report, "out");
    std::ofstream(whole.path()) << "half";
  }
  EXPECT_FALSE(c.exists("out"));
  EXPECT_FALSE(c.exists("out.part"));
}

TEST(whole_file, link_is_written_in_place) {
  result_case c;
  c.write("elsewhere", "old");
  std::filesystem::create_symlink(c.path("elsewhere"), c.path("out"));
  whole_file whole(c.report, "out");
  EXPECT_EQ(whole.path(), c.path("out"));
  std::ofstream(whole.path()) << "new";
  whole.publish(c.report);
  EXPECT_EQ(c.content("elsewhere"), "new");
  EXPECT_TRUE(std::filesystem::is_symlink(c.path("out")));
}

TEST(whole_file, name_that_cannot_be_given_stops_with_code_16) {
  result_case c;
  whole_file whole(c.report, "out"); // nothing stands under path()
  EXPECT_EQ(exit_code_of([&] { whole.publish(c.report); }), 16);
  EXPECT_EQ(c.said(),
            zeph_test::illegal_input_text("out", "write", "rename", "the file can be opened and written"));
}
