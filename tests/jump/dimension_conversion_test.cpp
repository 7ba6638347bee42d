#include "jump/dimension_conversion.h"

#include "jump/conditional_wishart.h"
#include "jump/jump_rounds.h"
#include "jump/model_moves.h"
#include "numerics/gamma_draws.h"
#include "numerics/laws.h"
#include "numerics/normal_draws.h"
#include "support/check.h"
#include "support/jump_case.h"

#include <cmath>

namespace {

using namespace zeph_test;

const dense_matrix scale_of_3(3, {6.0, 1.0, 0.5, 1.0, 8.0, -2.0, 0.5, -2.0, 5.0});
const dense_matrix scale_of_2(2, {5.0, -1.5, -1.5, 4.0});

struct drawing {
  drawing() {
    SETALL(sources.combined, 24680, 13579);
    RMARIN(sources.marsaglia, 1802, 9373);
  }
  // cov with a new last row, given its leading block
  dense_matrix draw(const dense_matrix& given, const dense_matrix& scale, std::int32_t df) {
    const auto n = static_cast<std::int32_t>(scale.n), m = static_cast<std::int32_t>(given.n);
    dense_matrix cov(n);
    for (std::int32_t i = 1; i <= m; ++i)
      for (std::int32_t j = 1; j <= m; ++j) cov(i, j) = given(i, j);
    sciwhinag(run.report, sources, work, n, m, cov.cells.data(), n, df, scale.cells.data(), n);
    return cov;
  }
  heard_run run;
  random_sources sources{run.report};
  matrix_draw_work work;
};

// What the inverse Wishart law says of the last row, by its scale S and the given block V:
//   T = X_nn - x' V^-1 x ~ IW(df, S_nn - s' S_11^-1 s), x | T ~ N(V S_11^-1 s, T V S_11^-1 V)
struct last_row_law {
  last_row_law(const dense_matrix& V, const dense_matrix& S) : m(V.n), beta(m), mean(m), cov(m), Vi(m) {
    dense_matrix S11(m);
    for (std::int64_t i = 1; i <= m; ++i)
      for (std::int64_t j = 1; j <= m; ++j) S11(i, j) = S(i, j);
    const dense_matrix S11i = dense_inverse(S11).inverse;
    Vi = dense_inverse(V).inverse;
    conditional = S(m + 1, m + 1);
    for (std::int64_t a = 1; a <= m; ++a)
      for (std::int64_t b = 1; b <= m; ++b) {
        beta(a) += S11i(a, b) * S(m + 1, b);
        conditional -= S(m + 1, a) * S11i(a, b) * S(m + 1, b);
        for (std::int64_t c = 1; c <= m; ++c)
          for (std::int64_t d = 1; d <= m; ++d) cov(a, d) += V(a, b) * S11i(b, c) * V(c, d);
      }
    for (std::int64_t a = 1; a <= m; ++a)
      for (std::int64_t b = 1; b <= m; ++b) mean(a) += V(a, b) * beta(b);
    cov = dense_matrix(m);
    for (std::int64_t a = 1; a <= m; ++a)
      for (std::int64_t b = 1; b <= m; ++b)
        for (std::int64_t c = 1; c <= m; ++c)
          for (std::int64_t d = 1; d <= m; ++d) cov(a, d) += V(a, b) * S11i(b, c) * V(c, d);
  }
  double T(const dense_matrix& X) const {
    double t = X(m + 1, m + 1);
    for (std::int64_t a = 1; a <= m; ++a)
      for (std::int64_t b = 1; b <= m; ++b) t -= X(m + 1, a) * Vi(a, b) * X(m + 1, b);
    return t;
  }
  std::int64_t m;
  dense_vector beta, mean;
  dense_matrix cov, Vi;
  double conditional = 0;
};

void expect_last_row_law(const dense_matrix& given, const dense_matrix& scale, std::int32_t df) {
  drawing d;
  const last_row_law law(given, scale);
  std::vector<double> little, first, last;
  for (int i = 0; i < 20000; ++i) {
    const dense_matrix X = d.draw(given, scale, df);
    for (std::int64_t a = 1; a <= given.n; ++a)
      for (std::int64_t b = 1; b <= given.n; ++b) ASSERT_EQ(X(a, b), given(a, b)); // untouched
    const double T = law.T(X);
    little.push_back(law.conditional / T); // chi-square, df degrees of freedom
    first.push_back((X(law.m + 1, 1) - law.mean(1)) / std::sqrt(T * law.cov(1, 1)));
    last.push_back((X(law.m + 1, law.m) - law.mean(law.m)) / std::sqrt(T * law.cov(law.m, law.m)));
  }
  laws::expect_law(
      little, [&](double x) { return laws::gamma_cdf(0.5 * df, 0.5 * x); }, "little");
  laws::expect_law(first, laws::normal_cdf, "first of the cross block");
  laws::expect_law(last, laws::normal_cdf, "last of the cross block");
}

TEST(sciwhinag, draws_the_last_of_two_rows_by_the_inverse_wishart_law) {
  expect_last_row_law(dense_matrix(1, {1.7}), scale_of_2, 10);
}

TEST(sciwhinag, draws_the_last_of_three_rows_by_the_inverse_wishart_law) {
  expect_last_row_law(dense_matrix(2, {2.0, 0.6, 0.6, 1.5}), scale_of_3, 7);
}

// cov of the first two variables' cross block, both at once: chi-square of two degrees of freedom
TEST(sciwhinag, draws_the_cross_block_with_its_covariances) {
  drawing d;
  const dense_matrix V(2, {2.0, 0.6, 0.6, 1.5});
  const last_row_law law(V, scale_of_3);
  const dense_matrix inverse = dense_inverse(law.cov).inverse;
  std::vector<double> distance;
  for (int i = 0; i < 20000; ++i) {
    const dense_matrix X = d.draw(V, scale_of_3, 9);
    const double u = X(3, 1) - law.mean(1), v = X(3, 2) - law.mean(2);
    distance.push_back((u * u * inverse(1, 1) + 2.0 * u * v * inverse(1, 2) + v * v * inverse(2, 2)) /
                       law.T(X));
  }
  laws::expect_law(
      distance, [](double x) { return 1.0 - std::exp(-0.5 * x); }, "distance");
}

TEST(sciwhinag, takes_one_gamma_deviate_and_then_a_normal_for_each_given_row) {
  drawing d, twin;
  const dense_matrix V(2, {2.0, 0.6, 0.6, 1.5});
  const dense_matrix X = d.draw(V, scale_of_3, 9);
  const last_row_law law(V, scale_of_3);
  const double chi = static_cast<double>(2.0F * sgamma(twin.sources.combined, 4.5F, twin.sources.gamma));
  EXPECT_NEAR(law.T(X), law.conditional / chi, 1e-12); // 1/L11 is the conditional scale
  const double z1 = static_cast<double>(snorm(twin.sources.combined));
  const double z2 = static_cast<double>(snorm(twin.sources.combined));
  const double T = law.T(X), l11 = std::sqrt(T * law.cov(1, 1)), l21 = T * law.cov(2, 1) / l11;
  EXPECT_NEAR(X(3, 1), law.mean(1) + l11 * z1, 1e-12);
  EXPECT_NEAR(X(3, 2), law.mean(2) + l21 * z1 + std::sqrt(T * law.cov(2, 2) - l21 * l21) * z2, 1e-12);
  EXPECT_EQ(ranf(d.sources.combined), ranf(twin.sources.combined)); // no other number is taken
  EXPECT_EQ(RANMAR(d.sources.marsaglia), RANMAR(twin.sources.marsaglia));
}

TEST(sciwhinag, stops_at_a_given_block_without_inverse) {
  drawing d;
  expect_stop(16, d.run, [&](reporting&) { d.draw(dense_matrix(1, {-1.0}), scale_of_2, 10); });
  EXPECT_EQ(d.run.text().find("T3inv not p.d.\nMatrix was                     -1.0\nInverse is"), 0U);
}

TEST(sciwhinag, stops_at_a_scale_without_inverse) {
  drawing d;
  // -[ -1 0; 0 -1 ]: the leading block of its inverse is negative
  expect_stop(16, d.run, [&](reporting&) {
    d.draw(dense_matrix(1, {1.0}), dense_matrix(2, {1.0, 0.0, 0.0, -1.0}), 10);
  });
  EXPECT_NE(d.run.text().find("not semipositive-definite"), std::string::npos) << d.run.text();
}

// The draw of the block before it stops first; the step keeps its own words.
TEST(sciwhinag, names_the_scale_of_the_new_rows) {
  heard_run run;
  mat<double> a, inverse;
  a.take(1, 1);
  inverse.take(1, 1);
  expect_stop(16, run, [&](reporting& report) { invert_or_stop(report, "Lambda11", a, 1, inverse); });
  EXPECT_EQ(run.text(),
            "Lambda11 not p.d.\nMatrix was                      0.0\nInverse is                      0.0\n");
}

TEST(sciwhinag, stops_at_a_conditional_draw_without_inverse) {
  drawing d;
  // 1/L11 is 1e17: the factor of the draw's scale counts as zero
  expect_stop(16, d.run, [&](reporting&) {
    d.draw(dense_matrix(1, {1.0}), dense_matrix(2, {1.0, 0.0, 0.0, 1e17}), 10);
  });
  EXPECT_EQ(d.run.text().find("LittleT1 not p.d.\nMatrix was                      0.0\nInverse is"), 0U)
      << d.run.text();
}

TEST(sciwhinag, stops_at_a_sampled_matrix_without_inverse) {
  drawing d;
  // the conditional variance is 1e-20 over a chi-square of 10 degrees of freedom: below 1e-21 in every second
  // draw
  expect_stop(16, d.run, [&](reporting&) {
    for (int i = 0; i < 50; ++i) d.draw(dense_matrix(1, {1.0}), dense_matrix(2, {1.0, 0.0, 0.0, 1e-20}), 10);
  });
  std::istringstream lines(d.run.text());
  for (const char* begin :
       {"Matrix sampled in sciwhinag ", "Inverse is ", "Lambda= ", "LittleR ", "npd matrix sampled "}) {
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line.find(begin), 0U) << line;
  }
}

