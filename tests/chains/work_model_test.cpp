// What is read of a work directory, held against what zeph-prepare and ZEPH write.
#include "chains/state_files.h"
#include "chains/study_case.h"
#include "chains/work_model.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using namespace zeph::chains;
using namespace zeph_test;

work_model model_in(const std::string& directory) {
  work_model m;
  std::string fault;
  EXPECT_TRUE(read_work_model(directory, m, fault)) << fault;
  return m;
}

std::string fault_in(const std::string& directory) {
  work_model m;
  std::string fault;
  EXPECT_FALSE(read_work_model(directory, m, fault));
  return fault;
}

TEST(read_work_model, finds_directives_and_equations) {
  const study_case c;
  c.prepare();
  const work_model m = model_in(c.place / "work");
  EXPECT_EQ(m.directive_name, "zeph.dir");
  EXPECT_EQ(m.directives.seeds, (seed_pair{11, 12}));
  EXPECT_EQ(m.directives.nround, 200);
  EXPECT_EQ(m.types, (std::vector<std::int32_t>{1, 1}));
  EXPECT_EQ(m.neq, 1 + 2 + 1 - 1 + 2 * 10); // means, sexes (one of which is left out), breeding values
}

TEST(read_work_model, reports_what_is_missing) {
  const study_case c;
  c.prepare();
  for (const std::string name : {"MODINF", "RCDATA_I", "RCDATA_R", "CODE_TABLE"}) {
    std::filesystem::rename(c.place / ("work/" + name), c.place / "away");
    EXPECT_EQ(fault_in(c.place / "work"),
              (c.place / "work") + " is not a work directory: " + name + " is missing");
    std::filesystem::rename(c.place / "away", c.place / ("work/" + name));
  }
  const std::string directives = c.file("work/zeph.dir");
  c.place.remove("work/zeph.dir");
  EXPECT_EQ(fault_in(c.place / "work"), "can't read the directive file " + (c.place / "work/zeph.dir"));
  c.place.write("work/zeph.dir", "3 0\n11\n");
  EXPECT_EQ(fault_in(c.place / "work"),
            (c.place / "work/zeph.dir") + ": line 2 should hold the seeds A and B");
  c.place.write("work/zeph.dir", directives);
  const std::string modinf = c.file("work/MODINF");
  c.place.write("work/MODINF", modinf.substr(0, 500));
  EXPECT_TRUE(
      fault_in(c.place / "work").starts_with("can't read the model in " + (c.place / "work/MODINF") + ":\n"));
}

TEST(read_work_model, wants_the_directive_file_in_the_directory_itself) {
  const study_case c;
  c.prepare();
  const std::string modinf = c.file("work/MODINF");
  const auto named = [&](std::string name) {
    name.resize(200, ' ');
    std::string bytes = modinf;
    bytes.replace(bytes.find("zeph.dir"), 200, name);
    c.place.write("work/MODINF", bytes);
    return fault_in(c.place / "work");
  };
  EXPECT_EQ(named("DUMMY"), (c.place / "work/MODINF") + " names no directive file");
  EXPECT_EQ(named("/tmp/zeph.dir"),
            "the directive file \"/tmp/zeph.dir\" is not in " + (c.place / "work") + " itself");
}

TEST(input_names, are_those_that_ZEPH_reads_and_those_of_the_preparation) {
  const study_case c;
  c.prepare();
  for (const char* name : {"oldsol", "r_parm", "STOP", "gib.samples", "lastsol", "AINVx", "HINV1"})
    c.place.write(std::string("work/") + name, "x");
  EXPECT_EQ(
      input_names(c.place / "work", model_in(c.place / "work")),
      (std::vector<std::string>{"AINV1", "CODE_TABLE", "HINV1", "MODINF", "PEDFILE1", "RCDATA_I", "RCDATA_R",
                                "codes_animal.csv", "codes_fixed.csv", "names.json", "prepare.txt"}));
  c.place.remove("work/names.json"); // made by another program
  EXPECT_EQ(input_names(c.place / "work", model_in(c.place / "work")),
            (std::vector<std::string>{"AINV1", "CODE_TABLE", "HINV1", "MODINF", "PEDFILE1", "RCDATA_I",
                                      "RCDATA_R"}));
}

// It makes another chain of the directory, so that every segment has it; saved states are of one run.
TEST(input_names, have_the_file_sampler_and_no_saved_state) {
  const study_case c;
  c.prepare();
  EXPECT_FALSE(model_in(c.place / "work").exact);
  for (const char* name : {"r_state", "statelast"}) c.place.write(std::string("work/") + name, "x");
  c.place.write("work/sampler", "# exact\nstate 5\n");
  EXPECT_FALSE(model_in(c.place / "work").exact);
  c.place.write("work/sampler", "state 5\n exact # from today on\n");
  EXPECT_TRUE(model_in(c.place / "work").exact);
  const std::vector<std::string> names = input_names(c.place / "work", model_in(c.place / "work"));
  EXPECT_EQ(std::ranges::count(names, "sampler"), 1);
  EXPECT_EQ(std::ranges::count(names, "r_state") + std::ranges::count(names, "statelast"), 0);
}

