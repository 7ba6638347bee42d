// A unit includes its own header first, then headers of its own or a lower
// floor; there are no exceptions.
#include "support/places.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr std::array<std::string_view, 9> floors = {"formats", "listing", "numerics", "input",  "samples",
                                                    "gibbs",   "jump",    "results",  "control"};

int floor_of(std::string_view path) {
  const std::string_view folder = path.substr(0, path.find('/'));
  const auto found = std::find(floors.begin(), floors.end(), folder);
  return found == floors.end() ? -1 : static_cast<int>(found - floors.begin());
}

// Includes in quotation marks, in order.
std::vector<std::string> own_includes(const fs::path& file) {
  std::vector<std::string> names;
  std::ifstream in(file);
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("#include \"", 0) != 0) continue;
    const std::size_t begin = line.find('"') + 1;
    names.push_back(line.substr(begin, line.find('"', begin) - begin));
  }
  return names;
}

std::vector<std::string> sources() {
  std::vector<std::string> names;
  const fs::path root = fs::path(zeph_test::source_folder()) / "src";
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    const std::string extension = entry.path().extension().string();
    if (extension == ".h" || extension == ".cpp") names.push_back(fs::relative(entry.path(), root).string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

TEST(include_check, no_unit_includes_a_higher_floor) {
  ASSERT_FALSE(sources().empty());
  for (const std::string& name : sources()) {
    ASSERT_GE(floor_of(name), 0) << name << " belongs to no floor";
    for (const std::string& include : own_includes(fs::path(zeph_test::source_folder()) / "src" / name))
      EXPECT_TRUE(floor_of(include) >= 0 && floor_of(include) <= floor_of(name))
          << name << " includes " << include;
  }
}

// The headers by which each wing of gibbs/ is entered from outside it; its others are its own. The wings
// with several say why in residual_sums.h and scan_records.h.
TEST(include_check, a_wing_is_entered_by_its_doors) {
  const std::map<std::string, std::set<std::string>> doors = {
      {"latent", {"latent_updates.h"}},
      {"matrices", {"covariance_draws.h"}},
      {"residuals",
       {"fast_residual_pass.h", "record_values.h", "residual_conditional.h", "residual_sums.h",
        "trait_deviations.h"}},
      {"scan", {"gibscan.h", "record_pass.h", "record_product.h", "residual_body.h", "scan_records.h"}}};
  for (const std::string& name : sources())
    for (const std::string& include : own_includes(fs::path(zeph_test::source_folder()) / "src" / name)) {
      if (include.rfind("gibbs/", 0) != 0) continue;
      const fs::path wing = fs::path(include).parent_path();
      if (fs::path(name).parent_path() == wing) continue;
      const auto found = doors.find(wing.filename().string());
      ASSERT_NE(found, doors.end()) << name << " includes " << include << ", of no wing";
      EXPECT_TRUE(found->second.count(fs::path(include).filename().string()) == 1)
          << name << " includes " << include;
    }
}

TEST(include_check, a_source_includes_its_own_header_first) {
  for (const std::string& name : sources()) {
    if (name.size() < 4 || name.substr(name.size() - 4) != ".cpp") continue;
    const std::string header = name.substr(0, name.size() - 4) + ".h";
    if (!fs::exists(fs::path(zeph_test::source_folder()) / "src" / header)) continue;
    const std::vector<std::string> includes =
        own_includes(fs::path(zeph_test::source_folder()) / "src" / name);
    ASSERT_FALSE(includes.empty()) << name;
    EXPECT_EQ(includes.front(), header) << name;
  }
}

// Only the draws of the sources themselves may end the run through a source; all others are handed the
// report.
TEST(include_check, nobody_reaches_the_listing_through_a_random_source) {
  const std::regex through_a_source(R"(\b(source|sources|combined|marsaglia)(\.|->)report\b)");
  for (const std::string& name : sources()) {
    if (name == "numerics/random_sources.cpp" || name == "numerics/gamma_draws.cpp" ||
        name == "numerics/normal_draws.cpp")
      continue;
    std::ifstream in(fs::path(zeph_test::source_folder()) / "src" / name);
    for (std::string line; std::getline(in, line);)
      EXPECT_FALSE(std::regex_search(line, through_a_source)) << name << ": " << line;
  }
}

TEST(include_check, companions_take_only_the_floors_up_to_input_from_the_program) {
  const fs::path root = fs::path(zeph_test::source_folder()) / "companions";
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    const std::string extension = entry.path().extension().string();
    if (extension != ".h" && extension != ".cpp") continue;
    for (const std::string& include : own_includes(entry.path())) {
      if (floor_of(include) < 0) continue;
      EXPECT_LE(floor_of(include), floor_of("input/")) << entry.path() << " includes " << include;
    }
  }
}

} // namespace
