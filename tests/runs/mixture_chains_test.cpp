// Chains of mixtures and cure sequences against posteriors worked out by
// quadrature over their few parameters, the indicators summed out.
#include "runs/chain_samples.h"
#include "runs/two_bodies.h"
#include "runs/whole_run.h"
#include "support/run_case.h"

#include <cmath>
#include <filesystem>

namespace {

using namespace zeph_test;

double normal_cdf(double x) { return 0.5 * std::erfc(-x / std::sqrt(2.0)); }
double normal_pdf(double x) { return std::exp(-0.5 * x * x) / std::sqrt(2.0 * M_PI); }

const std::vector<double>& mixed_observations() {
  static const std::vector<double> y = {0.9, 1.6,  -0.4, 0.3, 2.1, 1.2, -0.8, 0.6, 1.9, 0.1,
                                        1.1, -1.3, 2.6,  0.7, 1.4, 5.2, 4.1,  6.3, 5.7, 3.2};
  return y;
}

// Trait 1: a mean and a mixture distance switched by trait 2, whose liability
// has a mean of prior N(0,1). Variances 1 are given.
struct mixture_case : run_case {
  explicit mixture_case(std::int32_t groups = 1) {
    d = described_model{};
    d.traits.resize(2);
    d.traits[0].effects = {{1, 1}};
    d.traits[0].regressions = {{2, 0, 0, true}};
    d.traits[0].mix_eq_type = 2;
    d.traits[1].kind = trait_mixture;
    d.factors = {{"I", 1, 1, {{2, 1, 1}}}};
    d.integers = 5, d.reals = 2;
    d.records = static_cast<std::int32_t>(mixed_observations().size());
    d.residual_groups = groups;
    d.group_place = groups > 1 ? 2 : 0;
    d.residual = {1.0, 0.0, 0.0, 1.0};
    integers.clear();
    reals.clear();
    for (const double y : mixed_observations()) {
      const auto place = static_cast<std::int32_t>(integers.size()) + 1;
      integers.push_back({1, y > 3.0 ? 2 : 1, 3, 3, place});
      reals.push_back({static_cast<float>(y), y > 3.0 ? 1.0F : 0.0F});
    }
    make_model();
    m->RMAT(1).GIF(1, 1) = 1.0;
    std::filesystem::remove(directory / "AINV1");
    write_integer_records(directory / "CODE_TABLE", {{0, 1, 20, 1, 0, 0}, {0, 1, 20, 1, 0, 0}});
  }
};

TEST(latent_posterior, of_a_mixture_of_two_components) {
  mixture_case c;
  c.write(run_case::lines(2, 0, 20000, 1));
  body_run run(c.directory.path(), false);
  ASSERT_TRUE(run.started) << run.listing.str();
  EXPECT_EQ(run.r.mixtures.mix_pi(1), 0.25); // by the start values
  series b, distance, a, share, tau;
  constexpr std::size_t between = 19; // the record of 3.2
  for (int round = 0; round < 20000; ++round) {
    ASSERT_TRUE(run.round()) << run.listing.str();
    if (round < 200) continue;
    distance.push_back(run.r.sampler.sol(1));
    b.push_back(run.r.sampler.sol(2));
    a.push_back(run.r.sampler.sol(3));
    share.push_back(run.r.mixtures.mix_pi(1));
    tau.push_back(run.r.mixtures.MIXZ_LAST(1, between + 1));
    ASSERT_GE(distance.back(), 1e-12);
  }
  EXPECT_TRUE(run.r.work.body == zeph::scan_body::fast);
  double mass = 0, mean_b = 0, mean_d = 0, mean_a = 0, mean_share = 0, mean_tau = 0;
  const std::vector<double>& y = mixed_observations();
  for (double x = -1; x <= 3; x += 0.05)
    for (double delta = 0.05; delta <= 8; delta += 0.1)
      for (double l = -4; l <= 3; l += 0.1) {
        const double w = normal_cdf(l);
        double p = normal_pdf(l), members = 0, member = 0;
        for (std::size_t i = 0; i < y.size(); ++i) {
          const double f1 = w * normal_pdf(y[i] - x - delta), f0 = (1 - w) * normal_pdf(y[i] - x);
          p *= 4.0 * (f1 + f0);
          members += f1 / (f1 + f0);
          if (i == between) member = f1 / (f1 + f0);
        }
        mass += p, mean_b += p * x, mean_d += p * delta, mean_a += p * l;
        mean_share += p * members / static_cast<double>(y.size()), mean_tau += p * member;
      }
  expect_mean("mixture, mean", b, mean_b / mass);
  expect_mean("mixture, distance", distance, mean_d / mass);
  expect_mean("mixture, liability", a, mean_a / mass);
  expect_mean("mixture, proportion", share, mean_share / mass);
  expect_mean("mixture, one record", tau, mean_tau / mass);
  const zeph::tau_sums& sums = run.r.mixtures.TAU_STAT[1];
  EXPECT_NEAR(sums.SUM(between + 1) / 20000.0, mean_tau / mass, 0.03);
}

// Trait 1 is the status by record, trait 2 whether the subject can ever have an
// event; a subject without one may be cured. Effects have priors N(0,1).
TEST(latent_posterior, of_a_cure_sequence_of_three_subjects) {
  run_case c;
  c.d = described_model{};
  c.d.traits.resize(2);
  c.d.traits[0].kind = trait_sequence;
  c.d.traits[0].sequence_place = 2;
  c.d.traits[1].kind = trait_cured;
  c.d.traits[1].sequence_place = 2;
  c.d.factors = {{"I", 1, 2, {{1, 1, 1}, {2, 1, 2}}}};
  c.d.integers = 5, c.d.reals = 2, c.d.records = 7;
  c.d.residual = {1.0, 0.0, 0.0, 1.0};
  c.integers.clear();
  c.reals.clear();
  const int places[7] = {1, 2, -3, 1, -2, 1, -2};
  for (int i = 0; i < 7; ++i) {
    const std::int32_t mask = places[i] < 0 ? 3 : 2;
    c.integers.push_back({1, places[i], mask, mask, i + 1});
    c.reals.push_back({i == 4 ? 1.0F : 0.0F, 0.0F});
  }
  c.make_model();
  c.m->n_cure_seq = 3;
  c.m->MODEL(1).link2 = 2;
  c.m->MODEL(2).link1 = 1;
  c.m->RMAT(1).GIF(1, 1) = c.m->RMAT(1).GIF(2, 2) = 1.0;
  write_integer_records(c.directory / "CODE_TABLE", {{0, 1, 7, 1, 0, 0}});
  c.write(run_case::lines(2, 0, 40000, 1));
  body_run run(c.directory.path(), false);
  ASSERT_TRUE(run.started) << run.listing.str();
  series seven, eight, first;
  for (int round = 0; round < 40000; ++round) {
    ASSERT_TRUE(run.round()) << run.listing.str();
    if (round < 200) continue;
    seven.push_back(run.r.sampler.sol(1));
    eight.push_back(run.r.sampler.sol(2));
    first.push_back(run.r.mixtures.MIXZ_LAST(2, 3));
    ASSERT_EQ(run.r.mixtures.MIXZ_LAST(2, 5), 1); // had an event
  }
  double mass = 0, mean_seven = 0, mean_eight = 0, mean_first = 0;
  for (double s = -5; s <= 5; s += 0.01)
    for (double e = -5; e <= 5; e += 0.01) {
      const double event = normal_cdf(s), none = normal_cdf(-s), able = normal_cdf(e), cured = normal_cdf(-e);
      const double one = able * none * none * none, three = able * none * none;
      const double p = normal_pdf(s) * normal_pdf(e) * (one + cured) * able * none * event * (three + cured);
      mass += p, mean_seven += p * s, mean_eight += p * e, mean_first += p * one / (one + cured);
    }
  expect_mean("cure, effect on the status", seven, mean_seven / mass);
  expect_mean("cure, effect on the subject", eight, mean_eight / mass);
  expect_mean("cure, first subject can have events", first, mean_first / mass);
}

// Gaussian, binary and mixture traits side by side, matrices sampled, two
// residual groups by the indicator.
struct three_kinds_case : mixture_case {
  three_kinds_case() : mixture_case(2) {
    d.traits.resize(3);
    d.traits[2].kind = trait_liability;
    d.traits[2].effects = {{1, 1}};
    d.factors = {{"I", 5, 2, {{1, 3, 1}, {2, 3, 2}}}};
    d.integers = 6, d.reals = 3;
    d.residual = {1.0, 0.2, 0.3, 0.2, 1.0, 0.0, 0.3, 0.0, 1.0};
    for (std::size_t i = 0; i < integers.size(); ++i) {
      const auto k = static_cast<std::int32_t>(i);
      integers[i] = {1, integers[i][1], k % 5 + 1, 7, 7, k + 1};
      reals[i].push_back(static_cast<float>(k % 3 == 0));
    }
    make_model();
    std::vector<std::vector<std::int32_t>> codes = {{0, 1, 20, 1, 0, 0}, {0, 1, 20, 1, 0, 0}};
    for (std::int32_t l = 1; l <= 5; ++l) codes.push_back({0, l, 4, l, 0, 0});
    write_integer_records(directory / "CODE_TABLE", codes);
  }
};

std::string rounds(int burn, int sampled, int interval) {
  return "3 0\n12 34\n" + std::to_string(burn) + " " + std::to_string(sampled) + " " +
         std::to_string(interval) + "\n1 8\n2 8\n";
}

std::string bytes(const run_case& c, const std::string& name) { return bytes_of(c.directory / name); }

TEST(a_chain_of_three_kinds_of_traits, continued_equals_the_unbroken_one) {
  three_kinds_case whole, first, second;
  ASSERT_EQ(whole.go(rounds(10, 40, 2)), 0) << whole.text();
  ASSERT_EQ(first.go(rounds(10, 20, 2)), 0) << first.text();
  std::filesystem::copy_file(first.directory / "lastsol", second.directory / "oldsol");
  std::filesystem::copy_file(first.directory / "gparlast", second.directory / "r_parm");
  ASSERT_EQ(second.go(rounds(10, 20, 2)), 0) << second.text();
  for (const char* name : {"gib.samples", "mix_pi", "py"})
    EXPECT_TRUE(bytes(first, name) + bytes(second, name) == bytes(whole, name)) << name;
  EXPECT_TRUE(bytes(second, "lastsol") == bytes(whole, "lastsol"));
  EXPECT_TRUE(bytes(second, "gparlast") == bytes(whole, "gparlast"));
  EXPECT_NE(bytes(whole, "mix_pi"), "");
}

TEST(a_chain_of_three_kinds_of_traits, is_the_same_with_either_body) {
  three_kinds_case c;
  c.write(rounds(0, 40, 1));
  const scratch_directory prepared;
  std::filesystem::copy(c.directory.path(), prepared / "work", std::filesystem::copy_options::recursive);
  const bodies_apart apart = compare_bodies(prepared, "work", 40);
  EXPECT_TRUE(apart.ran && apart.fast);
  EXPECT_LT(apart.rhs, 1e-10);
  EXPECT_LT(std::max({apart.sol, apart.matrices, apart.sums, apart.lik}),
            1e-6); // liabilities are rounded to 32 bits
}

// Rows of numbers of a text file.
std::vector<std::vector<double>> rows_of(const std::string& text) {
  std::vector<std::vector<double>> rows;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream cells(line);
    rows.emplace_back();
    for (double x = 0; cells >> x;) rows.back().push_back(x);
  }
  return rows;
}

