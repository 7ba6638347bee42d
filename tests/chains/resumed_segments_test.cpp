// Segments that are continued in their own directories, held against chains that were never broken: every
// file but the listing, `status` and the records of the segment has the same bytes.
#include "chains/segment_processes.h"
#include "chains/study_case.h"
#include "chains/study_records.h"

#include <gtest/gtest.h>

#include <map>
#include <set>

namespace {

using namespace zeph_test;
namespace fs = std::filesystem;

using named_files = std::map<std::string, std::string>; // bytes by name

// A study of one of the work directories of the tests, which saves its state every ten minutes and at the
// end.
struct resumed_case : study_case {
  explicit resumed_case(const std::string& name, const std::string& more_words = "") {
    fs::copy(source_folder() + "/tests/data/workdirs/" + name, place / "work");
    place.write("work/sampler", "state 10\n" + more_words);
  }
  // Third line of the directive file, and type of analysis where it isn't that of the directory.
  void ask_for(const std::string& rounds, const std::string& type = "") const {
    std::istringstream lines(file("work/zeph.dir"));
    std::string text, line;
    for (int n = 1; std::getline(lines, line); ++n) {
      if (n == 1 && !type.empty()) line.replace(0, line.find(' '), type);
      text += (n == 3 ? rounds : line) + "\n";
    }
    place.write("work/zeph.dir", text);
  }
  // What a segment holds beside the links to its inputs and the files of its course.
  named_files results(const std::string& segment) const {
    static const std::set<std::string> other = {"listing.txt", "status", "segment.toml", "process",
                                                "r_state"};
    named_files out;
    for (const auto& entry : fs::directory_iterator(place / segment))
      if (const std::string name = entry.path().filename(); !entry.is_symlink() && !other.contains(name))
        out[name] = bytes_of(entry.path().string());
    return out;
  }
  zeph::chains::segment_record record(const std::string& segment) const {
    zeph::chains::segment_record r;
    std::string fault;
    EXPECT_TRUE(zeph::chains::read_segment(place / segment, r, fault)) << fault;
    return r;
  }
  // Begins a command, waits until rows of the first chain are there, and ends it by the signal.
  int interrupt(const std::vector<std::string>& words, int signal) const {
    std::vector<std::string> all = {programs() + "zeph-chains"};
    all.insert(all.end(), words.begin(), words.end());
    const std::size_t before = file(first + "py").size();
    const std::string listing = file(first + "listing.txt");
    background_program chains(all, place / "said");
    EXPECT_TRUE(soon([&] {
      return file(first + "listing.txt").size() > listing.size() && file(first + "py").size() > before + 100;
    })) << file("said");
    return chains.end(signal);
  }
  // Kills the chain that an `interrupt` by SIGKILL has left running.
  void kill_chain() const {
    const pid_t around = shell_of(place / first);
    ASSERT_GT(around, 1) << file("said") << file(first + "listing.txt");
    ::kill(-around, SIGKILL);
    ASSERT_TRUE(soon([&] { return chains("status runs").has("chain 1  seg 1  killed"); }));
  }
  // Puts things as a run leaves them that was killed some time after a save: the state that it has begun from
  // is one that it has saved.
  void take_for_saved() const { fs::rename(place / (first + "r_state"), place / (first + "statelast")); }

