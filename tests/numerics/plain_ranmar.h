// The published generator, one number at a time: G. Marsaglia, A. Zaman and W. W.
// Tsang, Toward a universal random number generator, Statistics and Probability
// Letters 9 (1990) 35-39, its listing in 64-bit arithmetic. An exact 0 is drawn again.
// The streams of the product are held to it bit by bit.
#pragma once

#include "numerics/random_sources.h"

namespace zeph_test {

struct plain_ranmar : zeph::marsaglia_state {
  explicit plain_ranmar(const zeph::marsaglia_state& state) : zeph::marsaglia_state(state) {}
  std::int64_t zeros = 0; // drawn and skipped
  double operator()() {
    for (;; ++zeros) {
      double uni = U[static_cast<std::size_t>(I97 - 1)] - U[static_cast<std::size_t>(J97 - 1)];
      if (uni < 0.0) uni += 1.0;
      U[static_cast<std::size_t>(I97 - 1)] = uni;
      if (--I97 == 0) I97 = 97;
      if (--J97 == 0) J97 = 97;
      C -= CD;
      if (C < 0.0) C += CM;
      uni -= C;
      if (uni < 0.0) uni += 1.0;
      if (uni != 0.0) return uni;
    }
  }
};

inline bool same_state(const zeph::marsaglia_state& a, const zeph::marsaglia_state& b) {
  return a.U == b.U && a.C == b.C && a.CD == b.CD && a.CM == b.CM && a.I97 == b.I97 && a.J97 == b.J97 &&
         a.TEST == b.TEST;
}

} // namespace zeph_test
