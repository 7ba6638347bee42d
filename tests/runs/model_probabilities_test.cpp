// Chains over models by posterior probability: shares of the rounds in models of 1, 2, .. rows of a factor
// against averages over draws from the prior (tests/data/models), and the right model of many levels.
#include "runs/chain_samples.h"
#include "support/places.h"

#include <random>

namespace {

using namespace zeph_test;

constexpr const char* CURVE = R"toml([data]
file = "curve.csv"
[covariable.x]
[trait.y]
formula = "0 + (poly(x, 2) | unit)"
[factor.unit]
start = [[0.6], [0.15, 0.5], [0.1, 0.1, 0.4]]
prior_df = 9
[residual]
start = 0.5
prior_df = 6
)toml";

constexpr const char* RELATED = R"toml([data]
file = "related.csv"
[covariable.x]
[trait.y]
formula = "0 + (x | animal)"
[factor.animal]
pedigree = "pedigree.csv"
start = [[0.6], [0.1, 0.4]]
prior_df = 8
[residual]
start = 0.5
prior_df = 6
)toml";

constexpr const char* TRAITS = R"toml([data]
file = "traits.csv"
[trait.y1]
formula = "0 + (1 | unit)"
[trait.y2]
formula = "0 + (1 | unit)"
[trait.y3]
formula = "0 + (1 | unit)"
[factor.unit]
start = [[0.8], [0.2, 0.5], [0.1, 0.1, 0.5]]
prior_df = 10
model_prior = [3, 1, 2]
[residual]
start = [[1], [0.4, 1], [0.2, 0.3, 1]]
prior_df = 8
)toml";

std::string chain_over_models(int burnin, int rounds, const char* seeds) {
  return "[run]\nanalysis = \"jump\"\nsampler = \"exact\"\nstate_every = false\ninterval = 1\nburnin = " +
         std::to_string(burnin) + "\nrounds = " + std::to_string(rounds) + "\nseeds = " + seeds + "\n";
}

// Rows of the factor in each sample: py holds round, rows, traits, density.
std::vector<int> rows_in_samples(const std::string& work) {
  std::ifstream file(work + "py");
  std::vector<int> out;
  for (std::string line; std::getline(file, line);) {
    std::istringstream words(line);
    int round = 0, rows = 0;
    words >> round >> rows;
    out.push_back(rows);
  }
  return out;
}

std::vector<int> visits(const scratch_directory& place, const std::string& toml) {
  const prepared_run run = prepare_and_solve(place, toml);
  if (!run.prepared || run.run.exit_code != 0) throw std::runtime_error(run.messages + run.run.listing);
  return rows_in_samples(place / "work/");
}

// z of each model, on the Monte Carlo errors of chain and average together; 4.5 has an error probability of
// 7e-6 a model.
void hold_probabilities(const std::string& set, const std::string& toml, int rounds) {
  const std::string folder = source_folder() + "/tests/data/models/";
  const scratch_directory place;
  for (const std::string name : {"curve.csv", "related.csv", "pedigree.csv", "traits.csv"})
    place.write(name, bytes_of(folder + name));
  const std::vector<int> rows = visits(place, toml + chain_over_models(500, rounds, "[1234, 5678]"));
  ASSERT_EQ(rows.size(), static_cast<std::size_t>(rounds));
  const csv_table exact = csv_of_file(folder + "probabilities.csv");
  int models = 0;
  for (std::size_t i = 0; i < exact.size(); ++i) {
    if (exact.cell(i, "set") != set) continue;
    ++models;
    const int m = std::stoi(exact.cell(i, "rows"));
    const double p = std::stod(exact.cell(i, "probability")), its_error = std::stod(exact.cell(i, "error"));
    series in_model;
    for (const int n : rows) in_model.push_back(n == m ? 1.0 : 0.0);
    const estimate e = estimate_of(in_model);
    const double error = std::hypot(e.error(), its_error);
    EXPECT_GT(e.ess, 400.0) << m;
    EXPECT_LT(std::fabs(e.mean - p), 4.5 * error) << m << " rows: " << e.mean << ", exact " << p;
    note_figure(set + ", probability of " + std::to_string(m) + " rows", p, e.mean, error, e.ess);
  }
  EXPECT_GE(models, 2);
}

TEST(shares_of_models, of_an_identity_factor_of_order_3_are_their_probabilities) {
  hold_probabilities("curve", CURVE, 30000);
}
TEST(shares_of_models, of_an_inbred_pedigree_are_their_probabilities) {
  hold_probabilities("related", RELATED, 30000);
}
TEST(shares_of_models, with_prior_weights_and_missing_traits_are_their_probabilities) {
  hold_probabilities("traits", TRAITS, 30000);
}

// Records of 150 levels of a factor with `rows` true rows of 1, x, x^2.
std::string records_of_many_levels(int rows, unsigned seed) {
  std::mt19937_64 draw(seed);
  std::normal_distribution<double> bell;
  std::string data = "unit,x,y\n";
  for (int level = 1; level <= 150; ++level) {
    const double u[3] = {bell(draw), 0.8 * bell(draw), 0.8 * bell(draw)};
    for (int r = 0; r < 6; ++r) {
      const double x = -1.0 + 0.4 * r;
      double y = 0.5 * bell(draw);
      for (int p = 0; p < rows; ++p) y += u[p] * std::pow(x, p);
      char line[80];
      std::snprintf(line, sizeof line, "%d,%.1f,%.4f\n", level, x, y);
      data += line;
    }
  }
  return data;
}

// Level by level the evidence adds up: at 150 levels the log ratio of the models is in the tens, and the
// chain that starts with one row must find the right one.
class models_of_150_levels : public testing::TestWithParam<int> {};

TEST_P(models_of_150_levels, are_found_in_800_rounds) {
  const int truth = GetParam();
  const scratch_directory place;
  place.write("curve.csv", records_of_many_levels(truth, static_cast<unsigned>(20 + truth)));
  for (const char* seeds : {"[1, 2]", "[33, 44]", "[5555, 6666]"}) {
    std::filesystem::remove_all(place / "work");
    const std::vector<int> rows = visits(place, CURVE + chain_over_models(400, 400, seeds));
    EXPECT_GT(std::count(rows.begin(), rows.end(), truth), 360) << seeds;
  }
}

INSTANTIATE_TEST_SUITE_P(of_true_rows, models_of_150_levels, testing::Values(1, 2, 3),
                         [](const auto& info) { return std::to_string(info.param); });

} // namespace
