// Thresholds, liabilities and scale of an ordered trait in one step. K categories, thr(1) = 0, thr(K-1) = 1. In
// units in which the residual variance of the trait doesn't move the thresholds are tau_2 < .. < tau_(K-1), all
// free, now thr. Each record holds: in category 1 (or missing) its liability; inside category k its place
// (y - thr(k-1))/(thr(k) - thr(k-1)); in category K its excess y - 1. Liabilities are then linear in tau, and
//   ln p(tau) = sum over inner k of n_k ln(tau_k - tau_(k-1)) - M ln tau_(K-1) - tau'H tau/2 + g'tau,
// H and g from sum of (l(tau) - h)^2/v, h fitted value plus conditional mean of the residual given the record's
// others and v its variance, and from the priors of the matrices in tau_(K-1). tau is proposed from a
// multivariate t distribution with 5 degrees of freedom around the maximum of the same function with n_k + 1
// for n_k and M = 0. An accepted tau becomes thr = tau/tau_(K-1), and liabilities, fixed effects, rows of all
// factors and of their matrices and of R are scaled by 1/tau_(K-1).
// B. Nandram and M.-H. Chen, Journal of Statistical Computation and Simulation 54 (1996) 129-144;
// J. S. Liu and C. Sabatti, Biometrika 87 (2000) 353-369.
#pragma once

#include "gibbs/moves/move_store.h"
#include "input/run_records.h"

namespace zeph {

struct scan_records;

// ln p(tau) as above; inner categories 2..K-1 are elements 1..d, d = K - 2.
struct threshold_density {
  std::int32_t d = 0;
  vec<double> n;              // records of the inner categories
  vec<double> diagonal, next; // of H: (i,i), (i,i+1)
  vec<double> g;
  double M = 0;
};

// more is added to each n_k; M as it is. -infinity where tau is not ascending from above 0.
double log_density(const threshold_density& f, const vec<double>& tau, double more, double M);

// The maximum of the function with n_k + 1 and M = 0 into tau, and its negative Hessian there, lower triangle,
// into Hs (d x d); false where Newton's steps do not end.
bool find_maximum(const threshold_density& f, vec<double>& tau, mat<double>& Hs);

// K - 2 normals, 5 for the chi-square and a uniform of the Marsaglia source. Needs the conditionals of the
// latent work and the records' values at hand. True where it was accepted: R has changed then.
bool move_thresholds(scan_records& r, const directives& asked, const round_state& state, trait_move& trait);

} // namespace zeph