TEST(sciwhinag, prints_matrices_beyond_30_rows) {
  drawing d;
  dense_matrix V(30), S(31);
  for (std::int64_t i = 1; i <= 31; ++i) S(i, i) = 2.0;
  for (std::int64_t i = 1; i <= 30; ++i) V(i, i) = 1.0;
  d.draw(V, S, 40);
  EXPECT_EQ(d.run.text().find("before\n"), 0U);
  EXPECT_NE(d.run.text().find("\nafter\n"), std::string::npos);
  drawing few;
  few.draw(dense_matrix(1, {1.0}), scale_of_2, 10);
  EXPECT_EQ(few.run.text(), "");
}

TEST(sciwhinag, stops_without_degrees_of_freedom) {
  drawing d;
  expect_stop(16, d.run, [&](reporting&) { d.draw(dense_matrix(1, {1.0}), scale_of_2, 0); });
  EXPECT_NE(d.run.text().find("Computation impossible in wishart_draw: df = 0 below order 1"),
            std::string::npos);
}

// ---- conversion of a level ----

struct level_case {
  level_case() { fit_conversion_work(run.report, work, 3); }
  // Numbers of one level of an order 3 matrix.
  const double ginv[3] = {0.6, -0.2, 0.8}; // packed, order 2
  const double b[2] = {0.3, -0.1};
  double block[6] = {4.0, 1.0, 3.0, 0.5, 0.25, 2.0};
  const double u[3] = {0.7, -0.4, 1.1};
  conversion_terms terms{3, ginv, b, 0.5};
  heard_run run;
  conversion_work work;
  double out[3] = {};
  double jacobian = 0;
};

