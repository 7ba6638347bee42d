// Every message by which zeph-chains refuses or reports a failure.
#include "chains/study_case.h"

#include <gtest/gtest.h>

namespace {

using namespace zeph_test;

// Refused with these words, and nothing was made.
testing::AssertionResult refused(const study_case& c, const std::string& arguments,
                                 const std::string& words) {
  const said_by_program said = c.chains(arguments);
  if (said.exit_code != 1)
    return testing::AssertionFailure() << "exit code " << said.exit_code << "\n" << said.text;
  return says(said, "zeph-chains: " + words);
}

TEST(the_command_line, ends_with_2_when_it_is_wrong_and_0_for_help) {
  const study_case c;
  for (const char* arguments : {"", "run", "continue", "status", "stop", "fly runs", "run work --chains 0",
                                "run work --jobs 0", "run work --segments 2", "continue runs --rounds 0",
                                "continue runs --here --slurm ''", "advance runs"})
    EXPECT_EQ(c.chains(arguments).exit_code, 2) << arguments;
  EXPECT_TRUE(says(c.chains("run work --jobs 0"), "; see --help\n"));
  EXPECT_EQ(c.chains("--help").exit_code, 0);
  EXPECT_TRUE(says(c.chains("--version"), "zeph-chains 0."));
}

TEST(run, refuses_a_directory_that_is_none_of_ZEPH) {
  const study_case c;
  EXPECT_TRUE(
      refused(c, "run absent", "absent is not a work directory: MODINF is missing\nNothing was started.\n"));
  c.prepare();
  c.place.write("work/MODINF", "");
  EXPECT_TRUE(refused(c, "run work", "can't read the model in work/MODINF:\n"));
  EXPECT_FALSE(c.has("work.runs"));
}

TEST(run, refuses_more_chains_than_there_are_values_of_seed_A) {
  const study_case c;
  c.prepare();
  const said_by_program said = c.chains("run work --chains 31329");
  EXPECT_EQ(said.exit_code, 2);
  EXPECT_TRUE(says(said, "zeph-chains: --chains: Value 31329 not in range 1 to 31328; see --help\n"));
}

TEST(run, refuses_to_use_a_directory_twice) {
  const study_case c;
  c.prepare();
  ASSERT_EQ(c.chains("run work --chains 1 --into runs").exit_code, 0);
  EXPECT_TRUE(
      refused(c, "run work --into runs",
              "runs already holds the results of chains; to continue them: zeph-chains continue runs\n"));
  EXPECT_TRUE(refused(c, "run work --into work", "work exists and is not an empty directory\n"));
  EXPECT_TRUE(refused(c, "run work --into data.csv", "data.csv exists and is not an empty directory\n"));
  EXPECT_TRUE(refused(c, "run work --into data.csv/runs", "can't make the directory data.csv/runs\n"));
  std::filesystem::create_symlink("circle", c.place / "circle");
  EXPECT_TRUE(refused(c, "run work --into circle", "can't make the directory circle\n"));
  std::filesystem::create_directory(c.place / "empty");
  EXPECT_EQ(c.chains("run work --chains 1 --into empty").exit_code, 0);
}

TEST(run, refuses_directives_that_make_no_chains) {
  const study_case c;
  c.prepare();
  const auto with = [&](const std::string& text) {
    c.place.write("work/zeph.dir", text + "1 8\n2 7\n");
    return std::string("run work");
  };
  EXPECT_TRUE(refused(c, with("0 0\n1 2\n20 40 2\n"),
                      "work/zeph.dir: analysis type 0 is the solver: it gives the same solutions every time, "
                      "run ZEPH once\n"));
  EXPECT_TRUE(
      refused(c, with("3 0\n31329 2\n20 40 2\n"), "work/zeph.dir: seed A = 31329, legal: 0..31328\n"));
  EXPECT_TRUE(refused(c, with("3 0\n-1 2\n20 40 2\n"), "work/zeph.dir: seed A = -1, legal: 0..31328\n"));
  EXPECT_TRUE(
      refused(c, with("3 0\n1 30082\n20 40 2\n"), "work/zeph.dir: seed B = 30082, legal: 0..30081\n"));
  EXPECT_TRUE(refused(c, with("3 0\n1 2\n-5 40 2\n"), "work/zeph.dir: burn-in = -5, legal: 0 or more\n"));
  EXPECT_TRUE(refused(c, with("3 0\n1 2\n20 0 2\n"), "work/zeph.dir: rounds = 0, legal: 1 or more\n"));
  EXPECT_TRUE(refused(c, with("3 0\n1 2\n20 40 0\n"), "work/zeph.dir: interval = 0, legal: 1 or more\n"));
  EXPECT_TRUE(
      refused(c, with("3 0\n1 2\n1 99999999 2\n"),
              "work/zeph.dir: 100000000 rounds, legal: burn-in and sampling rounds up to 99999999\n"));
  EXPECT_TRUE(refused(c, with("3 0\n1 2\nx "),
                      "work/zeph.dir: line 3 should hold burn-in rounds, sampling rounds and interval\n"));
  c.place.remove("work/zeph.dir");
  EXPECT_TRUE(refused(c, "run work", "can't read the directive file work/zeph.dir\n"));
}

TEST(run, needs_ZEPH_beside_it_or_on_PATH) {
  const study_case c;
  c.prepare();
  std::filesystem::create_directory(c.place / "bin");
  std::filesystem::copy_file(programs() + "zeph-chains", c.place / "bin/zeph-chains");
  said_by_program said = shell("cd " + c.place.path() + " && PATH=/usr/bin:/bin bin/zeph-chains run work");
  EXPECT_EQ(said.exit_code, 1);
  EXPECT_TRUE(says(said, "zeph-chains: the program ZEPH is neither beside zeph-chains nor on PATH\n"));
  said = shell("cd " + c.place.path() + " && PATH=/usr/bin:/bin:" + programs() +
               " bin/zeph-chains run work --chains 1");
  EXPECT_EQ(said.exit_code, 0) << said.text;
}

TEST(run, says_that_saved_states_in_the_work_directory_are_not_used) {
  const study_case c;
  c.prepare();
  c.place.write("work/oldsol", "x");
  const said_by_program said = c.chains("run work --chains 1");
  EXPECT_EQ(said.exit_code, 0);
  EXPECT_TRUE(says(said, "oldsol and r_parm of work are not used: the chains start from scratch\n"));
}

TEST(run, reports_a_chain_that_ZEPH_ends_with_an_error) {
  const study_case c;
  c.prepare();
  c.place.remove("work/AINV1");
  const said_by_program said = c.chains("run work --chains 2 --into runs");
  EXPECT_EQ(said.exit_code, 1);
  EXPECT_TRUE(says(said, "chain 2  seg 1 ended with exit code 16: Data not found; 0 samples kept\n"));
  EXPECT_TRUE(says(said, "zeph-chains: 2 chains failed; the output of each is in its directory\n"));
  EXPECT_TRUE(refused(c, "continue runs", "chain 1, segment 1 ended with exit code 16: Data not found\n"));
}

TEST(run, reports_a_program_that_does_not_start) {
  const study_case c;
  c.prepare();
  std::filesystem::create_directory(c.place / "bin");
  std::filesystem::copy_file(programs() + "zeph-chains", c.place / "bin/zeph-chains");
  c.place.write("bin/ZEPH", "#!/nowhere/interpreter\n");
  std::filesystem::permissions(c.place / "bin/ZEPH", std::filesystem::perms::owner_all);
  const said_by_program said =
      shell("cd " + c.place.path() + " && bin/zeph-chains run work --chains 1 --into runs");
  EXPECT_EQ(said.exit_code, 1);
  EXPECT_TRUE(says(said, "chain 1  seg 1 ended with exit code 127: "));
}

TEST(every_command_but_run, needs_a_study) {
  const study_case c;
  c.prepare();
  for (const char* command :
       {"continue work", "status work", "stop work", "advance work --chain 1 --process 1"})
    EXPECT_TRUE(refused(c, command, "work holds no chains: chains.toml is missing")) << command;
  ASSERT_EQ(c.chains("run work --chains 1 --into runs").exit_code, 0);
  c.place.write("runs/chains.toml", "version = \"0.1.0\"\n");
  EXPECT_TRUE(refused(c, "status runs", "runs/chains.toml: key \"work\" is missing or damaged\n"));
}

struct finished_study : study_case {
  explicit finished_study(const chain_settings& settings = {}) {
    prepare(settings);
    const said_by_program said = chains("run work --chains 2 --into runs");
    EXPECT_EQ(said.exit_code, 0) << said.text;
  }
};

TEST(continue_, refuses_when_no_round_is_left) {
  const finished_study c;
  EXPECT_TRUE(refused(c, "continue runs",
                      "all chains are complete; --rounds N asks for more\nNothing was started.\n"));
  EXPECT_TRUE(
      refused(c, "continue runs --rounds 99999999", "chain 1: round 100000219, legal: up to 99999999\n"));
}

TEST(continue_, refuses_inputs_that_are_not_those_of_the_chains) {
  const finished_study c;
  const std::string bytes = c.file("work/RCDATA_R");
  std::string other = bytes;
  other[8] ^= 1;
  c.place.write("work/RCDATA_R", other);
  EXPECT_TRUE(
      refused(c, "continue runs --rounds 10", "runs/../work/RCDATA_R has changed since the chains began\n") ||
      refused(c, "continue runs --rounds 10", "work/RCDATA_R has changed since the chains began\n"));
  c.place.remove("work/RCDATA_R");
  EXPECT_TRUE(refused(c, "continue runs --rounds 10", "work/RCDATA_R is gone\n"));
  EXPECT_FALSE(c.has("runs/chain1/seg2"));
}

TEST(continue_, refuses_states_that_do_not_fit_and_reports_them_all) {
  const finished_study c;
  const std::string state = c.file("runs/chain1/seg1/gparlast"), sol = c.file("runs/chain2/seg1/lastsol");
  c.place.write("runs/chain1/seg1/gparlast", c.file("runs/chain2/seg1/gparlast"));
  c.place.write("runs/chain2/seg1/lastsol", sol.substr(0, 40));
  EXPECT_TRUE(refused(
      c, "continue runs --rounds 10",
      "chain 1, segment 1: runs/chain1/seg1/gparlast was left by a chain with seeds 7930 6019, this one has "
      "11 12\nzeph-chains: chain 2, segment 1: runs/chain2/seg1/lastsol ends after 1 of 23 solutions\n"
      "Nothing was started."));
  c.place.write("runs/chain1/seg1/gparlast", state);
  c.place.write("runs/chain2/seg1/lastsol", sol);
  std::string toml = c.file("runs/chain1/seg1/segment.toml");
  toml.replace(toml.find("[11, 12]"), 8, "[11, 13]");
  c.place.write("runs/chain1/seg1/segment.toml", toml);
  EXPECT_TRUE(refused(c, "continue runs --rounds 10",
                      "chain 1, segment 1 has the seeds 11 13, chains.toml has 11 12\n"));
  c.place.remove("runs/chain1/seg1/segment.toml");
  EXPECT_TRUE(refused(c, "continue runs --rounds 10",
                      "chain 1, segment 1: can't read runs/chain1/seg1/segment.toml\n"));
}

TEST(continue_, refuses_chains_that_ZEPH_does_not_continue) {
  const finished_study ordered({20, 40, 2, "[11, 12]", "gibbs", scored("ordered")});
  EXPECT_TRUE(
      refused(ordered, "continue runs --rounds 10", "a chain with an ordered trait can't be continued\n"));
  const finished_study fixed({20, 40, 2, "[11, 12]", "predict"});
  EXPECT_TRUE(refused(fixed, "continue runs --rounds 10",
                      "a chain of analysis type 2 saves no state and can't be continued\n"));
  EXPECT_FALSE(fixed.has("runs/chain1/seg2"));
}

TEST(continue_, refuses_without_the_program_of_the_study) {
  const finished_study c;
  std::string toml = c.file("runs/chains.toml");
  const std::size_t at = toml.find("program = \"") + 11;
  toml.replace(at, toml.find('"', at) - at, "/nowhere/ZEPH");
  c.place.write("runs/chains.toml", toml);
  EXPECT_TRUE(refused(c, "continue runs --rounds 10", "/nowhere/ZEPH is gone\n"));
}

TEST(continue_, says_that_ZEPH_is_another_one) {
  study_case c;
  c.prepare();
  std::filesystem::create_directory(c.place / "bin");
  for (const char* name : {"ZEPH", "zeph-chains"})
    std::filesystem::copy_file(programs() + name, c.place / (std::string("bin/") + name));
  const std::string chains = "cd " + c.place.path() + " && bin/zeph-chains ";
  ASSERT_EQ(shell(chains + "run work --chains 1 --into runs").exit_code, 0);
  const said_by_program same = shell(chains + "continue runs --rounds 20");
  EXPECT_FALSE(same.has("is not the one that ran before")) << same.text;
  std::filesystem::rename(c.place / "bin/ZEPH", c.place / "bin/ZEPH.old");
  c.place.write("bin/ZEPH", "#!/bin/sh\nexec " + (c.place / "bin/ZEPH.old") + "\n");
  std::filesystem::permissions(c.place / "bin/ZEPH", std::filesystem::perms::owner_all);
  const said_by_program other = shell(chains + "continue runs --rounds 20");
  EXPECT_EQ(other.exit_code, 0) << other.text;
  EXPECT_TRUE(says(other, "bin/ZEPH is not the one that ran before\n"));
}

TEST(continue_, says_which_latent_values_are_drawn_again) {
  const finished_study c(
      {20, 40, 2, "[11, 12]", "gibbs",
       "[factor.animal]\npedigree = \"pedigree.csv\"\nstart = 0.5\nprior_df = 8\n[trait.y1]\n"
       "kind = \"censored\"\nlimits = { code = \"binary\" }\nformula = \"1 + (1 | animal)\"\n"});
  const said_by_program said = c.chains("continue runs --rounds 40");
  EXPECT_EQ(said.exit_code, 0) << said.text;
  EXPECT_TRUE(
      says(said, "Values of censored and sequence traits are not saved: they are drawn from scratch"));
}

TEST(continue_, continues_with_a_binary_trait) {
  const finished_study c({20, 40, 2, "[11, 12]", "gibbs", scored("binary")});
  const said_by_program said = c.chains("continue runs --rounds 40");
  EXPECT_EQ(said.exit_code, 0) << said.text;
  const std::string more = c.file("runs/chain1/seg1/gib.samples") + c.file("runs/chain1/seg2/gib.samples");
  c.prepare({20, 80, 2, "[11, 12]", "gibbs", scored("binary")});
  ASSERT_EQ(c.chains("run work --chains 1 --into whole").exit_code, 0);
  EXPECT_EQ(more, c.file("whole/chain1/seg1/gib.samples"));
}

TEST(advance, refuses_chains_that_are_not_there_and_states_that_do_not_fit) {
  const finished_study c;
  EXPECT_TRUE(refused(c, "advance runs --chain 3 --process 1", "runs has no chain 3\n"));
  EXPECT_TRUE(refused(c, "advance runs --chain 0 --process 1", "runs has no chain 0\n"));
  EXPECT_EQ(c.chains("advance runs --chain 1 --process 1").text, ""); // nothing left
  std::string toml = c.file("runs/chains.toml");
  toml.replace(toml.find("last = 220"), 10, "last = 400");
  c.place.write("runs/chains.toml", toml);
  EXPECT_TRUE(
      says(c.chains("status runs"), "chain 1  seg 1  has rounds left  round 220 of 400  100 samples"));
  const std::string state = c.file("runs/chain1/seg1/gparlast");
  c.place.write("runs/chain1/seg1/gparlast", "");
  EXPECT_TRUE(refused(c, "advance runs --chain 1 --process 1",
                      "chain 1, segment 1: runs/chain1/seg1/gparlast ends before the round\n"));
  c.place.write("runs/chain1/seg1/gparlast", state);
  c.place.write("work/AINV1", "");
  EXPECT_TRUE(
      refused(c, "advance runs --chain 1 --process 1", "work/AINV1 has changed since the chains began\n") ||
      refused(c, "advance runs --chain 1 --process 1",
              "runs/../work/AINV1 has changed since the chains began\n"));
}

// Files in the places of directories: what can't be written is reported.
TEST(directories_that_cannot_be_made, are_reported) {
  const study_case c;
  c.prepare();
  ASSERT_EQ(c.chains("run work --chains 2 --into runs").exit_code, 0);
  c.place.write("runs/chain1/seg2", "in the way");
  said_by_program said = c.chains("continue runs --rounds 10");
  EXPECT_EQ(said.exit_code, 1);
  EXPECT_TRUE(says(said, "chain 1  failed: runs/chain1/seg2 exists and is not used again\n"));
  std::filesystem::remove_all(c.place / "runs/chain2");
  c.place.write("runs/chain2", "in the way");
  c.place.remove("runs/chain1/seg2");
  said = c.chains("continue runs");
  EXPECT_TRUE(says(said, "chain 2  failed: can't make runs/chain2/seg1: "));
  std::filesystem::create_directory(c.place / "runs/STOP");
  EXPECT_TRUE(refused(c, "stop runs", "can't write runs/STOP\n"));
}

} // namespace
