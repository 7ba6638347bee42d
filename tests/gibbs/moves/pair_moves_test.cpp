// The move of two factors on the same levels against dense algebra, and alone against the prior: state from
// the prior, the move applied with nothing else, and means of functions that must stay. Limit of |z| 4.5
// (error probability 7e-6 a function); a move with a wrong exponent fails it by far.
#include "gibbs/moves/pair_moves.h"

#include "gibbs/moves/moves.h"
#include "gibbs/moves/pair_setup.h"
#include "gibbs/prior_case.h"
#include "numerics/normal_draws.h"

#include <sstream>

namespace zeph_test {
namespace {

constexpr double limit = 4.5;

// r x c, elements from 0.
struct rect {
  std::size_t r = 0, c = 0;
  std::vector<double> x;
  rect(std::size_t rows = 0, std::size_t columns = 0) : r(rows), c(columns), x(rows * columns) {}
  double& operator()(std::size_t i, std::size_t j) { return x[i * c + j]; }
  double operator()(std::size_t i, std::size_t j) const { return x[i * c + j]; }
};
rect operator*(const rect& a, const rect& b) {
  rect y(a.r, b.c);
  for (std::size_t i = 0; i < a.r; ++i)
    for (std::size_t k = 0; k < a.c; ++k)
      for (std::size_t j = 0; j < b.c; ++j) y(i, j) += a(i, k) * b(k, j);
  return y;
}
rect plus(const rect& a, const rect& b, double times = 1.0) {
  rect y = a;
  for (std::size_t i = 0; i < y.x.size(); ++i) y.x[i] += times * b.x[i];
  return y;
}
rect transposed(const rect& a) {
  rect y(a.c, a.r);
  for (std::size_t i = 0; i < a.r; ++i)
    for (std::size_t j = 0; j < a.c; ++j) y(j, i) = a(i, j);
  return y;
}
rect unit_matrix(std::size_t n) {
  rect y(n, n);
  for (std::size_t i = 0; i < n; ++i) y(i, i) = 1.0;
  return y;
}
dense_matrix dense(const rect& a) { return dense_matrix(static_cast<std::int64_t>(a.r), a.x); }
rect from_dense(const dense_matrix& a) {
  rect y(static_cast<std::size_t>(a.n), static_cast<std::size_t>(a.n));
  y.x = a.cells;
  return y;
}
rect inverse(const rect& a) { return from_dense(dense_inverse(dense(a)).inverse); }
rect factor_of(const rect& a) {
  return from_dense(prior_case::factor(dense(a), static_cast<std::int32_t>(a.r)));
}
double trace(const rect& a) {
  double sum = 0;
  for (std::size_t i = 0; i < a.r; ++i) sum += a(i, i);
  return sum;
}

std::int32_t as_number(std::size_t i) { return static_cast<std::int32_t>(i); }

// Positive definite inverse relationships of n levels; not the identity.
rect inverse_relationship(std::size_t n, double neighbour) {
  rect a(n, n);
  for (std::size_t i = 0; i < n; ++i) a(i, i) = 1.5 + 0.1 * static_cast<double>(i);
  for (std::size_t i = 1; i < n; ++i) a(i, i - 1) = a(i - 1, i) = neighbour;
  a(n - 1, 1) = a(1, n - 1) = 0.3;
  return a;
}

struct pair_shape {
  std::string first = "I", second = "I"; // relationships
  std::int32_t p = 2;
};

// Factors 1 and 2 of order p on one trait, coefficients 1, x, x^2 ..; 8 and 10 levels, of which l and 7 - l
// are partners, l = 1..6, each with two records.
struct pair_case : prior_case {
  static constexpr std::int32_t levels[2] = {8, 10}, partners = 6;
  std::int32_t p;
  rect Ai[2], LA[2];
  std::vector<pair_move> pairs;

