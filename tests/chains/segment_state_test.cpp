// Directories as runs of ZEPH leave them, each made by hand.
#include "chains/segment_state.h"
#include "support/scratch_directory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <unistd.h>

namespace {

using namespace zeph::chains;
using zeph_test::scratch_directory;

// A framed record of one 32-bit integer: the beginning of gparlast.
std::string round_record(std::int32_t round) {
  const std::int32_t words[3] = {4, round, 4};
  return {reinterpret_cast<const char*>(words), sizeof words};
}

// The head of a saved state as docs/files.md has it: blocks of a sum, the type, the phase and the round.
std::string state_of(std::int32_t analysis, std::int64_t round) {
  std::string text = "ZEPH state 1";
  const auto bytes = [&](const void* x, std::size_t n) { text.append(static_cast<const char*>(x), n); };
  const auto block = [&](const std::string& name, std::int32_t size, std::int64_t count, const void* x) {
    const auto n = static_cast<std::int32_t>(name.size());
    bytes(&n, 4);
    bytes(name.data(), name.size());
    bytes(&size, 4);
    bytes(&count, 8);
    bytes(x, static_cast<std::size_t>(size * count));
  };
  const std::int32_t phase = 1;
  block("SHA-256 of MODINF", 1, 64, std::string(64, 'a').data());
  block("analysis type", 4, 1, &analysis);
  block("phase", 4, 1, &phase);
  block("round", 8, 1, &round);
  return text;
}

// Segment 2 of a chain, rounds 101 to 300 in its files.
struct segment_case {
  segment_case() {
    std::string fault;
    EXPECT_TRUE(write_segment(place.path(), {1, 2, {11, 12}, 0, 200, 10, 101, 1, true}, fault)) << fault;
  }
  segment_state look() const {
    segment_state s;
    std::string fault;
    EXPECT_TRUE(look_at_segment(place.path(), s, fault)) << fault;
    return s;
  }
  void begun() const { place.write("listing.txt", " ZEPH\n\nERROR - something\n\nZEPH terminates.\n\n"); }
  void process(const process_record& p) const { EXPECT_TRUE(write_process(place.path(), p)); }
  // A process of this machine that has ended: its pid lives again with another begin.
  process_record gone() const { return {host_name(), getpid(), 1, ""}; }

