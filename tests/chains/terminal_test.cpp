// Progress lines on a terminal.
#include "chains/study_case.h"
#include "support/terminal_program.h"

#include <gtest/gtest.h>

namespace {

using namespace zeph_test;

TEST(run_on_a_terminal, shows_a_line_per_chain_in_place) {
  const study_case c;
  c.prepare({20, endless, 100});
  terminal_program chains({programs() + "zeph-chains", "run", c.place / "work", "--chains", "3", "--jobs",
                           "2", "--into", c.place / "runs"},
                          100);
  EXPECT_TRUE(chains.shows("chain 1  round ")) << chains.shown();
  EXPECT_TRUE(chains.shows(" of 90000020")) << chains.shown();
  EXPECT_TRUE(chains.shows("chain 2  round "));
  EXPECT_TRUE(chains.shows("chain 3  waits"));
  EXPECT_TRUE(chains.shows("\033[3A\r\033[J")); // the three lines are written over
  EXPECT_TRUE(chains.shows("/s  "));            // a pace, and with it the time left
  EXPECT_TRUE(chains.shows(" left"));
  chains.send(SIGINT);
  EXPECT_TRUE(chains.shows("Stopping: each chain ends at its next sample round."));
  EXPECT_EQ(chains.wait(), 3);
  EXPECT_NE(chains.shown().find("chain 1  stopped in round "), std::string::npos);
  EXPECT_NE(chains.shown().find("samples kept"), std::string::npos);
}

TEST(run_on_a_narrow_terminal, cuts_lines_so_that_none_takes_two) {
  const study_case c;
  c.prepare({20, endless, 100});
  terminal_program chains(
      {programs() + "zeph-chains", "run", c.place / "work", "--chains", "1", "--into", c.place / "runs"}, 20);
  EXPECT_TRUE(chains.shows("\033[1A\r\033[Jchain 1  round "));
  const std::size_t line = chains.shown().rfind("chain 1  round ");
  chains.shows("\n");
  EXPECT_LE(chains.shown().find('\r', line) - line, 19U);
  chains.send(SIGTERM);
  EXPECT_EQ(chains.wait(), 3);
}

// the terminal goes away: the chains are stopped as by an interrupt
TEST(run_whose_terminal_is_closed, stops_its_chains) {
  const study_case c;
  c.prepare({20, endless, 100});
  terminal_program chains(
      {programs() + "zeph-chains", "run", c.place / "work", "--chains", "1", "--into", c.place / "runs"}, 80);
  ASSERT_TRUE(soon([&] { return !c.file("runs/chain1/seg1/py").empty(); }));
  chains.send(SIGHUP);
  EXPECT_EQ(chains.wait(), 3);
  EXPECT_EQ(c.file("runs/chain1/seg1/exit"), "0\n");
}

TEST(run_under_nohup, continues_when_the_terminal_is_closed) {
  const study_case c;
  c.prepare({20, endless, 100});
  background_program chains({"/usr/bin/nohup", programs() + "zeph-chains", "run", c.place / "work",
                             "--chains", "1", "--into", c.place / "runs"},
                            c.place / "said");
  ASSERT_TRUE(soon([&] { return !c.file("runs/chain1/seg1/py").empty(); }));
  chains.send(SIGHUP);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_TRUE(says(c.chains("status runs"), "chain 1  seg 1  running (process "));
  EXPECT_FALSE(c.has("runs/chain1/seg1/STOP"));
  EXPECT_EQ(chains.end(SIGTERM), 3) << c.file("said");
}

} // namespace
