#include "gibbs/moves/proposals.h"

#include "numerics/lapack_calls.h"
#include "numerics/normal_draws.h"

#include <algorithm>
#include <cmath>

namespace zeph {

bool factor_safely(double* a, std::int64_t ld, std::int32_t n) {
  for (std::int32_t j = 0; j < n; ++j) {
    const double diagonal = a[j + j * ld];
    for (std::int32_t i = j; i < n; ++i) {
      double sum = a[i + j * ld];
      for (std::int32_t k = 0; k < j; ++k) sum -= a[i + k * ld] * a[j + k * ld];
      if (i == j) {
        if (!(sum > least_pivot * diagonal) || !std::isfinite(sum)) return false;
        a[j + j * ld] = std::sqrt(sum);
      } else {
        a[i + j * ld] = sum / a[j + j * ld];
      }
    }
  }
  return true;
}

void solve_upper(const double* L, std::int64_t ld, std::int32_t n, double* x) {
  for (std::int32_t i = n - 1; i >= 0; --i) {
    for (std::int32_t k = i + 1; k < n; ++k) x[i] -= L[k + i * ld] * x[k];
    x[i] /= L[i + i * ld];
  }
}

bool invert_with_det(double* a, std::int64_t ld, std::int32_t n, double* inverse, double& log_det) {
  for (std::int32_t j = 0; j < n; ++j)
    for (std::int32_t i = 0; i < n; ++i)
      if (!std::isfinite(a[i + j * ld])) return false;
  int info = 0;
  LA_GESV(n, a, static_cast<int>(ld), inverse, static_cast<int>(ld), info);
  if (info != 0) return false;
  log_det = 0; // a holds the factors P L U, the diagonal of L is 1
  for (std::int32_t i = 0; i < n; ++i) log_det += std::log(std::fabs(a[i + i * ld]));
  return std::isfinite(log_det);
}

double change_of_trace(const mat<double>& start, double weight, const double* P, std::int64_t ldp,
                       const double* A_inverse, std::int64_t ld, std::int32_t n) {
  if (weight == 0.0) return 0.0;
  double sum = 0;
  for (std::int32_t i = 0; i < n; ++i)
    for (std::int32_t j = 0; j < n; ++j) {
      double moved = 0; // (A'^-1 P A^-1)(i,j)
      for (std::int32_t k = 0; k < n; ++k)
        for (std::int32_t l = 0; l < n; ++l)
          moved += A_inverse[k + i * ld] * P[k + l * ldp] * A_inverse[l + j * ld];
      sum += start(j + 1, i + 1) * (moved - P[i + j * ldp]);
    }
  return weight * sum;
}

void transform_precision(double* P, std::int64_t ldp, const double* A_inverse, std::int64_t ld,
                         std::int32_t n, double* work) {
  for (std::int32_t i = 0; i < n; ++i)
    for (std::int32_t j = 0; j < n; ++j) {
      double sum = 0; // (P A^-1)(i,j)
      for (std::int32_t k = 0; k < n; ++k) sum += P[i + k * ldp] * A_inverse[k + j * ld];
      work[i + j * ld] = sum;
    }
  for (std::int32_t i = 0; i < n; ++i)
    for (std::int32_t j = 0; j <= i; ++j) {
      double sum = 0;
      for (std::int32_t k = 0; k < n; ++k) sum += A_inverse[k + i * ld] * work[k + j * ld];
      P[i + j * ldp] = P[j + i * ldp] = sum;
    }
}

bool accept_move(marsaglia_source& source, double r, bool legal, bool burn_in, move_count& count) {
  const double u = RANMAR(source); // in (0,1)
  const int when = burn_in ? 0 : 1;
  ++count.tried[when];
  if (!legal || !(std::log(u) < r)) return false;
  ++count.accepted[when];
  return true;
}

} // namespace zeph
