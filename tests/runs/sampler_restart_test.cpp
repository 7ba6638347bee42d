// Chains that are determined by their seeds: equal seeds give equal files, a chain in
// two parts equals the whole one, and a killed run keeps whole samples.
#include "runs/small_herd.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace zeph_test;

const char* const two_traits = R"toml([trait.y1]
formula = "1 + sex + (1 | animal) + (1 | pen)"
weight = "w1"
[trait.y2]
formula = "1 + (1 | animal) + (1 | pen)"
[factor.animal]
pedigree = "pedigree.csv"
start = [[2.0, 1.0], [1.0, 3.0]]
prior_df = 8
[factor.pen]
start = [[1.0, 0.0], [0.0, 1.0]]
prior_df = 8
[residual]
start = [[3.0, 1.5], [1.5, 4.0]]
groups = "group"
prior_df = 7
)toml";

std::string with_missing(std::string tables) {
  tables.replace(tables.find("[trait.y1]"), 10, "[trait.y1_m]");
  tables.replace(tables.find("[trait.y2]"), 10, "[trait.y2_m]");
  return tables;
}

std::string chain(int burnin, int rounds, int interval, const std::string& tables,
                  const std::string& seeds = "[11, 12]") {
  return "[data]\nfile = \"data.csv\"\n[keep]\nsolutions = true\nresiduals = true\n[run]\nanalysis = "
         "\"gibbs\"\nsampler = \"classic\"\nburnin = " +
         std::to_string(burnin) + "\ninterval = " + std::to_string(interval) +
         "\nrounds = " + std::to_string(rounds) + "\nseeds = " + seeds + "\n" + tables;
}

// The last state of one run becomes the start of the next.
void hand_over(const small_herd& from, const small_herd& to) {
  std::filesystem::copy_file(from.work() + "lastsol", to.work() + "oldsol");
  std::filesystem::copy_file(from.work() + "gparlast", to.work() + "r_parm");
}

// A run that continues where the first one ended.
whole_run continued(const small_herd& first, const small_herd& second, const std::string& toml) {
  second.prepare(toml);
  hand_over(first, second);
  return second.go_on();
}

std::string file_of(const small_herd& herd, const std::string& name) { return bytes_of(herd.work() + name); }

// sol.samples and res.samples without their head record, if any.
std::string records_after(const std::string& bytes, std::size_t head) {
  return bytes.substr(std::min(head, bytes.size()));
}

TEST(chains_of_equal_seeds, leave_equal_bytes_in_every_file) {
  const small_herd one, other;
  for (const small_herd* herd : {&one, &other}) herd->run(chain(20, 60, 3, with_missing(two_traits)));
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(one.work()))
    names.insert(entry.path().filename());
  EXPECT_GE(names.size(), 15U);
  for (const std::string& name : names) {
    if (name == "MODINF" || name == "ZEPH.log" || name == "prepare.txt" ||
        name.find("json") != std::string::npos)
      continue; // hold the time of their making
    EXPECT_EQ(file_of(one, name), file_of(other, name)) << name;
  }
  for (const char* name : {"gib.samples", "sol.samples", "res.samples", "py", "lpm", "gparout", "PAROUT",
                           "gibsol", "solpostmean", "lastsol", "gparlast"})
    EXPECT_NE(file_of(one, name), "") << name;
}

TEST(chains_of_other_seeds, leave_other_samples) {
  const small_herd one, other;
  one.run(chain(0, 10, 1, two_traits));
  other.run(chain(0, 10, 1, two_traits, "[11, 13]"));
  EXPECT_NE(file_of(one, "gib.samples"), file_of(other, "gib.samples"));
}

TEST(a_chain_in_two_parts, equals_the_whole_one_in_every_byte_of_its_samples) {
  const small_herd whole, first, second;
  whole.run(chain(20, 200, 2, two_traits));
  first.run(chain(20, 100, 2, two_traits));
  const whole_run run = continued(first, second, chain(20, 100, 2, two_traits));
  EXPECT_TRUE(run.says("Restart will take up the random sequence"));
  EXPECT_EQ(file_of(first, "gib.samples") + file_of(second, "gib.samples"), file_of(whole, "gib.samples"));
  EXPECT_EQ(file_of(first, "sol.samples") + records_after(file_of(second, "sol.samples"), 12),
            file_of(whole, "sol.samples"));
  EXPECT_EQ(file_of(first, "py") + file_of(second, "py"), file_of(whole, "py"));
  EXPECT_EQ(file_of(second, "lastsol"), file_of(whole, "lastsol"));
  EXPECT_EQ(file_of(second, "gparlast"), file_of(whole, "gparlast"));
}

