// Chains of the real program: run, interrupted, killed, continued.
#include "chains/segment_processes.h"
#include "chains/study_case.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using namespace zeph_test;

// The seeds of chain k of a study whose first chain has 11 and 12.
std::string seeds_line(int k) {
  return std::to_string((11 - 1 + 7919 * (k - 1)) % 31328 + 1) + " " +
         std::to_string((12 - 1 + 6007 * (k - 1)) % 30081 + 1) + "\n";
}

std::string chain_of(const std::string& runs, int k) { return runs + "/chain" + std::to_string(k); }

TEST(run, makes_of_every_chain_what_ZEPH_alone_makes_with_its_seeds) {
  const study_case c;
  c.prepare();
  const said_by_program said = c.chains("run work --chains 3 --into runs");
  EXPECT_EQ(said.exit_code, 0);
  EXPECT_TRUE(says(said, "chain 2  seg 1 starts at round 1, seeds 7930 6019\n"));
  EXPECT_TRUE(says(said, "chain 3  complete, round 220, 100 samples kept\n"));
  EXPECT_TRUE(says(said, "3 chains complete. Next: zeph-report runs\n"));
  for (int k = 1; k <= 3; ++k) {
    const std::string directives = c.file("work/zeph.dir"), segment = chain_of("runs", k) + "/seg1/";
    EXPECT_EQ(c.file(segment + "zeph.dir"), "3 0\n" + seeds_line(k) + "20 200 2\n1 8\n2 7\n");
    c.prepare({}, "alone");
    c.place.write("alone/zeph.dir", c.file(segment + "zeph.dir"));
    EXPECT_EQ(shell("cd " + (c.place / "alone") + " && rm -f mixz_* && " + programs() + "ZEPH").exit_code, 0);
    for (const char* name : {"gib.samples", "py", "lastsol", "gparlast", "gparout"}) {
      EXPECT_NE(c.file(segment + name), "") << name;
      EXPECT_EQ(c.file(segment + name), c.file(std::string("alone/") + name)) << name << " of chain " << k;
    }
  }
}

TEST(run, links_the_inputs_and_leaves_the_work_directory_as_it_was) {
  const study_case c;
  c.prepare();
  const std::string before = shell("cd " + (c.place / "work") + " && sha256sum *").text;
  ASSERT_EQ(c.chains("run work --chains 2 --into deep/er/runs").exit_code, 0);
  EXPECT_EQ(shell("cd " + (c.place / "work") + " && sha256sum *").text, before);
  for (const char* name : {"MODINF", "RCDATA_I", "RCDATA_R", "CODE_TABLE", "AINV1", "names.json"}) {
    const std::filesystem::path link = c.place / (std::string("deep/er/runs/chain2/seg1/") + name);
    EXPECT_TRUE(std::filesystem::is_symlink(link)) << name;
    EXPECT_TRUE(std::filesystem::equivalent(link, c.place / (std::string("work/") + name))) << name;
  }
  // the hashes are those of sha256sum
  const std::string toml = c.file("deep/er/runs/chains.toml");
  EXPECT_NE(toml.find("sha256 = \"" + shell("sha256sum < " + (c.place / "work/MODINF")).text.substr(0, 64)),
            std::string::npos);
  EXPECT_NE(toml.find("program_sha256 = \"" + shell("sha256sum < " + programs() + "ZEPH").text.substr(0, 64)),
            std::string::npos);
}

TEST(run, names_the_study_after_the_work_directory_beside_it) {
  const study_case c;
  c.prepare();
  EXPECT_EQ(c.chains("run work/ --chains 1").exit_code, 0);
  EXPECT_TRUE(c.has("work.runs/chain1/seg1/gib.samples"));
}

