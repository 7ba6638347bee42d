// Thresholds, liabilities and scale of ordered traits, moved alone.
#include "gibbs/moves/threshold_moves.h"

#include "gibbs/moves/trait_case.h"
#include "numerics/normal_draws.h"

#include <limits>

namespace zeph_test {
namespace {

constexpr double limit = 4.5; // of |z|: error probability 7e-6 a function

using parts_of_R = std::vector<std::vector<std::int32_t>>;

// ---- ln p(tau) ----

// The numbers that the move holds, z, with tau give the part of the state that it moves: one to one, z with
// the residual variance of the first group left out.
struct orbit {
  const trait_case& c;
  std::int32_t t, K, d;
  parts_of_R parts;
  std::vector<double> fixed; // z
  double variance;           // R_tt of group 1 in the units of tau

  orbit(const trait_case& from, std::int32_t trait, parts_of_R parts_)
      : c(from), t(trait), K(from.is.categories), d(K - 2), parts(std::move(parts_)) {
    dense_state now(c);
    variance = now.R[0](t, t);
    visit(now, [&](double& x, int, std::int32_t r) {
      fixed.push_back(r > 0 ? held(r, x) : x); // thr(K-1) = 1: units of tau and of the state are the same
    });
  }
  const category_record& x() const { return c.categories.catstr[0]; }
  std::int32_t category(std::int32_t r) const { return c.categories.catobs(1, r); }
  double held(std::int32_t r, double y) const {
    const std::int32_t k = category(r);
    if (k <= 1) return y;
    return k == K ? y - 1.0 : (y - x().thr(k - 1)) / (x().thr(k) - x().thr(k - 1));
  }
  // f(element, power of the scale in it, record of a liability or 0)
  template <class F> void visit(dense_state& s, F f) const {
    const std::int32_t nt = c.m.nt;
    for (std::int32_t r = 1; r <= c.is.records; ++r)
      f(s.y[static_cast<std::size_t>(t - 1)][static_cast<std::size_t>(r - 1)], 1, r);
    for (std::int32_t l = 1; c.is.fixed && l <= 2; ++l)
      f(s.sol[static_cast<std::size_t>(c.m.NBEGF(t, 1) + l - 1)], 1, 0);
    for (std::int32_t k = 1; k <= c.m.nramat; ++k) {
      for (std::int32_t l = 1; l <= c.m.NRALEV(k); ++l)
        f(s.sol[static_cast<std::size_t>(c.m.NBEGRA(k) + (l - 1) * nt + t - 1)], 1, 0);
      for (std::int32_t i = 1; i <= nt; ++i) f(s.G[static_cast<std::size_t>(k - 1)](i, t), i == t ? 2 : 1, 0);
    }
    for (std::size_t h = 0; h < s.R.size(); ++h)
      for (std::int32_t i = 1; i <= nt; ++i)
        if ((i != t || h > 0) && is_free(i)) f(s.R[h](i, t), i == t ? 2 : 1, 0);
  }
  bool is_free(std::int32_t i) const {
    for (const auto& [a, b] : c.is.zeros)
      if ((a == i && b == t) || (a == t && b == i)) return false;
    return true;
  }
  // The state of z and tau.
  dense_state state(const std::vector<double>& z, const double* tau) const {
    dense_state s(c);
    const double unit = 1.0 / tau[d - 1];
    const auto thr = [&](std::int32_t k) { return k == 1 ? 0.0 : unit * tau[k - 2]; };
    std::size_t n = 0;
    visit(s, [&](double& a, int power, std::int32_t r) {
      const double held = z[n++];
      const std::int32_t k = r > 0 ? category(r) : 0;
      if (k <= 1)
        a = held * (power == 2 ? unit * unit : unit);
      else
        a = k == K ? 1.0 + unit * held : (1.0 - held) * thr(k - 1) + held * thr(k);
    });
    s.R[0](t, t) = variance * unit * unit;
    for (auto* all : {&s.G, &s.R})
      for (dense_matrix& a : *all)
        for (std::int32_t i = 1; i <= c.m.nt; ++i) a(t, i) = a(i, t);
    return s;
  }
  // ln of the density of (z, tau) at the present z but for a constant.
  double log_density(const std::vector<double>& tau) const {
    std::vector<double> at = fixed;
    at.insert(at.end(), tau.begin(), tau.end());
    const std::size_t n = fixed.size();
    const auto map = [&](const std::vector<double>& from) {
      dense_state s = state({from.begin(), from.begin() + static_cast<std::ptrdiff_t>(n)}, &from[n]);
      std::vector<double> to;
      visit(s, [&](double& a, int, std::int32_t) { to.push_back(a); });
      to.push_back(s.R[0](t, t));
      for (std::int32_t k = 2; k <= K - 2; ++k)
        to.push_back(from[n + static_cast<std::size_t>(k - 2)] / from.back());
      return to;
    };
    return state(fixed, tau.data()).log_joint(parts) + log_jacobian(map, at);
  }
};

// p(tau) of the move against the joint density at three tau, over that of the present thresholds.
void expect_density(const trait_setting& setting, std::int32_t t, const parts_of_R& parts) {
  trait_case c(setting);
  c.draw_factors();
  c.draw_thresholds_of_prior();
  for (std::int32_t e = 1; setting.fixed && e <= 2 * c.m.nt; ++e) c.s.sol(e) = 0.1 * e - 0.2;
  c.draw_data();
  c.find();
  ASSERT_TRUE(c.move_of(t).moves) << c.move_of(t).why;
  c.ready();
  scan_records all = c.records();
  form_threshold_density(all, c.f.asked, c.move_of(t));
  const threshold_work& work = c.work.moves.thresholds;
  const orbit expected(c, t, parts);
  const auto d = static_cast<std::size_t>(setting.categories - 2);
  std::vector<double> now(d);
  for (std::size_t i = 0; i < d; ++i) now[i] = work.now(static_cast<std::int64_t>(i) + 1);
  EXPECT_EQ(now.back(), 1.0);
  const double at_now = expected.log_density(now);
  for (const double factor : {0.7, 1.2, 1.9}) {
    std::vector<double> tau = now;
    for (std::size_t i = 0; i < d; ++i) tau[i] = factor * now[i] + 0.05 * static_cast<double>(i + 1);
    vec<double> x;
    x.take(static_cast<std::int64_t>(d));
    std::copy(tau.begin(), tau.end(), x.begin());
    EXPECT_NEAR(log_density(work.f, x, 0.0, work.f.M) - log_density(work.f, work.now, 0.0, work.f.M),
                expected.log_density(tau) - at_now, 2e-5)
        << "factor " << factor;
  }
}

trait_setting ordered_after_gaussian(std::int32_t categories) {
  trait_setting x;
  x.kinds = {1, 3};
  x.categories = categories;
  return x;
}

TEST(threshold_density, is_the_joint_density_on_the_orbit) {
  for (const std::int32_t K : {3, 4, 5}) expect_density(ordered_after_gaussian(K), 2, {{1, 2}});
}
TEST(threshold_density, holds_for_uniform_priors_fixed_effects_and_missing_traits) {
  trait_setting x = ordered_after_gaussian(4);
  x.v_residual = 0;
  x.fixed = x.missing = true;
  x.records = 20;
  expect_density(x, 2, {{1, 2}});
  x.v_factor = 0;
  expect_density(x, 2, {{1, 2}});
}
TEST(threshold_density, holds_for_a_single_trait) {
  trait_setting x;
  x.kinds = {3};
  x.categories = 4;
  x.fixed = true;
  expect_density(x, 1, {{1}});
}
TEST(threshold_density, holds_for_weights_two_residual_groups_and_two_factors) {
  trait_setting x = ordered_after_gaussian(4);
  x.weights = true;
  x.groups = x.factors = 2;
  expect_density(x, 2, {{1, 2}});
}
TEST(threshold_density, holds_beside_a_binary_trait) {
  trait_setting x = ordered_after_gaussian(3);
  x.kinds = {1, 3, 4};
  expect_density(x, 2, {{1, 2, 3}});
}
TEST(threshold_density, holds_with_a_covariance_at_zero_in_the_part) {
  trait_setting x = ordered_after_gaussian(4);
  x.kinds = {3, 1, 1};
  x.zeros = {{1, 3}};
  expect_density(x, 1, {{1, 2, 3}});
  x.v_residual = 0;
  expect_density(x, 1, {{1, 2, 3}});
}
TEST(threshold_density, holds_for_a_part_of_the_residual_matrix) {
  trait_setting x = ordered_after_gaussian(4);
  x.kinds = {3, 1, 1};
  x.zeros = {{1, 3}, {2, 3}};
  for (const bool exact : {true, false})
    for (const std::int32_t v : {8, 0}) {
      x.exact = exact;
      x.v_residual = v;
      expect_density(x, 1, {{1, 2}, {3}});
    }
}

// ---- the proposal ----

// The function of the proposal by plain sums over a full H.
double proposal_function(const threshold_density& f, const std::vector<double>& tau) {
  double sum = 0;
  for (std::int32_t i = 1; i <= f.d; ++i) {
    const double a = tau[static_cast<std::size_t>(i - 1)],
                 b = i > 1 ? tau[static_cast<std::size_t>(i - 2)] : 0;
    if (!(a > b)) return -std::numeric_limits<double>::infinity();
    sum += (f.n(i) + 1) * std::log(a - b) + f.g(i) * a;
    for (std::int32_t j = 1; j <= f.d; ++j) {
      const double H = i == j ? f.diagonal(i) : std::abs(i - j) == 1 ? f.next(std::min(i, j)) : 0.0;
      sum -= 0.5 * a * H * tau[static_cast<std::size_t>(j - 1)];
    }
  }
  return sum;
}

// Search along the coordinates and their sums, the step halved where nothing rises.
std::vector<double> searched_maximum(const threshold_density& f) {
  const auto d = static_cast<std::size_t>(f.d);
  std::vector<double> at(d);
  for (std::size_t i = 0; i < d; ++i) at[i] = static_cast<double>(i + 1) / static_cast<double>(d);
  double best = proposal_function(f, at);
  for (double step = 0.5; step > 1e-9;) {
    bool risen = false;
    for (std::size_t from = 0; from < d; ++from)
      for (std::size_t to = from; to < d; ++to)
        for (const double move : {step, -step}) {
          std::vector<double> tried = at;
          for (std::size_t i = from; i <= to; ++i) tried[i] += move;
          const double value = proposal_function(f, tried);
          if (!(value > best)) continue;
          best = value, at = tried, risen = true;
        }
    if (!risen) step *= 0.5;
  }
  return at;
}

TEST(threshold_proposal, has_its_centre_at_the_maximum) {
  for (const std::int32_t K : {3, 5, 7}) {
    trait_setting setting = ordered_after_gaussian(K);
    setting.records = 40;
    trait_case c(setting);
    for (int n = 0; n < 5; ++n) {
      c.draw_all(true);
      c.find();
      if (!c.move_of(2).moves) continue;
      c.ready();
      scan_records all = c.records();
      form_threshold_density(all, c.f.asked, c.move_of(2));
      threshold_work& work = c.work.moves.thresholds;
      ASSERT_TRUE(find_maximum(work));
      const std::vector<double> expected = searched_maximum(work.f);
      for (std::int32_t i = 1; i <= work.f.d; ++i)
        EXPECT_NEAR(work.x(i), expected[static_cast<std::size_t>(i - 1)], 1e-6);
      // Hs by differences of the function
      for (std::int32_t i = 1; i <= work.f.d; ++i)
        for (std::int32_t j = 1; j <= i; ++j) {
          const double step = 1e-4 * expected[0];
          const auto at = [&](double a, double b) {
            std::vector<double> tau = expected;
            tau[static_cast<std::size_t>(i - 1)] += a * step;
            tau[static_cast<std::size_t>(j - 1)] += b * step;
            return proposal_function(work.f, tau);
          };
          const double second = (at(1, 1) - at(1, -1) - at(-1, 1) + at(-1, -1)) / (4 * step * step);
          EXPECT_NEAR(work.Hs(i, j), -second, 1e-4 * work.Hs(i, i)) << i << " " << j;
        }
    }
  }
}

// Without information on the scale the function has no maximum: nothing is drawn, nothing counted.
TEST(threshold_proposal, is_not_drawn_without_a_maximum) {
  trait_setting setting = ordered_after_gaussian(4);
  setting.v_factor = 0, setting.v_residual = 0;
  trait_case c(setting);
  c.v_residual = 8;
  c.is.v_factor = 8, c.is.v_residual = 8; // a state from somewhere
  c.draw_all(true);
  c.find();
  c.categories.catobs.fill(1);
  c.move_of(2).moves = true;
  scan_records all = c.records();
  c.ready();
  random_sources fresh{c.run.report};
  RMARIN(fresh.marsaglia, 1234, 4321);
  move_traits(all, c.f.asked, c.f.state);
  EXPECT_EQ(c.move_of(2).count.tried[0], 0);
  EXPECT_EQ(RANMAR(c.sources.marsaglia), RANMAR(fresh.marsaglia));
}

// ---- the step ----

struct step_result {
  double z, share;
};
step_result z_of(const trait_setting& setting, std::int32_t t, int replicates, std::int64_t wrong = 0,
                 const std::function<void(trait_case&)>& draw_R = {}) {
  trait_case c(setting);
  c.draw_all(!draw_R);
  c.categories.catobs(1, 1) = setting.categories; // so that the trait has a move
  c.find();
  c.move_of(t).n_t += wrong; // M is off by that
  const double z = c.z_of_the_moves(
      wrong == 0 ? replicates_here(replicates) : replicates, 4,
      [&] {
        if (draw_R) draw_R(c);
        c.draw_all(!draw_R);
      },
      [&] { return c.functions_of(t); });
  return {z, c.share_accepted()};
}

TEST(threshold_moves, keep_the_prior_alone_with_3_categories) {
  const step_result found = z_of(ordered_after_gaussian(3), 2, 3000);
  EXPECT_LT(found.z, limit);
  RecordProperty("accepted", std::to_string(found.share));
}
TEST(threshold_moves, keep_the_prior_alone_with_5_categories_and_missing_traits) {
  trait_setting x = ordered_after_gaussian(5);
  x.missing = true;
  EXPECT_LT(z_of(x, 2, 3000).z, limit);
}
TEST(threshold_moves, keep_the_prior_alone_with_weights_and_two_residual_groups) {
  trait_setting x = ordered_after_gaussian(4);
  x.weights = true;
  x.groups = 2;
  EXPECT_LT(z_of(x, 2, 3000).z, limit);
}
TEST(threshold_moves, keep_the_prior_alone_in_a_part_of_the_residual_matrix) {
  trait_setting x = ordered_after_gaussian(3);
  x.kinds = {3, 1, 1};
  x.zeros = {{1, 3}, {2, 3}};
  // the block of an inverse Wishart matrix of three traits: a degree of freedom less, the same scale
  const auto draw_R = [](trait_case& c) {
    const double v = c.is.v_residual;
    dense_matrix R(3);
    const dense_matrix b = c.inverse_wishart(dense_state::block(c.start_R(), {1, 2}), 2, v - 1);
    for (std::int32_t i = 1; i <= 2; ++i)
      for (std::int32_t j = 1; j <= 2; ++j) R(i, j) = b(i, j);
    R(3, 3) = 1;
    c.set_R(R);
  };
  EXPECT_LT(z_of(x, 1, 3000, 0, draw_R).z, limit);
}
TEST(threshold_moves, with_another_exponent_are_off) {
  EXPECT_GT(z_of(ordered_after_gaussian(3), 2, 3000, 3).z, limit);
  EXPECT_GT(z_of(ordered_after_gaussian(5), 2, 3000, 3).z, limit);
}

// Rounds of an exact chain with the moves of factors too; R, G, liabilities and thresholds are drawn.
TEST(threshold_moves, in_whole_rounds_keep_the_prior) {
  trait_setting x = ordered_after_gaussian(5);
  x.missing = true;
  trait_case c(x);
  c.draw_all(true);
  c.categories.catobs(1, 1) = 5;
  c.begin_rounds();
  ASSERT_TRUE(c.move_of(2).moves);
  const double z = c.largest_z(
      1500, 4,
      [&] {
        c.draw_all(true);
        c.set_moves_by_data();
      },
      [&] { return c.functions_of(2); });
  EXPECT_LT(z, limit);
  EXPECT_GT(c.move_of(2).count.tried[0], 0);
}

// ---- what a step leaves behind ----

TEST(threshold_moves, scale_all_that_belongs_to_the_trait) {
  trait_setting setting = ordered_after_gaussian(5);
  setting.groups = setting.factors = 2;
  setting.missing = setting.fixed = true;
  setting.records = 40;
  trait_case c(setting);
  c.draw_factors();
  for (std::int32_t e = 1; e <= 4; ++e) c.s.sol(e) = 0.1 * e;
  c.draw_thresholds_of_prior();
  c.draw_data();
  c.find();
  const std::int32_t t = 2, K = 5;
  std::vector<double> fit, y, thr;
  mat<double> E; // kept residuals
  E.take(40, 2);
  for (std::int32_t r = 1; r <= 40; ++r) {
    const bool present = trait_present(c.design.ISIT_M(r), t, 2);
    fit.push_back(present ? c.fitted(r, t) : 0.0);
    y.push_back(static_cast<double>(c.design.Y_M(t, r)));
    for (std::int32_t i = 1; i <= 2; ++i)
      E(r, i) = static_cast<double>(c.design.Y_M(i, r)) -
                (trait_present(c.design.ISIT_M(r), i, 2) ? c.fitted(r, i) : 0.0);
  }
  for (std::int32_t k = 1; k < K; ++k) thr.push_back(c.categories.catstr[0].thr(k));
  const dense_matrix G = c.present_G(2), R = c.R_of(2);
  values_from_residuals(c.work.values, E);
  scan_records all = c.records();
  vec<double>& tau = c.work.moves.thresholds.tau;
  tau(1) = 0.5, tau(2) = 0.75, tau(3) = 1.25;
  c.work.moves.thresholds.f.d = 3;
  take_thresholds(all, c.move_of(t));
  const double scale = 0.8;
  const double expected[4] = {0.0, 0.4, 0.6, 1.0};
  for (std::int32_t k = 1; k < K; ++k) EXPECT_DOUBLE_EQ(c.categories.catstr[0].thr(k), expected[k - 1]);
  for (std::int32_t r = 1; r <= 40; ++r) {
    const std::int32_t k = c.categories.catobs(1, r);
    const double before = y[static_cast<std::size_t>(r - 1)], now = static_cast<double>(c.design.Y_M(t, r));
    double wanted = scale * before; // missing, or category 1
    if (k == K) wanted = 1.0 + scale * (before - 1.0);
    if (k > 1 && k < K) {
      const double low = thr[static_cast<std::size_t>(k - 2)],
                   w = (before - low) / (thr[static_cast<std::size_t>(k - 1)] - low);
      wanted = expected[k - 2] + w * (expected[k - 1] - expected[k - 2]);
    }
    EXPECT_NEAR(now, wanted, 1e-6 * std::max(1.0, std::fabs(wanted)));
    if (trait_present(c.design.ISIT_M(r), t, 2)) {
      EXPECT_NEAR(c.fitted(r, t), scale * fit[static_cast<std::size_t>(r - 1)], 1e-12);
    }
    for (std::int32_t i = 1; i <= 2; ++i)
      EXPECT_NEAR(E(r, i),
                  static_cast<double>(c.design.Y_M(i, r)) -
                      (trait_present(c.design.ISIT_M(r), i, 2) ? c.fitted(r, i) : 0.0),
                  1e-12);
  }
  const dense_matrix G2 = c.present_G(2), R2 = c.R_of(2);
  for (std::int32_t i = 1; i <= 2; ++i)
    for (std::int32_t j = 1; j <= 2; ++j) {
      const double c2 = (i == t ? scale : 1.0) * (j == t ? scale : 1.0);
      EXPECT_NEAR(G2(i, j), c2 * G(i, j), 1e-10);
      EXPECT_NEAR(R2(i, j), c2 * R(i, j), 1e-12);
      EXPECT_NEAR(c.s.RCOVI(i, j, 2), dense_inverse(R2).inverse(i, j), 1e-10);
    }
  EXPECT_NEAR(c.s.IDET_RVAR(c.m.nramat + 2), 1.0 / std::sqrt(dense_inverse(R2).determinant), 1e-12);
}

// Liabilities at the thresholds, as near as 32 bits allow, keep their categories.
TEST(threshold_moves, carry_no_liability_over_a_threshold) {
  trait_setting setting = ordered_after_gaussian(4);
  setting.records = 16;
  trait_case c(setting);
  c.draw_all(true);
  category_record& x = c.categories.catstr[0];
  x.thr(2) = 1.0 / 3.0;
  constexpr float up = std::numeric_limits<float>::infinity();
  for (std::int32_t r = 1; r <= 16; ++r) {
    const double thr = x.thr(1 + r % 3);
    float y = static_cast<float>(thr);
    if (static_cast<double>(y) > thr) y = std::nextafter(y, -up);
    if (r % 2 == 0) y = std::nextafter(y, up); // the least above it
    c.design.Y_M(2, r) = y;
  }
  c.categorize();
  c.find();
  scan_records all = c.records();
  mat<std::int32_t> before;
  before.take(1, 16);
  std::copy(c.categories.catobs.begin(), c.categories.catobs.end(), before.begin());
  values_from_entries(c.work.values);
  vec<double>& tau = c.work.moves.thresholds.tau;
  c.work.moves.thresholds.f.d = 2;
  number_sequence any(3);
  for (int n = 0; n < 200; ++n) {
    tau(1) = any.between(0.001, 3.0);
    tau(2) = tau(1) + any.between(0.001, 3.0);
    take_thresholds(all, c.move_of(2));
    c.categorize();
    for (std::int32_t r = 1; r <= 16; ++r)
      ASSERT_EQ(c.categories.catobs(1, r), before(1, r)) << n << " " << r;
  }
}

} // namespace
} // namespace zeph_test
