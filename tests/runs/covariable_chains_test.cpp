// Class-effect solutions as covariables, from the description to the samples:
// the solver's end, chains whose covariable has no effect, and chains in two parts.
#include "runs/small_herd.h"

#include <cmath>
#include <filesystem>

namespace {

using namespace zeph_test;

std::string solving(const std::string& covariable, const std::string& formula, double covariance) {
  const std::string r = std::to_string(covariance);
  return "[data]\nfile = \"data.csv\"\n[run]\nanalysis = \"solve\"\n[trait.y1_m]\nformula = \"0 + pen + (1 | "
         "animal)\"\n"
         "weight = \"w1\"\n[trait.y2_m]\nformula = \"" +
         formula +
         "\"\n[factor.animal]\npedigree = \"pedigree.csv\"\nstart = [[2.0, 1.0], [1.0, "
         "3.0]]\n[residual]\nstart = [[3.0, " +
         r + "], [" + r + ", 4.0]]\n[covariable.level]\n" + covariable;
}

// The data with a column more: the covariable as the found solutions of trait 1 make it.
std::string data_with(const named_values& solution, const std::string& column, const std::string& prefix,
                      const std::vector<std::string>& levels, bool standardize, const std::string& times) {
  double mean = 0, squares = 0;
  for (const std::string& l : levels) mean += solution.at(prefix + l) / static_cast<double>(levels.size());
  for (const std::string& l : levels) squares += std::pow(solution.at(prefix + l) - mean, 2);
  const double sd = std::sqrt(squares / static_cast<double>(levels.size() - 1));
  const csv_table table = csv_of_text(herd_data);
  std::istringstream lines(herd_data);
  std::string line, out;
  std::getline(lines, line);
  out = line + ",level\n";
  for (std::size_t i = 0; std::getline(lines, line); ++i) {
    double z = solution.at(prefix + table.cell(i, column)) - mean;
    if (standardize) z /= sd;
    if (!times.empty()) z *= static_cast<double>(std::stof(table.cell(i, times)));
    char text[40];
    std::snprintf(text, sizeof text, "%.17g", z);
    out += line + "," + text + "\n";
  }
  return out;
}

dense_description dense_of(const small_herd& herd, const std::string& data, const fixed_term& covariable,
                           double covariance) {
  dense_description d{csv_of_text(data), {}, {}, {}};
  d.traits = {{"y1_m", {{"pen", {"pen"}}}, "w1"}, {"y2_m", {{"mean", {}}, covariable}}};
  d.factors = {{"animal",
                {{"y1_m.animal", "y1_m", {"animal"}}, {"y2_m.animal", "y2_m", {"animal"}}},
                {{2.0, 1.0}, {1.0, 3.0}},
                herd.a_inverse()}};
  d.R = {{3.0, covariance}, {covariance, 4.0}};
  return d;
}

// The largest difference of the found solutions to those of the equations with the found covariable. The
// covariable is there in 32 bits.
double error_of(const small_herd& herd, const std::string& toml, const fixed_term& covariable,
                const std::string& column, const std::string& prefix, const std::vector<std::string>& levels,
                bool standardize, const std::string& times, double covariance) {
  const whole_run run = herd.run(toml);
  EXPECT_TRUE(run.says("GS-solver converged"));
  const named_values found = names_of(herd.work(), run.solution);
  const std::string data = data_with(found, column, prefix, levels, standardize, times);
  return compare(dense_equations(dense_of(herd, data, covariable, covariance)), found).error;
}

const std::vector<std::string> pens = {"1", "2", "3"};
const std::vector<std::string> animals = {"1", "2", "3", "4", "5", "6", "7", "8", "9", "10"};

TEST(solver_with_solutions_as_covariable, ends_at_the_equations_that_its_solutions_make) {
  const fixed_term plain_one{"level", {}, plain("level")}, nested{"sex:level", {"sex"}, plain("level")};
  for (const double covariance : {0.0, 1.0}) {
    const small_herd a, b, c;
    EXPECT_LT(error_of(a, solving("solution = \"y1_m.pen\"", "1 + level + (1 | animal)", covariance),
                       plain_one, "pen", "class|y1_m|pen|", pens, false, "", covariance),
              1e-6);
    EXPECT_LT(error_of(b,
                       solving("solution = \"y1_m.pen\"\nstandardize = true\ntimes = \"w2\"",
                               "1 + sex:level + (1 | animal)", covariance),
                       nested, "pen", "class|y1_m|pen|", pens, true, "w2", covariance),
              1e-6);
    EXPECT_LT(error_of(c, solving("solution = \"y1_m.animal\"", "1 + level + (1 | animal)", covariance),
                       plain_one, "animal", "factor|animal|y1_m.animal|", animals, false, "", covariance),
              1e-6);
  }
}

// ---- a covariable without effect

// Five herds, two sexes, three pens, a record each. The sums of y2 over the records of a herd are equal, and
// so are the places of sexes and pens: whatever covariable the herds have, its coefficient has mean 0, and
// the other effects have the means of the model without it.
std::string balanced_data() {
  const double noise[6] = {-1.0, -0.6, -0.2, 0.2, 0.6, 1.0};
  const int order[5][6] = {
      {0, 1, 2, 3, 4, 5}, {3, 0, 5, 1, 4, 2}, {5, 4, 0, 2, 1, 3}, {1, 3, 4, 5, 2, 0}, {2, 5, 1, 0, 3, 4}};
  const double herds[5] = {10.0, 12.5, 9.0, 14.0, 11.5};
  std::string out = "herd,sex,pen,y1,y2\n";
  for (int h = 0; h < 5; ++h)
    for (int k = 0; k < 6; ++k) {
      const int sex = k / 3, pen = k % 3;
      char row[80];
      std::snprintf(row, sizeof row, "%d,%s,%d,%.2f,%.2f\n", h + 1, sex == 0 ? "F" : "M", pen + 1,
                    herds[h] + noise[order[(h + 2) % 5][k]] + 0.5 * pen,
                    20.0 + 2.0 * sex - 0.8 * pen + noise[order[h][k]]);
      out += row;
    }
  return out;
}

const char* const apart = R"toml([trait.y1]
formula = "1 + herd + (1 | pen1 | pen)"
[trait.y2]
formula = "1 + sex + level + (1 | pen2 | pen)"
[covariable.level]
solution = "y1.herd"
[factor.pen1]
start = 0.8
[factor.pen2]
start = 0.6
[residual]
start = [[1.0, 0.0], [0.0, 0.5]]
zero = [["y1", "y2"]]
)toml";

