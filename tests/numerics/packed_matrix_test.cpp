#include "numerics/packed_matrix.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <vector>

namespace zeph {
namespace {

// A vector with signed places, counted from 0.
template <class T> struct list : std::vector<T> {
  using std::vector<T>::vector;
  T& operator[](std::ptrdiff_t i) { return this->begin()[i]; }
  const T& operator[](std::ptrdiff_t i) const { return this->begin()[i]; }
};
template <class T> list<T> zeros(int n) { return list<T>(static_cast<std::size_t>(n)); }

using dense = list<list<double>>; // rows
dense square(int n) { return dense(static_cast<std::size_t>(n), zeros<double>(n)); }

// Symmetric, diagonally dominant, so positive definite; no two elements alike.
dense dominant(int n) {
  dense x = square(n);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) x[i][j] = i == j ? n + 1.0 + 0.1 * i : std::sin(1.0 + i * j + i + j);
  return x;
}

// min(i,j): determinant 1; the inverse is tridiagonal, 2 on the diagonal (1 at
// the end) and -1 beside it.
dense smaller_index(int n) {
  dense x = square(n);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) x[i][j] = std::min(i, j) + 1.0;
  return x;
}

list<double> packed(const dense& x) {
  list<double> a;
  for (std::ptrdiff_t i = 0; i < std::ssize(x); ++i) a.insert(a.end(), x[i].begin(), x[i].begin() + i + 1);
  return a;
}

// Gauss-Jordan with row exchanges in extended precision, another road than the sweep.
dense gauss_jordan(const dense& x) {
  const int n = static_cast<int>(x.size());
  list<list<long double>> w(x.size(), zeros<long double>(2 * n));
  for (int i = 0; i < n; ++i) {
    std::copy(x[i].begin(), x[i].end(), w[i].begin());
    w[i][n + i] = 1.0L;
  }
  for (int c = 0; c < n; ++c) {
    int best = c;
    for (int r = c; r < n; ++r)
      if (std::fabs(w[r][c]) > std::fabs(w[best][c])) best = r;
    std::swap(w[c], w[best]);
    for (int r = 0; r < n; ++r) {
      if (r == c) continue;
      const long double f = w[r][c] / w[c][c];
      for (int j = 0; j < 2 * n; ++j) w[r][j] -= f * w[c][j];
    }
  }
  dense inverse = square(n);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) inverse[i][j] = static_cast<double>(w[i][n + j] / w[i][i]);
  return inverse;
}

struct swept_matrix {
  explicit swept_matrix(const dense& x) : n(static_cast<int>(x.size())), a(packed(x)), flags(x.size(), 0) {}
  int n;
  list<double> a;
  list<logical> flags;
  double pivot = 0.0;
  int info = 99;
  void sweep(int k, double tol = 1e-12) { zeph::sweep(k, a.data(), n, tol, flags.data(), pivot, info); }
  double operator()(int i, int j) const { return a[ihmij(i, j, n) - 1]; }
};

TEST(ihmij, counts_the_lower_triangle_row_by_row) {
  EXPECT_EQ(ihmij(1, 1, 7), 1);
  EXPECT_EQ(ihmij(3, 2, 7), 5);
  EXPECT_EQ(ihmij(2, 3, 7), 5);
  std::int32_t place = 0;
  for (int i = 1; i <= 30; ++i)
    for (int j = 1; j <= i; ++j) {
      ++place;
      EXPECT_EQ(ihmij(i, j, 30), place);
      EXPECT_EQ(ihmij(j, i, 30), place);
      EXPECT_EQ(ihmij64(j, i, 30), place);
    }
}

TEST(ihmij, takes_no_notice_of_the_order) { EXPECT_EQ(ihmij(4, 2, 0), ihmij(4, 2, 1000)); }

TEST(ihmij, has_a_64_bit_twin_for_large_matrices) {
  EXPECT_EQ(ihmij(46341, 46341, 46341), 1073767311); // 46341 x 46342 / 2
  EXPECT_EQ(ihmij64(100000, 3, 0), 4999950003);      // 99999 x 100000 / 2 + 3
}

