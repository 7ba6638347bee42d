// Small runs whose ordered and binary traits have moves of their own: states drawn from the prior, data from
// the state, and the joint density of both in full matrices, by which the densities of the moves are checked.
//
// Factors with identity, a row of each trait; entries with coefficients that differ between records, so that
// nothing cancels. All matrices but the residual ones of binary traits have proper priors unless a case asks.
#pragma once

#include "gibbs/moves/moves.h"
#include "gibbs/moves/trait_setup.h"
#include "gibbs/prior_case.h"
#include "gibbs/scan/residual_body.h"

#include <algorithm>

namespace zeph_test {

struct trait_setting {
  std::vector<std::int32_t> kinds;
  std::int32_t categories = 3; // of traits of kind 3
  std::int32_t records = 16, levels = 6, factors = 1;
  bool weights = false, missing = false, fixed = false, exact = true;
  bool paired = false; // all factors have the same levels and coefficients
  std::int32_t fixed_levels = 2, groups = 1;
  std::vector<std::pair<std::int32_t, std::int32_t>> zeros = {}; // residual covariances held at zero
  std::int32_t v_factor = 7, v_residual = 8;                     // prior degrees of freedom; 0: uniform
  double correlation = 0.4;                                      // of residuals
};

struct trait_case : prior_case {
  trait_setting is;
  std::vector<dense_matrix> G; // [k-1]: matrices of the factors

  explicit trait_case(const trait_setting& setting) : prior_case(described(setting), 4, false), is(setting) {
    f.asked.sampler.exact = is.exact;
    f.asked.sampler.moves = true;
    f.asked.PDF.fill(is.v_factor);
    f.asked.PDF(m.nramat + 1) = is.v_residual;
    f.state.matopd.fill(1);
    f.state.iround = 1;
    m.n_norcov = static_cast<std::int32_t>(is.zeros.size());
    m.NORCOV.take(std::max(1, m.nt * (m.nt + 1) / 2), 2);
    for (std::int32_t k = 1; k <= m.n_norcov; ++k) {
      m.NORCOV(k, 1) = is.zeros[static_cast<std::size_t>(k - 1)].first;
      m.NORCOV(k, 2) = is.zeros[static_cast<std::size_t>(k - 1)].second;
    }
    for (std::int32_t k = 1; k <= m.nramat; ++k) {
      for (std::int32_t i = 1; i <= m.nt; ++i)
        for (std::int32_t j = 1; j < i; ++j)
          m.RMAT(k).COV_MAT(i, j) = m.RMAT(k).COV_MAT(j, i) = (k == 1 ? 0.3 : -0.2);
      G.push_back(start_matrix(k));
    }
    number_sequence x(5);
    for (std::int32_t r = 1; r <= is.records; ++r) fill_record(r, x);
    make_categories();
    for (std::int32_t k = 1; k <= m.nramat; ++k) set_G(k, G_of(k));
    for (std::int32_t h = 1; h <= is.groups; ++h) set_R(R_of(h), h);
  }

  static described_model described(const trait_setting& x) {
    const auto nt = static_cast<std::int32_t>(x.kinds.size());
    std::vector<double> R(static_cast<std::size_t>(nt * nt), x.correlation);
    const auto at = [&](std::int32_t i, std::int32_t j) -> double& {
      return R[static_cast<std::size_t>((i - 1) * nt + j - 1)];
    };
    for (std::int32_t i = 1; i <= nt; ++i) at(i, i) = 1.0;
    for (const auto& [i, j] : x.zeros) at(i, j) = at(j, i) = 0.0;
    described_model d = prior_description(x.kinds, x.records, x.levels, R);
    if (x.factors == 0) d.factors.clear();
    for (std::int32_t k = 2; k <= x.factors; ++k) d.factors.push_back(d.factors[0]);
    if (x.weights)
      for (described_trait& t : d.traits) t.weight_place = nt + 1;
    if (x.fixed)
      for (described_trait& t : d.traits) t.effects = {{1, x.fixed_levels}};
    if (x.groups > 1) {
      d.group_place = 4;
      d.residual_groups = x.groups;
    }
    return d;
  }
  bool ordered(std::int32_t t) const { return m.MODEL(t).TRAIT_TYPE == trait_categorical; }

