// Free format: values by blank or comma over lines, and rows of values.
#pragma once

#include "formats/text_file.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace zeph {

// Reads values from a text file, read by read:
//   begin_read, integer or real for each value, end_read.
// Each read starts on a fresh line, takes as many lines as it needs, and drops
// the rest of its last line. Values are separated by any run of blanks, tabs,
// commas and carriage returns; empty lines are skipped. n*v means n
// times the value v (n counted, never stored). Lines may be of any length.
class free_reader {
public:
  // Codes of a read other than 0.
  static constexpr int end_of_file = -1; // before the last value of the read
  static constexpr int bad_token = 59;   // a value of the wrong kind, or beyond its type
  static constexpr int read_fault = read_fault_code;

  bool open(const std::string& path); // false when it can't be opened
  bool is_open() const { return bytes_.is_open(); }
  void rewind(); // back to the first line; a read under way is forgotten
  void close();

  void begin_read(); // ends a read that was not ended

  // The next value. 0: x is set. -1: the file ended first. 59: the text is not
  // such a value; it is passed and x keeps its value. 5: the system can't read on.
  // An integer is digits with or without a sign, within 32 bits. A real has a
  // sign, digits with or without a point, and an exponent after E, e, D or d,
  // each optional; an integer is a real too; so are NaN, Inf and Infinity in
  // any case. A real beyond the range of 64 bits is 59; one too small for it
  // is the nearest number, zero at last.
  int integer(std::int32_t& x);
  int real(double& x);

  // The text read last, as it is in the file: what a 59 is about. One beyond 4096 bytes is cut.
  const std::string& last_text() const { return text_; }

  // Drops the rest of the line. A read that took no value drops one line.
  void end_read();

private:
  int next_token(); // 0: token_ holds the text of the value; -1; 59; 5

  byte_reader bytes_;
  std::string text_;         // as it is in the file
  std::string token_;        // without its count
  std::int64_t repeats_ = 0; // times that token_ is still to be taken as a value
  bool reading_ = false;
};

// Builds one line of a listing or of a result file. Text that begins the row
// starts in column 1 as it is; every other item, and a number that begins a
// row, is one blank and its field, right-justified and never cut:
//   integer  11 columns
//   r8       24 columns, 16 significant digits
//   r4       16 columns, 9 significant digits
//   l        T or F
//   text     as it is
// Reals are fixed point or, with an exponent below -4 or beyond the digits,
// E+nn; trailing zeros are dropped, and a real that would look like an integer
// gets ".0". Beyond the numbers: NaN, Infinity, -Infinity.
class free_row {
public:
  free_row& text(std::string_view x);
  free_row& i(std::int64_t x);
  free_row& r8(double x);
  free_row& r4(float x);
  free_row& l(bool x);
  free_row& clear(); // an empty row again; keeps its memory
  const std::string& str() const { return row_; }

private:
  void field(std::string_view x, int width);

  std::string row_;
  bool begun_ = false;
};

} // namespace zeph
