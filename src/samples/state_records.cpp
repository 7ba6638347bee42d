#include "samples/state_records.h"

#include "listing/stops.h"

#include <algorithm>
#include <cstring>

namespace zeph {
namespace {

constexpr std::size_t buffer_bytes = std::size_t{1} << 18;
constexpr std::int64_t head_bytes = static_cast<std::int64_t>(state_head.size());
constexpr std::int64_t sum_bytes = static_cast<std::int64_t>(sha256::length);

std::string elements_of(std::int64_t size, std::int64_t count) {
  return std::to_string(count) + " elements of " + std::to_string(size) + " bytes";
}

} // namespace

// ---- writer

state_writer::state_writer() : buffer_(buffer_bytes) {}

bool state_writer::open(const std::string& path) {
  sum_.restart();
  used_ = 0;
  ok_ = sink_.open(path, open_mode::truncate);
  bytes(state_head.data(), head_bytes);
  return ok_;
}

void state_writer::pass_on() {
  sum_.add(buffer_.data(), used_);
  ok_ = ok_ && sink_.write(buffer_.data(), static_cast<std::int64_t>(used_));
  used_ = 0;
}

void state_writer::bytes(const void* x, std::int64_t n) {
  if (!ok_ || n <= 0) return;
  const auto length = static_cast<std::size_t>(n);
  if (used_ + length > buffer_.size()) pass_on();
  if (length <= buffer_.size()) {
    std::memcpy(buffer_.data() + used_, x, length);
    used_ += length;
    return;
  }
  // longer than the buffer: as it is, without a copy
  sum_.add(x, length);
  ok_ = ok_ && sink_.write(static_cast<const char*>(x), n);
}

void state_writer::begin(std::string_view name, std::int64_t size, std::int64_t count) {
  const auto length = static_cast<std::int32_t>(name.size()), width = static_cast<std::int32_t>(size);
  bytes(&length, sizeof length);
  bytes(name.data(), length);
  bytes(&width, sizeof width);
  bytes(&count, sizeof count);
}

bool state_writer::finish() {
  pass_on();
  const std::string sum = sum_.digits();
  ok_ = ok_ && sink_.write(sum.data(), sum_bytes) && sink_.sync();
  return sink_.close() && ok_;
}

// ---- reader

state_reader::state_reader(reporting& report) : report_(&report), buffer_(buffer_bytes) {}

void state_reader::refuse(std::string_view item, std::string_view value, std::string_view rule) {
  illegal_input(*report_, given_state_file, item, {}, value, rule);
}

void state_reader::open(const std::string& path) {
  constexpr std::string_view head_rule = "a state of a chain as ZEPH writes it to statelast, version 1";
  if (!source_.open(path)) read_fault(*report_, given_state_file);
  char head[state_head.size()] = {};
  if (source_.size() < head_bytes + sum_bytes || source_.read(head, head_bytes) != head_bytes ||
      std::string_view(head, state_head.size()) != state_head)
    refuse("head", "no state", head_rule);

  sha256 sum;
  sum.add(head, sizeof head);
  left_ = source_.size() - head_bytes - sum_bytes;
  for (std::int64_t todo = left_; todo > 0;) {
    const std::int64_t n = std::min(todo, static_cast<std::int64_t>(buffer_.size()));
    if (source_.read(buffer_.data(), n) != n) read_fault(*report_, given_state_file);
    sum.add(buffer_.data(), static_cast<std::size_t>(n));
    todo -= n;
  }
  char digits[sha256::length] = {};
  if (source_.read(digits, sum_bytes) != sum_bytes) read_fault(*report_, given_state_file);
  if (std::string_view(digits, sha256::length) != sum.digits())
    refuse("checksum", "another", "the SHA-256 of all bytes before it: the file was cut or changed");
  at_ = limit_ = 0;
  if (!source_.rewind() || source_.read(head, head_bytes) != head_bytes)
    read_fault(*report_, given_state_file);
}

void state_reader::take(void* x, std::int64_t n) {
  left_ -= n;
  char* to = static_cast<char*>(x);
  while (n > 0) {
    if (at_ == limit_) {
      if (n >= static_cast<std::int64_t>(buffer_.size())) { // as it is, without a copy
        if (source_.read(to, n) != n) read_fault(*report_, given_state_file);
        return;
      }
      at_ = 0;
      limit_ = source_.read(buffer_.data(), static_cast<std::int64_t>(buffer_.size()));
      if (limit_ == 0) read_fault(*report_, given_state_file);
    }
    const std::int64_t ready = std::min(n, limit_ - at_);
    std::memcpy(to, buffer_.data() + at_, static_cast<std::size_t>(ready));
    at_ += ready, to += ready, n -= ready;
  }
}

void state_reader::begin(std::string_view name, std::int64_t size, std::int64_t count) {
  std::int32_t length = 0, width = 0;
  std::int64_t elements = 0;
  char found[64] = {};
  const auto wanted = static_cast<std::int64_t>(name.size());
  if (left_ >= 4) take(&length, 4);
  // a name as long as the wanted one, hence no longer than those of the program
  if (length != wanted || wanted > static_cast<std::int64_t>(sizeof found) || left_ < wanted + 12)
    refuse(name, "another block", "the block of this name");
  take(found, wanted);
  if (std::string_view(found, name.size()) != name) refuse(name, "another block", "the block of this name");
  take(&width, 4);
  take(&elements, 8);
  if (width != size || elements != count || left_ < size * count)
    refuse(name, elements_of(width, elements), elements_of(size, count));
}

void state_reader::bytes(void* x, std::int64_t n) {
  if (n > 0) take(x, n);
}

void state_reader::finish() {
  if (left_ != 0) refuse("end", std::to_string(left_) + " bytes more", "the end of the last block");
  source_.close();
}

} // namespace zeph
