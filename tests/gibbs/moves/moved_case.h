// Tiny models for the tests of moves: state and data drawn from the prior, matrices included, as in
// prior_case.h, and dense forms of what the moves use.
//
// Two traits; factor 1 has `order` rows, row q of trait 1 + (q - 1) mod 2, coefficient x^((q-1)/2) of a
// covariable x of the record; factor 2, where there is one, is an identity factor of both traits.
#pragma once

#include "gibbs/moves/factor_moves.h"
#include "gibbs/moves/moves.h"
#include "gibbs/prior_case.h"
#include "gibbs/scan/record_pass.h"
#include "gibbs/scan/residual_body.h"
#include "support/jump_case.h"

namespace zeph_test {

struct moved_options {
  std::int32_t type = 3;
  bool exact = true;
  std::string structure = "I";
  std::int32_t order = 2, levels = 8, records = 24;
  bool weights = false, groups = false, missing = false;
  bool meet = false;        // the entries of the last row are in another level
  bool alike = false;       // all levels have the same covariables: they share a class
  bool changing = false;    // coefficients of row 1 can change in the run
  std::int32_t second = 0;  // levels of factor 2; 0: none
  std::int32_t covered = 0; // levels with records; 0: all
};

struct moved_case : prior_case {
  moved_options with;
  std::vector<dense_matrix> A, LA; // [k-1]: relationship of the levels, its factor

  explicit moved_case(const moved_options& options)
      : prior_case(description(options), options.type, options.exact), with(options) {
    f.asked.sampler.moves = true;
    for (std::int32_t k = 1; k <= m.nramat; ++k) {
      const std::int32_t q = m.RMAT(k).n_rc;
      f.state.matopd(k) = 1;
      f.asked.PDF(k) = q + 6;
      for (std::int32_t i = 1; i <= q; ++i)
        for (std::int32_t j = 1; j <= q; ++j) m.RMAT(k).COV_MAT(i, j) = i == j ? 0.6 : 0.15;
      relate(k);
    }
    read_relationships(m, relations, run.report);
    for (std::int32_t r = 1; r <= with.records; ++r) fill_record(r);
    find_meetings();
    scan_records all = records();
    find_moves(all, f.asked, f.state);
    set_state();
  }

  static described_model description(const moved_options& with) {
    described_model d = prior_description({1, 1}, with.records, with.levels, {1.0, 0.3, 0.3, 0.8});
    described_factor& factor = d.factors[0];
    factor.structure = with.structure;
    factor.order = with.order;
    factor.contributions.clear();
    for (std::int32_t q = 1; q <= with.order; ++q) factor.contributions.push_back({trait_of(q), 1, q});
    if (with.second > 0) d.factors.push_back({"I", with.second, 2, {{1, 2, 1}, {2, 2, 2}}});
    if (with.weights)
      for (described_trait& t : d.traits) t.weight_place = 4;
    if (with.groups) {
      d.group_place = 4;
      d.residual_groups = 2;
    }
    return d;
  }
  static std::int32_t trait_of(std::int32_t row) { return 1 + (row - 1) % 2; }

  void relate(std::int32_t k) {
    const std::int32_t levels = m.NRALEV(k);
    dense_matrix a(levels);
    for (std::int32_t l = 1; l <= levels; ++l) a(l, l) = 1.0;
    if (structure_is(m.RMAT(k), "PED")) {
      const auto parents = made_pedigree(levels);
      write_pedigree(directory, std::to_string(k), parents);
      a = relationship_of(parents);
    }
    A.push_back(a);
    LA.push_back(factor(a, levels));
  }

