#include "formats/column_format.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace {

using zeph::column_line;
using zeph::format_F;
using zeph::format_G;
using zeph::format_I;

constexpr double inf = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double largest = std::numeric_limits<double>::max();
constexpr double smallest = std::numeric_limits<double>::denorm_min(); // 4.94..E-324

struct real_case {
  double x;
  int w, d;
  const char* text;
};

// All texts by hand. A decimal constant is rarely the value that is held; where
// it matters the first digits of the exact value are beside the row.
const std::vector<real_case> f_cases = {
    // zero and minus zero
    {0.0, 6, 2, "  0.00"},
    {-0.0, 6, 2, "  0.00"},
    {0.0, 2, 1, ".0"},
    {-0.0, 3, 1, "0.0"},
    {0.0, 3, 0, " 0."},
    // plain
    {123.456, 8, 2, "  123.46"},
    {-123.456, 8, 2, " -123.46"},
    {1.0, 18, 8, "        1.00000000"},
    {9007199254740992.0, 18, 0, " 9007199254740992."}, // 2^53
    {0.1, 24, 20, "  0.10000000000000000555"},         // 0.1000000000000000055511..
    // ties of the exact value go to the even digit
    {0.5, 4, 0, "  0."},
    {1.5, 4, 0, "  2."},
    {2.5, 4, 0, "  2."},
    {-2.5, 4, 0, " -2."},
    {0.125, 6, 2, "  0.12"},
    {0.375, 6, 2, "  0.38"},
    {0.0625, 7, 3, "  0.062"},
    // no ties, though they look so
    {0.15, 5, 1, "  0.1"},   // 0.1499999999999999944..
    {0.45, 5, 1, "  0.5"},   // 0.4500000000000000111..
    {2.675, 6, 2, "  2.67"}, // 2.6749999999999998223..
    {1.005, 6, 2, "  1.00"}, // 1.0049999999999998934..
    // across a power of ten
    {9.996, 6, 2, " 10.00"},
    {0.9996, 6, 3, " 1.000"},
    {0.96, 3, 1, "1.0"},
    {99.96, 5, 1, "100.0"},
    {99.96, 4, 1, "****"},
    {-9.96, 4, 1, "****"},
    // the zero before the point goes only when that makes it fit
    {0.25, 5, 2, " 0.25"},
    {0.25, 4, 2, "0.25"},
    {0.25, 3, 2, ".25"},
    {0.25, 2, 2, "**"},
    {-0.25, 5, 2, "-0.25"},
    {-0.25, 4, 2, "-.25"},
    {-0.25, 3, 2, "***"},
    {1.25, 3, 2, "***"},
    // no decimals: the point stays, and so does one digit
    {7.0, 3, 0, " 7."},
    {7.0, 2, 0, "7."},
    {7.0, 1, 0, "*"},
    {0.3, 2, 0, "0."},
    {0.3, 1, 0, "*"},
    // minus for any x < 0
    {-0.001, 6, 1, "  -0.0"},
    {-0.001, 4, 1, "-0.0"},
    {-0.001, 3, 1, "-.0"},
    {-0.001, 2, 1, "**"},
    {-0.3, 4, 0, " -0."},
    {smallest, 10, 4, "    0.0000"},
    {-smallest, 10, 4, "   -0.0000"},
    // overflow
    {1234.5, 5, 2, "*****"},
    {1e300, 18, 8, "******************"},
    {largest, 4, 1, "****"},
    // not numbers
    {nan, 6, 2, "   NaN"},
    {-nan, 6, 2, "   NaN"},
    {nan, 3, 1, "NaN"},
    {nan, 2, 1, "**"},
    {inf, 10, 3, "  Infinity"},
    {inf, 8, 3, "Infinity"},
    {inf, 7, 3, "    Inf"},
    {inf, 3, 1, "Inf"},
    {inf, 2, 1, "**"},
    {-inf, 9, 3, "-Infinity"},
    {-inf, 8, 3, "    -Inf"},
    {-inf, 4, 1, "-Inf"},
    {-inf, 3, 1, "***"},
    // no columns
    {1.0, 0, 1, ""},
};

