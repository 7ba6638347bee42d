// Each call by which a continued chain writes its files and its state fails once: the listing names the
// file, the exit code is 16, and the state that is there, the former one or the new one, continues to the
// end of the unbroken chain.
#include "faults/small_runs.h"
#include "support/skip_reasons.h"

namespace {

using namespace zeph_test;

constexpr const char* SHORT = "1 3 1";
constexpr const char* WHOLE = "1 6 1";

class each_state : public testing::TestWithParam<small_run> {
protected:
  void SetUp() override {
    if (!calls_can_fail()) GTEST_SKIP() << sanitizer_build;
    file_set input = input_of(GetParam());
    former = end_of(input);
    former["r_state"] = former["statelast"];
    std::string& rounds = input["zeph.dir"];
    rounds.replace(rounds.find(SHORT), 5, WHOLE);
    former["zeph.dir"] = rounds;
    unbroken = end_of(input);
  }
  // What a run on these files leaves.
  file_set end_of(const file_set& files) {
    put_files(place.path(), files);
    const child_end end = run_zeph(place.path());
    EXPECT_EQ(end.code, 0) << end.all();
    return files_in(place.path());
  }
  long calls(const std::string& kind) {
    const scratch_directory counts;
    child_options with;
    with.fault = {kind, 0};
    with.count_file = counts / "count";
    put_files(place.path(), former);
    EXPECT_EQ(run_zeph(place.path(), with).code, 0);
    return std::atol(counts.read("count").c_str());
  }
  // The continued chain with this call failing.
  void fail(const std::string& kind, long n, const std::string& what) {
    child_options with;
    with.fault = {kind, n};
    put_files(place.path(), former);
    const child_end end = run_zeph(place.path(), with);
    EXPECT_EQ(end.code, 16) << what << '\n' << end.all();
    EXPECT_NE(file_named_in(end.listing), "") << what << '\n' << end.listing;
    const std::string left = place.read("statelast");
    EXPECT_TRUE(left == former.at("statelast") || left == unbroken.at("statelast")) << what;
    file_set files = files_in(place.path());
    files["r_state"] = left;
    const file_set continued = end_of(files);
    for (const auto& [name, bytes] : unbroken)
      EXPECT_TRUE(continued.contains(name) && continued.at(name) == bytes) << what << ": " << name;
  }
  void fail_every(const std::string& kind) {
    const long times = calls(kind);
    EXPECT_GT(times, 0);
    for (long n = 1; n <= times && !HasFailure(); ++n)
      fail(kind, n, kind + " " + std::to_string(n) + " of " + std::to_string(times));
  }
  scratch_directory place;
  file_set unbroken, former;
};

TEST_P(each_state, is_whole_after_each_write_that_fails) { fail_every("write"); }
TEST_P(each_state, is_whole_where_the_disk_is_full) { fail_every("full"); }
TEST_P(each_state, is_whole_after_each_close_that_fails) { fail_every("close"); }
TEST_P(each_state, is_whole_after_each_name_that_can_not_be_given) { fail_every("rename"); }
TEST_P(each_state, is_whole_after_each_file_that_can_not_be_opened) { fail_every("open"); }
TEST_P(each_state, is_whole_after_each_file_that_does_not_reach_the_device) { fail_every("sync"); }

INSTANTIATE_TEST_SUITE_P(
    of, each_state,
    testing::Values(small_run{"kept_samples", "herd", SHORT, "", "", {{"sampler", "state 0\n"}}},
                    small_run{"jump", "jumpI3_t6", SHORT, "", "", {{"sampler", "exact\nstate 0\n"}}}),
    [](const auto& info) { return info.param.name; });

} // namespace
