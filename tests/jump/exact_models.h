// Moves between models with a ratio in which nothing is kept but what makes the chain exact:
// the parts that the program gives (densities of solutions and data, the draw of the
// normals, the conversion) with the density of the matrix proposal as it is drawn and the prior that the
// scan samples from. The share of rounds in each model is then its posterior probability,
// which quadrature gives.
//
// Two traits, one identity factor of order 2, residual matrix and class effects known.
#pragma once

#include "jump/jump_rounds.h"
#include "jump/model_moves.h"
#include "support/jump_case.h"

#include <cmath>
#include <gtest/gtest.h>

namespace zeph_test {

inline constexpr double known_mean = 5.0; // of the records made
inline constexpr std::int32_t known_levels = 8;

struct known_case : jump_case {
  known_case() : jump_case({{{"I", 2, known_levels}}, 2, 40, false, false, 1, 5, 7}) {
    start_moves(lines(6, 0, 1, 1000000));
    for (std::int32_t g = 1; g < r->layout.ngroups; ++g) r->state.gropd(g) = 0;
    for (std::int64_t e = 1; e <= m->NBEGRA(1); ++e) r->sampler.sol(e) = known_mean;
    r->state.matopd(2) = 0; // the residual matrix stays
    r->asked.nburn = 1000000;
  }
  std::int32_t v() const { return r->asked.PDF(1); }

  // Means of the levels less the known mean, and their records.
  struct level_mean {
    double n = 0, y1 = 0, y2 = 0;
  };
  std::vector<level_mean> means() const {
    std::vector<level_mean> of(known_levels);
    for (std::size_t i = 0; i < integers.size(); ++i) {
      level_mean& x = of[static_cast<std::size_t>(integers[i][2] - 1)];
      x.n += 1;
      x.y1 += static_cast<double>(reals[i][0]) - known_mean;
      x.y2 += static_cast<double>(reals[i][1]) - known_mean;
    }
    for (level_mean& x : of) x.y1 /= x.n, x.y2 /= x.n;
    return of;
  }
};

// sum over levels of ln N(mean; 0, G + R/n), without 2 pi
inline double log_likelihood(const std::vector<known_case::level_mean>& means, double g11, double g12,
                             double g22) {
  double sum = 0;
  for (const auto& x : means) {
    if (x.n == 0) continue;
    const double a = g11 + 2.0 / x.n, b = g12 + 0.3 / x.n, c = g22 + 2.0 / x.n, det = a * c - b * b;
    sum -= 0.5 * (std::log(det) + (c * x.y1 * x.y1 - 2.0 * b * x.y1 * x.y2 + a * x.y2 * x.y2) / det);
  }
  return sum;
}

// ln of the inverse Wishart density, order 1 and 2, by the library's ln Gamma
inline double log_prior_1(double g, double v, double s) {
  return 0.5 * v * std::log(0.5 * s) - std::lgamma(0.5 * v) - (0.5 * v + 1.0) * std::log(g) - 0.5 * s / g;
}
inline double log_prior_2(double g11, double g12, double g22, double v, const mat<double>& G0, double scale) {
  const double s11 = scale * G0(1, 1), s12 = scale * G0(1, 2), s22 = scale * G0(2, 2);
  const double det = g11 * g22 - g12 * g12, trace = (s11 * g22 - 2.0 * s12 * g12 + s22 * g11) / det;
  return 0.5 * v * std::log(s11 * s22 - s12 * s12) - v * std::log(2.0) - 0.5 * std::log(std::acos(-1.0)) -
         std::lgamma(0.5 * v) - std::lgamma(0.5 * (v - 1.0)) - 0.5 * (v + 3.0) * std::log(det) - 0.5 * trace;
}

// Posterior probability of two rows, both models alike beforehand.
inline double exact_probability(const known_case& c) {
  const auto means = c.means();
  const mat<double>& G0 = c.m->RMAT(1).COV_MAT;
  const double v = c.v(), h = 0.125;
  double one = 0, two = 0;
  for (double s = -6.0; s <= 6.0; s += h) {
    const double g = std::exp(s);
    one += std::exp(log_likelihood(means, g, 0.0, 0.0) + log_prior_1(g, v, (v - 2.0) * G0(1, 1)) + s) * h;
    for (double t = -6.0; t <= 6.0; t += h)
      for (double w = -4.5; w <= 4.5; w += h) {
        const double r = std::tanh(w), g22 = std::exp(t), g12 = r * std::exp(0.5 * (s + t));
        two += std::exp(log_likelihood(means, g, g12, g22) + log_prior_2(g, g12, g22, v, G0, v - 3.0) +
                        1.5 * (s + t)) *
               (1.0 - r * r) * h * h * h;
      }
  }
  return two / (one + two);
}

// The ratio from the small to the large model that leaves the posterior as it is.
inline double exact_ratio(const known_case& c) {
  std::istringstream data(c.r->jump.diagnostic.at(1)), solutions(c.r->jump.diagnostic.at(2));
  double x = 0, likelihood = 0, new_solutions = 0;
  for (int i = 0; i < 6; ++i) data >> likelihood;
  for (int i = 0; i < 6; ++i) solutions >> new_solutions; // D_l - (D_s + Q) + jacobian
  const mat<double>& G = c.r->jump.cov_new;
  const mat<double>& S = c.r->jump.prop_scale;
  const mat<double>& G0 = c.m->RMAT(1).COV_MAT;
  const double v = c.v(), df = c.r->asked.prodf;
  x = log_prior_2(G(1, 1), G(1, 2), G(2, 2), v, G0, v - 3.0) - log_prior_1(G(1, 1), v, (v - 2.0) * G0(1, 1));
  // the draw: order 2 given its first row, which alone has one degree of freedom less
  x -= log_prior_2(G(1, 1), G(1, 2), G(2, 2), df, S, 1.0) - log_prior_1(G(1, 1), df - 1.0, S(1, 1));
  return x + new_solutions + likelihood;
}

// Share of the rounds in the model of two rows against its probability; the first batch is burn-in.
inline void hold_visits(int batches, int rounds, double largest_error) {
  known_case c;
  const double exact = exact_probability(c);
  EXPECT_GT(exact, 0.1);
  EXPECT_LT(exact, 0.9);
  jump_records records = jump_records_of(*c.r);
  double sum = 0, squares = 0;
  for (int batch = -1; batch < batches; ++batch) {
    double large = 0;
    for (int round = 0; round < rounds; ++round) {
      propose_move(records);
      if (!c.r->jump.jump_down) recompute_data_blocks(records);
      c.scan();
      convert_dimension(records);
      model_move(records);
      c.r->jump.log_ratio = exact_ratio(c);
      decide_move(records);
      if (c.r->jump.accepted) take_move(records);
      large += c.r->state.ntr[0] == 2;
      c.listing.str("");
    }
    if (batch < 0) continue;
    sum += large / rounds;
    squares += (large / rounds) * (large / rounds);
  }
  const double mean = sum / batches, error = std::sqrt((squares / batches - mean * mean) / (batches - 1));
  EXPECT_LT(error, largest_error);
  EXPECT_NEAR(mean, exact, 5.0 * error);
}

} // namespace zeph_test
