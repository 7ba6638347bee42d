// Densities of records against Simpson's rule on the joint normal density of all present traits, from the
// records' entries and from residuals that the scan has kept.
#include "gibbs/residuals/record_density.h"

#include "gibbs/prior_case.h"

#include <algorithm>

namespace {

using namespace zeph_test;

// Of log densities: one latent value is closed; two are 24 points in the uniform of the first, whose
// integrand has an endless slope at an open end.
constexpr double closed = 1e-6, of_two = 1e-4;

constexpr double far_side = 9.0; // in standard deviations of the latent values, all near 1
constexpr int intervals = 600;   // of a latent value

// One present trait of a record: residual where it is seen exactly, else the bounds of its residual; both
// scaled by the root of the weight.
struct present_trait {
  std::int32_t trait = 0;
  bool seen = false;
  double low = 0, high = 0; // seen: low is the residual
};

// Weights of Simpson's rule at intervals + 1 points of low..high, cut at the far sides.
struct rule {
  double low, step;
  rule(double from, double to) : low(std::max(from, -far_side)) {
    step = (std::min(to, far_side) - low) / intervals;
  }
  double node(int i) const { return low + i * step; }
  double weight(int i) const { return step / 3.0 * (i == 0 || i == intervals ? 1 : i % 2 == 1 ? 4 : 2); }
};

// Density of the seen residuals times the probability of the bounds of at most two latent ones.
double density_by_rule(const dense_matrix& R, const std::vector<present_trait>& traits) {
  const auto n = static_cast<std::int64_t>(traits.size());
  dense_matrix own(n);
  for (std::int64_t i = 1; i <= n; ++i)
    for (std::int64_t j = 1; j <= n; ++j)
      own(i, j) =
          R(traits[static_cast<std::size_t>(i - 1)].trait, traits[static_cast<std::size_t>(j - 1)].trait);
  const dense_inverse inverse(own);
  const double constant =
      std::pow(2.0 * std::acos(-1.0), -0.5 * static_cast<double>(n)) / std::sqrt(inverse.determinant);
  std::vector<double> e;
  std::vector<std::size_t> latent;
  for (const present_trait& t : traits) {
    if (!t.seen) latent.push_back(e.size());
    e.push_back(t.low);
  }
  const auto density = [&] {
    double q = 0;
    for (std::int64_t i = 1; i <= n; ++i)
      for (std::int64_t j = 1; j <= n; ++j)
        q += e[static_cast<std::size_t>(i - 1)] * inverse.inverse(i, j) * e[static_cast<std::size_t>(j - 1)];
    return constant * std::exp(-0.5 * q);
  };
  if (latent.empty()) return density();
  double sum = 0;
  const rule first(traits[latent[0]].low, traits[latent[0]].high);
  for (int i = 0; i <= intervals; ++i) {
    e[latent[0]] = first.node(i);
    if (latent.size() == 1) {
      sum += first.weight(i) * density();
      continue;
    }
    const rule second(traits[latent[1]].low, traits[latent[1]].high);
    for (int k = 0; k <= intervals; ++k) {
      e[latent[1]] = second.node(k);
      sum += first.weight(i) * second.weight(k) * density();
    }
  }
  return sum;
}

struct density_case : prior_case {
  explicit density_case(const described_model& d) : prior_case(d, 2, true) {}
  double root(std::int32_t r, std::int32_t t) const { return static_cast<double>(design.WV_SQRT_M(t, r)); }
  present_trait seen(std::int32_t r, std::int32_t t) const { return {t, true, residual(r, t), 0}; }
  present_trait between(std::int32_t r, std::int32_t t, double low, double high) const {
    return {t, false, root(r, t) * (low - fitted(r, t)), root(r, t) * (high - fitted(r, t))};
  }
  present_trait on_side(std::int32_t r, std::int32_t t, bool positive) const {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    return positive ? between(r, t, 0, infinity) : between(r, t, -infinity, 0);
  }
  // Log densities of the units, one sample.
  std::vector<double> scored() {
    scan_records all = records();
    prepare_densities(all, f.asked);
    values_from_entries(work.values);
    const double sum = score_units(all, f.asked);
    std::vector<double> out;
    double total = 0;
    for (std::int64_t u = 1; u <= s.density.mean.extent(1); ++u) {
      out.push_back(s.density.mean(u));
      total += out.back();
    }
    EXPECT_NEAR(sum, -total, 1e-12 * std::fabs(total));
    expect_the_same_from_residuals(all, out);
    return out;
  }
  // From residuals that the scan has kept in place of the records' entries.
  void expect_the_same_from_residuals(scan_records& all, const std::vector<double>& from_entries) {
    mat<double> E;
    allocate(all.report, E, "E", "density_case", design.nobs, m.nt);
    for (std::int32_t irec = 1; irec <= design.nobs; ++irec)
      for (std::int32_t t = 1; t <= m.nt; ++t) E(irec, t) = residual(irec, t) / root(irec, t);
    values_from_residuals(work.values, E);
    s.density.samples = 0;
    score_units(all, f.asked);
    for (std::size_t u = 0; u < from_entries.size(); ++u)
      EXPECT_NEAR(s.density.mean(static_cast<std::int64_t>(u) + 1), from_entries[u],
                  1e-11 * std::fabs(from_entries[u]));
    values_from_entries(work.values);
  }
};

// ---- Gaussian, censored and binary traits with weights, the Gaussian or the censored one missing

TEST(score_units, integrates_censored_and_binary_values_given_gaussian_ones) {
  described_model d = prior_description({1, 2, 4}, 12, 3, {1.2, 0.5, 0.6, 0.5, 1, 0.4, 0.6, 0.4, 1});
  for (described_trait& t : d.traits) t.weight_place = 4;
  d.traits[1].code_place = 3;
  d.traits[1].upper_place = 4;
  density_case c(d);
  for (std::int32_t r = 1; r <= 12; ++r) {
    c.observe(r, r % 4 == 0 ? 3 : (r % 5 == 0 ? 5 : 7));
    for (std::int32_t t = 1; t <= 3; ++t) {
      c.weigh(r, t, 0.75F + 0.125F * static_cast<float>((r + t) % 4));
      if (trait_present(c.design.ISIT_M(r), t, 3)) c.entry(r, t, 1, 1 + r % 3, t, 1.0);
    }
  }
  c.find_meetings();
  c.set_R(dense_matrix(3, {1.2, 0.5, 0.6, 0.5, 1, 0.4, 0.6, 0.4, 1}));
  c.draw_solutions();
  std::vector<double> logs, tolerances;
  for (std::int32_t r = 1; r <= 12; ++r) {
    c.draw_record(r);
    const float y = c.design.Y_M(2, r);
    const std::int32_t code = r % 3; // 0 seen, 1 above, 2 between
    c.design.CENS_M(2, r) = code;
    c.design.Y_MMIN(2, r) = code == 0 ? y : y - 0.4F;
    c.design.Y_MMAX(2, r) = code == 0 ? y : code == 1 ? 999999.0F : y + 0.7F;
    std::vector<present_trait> traits;
    double jacobian = 1;
    if (trait_present(c.design.ISIT_M(r), 1, 3)) {
      traits.push_back(c.seen(r, 1));
      jacobian *= c.root(r, 1);
    }
    if (trait_present(c.design.ISIT_M(r), 2, 3)) {
      traits.push_back(code == 0 ? c.seen(r, 2)
                                 : c.between(r, 2, static_cast<double>(c.design.Y_MMIN(2, r)),
                                             code == 1 ? std::numeric_limits<double>::infinity()
                                                       : static_cast<double>(c.design.Y_MMAX(2, r))));
      if (code == 0) jacobian *= c.root(r, 2);
    }
    traits.push_back(c.on_side(r, 3, c.design.Y_M(3, r) > 0.0F));
    logs.push_back(std::log(jacobian * density_by_rule(c.R_of(), traits)));
    tolerances.push_back(std::ranges::count(traits, false, &present_trait::seen) > 1 ? of_two : closed);
  }
  const std::vector<double> scored = c.scored();
  ASSERT_EQ(scored.size(), logs.size());
  for (std::size_t i = 0; i < logs.size(); ++i)
    EXPECT_NEAR(scored[i], logs[i], tolerances[i]) << "record " << i + 1;
}

// ---- Gaussian traits alone: one by the closed form, three with weights and missing values by the dense
// density

TEST(score_units, are_normal_log_densities_of_one_trait) {
  density_case c(prior_description({1}, 8, 3, {1.7}));
  for (std::int32_t r = 1; r <= 8; ++r) c.entry(r, 1, 1, 1 + r % 3, 1, 1.0);
  c.find_meetings();
  c.set_R(dense_matrix(1, {1.7}));
  c.draw_solutions();
  for (std::int32_t r = 1; r <= 8; ++r) c.draw_record(r);
  const std::vector<double> scored = c.scored();
  for (std::int32_t r = 1; r <= 8; ++r) {
    const double e = c.residual(r, 1);
    EXPECT_NEAR(scored[static_cast<std::size_t>(r - 1)],
                -0.5 * std::log(2.0 * std::acos(-1.0) * 1.7) - 0.5 * e * e / 1.7, 1e-12);
  }
}

TEST(score_units, leave_missing_traits_out) {
  described_model d = prior_description({1, 1, 1}, 12, 3, {1.2, 0.5, 0.6, 0.5, 1, 0.4, 0.6, 0.4, 1});
  for (described_trait& t : d.traits) t.weight_place = 4;
  density_case c(d);
  for (std::int32_t r = 1; r <= 12; ++r) {
    c.observe(r, 1 + r % 7);
    for (std::int32_t t = 1; t <= 3; ++t) {
      c.weigh(r, t, 0.75F + 0.125F * static_cast<float>((r + t) % 4));
      if (trait_present(c.design.ISIT_M(r), t, 3)) c.entry(r, t, 1, 1 + r % 3, t, 1.0);
    }
  }
  c.find_meetings();
  c.set_R(dense_matrix(3, {1.2, 0.5, 0.6, 0.5, 1, 0.4, 0.6, 0.4, 1}));
  c.draw_solutions();
  std::vector<double> logs;
  for (std::int32_t r = 1; r <= 12; ++r) {
    c.draw_record(r);
    std::vector<present_trait> traits;
    double jacobian = 1;
    for (std::int32_t t = 1; t <= 3; ++t) {
      if (!trait_present(c.design.ISIT_M(r), t, 3)) continue;
      traits.push_back(c.seen(r, t));
      jacobian *= c.root(r, t);
    }
    logs.push_back(std::log(jacobian * density_by_rule(c.R_of(), traits)));
  }
  const std::vector<double> scored = c.scored();
  for (std::size_t i = 0; i < logs.size(); ++i) EXPECT_NEAR(scored[i], logs[i], 1e-11);
}

// ---- mixtures: the sum over both components, each with its own residual matrix

TEST(score_units, sums_the_components_of_a_mixture) {
  described_model d = prior_description({1, 5}, 8, 3, {1, 0.5, 0.5, 1});
  d.traits[0].weight_place = 3;
  d.traits[0].mix_eq_type = 2;
  d.factors[0].order = 3;
  d.factors[0].contributions.push_back({1, 1, 3});
  d.group_place = 4;
  d.residual_groups = 2;
  density_case c(d);
  for (std::int32_t r = 1; r <= 8; ++r) {
    c.weigh(r, 1, 0.75F + 0.25F * static_cast<float>(r % 3));
    c.entry(r, 1, 1, 1 + r % 3, 1, 1.0);
    c.entry(r, 2, 1, 1 + r % 3, 2, 1.0);
    c.entry(r, 1, 1, 1 + r % 3, 3, 1.0); // the shift
    c.design.XD6_M(3, r) = 2;
  }
  c.find_meetings();
  c.set_R(dense_matrix(2, {1, 0.5, 0.5, 1}));
  c.set_R(dense_matrix(2, {2.5, -0.6, -0.6, 1}), 2);
  c.draw_solutions();
  std::vector<double> logs;
  for (std::int32_t r = 1; r <= 8; ++r) {
    c.design.Y_M(1, r) = static_cast<float>(0.4 * r - 1.5);
    double sum = 0;
    for (const std::int32_t on : {0, 1}) {
      c.design.ZD_M(3, r) = on;
      sum += c.root(r, 1) * density_by_rule(c.R_of(1 + on), {c.seen(r, 1), c.on_side(r, 2, on == 1)});
    }
    // the state is in either component
    c.design.ZD_M(3, r) = r % 2;
    c.design.IRESG_M(r) = 1 + r % 2;
    c.design.Y_M(2, r) = r % 2 == 1 ? 0.5F : -0.5F;
    logs.push_back(std::log(sum));
  }
  const std::vector<double> scored = c.scored();
  ASSERT_EQ(scored.size(), logs.size());
  for (std::size_t i = 0; i < logs.size(); ++i) EXPECT_NEAR(scored[i], logs[i], closed) << "record " << i + 1;
}

// ---- cure sequences: whether the subject can fail is summed over; of one that cannot, kind 7 says nothing

TEST(score_units, sums_over_whether_the_subject_of_a_sequence_can_fail) {
  constexpr std::int32_t subjects = 3, positions = 3, n = subjects * positions;
  described_model d = prior_description({1, 7, 8}, n, subjects, {1, 0.6, 0.5, 0.6, 1, 0, 0.5, 0, 1});
  d.traits[1].sequence_place = 2;
  density_case c(d);
  for (std::int32_t r = 1; r <= n; ++r) {
    const std::int32_t position = 1 + (r - 1) % positions;
    c.design.SEQ_M(r) = position == positions ? -position : position;
    c.observe(r, position == positions ? 7 : 6);
    for (std::int32_t t = 1; t <= 3; ++t)
      if (trait_present(c.design.ISIT_M(r), t, 3)) c.entry(r, t, 1, 1 + (r - 1) / positions, t, 1.0);
  }
  c.m.MODEL(2).link2 = 3;
  c.m.MODEL(3).link1 = 2;
  c.find_meetings();
  const dense_matrix R(3, {1, 0.6, 0.5, 0.6, 1, 0, 0.5, 0, 1});
  c.set_R(R);
  c.draw_solutions();
  for (std::int32_t r = 1; r <= n; ++r) {
    c.draw_record(r);
    c.design.CURE_Y[1](r) = r == 2; // the first subject fails at its second position
  }
  std::vector<double> logs;
  for (std::int32_t i = 1; i <= subjects; ++i) {
    const std::int32_t last = i * positions;
    double can = 1, cannot = 1;
    for (std::int32_t r = last - positions + 1; r < last; ++r) {
      can *= density_by_rule(R, {c.seen(r, 1), c.on_side(r, 2, c.design.CURE_Y[1](r) != 0)});
      cannot *= density_by_rule(R, {c.seen(r, 1)});
    }
    can *= density_by_rule(R, {c.seen(last, 1), c.on_side(last, 2, false), c.on_side(last, 3, true)});
    cannot *= density_by_rule(R, {c.seen(last, 1), c.on_side(last, 3, false)});
    logs.push_back(std::log(i == 1 ? can : can + cannot));
  }
  const std::vector<double> scored = c.scored();
  ASSERT_EQ(scored.size(), logs.size());
  for (std::size_t i = 0; i < logs.size(); ++i)
    EXPECT_NEAR(scored[i], logs[i], of_two) << "subject " << i + 1;
}

} // namespace
