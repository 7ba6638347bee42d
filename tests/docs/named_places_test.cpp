// The pages for contributors name files, folders and headings that exist.
#include "support/places.h"

#include <cctype>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

const fs::path root = zeph_test::source_folder();
const std::vector<std::string> pages = {"README.md", "CONTRIBUTING.md", "docs/architecture.md",
                                        "docs/style.md"};

std::vector<std::string> lines_of(const fs::path& file) {
  std::ifstream in(file);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

std::vector<std::string> found_in(const std::string& line, const std::regex& form) {
  std::vector<std::string> found;
  for (std::sregex_iterator at(line.begin(), line.end(), form), end; at != end; ++at)
    found.push_back((*at)[1]);
  return found;
}

// Names of all sources, without their folders.
std::set<std::string> source_names() {
  std::set<std::string> names;
  for (const char* folder : {"src", "companions", "tests", "bench"})
    for (const auto& entry : fs::recursive_directory_iterator(root / folder))
      names.insert(entry.path().filename().string());
  return names;
}

// The link of a heading: lower case, blanks become hyphens, other signs are left out.
std::string anchor_of(const std::string& heading) {
  std::string anchor;
  for (const char c : heading.substr(heading.find_first_not_of("# ")))
    if (c == ' ')
      anchor += '-';
    else if (std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '_')
      anchor += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return anchor;
}

bool has_heading(const fs::path& page, const std::string& anchor) {
  for (const std::string& line : lines_of(page))
    if (line.starts_with("#") && anchor_of(line) == anchor) return true;
  return false;
}

// `src/input/structures.h`, `tests/runs/`, and `structures.h` alone.
TEST(named_places, are_there) {
  const std::regex path("`((?:src|companions|tests|docs|scripts|bench|examples|[.]ci)/[A-Za-z0-9_./]*)[ `]");
  const std::regex name("`([A-Za-z0-9_]+[.](?:h|cpp|R))`");
  const std::set<std::string> names = source_names();
  for (const std::string& page : pages) {
    int places = 0;
    for (const std::string& line : lines_of(root / page)) {
      for (const std::string& place : found_in(line, path)) {
        if (place.find("FOLDER") != std::string::npos) continue; // the form of a path
        EXPECT_TRUE(fs::exists(root / place)) << page << ": " << place;
        ++places;
      }
      for (const std::string& source : found_in(line, name))
        EXPECT_TRUE(names.count(source) == 1) << page << ": " << source;
    }
    EXPECT_GT(places, 0) << page;
  }
}

TEST(named_places, links_lead_somewhere) {
  const std::regex link("\\]\\(([^)]*)\\)");
  for (const std::string& page : pages)
    for (const std::string& line : lines_of(root / page))
      for (const std::string& target : found_in(line, link)) {
        const std::size_t mark = target.find('#');
        const fs::path file = mark == 0 ? root / page : (root / page).parent_path() / target.substr(0, mark);
        EXPECT_TRUE(fs::exists(file)) << page << ": " << target;
        const bool whole = mark == std::string::npos;
        EXPECT_TRUE(whole || has_heading(file, target.substr(mark + 1))) << page << ": " << target;
      }
}

} // namespace
