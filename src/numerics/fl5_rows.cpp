#include "numerics/fl5_rows.h"

#include "numerics/normal_draws.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace zeph {

// FL5 for a row of uniforms at once. Which of them begin a deviate is known only when
// all before are settled, but what each would give if it did can be worked out side
// by side, so that no deviate waits for the one before it, and no branch for a coin.
namespace {
constexpr double unit = marsaglia_source::unit;

struct wedge_cells {
  double width[64]{}; // A(i+1) - A(i), with the sign of the deviate
  constexpr wedge_cells() {
    using table = fl5_tables<double>;
    for (int i = 1; i < 32; ++i) {
      width[i] = table::A[i] - table::A[i - 1];
      width[i + 32] = -width[i];
    }
  }
};
constexpr wedge_cells wedges;

// From v[0] in a centre interval and below its threshold: how many uniforms the
// deviate z takes, or 0 when its course is none of these: the wedge accepts v[1], at
// once or by a sequence of two more; or v[2] rejects it and v[3] lies above the threshold.
inline std::int32_t in_wedge(const std::int32_t* v, double& z) {
  const fl5_cell& cell = fl5_cell_of(v[0]);
  const std::int32_t f = fl5_place_of(v[0]);
  const double w = v[1] * unit * wedges.width[v[0] >> fl5_cells::bits];
  const bool accepted = f / fl5_cells::places > (0.5 * w + cell.A) * w;
  const bool rejected = f * 64 < v[2];
  const double limit[2] = {static_cast<double>(v[2]), cell.T * 64};
  const bool settled = v[3] > limit[rejected];
  const double deviates[2] = {w, (v[3] / 64.0 - cell.T) * cell.H};
  z = cell.A + deviates[rejected & !accepted];
  return (accepted | settled) * (4 - 2 * accepted);
}

struct tail_cells {
  double A[18]{}, D[18]{}; // left ends, summed up as fl5_normal does, and widths
  constexpr tail_cells() {
    double left = fl5_tables<double>::A[31];
    for (int lead = 0; lead < 18; ++lead) {
      A[lead] = left;
      D[lead] = fl5_tables<double>::D[lead + 5];
      left += D[lead];
    }
  }
};
constexpr tail_cells tails;

constexpr bool of_tail(std::int32_t v) { return (v >> fl5_cells::bits) % 32 == 0; }

// The same from v[0] in the tail: accepted at once or by a sequence of two more, or
// rejected by v[2], and then accepted at once. 0 for the uniform 1/2.
inline std::int32_t in_tail(const std::int32_t* v, double& z) {
  // f has `lead` zeros before its first bit; the bits after that one are a uniform
  const std::int32_t f = fl5_place_of(v[0]);
  const int lead = std::countl_zero(static_cast<std::uint32_t>(f | 1)) - 14;
  const double A = tails.A[lead], D = tails.D[lead];
  const double w = ((f << (lead + 1)) / fl5_cells::places - 1.0) * D, second = v[3] * unit * D;
  const bool accepted = v[1] * unit > (0.5 * w + A) * w;
  const bool rejected = v[1] < v[2];
  const bool settled[2] = {v[3] > v[2], v[4] * unit > (0.5 * second + A) * second};
  const double deviates[2] = {w, second};
  const double size = A + deviates[rejected & !accepted];
  z = v[0] < marsaglia_source::one / 2 ? size : -size;
  return (f > 0) * (accepted | settled[rejected]) * (accepted ? 2 : 4 + rejected);
}

// Any course, when it ends within the uniforms v[0..ready-1]; otherwise 0.
std::int32_t any_course(const std::int32_t* v, std::int32_t ready, double& z) {
  std::int32_t used = 0;
  z = fl5_normal<double>([&] { // a uniform of nearly 1 ends each course
    return ++used > ready ? 1.0 - unit : v[used - 1] * unit;
  });
  return used > ready ? 0 : used;
}

constexpr std::int32_t shortest = 16, longest = 256; // uniforms looked at
constexpr std::int32_t beyond = 4;                   // of in_wedge and in_tail
constexpr std::int32_t marks = longest + marsaglia_source::block + 8;

// Uniforms that a row of at most n normals may look at, and that the source has ready;
// 0 when these are too few.
std::int32_t looked_at(const marsaglia_source& source, std::int64_t n) {
  const std::int64_t m = std::min<std::int64_t>({n, source.count - source.used - beyond, longest});
  return m < shortest ? 0 : static_cast<std::int32_t>(m);
}

// Uniforms whose deviate isn't settled by themselves, in order, of a row v[0..m-1]:
// place p, and how many uniforms a deviate takes that begins there; 0: to be worked out.
struct open_uniforms {
  std::size_t n = 0;
  std::uint8_t p[longest], takes[longest];
};

// Each uniform as the first of a deviate z[p]
void begin_everywhere(const std::int32_t* v, std::int32_t m, double* z, open_uniforms& open) {
  for (std::size_t p = 0; p < static_cast<std::size_t>(m); ++p) {
    // z is right where v[p] is above the threshold of its interval; the others are listed as open
    const fl5_cell& cell = fl5_cell_of(v[p]);
    open.p[open.n] = static_cast<std::uint8_t>(p);
    open.n += cell.limit >= static_cast<std::uint32_t>(v[p]);
    z[p] = cell.A + (fl5_place_of(v[p]) - cell.T) * cell.H;
  }
  // open ones in centre intervals first, those of the tail after them: two loops without branches
  std::uint8_t tail[longest];
  std::size_t n_tail = 0;
  for (std::size_t k = 0; k < open.n; ++k) {
    const std::size_t p = open.p[k];
    tail[n_tail] = static_cast<std::uint8_t>(k);
    n_tail += of_tail(v[p]);
    open.takes[k] = static_cast<std::uint8_t>(in_wedge(v + p, z[p]));
  }
  for (std::size_t t = 0; t < n_tail; ++t) {
    const std::size_t k = tail[t], p = open.p[k];
    open.takes[k] = static_cast<std::uint8_t>(in_tail(v + p, z[p]));
  }
}

// Uniforms that are taken by a deviate before them begin none: begins[p] is 0, and
// otherwise 1. A deviate whose course leaves the ready uniforms ends the row before
// it, at m. Returns the uniforms taken.
std::int32_t settle(const std::int32_t* v, std::int32_t& m, std::int32_t ready, const open_uniforms& open,
                    double* z, std::uint8_t* begins) {
  constexpr std::uint64_t ones = 0x0101010101010101;
  std::memset(begins, 1, static_cast<std::size_t>(m));
  std::int32_t next = 0;
  for (std::size_t k = 0; k < open.n; ++k) {
    const std::int32_t p = open.p[k], taken = open.takes[k];
    const bool begun = p >= next;
    if (begun & (taken == 0)) [[unlikely]] {
      const std::int32_t any = any_course(v + p, ready - p, z[p]);
      if (any == 0) return m = p;
      std::memset(begins + p + 1, 0, static_cast<std::size_t>(any - 1));
      next = p + any;
      continue;
    }
    // begins[p..p+7] = 1, 0 for the uniforms that the deviate takes more, then 1: one store without a branch;
    // a deviate that does not begin stores into a place beyond the marks
    const std::uint64_t mask = ones << 8 * taken | 1; // 1, then taken - 1 times 0, then 1
    std::memcpy(begins + (begun ? p : longest + marsaglia_source::block), &mask, sizeof mask);
    next = begun ? p + taken : next;
  }
  return std::max(m, next);
}

// The normals z that begin within the next m uniforms: how many.
std::int32_t normals(marsaglia_source& source, std::int32_t m, double* z) {
  const std::int32_t* v = source.uni.data() + 1 + source.used;
  std::uint8_t begins[marks];
  open_uniforms open;
  begin_everywhere(v, m, z, open);
  source.used += settle(v, m, source.count - source.used, open, z, begins);
  std::size_t n = 0;
  for (std::size_t p = 0; p < static_cast<std::size_t>(m); ++p) {
    z[n] = z[p];
    n += begins[p];
  }
  return static_cast<std::int32_t>(n);
}

} // namespace

double ranmar_snorm_in_wedge(marsaglia_source& source) {
  if (source.count - source.used > beyond) {
    const std::int32_t* v = source.uni.data() + 1 + source.used;
    double z;
    const std::int32_t taken = of_tail(*v) ? in_tail(v, z) : in_wedge(v, z);
    source.used += taken;
    if (taken > 0) return z;
  }
  return fl5_normal<double>([&source] { return RANMAR(source); });
}

void ranmar_snorms(marsaglia_source& source, double* x, std::int64_t n) {
  while (n > 0) {
    const std::int32_t m = looked_at(source, n);
    const std::int32_t made = m > 0 ? normals(source, m, x) : 0;
    x += made;
    n -= made;
    if (n > 0) *x++ = ranmar_snorm(source), --n; // at the end of a block, or of a short rest
  }
}

} // namespace zeph