  scratch_directory place;
};

TEST(look_at_segment, reports_a_segment_that_never_began) {
  const segment_case c;
  EXPECT_EQ(c.look().phase, segment_phase::not_begun);
  c.process(c.gone());
  EXPECT_EQ(c.look().phase, segment_phase::not_begun);
  EXPECT_EQ(c.look().text(), "was made, but never began");
  EXPECT_EQ(c.look().round, 100);
}

TEST(look_at_segment, reports_a_process_that_lives_and_the_round_of_its_status) {
  const segment_case c;
  c.begun();
  c.process(record_of_process(getpid(), ""));
  c.place.write("status", "Current round is        140 out of        200 in model           2           2\n");
  const segment_state s = c.look();
  EXPECT_EQ(s.phase, segment_phase::running);
  EXPECT_EQ(s.round, 140);
  EXPECT_EQ(s.status.of, 200);
  EXPECT_EQ(s.status.model, (std::vector<int>{2, 2}));
  EXPECT_LT(s.status.age, 60);
  EXPECT_EQ(s.text(), "is running (process " + std::to_string(getpid()) + ")");
  c.process(record_of_process(getpid(), "12_3"));
  EXPECT_EQ(c.look().text(), "is running (job 12_3 on " + host_name() + ")");
}

TEST(look_at_segment, does_not_take_a_pid_that_is_used_again_for_the_process) {
  const segment_case c;
  c.begun();
  c.process(c.gone());
  c.place.write("status", "Current round is        140 out of        200 in model           2\n");
  EXPECT_EQ(c.look().phase, segment_phase::killed);
  EXPECT_EQ(c.look().text(), "was killed in round 140 of 300");
}

TEST(look_at_segment, leaves_open_what_runs_on_another_host_or_without_a_process) {
  const segment_case c;
  c.begun();
  c.place.write("status", "Program QVAgib initializing\n");
  EXPECT_EQ(c.look().phase, segment_phase::unknown);
  EXPECT_EQ(c.look().text(), "may be running (last sign of life 0 s ago)");
  c.process({"node7", 77, 5, ""});
  EXPECT_EQ(c.look().phase, segment_phase::unknown);
  EXPECT_TRUE(c.look().live());
  EXPECT_EQ(c.look().text(), "runs on node7 as far as is known (last sign of life 0 s ago)");
  std::filesystem::last_write_time(c.place / "status",
                                   std::filesystem::file_time_type::clock::now() - std::chrono::minutes(6));
  EXPECT_EQ(c.look().text(), "runs on node7 as far as is known (last sign of life 6 min ago)");
}

TEST(look_at_segment, separates_a_full_count_from_a_stop_by_the_saved_round) {
  const segment_case c;
  c.begun();
  c.place.write("exit", "0\n");
  c.place.write("status", "Program ZEPH has concluded\n");
  c.place.write("gparlast", round_record(300));
  EXPECT_EQ(c.look().phase, segment_phase::finished);
  EXPECT_EQ(c.look().round, 300);
  EXPECT_EQ(c.look().text(), "is finished, round 300");
  c.place.write("gparlast", round_record(159)); // stopped in 160: the round before is saved
  EXPECT_EQ(c.look().phase, segment_phase::stopped);
  EXPECT_EQ(c.look().round, 160);
  EXPECT_EQ(c.look().text(), "was stopped in round 160 of 300");
  c.place.write("gparlast", round_record(299)); // stopped in the last round
  EXPECT_EQ(c.look().phase, segment_phase::stopped);
  EXPECT_EQ(c.look().round, 300);
}

TEST(look_at_segment, reads_the_end_of_a_run_without_saved_state_from_listing_and_py) {
  const segment_case c;
  c.place.write("exit", "0\n");
  c.place.write("listing.txt", " End of ZEPH\n");
  c.place.write("py", " 110 2 5.0\n 120 2 5.0\n");
  EXPECT_EQ(c.look().phase, segment_phase::finished);
  EXPECT_EQ(c.look().round, 300);
  c.place.write("listing.txt", "Stop signal received. Processing ends graciously\n");
  EXPECT_EQ(c.look().phase, segment_phase::stopped);
  EXPECT_EQ(c.look().round, 120);
}

TEST(look_at_segment, reports_failures_with_the_last_words_and_kills_by_signals) {
  const segment_case c;
  c.begun();
  c.place.write("exit", "16\n");
  EXPECT_EQ(c.look().phase, segment_phase::failed);
  EXPECT_EQ(c.look().text(), "ended with exit code 16: ERROR - something");
  for (const char* code : {"2\n", "27\n", "127\n"}) {
    c.place.write("exit", code);
    EXPECT_EQ(c.look().phase, segment_phase::failed) << code;
  }
  c.place.write("exit", "137\n");
  EXPECT_EQ(c.look().phase, segment_phase::killed);
}

TEST(look_at_segment, takes_the_round_of_an_end_from_the_saved_state) {
  const segment_case c;
  c.begun();
  c.place.write("exit", "0\n");
  c.place.write("gparlast", round_record(159));
  c.place.write("statelast", state_of(3, 160));
  EXPECT_EQ(c.look().phase, segment_phase::stopped);
  EXPECT_EQ(c.look().round, 160);
  c.place.write("statelast", state_of(3, 300));
  c.place.write("r_state", state_of(3, 160)); // an older one
  EXPECT_EQ(c.look().phase, segment_phase::finished);
  EXPECT_EQ(c.look().saved.round, 300);
  // a chain for each model: the last round of one that is not the last one
  const std::string stop = "Stop signal received. Processing ends graceously\n";
  c.place.write("statelast", state_of(5, 300));
  EXPECT_EQ(c.look().phase, segment_phase::finished);
  c.place.write("listing.txt", " ZEPH\n" + stop);
  EXPECT_EQ(c.look().phase, segment_phase::stopped);
  // of a run before
  c.place.write("listing.txt", " ZEPH\n" + stop + " ZEPH\nThe chain continues from r_state after round 20\n");
  EXPECT_EQ(c.look().phase, segment_phase::finished);
}

TEST(look_at_segment, knows_a_killed_one_to_continue_from_its_state) {
  const segment_case c;
  c.begun();
  c.process(c.gone());
  c.place.write("status", "Current round is        190 out of        200 in model           2\n");
  EXPECT_FALSE(c.look().saved.there);
  c.place.write("r_state", state_of(3, 150));
  segment_state s = c.look();
  EXPECT_EQ(s.phase, segment_phase::killed);
  EXPECT_EQ(s.round, 190);
  EXPECT_TRUE(s.saved.known);
  EXPECT_EQ(s.saved.round, 150);
  c.place.remove("status"); // killed before its first round
  EXPECT_EQ(c.look().round, 150);
  c.place.remove("listing.txt"); // thrown away: it has begun all the same
  EXPECT_EQ(c.look().phase, segment_phase::killed);
}

TEST(find_saved_state, does_not_know_what_can_not_be_read) {
  const scratch_directory place;
  EXPECT_FALSE(find_saved_state(place.path()).there);
  const std::string whole = state_of(6, 42);
  place.write("statelast", whole + "and so on");
  EXPECT_EQ(find_saved_state(place.path()).analysis, 6);
  EXPECT_EQ(find_saved_state(place.path()).round, 42);
  std::string long_name = whole, negative = whole, huge = whole;
  long_name[14] = 1; // 65,553 bytes of name
  negative[36] = '\xff';
  huge[44] = 127; // elements of the first block
  for (const std::string& text : {std::string(), whole.substr(0, 12), whole.substr(0, whole.size() - 1),
                                  "zEPH" + whole.substr(4), long_name, negative, huge}) {
    place.write("statelast", text);
    EXPECT_TRUE(find_saved_state(place.path()).there);
    EXPECT_FALSE(find_saved_state(place.path()).known) << text.size();
  }
}

TEST(look_at_segment, needs_segment_toml) {
  const segment_case c;
  c.place.remove("segment.toml");
  segment_state s;
  std::string fault;
  EXPECT_FALSE(look_at_segment(c.place.path(), s, fault));
  EXPECT_EQ(fault, "can't read " + (c.place / "segment.toml"));
}

TEST(read_status, takes_a_line_that_is_not_whole_for_missing) {
  const scratch_directory place;
  EXPECT_EQ(read_status(place.path()).what, status_line::kind::missing);
  place.write("status", "Current round is        140 out");
  EXPECT_EQ(read_status(place.path()).what, status_line::kind::missing);
  place.write("status", "Program ZEPH has concluded\n");
  EXPECT_EQ(read_status(place.path()).what, status_line::kind::concluded);
  place.write("status", "Program QVAgib initializing\n");
  EXPECT_EQ(read_status(place.path()).what, status_line::kind::starting);
}

TEST(last_line_of, is_the_last_whole_line_of_a_file_that_is_being_written) {
  const scratch_directory place;
  place.write("rows", " 1 a\n 2 b\n 3");
  EXPECT_EQ(last_line_of(place / "rows"), "2 b");
  place.write("rows", std::string(20000, 'x') + "\n last\n\n");
  EXPECT_EQ(last_line_of(place / "rows"), "last");
  EXPECT_EQ(last_line_of(place / "absent"), "");
  place.write("py", "1\n2\n3\n4");
  EXPECT_EQ(sample_rounds_in(place.path()), 3);
}

} // namespace
