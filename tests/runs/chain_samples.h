// The samples that a chain left, and what their means are worth: effective
// sample size by the initial positive sequence (C. J. Geyer, Practical Markov
// chain Monte Carlo, Statistical Science 7 (1992) 473-483), made monotone.
//
// A statement "mean of f over the posterior is m" is judged by
// |mean of f over the samples - m| < 5 Monte Carlo standard errors, seed fixed.
// Standard deviations are judged as means of squared deviations from the exact
// mean, quantiles as means of the indicator of being at or below them.
//
// With the environment variable ZEPH_FIGURES every judged figure is added to
// the file that it names, a row of a table each.
#pragma once

#include "runs/named_solutions.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

namespace zeph_test {

using series = std::vector<double>;

inline double mean_of(const series& x) {
  double sum = 0.0;
  for (const double v : x) sum += v;
  return sum / static_cast<double>(x.size());
}

struct estimate {
  double mean = 0.0;
  double variance = 0.0; // of one sample
  double ess = 0.0;
  double error() const { return std::sqrt(variance / ess); }
};

// Autocovariances are summed in pairs (2k, 2k+1) as long as a pair is positive,
// each pair at most as large as the one before.
inline estimate estimate_of(const series& x) {
  const std::size_t n = x.size();
  estimate out{mean_of(x), 0.0, static_cast<double>(n)};
  const auto autocovariance = [&](std::size_t lag) {
    double sum = 0.0;
    for (std::size_t i = 0; i + lag < n; ++i) sum += (x[i] - out.mean) * (x[i + lag] - out.mean);
    return sum / static_cast<double>(n);
  };
  out.variance = autocovariance(0);
  if (!(out.variance > 0.0)) return out;
  double total = -out.variance, before = HUGE_VAL;
  for (std::size_t k = 0; 2 * k + 1 < n; ++k) {
    const double pair = std::min(before, autocovariance(2 * k) + autocovariance(2 * k + 1));
    if (pair <= 0.0) break;
    total += 2.0 * pair;
    before = pair;
  }
  // antithetic series may count for more than they hold; that much is not claimed
  out.ess = std::min(static_cast<double>(n) * out.variance / std::max(total, 1e-300), static_cast<double>(n));
  return out;
}

template <class F> series each(const series& x, F&& f) {
  series out;
  out.reserve(x.size());
  for (const double v : x) out.push_back(f(v));
  return out;
}

inline void note_figure(const std::string& quantity, double exact, double found, double error, double ess) {
  const char* file = std::getenv("ZEPH_FIGURES");
  if (file == nullptr) return;
  const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
  std::string name = quantity;
  std::replace(name.begin(), name.end(), '|', ' '); // which parts the columns of the table
  char row[400];
  std::snprintf(row, sizeof row, "| %s | %s | %.6g | %.6g | %.2g | %.2f | %.0f |\n", test->name(),
                name.c_str(), exact, found, error, (found - exact) / error, ess);
  std::ofstream(file, std::ios::app) << row;
}

// The mean of the series is `exact` within five Monte Carlo standard errors.
inline void expect_mean(const std::string& quantity, const series& x, double exact) {
  const estimate e = estimate_of(x);
  EXPECT_GT(e.ess, 200.0) << quantity;
  EXPECT_NEAR(e.mean, exact, 5.0 * e.error()) << quantity << ", " << e.ess << " effective samples";
  note_figure(quantity, exact, e.mean, e.error(), e.ess);
}

// Mean and standard deviation of the posterior. The error of the standard
// deviation is that of the mean square by the first-order rule.
inline void expect_moments(const std::string& quantity, const series& x, double mean, double sd) {
  expect_mean(quantity + ", mean", x, mean);
  const estimate e = estimate_of(each(x, [&](double v) { return (v - mean) * (v - mean); }));
  const double found = std::sqrt(e.mean), error = e.error() / (2.0 * sd);
  EXPECT_NEAR(e.mean, sd * sd, 5.0 * e.error()) << "variance of " << quantity;
  note_figure(quantity + ", SD", sd, found, error, e.ess);
}

// The share of samples at or below x is p.
inline void expect_share_below(const std::string& quantity, const series& x, double bound, double p) {
  char name[100];
  std::snprintf(name, sizeof name, "%s, P(<= %.4g)", quantity.c_str(), bound);
  expect_mean(name, each(x, [&](double v) { return v <= bound ? 1.0 : 0.0; }), p);
}

// gib.samples by (matrix, row, column): I8, 3I4, G15.6, I11.
using matrix_samples = std::map<std::array<int, 3>, series>;

inline matrix_samples matrix_samples_in(const std::string& directory) {
  std::ifstream file(directory + "gib.samples");
  matrix_samples out;
  for (std::string line; std::getline(file, line);) {
    if (line.size() != 46) throw std::runtime_error("gib.samples: a row of another length");
    const auto number = [&](std::size_t at) { return std::stoi(line.substr(at, 4)); };
    out[{number(8), number(12), number(16)}].push_back(std::stod(line.substr(20, 15)));
  }
  return out;
}

// sol.samples that hold all solutions: samples of equation e at e - 1.
inline std::vector<series> solution_samples_in(const std::string& directory) {
  const std::vector<std::string> records = framed_records(directory + "sol.samples");
  std::int32_t neq = 0;
  std::memcpy(&neq, records.at(0).data(), 4);
  std::vector<series> out(static_cast<std::size_t>(neq));
  for (std::size_t s = 1; s < records.size(); ++s) {
    if (records[s].size() != 4 + 8 * out.size())
      throw std::runtime_error("sol.samples: a record of another length");
    for (std::size_t e = 0; e < out.size(); ++e) {
      double value = 0.0;
      std::memcpy(&value, records[s].data() + 4 + 8 * e, 8);
      out[e].push_back(value);
    }
  }
  return out;
}

inline std::map<std::string, series> named_samples_in(const std::string& work) {
  const std::vector<series> samples = solution_samples_in(work);
  std::vector<double> place(samples.size());
  for (std::size_t e = 0; e < place.size(); ++e) place[e] = static_cast<double>(e);
  std::map<std::string, series> out;
  for (const auto& [name, e] : names_of(work, place)) out[name] = samples[static_cast<std::size_t>(e)];
  return out;
}

} // namespace zeph_test
