// zeph-watch beside chains of the real program.
#include "chains/study_case.h"
#include "support/terminal_program.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

namespace {

using namespace zeph_test;

// Two chains that run for hours, in `runs`.
struct running_study : study_case {
  running_study() {
    prepare({20, endless, 100});
    runner = std::make_unique<background_program>(
        std::vector<std::string>{programs() + "zeph-chains", "run", place / "work", "--chains", "2", "--jobs",
                                 "2", "--into", place / "runs"},
        place / "said");
    for (const char* chain : {"1", "2"})
      EXPECT_TRUE(soon([&] { return !file(std::string("runs/chain") + chain + "/seg1/py").empty(); }));
  }
  bool both_run() const {
    return chains("status runs").has("running") && !chains("status runs").has("stopped");
  }
  std::vector<std::string> watch() const { return {programs() + "zeph-watch", place / "runs"}; }
  std::unique_ptr<background_program> runner;
};

TEST(watch_without_a_terminal, writes_a_line_per_chain_at_once_and_the_next_ones_a_minute_later) {
  const running_study c;
  background_program watch(c.watch(), c.place / "watched");
  ASSERT_TRUE(soon([&] {
    return c.file("watched").find("  chain 2  sampling  round ") != std::string::npos;
  })) << c.file("watched");
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  const std::string lines = c.file("watched");
  EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 2) << lines;
  EXPECT_NE(lines.find(" of 90000020"), std::string::npos) << lines;
  EXPECT_EQ(watch.end(SIGTERM), 0);
  EXPECT_TRUE(c.both_run());
}

TEST(watch_killed, leaves_the_chains_as_they_are_and_the_next_call_shows_them) {
  const running_study c;
  background_program watch(c.watch(), c.place / "watched");
  ASSERT_TRUE(soon([&] { return !c.file("watched").empty(); }));
  EXPECT_EQ(watch.end(SIGKILL), 128 + SIGKILL);
  EXPECT_TRUE(c.both_run());
  EXPECT_FALSE(c.has("runs/STOP"));
  background_program again(c.watch(), c.place / "again");
  EXPECT_TRUE(soon([&] { return c.file("again").find("chain 2  sampling") != std::string::npos; }));
  EXPECT_EQ(again.end(SIGINT), 0);
}

TEST(watch_on_a_terminal, shows_chains_in_place_and_stops_them_after_a_question_only) {
  const running_study c;
  terminal_program watch(c.watch(), 120);
  EXPECT_TRUE(watch.shows("chain 1  sampling  round ")) << watch.shown();
  EXPECT_TRUE(watch.shows("s: stop the chains   q: leave"));
  EXPECT_TRUE(watch.shows("\033[3A\r\033[J"));
  EXPECT_TRUE(watch.shows(" left"));
  EXPECT_FALSE(watch.keys_as_usual());
  watch.key('s');
  EXPECT_TRUE(watch.shows("Stop the chains at their next sample round? y/n"));
  watch.key('n');
  EXPECT_TRUE(watch.shows("not stopped"));
  EXPECT_TRUE(c.both_run());
  watch.key('s');
  EXPECT_TRUE(watch.shows("y/n"));
  watch.key('y');
  EXPECT_TRUE(watch.shows("2 chains asked to stop; each ends at its next sample round"));
  EXPECT_EQ(watch.wait(), 0); // all have ended
  EXPECT_NE(watch.shown().find("chain 1  stopped  round "), std::string::npos) << watch.shown();
  EXPECT_EQ(c.runner->wait(), 3);
  EXPECT_TRUE(c.has("runs/STOP"));
}

TEST(watch_on_a_terminal, leaves_with_q_and_gives_the_keys_back) {
  const running_study c;
  terminal_program watch(c.watch(), 120);
  EXPECT_TRUE(watch.shows("q: leave"));
  watch.key('x'); // means nothing
  watch.key('q');
  EXPECT_EQ(watch.wait(), 0);
  EXPECT_TRUE(watch.keys_as_usual());
  EXPECT_TRUE(c.both_run());
}

TEST(watch, ends_when_no_chain_runs_and_none_begins) {
  const study_case c;
  c.prepare();
  ASSERT_EQ(c.chains("run work --chains 2 --into runs").exit_code, 0);
  said_by_program said = shell(programs() + "zeph-watch " + (c.place / "runs"));
  EXPECT_EQ(said.exit_code, 0);
  EXPECT_TRUE(says(said, "chain 2  complete  round 220 of 220\n"));
  std::filesystem::remove_all(c.place / "runs/chain2"); // as if it had never begun
  said = shell(programs() + "zeph-watch " + (c.place / "runs") + " " + (c.place / "runs/chain1/seg1"));
  EXPECT_EQ(said.exit_code, 0);
  EXPECT_TRUE(says(said, "chain 2  waits\n"));
  EXPECT_TRUE(says(said, "runs/chain1/seg1  complete\n"));
}

TEST(watch, refuses_what_holds_no_chains) {
  const study_case c;
  said_by_program said = shell("cd " + c.place.path() + " && " + programs() + "zeph-watch .");
  EXPECT_EQ(said.exit_code, 1);
  EXPECT_TRUE(says(said, "zeph-watch: . holds neither chains nor a run of ZEPH\n"));
  c.place.write("chains.toml", "");
  said = shell("cd " + c.place.path() + " && " + programs() + "zeph-watch .");
  EXPECT_EQ(said.exit_code, 1);
  EXPECT_TRUE(says(said, "zeph-watch: ./chains.toml: key \"version\" is missing or damaged\n"));
  EXPECT_EQ(shell(programs() + "zeph-watch").exit_code, 2);
  EXPECT_TRUE(says(shell(programs() + "zeph-watch"), "; see --help\n"));
  EXPECT_EQ(shell(programs() + "zeph-watch --help").exit_code, 0);
  EXPECT_TRUE(says(shell(programs() + "zeph-watch --version"), "zeph-watch 0."));
}

} // namespace
