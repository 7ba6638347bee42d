// Studies of a small model in a scratch directory: ten animals, two traits, complete records, so that a chain
// that is continued equals the unbroken one. The programs are those of the build.
#pragma once

#include "support/places.h"
#include "support/scratch_directory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace zeph_test {

struct said_by_program {
  int exit_code = -1;
  std::string text; // standard output and error, in order

  bool has(const std::string& part) const { return text.find(part) != std::string::npos; }
};

// For EXPECT_TRUE: shows the whole text when the part is not in it.
inline testing::AssertionResult says(const said_by_program& said, const std::string& part) {
  if (said.has(part)) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "not said: " << part << "\nsaid, with exit code " << said.exit_code
                                     << ":\n"
                                     << said.text;
}

// Runs a line of the shell.
inline said_by_program shell(const std::string& line) {
  said_by_program out;
  std::FILE* pipe = ::popen(("{ " + line + "\n} 2>&1").c_str(), "r");
  if (pipe == nullptr) return out;
  char piece[4096];
  for (std::size_t n = 0; (n = std::fread(piece, 1, sizeof piece, pipe)) > 0;) out.text.append(piece, n);
  const int status = ::pclose(pipe);
  out.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return out;
}

// True as soon as the condition holds, looked at 50 times a second for a minute at most.
inline bool soon(const std::function<bool()>& condition) {
  for (int i = 0; i < 3000; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return false;
}

inline const std::string& programs() {
  static const std::string folder = binary_folder() + "/bin/";
  return folder;
}

// A program that runs beside the test; its output goes to a file. Killed at the end if it still runs.
class background_program {
public:
  background_program(const std::vector<std::string>& words, const std::string& output) {
    pid_ = ::fork();
    if (pid_ != 0) return;
    ::setpgid(0, 0);
    const int file = ::open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ::dup2(file, 1);
    ::dup2(file, 2);
    std::vector<char*> arguments;
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    ::execvp(arguments[0], arguments.data());
    ::_exit(127);
  }
  ~background_program() {
    if (pid_ > 1) end(SIGKILL);
  }
  background_program(const background_program&) = delete;
  background_program& operator=(const background_program&) = delete;

  void send(int signal) const {
    if (pid_ > 1) ::kill(pid_, signal);
  }
  // Waits for the end: the exit code, or 128 + the signal.
  int wait() {
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  int end(int signal) {
    send(signal);
    return wait();
  }

private:
  pid_t pid_ = -1;
};

inline const char* const two_traits = R"toml([factor.animal]
pedigree = "pedigree.csv"
start = [[2.0, 1.0], [1.0, 3.0]]
prior_df = 8
[trait.y1]
formula = "1 + sex + (1 | animal)"
[trait.y2]
formula = "1 + (1 | animal)"
[residual]
start = [[3.0, 1.5], [1.5, 4.0]]
prior_df = 7
groups = "group"
)toml";

// binary: 0 or 1; ordered: 1 to 3
inline std::string scored(const std::string& kind) {
  return "[factor.animal]\npedigree = \"pedigree.csv\"\nstart = 0.5\nprior_df = 8\n[trait.score]\nkind = \"" +
         kind + "\"\ncolumn = \"" + kind + "\"\nformula = \"1 + sex + (1 | animal)\"\n";
}

struct chain_settings {
  int burnin = 20, rounds = 200, interval = 2;
  std::string seeds = "[11, 12]", analysis = "gibbs", tables = two_traits;
  std::string sampler = "classic";   // its segments continue from lastsol and gparlast,
  std::string state_every = "false"; // unless it has minutes between two saves of the state
};

inline constexpr int endless = 90000000; // rounds; a chain of hours

struct study_case {
  study_case() {
    place.write("pedigree.csv",
                "animal,sire,dam\n1,0,0\n2,0,0\n3,1,2\n4,1,0\n5,3,2\n6,3,4\n7,5,4\n8,5,6\n9,7,6\n10,7,8\n");
    place.write("data.csv",
                "animal,sex,group,y1,y2,binary,ordered\n1,M,a,12.1,31.0,1,1\n2,F,b,9.3,28.5,0,2\n"
                "3,M,a,14.0,33.9,1,3\n4,F,a,10.2,30.4,0,1\n5,M,b,11.8,29.7,1,2\n6,F,a,12.6,32.2,1,3\n"
                "7,M,b,13.3,30.1,0,3\n8,F,a,8.9,27.8,0,2\n9,M,b,15.2,35.0,1,1\n10,F,a,11.1,31.6,1,2\n"
                "1,F,b,10.6,29.9,0,3\n");
  }
  // A ZEPH that still runs loses its directory and ends by that: it can't write its status. No process is
  // killed.
  ~study_case() {
    std::error_code fault;
    for (int i = 0; i < 500 && std::filesystem::exists(place.path(), fault); ++i) {
      if (i > 0) std::this_thread::sleep_for(std::chrono::milliseconds(20));
      std::filesystem::remove_all(place.path(), fault);
    }
  }
  study_case(const study_case&) = delete;
  study_case& operator=(const study_case&) = delete;
  // Prepares the folder `work`.
  void prepare(const chain_settings& c = {}, const std::string& into = "work") const {
    const auto number = [](int n) { return std::to_string(n); };
    place.write("model.toml", "[data]\nfile = \"data.csv\"\n" + c.tables + "[run]\nanalysis = \"" +
                                  c.analysis + "\"\nburnin = " + number(c.burnin) +
                                  "\nrounds = " + number(c.rounds) + "\ninterval = " + number(c.interval) +
                                  "\nseeds = " + c.seeds + "\nsampler = \"" + c.sampler +
                                  "\"\nstate_every = " + c.state_every + "\n");
    const said_by_program said =
        shell("cd " + place.path() + " && " + programs() + "zeph-prepare model.toml --into " + into);
    ASSERT_EQ(said.exit_code, 0) << said.text;
  }
  // zeph-chains in the scratch directory.
  said_by_program chains(const std::string& arguments) const {
    return shell("cd " + place.path() + " && " + programs() + "zeph-chains " + arguments);
  }
  std::string file(const std::string& name) const { return bytes_of(place / name); }
  bool has(const std::string& name) const { return place.has(name); }

  scratch_directory place;
};

// A row of gib.samples: the number of its round, and the rest of the row as it is.
struct sample_row {
  long round = 0;
  std::string rest;
  bool operator==(const sample_row&) const = default;
};

inline std::vector<sample_row> sample_rows(const std::string& text, long shift = 0) {
  std::vector<sample_row> rows;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    rows.push_back({std::stol(line.substr(0, 8)) + shift, line.substr(8)});
  return rows;
}

// The number after `key = ` in segment.toml.
inline long number_of(const std::string& toml, const std::string& key) {
  const std::size_t at = toml.find("\n" + key + " = ");
  return at == std::string::npos ? -1 : std::stol(toml.substr(at + key.size() + 4));
}

// The samples of a chain, its segments joined by the rule of docs/chains.md.
inline std::vector<sample_row> joined_rows(const study_case& study, const std::string& chain) {
  std::vector<sample_row> all;
  for (int s = 1; study.has(chain + "/seg" + std::to_string(s)); ++s) {
    const std::string segment = chain + "/seg" + std::to_string(s) + "/";
    const std::string toml = study.file(segment + "segment.toml");
    if (toml.find("counts = false") != std::string::npos) continue;
    const std::vector<sample_row> rows =
        sample_rows(study.file(segment + "gib.samples"), number_of(toml, "shift"));
    all.insert(all.end(), rows.begin(), rows.end());
  }
  return all;
}

} // namespace zeph_test
