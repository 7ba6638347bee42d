#include "formats/text_file.h"

#include "formats/whole_file.h"

#include <algorithm>

namespace zeph {

namespace {

constexpr std::size_t buffer_bytes = std::size_t{1} << 16;

} // namespace

// ---- writer

bool text_writer::start(const std::string& path, open_mode mode) {
  close();
  buffer_.clear();
  ok_ = sink_.open(path, mode);
  return ok_;
}

bool text_writer::open(const std::string& path) { return start(path, open_mode::truncate); }
bool text_writer::open_append(const std::string& path) { return start(path, open_mode::append); }
bool text_writer::open_new(const std::string& path) { return start(path, open_mode::fresh); }

bool text_writer::line(std::string_view text) {
  if (!is_open()) ok_ = false;
  if (!ok_) return false;
  buffer_.append(text);
  buffer_.push_back('\n');
  return buffer_.size() < buffer_bytes || flush();
}

bool text_writer::flush() {
  if (ok_ && !buffer_.empty()) ok_ = sink_.write(buffer_.data(), static_cast<std::int64_t>(buffer_.size()));
  buffer_.clear();
  return ok_;
}

bool text_writer::close() {
  if (!is_open()) return ok_;
  flush();
  if (!sink_.close()) ok_ = false;
  return ok_;
}

// ---- readers

bool rewrite_line(const std::string& path, std::string_view text) {
  char place[512];
  std::string longer;
  const char* line = place;
  if (text.size() < sizeof place) {
    *std::copy(text.begin(), text.end(), place) = '\n';
  } else {
    longer.append(text) += '\n';
    line = longer.data();
  }
  const auto length = static_cast<std::int64_t>(text.size()) + 1;
  byte_sink file;
  // a line of the same length is overwritten in place, without a new file
  if (size_of_file(path) == length)
    return file.open(path, open_mode::in_place) && file.write(line, length) && file.close();
  whole_file whole(path);
  return file.open(whole.path(), open_mode::truncate) && file.write(line, length) && file.close() &&
         whole.publish();
}

bool byte_reader::open(const std::string& path) {
  close();
  if (!source_.open(path)) return false;
  buffer_.resize(buffer_bytes);
  return true;
}

void byte_reader::rewind() {
  source_.rewind();
  at_ = limit_ = 0;
}

void byte_reader::close() {
  source_.close();
  at_ = limit_ = 0;
}

bool byte_reader::fill() {
  at_ = 0;
  limit_ = static_cast<std::size_t>(source_.read(buffer_.data(), static_cast<std::int64_t>(buffer_.size())));
  return limit_ > 0;
}

bool text_reader::line(std::string& text) {
  text.clear();
  int c = bytes_.get();
  if (c < 0) return false;
  for (; c >= 0 && c != '\n'; c = bytes_.get()) text.push_back(static_cast<char>(c));
  if (!text.empty() && text.back() == '\r') text.pop_back();
  return true;
}

} // namespace zeph
