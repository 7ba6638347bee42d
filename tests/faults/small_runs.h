// A small run of each kind of trait and analysis, and what such a run leaves.
#pragma once

#include "faults/child_program.h"

#include <functional>
#include <map>
#include <set>
#include <sstream>

namespace zeph_test {

struct small_run {
  std::string name;
  std::string work;                              // directory of tests/data/workdirs, or "herd"
  std::string rounds;                            // third line of the directive file
  std::string type = {};                         // of the analysis, where it isn't that of the directory
  std::string more = {};                         // further lines of the directive file
  std::map<std::string, std::string> files = {}; // put beside the others
  bool goes_on = false;                          // from the state that such a run has left
};

inline void PrintTo(const small_run& run, std::ostream* out) { *out << run.name; }

inline const std::vector<small_run>& small_runs() {
  static const std::vector<small_run> all = {
      {"solver", "two2_t0", "0 6 1"},
      {"residual_sums", "three3_t3", "1 3 1", "1"},
      {"gaussian", "three3_t3", "1 3 1"},
      {"kept_samples", "herd", "1 3 1"},
      {"predictions", "three3_t3", "1 3 1", "", "", {{"ytopredict", "3 1\n5 2\n"}}},
      {"restart", "mix2_t3", "1 3 1", "", "", {}, true},
      {"censored", "cens2_t3", "1 3 1"},
      {"ordered", "cat3_t3", "1 3 1"},
      {"mixture", "mix2_t3", "1 3 1"},
      {"cure", "cure_t3", "1 3 1"},
      {"covariates", "feto_t2", "1 3 1"},
      {"deviations", "tdptd_t3", "1 3 1"},
      {"models", "jumpI3_t6", "1 3 1", "5"},
      {"jump", "jumpI3_t6", "1 3 1"},
  };
  return all;
}

// Files that are written at once and get their names when they are whole.
inline const std::set<std::string>& whole_names() {
  static const std::set<std::string> names = {"gibsol",    "solpostmean", "lastsol",    "gparlast",
                                              "gparout",   "PAROUT",      "ypredicted", "taupostmean",
                                              "mixz_prob", "mixz_last",   "gib.td_ptd", "TD_PTD"};
  return names;
}
// Files that grow with the chain.
inline const std::set<std::string>& growing_names() {
  static const std::set<std::string> names = {"gib.samples", "sol.samples", "res.samples", "py",   "lpm",
                                              "threshold",   "mix_pi",      "zeinfo",      "scr31"};
  return names;
}

using file_set = std::map<std::string, std::string>; // bytes by name

inline file_set files_in(const std::string& directory) {
  file_set out;
  for (const auto& entry : std::filesystem::directory_iterator(directory))
    if (entry.is_regular_file()) out[entry.path().filename().string()] = bytes_of(entry.path().string());
  return out;
}

inline void put_files(const std::string& directory, const file_set& files) {
  for (const auto& entry : std::filesystem::directory_iterator(directory))
    std::filesystem::remove_all(entry.path());
  for (const auto& [name, bytes] : files)
    std::ofstream(directory + name, std::ios::binary)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// Two traits of five animals, missing values, weights and residual groups; solutions
// and residuals of each sample are kept.
inline file_set herd_files() {
  const scratch_directory place;
  place.write("pedigree.csv", "animal,sire,dam\n1,0,0\n2,0,0\n3,1,2\n4,1,0\n5,3,2\n");
  place.write("data.csv",
              "animal,sex,pen,w,y1,y2\n1,M,a,1.0,12.1,31.0\n2,F,b,0.5,9.3,28.5\n3,M,a,2.0,NA,33.9\n"
              "4,F,b,1.2,10.2,NA\n5,M,a,0.7,11.8,29.7\n3,F,b,1.0,12.6,32.2\n5,F,a,1.1,13.0,30.3\n"
              "2,M,b,0.9,12.2,29.0\n4,M,a,1.0,10.9,31.7\n1,F,b,1.3,11.4,30.8\n");
  place.write("model.toml", R"toml([data]
file = "data.csv"
[keep]
solutions = true
residuals = true
[run]
analysis = "gibbs"
sampler = "classic"
seeds = [1234, 5678]
[trait.y1]
formula = "1 + sex + (1 | animal)"
weight = "w"
[trait.y2]
formula = "1 + (1 | animal)"
[factor.animal]
pedigree = "pedigree.csv"
start = [[2.0, 1.0], [1.0, 3.0]]
prior_df = 8
[residual]
start = [[3.0, 1.5], [1.5, 4.0]]
groups = "pen"
prior_df = 7
)toml");
  const child_end end = run_child({program("zeph-prepare"), "model.toml", "--into", "work"}, place.path());
  EXPECT_EQ(end.code, 0) << end.all();
  return files_in(place / "work/");
}

// The input of a run: files of the work directory with the run's own directive lines.
inline file_set input_of(const small_run& run) {
  file_set files = run.work == "herd" ? herd_files()
                                      : files_in(source_folder() + "/tests/data/workdirs/" + run.work + "/");
  std::istringstream lines(files.at("zeph.dir"));
  std::string text, line;
  for (int n = 1; std::getline(lines, line); ++n) {
    if (n == 1 && !run.type.empty()) line.replace(0, line.find(' '), run.type);
    text += (n == 3 ? run.rounds : line) + "\n";
  }
  files["zeph.dir"] = text + run.more;
  for (const auto& [name, bytes] : run.files) files[name] = bytes;
  if (!run.goes_on) return files;
  const scratch_directory first;
  put_files(first.path(), files);
  run_zeph(first.path());
  files["oldsol"] = first.read("lastsol");
  files["r_parm"] = first.read("gparlast");
  return files;
}

inline const std::string former_row = "of a run before\n";

// A run with its input, what it leaves when nothing fails, and what a run before it left.
struct prepared_run {
  explicit prepared_run(const small_run& run) : input(input_of(run)) {
    put_files(place.path(), input);
    const child_end end = run_zeph(place.path());
    EXPECT_EQ(end.code, 0) << run.name << '\n' << end.listing;
    whole = files_in(place.path());
    listing = end.listing;
    // a former run of other rounds: the same files with other values
    before = input;
    for (const auto& [name, bytes] : whole)
      if (whole_names().contains(name) || growing_names().contains(name) || name == "status")
        before[name] = name == "status" ? "Program ZEPH has concluded\n" : former_row + bytes;
    before.erase("mixz_prob"); // these must not exist
    before.erase("mixz_last");
    versions = {whole, {{"zeinfo", "starting\n"}}};
    if (run.type == "5" && calls_can_fail()) collect_versions();
  }
  // A chain over models leaves its files once for each model: as they are when the n-th
  // name is not given.
  void collect_versions() {
    for (long n = 1; n <= calls("rename"); ++n) {
      child_options with;
      with.fault = {"rename", n};
      go(with);
      versions.push_back(files_in(place.path()));
    }
  }
  // True when a file of a chain without fault holds, or at some time held, what `fits`.
  template <class Fits> [[nodiscard]] bool some_version(const std::string& name, Fits fits) const {
    return std::any_of(versions.begin(), versions.end(), [&](const file_set& files) {
      const auto found = files.find(name);
      return found != files.end() && fits(found->second);
    });
  }
  // Runs over the files that a run before has left.
  child_end go(const child_options& with) {
    put_files(place.path(), before);
    return run_zeph(place.path(), with);
  }
  // The number of calls of this kind in a run without fault.
  long calls(const std::string& kind) {
    const scratch_directory counts;
    child_options with;
    with.fault = {kind, 0};
    with.count_file = counts / "count";
    EXPECT_EQ(go(with).code, 0);
    return std::atol(counts.read("count").c_str());
  }
  scratch_directory place;
  file_set input, before, whole;
  std::vector<file_set> versions; // the whole one first
  std::string listing;
};

// After an end by fault: files written at once are the former or the new ones, files
// of the chain the former ones or a beginning of the new ones, status is a line.
inline void expect_nothing_half_written(const prepared_run& run, const std::string& what) {
  for (const auto& entry : files_in(run.place.path())) {
    const std::string &name = entry.first, &bytes = entry.second;
    const auto before = run.before.find(name);
    if (before != run.before.end() && before->second == bytes) continue;
    if (name == "ZEPH.log" || run.some_version(name, [&](const auto& all) { return all == bytes; })) continue;
    if (growing_names().contains(name)) {
      EXPECT_TRUE(bytes.empty() || run.some_version(name,
                                                    [&](const auto& all) {
                                                      return all.starts_with(bytes) &&
                                                             !bytes.starts_with(former_row);
                                                    }))
          << what << ": " << name;
    } else if (name == "status") {
      EXPECT_EQ(std::count(bytes.begin(), bytes.end(), '\n'), 1) << what << ": " << bytes;
      EXPECT_TRUE(bytes.ends_with("\n") &&
                  (bytes.starts_with("Current round is") || bytes == "Program QVAgib initializing\n"))
          << what << ": " << bytes;
    } else {
      ADD_FAILURE() << what << ": half a file or a strange one: " << name;
    }
  }
  for (const auto& [name, bytes] : run.before)
    EXPECT_TRUE(std::filesystem::exists(run.place / name)) << what << ": " << name << " is lost";
}

// The file that a message of a failed write names; empty without such a message.
inline std::string file_named_in(const std::string& listing) {
  for (const auto& [start, end] :
       {std::pair<std::string, std::string>{"\nERROR - Illegal input in ", ": write = "},
        {"\nERROR - ", ": no space left on the device\n"}}) {
    const std::size_t at = listing.find(start), to = listing.find(end, at);
    if (at != std::string::npos && to != std::string::npos)
      return listing.substr(at + start.size(), to - at - start.size());
  }
  return listing.find("ERROR in subroutine WR_MIXZ") != std::string::npos ? "mix" : "";
}

} // namespace zeph_test
