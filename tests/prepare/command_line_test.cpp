// The program zeph-prepare itself: exit codes, and what it writes or leaves alone.
#include "support/places.h"
#include "support/scratch_directory.h"

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdlib>

namespace {

using zeph_test::scratch_directory;

const std::string PROGRAM = zeph_test::binary_folder() + "/bin/zeph-prepare";
const std::string MODEL = "[data]\nfile = \"d.csv\"\n[trait.y]\nformula = \"1 + sex\"\n";

class command_line : public testing::Test {
protected:
  void SetUp() override {
    place.write("model.toml", MODEL);
    place.write("d.csv", "sex,y\n1,3\n2,5\n2,6\n");
  }
  // Runs in the scratch directory; both outputs go to the file `said`.
  int run(const std::string& arguments) const {
    const std::string command = "cd " + place.path() + " && " + PROGRAM + " " + arguments + " > said 2>&1";
    return WEXITSTATUS(std::system(command.c_str()));
  }
  bool said(const std::string& text) const { return place.read("said").find(text) != std::string::npos; }

  scratch_directory place;
};

TEST_F(command_line, writes_the_directory_and_says_how_to_run) {
  EXPECT_EQ(run("model.toml --into work"), 0);
  EXPECT_TRUE(place.has("work/MODINF"));
  EXPECT_TRUE(place.has("work/names.json"));
  EXPECT_TRUE(said("Written to work: 8 files\nRun: cd work && ZEPH\n")) << place.read("said");
}

TEST_F(command_line, names_the_way_to_several_chains_of_a_model_that_is_sampled) {
  place.write("d.csv", "sex,y\n1,3\n2,5\n2,6\n1,4\n");
  place.write("model.toml", MODEL + "[run]\nanalysis = \"gibbs\"\nseeds = [1, 2]\n");
  EXPECT_EQ(run("model.toml --into work"), 0) << place.read("said");
  EXPECT_TRUE(said("Run: cd work && ZEPH\nSeveral chains: zeph-chains run work --chains 4\n"))
      << place.read("said");
}

// A chain of 40 rounds that is prepared again for 100 has the samples of one of 100 rounds.
TEST_F(command_line, continues_a_chain_from_its_saved_state_with_more_rounds) {
  const auto zeph = [&](const std::string& work) {
    return WEXITSTATUS(std::system(
        ("cd " + place / work + " && " + zeph_test::binary_folder() + "/bin/ZEPH > listing 2>&1").c_str()));
  };
  const auto describe = [&](const std::string& rounds, const std::string& more) {
    place.write("model.toml", MODEL + "[run]\nanalysis = \"gibbs\"\nsampler = \"exact\"\nstate_every = 5\n" +
                                  "seeds = [1, 2]\nburnin = 10\ninterval = 2\nrounds = " + rounds + "\n" +
                                  more);
  };
  place.write("d.csv", "sex,y\n1,3\n2,5\n2,6\n1,4\n2,5.5\n1,2\n2,7\n");
  describe("40", "");
  ASSERT_EQ(run("model.toml --into work"), 0) << place.read("said");
  EXPECT_TRUE(said("Sampler: exact, state 5, moves\n")) << place.read("said");
  ASSERT_EQ(zeph("work"), 0) << place.read("work/listing");
  ASSERT_TRUE(place.has("work/statelast"));

  describe("100", "continue = true\n");
  EXPECT_EQ(run("model.toml --into work"), 1);
  EXPECT_TRUE(said("model.toml:13:12: error: the chain continues from its saved state, and work/r_state is "
                   "missing: mv statelast r_state\n"))
      << place.read("said");
  std::filesystem::rename(place / "work/statelast", place / "work/r_state");
  ASSERT_EQ(run("model.toml --into work"), 0) << place.read("said");
  EXPECT_FALSE(said("beware")) << place.read("said");
  ASSERT_EQ(zeph("work"), 0) << place.read("work/listing");

  describe("100", "");
  ASSERT_EQ(run("model.toml --into whole"), 0) << place.read("said");
  ASSERT_EQ(zeph("whole"), 0) << place.read("whole/listing");
  const std::string samples = place.read("whole/gib.samples");
  EXPECT_FALSE(samples.empty());
  for (const char* file : {"gib.samples", "gparout", "lastsol", "waic"})
    EXPECT_EQ(place.read(std::string("work/") + file), place.read(std::string("whole/") + file)) << file;
  EXPECT_EQ(run("model.toml --into work"), 0);
  EXPECT_TRUE(said("beware: r_state is present: a run that saves its state would continue that chain\n"))
      << place.read("said");
}

// Nothing is said of the sampler: the chain saves its state, and that is what is continued.
TEST_F(command_line, continues_from_the_saved_state_unless_none_is_saved) {
  const auto describe = [&](const std::string& more) {
    place.write("model.toml",
                MODEL + "[run]\nanalysis = \"gibbs\"\nseeds = [1, 2]\ncontinue = true\n" + more);
  };
  place.write("d.csv", "sex,y\n1,3\n2,5\n2,6\n1,4\n2,5.5\n1,2\n2,7\n");
  describe("");
  EXPECT_EQ(run("model.toml --into work"), 1);
  EXPECT_TRUE(
      said("model.toml:8:12: error: the chain continues from its saved state, and work/r_state is missing: "
           "mv statelast r_state\n   continue = true\n              ^ without a saved state: state_every = "
           "false\n"))
      << place.read("said");
  const std::string how = "To continue the chain of that directory: cp lastsol oldsol; cp gparlast r_parm\n";
  describe("state_every = false\n");
  EXPECT_EQ(run("model.toml --into work"), 0);
  EXPECT_TRUE(said("an exact chain continues from its saved state alone")) << place.read("said");
  EXPECT_TRUE(said("Sampler: classic, moves\n")) << place.read("said");
  EXPECT_TRUE(said(how)) << place.read("said");
  EXPECT_EQ(place.read("work/sampler"), "moves\n");
  describe("sampler = \"classic\"\n");
  EXPECT_EQ(run("model.toml --into work"), 0);
  EXPECT_FALSE(place.has("work/sampler"));
  EXPECT_FALSE(said("warning")) << place.read("said");
  EXPECT_TRUE(said(how)) << place.read("said");
}

TEST_F(command_line, names_the_directory_after_the_description) {
  EXPECT_EQ(run("model.toml"), 0);
  EXPECT_TRUE(place.has("model/MODINF"));
}

TEST_F(command_line, check_writes_nothing) {
  EXPECT_EQ(run("model.toml --into work --check"), 0);
  EXPECT_FALSE(place.has("work"));
  EXPECT_TRUE(said("Records of d.csv: 3 read, 3 used"));
  EXPECT_TRUE(said("Checked only, nothing was written"));
}

TEST_F(command_line, fault_in_the_description_ends_with_1_and_writes_nothing) {
  place.write("model.toml", "[data]\nfile = \"d.csv\"\nmising = [\"x\"]\n[trait.y]\nformula = \"1 + sex\"\n");
  EXPECT_EQ(run("model.toml --into work"), 1);
  EXPECT_FALSE(place.has("work"));
  EXPECT_TRUE(said("unknown key \"mising\"")) << place.read("said");
}

TEST_F(command_line, fault_in_the_data_ends_with_1_and_writes_nothing) {
  place.write("d.csv", "sex,y\n1,3\n2,12x\n2,6\n");
  EXPECT_EQ(run("model.toml --into work"), 1);
  EXPECT_FALSE(place.has("work"));
  EXPECT_TRUE(said("d.csv:3: error: \"12x\" in column y is not a number")) << place.read("said");
  EXPECT_TRUE(said("nothing was written: 1 error\n"));
}

// With errors there is no prepare.txt: only --all shows what the screen leaves out.
TEST_F(command_line, all_lifts_the_limit_of_ten_messages_and_the_messages_name_it) {
  std::string data = "sex,y\n";
  for (int k = 1; k <= 13; ++k) data += "1,x" + std::to_string(k) + "\n";
  place.write("d.csv", data);
  EXPECT_EQ(run("model.toml --into work"), 1);
  EXPECT_TRUE(said("and 3 more of this kind (--all lists them)")) << place.read("said");
  EXPECT_FALSE(said("prepare.txt")) << place.read("said");
  EXPECT_FALSE(said("\"x11\""));
  EXPECT_EQ(run("model.toml --into work --all"), 1);
  EXPECT_TRUE(said("\"x13\" in column y is not a number")) << place.read("said");
  EXPECT_FALSE(said("more of this kind"));
}

TEST_F(command_line, fault_of_the_command_line_or_of_a_file_ends_with_2) {
  EXPECT_EQ(run(""), 2);
  EXPECT_TRUE(said("zeph-prepare: model is required; see --help\n")) << place.read("said");
  EXPECT_EQ(run("model.toml --no-such-option"), 2);
  EXPECT_EQ(run("absent.toml"), 2);
  EXPECT_TRUE(said("can't read absent.toml: there is no such file\n"));
  place.write("plain", "");
  EXPECT_EQ(run("model.toml --into plain"), 2);
  EXPECT_TRUE(said("can't make the directory plain: there is a file of that name\n")) << place.read("said");
}

TEST_F(command_line, a_file_that_cannot_be_written_is_reported_with_the_reason) {
  std::filesystem::create_directories(place / "work/RCDATA_R"); // a folder where a file should be
  EXPECT_EQ(run("model.toml --into work"), 2);
  EXPECT_TRUE(said("zeph-prepare: can't write work/RCDATA_R: Is a directory\n"
                   "nothing was written to work\n"))
      << place.read("said");
}

TEST_F(command_line, help_and_version_end_with_0) {
  EXPECT_EQ(run("--help"), 0);
  EXPECT_TRUE(said("--prune"));
  for (const char* kind : {"gaussian", "censored", "ordered", "binary", "indicator", "sequence", "cured"})
    EXPECT_TRUE(said('"' + std::string(kind) + '"')) << kind;
  EXPECT_EQ(run("--version"), 0);
  EXPECT_TRUE(said("zeph-prepare "));
}

} // namespace