TEST(pup, takes_the_simple_conversion_as_it_is_set_up) {
  level_case c;
  pup(c.run.report, c.work, 1, c.block, c.terms, 0.25, 1.5, c.u, c.out, c.jacobian);
  EXPECT_EQ(c.out[0], 0.7);
  EXPECT_EQ(c.out[1], -0.4);
  EXPECT_EQ(c.out[2], 0.25 + 0.5 * 1.5); // elast + cstd z
  EXPECT_EQ(c.jacobian, std::log(0.5));
}

// pn' w by hand: C = D (D + ginv)^-1
TEST(pup, takes_the_complete_conversion_when_the_ratio_allows_it) {
  level_case c;
  c.work.aijmax(1) = 3.0; // the ratio may be 3
  pup(c.run.report, c.work, 1, c.block, c.terms, 0.25, 1.5, c.u, c.out, c.jacobian);
  const dense_matrix D(2, {4.0, 1.0, 1.0, 3.0}), M(2, {4.6, 0.8, 0.8, 3.8});
  const dense_matrix Mi = dense_inverse(M).inverse;
  dense_matrix pn(3);
  for (std::int32_t i = 1; i <= 2; ++i)
    for (std::int32_t j = 1; j <= 2; ++j)
      for (std::int32_t k = 1; k <= 2; ++k) pn(i, j) += D(i, k) * Mi(k, j);
  pn(3, 1) = -0.6, pn(3, 2) = 0.2, pn(3, 3) = 2.0;
  const double w[3] = {0.7, -0.4, 0.25 + 0.5 * 1.5};
  for (std::int32_t j = 1; j <= 3; ++j) {
    double x = 0;
    for (std::int32_t i = 1; i <= 3; ++i) x += pn(i, j) * w[i - 1];
    EXPECT_NEAR(c.out[j - 1], x, 1e-14) << j;
  }
  // the factor reads the lower triangle of pn: its determinant is that of the symmetric matrix of it
  const dense_matrix lower(
      3, {pn(1, 1), pn(2, 1), pn(3, 1), pn(2, 1), pn(2, 2), pn(3, 2), pn(3, 1), pn(3, 2), pn(3, 3)});
  ASSERT_GT(dense_inverse(lower).determinant, 0.0);
  EXPECT_NEAR(c.jacobian, std::log(0.5) + std::log(dense_inverse(lower).determinant), 1e-12);
}

