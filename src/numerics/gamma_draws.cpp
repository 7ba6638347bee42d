#include "numerics/gamma_draws.h"

#include "formats/free_format.h"
#include "listing/stops.h"
#include "numerics/normal_draws.h"
#include "numerics/published_tables.h"

#include <cmath>

namespace zeph {

namespace {

using table = gamma_tables;

// c(1) + c(2) x + ... + c(n) x^(n-1)
template <int n> float series(const float (&c)[n], float x) {
  float sum = c[n - 1];
  for (int k = n - 2; k >= 0; --k) sum = sum * x + c[k];
  return sum;
}

// GD: what depends on the shape alone, s^2 = a - 1/2 and d of the squeeze test.
void set_shape(gamma_cache& k, float a) {
  k.aa = a;
  k.s2 = a - 0.5F;
  k.s = std::sqrt(k.s2);
  k.d = table::sqrt32 - 12.0F * k.s;
}

// GD: q0 and the double exponential hat, centre b, scale si and height c, by three ranges of the shape.
void set_hat(gamma_cache& k, float a) {
  k.aaa = a;
  const float r = 1.0F / a;
  k.q0 = series(table::Q, r) * r;
  if (a <= table::limit_1) {
    k.b = table::b1_0 + k.s + table::b1_2 * k.s2;
    k.si = table::si1;
    k.c = table::c1_m1 / k.s - table::c1_0 + table::c1_1 * k.s;
  } else if (a <= table::limit_2) {
    k.b = table::b2_0 + table::b2_2 * k.s2;
    k.si = table::si2_m1 / k.s + table::si2_0;
    k.c = table::c2_m1 / k.s + table::c2_0;
  } else {
    k.b = table::b3;
    k.si = table::si3;
    k.c = table::c3_m1 / k.s;
  }
}

// q(t), log of target over normal density at t; by a series for small |t|
float quotient(const gamma_cache& k, float t) {
  const float v = t / (k.s + k.s);
  if (std::fabs(v) <= 0.25F) return k.q0 + 0.5F * t * t * series(table::A, v) * v;
  return k.q0 - k.s * t + 0.25F * t * t + (k.s2 + k.s2) * std::log(1.0F + v);
}

// Double exponential rejection: t, drawn with the exponential e and the uniform u in (-1,1), is under
// the hat. For large q the two exponentials are joined, as the first overflows.
bool under_hat(const gamma_cache& k, float t, float e, float u) {
  const float q = quotient(k, t);
  if (q <= 0.0F) return false;
  if (q >= table::large_q) {
    const float joined = q + e - 0.5F * t * t;
    return joined > table::exp_limit || !(k.c * std::fabs(u) > std::exp(joined));
  }
  const float w = q <= 0.5F ? series(table::E, q) * q : std::exp(q) - 1.0F;
  return !(k.c * std::fabs(u) > w * std::exp(e - 0.5F * t * t));
}

// Shapes of 1 and above
float gamma_gd(combined_source& source, float a, gamma_cache& k) {
  if (a != k.aa) set_shape(k, a);
  float t = snorm(source);
  // a normal deviate t: x = (s + t/2)^2; taken at once for t >= 0, then by the squeeze, then by the quotient
  float x = k.s + 0.5F * t;
  if (t >= 0.0F) return x * x;
  float u = ranf(source);
  if (k.d * u <= t * t * t) return x * x;
  if (a != k.aaa) set_hat(k, a);
  if (x > 0.0F && std::log(1.0F - u) <= quotient(k, t)) return x * x;
  for (;;) { // steps 8 to 11: double exponential t around b
    const float e = sexpo(source);
    u = ranf(source);
    u = u + u - 1.0F;
    t = u < 0.0F ? k.b - k.si * e : k.b + k.si * e;
    if (t < -table::tau1 || !under_hat(k, t, e, u)) continue;
    x = k.s + 0.5F * t;
    return x * x;
  }
}

// Shapes below 1
float gamma_gs(combined_source& source, float a) {
  const float b = 1.0F + table::gs_factor * a;
  for (;;) {
    // p below 1: x = p^(1/a), accepted with exp(-x); else x = -log((b-p)/a), accepted with x^(a-1)
    const float p = b * ranf(source);
    if (p < 1.0F) {
      const float x = std::exp(std::log(p) / a);
      if (sexpo(source) >= x) return x;
    } else {
      const float x = -std::log((b - p) / a);
      if (sexpo(source) >= (1.0F - a) * std::log(x)) return x;
    }
  }
}

} // namespace

float sexpo(combined_source& source) {
  constexpr auto& Q = exponential_tables::Q;
  float a = 0.0F;
  float u = ranf(source);
  // leading zero bits of u: each adds log 2
  for (u = u + u; u < 1.0F; u = u + u) a = a + Q[0];
  u = u - 1.0F;
  if (u <= Q[0]) return a + u;
  // the smallest of as many uniforms as the sums Q(i) of (log 2)^k/k!, k = 1..i, ask for
  float umin = ranf(source);
  int i = 1;
  do { // ends by Q(8): u is at most 1 - 2^-23
    const float ustar = ranf(source);
    if (ustar < umin) umin = ustar;
    ++i;
  } while (u > Q[i - 1]);
  return a + umin * Q[0];
}

float sgamma(combined_source& source, float a, gamma_cache& cache) {
  if (a >= 1.0F) return gamma_gd(source, a, cache);
  if (a > 0.0F) return gamma_gs(source, a);
  computation_impossible(*source.report, "sgamma", free_row().text("shape =").r4(a).str());
}

} // namespace zeph