  void fill_record(std::int32_t r) {
    if (with.missing && r % 4 == 0) observe(r, 1 + (r / 4) % 2);
    if (with.groups) design.IRESG_M(r) = 1 + r % 2;
    const std::int32_t covered = with.covered > 0 ? with.covered : with.levels;
    const std::int32_t level = 1 + r % covered, other = 1 + (5 * r + 1) % covered;
    const double x = with.alike ? 0.4 + 0.3 * ((r - 1) / covered) : -1.0 + 2.0 * ((7 * r) % 11) / 11.0;
    for (std::int32_t t = 1; t <= 2; ++t)
      if (with.weights && trait_present(design.ISIT_M(r), t, 2))
        weigh(r, t, 0.5F + 0.25F * static_cast<float>((r + t) % 4));
    for (std::int32_t q = 1; q <= with.order; ++q) {
      if (!trait_present(design.ISIT_M(r), trait_of(q), 2)) continue;
      entry(r, trait_of(q), 1, with.meet && q == with.order ? other : level, q, std::pow(x, (q - 1) / 2));
      if (with.changing && q == 1) design.XD6_M(design.M_M(r), r) = 2;
    }
    for (std::int32_t t = 1; t <= 2 && with.second > 0; ++t)
      if (trait_present(design.ISIT_M(r), t, 2)) entry(r, t, 2, 1 + (r / 2) % with.second, t, 1.0);
  }

  // Rows of factor k in force.
  std::int32_t rows(std::int32_t k) const { return layout.NGR(layout.group_of_factor(k, m.nramat), 2); }
  move_work& moved() { return work.moves.work; }
  factor_move& move_of(std::int32_t k) { return work.moves.factors[static_cast<std::size_t>(k - 1)]; }

  // Matrices, solutions and data from the prior.
  void set_state() {
    for (std::int32_t h = 1; h <= s.G; ++h)
      set_R(inverse_wishart(dense_matrix(2, {1.0, 0.3, 0.3, 0.8}), 2, v_residual), h);
    s.sol.fill(0.0);
    for (std::int32_t k = 1; k <= m.nramat; ++k) set_factor(k);
    for (std::int32_t r = 1; r <= design.nobs; ++r) draw_record(r);
    count_group_records(m, design);
  }
  // G and U = L_A Z L_G' of factor k.
  void set_factor(std::int32_t k) {
    const std::int32_t q = m.RMAT(k).n_rc, p = rows(k), levels = m.NRALEV(k);
    const dense_matrix whole = inverse_wishart(start_matrix(k), q, f.asked.PDF(k));
    dense_matrix G(p);
    for (std::int32_t i = 1; i <= p; ++i)
      for (std::int32_t j = 1; j <= p; ++j) G(i, j) = whole(i, j);
    const dense_matrix inverse = dense_inverse(G).inverse, L = factor(G, p);
    for (std::int32_t i = 1; i <= p; ++i)
      for (std::int32_t j = 1; j <= p; ++j) s.GIF(i, j, k) = inverse(i, j);
    for (std::int32_t j = 1; j <= p; ++j) {
      std::vector<double> z(static_cast<std::size_t>(levels));
      for (double& x : z) x = normal();
      for (std::int32_t l = 1; l <= levels; ++l) {
        double a = 0;
        for (std::int32_t c = 1; c <= l; ++c)
          a += LA[static_cast<std::size_t>(k - 1)](l, c) * z[static_cast<std::size_t>(c - 1)];
        for (std::int32_t i = j; i <= p; ++i) s.sol(m.NBEGRA(k) + (l - 1) * q + i) += L(i, j) * a;
      }
    }
  }

  // Of the state: logs of variances, correlations, sums of squares of rows and of residuals.
  std::vector<double> functions() const {
    std::vector<double> out;
    for (std::int32_t k = 1; k <= m.nramat; ++k) {
      const std::int32_t p = rows(k), q = m.RMAT(k).n_rc;
      dense_matrix P(p);
      for (std::int32_t i = 1; i <= p; ++i)
        for (std::int32_t j = 1; j <= p; ++j) P(i, j) = s.GIF(i, j, k);
      const dense_matrix G = dense_inverse(P).inverse;
      for (std::int32_t i = 1; i <= p; ++i) {
        out.push_back(std::log(G(i, i)));
        if (i > 1) out.push_back(G(i, 1) / std::sqrt(G(i, i) * G(1, 1)));
        double squares = 0;
        for (std::int32_t l = 0; l < m.NRALEV(k); ++l)
          squares += s.sol(m.NBEGRA(k) + l * q + i) * s.sol(m.NBEGRA(k) + l * q + i);
        out.push_back(std::log(squares));
      }
    }
    for (std::int32_t t = 1; t <= 2; ++t) {
      double squares = 0;
      for (std::int32_t r = 1; r <= design.nobs; ++r) squares += residual(r, t) * residual(r, t);
      out.push_back(std::log(squares));
    }
    return out;
  }