// After STOP in round n the stored round is n - 1: the number n is used again.
TEST(a_chain_that_was_stopped, continues_with_the_same_values_and_repeats_one_round_number) {
  const small_herd whole, first, second;
  whole.run(chain(0, 11, 1, two_traits));
  first.prepare(chain(0, 100, 1, two_traits));
  first.directory.write("work/STOP", "");
  EXPECT_TRUE(first.go_on().says("Stop signal received. Processing ends graciously"));
  continued(first, second, chain(0, 10, 1, two_traits));
  std::istringstream all(file_of(whole, "gib.samples"));
  std::istringstream parts(file_of(first, "gib.samples") + file_of(second, "gib.samples"));
  std::string row, part;
  std::size_t rows = 0;
  while (std::getline(all, row)) {
    ASSERT_TRUE(std::getline(parts, part));
    EXPECT_EQ(part.substr(8), row.substr(8));
    const int round = std::stoi(row.substr(0, 8));
    EXPECT_EQ(std::stoi(part.substr(0, 8)), round == 1 ? 1 : round - 1);
    ++rows;
  }
  EXPECT_FALSE(std::getline(parts, part));
  EXPECT_EQ(rows, 11U * 12);
}

TEST(a_chain_with_missing_traits, continues_from_imputed_values_that_are_drawn_again) {
  const std::string tables = with_missing(two_traits);
  const small_herd whole, first, second, again;
  whole.run(chain(20, 200, 2, tables));
  first.run(chain(20, 100, 2, tables));
  const whole_run run = continued(first, second, chain(20, 100, 2, tables));
  EXPECT_TRUE(run.says("Restart will take up the random sequence"));
  continued(first, again, chain(20, 100, 2, tables));
  const std::string parts = file_of(first, "gib.samples") + file_of(second, "gib.samples");
  const std::string all = file_of(whole, "gib.samples");
  EXPECT_EQ(parts.size(), all.size());
  EXPECT_NE(parts, all);
  EXPECT_EQ(parts.substr(0, file_of(first, "gib.samples").size()),
            all.substr(0, file_of(first, "gib.samples").size()));
  EXPECT_EQ(file_of(second, "gib.samples"), file_of(again, "gib.samples")); // but always the same
}

TEST(a_chain_with_other_seeds, starts_a_new_sequence_of_matrix_draws) {
  const small_herd first, same, other;
  first.run(chain(20, 10, 1, two_traits));
  continued(first, same, chain(20, 10, 1, two_traits));
  const whole_run run = continued(first, other, chain(20, 10, 1, two_traits, "[11, 13]"));
  EXPECT_TRUE(run.says("Restart will start a new random sequence"));
  EXPECT_NE(file_of(same, "gib.samples"), file_of(other, "gib.samples"));
  // the source of the solutions continues all the same: the first sample of solutions is equal
  EXPECT_EQ(framed_records(same.work() + "sol.samples").at(1),
            framed_records(other.work() + "sol.samples").at(1));
}

// ---- a run that is killed

struct killed_run {
  killed_run() {
    herd.prepare(chain(0, 2000000, 1, two_traits));
    child = ::fork();
    if (child == 0) {
      std::ostringstream listing;
      zeph::run run(listing, herd.work());
      ::_exit(zeph::exit_code_of_run(run));
    }
  }
  // Waits until there are samples of some rounds, at most a minute.
  void kill_after(std::uintmax_t bytes) {
    const auto size = [&] {
      std::error_code none;
      const std::uintmax_t bytes_now = std::filesystem::file_size(herd.work() + "gib.samples", none);
      return none ? 0 : bytes_now;
    };
    for (int i = 0; i < 6000 && size() < bytes; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ::kill(child, SIGKILL);
    ::waitpid(child, &status, 0);
  }
  small_herd herd;
  pid_t child = -1;
  int status = 0;
};

TEST(a_killed_run, keeps_whole_sample_rounds_in_every_file) {
  killed_run run;
  ASSERT_GT(run.child, 0);
  constexpr std::size_t rows = 12, row = 47;
  run.kill_after(50 * rows * row);
  ASSERT_TRUE(WIFSIGNALED(run.status)); // it did not end by itself

  const std::string gib = file_of(run.herd, "gib.samples"), sol = file_of(run.herd, "sol.samples");
  ASSERT_GT(gib.size(), 0U);
  ASSERT_EQ(gib.size() % (rows * row), 0U);
  const std::size_t rounds = gib.size() / (rows * row);
  EXPECT_GE(rounds, 50U);
  for (std::size_t n = 1; n <= rounds; ++n) EXPECT_EQ(std::stoul(gib.substr((n - 1) * rows * row, 8)), n);
  EXPECT_EQ(gib.back(), '\n');

  std::int32_t neq = 0;
  std::memcpy(&neq, sol.data() + 4, 4);
  const std::size_t record = 8 + 4 + 8 * static_cast<std::size_t>(neq);
  EXPECT_EQ((sol.size() - 12) % record, 0U);
  const std::size_t solutions = (sol.size() - 12) / record; // written after the matrices of the round
  EXPECT_TRUE(solutions == rounds || solutions + 1 == rounds) << solutions << " of " << rounds;

  const std::string res = file_of(run.herd, "res.samples"), py = file_of(run.herd, "py");
  EXPECT_EQ(res.size() % (20 * (8 + 4 + 4 + 2 * 8)), 0U);
  EXPECT_EQ(py.back(), '\n');
  const auto lines = static_cast<std::size_t>(std::count(py.begin(), py.end(), '\n')); // written before them
  EXPECT_TRUE(lines == rounds || lines == rounds + 1) << lines << " of " << rounds;
}

} // namespace