TEST(run, never_leaves_seeds_to_the_clock) {
  const study_case c;
  c.prepare({20, 40, 2, "[0, 0]"});
  EXPECT_TRUE(says(c.chains("run work --chains 2 --into a"),
                   "the work directory takes its seeds from the clock (0 0); "));
  EXPECT_EQ(c.chains("run work --chains 2 --into b").exit_code, 0);
  EXPECT_EQ(c.file("a/chain2/seg1/gib.samples"), c.file("b/chain2/seg1/gib.samples"));
  EXPECT_NE(c.file("a/chain1/seg1/gib.samples"), c.file("a/chain2/seg1/gib.samples"));
  EXPECT_EQ(c.file("a/chain1/seg1/zeph.dir").find("0 0\n"), std::string::npos);
  EXPECT_NE(c.file("a/chains.toml").find("seeds_given = [0, 0]"), std::string::npos);
}

TEST(run, holds_to_the_number_of_jobs) {
  const study_case c;
  c.prepare({20, endless, 100});
  background_program chains({programs() + "zeph-chains", "run", c.place / "work", "--chains", "4", "--jobs",
                             "2", "--into", c.place / "runs"},
                            c.place / "said");
  ASSERT_TRUE(soon([&] { return !c.file("runs/chain2/seg1/py").empty(); }));
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_FALSE(c.has("runs/chain3"));
  EXPECT_EQ(chains.end(SIGTERM), 3);
  EXPECT_FALSE(c.has("runs/chain3"));
  EXPECT_NE(c.file("said").find("4 chains stopped before the last round"), std::string::npos)
      << c.file("said");
}

TEST(chains_in_two_segments, equal_unbroken_ones_when_the_burnin_is_a_multiple_of_the_interval) {
  const study_case c;
  c.prepare({20, 400, 4});
  ASSERT_EQ(c.chains("run work --chains 4 --into whole").exit_code, 0);
  c.prepare({20, 100, 4});
  ASSERT_EQ(c.chains("run work --chains 4 --into parts").exit_code, 0);
  EXPECT_TRUE(says(c.chains("continue parts --rounds 200"), "4 chains complete"));
  EXPECT_TRUE(says(c.chains("continue parts --rounds 100"), "4 chains complete"));
  for (int k = 1; k <= 4; ++k) {
    const std::vector<sample_row> rows = joined_rows(c, chain_of("parts", k));
    EXPECT_EQ(rows.size(), 100U * 9);
    EXPECT_EQ(rows, joined_rows(c, chain_of("whole", k))) << "chain " << k;
    EXPECT_EQ(c.file(chain_of("parts", k) + "/seg3/lastsol"), c.file(chain_of("whole", k) + "/seg1/lastsol"));
  }
}

// Interrupts a run of four chains in its sampling rounds, then lets it continue to its end. Returns how many
// were stopped: a chain may have been at its end already.
int run_interrupted(const study_case& c, int signal) {
  background_program chains({programs() + "zeph-chains", "run", c.place / "work", "--chains", "4", "--jobs",
                             "4", "--into", c.place / "parts"},
                            c.place / "said");
  for (int k = 1; k <= 4; ++k)
    EXPECT_TRUE(soon([&] { return !c.file(chain_of("parts", k) + "/seg1/py").empty(); }));
  EXPECT_EQ(chains.end(signal), 3) << c.file("said");
  const std::string said = c.file("said");
  EXPECT_NE(said.find("Stopping: each chain ends at its next sample round."), std::string::npos) << said;
  EXPECT_NE(said.find("samples kept"), std::string::npos) << said;
  const said_by_program on = c.chains("continue parts");
  EXPECT_EQ(on.exit_code, 0) << on.text;
  EXPECT_TRUE(says(on, "STOP of the last run is removed\n"));
  for (int k = 1; k <= 4; ++k) EXPECT_FALSE(c.has(chain_of("parts", k) + "/seg1/STOP"));
  int stopped = 0;
  for (int k = 1; k <= 4; ++k) stopped += c.has(chain_of("parts", k) + "/seg2") ? 1 : 0;
  return stopped;
}

