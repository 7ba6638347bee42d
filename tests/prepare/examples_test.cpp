// The examples of the repository, from their description through the whole program to their answers.
#include "control/run_driver.h"
#include "prepare/output/work_directory.h"
#include "prepare/tables/csv_columns.h"
#include "prepare/tables/csv_reader.h"
#include "support/places.h"
#include "support/prepared_case.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using zeph_test::scratch_directory;

// Solutions by equation, 1-based, of an example of the folder examples/.
struct solved_example {
  zeph::prepare::message_log log;
  zeph::prepare::model_description description;
  zeph::prepare::prepared_model p;
  zeph::prepare::csv_columns answers;
  std::vector<double> sol{0.0};

  explicit solved_example(const std::string& name) {
    const std::string folder = zeph_test::source_folder() + "/examples/" + name + "/";
    description = zeph::prepare::read_description(folder + "model.toml", log);
    p = assemble_model(description, {}, log);
    answers = zeph::prepare::read_csv(folder + "answers.csv", {}, log);
    if (!p.complete) return;
    const scratch_directory work;
    if (!write_work_directory(description, p, work.path(), "").ok) return;
    std::ostringstream listing;
    zeph::run run(listing, work.path());
    if (exit_code_of_run(run) != 0) return;
    for (std::int64_t e = 1; e <= run.layout.neq; ++e) sol.push_back(run.sampler.sol(e));
  }
  double factor(std::size_t k, int row, std::int32_t level) const {
    const zeph::model_records& m = p.model;
    const auto number = static_cast<std::int64_t>(k);
    return sol.at(static_cast<std::size_t>(m.NBEGRA(number) + (level - 1) * m.RMAT(number).n_rc + row));
  }
  double fixed(int trait, int effect, std::int32_t level) const {
    return sol.at(static_cast<std::size_t>(p.model.NBEGF(trait, effect) + level));
  }
  std::string cell(const char* column, std::size_t r) const {
    return std::string(answers.cell(zeph::prepare::find_column(answers, column), r));
  }
  double answer(const std::string& quantity, const std::string& level) const {
    for (std::size_t r = 0; r < answers.n_records(); ++r)
      if (cell("quantity", r) == quantity && cell("level", r) == level) return std::stod(cell("computed", r));
    ADD_FAILURE() << "no answer " << quantity << " " << level;
    return 0.0;
  }

  // Every answer of the quantity (and trait, unless empty) against row `row` of factor k.
  void expect_factor(const std::string& quantity, const std::string& trait, std::size_t k, int row,
                     double scale) const {
    int n = 0;
    for (std::size_t r = 0; r < answers.n_records(); ++r) {
      if (cell("quantity", r) != quantity || (!trait.empty() && cell("trait", r) != trait)) continue;
      const auto& ids = p.factors[k - 1].identification;
      const auto at = std::find(ids.begin(), ids.end(), cell("level", r));
      ASSERT_NE(at, ids.end());
      EXPECT_NEAR(factor(k, row, static_cast<std::int32_t>(at - ids.begin()) + 1),
                  std::stod(cell("computed", r)), 1e-6 * scale)
          << quantity << " " << trait << " " << cell("level", r);
      ++n;
    }
    EXPECT_GT(n, 0) << quantity;
  }
};

TEST(examples, animal_model_gives_the_published_solutions) {
  const solved_example x("animal_model");
  ASSERT_EQ(x.sol.size(), 11U);
  EXPECT_NEAR(x.fixed(1, 1, 1), x.answer("sex", "F"), 4e-6);
  EXPECT_NEAR(x.fixed(1, 1, 2), x.answer("sex", "M"), 4e-6);
  x.expect_factor("animal", "", 1, 1, 1.0);
}

TEST(examples, two_traits_with_missing_records_give_the_published_solutions) {
  const solved_example x("two_traits_missing");
  ASSERT_EQ(x.sol.size(), 23U);
  x.expect_factor("animal", "wwg", 1, 1, 6.0);
  x.expect_factor("animal", "pwg", 1, 2, 6.0);
}

TEST(examples, maternal_effects_give_the_published_solutions) {
  const solved_example x("maternal_effects");
  ASSERT_EQ(x.sol.size(), 37U);
  x.expect_factor("direct", "", 1, 1, 30.0);
  x.expect_factor("maternal", "", 1, 2, 30.0);
  x.expect_factor("mpe", "", 2, 1, 30.0);
  for (const std::int32_t herd : {2, 3}) // herd 1 is zero in the answers
    EXPECT_NEAR(x.fixed(1, 1, herd) - x.fixed(1, 1, 1), x.answer("herd", std::to_string(herd)), 3e-5);
}

TEST(examples, random_regression_gives_the_published_solutions) {
  const solved_example x("random_regression");
  ASSERT_EQ(x.sol.size(), 54U);
  for (const int degree : {0, 1, 2}) {
    x.expect_factor("animal_p" + std::to_string(degree), "", 1, degree + 1, 20.0);
    x.expect_factor("pe_p" + std::to_string(degree), "", 2, degree + 1, 20.0);
  }
  for (const int degree : {1, 2, 3, 4})
    EXPECT_NEAR(x.sol[static_cast<std::size_t>(degree)], x.answer("curve", "p" + std::to_string(degree)),
                2e-5);
  for (int htd = 1; htd <= 10; ++htd)
    EXPECT_NEAR(x.fixed(1, 1, htd),
                x.answer("htd", std::to_string(htd)) + 0.70710678118654752 * x.answer("curve", "p0"), 2e-5);
}

