// Functions of the normal distribution.
#pragma once

namespace zeph {

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

} // namespace zeph
