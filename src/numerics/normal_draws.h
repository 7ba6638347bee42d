// Normal draws of a run: standard normals from either source, normal(mean, var),
// truncated normals.
//
// Names that begin with ranmar_ draw from the Marsaglia source, in 64 bits; an
// unstarted source stops. All others draw 32-bit uniforms of the combined source.
#pragma once

#include "numerics/published_tables.h"
#include "numerics/random_sources.h"

#include <cmath>
#include <cstdint>

namespace zeph {

// One standard normal by algorithm FL5 of Ahrens and Dieter (1973), in the width
// of `real`, each operation rounded to it. next() gives the uniforms, in (0,1).
// Sign and interval come from the first one, and mostly the deviate too.
template <class real, class uniforms> real fl5_normal(uniforms&& next) {
  using table = fl5_tables<real>;
  constexpr real half = static_cast<real>(0.5);
  real u = next();
  const real side = half - u; // its sign is that of the deviate
  const real s = static_cast<real>(u > half);
  u = u + u - s;
  u = 32 * u;
  int i = static_cast<int>(u);
  if (i == 32) i = 31;
  real aa, w, tt, ustar;
  if (i > 0) { // centre interval i
    ustar = u - static_cast<real>(i);
    aa = table::A[i - 1];
    for (;;) {
      if (ustar > table::T[i - 1]) {
        w = (ustar - table::T[i - 1]) * table::H[i - 1];
        break;
      }
      u = next();
      w = u * (table::A[i] - aa);
      tt = (half * w + aa) * w;
      bool accepted;
      while (!(accepted = ustar > tt)) {
        u = next();
        if (ustar < u) break;
        tt = u;
        ustar = next();
      }
      if (accepted) break;
      ustar = next();
    }
  } else { // tail interval i = 6..31
    aa = table::A[31];
    i = 6;
    for (u = u + u; u < real{1}; u = u + u) aa = aa + table::D[i++ - 1];
    u = u - real{1};
    for (;; u = next()) {
      w = u * table::D[i - 1];
      tt = (half * w + aa) * w;
      bool accepted;
      while (!(accepted = (ustar = next()) > tt)) {
        u = next();
        if (ustar < u) break;
        tt = u;
      }
      if (accepted) break;
    }
  }
  return std::copysign(aa + w, side); // without a branch: the sign is a coin
}

// One standard normal. The first form holds the state of the source in the
// caller's locals, for loops that draw often; both leave the same state.
inline double ranmar_snorm(ranmar_draws& draws) {
  return fl5_normal<double>([&draws] { return draws.next(); });
}
double ranmar_snorm(marsaglia_source& source);

// n standard normals into x(1..n), the same as n calls. n <= 0 draws nothing.
void ranmar_snorms(marsaglia_source& source, double* x, std::int64_t n);

// n deviates into x(1..n) by this program's variant of the method of
// A. J. Kinderman and J. G. Ramage, Computer generation of normal random
// variables, Journal of the American Statistical Association 71 (1976) 893-896.
// They are close to standard normals, not exactly so: the curve of the wedge
// tests has an exponent of positive sign, and the first region has no such test.
// Chains depend on both. n <= 0 draws nothing.
void ranmar_kr_normals(marsaglia_source& source, double* x, std::int64_t n);

// One standard normal by FL5 in 32 bits.
float snorm(combined_source& source);

// mean + sqrt(var) snorm, in 64 bits; var <= 0: mean, and nothing is drawn.
double normal_draw(combined_source& source, double mean = 0.0, double var = 1.0);

// A normal(mean, var) between a and b by the inverse of the distribution
// function, one uniform a draw: p = pa + (pb - pa) ranf, clipped as in
// NORMAL_INVCDF. So it lies in [a, b] unless the interval lies beyond a tail of
// 1E-10, when it is the clipped point. Both bounds are finite numbers.
// a > b: "GEN_TRUNC_NORMAL: bound b =" b " < bound a =" a, and the run stops.
// var <= 0: "GEN_TRUNC_NORMAL: variance =" var " <= 0", and the run stops.
double GEN_TRUNC_NORMAL(combined_source& source, double a, double b, double mean = 0.0, double var = 1.0);

} // namespace zeph
