#include "numerics/matrix_draws.h"

#include "laws.h"
#include "numerics/cholesky_family.h"
#include "numerics/gamma_draws.h"
#include "numerics/normal_draws.h"
#include "stops.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace zeph {
namespace {

struct seeded : kept_listing {
  random_sources sources{report};
  marsaglia_source& ranmar = sources.marsaglia;
  combined_source& ranlib = sources.combined;
  matrix_draw_work work;
  explicit seeded(std::int32_t a = 301, std::int32_t b = 2027) {
    RMARIN(ranmar, a, b);
    SETALL(ranlib, a, b);
  }
};

using matrix = std::vector<double>; // n x n, column-major

// A A' for A with rows (2 0 0), (1 3 0), (-1 1 1): positive definite, by hand.
const matrix three = {4, 2, -2, 2, 10, 2, -2, 2, 3};
// its leading block in an array with leading dimension 5, the rest not numbers
matrix in_wider_array(const matrix& a, int n, int ld) {
  matrix wide(static_cast<std::size_t>(ld * n), std::nan(""));
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i)
      wide[static_cast<std::size_t>(i + j * ld)] = a[static_cast<std::size_t>(i + j * n)];
  return wide;
}
double at(const matrix& a, int i, int j) { return a[static_cast<std::size_t>(i - 1 + (j - 1) * 3)]; }

// Sums over draws of order 3
struct sums {
  double n = 0.0;
  matrix first = matrix(3), second = matrix(9);
  void add(const double* x, const double* mean) {
    n += 1.0;
    for (int i = 0; i < 3; ++i) {
      first[static_cast<std::size_t>(i)] += x[i] - mean[i];
      for (int j = 0; j < 3; ++j)
        second[static_cast<std::size_t>(i + 3 * j)] += (x[i] - mean[i]) * (x[j] - mean[j]);
    }
  }
  // Normal draws: the product of two deviations has variance c_ii c_jj + c_ij^2.
  void expect_normal(const matrix& c) const {
    for (int i = 1; i <= 3; ++i) {
      laws::expect_sum(first[static_cast<std::size_t>(i - 1)], n, 0.0, at(c, i, i), "mean");
      for (int j = 1; j <= i; ++j)
        laws::expect_sum(at(second, i, j), n, at(c, i, j),
                         at(c, i, i) * at(c, j, j) + at(c, i, j) * at(c, i, j),
                         "covariance " + std::to_string(i) + std::to_string(j));
    }
  }
};

// ---- ranmar_setgmn, ranmar_genmn ----

const double mean_3[] = {1.0, -2.0, 0.5};

TEST(ranmar_setgmn, packs_size_means_and_the_upper_factor_by_rows) {
  seeded run;
  double parm[10];
  ASSERT_EQ(gmn_size(3), 10);
  const matrix wide = in_wider_array(three, 3, 5);
  ranmar_setgmn(run.report, mean_3, wide.data(), 5, 3, parm, run.work);
  const double expected[] = {3, 1, -2, 0.5, 2, 1, -1, 3, 1, 1}; // rows of A' above
  for (int i = 0; i < 10; ++i) EXPECT_EQ(parm[i], expected[i]) << i;
  for (int i = 0; i < 9; ++i)
    EXPECT_EQ(wide[static_cast<std::size_t>(i % 3 + i / 3 * 5)], three[static_cast<std::size_t>(i)]);
}

TEST(ranmar_genmn, is_the_mean_and_the_factor_times_normals) {
  seeded run, twin;
  double parm[10], x[3], work[3], z[3];
  ranmar_setgmn(run.report, mean_3, three.data(), 3, 3, parm, run.work);
  for (int draw = 0; draw < 100; ++draw) {
    ranmar_genmn(run.ranmar, parm, x, work);
    for (double& v : z) v = ranmar_snorm(twin.ranmar);
    EXPECT_EQ(x[0], 1.0 + 2.0 * z[0]);
    EXPECT_EQ(x[1], -2.0 + (z[0] + 3.0 * z[1]));
    EXPECT_EQ(x[2], 0.5 + (-z[0] + z[1] + z[2]));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(work[i], z[i]);
  }
}

