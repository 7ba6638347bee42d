// e^x by additions and multiplications alone, so that loops over arrays of it are vectorized and its bytes
// are those of every machine.
#pragma once

#include <bit>
#include <cstdint>

namespace zeph {

// e^x for x <= 0, within 2e-16 of it; e^-708 below -708. Cody and Waite's reduction x = n ln 2 + r with ln 2
// in two parts, then the Taylor series of e^r to r^13 (W. J. Cody and W. Waite, Software Manual for the
// Elementary Functions, 1980, chapter 6). No number gives no number.
inline double exp_of_negative(double x) {
  constexpr double shift = 0x1.8p52; // adding it rounds to an integer, in the low bits of the sum
  constexpr double ln2_high = 6.93147180369123816490e-01, ln2_low = 1.90821492927058770002e-10;
  const double y = x < -708.0 ? -708.0 : x;
  const double shifted = y * 1.4426950408889634 + shift, n = shifted - shift;
  const double r = (y - n * ln2_high) - n * ln2_low;
  double sum = 1.0 / 6227020800.0;
  sum = sum * r + 1.0 / 479001600.0;
  sum = sum * r + 1.0 / 39916800.0;
  sum = sum * r + 1.0 / 3628800.0;
  sum = sum * r + 1.0 / 362880.0;
  sum = sum * r + 1.0 / 40320.0;
  sum = sum * r + 1.0 / 5040.0;
  sum = sum * r + 1.0 / 720.0;
  sum = sum * r + 1.0 / 120.0;
  sum = sum * r + 1.0 / 24.0;
  sum = sum * r + 1.0 / 6.0;
  sum = sum * r + 0.5;
  sum = sum * r + 1.0;
  sum = sum * r + 1.0;
  const std::uint64_t power = (std::bit_cast<std::uint64_t>(shifted) + 1023) << 52; // 2^n
  return sum * std::bit_cast<double>(power);
}

} // namespace zeph