TEST(sweep, of_one_pivot_by_hand) {
  swept_matrix p({{4, 2, 6}, {2, 5, 1}, {6, 1, 20}});
  p.sweep(1);
  EXPECT_EQ(p.info, 0);
  EXPECT_EQ(p.pivot, 4.0);
  EXPECT_EQ(p.flags, (std::vector<logical>{1, 0, 0}));
  EXPECT_EQ(p.a, (std::vector<double>{0.25, 0.5, 4, 1.5, -2, 11})); // 5-4/4, 1-12/4, 20-36/4
}

TEST(sweep, of_the_last_pivot_negates_the_row_before_it) {
  swept_matrix p({{4, 2}, {2, 8}});
  p.sweep(2);
  EXPECT_EQ(p.a, (std::vector<double>{3.5, -0.25, 0.125})); // 4 - 4/8, -2/8, 1/8
}

// Orders 31 to 70 go beyond one strip of columns.
TEST(sweep, of_all_pivots_leaves_the_inverse_of_a_known_matrix) {
  for (const int n : {1, 2, 3, 5, 20, 31, 32, 33, 34, 65, 70}) {
    const dense x = smaller_index(n);
    swept_matrix p(x);
    for (int k = 1; k <= n; ++k) {
      p.sweep(k);
      EXPECT_EQ(p.pivot, 1.0); // whole numbers throughout
    }
    for (int i = 1; i <= n; ++i)
      for (int j = 1; j <= i; ++j)
        EXPECT_EQ(p(i, j), i - j > 1 ? 0.0 : i - j == 1 ? -1.0 : i < n ? 2.0 : 1.0);
  }
}

TEST(sweep, of_all_pivots_in_any_order_leaves_the_inverse) {
  const dense x = dominant(5), inverse = gauss_jordan(x);
  list<int> order = {1, 2, 3, 4, 5};
  do {
    swept_matrix p(x);
    for (const int k : order) p.sweep(k);
    for (int i = 1; i <= 5; ++i)
      for (int j = 1; j <= i; ++j) ASSERT_NEAR(p(i, j), inverse[i - 1][j - 1], 1e-14);
  } while (std::next_permutation(order.begin(), order.end()));
}

// With S swept: inverse of the block of S, residual (co)variances of the others,
// and coefficients, negated where the swept row comes after the unswept one.
TEST(sweep, of_any_subset_in_any_order_leaves_regression_on_it) {
  const int n = 5;
  const dense x = dominant(n);
  list<int> order = {1, 2, 3, 4, 5};
  do {
    for (int taken = 1; taken < n; ++taken) {
      swept_matrix p(x);
      for (int s = 0; s < taken; ++s) p.sweep(order[s]);
      dense block = square(taken);
      for (int r = 0; r < taken; ++r)
        for (int c = 0; c < taken; ++c) block[r][c] = x[order[r] - 1][order[c] - 1];
      const dense inverse = gauss_jordan(block);
      for (int r = 0; r < taken; ++r)
        for (int c = 0; c < taken; ++c) ASSERT_NEAR(p(order[r], order[c]), inverse[r][c], 1e-14);
      for (int u = taken; u < n; ++u) {
        const int t = order[u];
        list<double> coefficient = zeros<double>(taken);
        for (int r = 0; r < taken; ++r)
          for (int c = 0; c < taken; ++c) coefficient[r] += inverse[r][c] * x[order[c] - 1][t - 1];
        for (int r = 0; r < taken; ++r)
          ASSERT_NEAR(p(t, order[r]), t > order[r] ? coefficient[r] : -coefficient[r], 1e-14);
        for (int v = taken; v < n; ++v) {
          double residual = x[t - 1][order[v] - 1];
          for (int r = 0; r < taken; ++r) residual -= coefficient[r] * x[order[r] - 1][order[v] - 1];
          ASSERT_NEAR(p(t, order[v]), residual, 1e-13);
        }
      }
    }
  } while (std::next_permutation(order.begin(), order.end()));
}

