// Small frame of the tests of this folder: a reporting whose listing is kept.
#pragma once

#include "listing/reporting.h"
#include "listing/stops.h"

#include <filesystem>
#include <sstream>
#include <string>
#include <unistd.h>

struct kept_listing {
  explicit kept_listing(const std::string& directory = "") : report(out, directory) {}
  std::ostringstream out;
  zeph::reporting report;

  // Exit code of the stop that f ends in, 0 when it returns.
  template <class F> int exit_code(F f) {
    try {
      f();
      return 0;
    } catch (const zeph::run_stop& stop) {
      return stop.exit_code;
    }
  }
};

// A directory of its own, with a closing '/', removed at the end.
struct scratch {
  scratch() {
    std::string name = (std::filesystem::temp_directory_path() / "numerics_XXXXXX").string();
    path = std::string(mkdtemp(name.data())) + "/";
  }
  ~scratch() { std::filesystem::remove_all(path); }
  std::string path;
};
