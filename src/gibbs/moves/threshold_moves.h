// Thresholds, liabilities and scale of an ordered trait in one step. K categories, thr(1) = 0, thr(K-1) = 1.
// In units in which the residual variance of the trait doesn't move the thresholds are tau_2 < .. <
// tau_(K-1), all free, now thr. Each record holds: in category 1 (or missing) its liability; inside category
// k its place (y - thr(k-1))/(thr(k) - thr(k-1)); in category K its excess y - 1. Liabilities are then linear
// in tau, and
//   ln p(tau) = sum over inner k of n_k ln(tau_k - tau_(k-1)) - M ln tau_(K-1) - tau'H tau/2 + g'tau,
// H and g from sum of (l(tau) - h)^2/v, h fitted value plus conditional mean of the residual given the
// record's others and v its variance, and from the priors of the matrices in tau_(K-1). tau is proposed as
// threshold_density.h says. An accepted tau becomes thr = tau/tau_(K-1), and liabilities, fixed effects, rows
// of all factors and of their matrices and of R are scaled by 1/tau_(K-1). docs/model.md derives M.
// B. Nandram and M.-H. Chen, Journal of Statistical Computation and Simulation 54 (1996) 129-144;
// J. S. Liu and C. Sabatti, Biometrika 87 (2000) 353-369.
#pragma once

#include "gibbs/moves/move_store.h"
#include "input/run_records.h"

namespace zeph {

struct scan_records;

// K - 2 normals, 5 for the chi-square and a uniform of the Marsaglia source; nothing where the density has no
// maximum that Newton's steps reach. Needs the conditionals of the latent work and the records' values at
// hand. True where it was accepted: R has changed then.
bool move_thresholds(scan_records& r, const directives& asked, const round_state& state, trait_move& trait);

// ln p(tau) of the state as it is into the work's f, the present thresholds into its `now`.
void form_threshold_density(scan_records& r, const directives& asked, const trait_move& trait);

// The state that the work's tau stands for. Kept residuals stay y - Z b; each liability is stored as a 32-bit
// number between its new thresholds.
void take_thresholds(scan_records& r, const trait_move& trait);

} // namespace zeph
