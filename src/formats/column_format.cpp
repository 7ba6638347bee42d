#include "formats/column_format.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <string_view>

namespace zeph {

namespace {

void add_columns(std::string& out, int n, char c) { out.append(static_cast<std::size_t>(std::max(n, 0)), c); }

// Right-justified in w columns: sign and text, stars where they are too wide.
void add_justified(std::string& out, std::string_view sign, std::string_view text, int w) {
  const int spare = w - static_cast<int>(sign.size() + text.size());
  if (spare < 0) return add_columns(out, w, '*');
  add_columns(out, spare, ' ');
  out.append(sign).append(text);
}

// body: "0.25", "12.5", "0.250000E-01"; its leading zero goes when that makes it fit.
void add_decimal(std::string& out, bool minus, std::string_view body, int w) {
  const bool one_too_wide = static_cast<int>(body.size()) + (minus ? 1 : 0) == w + 1;
  if (one_too_wide && body.starts_with("0.") && body.size() > 2) body.remove_prefix(1);
  add_justified(out, minus ? "-" : "", body, w);
}

void add_non_finite(std::string& out, double x, int w) {
  if (std::isnan(x)) return add_justified(out, "", "NaN", w);
  constexpr std::string_view full = "Infinity", cut = "Inf";
  const std::string_view sign = x < 0 ? "-" : "";
  add_justified(out, sign, static_cast<int>(sign.size() + full.size()) <= w ? full : cut, w);
}

// The digits of a number, in place unless somebody asks for very many.
class digit_text {
public:
  // x >= 0 with exactly d decimals or, as d.ddde+xx, d digits after the point; room
  // for `more` characters after them.
  digit_text(double x, std::chars_format form, int d, int more) {
    constexpr int largest_head = 330; // digits of the largest 64-bit number, point and exponent
    const auto size = static_cast<std::size_t>(largest_head + d + more);
    char* at = place_;
    if (size > sizeof place_) {
      longer_.resize(size);
      at = longer_.data();
    }
    first_ = at;
    end_ = std::to_chars(at, at + size, x, form, d).ptr;
  }
  void add(char c) { *end_++ = c; }
  std::string_view view() const { return {first_, static_cast<std::size_t>(end_ - first_)}; }
  char* first() { return first_; }
  void end_at(char* end) { end_ = end; }

private:
  char place_[512];
  std::string longer_;
  char *first_, *end_;
};

void add_I(std::string& out, std::int64_t x, int w, int m) {
  char text[24];
  const char* const end = std::to_chars(text, text + sizeof text, x).ptr;
  const char* const first = text + (x < 0 ? 1 : 0);
  const std::string_view digits(first, static_cast<std::size_t>(end - first)), sign = x < 0 ? "-" : "";
  // at least m digits
  const int zeros = std::max(m - static_cast<int>(digits.size()), 0);
  const int spare = w - zeros - static_cast<int>(digits.size() + sign.size());
  if (spare < 0) return add_columns(out, w, '*');
  add_columns(out, spare, ' ');
  out.append(sign);
  add_columns(out, zeros, '0');
  out.append(digits);
}

void add_F(std::string& out, double x, int w, int d) {
  if (!std::isfinite(x)) return add_non_finite(out, x, w);
  d = std::max(d, 0);
  digit_text body(std::abs(x), std::chars_format::fixed, d, 1);
  if (d == 0) body.add('.');
  add_decimal(out, x < 0, body.view(), w);
}

// "0." and the digits of D.DDDDe+XX, then the exponent e, in the place of the digits.
void make_exponent_form(digit_text& text, std::size_t letter, int e) {
  char* const c = text.first();
  char* at = c + letter; // after the last digit
  const char head = c[0];
  if (letter > 1)
    std::copy_backward(c + 2, at, at + 1); // the point gives its place up
  else
    at = c + 2;
  ++at;
  c[2] = head;
  c[0] = '0', c[1] = '.';
  const int size = std::abs(e);
  if (size < 100) *at++ = 'E';
  *at++ = e < 0 ? '-' : '+';
  if (size >= 100) *at++ = static_cast<char>('0' + size / 100);
  *at++ = static_cast<char>('0' + size / 10 % 10);
  *at++ = static_cast<char>('0' + size % 10);
  text.end_at(at);
}

void add_G(std::string& out, double x, int w, int d) {
  if (!std::isfinite(x)) return add_non_finite(out, x, w);
  d = std::max(d, 1);
  const auto as_F = [&](int decimals) {
    if (w <= 4) return add_columns(out, w, '*');
    add_F(out, x, w - 4, decimals);
    add_columns(out, 4, ' ');
  };
  // 0 <= e <= d, x = 0.d1d2.. 10^e: F of w-4 columns with d-e decimals and four blanks; else the E form
  if (x == 0) return as_F(d - 1);

  // scientific: D.DDDDe+XX with d digits, the first not 0, so e = XX + 1
  digit_text text(std::abs(x), std::chars_format::scientific, d - 1, 8);
  const std::size_t letter = text.view().find('e');
  int e = 0;
  const char* const power = text.first() + letter + 1;
  std::from_chars(power + (*power == '+' ? 1 : 0), text.view().data() + text.view().size(), e);
  ++e;
  if (e >= 0 && e <= d) return as_F(d - e);
  make_exponent_form(text, letter, e);
  add_decimal(out, x < 0, text.view(), w);
}

} // namespace

std::string format_I(std::int64_t x, int w, int m) {
  std::string out;
  add_I(out, x, w, m);
  return out;
}

std::string format_F(double x, int w, int d) {
  std::string out;
  add_F(out, x, w, d);
  return out;
}

std::string format_G(double x, int w, int d) {
  std::string out;
  add_G(out, x, w, d);
  return out;
}

column_line& column_line::write(std::string_view item) {
  // columns skipped by X and T are blanks; an item overwrites what is in its columns
  if (line_.size() < at_) line_.resize(at_, ' ');
  line_.replace(at_, std::min(item.size(), line_.size() - at_), item);
  at_ += item.size();
  return *this;
}

column_line& column_line::A(std::string_view text, int n) {
  const auto columns = static_cast<std::size_t>(std::max(n, 0));
  if (text.size() >= columns) return write(text.substr(0, columns));
  item_.assign(columns - text.size(), ' ').append(text);
  return write(item_);
}

column_line& column_line::I(std::int64_t x, int w, int m) {
  item_.clear();
  add_I(item_, x, w, m);
  return write(item_);
}

column_line& column_line::F(double x, int w, int d) {
  item_.clear();
  add_F(item_, x, w, d);
  return write(item_);
}

column_line& column_line::G(double x, int w, int d) {
  item_.clear();
  add_G(item_, x, w, d);
  return write(item_);
}

column_line& column_line::X(int n) {
  item_.clear();
  add_columns(item_, n, ' ');
  return write(item_);
}

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