  void fill_record(std::int32_t r, number_sequence& x) {
    const std::int32_t g0 = layout.ngroups - m.nramat;
    if (is.missing && r % 5 == 2) observe(r, (1 << m.nt) - 2);       // the last trait is missing
    if (is.missing && r % 5 == 4) observe(r, (1 << (m.nt - 1)) - 1); // the first one
    design.IRESG_M(r) = 1 + r % is.groups;
    for (std::int32_t t = 1; t <= m.nt; ++t) {
      if (!trait_present(design.ISIT_M(r), t, m.nt)) continue;
      if (is.weights) weigh(r, t, 0.75F + 0.25F * static_cast<float>((r + t) % 4));
      if (is.fixed) entry(r, t, t, 1 + r % is.fixed_levels, 1, 1.0);
      const double shared = is.paired ? x.between(0.5, 1.5) : 0.0;
      for (std::int32_t k = 1; k <= m.nramat; ++k) {
        const std::int32_t level = 1 + ((is.paired ? 1 : k) * r + r / is.levels) % is.levels;
        entry(r, t, g0 + k, level, t, is.paired ? shared : x.between(0.5, 1.5));
      }
    }
  }

  void make_categories() {
    std::int32_t n = 0;
    for (std::int32_t t = 1; t <= m.nt; ++t) n += ordered(t);
    categories.catstr.resize(static_cast<std::size_t>(n));
    if (n == 0) return;
    categories.catobs.take(n, is.records);
    std::size_t c = 0;
    for (std::int32_t t = 1; t <= m.nt; ++t) {
      if (!ordered(t)) continue;
      category_record& x = categories.catstr[c++];
      x.ncat_t = is.categories;
      x.trait = t;
      for (vec<double>* v : {&x.thr, &x.thrpostm, &x.thrpostsd}) v->take(range(0, x.ncat_t));
      for (vec<double>* v : {&x.minu, &x.maxu}) v->take(x.ncat_t);
      x.thr(0) = -outer_limit, x.thr(x.ncat_t) = outer_limit;
      for (std::int32_t k = 1; k < x.ncat_t; ++k) x.thr(k) = static_cast<double>(k - 1) / (x.ncat_t - 2);
    }
  }
  // Categories of the liabilities as they are.
  void categorize() {
    std::int32_t c = 0;
    for (const category_record& x : categories.catstr) {
      ++c;
      for (std::int32_t r = 1; r <= is.records; ++r) {
        std::int32_t k = 1;
        while (k<x.ncat_t&& static_cast<double>(design.Y_M(x.trait, r))> x.thr(k)) ++k;
        categories.catobs(c, r) = trait_present(design.ISIT_M(r), x.trait, m.nt) ? k : -1;
      }
    }
  }

  dense_matrix G_of(std::int32_t k) const { return G[static_cast<std::size_t>(k - 1)]; }
  void set_G(std::int32_t k, const dense_matrix& x) {
    G[static_cast<std::size_t>(k - 1)] = x;
    const dense_matrix inverse = dense_inverse(x).inverse;
    for (std::int32_t i = 1; i <= m.nt; ++i)
      for (std::int32_t j = 1; j <= m.nt; ++j) s.GIF(i, j, k) = inverse(i, j);
  }
  dense_matrix present_G(std::int32_t k) const { // of the inverse that the chain holds
    dense_matrix x(m.nt);
    for (std::int32_t i = 1; i <= m.nt; ++i)
      for (std::int32_t j = 1; j <= m.nt; ++j) x(i, j) = s.GIF(i, j, k);
    return dense_inverse(x).inverse;
  }
  dense_matrix start_R() const { return dense_matrix(m.nt, described(is).residual); }