TEST(membership_files, hold_shares_of_the_sample_rounds_and_the_last_state) {
  three_kinds_case c;
  for (std::size_t i = 0; i < c.integers.size(); ++i) c.integers[i][0] = 1;
  ASSERT_EQ(c.go(rounds(10, 40, 2)), 0) << c.text();
  const auto shares = rows_of(bytes(c, "mixz_prob")), last = rows_of(bytes(c, "mixz_last"));
  const auto pi = rows_of(bytes(c, "mix_pi")), tau = rows_of(bytes(c, "taupostmean"));
  ASSERT_EQ(shares.size(), 21U);
  ASSERT_EQ(last.size(), 20U);
  ASSERT_EQ(pi.size(), 20U);
  ASSERT_EQ(tau.size(), 20U);
  EXPECT_EQ(shares[0], (std::vector<double>{20, 50, 10, 2}));
  double mean_pi = 0, mean_share = 0, members = 0;
  for (const auto& row : pi) {
    ASSERT_EQ(row.size(), 4U);
    mean_pi += row[1] / 20;
    EXPECT_EQ(row[2], 0.0);
  }
  for (std::size_t i = 0; i < 20; ++i) {
    ASSERT_EQ(shares[i + 1].size(), 4U);
    ASSERT_EQ(last[i].size(), 10U);
    EXPECT_EQ(shares[i + 1][0], 1);
    mean_share += shares[i + 1][1] / 20;
    members += last[i][4] / 20;
    EXPECT_EQ(shares[i + 1][1], last[i][1]);
    EXPECT_EQ(last[i][4] == 1.0, last[i][8] > 0.0) << "the liability's side";
    EXPECT_NEAR(last[i][7], mixed_observations()[i], 1e-6);
    ASSERT_EQ(tau[i].size(), 2U);
    EXPECT_GE(tau[i][0], 0.0);
    EXPECT_LE(tau[i][0], 1.0);
    EXPECT_NEAR(tau[i][0], shares[i + 1][1], 5 * 0.5 / std::sqrt(20.0)); // one is the other's mean
  }
  EXPECT_NEAR(mean_share, mean_pi, 1e-6);
  EXPECT_NEAR(members, pi.back()[1], 1e-12);
  EXPECT_NE(c.text().find("  Posterior mean and standard error of for mixing proportion"), std::string::npos);
}

