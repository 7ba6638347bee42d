// The scale of binary traits, moved alone.
#include "gibbs/moves/binary_scale.h"

#include "gibbs/moves/trait_case.h"
#include "numerics/normal_draws.h"

#include <limits>

namespace zeph_test {
namespace {

constexpr double limit = 4.5; // of |z|: error probability 7e-6 a function

trait_setting binary_after_gaussian() {
  trait_setting x;
  x.kinds = {1, 4};
  x.factors = 2;
  return x;
}

// ---- f(x) ----

// The numbers that c = e^x scales, as those at c = 1 with the first liability held at 1 or -1 and x in its
// place: one to one, and x is free of the others.
struct scale_orbit {
  const trait_case& c;
  std::int32_t t;

  template <class F> void visit(dense_state& s, F f) const {
    const std::int32_t nt = c.m.nt;
    for (double& y : s.y[static_cast<std::size_t>(t - 1)]) f(y, 1);
    for (std::int32_t l = 1; c.is.fixed && l <= 2; ++l)
      f(s.sol[static_cast<std::size_t>(c.m.NBEGF(t, 1) + l - 1)], 1);
    for (std::int32_t k = 1; k <= c.m.nramat; ++k) {
      for (std::int32_t l = 1; l <= c.m.NRALEV(k); ++l)
        f(s.sol[static_cast<std::size_t>(c.m.NBEGRA(k) + (l - 1) * nt + t - 1)], 1);
      for (std::int32_t i = 1; i <= nt; ++i) f(s.G[static_cast<std::size_t>(k - 1)](i, t), i == t ? 2 : 1);
    }
  }
  dense_state state(const std::vector<double>& z) const {
    dense_state s(c);
    const double y1 = s.y[static_cast<std::size_t>(t - 1)][0], scale = std::exp(z[0]);
    std::size_t n = 0;
    visit(s, [&](double& a, int power) {
      a = (n == 0 ? y1 : z[n]) * (power == 2 ? scale * scale : scale);
      ++n;
    });
    for (dense_matrix& g : s.G)
      for (std::int32_t i = 1; i <= c.m.nt; ++i) g(t, i) = g(i, t);
    return s;
  }
  double log_density(double x, const std::vector<std::vector<std::int32_t>>& parts) const {
    dense_state now(c);
    std::vector<double> z;
    visit(now, [&](double& a, int) { z.push_back(a); });
    z[0] = x;
    const auto map = [&](const std::vector<double>& from) {
      dense_state s = state(from);
      std::vector<double> to;
      visit(s, [&](double& a, int) { to.push_back(a); });
      return to;
    };
    return state(z).log_joint(parts) + log_jacobian(map, z);
  }
};

void expect_density(const trait_setting& setting, std::int32_t t) {
  trait_case c(setting);
  c.draw_factors();
  for (std::int32_t e = 1; setting.fixed && e <= 2 * c.m.nt; ++e) c.s.sol(e) = 0.1 * e - 0.2;
  c.draw_data();
  c.find();
  ASSERT_TRUE(c.move_of(t).moves) << c.move_of(t).why;
  c.ready();
  scan_records all = c.records();
  const scale_density f = density_of_scale(all, c.f.asked, c.move_of(t));
  const scale_orbit expected{c, t};
  std::vector<std::int32_t> one_part;
  for (std::int32_t i = 1; i <= c.m.nt; ++i) one_part.push_back(i);
  const double at_now = expected.log_density(0.0, {one_part});
  for (const double x : {-0.5, 0.2, 0.8})
    EXPECT_NEAR(log_density(f, x) - log_density(f, 0.0), expected.log_density(x, {one_part}) - at_now, 2e-5);
}

TEST(binary_scale_density, is_the_joint_density_on_the_orbit) { expect_density(binary_after_gaussian(), 2); }
TEST(binary_scale_density, holds_for_fixed_effects_missing_traits_and_weights) {
  trait_setting x = binary_after_gaussian();
  x.fixed = x.missing = x.weights = true;
  expect_density(x, 2);
}
TEST(binary_scale_density, holds_for_uniform_priors_and_two_residual_groups) {
  trait_setting x = binary_after_gaussian();
  x.groups = 2;
  x.v_factor = 0;
  expect_density(x, 2);
  x.kinds = {4, 4, 1};
  expect_density(x, 1);
  expect_density(x, 2);
}
TEST(binary_scale_density, holds_for_a_single_trait) {
  trait_setting x = binary_after_gaussian();
  x.kinds = {4};
  x.fixed = true;
  expect_density(x, 1);
}

// ---- the step ----

double z_of(const trait_setting& setting, int replicates, std::int64_t wrong = 0) {
  trait_case c(setting);
  c.draw_all(false);
  c.find();
  c.move_of(2).n_t += wrong; // m is off by that
  return c.z_of_the_moves(
      wrong == 0 ? replicates_here(replicates) : replicates, 4, [&] { c.draw_all(false); },
      [&] { return c.functions_of(2); });
}

TEST(binary_scale, keeps_the_prior_alone_beside_a_gaussian_trait) {
  EXPECT_LT(z_of(binary_after_gaussian(), 4000), limit);
}
TEST(binary_scale, keeps_the_prior_alone_with_missing_traits_and_weights) {
  trait_setting x = binary_after_gaussian();
  x.missing = x.weights = true;
  EXPECT_LT(z_of(x, 4000), limit);
}
TEST(binary_scale, with_another_exponent_is_off) { EXPECT_GT(z_of(binary_after_gaussian(), 4000, 2), limit); }

// Rounds of an exact chain with the moves of factors too; G and liabilities are drawn.
TEST(binary_scale, in_whole_rounds_keeps_the_prior) {
  trait_setting x = binary_after_gaussian();
  x.missing = true;
  trait_case c(x);
  c.draw_all(false);
  c.f.asked.analysis_type = analysis::gibbs_no_groups;
  c.f.state.matopd(c.m.nramat + 1) = 0; // R stays
  c.begin_rounds();
  const double z = c.largest_z(
      1500, 4, [&] { c.draw_all(false); }, [&] { return c.functions_of(2); });
  EXPECT_LT(z, limit);
  EXPECT_GT(c.move_of(2).count.tried[0], 0);
}

// ---- what a step leaves behind ----

TEST(binary_scale, keeps_signs_and_residuals_and_scales_missing_ones) {
  trait_setting x = binary_after_gaussian();
  x.missing = true;
  trait_case c(x);
  c.draw_all(false);
  c.design.Y_M(2, 1) = std::numeric_limits<float>::denorm_min(); // 0 after a scale below a half
  c.find();
  mat<double> E;
  E.take(x.records, 2);
  const auto residual = [&](std::int32_t r, std::int32_t t) {
    return static_cast<double>(c.design.Y_M(t, r)) -
           (trait_present(c.design.ISIT_M(r), t, 2) ? c.fitted(r, t) : 0.0);
  };
  for (std::int32_t r = 1; r <= x.records; ++r)
    for (std::int32_t t = 1; t <= 2; ++t) E(r, t) = residual(r, t);
  values_from_residuals(c.work.values, E);
  std::vector<float> before;
  for (std::int32_t r = 1; r <= x.records; ++r) before.push_back(c.design.Y_M(2, r));
  const dense_matrix G = c.present_G(1);
  scan_records all = c.records();
  for (int n = 0; n < 40; ++n) move_traits(all, c.f.asked, c.f.state);
  EXPECT_GT(c.share_accepted(), 0.2);
  const double total = std::sqrt(c.present_G(1)(2, 2) / G(2, 2));
  EXPECT_NEAR(c.present_G(1)(1, 2), total * G(1, 2), 1e-10);
  EXPECT_NEAR(c.present_G(1)(1, 1), G(1, 1), 1e-10);
  for (std::int32_t r = 1; r <= x.records; ++r) {
    const float now = c.design.Y_M(2, r), then = before[static_cast<std::size_t>(r - 1)];
    EXPECT_EQ(now > 0.0F, then > 0.0F);
    const double wanted = total * static_cast<double>(then);
    if (std::fabs(then) > 1e-6F) {
      EXPECT_NEAR(static_cast<double>(now), wanted, 1e-5 * std::fabs(wanted));
    }
    for (std::int32_t t = 1; t <= 2; ++t) EXPECT_NEAR(E(r, t), residual(r, t), 1e-12);
  }
}

// A normal, then the uniform.
TEST(binary_scale, draws_a_normal_and_a_uniform) {
  trait_case c(binary_after_gaussian());
  c.draw_all(false);
  c.find();
  scan_records all = c.records();
  values_from_entries(c.work.values);
  random_sources own{c.run.report};
  RMARIN(own.marsaglia, 1234, 4321);
  move_traits(all, c.f.asked, c.f.state);
  ranmar_snorm(own.marsaglia);
  RANMAR(own.marsaglia);
  EXPECT_EQ(RANMAR(c.sources.marsaglia), RANMAR(own.marsaglia));
  EXPECT_EQ(c.move_of(2).count.tried[0], 1);
}

} // namespace
} // namespace zeph_test
