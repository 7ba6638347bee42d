#include "formats/sequential_file.h"

#include <algorithm>
#include <limits>
#include <new>

namespace zeph {

namespace {

constexpr std::int64_t buffer_bytes = std::int64_t{1} << 18;
constexpr std::int64_t longest_record = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t frame_bytes = 8; // both lengths

} // namespace

// ---- reader

bool sequential_reader::open(const std::string& path) {
  close();
  if (!source_.open(path)) return false;
  unread_ = source_.size();
  buffer_.resize(static_cast<std::size_t>(std::min(buffer_bytes, std::max(unread_, frame_bytes))));
  return true;
}

void sequential_reader::rewind() {
  unread_ = source_.rewind() ? source_.size() : 0;
  frame_ = limit_ = 0;
  begin_ = at_ = end_ = 0;
  code_ = end_of_file;
  broken_ = false;
}

void sequential_reader::close() {
  source_.close();
  rewind();
}

// Past the last whole record. Nothing of the file is left, so the next call
// comes here again.
int sequential_reader::fail(bool broken) {
  begin_ = at_ = end_ = 0;
  frame_ = limit_ = 0;
  unread_ = 0;
  code_ = source_.failed() ? read_fault : end_of_file;
  broken_ = broken_ || broken;
  return code_;
}

bool sequential_reader::have(std::int64_t n) {
  if (limit_ - frame_ >= n) return true;
  // the rest of the buffer to its front, then as much of the file as there is room
  std::memmove(buffer_.data(), buffer_.data() + frame_, static_cast<std::size_t>(limit_ - frame_));
  limit_ -= frame_;
  frame_ = 0;
  const auto room = static_cast<std::int64_t>(buffer_.size());
  if (n > room) {
    try {
      buffer_.resize(static_cast<std::size_t>(std::max(n, 2 * room)));
    } catch (const std::bad_alloc&) {
      return false;
    }
  }
  const std::int64_t ask = std::min(static_cast<std::int64_t>(buffer_.size()) - limit_, unread_);
  const std::int64_t got = source_.read(buffer_.data() + limit_, ask);
  limit_ += got;
  unread_ -= got;
  return limit_ >= n;
}

int sequential_reader::next_slow() {
  // a frame is length, bytes, length; a length that the file cannot hold, or two that differ, end the file
  const std::int64_t left = limit_ - frame_ + unread_;
  if (left == 0) return fail(false);
  if (left < frame_bytes || !have(frame_bytes)) return fail(true);
  const std::int32_t n = length_at(frame_);
  if (n < 0 || n > left - frame_bytes) return fail(true);
  if (!have(n + frame_bytes)) return fail(true);
  if (length_at(frame_ + 4 + n) != n) return fail(true);
  hold(n);
  return 0;
}

void sequential_reader::run_short() {
  if (code_ == 0) code_ = short_record;
  at_ = end_;
}

void sequential_reader::take(bool& x) {
  std::int32_t word = x ? 1 : 0;
  take_one(word);
  x = (word & 1) != 0;
}

void sequential_reader::take_many(void* x, std::int64_t n, std::int64_t width) {
  const std::int64_t fits = std::min(n, (end_ - at_) / width);
  if (fits > 0) {
    std::memcpy(x, buffer_.data() + at_, static_cast<std::size_t>(fits * width));
    at_ += fits * width;
  }
  if (fits < n) run_short();
}

void sequential_reader::take(std::uint8_t* x, std::int64_t n) {
  const std::int64_t fits = std::min(n, (end_ - at_) / 4);
  for (std::int64_t i = 0; i < fits; ++i) {
    x[i] = static_cast<std::uint8_t>(buffer_[static_cast<std::size_t>(at_ + 4 * i)] & 1); // lowest byte first
  }
  if (fits > 0) at_ += 4 * fits;
  if (fits < n) run_short();
}

void sequential_reader::take_text(std::string& x, std::int64_t n) {
  if (n < 0) n = 0;
  if (n > end_ - at_) {
    run_short();
    x.resize(static_cast<std::size_t>(n), ' ');
    return;
  }
  x.assign(buffer_.data() + at_, static_cast<std::size_t>(n));
  at_ += n;
}

void sequential_reader::skip(std::int64_t n) {
  if (n > end_ - at_) {
    run_short();
  } else if (n > 0) {
    at_ += n;
  }
}

// ---- writer

bool sequential_writer::open(const std::string& path) {
  close();
  buffer_.clear();
  start_ = -1;
  ok_ = sink_.open(path, open_mode::truncate);
  return ok_;
}

bool sequential_writer::reserve(std::int64_t n) {
  if (n < 0 || n > longest_record) return false;
  try {
    buffer_.reserve(static_cast<std::size_t>(buffer_bytes + frame_bytes + n));
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

void sequential_writer::begin() {
  if (!is_open() || start_ >= 0) ok_ = false;
  if (!ok_) return;
  start_ = static_cast<std::int64_t>(buffer_.size());
  put_bytes("\0\0\0\0", 4); // the length comes at the end
}

void sequential_writer::put_bytes(const void* x, std::int64_t n) {
  if (start_ < 0) ok_ = false;
  if (!ok_ || n <= 0) return;
  const std::int64_t used = static_cast<std::int64_t>(buffer_.size()) - start_;
  if (n > longest_record + 4 - used) {
    ok_ = false;
    return;
  }
  try {
    const char* from = static_cast<const char*>(x);
    buffer_.insert(buffer_.end(), from, from + n);
  } catch (const std::bad_alloc&) {
    ok_ = false;
  }
}

void sequential_writer::put_array(const void* x, std::int64_t n, std::int64_t width) {
  if (n > longest_record / width) {
    ok_ = false;
    return;
  }
  put_bytes(x, n * width);
}

void sequential_writer::put(const std::uint8_t* x, std::int64_t n) {
  for (std::int64_t i = 0; i < n && ok_; ++i) put(x[i] != 0);
}

void sequential_writer::put_text(std::string_view x, std::int64_t n) {
  const auto given = std::min(n, static_cast<std::int64_t>(x.size()));
  put_bytes(x.data(), given);
  for (std::int64_t i = given; i < n && ok_; ++i) put_bytes(" ", 1);
}

bool sequential_writer::end() {
  if (start_ < 0) ok_ = false;
  if (!ok_) return false;
  const auto length = static_cast<std::int32_t>(static_cast<std::int64_t>(buffer_.size()) - start_ - 4);
  try {
    buffer_.resize(buffer_.size() + 4);
  } catch (const std::bad_alloc&) {
    ok_ = false;
    return false;
  }
  std::memcpy(buffer_.data() + start_, &length, 4);
  std::memcpy(buffer_.data() + buffer_.size() - 4, &length, 4);
  start_ = -1;
  return static_cast<std::int64_t>(buffer_.size()) < buffer_bytes || flush();
}

bool sequential_writer::flush() {
  // a record under construction stays in the buffer
  const auto ended = start_ >= 0 ? start_ : static_cast<std::int64_t>(buffer_.size());
  if (ok_ && ended > 0) {
    ok_ = sink_.write(buffer_.data(), ended);
    buffer_.erase(buffer_.begin(), buffer_.begin() + ended);
    if (start_ >= 0) start_ = 0;
  }
  return ok_;
}

bool sequential_writer::close() {
  if (!is_open()) return ok_;
  flush();
  if (start_ >= 0) ok_ = false;
  start_ = -1;
  buffer_.clear();
  if (!sink_.close()) ok_ = false;
  return ok_;
}

} // namespace zeph
