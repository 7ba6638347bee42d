// What zeph-watch reports of directories; those of running chains are made by hand.
#include "watch/watch_lines.h"
#include "watch/watch_loop.h"

#include "chains/processes.h"
#include "support/scratch_directory.h"

#include <gtest/gtest.h>

#include <chrono>
#include <unistd.h>

namespace {

using namespace zeph::watch;
using namespace zeph::chains;
using zeph_test::scratch_directory;

std::string status(std::int64_t round, std::int64_t of,
                   const std::string& model = "           2           2") {
  const auto field = [](std::int64_t n) {
    const std::string text = std::to_string(n);
    return std::string(12 - text.size(), ' ') + text;
  };
  return "Current round is" + field(round) + "out of" + field(of) + "in model" + model + "\n";
}

// A study of two chains, burn-in 100 and 1000 rounds, of which the first runs in this very process.
struct study_of_two {
  study_of_two() {
    s.version = "0.1.0";
    s.analysis = 3;
    s.burnin = 100;
    s.rounds = 1000;
    s.chains = {{1, {11, 12}, 1100}, {2, {13, 14}, 1100}};
    s.inputs = {{"MODINF", 1, "0"}};
    s.starts = {{"run", "", "here", 2, "", "", {}}};
    s.work = "work";
    std::filesystem::create_directories(place / "work");
    write();
    begin(1, 1, {});
  }
  void write() const {
    std::string fault;
    EXPECT_TRUE(write_study(place.path(), s, fault)) << fault;
  }
  void begin(int chain, int segment, segment_record r) const {
    const fs::path directory = segment_directory(place.path(), chain, segment);
    fs::create_directories(directory);
    r.chain = chain;
    r.segment = segment;
    if (r.rounds == 0) r.burnin = 100, r.rounds = 1000;
    std::string fault;
    EXPECT_TRUE(write_segment(directory, r, fault)) << fault;
    EXPECT_TRUE(write_process(directory, record_of_process(getpid(), "")));
    put(chain, segment, "listing.txt", " ZEPH\n");
  }
  void put(int chain, int segment, const std::string& file, const std::string& text) const {
    place.write("chain" + std::to_string(chain) + "/seg" + std::to_string(segment) + "/" + file, text);
  }
  std::vector<watched_chain> chains() const {
    std::vector<watched_chain> all;
    std::string fault;
    EXPECT_TRUE(chains_in(place.path(), all, fault)) << fault;
    return all;
  }

