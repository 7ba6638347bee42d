#include "control/start_values.h"

#include "formats/column_format.h"
#include "formats/free_format.h"
#include "gibbs/residuals/residual_conditional.h"
#include "input/structures.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"

#include <algorithm>
#include <cmath>

namespace zeph {
namespace {

constexpr double pivot_limit = 1e-18;  // residual matrices: smaller pivots are no variance
constexpr double inverse_error = 1e-6; // largest error of a stored inverse that is taken

bool grouped(const model_records& m) { return has_residual_groups(m.residual()); }

// Every group has a matrix of its own when all their diagonals are positive.
bool has_group_priors(const model_records& m) {
  const structure_record& residual = m.residual();
  if (!grouped(m) || residual.n_hetgr < 1) return false;
  for (std::int32_t g = 1; g <= residual.n_hetgr; ++g)
    for (std::int32_t t = 1; t <= m.nt; ++t)
      if (!(residual.HETGR_COV_MAT(g, t, t) > 0)) return false;
  return true;
}

void start_factors(const model_records& m, sampler_store& s) {
  for (std::int32_t k = 1; k <= m.nramat; ++k) {
    const structure_record& factor = m.RMAT(k);
    s.GDET(k) = factor.r3304;
    for (std::int32_t j = 1; j <= factor.n_rc; ++j)
      for (std::int32_t i = 1; i <= factor.n_rc; ++i) s.GIF(i, j, k) = factor.GIF(i, j);
  }
}

// RCOV(:,:,g): the group's own start matrix, or that of the residual.
void start_residual_matrix(const model_records& m, sampler_store& s, std::int32_t g, bool own) {
  for (std::int32_t j = 1; j <= m.nt; ++j)
    for (std::int32_t i = 1; i <= m.nt; ++i)
      s.RCOV(i, j, g) = own ? m.residual().HETGR_COV_MAT(g, i, j) : m.residual().COV_MAT(i, j);
}

// Sweeps RCOV(:,:,g): its inverse into RCOVI, LVDET = -sum of log pivots,
// IDET_RVAR = 1 / root of the product of pivots. False when a pivot fails.
bool invert_residual_matrix(const model_records& m, sampler_store& s, std::int32_t g,
                            residual_conditional& swept, reporting& report) {
  const std::int32_t nt = m.nt, f = m.nramat + g;
  set_matrix(swept, s.RCOV.unchecked_slice(g));
  double product = 1.0;
  bool definite = true;
  s.LVDET(f) = 0;
  for (std::int32_t i = 1; i <= nt; ++i) {
    // pivots: the variance of each trait given those before it; their product is |R|
    const double pivot = sweep_trait(swept, i);
    if (!(pivot > pivot_limit)) {
      say(report, free_row().text("Residual co-variance matrix not P.D. in group").i(g).str());
      definite = false;
      continue;
    }
    s.LVDET(f) -= std::log(pivot);
    product *= pivot;
  }
  s.IDET_RVAR(f) = 1.0 / std::sqrt(product);
  for (std::int32_t i = 1; i <= nt; ++i)
    for (std::int32_t j = 1; j <= nt; ++j) s.RCOVI(i, j, g) = swept.P(ihmij(i, j, nt));
  return definite;
}

// True when the stored inverse of group 1, pattern 1 is the inverse of COV_MAT.
bool stored_inverse_holds(const model_records& m) {
  const structure_record& residual = m.residual();
  if (residual.n_hetgr < 1 || residual.n_pat < 1) return false;
  for (std::int32_t i = 1; i <= m.nt; ++i)
    for (std::int32_t j = 1; j <= m.nt; ++j) {
      double product = 0;
      for (std::int32_t k = 1; k <= m.nt; ++k)
        // |(R^-1 R)_ij - delta_ij| at most inverse_error
        product += residual.HETGR_RIIF(1, 1, i, k) * residual.COV_MAT(k, j);
      if (!(std::fabs(product - (i == j ? 1.0 : 0.0)) <= inverse_error)) return false;
    }
  return true;
}

void take_stored_inverse(const model_records& m, sampler_store& s, std::int32_t g) {
  for (std::int32_t i = 1; i <= m.nt; ++i)
    for (std::int32_t j = 1; j <= m.nt; ++j) s.RCOVI(i, j, g) = m.residual().HETGR_RIIF(1, 1, i, j);
}

std::string matrix_row(const double* matrix, std::int32_t i, std::int32_t n) {
  free_row row;
  for (std::int32_t j = 1; j <= n; ++j) row.r8(matrix[(i - 1) + (j - 1) * n]);
  return row.str();
}

void print_factor_determinants(const model_records& m, const sampler_store& s, reporting& report) {
  say(report, "Determinant of initial G-Matrice(s)");
  for (std::int32_t k = 1; k <= m.nramat; ++k)
    say(report, column_line().X(30).I(k, 5).G(s.GDET(k), 25, 15).str());
}

void print_residual_inverses(const model_records& m, reporting& report) {
  const structure_record& residual = m.residual();
  say(report, "Det. of all existing R-Matrices ");
  for (std::int32_t g = 1; g <= residual.n_hetgr; ++g)
    for (std::int32_t p = 1; p <= residual.n_pat; ++p)
      say(report, free_row().i(g).i(p).r8(residual.HETGR_RDET(g, p)).str());
  if (m.nt < 2) return;
  say(report, "    All possible R-inverses from initial R");
  for (std::int32_t g = 1; g <= residual.n_hetgr; ++g) {
    say(report, free_row().text("   Residual variance group ..............").i(g).str());
    for (std::int32_t p = 1; p <= residual.n_pat; ++p) {
      say(report, free_row().text("Missing data pattern ").i(p).str());
      for (std::int32_t i = 1; i <= m.nt; ++i) {
        free_row row;
        for (std::int32_t j = 1; j <= m.nt; ++j) row.r8(residual.HETGR_RIIF(g, p, i, j));
        say(report, row.str());
      }
    }
  }
}

void print_all(const char* label, const cube<double>& values, reporting& report) {
  free_row row;
  row.text(label);
  for (const double value : values) row.r8(value);
  say(report, row.str());
}

} // namespace

void mark_zero_covariances(const model_records& m, sampler_store& s, reporting& report) {
  allocate(report, s.LNCOV, "LNCOV", "ZEPH", std::int64_t{m.nt} * (m.nt + 1) / 2);
  for (std::int32_t i = 1; i <= m.n_norcov; ++i) s.LNCOV(ihmij(m.NORCOV(i, 1), m.NORCOV(i, 2), m.nt)) = 1;
}

void allocate_equations(const equation_layout& layout, sampler_store& s, reporting& report) {
  allocate(report, s.RHS, "RHS", "ZEPH1", layout.neq);
  allocate(report, s.sol, "sol", "ZEPH1", layout.neq);
  allocate(report, s.solpostmean, "solpostmean", "ZEPH1", layout.neq);
  allocate(report, s.pev, "pev", "ZEPH1", layout.neq);
  allocate(report, s.sols, "sols", "ZEPH1", layout.neq);
}

void allocate_dispersion(const model_records& m, const equation_layout& layout, round_state& state,
                         sampler_store& s, reporting& report) {
  const std::int32_t nt = m.nt, G = m.n_groups_residual();
  s.G = G;
  // columns of sscp, PARPOSTMEAN, PARVAR: factors, then residual groups; rows: packed, order nf
  const std::int64_t packed = std::int64_t{s.nf} * (s.nf + 1) / 2, columns = std::int64_t{m.nramat} + G;
  say_count(report, "No of groups for residual variance ................", G);
  allocate(report, s.RCOV, "RCOV", "ZEPH2", nt, nt, G);
  // kept: W_RCOV, SRCOV and SRCOVI are allocated in their place, and nothing reads them
  allocate(report, s.W_RCOV, "W_RCOV", "ZEPH2", nt, nt);
  allocate(report, s.RCOVI, "RCOVI", "ZEPH2", nt, nt, G);
  allocate(report, s.IDET_RVAR, "IDET_RVAR", "ZEPH2", columns);
  allocate(report, s.SRCOV, "SRCOV", "ZEPH2", nt, nt, G);
  allocate(report, s.SRCOVI, "SRCOVI", "ZEPH2", nt, nt, G);
  allocate(report, s.sscp, "sscp", "ZEPH2", packed, columns);
  allocate(report, s.LVDET, "LVDET", "ZEPH2", columns);
  allocate(report, s.PARPOSTMEAN, "PARPOSTMEAN", "ZEPH2", packed, columns);
  allocate(report, s.PARVAR, "PARVAR", "ZEPH2", packed, columns);
  allocate(report, s.pars, "pars", "ZEPH2", packed, columns);
  allocate(report, state.gropd, "gropd", "ZEPH2", layout.ngroups);
  allocate(report, state.matopd, "matopd", "ZEPH2", columns + 1);
  allocate(report, s.dic_ressum, "dic%ressum", "ZEPH2", nt, m.nobs());
  allocate(report, s.dic_s, "dic%dic_s", "ZEPH2", nt);
  allocate(report, s.dic_m, "dic%dic_m", "ZEPH2", nt);
  allocate(report, s.dic_rrsum, "dic%rrsum", "ZEPH2", nt, G);
  // every group and every matrix is updated; the one place beyond the matrices is not
  state.gropd.fill(1);
  state.matopd.fill(1);
  state.matopd(columns + 1) = 0;
  state.ntr.clear();
  for (std::int32_t k = 1; k <= m.nramat + 1; ++k) state.ntr.push_back(m.RMAT(k).n_rc);
}

void start_from_priors(const model_records& m, const directives& asked, sampler_store& s, reporting& report) {
  start_factors(m, s);
  if (asked.test_level >= 2) {
    print_factor_determinants(m, s, report);
    print_residual_inverses(m, report);
  }
  const bool own = has_group_priors(m);
  // RCOVI is the inverse that the file holds, to its last bit, where that is one
  const bool stored = !own && stored_inverse_holds(m);
  bool definite = true;
  residual_conditional swept;
  allocate_conditional(report, swept, m.nt, "ZEPH2");
  for (std::int32_t g = 1; g <= s.G; ++g) {
    start_residual_matrix(m, s, g, own);
    definite = invert_residual_matrix(m, s, g, swept, report) && definite;
    if (stored) take_stored_inverse(m, s, g);
  }
  if (!definite) zeph_terminates(report);
}

void print_start_matrices(const model_records& m, const sampler_store& s, reporting& report) {
  say(report, "Prior co-variance matrices");
  for (std::int32_t k = 1; k <= m.nramat; ++k) {
    say(report, free_row().text("Matrix no ").i(k).str());
    for (std::int32_t i = 1; i <= m.RMAT(k).n_rc; ++i)
      say(report, matrix_row(m.RMAT(k).COV_MAT.data(), i, m.RMAT(k).n_rc));
  }
  say(report, "Residual dispersion parameters");
  print_all("rcov ", s.RCOV, report);
  print_all("rcovi ", s.RCOVI, report);
}

} // namespace zeph
