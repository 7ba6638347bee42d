// Frame of the tests of this folder: a work directory of its own, a listing
// that is kept, and the stops of a call as exit codes.
#pragma once

#include "listing/reporting.h"
#include "support/check.h"
#include "support/scratch_directory.h"

#include <string>
#include <utility>
#include <vector>

namespace zeph_test {

struct input_frame {
  scratch_directory directory;
  heard_run run{directory.path()};
  zeph::reporting& report = run.report;

  std::string path(const std::string& file) const { return directory / file; }
  std::string listing() const { return run.text(); }
  bool says(const std::string& text) const { return listing().find(text) != std::string::npos; }

  // Exit code of the stop that f ends in; 0 when it returns.
  template <class F> int exit_code(F f) {
    try {
      f();
      return 0;
    } catch (const zeph::run_stop& stop) {
      return stop.exit_code;
    }
  }
};

// The word after a label of the allocation report.
inline std::string word_after(const std::string& listing, const std::string& label) {
  const std::size_t at = listing.find(label);
  if (at == std::string::npos) return "";
  const std::size_t begin = listing.find_first_not_of(' ', at + label.size());
  return listing.substr(begin, listing.find('\n', begin) - begin);
}

// Runs f(frame) with the first, second, .. allocation failing, until it ends
// without a failure; each failure must stop with code 16. Gives "variable in
// routine" of each.
template <class F> std::vector<std::string> walk_of_allocations(F f) {
  std::vector<std::string> names;
  for (int n = 1; n < 1000; ++n) {
    input_frame frame;
    frame.report.door.fail_at = n;
    const int code = frame.exit_code([&] { f(frame); });
    if (code == 0) return names;
    if (code != 16) names.push_back("exit code " + std::to_string(code));
    names.push_back(word_after(frame.listing(), "Trying to allocate memory for:") + " in " +
                    word_after(frame.listing(), "Called in                    :"));
  }
  return names;
}

} // namespace zeph_test