  // Where the prior is uniform: from somewhere.
  void draw_factors() {
    const std::int32_t v = is.v_factor > m.nt + 1 ? is.v_factor : m.nt + 6;
    for (std::int32_t k = 1; k <= m.nramat; ++k) {
      set_G(k, inverse_wishart(start_matrix(k), m.nt, v));
      const dense_matrix L = factor(G_of(k), m.nt);
      for (std::int32_t l = 1; l <= m.NRALEV(k); ++l) {
        std::vector<double> z(static_cast<std::size_t>(m.nt));
        for (double& x : z) x = normal();
        for (std::int32_t i = 1; i <= m.nt; ++i) {
          double u = 0;
          for (std::int32_t j = 1; j <= i; ++j) u += L(i, j) * z[static_cast<std::size_t>(j - 1)];
          s.sol(m.NBEGRA(k) + (l - 1) * m.nt + i) = u;
        }
      }
    }
  }
  // thr(2..K-2): sorted uniforms.
  void draw_thresholds_of_prior() {
    for (category_record& x : categories.catstr) {
      for (std::int32_t k = 2; k <= x.ncat_t - 2; ++k) x.thr(k) = uniform();
      if (x.ncat_t > 4) std::sort(&x.thr(2), &x.thr(x.ncat_t - 2) + 1);
    }
  }
  void draw_data() {
    for (std::int32_t r = 1; r <= is.records; ++r) draw_record(r);
    categorize();
  }
  // State and data; R of the ordered traits' cases from its prior where draw_R.
  void draw_all(bool draw_R) {
    for (std::int32_t h = 1; draw_R && h <= is.groups; ++h)
      set_R(inverse_wishart(start_R(), m.nt, is.v_residual), h);
    draw_factors();
    draw_thresholds_of_prior();
    draw_data();
  }

  void find() {
    scan_records all = records();
    find_traits(all, f.asked, f.state);
  }
  trait_move& move_of(std::int32_t t) {
    for (trait_move& x : work.moves.traits)
      if (x.t == t) return x;
    throw std::runtime_error("no such trait");
  }
  // An ordered trait without records in its two highest categories has no move, by its data.
  void set_moves_by_data() {
    for (trait_move& x : work.moves.traits) {
      if (x.c == 0) continue;
      x.moves = false;
      for (std::int32_t r = 1; r <= is.records; ++r)
        if (categories.catobs(x.c, r) >= is.categories - 1) x.moves = true;
    }
  }
  void ready() {
    values_from_entries(work.values);
    prepare_conditionals(m, s, work.latent);
  }

  // For rounds of GIBSCAN with all moves.
  void begin_rounds() {
    if (is.exact) find_residual_parts(m, f.asked, work.matrices.parts, work.matrices.draw, run.report);
    find_meetings();
    scan_records all = records();
    body_of(all, f.asked);
    find_moves(all, f.asked, f.state);
    run.listing.str("");
  }

  // The move alone: mean change of each function over replicates in standard errors, the largest.
  double z_of_the_moves(int replicates, int steps, const std::function<void()>& draw,
                        const std::function<std::vector<double>()>& functions) {
    scan_records all = records();
    values_from_entries(work.values);
    std::vector<double> sum, squares;
    for (int n = 0; n < replicates; ++n) {
      draw();
      set_moves_by_data();
      const std::vector<double> before = functions();
      for (int i = 0; i < steps; ++i) move_traits(all, f.asked, f.state);
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
      if (variance > 0) largest = std::max(largest, std::fabs(mean) / std::sqrt(variance / replicates));
    }
    return largest;
  }
  double share_accepted() const {
    double tried = 0, accepted = 0;
    for (const trait_move& x : work.moves.traits) {
      tried += static_cast<double>(x.count.tried[0]);
      accepted += static_cast<double>(x.count.accepted[0]);
    }
    return accepted / tried;
  }