// A description of an example as a whole run; the rows of its text files as numbers.
struct example_run {
  scratch_directory work;
  int exit_code = -1;

  explicit example_run(const std::string& file) {
    zeph::prepare::message_log log;
    const auto description =
        zeph::prepare::read_description(zeph_test::source_folder() + "/examples/" + file, log);
    const auto p = assemble_model(description, {}, log);
    if (!p.complete || !write_work_directory(description, p, work.path(), "").ok) return;
    std::ostringstream listing;
    zeph::run run(listing, work.path());
    exit_code = exit_code_of_run(run);
  }
  std::vector<std::vector<double>> rows(const std::string& file) const {
    std::vector<std::vector<double>> all;
    std::istringstream lines(work.read(file));
    for (std::string line; std::getline(lines, line);) {
      all.emplace_back();
      std::istringstream words(line);
      for (std::string word; words >> word;)
        all.back().push_back(word == "T" ? 1.0 : std::strtod(word.c_str(), nullptr));
    }
    return all;
  }
};

// The data were made with pens that differ in gain and intake, not in fat.
TEST(examples, number_of_traits_finds_two_rows) {
  const example_run run("number_of_traits/jump.toml");
  ASSERT_EQ(run.exit_code, 0);
  int rounds[4] = {}, taken[4][4] = {};
  for (const std::vector<double>& row : run.rows("zeinfo")) {
    ASSERT_EQ(row.size(), 10U); // round, factor, rows, rows proposed, .., whether it was accepted
    ++rounds[static_cast<int>(row[2])];
    taken[static_cast<int>(row[2])][static_cast<int>(row[3])] += row[9] != 0.0;
  }
  EXPECT_EQ(rounds[1], 1); // the numbers of its README
  EXPECT_EQ(rounds[2], 7995);
  EXPECT_EQ(rounds[3], 4);
  EXPECT_EQ(taken[1][2], 1);
  EXPECT_EQ(taken[2][1], 0);
  EXPECT_EQ(taken[2][3], 4);
  EXPECT_EQ(taken[3][2], 4);
}

TEST(examples, number_of_traits_runs_a_chain_for_each_number_of_rows) {
  const example_run run("number_of_traits/models.toml");
  ASSERT_EQ(run.exit_code, 0);
  const auto lpm = run.rows("lpm");
  ASSERT_EQ(lpm.size(), 3U);
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(lpm[i][0], static_cast<double>(i + 1));
    EXPECT_EQ(lpm[i][2], 1000.0);
    const double elpd[3] = {-1045.5, -1028.5, -1034.4}; // of its README
    EXPECT_NEAR(lpm[i][3], elpd[i], 0.05);
  }
  for (const std::vector<double>& row : run.rows("gparout")) { // of the last model, as its README says
    if (row[0] != 1.0 || row[1] != row[2]) continue;
    const double told[3] = {0.98, 0.31, 0.14};
    EXPECT_NEAR(row[3], told[static_cast<int>(row[1]) - 1], 0.005);
  }
}

// Herds and sires of milk first, then the coefficient, seasons and sires of scs given them.
TEST(examples, herd_level_ends_at_the_equations_of_both_traits) {
  const solved_example x("herd_level");
  ASSERT_EQ(x.sol.size(), 22U);
  EXPECT_NEAR(x.sol[1], x.answer("level", ""), 1e-7);
  for (std::int32_t herd = 1; herd <= 8; ++herd) {
    const std::string name = x.p.fixed[0].classes[0].identification[static_cast<std::size_t>(herd - 1)];
    EXPECT_NEAR(x.fixed(1, 1, herd), x.answer("herd", name), 3e-5);
  }
  EXPECT_NEAR(x.fixed(2, 1, 1), x.answer("season", "summer"), 3e-6);
  EXPECT_NEAR(x.fixed(2, 1, 2), x.answer("season", "winter"), 3e-6);
  x.expect_factor("sire", "", 1, 1, 1.0);
  x.expect_factor("udder", "", 2, 1, 1.0);
}

// The file shows six digits.
TEST(examples, progeny_deviations_are_those_of_the_dense_equations) {
  const example_run run("progeny_deviations/model.toml");
  ASSERT_EQ(run.exit_code, 0);
  zeph::prepare::message_log log;
  const zeph::prepare::csv_columns answers = zeph::prepare::read_csv(
      zeph_test::source_folder() + "/examples/progeny_deviations/answers.csv", {}, log);
  const std::vector<std::vector<double>> rows = run.rows("TD_PTD");
  ASSERT_EQ(rows.size(), answers.n_records());
  for (std::size_t r = 0; r < rows.size(); ++r) {
    const auto answer = [&](const char* column) {
      return std::stod(std::string(answers.cell(zeph::prepare::find_column(answers, column), r)));
    };
    ASSERT_EQ(rows[r].size(), 6U);
    EXPECT_EQ(rows[r][0], answer("animal"));
    EXPECT_EQ(rows[r][2], answer("records"));
    EXPECT_NEAR(rows[r][3], answer("td"), 6e-5);
    EXPECT_EQ(rows[r][4], answer("progeny"));
    EXPECT_NEAR(rows[r][5], answer("ptd"), 6e-5);
  }
}

} // namespace
