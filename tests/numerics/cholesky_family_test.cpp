#include "numerics/cholesky_family.h"

#include "stops.h"

#include <gtest/gtest.h>

#include <cmath>
#include <initializer_list>
#include <limits>

namespace zeph {
namespace {

constexpr double unread = std::numeric_limits<double>::quiet_NaN();

mat<double> rows(std::initializer_list<std::initializer_list<double>> values) {
  mat<double> x;
  const auto n = static_cast<std::int64_t>(values.size());
  EXPECT_TRUE(x.take(n, n));
  std::int64_t i = 0;
  for (const auto& row : values) {
    std::int64_t j = 0;
    ++i;
    for (const double v : row) x(i, ++j) = v;
  }
  return x;
}

mat<double> product(const mat<double>& a, const mat<double>& b) {
  mat<double> c;
  EXPECT_TRUE(c.take(a.extent(1), b.extent(2)));
  for (int i = 1; i <= a.extent(1); ++i)
    for (int j = 1; j <= b.extent(2); ++j)
      for (int k = 1; k <= a.extent(2); ++k) c(i, j) += a(i, k) * b(k, j);
  return c;
}

void expect_near(const mat<double>& a, const mat<double>& b, double bound) {
  ASSERT_EQ(a.size(), b.size());
  for (std::int64_t i = 0; i < a.size(); ++i) EXPECT_NEAR(a.data()[i], b.data()[i], bound) << i;
}

// L = [2 0 0; 6 1 0; -8 5 3] by hand
const auto textbook = [] { return rows({{4, unread, unread}, {12, 37, unread}, {-16, -43, 98}}); };

TEST(chol_semi, factors_a_textbook_matrix_from_its_lower_triangle) {
  kept_listing run;
  mat<double> a = textbook();
  EXPECT_EQ(chol_semi(run.report, a), 3);
  expect_near(a, rows({{2, 0, 0}, {6, 1, 0}, {-8, 5, 3}}), 0.0);
}

TEST(chol_semi, treats_only_the_first_rows_of_a_larger_array) {
  kept_listing run;
  mat<double> a = rows({{4, unread, 8}, {12, 37, 9}, {7, 6, 5}});
  EXPECT_EQ(chol_semi(run.report, a.data(), 3, 2), 2);
  expect_near(a, rows({{2, 0, 8}, {6, 1, 9}, {7, 6, 5}}), 0.0);
}

TEST(chol_semi, of_ones_has_rank_one) {
  kept_listing run;
  mat<double> a = rows({{1, 1}, {1, 1}});
  EXPECT_EQ(chol_semi(run.report, a), 1);
  expect_near(a, rows({{1, 0}, {1, 0}}), 0.0);
  EXPECT_EQ(det_of(run.report, rows({{1, 1}, {1, 1}})), 1.0);
}

TEST(chol_semi, clears_the_column_of_a_zero_pivot) {
  kept_listing run;
  mat<double> a = rows({{0, 0, 0}, {3, 4, 0}, {5, 2, 10}}); // column 1 goes, whatever is in it
  EXPECT_EQ(chol_semi(run.report, a), 2);
  expect_near(a, rows({{0, 0, 0}, {0, 2, 0}, {0, 1, 3}}), 0.0);
}

TEST(chol_semi, of_zero_has_rank_zero_and_determinant_of_nothing) {
  kept_listing run;
  mat<double> a = rows({{0, 0}, {0, 0}});
  EXPECT_EQ(chol_semi(run.report, a), 0);
  EXPECT_EQ(det_of(run.report, a), 1.0);
  expect_near(ginverse_of(run.report, a), a, 0.0);
}

TEST(chol_semi, counts_a_tiny_pivot_of_either_sign_as_zero) {
  for (const double d : {-1e-16, 1e-16, -9.99e-16}) {
    kept_listing run;
    mat<double> a = rows({{1, 0}, {0, d}});
    EXPECT_EQ(chol_semi(run.report, a), 1);
    EXPECT_EQ(a(2, 2), 0.0);
  }
}

TEST(chol_semi, keeps_a_pivot_at_the_tolerance) {
  kept_listing run;
  mat<double> a = rows({{1, 0}, {0, 1e-15}});
  EXPECT_EQ(chol_semi(run.report, a), 2);
  EXPECT_EQ(a(2, 2), std::sqrt(1e-15));
}

TEST(chol_semi, negative_pivot_stops_with_the_row_counted_from_one) {
  kept_listing run;
  mat<double> a = rows({{1, 0, 0}, {0, -1e-14, 0}, {0, 0, 1}});
  EXPECT_EQ(run.exit_code([&] { chol_semi(run.report, a); }), 16);
  EXPECT_EQ(run.out.str(), " Matrix not semipositive-definite, row            2\n");
}

TEST(cholesky_family, every_value_form_stops_at_a_negative_pivot) {
  const mat<double> a = rows({{1, 2}, {2, 1}}); // second pivot 1 - 4
  const std::string text = " Matrix not semipositive-definite, row            2\n";
  kept_listing first, second, third;
  EXPECT_EQ(first.exit_code([&] { chol_of(first.report, a); }), 16);
  EXPECT_EQ(second.exit_code([&] { ginverse_of(second.report, a); }), 16);
  EXPECT_EQ(third.exit_code([&] { det_of(third.report, a); }), 16);
  EXPECT_EQ(first.out.str() + second.out.str() + third.out.str(), text + text + text);
}

TEST(chol_of, leaves_its_argument) {
  kept_listing run;
  const mat<double> a = rows({{4, 9}, {12, 37}});
  expect_near(chol_of(run.report, a), rows({{2, 0}, {6, 1}}), 0.0);
  expect_near(a, rows({{4, 9}, {12, 37}}), 0.0);
}

TEST(det_of, a_textbook_matrix) {
  kept_listing run;
  EXPECT_EQ(det_of(run.report, textbook()), 36.0); // (2 x 1 x 3)^2
}

TEST(det_of, a_singular_matrix_is_that_of_its_pivots) {
  kept_listing run;
  // rows 1 and 3 of rank two, row 2 twice row 1: pivots 4, 0, 9
  EXPECT_EQ(det_of(run.report, rows({{4, 8, 2}, {8, 16, 4}, {2, 4, 10}})), 36.0);
}

TEST(ginverse_of, a_regular_matrix_is_its_inverse) {
  kept_listing run;
  // inverse of the textbook matrix by cofactors, determinant 36
  const mat<double> expected = rows({{1777.0 / 36, -488.0 / 36, 76.0 / 36},
                                     {-488.0 / 36, 136.0 / 36, -20.0 / 36},
                                     {76.0 / 36, -20.0 / 36, 4.0 / 36}});
  expect_near(ginverse_of(run.report, textbook()), expected, 1e-13);
}

TEST(ginverse_of, a_singular_matrix_is_a_reflexive_generalised_inverse) {
  kept_listing run;
  // B B' with B = [1 0; 2 0; 3 1; 1 1]: rank 2, zero pivots in rows 2 and 4
  const mat<double> a = rows({{1, 2, 3, 1}, {2, 4, 6, 2}, {3, 6, 10, 4}, {1, 2, 4, 2}});
  const mat<double> g = ginverse_of(run.report, a);
  expect_near(product(product(a, g), a), a, 1e-13);
  expect_near(product(product(g, a), g), g, 1e-13);
  // rows 1 and 3: inverse of [1 3; 3 10]
  expect_near(g, rows({{10, 0, -3, 0}, {0, 0, 0, 0}, {-3, 0, 1, 0}, {0, 0, 0, 0}}), 1e-13);
}

TEST(ginverse_of, treats_the_leading_block_of_a_larger_array) {
  kept_listing run;
  const mat<double> a = rows({{4, unread, unread}, {2, 2, unread}, {unread, unread, unread}});
  const mat<double> g = ginverse_of(run.report, a.data(), 3, 2);
  expect_near(g, rows({{0.5, -0.5}, {-0.5, 1.0}}), 1e-15);
}

TEST(cholesky_family, of_no_rows) {
  kept_listing run;
  EXPECT_EQ(chol_semi(run.report, nullptr, 1, 0), 0);
  EXPECT_EQ(det_of(run.report, nullptr, 1, 0), 1.0);
  EXPECT_EQ(ginverse_of(run.report, nullptr, 1, 0).size(), 0);
}

TEST(spofa, leaves_the_upper_factor_and_the_lower_triangle) {
  mat<double> a = rows({{4, 12, -16}, {-1, 37, -43}, {-2, -3, 98}});
  int info = 9;
  spofa(a.data(), 3, 3, info);
  EXPECT_EQ(info, 0);
  expect_near(a, rows({{2, 6, -8}, {-1, 1, 5}, {-2, -3, 3}}), 0.0);
}

TEST(spofa, names_the_row_that_fails) {
  int info = 9;
  mat<double> a = rows({{4, 2, 0}, {0, 1, 0}, {0, 0, 1}}); // 1 - (2/2)^2 = 0
  spofa(a.data(), 3, 3, info);
  EXPECT_EQ(info, 2);
  EXPECT_EQ(a(1, 1), 2.0);
  EXPECT_EQ(a(1, 2), 1.0);
  EXPECT_EQ(a(2, 2), 1.0); // untouched
  mat<double> b = rows({{-1, 0}, {0, 1}});
  spofa(b.data(), 2, 2, info);
  EXPECT_EQ(info, 1);
}

TEST(spofa, treats_only_the_first_rows) {
  mat<double> a = rows({{9, 3, 5}, {0, 5, 5}, {5, 5, 5}});
  int info = 9;
  spofa(a.data(), 3, 2, info);
  EXPECT_EQ(info, 0);
  expect_near(a, rows({{3, 1, 5}, {0, 2, 5}, {5, 5, 5}}), 0.0);
  spofa(a.data(), 3, 0, info);
  EXPECT_EQ(info, 0);
}

} // namespace
} // namespace zeph
