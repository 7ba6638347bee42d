// Whole runs in a directory: the program's driver in this process, its exit
// code, its listing, and the solutions that it left.
#pragma once

#include "control/run_driver.h"
#include "support/scratch_directory.h"

#include <cstdint>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace zeph_test {

struct whole_run {
  int exit_code = -1;
  std::string listing;
  std::vector<double> solution; // of equation e at e - 1; empty after a stop

  bool says(const std::string& text) const { return listing.find(text) != std::string::npos; }
};

// The contents of the records of a framed file: a 4-byte length before and
// after each. Read here without the program's reader.
inline std::vector<std::string> framed_records(const std::string& path) {
  const std::string bytes = bytes_of(path);
  std::vector<std::string> records;
  std::size_t at = 0;
  while (at + 8 <= bytes.size()) {
    std::int32_t length = 0;
    std::memcpy(&length, bytes.data() + at, 4);
    records.push_back(bytes.substr(at + 4, static_cast<std::size_t>(length)));
    at += static_cast<std::size_t>(length) + 8;
  }
  return records;
}

// solpostmean: a head record, then equation number and solution.
inline std::vector<double> solutions_in(const std::string& directory) {
  const std::vector<std::string> records = framed_records(directory + "solpostmean");
  std::vector<double> solution(records.empty() ? 0 : records.size() - 1);
  for (std::size_t i = 1; i < records.size(); ++i) {
    std::int32_t equation = 0;
    double value = 0.0;
    if (records[i].size() != 12) throw std::runtime_error("solpostmean: a record of another length");
    std::memcpy(&equation, records[i].data(), 4);
    std::memcpy(&value, records[i].data() + 4, 8);
    solution.at(static_cast<std::size_t>(equation - 1)) = value;
  }
  return solution;
}

// Runs in a directory ("" or with a closing '/') to the end.
inline whole_run run_in(const std::string& directory) {
  whole_run out;
  std::ostringstream listing;
  {
    zeph::run run(listing, directory);
    out.exit_code = zeph::exit_code_of_run(run);
  }
  out.listing = listing.str();
  if (out.exit_code == 0) out.solution = solutions_in(directory);
  return out;
}

} // namespace zeph_test
