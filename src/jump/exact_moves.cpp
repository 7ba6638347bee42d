#include "jump/exact_moves.h"

#include "formats/free_format.h"
#include "gibbs/scan/gibscan.h"
#include "gibbs/scan/residual_body.h"
#include "input/structures.h"
#include "jump/jump_setup.h"
#include "jump/model_moves.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "numerics/normal_draws.h"
#include "numerics/packed_matrix.h"

#include <algorithm>
#include <cmath>

namespace zeph {
namespace {

constexpr double log_two_pi = 1.8378770664093454836;

std::int32_t rows_of(const std::vector<std::int32_t>& model, std::int32_t k) {
  return model[static_cast<std::size_t>(k - 1)];
}

bool moves_pedigree(const jump_records& r) { return is_pedigree(r.model.RMAT(r.jump.jump_k)); }

// cov_new = the leading `rows` rows of the factor's matrix as drawn in this round.
void unpack_matrix(jump_records& r, std::int32_t rows) {
  const double* packed = r.scan.sampler.sscp.unchecked_col(r.jump.jump_k);
  for (std::int32_t i = 1; i <= rows; ++i)
    for (std::int32_t j = 1; j <= i; ++j) r.jump.cov_new(i, j) = r.jump.cov_new(j, i) = *packed++;
}

// Row n of cov_new from the prior given the block of the others.
void draw_row(jump_records& r) {
  jump_store& jump = r.jump;
  const structure_record& factor = r.model.RMAT(jump.jump_k);
  const std::int32_t n = jump.imax, v = r.asked.PDF(jump.jump_k), q = factor.n_rc;
  for (std::int32_t j = 1; j <= n; ++j)
    for (std::int32_t i = 1; i <= n; ++i) jump.prop_scale(i, j) = (v - q - 1) * factor.COV_MAT(i, j);
  sciwhinag(r.scan.report, r.scan.sources, jump.conversion.matrix_work, n, n - 1, jump.cov_new.data(),
            jump.cov_new.extent(1), std::int64_t{v} - q + n, jump.prop_scale.data(),
            jump.prop_scale.extent(1));
}

// T and the coefficients g'V^-1 (in conv_vec) of row n of cov_new on the rows before it.
double condition_row(jump_records& r) {
  jump_store& jump = r.jump;
  const std::int32_t n = jump.imax;
  double logdet = 0;
  int info = 0;
  inverse_logdet(jump.cov_new, jump.prop_scale, n - 1, logdet, info);
  if (info != 0)
    computation_impossible(r.scan.report, "exact_moves", "a matrix that is not positive definite");
  double T = jump.cov_new(n, n);
  for (std::int32_t i = 1; i < n; ++i) {
    jump.conv_vec(i) = 0;
    for (std::int32_t j = 1; j < n; ++j) jump.conv_vec(i) += jump.prop_scale(i, j) * jump.cov_new(j, n);
    T -= jump.conv_vec(i) * jump.cov_new(i, n);
  }
  if (!(T > 0))
    computation_impossible(r.scan.report, "exact_moves", "a matrix that is not positive definite");
  return T;
}

// R^-1 (t,u) of a record, weighted.
double weighted_inverse(const scan_records& r, std::int32_t irec, std::int32_t t, std::int32_t u) {
  double c = r.sampler.RCOVI(t, u, r.design.IRESG_M(irec));
  if (r.work.values.weighted)
    c *= static_cast<double>(r.design.WV_SQRT_M(t, irec)) * static_cast<double>(r.design.WV_SQRT_M(u, irec));
  return c;
}

// Entries of row n of the factor in a record.
void entries_of_row(const jump_records& r, std::int32_t irec, std::vector<std::int32_t>& entries) {
  const design_store& d = r.scan.design;
  entries.clear();
  for (std::int32_t e = 1; e <= d.M_M(irec); ++e)
    if (d.XD7_M(e, irec) == r.jump.jump_k && d.XD5_M(e, irec) == r.jump.imax && d.XD2_M(e, irec) > 0)
      entries.push_back(e);
}

// p_l and h_l with the residuals without row n: kept residuals E, and those of row n's solutions v added
// back where the row is in the model.
void sum_row(jump_records& r, const double* v) {
  scan_records& scan = r.scan;
  design_store& d = scan.design;
  exact_move_work& w = r.jump.exact;
  const std::int32_t nt = r.model.nt;
  w.p.fill(0.0);
  w.h.fill(0.0);
  for (std::int32_t irec = 1; irec <= d.nobs; ++irec) {
    entries_of_row(r, irec, w.entries);
    if (w.entries.empty()) continue;
    for (std::int32_t t = 1; t <= nt; ++t) w.e(t) = scan.work.fast.E(irec, t);
    if (v != nullptr)
      for (const std::int32_t e : w.entries)
        w.e(d.XD2_M(e, irec)) += d.ZD_M(e, irec) * v[d.XD4_M(e, irec) - 1];
    for (const std::int32_t e : w.entries) {
      const std::int32_t t = d.XD2_M(e, irec), l = d.XD4_M(e, irec);
      double sum = 0;
      for (std::int32_t u = 1; u <= nt; ++u) sum += weighted_inverse(scan, irec, t, u) * w.e(u);
      w.h(l) += d.ZD_M(e, irec) * sum;
      for (const std::int32_t o : w.entries)
        if (d.XD4_M(o, irec) == l)
          w.p(l) += d.ZD_M(e, irec) * d.ZD_M(o, irec) * weighted_inverse(scan, irec, t, d.XD2_M(o, irec));
    }
  }
}

// ssq of the residuals without row n less that with it: 2 sum h_l v_l - sum over records of (z v)'R^-1 (z v).
double ssq_difference(jump_records& r, const vec<double>& v) {
  const scan_records& scan = r.scan;
  const design_store& d = scan.design;
  exact_move_work& w = r.jump.exact;
  double sum = 0;
  for (std::int64_t l = 1; l <= v.size(); ++l) sum += 2.0 * w.h(l) * v(l);
  for (std::int32_t irec = 1; irec <= d.nobs; ++irec) {
    entries_of_row(r, irec, w.entries);
    for (const std::int32_t e : w.entries)
      for (const std::int32_t o : w.entries)
        sum -= d.ZD_M(e, irec) * v(d.XD4_M(e, irec)) * d.ZD_M(o, irec) * v(d.XD4_M(o, irec)) *
               weighted_inverse(scan, irec, d.XD2_M(e, irec), d.XD2_M(o, irec));
  }
  return sum;
}

// a_l = g'V^-1 u_l
void regress_row(jump_records& r) {
  const std::int32_t k = r.jump.jump_k, n = r.jump.imax;
  const std::int64_t stride = r.model.RMAT(k).n_rc;
  const double* u = r.scan.sampler.sol.data() + r.model.NBEGRA(k);
  for (std::int32_t l = 1; l <= r.model.NRALEV(k); ++l, u += stride) {
    double a = 0;
    for (std::int32_t i = 1; i < n; ++i) a += r.jump.conv_vec(i) * u[i - 1];
    r.jump.exact.a(l) = a;
  }
}

// Identity, no levels that meet: the new solutions are integrated out of the ratio.
double collapsed_term(jump_records& r, double T, bool up) {
  exact_move_work& w = r.jump.exact;
  double sum = 0;
  for (std::int64_t l = 1; l <= w.levels; ++l) {
    const double p = w.p(l), h = w.h(l), a = w.a(l), d = h - p * a;
    sum += -0.5 * std::log1p(T * p) + T * d * d / (2.0 * (1.0 + T * p)) + a * h - 0.5 * p * a * a;
    if (!up) continue;
    const double P = p + 1.0 / T;
    w.v(l) = (h + a / T) / P + ranmar_snorm(r.scan.sources.marsaglia) / std::sqrt(P);
  }
  return sum;
}

// Parents of level l in the pedigree: the number known, and half the sum of their t.
double parents_part(const jump_records& r, std::int32_t l, double& half) {
  half = 0;
  double known = 0;
  const mat<std::int32_t>& pedmat = r.scan.relations.pedmat;
  for (const std::int32_t side : {1, 2}) {
    const std::int32_t parent = std::abs(pedmat(side, l));
    if (parent == 0) continue;
    known += 1;
    half += 0.5 * r.jump.exact.t(parent);
  }
  return known;
}

// sum of ln q(t_l), t drawn on the way up, that of the present solutions on the way down
double propose_levels(jump_records& r, double T, bool up) {
  exact_move_work& w = r.jump.exact;
  const bool pedigree = moves_pedigree(r);
  double log_q = 0;
  for (std::int64_t at = 1; at <= w.levels; ++at) {
    const auto l =
        pedigree ? r.jump.settled[static_cast<std::size_t>(at - 1)] : static_cast<std::int32_t>(at);
    double t0 = 0, known = 0;
    if (pedigree) known = parents_part(r, l, t0);
    const double weight = 1.0 / ((1.0 - 0.25 * known) * T), P = w.p(l) + weight;
    const double mean = (w.h(l) - w.p(l) * w.a(l) + weight * t0) / P;
    if (up) {
      w.t(l) = mean + ranmar_snorm(r.scan.sources.marsaglia) / std::sqrt(P);
      w.v(l) = w.a(l) + w.t(l);
    }
    const double d = w.t(l) - mean;
    log_q += 0.5 * (std::log(P) - log_two_pi - P * d * d);
  }
  return log_q;
}

// ln p(t; 0, T A)
double prior_of_levels(const jump_records& r, double T) {
  const exact_move_work& w = r.jump.exact;
  const std::int32_t k = r.jump.jump_k;
  double quadratic = 0;
  if (moves_pedigree(r)) {
    const relationship_rows& rows = r.scan.relations.of(k);
    for (std::int64_t l = 1; l <= w.levels; ++l) {
      double sum = rows.diag(l) * w.t(l);
      for (std::int64_t node = rows.start(l); node < rows.start(l + 1); ++node)
        sum += rows.val(node) * w.t(rows.col(node));
      quadratic += w.t(l) * sum;
    }
  } else {
    for (std::int64_t l = 1; l <= w.levels; ++l) quadratic += w.t(l) * w.t(l);
  }
  return -0.5 *
         (static_cast<double>(w.levels) * (log_two_pi + std::log(T)) + r.jump.log_det_A(k) + quadratic / T);
}

double weight_of_rows(const directives& asked, std::int32_t k, std::int32_t rows) {
  for (const row_weights& x : asked.sampler.row_prior)
    if (x.factor == k) return x.weights[static_cast<std::size_t>(rows - 1)];
  return 1.0;
}

} // namespace

void allocate_exact_moves(jump_records& r) {
  constexpr std::string_view routine = "exact_moves";
  exact_move_work& w = r.jump.exact;
  const std::int64_t levels = r.jump.prop_z.size(); // of the largest factor that moves
  for (vec<double>* x : {&w.p, &w.h, &w.a, &w.t, &w.v})
    allocate(r.scan.report, *x, "levels", routine, levels);
  allocate(r.scan.report, w.e, "e", routine, r.model.nt);
}

void weigh_exact_move(jump_records& r) {
  jump_store& jump = r.jump;
  exact_move_work& w = jump.exact;
  const std::int32_t k = jump.jump_k, n = jump.imax, q = r.model.RMAT(k).n_rc;
  const bool up = !jump.jump_down;
  w.levels = r.model.NRALEV(k);
  if (!is_identity(r.model.RMAT(k)) && !moves_pedigree(r)) {
    say(r.scan.report, "Unknown co-variance structure " + r.model.RMAT(k).CV_STRUCT);
    zeph_terminates(r.scan.report);
  }
  // E holds the residuals of the state: the passes over latent values have kept them
  if (!has_latent_traits(r.model, r.asked)) residual_body().ready_values(r.scan, r.asked);
  unpack_matrix(r, up ? n - 1 : n);
  if (up) draw_row(r);
  const double T = condition_row(r);
  regress_row(r);
  const double* sol = r.scan.sampler.sol.data() + r.model.NBEGRA(k);
  if (!up)
    for (std::int32_t l = 1; l <= r.model.NRALEV(k); ++l) {
      w.v(l) = sol[(l - std::int64_t{1}) * q + n - 1];
      w.t(l) = w.v(l) - w.a(l);
    }
  sum_row(r, up ? nullptr : w.v.data());
  const group_meetings& met =
      r.scan.work.meetings
          .groups[static_cast<std::size_t>(r.scan.layout.group_of_factor(k, r.model.nramat) - 1)];
  if (is_identity(r.model.RMAT(k)) && !met.any()) {
    w.terms[2] = collapsed_term(r, T, up);
  } else {
    const double log_q = propose_levels(r, T, up);
    w.terms[2] = prior_of_levels(r, T) - log_q + 0.5 * ssq_difference(r, w.v);
  }
  w.terms[0] = std::log(rminus(r.scan.report, n, 1, q)) - std::log(rplus(r.scan.report, n - 1, 1, q));
  w.terms[1] = std::log(weight_of_rows(r.asked, k, n) / weight_of_rows(r.asked, k, n - 1));
  jump.log_ratio = w.terms[0] + w.terms[1] + w.terms[2];
}

void take_exact_move(jump_records& r) {
  jump_store& jump = r.jump;
  const std::int32_t k = jump.jump_k, n = rows_of(jump.new_model, k), q = r.model.RMAT(k).n_rc;
  double* packed = r.scan.sampler.sscp.unchecked_col(k);
  for (std::int32_t i = 1; i <= n; ++i)
    for (std::int32_t j = 1; j <= i; ++j) *packed++ = jump.cov_new(i, j);
  enter_new_model(r);
  double* sol = r.scan.sampler.sol.data() + r.model.NBEGRA(k);
  for (std::int32_t l = 1; l <= r.model.NRALEV(k); ++l)
    sol[(l - std::int64_t{1}) * q + jump.imax - 1] = jump.jump_down ? 0.0 : jump.exact.v(l);
}

void report_exact_move(jump_records& r, std::int32_t rows) {
  const jump_store& jump = r.jump;
  free_row row;
  row.i(r.state.iround).i(jump.jump_k).i(rows).i(rows_of(jump.new_model, jump.jump_k));
  for (const double term : jump.exact.terms) row.r8(term);
  row.r8(jump.log_ratio).r8(jump.log_u).l(jump.accepted);
  write_zeinfo(r.jump, row.str(), r.scan.report);
  flush_zeinfo(r.jump, r.scan.report);
}

} // namespace zeph
