// A run's listing held in memory, stops as text and exit code, and where the
// prepared directories lie.
#pragma once

#include "listing/reporting.h"
#include "listing/stops.h"
#include "support/places.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>

namespace zeph_test {

// The voice of a run in `directory` ("" or with a closing '/').
struct heard_run {
  explicit heard_run(const std::string& directory = "") : report(listing, directory) {}
  std::ostringstream listing;
  zeph::reporting report;

  std::string text() const { return listing.str(); }
};

// Expects that call(report) ends in a stop with this exit code; returns the
// whole listing of the run.
template <class Call> std::string expect_stop(int exit_code, heard_run& run, Call&& call) {
  try {
    call(run.report);
    ADD_FAILURE() << "no stop; the listing is\n" << run.text();
  } catch (const zeph::run_stop& stop) {
    EXPECT_EQ(stop.exit_code, exit_code);
  }
  return run.text();
}
template <class Call> std::string expect_stop(int exit_code, Call&& call, const std::string& directory = "") {
  heard_run run(directory);
  return expect_stop(exit_code, run, call);
}

// What a fault of the input puts on the listing, e.g.
// illegal_input_text("MODINF", "NLEV(1,2)", "-3", ">= 0").
inline std::string illegal_input_text(const std::string& file, const std::string& item,
                                      const std::string& value, const std::string& rule) {
  return "\nERROR - Illegal input in " + file + ": " + item + " = " + value + ", legal: " + rule +
         "\n\nZEPH terminates.\n";
}

// What a failed allocation puts on the listing.
inline std::string allocation_text(const std::string& variable, const std::string& elements,
                                   const std::string& routine) {
  const std::string count = std::string(elements.size() < 11 ? 11 - elements.size() : 0, ' ') + elements;
  return "\nZEPH: FATAL ERROR\n\nTrying to allocate memory for:  " + variable +
         "\nWith elements                :  " + count + "\nRetur status from allocate   :           41" +
         "\nCalled in                    :  " + routine + "\n\nProgram terminates with exit code 16\n";
}

// A folder of shared data beside the sources, or in the directory that the
// environment variable ZEPH_SHARED names; "" when it is absent.
inline std::string shared_folder(const std::string& folder) {
  const char* named = std::getenv("ZEPH_SHARED");
  const std::filesystem::path root = named != nullptr
                                         ? std::filesystem::path(named)
                                         : std::filesystem::path(zeph_test::source_folder()) / "../shared";
  const std::filesystem::path wanted = root / folder;
  return std::filesystem::is_directory(wanted) ? wanted.string() + "/" : std::string();
}

} // namespace zeph_test
