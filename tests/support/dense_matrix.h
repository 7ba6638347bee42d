// Small dense matrices for tests: what the program finds by sweeps and sparse
// walks is made here again by plain loops over full square matrices.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <utility>
#include <vector>

namespace zeph_test {

struct dense_matrix {
  explicit dense_matrix(std::int64_t order = 0) : n(order), cells(static_cast<std::size_t>(order * order)) {}
  dense_matrix(std::int64_t order, std::vector<double> rows) : n(order), cells(std::move(rows)) {}

  double& operator()(std::int64_t i, std::int64_t j) { return cells[place(i, j)]; }
  double operator()(std::int64_t i, std::int64_t j) const { return cells[place(i, j)]; }

  std::int64_t n;
  std::vector<double> cells; // by rows

private:
  std::size_t place(std::int64_t i, std::int64_t j) const {
    return static_cast<std::size_t>((i - 1) * n + j - 1);
  }
};

// A 1-based vector.
struct dense_vector {
  explicit dense_vector(std::int64_t order = 0) : cells(static_cast<std::size_t>(order)) {}
  double& operator()(std::int64_t i) { return cells[static_cast<std::size_t>(i - 1)]; }
  double operator()(std::int64_t i) const { return cells[static_cast<std::size_t>(i - 1)]; }
  std::vector<double> cells;
};

// Gauss-Jordan elimination with partial pivoting.
struct dense_inverse {
  explicit dense_inverse(dense_matrix a) : inverse(a.n) {
    const std::int64_t n = a.n;
    for (std::int64_t i = 1; i <= n; ++i) inverse(i, i) = 1.0;
    for (std::int64_t p = 1; p <= n; ++p) {
      std::int64_t best = p;
      for (std::int64_t i = p + 1; i <= n; ++i)
        if (std::fabs(a(i, p)) > std::fabs(a(best, p))) best = i;
      if (best != p) determinant = -determinant;
      for (std::int64_t j = 1; j <= n; ++j) {
        std::swap(a(p, j), a(best, j));
        std::swap(inverse(p, j), inverse(best, j));
      }
      const double pivot = a(p, p);
      determinant *= pivot;
      for (std::int64_t j = 1; j <= n; ++j) {
        a(p, j) /= pivot;
        inverse(p, j) /= pivot;
      }
      for (std::int64_t i = 1; i <= n; ++i) {
        const double factor = a(i, p);
        if (i == p) continue;
        for (std::int64_t j = 1; j <= n; ++j) {
          a(i, j) -= factor * a(p, j);
          inverse(i, j) -= factor * inverse(p, j);
        }
      }
    }
  }
  dense_matrix inverse;
  double determinant = 1.0;
};

// Solution of a x = b.
inline dense_vector solve(const dense_matrix& a, const dense_vector& b) {
  const dense_matrix inverse = dense_inverse(a).inverse;
  dense_vector x(a.n);
  for (std::int64_t i = 1; i <= a.n; ++i)
    for (std::int64_t j = 1; j <= a.n; ++j) x(i) += inverse(i, j) * b(j);
  return x;
}

} // namespace zeph_test
