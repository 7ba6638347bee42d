// Changes of a file of framed binary records that keep its frames: the content of
// one record is changed, a record is repeated or left out. So most of the inputs
// get past the reader of the frames and reach the checks of what they hold.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <vector>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t largest);

namespace zeph_fuzz {

// Contents of the records; false when the bytes are not framed to their end.
inline bool split_frames(std::string_view bytes, std::vector<std::string>& records) {
  while (!bytes.empty()) {
    std::int32_t length = 0, after = 0;
    if (bytes.size() < 8) return false;
    std::memcpy(&length, bytes.data(), 4);
    if (length < 0 || bytes.size() < 8 + static_cast<std::size_t>(length)) return false;
    std::memcpy(&after, bytes.data() + 4 + length, 4);
    if (after != length) return false;
    records.emplace_back(bytes.substr(4, static_cast<std::size_t>(length)));
    bytes.remove_prefix(8 + static_cast<std::size_t>(length));
  }
  return !records.empty();
}

inline std::string joined_frames(const std::vector<std::string>& records) {
  std::string bytes;
  for (const std::string& r : records) {
    const auto length = static_cast<std::int32_t>(r.size());
    char frame[4];
    std::memcpy(frame, &length, 4);
    bytes.append(frame, 4).append(r).append(frame, 4);
  }
  return bytes;
}

// One element of 4 or 8 bytes becomes a value that often does harm.
inline void put_telling_value(std::string& r, std::mt19937& source) {
  static constexpr std::int32_t values[] = {0, 1, -1, 2, 7, 1000, -1000, 65536, 2147483647, -2147483647 - 1};
  if (r.size() < 4) return;
  const std::size_t at = source() % (r.size() / 4) * 4;
  std::int32_t value = values[source() % (sizeof values / sizeof *values)];
  if (source() % 3 == 0) {
    std::uint32_t now = 0;
    std::memcpy(&now, r.data() + at, 4);
    value = static_cast<std::int32_t>(source() % 2 == 0 ? now + 1U : now - 1U);
  }
  std::memcpy(r.data() + at, &value, 4);
}

inline void change_record(std::string& r, std::mt19937& source) {
  if (source() % 2 == 0) return put_telling_value(r, source);
  const std::size_t size = r.size();
  r.resize(size + 16);
  const std::size_t now = LLVMFuzzerMutate(reinterpret_cast<std::uint8_t*>(r.data()), size, r.size());
  r.resize(source() % 4 == 0 ? now : size);
}

// The changed file, or no text when the bytes are not framed.
inline std::string changed_frames(std::string_view bytes, std::uint32_t seed) {
  std::mt19937 source(seed);
  std::vector<std::string> records;
  if (!split_frames(bytes, records)) return "";
  for (std::uint32_t n = 1 + source() % 3; n > 0; --n) {
    const std::size_t at = source() % records.size();
    const std::uint32_t way = source() % 16;
    if (way == 0)
      records.insert(records.begin() + static_cast<std::ptrdiff_t>(at), records[at]);
    else if (way == 1 && records.size() > 1)
      records.erase(records.begin() + static_cast<std::ptrdiff_t>(at));
    else
      change_record(records[at], source);
  }
  return joined_frames(records);
}

} // namespace zeph_fuzz
