// The batch file under a plain shell, with programs in the places of Slurm's.
#include "chains/segment_processes.h"
#include "chains/slurm_batch.h"
#include "chains/study_case.h"

#include <gtest/gtest.h>

namespace {

using namespace zeph::chains;
using namespace zeph_test;

std::vector<std::string> words_of(const std::string& options) {
  std::vector<std::string> words;
  std::string fault;
  EXPECT_TRUE(split_options(options, words, fault)) << fault;
  return words;
}

std::string fault_of(const std::string& options) {
  std::vector<std::string> words;
  std::string fault;
  EXPECT_FALSE(split_options(options, words, fault));
  return fault;
}

TEST(split_options, takes_words_as_a_shell_does) {
  using words = std::vector<std::string>;
  EXPECT_EQ(words_of(""), words());
  EXPECT_EQ(words_of("  --time=1:00:00   -p long "), (words{"--time=1:00:00", "-p", "long"}));
  EXPECT_EQ(words_of("--comment='a \"b\" c' \"x y\" z\\ z ''"),
            (words{"--comment=a \"b\" c", "x y", "z z", ""}));
}

TEST(split_options, refuses_open_quotations_and_options_that_are_ours) {
  EXPECT_EQ(fault_of("--comment='a"), "--slurm: a quotation is not closed");
  EXPECT_EQ(fault_of("--time=1 --array=1-9"), "--slurm: zeph-chains sets --array=1-9 itself");
  for (const char* option : {"-a1-9", "--wrap=x", "--parsable", "--dependency=afterok:1", "-d"})
    EXPECT_NE(fault_of(option).find("itself"), std::string::npos) << option;
  EXPECT_EQ(words_of("-A account -D dir").size(), 4U);
}

// A study whose sbatch keeps its words, and a folder of programs that take Slurm's places.
struct slurm_case : study_case {
  slurm_case() {
    std::filesystem::create_directory(place / "fake");
    program("sbatch", "echo \"$@\" >> \"$LOG\"; n=$(wc -l < \"$LOG\"); echo $((100 + n))");
    program("squeue", "exit 0");
    program("scancel", "echo \"scancel $*\" >> \"$LOG\"");
  }
  void program(const std::string& name, const std::string& body) const {
    place.write("fake/" + name, "#!/bin/sh\nLOG=" + place.path() + "sbatch.log\n" + body + "\n");
    std::filesystem::permissions(place / ("fake/" + name), std::filesystem::perms::owner_all);
  }
  said_by_program with_slurm(const std::string& arguments) const {
    return shell("cd " + place.path() + " && PATH=" + place.path() + "fake:$PATH " + programs() +
                 "zeph-chains " + arguments);
  }
  // The shell that Slurm would start for a task.
  std::vector<std::string> task(int chain) const {
    return {"/usr/bin/env",
            "PATH=" + place.path() + "fake:/usr/bin:/bin",
            "SLURM_ARRAY_JOB_ID=101",
            "SLURM_ARRAY_TASK_ID=" + std::to_string(chain),
            "/bin/sh",
            place / "runs/slurm/start1.sh"};
  }
  int run_task(int chain) const { return background_program(task(chain), place / "task.txt").wait(); }
};

TEST(run_with_slurm, submits_arrays_of_which_each_waits_for_the_one_before) {
  const slurm_case c;
  c.prepare();
  const said_by_program said =
      c.with_slurm("run work --into runs --chains 3 --slurm '--time=60 -p long' --segments 2");
  EXPECT_EQ(said.exit_code, 0) << said.text;
  EXPECT_TRUE(
      says(said, "Submitted job 101, an array of 3 chains\nSubmitted job 102, an array of 3 chains\n"));
  EXPECT_EQ(c.file("sbatch.log"),
            "--parsable --time=60 -p long runs/slurm/start1.sh\n"
            "--parsable --dependency=aftercorr:101 --kill-on-invalid-dep=yes --time=60 -p long "
            "runs/slurm/start1.sh\n");
  EXPECT_NE(c.file("runs/chains.toml")
                .find("where = \"slurm\"\njobs = 0\noptions = \"--time=60 -p long\"\njob_ids = [\"101\", "
                      "\"102\"]"),
            std::string::npos);
  EXPECT_TRUE(says(said, "Submitted job 102, an array of 3 chains\nTo see them: zeph-watch runs\n"));
  const std::string batch = c.file("runs/slurm/start1.sh");
  for (const char* line :
       {"#!/bin/sh\n", "#SBATCH --job-name=runs\n", "#SBATCH --array=1-3\n", "#SBATCH --signal=B:USR1@120\n",
        "#SBATCH --no-requeue\n", "#SBATCH --open-mode=append\n", "#SBATCH --cpus-per-task=1\n"})
    EXPECT_NE(batch.find(line), std::string::npos) << line;
  EXPECT_EQ(shell("sh -n " + (c.place / "runs/slurm/start1.sh")).exit_code, 0);
}

TEST(run_with_slurm, reports_a_refusal_of_sbatch_and_its_absence) {
  const slurm_case c;
  c.prepare();
  c.program("sbatch", "echo 'sbatch: error: invalid partition specified: long' >&2; exit 1");
  said_by_program said = c.with_slurm("run work --into runs --slurm '-p long'");
  EXPECT_EQ(said.exit_code, 1);
  EXPECT_TRUE(said.has(
      "zeph-chains: sbatch ended with exit code 1: sbatch: error: invalid partition specified: long"))
      << said.text;
  said = shell("cd " + c.place.path() + " && PATH=/nowhere " + programs() +
               "zeph-chains run work --into runs2 --slurm ''");
  EXPECT_EQ(said.exit_code, 1);
  EXPECT_TRUE(says(said, "can't run sbatch: is Slurm installed here?"));
  said = c.with_slurm("run work --into runs3 --slurm '--array=1-2'");
  EXPECT_EQ(said.exit_code, 1);
  EXPECT_TRUE(says(said, "zeph-chains sets --array=1-2 itself"));
  EXPECT_FALSE(c.has("runs3"));
}

TEST(the_batch_file, runs_its_chain_to_the_end_and_does_nothing_more_then) {
  const slurm_case c;
  c.prepare();
  ASSERT_EQ(c.with_slurm("run work --into runs --chains 2 --slurm ''").exit_code, 0);
  EXPECT_EQ(c.run_task(2), 0) << c.file("task.txt");
  EXPECT_EQ(c.file("runs/chain2/seg1/exit"), "0\n");
  EXPECT_NE(c.file("runs/chain2/seg1/process").find("job 101_2\n"), std::string::npos);
  EXPECT_FALSE(c.has("runs/chain1"));
  EXPECT_TRUE(says(c.with_slurm("status runs"), "chain 2  seg 1  complete  round 220 of 220  100 samples"));
  EXPECT_EQ(c.run_task(2), 0);
  EXPECT_FALSE(c.has("runs/chain2/seg2"));
}

TEST(the_batch_file, ends_its_segment_at_the_signal_and_continues_at_the_next_start) {
  const slurm_case c;
  c.prepare({100, 60000, 50});
  ASSERT_EQ(c.with_slurm("run work --into runs --chains 2 --slurm ''").exit_code, 0);
  for (const int signal : {SIGUSR1, SIGTERM}) {
    const std::string segment = signal == SIGUSR1 ? "runs/chain1/seg1/" : "runs/chain1/seg2/";
    background_program task(c.task(1), c.place / "task.txt");
    ASSERT_TRUE(soon([&] { return !c.file(segment + "py").empty(); })) << c.file("task.txt");
    EXPECT_TRUE(says(c.with_slurm("status runs"), "running (job 101_1)"));
    task.send(signal);
    EXPECT_EQ(task.wait(), 0) << c.file("task.txt");
    EXPECT_TRUE(c.has(segment + "STOP"));
    EXPECT_EQ(c.file(segment + "exit"), "0\n");
  }
  EXPECT_EQ(c.run_task(1), 0);
  // the round after a stop is a sample round: it has the number of the stop, a multiple of the interval
  EXPECT_TRUE(
      says(c.with_slurm("status runs"), "chain 1  seg 3  complete  round 60100 of 60100  1201 samples"));
}

// A study of the given rounds whose state is saved, with Slurm.
chain_settings with_state(int rounds) {
  chain_settings c{20, rounds, 10};
  c.state_every = "10";
  return c;
}

// What Slurm does to a task that is pre-empted, or whose node is lost: all its processes are killed at once.
void kill_task(const slurm_case& c, background_program& task, const std::string& segment) {
  const std::string process = c.file(segment + "process");
  for (const pid_t child : children_of(std::stoi(process.substr(process.find("pid ") + 4)))) {
    for (const pid_t zeph : children_of(child)) ::kill(zeph, SIGKILL);
    ::kill(child, SIGKILL);
  }
  EXPECT_EQ(task.end(SIGKILL), 128 + SIGKILL);
}

// The files of the whole chain, but for those of its course.
void expect_files_of(const slurm_case& c, const std::string& whole, const std::string& segment) {
  for (const char* name : {"gib.samples", "py", "gibsol", "solpostmean", "lastsol", "gparlast", "gparout",
                           "statelast", "zeph.dir", "exit"}) {
    EXPECT_NE(c.file(segment + name), "") << name;
    EXPECT_TRUE(c.file(segment + name) == c.file(whole + name)) << name;
  }
}

TEST(a_task_put_back_into_the_queue, resumes_its_segment_wherever_it_begins_again) {
  const slurm_case c;
  c.prepare(with_state(30000));
  ASSERT_EQ(c.with_slurm("run work --into runs --chains 2 --slurm ''").exit_code, 0);
  const std::string batch = c.file("runs/slurm/start1.sh"), segment = "runs/chain1/seg1/";
  EXPECT_NE(batch.find("#SBATCH --requeue\n"), std::string::npos);
  EXPECT_EQ(batch.find("no-requeue"), std::string::npos);
  c.program("squeue", "echo 101_1"); // the task that asks is in the queue itself
  const auto rows = [&] { return c.file(segment + "py").size(); };
  {
    background_program task(c.task(1), c.place / "task.txt");
    ASSERT_TRUE(soon([&] { return rows() > 1000; })) << c.file("task.txt");
    task.send(SIGTERM); // the first notice: STOP, and the state is saved
    EXPECT_EQ(task.wait(), 0) << c.file("task.txt");
    EXPECT_TRUE(c.has(segment + "STOP"));
    EXPECT_TRUE(c.has(segment + "statelast"));
  }
  { // here again, and killed on the way
    background_program task(c.task(1), c.place / "task.txt");
    const std::size_t before = rows();
    ASSERT_TRUE(soon([&] { return c.has(segment + "r_state") && rows() > before + 1000; }));
    kill_task(c, task, segment);
    EXPECT_FALSE(c.has(segment + "exit"));
  }
  // on another node, where nothing is known of the first
  const std::string process = c.file(segment + "process");
  c.place.write(segment + "process", "host node7" + process.substr(process.find('\n')));
  EXPECT_EQ(c.run_task(1), 0) << c.file("task.txt");
  EXPECT_TRUE(
      says(c.with_slurm("status runs"), "chain 1  seg 1  complete  round 30020 of 30020  3000 samples"));
  EXPECT_EQ(c.run_task(1), 0); // nothing is left
  EXPECT_FALSE(c.has("runs/chain1/seg2"));
  ASSERT_EQ(c.chains("run work --chains 1 --into whole").exit_code, 0);
  expect_files_of(c, "whole/chain1/seg1/", segment);
}

TEST(a_task_put_back_into_the_queue, begins_its_segment_again_when_no_state_was_saved) {
  const slurm_case c;
  c.prepare(with_state(6000));
  ASSERT_EQ(c.with_slurm("run work --into runs --chains 1 --slurm ''").exit_code, 0);
  const std::string segment = "runs/chain1/seg1/";
  {
    background_program task(c.task(1), c.place / "task.txt");
    ASSERT_TRUE(soon([&] { return c.file(segment + "py").size() > 100; })) << c.file("task.txt");
    kill_task(c, task, segment);
  }
  EXPECT_TRUE(says(c.with_slurm("continue runs --here"), "before it saved its first state")); // no task asks
  EXPECT_EQ(c.run_task(1), 0) << c.file("task.txt");
  ASSERT_EQ(c.chains("run work --chains 1 --into whole").exit_code, 0);
  expect_files_of(c, "whole/chain1/seg1/", segment);
  EXPECT_NE(c.file(segment + "segment.toml").find("[[resume]]\n"), std::string::npos);
}

TEST(a_task_put_back_into_the_queue, is_refused_when_the_study_saves_no_state) {
  const slurm_case c;
  c.prepare({20, endless, 10});
  ASSERT_EQ(c.with_slurm("run work --into runs --chains 1 --slurm ''").exit_code, 0);
  background_program task(c.task(1), c.place / "task.txt");
  ASSERT_TRUE(soon([&] { return !c.file("runs/chain1/seg1/py").empty(); })) << c.file("task.txt");
  kill_task(c, task, "runs/chain1/seg1/");
  EXPECT_EQ(c.run_task(1), 1);
  EXPECT_NE(c.file("task.txt").find("zeph-chains: chain 1, segment 1 was killed in round "),
            std::string::npos);
}

// A time limit ends the segment; the next array, or `continue`, takes it up.
TEST(the_next_array, resumes_a_segment_that_was_stopped) {
  const slurm_case c;
  c.prepare(with_state(30000));
  ASSERT_EQ(c.with_slurm("run work --into runs --chains 1 --slurm '' --segments 2").exit_code, 0);
  const std::string segment = "runs/chain1/seg1/";
  background_program task(c.task(1), c.place / "task.txt");
  ASSERT_TRUE(soon([&] { return c.file(segment + "py").size() > 100; })) << c.file("task.txt");
  task.send(SIGUSR1);
  EXPECT_EQ(task.wait(), 0) << c.file("task.txt");
  EXPECT_EQ(c.run_task(1), 0) << c.file("task.txt");
  EXPECT_TRUE(says(c.with_slurm("status runs"), "chain 1  seg 1  complete  round 30020 of 30020"));
  ASSERT_EQ(c.chains("run work --chains 1 --into whole").exit_code, 0);
  expect_files_of(c, "whole/chain1/seg1/", segment);
}

TEST(the_batch_file, passes_a_failure_of_ZEPH_on_so_that_the_next_array_does_not_begin) {
  const slurm_case c;
  c.prepare();
  ASSERT_EQ(c.with_slurm("run work --into runs --chains 2 --slurm ''").exit_code, 0);
  const std::string bytes = c.file("work/AINV1");
  c.place.write("work/AINV1", std::string(bytes.size(), '\0')); // of the same size
  EXPECT_EQ(c.run_task(1), 16) << c.file("task.txt");
  EXPECT_EQ(c.file("runs/chain1/seg1/exit"), "16\n");
  EXPECT_TRUE(says(c.with_slurm("status runs"), "ended with exit code 16: "));
  EXPECT_EQ(c.run_task(1), 1); // and no second segment is made
  EXPECT_FALSE(c.has("runs/chain1/seg2"));
}

TEST(the_batch_file, does_not_begin_after_a_stop_and_stop_takes_waiting_tasks_from_the_queue) {
  const slurm_case c;
  c.prepare();
  ASSERT_EQ(c.with_slurm("run work --into runs --chains 2 --slurm ''").exit_code, 0);
  EXPECT_TRUE(says(c.with_slurm("stop runs"), "no chain of runs is running; none will start"));
  EXPECT_NE(c.file("sbatch.log").find("scancel --state=PENDING 101\n"), std::string::npos)
      << c.file("sbatch.log");
  EXPECT_EQ(c.run_task(1), 0);
  EXPECT_FALSE(c.has("runs/chain1"));
  EXPECT_EQ(c.with_slurm("continue runs").exit_code, 0); // as it was begun: with Slurm
  EXPECT_FALSE(c.has("runs/STOP"));
  EXPECT_NE(c.file("sbatch.log").find("start2.sh"), std::string::npos);
  EXPECT_EQ(c.run_task(1), 0);
  EXPECT_TRUE(c.has("runs/chain1/seg1/gib.samples"));
}

TEST(continue_with_slurm, refuses_while_jobs_are_in_the_queue_and_goes_here_when_asked) {
  const slurm_case c;
  c.prepare();
  ASSERT_EQ(c.with_slurm("run work --into runs --chains 2 --slurm ''").exit_code, 0);
  c.program("squeue", "echo 101_2");
  said_by_program said = c.with_slurm("continue runs");
  EXPECT_EQ(said.exit_code, 1);
  EXPECT_TRUE(says(said, "zeph-chains: job 101 is still in Slurm's queue"));
  c.program("squeue",
            "echo 'slurm_load_jobs error: Invalid job id specified' >&2; exit 1"); // forgotten long ago
  said = c.with_slurm("continue runs --here");
  EXPECT_EQ(said.exit_code, 0) << said.text;
  EXPECT_TRUE(says(said, "2 chains complete"));
}

TEST(continue_with_slurm, does_not_need_an_answer_of_squeue) {
  const slurm_case c;
  c.prepare();
  ASSERT_EQ(c.with_slurm("run work --into runs --chains 1 --slurm ''").exit_code, 0);
  c.program("squeue", "echo 'slurm_load_jobs error: Unable to contact slurm controller' >&2; exit 1");
  EXPECT_TRUE(says(c.with_slurm("continue runs --here"), "1 chain complete"));
}

TEST(a_segment_on_another_node, counts_as_killed_once_Slurm_does_not_hold_its_job) {
  const slurm_case c;
  c.prepare({20, endless, 100});
  ASSERT_EQ(c.with_slurm("run work --into runs --chains 1 --slurm ''").exit_code, 0);
  background_program task(c.task(1), c.place / "task.txt");
  ASSERT_TRUE(soon([&] { return !c.file("runs/chain1/seg1/py").empty(); }));
  const std::string process = c.file("runs/chain1/seg1/process");
  c.place.write("runs/chain1/seg1/process", "host node7" + process.substr(process.find('\n')));
  c.program("squeue", "echo 101_1");
  EXPECT_TRUE(
      says(c.with_slurm("status runs"), "runs on node7 as far as is known (last sign of life 0 s ago)"));
  c.program("squeue", "exit 0");
  EXPECT_TRUE(says(c.with_slurm("status runs"), "chain 1  seg 1  killed"));
  task.send(SIGTERM);
  EXPECT_EQ(task.wait(), 0);
}

} // namespace
