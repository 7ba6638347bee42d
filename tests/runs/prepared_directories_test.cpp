// Work directories that a writer of its own made (tests/data/workdirs): the
// solver's ones give the answers beside them, the others are read whole.
#include "runs/csv_table.h"
#include "runs/two_bodies.h"
#include "runs/whole_run.h"

#include "input/code_table.h"
#include "support/places.h"

#include <cmath>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <tuple>

namespace {

using namespace zeph_test;
namespace fs = std::filesystem;

std::string workdirs() { return zeph_test::source_folder() + "/tests/data/workdirs/"; }

// kind, trait or factor, number or row, code: the columns of an answer
using unknown = std::tuple<std::string, int, int, int>;

struct answer {
  unknown what;
  double value = 0.0;
  bool unique = true;
};

std::vector<answer> answers_in(const std::string& path) {
  std::vector<answer> out;
  std::istringstream in(bytes_of(path));
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with("#")) continue;
    std::istringstream words(line);
    answer a;
    auto& [kind, first, second, code] = a.what;
    words >> kind >> first >> second >> code >> a.value;
    a.unique = line.find("not unique") == std::string::npos;
    out.push_back(a);
  }
  return out;
}

// The codes of an effect's levels from CODE_TABLE, in the order of the levels.
std::vector<int> codes_of(zeph::code_table& table, std::int32_t levels, zeph::reporting& report) {
  std::vector<int> code(static_cast<std::size_t>(levels));
  for (std::int32_t i = 0; i < levels; ++i) {
    const zeph::code_record record = zeph::next_code(table, i + 1, levels, report);
    code.at(static_cast<std::size_t>(record.level - 1)) = record.code;
  }
  return code;
}

// Which equation is what, by the offsets of the model and the code table.
std::map<unknown, std::size_t> equations_of(const zeph::model_records& m, zeph::reporting& report) {
  std::map<unknown, std::size_t> out;
  std::map<std::pair<int, int>, std::vector<int>> class_codes;
  zeph::code_table table;
  zeph::rewind_codes(table, report);
  for (int i = 1; i <= m.nt; ++i)
    for (int j = 1; j <= m.MODEL(i).n_f; ++j) {
      const auto& codes = class_codes[{i, j}] = codes_of(table, m.NLEV(i, j), report);
      if (!m.MODEL(i).INTERCEPT(j)) continue;
      for (std::size_t l = 0; l < codes.size(); ++l)
        out[{"class", i, j, codes[l]}] = static_cast<std::size_t>(m.NBEGF(i, j)) + l;
    }
  for (int k = 1; k <= m.nramat; ++k) {
    const auto codes = codes_of(table, m.NRALEV(k), report);
    const int order = m.RMAT(k).n_rc;
    for (std::size_t l = 0; l < codes.size(); ++l)
      for (int p = 1; p <= order; ++p)
        out[{"random", k, p, codes[l]}] = static_cast<std::size_t>(m.NBEGRA(k)) +
                                          l * static_cast<std::size_t>(order) +
                                          static_cast<std::size_t>(p - 1);
  }
  for (int i = 1; i <= m.nt; ++i)
    for (int j = 1; j <= m.MODEL(i).n_reg; ++j) {
      const auto first = static_cast<std::size_t>(m.NBEGREG(i, j));
      if (m.MODEL(i).REG_TYPE(j) == 0) out[{"reg", i, j, 0}] = first;
      if (m.MODEL(i).REG_TYPE(j) != 1) continue;
      const auto& codes = class_codes.at({i, m.MODEL(i).REG_N_EF_INP(j)});
      for (std::size_t l = 0; l < codes.size(); ++l) out[{"reg", i, j, codes[l]}] = first + l;
    }
  return out;
}

// Holds every answer; returns the largest difference as a share of the largest
// solution. Class effects that hang together: within an effect the difference
// to the answers is one constant, and over the effects of a trait these
// constants cancel, so that contrasts and sums over one level each agree.
double agreement_of(const std::vector<answer>& answers, const std::map<unknown, std::size_t>& equation,
                    const std::vector<double>& solution) {
  double largest = 0.0, error = 0.0;
  std::map<int, std::map<int, std::vector<double>>> shifts; // trait, effect
  for (const answer& a : answers) largest = std::max(largest, std::fabs(a.value));
  for (const answer& a : answers) {
    const auto at = equation.find(a.what);
    if (at == equation.end()) {
      ADD_FAILURE() << "no equation of " << std::get<0>(a.what) << ' ' << std::get<1>(a.what) << ' '
                    << std::get<2>(a.what) << ' ' << std::get<3>(a.what);
      continue;
    }
    const double difference = solution.at(at->second) - a.value;
    if (!a.unique && std::get<0>(a.what) == "class")
      shifts[std::get<1>(a.what)][std::get<2>(a.what)].push_back(difference);
    else
      error = std::max(error, std::fabs(difference));
  }
  for (const auto& [trait, effects] : shifts) {
    double sum = 0.0;
    for (const auto& [effect, all] : effects) {
      for (const double shift : all) error = std::max(error, std::fabs(shift - all.front()));
      sum += all.front();
    }
    error = std::max(error, std::fabs(sum));
  }
  return error / largest;
}

