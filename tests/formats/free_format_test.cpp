#include "formats/free_format.h"

#include "scratch_file.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace {

using zeph::free_reader;
using zeph::free_row;
using zeph_test::scratch_file;

// One read that takes one integer: its code, and the value in x.
int read_integer(std::string_view content, std::int32_t& x) {
  const scratch_file file(content);
  free_reader reader;
  EXPECT_TRUE(reader.open(file.path()));
  reader.begin_read();
  return reader.integer(x);
}

int read_real(std::string_view content, double& x) {
  const scratch_file file(content);
  free_reader reader;
  EXPECT_TRUE(reader.open(file.path()));
  reader.begin_read();
  return reader.real(x);
}

// The value, or a number that no test expects.
std::int32_t integer_of(std::string_view content) {
  std::int32_t x = -77;
  EXPECT_EQ(read_integer(content, x), 0) << content;
  return x;
}

double real_of(std::string_view content) {
  double x = -77;
  EXPECT_EQ(read_real(content, x), 0) << content;
  return x;
}

std::int32_t next_integer(free_reader& reader) {
  std::int32_t x = -77;
  EXPECT_EQ(reader.integer(x), 0);
  return x;
}

TEST(free_reader, missing_file_and_directory_do_not_open) {
  const scratch_file file;
  free_reader reader;
  EXPECT_FALSE(reader.open(file.path()));
  EXPECT_FALSE(reader.open(file.directory()));
  EXPECT_FALSE(reader.is_open());
  std::int32_t x = 5;
  reader.begin_read();
  EXPECT_EQ(reader.integer(x), -1);
  EXPECT_EQ(x, 5);
}

TEST(free_reader, blanks_tabs_commas_and_carriage_returns_separate) {
  const scratch_file file("1 2\t3,4 ,\t, 5,,6\r\n  ,7\r8\n");
  free_reader reader;
  ASSERT_TRUE(reader.open(file.path()));
  reader.begin_read();
  for (std::int32_t i = 1; i <= 8; ++i) EXPECT_EQ(next_integer(reader), i);
  std::int32_t x = 0;
  EXPECT_EQ(reader.integer(x), -1);
}

TEST(free_reader, a_read_takes_lines_as_needed_and_drops_the_rest_of_the_last) {
  const scratch_file file("1 2\n\n3 4 5\n6\n");
  free_reader reader;
  ASSERT_TRUE(reader.open(file.path()));
  reader.begin_read();
  for (std::int32_t i = 1; i <= 4; ++i) EXPECT_EQ(next_integer(reader), i);
  reader.end_read(); // drops 5
  reader.begin_read();
  EXPECT_EQ(next_integer(reader), 6);
}

TEST(free_reader, each_read_starts_on_a_fresh_line_also_when_the_last_was_not_ended) {
  const scratch_file file("1 2\n3 4\n5");
  free_reader reader;
  ASSERT_TRUE(reader.open(file.path()));
  for (const std::int32_t first : {1, 3, 5}) {
    reader.begin_read();
    EXPECT_EQ(next_integer(reader), first);
  }
}

TEST(free_reader, a_read_without_values_drops_one_line) {
  const scratch_file file("1 2\n3\n");
  free_reader reader;
  ASSERT_TRUE(reader.open(file.path()));
  reader.begin_read();
  reader.end_read();
  reader.begin_read();
  EXPECT_EQ(next_integer(reader), 3);
}

TEST(free_reader, end_of_file_before_the_last_value_is_minus_one) {
  const scratch_file file("1 2");
  free_reader reader;
  ASSERT_TRUE(reader.open(file.path()));
  reader.begin_read();
  EXPECT_EQ(next_integer(reader), 1);
  EXPECT_EQ(next_integer(reader), 2);
  std::int32_t x = 9;
  EXPECT_EQ(reader.integer(x), -1);
  EXPECT_EQ(reader.integer(x), -1);
  reader.end_read();
  reader.begin_read();
  EXPECT_EQ(reader.integer(x), -1);
  EXPECT_EQ(x, 9);
}

TEST(free_reader, empty_and_blank_files_are_at_their_end) {
  for (const char* content : {"", "\n", " \r\n\n\t,,\n"}) {
    std::int32_t x = 3;
    EXPECT_EQ(read_integer(content, x), -1);
    EXPECT_EQ(x, 3);
  }
}