  explicit pair_case(const pair_shape& shape) : prior_case(description(shape), 3, false), p(shape.p) {
    const std::string names[2] = {shape.first, shape.second};
    for (std::int32_t k = 1; k <= 2; ++k) {
      const auto i = static_cast<std::size_t>(k - 1);
      const auto n = static_cast<std::size_t>(levels[i]);
      Ai[i] = names[i] == "I" ? unit_matrix(n) : inverse_relationship(n, k == 1 ? -0.6 : 0.4);
      LA[i] = factor_of(inverse(Ai[i]));
      if (names[i] != "I") write_relationship(k);
      f.asked.PDF(k) = p + 6;
      f.state.matopd(k) = 1;
      for (std::int32_t a = 1; a <= p; ++a)
        for (std::int32_t b = 1; b <= p; ++b)
          m.RMAT(k).COV_MAT(a, b) = a == b ? 0.4 + 0.2 * k : (k == 1 ? 0.15 : -0.1);
    }
    read_relationships(m, relations, run.report);
    for (std::int32_t r = 1; r <= design.nobs; ++r)
      for (std::int32_t k = 1; k <= 2; ++k)
        for (std::int32_t a = 1; a <= p; ++a) {
          const std::int32_t l = (r - 1) % partners + 1;
          entry(r, 1, layout.group_of_factor(k, 2), k == 1 ? l : 7 - l, a, std::pow(-1.0 + 0.2 * r, a - 1));
        }
    find_pairs(m, design, pairs, run.report);
    EXPECT_EQ(pairs.size(), 1U);
  }
  static described_model description(const pair_shape& shape) {
    described_model d;
    d.traits.resize(1);
    for (std::size_t k = 0; k < 2; ++k) {
      described_factor factor{k == 0 ? shape.first : shape.second, levels[k], shape.p, {}};
      for (std::int32_t a = 1; a <= shape.p; ++a) factor.contributions.push_back({1, 1 + as_number(k), a});
      d.factors.push_back(factor);
    }
    d.integers = 8;
    d.reals = 3;
    d.records = 2 * partners;
    d.residual = {1.0};
    return d;
  }
  void write_relationship(std::int32_t k) {
    const rect& a = Ai[k - 1];
    std::vector<element> elements;
    for (std::size_t i = 0; i < a.r; ++i)
      for (std::size_t j = 0; j <= i; ++j)
        if (a(i, j) != 0.0) elements.push_back({as_number(i + 1), as_number(j + 1), a(i, j)});
    write_elements(directory / ("GINV" + std::to_string(k)), elements);
  }

  pair_move& pair() { return pairs.at(0); }
  std::size_t order() const { return static_cast<std::size_t>(p); }
  // Solutions of factor k, levels x p, and its matrix.
  rect solutions(std::int32_t k) const {
    rect u(static_cast<std::size_t>(levels[k - 1]), order());
    for (std::size_t i = 0; i < u.x.size(); ++i) u.x[i] = s.sol(m.NBEGRA(k) + as_number(i) + 1);
    return u;
  }
  rect precision(std::int32_t k) const {
    rect g(order(), order());
    for (std::size_t i = 0; i < order(); ++i)
      for (std::size_t j = 0; j < order(); ++j) g(i, j) = s.GIF(as_number(i + 1), as_number(j + 1), k);
    return g;
  }
  void set(std::int32_t k, const rect& u, const rect& g) {
    for (std::size_t i = 0; i < u.x.size(); ++i) s.sol(m.NBEGRA(k) + as_number(i) + 1) = u.x[i];
    const rect inverse_of_g = inverse(g);
    for (std::size_t i = 0; i < order(); ++i)
      for (std::size_t j = 0; j < order(); ++j)
        s.GIF(as_number(i + 1), as_number(j + 1), k) = inverse_of_g(i, j);
  }
  // G from its prior, then U = L_A Z L_G'.
  void draw_state() {
    for (std::int32_t k = 1; k <= 2; ++k) {
      const rect g = from_dense(inverse_wishart(start_matrix(k), p, f.asked.PDF(k)));
      rect z(static_cast<std::size_t>(levels[k - 1]), order());
      for (double& x : z.x) x = normal();
      set(k, LA[k - 1] * z * transposed(factor_of(g)), g);
    }
  }
  // Solutions of the partners of factor k's levels, in the order of these; 0 without one.
  rect of_partners(std::int32_t k, const rect& others) const {
    rect w(static_cast<std::size_t>(levels[k - 1]), order());
    for (std::size_t l = 0; l < static_cast<std::size_t>(partners); ++l)
      for (std::size_t j = 0; j < order(); ++j) w(l, j) = others(partners - 1 - l, j);
    return w;
  }
  rect Q_of(std::int32_t x) const {
    const rect w = of_partners(x, solutions(3 - x));
    return transposed(w) * Ai[x - 1] * w;
  }
  rect X_of(std::int32_t x) const {
    return transposed(solutions(x)) * Ai[x - 1] * of_partners(x, solutions(3 - x));
  }

