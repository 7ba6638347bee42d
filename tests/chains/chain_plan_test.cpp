// Which rounds a segment runs, and how its files number them. Expected numbers by hand: the chain runs 100
// rounds of burn-in and 1000 of sampling.
#include "chains/chain_plan.h"

#include <gtest/gtest.h>

namespace {

using namespace zeph::chains;

study plan() {
  study s;
  s.analysis = 3;
  s.burnin = 100;
  s.rounds = 1000;
  s.interval = 10;
  s.chains = {{1, {11, 12}, 1100}};
  s.starts = {{}};
  return s;
}

// The position after a segment that ended in this round of its own files.
chain_position after(const segment_record& r, segment_phase phase, std::int64_t round) {
  chain_position p;
  p.segment = r.segment;
  p.state.record = r;
  p.state.phase = phase;
  p.state.round = round;
  p.done = round + r.shift;
  return p;
}

TEST(next_segment, is_the_whole_chain_at_first) {
  const segment_record r = next_segment(plan(), 1, {});
  EXPECT_EQ(r.segment, 1);
  EXPECT_EQ(r.seeds, (seed_pair{11, 12}));
  EXPECT_EQ(r.burnin, 100);
  EXPECT_EQ(r.rounds, 1000);
  EXPECT_EQ(r.interval, 10);
  EXPECT_EQ(r.first, 1);
  EXPECT_EQ(r.shift, 0);
  EXPECT_EQ(r.last(), 1100);
  EXPECT_TRUE(r.counts);
}

TEST(next_segment, continues_after_a_full_count) {
  study s = plan();
  const segment_record one = next_segment(s, 1, {});
  s.chains[0].last = 1600;
  const segment_record r = next_segment(s, 1, after(one, segment_phase::finished, 1100));
  EXPECT_EQ(r.segment, 2);
  EXPECT_EQ(r.burnin, 0);
  EXPECT_EQ(r.first, 1101);
  EXPECT_EQ(r.shift, 0);
  EXPECT_EQ(r.rounds, 500);
  EXPECT_EQ(r.last(), 1600);
}

// stopped in 350: the continuation calls its first round 350, which is the chain's 351
TEST(next_segment, uses_the_number_of_a_stop_again_and_counts_it_in_the_shift) {
  const study s = plan();
  const segment_record one = next_segment(s, 1, {});
  const segment_record two = next_segment(s, 1, after(one, segment_phase::stopped, 350));
  EXPECT_EQ(two.first, 350);
  EXPECT_EQ(two.shift, 1);
  EXPECT_EQ(two.rounds, 750);
  EXPECT_EQ(two.last() + two.shift, 1100);
  const segment_record three = next_segment(s, 1, after(two, segment_phase::stopped, 500)); // the chain's 501
  EXPECT_EQ(three.first, 500);
  EXPECT_EQ(three.shift, 2);
  EXPECT_EQ(three.rounds, 599);
  EXPECT_EQ(three.last() + three.shift, 1100);
}

TEST(next_segment, ends_a_burnin_that_was_stopped_in_a_segment_that_does_not_count) {
  const study s = plan();
  const segment_record one = next_segment(s, 1, {});
  const segment_record two = next_segment(s, 1, after(one, segment_phase::stopped, 40));
  EXPECT_FALSE(two.counts);
  EXPECT_EQ(two.first, 40);
  EXPECT_EQ(two.rounds, 60);
  EXPECT_EQ(two.last() + two.shift, 100);
  const segment_record three = next_segment(s, 1, after(two, segment_phase::finished, two.last()));
  EXPECT_TRUE(three.counts);
  EXPECT_EQ(three.first + three.shift, 101);
  EXPECT_EQ(three.rounds, 1000);
  // a stop in the last round of burn-in leaves no burn-in
  EXPECT_TRUE(next_segment(s, 1, after(one, segment_phase::stopped, 100)).counts);
}

// A segment that saved its state in this round.
chain_position with_state(chain_position p, std::int64_t round) {
  p.state.saved = {true, true, 3, round};
  return p;
}

TEST(resumed_segment, runs_to_the_last_round_of_the_chain_in_the_same_directory) {
  study s = plan();
  const segment_record one = next_segment(s, 1, {});
  segment_record r = resumed_segment(s, 1, with_state(after(one, segment_phase::killed, 350), 340));
  EXPECT_EQ(r.segment, 1);
  EXPECT_EQ(r.burnin, 100);
  EXPECT_EQ(r.rounds, 1000);
  EXPECT_EQ(r.last(), 1100);
  ASSERT_EQ(r.resumes.size(), 1U);
  EXPECT_EQ(r.resumes[0].after, 340);
  EXPECT_EQ(r.resumes[0].rounds, 1000);
  s.chains[0].last = 1600; // more of them
  r = resumed_segment(s, 1, with_state(after(r, segment_phase::finished, 1100), 1100));
  EXPECT_EQ(r.rounds, 1500);
  EXPECT_EQ(r.last(), 1600);
  EXPECT_EQ(r.resumes.size(), 2U);
}

// the chain's 351 is round 350 of its second segment
TEST(resumed_segment, counts_the_rounds_of_a_later_segment_as_its_files_do) {
  const study s = plan();
  const segment_record one = next_segment(s, 1, {});
  const segment_record two = next_segment(s, 1, after(one, segment_phase::stopped, 350));
  const segment_record r = resumed_segment(s, 1, with_state(after(two, segment_phase::killed, 500), 400));
  EXPECT_EQ(r.first, 350);
  EXPECT_EQ(r.shift, 1);
  EXPECT_EQ(r.rounds, 750);
  // one that only ends the burn-in does not go beyond it
  const segment_record part = next_segment(s, 1, after(one, segment_phase::stopped, 40));
  EXPECT_EQ(resumed_segment(s, 1, with_state(after(part, segment_phase::killed, 70), 60)).rounds, 60);
  EXPECT_FALSE(resumes(with_state(after(part, segment_phase::finished, 99), 99)));
}

TEST(resumes, is_asked_of_every_segment_with_a_state_that_does_not_run) {
  const segment_record one = next_segment(plan(), 1, {});
  EXPECT_FALSE(resumes({}));
  for (const segment_phase phase :
       {segment_phase::finished, segment_phase::stopped, segment_phase::failed, segment_phase::killed}) {
    EXPECT_FALSE(resumes(after(one, phase, 500)));
    EXPECT_TRUE(resumes(with_state(after(one, phase, 500), 500)));
  }
  for (const segment_phase phase : {segment_phase::running, segment_phase::unknown})
    EXPECT_FALSE(resumes(with_state(after(one, phase, 500), 500)));
}

TEST(is_complete, needs_the_last_round_and_its_end) {
  const segment_record one = next_segment(plan(), 1, {});
  EXPECT_FALSE(is_complete({}, 1100));
  EXPECT_TRUE(is_complete(after(one, segment_phase::finished, 1100), 1100));
  EXPECT_FALSE(is_complete(after(one, segment_phase::finished, 1100), 1200));
  EXPECT_TRUE(is_complete(after(one, segment_phase::stopped, 1100), 1100)); // in its last round
  // killed while it wrote its reports; stopped in the last round of a model that is not the last one
  EXPECT_FALSE(is_complete(with_state(after(one, segment_phase::killed, 1100), 1100), 1100));
  EXPECT_FALSE(is_complete(with_state(after(one, segment_phase::stopped, 1100), 1100), 1100));
}

TEST(run_fault, refuses_the_solver_only) {
  EXPECT_EQ(run_fault(0),
            "analysis type 0 is the solver: it gives the same solutions every time, run ZEPH once");
  EXPECT_NE(run_fault(1), "");
  for (const int type : {2, 3, 4, 5, 6, 7}) EXPECT_EQ(run_fault(type), "") << type;
}

TEST(continue_fault, refuses_ordered_traits_and_analyses_that_do_not_save_their_state) {
  study s = plan();
  work_model m;
  m.types = {1, 2, 4, 5, 7, 8};
  EXPECT_EQ(continue_fault(s, m), "");
  m.types.push_back(3);
  EXPECT_EQ(continue_fault(s, m), "a chain with an ordered trait can't be continued");
  m.types.pop_back();
  s.analysis = 2;
  EXPECT_EQ(continue_fault(s, m), "a chain of analysis type 2 saves no state and can't be continued");
  s.analysis = 6;
  EXPECT_EQ(continue_fault(s, m),
            "a chain of analysis type 6 does not save its model and can't be continued");
  s.analysis = 3;
  m.exact = true;
  EXPECT_EQ(continue_fault(s, m),
            "a chain with the word exact in sampler can't be continued from the files of its segments");
}

} // namespace
