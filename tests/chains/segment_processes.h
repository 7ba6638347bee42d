// Processes that zeph-chains has started for a test, to be killed by it.
#pragma once

#include "chains/processes.h"
#include "support/scratch_directory.h"

#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace zeph_test {

// The shell around ZEPH in a segment; 0 unless it lives, began when the file `process` says, works in that
// directory and leads a group of its own: only what zeph-chains has started for this test is ever killed.
inline pid_t shell_of(const std::string& segment) {
  zeph::chains::process_record p;
  if (!zeph::chains::read_process(segment, p) || p.pid <= 1 || p.pid == ::getpid()) return 0;
  std::error_code fault;
  const std::filesystem::path works_in =
      std::filesystem::read_symlink("/proc/" + std::to_string(p.pid) + "/cwd", fault);
  const bool ours = zeph::chains::life_of(p) == zeph::chains::process_life::alive &&
                    works_in == std::filesystem::canonical(segment, fault) && ::getpgid(p.pid) == p.pid;
  return ours ? p.pid : 0;
}

inline std::vector<pid_t> children_of(pid_t parent) {
  std::vector<pid_t> children;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    if (entry.path().filename().string().find_first_not_of("0123456789") != std::string::npos) continue;
    const std::string stat = bytes_of(entry.path() / "stat"); // pid (name) state parent ..
    const std::size_t name_end = stat.rfind(") ");
    if (name_end != std::string::npos && std::stoi(stat.substr(name_end + 4)) == parent)
      children.push_back(std::stoi(entry.path().filename()));
  }
  return children;
}

} // namespace zeph_test