TEST(pup, of_one_given_trait_is_all_scalars) {
  level_case c;
  c.work.aijmax(1) = 1.0;
  c.terms.n = 2;
  c.terms.cstd = 0.2;
  pup(c.run.report, c.work, 1, c.block, c.terms, 0.1, -1.0, c.u, c.out, c.jacobian);
  const double C = 4.0 / 4.6, w2 = 0.1 - 0.2; // pn = [C 0; -b/cstd 1/cstd]
  EXPECT_NEAR(c.out[0], C * 0.7 - 0.3 / 0.2 * w2, 1e-15);
  EXPECT_NEAR(c.out[1], w2 / 0.2, 1e-15);
  EXPECT_NEAR(c.jacobian, std::log(0.2) + std::log(C * 5.0 - 1.5 * 1.5), 1e-14);
}

TEST(pup, reports_a_singular_conversion_once_a_move) {
  level_case c;
  c.work.aijmax(1) = 1.0;
  c.terms.n = 2;
  c.terms.cstd = 2.0; // 1/cstd - (b/cstd)^2/C below 0 for a large b
  const double b[1] = {3.0};
  c.terms.b = b;
  pup(c.run.report, c.work, 4, c.block, c.terms, 0.25, 1.5, c.u, c.out, c.jacobian);
  EXPECT_EQ(c.run.text(),
            "Complete conversion singular in pup:idim,irank           4           2           1\n");
  EXPECT_EQ(c.out[0], 0.7); // the simple conversion
  EXPECT_EQ(c.out[1], 0.25 + 2.0 * 1.5);
  EXPECT_EQ(c.jacobian, std::log(2.0));
  pup(c.run.report, c.work, 5, c.block, c.terms, 0.25, 1.5, c.u, c.out, c.jacobian);
  EXPECT_EQ(c.run.text().find("           5"), std::string::npos);
}

TEST(pup, stops_at_a_singular_conversion_matrix) {
  level_case c;
  c.block[0] = -0.6; // D + ginv has a pivot of 0
  expect_stop(16, c.run, [&](reporting& report) {
    pup(report, c.work, 1, c.block, c.terms, 0.25, 1.5, c.u, c.out, c.jacobian);
  });
  EXPECT_EQ(c.run.text().find("Conversion matrix is singular in pup                      0.0"), 0U)
      << c.run.text();
}

