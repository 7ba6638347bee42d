// Sequential binary records: a file is a row of records, each framed by its
// length in bytes, before and after:
//
//   OFFSET  SIZE  MEANING
//   0       4     n, length of the data, signed, little-endian, 0 <= n < 2^31
//   4       n     the data: items one after another, no padding
//   4 + n   4     n again
//
// Items: integers of 4 and 8 bytes and IEEE reals of 4 and 8 bytes, all
// little-endian; logicals of 4 bytes, true when the lowest bit is set, written
// as 1 or 0; text of fixed length, blank padded. The record that holds the
// integer 7 and the text "ab" in four columns is, in hexadecimal,
//   08 00 00 00 | 07 00 00 00 | 61 62 20 20 | 08 00 00 00
#pragma once

#include "formats/byte_file.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace zeph {

static_assert(std::endian::native == std::endian::little, "records are viewed as they are in the file");

// Reads records one by one. The record is viewed in the read buffer: nothing
// is allocated per record, and the buffer grows only for a record that is
// longer than any before it and that the file is known to hold.
class sequential_reader {
public:
  // Values of `code` other than 0; the same numbers as the listing's "ios".
  static constexpr int end_of_file = -1;  // end of the file, or a broken frame
  static constexpr int short_record = 67; // the record ended before its items did
  static constexpr int read_fault = read_fault_code;

  // False when the file can't be opened. The first record comes next.
  bool open(const std::string& path);
  bool is_open() const { return source_.is_open(); }
  void rewind(); // the first record comes next again
  void close();

  // Loads the next record: 0, or -1 at the end of the file or at a broken
  // frame: a negative length, a length that reaches beyond the end of the
  // file, two lengths that differ, a frame cut short. After -1 it stays -1
  // until `rewind`. 5, in the same way, when the system could not read the file.
  // What was not taken from the last record is dropped.
  int next() {
    if (limit_ - frame_ >= 8) {
      const std::int32_t n = length_at(frame_);
      if (n >= 0 && n <= limit_ - frame_ - 8 && length_at(frame_ + 4 + n) == n) {
        hold(n);
        return 0;
      }
    }
    return next_slow();
  }

  // Of a -1: true when the frame was broken, false when the file ended after a whole record.
  bool broken() const { return broken_; }

  // Status of the current record: 0; 67 when an item did not fit; -1 when
  // there is no record, `next` having returned -1 or not been called.
  int code() const { return code_; }
  std::int64_t record_length() const { return end_ - begin_; } // bytes; 0 without a record
  std::int64_t bytes_left() const { return end_ - at_; }       // of the record, not yet taken

  // Items of the record, in order. When an item does not fit, code() becomes
  // 67, and this item and all taken after it keep their old values; of an
  // array of n elements those that fit are filled. n <= 0 takes nothing.
  void take(std::int32_t& x) { take_one(x); }
  void take(std::int64_t& x) { take_one(x); }
  void take(float& x) { take_one(x); }
  void take(double& x) { take_one(x); }
  void take(bool& x);
  void take(std::int32_t* x, std::int64_t n) { take_many(x, n, 4); }
  void take(std::int64_t* x, std::int64_t n) { take_many(x, n, 8); }
  void take(float* x, std::int64_t n) { take_many(x, n, 4); }
  void take(double* x, std::int64_t n) { take_many(x, n, 8); }
  void take(std::uint8_t* x, std::int64_t n);     // n logicals of 4 bytes each, as 1 or 0
  void take_text(std::string& x, std::int64_t n); // n bytes; x always leaves n long
  void skip(std::int64_t n);                      // skips n bytes

private:
  int next_slow();
  int fail(bool broken);
  bool have(std::int64_t n); // bytes frame_..frame_+n-1 are in the buffer
  void take_many(void* x, std::int64_t n, std::int64_t width);
  void run_short();

  std::int32_t length_at(std::int64_t place) const {
    std::int32_t n = 0;
    std::memcpy(&n, buffer_.data() + place, 4);
    return n;
  }

  // The record of n bytes at frame_ becomes the current one.
  void hold(std::int64_t n) {
    begin_ = at_ = frame_ + 4;
    end_ = begin_ + n;
    frame_ = end_ + 4;
    code_ = 0;
  }

  template <class T> void take_one(T& x) {
    if (end_ - at_ >= static_cast<std::int64_t>(sizeof(T))) {
      std::memcpy(&x, buffer_.data() + at_, sizeof(T));
      at_ += static_cast<std::int64_t>(sizeof(T));
    } else {
      run_short();
    }
  }

  byte_source source_;
  std::vector<char> buffer_; // bytes frame_..limit_-1 are read and not yet passed
  std::int64_t frame_ = 0;   // place in the buffer of the next frame
  std::int64_t limit_ = 0;   // bytes in the buffer
  std::int64_t unread_ = 0;  // bytes of the file beyond the buffer
  std::int64_t begin_ = 0;   // the current record: begin_..end_-1,
  std::int64_t at_ = 0;      // of which at_ is the next byte to take
  std::int64_t end_ = 0;
  int code_ = -1;
  bool broken_ = false;
};

// Writes records: begin, put .., put, end. A failure (a full disk, a record of
// 2^31 bytes or more, `put` outside of begin and end) is kept: from then on
// nothing is written and every call that returns bool returns false.
class sequential_writer {
public:
  sequential_writer() = default;
  ~sequential_writer() { close(); }
  sequential_writer(const sequential_writer&) = delete;
  sequential_writer& operator=(const sequential_writer&) = delete;

  bool open(const std::string& path); // made, or emptied when it exists
  bool is_open() const { return sink_.is_open(); }
  bool ok() const { return ok_; }

  // Allocates room for records of up to n bytes, so that writing them, in this file and in
  // those opened later, allocates nothing. False when storage runs out.
  bool reserve(std::int64_t n);
  std::int64_t room() const { return static_cast<std::int64_t>(buffer_.capacity()); } // bytes held

  void begin();
  void put(std::int32_t x) { put_bytes(&x, 4); }
  void put(std::int64_t x) { put_bytes(&x, 8); }
  void put(float x) { put_bytes(&x, 4); }
  void put(double x) { put_bytes(&x, 8); }
  void put(bool x) { put(static_cast<std::int32_t>(x)); }
  void put(const std::int32_t* x, std::int64_t n) { put_array(x, n, 4); }
  void put(const std::int64_t* x, std::int64_t n) { put_array(x, n, 8); }
  void put(const float* x, std::int64_t n) { put_array(x, n, 4); }
  void put(const double* x, std::int64_t n) { put_array(x, n, 8); }
  void put(const std::uint8_t* x, std::int64_t n);   // n logicals: 1 for any value but 0
  void put(const void*) = delete;                    // a pointer is not a logical
  void put_text(std::string_view x, std::int64_t n); // first n bytes, blank padded
  bool end();                                        // frames the record

  bool flush(); // all ended records handed to the system
  bool close(); // flushes; false too when a record was left open

private:
  void put_bytes(const void* x, std::int64_t n);
  void put_array(const void* x, std::int64_t n, std::int64_t width);

  byte_sink sink_;
  std::vector<char> buffer_; // ended records, then the current one
  std::int64_t start_ = -1;  // place in the buffer of the open record's frame, or -1
  bool ok_ = true;
};

} // namespace zeph