// They are never written over: one of a former run ends the run before its chain, not after it.
TEST(membership_files, of_a_former_run_are_found_before_the_first_round) {
  for (const char* name : {"mixz_prob", "mixz_last"}) {
    three_kinds_case c;
    c.directory.write(name, "mine");
    EXPECT_EQ(c.go(rounds(0, 4, 1)), 16);
    EXPECT_EQ(bytes(c, name), "mine");
    EXPECT_TRUE(
        c.ends_with(illegal_input_text(name, "write", "a file of a former run", "no file of this name")))
        << c.text();
    EXPECT_EQ(bytes(c, "py"), "");
    // too few samples for memberships: the file is in nobody's way
    EXPECT_EQ(c.go(rounds(0, 1, 1)), 0) << c.text();
    EXPECT_EQ(bytes(c, name), "mine");
  }
}

// The number after a label of the listing; -1 without it.
int number_behind(const std::string& listing, const std::string& label) {
  const std::size_t at = listing.find(label);
  return at == std::string::npos ? -1 : std::atoi(listing.c_str() + at + label.size());
}

// Components that lie one upon the other: now and then the distance is drawn again. (Such a chain ends
// when one of them is left empty; this one lives for 200 rounds.)
TEST(a_chain_with_a_mixture, reports_how_often_distances_were_drawn_again_in_either_loop) {
  mixture_case c;
  for (std::size_t i = 0; i < c.reals.size(); ++i)
    c.reals[i] = {0.25F * static_cast<float>(i % 5), static_cast<float>(i % 2)};
  ASSERT_EQ(c.go("2 0\n12 34\n60 60 1\n1 0\n2 0\n"), 0) << c.text();
  const int burnin = number_behind(c.text(), "No of times that label switchning ocure (burnin)...");
  const int sampling = number_behind(c.text(), "No of times that label switching occure (sampling).");
  EXPECT_GE(burnin, 1);
  EXPECT_LE(burnin, 60); // at most once a round
  EXPECT_GE(sampling, 1);
  EXPECT_LE(sampling, 60);
  mixture_case apart; // these components need none
  ASSERT_EQ(apart.go("2 0\n12 34\n20 20 1\n1 0\n2 0\n"), 0);
  EXPECT_EQ(number_behind(apart.text(), "label switch"), -1);
}

