#include "formats/column_format.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>

namespace zeph {

namespace {

std::string columns_of(int n, char c) { return std::string(static_cast<std::size_t>(std::max(n, 0)), c); }

// Right-justified in w columns, stars where it is too wide.
std::string justified(std::string_view text, int w) {
  const int spare = w - static_cast<int>(text.size());
  return spare < 0 ? columns_of(w, '*') : columns_of(spare, ' ').append(text);
}

// body: "0.25", "12.5", "0.250000E-01"; its leading zero goes when that makes it fit.
std::string signed_decimal(bool minus, std::string_view body, int w) {
  const std::string sign = minus ? "-" : "";
  const bool one_too_wide = static_cast<int>(sign.size() + body.size()) == w + 1;
  if (one_too_wide && body.starts_with("0.") && body.size() > 2) body.remove_prefix(1);
  return justified(sign + std::string(body), w);
}

std::string non_finite(double x, int w) {
  if (std::isnan(x)) return justified("NaN", w);
  const std::string sign = x < 0 ? "-" : "";
  const std::string full = sign + "Infinity";
  return justified(static_cast<int>(full.size()) <= w ? full : sign + "Inf", w);
}

// x >= 0 with exactly d decimals or, as d.ddde+xx, d digits behind the point.
std::string digits_of(double x, std::chars_format form, int d) {
  constexpr int largest_head = 330; // digits of the largest 64-bit number, point and exponent
  std::string text(static_cast<std::size_t>(largest_head + d), ' ');
  const auto end = std::to_chars(text.data(), text.data() + text.size(), x, form, d).ptr;
  text.resize(static_cast<std::size_t>(end - text.data()));
  return text;
}

std::string exponent_of(int e) {
  const int size = std::abs(e);
  const std::string digits = format_I(size, size < 100 ? 2 : 3, 2);
  return (size < 100 ? "E" : "") + std::string(e < 0 ? "-" : "+") + digits;
}

} // namespace

std::string format_I(int64_t x, int w, int m) {
  char text[24];
  const char* const end = std::to_chars(text, text + sizeof text, x).ptr;
  const char* const first = text + (x < 0 ? 1 : 0);
  const std::string digits(first, end);
  const std::string sign = x < 0 ? "-" : "";
  return justified(sign + columns_of(m - static_cast<int>(digits.size()), '0') + digits, w);
}

std::string format_F(double x, int w, int d) {
  if (!std::isfinite(x)) return non_finite(x, w);
  d = std::max(d, 0);
  std::string body = digits_of(std::abs(x), std::chars_format::fixed, d);
  if (d == 0) body += '.';
  return signed_decimal(x < 0, body, w);
}

std::string format_G(double x, int w, int d) {
  if (!std::isfinite(x)) return non_finite(x, w);
  d = std::max(d, 1);
  const auto as_F = [&](int decimals) {
    return w > 4 ? format_F(x, w - 4, decimals) + "    " : columns_of(w, '*');
  };
  if (x == 0) return as_F(d - 1);

  // scientific: D.DDDDe+XX with d digits, the first not 0, so e = XX + 1
  const std::string scientific = digits_of(std::abs(x), std::chars_format::scientific, d - 1);
  const std::size_t letter = scientific.find('e');
  const int e = std::atoi(scientific.c_str() + letter + 1) + 1;
  if (e >= 0 && e <= d) return as_F(d - e);

  std::string body = "0." + scientific.substr(0, 1);
  if (d > 1) body += scientific.substr(2, letter - 2);
  return signed_decimal(x < 0, body + exponent_of(e), w);
}

column_line& column_line::write(std::string_view item) {
  if (line_.size() < at_) line_.resize(at_, ' ');
  line_.replace(at_, std::min(item.size(), line_.size() - at_), item);
  at_ += item.size();
  return *this;
}

column_line& column_line::A(std::string_view text, int n) {
  const auto columns = static_cast<std::size_t>(std::max(n, 0));
  if (text.size() >= columns) return write(text.substr(0, columns));
  return write(columns_of(n - static_cast<int>(text.size()), ' ').append(text));
}

column_line& column_line::I(int64_t x, int w, int m) { return write(format_I(x, w, m)); }
column_line& column_line::F(double x, int w, int d) { return write(format_F(x, w, d)); }
column_line& column_line::G(double x, int w, int d) { return write(format_G(x, w, d)); }
column_line& column_line::X(int n) { return write(columns_of(n, ' ')); }

column_line& column_line::T(int col) {
  at_ = static_cast<std::size_t>(std::max(col, 1) - 1);
  return *this;
}

column_line& column_line::clear() {
  line_.clear();
  at_ = 0;
  return *this;
}

} // namespace zeph
