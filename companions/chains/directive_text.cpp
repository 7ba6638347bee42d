#include "chains/directive_text.h"

#include <charconv>
#include <fmt/format.h>
#include <initializer_list>
#include <string_view>
#include <vector>

namespace zeph::chains {
namespace {

constexpr std::string_view separators = " \t,\r";

// The lines with their ends.
std::vector<std::string_view> lines_of(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::size_t n = end == std::string_view::npos ? text.size() : end + 1;
    lines.push_back(text.substr(0, n));
    text.remove_prefix(n);
  }
  return lines;
}

bool number_in(std::string_view text, std::int32_t& x) {
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), x);
  return error == std::errc{} && end == text.data() + text.size();
}

// One read: its values from line `at` on; `at` moves past its last line.
bool read_values(const std::vector<std::string_view>& lines, std::size_t& at,
                 std::initializer_list<std::int32_t*> values) {
  auto next = values.begin();
  while (next != values.end() && at < lines.size()) {
    std::string_view line = lines[at++];
    if (line.ends_with('\n')) line.remove_suffix(1);
    while (next != values.end()) {
      const std::size_t begin = line.find_first_not_of(separators);
      if (begin == std::string_view::npos) break;
      line.remove_prefix(begin);
      std::string_view token = line.substr(0, line.find_first_of(separators));
      line.remove_prefix(token.size());
      std::int32_t times = 1, value = 0;
      if (const std::size_t star = token.find('*'); star != std::string_view::npos) {
        if (!number_in(token.substr(0, star), times) || times < 1) return false;
        token.remove_prefix(star + 1);
      }
      if (!number_in(token, value)) return false;
      for (; times > 0 && next != values.end(); --times) **next++ = value;
    }
  }
  return next == values.end();
}

std::string joined(const std::vector<std::string_view>& lines, std::size_t from, std::size_t to) {
  std::string text;
  for (std::size_t i = from; i < to; ++i) text += lines[i];
  if (!text.empty() && text.back() != '\n') text += '\n';
  return text;
}

} // namespace

bool take_apart(const std::string& text, directive_text& d, std::string& fault) {
  const std::vector<std::string_view> lines = lines_of(text);
  std::size_t at = 0;
  fault = "line 1 should hold the type of analysis and the test level";
  if (!read_values(lines, at, {&d.analysis_type, &d.test_level})) return false;
  d.head = joined(lines, 0, at);
  fault = "line 2 should hold the seeds A and B";
  if (!read_values(lines, at, {&d.seeds.A, &d.seeds.B})) return false;
  fault = "line 3 should hold burn-in rounds, sampling rounds and interval";
  if (!read_values(lines, at, {&d.nburn, &d.nround, &d.isamp})) return false;
  d.tail = joined(lines, at, lines.size());
  fault.clear();
  return true;
}

std::string put_together(const directive_text& d) {
  return d.head + fmt::format("{} {}\n{} {} {}\n", d.seeds.A, d.seeds.B, d.nburn, d.nround, d.isamp) + d.tail;
}

} // namespace zeph::chains
