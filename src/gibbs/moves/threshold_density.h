// The density of the thresholds of an ordered trait in units in which its residual variance doesn't move, and
// the proposal for them. K categories; inner categories 2..K-1 are elements 1..d, d = K - 2, tau(i) is the
// threshold above inner category i, the one below the first is 0:
//   ln p(tau) = sum over i of n_i ln(tau_i - tau_(i-1)) - M ln tau_d - tau'H tau/2 + g'tau.
// Without its second term, and with n_i + 1 for n_i, it is concave and has one maximum.
#pragma once

#include "listing/reporting.h"
#include "numerics/arrays.h"
#include "numerics/random_sources.h"

#include <vector>

namespace zeph {

// Arrays may be longer than d.
struct threshold_density {
  std::int32_t d = 0;
  vec<double> n;              // records of the inner categories
  vec<double> diagonal, next; // of H: (i,i), (i,i+1)
  vec<double> g;
  double M = 0;
};

// Over the records of one category: w the place of a liability in it, h its mean and q its precision.
struct category_sums {
  double n = 0, q = 0, wq = 0, wwq = 0, hq = 0, whq = 0;
};

// What a category's liabilities become: shift + slope (y - low), above `above` and at most at `limit`.
struct category_map {
  double low = 0, slope = 1, shift = 0, above = 0, limit = 0;
};

// Sized once for the largest d.
struct threshold_work {
  threshold_density f;
  std::vector<category_sums> sums; // [k], k = 0 for missing
  std::vector<category_map> maps;  // the same
  vec<double> x;                   // the maximum
  vec<double> now, tau;            // present thresholds, proposed ones
  vec<double> gradient, step, way; // of Newton's steps
  mat<double> Hs, L;               // negative Hessian at the maximum and its factor, lower triangles
};

void allocate_threshold_work(reporting& report, threshold_work& work, std::int32_t d);

// ln p(tau) as above with n_i + more for n_i; -infinity where tau is not ascending from above 0.
double log_density(const threshold_density& f, const vec<double>& tau, double more, double M);

// The maximum of the function with n_i + 1 and M = 0 into x; its negative Hessian there and the Hessian's
// factor into Hs and L. Newton's steps, halved while they don't rise, until the decrement is below 1e-16.
// False where they don't end.
bool find_maximum(threshold_work& work);

// tau = x + L'^-1 z (5/chi-square)^1/2, a draw of the multivariate t distribution with 5 degrees of freedom
// around the maximum: d normals z, then 5 for the chi-square, of the Marsaglia source.
void propose_thresholds(threshold_work& work, marsaglia_source& source);

// ln of the proposal's density but for a constant.
double log_proposal(const threshold_work& work, const vec<double>& tau);

} // namespace zeph