TEST(samples_with_a_covariable_without_effect, have_the_means_of_the_model_without_it) {
  const small_herd herd;
  herd.directory.write("data.csv", balanced_data());
  herd.run(
      "[data]\nfile = \"data.csv\"\n[keep]\nsolutions = true\n[run]\nanalysis = \"predict\"\nburnin = 200\n"
      "interval = 1\nrounds = 20000\nseeds = [1802, 9373]\n" +
      std::string(apart));
  dense_description d{csv_of_text(balanced_data()), {}, {}, {}};
  d.traits = {{"y1", {{"herd", {"herd"}}}}, {"y2", {{"sex", {"sex"}}}}};
  d.factors = {{"pen1", {{"y1.pen", "y1", {"pen"}}}, {{0.8}}},
               {"pen2", {{"y2.pen", "y2", {"pen"}}}, {{0.6}}}};
  d.R = {{1.0, 0.0}, {0.0, 0.5}};
  const dense_equations equations(d);
  const dense_solution plain_model(equations);
  const std::map<std::string, series> samples = named_samples_in(herd.work());
  EXPECT_EQ(samples.size(), equations.n + 1);
  for (std::size_t i = 0; i < equations.n; ++i)
    expect_mean(equations.names[i], samples.at(equations.names[i]), plain_model.x[i]);
  expect_mean("coefficient", samples.at("regression|y2|level|"), 0.0);
}

// ---- a chain in two parts

std::string chain(int burnin, int rounds, int interval) {
  return "[data]\nfile = \"data.csv\"\n[keep]\nsolutions = true\n[run]\nanalysis = \"gibbs\"\nburnin = " +
         std::to_string(burnin) + "\ninterval = " + std::to_string(interval) +
         "\nrounds = " + std::to_string(rounds) + "\nseeds = [11, 12]\n" + R"toml([trait.y1]
formula = "0 + pen + (1 | animal)"
[trait.y2]
formula = "1 + level + bulk + (1 | other | animal)"
[covariable.level]
solution = "y1.pen"
[covariable.bulk]
solution = "y1.animal"
times = "w1"
[factor.animal]
pedigree = "pedigree.csv"
prior_df = 8
[factor.other]
prior_df = 8
[residual]
zero = [["y1", "y2"]]
prior_df = 7
)toml";
}

TEST(a_chain_with_solutions_as_covariables, equals_the_whole_one_in_two_parts) {
  const small_herd whole, first, second;
  whole.run(chain(20, 200, 2));
  first.run(chain(20, 100, 2));
  second.prepare(chain(20, 100, 2));
  std::filesystem::copy_file(first.work() + "lastsol", second.work() + "oldsol");
  std::filesystem::copy_file(first.work() + "gparlast", second.work() + "r_parm");
  second.go_on();
  const auto file = [](const small_herd& herd, const std::string& name) {
    return bytes_of(herd.work() + name);
  };
  EXPECT_EQ(file(first, "gib.samples") + file(second, "gib.samples"), file(whole, "gib.samples"));
  EXPECT_EQ(file(first, "py") + file(second, "py"), file(whole, "py"));
  EXPECT_EQ(file(second, "lastsol"), file(whole, "lastsol"));
  EXPECT_EQ(file(second, "gparlast"), file(whole, "gparlast"));
}

} // namespace