  const std::string first = "runs/chain1/seg1/";
};

std::vector<std::string> differing_files(const named_files& a, const named_files& b) {
  std::set<std::string> names;
  for (const auto& [name, bytes] : a)
    if (!b.contains(name) || b.at(name) != bytes) names.insert(name);
  for (const auto& entry : b)
    if (!a.contains(entry.first)) names.insert(entry.first);
  return {names.begin(), names.end()};
}

struct chain_kind {
  std::string name, work, rounds, type;
  std::string words = ""; // of the file sampler, beside state
};

void PrintTo(const chain_kind& kind, std::ostream* out) { *out << kind.name; }

class resumed_chain : public testing::TestWithParam<chain_kind> {};

// Stopped, killed before the next save, killed after one, and ended.
TEST_P(resumed_chain, ends_with_the_bytes_of_the_unbroken_one) {
  const resumed_case c(GetParam().work, GetParam().words);
  c.ask_for(GetParam().rounds, GetParam().type);
  const std::string runs = c.place / "runs";
  EXPECT_EQ(c.interrupt({"run", c.place / "work", "--chains", "1", "--into", runs}, SIGINT), 3);
  ASSERT_TRUE(c.has(c.first + "statelast")) << c.file(c.first + "listing.txt");
  EXPECT_TRUE(says(c.chains("status runs"), "chain 1  seg 1  stopped  round "));

  for (int kills = 1; kills <= 2; ++kills) {
    EXPECT_EQ(c.interrupt({"continue", runs}, SIGKILL), 128 + SIGKILL);
    EXPECT_TRUE(c.has(c.first + "r_state"));
    EXPECT_FALSE(c.has(c.first + "STOP"));
    c.kill_chain();
    EXPECT_FALSE(c.has(c.first + "exit"));
    EXPECT_TRUE(says(c.chains("status runs"), "chain 1  seg 1  killed, saved after round "));
    if (kills == 2) c.take_for_saved();
  }
  const said_by_program on = c.chains("continue runs");
  EXPECT_EQ(on.exit_code, 0) << on.text;
  EXPECT_TRUE(says(on, "chain 1  seg 1 continues after round "));
  EXPECT_TRUE(says(on, "chain 1  complete, round "));
  EXPECT_FALSE(c.has("runs/chain1/seg2"));
  EXPECT_EQ(c.record(c.first).resumes.size(), 3U);

  ASSERT_EQ(c.chains("run work --chains 1 --into whole").exit_code, 0);
  const named_files whole = c.results("whole/chain1/seg1");
  EXPECT_TRUE(whole.contains("statelast") && whole.contains("zeph.dir") && whole.contains("lastsol"));
  EXPECT_EQ(differing_files(c.results(c.first), whole), std::vector<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(of, resumed_chain,
                         testing::Values(chain_kind{"missing_values", "three3_t3", "20 40000 5", ""},
                                         chain_kind{"mixture", "mix2_t3", "20 20000 5", ""},
                                         chain_kind{"exact_censored", "cens2_t3", "20 20000 5", "",
                                                    "exact\n"},
                                         chain_kind{"jump", "jumpI3_t6", "20 24000 3", ""},
                                         chain_kind{"given_matrices", "cat3_t3", "20 24000 4", "2"}),
                         [](const auto& info) { return info.param.name; });

int times_in(const std::string& text, const std::string& part) {
  int n = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) ++n;
  return n;
}

// More rounds twice, against a chain that was begun with the sum. The rounds asked for are those beyond where
// the chain is.
class longer_chain : public testing::TestWithParam<chain_kind> {};

TEST_P(longer_chain, equals_one_that_began_with_all_rounds) {
  const resumed_case c(GetParam().work, GetParam().words);
  c.ask_for("4 10 2", GetParam().type);
  ASSERT_EQ(c.chains("run work --chains 2 --into runs").exit_code, 0);
  EXPECT_TRUE(says(c.chains("continue runs"), "all chains are complete; --rounds N asks for more"));
  EXPECT_TRUE(says(c.chains("continue runs --rounds 6"), "chain 2  seg 1 continues after round 14, seeds "));
  EXPECT_TRUE(says(c.chains("continue runs --rounds 8"), "chain 2  complete, round 28, 12 samples kept"));
  EXPECT_EQ(c.record(c.first).rounds, 24);
  ASSERT_EQ(c.record(c.first).resumes.size(), 2U);
  EXPECT_EQ(c.record(c.first).resumes[0].after, 14);
  EXPECT_EQ(c.record(c.first).resumes[0].rounds, 16);
  EXPECT_EQ(c.record(c.first).resumes[1].after, 20);
  EXPECT_EQ(c.record(c.first).resumes[1].rounds, 24);
  c.ask_for("4 24 2", GetParam().type);
  ASSERT_EQ(c.chains("run work --chains 2 --into whole").exit_code, 0);
  for (const char* chain : {"chain1", "chain2"}) {
    const std::string segment = std::string("/") + chain + "/seg1";
    EXPECT_EQ(differing_files(c.results("runs" + segment), c.results("whole" + segment)),
              std::vector<std::string>{});
  }
  // the listings of all runs are kept, one after another
  const std::string listing = c.file(c.first + "listing.txt");
  EXPECT_EQ(times_in(listing, "The chain continues from r_state after round "), 2);
  EXPECT_EQ(times_in(listing, " End of ZEPH"), 3);
}

// Of every kind and type that was refused without a state, and some that were not.
INSTANTIATE_TEST_SUITE_P(of, longer_chain,
                         testing::Values(chain_kind{"missing_values", "three3_t3", "", ""},
                                         chain_kind{"given_matrices", "three3_t3", "", "2"},
                                         chain_kind{"ordered", "cat3_t3", "", ""},
                                         chain_kind{"exact_ordered", "cat3_t3", "", "", "exact\n"},
                                         chain_kind{"censored", "cens2_t3", "", ""},
                                         chain_kind{"mixture", "mix2_t3", "", ""},
                                         chain_kind{"cure", "cure_t3", "", ""},
                                         chain_kind{"jump", "jumpI3_t6", "", ""}),
                         [](const auto& info) { return info.param.name; });

TEST(a_chain_for_each_model, gets_more_rounds_in_the_last_one_and_says_so) {
  const resumed_case c("jumpI3_t6");
  c.ask_for("2 10 2", "5");
  ASSERT_EQ(c.chains("run work --chains 1 --into runs").exit_code, 0);
  EXPECT_TRUE(says(c.chains("status runs"), "complete  round 12 of 12"));
  const said_by_program said = c.chains("continue runs --rounds 4");
  EXPECT_EQ(said.exit_code, 0) << said.text;
  EXPECT_TRUE(says(said,
                   "Models whose chains have ended keep their rounds: those asked for are of the model in "
                   "force and of those after it\n"));
  EXPECT_TRUE(says(said, "chain 1  complete, round 16, "));
}

// A stop in the last round of a model that is not the last one is no end.
TEST(a_chain_for_each_model, is_continued_through_all_models_after_stops) {
  const resumed_case c("jumpI3_t6");
  c.ask_for("2 3000 2", "5");
  EXPECT_EQ(c.interrupt({"run", c.place / "work", "--chains", "1", "--into", c.place / "runs"}, SIGTERM), 3);
  EXPECT_TRUE(says(c.chains("continue runs"), "chain 1  complete, round 3002, "));
  ASSERT_EQ(c.chains("run work --chains 1 --into whole").exit_code, 0);
  EXPECT_EQ(differing_files(c.results(c.first), c.results("whole/chain1/seg1")), std::vector<std::string>{});
}

TEST(a_chain_stopped_in_its_burnin, ends_it_in_the_same_segment) {
  const resumed_case c("three3_t3");
  c.ask_for("15000 40 2");
  background_program chains(
      {programs() + "zeph-chains", "run", c.place / "work", "--chains", "1", "--into", c.place / "runs"},
      c.place / "said");
  ASSERT_TRUE(soon([&] { return c.file(c.first + "status").starts_with("Current"); }));
  EXPECT_EQ(chains.end(SIGINT), 3);
  EXPECT_TRUE(says(c.chains("continue runs"), "chain 1  complete, round 15040, 20 samples kept"));
  EXPECT_FALSE(c.has("runs/chain1/seg2"));
  ASSERT_EQ(c.chains("run work --chains 1 --into whole").exit_code, 0);
  EXPECT_EQ(differing_files(c.results(c.first), c.results("whole/chain1/seg1")), std::vector<std::string>{});
}

// Rounds asked for after a stop are beyond the stop, those after a kill beyond the state.
TEST(rounds_asked_for, are_counted_from_where_the_chain_is) {
  const resumed_case c("three3_t3");
  c.ask_for("20 80000000 10");
  EXPECT_EQ(c.interrupt({"run", c.place / "work", "--chains", "1", "--into", c.place / "runs"}, SIGINT), 3);
  const std::string said = c.chains("status runs").text;
  const std::size_t at = said.find("stopped  round ");
  ASSERT_NE(at, std::string::npos) << said;
  const long stopped = std::stol(said.substr(at + 15));
  EXPECT_EQ(c.interrupt({"continue", c.place / "runs"}, SIGKILL), 128 + SIGKILL);
  c.kill_chain();
  EXPECT_TRUE(says(c.chains("continue runs --rounds 30"),
                   "chain 1  complete, round " + std::to_string(stopped + 30) + ", "));
  EXPECT_EQ(c.record(c.first).rounds, stopped + 10); // 20 rounds of burn-in
}

// ---- what is refused, and what is not touched

TEST(a_chain_killed_before_its_first_save, is_refused_with_a_way_on) {
  const resumed_case c("three3_t3");
  c.ask_for("20 80000000 10");
  EXPECT_EQ(c.interrupt({"run", c.place / "work", "--chains", "1", "--into", c.place / "runs"}, SIGKILL),
            128 + SIGKILL);
  c.kill_chain();
  const std::string samples = c.file(c.first + "gib.samples");
  const said_by_program said = c.chains("continue runs --rounds 100");
  EXPECT_EQ(said.exit_code, 1);
  EXPECT_TRUE(says(said, "zeph-chains: chain 1, segment 1 was killed in round "));
  EXPECT_TRUE(says(said, " of 80000020, before it saved its first state\nNothing was started."));
  EXPECT_TRUE(says(said, "move its directory away"));
  EXPECT_EQ(c.file(c.first + "gib.samples"), samples);
}

// A shell around ZEPH may be killed without it: then its chain still runs.
TEST(a_chain_that_still_runs, is_never_touched) {
  const resumed_case c("three3_t3");
  c.ask_for("20 80000000 10");
  const std::vector<std::string> go_on = {"continue", c.place / "runs"};
  EXPECT_EQ(c.interrupt({"run", c.place / "work", "--chains", "1", "--into", c.place / "runs"}, SIGINT), 3);
  EXPECT_EQ(c.interrupt(go_on, SIGKILL), 128 + SIGKILL);
  const pid_t around = shell_of(c.place / c.first);
  ASSERT_GT(around, 1);
  const std::vector<pid_t> zeph = children_of(around);
  ASSERT_EQ(zeph.size(), 1U);
  for (int shells = 1; shells >= 0; --shells) {
    const said_by_program said = c.chains("continue runs");
    EXPECT_EQ(said.exit_code, 1);
    EXPECT_TRUE(says(said, "zeph-chains: chain 1, segment 1 is running (process " +
                               std::to_string(shells == 1 ? around : zeph[0]) + ")\nNothing was started."));
    EXPECT_TRUE(c.has(c.first + "r_state"));
    if (shells == 1) ::kill(around, SIGKILL);
  }
  EXPECT_TRUE(says(c.chains("stop runs"), "asked 1 chain to stop"));
  ASSERT_TRUE(soon([&] { return c.chains("status runs").has("chain 1  seg 1  killed"); }));
  // STOP ended it with its state saved, and nobody has kept its exit code
  EXPECT_TRUE(c.has(c.first + "statelast"));
  EXPECT_TRUE(says(c.chains("continue runs --rounds 20"), "1 chain complete"));
}

TEST(two_calls_at_once, do_not_both_continue_a_chain) {
  const resumed_case c("three3_t3");
  c.ask_for("20 80000000 10");
  EXPECT_EQ(c.interrupt({"run", c.place / "work", "--chains", "1", "--into", c.place / "runs"}, SIGINT), 3);
  background_program one({programs() + "zeph-chains", "continue", c.place / "runs"}, c.place / "one"),
      two({programs() + "zeph-chains", "continue", c.place / "runs"}, c.place / "two");
  ASSERT_TRUE(soon([&] {
    return (c.file("one") + c.file("two")).find("segment 1 is running") != std::string::npos;
  })) << c.file("one")
      << c.file("two");
  EXPECT_TRUE(says(c.chains("stop runs"), "asked 1 chain to stop"));
  const std::set<int> codes = {one.wait(), two.wait()};
  EXPECT_EQ(codes, (std::set<int>{1, 3})) << c.file("one") << c.file("two");
  EXPECT_EQ(c.record(c.first).resumes.size(), 1U);
}

// A byte of a state is changed on the disk: ZEPH says so, its words are shown, and its files stay.
TEST(a_damaged_state, is_refused_in_the_words_of_ZEPH) {
  const resumed_case c("three3_t3");
  c.ask_for("4 10 2");
  ASSERT_EQ(c.chains("run work --chains 2 --into runs").exit_code, 0);
  std::string state = c.file(c.first + "statelast");
  state[state.size() / 2] ^= 1;
  c.place.write(c.first + "statelast", state);
  const std::string samples = c.file(c.first + "gib.samples");
  const said_by_program said = c.chains("continue runs --rounds 4");
  EXPECT_EQ(said.exit_code, 1);
  EXPECT_TRUE(
      says(said, "chain 1  seg 1 ended with exit code 16: ERROR - Illegal input in r_state: checksum = "));
  EXPECT_TRUE(says(said, "chain 2  complete, round 18, 7 samples kept"));
  EXPECT_EQ(c.file(c.first + "gib.samples"), samples);
  // nothing at all is left of it
  c.place.remove(c.first + "r_state");
  c.place.write(c.first + "statelast", "");
  EXPECT_TRUE(says(c.chains("continue runs"), "Illegal input in r_state: head = "));
  // without it the segment is one that has failed
  c.place.remove(c.first + "r_state");
  EXPECT_TRUE(says(c.chains("continue runs"), "zeph-chains: chain 1, segment 1 ended with exit code 16: "));
}

// A file that grew with the chain was lost.
TEST(a_lost_file_of_samples, is_reported_in_the_words_of_ZEPH) {
  const resumed_case c("three3_t3");
  c.ask_for("4 10 2");
  ASSERT_EQ(c.chains("run work --chains 1 --into runs").exit_code, 0);
  c.place.remove(c.first + "gib.samples");
  EXPECT_TRUE(says(c.chains("continue runs --rounds 4"),
                   "ERROR - Illegal input in r_state: length of gib.samples = no file, legal: at least "));
}

// ---- segments without the whole state, in a study that saves it

// The state was thrown away; the classic chain begins a second segment from lastsol and gparlast, which then
// is continued in its own directory.
TEST(a_segment_whose_state_is_gone, is_continued_from_its_other_files) {
  const resumed_case c("mix2_t3");
  c.ask_for("4 10 2");
  ASSERT_EQ(c.chains("run work --chains 1 --into runs").exit_code, 0);
  c.place.remove(c.first + "statelast");
  EXPECT_TRUE(says(c.chains("continue runs --rounds 4"), "chain 1  seg 2 starts at round 15, "));
  EXPECT_TRUE(c.has("runs/chain1/seg2/oldsol"));
  EXPECT_TRUE(says(c.chains("continue runs --rounds 6"), "chain 1  seg 2 continues after round 18, "));
  EXPECT_FALSE(c.has("runs/chain1/seg2/oldsol"));
  EXPECT_FALSE(c.has("runs/chain1/seg2/r_parm"));
  fs::rename(c.place / "runs/chain1/seg2", c.place / "parts");
  fs::remove(c.place / (c.first + "statelast"));
  ASSERT_EQ(c.chains("continue runs").exit_code, 0);
  EXPECT_EQ(differing_files(c.results("parts"), c.results("runs/chain1/seg2")), std::vector<std::string>{});
  EXPECT_EQ(joined_rows(c, "runs/chain1").size() % 10, 0U);
}

TEST(an_exact_chain_without_state, is_refused) {
  const resumed_case c("three3_t3");
  c.place.write("work/sampler", "exact\n");
  c.ask_for("4 10 2");
  ASSERT_EQ(c.chains("run work --chains 1 --into runs").exit_code, 0);
  EXPECT_TRUE(
      says(c.chains("continue runs --rounds 4"),
           "a chain with the word exact in sampler can't be continued from the files of its segments"));
}

} // namespace