  scratch_directory place;
  study s;
};

std::string look(watched_chain& c, double now) {
  look_again(c, now);
  return line_of(c);
}

TEST(a_study, is_watched_chain_by_chain) {
  const study_of_two t;
  std::vector<watched_chain> all = t.chains();
  ASSERT_EQ(all.size(), 2U);
  EXPECT_EQ(look(all[0], 10), "chain 1  starting");
  EXPECT_EQ(look(all[1], 10), "chain 2  waits");
  t.put(1, 1, "status", status(40, 1100));
  EXPECT_EQ(look(all[0], 11), "chain 1  burn-in  round 40 of 1100");
  t.put(1, 1, "status", status(140, 1100));
  EXPECT_EQ(look(all[0], 21),
            "chain 1  sampling  round 140 of 1100  10/s  1:36 left"); // 960 rounds at 10 a second
  t.put(1, 1, "STOP", "");
  EXPECT_EQ(look(all[0], 21), "chain 1  stopping  round 140 of 1100  10/s  1:36 left");
}

TEST(a_status_that_is_missing_for_a_moment, leaves_the_line_as_it_was) {
  const study_of_two t;
  std::vector<watched_chain> all = t.chains();
  t.put(1, 1, "status", status(140, 1100));
  look(all[0], 10);
  fs::remove(t.place / "chain1/seg1/status");
  EXPECT_EQ(look(all[0], 11), "chain 1  sampling  round 140 of 1100");
  t.put(1, 1, "status", "Current round is         15"); // half written
  EXPECT_EQ(look(all[0], 12), "chain 1  sampling  round 140 of 1100");
}

TEST(a_continued_chain, is_shown_with_the_rounds_of_the_whole_chain) {
  const study_of_two t;
  segment_record two;
  two.first = 350;
  two.shift = 1;
  two.rounds = 750;
  t.begin(1, 2, two);
  std::vector<watched_chain> all = t.chains();
  t.put(1, 2, "status", status(400, 750));
  EXPECT_EQ(look(all[0], 10), "chain 1  sampling  round 401 of 1100");
}

// In the same directory: the status of the run before is removed, and the new one begins at the saved state.
TEST(a_resumed_chain, is_starting_again_and_shown_from_where_it_continues) {
  const study_of_two t;
  std::vector<watched_chain> all = t.chains();
  t.put(1, 1, "status", status(140, 1100));
  t.put(1, 1, "exit", "137\n");
  EXPECT_EQ(look(all[0], 10), "chain 1  killed  round 140 of 1100");
  fs::remove(t.place / "chain1/seg1/exit");
  fs::remove(t.place / "chain1/seg1/status");
  EXPECT_EQ(look(all[0], 11), "chain 1  starting  round 140 of 1100");
  EXPECT_EQ(look(all[0], 12), "chain 1  starting  round 140 of 1100");
  t.put(1, 1, "status", status(131, 1100));
  EXPECT_EQ(look(all[0], 20), "chain 1  sampling  round 131 of 1100");
  t.put(1, 1, "status", status(141, 1100));
  EXPECT_EQ(look(all[0], 30), "chain 1  sampling  round 141 of 1100  1.0/s  15:59 left"); // 959 rounds
}

TEST(no_sign_of_life, is_reported_after_a_minute_without_a_new_round) {
  const study_of_two t;
  std::vector<watched_chain> all = t.chains();
  t.put(1, 1, "status", status(140, 1100));
  look(all[0], 1000);
  EXPECT_EQ(look(all[0], 1059), "chain 1  sampling  round 140 of 1100");
  EXPECT_EQ(look(all[0], 1360), "chain 1  sampling  round 140 of 1100  no sign of life for 6 min");
  EXPECT_EQ(look(all[0], 1000 + 3 * 3600), "chain 1  sampling  round 140 of 1100  no sign of life for 3 h");
  t.put(1, 1, "status", status(141, 1100));
  EXPECT_EQ(look(all[0], 20000).find("no sign"), std::string::npos);
}

TEST(no_sign_of_life, is_reported_at_the_first_look_by_the_age_of_the_file) {
  const study_of_two t;
  std::vector<watched_chain> all = t.chains();
  t.put(1, 1, "status", status(140, 1100));
  fs::last_write_time(t.place / "chain1/seg1/status",
                      fs::file_time_type::clock::now() - std::chrono::minutes(10));
  EXPECT_EQ(look(all[0], 10000), "chain 1  sampling  round 140 of 1100  no sign of life for 10 min");
}

TEST(ends, are_reported_by_their_kind) {
  const study_of_two t;
  std::vector<watched_chain> all = t.chains();
  t.put(1, 1, "status", status(140, 1100));
  t.put(1, 1, "exit", "16\n");
  EXPECT_EQ(look(all[0], 10), "chain 1  failed  round 140 of 1100  ended with exit code 16: ZEPH");
  EXPECT_EQ(all[0].look.now, life::ended);
  t.put(1, 1, "exit", "137\n");
  EXPECT_EQ(look(all[0], 11).substr(0, 15), "chain 1  killed");
  t.put(1, 1, "exit", "0\n");
  const std::int32_t saved[3] = {4, 499, 4};
  t.put(1, 1, "gparlast", {reinterpret_cast<const char*>(saved), sizeof saved});
  t.put(1, 1, "status", "Program ZEPH has concluded\n");
  EXPECT_EQ(look(all[0], 12), "chain 1  stopped  round 500 of 1100");
}

TEST(mixture_proportions, are_those_of_the_last_whole_row_with_the_names_of_their_traits) {
  const study_of_two t;
  t.put(1, 1, "status", status(140, 1100));
  t.put(1, 1, "mix_pi", " 130 0.5 0.25 0.5\n 140 0.5 0.125 0.5\n 150 0.5 0.9");
  std::vector<watched_chain> all = t.chains();
  EXPECT_EQ(look(all[0], 10), "chain 1  sampling  round 140 of 1100  pi[1] 0.500  pi[2] 0.125  pi[3] 0.500");
  t.place.write("work/names.json", R"({"traits": [{"name": "y", "kind": "gaussian", "indicator": ""},
    {"name": "scs", "kind": "gaussian", "indicator": "infected"}, {"name": "sick", "kind": "sequence"}]})");
  all = t.chains();
  EXPECT_EQ(look(all[0], 10), "chain 1  sampling  round 140 of 1100  pi[infected] 0.125  pi[sick] 0.500");
  t.place.write("work/names.json",
                R"({"traits": [{"name": "y"}, {"name": "z"}, {"name": "x"}]})"); // names none
  all = t.chains();
  EXPECT_EQ(look(all[0], 10), "chain 1  sampling  round 140 of 1100  pi[1] 0.500  pi[2] 0.125  pi[3] 0.500");
}

