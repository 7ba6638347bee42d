// Rounds of the exact chain over models leave the prior of model, state and data as it is: the shares of
// the models too. Limit of |z| 4.5 (error probability 7e-6 a function).
#include "jump/exact_moves.h"

#include "gibbs/prior_case.h"
#include "jump/jump_rounds.h"
#include "jump/jump_setup.h"
#include "support/jump_case.h"

namespace zeph_test {
namespace {

constexpr double limit = 4.5;

// One factor of order q: 1 and powers of a covariable, trait 1; 1..q rows by their prior weights.
struct models_case : prior_case {
  std::int32_t q, levels;
  std::vector<double> weights;
  dense_matrix A; // relationship of the levels
  jump_store store;
  jump_records moves;

  models_case(const std::string& structure, std::int32_t order, std::int32_t n_levels, std::int32_t records,
              bool meet, const std::vector<double>& prior_weights)
      : prior_case(description(structure, order, n_levels, records), 6, true), q(order), levels(n_levels),
        weights(prior_weights), A(n_levels), moves{this->records(), m, f.asked, f.state, f.counts, store} {
    f.state.matopd(1) = 1;
    f.asked.PDF(1) = q + 6;
    if (!weights.empty()) f.asked.sampler.row_prior = {{1, weights}};
    for (std::int32_t i = 1; i <= q; ++i)
      for (std::int32_t j = 1; j <= q; ++j) m.RMAT(1).COV_MAT(i, j) = i == j ? 0.6 : 0.15;
    for (std::int32_t l = 1; l <= levels; ++l) A(l, l) = 1.0;
    if (structure == "PED") {
      const auto parents = made_pedigree(levels);
      write_pedigree(directory, "1", parents);
      A = relationship_of(parents);
      read_relationships(m, relations, run.report);
    }
    for (std::int32_t r = 1; r <= records; ++r)
      for (std::int32_t p = 1; p <= q; ++p) {
        const double x = -1.0 + 2.0 * ((7 * r) % records) / records;
        const std::int32_t level = 1 + (meet && p == q ? (5 * r + 1) % levels : r % levels);
        entry(r, 1, 1, level, p, std::pow(x, p - 1));
      }
    find_meetings();
    jump_setup(moves, relations, analysis::jump);
  }
  static described_model description(const std::string& structure, std::int32_t order, std::int32_t levels,
                                     std::int32_t records) {
    described_model d = prior_description({1}, records, levels, {0.4});
    d.factors[0].structure = structure;
    d.factors[0].order = order;
    for (std::int32_t p = 2; p <= order; ++p) d.factors[0].contributions.push_back({1, 1, p});
    return d;
  }
  std::int32_t rows() const { return f.state.ntr[0]; }

  void draw_model() {
    double total = 0, sum = 0;
    for (std::int32_t n = 1; n <= q; ++n) total += weight(n);
    const double u = uniform() * total;
    std::int32_t n = 1;
    for (sum = weight(1); sum < u && n < q; sum += weight(n)) ++n;
    f.state.ntr[0] = n;
    set_structure(moves, f.state.ntr, 1);
  }
  double weight(std::int32_t n) const {
    return weights.empty() ? 1.0 : weights[static_cast<std::size_t>(n - 1)];
  }

  // Model, R, G and U given the model: U = L_A Z L_G', rows beyond the model 0.
  void draw_state() {
    draw_model();
    set_R(inverse_wishart(dense_matrix(1, {0.4}), 1, v_residual));
    const dense_matrix whole = inverse_wishart(start_matrix(1), q, q + 6);
    dense_matrix G(rows());
    for (std::int32_t i = 1; i <= rows(); ++i)
      for (std::int32_t j = 1; j <= rows(); ++j) G(i, j) = whole(i, j);
    const dense_matrix inverse = dense_inverse(G).inverse, L = factor(G, rows()), LA = factor(A, levels);
    double* packed = s.sscp.unchecked_col(1);
    for (std::int32_t i = 1; i <= rows(); ++i)
      for (std::int32_t j = 1; j <= i; ++j) *packed++ = G(i, j);
    for (std::int32_t i = 1; i <= rows(); ++i)
      for (std::int32_t j = 1; j <= rows(); ++j) s.GIF(i, j, 1) = inverse(i, j);
    s.sol.fill(0.0);
    std::vector<double> z(static_cast<std::size_t>(levels * rows()));
    for (double& x : z) x = normal();
    for (std::int32_t l = 1; l <= levels; ++l)
      for (std::int32_t i = 1; i <= rows(); ++i)
        for (std::int32_t k = 1; k <= l; ++k)
          for (std::int32_t j = 1; j <= i; ++j)
            s.sol((l - 1) * q + i) +=
                LA(l, k) * L(i, j) * z[static_cast<std::size_t>((k - 1) * rows() + j - 1)];
    for (std::int32_t r = 1; r <= design.nobs; ++r) draw_record(r);
  }

  std::vector<double> functions() const {
    std::vector<double> out(static_cast<std::size_t>(q));
    out[static_cast<std::size_t>(rows() - 1)] = 1;
    double squares = 0, solutions = 0;
    for (std::int32_t r = 1; r <= design.nobs; ++r) squares += residual(r, 1) * residual(r, 1);
    for (std::int64_t e = 1; e <= s.sol.size(); ++e) solutions += s.sol(e) * s.sol(e);
    out.push_back(squares);
    out.push_back(solutions);
    out.push_back(1.0 / s.RCOV(1, 1, 1));
    out.push_back(s.GIF(1, 1, 1));
    return out;
  }

  double z(int wanted, int rounds) {
    const int replicates = replicates_here(wanted);
    std::vector<double> sum(static_cast<std::size_t>(q) + 4), squares(sum.size());
    for (int n = 0; n < replicates; ++n) {
      draw_state();
      count_group_records(m, design);
      const std::vector<double> before = functions();
      for (f.state.iround = 1; f.state.iround <= rounds; ++f.state.iround) {
        propose_move(moves);
        GIBSCAN(moves.scan, f.asked, f.state, f.counts, files);
        weigh_exact_move(moves);
        decide_move(moves);
        if (store.accepted) take_exact_move(moves);
      }
      const std::vector<double> after = functions();
      for (std::size_t i = 0; i < sum.size(); ++i) {
        sum[i] += after[i] - before[i];
        squares[i] += (after[i] - before[i]) * (after[i] - before[i]);
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

TEST(exact_moves, keep_the_prior_of_an_identity_factor_of_three_rows) {
  EXPECT_LT(models_case("I", 3, 4, 12, false, {}).z(20000, 6), limit);
}
TEST(exact_moves, keep_the_prior_with_weights_of_the_rows) {
  EXPECT_LT(models_case("I", 2, 4, 12, false, {3, 1}).z(20000, 6), limit);
}
TEST(exact_moves, keep_the_prior_where_levels_meet) {
  EXPECT_LT(models_case("I", 2, 5, 12, true, {}).z(20000, 6), limit);
}
TEST(exact_moves, keep_the_prior_of_an_inbred_pedigree) {
  EXPECT_LT(models_case("PED", 2, 9, 14, false, {}).z(20000, 6), limit);
}

} // namespace
} // namespace zeph_test
