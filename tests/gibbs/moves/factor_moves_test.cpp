// The move of a random factor. Limit of |z| in tests of invariance: 4.5 (error probability 7e-6 a function).
#include "gibbs/moves/factor_moves.h"

#include "gibbs/moves/moved_case.h"
#include "gibbs/scan/scan_groups.h"
#include "numerics/normal_draws.h"

#include <array>

namespace zeph_test {
namespace {

constexpr double limit = 4.5;

// ---- H and K: from the draws in line, from larger blocks, from the records ----

// A round of the body as far as the move of factor 1; the sums of it against full matrices, relative to the
// largest element.
template <class Body> void expect_dense_sums(const moved_options& with, const std::string& what) {
  moved_case c(with);
  scan_records r = c.records();
  if (std::is_same_v<Body, record_pass>) c.work.body = scan_body::plain;
  ASSERT_EQ(body_of(r, c.f.asked) == scan_body::plain, (std::is_same_v<Body, record_pass>)) << what;
  Body body;
  solver_sums sums;
  c.f.state.iround = 8; // a round in which all orders up to 6 move
  body.begin_round(r, c.f.asked, c.f.state, scan_stage::all);
  for (std::int32_t g = 1; g <= c.layout.ngroups; ++g) {
    body.enter_group(r, c.f.asked, c.f.state, scan_stage::all, g);
    body.solve_group(r, c.f.asked, c.f.state, c.f.counts, scan_stage::all, g, sums);
    ASSERT_TRUE(factor_moves_now(r, c.f.state, g)) << what;
    body.sum_factor(r, c.f.asked, g);
    const dense_sums full(c, g);
    const std::int32_t p = full.p;
    double size_H = 1e-300, size_K = 1e-300;
    for (std::int32_t i = 1; i <= p * p; ++i) {
      size_H = std::max(size_H, std::fabs(full.H(i)));
      size_K = std::max(size_K, full.K(i, i));
    }
    for (std::int32_t i = 1; i <= p * p; ++i) {
      EXPECT_NEAR(c.moved().sums.H((i - 1) / p + 1, (i - 1) % p + 1), full.H(i), 1e-10 * (size_H + size_K))
          << what << " factor " << g << " H " << i;
      for (std::int32_t j = 1; j <= p * p; ++j)
        EXPECT_NEAR(c.moved().sums.K(i, j), full.K(i, j), 1e-10 * size_K)
            << what << " factor " << g << " K " << i << ' ' << j;
    }
    if (decide_factor_move(r, c.f.asked, c.f.state, g)) body.take_factor(r, c.f.state, g);
    body.leave_group(r, g);
  }
}

void expect_dense_sums_in_both(const moved_options& with, const std::string& what) {
  expect_dense_sums<residual_body>(with, what + ", fast");
  expect_dense_sums<record_pass>(with, what + ", plain");
}

TEST(factor_sums, equal_those_of_full_matrices_for_orders_1_to_6) {
  for (std::int32_t order = 1; order <= 6; ++order)
    for (const bool meet : {false, true}) {
      moved_options with;
      with.order = order;
      with.meet = meet && order > 1;
      with.second = 3;
      expect_dense_sums_in_both(with, "order " + std::to_string(order) + (meet ? " meeting" : ""));
    }
}

TEST(factor_sums, take_weights_residual_groups_and_missing_traits) {
  for (const std::int32_t order : {2, 3, 6})
    for (int bits = 1; bits < 16; ++bits) {
      moved_options with;
      with.order = order;
      with.weights = bits & 1;
      with.groups = bits & 2;
      with.missing = bits & 4;
      with.meet = bits & 8;
      expect_dense_sums_in_both(with, "order " + std::to_string(order) + " case " + std::to_string(bits));
    }
}

// Levels with one block: their sums are taken by class.
TEST(factor_sums, of_levels_that_share_classes) {
  for (const std::int32_t order : {1, 2, 3, 4})
    for (const std::int32_t covered : {0, 18}) { // the other levels have no records
      moved_options with;
      with.order = order;
      with.alike = true;
      with.levels = 36;
      with.records = 72;
      with.covered = covered;
      moved_case c(with);
      scan_records r = c.records();
      ASSERT_EQ(body_of(r, c.f.asked), scan_body::fast);
      ASSERT_EQ(c.work.fast.groups[0].class_diag.size(), covered > 0 ? 2 : 1);
      expect_dense_sums_in_both(with, "classes, order " + std::to_string(order));
    }
}

TEST(factor_sums, follow_coefficients_that_change) {
  for (const std::int32_t order : {1, 3, 5}) {
    moved_options with;
    with.order = order;
    with.changing = true;
    with.weights = true;
    expect_dense_sums_in_both(with, "changing, order " + std::to_string(order));
  }
}

TEST(factor_sums, of_related_levels) {
  for (const std::int32_t order : {1, 2, 3, 4, 5}) {
    moved_options with;
    with.structure = "PED";
    with.order = order;
    with.levels = 11;
    with.covered = 9;
    with.second = 4;
    expect_dense_sums_in_both(with, "pedigree, order " + std::to_string(order));
  }
}

// Smaller models: 2 of 3 rows, 2 and 5 of 6.
TEST(factor_sums, of_the_rows_in_force) {
  for (const auto& [order, rows] : {std::pair{3, 2}, std::pair{6, 2}, std::pair{6, 5}}) {
    for (const bool plain : {false, true}) {
      moved_options with;
      with.order = order;
      with.type = 5;
      moved_case c(with);
      c.layout.NGR(1, 2) = c.f.state.ntr[0] = rows;
      c.set_state();
      scan_records r = c.records();
      if (plain) c.work.body = scan_body::plain;
      body_of(r, c.f.asked);
      const auto round = [&](auto body) {
        solver_sums sums;
        c.f.state.iround = 2;
        body.begin_round(r, c.f.asked, c.f.state, scan_stage::all);
        body.enter_group(r, c.f.asked, c.f.state, scan_stage::all, 1);
        body.solve_group(r, c.f.asked, c.f.state, c.f.counts, scan_stage::all, 1, sums);
        body.sum_factor(r, c.f.asked, 1);
      };
      if (plain)
        round(record_pass());
      else
        round(residual_body());
      const dense_sums full(c, 1);
      for (std::int32_t i = 1; i <= rows * rows; ++i)
        for (std::int32_t j = 1; j <= rows * rows; ++j)
          EXPECT_NEAR(c.moved().sums.K(i, j), full.K(i, j), 1e-9) << order << ' ' << rows << ' ' << plain;
    }
  }
}

// ---- what an accepted move changes ----

// U -> U A', GIF -> A'^-1 GIF A^-1, S -> A S A', and the residuals of the next group are those of the moved
// solutions.
TEST(factor_moves, change_solutions_matrix_squares_and_residuals_together) {
  for (const std::int32_t order : {1, 2, 4, 6})
    for (const bool meet : {false, true}) {
      moved_options with;
      with.order = order;
      with.meet = meet && order > 1;
      with.second = 3;
      with.structure = "PED";
      with.levels = 9;
      moved_case c(with);
      scan_records r = c.records();
      ASSERT_EQ(body_of(r, c.f.asked), scan_body::fast);
      residual_body body;
      solver_sums sums;
      c.f.state.iround = 2;
      body.begin_round(r, c.f.asked, c.f.state, scan_stage::all);
      body.enter_group(r, c.f.asked, c.f.state, scan_stage::all, 1);
      body.solve_group(r, c.f.asked, c.f.state, c.f.counts, scan_stage::all, 1, sums);
      body.sum_factor(r, c.f.asked, 1);
      const std::vector<double> before(c.s.sol.begin(), c.s.sol.end());
      dense_matrix P(order), Ai(order), moved(order);
      for (std::int32_t i = 1; i <= order; ++i)
        for (std::int32_t j = 1; j <= order; ++j) {
          P(i, j) = c.s.GIF(i, j, 1);
          Ai(i, j) = c.moved().A(i, j) = (i == j ? 1.3 : 0.0) + 0.1 * i - 0.05 * j;
        }
      Ai = dense_inverse(Ai).inverse;
      for (std::int32_t i = 1; i <= order; ++i)
        for (std::int32_t j = 1; j <= order; ++j) c.moved().A_inverse(i, j) = Ai(i, j);
      body.take_factor(r, c.f.state, 1);
      for (std::int32_t l = 0; l < with.levels; ++l)
        for (std::int32_t i = 1; i <= order; ++i) {
          double u = 0;
          for (std::int32_t j = 1; j <= order; ++j)
            u += c.moved().A(i, j) * before[static_cast<std::size_t>(l * order + j - 1)];
          EXPECT_NEAR(c.s.sol(l * order + i), u, 1e-12);
        }
      for (std::int32_t i = 1; i <= order; ++i)
        for (std::int32_t j = 1; j <= order; ++j) {
          double x = 0;
          for (std::int32_t v = 1; v <= order; ++v)
            for (std::int32_t w = 1; w <= order; ++w) x += Ai(v, i) * P(v, w) * Ai(w, j);
          EXPECT_NEAR(c.s.GIF(i, j, 1), x, 1e-10 * (1 + std::fabs(x)));
        }
      body.restrict_group(r, 1);
      body.leave_group(r, 1);
      body.enter_group(r, c.f.asked, c.f.state, scan_stage::all, 2);
      for (std::int32_t rec = 1; rec <= with.records; ++rec)
        for (std::int32_t t = 1; t <= 2; ++t)
          EXPECT_NEAR(c.work.fast.E(rec, t), static_cast<double>(c.design.Y_M(t, rec)) - c.fitted(rec, t),
                      1e-11);
      // U'A^-1 U of the moved solutions
      c.s.sscp.fill(0.0);
      sscp_random(c.m, c.relations, c.s, c.work.matrices, c.work.fast, c.run.report, c.f.state);
      const dense_matrix inverse = dense_inverse(c.A[0]).inverse;
      for (std::int32_t i = 1, k = 1; i <= order; ++i)
        for (std::int32_t j = 1; j <= i; ++j, ++k) {
          double x = 0;
          for (std::int32_t l = 1; l <= with.levels; ++l)
            for (std::int32_t h = 1; h <= with.levels; ++h)
              x += c.s.sol((l - 1) * order + i) * inverse(l, h) * c.s.sol((h - 1) * order + j);
          EXPECT_NEAR(c.s.sscp(k, 1), x, 1e-10 * (1 + std::fabs(x)));
        }
    }
}

// ---- when ----

// max(1, p^2/18 rounded up): 25/18, 36/18, 49/18, 144/18.
TEST(factor_moves, are_made_in_every_round_up_to_4_rows_and_in_each_p_p_18th_beyond) {
  for (const auto& [p, every] : {std::pair{1, 1}, std::pair{4, 1}, std::pair{5, 2}, std::pair{6, 2},
                                 std::pair{7, 3}, std::pair{12, 8}})
    for (std::int64_t round = 1; round <= 24; ++round)
      EXPECT_EQ(moves_in_round(p, round), round % every == 0) << p << ' ' << round;
}

TEST(factor_moves, take_p_squared_normals_and_a_uniform_in_their_rounds_only) {
  moved_options with;
  with.order = 6;
  moved_case c(with), still(with);
  still.move_of(1).moves = false;
  for (moved_case* one : {&c, &still}) one->f.state.gropd(1) = 1;
  c.rounds(1);
  still.rounds(1);
  EXPECT_EQ(RANMAR(c.sources.marsaglia), RANMAR(still.sources.marsaglia)); // round 1: no move
  EXPECT_EQ(c.move_of(1).count.tried[0], 0);
  moved_case d(with), other(with);
  other.move_of(1).moves = false;
  d.rounds(2);
  other.rounds(2);
  EXPECT_EQ(d.move_of(1).count.tried[0], 1);
  marsaglia_source& source = other.sources.marsaglia;
  for (int i = 0; i < 36; ++i) ranmar_snorm(source);
  RANMAR(source);
  EXPECT_EQ(RANMAR(d.sources.marsaglia), RANMAR(source));
}

// A factor whose levels have no records has K = 0.
TEST(factor_moves, draw_and_count_nothing_where_K_has_no_safe_factor) {
  moved_case c({});
  scan_records r = c.records();
  c.work.body = scan_body::plain;
  marsaglia_source same = c.sources.marsaglia;
  c.moved().sums.H.fill(0.0);
  c.moved().sums.K.fill(0.0);
  for (std::int32_t i = 1; i <= 4; ++i) c.moved().sums.K(i, i) = 1.0;
  c.moved().sums.K(4, 3) = c.moved().sums.K(3, 4) = 1.0; // a pivot of 0
  EXPECT_FALSE(decide_factor_move(r, c.f.asked, c.f.state, 1));
  EXPECT_EQ(c.move_of(1).count.tried[0] + c.move_of(1).count.tried[1], 0);
  EXPECT_EQ(RANMAR(c.sources.marsaglia), RANMAR(same));
}

// A matrix that is not drawn, and a group that keeps its solutions, do not move.
TEST(factor_moves, leave_factors_alone_that_keep_their_solutions) {
  moved_case c({});
  scan_records r = c.records();
  c.f.state.iround = 1;
  EXPECT_TRUE(factor_moves_now(r, c.f.state, 1));
  c.f.state.gropd(1) = 0;
  EXPECT_FALSE(factor_moves_now(r, c.f.state, 1));
}

// ---- invariance: the move alone ----

// H and K from the records, then the move: nothing else of a round. wrong is added to the exponent.
double z_of_move_alone(const moved_options& with, int replicates, std::int32_t wrong, std::int32_t rows = 0) {
  moved_case c(with);
  if (rows > 0) c.layout.NGR(1, 2) = c.f.state.ntr[0] = rows;
  c.work.body = scan_body::plain;
  c.f.asked.DDF(1) -= wrong;
  scan_records r = c.records();
  record_pass body;
  c.f.state.iround = 2;
  const double z = c.z_of(replicates, [&] {
    for (int n = 0; n < 4; ++n) move_factor(body, r, c.f.asked, c.f.state, 1);
  });
  const move_count& count = c.move_of(1).count;
  EXPECT_GT(count.accepted[0], count.tried[0] / 20);
  return z;
}

moved_options small_case(const std::string& structure) {
  moved_options with;
  with.structure = structure;
  with.records = 16;
  return with;
}

TEST(factor_moves, keep_the_prior_alone) {
  EXPECT_LT(z_of_move_alone(small_case("I"), 4000, 0), limit);
  EXPECT_GT(z_of_move_alone(small_case("I"), 4000, 2), limit);
}

TEST(factor_moves, keep_the_prior_alone_of_an_inbred_pedigree) {
  moved_options with = small_case("PED");
  with.weights = with.missing = with.groups = true;
  EXPECT_LT(z_of_move_alone(with, 2000, 0), limit);
}

TEST(factor_moves, keep_the_prior_alone_of_meeting_levels) {
  moved_options with = small_case("I");
  with.meet = true;
  EXPECT_LT(z_of_move_alone(with, 2000, 0), limit);
  EXPECT_GT(z_of_move_alone(with, 2000, 2), limit);
}

// Two of three rows, with the prior of the whole matrix.
TEST(factor_moves, keep_the_prior_alone_of_a_smaller_model) {
  moved_options with = small_case("I");
  with.order = 3;
  with.type = 6;
  EXPECT_LT(z_of_move_alone(with, 2000, 0, 2), limit);
  EXPECT_GT(z_of_move_alone(with, 2000, 2, 2), limit);
}

// ---- whole rounds, with over-relaxed draws ----

double z_of_rounds(const moved_options& with, int replicates) {
  moved_case c(with);
  return c.z_of(replicates, [&] { c.rounds(3); });
}

TEST(factor_moves, keep_the_prior_in_rounds_of_the_chain) {
  moved_options with = small_case("I");
  EXPECT_LT(z_of_rounds(with, 1500), limit);
  with.structure = "PED";
  with.second = 3;
  with.missing = with.weights = true;
  EXPECT_LT(z_of_rounds(with, 1500), limit);
}

TEST(factor_moves, keep_the_prior_in_rounds_with_meeting_levels) {
  moved_options with = small_case("I");
  with.meet = true;
  EXPECT_LT(z_of_rounds(with, 1500), limit);
}

// ---- both bodies ----

void expect_same_rounds(const moved_options& with, const std::string& what) {
  moved_case fast(with), plain(with);
  plain.work.body = scan_body::plain;
  for (int round = 1; round <= 5; ++round) {
    fast.f.state.iround = plain.f.state.iround = round;
    scan_records a = fast.records(), b = plain.records();
    GIBSCAN(a, fast.f.asked, fast.f.state, fast.f.counts, fast.files);
    GIBSCAN(b, plain.f.asked, plain.f.state, plain.f.counts, plain.files);
    ASSERT_EQ(fast.work.body, scan_body::fast);
    double size = 0;
    for (const double x : plain.s.sol) size = std::max(size, std::fabs(x));
    for (std::int64_t i = 1; i <= plain.s.sol.size(); ++i)
      EXPECT_NEAR(fast.s.sol(i), plain.s.sol(i), 1e-9 * size) << what << " round " << round << " sol " << i;
    for (std::int32_t k = 1; k <= plain.m.nramat; ++k) {
      EXPECT_EQ(fast.move_of(k).count.accepted[0], plain.move_of(k).count.accepted[0]) << what;
      for (std::int32_t i = 1; i <= plain.rows(k); ++i)
        for (std::int32_t j = 1; j <= plain.rows(k); ++j)
          EXPECT_NEAR(fast.s.GIF(i, j, k), plain.s.GIF(i, j, k), 1e-8 * std::fabs(plain.s.GIF(i, i, k)))
              << what << " round " << round;
    }
  }
}

TEST(factor_moves, make_the_same_rounds_in_both_bodies) {
  for (const std::int32_t type : {2, 3, 4})
    for (const bool exact : {false, true})
      for (int bits = 0; bits < 16; ++bits) {
        moved_options with;
        with.type = type;
        with.exact = exact;
        with.weights = bits & 1;
        with.groups = bits & 2;
        with.missing = bits & 4;
        with.meet = bits & 8;
        with.structure = "PED";
        with.levels = 9;
        with.second = 3;
        expect_same_rounds(with, "type " + std::to_string(type) + (exact ? " exact" : "") + " case " +
                                     std::to_string(bits));
      }
}

TEST(factor_moves, make_the_same_rounds_in_both_bodies_for_orders_1_to_6) {
  for (std::int32_t order = 1; order <= 6; ++order)
    for (const bool alike : {false, true}) {
      moved_options with;
      with.order = order;
      with.alike = alike;
      with.levels = 36;
      with.records = 108;
      expect_same_rounds(with, "order " + std::to_string(order));
    }
}

} // namespace
} // namespace zeph_test
