// ZEPH and zeph-prepare as child processes, with limits of their own and with one
// call of the system that fails.
#pragma once

#include "support/places.h"
#include "support/scratch_directory.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <vector>

namespace zeph_test {

inline std::string program(const std::string& name) { return binary_folder() + "/bin/" + name; }

// The sanitizers' runtime must come first in a program, and wants its own allocator.
inline bool calls_can_fail() {
#if defined(__SANITIZE_ADDRESS__)
  return false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
  return false;
#endif
#endif
  return true;
}

// A call that fails: kinds and counting are described in failing_calls.c.
struct failing_call {
  std::string kind;
  long at = 0;
};

struct child_options {
  failing_call fault = {};
  std::string count_file = {}; // takes the number of calls of the kind
  std::string listing = {};    // file of standard output; empty: a file that is read back
  rlim_t file_bytes = RLIM_INFINITY;
  rlim_t handles = RLIM_INFINITY;
  rlim_t memory = RLIM_INFINITY; // bytes of addresses
  bool nobody = false;           // run without the rights of the superuser
};

struct child_end {
  int code = -1;       // exit code, or 1000 + signal
  std::string listing; // standard output
  std::string errors;  // standard error
  [[nodiscard]] std::string all() const { return listing + errors; }
};

constexpr uid_t nobody_id = 65534;

// In the child: becomes the program. `out` and `err` are open already.
[[noreturn]] inline void become(const std::vector<std::string>& words, const std::string& directory,
                                const child_options& with, int out, int err) {
  std::vector<char*> arguments;
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  ::dup2(out, 1);
  ::dup2(err, 2);
  if (!with.fault.kind.empty()) {
    ::setenv("LD_PRELOAD", (binary_folder() + "/bin/libfailing_calls.so").c_str(), 1);
    ::setenv("FAULT_KIND", with.fault.kind.c_str(), 1);
    ::setenv("FAULT_AT", std::to_string(with.fault.at).c_str(), 1);
    if (!with.count_file.empty()) ::setenv("FAULT_COUNT", with.count_file.c_str(), 1);
  }
  if (::chdir(directory.c_str()) != 0) ::_exit(126);
  const auto limit = [](auto resource, rlim_t n) {
    const rlimit both = {n, n};
    if (n != RLIM_INFINITY && ::setrlimit(resource, &both) != 0) ::_exit(126);
  };
  limit(RLIMIT_FSIZE, with.file_bytes);
  limit(RLIMIT_NOFILE, with.handles);
  limit(RLIMIT_AS, with.memory);
  if (with.nobody && (::setgroups(0, nullptr) != 0 || ::setgid(nobody_id) != 0 || ::setuid(nobody_id) != 0))
    ::_exit(126);
  ::execv(arguments[0], arguments.data());
  ::_exit(127);
}

struct started_child {
  pid_t id = -1;
  int wait() const { // exit code, or 1000 + signal
    int status = 0;
    ::waitpid(id, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
  }
};

// `err` takes standard error.
inline started_child start_child(const std::vector<std::string>& words, const std::string& directory,
                                 const child_options& with, const std::string& listing, int err) {
  const int out = ::open(listing.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (out < 0) throw std::runtime_error("no file for a listing");
  started_child child{::fork()};
  if (child.id == 0) become(words, directory, with, out, err);
  ::close(out);
  if (child.id < 0) throw std::runtime_error("no child process");
  return child;
}

// Runs a program with its arguments in a directory to its end. What it says on
// standard error goes through a pipe that holds all of it, whatever limits it has.
inline child_end run_child(const std::vector<std::string>& words, const std::string& directory,
                           const child_options& with = {}) {
  const scratch_directory texts;
  const std::string listing = with.listing.empty() ? texts / "listing" : with.listing;
  int errors[2] = {-1, -1};
  if (::pipe2(errors, O_CLOEXEC) != 0 || ::fcntl(errors[1], F_SETPIPE_SZ, 1 << 20) < 0)
    throw std::runtime_error("no pipe");
  child_end end;
  end.code = start_child(words, directory, with, listing, errors[1]).wait();
  ::close(errors[1]);
  char piece[4096];
  for (ssize_t n = 0; (n = ::read(errors[0], piece, sizeof piece)) > 0;)
    end.errors.append(piece, static_cast<std::size_t>(n));
  ::close(errors[0]);
  if (with.listing.empty()) end.listing = texts.read("listing");
  return end;
}

inline child_end run_zeph(const std::string& directory, const child_options& with = {}) {
  return run_child({program("ZEPH")}, directory, with);
}

} // namespace zeph_test