class work_directory : public ::testing::TestWithParam<std::string> {};

TEST_P(work_directory, is_solved_to_its_answers) {
  scratch_directory directory;
  directory.take_files_of(workdirs() + GetParam());
  std::ostringstream listing;
  zeph::run run(listing, directory.path());
  ASSERT_EQ(zeph::exit_code_of_run(run), 0) << listing.str();
  EXPECT_NE(listing.str().find("GS-solver converged"), std::string::npos);
  const std::vector<answer> answers = answers_in(workdirs() + GetParam() + ".answer");
  const std::vector<double> solution = solutions_in(directory.path());
  EXPECT_EQ(answers.size(), solution.size());
  const double error = agreement_of(answers, equations_of(run.model, run.report), solution);
  EXPECT_LT(error, 1e-6);
  RecordProperty("error", std::to_string(error * 1e9) + "e-9");
}

INSTANTIATE_TEST_SUITE_P(solved, work_directory,
                         ::testing::Values("dom_t0", "groups_t0", "order22_effect_t0", "regs_t0", "rr_t0",
                                           "tb_animal", "tb_maternal", "tb_two", "two2_t0", "weights_t0"),
                         [](const auto& set) { return set.param; });

// Directories of other analysis types: the data are read to their last record,
// and the run ends well.
class other_directory : public ::testing::TestWithParam<std::string> {};

TEST_P(other_directory, is_read_whole) {
  scratch_directory directory;
  directory.take_files_of(workdirs() + GetParam());
  const std::size_t records = framed_records(directory / "RCDATA_R").size();
  const whole_run run = run_in(directory.path());
  const std::string label = "No of observations read ...........................";
  const std::size_t at = run.listing.find(label);
  ASSERT_NE(at, std::string::npos) << run.listing;
  EXPECT_EQ(std::stoul(run.listing.substr(at + label.size(), 20)), records);
  EXPECT_FALSE(run.says("Illegal input")) << run.listing;
  EXPECT_EQ(run.exit_code, 0) << run.listing;
}

INSTANTIATE_TEST_SUITE_P(read, other_directory,
                         ::testing::Values("cat3_t3", "cens2_t3", "cure_t3", "feto_t2", "jumpI3_t6",
                                           "mix2_t3", "tdptd_t3", "three3_t3"),
                         [](const auto& set) { return set.param; });

class sampled_directory : public ::testing::TestWithParam<std::string> {};

TEST_P(sampled_directory, runs_to_its_end_with_either_body) {
  scratch_directory directory;
  directory.take_files_of(workdirs() + GetParam());
  const whole_run run = run_in(directory.path());
  EXPECT_EQ(run.exit_code, 0) << run.listing;
  EXPECT_TRUE(run.says(" End of ZEPH")) << run.listing;
  for (const double x : run.solution) EXPECT_TRUE(std::isfinite(x));
  const scratch_directory again;
  std::filesystem::copy(workdirs() + GetParam(), again / "work");
  const bodies_apart apart = compare_bodies(again, "work", 10);
  EXPECT_TRUE(apart.ran && apart.fast);
  EXPECT_LT(apart.rhs, 1e-10);
  EXPECT_LT(std::max({apart.sol, apart.matrices, apart.sums, apart.lik}),
            1e-7); // liabilities are rounded to 32 bits
}

INSTANTIATE_TEST_SUITE_P(run, sampled_directory,
                         ::testing::Values("cat3_t3", "cens2_t3", "cure_t3", "feto_t2", "jumpI3_t6",
                                           "mix2_t3", "tdptd_t3", "three3_t3"),
                         [](const auto& set) { return set.param; });

TEST(work_directories, are_all_tested) {
  int solved = 0, others = 0;
  for (const auto& entry : fs::directory_iterator(workdirs()))
    if (entry.is_directory()) ++(fs::exists(entry.path().string() + ".answer") ? solved : others);
  EXPECT_EQ(solved, 10);
  EXPECT_EQ(others, 8);
}

} // namespace
