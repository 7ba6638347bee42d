// Normal draws of a run: standard normals from either source, normal(mean, var),
// truncated normals.
//
// Names that begin with ranmar_ draw from the Marsaglia source, in 64 bits; an
// unstarted source stops. All others draw 32-bit uniforms of the combined source.
#pragma once

#include "numerics/fl5_rows.h"
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

// What FL5 makes at once of the first uniform v 2^-24, v = 1..2^24-1, of a draw of
// the Marsaglia source. Its leading 6 bits j are sign and interval, the other 18 bits
// f the place in it. Above the threshold of the interval the deviate is A + (f - T) H,
// with every operation rounded as in fl5_normal: 2^18 is only moved from factor to factor.
struct fl5_cell {
  double T, H, A;      // T(i) 2^18; H(i) 2^-18 and A(i) with the sign of the deviate
  std::uint32_t limit; // the largest v that does not give it at once; in the tail none does
};
struct fl5_cells {
  static constexpr int bits = 18;
  static constexpr double places = 1 << bits;
  fl5_cell of[64]{};
  constexpr fl5_cells() {
    using table = fl5_tables<double>;
    for (int j = 0; j < 64; ++j) {
      const int i = j % 32;
      const double sign = j < 32 ? 1.0 : -1.0;
      const std::uint32_t first = static_cast<std::uint32_t>(j) << bits; // smallest v of the cell
      of[j] = {0.0, 0.0, 0.0, first + (1U << bits) - 1};
      if (i == 0) continue; // the tail; in j = 32 also the uniform 1/2
      const double T = table::T[i - 1] * places;
      of[j] = {T, sign * table::H[i - 1] / places, sign * table::A[i - 1],
               first + static_cast<std::uint32_t>(T)};
    }
  }
};
inline constexpr fl5_cells fl5_first;

inline const fl5_cell& fl5_cell_of(std::int32_t v) {
  return fl5_first.of[static_cast<std::uint32_t>(v) >> fl5_cells::bits];
}
constexpr std::int32_t fl5_place_of(std::int32_t v) { return v & ((1 << fl5_cells::bits) - 1); }

// One standard normal.
inline double ranmar_snorm(marsaglia_source& source) {
  if (source.used == source.count) [[unlikely]]
    ranmar_refill(source);
  const std::int32_t v = source.uni[static_cast<std::size_t>(source.used + 1)];
  const fl5_cell& cell = fl5_cell_of(v);
  if (static_cast<std::uint32_t>(v) <= cell.limit) [[unlikely]]
    return ranmar_snorm_in_wedge(source);
  ++source.used;
  return cell.A + (fl5_place_of(v) - cell.T) * cell.H;
}

inline double ranmar_snorm(ranmar_draws& draws) { return ranmar_snorm(draws.source()); }

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
