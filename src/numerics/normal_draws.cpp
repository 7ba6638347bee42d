#include "numerics/normal_draws.h"

#include "formats/free_format.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "numerics/normal_functions.h"

#include <algorithm>
#include <cmath>

namespace zeph {

namespace {

// Kinderman and Ramage with the constants of this program. Some digits and the two
// oddities below are not those of the paper; chains depend on them as they are.
namespace kr {
constexpr double A = 2.216035867166471; // here the tail begins
constexpr double A2 = 4.910814964568252;
// first uniform: below `triangle` the triangle, from `tail` on the tail, its
// positive side below `tail_sign`; between them regions 1, 2, 3
constexpr double triangle = 0.884070402298758;
constexpr double region_2 = 0.911312780288703;
constexpr double region_3 = 0.958720824790463;
constexpr double tail = 0.973310954173898;
constexpr double tail_sign = 0.986655477086949;
constexpr double triangle_u1 = 1.1311316354418;
// t = origin + slope min(u2,u3); accepted for max(u2,u3) <= sure, and in regions 2
// and 3 for height |u2 - u3| <= g(t)
constexpr double origin_1 = 0.47972740422241, slope_1 = 0.59550713801594, sure_1 = 0.805577924423817;
constexpr double origin_2 = 0.479727404222441, slope_2 = 1.10547366102207, sure_2 = 0.87283497667179;
constexpr double height_2 = 0.049264496373128;
constexpr double slope_3 = 0.63083480192196, sure_3 = 0.755591531667601;
constexpr double height_3 = 0.034240503750111;
constexpr double density_0 = 0.3989422804014327;
constexpr double chord = 0.180025191068563;

// kept: the exponent is positive
double g(double t) { return density_0 * std::exp(0.5 * t * t) - chord * (A - std::fabs(t)); }

double tail_point(marsaglia_source& draws, double u1) {
  for (;;) {
    const double u2 = RANMAR(draws), u3 = RANMAR(draws);
    // t = A^2 - 2 ln u3 is the square of a deviate beyond A, accepted with probability A / t^1/2
    const double t = A2 - 2.0 * std::log(u3);
    if (u2 * u2 < A2 / t) return u1 < tail_sign ? std::sqrt(t) : -std::sqrt(t);
  }
}

double deviate(marsaglia_source& draws) {
  const double u1 = RANMAR(draws);
  // the triangle: a sum of two uniforms, most of the density
  if (u1 < triangle) return A * (triangle_u1 * u1 + RANMAR(draws) - 1.0);
  if (u1 >= tail) return tail_point(draws, u1);
  double u2, u3, t;
  if (u1 >= region_3) {
    do {
      u2 = RANMAR(draws);
      u3 = RANMAR(draws);
      t = A - slope_3 * std::min(u2, u3);
    } while (std::max(u2, u3) > sure_3 && height_3 * std::fabs(u2 - u3) > g(t));
  } else if (u1 >= region_2) {
    do {
      u2 = RANMAR(draws);
      u3 = RANMAR(draws);
      t = origin_2 + slope_2 * std::min(u2, u3);
    } while (std::max(u2, u3) > sure_2 && height_2 * std::fabs(u2 - u3) > g(t));
  } else { // kept: no test against g
    do {
      u2 = RANMAR(draws);
      u3 = RANMAR(draws);
    } while (std::max(u2, u3) > sure_1);
    t = origin_1 - slope_1 * std::min(u2, u3);
  }
  return u2 < u3 ? t : -t;
}
} // namespace kr

} // namespace

void ranmar_kr_normals(marsaglia_source& source, double* x, std::int64_t n) {
  for (std::int64_t i = 0; i < n; ++i) x[i] = kr::deviate(source);
}

float snorm(combined_source& source) {
  return fl5_normal<float>([&source] { return ranf(source); });
}

double normal_draw(combined_source& source, double mean, double var) {
  if (var <= 0.0) return mean;
  return mean + std::sqrt(var) * static_cast<double>(snorm(source));
}

double GEN_TRUNC_NORMAL(combined_source& source, double a, double b, double mean, double var) {
  reporting& report = *source.report;
  if (a > b) {
    say(report, free_row().text("GEN_TRUNC_NORMAL: bound b =").r8(b).text(" < bound a =").r8(a).str());
    stop_run(report, exit_diagnosed);
  }
  if (var <= 0.0) {
    say(report, free_row().text("GEN_TRUNC_NORMAL: variance =").r8(var).text(" <= 0").str());
    stop_run(report, exit_diagnosed);
  }
  const double sd = std::sqrt(var);
  // p uniform between Phi of both bounds; x = mean + sd Phi^-1(p)
  const double pa = NORMALCDF(report, a, mean, sd);
  const double pb = NORMALCDF(report, b, mean, sd);
  double p = pa + (pb - pa) * static_cast<double>(ranf(source));
  return mean + sd * NORMAL_INVCDF(report, p);
}

} // namespace zeph