TEST(ranmar_genmn, has_its_mean_and_covariances) {
  seeded run;
  double parm[10], x[3], work[3];
  ranmar_setgmn(run.report, mean_3, three.data(), 3, 3, parm, run.work);
  sums s;
  std::vector<double> contrast; // (1, -1, 2) x: variance c'Vc = 4 + 10 + 12 - 4 - 8 - 8 = 6
  for (int draw = 0; draw < 200000; ++draw) {
    ranmar_genmn(run.ranmar, parm, x, work);
    s.add(x, mean_3);
    contrast.push_back((x[0] - x[1] + 2.0 * x[2] - 4.0) / std::sqrt(6.0));
  }
  s.expect_normal(three);
  laws::expect_law(contrast, laws::normal_cdf);
}

TEST(ranmar_genmn, of_no_variables_does_nothing) {
  seeded run, untouched;
  const double parm[] = {0.0};
  ranmar_genmn(run.ranmar, parm, nullptr, nullptr);
  EXPECT_EQ(RANMAR(run.ranmar), RANMAR(untouched.ranmar));
}

TEST(ranmar_setgmn, stops_without_variables) {
  for (const int p : {0, -2}) {
    seeded run;
    double parm[2];
    EXPECT_EQ(run.exit_code([&] { ranmar_setgmn(run.report, mean_3, three.data(), 3, p, parm, run.work); }),
              16);
    EXPECT_EQ(run.out.str(), p == 0 ? "Value of P:            0\nP nonpositive in SETGMN\n"
                                    : "Value of P:           -2\nP nonpositive in SETGMN\n");
  }
}

TEST(ranmar_setgmn, stops_without_a_factor) {
  seeded run;
  const matrix singular = {1, 1, 1, 1};
  double parm[6];
  EXPECT_EQ(run.exit_code([&] { ranmar_setgmn(run.report, mean_3, singular.data(), 2, 2, parm, run.work); }),
            16);
  EXPECT_EQ(run.out.str(), " COVM not positive definite in SETGMN\n");
}

// ---- mvn_draw ----

TEST(mvn_draw, is_the_mean_and_the_factor_times_normals) {
  seeded run, twin;
  const matrix wide = in_wider_array(three, 3, 4);
  double x[3], z[3];
  for (int draw = 0; draw < 100; ++draw) {
    mvn_draw(run.report, run.ranlib, x, mean_3, wide.data(), 4, 3, run.work);
    for (double& v : z) v = static_cast<double>(snorm(twin.ranlib));
    EXPECT_EQ(x[0], 1.0 + 2.0 * z[0]);
    EXPECT_EQ(x[1], -2.0 + (z[0] + 3.0 * z[1]));
    EXPECT_EQ(x[2], 0.5 + (-z[0] + z[1] + z[2]));
  }
}

TEST(mvn_draw, has_its_mean_and_covariances) {
  seeded run;
  double x[3];
  sums s;
  for (int draw = 0; draw < 200000; ++draw) {
    mvn_draw(run.report, run.ranlib, x, mean_3, three.data(), 3, 3, run.work);
    s.add(x, mean_3);
  }
  s.expect_normal(three);
}

TEST(mvn_draw, of_a_singular_covariance_stays_in_its_plane) {
  seeded run;
  const matrix ones = {1, 1, 1, 1};
  double x[2];
  for (int draw = 0; draw < 100; ++draw) {
    mvn_draw(run.report, run.ranlib, x, mean_3, ones.data(), 2, 2, run.work);
    EXPECT_NEAR(x[0] - x[1], 3.0, 1e-14);
  }
  const matrix indefinite = {1, 2, 2, 1};
  EXPECT_EQ(
      run.exit_code([&] { mvn_draw(run.report, run.ranlib, x, mean_3, indefinite.data(), 2, 2, run.work); }),
      16);
  EXPECT_EQ(run.out.str(), " Matrix not semipositive-definite, row            2\n");
}

TEST(mvn_draw, of_no_variables_draws_nothing) {
  seeded run, untouched;
  mvn_draw(run.report, run.ranlib, nullptr, nullptr, nullptr, 1, 0, run.work);
  EXPECT_EQ(ranf(run.ranlib), ranf(untouched.ranlib));
}

// ---- Wishart ----

