#include "jump/model_moves.h"

#include "jump/jump_rounds.h"
#include "samples/accumulators.h"
#include "support/check.h"
#include "support/jump_case.h"
#include "support/run_state.h"

#include <cmath>

namespace {

using namespace zeph_test;

TEST(move_probabilities, are_those_of_a_walk_that_turns_at_its_ends) {
  heard_run run;
  const double up[3] = {1.0, 0.5, 0.0}, down[3] = {0.0, 0.5, 1.0};
  for (std::int32_t m = 1; m <= 3; ++m) {
    EXPECT_EQ(rplus(run.report, m, 1, 3), up[m - 1]);
    EXPECT_EQ(rminus(run.report, m, 1, 3), down[m - 1]);
  }
  EXPECT_EQ(rplus(run.report, 1, 1, 1), 0.0);
  EXPECT_EQ(rminus(run.report, 1, 1, 1), 0.0);
  EXPECT_EQ(run.text(), "");
}

TEST(move_probabilities, are_0_outside_and_reported) {
  heard_run run;
  for (const std::int32_t m : {0, 4}) {
    EXPECT_EQ(rplus(run.report, m, 1, 3), 0.0);
    EXPECT_EQ(rminus(run.report, m, 1, 3), 0.0);
  }
  const std::string both = "Illegal model move suggested in rplus\nIllegal model move suggested in rminus\n";
  EXPECT_EQ(run.text(), both + both);
}

TEST(swap_solutions, exchanges_the_rows_of_the_model_level_by_level) {
  jump_case c({{{"I", 3, 4}}, 3});
  c.start_moves(c.lines(6, 0, 1, 1));
  jump_records records = jump_records_of(*c.r);
  double* sol = c.r->sampler.sol.data() + c.m->NBEGRA(1);
  for (std::int64_t i = 0; i < 12; ++i) {
    sol[i] = static_cast<double>(i);
    c.r->jump.conv_sol(i + 1) = 100.0 + static_cast<double>(i);
  }
  swap_solutions(records, 1, {2, 3});
  for (std::int64_t i = 0; i < 12; ++i) {
    const double x = static_cast<double>(i), y = 100.0 + x;
    EXPECT_EQ(sol[i], i % 3 < 2 ? y : x);
    EXPECT_EQ(c.r->jump.conv_sol(i + 1), i % 3 < 2 ? x : y);
  }
}

// The models of the tests below: those of the chains, pedigree factors, an order beyond the
// blocks that are written out.
std::vector<named_jump> moved_models() {
  std::vector<named_jump> models = jump_models();
  models.push_back({"pedigree2", {{{"PED", 2, 14}}, 2}});
  models.push_back({"pedigree3", {{{"PED", 3, 14}}, 3}});
  models.push_back({"pedigree4", {{{"PED", 4, 14}}, 4}});
  models.push_back({"pedigree_curve5", {{{"PED", 5, 14, true}}, 1, 120}});
  models.push_back({"pedigree_and_identity", {{{"I", 2, 9}, {"PED", 3, 14}}, 3}});
  return models;
}

class moved_model : public ::testing::TestWithParam<named_jump> {};

// Every legal move of factor k from each of its dimensions; other factors are at `others`.
struct wanted_move {
  std::int32_t k, from;
  bool down;
};
std::vector<wanted_move> wanted_moves(const jump_case& c) {
  std::vector<wanted_move> moves;
  for (std::int32_t k = 1; k <= c.m->nramat; ++k) {
    const bool pedigree = structure_is(c.m->RMAT(k), "PED");
    for (std::int32_t from = 1; from <= c.m->RMAT(k).n_rc; ++from) {
      if (from < c.m->RMAT(k).n_rc) moves.push_back({k, from, false});
      if (from > (pedigree ? 2 : 1)) moves.push_back({k, from, true});
    }
  }
  return moves;
}

// A run just after the scan of a round with this move proposed.
struct proposed_case : jump_case {
  proposed_case(const jump_options& options, const wanted_move& move, bool plain = false)
      : jump_case(options) {
    start_moves(lines(6, 0, 9, 1));
    if (plain) r->work.body = scan_body::plain;
    std::vector<std::int32_t> model;
    for (std::int32_t k = 1; k <= m->nramat; ++k) model.push_back(k == move.k ? move.from : m->RMAT(k).n_rc);
    set_model(model);
    zeph::jump_store& j = r->jump;
    j.jump_k = move.k;
    j.jump_down = move.down;
    j.new_model = j.small_model = j.large_model = r->state.ntr;
    const auto at = static_cast<std::size_t>(move.k - 1);
    j.new_model[at] += move.down ? -1 : 1;
    (move.down ? j.small_model : j.large_model)[at] = j.new_model[at];
    j.imax = j.large_model[at];
    jump_records records = jump_records_of(*r);
    for (int round = 0; round < 3; ++round) scan();
    recompute_data_blocks(records); // a factor that goes down has come up before
    scan();
    listing.str("");
  }
};

TEST_P(moved_model, puts_everything_back_byte_by_byte_in_both_directions) {
  const jump_case described(GetParam().options);
  for (const wanted_move& move : wanted_moves(described)) {
    proposed_case c(GetParam().options, move);
    jump_records records = jump_records_of(*c.r);
    convert_dimension(records);
    const run_state before = state_of(*c.r);
    model_move(records);
    std::vector<std::string> differing = differing_parts(before, state_of(*c.r));
    std::erase(differing, "E"); // residuals that each scan computes from scratch
    EXPECT_EQ(differing, std::vector<std::string>{}) << "factor " << move.k << " from " << move.from;
    EXPECT_TRUE(std::isfinite(c.r->jump.log_ratio));
  }
}

TEST_P(moved_model, leaves_nothing_of_a_rejected_move_but_what_is_reported) {
  const jump_case described(GetParam().options);
  for (const wanted_move& move : wanted_moves(described)) {
    proposed_case c(GetParam().options, move);
    jump_records records = jump_records_of(*c.r);
    const run_state before = state_of(*c.r);
    if (!move.down) recompute_data_blocks(records);
    convert_dimension(records);
    model_move(records);
    c.r->jump.log_ratio = move.down ? 1e300 : -1e300;
    decide_move(records);
    ASSERT_FALSE(c.r->jump.accepted);
    const run_state after = state_of(*c.r);
    for (const std::string& name : differing_parts(before, after)) {
      if (name == "sol") continue;
      const bool told = name == "E" || name == "RHS" || name.starts_with("DI") || name.starts_with("CDI") ||
                        name == "prop_z" || name == "conv_sol" || name.starts_with("marsaglia ") ||
                        name.starts_with("cg");
      EXPECT_TRUE(told) << name;
    }
    // solutions: those of rows that the model does not have
    const auto* a = reinterpret_cast<const double*>(before.at("sol").data());
    for (std::int64_t e = 1; e <= c.r->layout.neq; ++e)
      if (a[e - 1] != c.r->sampler.sol(e)) {
        EXPECT_FALSE(move.down);
        EXPECT_TRUE(inactive_equation(c.r->layout, e)) << e;
      }
  }
}

// log N(u; 0, G x A) of the first n rows of all levels, by full matrices
double dense_solution_density(jump_case& c, std::int32_t k, std::int32_t n) {
  const std::int32_t levels = c.m->NRALEV(k);
  const zeph::jump_store& j = c.r->jump;
  dense_matrix G(n), A(levels);
  for (std::int32_t i = 1; i <= n; ++i)
    for (std::int32_t l = 1; l <= n; ++l) G(i, l) = j.cov_new(i, l);
  if (structure_is(c.m->RMAT(k), "PED"))
    A = relationship_of(made_pedigree(levels));
  else
    for (std::int32_t l = 1; l <= levels; ++l) A(l, l) = 1.0;
  const dense_inverse Gi(G), Ai(A);
  const double* u = c.r->sampler.sol.data() + c.m->NBEGRA(k);
  const std::int32_t stride = c.m->RMAT(k).n_rc;
  double q = 0;
  for (std::int32_t l = 1; l <= levels; ++l)
    for (std::int32_t h = 1; h <= levels; ++h)
      for (std::int32_t i = 1; i <= n; ++i)
        for (std::int32_t o = 1; o <= n; ++o)
          q +=
              u[(l - 1) * stride + i - 1] * Gi.inverse(i, o) * Ai.inverse(l, h) * u[(h - 1) * stride + o - 1];
  return -0.5 * (levels * n * std::log(2.0 * std::acos(-1.0)) + levels * std::log(Gi.determinant) +
                 n * std::log(Ai.determinant) + q);
}

// Minus twice the log likelihood less its constant, record by record from the entries:
// sum of ln |R| + e' W^1/2 R^-1 W^1/2 e
void dense_data(jump_case& c, const std::vector<std::int32_t>& model, double& fit, double& ssq) {
  const zeph::design_store& d = c.r->design;
  const std::int32_t nt = c.m->nt;
  fit = ssq = 0;
  for (std::int32_t rec = 1; rec <= d.nobs; ++rec) {
    const std::int32_t h = d.IRESG_M(rec);
    dense_matrix R(nt);
    for (std::int32_t i = 1; i <= nt; ++i)
      for (std::int32_t j = 1; j <= nt; ++j) R(i, j) = c.r->sampler.RCOV(i, j, h);
    const dense_inverse inverse(R);
    fit += std::log(inverse.determinant);
    std::vector<double> e(static_cast<std::size_t>(nt));
    for (std::int32_t t = 1; t <= nt; ++t)
      e[static_cast<std::size_t>(t - 1)] = static_cast<double>(d.Y_M(t, rec));
    for (std::int32_t i = 1; i <= d.M_M(rec); ++i) {
      const std::int32_t k = d.XD7_M(i, rec);
      if (k > 0 && d.XD5_M(i, rec) > model[static_cast<std::size_t>(k - 1)]) continue;
      e[static_cast<std::size_t>(d.XD2_M(i, rec) - 1)] -= d.ZD_M(i, rec) * c.r->sampler.sol(d.XD1_M(i, rec));
    }
    for (std::int32_t i = 1; i <= nt; ++i)
      for (std::int32_t j = 1; j <= nt; ++j)
        ssq += e[static_cast<std::size_t>(i - 1)] * inverse.inverse(i, j) *
               e[static_cast<std::size_t>(j - 1)] * static_cast<double>(d.WV_SQRT_M(i, rec)) *
               static_cast<double>(d.WV_SQRT_M(j, rec));
  }
}

TEST_P(moved_model, finds_the_densities_of_solutions_and_data_that_full_matrices_give) {
  const jump_case described(GetParam().options);
  for (const wanted_move& move : wanted_moves(described))
    for (const bool plain : {false, true}) {
      proposed_case c(GetParam().options, move, plain);
      jump_records records = jump_records_of(*c.r);
      convert_dimension(records);
      model_move(records);
      std::istringstream data(c.r->jump.diagnostic.at(1)), solutions(c.r->jump.diagnostic.at(2));
      double round = 0, ssq[2], fit[2], D_l = 0, D_s = 0;
      data >> round >> ssq[0] >> ssq[1] >> fit[0] >> fit[1];
      solutions >> round >> D_l >> D_s;
      const std::int32_t n = c.r->jump.imax;
      EXPECT_NEAR(D_l, dense_solution_density(c, move.k, n), 1e-8 * (1.0 + std::fabs(D_l)));
      EXPECT_NEAR(D_s, dense_solution_density(c, move.k, n - 1), 1e-8 * (1.0 + std::fabs(D_s)));
      const std::vector<std::int32_t>* models[2] = {&c.r->jump.large_model, &c.r->jump.small_model};
      for (int side = 0; side < 2; ++side) {
        double dense_fit = 0, dense_ssq = 0;
        dense_data(c, *models[side], dense_fit, dense_ssq);
        EXPECT_NEAR(fit[side], dense_fit, 1e-9 * (1.0 + std::fabs(dense_fit)));
        EXPECT_NEAR(ssq[side], dense_ssq,
                    (GetParam().options.weights ? 1e-6 : 1e-10) * dense_ssq); // 32-bit roots
      }
    }
}

// A move up that is taken, and the move down from there before anything else changes: one ratio.
TEST_P(moved_model, finds_on_the_way_down_the_ratio_of_the_way_up) {
  const jump_case described(GetParam().options);
  for (const wanted_move& move : wanted_moves(described)) {
    if (move.down || (move.from == 1 && structure_is(described.m->RMAT(move.k), "PED"))) continue;
    proposed_case c(GetParam().options, move);
    jump_records records = jump_records_of(*c.r);
    convert_dimension(records);
    model_move(records);
    const double up = c.r->jump.log_ratio;
    take_move(records);
    zeph::jump_store& j = c.r->jump;
    j.large_model = c.r->state.ntr;
    j.new_model = j.small_model;
    j.jump_down = true;
    convert_dimension(records);
    model_move(records);
    EXPECT_NEAR(j.log_ratio, up, 1e-8 * (1.0 + std::fabs(up)))
        << "factor " << move.k << " from " << move.from;
  }
}

INSTANTIATE_TEST_SUITE_P(models, moved_model, ::testing::ValuesIn(moved_models()),
                         [](const auto& set) { return set.param.name; });

// Without inbreeding the new solutions' prior, their proposal (variance 1) and the Jacobian cancel:
// D_l = D_s + Q - jacobian. What is left comes from 32-bit products and constants.
TEST(model_move, cancels_prior_and_proposal_of_the_new_solutions_without_inbreeding) {
  for (const jump_factor& factor :
       {jump_factor{"I", 3, 12}, jump_factor{"PED", 3, 6}}) // animals 1 to 6 have none
    for (const wanted_move& move : {wanted_move{1, 2, false}, wanted_move{1, 3, true}}) {
      proposed_case c({{factor}, 3}, move);
      jump_records records = jump_records_of(*c.r);
      convert_dimension(records);
      model_move(records);
      std::istringstream solutions(c.r->jump.diagnostic.at(2));
      double round = 0, D_l = 0, D_s = 0, Q = 0, jacobian = 0, rest = 1;
      solutions >> round >> D_l >> D_s >> Q >> jacobian >> rest;
      EXPECT_NEAR(rest, 0.0, 1e-5) << factor.structure;
    }
}

TEST(model_move, reports_the_sums_of_squares_in_its_own_words) {
  proposed_case c({{{"I", 2, 12}}, 2}, {1, 1, false});
  jump_records records = jump_records_of(*c.r);
  convert_dimension(records);
  c.listing.str("");
  model_move(records);
  std::istringstream lines(c.text());
  std::string line;
  std::getline(lines, line);
  EXPECT_EQ(line.find("model           2           2  down  F Residual ssq for largest model without swap "),
            0U)
      << line;
  for (const std::string begin :
       {"Residual ssq for large model .............. ", "Residual ssq for small model without swap   ",
        "Residual ssq for small model .............. "}) {
    std::getline(lines, line);
    EXPECT_EQ(line.find(begin), 0U) << line;
  }
  EXPECT_FALSE(std::getline(lines, line));
}

TEST(model_move, has_the_proposal_of_a_standard_normal_when_all_normals_are_0) {
  proposed_case c({{{"I", 2, 12}}, 2}, {1, 1, false});
  jump_records records = jump_records_of(*c.r);
  convert_dimension(records);
  c.r->jump.prop_z.fill(0.0);
  model_move(records);
  std::istringstream solutions(c.r->jump.diagnostic.at(2));
  double round = 0, D_l = 0, D_s = 0, Q = 0;
  solutions >> round >> D_l >> D_s >> Q;
  EXPECT_NEAR(Q, -6.0 * std::log(2.0 * std::acos(-1.0)), 1e-12); // -N/2 ln 2 pi
}

TEST(model_move, has_a_flat_prior_of_the_matrix_without_degrees_of_freedom) {
  proposed_case c({{{"I", 2, 20}}, 2, 80, false, false, 1, 0}, {1, 1, false});
  jump_records records = jump_records_of(*c.r);
  convert_dimension(records);
  model_move(records);
  std::istringstream matrix(c.r->jump.diagnostic.at(3));
  double round = 0, A = 1, B = 0, B_less_C = 0, A_less_C = 0;
  matrix >> round >> A >> B >> B_less_C >> A_less_C;
  EXPECT_EQ(A, 0.0);
  EXPECT_NEAR(B - B_less_C, -A_less_C, 1e-9);
}

} // namespace
