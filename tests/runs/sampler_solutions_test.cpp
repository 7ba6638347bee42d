// Analysis type 2: with given matrices the posterior of all solutions is normal,
// its mean the solution of the mixed-model equations and its covariance matrix the
// inverse of their coefficient matrix, both made here as full matrices.
#include "runs/small_herd.h"

namespace {

using namespace zeph_test;

// Shares below points of the standard normal distribution (M. Abramowitz and I. A. Stegun,
// Handbook of Mathematical Functions, table 26.5).
constexpr double normal_points[][2] = {
    {-1.959963985, 0.025}, {-0.674489750, 0.25}, {0.0, 0.5}, {0.674489750, 0.75}, {1.959963985, 0.975}};

// Every solution has the exact mean, variance and quantiles; returns how many there are.
std::size_t expect_exact_solutions(const small_herd& herd, const dense_description& d) {
  const dense_equations equations(d);
  dense_matrix C(static_cast<std::int64_t>(equations.n));
  C.cells = equations.C;
  const dense_matrix inverse = dense_inverse(C).inverse;
  const dense_solution exact(equations);
  EXPECT_EQ(exact.rank(), equations.n);
  const std::map<std::string, series> samples = named_samples_in(herd.work());
  EXPECT_EQ(samples.size(), equations.n);
  for (std::size_t i = 0; i < equations.n; ++i) {
    const auto at = samples.find(equations.names[i]);
    if (at == samples.end()) {
      ADD_FAILURE() << "no samples of " << equations.names[i];
      continue;
    }
    const auto k = static_cast<std::int64_t>(i) + 1;
    const double sd = std::sqrt(inverse(k, k));
    expect_moments(at->first, at->second, exact.x[i], sd);
    for (const auto& [point, below] : normal_points)
      expect_share_below(at->first, at->second, exact.x[i] + point * sd, below);
  }
  return equations.n;
}

std::string sampling(int rounds, const std::string& tables) {
  return "[data]\nfile = \"data.csv\"\n[run]\nanalysis = \"predict\"\nburnin = 500\ninterval = 2\nseeds = "
         "[1802, 9373]\n"
         "rounds = " +
         std::to_string(rounds) + "\n[keep]\nsolutions = true\n" + tables;
}

TEST(samples_of_solutions, of_one_trait_with_a_pedigree_have_the_exact_mean_and_variance) {
  const small_herd herd;
  dense_description d{csv_of_text(herd_data), {}, {}, {}};
  d.traits = {{"y1", {{"sex", {"sex"}}}}};
  d.factors = {{"animal", {{"y1.animal", "y1", {"animal"}}}, {{2.0}}, herd.a_inverse()}};
  d.R = {{3.0}};
  herd.run(sampling(20000, R"toml([trait.y1]
formula = "0 + sex + (1 | animal)"
[factor.animal]
pedigree = "pedigree.csv"
start = 2.0
[residual]
start = 3.0
)toml"));
  EXPECT_EQ(expect_exact_solutions(herd, d), 12U);
}

TEST(samples_of_solutions,
     of_two_traits_with_missing_values_weights_and_groups_have_the_exact_mean_and_variance) {
  const small_herd herd;
  dense_description d{csv_of_text(herd_data), {}, {}, {}};
  d.traits = {{"y1_m", {{"sex", {"sex"}}}, "w1"}, {"y2_m", {{"mean", {}}}, "w2"}};
  d.factors = {
      {"animal",
       {{"y1_m.animal", "y1_m", {"animal"}}, {"y2_m.animal", "y2_m", {"animal"}}},
       {{2.0, 1.0}, {1.0, 3.0}},
       herd.a_inverse()},
      {"pen", {{"y1_m.pen", "y1_m", {"pen"}}, {"y2_m.pen", "y2_m", {"pen"}}}, {{0.8, -0.3}, {-0.3, 0.6}}}};
  d.R = {{3.0, 1.5}, {1.5, 4.0}};
  d.group = "group";
  d.R_of = {{"b", {{1.5, -0.6}, {-0.6, 2.5}}}};
  herd.run(sampling(40000, R"toml([trait.y1_m]
formula = "0 + sex + (1 | animal) + (1 | pen)"
weight = "w1"
[trait.y2_m]
formula = "1 + (1 | animal) + (1 | pen)"
weight = "w2"
[factor.animal]
pedigree = "pedigree.csv"
start = [[2.0, 1.0], [1.0, 3.0]]
[factor.pen]
start = [[0.8, -0.3], [-0.3, 0.6]]
[residual]
start = [[3.0, 1.5], [1.5, 4.0]]
groups = "group"
start_by_group = { b = [[1.5, -0.6], [-0.6, 2.5]] }
)toml"));
  EXPECT_EQ(expect_exact_solutions(herd, d), 29U);
}

// The animal of a record and its mate have levels of one factor with a covariance between their rows; the
// mate's number is three above the animal's, around the ten.
TEST(samples_of_solutions,
     of_levels_that_meet_in_a_record_have_the_exact_mean_and_variance_in_an_exact_chain) {
  std::string data;
  std::istringstream lines(herd_data);
  for (std::string line; std::getline(lines, line);) {
    const int animal = std::atoi(line.c_str());
    data += line + (animal == 0 ? ",mate\n" : "," + std::to_string(1 + (animal + 2) % 10) + "\n");
  }
  const small_herd herd;
  herd.directory.write("data.csv", data);
  dense_description d{csv_of_text(data), {}, {}, {}};
  d.traits = {{"y1", {{"sex", {"sex"}}}}};
  d.factors = {{"genetic",
                {{"y1.animal", "y1", {"animal"}}, {"y1.mate", "y1", {"mate"}}},
                {{2.0, -0.7}, {-0.7, 1.4}},
                herd.a_inverse()}};
  d.R = {{1.5}};
  std::string toml = sampling(60000, R"toml([trait.y1]
formula = "0 + sex + (1 | genetic | animal) + (1 | genetic | mate)"
[factor.genetic]
pedigree = "pedigree.csv"
start = [[2.0, -0.7], [-0.7, 1.4]]
[residual]
start = 1.5
)toml");
  toml.insert(toml.find("burnin"), "sampler = \"exact\"\n");
  herd.run(toml);
  EXPECT_EQ(expect_exact_solutions(herd, d), 22U);
}

TEST(samples_of_solutions, differ_from_one_seed_to_another_and_have_no_sample_of_a_matrix) {
  const std::string tables =
      "[trait.y1]\nformula = \"1 + (1 | pen)\"\n[factor.pen]\nstart = 1.0\n[residual]\nstart = 2.0\n";
  const small_herd one, other;
  one.run(sampling(20, tables));
  std::string toml = sampling(20, tables);
  toml.replace(toml.find("[1802, 9373]"), 12, "[1802, 9374]");
  other.run(toml);
  EXPECT_NE(bytes_of(one.work() + "sol.samples"), bytes_of(other.work() + "sol.samples"));
  EXPECT_EQ(bytes_of(one.work() + "gib.samples"), "");
}

} // namespace
