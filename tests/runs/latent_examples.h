// The examples whose posterior is known: their answers are made again here by
// quadrature, and chains are held against them.
#pragma once

#include "runs/latent_chains.h"

#include <cmath>
#include <functional>

namespace zeph_test {

inline std::string example_folder(const std::string& name) {
  return source_folder() + "/examples/" + name + "/";
}

inline double normal_share(double x) { return 0.5 * std::erfc(-x / std::sqrt(2.0)); }

// Posterior mean and standard deviation by the weights of a grid.
struct grid_moments {
  double mass = 0.0, first = 0.0, second = 0.0;
  void add(double weight, double x) { mass += weight, first += weight * x, second += weight * x * x; }
  [[nodiscard]] double mean() const { return first / mass; }
  [[nodiscard]] double sd() const { return std::sqrt(second / mass - mean() * mean()); }
};

// Answer of the example, which the quadrature confirms to its printed digits.
inline double confirmed(const std::string& example, const std::string& quantity, const grid_moments& found) {
  const csv_table answers = csv_of_file(example_folder(example) + "answers.csv");
  for (std::size_t i = 0; i < answers.size(); ++i) {
    if (answers.cell(i, "quantity") != quantity) continue;
    const double mean = number_in(answers.cell(i, "mean"));
    EXPECT_NEAR(found.mean(), mean, 2e-5) << quantity;
    EXPECT_NEAR(found.sd(), number_in(answers.cell(i, "sd")), 2e-5) << quantity;
    return mean;
  }
  ADD_FAILURE() << "no answer for " << quantity;
  return 0.0;
}

inline std::vector<double> column_of(const csv_table& data, const std::string& name) {
  std::vector<double> out;
  for (std::size_t i = 0; i < data.size(); ++i) out.push_back(number_in(data.cell(i, name)));
  return out;
}

// ---- log-normal times, censored on the right; flat in both means and the variance

struct time_group {
  std::vector<double> y, seen;
  // Likelihood of the mean, summed over a grid with its moments; scaled by exp(60).
  [[nodiscard]] grid_moments over_means(double low, double high, double variance) const {
    grid_moments out;
    const double sd = std::sqrt(variance);
    for (double m = low; m <= high; m += 0.03) {
      double log_p = 60.0;
      for (std::size_t i = 0; i < y.size(); ++i) {
        const double z = (y[i] - m) / sd;
        log_p += seen[i] > 0.0 ? -0.5 * z * z - std::log(sd) : std::log(std::max(normal_share(-z), 1e-300));
      }
      out.add(std::exp(log_p), m);
    }
    return out;
  }
};

inline void hold_censored_times(int rounds) {
  const csv_table data = csv_of_file(example_folder("censored_times") + "data.csv");
  std::map<std::string, time_group> groups;
  for (std::size_t i = 0; i < data.size(); ++i) {
    time_group& g = groups[data.cell(i, "treatment")];
    g.y.push_back(number_in(data.cell(i, "log_weeks")));
    g.seen.push_back(number_in(data.cell(i, "relapse")));
  }
  grid_moments drug, placebo, variance;
  for (double lv = -2.5; lv <= 3.5;
       lv += 0.04) { // flat in the variance: exp(lv) for the grid of its logarithm
    const double v = std::exp(lv);
    const grid_moments a = groups["drug"].over_means(1.0, 8.0, v),
                       b = groups["placebo"].over_means(-1.0, 5.0, v);
    const double weight = a.mass * b.mass * v;
    drug.mass += weight, drug.first += weight * a.mean(), drug.second += weight * a.second / a.mass;
    placebo.mass += weight, placebo.first += weight * b.mean(), placebo.second += weight * b.second / b.mass;
    variance.add(weight, v);
  }
  const latent_chain chain = chain_of_example("censored_times", rounds);
  const std::string name = "class|log_weeks|treatment|";
  hold(chain, {"censored, mean of the drug", name + "drug", "",
               confirmed("censored_times", "treatment drug", drug), 0.0});
  hold(chain, {"censored, mean of the placebo", name + "placebo", "",
               confirmed("censored_times", "treatment placebo", placebo), 0.0});
  expect_mean("censored, residual variance", chain.matrix.at({1, 1, 1}),
              confirmed("censored_times", "residual variance", variance));
}

// ---- two components of variance 1, the memberships summed out

inline void hold_mixture(int rounds) {
  const std::vector<double> y = column_of(csv_of_file(example_folder("mixture") + "data.csv"), "scs");
  grid_moments mean, distance, liability;
  std::vector<double> zero(y.size()), one(y.size());
  for (double m = 1.8; m < 4.41; m += 0.1) {
    for (std::size_t i = 0; i < y.size(); ++i) zero[i] = 4.0 * std::exp(-0.5 * (y[i] - m) * (y[i] - m));
    for (double d = 0.0; d < 6.41; d += 0.1) {
      for (std::size_t i = 0; i < y.size(); ++i) one[i] = 4.0 * std::exp(-0.5 * std::pow(y[i] - m - d, 2));
      for (double a = -2.2; a < 1.61; a += 0.1) {
        const double p = normal_share(a);
        double weight = 1e30;
        for (std::size_t i = 0; i < y.size(); ++i) weight *= zero[i] + p * (one[i] - zero[i]);
        mean.add(weight, m), distance.add(weight, d), liability.add(weight, a);
      }
    }
  }
  const latent_chain chain = chain_of_example("mixture", rounds);
  hold(chain, {"mixture, mean", "class|scs|mean|mean", "", confirmed("mixture", "mean of scs", mean), 0.0});
  hold(chain, {"mixture, distance", "regression|scs|shift(infected)|", "",
               confirmed("mixture", "shift(infected)", distance), 0.0});
  hold(chain, {"mixture, mean of the liability", "class|infected|mean|mean", "",
               confirmed("mixture", "mean of infected", liability), 0.0});
}

// ---- sequences: b the mean of the liability to fall ill, a of that to be susceptible

inline void hold_cure(int rounds) {
  const csv_table data = csv_of_file(example_folder("cure") + "data.csv");
  std::map<std::string, std::pair<int, int>> cows; // periods, of them ill
  for (std::size_t i = 0; i < data.size(); ++i) {
    auto& [periods, ill] = cows[data.cell(i, "cow")];
    ++periods;
    ill += data.cell(i, "disease") == "1" ? 1 : 0;
  }
  grid_moments disease, susceptible;
  for (double a = -2.0; a < 6.01; a += 0.03)
    for (double b = -2.0; b < 1.01; b += 0.03) {
      const double able = normal_share(a), fall = normal_share(b);
      double log_p = 160.0;
      for (const auto& [cow, seen] : cows) {
        const auto [periods, ill] = seen;
        log_p += ill > 0 ? std::log(able) + ill * std::log(fall) + (periods - ill) * std::log(1.0 - fall)
                         : std::log(1.0 - able + able * std::pow(1.0 - fall, periods));
      }
      disease.add(std::exp(log_p), b);
      susceptible.add(std::exp(log_p), a);
    }
  const latent_chain chain = chain_of_example("cure", rounds);
  hold(chain, {"cure, mean of the sequence", "class|disease|mean|mean", "",
               confirmed("cure", "mean of disease", disease), 0.0});
  hold(chain, {"cure, mean of the cured trait", "class|susceptible|mean|mean", "",
               confirmed("cure", "mean of susceptible", susceptible), 0.0});
}

} // namespace zeph_test