TEST(the_model, is_shown_of_chains_that_move_between_models) {
  study_of_two t;
  t.put(1, 1, "status", status(140, 1100, "           2           1           2"));
  std::vector<watched_chain> all = t.chains();
  EXPECT_EQ(look(all[0], 10), "chain 1  sampling  round 140 of 1100");
  t.s.analysis = 6;
  t.write();
  all = t.chains();
  EXPECT_EQ(look(all[0], 10), "chain 1  sampling  round 140 of 1100  model 2 1 2");
}

TEST(a_directory_of_one_run, is_watched_by_its_status_alone) {
  const scratch_directory place;
  std::vector<watched_chain> all;
  std::string fault;
  EXPECT_FALSE(chains_in(place.path(), all, fault));
  EXPECT_EQ(fault, place.path() + " holds neither chains nor a run of ZEPH");
  place.write("status", "Program QVAgib initializing\n");
  ASSERT_TRUE(chains_in(place.path(), all, fault)) << fault;
  EXPECT_EQ(look(all[0], 10), place.path() + "  starting");
  place.write("status", status(10, 500));
  EXPECT_EQ(look(all[0], 11), place.path() + "  running  round 10 of 500");
  place.write("status", status(700, 500)); // continued: the count is that of its own rounds
  EXPECT_EQ(look(all[0], 12).substr(place.path().size(), 20), "  running  round 700");
  place.write("status", "Program ZEPH has concluded\n");
  EXPECT_EQ(look(all[0], 13), place.path() + "  complete  round 700");
  EXPECT_EQ(all[0].look.now, life::ended);
}

TEST(a_damaged_study, is_reported) {
  const study_of_two t;
  t.place.write("chains.toml", "version = 3\n");
  std::vector<watched_chain> all;
  std::string fault;
  EXPECT_FALSE(chains_in(t.place.path(), all, fault));
  EXPECT_NE(fault.find("chains.toml: key \"version\" is missing or damaged"), std::string::npos) << fault;
}

TEST(stop_running, creates_STOP_in_running_chains_and_in_the_study_only) {
  const study_of_two t;
  t.begin(2, 1, {});
  t.put(2, 1, "exit", "16\n");
  std::vector<watched_chain> all = t.chains();
  for (watched_chain& c : all) look(c, 10);
  EXPECT_EQ(stop_running(all), 1);
  EXPECT_TRUE(t.place.has("STOP"));
  EXPECT_TRUE(t.place.has("chain1/seg1/STOP"));
  EXPECT_FALSE(t.place.has("chain2/seg1/STOP"));
}

TEST(lines_of, name_the_directory_when_several_studies_are_watched) {
  const study_of_two t, u;
  std::vector<watched_chain> all = t.chains();
  EXPECT_EQ(lines_of(all)[0], "chain 1  waits");
  for (const watched_chain& c : u.chains()) all.push_back(c);
  EXPECT_EQ(lines_of(all)[2], u.place.path() + "  chain 1  waits");
}

} // namespace
