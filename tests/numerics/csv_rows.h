// Rows of a comma-separated test table below tests/data, without its header line.
#pragma once

#include "support/places.h"

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

inline std::vector<std::vector<std::string>> csv_rows(const std::string& name) {
  std::ifstream file(zeph_test::source_folder() + "/tests/data/" + name);
  std::vector<std::vector<std::string>> rows;
  std::string line, item;
  std::getline(file, line);
  while (std::getline(file, line)) {
    rows.emplace_back();
    for (std::istringstream items(line); std::getline(items, item, ',');) rows.back().push_back(item);
  }
  return rows;
}