TEST(pdn, leaves_the_solutions_as_they_are_in_the_simple_conversion) {
  level_case c;
  pdn(c.run.report, c.work, 1, c.block, c.terms, c.u, c.out, c.jacobian);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(c.out[i], c.u[i]);
  EXPECT_EQ(c.jacobian, std::log(0.5));
}

TEST(pdn, does_not_look_at_a_conversion_of_few_data) {
  level_case c;
  c.work.aijmax(1) = 1.0;
  const double singular[3] = {-1.19, 0.0, 0.8}; // with it D + ginv has a pivot of 0
  c.terms.ginv = singular;
  c.block[0] = 1.19; // below 1.2
  pdn(c.run.report, c.work, 1, c.block, c.terms, c.u, c.out, c.jacobian);
  EXPECT_EQ(c.out[2], 1.1);
  EXPECT_EQ(c.jacobian, std::log(0.5));
  EXPECT_EQ(c.run.text(), "");
}

TEST(pdn, takes_the_complete_conversion_of_the_levels_solutions_when_the_ratio_allows_it) {
  level_case c;
  c.work.aijmax(1) = 1.0;
  c.terms.n = 2;
  c.terms.cstd = 0.2;
  pdn(c.run.report, c.work, 1, c.block, c.terms, c.u, c.out, c.jacobian);
  const double C = 4.0 / 4.6;
  EXPECT_NEAR(c.out[0], C * 0.7 - 1.5 * -0.4, 1e-15);
  EXPECT_NEAR(c.out[1], -0.4 / 0.2, 1e-15);
  EXPECT_NEAR(c.jacobian, std::log(C * 5.0 - 1.5 * 1.5), 1e-14); // without ln cstd
}

TEST(pdn, falls_back_to_the_simple_conversion_at_a_singular_one) {
  level_case c;
  c.work.aijmax(1) = 1.0;
  c.terms.n = 2;
  c.terms.cstd = 2.0;
  const double b[1] = {3.0};
  c.terms.b = b;
  pdn(c.run.report, c.work, 7, c.block, c.terms, c.u, c.out, c.jacobian);
  EXPECT_EQ(c.run.text(),
            "Complete conversion singular in pdn:idim,irank           7           2           1\n");
  EXPECT_EQ(c.out[1], -0.4);
  EXPECT_EQ(c.jacobian, std::log(2.0));
}

TEST(pdn, stops_at_a_singular_conversion_matrix) {
  level_case c;
  const double singular[3] = {-4.0, 0.0, 0.8};
  c.terms.ginv = singular;
  expect_stop(16, c.run,
              [&](reporting& report) { pdn(report, c.work, 1, c.block, c.terms, c.u, c.out, c.jacobian); });
  EXPECT_EQ(c.run.text().find("Conversion matrix is singular in pdn"), 0U);
}

// ---- all levels of a factor ----

