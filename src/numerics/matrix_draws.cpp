#include "numerics/matrix_draws.h"

#include "formats/free_format.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "numerics/cholesky_family.h"
#include "numerics/gamma_draws.h"
#include "numerics/normal_draws.h"

#include <cmath>
#include <fmt/format.h>

namespace zeph {

namespace {

// L of a matrix of order n, in the work area with leading dimension n.
double* lower_factor(reporting& report, const double* a, std::int64_t lda, std::int32_t n,
                     matrix_draw_work& work) {
  double* l = work.L.data();
  for (std::int64_t j = 0; j < n; ++j)
    for (std::int64_t i = j; i < n; ++i) l[i + j * n] = a[i + j * lda];
  chol_semi(report, l, n, n);
  return l;
}

// T of Bartlett, order n, its strict upper triangle unset
double* bartlett_factor(random_sources& sources, std::int32_t n, std::int64_t df, matrix_draw_work& work) {
  double* t = work.T.data();
  for (std::int32_t i = 1; i <= n; ++i) {
    // T(i,i)^2 chi-square with df - i + 1, then the normals to its left
    const float shape = static_cast<float>(df - i + 1) / 2.0F;
    const float chi_square = 2.0F * sgamma(sources.combined, shape, sources.gamma);
    double* row = t + (i - 1); // element j: row[(j-1) n]
    row[std::int64_t{i - 1} * n] = std::sqrt(static_cast<double>(chi_square));
    for (std::int64_t j = 0; j < i - 1; ++j) row[j * n] = static_cast<double>(snorm(sources.combined));
  }
  return t;
}

} // namespace

void fit_matrix_work(reporting& report, matrix_draw_work& work, std::int32_t order) {
  if (order <= work.order) return;
  work.order = 0;
  allocate(report, work.T, "T", "fit_matrix_work", order, order);
  allocate(report, work.L, "L", "fit_matrix_work", order, order);
  allocate(report, work.V, "V", "fit_matrix_work", order, order);
  allocate(report, work.z, "z", "fit_matrix_work", order);
  work.order = order;
}

void ranmar_setgmn(reporting& report, const double* mean, const double* cov, std::int64_t ldcov,
                   std::int32_t p, double* parm, matrix_draw_work& work) {
  if (p <= 0) {
    say(report, free_row().text("Value of P: ").i(p).str());
    say(report, "P nonpositive in SETGMN");
    stop_run(report, exit_diagnosed);
  }
  fit_matrix_work(report, work, p);
  double* u = work.L.data(); // leading dimension p
  for (std::int64_t j = 0; j < p; ++j)
    for (std::int64_t i = 0; i <= j; ++i) u[i + j * p] = cov[i + j * ldcov];
  int info = 0;
  spofa(u, p, p, info);
  if (info != 0) {
    say(report, " COVM not positive definite in SETGMN");
    stop_run(report, exit_diagnosed);
  }
  *parm++ = static_cast<double>(p);
  for (std::int64_t i = 0; i < p; ++i) *parm++ = mean[i];
  // after p and the means: U row by row, row i from its diagonal on
  for (std::int64_t i = 0; i < p; ++i)
    for (std::int64_t j = i; j < p; ++j) *parm++ = u[i + j * p];
}

void ranmar_genmn(marsaglia_source& source, const double* parm, double* x, double* work) {
  const std::int64_t p = static_cast<std::int64_t>(parm[0]);
  if (p < 1) return;
  ranmar_snorms(source, work, p);
  const double* mean = parm + 1;
  for (std::int64_t i = 0; i < p; ++i) {
    const double* factor = mean + p + i; // (j,i): row j begins p - j elements after row j-1
    double sum = 0.0;
    for (std::int64_t j = 0; j <= i; ++j) {
      sum += *factor * work[j];
      factor += p - j - 1;
    }
    x[i] = mean[i] + sum;
  }
}

void mvn_draw(reporting& report, combined_source& source, double* x, const double* mean, const double* cov,
              std::int64_t ldcov, std::int32_t n, matrix_draw_work& work) {
  if (n <= 0) return;
  fit_matrix_work(report, work, n);
  const double* l = lower_factor(report, cov, ldcov, n, work);
  double* z = work.z.data();
  for (std::int64_t i = 0; i < n; ++i) z[i] = static_cast<double>(snorm(source));
  for (std::int64_t i = 0; i < n; ++i) {
    // x_i = mean_i + sum over j <= i of l_ij z_j
    double sum = 0.0;
    for (std::int64_t j = 0; j <= i; ++j) sum += l[i + j * n] * z[j];
    x[i] = mean[i] + sum;
  }
}

void wishart_df_check(reporting& report, std::int64_t df, std::int32_t n) {
  if (df >= n) return;
  computation_impossible(report, "wishart_draw", fmt::format("df = {} below order {}", df, n));
}

void wishart_draw(reporting& report, random_sources& sources, double* w, std::int64_t ldw,
                  const double* scale, std::int64_t ldscale, std::int32_t n, std::int64_t df,
                  matrix_draw_work& work) {
  wishart_df_check(report, df, n);
  fit_matrix_work(report, work, n);
  const double* t = bartlett_factor(sources, n, df, work);
  const double* l = lower_factor(report, scale, ldscale, n, work);
  double* b = work.V.data(); // B = L T, lower triangular
  for (std::int64_t j = 0; j < n; ++j)
    for (std::int64_t i = j; i < n; ++i) {
      double sum = 0.0;
      for (std::int64_t k = j; k <= i; ++k) sum += l[i + k * n] * t[k + j * n];
      b[i + j * n] = sum;
    }
  for (std::int64_t j = 0; j < n; ++j) // w = B B'
    for (std::int64_t i = j; i < n; ++i) {
      double sum = 0.0;
      for (std::int64_t k = 0; k <= j; ++k) sum += b[i + k * n] * b[j + k * n];
      w[i + j * ldw] = w[j + i * ldw] = sum;
    }
}

void rinvwish(reporting& report, random_sources& sources, double* w, std::int64_t ldw, const double* S,
              std::int64_t lds, std::int32_t n, std::int64_t df, matrix_draw_work& work) {
  wishart_draw(report, sources, w, ldw, S, lds, n, df, work);
  // W^-1 in the place of W
  ginverse_into(report, w, ldw, n, w, ldw, work.L.data(), work.T.data());
}

} // namespace zeph
