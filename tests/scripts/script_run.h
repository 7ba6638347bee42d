// A program of scripts/ run from the source tree: its exit code and what it printed on both channels.
#pragma once

#include "support/places.h"
#include "support/scratch_directory.h"

#include <sys/wait.h>

#include <cstdlib>
#include <string>

namespace zeph_test {

struct script_end {
  int code = -1;
  std::string said;
};

inline script_end run_script(const std::string& words) {
  const scratch_directory place;
  const std::string command = "cd " + source_folder() + " && " + words + " > " + place / "said" + " 2>&1";
  return {WEXITSTATUS(std::system(command.c_str())), place.read("said")};
}

} // namespace zeph_test
