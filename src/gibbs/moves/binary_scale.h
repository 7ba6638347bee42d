// The scale of a binary trait (residual variance 1): c scales its liabilities, fixed effects, rows of all
// factors and of their matrices, and so its residuals e; residuals of other traits and R stay. With k the
// conditional mean of e given the record's other residuals and v its variance, x = ln c has the density
//   exp f(x),  f(x) = m x - alpha c^2/2 - beta c - (2 c1/c + c2/c^2)/2,
//   alpha = sum of e^2/v, beta = -sum of e k/v,  m = records + equations n_t + that of the factors,
// on the orbit; x is proposed from the normal distribution around the maximum of its likelihood with
// n0 = records + n_t, c0 = (-beta + (beta^2 + 4 alpha n0)^1/2)/(2 alpha), precision 2 alpha c0^2 + beta c0.
// J. S. Liu and C. Sabatti, Biometrika 87 (2000) 353-369.
#pragma once

#include "gibbs/moves/move_store.h"
#include "input/run_records.h"

namespace zeph {

struct scan_records;

// f(x) as above.
struct scale_density {
  double m = 0, alpha = 0, beta = 0, c1 = 0, c2 = 0;
};
double log_density(const scale_density& f, double x);

// That of the state as it is. Needs the conditionals of the latent work and the records' values at hand.
scale_density density_of_scale(scan_records& r, const directives& asked, const trait_move& trait);

// One normal and one uniform of the Marsaglia source; nothing where all residuals are 0. Needs what
// density_of_scale does. Kept residuals stay y - Z b, and liabilities keep their sign.
void move_binary_scale(scan_records& r, const directives& asked, const round_state& state, trait_move& trait);

} // namespace zeph