TEST(changed_inputs, has_the_file_sampler_once_the_chain_takes_other_steps) {
  const study_case c;
  c.prepare();
  c.place.write("work/sampler", "state 10\nmoves\n");
  study s;
  std::string fault;
  ASSERT_TRUE(print_inputs(c.place / "work", input_names(c.place / "work", model_in(c.place / "work")),
                           s.inputs, fault));
  EXPECT_TRUE(changed_inputs(c.place / "work", s, false).empty());
  c.place.write("work/sampler", "state 10\n#oves\n"); // of the same size
  EXPECT_EQ(changed_inputs(c.place / "work", s, false),
            std::vector<std::string>{(c.place / "work/sampler") + " has changed since the chains began"});
}

TEST(changed_inputs, finds_files_that_are_gone_or_have_other_bytes) {
  const study_case c;
  c.prepare();
  study s;
  std::string fault;
  ASSERT_TRUE(print_inputs(c.place / "work", {"AINV1", "MODINF"}, s.inputs, fault));
  EXPECT_TRUE(changed_inputs(c.place / "work", s, false).empty());
  std::string bytes = c.file("work/AINV1");
  bytes.back() ^= 1;
  c.place.write("work/AINV1", bytes);
  c.place.remove("work/MODINF");
  EXPECT_EQ(changed_inputs(c.place / "work", s, false),
            (std::vector<std::string>{(c.place / "work/AINV1") + " has changed since the chains began",
                                      (c.place / "work/MODINF") + " is gone"}));
  EXPECT_EQ(changed_inputs(c.place / "work", s, true).size(), 1U); // by size alone
  EXPECT_FALSE(print_inputs(c.place / "work", {"MODINF"}, s.inputs, fault));
  EXPECT_EQ(fault, "can't read " + (c.place / "work/MODINF"));
}

// A run of ZEPH in `work`, to its end.
struct finished_run : study_case {
  explicit finished_run(const chain_settings& settings) {
    prepare(settings);
    const said_by_program said = shell("cd " + (place / "work") + " && " + programs() + "ZEPH");
    EXPECT_EQ(said.exit_code, 0) << said.text;
  }
  std::vector<std::string> faults(seed_pair seeds = {11, 12}) const {
    return state_faults(place / "work", model_in(place / "work"), seeds);
  }
  std::string path(const std::string& name) const { return place / ("work/" + name); }
  // The faults after the file has got these bytes; it has its own again then.
  std::vector<std::string> faults_with(const std::string& name, const std::string& bytes) const {
    const std::string own = file("work/" + name);
    place.write("work/" + name, bytes);
    const std::vector<std::string> found = faults();
    place.write("work/" + name, own);
    return found;
  }
};

const chain_settings binary_chain = {20, 40, 2, "[11, 12]", "gibbs", scored("binary")};

TEST(state_faults, finds_none_in_what_ZEPH_saves) {
  EXPECT_EQ(finished_run({}).faults(), std::vector<std::string>());
  EXPECT_EQ(finished_run(binary_chain).faults(), std::vector<std::string>());
}

using lines = std::vector<std::string>;

TEST(state_faults, reports_a_file_that_is_missing_or_cut) {
  const finished_run r({});
  const std::string sol = r.file("work/lastsol"), par = r.file("work/gparlast");
  EXPECT_EQ(r.faults_with("lastsol", ""), lines{r.path("lastsol") + " is damaged"});
  EXPECT_EQ(r.faults_with("lastsol", sol.substr(0, sol.size() - 20)),
            lines{r.path("lastsol") + " ends after 22 of 23 solutions"});
  EXPECT_EQ(r.faults_with("lastsol", sol.substr(0, sol.size() - 7)), // in half a record
            lines{r.path("lastsol") + " ends after 22 of 23 solutions"});
  EXPECT_EQ(r.faults_with("lastsol", sol + sol.substr(sol.size() - 20)),
            lines{r.path("lastsol") + " ends after 24 of 23 solutions"});
  EXPECT_EQ(r.faults_with("gparlast", ""), lines{r.path("gparlast") + " ends before the round"});
  EXPECT_EQ(r.faults_with("gparlast", par.substr(0, par.size() - 1)),
            lines{r.path("gparlast") + " ends before IRESG_M"});
  EXPECT_EQ(r.faults_with("gparlast", par + par.substr(0, 12)),
            lines{r.path("gparlast") + " is longer than the model's"});
  std::filesystem::remove(r.path("lastsol"));
  std::filesystem::remove(r.path("gparlast"));
  EXPECT_EQ(r.faults(), (lines{r.path("lastsol") + " is missing", r.path("gparlast") + " is missing"}));
}

TEST(state_faults, reports_a_state_of_other_seeds_and_of_another_model) {
  const finished_run r({}), other(binary_chain);
  EXPECT_EQ(r.faults({11, 13}),
            lines{r.path("gparlast") + " was left by a chain with seeds 11 12, this one has 11 13"});
  EXPECT_EQ(r.faults_with("lastsol", other.file("work/lastsol")),
            lines{r.path("lastsol") + " holds 12 equations, the model has 23"});
  // one trait: GIF of order 1 in place of 2
  EXPECT_EQ(r.faults_with("gparlast", other.file("work/gparlast")),
            lines{r.path("gparlast") + " holds 8 bytes as GIF, the model has 32"});
}

TEST(saved_round, is_the_first_record_of_gparlast) {
  const finished_run r({});
  std::int64_t round = 0;
  EXPECT_TRUE(saved_round(r.place / "work", round));
  EXPECT_EQ(round, 220);
  r.place.write("work/gparlast", "abc");
  EXPECT_FALSE(saved_round(r.place / "work", round));
}

} // namespace
