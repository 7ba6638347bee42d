// Damage to the files of a work directory: each file cut off at many places, and
// with single bytes changed. The program, in a process of its own with 2 GiB of
// memory and 20 seconds, ends with an exit code of its own and says why, or is
// still in its chain and ends by STOP. Where ZEPH_CHECKED names a ZEPH built with
// sanitizers, every tenth case runs in that too, without a report of theirs; it takes
// ten times as long, so that what has not ended by then is no fault.
#pragma once

#include "support/places.h"
#include "support/scratch_directory.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace zeph_test {

#if defined(__SANITIZE_ADDRESS__)
inline constexpr int damage_share = 10; // under the sanitizers every tenth case
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr int damage_share = 10;
#else
inline constexpr int damage_share = 1;
#endif
#else
inline constexpr int damage_share = 1;
#endif

struct ended_process {
  int exit_code = -1, signal = 0;
  bool stopped = false; // by STOP, after its time
  bool killed = false;  // STOP did not end it
  std::string listing;
};

// A program and whether it holds sanitizers: these take more memory than they ask for.
struct judged_program {
  std::string path = binary_folder() + "/bin/ZEPH";
  bool checked = damage_share != 1;
};

inline void start_program(const judged_program& program, const std::string& directory) {
  if (::chdir(directory.c_str()) != 0) ::_exit(90);
  const int listing = ::open("listing", O_CREAT | O_TRUNC | O_WRONLY, 0644);
  if (listing < 0 || ::dup2(listing, 1) < 0 || ::dup2(listing, 2) < 0) ::_exit(91);
  if (!program.checked) {
    const rlimit memory{std::uint64_t{2} << 30, std::uint64_t{2} << 30};
    ::setrlimit(RLIMIT_AS, &memory);
  } else {
    ::setenv("ASAN_OPTIONS", "allocator_may_return_null=1:max_allocation_size_mb=2048:detect_leaks=0", 1);
  }
  ::execl(program.path.c_str(), "ZEPH", static_cast<char*>(nullptr));
  ::_exit(92);
}

inline bool ended_within(pid_t child, int& status, std::chrono::seconds time) {
  const auto end = std::chrono::steady_clock::now() + time;
  for (int turn = 0; std::chrono::steady_clock::now() < end; ++turn) {
    if (::waitpid(child, &status, WNOHANG) == child) return true;
    std::this_thread::sleep_for(std::chrono::microseconds(turn < 100 ? 200 : 5000));
  }
  return false;
}

inline ended_process run_program(const judged_program& program, const std::string& directory) {
  ended_process out;
  const pid_t child = ::fork();
  if (child == 0) start_program(program, directory);
  int status = 0;
  constexpr std::chrono::seconds time(20);
  if (!ended_within(child, status, time)) {
    out.stopped = true;
    std::ofstream(directory + "STOP");
    if (!ended_within(child, status, time)) {
      out.killed = true;
      ::kill(child, SIGKILL);
      ::waitpid(child, &status, 0);
    }
  }
  out.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  out.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  out.listing = bytes_of(directory + "listing");
  return out;
}

// A listing that says what ended the run; a normal one has standard errors.
inline bool tells_why(std::string listing) {
  for (const std::string normal : {"Standard Error", "standard error"})
    for (std::size_t at = 0; (at = listing.find(normal, at)) != std::string::npos;)
      listing.erase(at, normal.size());
  for (const char* word : {"ERROR",
                           "Error",
                           "error",
                           "terminates",
                           "Fail",
                           "potrf",
                           "potrs",
                           "not ",
                           "iostat",
                           "must have",
                           "n.p.d.",
                           "npd",
                           "GEN_TRUNC_NORMAL",
                           "incorrect",
                           "nonpositive",
                           "NOT IN RANGE",
                           "Legal",
                           "Attempt to",
                           "before calling",
                           "ABORT"})
    if (listing.find(word) != std::string::npos) return true;
  return false;
}

// A report of a sanitizer; a size refused is no fault.
inline bool tells_fault(const std::string& listing) {
  for (const char* word : {"ERROR: AddressSanitizer", "runtime error:", "DEADLYSIGNAL", "Assertion"})
    if (listing.find(word) != std::string::npos) return true;
  return false;
}

class damaged_directory {
public:
  explicit damaged_directory(const std::string& original) : original_(original) {
    for (const auto& entry : std::filesystem::directory_iterator(original))
      if (entry.is_regular_file()) files_.push_back(entry.path().filename());
    std::sort(files_.begin(), files_.end());
    const scratch_directory place;
    place.take_files_of(original);
    const ended_process run = run_program({}, place.path());
    EXPECT_EQ(run.exit_code, 0) << run.listing;
    EXPECT_FALSE(tells_why(run.listing)) << "no sign of a message: " << run.listing;
  }

