// A unit includes its own header first, then headers of its own or a lower folder; there are no exceptions.
#include "include_check/folder_order.h"
#include "support/places.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace zeph_test;

// The floors of the program, and what each companion is built on, the lowest first.
const std::vector<folder_order> orders = {
    {"formats", "listing", "numerics", "input", "samples", "gibbs", "jump", "results", "control"},
    {"formats", "listing", "numerics", "input", "shared", "prepare/messages", "prepare/tables",
     "prepare/description", "prepare/records", "prepare/parts", "prepare/model", "prepare/output", "prepare"},
    {"formats", "listing", "numerics", "input", "shared", "chains", "watch"},
};

// The sources of a tree ("src", "companions"), by name.
std::vector<source_file> sources(const std::string& tree) {
  std::vector<source_file> files;
  const fs::path root = fs::path(source_folder()) / tree;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    const std::string extension = entry.path().extension().string();
    if (extension != ".h" && extension != ".cpp") continue;
    files.push_back(read_source(entry.path().string(), fs::relative(entry.path(), root).string()));
  }
  std::sort(files.begin(), files.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
  return files;
}

std::string lines(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& text : texts) all += text + '\n';
  return all;
}

TEST(include_check, no_unit_includes_a_higher_folder) {
  for (const char* tree : {"src", "companions"}) {
    const std::vector<source_file> files = sources(tree);
    EXPECT_GT(files.size(), 50U) << tree;
    EXPECT_EQ(lines(faulty_includes(files, orders)), "") << tree;
  }
}

// The headers by which each wing of gibbs/ is entered from outside it; its others are its own. The wings
// with several say why in residual_sums.h and scan_records.h.
TEST(include_check, a_wing_is_entered_by_its_doors) {
  const std::map<std::string, std::set<std::string>> doors = {
      {"latent", {"latent_updates.h"}},
      {"matrices", {"covariance_draws.h"}},
      {"moves", {"factor_moves.h", "move_store.h", "moves.h"}},
      {"residuals",
       {"fast_residual_pass.h", "record_density.h", "record_values.h", "residual_conditional.h",
        "residual_sums.h", "trait_deviations.h"}},
      {"scan", {"gibscan.h", "record_pass.h", "record_product.h", "residual_body.h", "scan_records.h"}}};
  for (const source_file& file : sources("src"))
    for (const std::string& include : file.includes) {
      if (include.rfind("gibbs/", 0) != 0) continue;
      const fs::path wing = fs::path(include).parent_path();
      if (fs::path(file.name).parent_path() == wing) continue;
      const auto found = doors.find(wing.filename().string());
      ASSERT_NE(found, doors.end()) << file.name << " includes " << include << ", of no wing";
      EXPECT_TRUE(found->second.count(fs::path(include).filename().string()) == 1)
          << file.name << " includes " << include;
    }
}

TEST(include_check, a_source_includes_its_own_header_first) {
  for (const char* tree : {"src", "companions"})
    EXPECT_EQ(lines(headers_not_first(sources(tree))), "") << tree;
}

// Any unit of a companion can be read after those that it is built on.
TEST(include_check, units_of_the_companions_have_an_order) {
  EXPECT_EQ(lines(unit_cycles(sources("companions"))), "");
}

// The folders in the list of a CMake file's loop over libraries.
folder_order linked_folders(const std::string& cmake_file, const std::string& prefix) {
  std::ifstream in(fs::path(source_folder()) / cmake_file);
  const std::regex loop(R"(^foreach\(\w+ (.*)\))");
  folder_order folders;
  std::smatch found;
  for (std::string line; folders.empty() && std::getline(in, line);) {
    if (!std::regex_search(line, found, loop)) continue;
    std::istringstream words(found[1]);
    for (std::string word; words >> word;) folders.push_back(prefix + word);
  }
  return folders;
}

TEST(include_check, libraries_are_linked_in_the_order_of_the_folders) {
  EXPECT_EQ(linked_folders("src/CMakeLists.txt", ""), orders[0]);
  const auto first = std::find(orders[1].begin(), orders[1].end(), "prepare/messages");
  EXPECT_EQ(linked_folders("companions/prepare/CMakeLists.txt", "prepare/"),
            folder_order(first, orders[1].end() - 1)); // all but main.cpp
}

// Only the draws of the sources themselves may end the run through a source; all others are handed the
// report.
TEST(include_check, nobody_reaches_the_listing_through_a_random_source) {
  const std::regex through_a_source(R"(\b(source|sources|combined|marsaglia)(\.|->)report\b)");
  for (const source_file& file : sources("src")) {
    if (file.name == "numerics/random_sources.cpp" || file.name == "numerics/gamma_draws.cpp" ||
        file.name == "numerics/normal_draws.cpp")
      continue;
    std::ifstream in(fs::path(source_folder()) / "src" / file.name);
    for (std::string line; std::getline(in, line);)
      EXPECT_FALSE(std::regex_search(line, through_a_source)) << file.name << ": " << line;
  }
}

} // namespace
