#include "numerics/random_sources.h"

#include "formats/free_format.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string_view>

namespace zeph {

// ---- Marsaglia source ----

namespace {

constexpr std::int32_t one = marsaglia_source::one;
constexpr std::int32_t CD = marsaglia_source::CD, CM = marsaglia_source::CM;

// C after r more steps
std::int32_t stepped(std::int32_t c, std::int64_t r) {
  // C(n+r) = C(n) - r CD mod CM, kept in 0..CM-1
  const std::int64_t rest = (c - r * CD) % CM;
  return static_cast<std::int32_t>(rest < 0 ? rest + CM : rest);
}

// The place of the next draw after r more, r <= 96 + block
std::int32_t place_after(std::int32_t I97, std::int32_t r) {
  const std::int32_t i = (I97 - r) % 97;
  return i <= 0 ? i + 97 : i;
}

// Moves the head of the block by r of its numbers.
void advance(marsaglia_source& s, std::int32_t r) {
  if (r == 0) return;
  std::copy_n(s.U.begin() + r, 97, s.U.begin());
  s.C = stepped(s.C, r);
  s.I97 = place_after(s.I97, r);
}

// Four numbers; four such groups are on their way at once.
using four = std::int32_t __attribute__((vector_size(16)));
constexpr int groups = 4, lanes = 4 * groups;
static_assert(marsaglia_source::block % lanes == 0 && lanes <= 33); // 33: the shorter lag

four four_at(const std::int32_t* x) {
  four values;
  std::memcpy(&values, x, sizeof values);
  return values;
}

// The block after its head: U and uni, zeros included. True when there are any.
bool make_block(marsaglia_source& s) {
  // 16 numbers side by side: C of lane l is CD l further, and each lane moves by 16 CD a turn
  constexpr auto step = static_cast<std::int32_t>(std::int64_t{lanes} * CD % CM);
  std::int32_t first[lanes];
  for (std::int32_t l = 0, C = s.C; l < lanes; ++l) {
    C -= CD;
    first[l] = C += CM & (C >> 31);
  }
  four c[groups], zero{};
  for (int g = 0; g < groups; ++g) c[g] = four_at(first + 4 * g);
  std::int32_t *u = s.U.data() + 97, *uni = s.uni.data() + 1;
  for (int n = 0; n < marsaglia_source::block; n += lanes)
    for (int g = 0; g < groups; ++g, u += 4, uni += 4) {
      // U(n) = U(n-97) - U(n-33) mod 2^24; the mask takes the remainder of a negative number too
      const four x = (four_at(u - 97) - four_at(u - 33)) & (one - 1);
      const four drawn = (x - c[g]) & (one - 1);
      std::memcpy(u, &x, sizeof x);
      std::memcpy(uni, &drawn, sizeof drawn);
      zero |= drawn - 1; // negative where a number is 0
      c[g] -= step;
      c[g] += (c[g] >> 31) & CM;
    }
  return (zero[0] | zero[1] | zero[2] | zero[3]) < 0;
}

} // namespace

void RMARIN(marsaglia_source& source, std::int32_t ij, std::int32_t kl) {
  if (ij < 0 || ij > 31328 || kl < 0 || kl > 30081) {
    say(*source.report, " The first random number seed must have a value between 0 and 31328");
    say(*source.report, " The second seed must have a value between 0 and 30081");
    stop_run(*source.report, exit_diagnosed);
  }
  // four small seeds: a lagged product (i,j,k) and a congruential sequence l give the bits of U(1..97)
  std::int32_t i = ij / 177 % 177 + 2;
  std::int32_t j = ij % 177 + 2;
  std::int32_t k = kl / 169 % 178 + 1;
  std::int32_t l = kl % 169;
  marsaglia_state state;
  for (double& u : state.U) {
    double s = 0.0, t = 0.5;
    for (int bit = 1; bit <= 24; ++bit) {
      // 24 bits of each U, the highest first
      const std::int32_t m = i * j % 179 * k % 179;
      i = j;
      j = k;
      k = m;
      l = (53 * l + 1) % 169;
      if (l * m % 64 >= 32) s += t;
      t *= 0.5;
    }
    u = s;
  }
  state.C = 362436.0 / 16777216.0;
  state.CD = 7654321.0 / 16777216.0;
  state.CM = 16777213.0 / 16777216.0;
  state.I97 = 97;
  state.J97 = 33;
  state.TEST = true;
  ranmar_restore(source, state);
  source.saved = state;
}

void ranmar_refill(marsaglia_source& source) {
  if (!source.TEST) {
    say(*source.report, " Call the init routine (RMARIN) before calling RANMAR");
    stop_run(*source.report, exit_diagnosed);
  }
  source.uni[0] = source.uni[static_cast<std::size_t>(source.count)];
  source.used = 0;
  const auto first = source.uni.begin() + 1;
  for (std::int32_t passed = source.count;;) {
    advance(source, passed);
    source.count = marsaglia_source::block;
    if (!make_block(source)) return;
    // zeros: those at the head are skipped, the next one ends the block
    const auto drawn = std::find_if(first, source.uni.end(), [](std::int32_t v) { return v != 0; });
    passed = static_cast<std::int32_t>(drawn - first);
    if (passed > 0) continue;
    source.count = static_cast<std::int32_t>(std::find(first, source.uni.end(), 0) - first);
    return;
  }
}

void ranmar_fill(marsaglia_source& source, double* x, std::int64_t n) {
  while (n > 0) {
    if (source.used == source.count) ranmar_refill(source);
    const std::int64_t ready = std::min<std::int64_t>(n, source.count - source.used);
    const std::int32_t* uni = source.uni.data() + 1 + source.used;
    for (std::int64_t i = 0; i < ready; ++i) x[i] = uni[i] * marsaglia_source::unit;
    source.used += static_cast<std::int32_t>(ready);
    x += ready;
    n -= ready;
  }
}

marsaglia_state ranmar_state(const marsaglia_source& source) {
  marsaglia_state state;
  if (!source.TEST) return state;
  // U(n) is one place below U(n-1); I97 is the place of the oldest number
  state.I97 = place_after(source.I97, source.used);
  state.J97 = place_after(state.I97, 64);
  const std::int32_t* last = source.U.data() + 96 + source.used;
  for (std::int32_t back = 0; back < 97; ++back)
    state.U[static_cast<std::size_t>((state.I97 + back) % 97)] = last[-back] * marsaglia_source::unit;
  state.C = stepped(source.C, source.used) * marsaglia_source::unit;
  state.CD = CD * marsaglia_source::unit;
  state.CM = CM * marsaglia_source::unit;
  state.TEST = true;
  return state;
}

bool ranmar_number(double x, double limit) { return x >= 0.0 && x < limit && x * one == std::floor(x * one); }

bool ranmar_possible(const marsaglia_state& state) {
  return std::all_of(state.U.begin(), state.U.end(), [](double u) { return ranmar_number(u); }) &&
         ranmar_number(state.C, state.CM) && state.CD * one == CD && state.CM * one == CM && state.I97 >= 1 &&
         state.I97 <= 97 && state.J97 == place_after(state.I97, 64);
}

void ranmar_restore(marsaglia_source& source, const marsaglia_state& state) {
  source.uni[0] = source.uni[static_cast<std::size_t>(source.used)]; // stays the last one drawn
  source.count = source.used = 0;
  source.TEST = state.TEST && ranmar_possible(state);
  if (!source.TEST) return;
  source.I97 = state.I97;
  source.C = static_cast<std::int32_t>(state.C * one);
  for (std::int32_t back = 0; back < 97; ++back)
    source.U[static_cast<std::size_t>(96 - back)] =
        static_cast<std::int32_t>(state.U[static_cast<std::size_t>((state.I97 + back) % 97)] * one);
}

void ranmar_save(marsaglia_source& source) { source.saved = ranmar_state(source); }

bool ranmar_write(const marsaglia_source& source, sequential_writer& file) {
  const marsaglia_state& s = source.saved;
  file.begin();
  file.put(s.U.data(), static_cast<std::int64_t>(s.U.size()));
  file.put(s.C);
  file.put(s.CD);
  file.put(s.CM);
  file.put(s.I97);
  file.put(s.J97);
  file.put(s.TEST);
  return file.end();
}

int ranmar_read(marsaglia_source& source, sequential_reader& file) {
  const int code = file.next();
  if (code != 0) return code;
  marsaglia_state& s = source.saved;
  file.take(s.U.data(), static_cast<std::int64_t>(s.U.size()));
  file.take(s.C);
  file.take(s.CD);
  file.take(s.CM);
  file.take(s.I97);
  file.take(s.J97);
  file.take(s.TEST);
  if (file.code() == 0) ranmar_restore(source, s);
  return file.code();
}

// ---- Combined source ----

namespace {

constexpr std::int32_t default_seed_1 = 1234567890;
constexpr std::int32_t default_seed_2 = 123456789;

virtual_generator& current(combined_source& source) {
  return source.generators[static_cast<std::size_t>(source.curntg - 1)];
}

void set_constants(combined_source& source) {
  if (source.qrgnin) return;
  for (virtual_generator& g : source.generators) g.qanti = false;
  source.qrgnin = true;
}

[[noreturn]] void before_constants(reporting& report, std::string_view call) {
  say(report, free_row().text(call).text(" initialized -- abort!").str());
  stop_run(report, exit_diagnosed);
}

// One term of the decomposition of MLTMOD: (p + a s) mod m for 0 < a < 32768
// and 0 <= p < m, by Schrage's quotient m / a.
std::int32_t add_product(std::int32_t p, std::int32_t a, std::int32_t s, std::int32_t m) {
  const std::int32_t q = m / a;
  const std::int32_t k = s / q;
  p -= k * (m - a * q);
  if (p > 0) p -= m;
  p += a * (s - k * q);
  while (p < 0) p += m;
  return p;
}

// 32768 s mod m, for 0 <= s < m.
std::int32_t times_base(std::int32_t s, std::int32_t m) {
  constexpr std::int32_t base = 32768;
  const std::int32_t q = m / base;
  const std::int32_t k = s / q;
  std::int32_t p = base * (s - k * q) - k * (m - base * q);
  while (p < 0) p += m;
  return p;
}

} // namespace

std::int32_t MLTMOD(reporting& report, std::int32_t a, std::int32_t s, std::int32_t m) {
  if (a <= 0 || a >= m || s <= 0 || s >= m) {
    say(report, " A, M, S out of order in MLTMOD - ABORT!");
    say(report, free_row().text(" A = ").i(a).text(" S = ").i(s).text(" M = ").i(m).str());
    say(report, " MLTMOD requires: 0 < A < M; 0 < S < M");
    stop_run(report, exit_diagnosed);
  }
  // a = (h2 32768 + h1) 32768 + h0 with h2 = 0 or 1
  constexpr std::int32_t base = 32768;
  // a s mod m from the three digits of a, each product below 2^31 by Schrage's method
  const std::int32_t h0 = a % base, h2 = a / base / base, h1 = a / base % base;
  std::int32_t p = h2 != 0 ? times_base(s, m) : 0;
  if (h1 != 0) p = add_product(p, h1, s, m);
  if (p != 0) p = times_base(p, m);
  return h0 != 0 ? add_product(p, h0, s, m) : p;
}

void INITGN(combined_source& source, std::int32_t isdtyp) {
  if (!source.qrgnin) before_constants(*source.report, " INITGN called before random number generator ");
  virtual_generator& g = current(source);
  switch (isdtyp) {
  case -1:
    g.lg1 = g.ig1;
    g.lg2 = g.ig2;
    break;
  case 0:
    break;
  case 1:
    g.lg1 = MLTMOD(*source.report, source.a1w, g.lg1, source.m1);
    g.lg2 = MLTMOD(*source.report, source.a2w, g.lg2, source.m2);
    break;
  default:
    say(*source.report, "ISDTYP NOT IN RANGE");
    stop_run(*source.report, exit_diagnosed);
  }
  g.cg1 = g.lg1;
  g.cg2 = g.lg2;
}

void SETCGN(combined_source& source, std::int32_t g) {
  if (g < 1 || g > virtual_generators) {
    say(*source.report, free_row()
                            .text(" Generator number out of range in SETCGN:")
                            .text(" Legal range is 1 to ")
                            .i(virtual_generators)
                            .text(" -- ABORT!")
                            .str());
    stop_run(*source.report, exit_diagnosed);
  }
  source.curntg = g;
}

void SETALL(combined_source& source, std::int32_t s1, std::int32_t s2) {
  source.qrgnsd = true;
  set_constants(source);
  const std::int32_t held = source.curntg;
  for (std::int32_t g = 1; g <= virtual_generators; ++g) {
    SETCGN(source, g);
    // the seeds of generator g are 2^50 draws beyond those of g - 1
    if (g > 1) {
      s1 = MLTMOD(*source.report, source.a1vw, s1, source.m1);
      s2 = MLTMOD(*source.report, source.a2vw, s2, source.m2);
    }
    SETSD(source, s1, s2);
  }
  SETCGN(source, held);
}

void SETSD(combined_source& source, std::int32_t s1, std::int32_t s2) {
  if (!source.qrgnin) before_constants(*source.report, " SETSD called before random number generator ");
  current(source).ig1 = s1;
  current(source).ig2 = s2;
  INITGN(source, -1);
}

void GETSD(const combined_source& source, std::int32_t& s1, std::int32_t& s2) {
  if (!source.qrgnin) before_constants(*source.report, " GETSD called before random number generator ");
  const virtual_generator& g = source.generators[static_cast<std::size_t>(source.curntg - 1)];
  s1 = g.cg1;
  s2 = g.cg2;
}

void combined_default_start(combined_source& source) {
  set_constants(source);
  if (!source.qrgnsd) SETALL(source, default_seed_1, default_seed_2);
}

void ranlib_start(combined_source& source, std::int32_t seed) {
  set_constants(source);
  ranf(source);
  SETSD(source, seed, seed);
}

} // namespace zeph
