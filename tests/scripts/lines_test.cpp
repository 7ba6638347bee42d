// No line of the sources is above 110 columns, comments and texts included: the layout tool leaves those
// alone.
#include "support/places.h"
#include "support/scratch_directory.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

namespace fs = std::filesystem;
using namespace zeph_test;

TEST(lines, have_at_most_110_columns) {
  int n = 0;
  for (const char* folder : {"src", "companions", "tests", "bench"})
    for (const auto& entry : fs::recursive_directory_iterator(source_folder() + "/" + folder)) {
      const std::string extension = entry.path().extension().string();
      if (extension != ".h" && extension != ".cpp" && extension != ".c") continue;
      std::istringstream in(bytes_of(entry.path().string()));
      int at = 0;
      for (std::string line; std::getline(in, line);) {
        ++at;
        EXPECT_LE(line.size(), 110U) << entry.path().string() << ":" << at;
      }
      ++n;
    }
  EXPECT_GT(n, 300);
}

} // namespace
