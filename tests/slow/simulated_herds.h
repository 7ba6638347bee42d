// Data sets drawn from the model and its priors, for simulation-based
// calibration: when truth comes from the prior and data from the truth, the rank
// of the truth among draws from the posterior is uniform (S. Talts, M. Betancourt,
// D. Simpson, A. Vehtari and A. Gelman, Validating Bayesian inference algorithms
// with simulation-based calibration, 2018). Slopes have flat priors: shifting all
// data along a slope shifts the posterior alike, so its truth can be any number.
//
// Two traits, a pedigree factor G (24 animals) and an identity factor P (8 pens),
// both of order 2, two residual groups, 60 records.
#pragma once

#include "runs/chain_samples.h"
#include "support/dense_matrix.h"

#include <random>

namespace zeph_test {

using pair_matrix = std::array<double, 3>; // (1,1), (2,1), (2,2)

struct simulated_truth {
  pair_matrix G, P, R[2];
  std::vector<std::array<double, 2>> animal, pen; // from level 1 at [0]
  std::array<double, 2> slope;
};

// deleted: the share of the values of trait 2, and half of it of trait 1, that
// are taken out at random after the data were made.
struct simulated_herd {
  static constexpr int animals = 24, pens = 8, records = 60;
  static constexpr int df_G = 9, df_P = 10, df_R = 9;
  static constexpr pair_matrix mean_G{2.0, 0.6, 1.5}, mean_P{1.0, -0.3, 0.8}, mean_R{1.2, 0.4, 0.8};

  simulated_herd(unsigned seed, double deleted) : draw(seed) {
    truth.G = inverse_wishart(mean_G, df_G);
    truth.P = inverse_wishart(mean_P, df_P);
    for (pair_matrix& R : truth.R) R = inverse_wishart(mean_R, df_R);
    truth.slope = {1.5, -2.5};
    make_pedigree();
    for (int k = 0; k < pens; ++k) truth.pen.push_back(normal_pair(truth.P, 1.0));
    data = "animal,pen,group,age,y1,y2\n";
    for (int r = 0; r < records; ++r) data += record(r, deleted);
  }

  simulated_truth truth;
  std::string data, pedigree = "animal,sire,dam\n";

private:
  double normal() { return bell(draw); }
  int below(int n) { return static_cast<int>(draw() % static_cast<unsigned>(n)); }
  // s (L z), L the lower factor of C
  std::array<double, 2> normal_pair(const pair_matrix& C, double s) {
    const double z1 = normal(), z2 = normal(), l11 = std::sqrt(C[0]), l21 = C[1] / l11;
    return {s * l11 * z1, s * (l21 * z1 + std::sqrt(C[2] - l21 * l21) * z2)};
  }
  // inverse of a sum of df squares of normals with covariance ((df - 3) mean)^-1
  pair_matrix inverse_wishart(const pair_matrix& mean, int df) {
    const double s = df - 3.0, det = (mean[0] * mean[2] - mean[1] * mean[1]) * s;
    const pair_matrix inverse{mean[2] / det, -mean[1] / det, mean[0] / det};
    double a = 0.0, b = 0.0, c = 0.0;
    for (int i = 0; i < df; ++i) {
      const auto [x, y] = normal_pair(inverse, 1.0);
      a += x * x, b += x * y, c += y * y;
    }
    const double d = a * c - b * b;
    return {c / d, -b / d, a / d};
  }
  // Parents of different sex from the animals before, so without selfing; the
  // inbreeding of parents lowers the Mendelian variance: 1/2 - (F_s + F_d)/4.
  void make_pedigree() {
    dense_matrix A(animals);
    for (int a = 1; a <= animals; ++a) {
      const int sire = a > 8 ? 2 * below((a - 1) / 2) + 1 : 0, dam = a > 8 ? 2 * below((a - 1) / 2) + 2 : 0;
      const int s = sire < a ? sire : 0, d = dam < a ? dam : 0;
      pedigree += std::to_string(a) + "," + std::to_string(s) + "," + std::to_string(d) + "\n";
      for (int j = 1; j < a; ++j)
        A(a, j) = A(j, a) = 0.5 * ((s > 0 ? A(j, s) : 0.0) + (d > 0 ? A(j, d) : 0.0));
      A(a, a) = 1.0 + (s > 0 && d > 0 ? 0.5 * A(s, d) : 0.0);
      double variance = 1.0;
      for (const int parent : {s, d}) variance -= parent > 0 ? 0.25 * A(parent, parent) : 0.0;
      std::array<double, 2> u = normal_pair(truth.G, std::sqrt(variance));
      for (const int parent : {s, d})
        for (std::size_t t = 0; t < 2; ++t)
          u[t] += parent > 0 ? 0.5 * truth.animal[static_cast<std::size_t>(parent - 1)][t] : 0.0;
      truth.animal.push_back(u);
    }
  }
  std::string record(int r, double deleted) {
    const int animal = 1 + r * 7 % animals, pen = 1 + below(pens), group = r % 5 < 2 ? 1 : 0,
              age = below(7) - 3;
    const auto e = normal_pair(truth.R[group], 1.0);
    std::string line = std::to_string(animal) + "," + std::to_string(pen) + "," + (group == 0 ? "a," : "b,") +
                       std::to_string(age);
    const bool gone[2] = {uniform() < 0.5 * deleted, uniform() < deleted};
    for (std::size_t t = 0; t < 2; ++t) {
      const double y = truth.slope[t] * age + truth.animal[static_cast<std::size_t>(animal - 1)][t] +
                       truth.pen[static_cast<std::size_t>(pen - 1)][t] + e[t];
      char cell[32];
      std::snprintf(cell, sizeof cell, ",%.6f", y);
      line += gone[t] ? ",NA" : cell;
    }
    return line + "\n";
  }
  double uniform() { return static_cast<double>(draw() >> 11) / 9007199254740992.0; }