// A run of one factor at this dimension with drawn solutions, and a move that is
// wanted: the matrix of the large model and the vectors are set by hand.
struct move_case : jump_case {
  move_case(const std::string& structure, std::int32_t order, std::int32_t dimension, bool down)
      : jump_case({{{structure, order, 14}}, order}) {
    start_moves(lines(6, 0, 1, 1));
    set_model({dimension});
    scan();
    listing.str("");
    set_move(dimension, down);
  }
  void set_move(std::int32_t dimension, bool down) {
    zeph::jump_store& j = r->jump;
    j.jump_k = 1;
    j.jump_down = down;
    j.new_model = j.small_model = j.large_model = r->state.ntr;
    j.new_model[0] = down ? dimension - 1 : dimension + 1;
    (down ? j.small_model : j.large_model)[0] = j.new_model[0];
    j.imax = j.large_model[0];
    for (std::int32_t i = 1; i <= j.imax; ++i)
      for (std::int32_t l = 1; l <= j.imax; ++l) j.cov_new(i, l) = i == l ? 1.5 + 0.25 * i : 0.4;
    j.jacobian = 0;
    j.prop_z.fill(0.0);
    std::copy_n(factor_solutions(), solutions(), j.conv_sol.data());
    if (!down) recompute();
  }
  void recompute() {
    jump_records records = jump_records_of(*r);
    recompute_data_blocks(records);
    listing.str("");
  }
  double* factor_solutions() { return r->sampler.sol.data() + m->NBEGRA(1); }
  std::int64_t solutions() const { return std::int64_t{m->NRALEV(1)} * m->RMAT(1).n_rc; }
  double sol(std::int32_t level, std::int32_t row) {
    return factor_solutions()[(level - 1) * m->RMAT(1).n_rc + row - 1];
  }
  void convert() {
    jump_records records = jump_records_of(*r);
    if (options.factors[0].structure == "I")
      samppegm(records, 1);
    else
      sampanim(records, 1);
  }
  // Regression of row n of cov_new on the rows before it, and what it leaves of the variance.
  std::vector<double> coefficients(double& variance) const {
    const zeph::jump_store& j = r->jump;
    dense_matrix G11(j.imax - 1);
    for (std::int32_t i = 1; i < j.imax; ++i)
      for (std::int32_t l = 1; l < j.imax; ++l) G11(i, l) = j.cov_new(i, l);
    const dense_matrix inverse = dense_inverse(G11).inverse;
    std::vector<double> b(static_cast<std::size_t>(j.imax - 1));
    variance = j.cov_new(j.imax, j.imax);
    for (std::int32_t i = 1; i < j.imax; ++i) {
      for (std::int32_t l = 1; l < j.imax; ++l)
        b[static_cast<std::size_t>(i - 1)] += inverse(i, l) * j.cov_new(l, j.imax);
      variance -= b[static_cast<std::size_t>(i - 1)] * j.cov_new(i, j.imax);
    }
    return b;
  }
  double mean(std::int32_t level) {
    double variance = 0, sum = 0;
    const std::vector<double> b = coefficients(variance);
    for (std::size_t i = 0; i < b.size(); ++i) sum += b[i] * sol(level, static_cast<std::int32_t>(i + 1));
    return sum;
  }
};

TEST(samppegm, draws_the_new_solution_of_each_level_about_its_conditional_mean) {
  for (const std::int32_t order : {2, 3, 4}) {
    move_case c("I", order, order - 1, false);
    marsaglia_source twin = c.r->sources.marsaglia;
    c.convert();
    double variance = 0;
    c.coefficients(variance);
    for (std::int32_t l = 1; l <= 14; ++l) {
      double z = 0;
      ranmar_kr_normals(twin, &z, 1);
      EXPECT_EQ(c.r->jump.prop_z(l), z);
      EXPECT_NEAR(c.sol(l, order), c.mean(l) + std::sqrt(variance) * z, 1e-12);
      for (std::int32_t i = 1; i <= order; ++i)
        EXPECT_EQ(c.r->jump.conv_sol((l - 1) * order + i), c.sol(l, i)); // the simple conversion
    }
    EXPECT_NEAR(c.r->jump.jacobian, 14 * 0.5 * std::log(variance), 1e-12);
    EXPECT_EQ(c.text().find("gm"), order == 4 ? 0U : std::string::npos); // order 4 is printed
  }
}

TEST(samppegm, recovers_the_normals_and_the_solutions_on_the_way_down) {
  for (const std::int32_t order : {2, 3, 4}) {
    move_case c("I", order, order - 1, false);
    c.convert();
    const std::vector<double> before(c.factor_solutions(), c.factor_solutions() + c.solutions());
    const std::vector<double> z(c.r->jump.prop_z.begin(), c.r->jump.prop_z.end());
    const double jacobian = c.r->jump.jacobian;
    c.set_model({order});
    c.set_move(order, true);
    c.convert();
    for (std::int32_t l = 1; l <= 14; ++l)
      EXPECT_NEAR(c.r->jump.prop_z(l), z[static_cast<std::size_t>(l - 1)], 1e-12);
    for (std::size_t i = 0; i < before.size(); ++i) {
      EXPECT_EQ(c.factor_solutions()[i], before[i]);
      EXPECT_EQ(c.r->jump.conv_sol(static_cast<std::int64_t>(i + 1)), before[i]);
    }
    EXPECT_NEAR(c.r->jump.jacobian, jacobian, 1e-12);
  }
}

