// Analysis type 3 with one trait: means, standard deviations and quantiles of the
// variances and of their share against quadrature, for flat and proper priors.
#include "runs/small_herd.h"
#include "runs/variance_posterior.h"

#include <random>

namespace {

using namespace zeph_test;

constexpr double log_2_pi = 1.8378770664093454836;

std::string sampling(int rounds, const std::string& tables) {
  return "[data]\nfile = \"data.csv\"\n[run]\nanalysis = \"gibbs\"\nburnin = 1000\ninterval = 2\nseeds = "
         "[4711, 815]\n"
         "rounds = " +
         std::to_string(rounds) + "\n" + tables;
}

void expect_variances(const small_herd& herd, const variance_posterior& exact) {
  const matrix_samples samples = matrix_samples_in(herd.work());
  const series &su = samples.at({1, 1, 1}), &se = samples.at({2, 1, 1});
  ASSERT_EQ(su.size(), se.size());
  series share;
  for (std::size_t i = 0; i < su.size(); ++i) share.push_back(su[i] / (su[i] + se[i]));
  const struct {
    const char* name;
    const series& x;
    std::function<double(double, double)> f;
  } quantities[] = {{"variance of the factor", su, [](double u, double) { return u; }},
                    {"residual variance", se, [](double, double e) { return e; }},
                    {"share of the factor", share, [](double u, double e) { return u / (u + e); }}};
  for (const auto& q : quantities) {
    expect_moments(q.name, q.x, exact.mean(q.f), exact.sd(q.f));
    for (const double p : {0.025, 0.25, 0.5, 0.75, 0.975}) {
      const auto [bound, below] = exact.quantile(q.f, p);
      expect_share_below(q.name, q.x, bound, below);
    }
  }
}

// pens x 3 records around 50, variances 4 and 6
struct one_way_data {
  explicit one_way_data(int pens) {
    std::mt19937 draw(77);
    const auto bell = [&] {
      double sum = -6.0;
      for (int i = 0; i < 12; ++i) sum += static_cast<double>(draw()) / 4294967296.0;
      return sum;
    };
    csv = "pen,y\n";
    for (int pen = 1; pen <= pens; ++pen) {
      const double u = 2.0 * bell();
      for (int k = 0; k < 3; ++k) {
        char cell[32];
        std::snprintf(cell, sizeof cell, "%d,%.3f\n", pen, 50.0 + u + 2.45 * bell());
        csv += cell;
        pen_of.push_back(pen);
        y.push_back(in_32_bits(number_in(std::string(cell).substr(std::string(cell).find(',') + 1))));
      }
    }
  }
  variance_posterior posterior(variance_prior of_u, variance_prior of_e) const {
    dense_matrix K(static_cast<std::int64_t>(y.size()));
    for (std::size_t i = 0; i < y.size(); ++i)
      for (std::size_t j = 0; j < y.size(); ++j)
        if (pen_of[i] == pen_of[j])
          K(static_cast<std::int64_t>(i) + 1, static_cast<std::int64_t>(j) + 1) = 1.0;
    return {y, square(y.size(), {1.0}), K, of_u, of_e};
  }
  std::string csv;
  std::vector<int> pen_of;
  std::vector<double> y;
};

TEST(samples_of_variances, of_a_one_way_model_with_flat_priors_are_those_of_the_exact_posterior) {
  const one_way_data data(30);
  const small_herd herd;
  herd.directory.write("data.csv", data.csv);
  herd.run(sampling(
      40000, "[trait.y]\nformula = \"1 + (1 | pen)\"\n[factor.pen]\nstart = 3.0\n[residual]\nstart = 5.0\n"));
  expect_variances(herd, data.posterior({}, {}));
}

TEST(samples_of_variances, of_a_one_way_model_with_proper_priors_are_those_of_the_exact_posterior) {
  const one_way_data data(6);
  const small_herd herd;
  herd.directory.write("data.csv", data.csv);
  herd.run(sampling(40000, "[trait.y]\nformula = \"1 + (1 | pen)\"\n[factor.pen]\nstart = 3.0\nprior_df = 9\n"
                           "[residual]\nstart = 5.0\nprior_df = 7\n"));
  expect_variances(herd, data.posterior({9.0, 3.0}, {7.0, 5.0}));
}

TEST(samples_of_variances, of_ten_related_animals_are_those_of_the_exact_posterior) {
  const small_herd herd;
  const csv_table data = csv_of_text(herd_data);
  const named_matrix A = tabular_relationship(ordered_pedigree(csv_of_text(herd_pedigree)));
  std::vector<double> y;
  square X;
  dense_matrix K(static_cast<std::int64_t>(data.size()));
  for (std::size_t i = 0; i < data.size(); ++i) {
    y.push_back(in_32_bits(number_in(data.cell(i, "y1"))));
    X.push_back({1.0, data.cell(i, "sex") == "M" ? 1.0 : 0.0});
    for (std::size_t j = 0; j < data.size(); ++j)
      K(static_cast<std::int64_t>(i) + 1, static_cast<std::int64_t>(j) + 1) =
          A.cells(A.row_of(data.cell(i, "animal")), A.row_of(data.cell(j, "animal")));
  }
  herd.run(sampling(60000, R"toml([trait.y1]
formula = "1 + sex + (1 | animal)"
[factor.animal]
pedigree = "pedigree.csv"
start = 2.0
prior_df = 8
[residual]
start = 1.5
prior_df = 6
)toml"));
  expect_variances(herd, {y, X, K, {8.0, 2.0}, {6.0, 1.5}});
}

// One fixed class and a flat prior: se is inverse gamma of shape (n - p)/2 - 1
// and scale (sum of squares within classes)/2; given the residuals, the sum of
// squared standardised residuals is chi-square with n - 2 degrees of freedom.
TEST(samples_of_variances, of_fixed_classes_alone_are_inverse_gamma) {
  const small_herd herd;
  std::string toml = sampling(30000, "[trait.y1]\nformula = \"0 + pen\"\n[residual]\nstart = 5.0\n");
  toml.insert(toml.find("burnin"), "sampler = \"classic\"\n"); // its density is that of scaled residuals
  herd.run(toml);
  const csv_table data = csv_of_text(herd_data);
  std::map<std::string, series> of_pen;
  for (std::size_t i = 0; i < data.size(); ++i)
    of_pen[data.cell(i, "pen")].push_back(in_32_bits(number_in(data.cell(i, "y1"))));
  double squares = 0.0;
  for (const auto& [pen, y] : of_pen)
    for (const double v : y) squares += (v - mean_of(y)) * (v - mean_of(y));
  const double n = static_cast<double>(data.size()), shape = (n - 3.0) / 2.0 - 1.0;
  const double mean = 0.5 * squares / (shape - 1.0);
  const matrix_samples samples = matrix_samples_in(herd.work());
  expect_moments("residual variance", samples.at({1, 1, 1}), mean, mean / std::sqrt(shape - 2.0));

  std::istringstream rows(bytes_of(herd.work() + "py"));
  series lik;
  for (std::string line; std::getline(rows, line);) lik.push_back(std::stod(line.substr(24)));
  ASSERT_EQ(lik.size(), samples.at({1, 1, 1}).size());
  expect_moments("-log density", lik, 0.5 * n * log_2_pi + 0.5 * (n - 2.0), std::sqrt(0.5 * (n - 2.0)));
}

} // namespace
