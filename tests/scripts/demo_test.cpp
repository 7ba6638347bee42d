// What README.md promises of scripts/demo.
#include "support/places.h"
#include "support/scratch_directory.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using namespace zeph_test;

std::string between(const std::string& text, const std::string& from, const std::string& to) {
  const std::size_t begin = text.find(from);
  if (begin == std::string::npos) return {};
  return text.substr(begin + from.size(), text.find(to, begin + from.size()) - begin - from.size());
}

TEST(demo, builds_every_program_that_the_readme_names) {
  const std::string readme = bytes_of(source_folder() + "/README.md");
  const std::string built =
      " " + between(bytes_of(source_folder() + "/scripts/demo"), "--target ", "\n") + " ";
  std::istringstream names(between(readme, "The programs are then in `build/release/bin`: ", ".\n"));
  int n = 0;
  for (std::string name; std::getline(names, name, '`');) {
    if (name.empty() || name == ", ") continue;
    EXPECT_NE(built.find(" " + name + " "), std::string::npos) << name;
    ++n;
  }
  EXPECT_EQ(n, 5);
}

} // namespace
