// Probabilities of boxes under multivariate normal distributions.
#pragma once

#include "numerics/arrays.h"

namespace zeph {

inline constexpr std::int32_t box_nodes = 24; // of the rule for two variables

// Work of boxes of up to n variables.
struct box_work {
  vec<double> factor; // n^2: lower factor of the covariance, leading dimension n
  vec<double> z;      // n: standard normals, one node
};
void allocate_box_work(reporting& report, box_work& work, std::int32_t n, std::string_view routine);

// log P(low < X < high), X normal of n variables with mean and covariance V (leading dimension ldv, lower
// triangle); bounds may be infinite. One variable: closed. More by sequential conditioning: with V = L L' the
// variables are integrated in their order, the uniform of the first (two variables) by 24 points of Gauss and
// Legendre, the uniforms of all but the last (three and more) by `points` points of a fixed lattice,
//   u_j(i) = |2 frac(i root(p_j)) - 1|, p_j the j-th prime,
// A. Genz, Journal of Computational and Graphical Statistics 1 (1992) 141-149. Three and more without points,
// or a matrix that is not positive definite: no number.
double log_box_probability(box_work& work, std::int32_t n, const double* mean, const double* V,
                           std::int64_t ldv, const double* low, const double* high, std::int32_t points);

} // namespace zeph