TEST(free_reader, integers_have_signs_and_leading_zeros) {
  EXPECT_EQ(integer_of("7"), 7);
  EXPECT_EQ(integer_of("+7"), 7);
  EXPECT_EQ(integer_of("-7"), -7);
  EXPECT_EQ(integer_of("0007"), 7);
  EXPECT_EQ(integer_of("-0"), 0);
}

TEST(free_reader, integers_reach_to_the_ends_of_32_bits) {
  EXPECT_EQ(integer_of("2147483647"), 2147483647);
  EXPECT_EQ(integer_of("-2147483648"), -2147483647 - 1);
  for (const char* content : {"2147483648", "-2147483649", "99999999999999999999999999"}) {
    std::int32_t x = 3;
    EXPECT_EQ(read_integer(content, x), 59) << content;
    EXPECT_EQ(x, 3);
  }
}

TEST(free_reader, tokens_that_are_no_integer_are_59) {
  for (const char* content : {"1.5", "5.", "1e3", "abc", "7x", "+", "-", "+-5", "--5", "++5", "0x10", "'7'",
                              "/", "NaN", ";", "1;2"}) {
    std::int32_t x = 3;
    EXPECT_EQ(read_integer(content, x), 59) << content;
    EXPECT_EQ(x, 3);
  }
}

TEST(free_reader, a_bad_token_is_passed_and_the_read_can_continue) {
  const scratch_file file("a 2 b\n3");
  free_reader reader;
  ASSERT_TRUE(reader.open(file.path()));
  std::int32_t x = 0;
  reader.begin_read();
  EXPECT_EQ(reader.integer(x), 59);
  EXPECT_EQ(next_integer(reader), 2);
  EXPECT_EQ(reader.integer(x), 59);
  reader.end_read();
  reader.begin_read();
  EXPECT_EQ(next_integer(reader), 3);
}

TEST(free_reader, reals_take_every_form) {
  EXPECT_EQ(real_of("5"), 5.0);
  EXPECT_EQ(real_of("+5."), 5.0);
  EXPECT_EQ(real_of(".5"), 0.5);
  EXPECT_EQ(real_of("-0.25"), -0.25);
  EXPECT_EQ(real_of("1.5E2"), 150.0);
  EXPECT_EQ(real_of("1.5e+2"), 150.0);
  EXPECT_EQ(real_of("1.5D2"), 150.0);
  EXPECT_EQ(real_of("-25d-2"), -0.25);
  EXPECT_EQ(real_of("0.1"), 0.1);
  EXPECT_EQ(real_of("1e308"), 1e308);
  EXPECT_TRUE(std::signbit(real_of("-0.0")));
}

TEST(free_reader, reals_take_what_rows_write_beyond_the_numbers) {
  constexpr double inf = std::numeric_limits<double>::infinity();
  EXPECT_TRUE(std::isnan(real_of("NaN")));
  EXPECT_EQ(real_of("Infinity"), inf);
  EXPECT_EQ(real_of("-Infinity"), -inf);
  EXPECT_EQ(real_of("+inf"), inf);
}

TEST(free_reader, tokens_that_are_no_real_are_59) {
  for (const char* content : {"abc", ".", "-", "1e", "1e+", "e5", "1.2.3", "1,5x", "+-5", "-+5", "0x1p3",
                              "1dd5", "nan(1)", "infin", "1e400", "-1D999"}) {
    const scratch_file file(content);
    free_reader reader;
    ASSERT_TRUE(reader.open(file.path()));
    double x = 3;
    int code = reader.real(x);
    if (std::string_view(content) == "1,5x") code = reader.real(x); // 1, then 5x
    EXPECT_EQ(code, 59) << content;
  }
}

TEST(free_reader, a_real_too_small_for_64_bits_is_the_nearest_number) {
  EXPECT_EQ(real_of("1e-400"), 0.0);
  EXPECT_EQ(real_of("4.94e-324"), std::numeric_limits<double>::denorm_min());
  EXPECT_EQ(real_of("1e-310"), 1e-310);
  EXPECT_EQ(real_of("0e99999999999"), 0.0);
}