// T row by row, the diagonal first, then w = (L T)(L T)'; the same numbers from a
// twin source, multiplied out here.
TEST(wishart_draw, is_made_of_bartletts_numbers_in_their_order) {
  seeded run, twin;
  gamma_cache cache;
  const double L[3][3] = {{2, 0, 0}, {1, 3, 0}, {-1, 1, 1}};
  const int df = 7;
  matrix w(15, std::nan(""));
  const matrix wide = in_wider_array(three, 3, 4);
  for (int draw = 0; draw < 200; ++draw) {
    wishart_draw(run.report, run.sources, w.data(), 5, wide.data(), 4, 3, df, run.work);
    double T[3][3] = {}, B[3][3] = {};
    for (int i = 0; i < 3; ++i) {
      const float chi_square = 2.0F * sgamma(twin.ranlib, static_cast<float>(df - i) / 2.0F, cache);
      T[i][i] = std::sqrt(static_cast<double>(chi_square));
      for (int j = 0; j < i; ++j) T[i][j] = static_cast<double>(snorm(twin.ranlib));
    }
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j)
        for (int k = 0; k < 3; ++k) B[i][j] += L[i][k] * T[k][j];
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) {
        double expected = 0.0;
        for (int k = 0; k < 3; ++k) expected += B[i][k] * B[j][k];
        EXPECT_EQ(w[static_cast<std::size_t>(i + 5 * j)], expected);
      }
  }
  EXPECT_TRUE(std::isnan(w[3])); // below order 3 nothing is written
}

// E w = df S; variance of w_ij: df (s_ij^2 + s_ii s_jj). c'wc / c'Sc is chi-square df.
TEST(wishart_draw, has_bartletts_mean_and_chi_square_contrasts) {
  for (const int df : {3, 4, 9, 40}) {
    seeded run;
    constexpr int n = 50000;
    matrix w(9), sum(9);
    const double c[3][3] = {{1, 0, 0}, {1, -1, 2}, {0.3, 0.2, 1}};
    std::vector<double> contrast[3];
    for (int draw = 0; draw < n; ++draw) {
      wishart_draw(run.report, run.sources, w.data(), 3, three.data(), 3, 3, df, run.work);
      for (std::size_t i = 0; i < 9; ++i) sum[i] += w[i];
      for (int k = 0; k < 3; ++k) {
        double of_w = 0.0, of_s = 0.0;
        for (int i = 1; i <= 3; ++i)
          for (int j = 1; j <= 3; ++j) {
            of_w += c[k][i - 1] * c[k][j - 1] * at(w, i, j);
            of_s += c[k][i - 1] * c[k][j - 1] * at(three, i, j);
          }
        contrast[k].push_back(of_w / of_s);
      }
    }
    for (int i = 1; i <= 3; ++i)
      for (int j = 1; j <= i; ++j)
        laws::expect_sum(at(sum, i, j), n, df * at(three, i, j),
                         df * (at(three, i, j) * at(three, i, j) + at(three, i, i) * at(three, j, j)),
                         "df " + std::to_string(df) + " element " + std::to_string(i) + std::to_string(j));
    for (const auto& x : contrast)
      laws::expect_law(
          x, [df](double v) { return laws::chi_square_cdf(df, v); }, "df " + std::to_string(df));
  }
}

// |w| / |S| is a product of independent chi-squares with df, df-1, df-2 degrees:
// mean df (df-1)(df-2), second moment the product of d (d+2).
TEST(wishart_draw, has_the_law_of_its_determinant) {
  seeded run;
  constexpr int n = 100000, df = 12;
  matrix w(9);
  double sum = 0.0;
  for (int draw = 0; draw < n; ++draw) {
    wishart_draw(run.report, run.sources, w.data(), 3, three.data(), 3, 3, df, run.work);
    sum += det_of(run.report, w.data(), 3, 3) / 36.0; // |S| = (2 3 1)^2
  }
  const double mean = 12.0 * 11.0 * 10.0, second = mean * 14.0 * 13.0 * 12.0;
  laws::expect_sum(sum, n, mean, second - mean * mean, "determinant");
}

TEST(wishart_draw, of_order_1_is_a_scaled_chi_square) {
  seeded run, twin;
  gamma_cache cache;
  const double scale = 2.25;
  double w;
  for (int draw = 0; draw < 100; ++draw) {
    wishart_draw(run.report, run.sources, &w, 1, &scale, 1, 1, 5, run.work);
    const double chi_square = static_cast<double>(2.0F * sgamma(twin.ranlib, 2.5F, cache));
    EXPECT_NEAR(w, scale * chi_square, 1e-14 * w);
  }
}

