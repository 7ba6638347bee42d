// The draws of indicators and liabilities of mixtures and cure sequences against
// their exact laws, and what the passes store.
#include "gibbs/latent/mixture_updates.h"

#include "gibbs/latent/cure_sequences.h"
#include "gibbs/latent/liability_draws.h"
#include "gibbs/latent/mixing_proportions.h"
#include "gibbs/scan/group_scan.h"
#include "gibbs/scan/mixture_distance.h"
#include "gibbs/scan_case.h"
#include "numerics/laws.h"
#include "numerics/normal_draws.h"

#include <array>
#include <cmath>
#include <limits>

namespace {

using namespace zeph_test;

double cdf(double x) { return laws::normal_cdf(x); }
double pdf(double x) { return std::exp(-0.5 * x * x) / std::sqrt(2.0 * M_PI); }

const dense_matrix& matrix_of_group(std::int32_t h) {
  static const dense_matrix one(2, {2.0, 0.5, 0.5, 1.0}), two(2, {0.75, -0.25, -0.25, 1.0});
  return h == 1 ? one : two;
}

// Trait 1 with a mixture distance (equation 1) and a mean (2), trait 2 its
// indicator with a mean (3); `records` records alike: y = 1.2, liability 0.3.
struct mixed_case : scan_case {
  static described_model described(std::int32_t records, std::int32_t groups) {
    described_model d;
    d.traits.resize(2);
    d.traits[0].regressions = {{2, 0, 0, true}};
    d.traits[0].effects = {{1, 1}};
    d.traits[0].mix_eq_type = 2;
    d.traits[1].kind = trait_mixture;
    d.traits[1].effects = {{1, 1}};
    d.integers = 5, d.reals = 2, d.records = records;
    d.residual_groups = groups;
    d.group_place = groups > 1 ? 2 : 0;
    d.residual = {2.0, 0.5, 0.5, 1.0};
    return d;
  }
  mixed_case(std::int32_t records, std::int32_t groups) : scan_case(described(records, groups)) {
    allocate_mixtures(m, mixtures, run.report);
    for (std::int32_t h = 1; groups > 1 && h <= groups; ++h) set_group_matrix(m, h, matrix_of_group(h));
    start(3);
    SETALL(sources.combined, 4321, 777);
    s.sol(1) = distance, s.sol(2) = 0.4, s.sol(3) = -0.2;
    for (std::int32_t i = 1; i <= records; ++i) {
      entry(i, 1, 1, 1, 1, 0.0);
      design.XD6_M(1, i) = 2;
      entry(i, 1, 2, 1, 1, 1.0);
      entry(i, 2, 3, 1, 1, 1.0);
      design.Y_M(1, i) = 1.25F;
      design.Y_M(2, i) = 0.3125F;
    }
    f.asked.analysis_type = analysis::predict;
    f.state.iround = 1;
    f.asked.isamp = 1;
  }
  // Posterior probability of component 1 of a record, written out.
  double tau(std::int32_t groups) const {
    double p[2];
    for (int z = 0; z < 2; ++z) {
      const dense_matrix& R = matrix_of_group(groups > 1 ? z + 1 : 1);
      const double det = R(1, 1) * R(2, 2) - R(1, 2) * R(2, 1);
      const double a = 1.25 - 0.4 - (z == 1 ? distance : 0.0), b = 0.3125 + 0.2;
      const double form = (R(2, 2) * a * a - 2.0 * R(1, 2) * a * b + R(1, 1) * b * b) / det;
      p[z] = std::exp(-0.5 * form) / std::sqrt(det) * (z == 1 ? cdf(-0.2) : cdf(0.2));
    }
    return p[1] / (p[0] + p[1]);
  }
  static constexpr double distance = 1.5;
};

TEST(bddrmc_mix, puts_records_into_components_by_their_exact_probability) {
  for (const std::int32_t groups : {1, 2}) {
    constexpr std::int32_t n = 40000;
    mixed_case c(n, groups);
    scan_records r = c.records();
    bddrmc_mix(r, c.f.asked, c.f.state);
    const double tau = c.tau(groups);
    double members = 0;
    for (std::int32_t i = 1; i <= n; ++i) {
      const bool on = c.design.ZD_M(1, i) == 1.0;
      members += on;
      ASSERT_TRUE(on || c.design.ZD_M(1, i) == 0.0);
      ASSERT_EQ(c.mixtures.MIXZ_LAST(1, i), on ? 1 : 0);
      ASSERT_EQ(c.mixtures.MIXZ_COUNT(1, i), on ? 1 : 0);
      ASSERT_EQ(c.design.IRESG_M(i), groups > 1 && on ? 2 : 1);
      ASSERT_EQ(c.design.Y_M(2, i) > 0.0F, on); // the liability's side
      ASSERT_NEAR(c.mixtures.TAU_STAT[1].SUM(i), tau, 1e-12);
      ASSERT_NEAR(c.mixtures.TAU_STAT[1].SS(i), tau * tau, 1e-12);
    }
    laws::expect_sum(members, n, tau, tau * (1 - tau), "members");
    EXPECT_EQ(c.mixtures.mix_pi(1), members / n);
    EXPECT_EQ(c.mixtures.mix_pi(2), 0.0); // carries no mixture coefficients
    if (groups == 2) {
      EXPECT_EQ(c.m.residual().HETG_N_OBS(1), n - static_cast<std::int32_t>(members));
      EXPECT_EQ(c.m.residual().HETG_N_OBS(2), static_cast<std::int32_t>(members));
    }
  }
}

// Given its indicator, the liability is normal by the other trait's residual, of
// the component that the record was in, beyond or before zero.
TEST(bddrmc_mix, draws_liabilities_from_their_truncated_law) {
  constexpr std::int32_t n = 40000;
  mixed_case c(n, 1);
  scan_records r = c.records();
  bddrmc_mix(r, c.f.asked, c.f.state);
  const double mean = -0.2 + 0.5 / 2.0 * (1.25 - 0.4), sd = std::sqrt(1.0 - 0.25 / 2.0);
  const double below = cdf(-mean / sd);
  std::vector<double> side[2];
  for (std::int32_t i = 1; i <= n; ++i)
    side[c.design.ZD_M(1, i) == 1.0 ? 1 : 0].push_back(static_cast<double>(c.design.Y_M(2, i)));
  laws::expect_law(side[0], [&](double x) { return cdf((std::min(x, 0.0) - mean) / sd) / below; });
  laws::expect_law(side[1],
                   [&](double x) { return x < 0 ? 0.0 : (cdf((x - mean) / sd) - below) / (1.0 - below); });
}

TEST(bddrmc_mix, counts_only_in_sample_rounds) {
  mixed_case c(50, 1);
  c.f.asked.nburn = 5;
  scan_records r = c.records();
  bddrmc_mix(r, c.f.asked, c.f.state);
  for (std::int32_t i = 1; i <= 50; ++i) {
    EXPECT_EQ(c.mixtures.MIXZ_COUNT(1, i), 0);
    EXPECT_EQ(c.mixtures.TAU_STAT[1].SUM(i), 0.0);
  }
}

// exp of both quadratic forms is 0: tau is no number.
TEST(bddrmc_mix, puts_a_far_outlier_into_component_0) {
  mixed_case c(3, 1);
  for (std::int32_t i = 1; i <= 3; ++i) {
    c.design.Y_M(1, i) = 500.0F;
    c.design.ZD_M(1, i) = 1.0;
  }
  scan_records r = c.records();
  bddrmc_mix(r, c.f.asked, c.f.state);
  for (std::int32_t i = 1; i <= 3; ++i) {
    EXPECT_EQ(c.design.ZD_M(1, i), 0.0);
    EXPECT_LE(c.design.Y_M(2, i), 0.0F);
  }
  EXPECT_EQ(c.mixtures.mix_pi(1), 0.0);
}

TEST(bddrmc_mix, gives_an_indicator_but_no_liability_to_a_record_without_the_trait) {
  mixed_case c(400, 1);
  for (std::int32_t i = 1; i <= 400; ++i) c.observe(i, 2); // trait 1 alone
  scan_records r = c.records();
  bddrmc_mix(r, c.f.asked, c.f.state);
  std::int32_t members = 0;
  for (std::int32_t i = 1; i <= 400; ++i) {
    EXPECT_EQ(c.design.Y_M(2, i), static_cast<float>(0.3125 + 0.2)); // its residual
    members += c.design.ZD_M(1, i) == 1.0;
  }
  EXPECT_GT(members, 50);
  EXPECT_LT(members, 350);
}

TEST(bddrmc_mix, prints_what_it_drew_for_the_first_records_of_the_first_rounds) {
  mixed_case c(12, 1);
  c.f.asked.test_level = 1;
  scan_records r = c.records();
  c.said();
  bddrmc_mix(r, c.f.asked, c.f.state);
  const std::string text = c.said();
  std::size_t rows = 0;
  for (std::size_t at = text.find("tau,a1: "); at != std::string::npos; at = text.find("tau,a1: ", at + 1))
    ++rows;
  EXPECT_EQ(rows, 10U);
  EXPECT_NE(text.find("l_mix_z: "), std::string::npos);
  EXPECT_NE(text.find("Round,mix_pi: " + I(1)), std::string::npos);
  EXPECT_EQ(text.find("bddrmc_mix - round:"), std::string::npos);
  c.f.asked.test_level = 2;
  bddrmc_mix(r, c.f.asked, c.f.state);
  const std::string more = c.said();
  const auto count = [&more](const std::string& words) {
    int n = 0;
    for (std::size_t at = more.find(words); at != std::string::npos; at = more.find(words, at + 1)) ++n;
    return n;
  };
  EXPECT_EQ(more.find("bddrmc_mix - round:" + I(1)), 0U);
  EXPECT_EQ(count("BDDRMC_MIX   OBS=  "), 10);
  EXPECT_EQ(count("Group    level Eq/level Eq type  Contribution"), 10);
  EXPECT_EQ(count("Computing residuals for liabilities\n"), 3);
  c.f.state.iround = 4;
  bddrmc_mix(r, c.f.asked, c.f.state);
  EXPECT_EQ(c.said().find("tau"), std::string::npos);
}

TEST(start_mixing_proportions, counts_the_coefficients_that_are_on) {
  mixed_case c(8, 1);
  for (std::int32_t i = 1; i <= 3; ++i) c.design.ZD_M(1, i) = 1.0;
  c.observe(8, 1); // not observed in trait 1
  scan_records r = c.records();
  start_mixing_proportions(r.model, r.design, r.mixtures);
  EXPECT_EQ(c.mixtures.mix_pi(1), 3.0 / 7.0);
}

TEST(allocate_mixtures, names_the_indicator_by_the_column_of_its_data) {
  described_model d = mixed_case::described(1, 1);
  d.traits[0].mix_eq_type = 1; // until the indicator is found
  model_records m = build_model(d);
  scratch_directory directory;
  heard_run run(directory.path());
  mixture_store store;
  allocate_mixtures(m, store, run.report);
  EXPECT_EQ(m.MODEL(1).MIX_EQ_TYPE, 2);
  EXPECT_TRUE(store.flag);
  EXPECT_EQ(mixture_distances(m), std::vector<std::int32_t>{1});
  m.MODEL(1).MIX_EQ_TYPE = 1;
  m.MODEL(2).TRAIT_INP = 9; // no regression has this column
  allocate_mixtures(m, store, run.report);
  EXPECT_EQ(m.MODEL(1).MIX_EQ_TYPE, 1);
}

// The draw of a distance is repeated until it is at least 1e-12.
TEST(sample_level, keeps_mixture_distances_positive) {
  mixed_case c(4, 1);
  ASSERT_EQ(c.work.levels.distances, std::vector<std::int32_t>{1});
  RMARIN(c.sources.marsaglia, 1802, 9373);
  c.layout.DI_of(1).unchecked_col(1)[0] = 1.0;
  scan_records r = c.records();
  ranmar_draws draws(c.sources.marsaglia);
  double sum = 0;
  constexpr int n = 20000;
  for (int i = 0; i < n; ++i) {
    c.s.RHS(1) = -1.0; // mean -1, variance 1
    sample_level(r.layout, r.sampler, r.work.levels, r.report, c.f.counts, draws, 1, 1);
    ASSERT_GE(c.s.sol(1), 1e-12);
    sum += c.s.sol(1);
  }
  const double tail = cdf(-1.0), mean = -1.0 + pdf(1.0) / tail;
  const double variance = 1.0 + pdf(1.0) / tail - (pdf(1.0) / tail) * (pdf(1.0) / tail);
  laws::expect_sum(sum, n, mean, variance, "positive part of a normal");
  EXPECT_NEAR(static_cast<double>(c.f.counts.nlabel), n * cdf(1.0), 4 * std::sqrt(n * tail * (1 - tail)));
}

TEST(sample_level, draws_a_mixture_distance_as_often_as_it_takes) {
  mixed_case c(4, 1);
  RMARIN(c.sources.marsaglia, 1802, 9373);
  c.layout.DI_of(1).unchecked_col(1)[0] = 1.0;
  c.s.RHS(1) = -5.0; // one draw in 3.5 million is positive
  scan_records r = c.records();
  ranmar_draws draws(c.sources.marsaglia);
  sample_level(r.layout, r.sampler, r.work.levels, r.report, c.f.counts, draws, 1, 1);
  EXPECT_GE(c.s.sol(1), 1e-12);
  EXPECT_EQ(c.f.counts.nlabel, 1);
}

void expect_vain_draws(mixed_case& c, double mean) {
  RMARIN(c.sources.marsaglia, 1802, 9373);
  c.layout.DI_of(1).unchecked_col(1)[0] = 1.0;
  c.s.RHS(1) = mean;
  const std::string text = expect_stop(16, c.run, [&](reporting& report) {
    scan_records r{c.m,          c.layout,   c.design, c.relations, c.s,
                   c.categories, c.mixtures, c.work,   c.sources,   report};
    ranmar_draws draws(c.sources.marsaglia);
    sample_level(r.layout, r.sampler, r.work.levels, r.report, c.f.counts, draws, 1, 1);
  });
  EXPECT_NE(
      text.find("ERROR - Computation impossible in GIBSCAN: no positive mixture distance in     1000000"),
      std::string::npos)
      << text;
}

TEST(sample_level, stops_where_no_normal_makes_a_mixture_distance_positive) {
  mixed_case c(4, 1);
  expect_vain_draws(c, -5.31); // the largest normal is 5.29
}

TEST(sample_level, keeps_drawing_mixture_distances_until_STOP) {
  mixed_case c(4, 1);
  c.directory.write("STOP", "");
  expect_vain_draws(c, -5.25);
}

// Traits 1 (kind 7) and 2 (kind 8); subjects of `length` records alike.
struct sequence_case : scan_case {
  static described_model described(std::int32_t records) {
    described_model d;
    d.traits.resize(2);
    d.traits[0].kind = trait_sequence, d.traits[1].kind = trait_cured;
    for (described_trait& t : d.traits) {
      t.sequence_place = 2;
      t.effects = {{1, 1}};
    }
    d.integers = 5, d.reals = 2, d.records = records;
    d.residual = {1.0, 0.0, 0.0, 1.0};
    return d;
  }
  sequence_case(std::int32_t subjects, std::int32_t length) : scan_case(described(subjects * length)) {
    m.n_cure_seq = length;
    m.MODEL(1).link2 = 2;
    m.MODEL(2).link1 = 1;
    allocate_mixtures(m, mixtures, run.report);
    start(2);
    SETALL(sources.combined, 4321, 777);
    s.sol(1) = -0.5, s.sol(2) = 0.25;
    for (std::int32_t i = 1; i <= subjects * length; ++i) {
      const std::int32_t place = (i - 1) % length + 1;
      entry(i, 1, 1, 1, 1, 1.0);
      design.SEQ_M(i) = place == length ? -place : place;
      if (place == length) entry(i, 2, 2, 1, 1, 1.0);
      observe(i, place == length ? 3 : 2);
      design.Y_M(1, i) = -0.5F;
      design.Y_M(2, i) = 0.5F;
    }
    scan_records r = records();
    prepare_conditionals(r.model, r.sampler, r.work.latent);
    f.asked.analysis_type = analysis::predict;
    f.state.iround = 1;
    f.asked.isamp = 1;
  }
};

TEST(bddrmc_cure, draws_who_can_fail_by_the_probability_of_a_sequence_without_event) {
  constexpr std::int32_t subjects = 20000, length = 3;
  sequence_case c(subjects, length);
  scan_records r = c.records();
  bddrmc_cure(r, c.f.asked, c.f.state);
  const double none = std::pow(cdf(0.5), length), able = cdf(0.25);
  const double p = none * able / (none * able + 1.0 - able);
  double failing = 0;
  for (std::int32_t i = 1; i <= subjects; ++i) {
    const std::int32_t last = i * length;
    const bool on = c.design.Y_M(2, last) > 0.0F;
    failing += on;
    ASSERT_EQ(c.mixtures.MIXZ_LAST(2, last), on ? 1 : 0);
    for (std::int32_t j = last - length + 1; on && j <= last; ++j)
      ASSERT_LT(c.design.Y_M(1, j), 0.0F); // no event was seen
  }
  laws::expect_sum(failing, subjects, p, p * (1 - p), "subjects that can fail");
  EXPECT_EQ(c.mixtures.mix_pi(2), failing / subjects);
}

// A cured subject's status says nothing of its liability.
TEST(bddrmc_cure, draws_the_status_of_cured_subjects_free_and_of_others_by_what_was_seen) {
  constexpr std::int32_t subjects = 20000;
  sequence_case c(subjects, 2);
  c.design.CURE_Y[0](2) = 1; // the first subject has an event
  scan_records r = c.records();
  bddrmc_cure(r, c.f.asked, c.f.state);
  EXPECT_EQ(c.mixtures.MIXZ_LAST(2, 2), 1);
  EXPECT_LT(c.design.Y_M(1, 1), 0.0F);
  EXPECT_GT(c.design.Y_M(1, 2), 0.0F);
  std::vector<double> cured, failing;
  for (std::int32_t i = 2; i <= subjects; ++i)
    (c.mixtures.MIXZ_LAST(2, 2 * i) != 0 ? failing : cured)
        .push_back(static_cast<double>(c.design.Y_M(1, 2 * i)));
  laws::expect_law(cured, [](double x) { return cdf(x + 0.5); });
  laws::expect_law(failing, [](double x) { return cdf(std::min(x, 0.0) + 0.5) / cdf(0.5); });
}

TEST(bddrmc_cure, counts_positive_values_over_the_observed_records) {
  sequence_case c(2, 2);
  c.design.CURE_Y[0](2) = c.design.CURE_Y[0](4) = 1;
  scan_records r = c.records();
  bddrmc_cure(r, c.f.asked, c.f.state);
  EXPECT_EQ(c.mixtures.mix_pi(1), 0.5); // 2 of 4
  EXPECT_EQ(c.mixtures.mix_pi(2), 1.0); // 2 of 2
  EXPECT_EQ(c.mixtures.MIXZ_COUNT(1, 2), 1);
  EXPECT_EQ(c.mixtures.MIXZ_COUNT(1, 1), 0);
  for (std::int32_t i = 1; i <= 2; ++i)
    for (std::int32_t t = 1; t <= 2; ++t) EXPECT_EQ(c.design.CURE_YHAT(t, i), 0.0F);
}

// 1 + 2^-24 + 2^-50 lies above the middle between two 32-bit numbers, 2^-24 alone on it.
TEST(bddrmc_cure, rounds_each_sum_of_fitted_values_once) {
  sequence_case c(1, 2);
  c.design.SEQ_M(2) = 2; // the sequence continues: its rows are not yet cleared
  c.s.sol(1) = 1.0, c.s.sol(2) = std::ldexp(1.0, -24) + std::ldexp(1.0, -50);
  c.design.XD2_M(2, 2) = 1; // both effects in trait 1 of record 2
  scan_records r = c.records();
  bddrmc_cure(r, c.f.asked, c.f.state);
  EXPECT_EQ(c.design.CURE_YHAT(1, 1), 1.0F);
  EXPECT_EQ(c.design.CURE_YHAT(1, 2), 1.0F + std::ldexp(1.0F, -23));
}

// What is in the place of a missing trait has no effect, also where nothing is imputed.
TEST(bddrmc_cure, takes_no_note_of_a_missing_trait_s_place_in_the_solver) {
  sequence_case c(50, 3);
  c.f.asked.analysis_type = analysis::solve;
  for (std::int32_t i = 1; i <= 150; ++i)
    if (i % 3 != 0) c.design.Y_M(2, i) = std::numeric_limits<float>::quiet_NaN();
  scan_records r = c.records();
  r.sampler.RCOV(1, 2, 1) = r.sampler.RCOV(2, 1, 1) = 0.5;
  prepare_conditionals(r.model, r.sampler, r.work.latent);
  bddrmc_cure(r, c.f.asked, c.f.state);
  for (std::int32_t i = 1; i <= 150; ++i) EXPECT_TRUE(std::isfinite(c.design.Y_M(1, i))) << i;
}

// Two indicators, traits 2 and 3; the mixture coefficient of trait 1 is that of trait 2.
struct two_indicators_case : scan_case {
  static constexpr std::int32_t count = 30;
  static const dense_matrix& R(std::int32_t h) {
    static const dense_matrix one(3, {2.0, 0.5, 0.3, 0.5, 1.0, 0.2, 0.3, 0.2, 1.0}),
        two(3, {1.0, -0.2, 0.1, -0.2, 1.0, 0.0, 0.1, 0.0, 1.0});
    return h == 1 ? one : two;
  }
  static described_model described() {
    described_model d;
    d.traits.resize(3);
    d.traits[0].regressions = {{2, 0, 0, true}};
    d.traits[0].mix_eq_type = 2;
    d.traits[1].kind = d.traits[2].kind = trait_mixture;
    for (described_trait& t : d.traits) t.effects = {{1, 1}};
    d.integers = 5, d.reals = 3, d.records = count;
    d.residual_groups = 2;
    d.group_place = 2;
    d.residual = {2.0, 0.5, 0.3, 0.5, 1.0, 0.2, 0.3, 0.2, 1.0};
    return d;
  }
  two_indicators_case() : scan_case(described()) {
    allocate_mixtures(m, mixtures, run.report);
    for (const std::int32_t h : {1, 2}) set_group_matrix(m, h, R(h));
    start(4);
    SETALL(sources.combined, 4321, 777);
    SETALL(own.combined, 4321, 777);
    s.sol(1) = 1.5, s.sol(2) = 0.4, s.sol(3) = -0.2, s.sol(4) = 0.3;
    for (std::int32_t i = 1; i <= count; ++i) {
      entry(i, 1, 1, 1, 1, i % 3 == 0 ? 1.0 : 0.0);
      design.XD6_M(1, i) = 2;
      for (std::int32_t t = 1; t <= 3; ++t) {
        entry(i, t, 1 + t, 1, 1, 1.0);
        design.Y_M(t, i) = 0.25F * static_cast<float>((i * 5 + t * 3) % 9 - 4);
      }
    }
    f.asked.analysis_type = analysis::predict;
    f.state.iround = 1;
    f.asked.isamp = 1;
  }
  static double quadratic(const dense_matrix& Q, const double* e) {
    double sum = 0;
    for (std::int32_t i = 1; i <= 3; ++i)
      for (std::int32_t j = 1; j <= 3; ++j) sum += e[i - 1] * Q(i, j) * e[j - 1];
    return sum;
  }
  // res(t) drawn given those of the traits before it, on the side given by z.
  void draw(double* res, std::int32_t t, double e, bool z) {
    const dense_matrix& G = R(1);
    dense_matrix known(t - 1);
    for (std::int32_t i = 1; i < t; ++i)
      for (std::int32_t j = 1; j < t; ++j) known(i, j) = G(i, j);
    const dense_matrix Q = dense_inverse(known).inverse;
    double mean = 0, v = G(t, t);
    for (std::int32_t i = 1; i < t; ++i)
      for (std::int32_t j = 1; j < t; ++j) {
        mean += G(t, i) * Q(i, j) * res[j - 1];
        v -= G(t, i) * Q(i, j) * G(t, j);
      }
    res[t - 1] = z ? -GEN_TRUNC_NORMAL(own.combined, -9999999.0, e, -mean, v)
                   : GEN_TRUNC_NORMAL(own.combined, -9999999.0, -e, mean, v);
  }
  heard_run quiet;
  random_sources own{quiet.report};
};

TEST(bddrmc_mix, draws_for_each_indicator_a_uniform_and_all_liabilities_and_groups_by_the_last) {
  two_indicators_case c;
  const dense_inverse known[2] = {dense_inverse(c.R(1)), dense_inverse(c.R(2))};
  const double e[3] = {0.4, -0.2, 0.3}; // fitted values but for the distance
  std::vector<std::array<float, 2>> Y;
  std::vector<std::int32_t> group;
  std::int32_t second = 0;
  for (std::int32_t i = 1; i <= c.count; ++i) {
    const double on = c.design.ZD_M(1, i);
    double res[3], e1[3], e0[3];
    for (int t = 0; t < 3; ++t)
      e1[t] = e0[t] = res[t] = static_cast<double>(c.design.Y_M(t + 1, i)) - e[t] - (t == 0 ? on * 1.5 : 0.0);
    (on > 0 ? e0[0] : e1[0]) += on > 0 ? 1.5 : -1.5;
    bool z[2] = {false, false};
    Y.emplace_back();
    for (int k = 0; k < 2; ++k) {
      const double p1 = std::exp(-0.5 * c.quadratic(known[1].inverse, e1)) / std::sqrt(known[1].determinant) *
                        cdf(e[k + 1]);
      const double p0 = std::exp(-0.5 * c.quadratic(known[0].inverse, e0)) / std::sqrt(known[0].determinant) *
                        cdf(-e[k + 1]);
      z[k] = uniform_range(c.own.combined) <= p1 / (p1 + p0);
      c.draw(res, 2, e[1], z[0]);
      c.draw(res, 3, e[2], z[1]);
      const double liability[2] = {res[1] + e[1], res[2] + e[2]};
      Y.back()[static_cast<std::size_t>(k)] = static_cast<float>(liability[k]);
    }
    group.push_back(z[1] ? 2 : 1);
    second += z[1];
  }
  scan_records r = c.records();
  bddrmc_mix(r, c.f.asked, c.f.state);
  for (std::int32_t i = 1; i <= c.count; ++i) {
    const auto at = static_cast<std::size_t>(i - 1);
    EXPECT_NEAR(c.design.Y_M(2, i), Y[at][0], 2e-6F) << i;
    EXPECT_NEAR(c.design.Y_M(3, i), Y[at][1], 2e-6F) << i;
    EXPECT_EQ(c.design.IRESG_M(i), group[at]) << i;
    EXPECT_EQ(c.design.ZD_M(1, i), Y[at][0] > 0.0F ? 1.0 : 0.0) << i;
  }
  EXPECT_EQ(c.m.residual().HETG_N_OBS(1), c.count - second); // each record once
  EXPECT_EQ(c.m.residual().HETG_N_OBS(2), second);
  std::int32_t a1 = 0, a2 = 0, b1 = 0, b2 = 0;
  GETSD(c.sources.combined, a1, a2);
  GETSD(c.own.combined, b1, b2);
  EXPECT_EQ(a1, b1);
  EXPECT_EQ(a2, b2);
}

} // namespace