TEST(free_reader, n_star_v_means_n_values) {
  const scratch_file file("3*7,2*0.5 1*4\n9");
  free_reader reader;
  ASSERT_TRUE(reader.open(file.path()));
  reader.begin_read();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(next_integer(reader), 7);
  double x = 0;
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(reader.real(x), 0);
    EXPECT_EQ(x, 0.5);
  }
  EXPECT_EQ(next_integer(reader), 4);
  EXPECT_EQ(next_integer(reader), 9);
}

TEST(free_reader, a_repeat_ends_with_its_read) {
  const scratch_file file("5*1 2\n3\n");
  free_reader reader;
  ASSERT_TRUE(reader.open(file.path()));
  reader.begin_read();
  EXPECT_EQ(next_integer(reader), 1);
  reader.end_read();
  reader.begin_read();
  EXPECT_EQ(next_integer(reader), 3);
}

TEST(free_reader, a_huge_repeat_is_counted_and_not_stored) {
  for (const char* content : {"2000000000000*5", "99999999999999999999999999*5"}) {
    const scratch_file file(content);
    free_reader reader;
    ASSERT_TRUE(reader.open(file.path()));
    reader.begin_read();
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(next_integer(reader), 5);
  }
}

TEST(free_reader, repeats_that_are_none_are_59) {
  for (const char* content : {"0*5", "-2*5", "+2*5", "*5", "3*", "2*3*4", "a*5", "1.5*2", "2*x"}) {
    std::int32_t x = 3;
    EXPECT_EQ(read_integer(content, x), 59) << content;
    EXPECT_EQ(x, 3);
  }
}

TEST(free_reader, lines_may_be_longer_than_any_buffer) {
  std::string content;
  for (int i = 1; i <= 100000; ++i) content += std::to_string(i) + (i % 2 == 0 ? "  " : ", ");
  content += "\n-1\n";
  const scratch_file file(content);
  free_reader reader;
  ASSERT_TRUE(reader.open(file.path()));
  reader.begin_read();
  for (std::int32_t i = 1; i <= 100000; ++i) ASSERT_EQ(next_integer(reader), i);
  reader.rewind();
  reader.begin_read();
  EXPECT_EQ(next_integer(reader), 1);
  reader.end_read(); // drops some 600,000 bytes
  reader.begin_read();
  EXPECT_EQ(next_integer(reader), -1);
}

TEST(free_reader, a_token_without_end_is_59_and_passed) {
  const scratch_file file(std::string(200000, '1') + " 4");
  free_reader reader;
  ASSERT_TRUE(reader.open(file.path()));
  std::int32_t x = 0;
  EXPECT_EQ(reader.integer(x), 59);
  EXPECT_EQ(next_integer(reader), 4);
}

TEST(free_reader, rewind_forgets_the_read_under_way) {
  const scratch_file file("2*1 2\n3");
  free_reader reader;
  ASSERT_TRUE(reader.open(file.path()));
  reader.begin_read();
  EXPECT_EQ(next_integer(reader), 1);
  reader.rewind();
  reader.begin_read();
  EXPECT_EQ(next_integer(reader), 1);
  EXPECT_EQ(next_integer(reader), 1);
  EXPECT_EQ(next_integer(reader), 2);
}

// ---- rows: texts by hand; each field is one blank and its columns

TEST(free_row, integers_fill_11_columns_after_a_blank) {
  EXPECT_EQ(free_row().i(7).str(), "           7");
  EXPECT_EQ(free_row().i(-1234567890).str(), " -1234567890");
  EXPECT_EQ(free_row().i(123456789012).str(), " 123456789012"); // wider than its field
  EXPECT_EQ(free_row().i(std::numeric_limits<std::int64_t>::min()).str(), " -9223372036854775808");
}