TEST(sweep, of_a_bordered_matrix_solves_for_the_border_in_any_order) {
  const int n = 4;
  const dense x = dominant(n), inverse = gauss_jordan(x);
  const list<double> rhs = {1.5, -2.0, 0.25, 7.0};
  dense bordered = x;
  for (int i = 0; i < n; ++i) bordered[i].push_back(rhs[i]);
  bordered.push_back({1.5, -2.0, 0.25, 7.0, 0.0});
  list<int> order = {1, 2, 3, 4};
  do {
    swept_matrix p(bordered);
    for (const int k : order) p.sweep(k);
    double quadratic = 0.0;
    for (int i = 1; i <= n; ++i) {
      double solution = 0.0;
      for (int j = 0; j < n; ++j) solution += inverse[i - 1][j] * rhs[j];
      quadratic += solution * rhs[i - 1];
      ASSERT_NEAR(p(n + 1, i), solution, 1e-14);
      for (int j = 1; j <= i; ++j) ASSERT_NEAR(p(i, j), inverse[i - 1][j - 1], 1e-14);
    }
    ASSERT_NEAR(p(n + 1, n + 1), -quadratic, 1e-12);
  } while (std::next_permutation(order.begin(), order.end()));
}

// Border = residuals e; all rows but t swept: P(t,t) is the conditional variance
// of t, the border of row t is e(t) less its conditional mean given the others.
TEST(sweep, of_all_rows_but_one_leaves_residual_less_conditional_mean) {
  const int n = 4;
  const dense x = dominant(n), inverse = gauss_jordan(x);
  const list<double> e = {0.5, -1.0, 2.0, 0.75};
  dense bordered = x;
  for (int i = 0; i < n; ++i) bordered[i].push_back(e[i]);
  bordered.push_back({0.5, -1.0, 2.0, 0.75, 0.0});
  for (int t = 1; t <= n; ++t) {
    list<int> order;
    for (int k = 1; k <= n; ++k)
      if (k != t) order.push_back(k);
    do {
      swept_matrix p(bordered);
      for (const int k : order) p.sweep(k);
      // by the inverse V of the whole: variance 1/V(t,t), e(t) - mean = (V e)(t) / V(t,t)
      double ve = 0.0;
      for (int j = 0; j < n; ++j) ve += inverse[t - 1][j] * e[j];
      ASSERT_NEAR(p(t, t), 1.0 / inverse[t - 1][t - 1], 1e-13);
      ASSERT_NEAR(p(n + 1, t), ve / inverse[t - 1][t - 1], 1e-13);
    } while (std::next_permutation(order.begin(), order.end()));
  }
}

TEST(sweep, on_the_same_pivot_twice_undoes_itself) {
  const dense x = dominant(6);
  for (int k = 1; k <= 6; ++k) {
    swept_matrix p(x);
    p.sweep(k);
    p.sweep(k);
    const list<double> before = packed(x);
    for (std::ptrdiff_t i = 0; i < std::ssize(before); ++i) EXPECT_NEAR(p.a[i], before[i], 1e-14);
    EXPECT_EQ(p.flags[k - 1], 1); // the flag stays
  }
}

TEST(sweep, on_a_pivot_again_undoes_it_among_other_swept_rows) {
  const dense x = dominant(5);
  swept_matrix p(x), q(x);
  for (const int k : {4, 1, 3, 2, 2}) p.sweep(k);
  for (const int k : {4, 1, 3}) q.sweep(k);
  for (std::ptrdiff_t i = 0; i < std::ssize(q.a); ++i) EXPECT_NEAR(p.a[i], q.a[i], 1e-14);
}

