#include "gibbs/matrices/covariance_draws.h"

#include "formats/free_format.h"
#include "gibbs/matrices/constrained_wishart.h"
#include "gibbs/scan/scan_records.h"
#include "input/structures.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "numerics/cholesky_family.h"
#include "numerics/column_view.h"
#include "numerics/lapack_calls.h"
#include "numerics/packed_matrix.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

namespace zeph {
namespace {

constexpr int most_redraws = 1000; // of a residual matrix with covariances held at zero
// rounds 1..3 are printed from test level 2 on
constexpr std::int64_t last_printed_round = 3;

bool printed(const directives& asked, const round_state& state) {
  return state.iround <= last_printed_round && asked.test_level >= 2;
}

// sum of u_l u_l' over the levels, rows 1..p
void identity_sum(const double* u, std::int32_t levels, std::int32_t stride, std::int32_t p, double* sums) {
  for (std::int32_t l = 0; l < levels; ++l, u += stride)
    for (std::int32_t i = 0, k = 0; i < p; ++i)
      for (std::int32_t j = 0; j <= i; ++j, ++k) sums[k] += u[i] * u[j];
}

// sum of u_l a(l,c) u_c' over all elements a(l,c), rows 1..p; t is work of p
void related_sum(const double* u, const relationship_rows& rows, std::int32_t stride, std::int32_t p,
                 double* t, double* sums) {
  const std::int64_t levels = rows.diag.size();
  for (std::int64_t l = 1; l <= levels; ++l) {
    const double* own = u + (l - 1) * stride;
    // t = sum over c of a(l,c) u_c, the diagonal first; then sums += u_l t'. Each off-diagonal element is in
    // the list of both its levels, so that all elements of A^-1 are taken.
    for (std::int32_t j = 0; j < p; ++j) t[j] = rows.diag(l) * own[j];
    for (std::int64_t node = rows.start(l); node < rows.start(l + 1); ++node) {
      const double* other = u + (rows.col(node) - std::int64_t{1}) * stride;
      const double a = rows.val(node);
      for (std::int32_t j = 0; j < p; ++j) t[j] += a * other[j];
    }
    for (std::int32_t i = 0, k = 0; i < p; ++i)
      for (std::int32_t j = 0; j <= i; ++j, ++k) sums[k] += own[i] * t[j];
  }
}

// Both triangles of x (leading dimension ld) from the packed matrix.
void unpack(const double* packed, std::int32_t p, double* x, std::int64_t ld) {
  for (std::int32_t i = 0; i < p; ++i)
    for (std::int32_t j = 0; j <= i; ++j) x[i + j * ld] = x[j + i * ld] = *packed++;
}

void pack(const double* x, std::int64_t ld, std::int32_t p, double* packed) {
  for (std::int32_t i = 0; i < p; ++i)
    for (std::int32_t j = 0; j <= i; ++j) *packed++ = x[i + j * ld];
}

// inverse = x^-1 of order p; x is left as it is.
void invert(reporting& report, const mat<double>& x, std::int32_t p, mat<double>& inverse, mat<double>& work,
            const char* kind, std::int32_t number) {
  const int ld = static_cast<int>(x.extent(1));
  std::copy(x.begin(), x.end(), work.begin());
  int info = 0;
  LA_GESV(p, work.data(), ld, inverse.data(), static_cast<int>(inverse.extent(1)), info);
  if (info != 0)
    computation_impossible(report, "LA_GESV", fmt::format("singular matrix of {} {}", kind, number));
}

// sscp_f = inverse of the sums that W holds, the scale of a draw; W_INV is scratch.
void make_scale(reporting& report, inverse_wishart_store& iw, std::int32_t p, const char* kind,
                std::int32_t number) {
  invert(report, iw.W, p, iw.sscp_f, iw.W_INV, kind, number);
}

// W_INV = inverse of the drawn W; sscp_f, whose draw is done, is scratch.
void invert_drawn(reporting& report, inverse_wishart_store& iw, std::int32_t p, const char* kind,
                  std::int32_t number) {
  invert(report, iw.W, p, iw.W_INV, iw.sscp_f, kind, number);
}

void print_inverse(reporting& report, const mat<double>& inverse, std::int32_t p) {
  say(report, "Inverse of new sampled co-variance matrix");
  for (std::int32_t i = 1; i <= p; ++i) {
    free_row row;
    for (std::int32_t j = 1; j <= p; ++j) row.r8(inverse(i, j));
    say(report, row.str());
  }
}

// sscp(k) += weight times the prior matrix, lower triangle
template <class Prior> void add_prior(double* sums, std::int32_t p, double weight, const Prior& prior) {
  for (std::int32_t i = 1; i <= p; ++i)
    for (std::int32_t j = 1; j <= i; ++j) *sums++ += weight * prior(i, j);
}

// One factor: S + (v - p - 1) G0 and q + v degrees of freedom, or S and q - p - 1 with a flat prior
// (v the prior degrees of freedom, G0 the start matrix, p rows in the model, q levels).
void sample_factor(const model_records& model, sampler_store& sampler, covariance_work& matrices,
                   random_sources& sources, reporting& report, const directives& asked,
                   const round_state& state, std::int32_t k) {
  const std::int32_t p = state.ntr[static_cast<std::size_t>(k - 1)];
  if (p <= 0) return;
  const structure_record& factor = model.RMAT(k);
  if (printed(asked, state))
    say(report, free_row().text("Sampling new co-variance matrix for random effect no ").i(k).str());
  double* sums = sampler.sscp.unchecked_col(k);
  const factor_prior prior = prior_of_factor(model, asked, k, p);
  const std::int64_t df = asked.DDF(k) + prior.nu;
  if (prior.weight > 0)
    add_prior(sums, p, prior.weight, [&](std::int32_t i, std::int32_t j) { return factor.COV_MAT(i, j); });
  inverse_wishart_store& iw = IW_STR_of(sampler, k, "sample_covariances", report);
  // S in full, its inverse the scale: W^-1 is Wishart (df, S^-1), W inverse Wishart; then G^-1 = W^-1
  unpack(sums, p, iw.W.data(), iw.W.extent(1));
  make_scale(report, iw, p, "random effect", k);
  rinvwish(report, sources, iw.W.data(), iw.W.extent(1), iw.sscp_f.data(), iw.sscp_f.extent(1), p, df,
           matrices.draw);
  invert_drawn(report, iw, p, "random effect", k);
  pack(iw.W.data(), iw.W.extent(1), p, sums);
  // a matrix that is not to be updated is drawn and reported, and the scan keeps its old inverse
  if (state.matopd(k))
    for (std::int32_t j = 1; j <= p; ++j)
      for (std::int32_t i = 1; i <= p; ++i) sampler.GIF(i, j, k) = iw.W_INV(i, j);
  sampler.IDET_RVAR(k) =
      std::sqrt(det_into(report, iw.W_INV.data(), iw.W_INV.extent(1), p, matrices.draw.L.data()));
  if (printed(asked, state)) print_inverse(report, iw.W_INV, p);
}

// Zero in sscp where a residual covariance is held at zero; printed for tests.
void mask_residual_sums(const model_records& model, sampler_store& sampler, reporting& report,
                        const directives& asked) {
  const std::int32_t nt = model.nt;
  for (std::int32_t h = 1; h <= sampler.G; ++h) {
    const auto sums = col_of(sampler.sscp, model.nramat + h);
    for (std::int32_t k = 1; k <= nt * (nt + 1) / 2; ++k)
      if (sampler.LNCOV(k)) sums(k) = 0;
  }
  if (asked.test_level <= 1) return;
  say(report, "sscp for residuals");
  for (std::int32_t h = 1; h <= sampler.G; ++h) {
    const auto sums = col_of(sampler.sscp, model.nramat + h);
    for (std::int32_t i = 1; i <= nt; ++i) {
      free_row row;
      for (std::int32_t j = 1; j <= nt; ++j) row.r8(sums(ihmij(i, j, nt)));
      say(report, row.str());
    }
  }
}

// W with the masked covariances at zero; true when it is positive definite.
bool mask_drawn(const model_records& model, const sampler_store& sampler, mat<double>& W,
                mat<double>& factor) {
  const std::int32_t nt = model.nt;
  for (std::int32_t i = 1; i <= nt; ++i)
    for (std::int32_t j = 1; j < i; ++j)
      if (sampler.LNCOV(ihmij(i, j, nt))) W(i, j) = W(j, i) = 0;
  std::copy(W.begin(), W.end(), factor.begin());
  int info = 0;
  spofa(factor.data(), factor.extent(1), nt, info);
  return info == 0;
}

// W drawn for the sums that it holds and their inverse in sscp_f; again while
// masking spoils it, which W_INV is scratch for. h: residual group.
void draw_residual_matrix(const model_records& model, const sampler_store& sampler, covariance_work& matrices,
                          random_sources& sources, reporting& report, inverse_wishart_store& iw,
                          std::int32_t h, std::int64_t df) {
  constrained_work& constrained = matrices.constrained;
  const bool restricted = !constrained.lists.C.empty();
  if (restricted) {
    std::copy(iw.W.begin(), iw.W.end(), constrained.S.begin());
    std::copy(iw.sscp_f.begin(), iw.sscp_f.end(), constrained.A.begin());
  }
  // every attempt takes its own draws of the combined source
  for (int attempt = 0; attempt < most_redraws; ++attempt) {
    if (restricted)
      rinvwish_con(report, sources, constrained, sampler.RCOV.unchecked_slice(h), df, iw.W, iw.SCALE,
                   matrices.draw);
    else
      rinvwish(report, sources, iw.W.data(), iw.W.extent(1), iw.sscp_f.data(), iw.sscp_f.extent(1), model.nt,
               df, matrices.draw);
    if (model.n_norcov == 0 || mask_drawn(model, sampler, iw.W, iw.W_INV)) return;
  }
  computation_impossible(report, "sample_covariances",
                         "no positive definite residual matrix with the covariances held at zero");
}

// One residual group, with the counts of its records; whether the prior is proper is judged by the number
// of traits of the run.
void sample_residual(const model_records& model, sampler_store& sampler, covariance_work& matrices,
                     random_sources& sources, reporting& report, const directives& asked,
                     const round_state& state, std::int32_t h) {
  const std::int32_t nt = model.nt, p = state.ntr.back(), column = model.nramat + h;
  const std::int32_t prior = asked.PDF(model.nramat + 1);
  const std::int64_t records = model.residual().HETG_N_OBS(model.hetgr_index(h));
  double* sums = sampler.sscp.unchecked_col(column);
  // S + (v - nt - 1) R0 and n + v degrees of freedom, or S and n - nt - 1 with a flat prior.
  // kept: nt and not p, the order in the model in force, decides which
  const std::int64_t df = prior > nt + 1 ? records + prior : records - nt - 1;
  if (p >= 1 && prior > p + 1)
    add_prior(sums, nt, static_cast<double>(prior - nt - 1),
              [&](std::int32_t i, std::int32_t j) { return residual_prior(model, h, i, j); });
  inverse_wishart_store& iw = IW_STR_of(sampler, column, "sample_covariances", report);
  unpack(sums, nt, iw.W.data(), iw.W.extent(1));
  if (!matrices.parts.parts.empty()) {
    draw_residual_parts(report, sources, matrices.parts, sampler.RCOV.unchecked_slice(h), records, prior,
                        iw.W, matrices.draw);
  } else {
    make_scale(report, iw, nt, "residual group", h);
    draw_residual_matrix(model, sampler, matrices, sources, report, iw, h, df);
  }
  invert_drawn(report, iw, nt, "residual group", h);
  pack(iw.W.data(), iw.W.extent(1), nt, sums);
  if (state.matopd(model.nramat + 1)) {
    std::copy(iw.W_INV.begin(), iw.W_INV.end(), sampler.RCOVI.unchecked_slice(h));
    std::copy(iw.W.begin(), iw.W.end(), sampler.RCOV.unchecked_slice(h));
  }
  // LVDET = ln |R| = -ln |R^-1|
  const double d = det_into(report, iw.W_INV.data(), nt, nt, matrices.draw.L.data());
  sampler.IDET_RVAR(column) = std::sqrt(d);
  sampler.LVDET(column) -= std::log(d);
  if (printed(asked, state)) print_inverse(report, iw.W_INV, nt);
}

} // namespace

double residual_prior(const model_records& m, std::int32_t h, std::int32_t i, std::int32_t j) {
  const structure_record& residual = m.residual();
  const std::int32_t g = m.hetgr_index(h);
  for (std::int32_t t = 1; t <= m.nt; ++t)
    if (!(residual.HETGR_COV_MAT(g, t, t) > 0)) return residual.COV_MAT(i, j);
  return residual.HETGR_COV_MAT(g, i, j);
}

void allocate_covariance_work(const model_records& m, covariance_work& work, reporting& report) {
  std::int32_t n = 0;
  for (std::int32_t k = 1; k <= m.nramat + 1; ++k) n = std::max(n, m.RMAT(k).n_rc);
  allocate(report, work.t, "t", "sscp_random", n);
  fit_matrix_work(report, work.draw, std::max(n, m.nt));
}

factor_prior prior_of_factor(const model_records& model, const directives& asked, std::int32_t k,
                             std::int32_t p) {
  const std::int32_t q = asked.sampler.exact ? model.RMAT(k).n_rc : p;
  if (asked.PDF(k) > q + 1)
    return {std::int64_t{asked.PDF(k)} - q + p, static_cast<double>(asked.PDF(k) - q - 1)};
  return {-(std::int64_t{p} + 1), 0.0};
}

void add_factor_squares(const model_records& model, const relationship_store& relations,
                        sampler_store& sampler, covariance_work& matrices, residual_form& fast,
                        reporting& report, std::int32_t k, std::int32_t p) {
  const structure_record& factor = model.RMAT(k);
  const double* u = sampler.sol.data() + model.NBEGRA(k);
  // S = U'A^-1 U, U the levels' solutions in p columns; packed, lower triangle by rows
  double* sums = sampler.sscp.unchecked_col(k);
  const structure_kind kind = structure_of(factor);
  const bool identity = kind == structure_kind::identity;
  if (!identity && (kind == structure_kind::unknown || !row_of(kind).has_related_sum)) {
    say(report, "Unknown co-variance structure " + factor.CV_STRUCT);
    say(report, free_row().text("For random factor ").i(k).str());
    stop_run(report, exit_diagnosed);
  }
  // the fast body has summed U'A^-1 U in its walk over the levels
  if (fast.square_done.allocated() && fast.square_done(k)) {
    for (std::int32_t i = 1; i <= p * (p + 1) / 2; ++i) sampler.sscp(i, k) += fast.square(i, k);
    fast.square_done(k) = 0;
  } else if (identity) {
    identity_sum(u, model.NRALEV(k), factor.n_rc, p, sums);
  } else {
    const bool reduced = kind == structure_kind::pedigree && factor.L_RAM;
    const relationship_rows& rows = reduced ? relations.ram_of(k) : relations.of(k);
    related_sum(u, rows, factor.n_rc, p, matrices.t.data(), sums);
  }
}

void sscp_random(const model_records& model, const relationship_store& relations, sampler_store& sampler,
                 covariance_work& matrices, residual_form& fast, reporting& report,
                 const round_state& state) {
  for (std::int32_t k = 1; k <= model.nramat; ++k)
    add_factor_squares(model, relations, sampler, matrices, fast, report, k,
                       state.ntr[static_cast<std::size_t>(k - 1)]);
}

void sample_covariances(scan_records& r, const directives& asked, const round_state& state) {
  // kept: LVDET is that of the residual groups alone; the places of the factors stay 0
  r.sampler.LVDET.fill(0.0);
  for (std::int32_t k = 1; k <= r.model.nramat; ++k)
    sample_factor(r.model, r.sampler, r.work.matrices, r.sources, r.report, asked, state, k);
  if (r.model.n_norcov > 0 && !asked.sampler.exact) mask_residual_sums(r.model, r.sampler, r.report, asked);
  for (std::int32_t h = 1; h <= r.sampler.G; ++h)
    sample_residual(r.model, r.sampler, r.work.matrices, r.sources, r.report, asked, state, h);
}

} // namespace zeph
