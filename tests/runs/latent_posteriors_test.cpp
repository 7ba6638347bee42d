// Chains of latent traits against posteriors worked out by quadrature: means
// within five Monte Carlo standard errors, seeds fixed.
#include "runs/chain_samples.h"
#include "runs/two_bodies.h"
#include "support/run_case.h"

#include <cmath>
#include <functional>

namespace {

using namespace zeph_test;

double normal_cdf(double x) { return 0.5 * std::erfc(-x / std::sqrt(2.0)); }
double normal_pdf(double x) { return std::exp(-0.5 * x * x) / std::sqrt(2.0 * M_PI); }

// A class effect of `levels` and nothing else; observations and levels given.
struct latent_case : run_case {
  latent_case(std::int32_t kind, std::int32_t levels, const std::vector<std::pair<int, float>>& data,
              double variance) {
    d = described_model{};
    d.traits.resize(1);
    d.traits[0].kind = kind;
    d.traits[0].effects = {{1, levels}};
    d.integers = 5, d.reals = 2, d.records = static_cast<std::int32_t>(data.size());
    d.residual = {variance};
    if (kind == trait_censored) d.traits[0].code_place = 2, d.traits[0].upper_place = 2;
    integers.clear();
    reals.clear();
    for (const auto& [level, y] : data) {
      integers.push_back({level, 0, 1, 1, static_cast<std::int32_t>(integers.size()) + 1});
      reals.push_back({y, 0.0F});
    }
    make_model();
  }
  // Rounds of both bodies; take(run) after each of the fast one's.
  void sample(const std::string& directives, int rounds, const std::function<void(zeph::run&)>& take) {
    write(directives);
    body_run fast(directory.path(), false);
    ASSERT_TRUE(fast.started) << fast.listing.str();
    for (int round = 0; round < rounds; ++round) {
      ASSERT_TRUE(fast.round()) << fast.listing.str();
      if (round >= 200) take(fast.r);
    }
  }
};

TEST(latent_posterior, of_a_probit_with_one_class_effect_and_forty_records) {
  std::vector<std::pair<int, float>> data;
  const int positive[2] = {13, 5};
  for (int level = 1; level <= 2; ++level)
    for (int i = 0; i < 20; ++i) data.emplace_back(level, i < positive[level - 1] ? 1.0F : 0.0F);
  latent_case c(trait_liability, 2, data, 1.0);
  series b[2];
  c.sample("2 0\n12 34\n0 20000 1\n1 0\n", 20000, [&](zeph::run& r) {
    for (int l = 0; l < 2; ++l) b[l].push_back(r.sampler.sol(l + 1));
  });
  for (int l = 0; l < 2; ++l) {
    double mass = 0, mean = 0;
    for (double x = -3; x <= 3; x += 1e-3) {
      const double p = std::pow(normal_cdf(x), positive[l]) * std::pow(normal_cdf(-x), 20 - positive[l]);
      mass += p, mean += p * x;
    }
    expect_mean("probit level " + std::to_string(l + 1), b[l], mean / mass);
  }
}

TEST(latent_posterior, of_an_ordered_trait_with_one_free_threshold) {
  std::vector<std::pair<int, float>> data;
  const int frequency[4] = {9, 8, 11, 7};
  for (int k = 1; k <= 4; ++k)
    for (int i = 0; i < frequency[k - 1]; ++i) data.emplace_back(1, static_cast<float>(k));
  const double variance = 0.6, sd = std::sqrt(variance);
  latent_case c(trait_categorical, 1, data, variance);
  series b, threshold;
  c.sample("2 0\n12 34\n0 20000 1\n1 0\n", 20000, [&](zeph::run& r) {
    b.push_back(r.sampler.sol(1));
    threshold.push_back(r.categories.catstr[0].thr(2));
    EXPECT_EQ(r.categories.catstr[0].thr(1), 0.0);
    EXPECT_EQ(r.categories.catstr[0].thr(3), 1.0);
  });
  double mass = 0, mean_b = 0, mean_t = 0;
  for (double x = -1.5; x <= 2.5; x += 0.005)
    for (double t = 0.0025; t < 1.0; t += 0.005) {
      const double f[5] = {0.0, normal_cdf(-x / sd), normal_cdf((t - x) / sd), normal_cdf((1 - x) / sd), 1.0};
      double p = 1.0;
      for (int k = 1; k <= 4; ++k) p *= std::pow(10.0 * (f[k] - f[k - 1]), frequency[k - 1]);
      mass += p, mean_b += p * x, mean_t += p * t;
    }
  expect_mean("ordered, mean", b, mean_b / mass);
  expect_mean("ordered, threshold", threshold, mean_t / mass);
}

TEST(latent_posterior, of_mean_and_variance_of_a_censored_trait) {
  std::vector<std::pair<int, float>> data;
  std::vector<int> code;
  std::vector<float> upper;
  const auto add = [&](float y, int how, float high) {
    data.emplace_back(1, y);
    code.push_back(how);
    upper.push_back(high);
  };
  for (int i = 0; i < 16; ++i) add(4.0F + 0.4F * static_cast<float>(i), 0, 0.0F);
  for (int i = 0; i < 5; ++i) add(8.0F + 0.5F * static_cast<float>(i), 1, 0.0F);  // at least
  for (int i = 0; i < 3; ++i) add(5.0F - 0.5F * static_cast<float>(i), -1, 0.0F); // at most
  for (int i = 0; i < 4; ++i) add(5.0F + static_cast<float>(i), 2, 7.0F + static_cast<float>(i));
  latent_case c(trait_censored, 1, data, 4.0);
  for (std::size_t i = 0; i < code.size(); ++i) {
    c.integers[i][1] = code[i];
    c.reals[i][1] = upper[i];
  }
  series b, variance;
  c.sample("3 0\n12 34\n0 30000 1\n1 0\n", 30000, [&](zeph::run& r) {
    b.push_back(r.sampler.sol(1));
    variance.push_back(std::log(r.sampler.RCOV(1, 1, 1)));
  });
  // uniform in mean and variance; grid in log variance
  double mass = 0, mean_b = 0, mean_v = 0;
  for (double x = 3; x <= 13; x += 0.02)
    for (double lv = -1; lv <= 5; lv += 0.02) {
      const double sd = std::exp(0.5 * lv);
      double log_p = lv;
      for (std::size_t i = 0; i < data.size(); ++i) {
        const double z = (static_cast<double>(data[i].second) - x) / sd;
        const double high = (static_cast<double>(upper[i]) - x) / sd;
        if (code[i] == 0) log_p += std::log(normal_pdf(z) / sd);
        if (code[i] == 1) log_p += std::log(normal_cdf(-z));
        if (code[i] == -1) log_p += std::log(normal_cdf(z));
        if (code[i] == 2) log_p += std::log(normal_cdf(high) - normal_cdf(z));
      }
      const double p = std::exp(log_p + 60.0);
      mass += p, mean_b += p * x, mean_v += p * lv;
    }
  expect_mean("censored, mean", b, mean_b / mass);
  expect_mean("censored, log variance", variance, mean_v / mass);
}

} // namespace
