#include "formats/free_format.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace zeph {

namespace {

constexpr std::size_t longest_token = 4096;

bool is_separator(int c) { return c == ' ' || c == '\t' || c == ',' || c == '\r' || c == '\n'; }
bool is_digit(char c) { return c >= '0' && c <= '9'; }

// The text after a plus sign; a minus stays for the caller.
std::string_view without_plus(std::string_view x) { return x.starts_with('+') ? x.substr(1) : x; }

bool equal_in_any_case(std::string_view x, std::string_view lower) {
  return std::equal(x.begin(), x.end(), lower.begin(), lower.end(), [](char a, char b) {
    return (a >= 'A' && a <= 'Z' ? static_cast<char>(a - 'A' + 'a') : a) == b;
  });
}

// NaN and the infinities, after the sign.
bool named_value(std::string_view x, double& value) {
  if (equal_in_any_case(x, "nan")) {
    value = std::numeric_limits<double>::quiet_NaN();
  } else if (equal_in_any_case(x, "inf") || equal_in_any_case(x, "infinity")) {
    value = std::numeric_limits<double>::infinity();
  } else {
    return false;
  }
  return true;
}

// An unsigned number; changes the exponent letter of the text to e.
bool plain_value(std::string& text, std::string_view x, double& value) {
  if (x.empty() || !(is_digit(x.front()) || x.front() == '.')) return false;
  for (char& c : text) {
    if (c == 'd' || c == 'D') c = 'e';
  }
  const auto [end, status] = std::from_chars(x.data(), x.data() + x.size(), value);
  if (status == std::errc::invalid_argument || end != x.data() + x.size()) return false;
  // too small becomes the nearest number, too large is refused
  if (status == std::errc::result_out_of_range) value = std::strtod(x.data(), nullptr);
  return std::isfinite(value);
}

// Takes the count off n*v. False when the count is not a number above 0 or
// nothing follows the star. A count beyond 64 bits counts as the largest.
bool split_repeat(std::string& token, std::int64_t& count) {
  const std::size_t star = token.find('*');
  count = 1;
  if (star == std::string::npos) return true;
  if (star == 0 || star + 1 == token.size()) return false;
  const char* last = token.data() + star;
  if (!is_digit(token.front())) return false;
  const auto [end, status] = std::from_chars(token.data(), last, count);
  if (end != last) return false;
  if (status == std::errc::result_out_of_range) count = std::numeric_limits<std::int64_t>::max();
  token.erase(0, star + 1);
  return count > 0;
}

// %.<digits>G of x, with ".0" after what would look like an integer; kept in `place`.
std::string_view general_real(double x, int digits, char (&place)[64]) {
  if (std::isnan(x)) return "NaN";
  if (std::isinf(x)) return x > 0 ? "Infinity" : "-Infinity";
  char* end = std::to_chars(place, place + sizeof place - 2, x, std::chars_format::general, digits).ptr;
  std::replace(place, end, 'e', 'E');
  if (std::none_of(place, end, [](char c) { return c == '.' || c == 'E'; })) {
    *end++ = '.';
    *end++ = '0';
  }
  return {place, static_cast<std::size_t>(end - place)};
}

} // namespace

// ---- reader

bool free_reader::open(const std::string& path) {
  close();
  return bytes_.open(path);
}

void free_reader::rewind() {
  bytes_.rewind();
  repeats_ = 0;
  reading_ = false;
}

void free_reader::close() {
  bytes_.close();
  repeats_ = 0;
  reading_ = false;
}

void free_reader::begin_read() {
  if (reading_) end_read();
  reading_ = true;
}

void free_reader::end_read() {
  if (!reading_) return;
  reading_ = false;
  repeats_ = 0;
  int c = bytes_.get();
  while (c >= 0 && c != '\n') c = bytes_.get();
}

int free_reader::next_token() {
  reading_ = true;
  if (repeats_ > 0) {
    --repeats_;
    return 0;
  }
  while (is_separator(bytes_.peek())) bytes_.get();
  if (bytes_.peek() < 0) return bytes_.failed() ? read_fault : end_of_file;
  token_.clear();
  bool too_long = false;
  for (int c = bytes_.peek(); c >= 0 && !is_separator(c); c = bytes_.peek()) {
    if (token_.size() == longest_token) too_long = true;
    if (!too_long) token_.push_back(static_cast<char>(c));
    bytes_.get();
  }
  if (bytes_.failed()) return read_fault;
  text_ = token_;
  std::int64_t count = 1;
  if (too_long || !split_repeat(token_, count)) return bad_token;
  repeats_ = count - 1;
  return 0;
}

int free_reader::integer(std::int32_t& x) {
  if (const int code = next_token(); code != 0) return code;
  const std::string_view text = without_plus(token_);
  if (text.size() != token_.size() && text.starts_with('-')) return bad_token;
  std::int32_t value = 0;
  const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (status != std::errc() || end != text.data() + text.size()) return bad_token;
  x = value;
  return 0;
}

int free_reader::real(double& x) {
  if (const int code = next_token(); code != 0) return code;
  const bool minus = token_.starts_with('-');
  const std::string_view text = minus ? std::string_view(token_).substr(1) : without_plus(token_);
  double value = 0;
  if (!named_value(text, value) && !plain_value(token_, text, value)) return bad_token;
  x = minus ? -value : value;
  return 0;
}

// ---- row

void free_row::field(std::string_view x, int width) {
  row_.push_back(' ');
  const auto columns = static_cast<std::size_t>(width);
  if (x.size() < columns) row_.append(columns - x.size(), ' ');
  row_.append(x);
  begun_ = true;
}

free_row& free_row::text(std::string_view x) {
  if (begun_) row_.push_back(' ');
  row_.append(x);
  begun_ = true;
  return *this;
}

free_row& free_row::i(std::int64_t x) {
  char text[24];
  const auto end = std::to_chars(text, text + sizeof text, x).ptr;
  field({text, static_cast<std::size_t>(end - text)}, 11);
  return *this;
}

free_row& free_row::r8(double x) {
  char place[64];
  field(general_real(x, 16, place), 24);
  return *this;
}

free_row& free_row::r4(float x) {
  char place[64];
  field(general_real(static_cast<double>(x), 9, place), 16);
  return *this;
}

free_row& free_row::l(bool x) {
  field(x ? "T" : "F", 1);
  return *this;
}

free_row& free_row::clear() {
  row_.clear();
  begun_ = false;
  return *this;
}

} // namespace zeph
