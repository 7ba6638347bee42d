// Draws of latent values against their exact distributions, and what the passes
// over the records store.
#include "gibbs/latent/liability_draws.h"

#include "gibbs/latent/latent_updates.h"
#include "gibbs/scan_case.h"

#include <cmath>

namespace {

using namespace zeph_test;

double cdf(double x) { return 0.5 * std::erfc(-x / std::sqrt(2.0)); }
double pdf(double x) { return std::exp(-0.5 * x * x) / std::sqrt(2.0 * M_PI); }

// Mean of a normal(m, v) between a and b.
double truncated_mean(double m, double v, double a, double b) {
  const double s = std::sqrt(v), lo = (a - m) / s, hi = (b - m) / s;
  return m + s * (pdf(lo) - pdf(hi)) / (cdf(hi) - cdf(lo));
}

// Three traits of the kinds given with correlated residuals, one record.
struct latent_record_case : scan_case {
  static described_model described(const std::vector<std::int32_t>& kinds) {
    described_model d;
    d.traits.resize(3);
    for (std::size_t t = 0; t < 3; ++t) {
      d.traits[t].kind = kinds[t];
      d.traits[t].effects = {{1, 1}};
      if (kinds[t] == trait_censored) d.traits[t].code_place = 2, d.traits[t].upper_place = 4;
      if (kinds[t] == trait_sequence || kinds[t] == trait_cured) d.traits[t].sequence_place = 3;
    }
    d.integers = 3, d.reals = 4, d.records = 1;
    d.residual = {2.0, 0.6, -0.5, 0.6, 1.0, 0.3, -0.5, 0.3, 1.5};
    return d;
  }
  explicit latent_record_case(const std::vector<std::int32_t>& kinds) : scan_case(described(kinds)) {
    start(3);
    for (std::int32_t t = 1; t <= 3; ++t) entry(1, t, t, 1, 1, 1.0);
    SETALL(sources.combined, 1234, 98765);
    scan_records r = records();
    prepare_conditionals(r.model, r.sampler, r.work.latent);
  }
  // Conditional mean and variance of trait t given the residuals, by the inverse.
  std::pair<double, double> conditional(std::int32_t t, const double* res) {
    const dense_matrix Q =
        dense_inverse(dense_matrix(3, {2.0, 0.6, -0.5, 0.6, 1.0, 0.3, -0.5, 0.3, 1.5})).inverse;
    double sum = 0;
    for (std::int32_t i = 1; i <= 3; ++i)
      if (i != t) sum += Q(t, i) * res[i - 1];
    return {-sum / Q(t, t), 1.0 / Q(t, t)};
  }
};

struct record_input {
  double mean[3] = {0.4, -0.3, 0.8};
  logical pos[3] = {0, 0, 0}, cured[3] = {0, 0, 0};
  std::int32_t cat[3] = {-1, -1, -1};
  float low[3] = {0, 0, 0}, high[3] = {0, 0, 0};
  liability_record of(std::int32_t isit) const {
    liability_record x;
    x.mean = mean, x.pos = pos, x.cured = cured, x.cat = cat, x.low = low, x.high = high;
    x.isit = isit;
    return x;
  }
};

constexpr double start[3] = {0.7, -0.2, 0.5};

// Mean of the draws of trait t, 40,000 records alike, against `expected`.
void expect_draws(latent_record_case& c, const record_input& in, std::int32_t isit, std::int32_t t,
                  double low, double high) {
  const auto [m, v] = c.conditional(t, start);
  double sum = 0, squares = 0;
  constexpr int n = 40000;
  scan_records r = c.records();
  for (int i = 0; i < n; ++i) {
    double res[3] = {start[0], start[1], start[2]};
    liab_sample(r.model, r.categories, r.work.latent, r.sources.combined, res, in.of(isit));
    ASSERT_GE(res[t - 1], low);
    ASSERT_LE(res[t - 1], high);
    for (std::int32_t u = 1; u <= 3; ++u) ASSERT_TRUE(u == t || res[u - 1] == start[u - 1]);
    sum += res[t - 1];
    squares += res[t - 1] * res[t - 1];
  }
  const double mean = sum / n, error = std::sqrt((squares / n - mean * mean) / n);
  EXPECT_NEAR(mean, truncated_mean(m, v, low, high), 5 * error) << "trait " << t;
}

TEST(liab_sample, draws_a_binary_trait_on_the_side_of_its_observation) {
  for (const logical pos : {logical{0}, logical{1}}) {
    latent_record_case c({1, trait_liability, 1});
    record_input in;
    in.pos[1] = pos;
    expect_draws(c, in, 7, 2, pos ? -in.mean[1] : -1e5, pos ? 1e5 : -in.mean[1]);
  }
}

TEST(liab_sample, draws_a_censored_trait_between_its_bounds_when_it_is_marked) {
  latent_record_case c({trait_censored, 1, 1});
  record_input in;
  in.pos[0] = 1;
  in.low[0] = 1.5F;
  in.high[0] = 2.5F;
  expect_draws(c, in, 7, 1, 1.5 - 0.4, 2.5 - 0.4);
  in.pos[0] = 0;
  scan_records r = c.records();
  double res[3] = {start[0], start[1], start[2]};
  liab_sample(r.model, r.categories, r.work.latent, r.sources.combined, res, in.of(7));
  EXPECT_EQ(res[0], start[0]);
}

TEST(liab_sample, draws_an_ordered_trait_between_the_thresholds_of_its_category) {
  latent_record_case c({1, 1, trait_categorical});
  category_record x;
  x.trait = 3;
  x.ncat_t = 3;
  x.thr.take(range(0, 3));
  x.thr(0) = -999999.0, x.thr(1) = 0.0, x.thr(2) = 1.0, x.thr(3) = 999999.0;
  c.categories.catstr.push_back(std::move(x));
  record_input in;
  const double bound[4] = {-1e6, 0.0, 1.0, 1e6};
  for (std::int32_t k = 1; k <= 3; ++k) {
    in.cat[2] = k;
    expect_draws(c, in, 7, 3, bound[k - 1] - 0.8, bound[k] - 0.8);
  }
}

TEST(liab_sample, draws_a_sequence_free_or_as_a_binary_trait_when_the_cure_flag_is_set) {
  latent_record_case c({1, trait_sequence, 1});
  record_input in;
  expect_draws(c, in, 7, 2, -1e5, 1e5);
  in.cured[1] = 1;
  in.pos[1] = 1;
  expect_draws(c, in, 7, 2, 0.3, 1e5);
}

TEST(liab_sample, conditions_each_trait_on_those_drawn_before_it) {
  latent_record_case c({1, trait_liability, trait_liability});
  record_input in;
  in.pos[1] = 1;
  scan_records r = c.records();
  double difference = 0, squares = 0;
  constexpr int n = 40000;
  for (int i = 0; i < n; ++i) {
    double res[3] = {start[0], start[1], start[2]};
    liab_sample(r.model, r.categories, r.work.latent, r.sources.combined, res, in.of(7));
    double given[3] = {start[0], res[1], start[2]};
    const auto [m, v] = c.conditional(3, given);
    const double d = res[2] - truncated_mean(m, v, -1e5, -0.8);
    difference += d, squares += d * d;
  }
  EXPECT_NEAR(difference / n, 0.0, 5 * std::sqrt(squares) / n);
}

// Its row stays unswept: it says nothing of the others.
TEST(prepare_conditionals, leave_out_a_trait_of_next_to_no_variance) {
  latent_record_case c({1, trait_liability, 1});
  cube<double>& R = c.s.RCOV;
  R(1, 1, 1) = 1e-14;
  R(1, 2, 1) = R(2, 1, 1) = 5e-8;
  R(1, 3, 1) = R(3, 1, 1) = 0.0;
  scan_records r = c.records();
  prepare_conditionals(r.model, r.sampler, r.work.latent);
  EXPECT_EQ(c.work.latent.coefficient(1, 2, 1), 0.0);
  EXPECT_NEAR(c.work.latent.coefficient(3, 2, 1), 0.3 / 1.5, 1e-15);
  EXPECT_NEAR(c.work.latent.variance(2, 1), 1.0 - 0.3 * 0.3 / 1.5, 1e-15);
}

TEST(liab_sample, leaves_missing_traits_and_records_without_latent_traits_alone) {
  latent_record_case c({trait_liability, trait_sequence, 1});
  record_input in;
  scan_records r = c.records();
  std::int32_t a1 = 0, a2 = 0, b1 = 0, b2 = 0;
  GETSD(c.sources.combined, a1, a2);
  double res[3] = {start[0], start[1], start[2]};
  liab_sample(r.model, r.categories, r.work.latent, r.sources.combined, res,
              in.of(1)); // only the third trait is observed
  GETSD(c.sources.combined, b1, b2);
  EXPECT_EQ(a1, b1);
  EXPECT_EQ(a2, b2);
  for (int t = 0; t < 3; ++t) EXPECT_EQ(res[t], start[t]);
}

TEST(liab_sample, stops_where_a_fitted_value_lies_beyond_the_substitute_of_infinity) {
  latent_record_case c({trait_liability, 1, 1});
  record_input in;
  in.mean[0] = 100000.0; // at most 0 would need a residual below -100000
  scan_records r = c.records();
  double res[3] = {start[0], start[1], start[2]};
  const std::string text = expect_stop(16, c.run, [&](reporting&) {
    liab_sample(r.model, r.categories, r.work.latent, r.sources.combined, res, in.of(7));
  });
  EXPECT_NE(text.find("GEN_TRUNC_NORMAL: bound b ="), std::string::npos);
}

TEST(stored_liability, keeps_the_sign_of_the_observation) {
  EXPECT_EQ(stored_liability(0.5, -0.5, true), 1e-10F);
  EXPECT_EQ(stored_liability(0.5, -0.5, false), -1e-10F);
  EXPECT_EQ(stored_liability(1e-60, 0.0, true), 1e-10F); // 0 in 32 bits
  EXPECT_EQ(stored_liability(1.0, 0.25, true), 1.25F);
  EXPECT_EQ(stored_liability(-1.0, 0.25, false), -0.75F);
}

TEST(samp_thresholds, draws_between_the_neighbours_liabilities_and_holds_the_outer_ones) {
  latent_record_case c({1, 1, trait_categorical});
  c.design.Y_M.take(3, 5);
  c.categories.catobs.take(1, 5);
  c.design.nobs = 5;
  const float y[5] = {-0.5F, 0.25F, 0.5F, 0.75F, 1.5F};
  const std::int32_t k[5] = {1, 2, 2, 3, 4};
  for (std::int32_t i = 1; i <= 5; ++i) {
    c.design.Y_M(3, i) = y[i - 1];
    c.categories.catobs(1, i) = k[i - 1];
  }
  category_record x;
  x.trait = 3;
  x.ncat_t = 4;
  for (vec<double>* v : {&x.thr, &x.thrpostm, &x.thrpostsd}) v->take(range(0, 4));
  x.minu.take(4);
  x.maxu.take(4);
  c.categories.catstr.push_back(std::move(x));
  scan_records r = c.records();
  double sum = 0, squares = 0;
  constexpr int n = 20000;
  c.f.asked.analysis_type = analysis::solve; // nothing is written
  for (int i = 0; i < n; ++i) {
    samp_thresholds(r.design, r.categories, r.sources.combined, r.report, c.f.asked, c.f.state, c.files);
    const vec<double>& thr = c.categories.catstr[0].thr;
    ASSERT_EQ(thr(1), 0.0);
    ASSERT_EQ(thr(3), 1.0);
    ASSERT_GE(thr(2), 0.5);
    ASSERT_LE(thr(2), 0.75);
    sum += thr(2), squares += thr(2) * thr(2);
  }
  EXPECT_NEAR(sum / n, 0.625, 5 * 0.25 / std::sqrt(12.0 * n));
  EXPECT_NEAR(squares / n - sum / n * sum / n, 0.0625 / 12.0, 2e-4);
}

} // namespace
