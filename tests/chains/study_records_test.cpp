#include "chains/study_records.h"
#include "support/scratch_directory.h"

#include <gtest/gtest.h>

namespace {

using namespace zeph::chains;
using zeph_test::scratch_directory;

study example() {
  study s;
  s.version = "0.1.0";
  s.work = "../we \"quote\" \\ it";
  s.program = "/opt/zeph/ZEPH";
  s.program_sha256 = std::string(64, 'a');
  s.directive = "zeph.dir";
  s.analysis = 3;
  s.burnin = 1000;
  s.rounds = 50000;
  s.interval = 10;
  s.seeds_given = {11, 0};
  s.inputs = {{"MODINF", 7976, std::string(64, 'b')}, {"AINV1", 12, std::string(64, 'c')}};
  s.chains = {{1, {11, 12}, 51000}, {2, {7930, 6019}, 51000}};
  s.starts = {{"run", "2026-11-21 09:30:00", "slurm", 0, "--time=1 -p \"long\"", "d", {"41", "42"}},
              {"continue", "2026-11-22 09:30:00", "here", 2, "", "e", {}}};
  return s;
}

TEST(chains_toml, is_read_back_as_it_was_written) {
  const scratch_directory place;
  const study s = example();
  study back;
  std::string fault;
  ASSERT_TRUE(write_study(place.path(), s, fault)) << fault;
  ASSERT_TRUE(read_study(place.path(), back, fault)) << fault;
  EXPECT_EQ(back.version, s.version);
  EXPECT_EQ(back.work, s.work);
  EXPECT_EQ(back.program, s.program);
  EXPECT_EQ(back.directive, s.directive);
  EXPECT_EQ(back.analysis, 3);
  EXPECT_EQ(back.burnin, 1000);
  EXPECT_EQ(back.rounds, 50000);
  EXPECT_EQ(back.interval, 10);
  EXPECT_EQ(back.seeds_given, s.seeds_given);
  ASSERT_EQ(back.inputs.size(), 2U);
  EXPECT_EQ(back.inputs[0].bytes, 7976);
  EXPECT_EQ(back.inputs[1].sha256, s.inputs[1].sha256);
  ASSERT_EQ(back.chains.size(), 2U);
  EXPECT_EQ(back.chains[1].seeds, s.chains[1].seeds);
  EXPECT_EQ(back.chains[1].last, 51000);
  ASSERT_EQ(back.starts.size(), 2U);
  EXPECT_EQ(back.starts[0].options, s.starts[0].options);
  EXPECT_EQ(back.starts[0].job_ids, s.starts[0].job_ids);
  EXPECT_EQ(back.starts[1].jobs, 2);
  EXPECT_EQ(back.starts[1].program_sha256, "e");
  EXPECT_EQ(back.first_sampled(), 1001);
}

TEST(chains_toml, reports_every_key_that_is_missing) {
  const scratch_directory place;
  std::string fault;
  ASSERT_TRUE(write_study(place.path(), example(), fault));
  const std::string whole = place.read("chains.toml");
  for (const std::string key :
       {"version",  "work",        "program", "program_sha256", "directive", "analysis", "burnin", "rounds",
        "interval", "seeds_given", "file",    "bytes",          "sha256",    "number",   "seeds",  "last",
        "command",  "time",        "where",   "jobs",           "options",   "job_ids"}) {
    std::string damaged = whole;
    const std::size_t at = damaged.find("\n" + key + " = ");
    ASSERT_NE(at, std::string::npos) << key;
    damaged.insert(at + 1, "x_");
    place.write("chains.toml", damaged);
    study s;
    EXPECT_FALSE(read_study(place.path(), s, fault)) << key;
    EXPECT_NE(fault.find("key \"" + key + "\""), std::string::npos) << fault;
    EXPECT_NE(fault.find("is missing or damaged"), std::string::npos) << fault;
  }
}

TEST(chains_toml, reports_values_of_another_kind_tables_that_lack_and_text_that_is_no_TOML) {
  const scratch_directory place;
  std::string fault;
  ASSERT_TRUE(write_study(place.path(), example(), fault));
  const std::string whole = place.read("chains.toml");
  const auto fault_with = [&](const std::string& from, const std::string& to) {
    std::string damaged = whole;
    damaged.replace(damaged.find(from), from.size(), to);
    place.write("chains.toml", damaged);
    study s;
    EXPECT_FALSE(read_study(place.path(), s, fault)) << to;
    return fault;
  };
  EXPECT_NE(fault_with("interval = 10", "interval = 99999999999").find("\"interval\""), std::string::npos);
  EXPECT_NE(fault_with("seeds_given = [11, 0]", "seeds_given = [11]").find("\"seeds_given\""),
            std::string::npos);
  EXPECT_NE(fault_with("job_ids = [\"41\", \"42\"]", "job_ids = [41]").find("\"job_ids\" of [[start]]"),
            std::string::npos);
  EXPECT_NE(fault_with("number = 2", "number = 3").find("\"number\" of [[chain]]"), std::string::npos);
  EXPECT_NE(fault_with("analysis = 3", "analysis = = 3").find("chains.toml:7: "), std::string::npos) << fault;
  place.write("chains.toml", whole.substr(0, whole.find("[[input]]")));
  study s;
  EXPECT_FALSE(read_study(place.path(), s, fault));
  EXPECT_NE(fault.find("\"input\""), std::string::npos) << fault;
  place.remove("chains.toml");
  EXPECT_FALSE(read_study(place.path(), s, fault));
  EXPECT_EQ(fault,
            place.path() + " holds no chains: chains.toml is missing; `zeph-chains run WORK` begins them");
}

TEST(segment_toml, is_read_back_as_it_was_written_and_reports_damage) {
  const scratch_directory place;
  const segment_record r{2, 3, {11, 12}, 0, 5000, 10, 40001, 2, false};
  segment_record back;
  std::string fault;
  ASSERT_TRUE(write_segment(place.path(), r, fault));
  ASSERT_TRUE(read_segment(place.path(), back, fault)) << fault;
  EXPECT_EQ(back.chain, 2);
  EXPECT_EQ(back.segment, 3);
  EXPECT_EQ(back.seeds, r.seeds);
  EXPECT_EQ(back.first, 40001);
  EXPECT_EQ(back.shift, 2);
  EXPECT_FALSE(back.counts);
  EXPECT_EQ(back.last(), 45000);
  EXPECT_TRUE(back.resumes.empty());
  place.write("segment.toml", "chain = 2\n");
  EXPECT_FALSE(read_segment(place.path(), back, fault));
  EXPECT_NE(fault.find("key \"segment\" is missing or damaged"), std::string::npos) << fault;
}

TEST(segment_toml, keeps_every_continuation_in_the_same_directory) {
  const scratch_directory place;
  segment_record r{2, 1, {11, 12}, 20, 300, 10, 1, 0, true}, back;
  r.resumes = {{"2026-11-22 09:30:00", 120, 200}, {"2026-11-23 10:00:00", 220, 300}};
  std::string fault;
  ASSERT_TRUE(write_segment(place.path(), r, fault));
  const std::string text = place.read("segment.toml");
  EXPECT_NE(text.find("rounds = 300\n"), std::string::npos);
  EXPECT_NE(text.find("\n[[resume]]\ntime = \"2026-11-22 09:30:00\"\nafter = 120\nrounds = 200\n"),
            std::string::npos);
  ASSERT_TRUE(read_segment(place.path(), back, fault)) << fault;
  ASSERT_EQ(back.resumes.size(), 2U);
  EXPECT_EQ(back.resumes[1].time, "2026-11-23 10:00:00");
  EXPECT_EQ(back.resumes[1].after, 220);
  EXPECT_EQ(back.resumes[1].rounds, 300);
  std::string damaged = text;
  place.write("segment.toml", damaged.replace(damaged.find("after = 120"), 11, "after = \"\""));
  EXPECT_FALSE(read_segment(place.path(), back, fault));
  EXPECT_NE(fault.find("key \"after\" of [[resume]] is missing or damaged"), std::string::npos) << fault;
}

TEST(records, that_cannot_be_written_are_reported_with_their_file) {
  const scratch_directory place;
  std::string fault;
  EXPECT_FALSE(write_study(place / "absent", example(), fault));
  EXPECT_EQ(fault, "can't write " + (place / "absent/chains.toml"));
  EXPECT_FALSE(write_segment(place / "absent", {}, fault));
  EXPECT_EQ(fault, "can't write " + (place / "absent/segment.toml"));
}

} // namespace
