// zeph-chains, when one of its calls of the system fails: code 1 and the file, or the program that did not
// start, on the screen; the work directory stays as it is, and the next call says what it finds. The programs
// that zeph-chains starts have the same fault, each at its own call of that number.
#include "faults/small_runs.h"
#include "support/skip_reasons.h"

namespace {

using namespace zeph_test;

struct prepared_study {
  prepared_study() {
    place.write("pedigree.csv", "animal,sire,dam\n1,0,0\n2,0,0\n3,1,2\n4,1,0\n5,3,2\n");
    place.write("data.csv", "animal,sex,y1\n1,M,12.1\n2,F,9.3\n3,M,10.5\n4,F,10.2\n5,M,11.8\n3,F,12.6\n");
    place.write("model.toml",
                "[data]\nfile = \"data.csv\"\n[run]\nanalysis = \"gibbs\"\nburnin = 4\nrounds = 8\n"
                "sampler = \"classic\"\ninterval = 2\nseeds = [5, 6]\n"
                "[trait.y1]\nformula = \"1 + sex + (1 | animal)\"\n"
                "[factor.animal]\npedigree = \"pedigree.csv\"\nstart = 2.0\nprior_df = 6\n"
                "[residual]\nstart = 3.0\nprior_df = 6\n");
    EXPECT_EQ(run_child({program("zeph-prepare"), "model.toml", "--into", "work"}, place.path()).code, 0);
    before = files_in(place / "work/");
  }
  // A finished study that has saved its state.
  [[nodiscard]] child_end saved() const {
    place.write("work/sampler", "state 10\n");
    return run();
  }
  [[nodiscard]] child_end chains(const std::vector<std::string>& words,
                                 const child_options& with = {}) const {
    std::vector<std::string> all = {program("zeph-chains")};
    all.insert(all.end(), words.begin(), words.end());
    return run_child(all, place.path(), with);
  }
  [[nodiscard]] child_end run(const child_options& with = {}) const {
    std::filesystem::remove_all(place / "runs");
    return chains({"run", "work", "--chains", "1", "--into", "runs"}, with);
  }
  [[nodiscard]] long calls(const std::string& kind) const {
    child_options with;
    with.fault = {kind, 0};
    with.count_file = place / "count";
    EXPECT_EQ(run(with).code, 0);
    return std::atol(place.read("count").c_str());
  }
  scratch_directory place;
  file_set before;
};

// One of the texts by which zeph-chains reports a fault of the system.
bool is_told(const std::string& said) {
  for (const char* text : {"can't read ", "can't write ", "can't make ", "can't rename ", "can't start ",
                           "ended with exit code "})
    if (said.find(text) != std::string::npos) return true;
  return false;
}

class failing_study : public testing::TestWithParam<const char*> {};

TEST_P(failing_study, reports_its_fault_and_the_next_call_what_it_finds) {
  if (!calls_can_fail()) GTEST_SKIP() << sanitizer_build;
  const std::string kind = GetParam();
  const prepared_study p;
  const long calls = p.calls(kind);
  EXPECT_GE(calls, 1);
  int faults = 0;
  for (long n = 1; n <= calls + 2; ++n) { // the process that becomes ZEPH continues counting
    child_options with;
    with.fault = {kind, n};
    const child_end end = p.run(with);
    const std::string what =
        kind + " " + std::to_string(n) + " of " + std::to_string(calls) + ":\n" + end.all();
    EXPECT_EQ(files_in(p.place / "work/"), p.before) << what;
    if (end.code == 0)
      continue; // not needed: the end of a file that was read whole, a file beside the others
    ++faults;
    EXPECT_EQ(end.code, 1) << what;
    EXPECT_TRUE(is_told(end.all())) << what;
    EXPECT_EQ(end.all().find("basic_"), std::string::npos) << what;
    EXPECT_EQ(end.all().find("std::"), std::string::npos) << what;
    const child_end status = p.chains({"status", "runs"});
    const bool told = status.all().find("chain 1") != std::string::npos ||
                      status.all().find("runs holds no chains") != std::string::npos;
    EXPECT_TRUE(told) << what << status.all();
    EXPECT_EQ(status.all().find("running"), std::string::npos) << what << status.all();
  }
  EXPECT_GE(faults, 1);
}

// Whatever fails on the way, the segment can be continued afterwards, and ends with the same bytes.
TEST_P(failing_study, loses_nothing_when_a_segment_can_not_be_resumed) {
  if (!calls_can_fail()) GTEST_SKIP() << sanitizer_build;
  const std::string kind = GetParam();
  const prepared_study p;
  EXPECT_EQ(p.saved().code, 0);
  const std::filesystem::path kept = p.place / "kept", runs = p.place / "runs";
  std::filesystem::rename(runs, kept);
  const auto go_on = [&](const child_options& with) {
    std::filesystem::remove_all(runs);
    std::filesystem::copy(
        kept, runs, std::filesystem::copy_options::recursive | std::filesystem::copy_options::copy_symlinks);
    return p.chains({"continue", "runs", "--rounds", "4"}, with);
  };
  child_options with;
  with.fault = {kind, 0};
  with.count_file = p.place / "count";
  EXPECT_EQ(go_on(with).code, 0);
  const file_set whole = files_in(p.place / "runs/chain1/seg1/");
  const long calls = std::atol(p.place.read("count").c_str());
  with.count_file.clear();
  int faults = 0;
  for (long n = 1; n <= calls + 2; n += 1 + calls / 40) {
    with.fault = {kind, n};
    const child_end end = go_on(with);
    const std::string what =
        kind + " " + std::to_string(n) + " of " + std::to_string(calls) + ":\n" + end.all();
    if (end.code != 0) {
      ++faults;
      EXPECT_EQ(end.code, 1) << what;
      EXPECT_TRUE(is_told(end.all())) << what;
      const child_end on = p.chains({"continue", "runs"});
      const bool not_begun = on.all().find("all chains are complete") != std::string::npos;
      EXPECT_TRUE(on.code == 0 || not_begun) << what << on.all();
      if (not_begun) {
        EXPECT_EQ(p.chains({"continue", "runs", "--rounds", "4"}).code, 0) << what;
      }
    }
    const file_set found = files_in(p.place / "runs/chain1/seg1/");
    for (const char* name : {"gib.samples", "py", "gibsol", "statelast", "zeph.dir", "exit"})
      EXPECT_TRUE(found.contains(name) && found.at(name) == whole.at(name)) << name << '\n' << what;
  }
  EXPECT_GE(faults, 1);
}

INSTANTIATE_TEST_SUITE_P(by, failing_study, testing::Values("read", "write", "rename", "fork"),
                         [](const auto& info) { return std::string(info.param); });

// A read that fails for a moment, as on a disk of a network, does not end the watch.
TEST(a_read_of_zeph_watch_that_fails, is_reported_at_the_begin_and_made_again_later) {
  if (!calls_can_fail()) GTEST_SKIP() << sanitizer_build;
  const prepared_study p;
  EXPECT_EQ(p.run().code, 0);
  for (const long n : {1, 3, 5, 7}) {
    child_options with;
    with.fault = {"read", n};
    const child_end end = run_child({program("zeph-watch"), "runs"}, p.place.path(), with);
    if (n == 1) {
      EXPECT_EQ(end.code, 1);
      EXPECT_EQ(end.errors, "zeph-watch: can't read runs/chains.toml\n");
    } else {
      EXPECT_EQ(end.code, 0) << end.all();
      EXPECT_TRUE(end.listing.ends_with("chain 1  complete  round 12 of 12\n")) << end.all();
    }
  }
}

// In the words of the library: there is no storage for others.
TEST(storage_that_is_not_there, ends_the_companions_with_code_1) {
  if (!calls_can_fail()) GTEST_SKIP() << sanitizer_build;
  const prepared_study p;
  EXPECT_EQ(p.run().code, 0);
  for (const char* name : {"zeph-chains", "zeph-watch"}) {
    std::vector<std::string> words = {program(name), "runs"};
    if (words[0].ends_with("chains")) words = {words[0], "status", "runs"};
    child_options with;
    with.fault = {"storage", 3};
    const child_end end = run_child(words, p.place.path(), with);
    EXPECT_EQ(end.code, 1) << end.all();
    EXPECT_EQ(end.errors, name + std::string(": std::bad_alloc\n"));
  }
}

TEST(a_chain_that_can_not_be_started, is_reported_and_the_others_run) {
  if (!calls_can_fail()) GTEST_SKIP() << sanitizer_build;
  const prepared_study p;
  child_options with;
  with.fault = {"fork", 2};
  const child_end end = p.chains({"run", "work", "--chains", "3", "--jobs", "1", "--into", "runs"}, with);
  EXPECT_EQ(end.code, 1);
  EXPECT_NE(end.listing.find("chain 2  failed: can't start " + program("ZEPH") + ": "), std::string::npos)
      << end.all();
  EXPECT_NE(end.listing.find("chain 3  complete, round 12, 4 samples kept"), std::string::npos) << end.all();
  const child_end on = p.chains({"continue", "runs"});
  EXPECT_EQ(on.code, 0) << on.all();
  EXPECT_NE(on.listing.find("chain 2  complete, round 12, 4 samples kept"), std::string::npos) << on.all();
}

} // namespace
