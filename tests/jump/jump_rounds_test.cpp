#include "jump/jump_rounds.h"

#include "jump/model_moves.h"
#include "support/check.h"
#include "support/jump_case.h"
#include "support/run_state.h"

#include <cmath>
#include <set>

namespace {

using namespace zeph_test;

// The rows that one round leaves in zeinfo, as numbers; T is 1 and F 0.
struct told_round {
  std::vector<double> data, solutions, matrix, moves, round;
};

std::vector<double> numbers_of(const std::string& line) {
  std::istringstream words(line);
  std::vector<double> values;
  for (std::string word; words >> word;)
    values.push_back(word == "T" ? 1.0 : word == "F" ? 0.0 : std::strtod(word.c_str(), nullptr));
  return values;
}

std::vector<told_round> told_rounds(const std::string& zeinfo) {
  std::vector<std::vector<double>> rows;
  std::istringstream lines(zeinfo);
  for (std::string line; std::getline(lines, line);) rows.push_back(numbers_of(line));
  std::vector<told_round> rounds;
  EXPECT_EQ(rows.size() % 6, 0U);
  for (std::size_t i = 0; i + 6 <= rows.size(); i += 6) {
    EXPECT_TRUE(rows[i].empty()); // a blank line ahead
    rounds.push_back({rows[i + 1], rows[i + 2], rows[i + 3], rows[i + 4], rows[i + 5]});
  }
  return rounds;
}

// The ratio of the move from the small to the large model, from the rows alone.
double assembled(const told_round& t) {
  const double ssq_l = t.data.at(1), ssq_s = t.data.at(2), fit_l = t.data.at(3), fit_s = t.data.at(4);
  const double D_l = t.solutions.at(1), D_s = t.solutions.at(2), Q = t.solutions.at(3),
               jacobian = t.solutions.at(4);
  const double A = t.matrix.at(1), A_less_C = t.matrix.at(4);
  EXPECT_NEAR(t.data.at(5), 0.5 * (ssq_s + fit_s - ssq_l - fit_l), 1e-9);
  EXPECT_NEAR(t.solutions.at(5), D_l - (D_s + Q) + jacobian, 1e-9);
  EXPECT_NEAR(t.matrix.at(3), t.matrix.at(2) - (A - A_less_C), 1e-9); // B - C
  return t.moves.at(1) - t.moves.at(2) + jacobian + (D_l - D_s) + A_less_C - Q +
         0.5 * (fit_s - fit_l - ssq_l + ssq_s);
}

class jump_chain : public ::testing::TestWithParam<named_jump> {};

TEST_P(jump_chain, takes_in_every_round_the_ratio_that_its_rows_tell) {
  jump_case c(GetParam().options);
  const int code = c.go(c.lines(6, 5, 60, 2));
  const std::vector<told_round> rounds = told_rounds(c.directory.read("zeinfo"));
  if (c.directory.has("PEDFILE1")) { // ends at its first move down to one row
    EXPECT_EQ(code, 16);
    EXPECT_TRUE(c.says("Attempt to increase model to "));
    EXPECT_GE(rounds.size(), 1U);
  } else {
    ASSERT_EQ(code, 0) << c.text();
    ASSERT_EQ(rounds.size(), 60U);
  }
  const auto n = static_cast<std::size_t>(c.m->nramat + 1);
  std::vector<double> model(n, 1.0);
  model.back() = c.m->nt;
  for (std::size_t i = 0; i < rounds.size(); ++i) {
    const told_round& t = rounds[i];
    for (const auto* row : {&t.data, &t.solutions, &t.matrix, &t.moves, &t.round})
      EXPECT_EQ(row->at(0), static_cast<double>(6 + i));
    ASSERT_EQ(t.round.size(), 1 + 2 * n + 6);
    const std::vector<double> cur(t.round.begin() + 1, t.round.begin() + 1 + static_cast<long>(n));
    const std::vector<double> proposed(t.round.begin() + 1 + static_cast<long>(n),
                                       t.round.begin() + 1 + 2 * static_cast<long>(n));
    EXPECT_EQ(cur, model);
    const double* rest = t.round.data() + 1 + 2 * n; // p_up, p_down, jump_down, log_ratio, log_u, accepted
    const bool down = rest[2] != 0.0;
    const double ratio = assembled(t);
    EXPECT_NEAR(t.moves.at(3), ratio, 1e-9 * (1.0 + std::fabs(ratio)));
    EXPECT_NEAR(rest[3], down ? -ratio : ratio, 1e-9 * (1.0 + std::fabs(ratio)));
    EXPECT_EQ(rest[5] != 0.0, std::min(0.0, rest[3]) > rest[4]);
    // one factor moves by one, and the probabilities are those of its dimension
    std::int32_t moved = 0;
    for (std::size_t k = 0; k < n; ++k) {
      if (cur[k] == proposed[k]) continue;
      ++moved;
      EXPECT_EQ(proposed[k] - cur[k], down ? -1.0 : 1.0);
      const double high = c.m->RMAT(static_cast<std::int64_t>(k + 1)).n_rc;
      const double up = cur[k] == high ? 0.0 : cur[k] == 1.0 ? 1.0 : 0.5;
      EXPECT_EQ(rest[0], up);
      EXPECT_EQ(rest[1], 1.0 - up);
      const double m_s = std::min(cur[k], proposed[k]), m_l = m_s + 1.0;
      EXPECT_NEAR(t.moves.at(1), m_s == 1.0 ? 0.0 : std::log(0.5), 1e-15);
      EXPECT_NEAR(t.moves.at(2), m_l == high ? 0.0 : std::log(0.5), 1e-15);
    }
    EXPECT_EQ(moved, 1);
    if (rest[5] != 0.0) model = proposed;
  }
}

std::vector<named_jump> chain_models() {
  std::vector<named_jump> models = jump_models();
  models.push_back({"pedigree2", {{{"PED", 2, 14}}, 2}});
  models.push_back({"pedigree3", {{{"PED", 3, 14}}, 3}});
  models.push_back({"pedigree4", {{{"PED", 4, 14}}, 4}});
  return models;
}

INSTANTIATE_TEST_SUITE_P(models, jump_chain, ::testing::ValuesIn(chain_models()),
                         [](const auto& set) { return set.param.name; });

// Two factors of several rows and one that never moves.
jump_options three_factors() { return {{{"I", 1, 6}, {"I", 2, 8}, {"I", 3, 8}}, 3}; }

TEST(propose_move, chooses_among_the_factors_of_two_rows_and_more_alike) {
  jump_case c(three_factors());
  c.start_moves(c.lines(6, 0, 1, 1));
  jump_records records = jump_records_of(*c.r);
  int chosen[4] = {};
  for (int i = 0; i < 4000; ++i) {
    propose_move(records);
    ++chosen[c.r->jump.jump_k];
    EXPECT_FALSE(c.r->jump.jump_down); // all are at one row
    EXPECT_EQ(c.r->jump.p_up, 1.0);
    EXPECT_EQ(c.r->jump.p_down, 0.0);
  }
  EXPECT_EQ(chosen[1], 0);
  EXPECT_NEAR(chosen[2], 2000, 3.89 * std::sqrt(1000.0)); // probability 1e-4 over all seeds
}

TEST(propose_move, turns_at_the_ends_and_goes_either_way_between_them) {
  jump_case c({{{"I", 3, 8}}, 3});
  c.start_moves(c.lines(6, 0, 1, 1));
  jump_records records = jump_records_of(*c.r);
  int down[4] = {};
  for (std::int32_t at = 1; at <= 3; ++at) {
    c.set_model({at});
    for (int i = 0; i < 2000; ++i) {
      propose_move(records);
      const zeph::jump_store& j = c.r->jump;
      down[at] += j.jump_down;
      const std::int32_t to = at + j.jump_dir;
      EXPECT_EQ(j.jump_dir, j.jump_down ? -1 : 1);
      EXPECT_EQ(j.new_model, (std::vector<std::int32_t>{to, 3}));
      EXPECT_EQ(j.small_model[0], std::min(at, to));
      EXPECT_EQ(j.large_model[0], std::max(at, to));
      EXPECT_EQ(j.imax, std::max(at, to));
      EXPECT_EQ(c.r->state.ntr, (std::vector<std::int32_t>{at, 3}));
    }
  }
  EXPECT_EQ(down[1], 0);
  EXPECT_NEAR(down[2], 1000, 3.89 * std::sqrt(500.0));
  EXPECT_EQ(down[3], 2000);
}

TEST(propose_move, draws_the_factor_until_it_can_move_and_then_the_direction) {
  jump_case c(three_factors());
  c.start_moves(c.lines(6, 0, 1, 1));
  jump_records records = jump_records_of(*c.r);
  for (int i = 0; i < 50; ++i) {
    marsaglia_source twin = c.r->sources.marsaglia;
    propose_move(records);
    std::int32_t k = 0;
    do k = static_cast<std::int32_t>(std::ceil(RANMAR(twin) * 3));
    while (k == 1);
    EXPECT_EQ(c.r->jump.jump_k, k);
    RANMAR(twin);
    EXPECT_EQ(RANMAR(twin), [source = c.r->sources.marsaglia]() mutable { return RANMAR(source); }());
  }
}

TEST(convert_dimension, scales_the_proposal_by_the_start_matrix) {
  jump_case c({{{"I", 3, 8}}, 3});
  c.start_moves(c.lines(6, 0, 1, 1));
  c.set_model({2});
  c.r->asked.conv_coef = 0.5;
  c.scan();
  jump_records records = jump_records_of(*c.r);
  do propose_move(records);
  while (c.r->jump.jump_down);
  recompute_data_blocks(records);
  convert_dimension(records);
  const mat<double>& COV_MAT = c.r->model.RMAT(1).COV_MAT;
  for (std::int32_t i = 1; i <= 3; ++i)
    for (std::int32_t j = 1; j <= 3; ++j)
      EXPECT_EQ(c.r->jump.prop_scale(i, j), 10 * COV_MAT(i, j) * (i == 3 ? 0.5 : 1.0) * (j == 3 ? 0.5 : 1.0));
  const double* drawn =
      c.r->sampler.sscp.unchecked_col(1); // the block that stays is that of the round's draw
  EXPECT_EQ(c.r->jump.cov_new(1, 1), drawn[0]);
  EXPECT_EQ(c.r->jump.cov_new(1, 2), drawn[1]);
  EXPECT_EQ(c.r->jump.cov_new(2, 2), drawn[2]);
  EXPECT_GT(c.r->jump.cov_new(3, 3), 0.0);
  EXPECT_EQ(c.r->jump.cov_new(3, 1), c.r->jump.cov_new(1, 3));
}

TEST(convert_dimension, stops_at_a_structure_that_it_does_not_know) {
  jump_case c({{{"I", 2, 8}}, 2});
  c.start_moves(c.lines(6, 0, 1, 1));
  c.scan();
  jump_records records = jump_records_of(*c.r);
  propose_move(records);
  c.r->model.RMAT(1).CV_STRUCT = "COR         ";
  c.listing.str("");
  try {
    convert_dimension(records);
    ADD_FAILURE() << "no stop";
  } catch (const run_stop& stop) {
    EXPECT_EQ(stop.exit_code, 16);
  }
  EXPECT_EQ(c.text(), "Unknown co-variance structure COR         \n\nZEPH terminates. \n");
}

// Records of a level times the start inverse of the residual, rows 1 to 3.
double block_element(const jump_case& c, std::int32_t level, std::int32_t i, std::int32_t j) {
  dense_matrix R(3);
  for (std::int32_t a = 1; a <= 3; ++a)
    for (std::int32_t b = 1; b <= 3; ++b) R(a, b) = a == b ? 2.0 : 0.3;
  double records = 0;
  for (const auto& row : c.integers) records += row[2] == level;
  return records * dense_inverse(R).inverse(i, j);
}

TEST(recompute_data_blocks, copies_the_blocks_without_the_prior) {
  jump_case c({{{"I", 3, 8}}, 3});
  c.start_moves(c.lines(6, 0, 1, 1));
  jump_records records = jump_records_of(*c.r);
  propose_move(records);
  EXPECT_TRUE(c.r->jump.blocks_stay);
  recompute_data_blocks(records);
  EXPECT_EQ(c.text(), "diagonals recomputed\n");
  EXPECT_EQ(c.r->layout.NGR(c.r->layout.ngroups, 2), 1); // the model in force
  const mat<double>& CDI = c.r->layout.CDI_of(c.r->layout.ngroups);
  for (std::int32_t l = 1; l <= 8; ++l)
    for (std::int32_t i = 1, at = 1; i <= 3; ++i)
      for (std::int32_t j = 1; j <= i; ++j, ++at) EXPECT_NEAR(CDI(at, l), block_element(c, l, i, j), 1e-12);
}

TEST(recompute_data_blocks, makes_changing_blocks_again_for_the_large_model) {
  jump_case c({{{"I", 3, 8}}, 3});
  c.start_moves(c.lines(6, 0, 1, 1));
  c.r->jump.blocks_stay = false;
  jump_records records = jump_records_of(*c.r);
  propose_move(records);
  const mat<double>& CDI = c.r->layout.CDI_of(c.r->layout.ngroups);
  for (const double factor : {1.0, 2.0}) {
    for (double& z : c.r->design.ZD_M) z *= factor;
    recompute_data_blocks(records);
    for (std::int32_t l = 1; l <= 8; ++l) {
      EXPECT_NEAR(CDI(3, l), factor * factor * block_element(c, l, 2, 2), 1e-12);
      EXPECT_EQ(CDI(4, l), 0.0); // row 3 is not in the large model
    }
  }
}

TEST(decide_move, takes_an_infinite_ratio_and_leaves_one_that_is_no_number) {
  jump_case c({{{"I", 2, 8}}, 2});
  c.start_moves(c.lines(6, 0, 1, 1));
  jump_records records = jump_records_of(*c.r);
  const double infinity = std::numeric_limits<double>::infinity();
  const auto decided = [&](double ratio, bool down) {
    c.r->jump.log_ratio = ratio;
    c.r->jump.jump_down = down;
    decide_move(records);
    return c.r->jump.accepted;
  };
  EXPECT_TRUE(decided(infinity, false));
  EXPECT_EQ(c.r->jump.log_alpha, 0.0);
  EXPECT_FALSE(decided(infinity, true)); // the sign is that of the move
  EXPECT_TRUE(decided(-infinity, true));
  EXPECT_FALSE(decided(std::nan(""), false));
  EXPECT_FALSE(decided(std::nan(""), true));
  EXPECT_TRUE(decided(0.0, false)); // log u is below 0
}

// GIF = inverse of the new matrix; down: of its leading block, not the leading block of the inverse
TEST(take_move, makes_the_new_model_the_one_in_force) {
  for (const bool down : {false, true}) {
    jump_case c({{{"I", 3, 8}}, 3});
    c.start_moves(c.lines(6, 0, 1, 1));
    c.set_model({2});
    c.scan();
    jump_records records = jump_records_of(*c.r);
    do propose_move(records);
    while (c.r->jump.jump_down != down);
    recompute_data_blocks(records);
    convert_dimension(records);
    take_move(records);
    const std::int32_t n = down ? 1 : 3;
    EXPECT_EQ(c.r->state.ntr, (std::vector<std::int32_t>{n, 3}));
    EXPECT_EQ(c.r->layout.NGR(c.r->layout.ngroups, 2), n);
    dense_matrix G(n);
    for (std::int32_t i = 1; i <= n; ++i)
      for (std::int32_t j = 1; j <= n; ++j) G(i, j) = c.r->jump.cov_new(i, j);
    const dense_matrix inverse = dense_inverse(G).inverse;
    std::int32_t packed = 0;
    for (std::int32_t i = 1; i <= n; ++i)
      for (std::int32_t j = 1; j <= i; ++j) {
        EXPECT_NEAR(c.r->sampler.GIF(i, j, 1), inverse(i, j), 1e-10);
        EXPECT_EQ(c.r->sampler.GIF(j, i, 1), c.r->sampler.GIF(i, j, 1));
        EXPECT_EQ(c.r->sampler.sscp(++packed, 1), G(i, j));
      }
    c.scan(); // the chain continues
  }
}

TEST(jump_rounds, reports_the_round_and_runs_from_burn_in_on) {
  jump_case c({{{"I", 2, 8}}, 2});
  c.start_moves(c.lines(6, 4, 3, 1));
  run_jump_rounds(*c.r);
  EXPECT_EQ(c.r->state.iround, 8); // one past the last round
  EXPECT_EQ(c.r->counts.nsamples, 3.0);
  EXPECT_EQ(c.text().find("\nStarting round            5\n"), 0U);
  EXPECT_NE(c.text().find("\nStarting round            7\n"), std::string::npos);
  EXPECT_EQ(told_rounds(c.directory.read("zeinfo")).size(), 3U); // flushed: the file is still open
}

TEST(jump_rounds, is_silent_about_the_round_below_test_level_0) {
  jump_case c({{{"I", 2, 8}}, 2});
  c.start_moves(c.lines(6, 0, 2, 1, -1));
  run_jump_rounds(*c.r);
  EXPECT_EQ(c.text().find("Starting round"), std::string::npos);
}

TEST(jump_rounds, ends_at_the_stop_signal_in_a_round_of_the_interval) {
  jump_case c({{{"I", 2, 8}}, 2});
  c.start_moves(c.lines(6, 2, 20, 3));
  c.directory.write("STOP", "");
  run_jump_rounds(*c.r);
  EXPECT_EQ(c.r->state.iround, 5);                               // 2 + 3
  EXPECT_EQ(told_rounds(c.directory.read("zeinfo")).size(), 3U); // the round was completed
  const std::string line = "Stop signal received. Processing ends graceously\n";
  EXPECT_NE(c.text().find(line + line + line), std::string::npos);
}

TEST(jump_rounds, takes_an_interval_of_0_as_1) {
  jump_case c({{{"I", 2, 8}}, 2});
  c.start_moves(c.lines(6, 2, 20, 0));
  c.directory.write("STOP", "");
  run_jump_rounds(*c.r);
  EXPECT_EQ(c.r->state.iround, 3);
}

TEST(jump_rounds, moves_a_factor_of_two_rows_between_the_only_two_models) {
  jump_case c({{{"I", 2, 12}}, 2});
  ASSERT_EQ(c.go(c.lines(6, 0, 300, 10)), 0);
  int taken = 0;
  for (const told_round& t : told_rounds(c.directory.read("zeinfo"))) {
    const double* rest = t.round.data() + 5;
    EXPECT_TRUE((rest[0] == 1.0 && rest[1] == 0.0) || (rest[0] == 0.0 && rest[1] == 1.0));
    taken += rest[5] != 0.0;
  }
  EXPECT_GT(taken, 3);
}

TEST(jump_rounds, run_with_all_the_prints_of_the_plain_body) {
  jump_case c({{{"I", 2, 8}, {"I", 3, 6}}, 3, 20});
  EXPECT_EQ(c.go(c.lines(6, 1, 8, 1, 3)), 0);
  EXPECT_TRUE(c.says("Starting on group"));
  EXPECT_EQ(told_rounds(c.directory.read("zeinfo")).size(), 8U);
}

// A pedigree factor that grew can't come back to one row.
TEST(jump_rounds, end_at_a_pedigree_factors_move_down_to_one_row) {
  jump_case c({{{"PED", 2, 14}}, 2});
  EXPECT_EQ(c.go(c.lines(6, 0, 500, 1)), 16);
  const std::string end =
      "Start on sampanim\nAttempt to increase model to            1 for effect            1\n";
  EXPECT_EQ(c.text().substr(c.text().size() - end.size()), end);
}

// Plain and fast scan bodies make the same rounds of moves.
TEST(jump_rounds, are_the_same_with_either_scan_body) {
  std::vector<named_jump> models = jump_models();
  models.push_back({"curve5", {{{"I", 5, 12, true}}, 1, 120}});
  for (const named_jump& model : models) {
    jump_case plain(model.options), fast(model.options);
    for (jump_case* c : {&plain, &fast}) {
      c->start_moves(c->lines(6, 0, 40, 2));
      if (c == &plain) c->r->work.body = scan_body::plain;
      run_jump_rounds(*c->r);
    }
    ASSERT_EQ(fast.r->work.body, scan_body::fast);
    EXPECT_EQ(plain.r->state.ntr, fast.r->state.ntr) << model.name;
    double apart = 0;
    for (std::int64_t e = 1; e <= plain.r->layout.neq; ++e)
      apart = std::max(apart, std::fabs(plain.r->sampler.sol(e) - fast.r->sampler.sol(e)));
    EXPECT_LT(apart, 1e-5) << model.name; // rounding of 40 rounds; imputed residuals are 32-bit
  }
}

// A pedigree factor of order 5 in models of fewer rows: blocks of order up to 4 are written out.
TEST(scan_bodies, agree_in_every_smaller_model_of_a_large_pedigree_factor) {
  const jump_options options = {{{"PED", 5, 14, true}}, 1, 120};
  for (std::int32_t dimension = 1; dimension <= 5; ++dimension) {
    jump_case plain(options), fast(options);
    for (jump_case* c : {&plain, &fast}) {
      c->start_moves(c->lines(6, 0, 9, 1));
      if (c == &plain) c->r->work.body = scan_body::plain;
      c->set_model({dimension});
      for (int round = 1; round <= 5; ++round) c->scan();
    }
    ASSERT_EQ(fast.r->work.body, scan_body::fast);
    for (std::int64_t e = 1; e <= plain.r->layout.neq; ++e)
      EXPECT_NEAR(plain.r->sampler.sol(e), fast.r->sampler.sol(e), 1e-8) << dimension;
    for (std::int64_t i = 0; i < plain.r->sampler.sscp.size(); ++i)
      EXPECT_NEAR(plain.r->sampler.sscp.data()[i], fast.r->sampler.sscp.data()[i], 1e-7) << dimension;
  }
}

// Two identity factors of orders 2 and 3; run under the sanitizers too.
TEST(jump_rounds, make_2000_rounds) {
  jump_case c({{{"I", 2, 10}, {"I", 3, 8}}, 3});
  ASSERT_EQ(c.go(c.lines(6, 10, 2000, 10)), 0);
  EXPECT_EQ(told_rounds(c.directory.read("zeinfo")).size(), 2000U);
}

} // namespace
