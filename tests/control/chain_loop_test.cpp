#include "control/chain_loop.h"

#include "support/run_case.h"

namespace {

using namespace zeph_test;

std::string integer(std::int64_t x) {
  const std::string text = std::to_string(x);
  return " " + std::string(11 - text.size(), ' ') + text;
}

// A started run whose chain has been run; the listing is that of the chain.
struct chain_case : run_case {
  void start(const std::string& directives) {
    write(directives);
    r = std::make_unique<run>(listing, directory.path());
    start_run(*r);
    listing.str("");
  }
  void chain(const std::string& directives) {
    start(directives);
    run_chain(*r);
  }
  // The rounds that reported their change, in order.
  std::vector<std::int64_t> rounds() const {
    std::vector<std::int64_t> list;
    const std::string all = text();
    for (std::size_t at = all.find("Round="); at != std::string::npos; at = all.find("Round=", at + 1))
      list.push_back(std::atoll(all.c_str() + at + 6));
    return list;
  }
  std::unique_ptr<run> r;
};

std::vector<std::int64_t> from_to(std::int64_t first, std::int64_t last) {
  std::vector<std::int64_t> list;
  for (std::int64_t i = first; i <= last; ++i) list.push_back(i);
  return list;
}

std::string three(const std::string& text) { return text + "\n" + text + "\n" + text + "\n"; }
const std::string stop_burnin = three("Stop signal received. Processing ends graceously");
const std::string stop_sampling = three("Stop signal received. Processing ends graciously");
const std::string converged = "\nGS-solver converged\n\n";

TEST(run_chain, runs_burn_in_and_then_sampling_rounds) {
  chain_case c;
  c.chain(run_case::lines(0, 3, 4, 2));
  EXPECT_EQ(c.rounds(), from_to(1, 7));
  EXPECT_EQ(c.r->state.iround, 8); // one past the last round
  EXPECT_EQ(c.r->counts.P_ROUND, 3);
  EXPECT_FALSE(c.r->counts.stop_seen);
  EXPECT_EQ(c.r->counts.nsamples, 0.0); // the solver takes none
  EXPECT_EQ(c.directory.read("status"), "Current round is" + integer(7) + " out of" + integer(7) +
                                            " in model" + integer(1) + integer(1) + "\n");
}

// By the plain number of the round: 5 and 10 of the sampling rounds 4 to 13, where
// samples are taken in rounds 8 and 13.
TEST(run_chain, makes_deviations_in_sampling_rounds_that_the_interval_divides) {
  for (const bool progeny : {false, true}) {
    chain_case c;
    c.m->L_TD = true;
    c.m->L_PTD = progeny;
    c.m->TD_FACTOR = 1;
    write_integer_records(c.directory / "PEDFILE1", {{0, 0, 0, 0, 0, 0, 1, 0, 3, 2, 1, 2, 4, 5, 3, 6}});
    c.chain(run_case::lines(2, 3, 10, 1));
    EXPECT_EQ(c.r->deviations.calls, 10);
    chain_case five;
    five.m->L_TD = true;
    five.m->TD_FACTOR = 1;
    five.chain(run_case::lines(2, 3, 10, 5));
    EXPECT_EQ(five.r->deviations.calls, 2);
    EXPECT_EQ(five.r->counts.nsamples, 2.0);
  }
}

TEST(run_chain, takes_samples_at_the_interval_after_burn_in) {
  chain_case c;
  c.chain(run_case::lines(1, 3, 7, 2));
  EXPECT_EQ(c.r->counts.nsamples, 3.0); // rounds 5, 7, 9
  EXPECT_EQ(c.text(), "");
  EXPECT_EQ(c.directory.read("py").substr(0, 12), integer(5));
}

TEST(run_chain, does_nothing_without_rounds) {
  chain_case c;
  c.chain(run_case::lines(0, 0, 0, 1));
  EXPECT_EQ(c.text(), "");
  EXPECT_EQ(c.r->state.iround, 1);
  chain_case negative;
  negative.chain(run_case::lines(0, -4, -2, 1));
  EXPECT_EQ(negative.text(), "");
  EXPECT_EQ(negative.r->counts.P_ROUND, 0);
}

TEST(run_chain, runs_burn_in_alone_when_no_sampling_rounds_are_asked_for) {
  chain_case c;
  c.chain(run_case::lines(1, 5, 0, 1));
  EXPECT_EQ(c.r->state.iround, 6);
  EXPECT_EQ(c.r->counts.nsamples, 0.0);
}

TEST(run_chain, ends_at_STOP_in_burn_in_and_passes_sampling) {
  chain_case c;
  c.directory.write("STOP", "");
  c.chain(run_case::lines(1, 9, 9, 1));
  EXPECT_EQ(c.text(), stop_burnin);
  EXPECT_EQ(c.r->state.iround, 1);
  EXPECT_TRUE(c.r->counts.stop_seen);
  EXPECT_EQ(c.r->counts.nsamples, 0.0);
  EXPECT_EQ(c.r->counts.P_ROUND, 9);
  EXPECT_TRUE(c.directory.has("STOP")); // never deleted
}

TEST(run_chain, honours_STOP_at_the_next_sample_round) {
  chain_case c;
  c.directory.write("STOP", "anything");
  c.chain(run_case::lines(1, 0, 20, 5));
  EXPECT_EQ(c.text(), stop_sampling);
  EXPECT_EQ(c.r->state.iround, 5);
  EXPECT_EQ(c.r->counts.nsamples, 1.0); // the sample of that round is taken
  EXPECT_FALSE(c.r->counts.stop_seen);
}

TEST(run_chain, counts_the_interval_from_the_end_of_burn_in) {
  chain_case c;
  c.start(run_case::lines(1, 3, 20, 5));
  c.r->asked.restart = true; // past burn-in: the chain continues after round 3
  c.r->counts.P_ROUND = 3;
  c.directory.write("STOP", "");
  run_chain(*c.r);
  EXPECT_EQ(c.text(), stop_sampling);
  EXPECT_EQ(c.r->state.iround, 8); // 3 + 5
}

TEST(run_chain, skips_burn_in_on_a_restart_and_continues_after_the_stored_round) {
  chain_case c;
  c.start(run_case::lines(0, 0, 3, 2));
  c.r->asked.restart = true;
  c.r->counts.P_ROUND = 30;
  run_chain(*c.r);
  EXPECT_EQ(c.rounds(), from_to(31, 33));
  EXPECT_EQ(c.r->counts.P_ROUND, 30);
}

TEST(run_chain, ends_in_the_first_sampling_round_when_the_interval_is_0) {
  chain_case c;
  c.start(run_case::lines(1, 2, 10, 0));
  try {
    run_chain(*c.r);
    ADD_FAILURE() << "no stop";
  } catch (const run_stop& stop) {
    EXPECT_EQ(stop.exit_code, 16);
  }
  EXPECT_EQ(c.text(),
            "\nERROR - Computation impossible in ZEPH: sampling interval is 0\n\nZEPH terminates.\n");
  EXPECT_EQ(c.r->state.iround, 3);
}

TEST(run_chain, takes_an_interval_of_0_without_sampling_rounds) {
  chain_case c;
  c.chain(run_case::lines(1, 2, 0, 0));
  EXPECT_EQ(c.text(), "");
}

TEST(run_chain, takes_a_negative_interval_as_1) {
  chain_case c;
  c.chain(run_case::lines(1, 0, 4, -3));
  EXPECT_EQ(c.r->counts.nsamples, 4.0);
}

TEST(run_chain, leaves_the_sampling_loop_when_the_solver_has_converged) {
  chain_case c;
  c.chain(run_case::lines(0, 0, 5000, 1));
  ASSERT_TRUE(c.ends_with(converged));
  const std::vector<std::int64_t> rounds = c.rounds();
  EXPECT_LT(rounds.back(), 1000);
  EXPECT_EQ(c.r->state.iround, rounds.back()); // the round keeps its number
  for (std::int32_t e = 1; e <= 10; ++e) EXPECT_NEAR(c.r->sampler.sol(e), example_solutions[e - 1], 2e-7);
}

TEST(run_chain, continues_to_sampling_after_convergence_in_burn_in) {
  chain_case c;
  c.chain(run_case::lines(0, 5000, 3, 1));
  const std::string text = c.text();
  const std::size_t first = text.find(converged);
  ASSERT_NE(first, std::string::npos);
  // the sampling rounds start after the burn-in that was asked for
  EXPECT_EQ(text.substr(first + converged.size(), 18), "Round=" + integer(5001));
  EXPECT_EQ(c.r->counts.P_ROUND, 5000);
  EXPECT_FALSE(c.r->counts.stop_seen);
}

TEST(run_chain, reports_every_hundredth_sampling_round_at_test_levels_above_0) {
  chain_case quiet;
  quiet.chain(run_case::lines(1, 100, 250, 1));
  EXPECT_EQ(quiet.text(), "");
  chain_case c;
  c.chain(run_case::lines(1, 100, 250, 1, 1)); // rounds 101 to 350
  EXPECT_EQ(c.text(), "Gibbs:iround" + integer(200) + "\nGibbs:iround" + integer(300) + "\n");
}

TEST(run_chain, reports_the_round_before_it_stops) {
  chain_case c;
  c.directory.write("STOP", "");
  c.chain(run_case::lines(1, 0, 250, 100, 1));
  EXPECT_EQ(c.text(), "Gibbs:iround" + integer(100) + "\n" + stop_sampling);
}

} // namespace
