#include "jump/jump_densities.h"

#include "jump/conditional_wishart.h"
#include "support/check.h"
#include "support/dense_matrix.h"

#include <cmath>

namespace {

using namespace zeph_test;
using zeph::CWisdens;
using zeph::iwdens;
using zeph::log_gamma;

constexpr double pi = 3.14159265358979323846;

// Symmetric matrices: rows and columns are the same.
const dense_matrix two(2, {2.0, 0.6, 0.6, 1.5});
const dense_matrix two_scale(2, {5.0, -1.0, -1.0, 4.0});
const dense_matrix three(3, {2.0, 0.6, -0.3, 0.6, 1.5, 0.4, -0.3, 0.4, 1.2});
const dense_matrix three_scale(3, {6.0, 1.0, 0.5, 1.0, 8.0, -2.0, 0.5, -2.0, 5.0});
const dense_matrix four(4,
                        {2.0, 0.6, -0.3, 0.1, 0.6, 1.5, 0.4, 0.2, -0.3, 0.4, 1.2, -0.5, 0.1, 0.2, -0.5, 0.9});
const dense_matrix four_scale(4, {6.0, 1.0, 0.5, 0.0, 1.0, 8.0, -2.0, 1.5, 0.5, -2.0, 5.0, 0.7, 0.0, 1.5, 0.7,
                                  3.0});

double iw(zeph::reporting& report, std::int32_t n, std::int32_t v, const dense_matrix& X,
          const dense_matrix& S) {
  return iwdens(report, n, v, X.cells.data(), X.n, S.cells.data(), S.n);
}
double cw(zeph::reporting& report, std::int32_t n, std::int32_t v, const dense_matrix& X,
          const dense_matrix& S) {
  return CWisdens(report, n, v, X.cells.data(), X.n, S.cells.data(), S.n);
}

TEST(log_gamma, agrees_with_the_library_to_2e_10) {
  for (double a = 0.5; a < 60.0; a += 0.5)
    EXPECT_NEAR(log_gamma(a), std::lgamma(a), 2e-10 * (1.0 + std::lgamma(a)));
}

TEST(normal_logdens, is_the_closed_form_and_integrates_to_1) {
  EXPECT_NEAR(zeph::normal_logdens(0.0, 1.0, 0.0), -0.91893853320467274178, 1e-15); // -ln(2 pi)/2
  EXPECT_NEAR(zeph::normal_logdens(3.0, 4.0, 1.0), -0.5 * std::log(8.0 * pi) - 0.5, 1e-15);
  double sum = 0; // trapezoidal rule: exact to rounding for a density that dies out
  for (double x = -40.0; x <= 40.0; x += 0.125) sum += std::exp(zeph::normal_logdens(x, 2.5, 0.3)) * 0.125;
  EXPECT_NEAR(sum, 1.0, 1e-12);
}

TEST(iwdens, of_order_1_is_the_inverse_gamma_density_and_integrates_to_1) {
  heard_run run;
  const dense_matrix S(1, {3.0});
  for (const std::int32_t v : {1, 4, 9}) {
    const double a = 0.5 * v, b = 1.5; // X ~ inverse gamma (v/2, S/2)
    double sum = 0;
    constexpr double step = 1.0 / 64;
    for (double t = -12.0; t <= 80.0; t += step) { // X = exp(t)
      const dense_matrix X(1, {std::exp(t)});
      const double density = iw(run.report, 1, v, X, S);
      EXPECT_NEAR(density, a * std::log(b) - std::lgamma(a) - (a + 1.0) * t - b * std::exp(-t), 1e-8);
      sum += std::exp(density + t) * step;
    }
    EXPECT_NEAR(sum, 1.0, 1e-8);
  }
}

// X = (e^s, r e^((s+t)/2); ., e^t), r = tanh(w); the Jacobian is e^(3(s+t)/2) (1 - r^2)
TEST(iwdens, of_order_2_integrates_to_1) {
  heard_run run;
  constexpr double h = 0.14;
  double sum = 0;
  for (double s = -3.0; s <= 6.0; s += h)
    for (double t = -3.0; t <= 6.0; t += h)
      for (double w = -4.2; w <= 4.2; w += h) {
        const double r = std::tanh(w), c = r * std::exp(0.5 * (s + t));
        const dense_matrix X(2, {std::exp(s), c, c, std::exp(t)});
        sum += std::exp(iw(run.report, 2, 7, X, two_scale) + 1.5 * (s + t)) * (1.0 - r * r) * h * h * h;
      }
  EXPECT_NEAR(sum, 1.0, 1e-5);
}

TEST(iwdens, of_order_3_is_the_closed_form) {
  heard_run run;
  const dense_inverse X(three), S(three_scale);
  double t = 0;
  for (std::int32_t i = 1; i <= 3; ++i)
    for (std::int32_t j = 1; j <= 3; ++j) t += X.inverse(i, j) * three_scale(i, j);
  const double v = 8.0;
  double multigamma = 1.5 * std::log(pi); // p(p-1)/4 ln pi
  for (int j = 0; j < 3; ++j) multigamma += std::lgamma(0.5 * (v - j));
  const double expected = 0.5 * v * std::log(S.determinant) - 0.5 * (v + 4.0) * std::log(X.determinant) -
                          0.5 * t - 1.5 * v * std::log(2.0) - multigamma;
  EXPECT_NEAR(iw(run.report, 3, 8, three, three_scale), expected, 1e-8);
}

TEST(iwdens, is_flat_without_degrees_of_freedom) {
  heard_run run;
  EXPECT_EQ(iw(run.report, 2, 0, two, dense_matrix(2)), 0.0); // not even the scale is looked at
}

TEST(iwdens, is_0_for_a_matrix_that_is_not_positive_definite) {
  heard_run run;
  EXPECT_EQ(iw(run.report, 2, 5, dense_matrix(2, {1.0, 2.0, 2.0, 1.0}), two_scale), 0.0);
  EXPECT_EQ(run.text(), "");
}

TEST(iwdens, stops_at_a_scale_that_is_not_positive_definite) {
  const std::string text = expect_stop(16, [](zeph::reporting& report) {
    iw(report, 2, 5, two, dense_matrix(2, {1.0, 2.0, 2.0, 1.0}));
  });
  EXPECT_EQ(text, "Scale matrix n.p.d.\n");
}

TEST(CWisdens, is_the_difference_of_two_densities_of_the_leading_blocks) {
  heard_run run;
  // the constants have 32-bit digits: 5e-8 each, times v and n - 1
  for (const std::int32_t v : {4, 7, 12, 30}) {
    EXPECT_NEAR(cw(run.report, 2, v, two, two_scale),
                iw(run.report, 2, v, two, two_scale) - iw(run.report, 1, v, two, two_scale), 5e-8 * (v + 2));
    EXPECT_NEAR(cw(run.report, 3, v, three, three_scale),
                iw(run.report, 3, v, three, three_scale) - iw(run.report, 2, v, three, three_scale),
                5e-8 * (v + 3));
    EXPECT_NEAR(cw(run.report, 4, v, four, four_scale),
                iw(run.report, 4, v, four, four_scale) - iw(run.report, 3, v, four, four_scale),
                5e-8 * (v + 4));
  }
}

TEST(CWisdens, is_flat_without_degrees_of_freedom_or_with_fewer_than_rows) {
  heard_run run;
  const dense_matrix nothing(3);
  EXPECT_EQ(cw(run.report, 3, 0, nothing, nothing), 0.0); // no checks are made
  for (const std::int32_t v : {1, 2}) EXPECT_EQ(cw(run.report, 3, v, three, three_scale), 0.0); // v + 1 <= n
  EXPECT_NE(cw(run.report, 3, 3, three, three_scale), 0.0);
  EXPECT_EQ(run.text(), "");
}

TEST(CWisdens, reports_a_matrix_that_is_not_positive_definite_and_is_0) {
  heard_run run;
  const dense_matrix last(2, {1.0, 2.0, 2.0, 1.0});
  EXPECT_EQ(cw(run.report, 2, 5, last, two_scale), 0.0);
  EXPECT_EQ(run.text(),
            "CWisdens: Wishart matrx npd. density=                      1.0                      2.0"
            "                      2.0                      1.0\n");
  run.listing.str("");
  const dense_matrix first(2, {-1.0, 0.0, 0.0, 1.0});
  EXPECT_EQ(cw(run.report, 2, 5, first, two_scale), 0.0);
  EXPECT_EQ(run.text().find("CWisdens: Wishart matrx npd. density="), 0U);
}

TEST(CWisdens, stops_at_a_scale_that_is_not_positive_definite) {
  const std::string text = expect_stop(16, [](zeph::reporting& report) {
    cw(report, 2, 5, two, dense_matrix(2, {1.0, 2.0, 2.0, 1.0}));
  });
  EXPECT_EQ(text, "CWisdens: Scale matrix n.p.d.\n");
}

TEST(mvn_last_logdens, of_one_variable_is_the_normal_density) {
  int info = 0;
  const double x = 3.0, mean = 1.0, V = 4.0;
  EXPECT_NEAR(zeph::mvn_last_logdens(&x, 1, &mean, &V, info), zeph::normal_logdens(3.0, 4.0, 1.0), 1e-15);
  EXPECT_EQ(info, 0);
}

TEST(mvn_last_logdens, has_the_last_component_of_the_quadratic_form_alone) {
  int info = 0;
  const double x[2] = {7.0, 2.5}, mean[2] = {-1.0, 1.0}, V[4] = {2.0, 0.6, 0.6, 1.5};
  // det V = 2.64, Vinv(2,2) = 2/2.64
  const double expected = -0.5 * (2.0 * std::log(2.0 * pi) + std::log(2.64)) - 0.5 * 2.25 * 2.0 / 2.64;
  EXPECT_NEAR(zeph::mvn_last_logdens(x, 2, mean, V, info), expected, 1e-14);
  const double bad[4] = {1.0, 2.0, 2.0, 1.0};
  EXPECT_EQ(zeph::mvn_last_logdens(x, 2, mean, bad, info), 0.0);
  EXPECT_EQ(info, 1);
}

double g0(zeph::reporting& report, std::int32_t n, std::int32_t v, const dense_matrix& X,
          const dense_matrix& S) {
  return zeph::g0kainv(report, n, n - 1, X.cells.data(), X.n, v, S.cells.data(), S.n);
}

TEST(g0kainv, of_one_given_row_is_the_density_of_the_whole_less_that_of_the_given_block) {
  heard_run run;
  // the given block is inverse Wishart with one degree of freedom less
  for (const std::int32_t v : {3, 6, 15})
    EXPECT_NEAR(g0(run.report, 2, v, two, two_scale),
                iw(run.report, 2, v, two, two_scale) - iw(run.report, 1, v - 1, two, two_scale), 1e-8);
}

TEST(g0kainv, of_two_given_rows_takes_the_last_component_of_the_cross_block_alone) {
  heard_run run;
  const std::int32_t v = 9;
  // by the scale: T ~ IW(v, S33 - S32 S22^-1 S23), x ~ N(V S22^-1 S23, T V S22^-1 V), V the leading block of
  // X
  const dense_matrix S22(2, {6.0, 1.0, 1.0, 8.0}), V(2, {2.0, 0.6, 0.6, 1.5});
  const dense_matrix S22i = dense_inverse(S22).inverse, Vi = dense_inverse(V).inverse;
  const double s[2] = {0.5, -2.0}, x[2] = {-0.3, 0.4};
  double beta[2] = {}, mean[2] = {}, cov[4] = {}, conditional = 5.0, T = 1.2;
  for (std::int32_t a = 1; a <= 2; ++a)
    for (std::int32_t b = 1; b <= 2; ++b) {
      beta[a - 1] += S22i(a, b) * s[b - 1];
      conditional -= s[a - 1] * S22i(a, b) * s[b - 1];
      T -= x[a - 1] * Vi(a, b) * x[b - 1];
    }
  for (std::int32_t a = 1; a <= 2; ++a)
    for (std::int32_t b = 1; b <= 2; ++b) mean[a - 1] += V(a, b) * beta[b - 1];
  for (std::int32_t a = 1; a <= 2; ++a)
    for (std::int32_t b = 1; b <= 2; ++b)
      for (std::int32_t c = 1; c <= 2; ++c)
        for (std::int32_t d = 1; d <= 2; ++d)
          cov[(a - 1) + 2 * (b - 1)] += T * V(a, c) * S22i(c, d) * V(d, b);
  int info = 0;
  const double expected = iw(run.report, 1, v, dense_matrix(1, {T}), dense_matrix(1, {conditional})) +
                          zeph::mvn_last_logdens(x, 2, mean, cov, info);
  EXPECT_NEAR(g0(run.report, 3, v, three, three_scale), expected, 1e-8);
}

TEST(g0kainv, stops_at_a_block_that_is_not_positive_definite) {
  const std::string text = expect_stop(16, [](zeph::reporting& report) {
    g0(report, 2, 5, dense_matrix(2, {-1.0, 0.0, 0.0, 1.0}), two_scale);
  });
  EXPECT_EQ(text.find("g0kainv not p.d.\nMatrix was                     -1.0\nInverse is"), 0U) << text;
}

} // namespace
