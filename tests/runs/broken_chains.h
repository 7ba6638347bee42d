// Chains that are broken and continued from their saved state, held against the unbroken chain.
#pragma once

#include "runs/all_kinds.h"
#include "runs/small_herd.h"
#include "support/places.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace zeph_test {

using named_files = std::map<std::string, std::string>; // bytes by name

// A chain of one kind of traits and one type of analysis.
struct chain_kind {
  std::string name;
  std::string work;       // directory of tests/data/workdirs, "herd" or "all_kinds"
  std::string type;       // of the analysis
  std::string words = {}; // of the file sampler, beside state
};

inline void PrintTo(const chain_kind& kind, std::ostream* out) { *out << kind.name; }

inline named_files files_of(const std::string& directory) {
  named_files out;
  for (const auto& entry : std::filesystem::directory_iterator(directory))
    if (entry.is_regular_file()) out[entry.path().filename().string()] = bytes_of(entry.path().string());
  return out;
}

// Two traits of ten animals in three residual groups, with weights and missing values; solutions and
// residuals of each sample are kept.
inline constexpr const char* HERD_WITH_ALL_FILES = R"toml([data]
file = "data.csv"
[keep]
solutions = true
residuals = true
[run]
analysis = "gibbs"
seeds = [1234, 5678]
[trait.y1_m]
formula = "1 + sex + (1 | animal)"
weight = "w1"
[trait.y2_m]
formula = "1 + (1 | animal)"
[factor.animal]
pedigree = "pedigree.csv"
start = [[2.0, 1.0], [1.0, 3.0]]
prior_df = 8
[residual]
start = [[3.0, 1.5], [1.5, 4.0]]
groups = "pen"
prior_df = 7
)toml";

inline named_files prepared_files(const std::string& toml, const named_files& texts) {
  using namespace zeph::prepare;
  const scratch_directory place;
  for (const auto& [name, text] : texts) place.write(name, text);
  place.write("model.toml", toml);
  message_log log;
  const model_description d = read_description(place / "model.toml", log);
  const prepared_model p = assemble_model(d, {}, log);
  if (!p.complete || !write_work_directory(d, p, place / "work/", "").ok)
    throw std::runtime_error(full_text(log));
  return files_of(place / "work/");
}

// The input of a chain with the third line of its directive file.
inline named_files input_of(const chain_kind& kind, const std::string& rounds) {
  named_files files;
  if (kind.work == "herd")
    files = prepared_files(HERD_WITH_ALL_FILES, {{"data.csv", herd_data}, {"pedigree.csv", herd_pedigree}});
  else if (kind.work == "all_kinds")
    files = prepared_files(ALL_KINDS, {{"data.csv", records_of_all_kinds()}});
  else
    files = files_of(source_folder() + "/tests/data/workdirs/" + kind.work + "/");
  std::istringstream lines(files.at("zeph.dir"));
  std::string text, line;
  for (int n = 1; std::getline(lines, line); ++n) {
    if (n == 1) line.replace(0, line.find(' '), kind.type);
    text += (n == 3 ? rounds : line) + "\n";
  }
  files["zeph.dir"] = text;
  files.erase("sampler"); // that of the description
  if (!kind.words.empty()) files["sampler"] = kind.words + "\n";
  return files;
}

// What a chain has made: without the files of its course and of its state, and the one with the time of
// preparation.
inline named_files results_in(const std::string& directory) {
  named_files files = files_of(directory);
  for (const char* name :
       {"status", "STOP", "sampler", "r_state", "statelast", "statelast.part", "zeph.dir", "names.json"})
    files.erase(name);
  return files;
}

// Names of the files in which two sets differ.
inline std::vector<std::string> differing_files(const named_files& a, const named_files& b) {
  std::set<std::string> names;
  for (const auto& [name, bytes] : a)
    if (!b.contains(name) || b.at(name) != bytes) names.insert(name);
  for (const auto& entry : b)
    if (!a.contains(entry.first)) names.insert(entry.first);
  return {names.begin(), names.end()};
}

// One chain in a directory of its own.
struct chain_place {
  scratch_directory place;
  std::string listing;

  chain_place(const chain_kind& kind, const std::string& rounds, const std::string& more_words = "") {
    for (const auto& [name, bytes] : input_of(kind, rounds)) place.write(name, bytes);
    if (!more_words.empty()) place.write("sampler", more_words + "\n" + place.read("sampler"));
  }
  // Another number of rounds in the third line of the directive file.
  void ask_for(const std::string& rounds) const {
    std::istringstream lines(place.read("zeph.dir"));
    std::string text, line;
    for (int n = 1; std::getline(lines, line); ++n) text += (n == 3 ? rounds : line) + "\n";
    place.write("zeph.dir", text);
  }
  // A run; between: time between two saves, 0 for the minutes of the word.
  int go(std::chrono::nanoseconds between = {}) {
    std::ostringstream out;
    zeph::run run(out, place.path());
    run.saved.between = between;
    const int code = zeph::exit_code_of_run(run);
    listing = out.str();
    return code;
  }
  [[nodiscard]] bool says(const std::string& text) const { return listing.find(text) != std::string::npos; }
  // The state that was saved last becomes the one that is read.
  void take_up() const {
    if (place.has("statelast")) std::filesystem::rename(place / "statelast", place / "r_state");
  }
  [[nodiscard]] named_files results() const { return results_in(place.path()); }

  // A run in a process of its own that saves after every round, killed after this time. True when it
  // came to its end before.
  [[nodiscard]] bool go_until_killed(std::chrono::microseconds life) const {
    const pid_t child = ::fork();
    if (child == 0) {
      std::ofstream nowhere("/dev/null");
      zeph::run run(nowhere, place.path());
      run.saved.between = std::chrono::nanoseconds(1);
      ::_exit(zeph::exit_code_of_run(run));
    }
    using clock = std::chrono::steady_clock;
    int status = 0;
    for (const auto start = clock::now(); clock::now() - start < life;) {
      if (::waitpid(child, &status, WNOHANG) == child) {
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
        return true;
      }
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    ::kill(child, SIGKILL);
    ::waitpid(child, &status, 0);
    return WIFEXITED(status); // it ended as the signal came
  }
};

// Kills a chain at random times, up to twice that of the unbroken one, and continues it, `kills` times in
// all. Whenever it reaches its end, its files are those of the unbroken chain.
inline void kill_and_continue(const chain_kind& kind, const std::string& rounds, int kills, unsigned seed) {
  using clock = std::chrono::steady_clock;
  chain_place unbroken(kind, rounds);
  const auto start = clock::now();
  ASSERT_EQ(unbroken.go(), 0) << unbroken.listing;
  const long its_time = std::chrono::duration_cast<std::chrono::microseconds>(clock::now() - start).count();
  const named_files expected = unbroken.results();
  std::mt19937 random(seed);
  std::uniform_int_distribution<long> life(3000, std::max(60000L, 2 * its_time));
  int left = kills, from_state = 0;
  while (left > 0) {
    chain_place broken(kind, rounds, "state 1");
    bool ended = false;
    while (!ended && left > 0) {
      ended = broken.go_until_killed(std::chrono::microseconds(life(random)));
      if (ended) break;
      --left;
      from_state += broken.place.has("statelast");
      broken.take_up();
    }
    if (!ended) {
      ASSERT_EQ(broken.go(), 0) << broken.listing;
    } // killed for the last time
    EXPECT_EQ(differing_files(broken.results(), expected), std::vector<std::string>{}) << kind.name;
  }
  EXPECT_GT(from_state, 0) << "no kill came after a save";
}

} // namespace zeph_test