  // The largest |z| over the functions: mean change by `step` over replicates of state and data from the
  // prior, in its standard errors.
  double z_of(int replicates, const std::function<void()>& step) {
    std::vector<double> sum, squares;
    for (int n = 0; n < replicates; ++n) {
      set_state();
      const std::vector<double> before = functions();
      step();
      const std::vector<double> after = functions();
      sum.resize(before.size());
      squares.resize(before.size());
      for (std::size_t i = 0; i < sum.size(); ++i) {
        sum[i] += after[i] - before[i];
        squares[i] += (after[i] - before[i]) * (after[i] - before[i]);
      }
    }
    double largest = 0;
    for (std::size_t i = 0; i < sum.size(); ++i) {
      const double mean = sum[i] / replicates, variance = squares[i] / replicates - mean * mean;
      if (!(variance > 0)) continue;
      largest = std::max(largest, std::fabs(mean) / std::sqrt(variance / replicates));
    }
    return largest;
  }

  // Rounds of the chain.
  void rounds(int n) {
    scan_records all = records();
    for (f.state.iround = 1; f.state.iround <= n; ++f.state.iround)
      GIBSCAN(all, f.asked, f.state, f.counts, files);
  }
};

// H and K of factor k by full matrices: B changes the fitted values by X vec(B), X((r,t),(q,v)) the sum of z
// u_v over the entries of record r of trait t in row q, so that H = X'R^-1 e and K = X'R^-1 X, R^-1 with the
// roots of the weights.
struct dense_sums {
  dense_sums(const moved_case& c, std::int32_t k) : p(c.rows(k)), H(p * p), K(p * p) {
    for (std::int32_t r = 1; r <= c.design.nobs; ++r) add_record(c, k, r);
  }
  void add_record(const moved_case& c, std::int32_t k, std::int32_t r) {
    const std::int32_t nt = c.m.nt;
    std::vector<dense_vector> X(static_cast<std::size_t>(nt), dense_vector(p * p));
    for (std::int32_t e = 1; e <= c.design.M_M(r); ++e) {
      const std::int32_t q = c.design.XD5_M(e, r), t = c.design.XD2_M(e, r);
      if (c.design.XD7_M(e, r) != k || q > p) continue;
      const std::int32_t level = c.design.XD4_M(e, r), order = c.m.RMAT(k).n_rc;
      for (std::int32_t v = 1; v <= p; ++v)
        X[static_cast<std::size_t>(t - 1)]((q - 1) * p + v) +=
            c.design.ZD_M(e, r) * c.s.sol(c.m.NBEGRA(k) + (level - 1) * order + v);
    }
    const dense_matrix inverse = dense_inverse(c.R_of(c.design.IRESG_M(r))).inverse;
    for (std::int32_t t = 1; t <= nt; ++t)
      for (std::int32_t u = 1; u <= nt; ++u) {
        const double root = static_cast<double>(c.design.WV_SQRT_M(t, r));
        const double y = static_cast<double>(c.design.Y_M(u, r));
        const double e = trait_present(c.design.ISIT_M(r), u, nt)
                             ? static_cast<double>(c.design.WV_SQRT_M(u, r)) * (y - c.fitted(r, u))
                             : y;
        const dense_vector &xt = X[static_cast<std::size_t>(t - 1)], &xu = X[static_cast<std::size_t>(u - 1)];
        for (std::int32_t i = 1; i <= p * p; ++i) {
          H(i) += xt(i) * root * inverse(t, u) * e;
          for (std::int32_t j = 1; j <= p * p; ++j)
            K(i, j) += xt(i) * root * inverse(t, u) * static_cast<double>(c.design.WV_SQRT_M(u, r)) * xu(j);
        }
      }
  }
  std::int32_t p;
  dense_vector H;
  dense_matrix K;
};

} // namespace zeph_test
