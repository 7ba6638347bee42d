// The file of a chain's whole state: `statelast`, as it is written, and `r_state`, the name under which
// a run reads it. Blocks with names, and a sum by which any other byte is found out:
//
//   SIZE  MEANING
//   12    "ZEPH state 1"
//         then blocks, one after another, without padding:
//   4       n, length of the block's name
//   n       the name
//   4       size in bytes of one element, w
//   8       number of elements, c
//   w c     the elements
//   64    SHA-256 of all before, as hexadecimal digits
//
// Numbers are little-endian as in the framed records (formats/sequential_file.h). Writer and reader have
// the same calls, so that one walk over the parts of a chain serves both. What the blocks are:
// control/state_blocks.h.
#pragma once

#include "formats/byte_file.h"
#include "formats/sha256.h"
#include "numerics/arrays.h"

#include <string>
#include <string_view>
#include <vector>

namespace zeph {

struct reporting;

inline constexpr std::string_view state_head = "ZEPH state 1";
inline constexpr std::string_view saved_state_file = "statelast"; // as it is written
inline constexpr std::string_view given_state_file = "r_state";   // as it is read

// Writes the blocks in the order of the calls. A failure is kept: nothing more is written, and finish
// returns false.
class state_writer {
public:
  static constexpr bool reads = false;

  state_writer();
  bool open(const std::string& path); // made, or emptied when it exists; the head is written

  // A block: begin, then its elements in one or many calls of `bytes`.
  void begin(std::string_view name, std::int64_t size, std::int64_t count);
  void bytes(const void* x, std::int64_t n);
  template <class T> void block(std::string_view name, const T* x, std::int64_t n) {
    static_assert(std::is_trivially_copyable_v<T>);
    begin(name, sizeof(T), n);
    bytes(x, n * static_cast<std::int64_t>(sizeof(T)));
  }

  // The sum, on the device when it returns true; closed in either case.
  bool finish();

private:
  void pass_on(); // what is in the buffer

  byte_sink sink_;
  sha256 sum_;
  std::vector<char> buffer_; // room is taken once
  std::size_t used_ = 0;
  bool ok_ = false;
};

// Reads them again. Every fault stops as illegal input of r_state, code 16. Nothing is allocated by a
// size from the file: a block goes into storage of the run, whose size it must have.
class state_reader {
public:
  static constexpr bool reads = true;

  explicit state_reader(reporting& report);
  // Reads the whole file once and holds the sum at its end against its bytes (item "checksum"); a file that
  // does not begin as a state does has another item, "head". The first block comes next.
  void open(const std::string& path);
  bool is_open() const { return source_.is_open(); }

  // The next block, which must have this name, element size and number of elements; its elements follow.
  void begin(std::string_view name, std::int64_t size, std::int64_t count);
  void bytes(void* x, std::int64_t n);
  template <class T> void block(std::string_view name, T* x, std::int64_t n) {
    static_assert(std::is_trivially_copyable_v<T>);
    begin(name, sizeof(T), n);
    bytes(x, n * static_cast<std::int64_t>(sizeof(T)));
  }

  // No block may follow; closes.
  void finish();

private:
  [[noreturn]] void refuse(std::string_view item, std::string_view value, std::string_view rule);
  void take(void* x, std::int64_t n);

  reporting* report_;
  byte_source source_;
  std::vector<char> buffer_;
  std::int64_t at_ = 0, limit_ = 0; // bytes of the buffer that are next, that are there
  std::int64_t left_ = 0;           // bytes of blocks not yet taken
};

// One array, whole.
template <class Door, class T, int N> void block_of(Door& door, std::string_view name, array<T, N>& x) {
  door.block(name, x.data(), x.size());
}

} // namespace zeph
