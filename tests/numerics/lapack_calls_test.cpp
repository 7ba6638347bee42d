#include "numerics/lapack_calls.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace zeph {
namespace {

constexpr double unread = std::numeric_limits<double>::quiet_NaN();

// A = L L' with L = [2 0 0; 6 1 0; -8 5 3]
TEST(DPOTRF, factors_the_lower_triangle_in_place) {
  const int lda = 4;
  std::vector<double> a = {4, 12, -16, 77, unread, 37, -43, 77, unread, unread, 98, 77};
  int info = 9;
  DPOTRF(3, a.data(), lda, info);
  EXPECT_EQ(info, 0);
  const double expected[3][3] = {{2, 0, 0}, {6, 1, 0}, {-8, 5, 3}};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j <= i; ++j) EXPECT_NEAR(a[static_cast<std::size_t>(i + j * lda)], expected[i][j], 1e-14);
  EXPECT_EQ(a[3], 77.0);
}

TEST(DPOTRF, names_the_minor_that_is_not_positive) {
  std::vector<double> a = {1, 2, 2, 1};
  int info = 0;
  DPOTRF(2, a.data(), 2, info);
  EXPECT_EQ(info, 2);
}

TEST(DPOTRS, solves_for_several_right_hand_sides) {
  std::vector<double> l = {2, 6, -8, unread, 1, 5, unread, unread, 3};
  // A (1,2,3)' = (-20,-43,192)' and A (1,0,0)' = (4,12,-16)'
  std::vector<double> b = {-20, -43, 192, 88, 4, 12, -16, 88};
  int info = 9;
  DPOTRS(3, 2, l.data(), 3, b.data(), 4, info);
  EXPECT_EQ(info, 0);
  const std::vector<double> expected = {1, 2, 3, 88, 1, 0, 0, 88};
  for (std::size_t i = 0; i < b.size(); ++i) EXPECT_NEAR(b[i], expected[i], 1e-12);
}

TEST(LA_GESV, solves_a_full_matrix_that_needs_row_exchanges) {
  std::vector<double> a = {0, 3, 2, 4}; // [0 2; 3 4]
  std::vector<double> b = {4, 11};      // x = (1, 2)
  int info = 9;
  LA_GESV(2, 1, a.data(), 2, b.data(), 2, info);
  EXPECT_EQ(info, 0);
  EXPECT_NEAR(b[0], 1.0, 1e-15);
  EXPECT_NEAR(b[1], 2.0, 1e-15);
}

TEST(LA_GESV, with_the_identity_gives_the_inverse) {
  const int lda = 3, ldainv = 4;
  std::vector<double> a = {4, 2, 55, 7, 6, 55}; // [4 7; 2 6], determinant 10
  std::vector<double> ainv(8, 66.0);
  int info = 9;
  LA_GESV(2, a.data(), lda, ainv.data(), ldainv, info);
  EXPECT_EQ(info, 0);
  const std::vector<double> expected = {0.6, -0.2, 66, 66, -0.7, 0.4, 66, 66};
  for (std::size_t i = 0; i < ainv.size(); ++i) EXPECT_NEAR(ainv[i], expected[i], 1e-15);
}

TEST(LA_GESV, names_the_zero_pivot_of_a_singular_matrix) {
  std::vector<double> a = {1, 2, 2, 4}, ainv(4);
  int info = 0;
  LA_GESV(2, a.data(), 2, ainv.data(), 2, info);
  EXPECT_EQ(info, 2);
}

// min(i,j): the inverse is tridiagonal, 2 (1 at the end) and -1.
TEST(LA_GESV, takes_orders_beyond_its_own_room) {
  const int n = 80;
  std::vector<double> a(n * n), ainv(n * n);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) a[static_cast<std::size_t>(i + j * n)] = (i < j ? i : j) + 1.0;
  int info = 9;
  LA_GESV(n, a.data(), n, ainv.data(), n, info);
  EXPECT_EQ(info, 0);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) {
      const double expected = i == j ? (i == n - 1 ? 1.0 : 2.0) : (i - j == 1 || j - i == 1) ? -1.0 : 0.0;
      EXPECT_NEAR(ainv[static_cast<std::size_t>(i + j * n)], expected, 1e-12);
    }
}

} // namespace
} // namespace zeph