TEST(free_row, reals_of_64_bits_fill_24_columns_with_16_digits) {
  const auto field = [](const std::string& text) { return std::string(25 - text.size(), ' ') + text; };
  EXPECT_EQ(free_row().r8(0.0).str(), field("0.0"));
  EXPECT_EQ(free_row().r8(-0.0).str(), field("-0.0"));
  EXPECT_EQ(free_row().r8(1.0).str(), field("1.0"));
  EXPECT_EQ(free_row().r8(0.1).str(), field("0.1"));
  EXPECT_EQ(free_row().r8(1.0 / 3.0).str(), field("0.3333333333333333"));
  EXPECT_EQ(free_row().r8(-2.0 / 3.0).str(), field("-0.6666666666666666")); // 0.66666666666666662..
  EXPECT_EQ(free_row().r8(123456789.125).str(), field("123456789.125"));
  EXPECT_EQ(free_row().r8(1e15).str(), field("1000000000000000.0"));
  EXPECT_EQ(free_row().r8(1e16).str(), field("1E+16"));
  EXPECT_EQ(free_row().r8(1e-4).str(), field("0.0001"));
  EXPECT_EQ(free_row().r8(1e-5).str(), field("1E-05"));
  EXPECT_EQ(free_row().r8(-1.5e-7).str(), field("-1.5E-07"));
  EXPECT_EQ(free_row().r8(1e100).str(), field("1E+100"));
  EXPECT_EQ(free_row().r8(std::numeric_limits<double>::quiet_NaN()).str(), field("NaN"));
  EXPECT_EQ(free_row().r8(std::numeric_limits<double>::infinity()).str(), field("Infinity"));
  EXPECT_EQ(free_row().r8(-std::numeric_limits<double>::infinity()).str(), field("-Infinity"));
}

TEST(free_row, reals_of_32_bits_fill_16_columns_with_9_digits) {
  const auto field = [](const std::string& text) { return std::string(17 - text.size(), ' ') + text; };
  EXPECT_EQ(free_row().r4(0.1F).str(), field("0.100000001")); // 0.10000000149..
  EXPECT_EQ(free_row().r4(2.0F).str(), field("2.0"));
  EXPECT_EQ(free_row().r4(16777216.0F).str(), field("16777216.0")); // 2^24
  EXPECT_EQ(free_row().r4(1e9F).str(), field("1E+09"));
  EXPECT_EQ(free_row().r4(std::numeric_limits<float>::quiet_NaN()).str(), field("NaN"));
}

TEST(free_row, text_begins_a_row_in_column_1_as_it_is) {
  EXPECT_EQ(free_row().text(" prodf : ").i(5).str(), " prodf :            5");
  EXPECT_EQ(free_row().text("Current round is").i(12).text("out of").i(300).str(),
            "Current round is          12 out of         300");
  EXPECT_EQ(free_row().i(1).text("a").text("b").str(), "           1 a b");
  EXPECT_EQ(free_row().text("").text("b").str(), " b");
}

TEST(free_row, logicals_are_one_letter_after_a_blank) {
  EXPECT_EQ(free_row().l(true).l(false).str(), " T F");
  EXPECT_EQ(free_row().text("x").l(true).str(), "x T");
}

TEST(free_row, a_row_is_never_wrapped) {
  free_row row;
  for (int i = 0; i < 1000; ++i) row.i(i);
  EXPECT_EQ(row.str().size(), 12000U);
  EXPECT_EQ(row.str().find('\n'), std::string::npos);
}

TEST(free_row, an_untouched_or_cleared_row_is_empty) {
  free_row row;
  EXPECT_EQ(row.str(), "");
  row.text("abc").i(1);
  EXPECT_EQ(row.clear().str(), "");
  EXPECT_EQ(row.text("abc").str(), "abc");
}

TEST(free_format, what_rows_write_the_reader_reads) {
  const scratch_file file;
  zeph::text_writer out;
  ASSERT_TRUE(out.open(file.path()));
  // 64-bit values of at most 16 digits come back exactly
  ASSERT_TRUE(
      out.line(free_row().i(-12).r8(0.1).r8(-1e-300).r8(-std::numeric_limits<double>::infinity()).str()));
  ASSERT_TRUE(out.close());
  free_reader reader;
  ASSERT_TRUE(reader.open(file.path()));
  reader.begin_read();
  EXPECT_EQ(next_integer(reader), -12);
  for (const double expected : {0.1, -1e-300, -std::numeric_limits<double>::infinity()}) {
    double x = 0;
    EXPECT_EQ(reader.real(x), 0);
    EXPECT_EQ(x, expected);
  }
}

} // namespace
