// The processes that run segments: who they are, whether they live.
#pragma once

#include "chains/layout.h"

#include <cstdint>
#include <string>
#include <sys/types.h>

namespace zeph::chains {

// What the file `process` of a segment holds.
struct process_record {
  std::string host;
  pid_t pid = 0;
  std::int64_t begun =
      0; // start of the process in ticks since the machine's start, so that a reused pid is recognised
  std::string job; // Slurm: job_task; empty here
};

constexpr const char* program_name = "ZEPH"; // its file

enum class process_life { alive, gone, elsewhere }; // elsewhere: on another host, not to be seen from here

std::string host_name();
process_record record_of_process(pid_t pid, const std::string& job);
bool write_process(const fs::path& directory, const process_record& p);
bool read_process(const fs::path& directory, process_record& p);
process_life life_of(const process_record& p);

// A process of this machine that works in the directory and was started from a program file of this name, as
// far as the caller may see them; 0: none. It may have outlived the shell around it.
pid_t process_in(const fs::path& directory, const std::string& name);

// Starts `program` in the directory, in a process group of its own, on one thread, standard output and
// error to the end of listing.txt. A shell around it writes the exit code to the file `exit`, also when the
// caller is no longer there. Writes the file `process`. Returns the pid, a child of the caller; -1 with
// `fault` when it can't be started.
pid_t start_program(const fs::path& directory, const fs::path& program, std::string& fault);

// The program ZEPH: beside the running program, else on PATH; empty when it is not found.
fs::path find_beside(const std::string& name);

} // namespace zeph::chains
