// Normal draws between two bounds, right in every tail, and the logarithms that go with them.
#pragma once

#include "numerics/random_sources.h"

namespace zeph {

// log P(Z < x) of the standard normal distribution, right to 1e-12 of its value for every x;
// of minus infinity minus infinity.
double log_normal_lower(double x);

// log P(a < Z < b), a <= b, either may be infinite. An interval without a number in it: minus infinity.
double log_normal_between(double a, double b);

// The x between a and b with P(a < Z < x) = u P(a < Z < b), 0 <= u <= 1: the quantile of the standard normal
// distribution truncated to the interval, right in either tail.
double normal_between(double a, double b, double u);

// One normal(mean, var) variable between a and b, either may be infinite; var > 0, a <= b. From the
// combined source one uniform where the interval begins within 37 standard deviations of the mean:
// GEN_TRUNC_NORMAL where the interval has probability 1e-4 and more, else
//   x = sqrt(2) erfc^-1(2 q), q uniform between the tail probabilities of the bounds
// (erfc_inv of Boost.Math). Beyond 37 standard deviations two uniforms a trial of an exponential variable,
// truncated to the interval: C. P. Robert, Statistics and Computing 5 (1995) 121-125.
double truncated_normal(combined_source& source, double a, double b, double mean, double var);

} // namespace zeph
