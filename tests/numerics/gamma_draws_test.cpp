#include "numerics/gamma_draws.h"

#include "laws.h"
#include "numerics/normal_draws.h"
#include "stops.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace zeph {
namespace {

using laws::sample;

struct seeded : kept_listing {
  random_sources sources{report};
  combined_source& ranlib = sources.combined;
  explicit seeded(std::int32_t a = 4711, std::int32_t b = 815) { SETALL(ranlib, a, b); }
};

bool equal_states(const combined_source& a, const combined_source& b) {
  return a.generators[0].cg1 == b.generators[0].cg1 && a.generators[0].cg2 == b.generators[0].cg2;
}

// ---- exponential ----

TEST(sexpo, is_standard_exponential) {
  seeded run;
  const std::vector<double> x = sample(1000000, [&] { return sexpo(run.ranlib); });
  laws::expect_law(x, [](double v) { return 1.0 - std::exp(-v); });
  laws::expect_moments(x, {1.0, 1.0, 2.0, 9.0, 265.0}); // derangements of 2, 3, 4, 6
}

// Whole stretches of ln 2 come from the first uniform, the rest from a minimum of
// uniforms; modulo ln 2 the law is a truncated exponential.
TEST(sexpo, follows_its_law_within_a_stretch_of_ln_2) {
  seeded run;
  const double ln2 = std::log(2.0);
  std::vector<double> x = sample(1000000, [&] { return sexpo(run.ranlib); });
  for (double& v : x) v = std::fmod(v, ln2);
  laws::expect_law(x, [](double v) { return 2.0 * (1.0 - std::exp(-v)); });
}

// ---- gamma ----

// Central moments from the cumulants a (r-1)!.
laws::moments gamma_moments(double a) {
  return {a, a, 2.0 * a, 6.0 * a + 3.0 * a * a, 120.0 * a + 130.0 * a * a + 15.0 * a * a * a};
}

void expect_gamma(float a, int n) {
  const double shape = static_cast<double>(a);
  const std::string what = "shape " + std::to_string(a);
  seeded run;
  gamma_cache cache;
  const std::vector<double> x = sample(n, [&] { return sgamma(run.ranlib, a, cache); });
  laws::expect_law(
      x, [shape](double v) { return laws::gamma_cdf(shape, v); }, what);
  laws::expect_moments(x, gamma_moments(shape), what);
  // the lower tenth apart, where rejections are most frequent
  double low = 0.0, high = shape;
  for (int i = 0; i < 60; ++i)
    (laws::gamma_cdf(shape, (low + high) / 2.0) < 0.1 ? low : high) = (low + high) / 2.0;
  const double share = laws::gamma_cdf(shape, low);
  std::vector<double> lower;
  for (const double v : x)
    if (v < low) lower.push_back(v);
  laws::expect_law(
      lower, [&](double v) { return laws::gamma_cdf(shape, v) / share; }, what + " lower tenth");
}

TEST(sgamma, of_shapes_below_1_is_gamma) {
  for (const float a : {0.1F, 0.3F, 0.5F, 0.9F}) expect_gamma(a, 200000);
}
// Hat of case 1, up to 3.686
TEST(sgamma, of_small_shapes_is_gamma) {
  for (const float a : {1.0F, 1.01F, 1.5F, 2.0F, 3.0F, 3.686F}) expect_gamma(a, 200000);
}
// Hat of case 2, up to 13.022
TEST(sgamma, of_middle_shapes_is_gamma) {
  for (const float a : {3.7F, 5.5F, 10.0F, 13.0F}) expect_gamma(a, 200000);
}
TEST(sgamma, of_large_shapes_is_gamma) {
  for (const float a : {13.5F, 15.0F, 100.0F, 1000.0F}) expect_gamma(a, 200000);
}

// ---- the parts of GD ----

// A draw of shape a is (s + t/2)^2. First t is normal and accepted with some
// probability; what is left over, f(t) less the accepted part, comes by the hat.
// That part is small, so it is tested apart: its frequency and its law.
struct gd_remainder {
  static constexpr double from = -14.0, step = 1e-3;
  static constexpr int cells = 40000;
  double a, s;
  std::vector<double> upto; // integral of the remainder over t up to each cell's end

