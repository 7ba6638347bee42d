#include "gibbs/matrices/constrained_wishart.h"

#include "input/trait_kinds.h"
#include "listing/stops.h"
#include "numerics/cholesky_family.h"
#include "numerics/gamma_draws.h"
#include "numerics/packed_matrix.h"

#include <algorithm>
#include <cmath>

namespace zeph {
namespace {

constexpr int correlation_steps = 5; // of the chain within one draw

using positions = std::vector<std::int32_t>;

std::int32_t size_of(const positions& list) { return static_cast<std::int32_t>(list.size()); }
std::int32_t at(const positions& list, std::int32_t i) { return list[static_cast<std::size_t>(i - 1)]; }

// out = rows `rows` and columns `columns` of x
void take_part(const mat<double>& x, const positions& rows, const positions& columns, mat<double>& out) {
  for (std::int32_t j = 1; j <= size_of(columns); ++j)
    for (std::int32_t i = 1; i <= size_of(rows); ++i) out(i, j) = x(at(rows, i), at(columns, j));
}

// inverse = x^-1 of the constrained block; a singular one ends the run with code 16.
void invert(reporting& report, const mat<double>& x, mat<double>& inverse) {
  double logdet = 0;
  int info = 0;
  inverse_logdet(x, inverse, static_cast<int>(x.extent(1)), logdet, info);
  if (info != 0)
    computation_impossible(report, "rinvwish_con", "singular sums of squares of constrained traits");
}

// T1 and T2 of the free traits: A_ll^-1 are the sums of squares of lc less their
// regression on the constrained traits.
void draw_free(reporting& report, random_sources& sources, constrained_work& w, const positions& C,
               std::int64_t df, matrix_draw_work& matrix_work) {
  const positions& lc = w.lists.lc;
  const std::int32_t l = size_of(lc), c = size_of(C);
  // A_ll^-1 = S_ll - S_lC S_CC^-1 S_Cl, A = S^-1: T1 is inverse Wishart with it
  take_part(w.A, lc, lc, w.A_ll);
  rinvwish(report, sources, w.T1.data(), l, w.A_ll.data(), l, l, df, matrix_work);
  ginverse_into(report, w.T1.data(), l, l, w.Q.data(), l, w.L1.data(), w.L2.data());
  // vec(T2), column by column, is normal: mean S_CC^-1 S_Cl, precision H = T1^-1 (x) S_CC
  for (std::int32_t i = 1; i <= l; ++i)
    for (std::int32_t a = 1; a <= c; ++a) {
      double sum = 0;
      for (std::int32_t b = 1; b <= c; ++b) sum += w.S_CC_inverse(a, b) * w.S(at(C, b), at(lc, i));
      w.mean((i - 1) * c + a) = sum;
      for (std::int32_t j = 1; j <= l; ++j)
        for (std::int32_t b = 1; b <= c; ++b)
          w.H((i - 1) * c + a, (j - 1) * c + b) = w.Q(i, j) * w.S_CC(a, b);
    }
  const std::int32_t n = l * c;
  ginverse_into(report, w.H.data(), n, n, w.V.data(), n, w.L1.data(), w.L2.data());
  // l c normals, the elements of T2 column by column
  mvn_draw(report, sources.combined, w.x.data(), w.mean.data(), w.V.data(), n, n, matrix_work);
  for (std::int32_t i = 1; i <= l; ++i)
    for (std::int32_t a = 1; a <= c; ++a) w.T2(a, i) = w.x((i - 1) * c + a);
}

// log of the target over the proposal at (P, x), up to a constant
double acceptance(constrained_work& w, const mat<double>& P, const vec<double>& x, reporting& report) {
  invert(report, P, w.inverse);
  const std::int32_t k = static_cast<std::int32_t>(P.extent(1));
  // -tr(S P^-1)/2 of the target; the proposal has S scaled by x: S_ij x_i x_j; squares: of the
  // chi-squares that x comes from
  double sum = 0, squares = 0;
  for (std::int32_t i = 1; i <= k; ++i) {
    for (std::int32_t j = 1; j <= k; ++j) sum += w.S_CC(i, j) * w.inverse(i, j) * (1.0 - x(i) * x(j));
    squares += w.S_CC(i, i) * x(i) * x(i);
  }
  return -0.5 * sum - 0.5 * squares;
}

// P = correlations of the current matrix at the positions of cc
void start_correlations(constrained_work& w, const double* R, std::int64_t nt) {
  const positions& cc = w.lists.cc;
  // p_ij = r_ij / (r_ii r_jj)^1/2
  for (std::int32_t i = 1; i <= size_of(cc); ++i) w.d(i) = std::sqrt(R[(at(cc, i) - 1) * (nt + 1)]);
  for (std::int32_t i = 1; i <= size_of(cc); ++i)
    for (std::int32_t j = 1; j <= size_of(cc); ++j)
      w.P(i, j) = i == j ? 1.0 : R[(at(cc, i) - 1) + (at(cc, j) - 1) * nt] / (w.d(i) * w.d(j));
}

// One step: Z inverse Wishart gives P' = D^-1 Z D^-1, D^2 its diagonal. With
// x_i^2 S_ii chi-square on nu the powers of |P| and D cancel in the ratio.
void step_correlations(reporting& report, random_sources& sources, constrained_work& w, std::int64_t nu,
                       vec<double>& SCALE, matrix_draw_work& matrix_work) {
  const positions& cc = w.lists.cc;
  const std::int32_t k = size_of(cc);
  for (std::int32_t i = 1; i <= k; ++i) {
    const float chi_square = 2.0F * sgamma(sources.combined, static_cast<float>(nu) / 2.0F, sources.gamma);
    w.d(i) = std::sqrt(static_cast<double>(chi_square) / w.S_CC(i, i));
  }
  // per step: k gamma deviates (above), one inverse Wishart matrix, one uniform
  rinvwish(report, sources, w.Z.data(), k, w.S_KK_inverse.data(), k, k, nu, matrix_work);
  for (std::int32_t i = 1; i <= k; ++i)
    for (std::int32_t j = 1; j <= k; ++j)
      w.P_new(i, j) = i == j ? 1.0 : w.Z(i, j) / (std::sqrt(w.Z(i, i)) * std::sqrt(w.Z(j, j)));
  const double now = acceptance(w, w.P, w.d, report);
  for (std::int32_t i = 1; i <= k; ++i) w.scale_new(i) = 1.0 / std::sqrt(w.Z(i, i));
  const double then = acceptance(w, w.P_new, w.scale_new, report);
  const double a1 = uniform_range(sources.combined);
  if (!(std::log(a1) < then - now)) return; // the current correlations stay
  std::copy(w.P_new.begin(), w.P_new.end(), w.P.begin());
  for (std::int32_t i = 1; i <= k; ++i) SCALE(at(cc, i)) = std::sqrt(w.Z(i, i));
}

// P of the cc block: one trait has correlation 1; from two on, five steps of a Metropolis chain from the
// current correlations, whose stationary distribution is the full conditional.
void draw_correlations(reporting& report, random_sources& sources, constrained_work& w, const double* R,
                       std::int64_t nu, vec<double>& SCALE, matrix_draw_work& matrix_work) {
  const std::int32_t k = size_of(w.lists.cc);
  if (k == 1) w.P(1, 1) = 1.0;
  if (k < 2) return;
  wishart_df_check(report, nu, k);
  start_correlations(w, R, w.S.extent(1));
  for (std::int32_t i = 1; i <= k; ++i)
    for (std::int32_t j = 1; j <= k; ++j) w.Z(i, j) = w.S_CC(i, j);
  invert(report, w.Z, w.S_KK_inverse);
  for (int step = 0; step < correlation_steps; ++step)
    step_correlations(report, sources, w, nu, SCALE, matrix_work);
}

// W_CC = P, W_Cl = P T2, W_ll = T1 + T2' P T2
void join_parts(constrained_work& w, const positions& C, mat<double>& W) {
  // R from its parts: with T2 = P^-1 R_Cl the blocks are R_Cl = P T2 and R_ll = T1 + R_lC P^-1 R_Cl
  const positions& lc = w.lists.lc;
  const std::int32_t c = size_of(C), l = size_of(lc), k = size_of(w.lists.cc);
  for (std::int32_t a = 1; a <= c; ++a)
    for (std::int32_t b = 1; b <= c; ++b) {
      w.P_C(a, b) = a <= k && b <= k ? w.P(a, b) : (a == b ? 1.0 : 0.0);
      W(at(C, a), at(C, b)) = w.P_C(a, b);
    }
  // W_Cl = P T2, and its transpose
  for (std::int32_t i = 1; i <= l; ++i)
    for (std::int32_t a = 1; a <= c; ++a) {
      double sum = 0;
      for (std::int32_t b = 1; b <= c; ++b) sum += w.P_C(a, b) * w.T2(b, i);
      W(at(C, a), at(lc, i)) = W(at(lc, i), at(C, a)) = sum;
    }
  // W_ll = T1 + T2' W_Cl
  for (std::int32_t i = 1; i <= l; ++i)
    for (std::int32_t j = 1; j <= i; ++j) {
      double sum = w.T1(i, j);
      for (std::int32_t a = 1; a <= c; ++a) sum += w.T2(a, i) * W(at(C, a), at(lc, j));
      W(at(lc, i), at(lc, j)) = W(at(lc, j), at(lc, i)) = sum;
    }
}

// Trait at a position of the residual matrix; 0 in the list means the position itself.
std::int32_t trait_at(const structure_record& residual, std::int32_t position) {
  const std::int32_t trait = position <= residual.TRAIT_NO.size() ? residual.TRAIT_NO(position) : 0;
  return trait == 0 ? position : trait;
}

void fill_lists(const model_records& m, const directives& asked, residual_lists& lists, reporting& report) {
  lists = {};
  for (std::int32_t j = 1; j <= m.nt; ++j) {
    const std::int32_t trait = trait_at(m.residual(), j);
    if (trait != j && samples_matrices(asked.analysis_type))
      illegal_input(report, "MODINF", "RMAT%TRAIT_NO", {m.nramat + 1, j}, std::to_string(trait),
                    "the position itself in the residual");
    // free variance, variance 1 with free correlations, variance 1 without correlations
    switch (kind_of(m.MODEL(j)).variance) {
    case residual_variance::free:
      lists.lc.push_back(j);
      break;
    case residual_variance::unit:
      lists.cc.push_back(j);
      break;
    case residual_variance::unit_uncorrelated:
      lists.ccu.push_back(j);
      break;
    case residual_variance::undefined:
      if (samples_matrices(asked.analysis_type))
        illegal_input(report, "MODINF", "TRAIT_TYPE", {j}, std::to_string(m.MODEL(j).TRAIT_TYPE),
                      legal_kinds());
    }
  }
  lists.C = lists.cc;
  lists.C.insert(lists.C.end(), lists.ccu.begin(), lists.ccu.end());
}

// Work areas for matrices of this order with the lists of w.
void fit_constrained_work(constrained_work& w, std::int64_t order, matrix_draw_work& matrix_work,
                          reporting& report) {
  constexpr std::string_view routine = "rinvwish_con";
  const std::int64_t l = size_of(w.lists.lc), k = size_of(w.lists.cc), c = k + size_of(w.lists.ccu);
  if (c == 0) return;
  for (mat<double>* x : {&w.S, &w.A}) allocate(report, *x, "S", routine, order, order);
  for (mat<double>* x : {&w.S_CC, &w.S_CC_inverse, &w.P_C}) allocate(report, *x, "S_CC", routine, c, c);
  for (mat<double>* x : {&w.T1, &w.Q, &w.A_ll}) allocate(report, *x, "T1", routine, l, l);
  allocate(report, w.T2, "T2", routine, c, l);
  const std::int64_t n = l * c, root = std::max(n, l);
  for (mat<double>* x : {&w.H, &w.V}) allocate(report, *x, "H", routine, n, n);
  for (mat<double>* x : {&w.L1, &w.L2}) allocate(report, *x, "L", routine, root, root);
  for (vec<double>* x : {&w.mean, &w.x}) allocate(report, *x, "mean", routine, n);
  for (mat<double>* x : {&w.P, &w.P_new, &w.Z, &w.S_KK_inverse, &w.inverse})
    allocate(report, *x, "P", routine, k, k);
  for (vec<double>* x : {&w.d, &w.scale_new}) allocate(report, *x, "d", routine, k);
  fit_matrix_work(report, matrix_work, static_cast<std::int32_t>(std::max({n, l, k})));
}

// The lists of the traits of a part, as positions in it.
void keep_positions(const std::vector<std::int32_t>& traits, positions& list) {
  positions kept;
  for (std::size_t i = 0; i < traits.size(); ++i)
    if (std::find(list.begin(), list.end(), traits[i]) != list.end())
      kept.push_back(static_cast<std::int32_t>(i) + 1);
  list = std::move(kept);
}

} // namespace

void prepare_residual_draw(const model_records& m, const directives& asked, constrained_work& w,
                           matrix_draw_work& matrix_work, reporting& report) {
  fill_lists(m, asked, w.lists, report);
  fit_constrained_work(w, m.nt, matrix_work, report);
}

void prepare_part_draw(const model_records& m, const directives& asked,
                       const std::vector<std::int32_t>& traits, constrained_work& w,
                       matrix_draw_work& matrix_work, reporting& report) {
  fill_lists(m, asked, w.lists, report);
  keep_positions(traits, w.lists.lc);
  keep_positions(traits, w.lists.cc);
  keep_positions(traits, w.lists.ccu);
  w.lists.C = w.lists.cc;
  w.lists.C.insert(w.lists.C.end(), w.lists.ccu.begin(), w.lists.ccu.end());
  fit_constrained_work(w, static_cast<std::int64_t>(traits.size()), matrix_work, report);
}

void rinvwish_con(reporting& report, random_sources& sources, constrained_work& w, const double* R,
                  std::int64_t df, mat<double>& W, vec<double>& SCALE, matrix_draw_work& matrix_work) {
  const std::int32_t l = size_of(w.lists.lc), u = size_of(w.lists.ccu);
  const positions& C = w.lists.C;
  // no variance is fixed: an inverse Wishart matrix
  if (C.empty()) {
    rinvwish(report, sources, W.data(), W.extent(1), w.A.data(), w.A.extent(1),
             static_cast<std::int32_t>(W.extent(1)), df, matrix_work);
    return;
  }
  // order of the draws: T1, T2, P; the combined source serves all three
  take_part(w.S, C, C, w.S_CC);
  invert(report, w.S_CC, w.S_CC_inverse);
  if (l > 0) draw_free(report, sources, w, C, df, matrix_work);
  draw_correlations(report, sources, w, R, df - l + u, SCALE, matrix_work);
  join_parts(w, C, W);
}

} // namespace zeph