TEST(sweep, pivots_multiply_to_the_determinant) {
  // Hilbert matrix of order 3: determinant 1/2160
  const dense x = {{1, 1.0 / 2, 1.0 / 3}, {1.0 / 2, 1.0 / 3, 1.0 / 4}, {1.0 / 3, 1.0 / 4, 1.0 / 5}};
  list<int> order = {1, 2, 3};
  do {
    swept_matrix p(x);
    double logdet = 0.0;
    for (const int k : order) {
      p.sweep(k);
      logdet += std::log(p.pivot);
    }
    EXPECT_NEAR(logdet, -std::log(2160.0), 1e-13);
  } while (std::next_permutation(order.begin(), order.end()));
}

TEST(sweep, leaves_matrix_and_flags_when_pivot_is_below_tol) {
  swept_matrix p({{3, 1, 2}, {1, 0.5e-12, 4}, {2, 4, 9}});
  p.flags = {1, 0, 0};
  const list<double> before = p.a;
  p.sweep(2);
  EXPECT_EQ(p.info, -1);
  EXPECT_EQ(p.pivot, 0.5e-12);
  EXPECT_EQ(p.a, before);
  EXPECT_EQ(p.flags, (std::vector<logical>{1, 0, 0}));
  p.sweep(3, 9.5);
  EXPECT_EQ(p.info, -1);
  EXPECT_EQ(p.pivot, 9.0);
  EXPECT_EQ(p.a, before);
}

TEST(sweep, compares_the_size_of_a_negative_pivot_with_tol) {
  swept_matrix p({{-2, 1}, {1, 3}});
  p.sweep(1, 2.5);
  EXPECT_EQ(p.info, -1);
  p.sweep(1, 2.0); // not below
  EXPECT_EQ(p.info, 0);
  EXPECT_EQ(p.pivot, -2.0);
  EXPECT_EQ(p.a, (std::vector<double>{-0.5, -0.5, 3.5}));
}

// 1.0E-9 in 32 bits is 9.999999717180685E-10, below the 64-bit number.
TEST(sweep, reports_a_small_pivot_by_the_32_bit_threshold_and_continues) {
  for (const auto& [d, info] :
       {std::pair{9.9999997e-10, -2}, {-5e-10, -2}, {9.999999717180685e-10, 0}, {9.9999998e-10, 0}}) {
    swept_matrix p({{d, 0}, {0, 1}});
    p.sweep(1);
    EXPECT_EQ(p.info, info) << d;
    EXPECT_EQ(p.a[0], 1.0 / d);
    EXPECT_EQ(p.flags[0], 1);
  }
}

// A table of counts: class 1 of 49 records, split into 7 and 42.
TEST(sweep, leaves_an_exact_zero_for_a_dependency_of_counts) {
  swept_matrix p({{49, 7, 42}, {7, 7, 0}, {42, 0, 42}});
  p.sweep(1);
  p.sweep(2);
  p.sweep(3);
  EXPECT_EQ(p.info, -1);
  EXPECT_EQ(p.pivot, 0.0);
  // rows 1 and 2 hold the inverse of their block, [1/42, -1/42; -1/42, 1/6]
  EXPECT_NEAR(p(1, 1), 1.0 / 42, 1e-16);
  EXPECT_NEAR(p(2, 1), -1.0 / 42, 1e-16);
  EXPECT_NEAR(p(2, 2), 1.0 / 6, 1e-15);
}

TEST(inverse_logdet, of_the_hilbert_matrix) {
  const double unread = std::numeric_limits<double>::quiet_NaN();
  const int lda = 4, ldainv = 5;
  list<double> a(lda * 3, unread), ainv(ldainv * 3, -7.0);
  for (int j = 0; j < 3; ++j)
    for (int i = j; i < 3; ++i) a[i + j * lda] = 1.0 / (i + j + 1);
  double logdet;
  int info;
  inverse_logdet(a.data(), lda, ainv.data(), ldainv, 3, logdet, info);
  EXPECT_EQ(info, 0);
  EXPECT_NEAR(logdet, -std::log(2160.0), 1e-13);
  const double expected[3][3] = {{9, -36, 30}, {-36, 192, -180}, {30, -180, 180}};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) EXPECT_NEAR(ainv[i + j * ldainv], expected[i][j], 1e-10);
  EXPECT_EQ(ainv[3], -7.0); // rows beyond n are left
  EXPECT_EQ(a[1], 0.5);
}