  factor_prior prior(std::int32_t k, std::int64_t more = 0) const {
    factor_prior prior = prior_of_factor(m, f.asked, k, p);
    prior.nu += more;
    return prior;
  }
  void move(std::int64_t more = 0) {
    scan_records all = records();
    move_pair(all, f.asked, f.state, pair(), prior(1, more), prior(2, more));
  }

  std::vector<double> functions() const {
    std::vector<double> out;
    const rect u = solutions(1), w = solutions(2);
    for (std::int32_t k = 1; k <= 2; ++k) {
      const rect g = inverse(precision(k));
      for (std::size_t i = 0; i < order(); ++i) out.push_back(std::log(g(i, i)));
      if (p > 1) out.push_back(g(0, 1) / std::sqrt(g(0, 0) * g(1, 1)));
    }
    const rect uu = transposed(u) * u, ww = transposed(w) * w, uw = transposed(u) * of_partners(1, w);
    for (std::size_t i = 0; i < order(); ++i) {
      out.push_back(std::log(uu(i, i)));
      out.push_back(std::log(ww(i, i)));
      out.push_back(std::atan(uw(i, 0)));
      out.push_back(std::log(u(7, i) * u(7, i))); // without a partner
      out.push_back(std::log(w(8, i) * w(8, i)));
    }
    return out;
  }
  // A state of the prior, to be moved under uniform ones, which take more of the moves.
  void draw_to_move_freely() {
    f.asked.PDF.fill(p + 6);
    draw_state();
    f.asked.PDF.fill(0);
  }
  std::int64_t accepted() { return pair().count[0].accepted[0] + pair().count[1].accepted[0]; }

