#include "include_check/folder_order.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <regex>
#include <set>

namespace zeph_test {

namespace {

bool lies_in(const std::string& name, const std::string& folder) { return name.starts_with(folder + "/"); }

bool allows(const folder_order& order, const std::string& from, const std::string& to) {
  const auto upper = std::find(order.begin(), order.end(), from);
  return upper != order.end() && std::find(order.begin(), upper + 1, to) != upper + 1;
}

std::string unit_of(const std::string& name) { return name.substr(0, name.rfind('.')); }

// Depth-first: a unit that is met again while it is open closes a cycle.
struct unit_walk {
  std::map<std::string, std::set<std::string>> below; // unit -> units that it includes
  std::vector<std::string> open;
  std::set<std::string> done;
  std::vector<std::string> cycles;

  void visit(const std::string& unit) {
    if (const auto at = std::find(open.begin(), open.end(), unit); at != open.end()) {
      std::string text;
      for (auto u = at; u != open.end(); ++u) text += *u + " -> ";
      cycles.push_back(text + unit);
      return;
    }
    if (done.contains(unit)) return;
    open.push_back(unit);
    for (const std::string& next : below[unit]) visit(next);
    open.pop_back();
    done.insert(unit);
  }
};

} // namespace

source_file read_source(const std::string& path, const std::string& name) {
  static const std::regex include(R"re(^\s*#\s*include\s*"([^"]*)")re");
  source_file file{name, {}};
  std::ifstream in(path);
  std::smatch found;
  for (std::string line; std::getline(in, line);)
    if (std::regex_search(line, found, include)) file.includes.push_back(found[1]);
  return file;
}

std::string folder_of(const std::string& name, const std::vector<folder_order>& orders) {
  std::string longest;
  for (const folder_order& order : orders)
    for (const std::string& folder : order)
      if (lies_in(name, folder) && folder.size() > longest.size()) longest = folder;
  return longest;
}

std::vector<std::string> faulty_includes(const std::vector<source_file>& files,
                                         const std::vector<folder_order>& orders) {
  std::vector<std::string> faults;
  for (const source_file& file : files) {
    const std::string from = folder_of(file.name, orders);
    if (from.empty()) faults.push_back(file.name + " belongs to no folder of the order");
    for (const std::string& include : file.includes) {
      const std::string to = folder_of(include, orders);
      if (std::none_of(orders.begin(), orders.end(), [&](const auto& o) { return allows(o, from, to); }))
        faults.push_back(file.name + " includes " + include);
    }
  }
  return faults;
}

std::vector<std::string> unit_cycles(const std::vector<source_file>& files) {
  unit_walk walk;
  for (const source_file& file : files)
    for (const std::string& include : file.includes)
      if (unit_of(include) != unit_of(file.name)) walk.below[unit_of(file.name)].insert(unit_of(include));
  for (const source_file& file : files) walk.visit(unit_of(file.name));
  return walk.cycles;
}

std::vector<std::string> headers_not_first(const std::vector<source_file>& files) {
  std::set<std::string> names;
  for (const source_file& file : files) names.insert(file.name);
  std::vector<std::string> faults;
  for (const source_file& file : files) {
    const std::string header = unit_of(file.name) + ".h";
    if (file.name == header || !names.contains(header)) continue;
    if (file.includes.empty() || file.includes.front() != header)
      faults.push_back(file.name + " doesn't include " + header + " first");
  }
  return faults;
}

} // namespace zeph_test
