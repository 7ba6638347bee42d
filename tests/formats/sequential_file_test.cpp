#include "formats/sequential_file.h"

#include "scratch_file.h"
#include "support/skip_reasons.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

namespace {

using zeph::sequential_reader;
using zeph::sequential_writer;
using zeph_test::bytes;
using zeph_test::scratch_file;

// A frame of one integer, 8 bytes of lengths and 4 of data.
std::string frame_of(int value) {
  return bytes({4, 0, 0, 0}) + bytes({value, 0, 0, 0}) + bytes({4, 0, 0, 0});
}

// One record with every type of item, its bytes by hand:
//   i4  -2            two's complement, lowest byte first
//   i8  2^32 + 5      5 in the low half, 1 in the high half
//   r4  1.5           sign 0, exponent 127, fraction .1b: 3F C0 00 00
//   r8  -2.0          sign 1, exponent 1024, fraction 0:  C0 00 00 00 00 00 00 00
//   l4  true
//   c4  "ab  "
//   l4 false, true
const std::string all_types = bytes({40, 0, 0, 0}) +                      //
                              bytes({0xFE, 0xFF, 0xFF, 0xFF}) +           //
                              bytes({5, 0, 0, 0, 1, 0, 0, 0}) +           //
                              bytes({0, 0, 0xC0, 0x3F}) +                 //
                              bytes({0, 0, 0, 0, 0, 0, 0, 0xC0}) +        //
                              bytes({1, 0, 0, 0}) + "ab  " +              //
                              bytes({0, 0, 0, 0}) + bytes({1, 0, 0, 0}) + //
                              bytes({40, 0, 0, 0});

TEST(sequential_reader, reads_hand_written_bytes_of_every_type) {
  const scratch_file file(all_types);
  sequential_reader in;
  ASSERT_TRUE(in.open(file.path()));
  ASSERT_EQ(in.next(), 0);
  EXPECT_EQ(in.record_length(), 40);
  std::int32_t i4 = 0;
  std::int64_t i8 = 0;
  float r4 = 0;
  double r8 = 0;
  bool l4 = false;
  std::string c4;
  std::uint8_t flags[2] = {9, 9};
  in.take(i4);
  in.take(i8);
  in.take(r4);
  in.take(r8);
  in.take(l4);
  in.take_text(c4, 4);
  in.take(flags, 2);
  EXPECT_EQ(in.code(), 0);
  EXPECT_EQ(in.bytes_left(), 0);
  EXPECT_EQ(i4, -2);
  EXPECT_EQ(i8, 4294967301);
  EXPECT_EQ(r4, 1.5F);
  EXPECT_EQ(r8, -2.0);
  EXPECT_TRUE(l4);
  EXPECT_EQ(c4, "ab  ");
  EXPECT_EQ(flags[0], 0);
  EXPECT_EQ(flags[1], 1);
  EXPECT_EQ(in.next(), -1);
  EXPECT_FALSE(in.broken());
}

TEST(sequential_writer, writes_hand_written_bytes_of_every_type) {
  const scratch_file file;
  sequential_writer out;
  ASSERT_TRUE(out.open(file.path()));
  const std::uint8_t flags[2] = {0, 7}; // any value but 0 is true, written as 1
  out.begin();
  out.put(std::int32_t{-2});
  out.put(std::int64_t{4294967301});
  out.put(1.5F);
  out.put(-2.0);
  out.put(true);
  out.put_text("ab", 4);
  out.put(flags, 2);
  EXPECT_TRUE(out.end());
  EXPECT_TRUE(out.close());
  EXPECT_EQ(file.read(), all_types);
}

TEST(sequential_writer, text_longer_than_its_columns_is_cut) {
  const scratch_file file;
  sequential_writer out;
  ASSERT_TRUE(out.open(file.path()));
  out.begin();
  out.put_text("abcdef", 3);
  EXPECT_TRUE(out.end());
  EXPECT_TRUE(out.close());
  EXPECT_EQ(file.read(), bytes({3, 0, 0, 0}) + "abc" + bytes({3, 0, 0, 0}));
}

TEST(sequential_reader, the_lowest_bit_makes_a_logical_true) {
  // 2: false; 3: true; -1 (all bits): true; -2: false; 256 (bit 8): false
  const std::string data = bytes({2, 0, 0, 0}) + bytes({3, 0, 0, 0}) + bytes({0xFF, 0xFF, 0xFF, 0xFF}) +
                           bytes({0xFE, 0xFF, 0xFF, 0xFF}) + bytes({0, 1, 0, 0});
  const scratch_file file(bytes({20, 0, 0, 0}) + data + bytes({20, 0, 0, 0}));
  sequential_reader in;
  ASSERT_TRUE(in.open(file.path()));
  ASSERT_EQ(in.next(), 0);
  const std::vector<bool> expected = {false, true, true, false, false};
  for (const bool truth : expected) {
    bool x = !truth;
    in.take(x);
    EXPECT_EQ(x, truth);
  }
  in.rewind();
  ASSERT_EQ(in.next(), 0);
  std::uint8_t flags[5];
  in.take(flags, 5);
  for (std::size_t i = 0; i < 5; ++i) EXPECT_EQ(flags[i], expected[i] ? 1 : 0);
}

TEST(sequential_reader, an_empty_file_is_at_its_end) {
  const scratch_file file("");
  sequential_reader in;
  ASSERT_TRUE(in.open(file.path()));
  EXPECT_EQ(in.next(), -1);
  EXPECT_EQ(in.code(), -1);
  EXPECT_FALSE(in.broken());
}

TEST(sequential_reader, missing_file_and_directory_do_not_open) {
  const scratch_file file;
  sequential_reader in;
  EXPECT_FALSE(in.open(file.path()));
  EXPECT_FALSE(in.open(file.directory()));
  EXPECT_FALSE(in.is_open());
  EXPECT_EQ(in.next(), -1);
  EXPECT_FALSE(in.broken());
}

TEST(sequential_reader, every_broken_frame_is_minus_one_after_the_good_record) {
  const std::string four = bytes({4, 0, 0, 0});
  const std::string data = bytes({9, 0, 0, 0});
  const struct {
    const char* what;
    std::string tail;
  } cases[] = {
      {"one byte of a length", bytes({4})},
      {"three bytes of a length", bytes({4, 0, 0})},
      {"a length alone", four},
      {"data cut short", four + bytes({9, 0})},
      {"no second length", four + data},
      {"second length cut short", four + data + bytes({4, 0, 0})},
      {"second length larger", four + data + bytes({5, 0, 0, 0})},
      {"second length smaller", four + data + bytes({0, 0, 0, 0})},
      {"second length negative", four + data + bytes({0xFC, 0xFF, 0xFF, 0xFF})},
      {"lengths -4", bytes({0xFC, 0xFF, 0xFF, 0xFF}) + data + bytes({0xFC, 0xFF, 0xFF, 0xFF})},
      {"length -2^31", bytes({0, 0, 0, 0x80}) + data + bytes({0, 0, 0, 0x80})},
      {"length one too long for the file", bytes({5, 0, 0, 0}) + data + bytes({5, 0, 0, 0})},
      {"length 2^31 - 1", bytes({0xFF, 0xFF, 0xFF, 0x7F}) + data + bytes({0xFF, 0xFF, 0xFF, 0x7F})},
      {"empty record without its second length", bytes({0, 0, 0, 0})},
  };
  for (const auto& [what, tail] : cases) {
    const scratch_file file(frame_of(7) + tail);
    sequential_reader in;
    ASSERT_TRUE(in.open(file.path()));
    ASSERT_EQ(in.next(), 0) << what;
    std::int32_t x = 0;
    in.take(x);
    EXPECT_EQ(x, 7) << what;
    EXPECT_EQ(in.next(), -1) << what;
    EXPECT_TRUE(in.broken()) << what;
    EXPECT_EQ(in.code(), -1) << what;
    EXPECT_EQ(in.record_length(), 0) << what;
    in.take(x); // nothing to take
    EXPECT_EQ(x, 7) << what;
    EXPECT_EQ(in.code(), -1) << what;
    EXPECT_EQ(in.next(), -1) << what; // it stays so
    EXPECT_TRUE(in.broken()) << what;
    in.rewind();
    EXPECT_EQ(in.next(), 0) << what;
    EXPECT_FALSE(in.broken()) << what;
  }
}

TEST(sequential_reader, a_broken_frame_hides_the_good_records_after_it) {
  const scratch_file file(bytes({4, 0, 0, 0}) + bytes({1, 0, 0, 0}) + bytes({8, 0, 0, 0}) + frame_of(2));
  sequential_reader in;
  ASSERT_TRUE(in.open(file.path()));
  EXPECT_EQ(in.next(), -1);
  EXPECT_EQ(in.next(), -1);
}

TEST(sequential_reader, a_short_record_fills_what_fits_and_is_67_until_the_next) {
  const scratch_file file(frame_of(7) + frame_of(8));
  sequential_reader in;
  ASSERT_TRUE(in.open(file.path()));
  ASSERT_EQ(in.next(), 0);
  std::int32_t a = 0, b = 0;
  in.take(a);
  EXPECT_EQ(in.code(), 0);
  in.take(b);
  EXPECT_EQ(in.code(), 67);
  EXPECT_EQ(a, 7);
  EXPECT_EQ(b, 0);
  ASSERT_EQ(in.next(), 0);
  EXPECT_EQ(in.code(), 0);
  in.take(a);
  EXPECT_EQ(a, 8);
}

TEST(sequential_reader, no_item_fits_after_one_that_did_not) {
  const scratch_file file(frame_of(7));
  sequential_reader in;
  ASSERT_TRUE(in.open(file.path()));
  ASSERT_EQ(in.next(), 0);
  double wide = 0;
  std::int32_t narrow = 0;
  bool flag = true;
  std::string text = "x";
  std::uint8_t flags[1] = {5};
  in.take(wide); // 8 bytes of 4
  in.take(narrow);
  in.take(flag);
  in.take_text(text, 3);
  in.take(flags, 1);
  EXPECT_EQ(in.code(), 67);
  EXPECT_EQ(wide, 0.0);
  EXPECT_EQ(narrow, 0);
  EXPECT_TRUE(flag);
  EXPECT_EQ(text, "x  ");
  EXPECT_EQ(flags[0], 5);
}

TEST(sequential_reader, of_a_short_array_the_elements_that_fit_are_filled) {
  // 10 bytes: two integers and a half
  const std::string data = bytes({1, 0, 0, 0}) + bytes({3, 0, 0, 0}) + bytes({3, 0});
  const scratch_file file(bytes({10, 0, 0, 0}) + data + bytes({10, 0, 0, 0}));
  sequential_reader in;
  ASSERT_TRUE(in.open(file.path()));
  ASSERT_EQ(in.next(), 0);
  std::int32_t x[4] = {0, 0, 0, 0};
  in.take(x, 4);
  EXPECT_EQ(in.code(), 67);
  EXPECT_EQ(x[0], 1);
  EXPECT_EQ(x[1], 3);
  EXPECT_EQ(x[2], 0);
  EXPECT_EQ(x[3], 0);
  in.rewind();
  ASSERT_EQ(in.next(), 0);
  std::uint8_t flags[4] = {0, 0, 0, 0};
  in.take(flags, 4);
  EXPECT_EQ(in.code(), 67);
  EXPECT_EQ(flags[0], 1);
  EXPECT_EQ(flags[1], 1);
  EXPECT_EQ(flags[2], 0);
}

TEST(sequential_reader, the_rest_of_a_longer_record_is_dropped) {
  const scratch_file file(all_types + frame_of(3));
  sequential_reader in;
  ASSERT_TRUE(in.open(file.path()));
  ASSERT_EQ(in.next(), 0);
  std::int32_t x = 0;
  in.take(x);
  EXPECT_EQ(in.code(), 0);
  EXPECT_EQ(in.bytes_left(), 36);
  ASSERT_EQ(in.next(), 0);
  in.take(x);
  EXPECT_EQ(x, 3);
}

TEST(sequential_reader, skip_passes_bytes_and_can_run_short) {
  const scratch_file file(all_types);
  sequential_reader in;
  ASSERT_TRUE(in.open(file.path()));
  ASSERT_EQ(in.next(), 0);
  in.skip(28); // up to the text
  std::string text;
  in.take_text(text, 2);
  EXPECT_EQ(text, "ab");
  in.skip(10);
  EXPECT_EQ(in.code(), 0);
  in.skip(1);
  EXPECT_EQ(in.code(), 67);
}

TEST(sequential_reader, a_record_of_length_zero_is_a_record) {
  const scratch_file file(bytes({0, 0, 0, 0, 0, 0, 0, 0}) + frame_of(5));
  sequential_reader in;
  ASSERT_TRUE(in.open(file.path()));
  ASSERT_EQ(in.next(), 0);
  EXPECT_EQ(in.record_length(), 0);
  in.take(static_cast<double*>(nullptr), 0);
  EXPECT_EQ(in.code(), 0);
  std::int32_t x = 1;
  in.take(x);
  EXPECT_EQ(in.code(), 67);
  EXPECT_EQ(x, 1);
  ASSERT_EQ(in.next(), 0);
  in.take(x);
  EXPECT_EQ(x, 5);
  EXPECT_EQ(in.next(), -1);
  EXPECT_FALSE(in.broken());
}

TEST(sequential_writer, a_record_without_items_has_two_lengths_of_zero) {
  const scratch_file file;
  sequential_writer out;
  ASSERT_TRUE(out.open(file.path()));
  out.begin();
  EXPECT_TRUE(out.end());
  EXPECT_TRUE(out.close());
  EXPECT_EQ(file.read(), bytes({0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(sequential_file, extreme_values_and_arrays_come_back) {
  const std::vector<std::int32_t> i4 = {std::numeric_limits<std::int32_t>::min(), -1, 0, 1,
                                        std::numeric_limits<std::int32_t>::max()};
  const std::vector<std::int64_t> i8 = {std::numeric_limits<std::int64_t>::min(),
                                        std::numeric_limits<std::int64_t>::max()};
  const std::vector<float> r4 = {0.1F, std::numeric_limits<float>::denorm_min(),
                                 std::numeric_limits<float>::max()};
  const std::vector<double> r8 = {0.1, -std::numeric_limits<double>::infinity(),
                                  std::numeric_limits<double>::denorm_min()};
  const scratch_file file;
  sequential_writer out;
  ASSERT_TRUE(out.open(file.path()));
  out.begin();
  out.put(i4.data(), 5);
  out.put(i8.data(), 2);
  out.put(r4.data(), 3);
  out.put(r8.data(), 3);
  out.put(std::numeric_limits<double>::quiet_NaN());
  out.put(-0.0);
  out.put(i4.data(), 0);
  ASSERT_TRUE(out.end());
  ASSERT_TRUE(out.close());

  sequential_reader in;
  ASSERT_TRUE(in.open(file.path()));
  ASSERT_EQ(in.next(), 0);
  std::vector<std::int32_t> i4_back(5);
  std::vector<std::int64_t> i8_back(2);
  std::vector<float> r4_back(3);
  std::vector<double> r8_back(3);
  double nan = 0, minus_zero = 1;
  in.take(i4_back.data(), 5);
  in.take(i8_back.data(), 2);
  in.take(r4_back.data(), 3);
  in.take(r8_back.data(), 3);
  in.take(nan);
  in.take(minus_zero);
  EXPECT_EQ(in.code(), 0);
  EXPECT_EQ(in.bytes_left(), 0);
  EXPECT_EQ(i4_back, i4);
  EXPECT_EQ(i8_back, i8);
  EXPECT_EQ(r4_back, r4);
  EXPECT_EQ(r8_back, r8);
  EXPECT_TRUE(std::isnan(nan));
  EXPECT_TRUE(std::signbit(minus_zero));
}

TEST(sequential_file, records_cross_and_outgrow_the_buffer) {
  // record r holds r * 37 mod 5000 doubles; three hold a million, more than any buffer
  const auto doubles_of = [](int r) { return r % 100 == 99 ? 1000000 : r * 37 % 5000; };
  const scratch_file file;
  sequential_writer out;
  ASSERT_TRUE(out.open(file.path()));
  std::vector<double> data(1000000);
  for (int r = 0; r < 300; ++r) {
    for (int i = 0; i < doubles_of(r); ++i) data[static_cast<std::size_t>(i)] = r + i * 0.5;
    out.begin();
    out.put(std::int32_t{r});
    out.put(data.data(), doubles_of(r));
    ASSERT_TRUE(out.end());
  }
  ASSERT_TRUE(out.close());

  sequential_reader in;
  ASSERT_TRUE(in.open(file.path()));
  for (int pass = 0; pass < 2; ++pass) {
    for (int r = 0; r < 300; ++r) {
      ASSERT_EQ(in.next(), 0);
      ASSERT_EQ(in.record_length(), 4 + 8 * doubles_of(r));
      std::int32_t number = -1;
      in.take(number);
      ASSERT_EQ(number, r);
      in.take(data.data(), doubles_of(r));
      ASSERT_EQ(in.code(), 0);
      for (int i = 0; i < doubles_of(r); ++i) ASSERT_EQ(data[static_cast<std::size_t>(i)], r + i * 0.5);
    }
    EXPECT_EQ(in.next(), -1);
    EXPECT_FALSE(in.broken());
    in.rewind();
  }
}

TEST(sequential_reader, a_file_cut_after_opening_is_a_broken_frame) {
  const scratch_file file(std::string(bytes({0, 0, 16, 0})) + std::string(1048576, 'x') +
                          bytes({0, 0, 16, 0}));
  sequential_reader in;
  ASSERT_TRUE(in.open(file.path()));
  std::filesystem::resize_file(file.path(), 1000);
  EXPECT_EQ(in.next(), -1);
  EXPECT_TRUE(in.broken());
}

TEST(sequential_reader, a_reader_can_be_closed_and_opened_again) {
  const scratch_file first(frame_of(1)), second(frame_of(2));
  sequential_reader in;
  ASSERT_TRUE(in.open(first.path()));
  ASSERT_EQ(in.next(), 0);
  in.close();
  EXPECT_FALSE(in.is_open());
  EXPECT_EQ(in.next(), -1);
  EXPECT_EQ(in.code(), -1);
  ASSERT_TRUE(in.open(first.path()));
  ASSERT_TRUE(in.open(second.path()));
  ASSERT_EQ(in.next(), 0);
  std::int32_t x = 0;
  in.take(x);
  EXPECT_EQ(x, 2);
}

TEST(sequential_writer, flush_hands_over_the_ended_records_only) {
  const scratch_file file;
  sequential_writer out;
  ASSERT_TRUE(out.open(file.path()));
  out.begin();
  out.put(std::int32_t{1});
  ASSERT_TRUE(out.end());
  out.begin();
  out.put(std::int32_t{2});
  ASSERT_TRUE(out.flush());
  EXPECT_EQ(file.read(), frame_of(1));
  ASSERT_TRUE(out.end());
  ASSERT_TRUE(out.close());
  EXPECT_EQ(file.read(), frame_of(1) + frame_of(2));
}

TEST(sequential_writer, the_destructor_closes) {
  const scratch_file file;
  {
    sequential_writer out;
    ASSERT_TRUE(out.open(file.path()));
    out.begin();
    out.put(std::int32_t{1});
    ASSERT_TRUE(out.end());
  }
  EXPECT_EQ(file.read(), frame_of(1));
}

TEST(sequential_writer, calls_out_of_order_fail_and_stay_failed) {
  const scratch_file file;
  sequential_writer out;
  EXPECT_TRUE(out.close()); // never opened
  ASSERT_TRUE(out.open(file.path()));
  EXPECT_FALSE(out.end()); // no begin
  EXPECT_FALSE(out.close());

  ASSERT_TRUE(out.open(file.path()));
  out.put(std::int32_t{1}); // outside of a record
  EXPECT_FALSE(out.ok());

  ASSERT_TRUE(out.open(file.path()));
  out.begin();
  out.begin(); // twice
  EXPECT_FALSE(out.end());

  ASSERT_TRUE(out.open(file.path()));
  out.begin();
  EXPECT_FALSE(out.close()); // left open
  EXPECT_EQ(file.read(), "");

  sequential_writer never;
  never.begin();
  EXPECT_FALSE(never.ok());
}

TEST(sequential_writer, a_record_of_2_to_the_31_bytes_is_refused) {
  const scratch_file file;
  sequential_writer out;
  ASSERT_TRUE(out.open(file.path()));
  out.begin();
  const double one = 1.0;
  out.put(&one, std::int64_t{1} << 28); // 2^28 * 8 = 2^31: refused before anything is read
  EXPECT_FALSE(out.ok());
  EXPECT_FALSE(out.end());
}

TEST(sequential_writer, a_full_disk_is_reported) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << zeph_test::no_dev_full;
  sequential_writer out;
  ASSERT_TRUE(out.open("/dev/full"));
  out.begin();
  out.put(std::int32_t{1});
  EXPECT_TRUE(out.end()); // still in the buffer
  EXPECT_FALSE(out.flush());
  EXPECT_FALSE(out.ok());
  EXPECT_FALSE(out.close());
}

TEST(sequential_writer, a_directory_that_is_missing_does_not_open) {
  sequential_writer out;
  EXPECT_FALSE(out.open("/no/such/directory/file"));
  EXPECT_FALSE(out.ok());
}

TEST(sequential_writer, takes_no_storage_for_records_that_it_has_reserved) {
  const scratch_file file;
  sequential_writer out;
  constexpr std::int64_t n = 200000; // 1.6 MB, beyond the buffer
  ASSERT_TRUE(out.reserve(8 * n));
  const std::int64_t room = out.room();
  const std::vector<double> values(n, 1.5);
  for (int time = 1; time <= 2; ++time) { // also in the next file
    ASSERT_TRUE(out.open(file.path()));
    for (int record = 1; record <= 3; ++record) {
      out.begin();
      for (const double x : values) out.put(x);
      ASSERT_TRUE(out.end());
    }
    ASSERT_TRUE(out.close());
    EXPECT_EQ(out.room(), room);
  }
  EXPECT_FALSE(out.reserve(-1));
  EXPECT_FALSE(out.reserve(std::int64_t{1} << 31)); // no record is that long
}

} // namespace
