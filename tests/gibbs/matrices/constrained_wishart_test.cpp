// The constrained draw of a residual matrix against its restrictions, closed
// forms, quadrature and weighted draws of another kind. Bounds: five standard
// errors, error probability below 1e-6 each, for the seeds given.
#include "gibbs/matrices/constrained_wishart.h"

#include "numerics/cholesky_family.h"
#include "numerics/packed_matrix.h"
#include "support/chain_frame.h"
#include "support/check.h"
#include "support/dense_matrix.h"

#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace {

using namespace zeph;
using namespace zeph_test;

struct draw_case {
  draw_case(residual_lists given, const std::vector<double>& sums, std::int32_t order) : nt(order) {
    m.nt = nt;
    m.MODEL_rows.resize(static_cast<std::size_t>(nt));
    m.RMAT_rows.resize(1);
    for (const std::int32_t t : given.lc) m.MODEL(t).TRAIT_TYPE = trait_gaussian;
    for (const std::int32_t t : given.cc) m.MODEL(t).TRAIT_TYPE = trait_liability;
    for (const std::int32_t t : given.ccu) m.MODEL(t).TRAIT_TYPE = trait_mixture;
    f.asked.analysis_type = analysis::gibbs;
    prepare_residual_draw(m, f.asked, work, matrix_work, run.report);
    W.take(nt, nt);
    R.take(nt, nt);
    SCALE.take(nt);
    SCALE.fill(1.0);
    for (std::int32_t i = 1; i <= nt; ++i) R(i, i) = 1.0;
    if (!work.S.allocated()) { // nothing is constrained
      work.S.take(nt, nt);
      work.A.take(nt, nt);
    }
    std::copy(sums.begin(), sums.end(), work.S.begin());
    double logdet = 0;
    int info = 0;
    inverse_logdet(work.S, work.A, nt, logdet, info);
    EXPECT_EQ(info, 0);
    SETALL(sources.combined, 4711, 1234567);
  }
  // The next matrix of the chain, which is in R.
  const mat<double>& next(std::int32_t df) {
    rinvwish_con(run.report, sources, work, R.data(), df, W, SCALE, matrix_work);
    std::copy(W.begin(), W.end(), R.begin());
    return W;
  }
  heard_run run;
  model_records m;
  zeph_test::chain_frame f;
  std::int32_t nt;
  constrained_work work;
  matrix_draw_work matrix_work;
  random_sources sources{run.report};
  mat<double> W, R;
  vec<double> SCALE;
};

struct running {
  double n = 0, sum = 0, squares = 0;
  void add(double x) { n += 1, sum += x, squares += x * x; }
  double mean() const { return sum / n; }
  double variance() const { return squares / n - mean() * mean(); }
};

// Standard error of the mean of a chain by batches of 100.
struct chain_mean {
  running all, batches, now;
  void add(double x) {
    all.add(x);
    now.add(x);
    if (now.n < 100) return;
    batches.add(now.mean());
    now = {};
  }
  double error() const { return std::sqrt(batches.variance() / batches.n); }
};

bool positive_definite(const mat<double>& W) {
  mat<double> copy;
  copy.take(W.extent(1), W.extent(1));
  std::copy(W.begin(), W.end(), copy.begin());
  int info = 0;
  spofa(copy.data(), copy.extent(1), static_cast<int>(copy.extent(1)), info);
  return info == 0;
}

const std::vector<double> four = {40, 8,  -5, 3,  //
                                  8,  30, 6,  -4, //
                                  -5, 6,  25, 5,  //
                                  3,  -4, 5,  35};

