// The two sources of random numbers of a run. They share nothing, and each draw
// of the program is tied to one of them, so that a chain is determined by its seeds.
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
// run reports, for the stops of its own draws alone (here, gamma_draws, normal_draws):
// they print their text and end with code 16.
#pragma once

#include "formats/sequential_file.h"

#include <array>
#include <cstdint>

namespace zeph {

struct reporting;

// ---- Marsaglia source ----

// The state as the published routine and the record of a restart have it. All
// numbers are multiples of 2^-24 in [0,1).
struct marsaglia_state {
  std::array<double, 97> U{}; // U(1..97), U(i) is U[i-1]: the lagged sequence
  double C = 0.0;             // the arithmetic sequence: C, its step CD, modulus CM
  double CD = 0.0;
  double CM = 0.0;
  std::int32_t I97 = 0; // 1..97, places in U of the next draw: J97 is 64 below
  std::int32_t J97 = 0; // I97, or 33 above it
  bool TEST = false;    // logical: the state has been started or restored
};

// The source in whole numbers of 2^-24, with a block of numbers drawn ahead:
//   U(n) = U(n-97) - U(n-33) mod 2^24, C(n) = C(n-1) - CD mod CM,
//   uni(n) = U(n) - C(n) mod 2^24
// A number depends on numbers at least 33 before it, so that a block is made by
// vectors. `used` is the place in the block; ranmar_state gives the state
// that as many single draws would have left. Only the routines below look inside.
struct marsaglia_source {
  explicit marsaglia_source(reporting& run_report) : report(&run_report) {}
  static constexpr std::int32_t block = 256;       // numbers of a block, a multiple of 32
  static constexpr double unit = 1.0 / 16777216.0; // 2^-24
  static constexpr std::int32_t one = 16777216;    // 1 in that unit
  static constexpr std::int32_t CD = 7654321, CM = 16777213;

  reporting* report;
  marsaglia_state saved;                     // s_U, s_C, ..: the state at the last ranmar_save
  bool TEST = false;                         // the source has been started or restored
  std::int32_t I97 = 0;                      // of the state before the block
  std::int32_t C = 0;                        // of the state before the block
  std::int32_t count = 0;                    // uniforms of the block, up to its end or to an exact 0
  std::int32_t used = 0;                     // of which so many have been drawn
  std::array<std::int32_t, 97 + block> U{};  // the 97 numbers before the block, then its own
  std::array<std::int32_t, 1 + block> uni{}; // the last uniform before the block, then its own
};

// Starts the source from ij = 0..31328, kl = 0..30081, saved too; any other value stops.
void RMARIN(marsaglia_source& source, std::int32_t ij, std::int32_t kl);

// Makes the next block once the last one has been used up; a draw follows. An exact
// 0, which the published routine can give, is skipped, so that a logarithm of
// a uniform is always defined. An unstarted source stops.
void ranmar_refill(marsaglia_source& source);

// One uniform in (0,1); stops when the source has not been started.
inline double RANMAR(marsaglia_source& source) {
  if (source.used == source.count) [[unlikely]]
    ranmar_refill(source);
  return source.uni[static_cast<std::size_t>(++source.used)] * marsaglia_source::unit;
}

// A started source, handed on within a loop of draws: an unstarted one stops here.
class ranmar_draws {
public:
  explicit ranmar_draws(marsaglia_source& source) : source_(source) {
    if (!source.TEST) ranmar_refill(source);
  }
  marsaglia_source& source() { return source_; }
  double next() { return RANMAR(source_); }

private:
  marsaglia_source& source_;
};

// n uniforms, the same as n calls of RANMAR. n <= 0 draws nothing.
void ranmar_fill(marsaglia_source& source, double* x, std::int64_t n);

// The uniform drawn last; 0 before the first draw.
inline double ranmar_last(const marsaglia_source& source) {
  return source.uni[static_cast<std::size_t>(source.used)] * marsaglia_source::unit;
}

// The state that repeated calls of RANMAR would have left; all 0 before the start.
marsaglia_state ranmar_state(const marsaglia_source& source);

// Is x a multiple of 2^-24, not below 0 and below `limit`?
bool ranmar_number(double x, double limit = 1.0);

// Can the state have come from draws: U ranmar numbers below 1 and C one below CM, CD
// and CM those of the source, I97 in 1..97 and J97 64 below or 33 above it?
bool ranmar_possible(const marsaglia_state& state);

// Continues from a state. One that is not possible, or not started, leaves the
// source unstarted.
void ranmar_restore(marsaglia_source& source, const marsaglia_state& state);

// Copies the state to the saved one.
void ranmar_save(marsaglia_source& source);

// The saved state as one record of 812 bytes: U, C, CD, CM, I97, J97, TEST.
// False when the writer has failed.
bool ranmar_write(const marsaglia_source& source, sequential_writer& file);

// The next record of `file` into the saved state, from which the source continues:
// 0, or the code of the read, when part of the saved state may have been filled and
// the source continues as before. The reader of a restart checks that the state is possible.
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

// a s mod m in 0..m-1, for any s and m = 2^31 - d with small d: 2^31 is d mod m, and
// a s lies below 2^47, so that m is seldom left to subtract, or for s < 0 to add.
template <std::int32_t a, std::int32_t m> std::int32_t congruential_step(std::int32_t s) {
  constexpr std::int64_t two_31 = std::int64_t{1} << 31, d = two_31 - m;
  static_assert(a < 1 << 16 && d < 1 << 8);
  const std::int64_t product = std::int64_t{a} * s;
  std::int64_t rest = (product >> 31) * d + (product & (two_31 - 1));
  if (static_cast<std::uint64_t>(rest) >= m) [[unlikely]]
    rest += rest < 0 ? m : -m;
  return static_cast<std::int32_t>(rest);
}

// One step of the current generator, 1..2147483562. A source without seeds is
// first seeded as by SETALL(1234567890, 123456789). Never stops.
inline std::int32_t next_integer(combined_source& source) {
  if (!source.qrgnin || !source.qrgnsd) [[unlikely]]
    combined_default_start(source);
  virtual_generator& g = source.generators[static_cast<std::size_t>(source.curntg - 1)];
  g.cg1 = congruential_step<combined_source::a1, combined_source::m1>(g.cg1);
  g.cg2 = congruential_step<combined_source::a2, combined_source::m2>(g.cg2);
  const std::int32_t z = g.cg1 - g.cg2;
  const std::int32_t drawn = z < 1 ? z + combined_source::m1 - 1 : z;
  return g.qanti ? combined_source::m1 - drawn : drawn;
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
