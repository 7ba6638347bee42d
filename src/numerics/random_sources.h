// The two sources of random numbers of a run. They share nothing, and each draw
// of the program is tied to one of them, so that a chain is told by its seeds.
//
// Marsaglia source: universal generator of 64-bit uniforms with 24 random bits;
//   draws of the scan and of the jump layer. G. Marsaglia, A. Zaman and
//   W. W. Tsang, Toward a universal random number generator, Statistics and
//   Probability Letters 9 (1990) 35-39.
// Combined source: two multiplicative congruential generators, combined, split
//   into 32 virtual generators; draws of liabilities, mixtures, thresholds and
//   (co)variance matrices, as 32-bit uniforms. P. L'Ecuyer and S. Cote, ACM
//   Transactions on Mathematical Software 17 (1991) 98-111.
//
// A source belongs to one run and is handed on by reference. It knows where the
// run reports: the stops named here print their text and end with code 16.
#pragma once

#include "control/reporting.h"
#include "formats/sequential_file.h"

#include <array>
#include <bit>
#include <cstdint>

namespace zeph {

// ---- Marsaglia source ----

struct marsaglia_state {
  std::array<double, 97> U{}; // U(1..97), U(i) is U[i-1]; multiples of 2^-24 in [0,1)
  double C = 0.0;             // the arithmetic sequence: C, its step CD, modulus CM
  double CD = 0.0;
  double CM = 0.0;
  std::int32_t I97 = 0; // 1..97, places in U of the next draw
  std::int32_t J97 = 0;
  bool TEST = false; // logical: the state has been started or restored
};

struct marsaglia_source {
  explicit marsaglia_source(reporting& run_report) : report(&run_report) {}
  reporting* report;
  marsaglia_state live;      // behind the draws
  marsaglia_state saved;     // s_U, s_C, ..: the live state at the last ranmar_save
  double last_uniform = 0.0; // the uniform drawn last
};

// Starts the source from ij = 0..31328, kl = 0..30081, saved too; any other value stops.
void RMARIN(marsaglia_source& source, std::int32_t ij, std::int32_t kl);

[[noreturn]] void ranmar_not_started(reporting& report);

// Draws with the places and C of a started source in local variables, for loops
// that draw often; they go back when this object ends, also by a stop. Until
// then nobody else may draw from the source. An unstarted source stops.
class ranmar_draws {
public:
  explicit ranmar_draws(marsaglia_source& source)
      : source_(source), u_(source.live.U.data()), c_(source.live.C), cd_(source.live.CD),
        cm_(source.live.CM), i_(source.live.I97 - 1), j_(source.live.J97 - 1), last_(source.last_uniform) {
    if (!source.live.TEST) ranmar_not_started(*source.report);
  }
  ~ranmar_draws() {
    source_.live.C = c_;
    source_.live.I97 = i_ + 1;
    source_.live.J97 = j_ + 1;
    source_.last_uniform = last_;
  }
  ranmar_draws(const ranmar_draws&) = delete;
  ranmar_draws& operator=(const ranmar_draws&) = delete;

  // The next uniform in (0,1). An exact 0, which the published routine can
  // give, is drawn again, so that a logarithm of a uniform is always defined.
  double next() {
    double uni;
    do {
      uni = u_[i_] - u_[j_];
      uni += one_if_negative(uni);
      u_[i_] = uni;
      i_ = i_ == 0 ? 96 : i_ - 1;
      j_ = j_ == 0 ? 96 : j_ - 1;
      c_ -= cd_;
      if (c_ < 0.0) c_ += cm_;
      uni -= c_;
      uni += one_if_negative(uni);
    } while (uni == 0.0);
    return last_ = uni;
  }

private:
  // 1 for x < 0, otherwise 0; x is never -0. By the bits, without a branch: the
  // signs here are as good as coins, and no processor foresees them.
  static double one_if_negative(double x) {
    const std::int64_t all_if_negative = std::bit_cast<std::int64_t>(x) >> 63;
    return std::bit_cast<double>(std::bit_cast<std::int64_t>(1.0) & all_if_negative);
  }
  marsaglia_source& source_;
  double* u_;
  double c_, cd_, cm_;
  std::int32_t i_, j_; // 0-based
  double last_;
};

// One uniform; stops when the source has not been started.
inline double RANMAR(marsaglia_source& source) { return ranmar_draws(source).next(); }

// n uniforms, the same as n calls of RANMAR. n <= 0 draws nothing.
void ranmar_fill(marsaglia_source& source, double* x, std::int64_t n);

// Copies the live state to the saved one.
void ranmar_save(marsaglia_source& source);

// The saved state as one record of 812 bytes: U, C, CD, CM, I97, J97, TEST.
// False when the writer has failed.
bool ranmar_write(const marsaglia_source& source, sequential_writer& file);

// The next record of `file` into the live and the saved state: 0, or the code of the read,
// when part of the state may have been filled. The reader of a restart checks
// that I97 and J97 lie within 1..97.
int ranmar_read(marsaglia_source& source, sequential_reader& file);

// ---- Combined source ----

inline constexpr int virtual_generators = 32;

struct virtual_generator {
  std::int32_t ig1 = 0, ig2 = 0; // initial seeds
  std::int32_t lg1 = 0, lg2 = 0; // seeds of the last block
  std::int32_t cg1 = 0, cg2 = 0; // current seeds
  bool qanti = false;            // antithetic: m1 - z in place of z
};

struct combined_source {
  explicit combined_source(reporting& run_report) : report(&run_report) {}
  static constexpr std::int32_t a1 = 40014, m1 = 2147483563;
  static constexpr std::int32_t a2 = 40692, m2 = 2147483399;
  static constexpr std::int32_t a1w = 1033780774, a2w = 1494757890;  // a**(2**30) mod m: one block
  static constexpr std::int32_t a1vw = 2082007225, a2vw = 784306273; // a**(2**50) mod m: one generator