  // Logs of variances, correlations, sums of squares of u and residuals of trait t, thresholds.
  std::vector<double> functions_of(std::int32_t t) const {
    std::vector<double> out;
    const auto add_matrix = [&](const dense_matrix& x) {
      out.push_back(std::log(x(t, t)));
      for (std::int32_t i = 1; i <= m.nt; ++i)
        if (i != t) out.push_back(x(i, t) / std::sqrt(x(i, i) * x(t, t)));
    };
    for (std::int32_t k = 1; k <= m.nramat; ++k) {
      add_matrix(present_G(k));
      double squares = 0;
      for (std::int32_t l = 1; l <= m.NRALEV(k); ++l) {
        const double u = s.sol(m.NBEGRA(k) + (l - 1) * m.nt + t);
        squares += u * u;
      }
      out.push_back(std::log(squares));
    }
    for (std::int32_t h = 1; h <= s.G; ++h) add_matrix(R_of(h));
    double squares = 0, cross = 0;
    for (std::int32_t r = 1; r <= is.records; ++r) {
      const double e = residual(r, t);
      squares += e * e;
      cross += e * residual(r, t == 1 ? 2 : 1);
    }
    out.push_back(std::log(squares));
    if (m.nt > 1) out.push_back(cross / std::sqrt(squares));
    for (const category_record& x : categories.catstr)
      for (std::int32_t k = 2; x.trait == t && k <= x.ncat_t - 2; ++k) out.push_back(x.thr(k));
    return out;
  }
};

// A state in 64-bit numbers, apart from the records of the run, and its joint density with the data.
struct dense_state {
  const trait_case* c = nullptr;
  std::vector<std::vector<double>> y; // [t-1][record-1]; of a missing trait its residual
  std::vector<double> sol;            // [equation-1]
  std::vector<dense_matrix> G, R;

  explicit dense_state(const trait_case& from) : c(&from), G(from.G) {
    for (std::int32_t t = 1; t <= c->m.nt; ++t) {
      y.emplace_back();
      for (std::int32_t r = 1; r <= c->is.records; ++r)
        y.back().push_back(static_cast<double>(c->design.Y_M(t, r)));
    }
    for (std::int32_t e = 1; e <= c->layout.neq; ++e) sol.push_back(c->s.sol(e));
    for (std::int32_t h = 1; h <= c->is.groups; ++h) R.push_back(c->R_of(h));
  }

  static double log_det(const dense_matrix& x) { return std::log(dense_inverse(x).determinant); }
  static double trace(const dense_matrix& a, const dense_matrix& b) {
    double sum = 0;
    for (std::int64_t i = 1; i <= a.n; ++i)
      for (std::int64_t j = 1; j <= a.n; ++j) sum += a(i, j) * b(j, i);
    return sum;
  }
  // Kernel of an inverse Wishart density, nu degrees of freedom and this scale.
  static double inverse_wishart_kernel(const dense_matrix& x, double nu, const dense_matrix& scale) {
    return -0.5 * (nu + static_cast<double>(x.n) + 1) * log_det(x) -
           0.5 * trace(scale, dense_inverse(x).inverse);
  }
  static dense_matrix times(double a, dense_matrix x) {
    for (double& v : x.cells) v *= a;
    return x;
  }
  static dense_matrix block(const dense_matrix& x, const std::vector<std::int32_t>& traits) {
    dense_matrix b(static_cast<std::int64_t>(traits.size()));
    for (std::size_t i = 0; i < traits.size(); ++i)
      for (std::size_t j = 0; j < traits.size(); ++j)
        b(static_cast<std::int64_t>(i) + 1, static_cast<std::int64_t>(j) + 1) = x(traits[i], traits[j]);
    return b;
  }

