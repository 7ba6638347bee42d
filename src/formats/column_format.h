// Column notation of the reports:
//   An    text in n columns, right-justified; the first n bytes of longer text
//   In.m  integer in n columns, at least m digits, zero-filled
//   Fn.d  fixed point, n columns, d decimals
//   Gn.d  general number, n columns, d significant digits
//   nX    n blanks
//   Tn    the next item starts at column n
// A number that does not fit its columns gives n stars, so columns never move.
// Decimals are those of the exact binary value, correctly rounded; a tie of
// the exact value goes to the even digit.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace zeph {

// Each returns exactly w columns (none for w <= 0); m, d below 0 count as 0.
//
// I: m = 0 and 1 are the same; 0 is "0".
std::string format_I(std::int64_t x, int w, int m = 1);

// F: d = 0 ends in a point. Below 1 there is one zero before the point, dropped
// when only that makes it fit (and a digit is left). Minus for any x < 0, also
// when all digits shown are 0; -0.0 is written as 0.0. Non-finite: NaN,
// Infinity, -Infinity right-justified, cut to Inf, -Inf where it does not fit.
std::string format_F(double x, int w, int d);

// G: let s be |x| rounded to d significant digits (d < 1 counts as 1) and
// 0.1 <= s / 10^e < 1. Zero is F(w-4).(d-1) and 4 blanks; with 0 <= e <= d it
// is F(w-4).(d-e) and 4 blanks; any other x is sign, "0.", the digits of s,
// and E+ee, E-ee, or for three digits +eee, -eee, right-justified; the zero
// before the point is dropped when only that makes it fit.
//   G15.8 of 123.456  |  123.45600    |
//   G15.6 of 0.001    |   0.100000E-02|
// Non-finite as for F, in all w columns.
std::string format_G(double x, int w, int d);

// One line under construction. Items go in at the current column and overwrite
// what is there; columns never filled are blanks. The calls chain:
//   column_line().X(1).T(1).A("Sampling interval", 60).I(isamp, 11).str()
class column_line {
public:
  column_line& A(std::string_view text, int n);
  column_line& I(std::int64_t x, int w, int m = 1);
  column_line& F(double x, int w, int d);
  column_line& G(double x, int w, int d);
  column_line& X(int n);   // n blanks are written
  column_line& T(int col); // 1-based, forward or back; below 1 counts as 1
  column_line& clear();    // an empty line, column 1; keeps its memory
  const std::string& str() const { return line_; }

private:
  column_line& write(std::string_view item);

  std::string line_, item_;
  std::size_t at_ = 0; // 0-based column of the next item
};

} // namespace zeph
