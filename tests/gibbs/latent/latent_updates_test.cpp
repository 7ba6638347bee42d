// The passes that draw latent values, record by record, against the same draws
// worked out here one after the other from a source of equal seeds.
#include "gibbs/latent/latent_updates.h"

#include "gibbs/latent/liability_draws.h"
#include "gibbs/latent/mixture_updates.h"
#include "gibbs/scan_case.h"
#include "numerics/normal_draws.h"

#include <algorithm>
#include <cmath>

namespace {

using namespace zeph_test;

// Traits: 1 censored, 2 ordered (thresholds 0, 0.4, 1), 3 binary, 4 Gaussian; a mean each.
struct latent_pass_case : scan_case {
  static constexpr std::int32_t traits = 4, count = 8;
  static described_model described() {
    described_model d;
    d.traits.resize(traits);
    const std::int32_t kinds[traits] = {trait_censored, trait_categorical, trait_liability, trait_gaussian};
    for (std::size_t t = 0; t < traits; ++t) {
      d.traits[t].kind = kinds[t];
      d.traits[t].effects = {{1, 1}};
    }
    d.traits[0].code_place = 2, d.traits[0].upper_place = 5;
    d.integers = 5, d.reals = 5, d.records = count;
    d.residual = {2.0, 0.6, -0.5, 0.3, 0.6, 1.0, 0.3, 0.1, -0.5, 0.3, 1.5, 0.2, 0.3, 0.1, 0.2, 1.2};
    return d;
  }
  // Trait 4 becomes the indicator of a mixture of trait 1.
  void make_indicator() {
    m.MODEL(4).TRAIT_TYPE = trait_mixture;
    m.MODEL(1).L_MIX_TRAIT = true;
    for (std::int32_t i = 1; i <= count; ++i)
      if (trait_present(design.ISIT_M(i), 1, 4)) design.XD6_M(1, i) = 4;
    allocate_mixtures(m, mixtures, run.report);
  }
  latent_pass_case() : scan_case(described()) {
    m.ncat = 1;
    start(traits);
    for (std::int32_t t = 1; t <= traits; ++t) s.sol(t) = 0.3 * t - 0.6;
    const std::int32_t masks[count] = {15, 15, 7, 11, 13, 14, 15, 1};
    const std::int32_t codes[count] = {1, 0, 1, -1, 2, 1, 3, 2}; // record 8 has no traits but the last
    categories.catobs.take(1, count);
    for (std::int32_t i = 1; i <= count; ++i) {
      observe(i, masks[i - 1]);
      for (std::int32_t t = 1; t <= traits; ++t) {
        if (trait_present(masks[i - 1], t, traits)) entry(i, t, t, 1, 1, 1.0);
        design.Y_M(t, i) = 0.25F * static_cast<float>((i * 5 + t * 3) % 7 - 3) + 0.125F;
      }
      categories.catobs(1, i) = trait_present(masks[i - 1], 2, traits) ? i % 4 + 1 : -1;
      design.CENS_M(1, i) = codes[i - 1];
      design.Y_MMIN(1, i) = codes[i - 1] == -1 ? -999999.0F : 0.5F;
      design.Y_MMAX(1, i) = codes[i - 1] == 1 ? 999999.0F : 1.25F;
    }
    category_record x;
    x.trait = 2;
    x.ncat_t = 4;
    for (vec<double>* v : {&x.thr, &x.thrpostm, &x.thrpostsd}) v->take(range(0, 4));
    x.minu.take(4);
    x.maxu.take(4);
    x.thr(0) = -outer_limit, x.thr(1) = 0.0, x.thr(2) = 0.4, x.thr(3) = 1.0, x.thr(4) = outer_limit;
    categories.catstr.push_back(std::move(x));
    SETALL(sources.combined, 1234, 98765);
    SETALL(own.combined, 1234, 98765);
    f.asked.analysis_type = analysis::gibbs;
    f.state.iround = 1;
    f.asked.isamp = 1;
    scan_records r = records();
    prepare_conditionals(r.model, r.sampler, r.work.latent);
  }
  // Draws trait t of a record between a and b about its mean given the others.
  void draw(double* res, std::int32_t t, double a, double b) {
    const auto [mean, v] = given_others(res, t);
    res[t - 1] = std::clamp(GEN_TRUNC_NORMAL(own.combined, a, b, mean, v), a, b);
  }
  std::pair<double, double> given_others(const double* res, std::int32_t t) const {
    const dense_matrix Q = dense_inverse(dense_matrix(traits, described().residual)).inverse;
    double sum = 0;
    for (std::int32_t i = 1; i <= traits; ++i)
      if (i != t) sum += Q(t, i) * res[i - 1];
    return {-sum / Q(t, t), 1.0 / Q(t, t)};
  }
  double fitted(std::int32_t i, std::int32_t t) const {
    return trait_present(design.ISIT_M(i), t, traits) ? s.sol(t) : 0.0;
  }
  void expect_sources_alike() {
    std::int32_t a1 = 0, a2 = 0, b1 = 0, b2 = 0;
    GETSD(sources.combined, a1, a2);
    GETSD(own.combined, b1, b2);
    EXPECT_EQ(a1, b1);
    EXPECT_EQ(a2, b2);
  }
  heard_run quiet;
  random_sources own{quiet.report};
};

void expect_values(const mat<float>& found, const mat<float>& wanted) {
  for (std::int64_t i = 1; i <= wanted.extent(2); ++i)
    for (std::int64_t t = 1; t <= wanted.extent(1); ++t)
      EXPECT_NEAR(found(t, i), wanted(t, i), 2e-6F) << "trait " << t << " of record " << i;
}

mat<float> copy_of(const mat<float>& x) {
  mat<float> y;
  y.take(x.extent(1), x.extent(2));
  std::copy(x.begin(), x.end(), y.begin());
  return y;
}

TEST(bddrmc_cat, draws_the_listed_traits_of_each_record_in_order_and_stores_kinds_3_and_4) {
  latent_pass_case c;
  mat<float> wanted = copy_of(c.design.Y_M);
  int drawn_for_the_others = 0;
  for (std::int32_t i = 1; i <= c.count; ++i) {
    double res[4], e[4];
    for (std::int32_t t = 1; t <= 4; ++t) {
      e[t - 1] = c.fitted(i, t);
      res[t - 1] = static_cast<double>(c.design.Y_M(t, i)) - e[t - 1];
    }
    const auto present = [&](std::int32_t t) { return trait_present(c.design.ISIT_M(i), t, 4); };
    if (present(1) && c.design.Y_M(1, i) > 0.0F) { // kept: by its sign, and only for the traits after it
      c.draw(res, 1, static_cast<double>(c.design.Y_MMIN(1, i)) - e[0],
             static_cast<double>(c.design.Y_MMAX(1, i)) - e[0]);
      ++drawn_for_the_others;
    }
    if (present(2)) {
      const std::int32_t k = c.categories.catobs(1, i);
      c.draw(res, 2, c.categories.catstr[0].thr(k - 1) - e[1], c.categories.catstr[0].thr(k) - e[1]);
      wanted(2, i) = static_cast<float>(e[1] + res[1]);
    }
    if (present(3)) {
      const auto [mean, v] = c.given_others(res, 3);
      res[2] = c.design.Y_M(3, i) > 0.0F ? -GEN_TRUNC_NORMAL(c.own.combined, -99999.0, e[2], -mean, v)
                                         : GEN_TRUNC_NORMAL(c.own.combined, -99999.0, -e[2], mean, v);
      wanted(3, i) = static_cast<float>(e[2] + res[2]);
    }
  }
  EXPECT_GE(drawn_for_the_others, 2);
  scan_records r = c.records();
  bddrmc_cat(r, c.f.asked);
  expect_values(c.design.Y_M, wanted);
  c.expect_sources_alike();
}

TEST(bddrmc_cens, draws_the_censored_values_alone_by_their_codes) {
  latent_pass_case c;
  mat<float> wanted = copy_of(c.design.Y_M);
  for (const std::int32_t i : {1, 4, 5, 6}) { // 3 and 8: missing; 2 and 7: codes without a draw
    double res[4];
    for (std::int32_t t = 1; t <= 4; ++t)
      res[t - 1] = static_cast<double>(c.design.Y_M(t, i)) - c.fitted(i, t);
    c.draw(res, 1, static_cast<double>(c.design.Y_MMIN(1, i)) - c.s.sol(1),
           static_cast<double>(c.design.Y_MMAX(1, i)) - c.s.sol(1));
    wanted(1, i) = static_cast<float>(c.s.sol(1) + res[0]);
  }
  scan_records r = c.records();
  bddrmc_cens(r, c.f.asked);
  expect_values(c.design.Y_M, wanted);
  c.expect_sources_alike();
}

TEST(samp_thresholds, of_three_categories_are_fixed_without_a_draw) {
  latent_pass_case c;
  c.categories.catstr[0].ncat_t = 3;
  c.categories.catobs.fill(1);
  c.f.asked.analysis_type = analysis::solve;
  scan_records r = c.records();
  samp_thresholds(r.design, r.categories, r.sources.combined, r.report, c.f.asked, c.f.state, c.files);
  EXPECT_EQ(c.categories.catstr[0].thr(1), 0.0);
  EXPECT_EQ(c.categories.catstr[0].thr(2), 1.0);
  c.expect_sources_alike();
}

// A second ordered trait: its rows carry the number of the first.
TEST(samp_thresholds, are_summed_and_written_in_sample_rounds_of_all_types_above_0) {
  for (const std::int32_t type : {0, 1, 2, 3, 4, 5, 6}) {
    latent_pass_case c;
    category_record second;
    second.trait = 4;
    second.ncat_t = 2;
    for (vec<double>* v : {&second.thr, &second.thrpostm, &second.thrpostsd}) v->take(range(0, 2));
    second.minu.take(2);
    second.maxu.take(2);
    c.categories.catstr.push_back(std::move(second));
    c.categories.catobs.take(2, c.count);
    c.categories.catobs.fill(-1);
    for (std::int32_t i = 1; i <= 4; ++i) {
      c.categories.catobs(1, i) = i;
      c.design.Y_M(2, i) = 0.25F * static_cast<float>(i); // threshold 2 between 0.5 and 0.75
    }
    c.f.asked.analysis_type = analysis_of(type);
    c.f.asked.nburn = 4, c.f.asked.isamp = 2;
    ASSERT_TRUE(c.files.threshold.open(c.directory / "threshold"));
    scan_records r = c.records();
    for (c.f.state.iround = 4; c.f.state.iround <= 7; ++c.f.state.iround)
      samp_thresholds(r.design, r.categories, r.sources.combined, r.report, c.f.asked, c.f.state, c.files);
    const double sum = c.categories.catstr[0].thrpostm(2), squares = c.categories.catstr[0].thrpostsd(2);
    std::istringstream file(c.directory.read("threshold"));
    if (type == 0) {
      EXPECT_EQ(file.str(), "");
      EXPECT_EQ(sum, 0.0);
      continue;
    }
    double round, trait, k, value;
    for (const double wanted : {1.0, 2.0, 3.0, 1.0}) { // k: three of the first trait, one of the second
      ASSERT_TRUE(file >> round >> trait >> k >> value);
      EXPECT_EQ(round, 6.0);
      EXPECT_EQ(trait, 2.0);
      EXPECT_EQ(k, wanted);
      if (k == 2.0) {
        EXPECT_NEAR(value, sum, 1e-15);
        EXPECT_NEAR(squares, sum * sum, 1e-15);
        EXPECT_TRUE(value > 0.5 && value < 0.75);
      }
    }
    EXPECT_EQ(value, 1.0);
    EXPECT_FALSE(file >> round);
    EXPECT_EQ(c.categories.catstr[0].thrpostm(3), 1.0);
  }
}

TEST(update_latent_variables, takes_categories_thresholds_and_censored_values_in_this_order) {
  latent_pass_case one, other;
  scan_records r = one.records(), q = other.records();
  one.f.state.iround = other.f.state.iround = 0; // no sample
  values_from_entries(r.work.values);
  update_latent_variables(r, one.f.asked, one.f.state, one.files);
  bddrmc_cat(q, other.f.asked);
  samp_thresholds(q.design, q.categories, q.sources.combined, q.report, other.f.asked, other.f.state,
                  other.files);
  bddrmc_cens(q, other.f.asked);
  EXPECT_TRUE(std::equal(one.design.Y_M.begin(), one.design.Y_M.end(), other.design.Y_M.begin()));
  EXPECT_EQ(one.categories.catstr[0].thr(2), other.categories.catstr[0].thr(2));
}

TEST(update_latent_variables, leaves_thresholds_and_censored_values_to_the_form_of_one_stage) {
  latent_pass_case one, other;
  one.f.asked.nfeto = 1;
  one.f.state.iround = 0;
  scan_records r = one.records(), q = other.records();
  values_from_entries(r.work.values);
  update_latent_variables(r, one.f.asked, one.f.state, one.files);
  bddrmc_cat(q, other.f.asked);
  EXPECT_TRUE(std::equal(one.design.Y_M.begin(), one.design.Y_M.end(), other.design.Y_M.begin()));
  EXPECT_EQ(one.categories.catstr[0].thr(2), 0.4);
}

// Trait 4 is an indicator: its pass is between the thresholds and the censored values.
TEST(update_latent_variables, draws_mixtures_before_censored_values_and_sums_their_shares) {
  latent_pass_case cases[2];
  for (latent_pass_case& c : cases) {
    c.make_indicator();
    c.f.asked.analysis_type = analysis::sums;
    c.f.asked.nburn = 0;
    ASSERT_TRUE(c.files.mix_pi.open(c.directory / "mix_pi"));
    ASSERT_TRUE(c.files.threshold.open(c.directory / "threshold"));
  }
  scan_records r = cases[0].records(), q = cases[1].records();
  values_from_entries(r.work.values);
  update_latent_variables(r, cases[0].f.asked, cases[0].f.state, cases[0].files);
  bddrmc_cat(q, cases[1].f.asked);
  samp_thresholds(q.design, q.categories, q.sources.combined, q.report, cases[1].f.asked, cases[1].f.state,
                  cases[1].files);
  bddrmc_mix(q, cases[1].f.asked, cases[1].f.state);
  bddrmc_cens(q, cases[1].f.asked);
  EXPECT_TRUE(
      std::equal(cases[0].design.Y_M.begin(), cases[0].design.Y_M.end(), cases[1].design.Y_M.begin()));
  EXPECT_TRUE(
      std::equal(cases[0].design.ZD_M.begin(), cases[0].design.ZD_M.end(), cases[1].design.ZD_M.begin()));
  const double share = cases[1].mixtures.mix_pi(1);
  EXPECT_EQ(cases[0].mixtures.mix_pi_sum(1), share);
  EXPECT_EQ(cases[0].mixtures.mix_pi_ss(1), share * share);
  EXPECT_EQ(cases[1].mixtures.mix_pi_sum(1), 0.0);
  double round = 0, written = 0;
  std::istringstream file(cases[0].directory.read("mix_pi"));
  ASSERT_TRUE(file >> round >> written);
  EXPECT_EQ(round, 1.0);
  EXPECT_NEAR(written, share, 1e-15);
  cases[0].f.asked.nburn = 5; // not a sample round
  values_from_entries(r.work.values);
  update_latent_variables(r, cases[0].f.asked, cases[0].f.state, cases[0].files);
  EXPECT_EQ(cases[0].mixtures.mix_pi_sum(1), share);
}

// Nothing is imputed in the solver: a missing trait is at its mean, residual 0.
TEST(update_latent_variables, take_no_note_of_the_places_of_missing_traits_in_type_0) {
  latent_pass_case cases[2];
  for (latent_pass_case& c : cases) {
    c.make_indicator();
    c.f.asked.analysis_type = analysis::solve;
    for (std::int32_t i = 1; i <= c.count; ++i)
      for (std::int32_t t = 1; t <= 4; ++t)
        if (!trait_present(c.design.ISIT_M(i), t, 4)) c.design.Y_M(t, i) = &c == cases ? 0.0F : 37.5F;
    scan_records r = c.records();
    values_from_entries(r.work.values);
    update_latent_variables(r, c.f.asked, c.f.state, c.files);
  }
  int drawn = 0;
  for (std::int32_t i = 1; i <= cases[0].count; ++i)
    for (std::int32_t t = 1; t <= 4; ++t) {
      if (!trait_present(cases[0].design.ISIT_M(i), t, 4)) continue;
      EXPECT_EQ(cases[0].design.Y_M(t, i), cases[1].design.Y_M(t, i)) << t << ' ' << i;
      drawn += cases[0].design.ISIT_M(i) != 15;
    }
  EXPECT_GT(drawn, 8);
}

// The solver takes no samples: no sums, and no rows to sum later.
TEST(update_latent_variables, keep_no_sums_of_mixtures_in_type_0) {
  latent_pass_case c;
  c.m.MODEL(4).TRAIT_TYPE = trait_mixture;
  c.m.MODEL(1).L_MIX_TRAIT = true;
  for (std::int32_t i = 1; i <= c.count; ++i)
    if (trait_present(c.design.ISIT_M(i), 1, 4)) c.design.XD6_M(1, i) = 4;
  allocate_mixtures(c.m, c.mixtures, c.run.report);
  ASSERT_TRUE(c.files.mix_pi.open(c.directory / "mix_pi"));
  scan_records r = c.records();
  double shares = 0;
  c.f.asked.analysis_type = analysis::solve;
  for (c.f.state.iround = 1; c.f.state.iround <= 5; ++c.f.state.iround) {
    values_from_entries(r.work.values);
    update_latent_variables(r, c.f.asked, c.f.state, c.files);
    shares += c.mixtures.mix_pi(1);
    EXPECT_EQ(c.mixtures.mix_pi_sum(1), 0.0);
    EXPECT_EQ(c.mixtures.mix_pi_ss(1), 0.0);
    for (std::int32_t i = 1; i <= c.count; ++i) {
      EXPECT_EQ(c.mixtures.TAU_STAT[3].SUM(i), 0.0);
      EXPECT_EQ(c.mixtures.TAU_STAT[3].SS(i), 0.0);
    }
  }
  EXPECT_GT(shares, 0.0);
  EXPECT_EQ(c.directory.read("mix_pi"), "");
}

} // namespace