  double residual(std::int32_t r, std::int32_t t) const {
    double e = y[static_cast<std::size_t>(t - 1)][static_cast<std::size_t>(r - 1)];
    const design_store& d = c->design;
    for (std::int32_t j = 1; j <= d.M_M(r); ++j)
      if (d.XD2_M(j, r) == t) e -= d.ZD_M(j, r) * sol[static_cast<std::size_t>(d.XD1_M(j, r) - 1)];
    return e * static_cast<double>(d.WV_SQRT_M(t, r)); // 1 for a missing trait: no case has it otherwise
  }

  // ln of the joint density but for a constant. parts: the connected parts of R.
  double log_joint(const std::vector<std::vector<std::int32_t>>& parts) const {
    double sum = 0;
    const std::int32_t nt = c->m.nt;
    std::vector<dense_matrix> inverse;
    std::vector<double> det;
    for (const dense_matrix& x : R) {
      inverse.push_back(dense_inverse(x).inverse);
      det.push_back(log_det(x));
    }
    for (std::int32_t r = 1; r <= c->is.records; ++r) { // N(e; 0, R)
      const auto h = static_cast<std::size_t>(c->design.IRESG_M(r) - 1);
      sum -= 0.5 * det[h];
      for (std::int32_t i = 1; i <= nt; ++i)
        for (std::int32_t j = 1; j <= nt; ++j)
          sum -= 0.5 * residual(r, i) * inverse[h](i, j) * residual(r, j);
    }
    for (std::int32_t k = 1; k <= c->m.nramat; ++k) { // N(u; 0, G x I), G
      const dense_matrix& g = G[static_cast<std::size_t>(k - 1)];
      const dense_matrix Gi = dense_inverse(g).inverse;
      for (std::int32_t l = 1; l <= c->m.NRALEV(k); ++l) {
        const double* u = &sol[static_cast<std::size_t>(c->m.NBEGRA(k) + (l - 1) * nt)];
        sum -= 0.5 * log_det(g);
        for (std::int32_t i = 1; i <= nt; ++i)
          for (std::int32_t j = 1; j <= nt; ++j) sum -= 0.5 * u[i - 1] * Gi(i, j) * u[j - 1];
      }
      const std::int32_t v = c->is.v_factor;
      if (v > nt + 1) sum += inverse_wishart_kernel(g, v, times(v - nt - 1, c->start_matrix(k)));
    }
    const std::int32_t v = c->is.v_residual;
    for (const dense_matrix& x : R)
      for (const auto& part : parts) {
        const auto p = static_cast<std::int32_t>(part.size());
        const dense_matrix b = block(x, part);
        if (v > nt + 1)
          sum += inverse_wishart_kernel(b, v - nt + p, times(v - nt - 1, block(c->start_R(), part)));
        else if (!c->is.exact) // the block of an inverse Wishart matrix of all traits with a uniform prior
          sum += (nt - p) * log_det(b);
      }
    return sum;
  }
};

// ln |det| of the Jacobian of a map of n numbers to n numbers, by central differences.
inline double log_jacobian(const std::function<std::vector<double>(const std::vector<double>&)>& map,
                           std::vector<double> at) {
  const auto n = static_cast<std::int64_t>(at.size());
  dense_matrix J(n);
  for (std::int64_t j = 1; j <= n; ++j) {
    double& x = at[static_cast<std::size_t>(j - 1)];
    const double kept = x, step = 1e-5 * std::max(1.0, std::fabs(x));
    x = kept + step;
    const std::vector<double> above = map(at);
    x = kept - step;
    const std::vector<double> below = map(at);
    x = kept;
    for (std::int64_t i = 1; i <= n; ++i)
      J(i, j) =
          (above[static_cast<std::size_t>(i - 1)] - below[static_cast<std::size_t>(i - 1)]) / (2.0 * step);
  }
  return std::log(std::fabs(dense_inverse(J).determinant));
}

} // namespace zeph_test