TEST(rinvwish_con, holds_variances_at_one_covariances_at_zero_and_stays_positive_definite) {
  const residual_lists kinds[] = {{{1}, {2, 3}, {4}, {}},   {{}, {1, 2, 3, 4}, {}, {}},
                                  {{2, 4}, {}, {1, 3}, {}}, {{1, 2, 3}, {4}, {}, {}},
                                  {{}, {1}, {2, 3, 4}, {}}, {{3}, {4, 1}, {2}, {}}};
  for (const residual_lists& lists : kinds) {
    draw_case c(lists, four, 4);
    for (int draw = 0; draw < 500; ++draw) {
      const mat<double>& W = c.next(30);
      ASSERT_TRUE(positive_definite(W));
      for (const std::int32_t t : c.work.lists.C) ASSERT_EQ(W(t, t), 1.0);
      for (const std::int32_t t : c.work.lists.ccu)
        for (const std::int32_t other : c.work.lists.C) ASSERT_EQ(W(t, other), other == t ? 1.0 : 0.0);
      for (std::int32_t i = 1; i <= 4; ++i)
        for (std::int32_t j = 1; j <= 4; ++j) ASSERT_EQ(W(i, j), W(j, i));
    }
  }
}

TEST(rinvwish_con, draws_nothing_for_one_constrained_trait_alone_and_for_uncorrelated_ones) {
  for (const residual_lists& lists :
       {residual_lists{{}, {1}, {2, 3, 4}, {}}, residual_lists{{}, {}, {1, 2, 3, 4}, {}}}) {
    draw_case c(lists, four, 4);
    std::int32_t a1 = 0, a2 = 0, b1 = 0, b2 = 0;
    GETSD(c.sources.combined, a1, a2);
    c.next(30);
    GETSD(c.sources.combined, b1, b2);
    EXPECT_EQ(a1, b1);
    EXPECT_EQ(a2, b2);
    for (std::int32_t i = 1; i <= 4; ++i)
      for (std::int32_t j = 1; j <= 4; ++j) EXPECT_EQ(c.W(i, j), i == j ? 1.0 : 0.0);
    for (const double s : c.SCALE) EXPECT_EQ(s, 1.0);
  }
}

TEST(rinvwish_con, is_the_plain_draw_without_constrained_traits) {
  draw_case c({{1, 2, 3, 4}, {}, {}, {}}, four, 4);
  c.work.A.fill(0.0);
  for (std::int32_t i = 1; i <= 4; ++i) c.work.A(i, i) = 0.1 * i;
  rinvwish_con(c.run.report, c.sources, c.work, c.R.data(), 20, c.W, c.SCALE, c.matrix_work);
  heard_run quiet;
  random_sources again{quiet.report};
  SETALL(again.combined, 4711, 1234567);
  mat<double> plain;
  plain.take(4, 4);
  rinvwish(quiet.report, again, plain.data(), 4, c.work.A.data(), 4, 4, 20, c.matrix_work);
  for (std::int64_t i = 0; i < 16; ++i) EXPECT_EQ(plain.data()[i], c.W.data()[i]);
}

// One free and one binary trait: (S_11 - S_12^2/S_22) / T1 is chi-square on df,
// R_12 given T1 normal with mean S_12/S_22 and variance T1/S_22.
TEST(rinvwish_con, follows_the_closed_form_for_a_free_and_a_binary_trait) {
  const std::int32_t df = 15;
  draw_case c({{1}, {2}, {}, {}}, {50, 12, 12, 30}, 2);
  const double rest = 50.0 - 12.0 * 12.0 / 30.0;
  running chi, covariance, standard;
  for (int draw = 0; draw < 40000; ++draw) {
    const mat<double>& W = c.next(df);
    const double T1 = W(1, 1) - W(1, 2) * W(1, 2);
    chi.add(rest / T1);
    covariance.add(W(1, 2));
    const double z = (W(1, 2) - 12.0 / 30.0) / std::sqrt(T1 / 30.0);
    standard.add(z * z);
  }
  const double n = 40000;
  EXPECT_NEAR(chi.mean(), df, 5 * std::sqrt(2.0 * df / n));
  // variance of the squared deviation of a chi-square: (12 df (df + 4) - 4 df^2)
  EXPECT_NEAR(chi.variance(), 2.0 * df, 5 * std::sqrt((12.0 * df * (df + 4) - 4.0 * df * df) / n));
  EXPECT_NEAR(covariance.mean(), 0.4, 5 * std::sqrt(rest / 13.0 / 30.0 / n));
  EXPECT_NEAR(standard.mean(), 1.0, 5 * std::sqrt(2.0 / n));
}