const std::vector<real_case> g_cases = {
    {123.456, 15, 8, "  123.45600    "},
    {0.001, 15, 6, "   0.100000E-02"},
    {0.0, 20, 6, "         0.00000    "},
    {-0.0, 20, 6, "         0.00000    "},
    {0.0, 8, 1, "  0.    "},
    // fixed point from 0.1 to below 10^d
    {0.1, 10, 3, " 0.100    "},
    {1.0, 10, 3, "  1.00    "},
    {-12.0, 10, 3, " -12.0    "},
    {999.4, 10, 3, "  999.    "},
    {1000.0, 10, 3, " 0.100E+04"},
    {0.0999, 10, 3, " 0.999E-01"},
    {1.0 / 3.0, 25, 15, "    0.333333333333333    "},
    {-1234.5, 25, 15, "    -1234.50000000000    "},
    // rounding to d digits decides the form
    {9.996, 10, 3, "  10.0    "},
    {99.96, 10, 3, "  100.    "},
    {999.6, 10, 3, " 0.100E+04"},
    {0.09996, 10, 3, " 0.100    "},
    {0.09994, 10, 3, " 0.999E-01"},
    {0.009996, 10, 3, " 0.100E-01"},
    // ties of the exact value
    {0.125, 8, 2, "0.12    "},
    {0.375, 8, 2, "0.38    "},
    {2.5, 8, 1, "  2.    "},
    {0.03125, 10, 3, " 0.312E-01"},
    {250000.0, 8, 1, " 0.2E+06"},
    {350000.0, 8, 1, " 0.4E+06"},
    // sign, dropped zero, stars
    {-0.001, 12, 4, " -0.1000E-02"},
    {0.001, 9, 3, "0.100E-02"},
    {0.001, 8, 3, ".100E-02"},
    {0.001, 7, 3, "*******"},
    {-0.001, 10, 3, "-0.100E-02"},
    {-0.001, 9, 3, "-.100E-02"},
    {-0.001, 8, 3, "********"},
    {0.5, 9, 4, ".5000    "},
    {0.5, 8, 4, "****    "},
    {123.456, 9, 8, "*****    "},
    {1.0, 4, 1, "****"},
    {0.0, 4, 1, "****"},
    // two and three digits of exponent
    {9.9e98, 11, 4, " 0.9900E+99"},
    {9.9996e98, 11, 4, " 0.1000+100"},
    {1e99, 11, 4, " 0.1000+100"},
    {-1e100, 11, 4, "-0.1000+101"},
    {-1e100, 10, 4, "-.1000+101"},
    {1e-100, 10, 3, " 0.100E-99"},
    {1e-101, 10, 3, " 0.100-100"},
    {largest, 12, 5, " 0.17977+309"}, // 1.797693..E+308
    {smallest, 10, 3, " 0.494-323"},
    // not numbers
    {nan, 10, 3, "       NaN"},
    {nan, 2, 1, "**"},
    {inf, 8, 3, "Infinity"},
    {inf, 7, 3, "    Inf"},
    {-inf, 9, 3, "-Infinity"},
    {-inf, 8, 3, "    -Inf"},
    {-inf, 3, 1, "***"},
};

TEST(column_format, F_gives_the_text_of_the_table) {
  for (const auto& [x, w, d, text] : f_cases) {
    EXPECT_EQ(format_F(x, w, d), text) << x << " F" << w << "." << d;
  }
}

TEST(column_format, G_gives_the_text_of_the_table) {
  for (const auto& [x, w, d, text] : g_cases) {
    EXPECT_EQ(format_G(x, w, d), text) << x << " G" << w << "." << d;
  }
}