  explicit gd_remainder(double shape) : a(shape), s(std::sqrt(shape - 0.5)) {
    upto.push_back(0.0);
    for (int i = 0; i < cells; ++i) upto.push_back(upto.back() + step * density(from + (i + 0.5) * step));
  }
  double density(double t) const {
    const double normal = std::exp(-0.5 * t * t) / std::sqrt(2.0 * std::acos(-1.0)), x = s + 0.5 * t;
    const double f = x > 0.0 ? std::exp((2.0 * a - 1.0) * std::log(x) - x * x - std::lgamma(a)) : 0.0;
    double accepted = 1.0; // for t >= 0; else by the squeeze, |d| u >= |t|^3, or the quotient
    if (t < 0.0) accepted = std::max(std::min(1.0, f / normal), 1.0 - t * t * t / (5.656854 - 12.0 * s));
    return std::max(0.0, f - normal * accepted);
  }
  double share() const { return upto.back(); }
  double cdf(double t) const {
    const double place = std::clamp((t - from) / step, 0.0, cells - 1e-6);
    const std::size_t i = static_cast<std::size_t>(place);
    return (upto[i] + (place - static_cast<double>(i)) * (upto[i + 1] - upto[i])) / share();
  }
};

TEST(sgamma, leaves_to_the_hat_what_the_first_tests_leave) {
  for (const float a : {1.0F, 1.5F, 3.0F, 3.7F, 10.0F, 15.0F, 100.0F}) {
    const gd_remainder remainder(static_cast<double>(a));
    const std::string what = "shape " + std::to_string(a);
    seeded run;
    gamma_cache cache;
    constexpr int n = 400000;
    std::vector<double> t;
    for (int i = 0; i < n; ++i) {
      combined_source twin = run.ranlib; // a draw that took more than snorm and a uniform came by the hat
      const float x = sgamma(run.ranlib, a, cache);
      snorm(twin);
      if (equal_states(twin, run.ranlib)) continue;
      ranf(twin);
      if (!equal_states(twin, run.ranlib))
        t.push_back(2.0 * (std::sqrt(static_cast<double>(x)) - remainder.s));
    }
    ASSERT_GT(t.size(), 100U) << what;
    laws::expect_sum(static_cast<double>(t.size()), n, remainder.share(),
                     remainder.share() * (1.0 - remainder.share()), what + " hat draws");
    laws::expect_law(
        t, [&](double v) { return remainder.cdf(v); }, what + " hat draws");
  }
}

// ---- the cache ----

TEST(sgamma, skips_the_set_up_of_a_repeated_shape_and_draws_alike) {
  for (const float a : {1.0F, 2.5F, 8.0F, 40.0F}) {
    seeded kept, fresh;
    gamma_cache cache;
    for (int i = 0; i < 20000; ++i) {
      gamma_cache empty;
      ASSERT_EQ(sgamma(kept.ranlib, a, cache), sgamma(fresh.ranlib, a, empty));
    }
    EXPECT_TRUE(equal_states(kept.ranlib, fresh.ranlib));
    EXPECT_EQ(cache.aa, a);
    EXPECT_EQ(cache.aaa, a);
    const float b = cache.b; // a set-up that is skipped leaves what is there
    cache.b = -b;
    cache.s2 = -1.0F;
    for (int i = 0; i < 1000; ++i) sgamma(kept.ranlib, a, cache);
    EXPECT_EQ(cache.b, -b);
    EXPECT_EQ(cache.s2, -1.0F);
  }
}

TEST(sgamma, changes_between_shapes_without_a_trace) {
  seeded kept, fresh;
  gamma_cache cache;
  const float shapes[] = {5.0F, 5.5F, 0.5F, 5.5F, 1.0F, 14.0F, 0.3F, 14.0F};
  for (int i = 0; i < 40000; ++i) {
    gamma_cache empty;
    ASSERT_EQ(sgamma(kept.ranlib, shapes[i % 8], cache), sgamma(fresh.ranlib, shapes[i % 8], empty)) << i;
  }
}

TEST(sgamma, of_a_shape_below_1_leaves_the_set_up_alone) {
  seeded run;
  gamma_cache cache;
  for (int i = 0; i < 100; ++i) sgamma(run.ranlib, 6.5F, cache);
  const gamma_cache before = cache;
  for (int i = 0; i < 100; ++i) sgamma(run.ranlib, 0.5F, cache);
  EXPECT_EQ(cache.aa, before.aa);
  EXPECT_EQ(cache.s2, before.s2);
  EXPECT_EQ(cache.aaa, before.aaa);
  EXPECT_EQ(cache.b, before.b);
}

TEST(sgamma, stops_unless_the_shape_is_above_0) {
  for (const float a : {0.0F, -1.5F, std::numeric_limits<float>::quiet_NaN()}) {
    seeded run, untouched;
    gamma_cache cache;
    EXPECT_EQ(run.exit_code([&] { sgamma(run.ranlib, a, cache); }), 16);
    EXPECT_NE(run.out.str().find("ERROR - Computation impossible in sgamma: shape ="), std::string::npos);
    EXPECT_TRUE(equal_states(run.ranlib, untouched.ranlib));
  }
}

} // namespace
} // namespace zeph