// Two binary traits: density of the correlation r proportional to
// (1-r^2)^-(nu+3)/2 exp(-(S11 - 2 r S12 + S22)/(2 (1-r^2))).
TEST(rinvwish_con, gives_the_correlation_of_two_binary_traits_its_density) {
  const double S11 = 14, S12 = 6, S22 = 9;
  for (const std::int32_t extra : {0, 1}) { // with an uncorrelated trait nu grows by one
    const std::int32_t df = 12, nu = df + extra;
    std::vector<double> sums = {S11, S12, S12, S22};
    residual_lists lists{{}, {1, 2}, {}, {}};
    if (extra == 1) {
      sums = {S11, S12, 1, S12, S22, 2, 1, 2, 10};
      lists.ccu = {3};
    }
    draw_case c(lists, sums, 2 + extra);
    const auto log_density = [&](double r) {
      const double v = 1 - r * r;
      return -0.5 * (nu + 3) * std::log(v) - (S11 - 2 * r * S12 + S22) / (2 * v);
    };
    double mass = 0, first = 0, second = 0;
    for (int i = 1; i < 20000; ++i) {
      const double r = -1.0 + i * 1e-4, p = std::exp(log_density(r) - log_density(0.4));
      mass += p, first += p * r, second += p * r * r;
    }
    chain_mean r, squares;
    for (int draw = 0; draw < 30000; ++draw) {
      const double x = c.next(df)(1, 2);
      r.add(x);
      squares.add(x * x);
    }
    EXPECT_NEAR(r.all.mean(), first / mass, 5 * r.error());
    EXPECT_NEAR(squares.all.mean(), second / mass, 5 * squares.error());
  }
}

double log_kernel(const mat<double>& R, const mat<double>& S, std::int32_t df) {
  mat<double> inverse;
  const std::int32_t p = static_cast<std::int32_t>(R.extent(1));
  inverse.take(p, p);
  double logdet = 0, trace = 0;
  int info = 0;
  inverse_logdet(R, inverse, p, logdet, info);
  for (std::int32_t i = 1; i <= p; ++i)
    for (std::int32_t j = 1; j <= p; ++j) trace += S(i, j) * inverse(i, j);
  return -0.5 * (df + p + 1) * logdet - 0.5 * trace;
}

// A random walk over the free elements of R that reads the kernel alone.
struct walker {
  mat<double> R, candidate;
  std::vector<std::pair<std::int32_t, std::int32_t>> free;
  std::mt19937_64 engine{99};
  double now = 0;
  walker(const residual_lists& lists, std::int32_t nt, const mat<double>& S, std::int32_t df) {
    R.take(nt, nt);
    candidate.take(nt, nt);
    for (std::int32_t i = 1; i <= nt; ++i) R(i, i) = 1.0;
    const auto in = [](const std::vector<std::int32_t>& list, std::int32_t t) {
      return std::find(list.begin(), list.end(), t) != list.end();
    };
    for (std::int32_t i = 1; i <= nt; ++i)
      for (std::int32_t j = 1; j <= i; ++j) {
        const bool held =
            i == j ? !in(lists.lc, i)
                   : !in(lists.lc, i) && !in(lists.lc, j) && (in(lists.ccu, i) || in(lists.ccu, j));
        if (!held) free.emplace_back(i, j);
      }
    now = log_kernel(R, S, df);
  }
  void step(const mat<double>& S, std::int32_t df, double width) {
    std::normal_distribution<double> standard;
    std::uniform_real_distribution<double> uniform;
    for (const auto& [i, j] : free) {
      std::copy(R.begin(), R.end(), candidate.begin());
      candidate(i, j) += width * (i == j ? R(i, i) : 1.0) * standard(engine);
      candidate(j, i) = candidate(i, j);
      double ratio =
          i == j ? std::log(std::fabs(R(i, i) / candidate(i, i))) : 0.0; // of the proposal's widths
      if (i == j) {                                                      // N(x; R, (w R)^2) back over forth
        const double d = candidate(i, i) - R(i, i);
        ratio += -0.5 * d * d / (width * width) *
                 (1.0 / (candidate(i, i) * candidate(i, i)) - 1.0 / (R(i, i) * R(i, i)));
      }
      if (!(candidate(i, i) > 0) || !positive_definite(candidate)) continue;
      const double then = log_kernel(candidate, S, df);
      if (std::log(uniform(engine)) >= then - now + ratio) continue;
      now = then;
      std::copy(candidate.begin(), candidate.end(), R.begin());
    }
  }
};