TEST(column_format, I_gives_the_text_of_the_table) {
  struct integer_case {
    std::int64_t x;
    int w, m;
    const char* text;
  };
  const std::vector<integer_case> cases = {
      {0, 4, 1, "   0"},
      {0, 4, 0, "   0"},
      {7, 4, 3, " 007"},
      {-7, 4, 3, "-007"},
      {-7, 3, 3, "***"},
      {5, 2, 2, "05"},
      {2026, 4, 4, "2026"},
      {-123, 4, 1, "-123"},
      {1234, 4, 1, "1234"},
      {12345, 4, 1, "****"},
      {-1234, 4, 1, "****"},
      {12345, 6, 3, " 12345"},
      {std::numeric_limits<std::int64_t>::min(), 20, 1, "-9223372036854775808"}, // -2^63
      {std::numeric_limits<std::int64_t>::min(), 19, 1, "*******************"},
      {std::numeric_limits<std::int64_t>::max(), 19, 1, "9223372036854775807"},
      {1, 0, 1, ""},
  };
  for (const auto& [x, w, m, text] : cases) EXPECT_EQ(format_I(x, w, m), text) << x << " I" << w << "." << m;
}

TEST(column_format, A_pads_at_the_left_and_cuts_at_the_right) {
  EXPECT_EQ(column_line().A("abc", 5).str(), "  abc");
  EXPECT_EQ(column_line().A("abc", 3).str(), "abc");
  EXPECT_EQ(column_line().A("abcdef", 3).str(), "abc");
  EXPECT_EQ(column_line().A("", 2).str(), "  ");
  EXPECT_EQ(column_line().A("abc", 0).str(), "");
}

TEST(column_format, label_row_ends_its_label_in_column_60) {
  // 1X, T1, A60, I11 with a label of 51: 9 blanks, the label, the value in 61..71
  const std::string label = "Sampling interval .................................";
  ASSERT_EQ(label.size(), 51U);
  const std::string row = column_line().X(1).T(1).A(label, 60).I(10, 11).str();
  EXPECT_EQ(row, std::string(9, ' ') + label + "         10");
}

TEST(column_format, table_row_keeps_its_columns) {
  // 30X, I3, 2I11
  const std::string row = column_line().X(30).I(2, 3).I(-5, 11).I(1200000, 11).str();
  EXPECT_EQ(row, std::string(30, ' ') + "  2" + "         -5" + "    1200000");
}

TEST(column_format, stars_do_not_move_the_columns_after_them) {
  EXPECT_EQ(column_line().I(12345, 3).F(0.5, 5, 1).str(), "***  0.5");
}

TEST(column_format, T_leaves_blanks_in_columns_never_filled) {
  EXPECT_EQ(column_line().A("ab", 2).T(6).A("cd", 2).str(), "ab   cd");
  EXPECT_EQ(column_line().T(3).F(1.0, 4, 1).str(), "   1.0");
}

TEST(column_format, T_goes_back_and_overwrites) {
  EXPECT_EQ(column_line().A("abcdef", 6).T(3).A("XY", 2).str(), "abXYef");
  EXPECT_EQ(column_line().A("abcdef", 6).T(3).A("XY", 2).A("Z", 1).str(), "abXYZf");
  EXPECT_EQ(column_line().A("abc", 3).T(3).A("XYZ", 3).str(), "abXYZ");
  EXPECT_EQ(column_line().A("abcdef", 6).T(2).X(2).str(), "a  def");
  EXPECT_EQ(column_line().A("abc", 3).T(0).A("X", 1).str(), "Xbc");
}

TEST(column_format, T_without_an_item_adds_nothing) {
  EXPECT_EQ(column_line().A("ab", 2).T(9).str(), "ab");
  EXPECT_EQ(column_line().A("ab", 2).X(3).str(), "ab   ");
}

TEST(column_format, clear_starts_a_new_line) {
  column_line line;
  line.A("abc", 3);
  EXPECT_EQ(line.clear().I(1, 2).str(), " 1");
}

} // namespace