TEST(chains_that_were_stopped, equal_unbroken_ones_when_the_interval_is_1) {
  const study_case c;
  c.prepare({50, 8000, 1});
  EXPECT_GE(run_interrupted(c, SIGINT), 1);
  ASSERT_EQ(c.chains("run work --chains 4 --into whole").exit_code, 0);
  for (int k = 1; k <= 4; ++k) {
    const std::vector<sample_row> rows = joined_rows(c, chain_of("parts", k));
    EXPECT_EQ(rows.size(), 8000U * 9);
    EXPECT_TRUE(rows == joined_rows(c, chain_of("whole", k))) << "chain " << k;
  }
}

// With a longer interval the round after the stop has the number of the stop and is sampled: from there on
// the sampled rounds of the chain are one later than those of the unbroken chain.
TEST(chains_that_were_stopped, sample_one_round_later_when_the_interval_is_longer) {
  const study_case c;
  c.prepare({50, 8000, 10});
  EXPECT_GE(run_interrupted(c, SIGTERM), 1);
  c.prepare({50, 8000, 1}, "every");
  ASSERT_EQ(c.chains("run every --chains 4 --into whole").exit_code, 0);
  for (int k = 1; k <= 4; ++k) {
    if (!c.has(chain_of("parts", k) + "/seg2")) continue;
    const std::vector<sample_row> first = sample_rows(c.file(chain_of("parts", k) + "/seg1/gib.samples"));
    const std::vector<sample_row> rows = joined_rows(c, chain_of("parts", k)),
                                  all = joined_rows(c, chain_of("whole", k));
    EXPECT_EQ(rows.size(), 800U * 9);
    for (std::size_t i = 0; i < rows.size(); ++i) {
      const bool later = i >= first.size();
      ASSERT_EQ(rows[i].round % 10, later ? 1 : 0);
      // the same numbers as the unbroken chain has in that round
      ASSERT_EQ(rows[i], all[static_cast<std::size_t>(rows[i].round - 51) * 9 + i % 9]) << "chain " << k;
    }
    EXPECT_EQ(rows[first.size()].round, first.back().round + 1);
  }
}

TEST(a_chain_that_was_stopped_in_its_burnin, ends_it_in_a_segment_that_does_not_count) {
  const study_case c;
  c.prepare({30000, 300, 1});
  background_program chains(
      {programs() + "zeph-chains", "run", c.place / "work", "--chains", "1", "--into", c.place / "runs"},
      c.place / "said");
  ASSERT_TRUE(soon([&] { return c.file("runs/chain1/seg1/status").starts_with("Current"); }));
  EXPECT_EQ(chains.end(SIGINT), 3);
  EXPECT_NE(c.file("said").find(" of 30300, 0 samples kept"), std::string::npos) << c.file("said");
  EXPECT_TRUE(says(c.chains("status runs"), "  0 samples"));
  EXPECT_TRUE(says(c.chains("continue runs"), "chain 1  complete, round 30300, 300 samples kept"));
  EXPECT_NE(c.file("runs/chain1/seg2/segment.toml").find("counts = false"), std::string::npos);
  EXPECT_NE(c.file("runs/chain1/seg3/segment.toml").find("counts = true"), std::string::npos);
  ASSERT_EQ(c.chains("run work --chains 1 --into whole").exit_code, 0);
  EXPECT_TRUE(joined_rows(c, "runs/chain1") == joined_rows(c, "whole/chain1"));
}