TEST(rinvwish_con, agrees_with_a_random_walk_on_the_kernel_for_all_kinds_together) {
  const std::int32_t df = 20;
  for (const residual_lists& lists :
       {residual_lists{{1}, {2, 3}, {4}, {}}, residual_lists{{}, {1, 2, 3}, {4}, {}}}) {
    draw_case c(lists, four, 4);
    walker w(lists, 4, c.work.S, df);
    const std::size_t elements = w.free.size();
    std::vector<chain_mean> drawn(2 * elements), walked(2 * elements);
    for (int i = 0; i < 200; ++i) w.step(c.work.S, df, 0.25);
    for (int i = 0; i < 30000; ++i) {
      const mat<double>& W = c.next(df);
      w.step(c.work.S, df, 0.25);
      for (std::size_t k = 0; k < elements; ++k) {
        const double a = W(w.free[k].first, w.free[k].second), b = w.R(w.free[k].first, w.free[k].second);
        drawn[2 * k].add(a), drawn[2 * k + 1].add(a * a);
        walked[2 * k].add(b), walked[2 * k + 1].add(b * b);
      }
    }
    for (std::size_t k = 0; k < 2 * elements; ++k)
      EXPECT_NEAR(drawn[k].all.mean(), walked[k].all.mean(),
                  5 * std::hypot(drawn[k].error(), walked[k].error()))
          << "element " << w.free[k / 2].first << ',' << w.free[k / 2].second << (k % 2 ? " squared" : "");
  }
}

TEST(rinvwish_con, stops_with_too_few_degrees_of_freedom_for_a_block) {
  draw_case c({{1}, {2, 3}, {4}, {}}, four, 4);
  expect_stop(16, c.run, [&](reporting&) { c.next(0); });
  draw_case pair({{1}, {2, 3, 4}, {}, {}}, four, 4); // nu = 3 - 1 = 2 below order 3
  expect_stop(16, pair.run, [&](reporting&) { pair.next(3); });
  EXPECT_NE(pair.run.text().find("Computation impossible in wishart_draw: df = 2 below order 3"),
            std::string::npos);
  draw_case none({{}, {1, 2, 3, 4}, {}, {}}, four, 4); // nu below 0: before any gamma is drawn
  expect_stop(16, none.run, [&](reporting&) { none.next(-1); });
  EXPECT_NE(none.run.text().find("Computation impossible in wishart_draw: df = -1 below order 4"),
            std::string::npos);
}

TEST(prepare_residual_draw, refuses_a_trait_without_list_from_type_3_on) {
  model_records m;
  m.nt = 1;
  m.MODEL_rows.resize(1);
  m.RMAT_rows.resize(1);
  m.MODEL(1).TRAIT_TYPE = 6;
  zeph_test::chain_frame f;
  constrained_work work;
  matrix_draw_work matrix_work;
  heard_run run;
  f.asked.analysis_type = analysis::predict;
  prepare_residual_draw(m, f.asked, work, matrix_work, run.report);
  f.asked.analysis_type = analysis::gibbs;
  expect_stop(16, run,
              [&](reporting& report) { prepare_residual_draw(m, f.asked, work, matrix_work, report); });
  EXPECT_NE(run.text().find("Illegal input in MODINF: TRAIT_TYPE(1) = 6"), std::string::npos);
}

} // namespace
