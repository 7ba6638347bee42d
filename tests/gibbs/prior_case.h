// Tiny models whose state is drawn from the prior and whose data are drawn from the state. Rounds of a
// chain with the data fixed leave every such pair distributed as it was: the mean change of any function of
// the state over many replicates is 0. J. Geweke, Journal of the American Statistical Association 99 (2004)
// 799-804.
//
// One random factor with identity, levels 1..L with a row for each trait (and more where a case asks), no
// flat effects. Factor matrices stay at their start; from analysis type 4 on the residual matrix is drawn.
#pragma once

#include "gibbs/latent/latent_updates.h"
#include "gibbs/matrices/covariance_draws.h"
#include "gibbs/scan_case.h"
#include "support/build_kind.h"

#include <cmath>
#include <functional>
#include <random>

namespace zeph_test {

struct prior_case : scan_case {
  std::mt19937_64 engine{20261122};
  std::normal_distribution<double> gauss;
  std::uniform_real_distribution<double> unit;
  std::int32_t v_residual = 8; // prior degrees of freedom of the residual matrix, type 4

  prior_case(const described_model& d, std::int32_t type, bool exact) : scan_case(d) {
    f.asked.analysis_type = analysis_of(type);
    f.asked.sampler.exact = exact;
    f.asked.nburn = 1000000; // no round is a sample
    f.asked.isamp = 1;
    m.n_cure_seq = m.nobs();
    start(12);
    heard_run quiet;
    mark_zero_covariances(m, s, quiet.report);
    EXPECT_EQ(ZEPHVAR_ALLOC(m, s, quiet.report), 0);
    allocate(quiet.report, f.asked.PDF, "PDF", "test", m.nramat + 1);
    allocate(quiet.report, f.asked.DDF, "DDF", "test", m.nramat + 1);
    f.asked.PDF.fill(v_residual);
    for (std::int32_t k = 1; k <= m.nramat; ++k) {
      f.asked.DDF(k) = m.NRALEV(k);
      f.state.matopd(k) = 0;
    }
    SETALL(sources.combined, 12345, 67890);
    RMARIN(sources.marsaglia, 1234, 4321);
    allocate_mixtures(m, mixtures, quiet.report);
    prepare_residual_draw(m, f.asked, work.matrices.constrained, work.matrices.draw, quiet.report);
    if (exact && type > 2)
      find_residual_parts(m, f.asked, work.matrices.parts, work.matrices.draw, quiet.report);
  }

  // After all entries: levels that meet.
  void find_meetings() {
    if (!f.asked.sampler.exact) return;
    find_level_meetings(m, layout, design, s, f.asked, work.meetings, run.report);
    if (!work.levels.entered.allocated())
      allocate(run.report, work.levels.entered, "entered", "test", layout.neq);
  }

  double normal() { return gauss(engine); }
  double uniform() { return unit(engine); }

  // Lower factor of an n x n matrix given by elements.
  static dense_matrix factor(const dense_matrix& a, std::int32_t n) {
    dense_matrix L(n);
    for (std::int32_t j = 1; j <= n; ++j)
      for (std::int32_t i = j; i <= n; ++i) {
        double sum = a(i, j);
        for (std::int32_t k = 1; k < j; ++k) sum -= L(i, k) * L(j, k);
        L(i, j) = i == j ? std::sqrt(sum) : sum / L(j, j);
      }
    return L;
  }
  // R of group h, its inverse and determinant as the chain holds them.
  void set_R(const dense_matrix& R, std::int32_t h = 1) {
    const auto inverse = dense_inverse(R);
    const dense_matrix L = factor(R, m.nt);
    double log_root = 0;
    for (std::int32_t i = 1; i <= m.nt; ++i) log_root -= std::log(L(i, i));
    for (std::int32_t i = 1; i <= m.nt; ++i)
      for (std::int32_t j = 1; j <= m.nt; ++j) {
        s.RCOV(i, j, h) = R(i, j);
        s.RCOVI(i, j, h) = inverse.inverse(i, j);
      }
    s.IDET_RVAR(m.nramat + h) = std::exp(log_root);
  }
  dense_matrix R_of(std::int32_t h = 1) const {
    dense_matrix R(m.nt);
    for (std::int32_t i = 1; i <= m.nt; ++i)
      for (std::int32_t j = 1; j <= m.nt; ++j) R(i, j) = s.RCOV(i, j, h);
    return R;
  }
  // Inverse Wishart with v degrees of freedom and mean M, order n.
  dense_matrix inverse_wishart(const dense_matrix& M, std::int32_t n, double v) {
    dense_matrix scale(n);
    for (std::int32_t i = 1; i <= n; ++i)
      for (std::int32_t j = 1; j <= n; ++j) scale(i, j) = M(i, j) * (v - n - 1);
    const dense_matrix L = factor(dense_inverse(scale).inverse, n);
    dense_matrix W(n), B(n);
    for (std::int32_t i = 1; i <= n; ++i)
      for (std::int32_t j = 1; j <= i; ++j) {
        std::gamma_distribution<double> gamma((v - i + 1) / 2.0, 2.0);
        B(i, j) = i == j ? std::sqrt(gamma(engine)) : normal();
      }
    for (std::int32_t i = 1; i <= n; ++i)
      for (std::int32_t j = 1; j <= n; ++j)
        for (std::int32_t k = 1; k <= n; ++k)
          for (std::int32_t p = 1; p <= n; ++p)
            for (std::int32_t q = 1; q <= n; ++q) W(i, j) += L(i, p) * B(p, k) * B(q, k) * L(j, q);
    return dense_inverse(W).inverse;
  }