TEST(a_second_interrupt, leaves_the_chains_to_end_by_themselves) {
  const study_case c;
  c.prepare({20, endless, 2000000}); // a sample in some minutes
  background_program chains({programs() + "zeph-chains", "run", c.place / "work", "--chains", "2", "--jobs",
                             "2", "--into", c.place / "runs"},
                            c.place / "said");
  for (const char* chain : {"1", "2"})
    ASSERT_TRUE(soon(
        [&] { return c.file(std::string("runs/chain") + chain + "/seg1/status").starts_with("Current"); }));
  ASSERT_TRUE(
      soon([&] { return !c.file("runs/chain1/seg1/status").starts_with("Current round is         1"); }));
  std::this_thread::sleep_for(std::chrono::milliseconds(100)); // beyond burn-in
  chains.send(SIGINT);
  ASSERT_TRUE(soon([&] { return c.file("said").find("Stopping:") != std::string::npos; }));
  EXPECT_EQ(chains.end(SIGINT), 3);
  EXPECT_NE(
      c.file("said").find("The chains end by themselves at their next sample round: zeph-chains status "),
      std::string::npos)
      << c.file("said");
  EXPECT_TRUE(says(c.chains("status runs"), "chain 2  seg 1  running (process "));
  const said_by_program on = c.chains("continue runs");
  EXPECT_EQ(on.exit_code, 1);
  EXPECT_TRUE(says(on, "zeph-chains: chain 1, segment 1 is running (process "));
  EXPECT_TRUE(c.has("runs/chain1/seg1/STOP")); // nothing was started, nothing is taken back
}

TEST(stop, ends_running_chains_and_keeps_the_others_from_starting) {
  const study_case c;
  c.prepare({20, endless, 50});
  background_program chains({programs() + "zeph-chains", "run", c.place / "work", "--chains", "3", "--jobs",
                             "1", "--into", c.place / "runs"},
                            c.place / "said");
  ASSERT_TRUE(soon([&] { return !c.file("runs/chain1/seg1/py").empty(); }));
  EXPECT_TRUE(says(c.chains("stop runs"), "asked 1 chain to stop; each ends at its next sample round\n"));
  EXPECT_EQ(chains.wait(), 3) << c.file("said");
  EXPECT_FALSE(c.has("runs/chain2"));
  EXPECT_TRUE(
      says(c.chains("status runs"), "A stop was asked for; `zeph-chains continue runs` takes it back\n"));
}

TEST(stop, reports_a_chain_whose_directory_takes_no_file) {
  const study_case c;
  c.prepare({0, endless, 2000000}); // a sample in some minutes; a burn-in would end at once
  background_program chains(
      {programs() + "zeph-chains", "run", c.place / "work", "--chains", "1", "--into", c.place / "runs"},
      c.place / "said");
  ASSERT_TRUE(soon([&] { return c.file("runs/chain1/seg1/status").starts_with("Current"); }));
  std::filesystem::create_directory(c.place / "runs/chain1/seg1/STOP");
  const said_by_program said = c.chains("stop runs");
  EXPECT_EQ(said.exit_code, 1);
  EXPECT_TRUE(says(said, "zeph-chains: can't write runs/chain1/seg1/STOP\n"));
}

// ---- kills ----

TEST(zeph_chains_killed, loses_nothing_and_the_next_call_says_what_it_finds) {
  const study_case c;
  c.prepare({20, 40000, 20});
  background_program chains({programs() + "zeph-chains", "run", c.place / "work", "--chains", "3", "--jobs",
                             "2", "--into", c.place / "runs"},
                            c.place / "said");
  for (const char* chain : {"1", "2"})
    ASSERT_TRUE(soon([&] { return !c.file(std::string("runs/chain") + chain + "/seg1/py").empty(); }));
  EXPECT_EQ(chains.end(SIGKILL), 128 + SIGKILL);
  const said_by_program found = c.chains("status runs");
  EXPECT_TRUE(says(found, "chain 1  seg 1  running (process "));
  EXPECT_TRUE(says(found, "chain 3  waits"));
  // the chains run on to their ends, and their exit codes are kept
  for (const char* chain : {"1", "2"})
    ASSERT_TRUE(soon([&] { return c.has(std::string("runs/chain") + chain + "/seg1/exit"); }));
  EXPECT_TRUE(says(c.chains("status runs"), "chain 2  seg 1  complete  round 40020 of 40020  2000 samples"));
  const said_by_program on = c.chains("continue runs");
  EXPECT_EQ(on.exit_code, 0) << on.text;
  EXPECT_TRUE(says(on, "chain 3  complete, round 40020, 2000 samples kept\n3 chains complete"));
  EXPECT_FALSE(c.has("runs/chain1/seg2"));
}

