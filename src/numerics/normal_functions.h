// Functions of the normal distribution.
#pragma once

namespace zeph {

struct reporting;

// Lower tail P(Z < x), upper tail P(Z > x) and density of the standard normal
// distribution at x. The smaller tail is formed directly, the larger one as 1
// less it; lower(x) is upper(-x) to the bit. Beyond |x| = 37 the tails are
// exactly 0 and 1 and the density is 0.
//
// Rational approximation below |x| = 7.071, accurate to 1e-15: J. F. Hart and
// others, Computer Approximations (1968), function 5666. From there on the
// continued fraction of the tail, cut after four terms. Eight digits of the small
// tail are right everywhere.
void normal_tail(double x, double& lower, double& upper, double& pdf);

// P(X < x) of a normal variable with this mean and standard deviation, right to
// the last bits of 1; of a small value z deviations below the mean, to a relative
// 1e-15 + 1.2e-16 z^2. Values below 2^-1022 are 0. W. J. Cody's approximations as
// carried by DCDFLIB. sd not above 0: "Parameters for NORMALCDF incorrect", the run
// stops with code 16.
double NORMALCDF(reporting& report, double x, double mean = 0.0, double sd = 1.0);

// Lower and upper tail of the standard normal distribution, the same way.
void cumnor(double x, double& lower, double& upper);

// Probabilities that have an inverse here. The lower one is 1E-10 as a 32-bit number.
inline constexpr double lowest_probability = 1.000000013351432E-10;
inline constexpr double highest_probability = 0.9999999999;
// p moved to the nearer end of that interval when it lies outside.
inline double clipped_probability(double p) {
  if (p < lowest_probability) return lowest_probability;
  return p > highest_probability ? highest_probability : p;
}

// The standard normal x with P(X < x) = p, lowest_probability <= p <= highest_probability: as NORMAL_INVCDF.
double normal_quantile(double p);

// The x with P(X < x) = p, P(X > x) = 1 - p. p is clipped first, and the clipped
// value is left in the argument. DCDFLIB's starting value and Newton steps on
// `cumnor`. sd not above 0, or p not a number: "Parameters for NORMAL_INVCDF
// incorrect", the run stops with code 16.
double NORMAL_INVCDF(reporting& report, double& p, double mean = 0.0, double sd = 1.0);

} // namespace zeph
