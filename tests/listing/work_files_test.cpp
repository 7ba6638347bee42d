#include "listing/work_files.h"

#include "support/check.h"
#include "support/scratch_directory.h"

namespace {

using namespace zeph;
using namespace zeph_test;

TEST(check_input_files, names_each_missing_file_in_order) {
  const char* names[4] = {"RCDATA_I", "RCDATA_R", "MODINF", "CODE_TABLE"};
  for (unsigned present = 0; present < 16; ++present) {
    scratch_directory directory;
    heard_run run(directory.path());
    std::string expected;
    for (unsigned i = 0; i < 4; ++i) {
      if ((present >> i & 1U) != 0)
        directory.write(names[i], "");
      else
        expected += "File \"" + std::string(names[i]) + "\" not found\n";
    }
    EXPECT_EQ(check_input_files(run.report), present == 15 ? 0 : 1);
    EXPECT_EQ(run.text(), expected);
  }
}

TEST(path_of, joins_directory_and_name) {
  std::ostringstream listing;
  EXPECT_EQ(path_of(reporting(listing), "py"), "py");
  EXPECT_EQ(path_of(reporting(listing, "here"), "py"), "here/py");
  EXPECT_EQ(path_of(reporting(listing, "here/"), "py"), "here/py");
}

} // namespace
