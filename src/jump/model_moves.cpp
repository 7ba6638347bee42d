#include "jump/model_moves.h"

#include "formats/free_format.h"
#include "gibbs/matrices/covariance_draws.h"
#include "gibbs/scan/record_product.h"
#include "gibbs/scan/residual_body.h"
#include "jump/jump_densities.h"
#include "jump/jump_setup.h"
#include "listing/listing_rows.h"
#include "numerics/column_view.h"
#include "numerics/packed_matrix.h"

#include <algorithm>
#include <cmath>

namespace zeph {
namespace {

constexpr double log_two_pi = 1.8378770664093453;
constexpr double least_pivot = 1.0E-12;

// ---- residuals ----

// e' riff e, e the residuals of the record
double quadratic_form(const round_work& work, std::int32_t nt) {
  double sum = 0;
  for (std::int32_t t = 1; t <= nt; ++t)
    for (std::int32_t u = 1; u <= nt; ++u)
      sum += work.values.res(t) * work.inverses.riff(t, u) * work.values.res(u);
  return sum;
}

double sum_by_records(scan_records& r, const directives& asked) {
  const bool weights = r.model.has_weights();
  double ssq = 0;
  values_from_entries(r.work.values);
  for (std::int32_t irec = 1; irec <= r.design.nobs; ++irec) {
    read_record(entries_of(r, asked.analysis_type), r.work.values, irec); // riff holds the weights
    make_riff(r.model, r.design, r.sampler, r.work.inverses, irec, asked.analysis_type, weights);
    ssq += quadratic_form(r.work, r.model.nt);
  }
  return ssq;
}

// sum of a b, in four sums that don't wait for each other
double product_sum(const double* a, const double* b, std::int64_t n) {
  double sums[4] = {};
  std::int64_t i = 0;
  for (; i + 4 <= n; i += 4)
    for (int k = 0; k < 4; ++k) sums[k] += a[i + k] * b[i + k];
  for (; i < n; ++i) sums[0] += a[i] * b[i];
  return (sums[0] + sums[1]) + (sums[2] + sums[3]);
}

// The same by the columns of the fast scan body, a block of records at a time.
double sum_by_columns(scan_records& r, const directives& asked) {
  residual_form& form = r.work.fast;
  const std::int32_t nt = r.model.nt;
  values_from_residuals(r.work.values, form.E);
  const bool weights = r.model.has_weights();
  double ssq = 0;
  for (std::int64_t lo = 0; lo < r.design.nobs; lo += records_of_block) {
    const std::int64_t hi = std::min(lo + records_of_block, std::int64_t{r.design.nobs});
    fresh_residuals(r.model, r.layout, r.design, r.sampler, r.work.fast, asked, lo, hi);
    if (form.one_matrix) { // R^-1 is that of all records
      for (std::int32_t t = 1; t <= nt; ++t)
        for (std::int32_t u = 1; u <= t; ++u) {
          // ssq += r^tu e_t'e_u, off-diagonal elements twice
          const double sum = product_sum(form.E.unchecked_col(t) + lo, form.E.unchecked_col(u) + lo, hi - lo);
          ssq += (t == u ? 1.0 : 2.0) * r.sampler.RCOVI(t, u, 1) * sum;
        }
      continue;
    }
    for (std::int64_t i = lo; i < hi; ++i) {
      const auto irec = static_cast<std::int32_t>(i + 1);
      read_record(entries_of(r, asked.analysis_type), r.work.values, irec);
      make_riff(r.model, r.design, r.sampler, r.work.inverses, irec, asked.analysis_type, weights);
      ssq += quadratic_form(r.work, nt);
    }
  }
  return ssq;
}

// Coefficients that change in a round are not those of the columns.
bool columns_hold(const residual_form& form) {
  for (const group_form& group : form.groups)
    for (const design_slot& slot : group.slots)
      if (slot.changing) return false;
  return true;
}

// ---- the two models ----

// The large model's first line begins with the move.
std::string told_move(const jump_records& r) {
  free_row row;
  row.text("model");
  for (const std::int32_t dimension : r.jump.large_model) row.i(dimension);
  row.text(" down ").l(r.jump.jump_down).text("Residual ssq for largest model without swap");
  return row.str();
}

// True when the exchange with conv_sol would change nothing.
bool conversion_is_simple(const jump_records& r, std::int32_t k, std::int32_t rows) {
  const std::int64_t stride = r.model.RMAT(k).n_rc;
  const double *sol = r.scan.sampler.sol.data() + r.model.NBEGRA(k), *other = r.jump.conv_sol.data();
  for (std::int64_t l = 0; l < r.model.NRALEV(k); ++l)
    for (std::int64_t i = l * stride; i < l * stride + rows; ++i)
      if (sol[i] != other[i]) return false;
  return true;
}

// What one of the two models says of the move.
struct model_side {
  double fit = 0, ssq = 0;          // residual_pass with the model's solutions
  double logdet = 0, quadratic = 0; // ln |G| and tr(G^-1 U' A^-1 U) of the factor
};

// The factor's part: rows 1..n of cov_new swept, against the sums of squares of sol.
void weigh_solutions(jump_records& r, std::int32_t n, model_side& side) {
  const std::int32_t k = r.jump.jump_k;
  double* packed = r.scan.work.levels.bordered.data();
  for (std::int32_t i = 1; i <= n; ++i)
    for (std::int32_t j = 1; j <= i; ++j) packed[ihmij(i, j, n) - 1] = r.jump.cov_new(i, j);
  std::fill_n(r.scan.work.levels.swept.data(), n, logical{0});
  for (std::int32_t i = 1; i <= n; ++i) {
    double pivot = 0;
    int info = 0;
    sweep(i, packed, n, least_pivot, r.scan.work.levels.swept.data(), pivot, info);
    side.logdet += std::log(pivot);
  }
  const auto sums = col_of(r.scan.sampler.sscp, k);
  std::fill_n(sums.unchecked(), r.scan.sampler.sscp.extent(1), 0.0);
  // S = U'A^-1 U with the solutions of this side; sscp is put back at the end of the move
  add_factor_squares(r.scan.model, r.scan.relations, r.scan.sampler, r.scan.work.matrices, r.scan.work.fast,
                     r.scan.report, k, n);
  for (std::int32_t i = 1; i <= n; ++i)
    for (std::int32_t j = 1; j <= n; ++j) {
      const std::int32_t at = ihmij(i, j, n) - 1;
      // tr(G^-1 S), over the full square
      side.quadratic += sums[at] * packed[at];
    }
}

// One side of the move. swapped: its solutions are those of conv_sol. Sums of squares are printed
// before and after the exchange; the pass is not repeated when it moved nothing.
model_side look_at_model(jump_records& r, const std::vector<std::int32_t>& model, bool swapped,
                         std::string_view before, std::string_view after) {
  const std::int32_t k = r.jump.jump_k;
  const std::vector<std::int32_t>& large = r.jump.large_model;
  model_side side;
  set_structure(r, model, k);
  residual_pass(r, side.fit, side.ssq);
  say(r.scan.report, free_row().text(before).r8(side.ssq).str());
  const bool moved = swapped && !conversion_is_simple(r, k, large[static_cast<std::size_t>(k - 1)]);
  if (moved) {
    swap_solutions(r, k, large);
    residual_pass(r, side.fit, side.ssq);
  }
  say(r.scan.report, free_row().text(after).r8(side.ssq).str());
  weigh_solutions(r, model[static_cast<std::size_t>(k - 1)], side);
  if (moved) swap_solutions(r, k, large);
  return side;
}

// ---- the ratio ----

// Log density of N levels' solutions of m rows, covariance G x A.
double solution_logdens(const jump_records& r, std::int32_t m, const model_side& side) {
  const double h = 0.5 * r.model.NRALEV(r.jump.jump_k);
  const auto hm = static_cast<float>(h * m); // kept: a 32-bit product
  return -h * side.logdet - static_cast<double>(hm) * log_two_pi -
         0.5 * (m * r.jump.log_det_A(r.jump.jump_k) + side.quadratic);
}

double proposal_logdens(const jump_records& r) {
  double Q = 0;
  for (std::int32_t l = 1; l <= r.model.NRALEV(r.jump.jump_k); ++l)
    Q += normal_logdens(r.jump.prop_z(l), r.asked.prop_var, 0.0);
  return Q;
}

void assemble_ratio(jump_records& r, const model_side& large, const model_side& small) {
  jump_store& jump = r.jump;
  reporting& report = r.scan.report;
  const std::int32_t k = jump.jump_k, n = jump.imax;
  const std::int64_t df = std::int64_t{n} + r.asked.prodf;
  const std::int32_t m_l = jump.large_model[static_cast<std::size_t>(k - 1)];
  const std::int32_t m_s = jump.small_model[static_cast<std::size_t>(k - 1)];
  const double *cov = jump.cov_new.data(), *scale = jump.prop_scale.data();
  const std::int64_t ld = jump.cov_new.extent(1);
  const double A = CWisdens(report, n, r.asked.PDF(k), cov, ld, scale, ld);
  const double B = g0kainv(report, m_l, m_s, cov, ld, df, scale, ld);
  const double C = CWisdens(report, n, df, cov, ld, scale, ld);
  // kept: both densities are computed for their tests alone
  for (const std::int32_t order : {n, n - 1}) iwdens(report, order, df, cov, ld, scale, ld);
  // p(U) of both models; Q: density of the z that the large model has more
  const double D_l = solution_logdens(r, m_l, large), D_s = solution_logdens(r, m_s, small);
  const double Q = proposal_logdens(r);
  const std::int32_t high = r.model.RMAT(k).n_rc;
  const double up = std::log(rplus(report, m_s, 1, high)), down = std::log(rminus(report, m_l, 1, high));
  const double data = 0.5 * (small.fit - large.fit - large.ssq + small.ssq);
  // small to large: moves, Jacobian, solutions, matrix (A prior, C proposal), z, data
  // kept: the probability of the proposed direction has the sign of the reverse one; B is only printed
  jump.log_ratio = up - down + jump.jacobian + (D_l - D_s) + (A - C) - Q + data;

  const std::int64_t i = r.state.iround;
  const double likelihood = 0.5 * (small.ssq + small.fit - large.ssq - large.fit);
  jump.diagnostic = {
      "", free_row().i(i).r8(large.ssq).r8(small.ssq).r8(large.fit).r8(small.fit).r8(likelihood).str(),
      free_row().i(i).r8(D_l).r8(D_s).r8(Q).r8(jump.jacobian).r8((D_l - (D_s + Q)) + jump.jacobian).str(),
      free_row().i(i).r8(A).r8(B).r8(B - C).r8(A - C).str(),
      free_row().i(i).r8(up).r8(down).r8(jump.log_ratio).str()};
}

} // namespace

double rplus(reporting& report, std::int32_t m, std::int32_t low, std::int32_t high) {
  if (m == high) return 0.0;
  if (m == low) return 1.0;
  if (low < m && m < high) return 0.5;
  say(report, "Illegal model move suggested in rplus");
  return 0.0;
}

double rminus(reporting& report, std::int32_t m, std::int32_t low, std::int32_t high) {
  if (m == low) return 0.0;
  if (m == high) return 1.0;
  if (low < m && m < high) return 0.5;
  say(report, "Illegal model move suggested in rminus");
  return 0.0;
}

void swap_solutions(jump_records& r, std::int32_t k, const std::vector<std::int32_t>& model) {
  const std::int64_t stride = r.model.RMAT(k).n_rc;
  const std::int32_t rows = model[static_cast<std::size_t>(k - 1)];
  double *sol = r.scan.sampler.sol.data() + r.model.NBEGRA(k), *other = r.jump.conv_sol.data();
  for (std::int32_t l = 1; l <= r.model.NRALEV(k); ++l, sol += stride, other += stride)
    std::swap_ranges(sol, sol + rows, other);
}

void residual_pass(jump_records& r, double& fit, double& ssq) {
  scan_records& scan = r.scan;
  fit = 0;
  for (std::int32_t irec = 1; irec <= scan.design.nobs; ++irec)
    // ln |R| of the record's group
    fit += scan.sampler.LVDET(r.model.nramat + scan.design.IRESG_M(irec));
  const bool fast = body_of(scan, r.asked) == scan_body::fast && columns_hold(scan.work.fast);
  ssq = fast ? sum_by_columns(scan, r.asked) : sum_by_records(scan, r.asked);
}

void model_move(jump_records& r) {
  jump_store& jump = r.jump;
  mat<double>& sscp = r.scan.sampler.sscp;
  std::copy(sscp.begin(), sscp.end(), jump.saved_sscp.begin());
  // the model in force has its solutions in sol; the other side is looked at with those of conv_sol
  const model_side large = look_at_model(r, jump.large_model, !jump.jump_down, told_move(r),
                                         "Residual ssq for large model ..............");
  const model_side small =
      look_at_model(r, jump.small_model, jump.jump_down, "Residual ssq for small model without swap  ",
                    "Residual ssq for small model ..............");
  set_structure(r, r.state.ntr, jump.jump_k);
  std::copy(jump.saved_sscp.begin(), jump.saved_sscp.end(), sscp.begin());
  assemble_ratio(r, large, small);
}

} // namespace zeph