  dense_matrix start_matrix(std::int32_t k) const {
    const std::int32_t q = m.RMAT(k).n_rc;
    dense_matrix G(q);
    for (std::int32_t i = 1; i <= q; ++i)
      for (std::int32_t j = 1; j <= q; ++j) G(i, j) = m.RMAT(k).COV_MAT(i, j);
    return G;
  }

  // Solutions of all factors from N(0, G x I), G the start matrix.
  void draw_solutions() {
    for (std::int32_t k = 1; k <= m.nramat; ++k) {
      const std::int32_t q = m.RMAT(k).n_rc;
      const dense_matrix L = factor(start_matrix(k), q);
      for (std::int32_t l = 1; l <= m.NRALEV(k); ++l) {
        std::vector<double> z(static_cast<std::size_t>(q));
        for (double& x : z) x = normal();
        for (std::int32_t i = 1; i <= q; ++i) {
          double u = 0;
          for (std::int32_t j = 1; j <= i; ++j) u += L(i, j) * z[static_cast<std::size_t>(j - 1)];
          s.sol(m.NBEGRA(k) + (l - 1) * q + i) = u;
        }
      }
    }
  }
  double fitted(std::int32_t r, std::int32_t t) const {
    double sum = 0;
    for (std::int32_t e = 1; e <= design.M_M(r); ++e)
      if (design.XD2_M(e, r) == t) sum += design.ZD_M(e, r) * s.sol(design.XD1_M(e, r));
    return sum;
  }
  // Y_M of all traits of record r: fitted value plus residual, of missing ones the residual.
  void draw_record(std::int32_t r) {
    const dense_matrix L = factor(R_of(design.IRESG_M(r)), m.nt);
    std::vector<double> z(static_cast<std::size_t>(m.nt));
    for (double& x : z) x = normal();
    for (std::int32_t t = 1; t <= m.nt; ++t) {
      double e = 0;
      for (std::int32_t j = 1; j <= t; ++j) e += L(t, j) * z[static_cast<std::size_t>(j - 1)];
      const bool present = trait_present(design.ISIT_M(r), t, m.nt);
      design.Y_M(t, r) =
          static_cast<float>(present ? fitted(r, t) + e / static_cast<double>(design.WV_SQRT_M(t, r)) : e);
    }
  }
  // Residual of trait t scaled by the root of its weight.
  double residual(std::int32_t r, std::int32_t t) const {
    const double y = static_cast<double>(design.Y_M(t, r));
    if (!trait_present(design.ISIT_M(r), t, m.nt)) return y;
    return static_cast<double>(design.WV_SQRT_M(t, r)) * (y - fitted(r, t));
  }

  // The largest |z| over the functions: mean change over replicates of `rounds` rounds in its standard
  // errors. draw: state and data from the prior; functions: of the state.
  double largest_z(int wanted, int rounds, const std::function<void()>& draw,
                   const std::function<std::vector<double>()>& functions) {
    const int replicates = replicates_here(wanted);
    std::vector<double> sum, squares;
    scan_records all = records();
    for (int n = 0; n < replicates; ++n) {
      draw();
      count_group_records(m, design);
      if (f.asked.sampler.exact) count_components(m, design, s, f.asked, work.sweep, run.report);
      const std::vector<double> before = functions();
      for (f.state.iround = 1; f.state.iround <= rounds; ++f.state.iround)
        GIBSCAN(all, f.asked, f.state, f.counts, files);
      const std::vector<double> after = functions();
      sum.resize(before.size());
      squares.resize(before.size());
      for (std::size_t i = 0; i < before.size(); ++i) {
        const double d = after[i] - before[i];
        sum[i] += d;
        squares[i] += d * d;
      }
    }
    double largest = 0;
    for (std::size_t i = 0; i < sum.size(); ++i) {
      const double mean = sum[i] / replicates, variance = squares[i] / replicates - mean * mean;
      largest = std::max(largest, std::fabs(mean) / std::sqrt(variance / replicates));
    }
    return largest;
  }
};

// nt traits of these kinds, records of one factor of `levels` levels, a row a trait.
inline described_model prior_description(const std::vector<std::int32_t>& kinds, std::int32_t records,
                                         std::int32_t levels, const std::vector<double>& residual) {
  described_model d;
  d.traits.resize(kinds.size());
  const auto nt = static_cast<std::int32_t>(kinds.size());
  described_factor factor{"I", levels, nt, {}};
  for (std::int32_t t = 1; t <= nt; ++t) {
    d.traits[static_cast<std::size_t>(t - 1)].kind = kinds[static_cast<std::size_t>(t - 1)];
    factor.contributions.push_back({t, 1, t});
  }
  d.factors = {factor};
  d.integers = 8;
  d.reals = nt + 2;
  d.records = records;
  d.residual = residual;
  return d;
}

} // namespace zeph_test