// The enumeration: each model counts its own rounds.
TEST(membership_files, of_the_last_model_hold_the_shares_of_its_own_rounds) {
  three_kinds_case c;
  std::string lines = rounds(10, 40, 2);
  lines[0] = '5';
  ASSERT_EQ(c.go(lines), 0) << c.text();
  const auto shares = rows_of(bytes(c, "mixz_prob")), pi = rows_of(bytes(c, "mix_pi"));
  ASSERT_EQ(shares.size(), 21U);
  EXPECT_EQ(shares[0], (std::vector<double>{20, 50, 10, 2}));
  ASSERT_EQ(pi.size(), 40U); // two models
  double mean_pi = 0, mean_share = 0;
  for (std::size_t i = 0; i < 20; ++i) {
    mean_pi += pi[20 + i][1] / 20;
    mean_share += shares[i + 1][1] / 20;
  }
  EXPECT_NEAR(mean_share, mean_pi, 1e-6);
}

// Moves between models of a mixture, its indicator and a binary trait: a blank line and five rows of zeinfo a
// round.
TEST(a_jump_chain_of_three_kinds_of_traits, takes_the_ratio_that_its_rows_tell_and_keeps_its_shares) {
  three_kinds_case c;
  std::string lines = rounds(10, 200, 2);
  lines[0] = '6';
  ASSERT_EQ(c.go(lines), 0) << c.text();
  const auto told = rows_of(bytes(c, "zeinfo"));
  ASSERT_EQ(told.size(), 6U * 200U);
  int up = 0, taken = 0;
  for (std::size_t i = 0; i < told.size(); i += 6) {
    const auto &data = told[i + 1], &sides = told[i + 2], &matrix = told[i + 3], &ratio = told[i + 4];
    ASSERT_EQ(data.size(), 6U);
    const double found =
        ratio[1] - ratio[2] + sides[4] + (sides[1] - sides[2]) + matrix[4] - sides[3] + data[5];
    EXPECT_NEAR(found, ratio[3], 1e-9 * (1 + std::fabs(found)));
    EXPECT_NEAR(data[5], 0.5 * (data[2] + data[4] - data[1] - data[3]), 1e-9 * (1 + std::fabs(data[1])));
    const auto& before = told[i + 5];
    up += before[1] < before[3];
    if (i + 6 < told.size()) taken += told[i + 11][1] != before[1];
  }
  EXPECT_GT(up, 0);
  EXPECT_GT(taken, 0);
  const auto shares = rows_of(bytes(c, "mixz_prob")), pi = rows_of(bytes(c, "mix_pi"));
  EXPECT_EQ(shares[0], (std::vector<double>{20, 210, 10, 2}));
  double mean_pi = 0, mean_share = 0;
  for (const auto& row : pi) mean_pi += row[1] / static_cast<double>(pi.size());
  for (std::size_t i = 1; i < shares.size(); ++i) mean_share += shares[i][1] / 20;
  EXPECT_NEAR(mean_share, mean_pi, 1e-6);
}

TEST(a_jump_chain_of_three_kinds_of_traits, is_the_same_with_either_body) {
  std::string gib[2], moves[2];
  for (int plain = 0; plain < 2; ++plain) {
    three_kinds_case c;
    std::string lines = rounds(5, 40, 1);
    lines[0] = '6';
    if (plain == 1) lines[2] = '2'; // the plain body prints
    ASSERT_EQ(c.go(lines), 0) << c.text();
    gib[plain] = bytes(c, "gib.samples");
    moves[plain] = bytes(c, "zeinfo");
  }
  EXPECT_EQ(gib[0], gib[1]); // six digits
  const auto a = rows_of(moves[0]), b = rows_of(moves[1]);
  ASSERT_EQ(a.size(), b.size());
  for (std::size_t i = 0; i < a.size(); ++i) {
    ASSERT_EQ(a[i].size(), b[i].size());
    for (std::size_t k = 0; k < a[i].size(); ++k)
      EXPECT_NEAR(a[i][k], b[i][k], 1e-5 * (1 + std::fabs(a[i][k])));
  }
}

} // namespace