  reporting* report;
  std::array<virtual_generator, virtual_generators> generators{}; // g = 1..32 is [g-1]
  std::int32_t curntg = 1;                                        // the current generator
  bool qrgnin = false;                                            // the constants have been set
  bool qrgnsd = false;                                            // a seed has been set
};

// Sets the constants, draws one `ranf`, then SETSD(seed, seed): the draw seeds
// all virtual generators with the defaults before the current one is reseeded.
void ranlib_start(combined_source& source, std::int32_t seed);

// Seeds generator 1 and spaces generators 2..32 by 2**50 draws from it. The
// current generator stays. Seeds outside 1..m1-1, 1..m2-1 stop in MLTMOD.
void SETALL(combined_source& source, std::int32_t s1, std::int32_t s2);

// Set (without a test of their size) and get the seeds of the current generator:
// SETSD its initial seeds, and starts it there; GETSD the current seeds.
// Both stop before the constants are set.
void SETSD(combined_source& source, std::int32_t s1, std::int32_t s2);
void GETSD(const combined_source& source, std::int32_t& s1, std::int32_t& s2);

// Restarts the current generator: -1 at its initial seeds, 0 at the seeds of
// its last block, 1 at those of the next block, 2**30 draws on. Any other
// number stops, and so does a call before the constants are set.
void INITGN(combined_source& source, std::int32_t isdtyp);

// Makes generator g = 1..32 the current one; any other number stops.
void SETCGN(combined_source& source, std::int32_t g);

// a s mod m without overflow in 32 bits; needs 0 < a < m and 0 < s < m, and
// stops otherwise.
std::int32_t MLTMOD(reporting& report, std::int32_t a, std::int32_t s, std::int32_t m);

// Sets the constants and the default seeds where that has not been done.
void combined_default_start(combined_source& source);

// One step of the current generator, 1..2147483562. A source without seeds is
// first seeded as by SETALL(1234567890, 123456789). Never stops.
inline std::int32_t next_integer(combined_source& source) {
  if (!source.qrgnin || !source.qrgnsd) combined_default_start(source);
  virtual_generator& g = source.generators[static_cast<std::size_t>(source.curntg - 1)];
  std::int32_t k = g.cg1 / 53668; // m1 = 53668 a1 + 12211, m2 = 52774 a2 + 3791
  g.cg1 = source.a1 * (g.cg1 - k * 53668) - k * 12211;
  if (g.cg1 < 0) g.cg1 += source.m1;
  k = g.cg2 / 52774;
  g.cg2 = source.a2 * (g.cg2 - k * 52774) - k * 3791;
  if (g.cg2 < 0) g.cg2 += source.m2;
  std::int32_t z = g.cg1 - g.cg2;
  if (z < 1) z += source.m1 - 1;
  return g.qanti ? source.m1 - z : z;
}

// The integer as a 32-bit uniform in (0,1). The factor, in 32 bits, is 2**-31.
inline float ranf(combined_source& source) {
  return static_cast<float>(next_integer(source)) * 4.656613057E-10F;
}

// low + ranf (high - low) in 64 bits, at the resolution of ranf.
inline double uniform_range(combined_source& source, double low = 0.0, double high = 1.0) {
  return low + static_cast<double>(ranf(source)) * (high - low);
}

// ---- Both, as a run owns them ----

// Set-up of the gamma draws of the combined source (gamma_draws.h): what belongs to
// the shape aa, and, worked out only when a draw needs it, to the shape aaa.
struct gamma_cache {
  float aa = 0.0F;                     // shape of s2, s, d; 0: none
  float s2 = 0.0F, s = 0.0F, d = 0.0F; // aa - 1/2, its root, limit of the squeeze test
  float aaa = 0.0F;                    // shape of q0 and the hat; 0: none
  float q0 = 0.0F;                     // the part of the quotient that is free of t
  float b = 0.0F, si = 0.0F, c = 0.0F; // centre, scale and height of the hat
};

struct random_sources {
  explicit random_sources(reporting& report) : marsaglia(report), combined(report) {}
  marsaglia_source marsaglia;
  combined_source combined;
  gamma_cache gamma;
};

} // namespace zeph
