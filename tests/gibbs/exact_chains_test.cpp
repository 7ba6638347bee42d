// Chains of the exact sampler leave the prior of state and data as it is; those of the plain sampler do
// not, in the models that they are not exact for. Limit of |z|: 4.5 (error probability 7e-6 a function).
#include "gibbs/prior_case.h"
#include "listing/stops.h"

namespace zeph_test {
namespace {

constexpr double limit = 4.5;

// ---- missing traits: 12 records, correlation 0.8, R drawn ----

struct missing_case : prior_case {
  explicit missing_case(bool exact)
      : prior_case(prior_description({1, 1}, 12, 3, {1, 0.8, 0.8, 1}), 4, exact) {
    for (std::int32_t r = 1; r <= 12; ++r) {
      if (r % 3 == 0) observe(r, 2); // trait 2 is missing
      if (r % 3 == 1) observe(r, 1);
      for (std::int32_t t = 1; t <= 2; ++t)
        if (trait_present(design.ISIT_M(r), t, 2)) entry(r, t, 1, 1 + r % 3, t, 1.0);
    }
    find_meetings();
  }
  double z(int replicates, int rounds) {
    const dense_matrix R0(2, {1, 0.8, 0.8, 1});
    return largest_z(
        replicates, rounds,
        [&] {
          set_R(inverse_wishart(R0, 2, v_residual));
          draw_solutions();
          for (std::int32_t r = 1; r <= 12; ++r) draw_record(r);
        },
        [&] {
          // the imputed residuals too, standardised by their distribution given the others
          double imputed = 0;
          for (std::int32_t r = 1; r <= 12; ++r) {
            if (design.ISIT_M(r) == 3) continue;
            const std::int32_t t = design.ISIT_M(r) == 2 ? 2 : 1, u = 3 - t;
            const double b = s.RCOV(2, 1, 1) / s.RCOV(u, u, 1), v = s.RCOV(t, t, 1) - b * s.RCOV(2, 1, 1);
            const double d = residual(r, t) - b * residual(r, u);
            imputed += d * d / v;
          }
          return std::vector<double>{s.RCOV(1, 1, 1), s.RCOV(2, 1, 1), s.RCOV(2, 2, 1), imputed};
        });
  }
};

TEST(exact_chains, keep_the_prior_with_missing_traits) { EXPECT_LT(missing_case(true).z(20000, 10), limit); }
TEST(plain_chains, are_off_with_missing_traits) { EXPECT_GT(missing_case(false).z(20000, 10), limit); }

// ---- levels that meet: 8 levels, 10 records, R fixed ----

struct meeting_case : prior_case {
  explicit meeting_case(bool exact) : prior_case(description(), 2, exact) {
    for (std::int32_t r = 1; r <= 10; ++r) {
      entry(r, 1, 1, 1 + r % 8, 1, 1.0);
      entry(r, 1, 1, 1 + (3 * r + 2) % 8, 2, 1.0); // another level's second row
    }
    find_meetings();
  }
  static described_model description() {
    described_model d = prior_description({1}, 10, 8, {0.1});
    d.factors[0].order = 2;
    d.factors[0].contributions.push_back({1, 2, 2});
    return d;
  }
  double z(int replicates, int rounds) {
    return largest_z(
        replicates, rounds,
        [&] {
          draw_solutions();
          for (std::int32_t r = 1; r <= 10; ++r) draw_record(r);
        },
        [&] {
          double one = 0, two = 0, cross = 0, squares = 0;
          for (std::int32_t r = 1; r <= 10; ++r) squares += residual(r, 1) * residual(r, 1);
          for (std::int32_t l = 1; l <= 8; ++l) {
            const double a = s.sol(2 * l - 1), b = s.sol(2 * l);
            one += a * a, two += b * b, cross += a * b;
          }
          return std::vector<double>{one, two, cross, squares};
        });
  }
};

TEST(exact_chains, keep_the_prior_where_levels_meet) { EXPECT_LT(meeting_case(true).z(20000, 6), limit); }
TEST(plain_chains, are_off_where_levels_meet) { EXPECT_GT(meeting_case(false).z(20000, 6), limit); }

// ---- latent values: censored beside ordered beside binary, R fixed, weights ----

struct bounded_case : prior_case {
  explicit bounded_case(bool exact, bool weights) : prior_case(description(weights), 2, exact) {
    for (std::int32_t r = 1; r <= 6; ++r)
      for (std::int32_t t = 1; t <= 3; ++t) {
        if (weights) weigh(r, t, 0.5F + 0.25F * static_cast<float>((r + t) % 4));
        entry(r, t, 1, 1 + r % 3, t, 1.0);
      }
    categories.catstr.resize(1);
    category_record& c = categories.catstr[0];
    c.ncat_t = 3;
    c.trait = 2;
    for (vec<double>* x : {&c.thr, &c.thrpostm, &c.thrpostsd}) x->take(range(0, 3));
    for (vec<double>* x : {&c.minu, &c.maxu}) x->take(3);
    c.thr(0) = -outer_limit, c.thr(1) = 0, c.thr(2) = 1, c.thr(3) = outer_limit;
    categories.catobs.take(1, 6);
    find_meetings();
  }
  static described_model description(bool weights) {
    described_model d = prior_description({2, 3, 4}, 6, 3, {1, 0.7, 0.8, 0.7, 1, 0.6, 0.8, 0.6, 1});
    if (weights)
      for (described_trait& t : d.traits) t.weight_place = 4;
    d.traits[0].code_place = 3;
    d.traits[0].upper_place = 4;
    return d;
  }
  // Trait 1 is seen below -1.5, else it lies above -1.5, in odd records in an interval: values of either
  // sign.
  void observe_record(std::int32_t r) {
    const float y = design.Y_M(1, r);
    const bool seen = y < -1.5F || (r % 2 == 1 && y > 2.0F);
    design.CENS_M(1, r) = seen ? 0 : (r % 2 == 1 ? 2 : 1);
    design.Y_MMIN(1, r) = seen ? y : -1.5F;
    design.Y_MMAX(1, r) = seen ? y : (r % 2 == 1 ? 2.0F : 999999.0F);
    const float c = design.Y_M(2, r);
    categories.catobs(1, r) = c <= 0.0F ? 1 : (c <= 1.0F ? 2 : 3);
  }
  double z(int replicates, int rounds) {
    return largest_z(
        replicates, rounds,
        [&] {
          draw_solutions();
          for (std::int32_t r = 1; r <= 6; ++r) {
            draw_record(r);
            observe_record(r);
          }
        },
        [&] {
          std::vector<double> out(9);
          for (std::int32_t r = 1; r <= 6; ++r)
            for (std::int32_t i = 1, k = 0; i <= 3; ++i)
              for (std::int32_t j = 1; j <= i; ++j, ++k)
                out[static_cast<std::size_t>(k)] += residual(r, i) * residual(r, j);
          for (std::int32_t t = 1; t <= 3; ++t) out[static_cast<std::size_t>(5 + t)] = s.sol(t) * s.sol(t);
          return out;
        });
  }
};

TEST(exact_chains, keep_the_prior_of_censored_ordered_and_binary_traits) {
  EXPECT_LT(bounded_case(true, false).z(20000, 10), limit);
}
TEST(exact_chains, keep_the_prior_of_weighted_latent_values) {
  EXPECT_LT(bounded_case(true, true).z(20000, 10), limit);
}

// A censored value of either sign beside a binary one, correlation 0.8.
struct astride_case : prior_case {
  explicit astride_case(bool exact) : prior_case(description(), 2, exact) {
    for (std::int32_t r = 1; r <= 6; ++r)
      for (std::int32_t t = 1; t <= 2; ++t) entry(r, t, 1, 1 + r % 3, t, 1.0);
    design.CENS_M.fill(1);
    design.Y_MMAX.fill(999999.0F);
    find_meetings();
  }
  static described_model description() {
    described_model d = prior_description({2, 4}, 6, 3, {1, 0.8, 0.8, 1});
    d.traits[0].code_place = 3;
    d.traits[0].upper_place = 3;
    return d;
  }
  double z(int replicates, int rounds) {
    return largest_z(
        replicates, rounds,
        [&] {
          draw_solutions();
          for (std::int32_t r = 1; r <= 6; ++r) {
            draw_record(r);
            const float y = design.Y_M(1, r); // above -1 it is known to be above -1
            design.CENS_M(1, r) = y > -1.0F ? 1 : 0;
            design.Y_MMIN(1, r) = y > -1.0F ? -1.0F : y;
          }
        },
        [&] {
          double square = 0, cross = 0;
          for (std::int32_t r = 1; r <= 6; ++r) {
            square += residual(r, 1) * residual(r, 1);
            cross += residual(r, 1) * residual(r, 2);
          }
          return std::vector<double>{square, cross};
        });
  }
};

TEST(exact_chains, keep_the_prior_of_censored_values_astride_0) {
  EXPECT_LT(astride_case(true).z(20000, 10), limit);
}
TEST(plain_chains, are_off_with_censored_values_astride_0) {
  EXPECT_GT(astride_case(false).z(100000, 2), limit);
}

// ---- mixture: Gaussian trait with a shift, its indicator correlated with it, weights; prior of
// allocations with both components ----

struct mixture_case : prior_case {
  bool two_groups;
  mixture_case(bool exact, bool groups) : prior_case(description(groups), 2, exact), two_groups(groups) {
    for (std::int32_t r = 1; r <= 8; ++r) {
      weigh(r, 1, 0.75F + 0.25F * static_cast<float>(r % 3));
      entry(r, 1, 1, 1 + r % 3, 1, 1.0);
      entry(r, 2, 1, 1 + r % 3, 2, 1.0);
      entry(r, 1, 1, 1 + r % 3, 3, 1.0); // the shift
      design.XD6_M(3, r) = 2;
    }
    find_meetings();
  }
  static described_model description(bool groups) {
    described_model d = prior_description({1, 5}, 8, 3, {1, 0.5, 0.5, 1});
    d.traits[0].weight_place = 3;
    d.traits[0].mix_eq_type = 2;
    d.factors[0].order = 3;
    d.factors[0].contributions.push_back({1, 1, 3});
    if (groups) {
      d.group_place = 4;
      d.residual_groups = 2;
    }
    return d;
  }
  // The sign of the liability decides; the component gives coefficients and group.
  void draw_component(std::int32_t r) {
    const double liability = fitted(r, 2) + normal();
    const std::int32_t on = liability > 0 ? 1 : 0, h = two_groups ? 1 + on : 1;
    design.ZD_M(3, r) = on;
    design.IRESG_M(r) = h;
    // e_1 given e_2 of variance 1
    const double e2 = liability - fitted(r, 2), c = s.RCOV(2, 1, h);
    const double e1 = c * e2 + std::sqrt(s.RCOV(1, 1, h) - c * c) * normal();
    design.Y_M(2, r) = static_cast<float>(liability);
    design.Y_M(1, r) = static_cast<float>(fitted(r, 1) + e1 / static_cast<double>(design.WV_SQRT_M(1, r)));
  }
  double z(int replicates, int rounds) {
    set_R(dense_matrix(2, {1, 0.5, 0.5, 1}));
    if (two_groups) set_R(dense_matrix(2, {2.5, -0.6, -0.6, 1}), 2);
    return largest_z(
        replicates, rounds,
        [&] {
          std::int32_t on = 0;
          do {
            draw_solutions();
            on = 0;
            for (std::int32_t r = 1; r <= 8; ++r) {
              draw_component(r);
              on += design.ZD_M(3, r) > 0.5;
            }
          } while (on == 0 || on == 8);
        },
        [&] {
          std::vector<double> out(6);
          for (std::int32_t r = 1; r <= 8; ++r) {
            const double e1 = residual(r, 1), e2 = residual(r, 2);
            out[0] += e1 * e1, out[1] += e1 * e2, out[2] += e2 * e2, out[3] += design.ZD_M(3, r);
          }
          for (std::int32_t l = 1; l <= 3; ++l)
            out[4] += s.sol(3 * l) * s.sol(3 * l), out[5] += s.sol(3 * l - 1) * s.sol(3 * l - 1);
          return out;
        });
  }
};

TEST(exact_chains, keep_the_prior_of_mixtures) { EXPECT_LT(mixture_case(true, false).z(20000, 10), limit); }
TEST(exact_chains, keep_the_prior_of_mixtures_with_two_residual_groups) {
  EXPECT_LT(mixture_case(true, true).z(20000, 10), limit);
}
TEST(plain_chains, are_off_with_weights_and_covariances_of_mixtures) {
  EXPECT_GT(mixture_case(false, false).z(20000, 10), limit);
}

// ---- cure sequences: 4 subjects of 3 positions; a binary trait, correlated with kind 7, before it ----

struct cure_case : prior_case {
  static constexpr std::int32_t subjects = 4, positions = 3, n = subjects * positions;
  explicit cure_case(bool exact) : prior_case(description(), 2, exact) {
    for (std::int32_t r = 1; r <= n; ++r) {
      const std::int32_t position = 1 + (r - 1) % positions;
      design.SEQ_M(r) = position == positions ? -position : position;
      observe(r, position == positions ? 7 : 6); // kind 8 on the last record only
      for (std::int32_t t = 1; t <= 3; ++t)
        if (trait_present(design.ISIT_M(r), t, 3)) entry(r, t, 1, 1 + (r - 1) / positions, t, 1.0);
    }
    m.MODEL(2).link2 = 3;
    m.MODEL(3).link1 = 2;
    find_meetings();
  }
  static described_model description() {
    described_model d = prior_description({4, 7, 8}, n, subjects, {1, 0.6, 0.5, 0.6, 1, 0, 0.5, 0, 1});
    d.traits[1].sequence_place = 2;
    return d;
  }
  // An event at a position where the subject can fail and the liability of 7 is above 0; it ends nothing
  // here: later positions are observed too.
  bool draw_subjects() {
    std::int32_t can = 0;
    for (std::int32_t r = 1; r <= n; ++r) draw_record(r);
    for (std::int32_t i = 1; i <= subjects; ++i) {
      const std::int32_t last = i * positions;
      const bool fails = design.Y_M(3, last) > 0.0F;
      can += fails;
      for (std::int32_t r = last - positions + 1; r <= last; ++r)
        design.CURE_Y[1](r) = fails && design.Y_M(2, r) > 0.0F;
    }
    return can > 0 && can < subjects;
  }
  double z(int replicates, int rounds) {
    set_R(dense_matrix(3, {1, 0.6, 0.5, 0.6, 1, 0, 0.5, 0, 1}));
    return largest_z(
        replicates, rounds,
        [&] {
          do draw_solutions();
          while (!draw_subjects());
        },
        [&] {
          std::vector<double> out(8);
          for (std::int32_t r = 1; r <= n; ++r) {
            const double e1 = residual(r, 1), e2 = residual(r, 2);
            out[0] += e1 * e1, out[1] += e1 * e2, out[2] += e2 * e2;
            if (design.SEQ_M(r) > 0) continue;
            const double e3 = residual(r, 3);
            out[3] += e1 * e3, out[4] += e2 * e3, out[5] += e3 * e3, out[6] += design.Y_M(3, r) > 0.0F;
          }
          for (std::int32_t l = 1; l <= subjects; ++l) out[7] += s.sol(3 * l - 1) * s.sol(3 * l - 1);
          return out;
        });
  }
};

TEST(exact_chains, keep_the_prior_of_cure_sequences) { EXPECT_LT(cure_case(true).z(20000, 8), limit); }
TEST(plain_chains, are_off_with_covariances_of_cure_sequences) {
  EXPECT_GT(cure_case(false).z(20000, 8), limit);
}

// ---- a covariance held at zero: three traits, pair (1,3), R drawn ----

// With v degrees of freedom and scale S the restricted inverse Wishart of three traits, covariance (1,3)
// zero, has closed forms: R_11 = S_11/chi2(v), R_33 = S_33/chi2(v), then row 2 given them.
struct zero_case : prior_case {
  static constexpr std::int32_t n = 8;
  explicit zero_case(bool exact) : prior_case(description(), 4, exact) {
    m.n_norcov = 1;
    m.NORCOV.take(6, 2);
    m.NORCOV(1, 1) = 3;
    m.NORCOV(1, 2) = 1;
    mark_zero_covariances(m, s, run.report);
    if (exact) {
      work.matrices.parts = {};
      find_residual_parts(m, f.asked, work.matrices.parts, work.matrices.draw, run.report);
    }
    for (std::int32_t r = 1; r <= n; ++r)
      for (std::int32_t t = 1; t <= 3; ++t) entry(r, t, 1, 1 + r % 3, t, 1.0);
    find_meetings();
  }
  static described_model description() {
    return prior_description({1, 1, 1}, n, 3, {1, 0.5, 0, 0.5, 1, 0.4, 0, 0.4, 1});
  }
  double chi_square(double df) {
    std::gamma_distribution<double> gamma(df / 2.0, 2.0);
    return gamma(engine);
  }
  dense_matrix draw_R() {
    const double scale = v_residual - 4, S11 = scale, S22 = scale, S33 = scale, S12 = 0.5 * scale,
                 S23 = 0.4 * scale;
    dense_matrix R(3);
    R(1, 1) = S11 / chi_square(v_residual);
    R(3, 3) = S33 / chi_square(v_residual);
    // o = (1,3), S_oo diagonal: m = V S_oo^-1 S_o2, g = q/chi2(v), s ~ N(m, g V S_oo^-1 V)
    const double g = (S22 - S12 * S12 / S11 - S23 * S23 / S33) / chi_square(v_residual);
    R(1, 2) = R(2, 1) = R(1, 1) * S12 / S11 + std::sqrt(g / S11) * R(1, 1) * normal();
    R(2, 3) = R(3, 2) = R(3, 3) * S23 / S33 + std::sqrt(g / S33) * R(3, 3) * normal();
    R(2, 2) = g + R(1, 2) * R(1, 2) / R(1, 1) + R(2, 3) * R(2, 3) / R(3, 3);
    return R;
  }
  double z(int replicates, int rounds) {
    return largest_z(
        replicates, rounds,
        [&] {
          set_R(draw_R());
          draw_solutions();
          for (std::int32_t r = 1; r <= n; ++r) draw_record(r);
        },
        [&] {
          const dense_matrix inverse = dense_inverse(R_of()).inverse;
          std::vector<double> out;
          for (std::int32_t i = 1; i <= 3; ++i)
            for (std::int32_t j = 1; j <= i; ++j) {
              out.push_back(inverse(i, j));
              if (i != 3 || j != 1) out.push_back(s.RCOV(i, j, 1));
            }
          return out;
        });
  }
};

TEST(exact_chains, keep_the_prior_with_a_covariance_held_at_zero) {
  EXPECT_LT(zero_case(true).z(20000, 5), limit);
}
// Its matrices come from sums without the pair, which need not be positive definite: it then has no draw.
TEST(plain_chains, may_have_no_draw_with_a_covariance_held_at_zero) {
  EXPECT_THROW(zero_case(false).z(20000, 5), run_stop);
}

} // namespace
} // namespace zeph_test
