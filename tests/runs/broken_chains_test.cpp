#include "runs/broken_chains.h"

namespace {

using namespace zeph_test;

// Every kind of trait, and every type of analysis that has a chain.
const std::vector<chain_kind>& all_chains() {
  static const std::vector<chain_kind> all = {
      {"missing_2", "three3_t3", "2"},
      {"missing_3", "three3_t3", "3"},
      {"missing_4", "three3_t3", "4"},
      {"weights_groups_and_all_files_2", "herd", "2"},
      {"weights_groups_and_all_files_3", "herd", "3"},
      {"censored_2", "cens2_t3", "2"},
      {"censored_3", "cens2_t3", "3"},
      {"ordered_2", "cat3_t3", "2"},
      {"ordered_4", "cat3_t3", "4"},
      {"mixture_2", "mix2_t3", "2"},
      {"mixture_3", "mix2_t3", "3"},
      {"cure_2", "cure_t3", "2"},
      {"cure_3", "cure_t3", "3"},
      {"covariables_2", "feto_t2", "2"},
      {"covariables_3", "feto_t2", "3"},
      {"deviations_3", "tdptd_t3", "3"},
      {"all_kinds_2", "all_kinds", "2"},
      {"all_kinds_3", "all_kinds", "3"},
      {"models_5", "jumpI3_t6", "5"},
      {"jump_6", "jumpI3_t6", "6"},
      {"jump_7", "jumpI3_t6", "7"},
      {"exact_missing_3", "three3_t3", "3", "exact"},
      {"exact_censored_3", "cens2_t3", "3", "exact"},
      {"exact_ordered_3", "cat3_t3", "3", "exact"},
      {"exact_all_kinds_3", "all_kinds", "3", "exact"},
      {"exact_cure_3", "cure_t3", "3", "exact"},
      {"moves_2", "herd", "2", "moves"},
      {"moves_missing_4", "three3_t3", "4", "moves"},
      {"moves_ordered_3", "cat3_t3", "3", "moves"},
      {"moves_all_kinds_3", "all_kinds", "3", "moves"},
      {"moves_exact_herd_3", "herd", "3", "exact\nmoves"},
      {"moves_exact_ordered_3", "cat3_t3", "3", "exact\nmoves"},
      {"moves_models_5", "jumpI3_t6", "5", "moves"},
      {"moves_jump_6", "jumpI3_t6", "6", "moves"},
  };
  return all;
}

class broken_chain : public testing::TestWithParam<chain_kind> {};

// Models before the last one keep the rounds that they had.
std::vector<chain_kind> chains_of_one_model() {
  std::vector<chain_kind> out = all_chains();
  std::erase_if(out, [](const chain_kind& kind) { return kind.type == "5"; });
  return out;
}

class longer_chain : public testing::TestWithParam<chain_kind> {};

constexpr const char* SHORT = "3 8 2";

// STOP is there all the time: each run makes one round and ends, in burn-in, after its last round, in
// sampling, in the last round, between two models.
TEST_P(broken_chain, ends_with_the_same_bytes_when_it_is_broken_after_every_round) {
  chain_place unbroken(GetParam(), SHORT), broken(GetParam(), SHORT, "state 5");
  ASSERT_EQ(unbroken.go(), 0) << unbroken.listing;
  broken.place.write("STOP", "");
  int runs = 0;
  do {
    ASSERT_EQ(broken.go(), 0) << broken.listing;
    broken.take_up();
    ASSERT_LT(++runs, 100);
  } while (broken.says("Stop signal received."));
  EXPECT_GE(runs, 3 + 8 + 1);
  EXPECT_EQ(differing_files(broken.results(), unbroken.results()), std::vector<std::string>{});
}

// The rounds are raised again and again; each run comes to its end, with its reports.
TEST_P(longer_chain, ends_with_the_same_bytes_when_its_rounds_are_raised) {
  chain_place unbroken(GetParam(), SHORT), raised(GetParam(), "3 1 2", "state 0");
  ASSERT_EQ(unbroken.go(), 0) << unbroken.listing;
  for (const char* rounds : {"3 1 2", "3 4 2", "3 4 2", "3 5 2", SHORT}) {
    raised.ask_for(rounds);
    ASSERT_EQ(raised.go(), 0) << raised.listing;
    raised.take_up();
  }
  EXPECT_EQ(differing_files(raised.results(), unbroken.results()), std::vector<std::string>{});
}

// The lines of the listing with the shares of accepted moves.
std::string shares_in(const std::string& listing) {
  std::istringstream lines(listing);
  std::string found;
  for (std::string line; std::getline(lines, line);)
    if (line.find("Accepted moves") != std::string::npos) found += line + "\n";
  return found;
}

// Counts of moves belong to the state: a chain that is continued reports the shares of the unbroken one.
TEST(broken_chain, reports_the_accepted_moves_of_all_its_rounds) {
  const chain_kind kind{"moves", "herd", "3", "moves"};
  chain_place unbroken(kind, SHORT), broken(kind, "3 4 2", "state 5");
  ASSERT_EQ(unbroken.go(), 0) << unbroken.listing;
  ASSERT_EQ(broken.go(), 0) << broken.listing;
  broken.take_up();
  broken.ask_for(SHORT);
  ASSERT_EQ(broken.go(), 0) << broken.listing;
  EXPECT_NE(shares_in(unbroken.listing), "");
  EXPECT_EQ(shares_in(broken.listing), shares_in(unbroken.listing));
}

TEST_P(broken_chain, is_not_changed_by_saving_its_state) {
  chain_place plain(GetParam(), SHORT), often(GetParam(), SHORT, "state 1"),
      once(GetParam(), SHORT, "state 0");
  ASSERT_EQ(plain.go(), 0) << plain.listing;
  ASSERT_EQ(often.go(std::chrono::nanoseconds(1)), 0) << often.listing;
  ASSERT_EQ(once.go(), 0) << once.listing;
  EXPECT_EQ(differing_files(often.results(), plain.results()), std::vector<std::string>{});
  // no clock in it
  EXPECT_TRUE(often.place.read("statelast") == once.place.read("statelast"));
  EXPECT_FALSE(plain.place.has("statelast"));
}

INSTANTIATE_TEST_SUITE_P(of, broken_chain, testing::ValuesIn(all_chains()),
                         [](const auto& info) { return info.param.name; });
INSTANTIATE_TEST_SUITE_P(of, longer_chain, testing::ValuesIn(chains_of_one_model()),
                         [](const auto& info) { return info.param.name; });

TEST(killed_chains, end_with_the_bytes_of_the_unbroken_one) {
  kill_and_continue({"missing", "three3_t3", "3"}, "20 400 3", 6, 1);
  kill_and_continue({"mixture", "mix2_t3", "3"}, "20 400 3", 6, 2);
  kill_and_continue({"models", "jumpI3_t6", "5"}, "5 150 3", 6, 3);
  kill_and_continue({"jump", "jumpI3_t6", "6"}, "20 300 3", 6, 4);
}

// A restart from r_parm and oldsol can itself be saved and continued.
TEST(broken_chain, that_began_from_a_restart_ends_with_the_same_bytes) {
  const chain_kind kind{"restart", "mix2_t3", "3"};
  chain_place first(kind, "3 4 2");
  ASSERT_EQ(first.go(), 0) << first.listing;
  chain_place unbroken(kind, "3 6 2"), broken(kind, "3 6 2", "state 5");
  for (const chain_place* c : {&unbroken, &broken}) {
    c->place.write("oldsol", first.place.read("lastsol"));
    c->place.write("r_parm", first.place.read("gparlast"));
  }
  ASSERT_EQ(unbroken.go(), 0) << unbroken.listing;
  broken.place.write("STOP", "");
  do {
    ASSERT_EQ(broken.go(), 0) << broken.listing;
    broken.take_up();
    broken.place.remove("oldsol");
    broken.place.remove("r_parm");
  } while (broken.says("Stop signal received."));
  named_files expected = unbroken.results();
  expected.erase("oldsol");
  expected.erase("r_parm");
  EXPECT_EQ(differing_files(broken.results(), expected), std::vector<std::string>{});
}

// With seeds from the clock the chain keeps those with which it began.
TEST(broken_chain, keeps_its_seeds_from_the_clock) {
  chain_place c({"missing", "three3_t3", "3"}, "2 6 1", "state 0");
  std::string lines = c.place.read("zeph.dir");
  lines.replace(lines.find("1234 5678"), 9, "0 0");
  c.place.write("zeph.dir", lines);
  ASSERT_EQ(c.go(), 0) << c.listing;
  const std::string whole = c.place.read("gib.samples");
  c.take_up();
  c.ask_for("2 9 1");
  ASSERT_EQ(c.go(), 0) << c.listing;
  EXPECT_TRUE(c.place.read("gib.samples").starts_with(whole));
  EXPECT_GT(c.place.read("gib.samples").size(), whole.size());
}

} // namespace
