#include "prepare/model/short_names.h"

#include <algorithm>

namespace zeph::prepare {

namespace {

bool is_continuation(char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U; }

std::string ascii_of(const std::string& text) {
  std::string out;
  for (const char c : text) {
    if (is_continuation(c)) continue; // the character's first byte represents it
    const auto u = static_cast<unsigned char>(c);
    out.push_back(u > 32 && u < 127 ? c : '_');
  }
  return out;
}

} // namespace

std::string cut_name(const std::string& long_name, std::size_t width) {
  return ascii_of(long_name).substr(0, width);
}

std::string padded(const std::string& name, std::size_t width) {
  std::string out = name.substr(0, width);
  out.resize(width, ' ');
  return out;
}

std::vector<std::string> short_names(const std::vector<std::string>& long_names, std::size_t width) {
  std::vector<std::string> out;
  const auto taken = [&out](const std::string& name) { return std::ranges::find(out, name) != out.end(); };
  for (const std::string& name : long_names) {
    const std::string whole = ascii_of(name);
    std::string candidate = whole.substr(0, width);
    for (int n = 2; taken(candidate); ++n) {
      const std::string number = std::to_string(n);
      candidate = whole.substr(0, width - number.size()) + number;
    }
    out.push_back(candidate);
  }
  return out;
}

} // namespace zeph::prepare
