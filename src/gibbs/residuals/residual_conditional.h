// A residual matrix conditioned on some of its traits by sweeps: the first step of every draw of a
// missing or latent residual, of a record's density and of the inverse of an observed part.
//
// P holds R (nt x nt) and, where a border is set, the residuals e of one record below it and 0 in
// the last place. With the rows of a set S swept, each once, in any order:
//   P(s,s'), both in S            R_SS^-1
//   P(t,u), neither in S          R_tu - R_tS R_SS^-1 R_Su   covariance of t and u given S
//   P(nt+1,t), t not in S         e_t - R_tS R_SS^-1 e_S     minus the mean of t given S, where e_t was 0
//   P(t,s), t not in S, s in S    R_tS R_SS^-1, element s; minus it where s > t
// A row whose pivot is below residual_tolerance is left unswept: a trait of next to no variance
// says nothing of the others.
#pragma once

#include "listing/reporting.h"
#include "numerics/packed_matrix.h"

#include <string_view>

namespace zeph {

inline constexpr double residual_tolerance = 1e-12; // least pivot of a residual matrix that is swept

struct residual_conditional {
  std::int32_t nt = 0;
  std::int32_t order = 0; // of P: nt, or nt + 1 with a border
  vec<double> P;          // packed
  vec<logical> swept;     // nt + 1: rows swept so far
};

// Room for matrices of nt traits; `routine` is named if there is none.
void allocate_conditional(reporting& report, residual_conditional& c, std::int32_t nt,
                          std::string_view routine);

// P = R (nt x nt, column-major, lower triangle read), without a border, no row swept.
void set_matrix(residual_conditional& c, const double* R);

// Sets the border after set_matrix: e (nt) of the traits in the mask, 0 of the others.
void set_border(residual_conditional& c, const double* e, std::int32_t mask);

// Sweeps trait t (1-based); returns its pivot, the variance of t given the traits swept before it.
double sweep_trait(residual_conditional& c, std::int32_t t);

// Sweeps the traits of the mask in trait order.
void sweep_mask(residual_conditional& c, std::int32_t mask);

inline double covariance_given(const residual_conditional& c, std::int32_t t, std::int32_t u) {
  return c.P(ihmij(t, u, c.order));
}

// With the border set, e_t = 0 in it.
inline double mean_given(const residual_conditional& c, std::int32_t t) {
  return -c.P(ihmij(c.nt + 1, t, c.order));
}

// Coefficient of e_s in the mean of t; 0 where s was left unswept.
inline double coefficient_given(const residual_conditional& c, std::int32_t t, std::int32_t s) {
  if (c.swept(s) == 0) return 0.0;
  return t > s ? c.P(ihmij(t, s, c.order)) : -c.P(ihmij(t, s, c.order));
}

} // namespace zeph