  std::mt19937_64 draw;
  std::normal_distribution<double> bell;
};

// The description of those data; seeds by the number of the data set.
inline std::string description_of_herds(int number, int burnin, int samples, int interval) {
  const auto rows = [](const pair_matrix& m) {
    return "[[" + std::to_string(m[0]) + ", " + std::to_string(m[1]) + "], [" + std::to_string(m[1]) + ", " +
           std::to_string(m[2]) + "]]\n";
  };
  return "[data]\nfile = \"data.csv\"\n[trait.y1]\nformula = \"0 + age + (1 | animal) + (1 | pen)\"\n"
         "[trait.y2]\nformula = \"0 + age + (1 | animal) + (1 | "
         "pen)\"\n[covariable.age]\n[factor.animal]\npedigree = "
         "\"pedigree.csv\"\nstart = " +
         rows(simulated_herd::mean_G) + "prior_df = " + std::to_string(simulated_herd::df_G) +
         "\n[factor.pen]\nstart = " + rows(simulated_herd::mean_P) +
         "prior_df = " + std::to_string(simulated_herd::df_P) +
         "\n[residual]\nstart = " + rows(simulated_herd::mean_R) +
         "prior_df = " + std::to_string(simulated_herd::df_R) +
         "\ngroups = \"group\"\n[keep]\nsolutions = true\n[run]\nanalysis = \"gibbs\"\n"
         "sampler = \"classic\"\nburnin = " +
         std::to_string(burnin) + "\nrounds = " + std::to_string(samples * interval) +
         "\ninterval = " + std::to_string(interval) + "\nseeds = [" + std::to_string(1 + number) + ", " +
         std::to_string(1 + 7 * number % 30000) + "]\n";
}

// A quantity of the posterior: its samples and its truth.
struct followed {
  std::string name;
  double truth;
  series samples;
};

inline std::vector<followed> run_simulated(const scratch_directory& directory, int number, double deleted,
                                           int burnin, int samples, int interval) {
  const simulated_herd herd(static_cast<unsigned>(1000003 + number), deleted);
  directory.write("data.csv", herd.data);
  directory.write("pedigree.csv", herd.pedigree);
  std::filesystem::remove_all(directory / "work");
  const prepared_run run =
      prepare_and_solve(directory, description_of_herds(number, burnin, samples, interval));
  if (!run.prepared || run.run.exit_code != 0) throw std::runtime_error(run.messages + run.run.listing);
  matrix_samples m = matrix_samples_in(directory / "work/");
  std::map<std::string, series> u = named_samples_in(directory / "work/");
  const simulated_truth& t = herd.truth;
  series correlation;
  for (std::size_t i = 0; i < m[{1, 1, 1}].size(); ++i)
    correlation.push_back(m[{1, 2, 1}][i] / std::sqrt(m[{1, 1, 1}][i] * m[{1, 2, 2}][i]));
  return {{"G(1,1)", t.G[0], m[{1, 1, 1}]},
          {"G(2,1)", t.G[1], m[{1, 2, 1}]},
          {"G(2,2)", t.G[2], m[{1, 2, 2}]},
          {"genetic correlation", t.G[1] / std::sqrt(t.G[0] * t.G[2]), correlation},
          {"P(1,1)", t.P[0], m[{2, 1, 1}]},
          {"P(2,1)", t.P[1], m[{2, 2, 1}]},
          {"R(1,1) of group a", t.R[0][0], m[{3, 1, 1}]},
          {"R(2,1) of group a", t.R[0][1], m[{3, 2, 1}]},
          {"R(2,2) of group b", t.R[1][2], m[{4, 2, 2}]},
          {"R(2,1) of group b", t.R[1][1], m[{4, 2, 1}]},
          {"animal 5, trait 1", t.animal[4][0], u["factor|animal|y1.animal|5"]},
          {"animal 24, trait 2", t.animal[23][1], u["factor|animal|y2.animal|24"]},
          {"pen 3, trait 1", t.pen[2][0], u["factor|pen|y1.pen|3"]},
          {"slope of trait 2", t.slope[1], u["regression|y2|age|"]}};
}

} // namespace zeph_test
