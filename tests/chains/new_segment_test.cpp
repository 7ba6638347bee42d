// The directory of a segment, and what keeps it from being made.
#include "chains/new_segment.h"
#include "chains/processes.h"
#include "chains/study_case.h"

#include <gtest/gtest.h>

namespace {

using namespace zeph::chains;
using namespace zeph_test;

// A work directory of two files, and a study beside it.
struct bare_study {
  bare_study() {
    std::filesystem::create_directories(place / "work");
    std::filesystem::create_directories(place / "runs");
    place.write("work/MODINF", "model");
    place.write("work/zeph.dir", "3 0\n1 2\n20 40 2\n1 8\n");
    s.work = "../work";
    s.directive = "zeph.dir";
    s.inputs = {{"MODINF", 5, ""}, {"zeph.dir", 18, ""}};
    r.chain = r.segment = 1;
    r.seeds = {11, 12};
    r.rounds = 30;
    r.interval = 3;
  }
  bool make() { return make_segment(place / "runs", s, r, getpid(), fault); }

  scratch_directory place;
  study s;
  segment_record r;
  std::string fault;
};

TEST(make_segment, links_inputs_and_writes_its_own_directives) {
  bare_study b;
  ASSERT_TRUE(b.make()) << b.fault;
  EXPECT_EQ(std::filesystem::read_symlink(b.place / "runs/chain1/seg1/MODINF"), "../../../work/MODINF");
  EXPECT_EQ(b.place.read("runs/chain1/seg1/zeph.dir"), "3 0\n11 12\n0 30 3\n1 8\n");
  EXPECT_FALSE(std::filesystem::is_symlink(b.place / "runs/chain1/seg1/zeph.dir"));
  EXPECT_EQ(b.place.read("work/zeph.dir"), "3 0\n1 2\n20 40 2\n1 8\n");
  EXPECT_FALSE(b.place.has("runs/chain1/seg1/oldsol"));
  process_record p;
  ASSERT_TRUE(read_process(b.place / "runs/chain1/seg1", p));
  EXPECT_EQ(p.pid, getpid());
  EXPECT_EQ(life_of(p), process_life::alive);
}

TEST(make_segment, takes_the_state_of_the_segment_before) {
  bare_study b;
  b.r.segment = 4;
  ASSERT_TRUE(b.make()) << b.fault;
  EXPECT_EQ(std::filesystem::read_symlink(b.place / "runs/chain1/seg4/oldsol"), "../seg3/lastsol");
  EXPECT_EQ(std::filesystem::read_symlink(b.place / "runs/chain1/seg4/r_parm"), "../seg3/gparlast");
}

TEST(make_segment, does_not_touch_one_that_lives_or_has_results) {
  bare_study b;
  ASSERT_TRUE(b.make()); // this process lives
  EXPECT_FALSE(b.make());
  EXPECT_EQ(b.fault, (b.place / "runs/chain1/seg1") + " exists and is not used again");
  std::filesystem::remove(b.place / "runs/chain1/seg1/process");
  EXPECT_TRUE(b.make()) << b.fault; // it never began
  b.place.write("runs/chain1/seg1/listing.txt", " ZEPH\n");
  std::filesystem::remove(b.place / "runs/chain1/seg1/process");
  EXPECT_FALSE(b.make());
}

TEST(make_segment, leaves_nothing_when_it_fails) {
  bare_study b;
  std::filesystem::remove(b.place / "work/zeph.dir");
  EXPECT_FALSE(b.make());
  EXPECT_EQ(b.fault, "can't read " + (b.place / "work/zeph.dir"));
  std::filesystem::remove_all(b.place / "work");
  EXPECT_FALSE(b.make());
  EXPECT_TRUE(std::filesystem::is_empty(b.place / "runs/chain1"));
}

// A limit of the size of files acts as a full disk.
const std::string full_disk = "trap '' XFSZ; ulimit -f 0; ";

TEST(a_full_disk, is_reported_before_anything_runs) {
  const study_case c;
  c.prepare();
  said_by_program said = shell("cd " + c.place.path() + " && { " + full_disk + programs() +
                               "zeph-chains run work --into runs; } | cat");
  EXPECT_TRUE(says(said, "zeph-chains: can't write runs/chains.toml\n"));
  EXPECT_FALSE(c.has("runs/chain1"));
  ASSERT_EQ(c.chains("run work --chains 1 --into runs2").exit_code, 0);
  std::filesystem::remove_all(c.place / "runs2/chain1");
  said = shell("cd " + c.place.path() + " && { " + full_disk + programs() +
               "zeph-chains advance runs2 --chain 1 --process 1; } | cat");
  EXPECT_TRUE(says(said, "zeph-chains: can't write in runs2/chain1/seg1."));
  EXPECT_FALSE(c.has("runs2/chain1/seg1"));
}

TEST(a_batch_file_that_cannot_be_written, is_reported) {
  const study_case c;
  c.prepare();
  ASSERT_EQ(c.chains("run work --chains 1 --into runs").exit_code, 0);
  c.place.write("runs/slurm", "in the way");
  const said_by_program said = c.chains("continue runs --rounds 10 --slurm ''");
  EXPECT_EQ(said.exit_code, 1);
  EXPECT_TRUE(says(said, "can't write runs/slurm/start1.sh\n"));
}

// A directory in the place of STOP; the node that runs the chain is not this one.
TEST(stop, reports_where_it_cannot_write) {
  const study_case c;
  c.prepare();
  ASSERT_EQ(c.chains("run work --chains 1 --into runs").exit_code, 0);
  std::filesystem::remove(c.place / "runs/chain1/seg1/exit");
  c.place.write("runs/chain1/seg1/process", "host node7\npid 999999999\nbegun 1\njob -\n");
  std::filesystem::create_directory(c.place / "runs/chain1/seg1/STOP");
  const said_by_program said = c.chains("stop runs");
  EXPECT_EQ(said.exit_code, 1);
  EXPECT_TRUE(says(said, "zeph-chains: can't write runs/chain1/seg1/STOP\n"));
  EXPECT_TRUE(says(c.chains("continue runs --rounds 10"),
                   "zeph-chains: chain 1, segment 1 runs on node7 as far as is known (last sign of life "));
}

} // namespace