TEST(samppegm, stops_at_a_matrix_that_is_not_positive_definite) {
  for (const bool first : {true, false}) {
    move_case c("I", 3, 2, false);
    c.r->jump.cov_new(first ? 1 : 3, first ? 1 : 3) = first ? 1e-13 : -1.0;
    try {
      c.convert();
      ADD_FAILURE() << "no stop";
    } catch (const run_stop& stop) {
      EXPECT_EQ(stop.exit_code, 16);
    }
    EXPECT_EQ(c.text().find("Input covariance matrix n.p.d. in samppegm\ngm "), 0U) << c.text();
  }
}

// sum of z^2 = u' A^-1 u / variance without inbreeding, u the new solutions less their regression
TEST(sampanim, draws_the_new_solutions_along_the_pedigree) {
  move_case c("PED", 3, 2, false);
  const std::vector<std::array<std::int32_t, 2>> parents = made_pedigree(14);
  const std::vector<double> given(c.factor_solutions(), c.factor_solutions() + c.solutions());
  marsaglia_source twin = c.r->sources.marsaglia;
  c.convert();
  double variance = 0;
  c.coefficients(variance);
  const double sd = static_cast<double>(static_cast<float>(std::sqrt(variance)));
  std::vector<double> u(15);
  double log_scales = 0;
  for (std::int32_t l = 1; l <= 14; ++l) { // parents come before progeny: one pass
    const auto [s, d] = parents[static_cast<std::size_t>(l - 1)];
    const int known = (s > 0) + (d > 0);
    const double scale = (known == 0 ? 1.0 : known == 1 ? 0.8660254 : 0.70710677) * sd; // root of 3/4, of 1/2
    double z = 0;
    ranmar_kr_normals(twin, &z, 1);
    EXPECT_EQ(c.r->jump.prop_z(l), z);
    u[static_cast<std::size_t>(l)] =
        0.5 * (u[static_cast<std::size_t>(s)] + u[static_cast<std::size_t>(d)]) + scale * z;
    log_scales += std::log(scale);
    EXPECT_NEAR(c.sol(l, 3), u[static_cast<std::size_t>(l)] + c.mean(l), 1e-6); // 32-bit constants
    for (std::int32_t i = 1; i <= 2; ++i)
      EXPECT_EQ(c.sol(l, i), given[static_cast<std::size_t>((l - 1) * 3 + i - 1)]);
    for (std::int32_t i = 1; i <= 3; ++i) EXPECT_EQ(c.r->jump.conv_sol((l - 1) * 3 + i), c.sol(l, i));
  }
  EXPECT_NEAR(c.r->jump.jacobian, log_scales, 1e-5);
  EXPECT_EQ(c.text(), "Start on sampanim\n");
}

TEST(sampanim, recovers_the_normals_on_the_way_down_and_leaves_the_solutions) {
  for (const std::int32_t order : {3, 4}) {
    move_case c("PED", order, order - 1, false);
    c.convert();
    const std::vector<double> before(c.factor_solutions(), c.factor_solutions() + c.solutions());
    const std::vector<double> z(c.r->jump.prop_z.begin(), c.r->jump.prop_z.end());
    const double jacobian = c.r->jump.jacobian;
    c.set_model({order});
    c.set_move(order, true);
    marsaglia_source twin = c.r->sources.marsaglia;
    c.convert();
    for (std::int32_t l = 1; l <= 14; ++l)
      EXPECT_NEAR(c.r->jump.prop_z(l), z[static_cast<std::size_t>(l - 1)], 1e-12);
    for (std::size_t i = 0; i < before.size(); ++i) {
      EXPECT_EQ(c.factor_solutions()[i], before[i]);
      EXPECT_EQ(c.r->jump.conv_sol(static_cast<std::int64_t>(i + 1)), before[i]);
    }
    EXPECT_NEAR(c.r->jump.jacobian, jacobian, 1e-12);
    EXPECT_EQ(RANMAR(c.r->sources.marsaglia), RANMAR(twin)); // no draw
  }
}

TEST(sampanim, stops_on_the_way_down_to_one_trait) {
  move_case c("PED", 2, 2, true);
  try {
    c.convert();
    ADD_FAILURE() << "no stop";
  } catch (const run_stop& stop) {
    EXPECT_EQ(stop.exit_code, 16);
  }
  EXPECT_EQ(c.text(),
            "Start on sampanim\nAttempt to increase model to            1 for effect            1\n");
}

} // namespace