TEST(wishart_draw, below_its_order_stops_and_draws_nothing) {
  for (const int df : {2, 0, -5}) {
    seeded run, untouched;
    matrix w(9);
    EXPECT_EQ(run.exit_code([&] {
      wishart_draw(run.report, run.sources, w.data(), 3, three.data(), 3, 3, df, run.work);
    }),
              16);
    EXPECT_EQ(run.out.str(), "\nERROR - Computation impossible in wishart_draw: df = " + std::to_string(df) +
                                 " below order 3\n\nZEPH terminates.\n");
    EXPECT_EQ(ranf(run.ranlib), ranf(untouched.ranlib));
  }
  seeded run;
  matrix w(9);
  EXPECT_EQ(
      run.exit_code([&] { rinvwish(run.report, run.sources, w.data(), 3, three.data(), 3, 3, 2, run.work); }),
      16);
  EXPECT_EQ(
      run.exit_code([&] { rinvwish(run.report, run.sources, w.data(), 3, three.data(), 3, 3, 3, run.work); }),
      0);
}

// ---- inverse Wishart ----

TEST(rinvwish, is_the_inverse_of_the_wishart_draw) {
  seeded run, twin;
  matrix x(9), w(9);
  for (int draw = 0; draw < 200; ++draw) {
    rinvwish(run.report, run.sources, x.data(), 3, three.data(), 3, 3, 6, run.work);
    wishart_draw(twin.report, twin.sources, w.data(), 3, three.data(), 3, 3, 6, twin.work);
    const mat<double> g = ginverse_of(run.report, w.data(), 3, 3);
    for (std::size_t i = 0; i < 9; ++i) EXPECT_EQ(x[i], g.data()[i]);
  }
}

// With P = S^-1 and m = df - p - 1: E x = P / m; variance of x_ij
// ((df-p+1) P_ij^2 + m P_ii P_jj) / ((df-p) m^2 (m-2)) (Press, Applied
// Multivariate Analysis, 5.2). c'Pc / c'xc is chi-square df - p + 1.
TEST(rinvwish, has_its_mean_and_chi_square_contrasts) {
  seeded run;
  constexpr int n = 100000, df = 14, m = df - 4;
  double P[9];
  matrix S = three, x(9), sum(9);
  const mat<double> inverse = ginverse_of(run.report, S.data(), 3, 3);
  for (int i = 0; i < 9; ++i) P[i] = inverse.data()[i];
  const double c[] = {1.0, -1.0, 2.0};
  std::vector<double> contrast;
  for (int draw = 0; draw < n; ++draw) {
    rinvwish(run.report, run.sources, x.data(), 3, S.data(), 3, 3, df, run.work);
    double of_x = 0.0, of_p = 0.0;
    for (int i = 0; i < 9; ++i) {
      sum[static_cast<std::size_t>(i)] += x[static_cast<std::size_t>(i)];
      of_x += c[i % 3] * c[i / 3] * x[static_cast<std::size_t>(i)];
      of_p += c[i % 3] * c[i / 3] * P[i];
    }
    contrast.push_back(of_p / of_x);
  }
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j <= i; ++j) {
      const double pij = P[i + 3 * j], variance = ((df - 2.0) * pij * pij + m * P[4 * i] * P[4 * j]) /
                                                  ((df - 3.0) * m * m * (m - 2.0));
      laws::expect_sum(sum[static_cast<std::size_t>(i + 3 * j)], n, pij / m, variance, "element");
    }
  laws::expect_law(contrast, [](double v) { return laws::chi_square_cdf(df - 2.0, v); });
}

// ---- work area ----

TEST(matrix_draw_work, is_taken_once_for_the_largest_order) {
  seeded run;
  matrix w(9);
  double parm[10], x[3], work[3];
  wishart_draw(run.report, run.sources, w.data(), 3, three.data(), 3, 3, 5, run.work);
  const std::int64_t calls = run.report.door.calls;
  for (int draw = 0; draw < 10; ++draw) {
    rinvwish(run.report, run.sources, w.data(), 3, three.data(), 3, 3, 5, run.work);
    rinvwish(run.report, run.sources, w.data(), 2, three.data(), 3, 2, 5, run.work);
    mvn_draw(run.report, run.ranlib, x, mean_3, three.data(), 3, 3, run.work);
    ranmar_setgmn(run.report, mean_3, three.data(), 3, 3, parm, run.work);
    ranmar_genmn(run.ranmar, parm, x, work);
  }
  EXPECT_EQ(run.report.door.calls, calls);
}

TEST(matrix_draw_work, reports_storage_that_cannot_be_had) {
  for (int failing = 1; failing <= 4; ++failing) {
    scratch place;
    kept_listing run(place.path);
    matrix_draw_work work;
    run.report.door.fail_at = failing;
    EXPECT_EQ(run.exit_code([&] { fit_matrix_work(run.report, work, 3); }), 16);
    EXPECT_EQ(work.order, 0);
  }
}

} // namespace
} // namespace zeph
