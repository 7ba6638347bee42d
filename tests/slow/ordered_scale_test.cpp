// A chain of an ordered trait with moves against quadrature over its three parameters.
#include "gibbs/moves/trait_case.h"

#include <array>
#include <cstdio>

namespace zeph_test {
namespace {

constexpr std::array<int, 4> count = {12, 9, 7, 8}; // records of the categories

double normal_probability(double x) { return 0.5 * std::erfc(-x / std::sqrt(2.0)); }

struct posterior {
  std::array<double, 3> mean{}, sd{}; // thr(2), ln of the residual standard deviation, mean
};

// Uniform in the mean, the residual variance and thr(2): a sum over a grid.
posterior by_quadrature() {
  double mass = 0;
  std::array<double, 3> first{}, second{};
  for (double t = 0.005; t < 1.0; t += 0.01)
    for (double s = -1.5; s <= 2.5; s += 0.04) // ln of the standard deviation
      for (double m = -2.0; m <= 2.5; m += 0.03) {
        const double sd = std::exp(s), thr[3] = {0.0, t, 1.0};
        double log_p = 2.0 * s, below = 0.0; // dR = 2 sd^2 ds
        for (std::size_t k = 0; k < 4; ++k) {
          const double to = k == 3 ? 1.0 : normal_probability((thr[k] - m) / sd);
          log_p += count[k] * std::log(to - below);
          below = to;
        }
        const double p = std::exp(log_p + 40.0);
        const std::array<double, 3> x = {t, s, m};
        mass += p;
        for (std::size_t i = 0; i < 3; ++i) first[i] += p * x[i], second[i] += p * x[i] * x[i];
      }
  posterior found;
  for (std::size_t i = 0; i < 3; ++i) {
    found.mean[i] = first[i] / mass;
    found.sd[i] = std::sqrt(second[i] / mass - found.mean[i] * found.mean[i]);
  }
  return found;
}

struct ordered_chain : trait_case {
  static trait_setting setting() {
    trait_setting x;
    x.kinds = {3};
    x.categories = 4;
    x.records = 36;
    x.factors = 0;
    x.fixed = true;
    x.fixed_levels = 1;
    x.v_residual = 0;
    return x;
  }
  ordered_chain() : trait_case(setting()) {
    const double middle[4] = {-0.5, 0.25, 0.75, 1.5};
    std::int32_t r = 0;
    for (int k = 1; k <= 4; ++k)
      for (int i = 0; i < count[static_cast<std::size_t>(k - 1)]; ++i) {
        categories.catobs(1, ++r) = k;
        design.Y_M(1, r) = static_cast<float>(middle[k - 1] + 0.01 * i);
      }
    count_group_records(m, design);
  }
  // Means over rounds after 1000, and the largest deviation from the answer in standard errors of 100
  // batches.
  double worst_z(int rounds, const posterior& answer) {
    begin_rounds();
    EXPECT_TRUE(move_of(1).moves) << move_of(1).why;
    constexpr int batches = 100;
    std::array<std::array<double, batches>, 3> mean{};
    scan_records all = records();
    for (f.state.iround = 1; f.state.iround <= rounds + 1000; ++f.state.iround) {
      GIBSCAN(all, f.asked, f.state, f.counts, files);
      const std::int64_t n = f.state.iround - 1001;
      if (n < 0) continue;
      const auto b = static_cast<std::size_t>(n / (rounds / batches));
      const double x[3] = {categories.catstr[0].thr(2), 0.5 * std::log(s.RCOV(1, 1, 1)), s.sol(1)};
      for (std::size_t i = 0; i < 3; ++i) mean[i][b] += x[i] * batches / rounds;
    }
    double worst = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      double sum = 0, squares = 0;
      for (const double x : mean[i]) sum += x, squares += x * x;
      const double of_all = sum / batches;
      const double error = std::sqrt((squares / batches - of_all * of_all) / (batches - 1));
      std::printf("mean %.4f (error %.4f), quadrature %.4f (sd %.4f)\n", of_all, error, answer.mean[i],
                  answer.sd[i]);
      worst = std::max(worst, std::fabs(of_all - answer.mean[i]) / error);
    }
    std::printf("accepted %.3f\n", share_accepted());
    return worst;
  }
};

// Limit: error probability 1e-4 for each mean by Student's distribution with 99 degrees of freedom.
TEST(ordered_scale, chain_with_moves_has_the_posterior_of_quadrature) {
  const posterior answer = by_quadrature();
  // by another program
  EXPECT_NEAR(answer.mean[0], 0.5379, 1e-3);
  EXPECT_NEAR(answer.mean[1], 0.0163, 1e-3);
  EXPECT_NEAR(answer.mean[2], 0.3370, 1e-3);
  EXPECT_LT(ordered_chain().worst_z(400000, answer), 4.05);
}

} // namespace
} // namespace zeph_test