  void damage(int cuts, int changes) { damage(files_, cuts, changes); }
  // Every file cut at up to `cuts` places and changed in `changes` bytes.
  void damage(const std::vector<std::string>& files, int cuts, int changes) {
    for (const std::string& file : files) {
      const std::string bytes = bytes_of(original_ + "/" + file);
      const auto size = static_cast<std::int64_t>(bytes.size());
      const std::int64_t places = std::min<std::int64_t>(cuts, size);
      for (std::int64_t i = 0; i < places; ++i)
        judge(file, bytes.substr(0, static_cast<std::size_t>(size * i / places)));
      std::mt19937 source(20);
      for (int i = 0; i < changes && size > 0; ++i) {
        std::string changed = bytes;
        changed[source() % bytes.size()] = static_cast<char>(source() % 256);
        judge(file, changed);
      }
    }
  }
  // Each whole number of a file in turn becomes `value`; `step` leaves some out.
  void put_in_each_number(const std::string& file, std::int32_t value, std::size_t step) {
    const std::string bytes = bytes_of(original_ + "/" + file);
    for (std::size_t at = 0; at + 4 <= bytes.size(); at += 4 * step) {
      std::string changed = bytes;
      std::memcpy(changed.data() + at, &value, 4);
      judge(file, changed);
    }
  }

  int runs = 0, checked_runs = 0, unfinished_runs = 0, ended_well = 0, refused = 0, stopped = 0;
  std::map<int, int> exit_codes; // how many runs ended with each
  [[nodiscard]] long seconds() const {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start_)
        .count();
  }

private:
  // The seeds and the length of the chain stay.
  static std::string with_its_chain(const std::string& original, const std::string& changed) {
    std::vector<std::string> lines[2];
    for (int i = 0; i < 2; ++i) {
      std::istringstream text(i == 0 ? original : changed);
      for (std::string line; std::getline(text, line);) lines[i].push_back(line);
    }
    std::string out;
    for (std::size_t i = 0; i < lines[1].size(); ++i)
      out += ((i == 1 || i == 2) && i < lines[0].size() ? lines[0][i] : lines[1][i]) + "\n";
    return out;
  }

  void judge(const std::string& file, const std::string& changed) {
    if (++cases_ % damage_share != 0) return;
    const bool directives = file.find(".dir") != std::string::npos || file == "dir";
    const std::string original = bytes_of(original_ + "/" + file);
    const std::string damaged = directives ? with_its_chain(original, changed) : changed;
    ++runs;
    const ended_process run = judge({}, file, damaged);
    ++exit_codes[run.exit_code];
    stopped += run.stopped;
    (run.exit_code == 0 ? ended_well : refused) += 1;
    const char* checked = std::getenv("ZEPH_CHECKED");
    if (checked == nullptr || cases_ % 10 != 0) return;
    ++checked_runs;
    judge({checked, true}, file, damaged);
  }

  ended_process judge(const judged_program& program, const std::string& file, const std::string& bytes) {
    const scratch_directory place;
    place.take_files_of(original_);
    place.write(file, bytes);
    ended_process run = run_program(program, place.path());
    if (program.checked && run.killed && !tells_fault(run.listing)) {
      ++unfinished_runs;
      return run;
    }
    const bool right =
        run.signal == 0 && !tells_fault(run.listing) &&
        (run.exit_code == 0 || run.exit_code == 2 || run.exit_code == 16 || run.exit_code == 27);
    EXPECT_TRUE(right) << program.path << ", " << file << ", case " << cases_ << ": exit code "
                       << run.exit_code << ", signal " << run.signal << (run.stopped ? ", after STOP" : "")
                       << '\n'
                       << run.listing.substr(run.listing.size() -
                                             std::min<std::size_t>(run.listing.size(), 1500));
    const bool told = run.exit_code == 0 || tells_why(run.listing) || tells_why(bytes_of(place / "ZEPH.log"));
    EXPECT_TRUE(told) << file << ", case " << cases_ << '\n' << run.listing;
    const char* keep = std::getenv("ZEPH_KEEP_DAMAGE");
    if (keep != nullptr && !(right && told))
      std::filesystem::copy(place.path(), std::string(keep) + "/" + std::to_string(cases_) + file,
                            std::filesystem::copy_options::recursive |
                                std::filesystem::copy_options::overwrite_existing);
    return run;
  }

  std::string original_;
  std::vector<std::string> files_;
  int cases_ = 0;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// Ten kinds of models.
inline const std::vector<std::string>& damaged_kinds() {
  static const std::vector<std::string> names = {"three3_t3", "cat3_t3",  "cens2_t3",  "mix2_t3", "cure_t3",
                                                 "feto_t2",   "tdptd_t3", "jumpI3_t6", "rr_t0",   "regs_t0"};
  return names;
}

inline std::string prepared_directory(const std::string& name) {
  return source_folder() + "/tests/data/workdirs/" + name;
}

} // namespace zeph_test
