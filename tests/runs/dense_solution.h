// Solves dense equations of any rank and holds named solutions against them.
#pragma once

#include "runs/dense_model.h"

#include <algorithm>
#include <gtest/gtest.h>

extern "C" void dsyev_(const char* jobz, const char* uplo, const int* n, double* a, const int* lda, double* w,
                       double* work, const int* lwork, int* info);

namespace zeph_test {

// S C S = V diag(w) V' with S = diag(C)^-1/2. A w below 1e-11 of the largest
// belongs to the null space.
struct dense_solution {
  explicit dense_solution(const dense_equations& e) : n(e.n), scale(e.n), x(e.n), eigenvectors(e.C) {
    for (std::size_t i = 0; i < n; ++i) scale[i] = 1.0 / std::sqrt(e.C[i * n + i]);
    for (std::size_t i = 0; i < n; ++i)
      for (std::size_t j = 0; j < n; ++j) eigenvectors[i * n + j] *= scale[i] * scale[j];
    const int order = static_cast<int>(n), room = 40 * order;
    std::vector<double> work(static_cast<std::size_t>(room));
    eigenvalues.resize(n);
    int info = 0;
    dsyev_("V", "U", &order, eigenvectors.data(), &order, eigenvalues.data(), work.data(), &room, &info);
    EXPECT_EQ(info, 0);
    improve(e);
    improve(e); // once more, with what rounding left over
  }

  std::size_t n;
  std::vector<double> scale, x, eigenvalues, eigenvectors; // eigenvector k: elements k n .. k n + n-1
  bool is_null(std::size_t k) const { return eigenvalues[k] < 1e-11 * eigenvalues[n - 1]; }
  std::size_t rank() const {
    std::size_t rank = 0;
    for (std::size_t k = 0; k < n; ++k) rank += is_null(k) ? 0 : 1;
    return rank;
  }
  double largest() const {
    double out = 0.0;
    for (const double v : x) out = std::max(out, std::fabs(v));
    return out;
  }

  // v less its part in the null space of C, in the metric of the scaled
  // unknowns: zero exactly when every estimable function of v is zero.
  std::vector<double> estimable_part(std::vector<double> v) const {
    for (std::size_t i = 0; i < n; ++i) v[i] /= scale[i];
    for (std::size_t k = 0; k < n; ++k) {
      if (!is_null(k)) continue;
      const double* u = &eigenvectors[k * n];
      double along = 0.0;
      for (std::size_t i = 0; i < n; ++i) along += u[i] * v[i];
      for (std::size_t i = 0; i < n; ++i) v[i] -= along * u[i];
    }
    for (std::size_t i = 0; i < n; ++i) v[i] *= scale[i];
    return v;
  }

private:
  void improve(const dense_equations& e) {
    std::vector<double> rest(n), z(n);
    for (std::size_t i = 0; i < n; ++i) {
      rest[i] = e.b[i];
      for (std::size_t j = 0; j < n; ++j) rest[i] -= e.C[i * n + j] * x[j];
      rest[i] *= scale[i];
    }
    for (std::size_t k = 0; k < n; ++k) {
      if (is_null(k)) continue;
      const double* u = &eigenvectors[k * n];
      double along = 0.0;
      for (std::size_t i = 0; i < n; ++i) along += u[i] * rest[i];
      for (std::size_t i = 0; i < n; ++i) z[i] += u[i] * along / eigenvalues[k];
    }
    for (std::size_t i = 0; i < n; ++i) x[i] += z[i] * scale[i];
  }
};

struct agreement {
  double error = 0.0;   // largest difference as a share of the largest solution
  std::string worst;    // name of that unknown
  std::size_t rank = 0; // of the equations
  std::size_t unknowns = 0;
};

// A fixed column that zeph-prepare left out counts as solved to 0. With
// equations of full rank every solution is compared; else the difference must
// lie in their null space, so that every estimable function agrees.
inline agreement compare(const dense_equations& e, const named_values& solution) {
  const dense_solution exact(e);
  agreement out{0.0, "", exact.rank(), e.n};
  std::vector<double> difference(e.n);
  std::size_t found = 0;
  for (std::size_t i = 0; i < e.n; ++i) {
    const auto at = solution.find(e.names[i]);
    if (at == solution.end() && e.names[i].starts_with("factor|"))
      ADD_FAILURE() << "not solved: " << e.names[i];
    found += at == solution.end() ? 0 : 1;
    difference[i] = (at == solution.end() ? 0.0 : at->second) - exact.x[i];
  }
  EXPECT_EQ(found, solution.size()) << "solutions that the description does not have";
  difference = exact.estimable_part(difference);
  const double largest = exact.largest();
  for (std::size_t i = 0; i < e.n; ++i)
    if (std::fabs(difference[i]) / largest >= out.error)
      out.error = std::fabs(difference[i]) / largest, out.worst = e.names[i];
  return out;
}

} // namespace zeph_test