TEST(inverse_logdet, of_the_leading_block_of_an_array_in_place) {
  mat<double> a;
  ASSERT_TRUE(a.take(3, 3));
  a(1, 1) = 2.0;
  a(2, 1) = a(1, 2) = 1.0;
  a(2, 2) = 1.0;
  a(3, 1) = 5.0;
  double logdet;
  int info;
  inverse_logdet(a, a, 2, logdet, info);
  EXPECT_EQ(info, 0);
  EXPECT_EQ(logdet, 0.0); // determinant 2 - 1
  EXPECT_EQ(a(1, 1), 1.0);
  EXPECT_EQ(a(2, 1), -1.0);
  EXPECT_EQ(a(1, 2), -1.0);
  EXPECT_EQ(a(2, 2), 2.0);
  EXPECT_EQ(a(3, 1), 5.0);
}

TEST(inverse_logdet, of_orders_that_need_an_array_for_the_copy) {
  const int n = 45;
  mat<double> a, ainv;
  ASSERT_TRUE(a.take(n, n) && ainv.take(n, n));
  for (int i = 1; i <= n; ++i)
    for (int j = 1; j <= n; ++j) a(i, j) = std::min(i, j); // determinant 1
  double logdet;
  int info;
  inverse_logdet(a, ainv, n, logdet, info);
  EXPECT_EQ(info, 0);
  EXPECT_EQ(logdet, 0.0);
  EXPECT_EQ(ainv(44, 44), 2.0);
  EXPECT_EQ(ainv(45, 45), 1.0);
  EXPECT_EQ(ainv(45, 44), -1.0);
  EXPECT_EQ(ainv(44, 45), -1.0);
  EXPECT_EQ(ainv(45, 43), 0.0);
}

TEST(inverse_logdet, remembers_a_failed_pivot_and_sweeps_the_others) {
  for (const double bad : {-1.0, 0.0, 1e-22}) {
    mat<double> a, ainv;
    ASSERT_TRUE(a.take(3, 3) && ainv.take(3, 3));
    a(1, 1) = 2.0;
    a(2, 2) = bad;
    a(3, 3) = 4.0;
    double logdet;
    int info;
    inverse_logdet(a, ainv, 3, logdet, info);
    EXPECT_EQ(info, 1);
    EXPECT_DOUBLE_EQ(logdet, std::log(2.0)); // the pivot 4 is not added
    EXPECT_EQ(ainv(1, 1), 0.5);
    EXPECT_EQ(ainv(2, 2), bad < -0.5 ? -1.0 : bad); // too small to sweep: stays
    EXPECT_EQ(ainv(3, 3), 0.25);
  }
}

// 1.0E-21 in 32 bits is 9.999999682655225E-22.
TEST(inverse_logdet, accepts_a_pivot_at_the_32_bit_tolerance) {
  for (const auto& [d, expected] : {std::pair{9.9999997e-22, 0}, {9.9999996e-22, 1}}) {
    double logdet, ainv;
    int info;
    inverse_logdet(&d, 1, &ainv, 1, 1, logdet, info);
    EXPECT_EQ(info, expected);
    EXPECT_EQ(logdet, expected == 0 ? std::log(d) : 0.0);
  }
}

TEST(inverse_logdet, of_no_rows_is_zero) {
  double logdet = 5.0;
  int info = 5;
  for (const int n : {0, -3}) {
    inverse_logdet(nullptr, 1, nullptr, 1, n, logdet, info);
    EXPECT_EQ(logdet, 0.0);
    EXPECT_EQ(info, 0);
  }
}

} // namespace
} // namespace zeph
