// A relationship file may hold an element off the diagonal in parts, which are one
// element of their sum. Every jump model leaves the same files from elements split
// in two as from whole ones, numbers to rounding.
#include "support/check.h"
#include "support/jump_case.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>

namespace {

using namespace zeph_test;

struct file_element {
  std::int32_t i = 0, j = 0;
  double v = 0;
};

// Each record of 16 bytes between its lengths; off the diagonal v becomes a half twice.
std::string split_in_two(const std::string& file) {
  std::string out;
  for (std::size_t at = 0; at + 24 <= file.size(); at += 24) {
    file_element x;
    std::memcpy(&x, file.data() + at + 4, 16);
    const double half = x.i == x.j ? x.v : 0.5 * x.v;
    std::string record = file.substr(at, 24);
    std::memcpy(record.data() + 12, &half, 8);
    out += x.i == x.j ? record : record + record;
  }
  return out;
}

bool holds_records(const std::string& name) {
  return name == "solpostmean" || name == "lastsol" || name == "gparlast" || name == "scr31";
}

// The same words, numbers to the rounding of a chain of some rounds.
void expect_same_text(const std::string& a, const std::string& b, const std::string& name) {
  std::istringstream left(a), right(b);
  std::string x, y;
  while (left >> x && right >> y) {
    if (x == y) continue;
    char *end_x = nullptr, *end_y = nullptr;
    const double u = std::strtod(x.c_str(), &end_x), v = std::strtod(y.c_str(), &end_y);
    ASSERT_TRUE(*end_x == '\0' && *end_y == '\0') << name << ": " << x << ", " << y;
    ASSERT_NEAR(u, v, 1e-7 * (1.0 + std::fabs(u))) << name;
  }
  EXPECT_EQ(left >> x ? x : "", right >> y ? y : "") << name;
}

std::vector<named_jump> split_models() {
  std::vector<named_jump> models = jump_models();
  models.push_back({"pedigree2", {{{"PED", 2, 14}}, 2}});
  models.push_back({"pedigree3", {{{"PED", 3, 14}}, 3}});
  models.push_back({"pedigree4", {{{"PED", 4, 14}}, 4}});
  models.push_back({"pedigree_curve5", {{{"PED", 5, 14, true}}, 1, 120}});
  models.push_back({"pedigree_and_identity", {{{"I", 2, 9}, {"PED", 3, 14}}, 3}});
  return models;
}

class split_elements : public ::testing::TestWithParam<named_jump> {};

TEST_P(split_elements, leave_the_same_files_as_whole_ones) {
  jump_case whole(GetParam().options), split(GetParam().options);
  bool any = false;
  for (std::int32_t k = 1; k <= whole.m->nramat; ++k) {
    const std::string name = "AINV" + std::to_string(k);
    if (!split.directory.has(name)) continue;
    split.directory.write(name, split_in_two(whole.directory.read(name)));
    any = any || split.directory.read(name).size() > whole.directory.read(name).size();
  }
  EXPECT_EQ(any, GetParam().name.find("pedigree") == 0);
  const std::string lines = whole.lines(6, 5, 60, 2);
  EXPECT_EQ(whole.go(lines), split.go(lines));
  int compared = 0;
  for (const auto& entry : std::filesystem::directory_iterator(whole.directory.path())) {
    const std::string name = entry.path().filename().string();
    if (name.starts_with("AINV")) continue;
    ASSERT_TRUE(split.directory.has(name)) << name;
    const std::string a = whole.directory.read(name), b = split.directory.read(name);
    if (holds_records(name))
      EXPECT_EQ(a.size(), b.size()) << name;
    else if (name == "zeinfo" || name == "gib.samples" || name == "py" || name == "lpm" || name == "gibsol")
      expect_same_text(a, b, name), ++compared;
    if (!any) {
      EXPECT_EQ(a, b) << name;
    }
  }
  EXPECT_GE(compared, 3);
}

INSTANTIATE_TEST_SUITE_P(models, split_elements, ::testing::ValuesIn(split_models()),
                         [](const auto& set) { return set.param.name; });

// The moves of pedigree factors, which end a chain: the ratio of each from the same state.
TEST(log_det_A, is_that_of_whole_elements) {
  for (const std::int32_t order : {2, 3, 4}) {
    jump_case whole({{{"PED", order, 14}}, order}), split({{{"PED", order, 14}}, order});
    split.directory.write("AINV1", split_in_two(whole.directory.read("AINV1")));
    for (jump_case* c : {&whole, &split}) c->start_moves(c->lines(6, 0, 1, 1));
    const double wanted = std::log(dense_inverse(relationship_of(made_pedigree(14))).determinant);
    EXPECT_NEAR(whole.r->jump.log_det_A(1), wanted, 1e-9);
    EXPECT_NEAR(split.r->jump.log_det_A(1), wanted, 1e-9);
  }
}

} // namespace
