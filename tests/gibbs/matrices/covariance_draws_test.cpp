#include "gibbs/matrices/covariance_draws.h"

#include "gibbs/scan_case.h"

#include "gibbs/residuals/residual_sums.h"
#include "numerics/matrix_draws.h"
#include "numerics/packed_matrix.h"

#include <cmath>
#include <functional>

namespace {

using namespace zeph_test;

const std::vector<element>& second_inverse() {
  static const std::vector<element> elements = {
      {1, 1, 1.5}, {2, 2, 1.0}, {3, 3, 2.0}, {4, 4, 1.25}, {4, 3, -0.5}};
  return elements;
}

// Factor 1: four levels of order 2 with a matrix from a file, of any structure.
// Factor 2: identity, three levels of order 1. Two traits, residual groups.
struct covariance_case : scan_case {
  explicit covariance_case(const std::string& structure = "PED", bool reduced = false,
                           std::int32_t groups = 1, std::int32_t nt = 2)
      : scan_case(described(structure, groups, nt)) {
    m.RMAT(1).L_RAM = reduced;
    for (const char* name : {"AINV1", "GINV1", "COR1", "DOM1"})
      write_elements(directory / name, four_level_inverse());
    write_elements(directory / "AINV_RAM1", second_inverse());
    start(6);
    heard_run quiet;
    mark_zero_covariances(m, s, quiet.report);
    EXPECT_EQ(ZEPHVAR_ALLOC(m, s, quiet.report), 0);
    fill_vec(f.asked.PDF, {0, 0, 0});
    fill_vec(f.asked.DDF, {4, 3, 0});
    number_sequence x(5);
    for (double& u : s.sol) u = x.between(-2, 2);
    SETALL(sources.combined, 12345, 67890);
  }
  static described_model described(const std::string& structure, std::int32_t groups, std::int32_t nt) {
    described_model d;
    d.traits.resize(static_cast<std::size_t>(nt));
    d.factors = {{structure, 4, 2, {{1, 1, 1}, {2, 1, 2}}}, {"I", 3, 1, {{1, 2, 1}}}};
    d.integers = 6, d.reals = nt, d.records = 4;
    d.residual_groups = groups;
    if (groups > 1) d.group_place = 3;
    return d;
  }
  double u(std::int32_t k, std::int32_t l, std::int32_t i) const {
    return s.sol(m.NBEGRA(k) + (l - 1) * m.RMAT(k).n_rc + i);
  }
  void sum_squares() {
    scan_records all = records();
    sscp_random(all.model, all.relations, all.sampler, all.work.matrices, all.work.fast, all.report, f.state);
  }
  void draw() {
    scan_records all = records();
    sample_covariances(all, f.asked, f.state);
  }
  // Sums of matrix k, packed, rows after rows.
  void set_sums(std::int32_t k, std::initializer_list<double> values) {
    std::copy(values.begin(), values.end(), s.sscp.unchecked_col(k));
  }
  void plain_sums() {
    set_sums(1, {5.0, 1.5, 4.0});
    set_sums(2, {2.5});
    for (std::int32_t h = 1; h <= s.G; ++h) {
      double* sums = s.sscp.unchecked_col(2 + h);
      for (std::int32_t i = 1; i <= m.nt; ++i)
        for (std::int32_t j = 1; j <= i; ++j) *sums++ = i == j ? 6.0 + i : 1.0 / (i + j);
    }
    f.asked.DDF(1) = 40, f.asked.DDF(2) = 30;
    for (std::int32_t h = 0; h <= m.residual().n_hetgr; ++h) m.residual().HETG_N_OBS(h) = 50 + h;
  }
};

dense_matrix full(const std::vector<element>& elements) {
  dense_matrix a(4);
  for (const element& e : elements) a(e.i, e.j) = a(e.j, e.i) = e.v;
  return a;
}

// U' A U, A of the levels
double quadratic(const covariance_case& c, const dense_matrix& a, std::int32_t i, std::int32_t j) {
  double sum = 0;
  for (std::int32_t l = 1; l <= 4; ++l)
    for (std::int32_t h = 1; h <= 4; ++h) sum += c.u(1, l, i) * a(l, h) * c.u(1, h, j);
  return sum;
}

TEST(sscp_random, adds_the_quadratic_forms_of_every_structure) {
  for (const char* structure : {"PED", "COR", "GREL", "DOM", "PGMIX"}) {
    covariance_case c;
    c.m.RMAT(1).CV_STRUCT = padded(structure, 12);
    c.s.sscp.fill(10.0);
    c.sum_squares();
    for (std::int32_t i = 1, k = 1; i <= 2; ++i)
      for (std::int32_t j = 1; j <= i; ++j, ++k)
        EXPECT_NEAR(c.s.sscp(k, 1), 10.0 + quadratic(c, full(four_level_inverse()), i, j), 1e-13)
            << structure;
    double squares = 10.0;
    for (std::int32_t l = 1; l <= 3; ++l) squares += c.u(2, l, 1) * c.u(2, l, 1);
    EXPECT_NEAR(c.s.sscp(1, 2), squares, 1e-13);
    EXPECT_EQ(c.s.sscp(1, 3), 10.0); // the residual's sums are another pass
  }
}

TEST(sscp_random, takes_cross_products_of_levels_with_the_identity) {
  covariance_case c;
  c.m.RMAT(1).CV_STRUCT = padded("I", 12);
  c.sum_squares();
  dense_matrix identity(4);
  for (std::int32_t l = 1; l <= 4; ++l) identity(l, l) = 1.0;
  for (std::int32_t i = 1, k = 1; i <= 2; ++i)
    for (std::int32_t j = 1; j <= i; ++j, ++k)
      EXPECT_NEAR(c.s.sscp(k, 1), quadratic(c, identity, i, j), 1e-14);
}

TEST(sscp_random, takes_the_second_list_of_a_reduced_animal_model) {
  covariance_case c("PED", true);
  c.sum_squares();
  for (std::int32_t i = 1, k = 1; i <= 2; ++i)
    for (std::int32_t j = 1; j <= i; ++j, ++k)
      EXPECT_NEAR(c.s.sscp(k, 1), quadratic(c, full(second_inverse()), i, j), 1e-14);
}

TEST(sscp_random, leaves_rows_beyond_the_current_model_out) {
  covariance_case c;
  c.f.state.ntr[0] = 1;
  c.f.state.ntr[1] = 0;
  c.sum_squares();
  EXPECT_NEAR(c.s.sscp(1, 1), quadratic(c, full(four_level_inverse()), 1, 1), 1e-14);
  EXPECT_EQ(c.s.sscp(2, 1), 0.0);
  EXPECT_EQ(c.s.sscp(3, 1), 0.0);
  EXPECT_EQ(c.s.sscp(1, 2), 0.0);
}

TEST(sscp_random, stops_at_a_structure_without_a_sum) {
  covariance_case c;
  c.m.RMAT(1).CV_STRUCT = padded("ABS_QTL", 12);
  const std::string text = expect_stop(16, c.run, [&](reporting&) { c.sum_squares(); });
  EXPECT_EQ(text.substr(0, text.find('\n')), "Unknown co-variance structure ABS_QTL     ");
  EXPECT_NE(text.find("\nFor random factor " + I(1) + "\n"), std::string::npos);
}

// Means over many draws from the same sums. For W inverse Wishart of scale S, df
// degrees of freedom and order p: E W = S / (df - p - 1), E W^-1 = df S^-1,
// var of W^-1(i,i) = 2 df S^-1(i,i)^2.
struct law {
  law(covariance_case& c, std::int32_t k, std::int32_t p, dense_matrix S, double df, int draws = 3000) {
    const dense_matrix inverse = dense_inverse(S).inverse;
    std::vector<dense_vector> w, w_inv;
    for (int n = 0; n < draws; ++n) {
      c.plain_sums();
      c.draw();
      dense_matrix W(p);
      for (std::int32_t i = 1; i <= p; ++i)
        for (std::int32_t j = 1; j <= p; ++j) W(i, j) = c.s.sscp(ihmij(i, j, p), k);
      const dense_matrix V = dense_inverse(W).inverse;
      w.emplace_back(0).cells = W.cells;
      w_inv.emplace_back(0).cells = V.cells;
    }
    for (std::int32_t i = 1; i <= p; ++i)
      for (std::int32_t j = 1; j <= i; ++j) {
        const std::size_t e = static_cast<std::size_t>((i - 1) * p + j - 1);
        expect_mean(w, e, S(i, j) / (df - p - 1));
        expect_mean(w_inv, e, df * inverse(i, j));
        if (i == j) expect_variance(w_inv, e, df * inverse(i, i), 2.0 * df * inverse(i, i) * inverse(i, i));
      }
  }
  static void expect_mean(const std::vector<dense_vector>& x, std::size_t e, double exact) {
    double sum = 0, squares = 0;
    for (const dense_vector& v : x) sum += v.cells[e], squares += v.cells[e] * v.cells[e];
    const double n = static_cast<double>(x.size()), mean = sum / n;
    EXPECT_NEAR(mean, exact, 4.5 * std::sqrt((squares / n - mean * mean) / n)); // error probability 7e-6
  }
  // the square of a gamma variable of shape above 10 has little more spread than that of a normal
  static void expect_variance(const std::vector<dense_vector>& x, std::size_t e, double mean,
                              double variance) {
    double squares = 0;
    for (const dense_vector& v : x) squares += (v.cells[e] - mean) * (v.cells[e] - mean);
    const double n = static_cast<double>(x.size());
    EXPECT_NEAR(squares / n, variance, 5.0 * variance * std::sqrt(3.0 / n));
  }
};

TEST(sample_covariances, of_a_factor_with_a_flat_prior_are_inverse_wishart_of_the_sums) {
  covariance_case c;
  law(c, 1, 2, dense_matrix(2, {5.0, 1.5, 1.5, 4.0}), 40 - 2 - 1);
  law(c, 2, 1, dense_matrix(1, {2.5}), 30 - 1 - 1);
}

TEST(sample_covariances, of_a_factor_with_a_proper_prior_have_the_start_matrix_as_prior_mean) {
  covariance_case c;
  c.f.asked.PDF(1) = 10;
  c.m.RMAT(1).COV_MAT(1, 1) = 0.5;
  c.m.RMAT(1).COV_MAT(2, 1) = c.m.RMAT(1).COV_MAT(1, 2) = 0.1;
  // sums + (10 - 3) COV_MAT
  law(c, 1, 2, dense_matrix(2, {5.0 + 3.5, 1.5 + 0.7, 1.5 + 0.7, 4.0 + 7.0}), 40 + 10);
}

// Prior and data degrees of freedom whose sum is beyond 32 bits: the draw is
// (S + (v - p - 1) G0)/(q + v - p - 1)
// within its own spread, sqrt(2/(q + v)) = 3e-5 of the value (25 of these; 32 bits carry 2^-24 = 6e-8).
TEST(sample_covariances, add_degrees_of_freedom_beyond_32_bits) {
  covariance_case c;
  const double q = 2000000000, v = 2000000000;
  c.plain_sums();
  c.f.asked.PDF(1) = c.f.asked.DDF(1) = 2000000000;
  c.f.asked.PDF(3) = c.m.residual().HETG_N_OBS(c.m.hetgr_index(1)) = 2000000000;
  const double G0 = c.m.RMAT(1).COV_MAT(1, 1), R0 = c.m.residual().COV_MAT(1, 1);
  const double S = c.s.sscp(1, 1), S_r = c.s.sscp(1, 3);
  c.draw();
  EXPECT_NEAR(c.s.sscp(1, 1) / ((S + (v - 3) * G0) / (q + v - 3)), 1.0, 25 * 3e-5);
  EXPECT_NEAR(c.s.sscp(1, 3) / ((S_r + (v - 3) * R0) / (q + v - 3)), 1.0, 25 * 3e-5);
}

TEST(sample_covariances, take_prior_degrees_of_freedom_of_order_plus_1_as_flat) {
  covariance_case flat, bound, above;
  bound.f.asked.PDF(1) = 3;
  bound.f.asked.PDF(3) = 3;
  above.f.asked.PDF(1) = 4;
  for (covariance_case* c : {&flat, &bound, &above}) {
    c->plain_sums();
    c->draw();
  }
  for (const std::int32_t k : {1, 2, 3}) EXPECT_EQ(flat.s.sscp(1, k), bound.s.sscp(1, k));
  EXPECT_NE(flat.s.sscp(1, 1), above.s.sscp(1, 1));
}

TEST(sample_covariances, of_residual_groups_use_their_records_and_their_own_priors) {
  covariance_case c("PED", false, 2);
  c.f.asked.PDF(3) = 9;
  const dense_matrix one(2, {2.0, 0.5, 0.5, 1.0}), two(2, {3.0, -0.75, -0.75, 1.5});
  for (std::int32_t i = 1; i <= 2; ++i)
    for (std::int32_t j = 1; j <= 2; ++j) {
      c.m.residual().HETGR_COV_MAT(1, i, j) = one(i, j);
      c.m.residual().HETGR_COV_MAT(2, i, j) = two(i, j);
    }
  // sums 7, 1/3, 8 + (9 - 3) prior, records 51 and 52
  law(c, 3, 2, dense_matrix(2, {7.0 + 12.0, 1.0 / 3 + 3.0, 1.0 / 3 + 3.0, 8.0 + 6.0}), 51 + 9, 1500);
  law(c, 4, 2, dense_matrix(2, {7.0 + 18.0, 1.0 / 3 - 4.5, 1.0 / 3 - 4.5, 8.0 + 9.0}), 52 + 9, 1500);
}

TEST(sample_covariances, of_the_residual_with_a_flat_prior_lose_order_plus_1_degrees) {
  covariance_case c;
  // one group: HETG_N_OBS(1) = 51
  law(c, 3, 2, dense_matrix(2, {7.0, 1.0 / 3, 1.0 / 3, 8.0}), 51 - 2 - 1);
}

TEST(sample_covariances, leave_the_new_matrices_and_their_inverses_everywhere) {
  covariance_case c("PED", false, 2);
  c.plain_sums();
  c.draw();
  const auto is_inverse = [](const std::function<double(int, int)>& a,
                             const std::function<double(int, int)>& b, int p) {
    for (int i = 1; i <= p; ++i)
      for (int j = 1; j <= p; ++j) {
        double product = 0;
        for (int k = 1; k <= p; ++k) product += a(i, k) * b(k, j);
        EXPECT_NEAR(product, i == j ? 1.0 : 0.0, 1e-12);
      }
  };
  for (std::int32_t k = 1; k <= 2; ++k) {
    const std::int32_t p = k == 1 ? 2 : 1;
    const auto W = [&](int i, int j) { return c.s.sscp(ihmij(i, j, p), k); };
    const auto GIF = [&](int i, int j) { return c.s.GIF(i, j, k); };
    is_inverse(W, GIF, p);
    const double det = p == 1 ? GIF(1, 1) : GIF(1, 1) * GIF(2, 2) - GIF(1, 2) * GIF(2, 1);
    EXPECT_NEAR(c.s.IDET_RVAR(k), std::sqrt(det), 1e-12 * std::sqrt(det));
    EXPECT_EQ(c.s.LVDET(k), 0.0);
  }
  for (std::int32_t h = 1; h <= 2; ++h) {
    const auto W = [&](int i, int j) { return c.s.RCOV(i, j, h); };
    const auto V = [&](int i, int j) { return c.s.RCOVI(i, j, h); };
    is_inverse(W, V, 2);
    for (int i = 1; i <= 2; ++i)
      for (int j = 1; j <= 2; ++j) EXPECT_EQ(W(i, j), c.s.sscp(ihmij(i, j, 2), 2 + h));
    const double det = V(1, 1) * V(2, 2) - V(1, 2) * V(2, 1);
    EXPECT_NEAR(c.s.IDET_RVAR(2 + h), std::sqrt(det), 1e-12 * std::sqrt(det));
    EXPECT_NEAR(c.s.LVDET(2 + h), -std::log(det), 1e-12);
  }
}

TEST(sample_covariances, draw_from_the_combined_source_factors_first_then_residual_groups) {
  covariance_case c("PED", false, 2);
  c.plain_sums();
  RMARIN(c.sources.marsaglia, 1, 2);
  const marsaglia_state before = ranmar_state(c.sources.marsaglia);
  heard_run other;
  random_sources same(other.report);
  SETALL(same.combined, 12345, 67890);
  matrix_draw_work work;
  fit_matrix_work(other.report, work, 2);
  const std::int32_t df[4] = {40 - 3, 30 - 2, 51 - 3, 52 - 3};
  std::vector<std::vector<double>> expected;
  for (std::int32_t k = 1; k <= 4; ++k) {
    const std::int32_t p = k == 2 ? 1 : 2;
    dense_matrix S(p);
    for (std::int32_t i = 1; i <= p; ++i)
      for (std::int32_t j = 1; j <= p; ++j) S(i, j) = c.s.sscp(ihmij(i, j, p), k);
    const dense_matrix inverse = dense_inverse(S).inverse;
    std::vector<double> w(static_cast<std::size_t>(p * p));
    rinvwish(other.report, same, w.data(), p, inverse.cells.data(), p, p, df[k - 1], work);
    expected.push_back(w);
  }
  c.draw();
  for (std::int32_t k = 1; k <= 4; ++k) {
    const std::int32_t p = k == 2 ? 1 : 2;
    for (std::int32_t i = 1; i <= p; ++i)
      for (std::int32_t j = 1; j <= i; ++j) {
        const double w =
            expected[static_cast<std::size_t>(k - 1)][static_cast<std::size_t>((i - 1) * p + j - 1)];
        EXPECT_NEAR(c.s.sscp(ihmij(i, j, p), k), w, 1e-12 * std::fabs(w));
      }
  }
  EXPECT_EQ(next_integer(c.sources.combined), next_integer(same.combined));
  EXPECT_EQ(ranmar_state(c.sources.marsaglia).I97, before.I97);
}

TEST(sample_covariances, keep_the_old_matrix_active_where_the_flag_is_clear) {
  covariance_case c;
  c.plain_sums();
  c.f.state.matopd(1) = 0;
  c.f.state.matopd(3) = 0;
  const double gif = c.s.GIF(1, 1, 1), rcov = c.s.RCOV(1, 1, 1), rcovi = c.s.RCOVI(1, 1, 1);
  c.draw();
  EXPECT_EQ(c.s.GIF(1, 1, 1), gif);
  EXPECT_EQ(c.s.RCOV(1, 1, 1), rcov);
  EXPECT_EQ(c.s.RCOVI(1, 1, 1), rcovi);
  EXPECT_NE(c.s.sscp(1, 1), 5.0); // the sample is there
  EXPECT_NE(c.s.sscp(1, 3), 7.0);
  EXPECT_NEAR(c.s.GIF(1, 1, 2), 1.0 / c.s.sscp(1, 2), 1e-12);
}

TEST(sample_covariances, skip_a_factor_without_rows_in_the_model) {
  covariance_case with, without;
  with.plain_sums();
  without.plain_sums();
  without.f.state.ntr[0] = 0;
  const double gif = without.s.GIF(1, 1, 1);
  without.draw();
  EXPECT_EQ(without.s.GIF(1, 1, 1), gif);
  EXPECT_EQ(without.s.sscp(1, 1), 5.0);
  // the first numbers go to factor 2
  heard_run other;
  random_sources same(other.report);
  SETALL(same.combined, 12345, 67890);
  matrix_draw_work work;
  fit_matrix_work(other.report, work, 2);
  double w = 0;
  const double S = 1.0 / 2.5;
  rinvwish(other.report, same, &w, 1, &S, 1, 1, 28, work);
  EXPECT_NEAR(without.s.sscp(1, 2), w, 1e-14);
}

TEST(sample_covariances, use_the_leading_block_of_a_smaller_model) {
  covariance_case c;
  c.plain_sums();
  c.f.state.ntr[0] = 1;
  const double gif = c.s.GIF(2, 2, 1), cross = c.s.GIF(2, 1, 1);
  c.draw();
  EXPECT_NEAR(c.s.GIF(1, 1, 1), 1.0 / c.s.sscp(1, 1), 1e-13);
  EXPECT_EQ(c.s.GIF(2, 2, 1), gif);
  EXPECT_EQ(c.s.GIF(2, 1, 1), cross);
  EXPECT_EQ(c.s.sscp(2, 1), 1.5);
  EXPECT_EQ(c.s.sscp(3, 1), 4.0);
}

// ---- covariances held at zero

struct masked_case : covariance_case {
  masked_case() : covariance_case("PED", false, 1, 3) {
    fill_vec(f.asked.PDF, {0, 0, 0});
    m.n_norcov = 2;
    s.LNCOV(ihmij(2, 1, 3)) = 1;
    s.LNCOV(ihmij(3, 2, 3)) = 1;
  }
  // high covariances, so that a masked draw is often indefinite
  void strong_sums() {
    plain_sums();
    set_sums(3, {10.0, 5.0, 10.0, 9.9, 5.0, 10.0});
    m.residual().HETG_N_OBS.fill(12);
  }
};

TEST(sample_covariances, have_zero_and_a_positive_definite_matrix_where_covariances_are_held_at_zero) {
  masked_case c;
  for (int n = 0; n < 300; ++n) {
    c.strong_sums();
    c.draw();
    EXPECT_EQ(c.s.RCOV(2, 1, 1), 0.0);
    EXPECT_EQ(c.s.RCOV(1, 2, 1), 0.0);
    EXPECT_EQ(c.s.RCOV(3, 2, 1), 0.0);
    EXPECT_NE(c.s.RCOV(3, 1, 1), 0.0);
    EXPECT_EQ(c.s.sscp(2, 3), 0.0);
    const double a = c.s.RCOV(1, 1, 1), b = c.s.RCOV(3, 3, 1), r = c.s.RCOV(3, 1, 1);
    EXPECT_GT(a * b - r * r, 0.0);
    EXPECT_NEAR(c.s.RCOVI(2, 2, 1) * c.s.RCOV(2, 2, 1), 1.0, 1e-12);
  }
}

TEST(sample_covariances, know_nothing_of_masked_sums_but_take_the_prior_of_masked_pairs) {
  // cleared sums: what was there plays no part
  masked_case one, other;
  one.strong_sums();
  other.strong_sums();
  other.s.sscp(2, 3) = -77.0;
  one.draw();
  other.draw();
  EXPECT_EQ(one.s.RCOV(1, 1, 1), other.s.RCOV(1, 1, 1));
  // the prior of the pair counts
  masked_case with, without;
  for (masked_case* c : {&with, &without}) {
    c->f.asked.PDF(3) = 10;
    c->plain_sums();
  }
  for (std::int32_t h = 0; h <= 1; ++h)
    for (std::int32_t i = 1; i <= 3; ++i)
      for (std::int32_t j = 1; j <= 3; ++j) {
        with.m.residual().HETGR_COV_MAT(h, i, j) = i == j ? 2.0 : (i + j == 3 ? 0.9 : 0.0);
        without.m.residual().HETGR_COV_MAT(h, i, j) = i == j ? 2.0 : 0.0;
      }
  with.draw();
  without.draw();
  EXPECT_NE(with.s.RCOV(1, 1, 1), without.s.RCOV(1, 1, 1));
}

TEST(sample_covariances, stop_when_no_matrix_with_those_zeros_is_found) {
  covariance_case c("PED", false, 1, 3);
  c.m.n_norcov = 1;
  c.s.LNCOV(ihmij(2, 1, 3)) = 1;
  c.plain_sums();
  // traits 1 and 2 both all but equal to trait 3: with cov(1,2) = 0 never positive definite
  c.m.residual().HETG_N_OBS.fill(100000);
  c.f.asked.PDF(3) = 5;
  for (std::int32_t h = 0; h <= 1; ++h)
    for (std::int32_t i = 1; i <= 3; ++i)
      for (std::int32_t j = 1; j <= 3; ++j) c.m.residual().HETGR_COV_MAT(h, i, j) = i == j ? 100.0 : 99.0;
  c.set_sums(3, {1e-6, 0.0, 1e-6, 0.0, 0.0, 1e-6});
  const std::string text = expect_stop(16, c.run, [&](reporting&) { c.draw(); });
  EXPECT_EQ(
      text,
      "\nERROR - Computation impossible in sample_covariances: no positive definite residual matrix with the "
      "covariances held at zero\n\nZEPH terminates.\n");
}

// ---- prints and stops

TEST(sample_covariances, print_at_test_level_2_in_the_first_three_rounds) {
  covariance_case c;
  c.f.asked.test_level = 2;
  c.f.state.iround = 3;
  c.plain_sums();
  c.draw();
  const std::string text = c.said();
  std::istringstream lines(text);
  std::vector<std::string> all;
  for (std::string line; std::getline(lines, line);) all.push_back(line);
  ASSERT_EQ(all.size(), 2U + 2 + 2 + 1 + 1 + 2); // two heads and the rows, twice; one head and the rows
  EXPECT_EQ(all[0], "Sampling new co-variance matrix for random effect no " + I(1));
  EXPECT_EQ(all[1], "Inverse of new sampled co-variance matrix");
  EXPECT_EQ(all[4], "Sampling new co-variance matrix for random effect no " + I(2));
  EXPECT_EQ(all[5], "Inverse of new sampled co-variance matrix");
  EXPECT_EQ(all[7], "Inverse of new sampled co-variance matrix");
  EXPECT_EQ(std::strtod(all[2].c_str(), nullptr), c.s.GIF(1, 1, 1));
  EXPECT_EQ(std::strtod(all[9].c_str() + 25, nullptr), c.s.RCOVI(2, 2, 1));
  c.f.state.iround = 4;
  c.plain_sums();
  c.draw();
  EXPECT_EQ(c.said(), "");
  c.f.state.iround = 1;
  c.f.asked.test_level = 1;
  c.plain_sums();
  c.draw();
  EXPECT_EQ(c.said(), "");
}

TEST(sample_covariances, print_the_masked_sums_above_test_level_1_in_every_round) {
  masked_case c;
  c.strong_sums();
  c.f.state.iround = 1000;
  c.f.asked.test_level = 2;
  c.draw();
  const std::string text = c.said();
  EXPECT_EQ(text.substr(0, text.find('\n')), "sscp for residuals");
  std::istringstream lines(text);
  std::string line;
  std::getline(lines, line);
  const double expected[3][3] = {{10.0, 0.0, 9.9}, {0.0, 10.0, 0.0}, {9.9, 0.0, 10.0}};
  for (const auto& row : expected) {
    ASSERT_TRUE(std::getline(lines, line));
    std::istringstream cells(line);
    for (const double value : row) {
      double found = -1;
      cells >> found;
      EXPECT_EQ(found, value);
    }
  }
  EXPECT_FALSE(std::getline(lines, line));
}

TEST(sample_covariances, stop_at_sums_that_are_singular) {
  covariance_case factor, residual;
  factor.plain_sums();
  factor.set_sums(1, {0.0, 0.0, 0.0});
  EXPECT_EQ(expect_stop(16, factor.run, [&](reporting&) { factor.draw(); }),
            "\nERROR - Computation impossible in LA_GESV: singular matrix of random effect 1\n\nZEPH "
            "terminates.\n");
  residual.plain_sums();
  residual.set_sums(3, {4.0, 0.0, 0.0});
  EXPECT_EQ(expect_stop(16, residual.run, [&](reporting&) { residual.draw(); }),
            "\nERROR - Computation impossible in LA_GESV: singular matrix of residual group 1\n\nZEPH "
            "terminates.\n");
}

TEST(sample_covariances, stop_when_degrees_of_freedom_are_below_the_order) {
  covariance_case enough, few;
  enough.plain_sums();
  few.plain_sums();
  enough.f.asked.DDF(1) = 5; // 5 - 2 - 1 = 2
  few.f.asked.DDF(1) = 4;
  enough.draw();
  EXPECT_EQ(enough.said(), "");
  EXPECT_EQ(expect_stop(16, few.run, [&](reporting&) { few.draw(); }),
            "\nERROR - Computation impossible in wishart_draw: df = 1 below order 2\n\nZEPH terminates.\n");
}

} // namespace