TEST(ZEPH_killed, keeps_its_samples_and_is_reported_with_a_way_on) {
  const study_case c;
  c.prepare({20, 20000, 10});
  ASSERT_EQ(c.chains("run work --chains 2 --jobs 2 --into runs").exit_code, 0);
  background_program chains(
      {programs() + "zeph-chains", "continue", c.place / "runs", "--rounds", "80000000"}, c.place / "said");
  ASSERT_TRUE(
      soon([&] { return !c.file("runs/chain1/seg2/py").empty() && !c.file("runs/chain2/seg2/py").empty(); }));
  const pid_t around = shell_of(c.place / "runs/chain1/seg2");
  ASSERT_GT(around, 1);
  for (const pid_t child : children_of(around)) ::kill(child, SIGKILL);
  ASSERT_TRUE(soon([&] {
    return c.file("said").find("chain 1  seg 2 was killed in round ") != std::string::npos;
  })) << c.file("said");
  EXPECT_EQ(c.file("runs/chain1/seg2/exit"), "137\n");
  EXPECT_EQ(chains.end(SIGINT), 1); // a chain failed
  EXPECT_TRUE(says(c.chains("status runs"), "chain 1  seg 2  killed  round "));
  const said_by_program on = c.chains("continue runs --rounds 100");
  EXPECT_EQ(on.exit_code, 1);
  EXPECT_TRUE(says(on, "zeph-chains: chain 1, segment 2 was killed in round "));
  EXPECT_TRUE(says(
      on,
      "Nothing was started. A segment that did not end well keeps its samples, but no chain continues from "
      "it: move its directory away"));
  std::filesystem::rename(c.place / "runs/chain1/seg2", c.place / "away");
  EXPECT_TRUE(says(c.chains("continue runs --rounds 100"), "2 chains complete"));
  EXPECT_EQ(joined_rows(c, "runs/chain1").size(), 2010U * 9);
}

// The whole group of the shell around ZEPH at once, as at a loss of power.
TEST(a_segment_without_exit_code, was_killed_when_its_process_is_gone) {
  const study_case c;
  c.prepare({20, endless, 50});
  background_program chains(
      {programs() + "zeph-chains", "run", c.place / "work", "--chains", "1", "--into", c.place / "runs"},
      c.place / "said");
  ASSERT_TRUE(soon([&] { return !c.file("runs/chain1/seg1/py").empty(); }));
  EXPECT_EQ(chains.end(SIGKILL), 128 + SIGKILL);
  const pid_t around = shell_of(c.place / "runs/chain1/seg1");
  ASSERT_GT(around, 1);
  ::kill(-around, SIGKILL);
  ASSERT_TRUE(soon([&] { return c.chains("status runs").has("chain 1  seg 1  killed  round "); }));
  EXPECT_FALSE(c.has("runs/chain1/seg1/exit"));
}

TEST(a_segment_that_never_began, is_made_again) {
  const study_case c;
  c.prepare();
  ASSERT_EQ(c.chains("run work --chains 1 --into runs").exit_code, 0);
  std::filesystem::create_directories(c.place / "runs/chain1/seg2");
  std::string toml = c.file("runs/chain1/seg1/segment.toml");
  toml.replace(toml.find("segment = 1"), 11, "segment = 2");
  c.place.write("runs/chain1/seg2/segment.toml", toml);
  c.place.write("runs/chain1/seg2/process",
                "host " + shell("uname -n").text + "pid 999999999\nbegun 1\njob -\n");
  EXPECT_TRUE(says(c.chains("continue runs --rounds 40"), "chain 1  complete, round 260, 120 samples kept"));
  EXPECT_EQ(joined_rows(c, "runs/chain1").size(), 120U * 9);
}

} // namespace