  double z(int replicates, std::int64_t more = 0) {
    std::vector<double> sum, squares;
    for (int n = 0; n < replicates; ++n) {
      draw_state();
      const std::vector<double> before = functions();
      for (int i = 0; i < 3; ++i) move(more);
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
      largest = std::max(largest, std::fabs(mean) / std::sqrt(variance / replicates));
    }
    return largest;
  }
};

void expect_near(const mat<double>& found, const rect& expected, double bound, const std::string& what) {
  double scale = 1.0;
  for (const double x : expected.x) scale = std::max(scale, std::fabs(x));
  for (std::size_t i = 0; i < expected.r; ++i)
    for (std::size_t j = 0; j < expected.c; ++j)
      EXPECT_NEAR(found(i + 1, j + 1), expected(i, j), bound * scale) << what << ' ' << i << ' ' << j;
}
void expect_near(const rect& found, const rect& expected, double bound, const std::string& what) {
  double scale = 1.0;
  for (const double x : expected.x) scale = std::max(scale, std::fabs(x));
  for (std::size_t i = 0; i < expected.x.size(); ++i)
    EXPECT_NEAR(found.x[i], expected.x[i], bound * scale) << what << ' ' << i;
}

std::vector<pair_shape> all_shapes(std::int32_t most) {
  std::vector<pair_shape> shapes;
  for (const char* first : {"I", "GREL"})
    for (const char* second : {"I", "GREL"})
      for (std::int32_t p = 1; p <= most; ++p) shapes.push_back({first, second, p});
  return shapes;
}
std::string name_of(const pair_shape& shape) {
  return shape.first + ' ' + shape.second + ' ' + std::to_string(shape.p);
}

// W'A^-1 W and U'A^-1 W with full matrices; levels without a partner in both factors.
TEST(pair_moves, sum_what_full_matrices_give) {
  for (const pair_shape& shape : all_shapes(6)) {
    pair_case c(shape);
    c.draw_state();
    const bool plain = shape.second == "I";
    for (std::int32_t x = 2; x >= 1; --x) {
      sum_pair(c.relations, c.m, c.s, c.pair(), x - 1);
      expect_near(c.pair().work.Q, c.Q_of(x), 1e-13, "Q " + name_of(shape));
      expect_near(c.pair().work.X, c.X_of(x), 1e-13, "X " + name_of(shape));
    }
    if (!plain) continue;
    rect u = c.solutions(1);
    for (std::size_t l = 6; l < 8; ++l)
      for (std::size_t j = 0; j < u.c; ++j) u(l, j) = 0.0; // no partner
    const rect w = c.of_partners(1, c.solutions(2));
    expect_near(c.pair().work.uu, transposed(u) * u, 1e-13, "uu " + name_of(shape));
    expect_near(c.pair().work.uw, transposed(u) * w, 1e-13, "uw " + name_of(shape));
    expect_near(c.pair().work.ww, transposed(w) * w, 1e-13, "ww " + name_of(shape));
  }
}

// Both directions one after the other by full matrices with the numbers of the same source:
// B = -X Q^-1 + L_g'^-1 Z L_Q^-1, and the acceptance ratio by determinants and traces.
struct dense_pair {
  pair_case& c;
  marsaglia_source source;
  std::int64_t accepted = 0;
  bool direction(std::int32_t x) {
    const std::int32_t w = 3 - x;
    const rect Q = c.Q_of(x), X = c.X_of(x), Lg = factor_of(c.precision(x)), LQ = factor_of(Q);
    rect Z(c.order(), c.order());
    for (double& z : Z.x) z = ranmar_snorm(source);
    const rect B = plus(inverse(transposed(Lg)) * Z * inverse(LQ), X * inverse(Q), -1.0);
    const rect C = plus(unit_matrix(c.order()), B, -1.0), Ci = inverse(C), Gi = c.precision(w);
    rect V(c.order(), c.order());
    for (std::size_t i = 0; i < c.order(); ++i)
      for (std::size_t j = 0; j < c.order(); ++j)
        V(i, j) = c.prior(w).weight * c.m.RMAT(w).COV_MAT(i + 1, j + 1);
    // DDF is the number of levels
    const double r =
        static_cast<double>(-c.prior(w).nu - c.p) * std::log(std::fabs(dense_inverse(dense(C)).determinant)) -
        0.5 * trace(V * plus(transposed(Ci) * Gi * Ci, Gi, -1.0));
    if (!(std::log(RANMAR(source)) < r)) return false;
    const rect old = c.solutions(w);
    const rect moved = plus(c.solutions(x), c.of_partners(x, old) * transposed(B));
    c.set(x, moved, inverse(c.precision(x)));
    c.set(w, old * transposed(C), C * inverse(Gi) * transposed(C));
    return ++accepted > 0;
  }
};

void expect_dense_moves(const pair_shape& shape, bool flat) {
  pair_case c(shape), reference(shape);
  dense_pair by_hand{reference, c.sources.marsaglia};
  for (int i = 0; i < 6; ++i) {
    for (pair_case* x : {&c, &reference}) // the same numbers
      flat ? x->draw_to_move_freely() : x->draw_state();
    c.move();
    by_hand.direction(1);
    by_hand.direction(2);
    for (std::int32_t k = 1; k <= 2; ++k) {
      expect_near(c.solutions(k), reference.solutions(k), 1e-10, "solutions " + name_of(shape));
      expect_near(c.precision(k), reference.precision(k), 1e-9, "precision " + name_of(shape));
    }
  }
  EXPECT_EQ(c.accepted(), by_hand.accepted);
  if (flat) {
    EXPECT_GT(c.accepted(), 0) << name_of(shape);
  }
  EXPECT_EQ(c.pair().count[0].tried[0], 6);
  EXPECT_EQ(c.pair().count[1].tried[0], 6);
  EXPECT_EQ(RANMAR(c.sources.marsaglia), RANMAR(by_hand.source)) << name_of(shape);
}

TEST(pair_moves, equal_one_direction_after_the_other_by_full_matrices) {
  for (const pair_shape& shape : all_shapes(5))
    for (const bool flat : {false, true}) expect_dense_moves(shape, flat);
}

TEST(pair_moves, apply_both_directions_at_once_as_one_after_the_other) {
  for (std::int32_t p = 1; p <= 6; ++p) {
    pair_case c({"GREL", "I", p});
    int both = 0;
    for (int i = 0; i < 40; ++i) {
      c.draw_to_move_freely();
      rect u = c.solutions(1), w = c.solutions(2);
      c.move();
      const auto of = [&](const mat<double>& a) {
        rect y(c.order(), c.order());
        for (std::size_t k = 0; k < y.r; ++k)
          for (std::size_t j = 0; j < y.c; ++j) y(k, j) = a(k + 1, j + 1);
        return transposed(y);
      };
      const pair_work& work = c.pair().work;
      u = plus(u, c.of_partners(1, w) * of(work.B[0]));
      w = w * of(work.C[0]);
      w = plus(w, c.of_partners(2, u) * of(work.B[1]));
      u = u * of(work.C[1]);
      expect_near(c.solutions(1), u, 1e-12, "u");
      expect_near(c.solutions(2), w, 1e-12, "w");
      if (work.B[0](1, 1) != 0.0 && work.B[1](1, 1) != 0.0) ++both;
    }
    EXPECT_GT(both, 0) << p; // otherwise it proves nothing
  }
}

TEST(pair_moves, leave_all_fits_as_they_are) {
  for (const pair_shape& shape : all_shapes(3)) {
    pair_case c(shape);
    for (int i = 0; i < 20; ++i) {
      c.draw_to_move_freely();
      std::vector<double> fits;
      for (std::int32_t r = 1; r <= c.design.nobs; ++r) fits.push_back(c.fitted(r, 1));
      c.move();
      for (std::int32_t r = 1; r <= c.design.nobs; ++r)
        EXPECT_NEAR(c.fitted(r, 1), fits[static_cast<std::size_t>(r - 1)], 1e-12) << name_of(shape);
    }
    EXPECT_GT(c.accepted(), 0) << name_of(shape);
  }
}

// Sums of squares that the scan has made, of up to 4 rows, become those of the moved solutions; U'A^-1 U by
// full matrices.
TEST(pair_moves, take_the_sums_of_squares_along) {
  for (const pair_shape& shape : all_shapes(largest_unrolled_order)) {
    pair_case c(shape);
    const auto square = [&](std::int32_t k) {
      const rect u = c.solutions(k);
      return transposed(u) * c.Ai[k - 1] * u;
    };
    residual_form& fast = c.work.fast;
    fast.square_done.take(2);
    fast.square.take(shape.p * (shape.p + 1) / 2, 2);
    for (int repeat = 0; repeat < 10; ++repeat) {
      c.draw_to_move_freely();
      for (std::int32_t k = 1; k <= 2; ++k) {
        fast.square_done(k) = 1;
        const rect S = square(k);
        for (std::size_t i = 0, n = 1; i < c.order(); ++i)
          for (std::size_t j = 0; j <= i; ++j, ++n) fast.square(n, k) = S(i, j);
      }
      c.move();
      for (std::int32_t k = 1; k <= 2; ++k) {
        const rect S = square(k);
        double scale = 1.0;
        for (const double x : S.x) scale = std::max(scale, std::fabs(x));
        for (std::size_t i = 0, n = 1; i < c.order(); ++i)
          for (std::size_t j = 0; j <= i; ++j, ++n)
            EXPECT_NEAR(fast.square(n, k), S(i, j), 1e-11 * scale) << name_of(shape);
      }
    }
    EXPECT_GT(c.accepted(), 0) << name_of(shape);
  }
}

TEST(pair_moves, keep_the_prior_alone) {
  for (const pair_shape& shape : all_shapes(2))
    EXPECT_LT(pair_case(shape).z(replicates_here(2000)), limit) << name_of(shape);
}

// nu + 3, three powers of |C| too few: |z| 8.2.
TEST(pair_moves, with_a_wrong_exponent_lose_the_prior) {
  EXPECT_GT(pair_case({"GREL", "I", 2}).z(2000, 3), limit);
}

// Whole rounds with data, both matrices and R drawn.
struct round_case : pair_case {
  scan_records all = records();
  explicit round_case(const pair_shape& shape) : pair_case(shape) { work.moves.pairs = std::move(pairs); }
  void draw_all() {
    set_R(inverse_wishart(dense_matrix(1, {1.0}), 1, v_residual));
    draw_state();
    for (std::int32_t r = 1; r <= design.nobs; ++r) draw_record(r);
  }
  std::int64_t taken() const {
    const move_count* count = work.moves.pairs.at(0).count;
    return count[0].accepted[0] + count[1].accepted[0];
  }
};

TEST(pair_moves, keep_the_prior_in_whole_rounds) {
  for (const pair_shape& shape : {pair_shape{"GREL", "I", 2}, pair_shape{"I", "GREL", 2}}) {
    round_case c(shape);
    EXPECT_LT(c.largest_z(
                  1000, 4, [&] { c.draw_all(); }, [&] { return c.functions(); }),
              limit);
    EXPECT_GT(c.taken(), 0);
  }
}

TEST(pair_moves, make_the_same_rounds_with_both_bodies) {
  for (const pair_shape& shape : all_shapes(2)) {
    round_case fast(shape), plain(shape);
    plain.f.asked.test_level = 2;
    for (round_case* c : {&fast, &plain}) {
      c->draw_all(); // the same numbers
      count_group_records(c->m, c->design);
      for (c->f.state.iround = 1; c->f.state.iround <= 10; ++c->f.state.iround)
        GIBSCAN(c->all, c->f.asked, c->f.state, c->f.counts, c->files);
    }
    EXPECT_EQ(fast.work.body, scan_body::fast);
    EXPECT_EQ(plain.work.body, scan_body::plain);
    EXPECT_GT(fast.taken(), 0) << name_of(shape);
    EXPECT_EQ(fast.taken(), plain.taken());
    for (std::int32_t k = 1; k <= 2; ++k) {
      expect_near(fast.solutions(k), plain.solutions(k), 1e-9, "solutions " + name_of(shape));
      expect_near(fast.precision(k), plain.precision(k), 1e-9, "precision " + name_of(shape));
    }
  }
}

TEST(pair_moves, draw_nothing_where_Q_has_no_factor) {
  pair_case c({"GREL", "I", 2});
  c.draw_state();
  rect w = c.solutions(2);
  for (std::size_t l = 0; l < w.r; ++l) w(l, 1) = 2.0 * w(l, 0); // of rank 1
  c.set(2, w, inverse(c.precision(2)));
  marsaglia_source source = c.sources.marsaglia;
  c.move();
  EXPECT_EQ(c.pair().count[0].tried[0], 0);
  EXPECT_EQ(c.pair().count[1].tried[0], 1);
  for (int i = 0; i < 4; ++i) ranmar_snorm(source); // of the second direction alone
  RANMAR(source);
  EXPECT_EQ(RANMAR(c.sources.marsaglia), RANMAR(source));
}

TEST(pair_moves, leave_a_matrix_that_is_not_updated) {
  pair_case c({"GREL", "I", 2});
  c.draw_state();
  c.f.state.matopd(2) = 0;
  const rect G = c.precision(2);
  for (int i = 0; i < 5; ++i) c.move();
  EXPECT_EQ(c.pair().count[0].tried[0], 0);
  EXPECT_EQ(c.pair().count[1].tried[0], 5);
  EXPECT_EQ(c.precision(2).x, G.x);
}

TEST(pair_moves, count_after_burn_in_apart_and_need_all_rows) {
  pair_case c({"I", "I", 2});
  c.draw_state();
  c.work.moves.pairs = std::move(c.pairs);
  scan_records all = c.records();
  c.f.asked.nburn = 3;
  for (c.f.state.iround = 1; c.f.state.iround <= 8; ++c.f.state.iround) move_pairs(all, c.f.asked, c.f.state);
  const pair_move& pair = c.work.moves.pairs.at(0);
  EXPECT_EQ(pair.count[0].tried[0], 3);
  EXPECT_EQ(pair.count[1].tried[1], 5);
  for (const std::size_t k : {0U, 1U}) {
    c.f.state.ntr[k] = 1;
    move_pairs(all, c.f.asked, c.f.state);
    c.f.state.ntr[k] = 2;
  }
  EXPECT_EQ(pair.count[0].tried[1], 5);
}

} // namespace
} // namespace zeph_test
