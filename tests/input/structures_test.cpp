#include "input/structures.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace zeph {
namespace {

structure_record factor(const std::string& name) {
  structure_record r;
  r.CV_STRUCT = name;
  return r;
}

// The names as files hold them, twelve characters with trailing blanks, and the
// prefixes of their files.
TEST(structures, find_the_row_of_each_name) {
  const std::pair<const char*, const char*> rows[] = {
      {"I           ", ""},     {"SNP         ", ""},    {"PED         ", "AINV"}, {"PGMIX       ", "HINV"},
      {"GREL        ", "GINV"}, {"COR         ", "COR"}, {"DOM         ", "DOM"},  {"ABS_QTL     ", ""}};
  std::set<structure_kind> kinds;
  for (const auto& [name, prefix] : rows) {
    const structure_kind kind = structure_of(factor(name));
    ASSERT_NE(kind, structure_kind::unknown) << name;
    EXPECT_EQ(row_of(kind).file_prefix, prefix);
    EXPECT_EQ(row_of(kind).equation.size(), 10U) << name;
    kinds.insert(kind);
  }
  EXPECT_EQ(kinds.size(), structure_rows.size());
}

TEST(structures, know_no_other_name) {
  for (const char* name :
       {"", "            ", "P           ", "PEDI        ", "ped         ", " PED        ", "GROUP       "})
    EXPECT_EQ(structure_of(factor(name)), structure_kind::unknown) << name;
}

} // namespace
} // namespace zeph
