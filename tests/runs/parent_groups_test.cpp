// Progeny deviations of a prepared directory of which two founders are made parent
// groups: a group is its level in all sums, so that only its own rows go.
#include "runs/whole_run.h"
#include "support/places.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace {

using namespace zeph_test;

// Levels 3 and 4 of the factor: founders without records, of codes 3 and 4.
bool is_group(std::int32_t level) { return level == 3 || level == 4; }

void make_groups(const scratch_directory& directory) {
  std::string file = directory.read("PEDFILE2"); // one record: a length, pairs of parents, the length
  for (std::size_t at = 4; at + 8 <= file.size(); at += 4) {
    std::int32_t parent = 0;
    std::memcpy(&parent, file.data() + at, 4);
    if (is_group(parent)) parent = -parent;
    std::memcpy(file.data() + at, &parent, 4);
  }
  directory.write("PEDFILE2", file);
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// The lines without the rows of the groups; `removed` counts them.
std::string without_groups(const std::string& text, const std::vector<std::string>& rows, int& removed) {
  std::string left;
  for (const std::string& line : lines_of(text)) {
    if (std::find(rows.begin(), rows.end(), line) == rows.end())
      left += line + "\n";
    else
      ++removed;
  }
  return left;
}

std::vector<std::string> rows_of_groups(const std::string& text) {
  std::vector<std::string> rows;
  for (const std::string& line : lines_of(text))
    if (is_group(std::stoi(line))) rows.push_back(line);
  return rows;
}

TEST(parent_groups, have_no_rows_of_progeny_deviations_and_change_no_other) {
  scratch_directory animals, groups;
  for (const scratch_directory* directory : {&animals, &groups})
    directory->take_files_of(source_folder() + "/tests/data/workdirs/tdptd_t3");
  make_groups(groups);
  const whole_run before = run_in(animals.path()), after = run_in(groups.path());
  ASSERT_EQ(before.exit_code, 0) << before.listing;
  ASSERT_EQ(after.exit_code, 0) << after.listing;

  const std::vector<std::string> rows = rows_of_groups(animals.read("gib.td_ptd"));
  int removed = 0, listed = 0;
  EXPECT_EQ(groups.read("gib.td_ptd"), without_groups(animals.read("gib.td_ptd"), rows, removed));
  EXPECT_EQ(after.listing, without_groups(before.listing, rows, listed));
  EXPECT_EQ(removed, 4); // two levels, two traits
  EXPECT_EQ(listed, 4);

  for (const std::string file : {"PTD20", "PTD40"}) {
    int gone = 0;
    EXPECT_EQ(groups.read(file),
              without_groups(animals.read(file), rows_of_groups(animals.read(file)), gone));
    EXPECT_EQ(gone, 2) << file;
  }
}

} // namespace
