#include "samples/state_records.h"

#include "listing/reporting.h"
#include "listing/stops.h"
#include "support/scratch_directory.h"

#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <sstream>

namespace {

using namespace zeph;
using zeph_test::scratch_directory;

template <class T> std::string bytes_as_stored(T x) {
  std::string bytes(sizeof x, '\0');
  std::memcpy(bytes.data(), &x, sizeof x);
  return bytes;
}

// What the page of files says of a block.
std::string block_bytes(const std::string& name, std::int32_t size, std::int64_t count,
                        const std::string& elements) {
  return bytes_as_stored(static_cast<std::int32_t>(name.size())) + name + bytes_as_stored(size) +
         bytes_as_stored(count) + elements;
}

std::string sealed(const std::string& bytes) { return bytes + sha256_of(bytes); }

struct state_place {
  scratch_directory place;
  std::ostringstream listing;
  reporting report{listing, place.path()};
  state_reader reader{report};

  std::string path() const { return place / "r_state"; }
  // Reads what `read` asks for; the code of the stop, 0 without one.
  template <class Read> int read(Read&& read) {
    listing.str("");
    try {
      reader.open(path());
      read(reader);
    } catch (const run_stop& stop) {
      return stop.exit_code;
    }
    return 0;
  }
  int open_only() {
    return read([](state_reader&) {});
  }
  bool says(const std::string& text) const { return listing.str().find(text) != std::string::npos; }
};

const double reals[] = {1.5, -2.0, 0.25};
const std::int32_t integers[] = {7, -1};

std::string written_by_hand() {
  std::string values;
  for (const double x : reals) values += bytes_as_stored(x);
  return sealed("ZEPH state 1" + block_bytes("sol", 8, 3, values) +
                block_bytes("ntr", 4, 2, bytes_as_stored(integers[0]) + bytes_as_stored(integers[1])) +
                block_bytes("none", 8, 0, ""));
}

void write_all(state_writer& out) {
  out.block("sol", reals, 3);
  out.begin("ntr", 4, 2);
  for (const std::int32_t& x : integers) out.bytes(&x, sizeof x);
  out.block("none", static_cast<const double*>(nullptr), 0);
}

TEST(state_records, are_written_byte_by_byte_as_described) {
  const state_place s;
  state_writer out;
  ASSERT_TRUE(out.open(s.path()));
  write_all(out);
  ASSERT_TRUE(out.finish());
  EXPECT_TRUE(s.place.read("r_state") == written_by_hand());
}

TEST(state_records, are_the_same_when_a_writer_is_used_again) {
  const state_place s;
  state_writer out;
  for (int i = 0; i < 2; ++i) {
    ASSERT_TRUE(out.open(s.path()));
    write_all(out);
    ASSERT_TRUE(out.finish());
  }
  EXPECT_TRUE(s.place.read("r_state") == written_by_hand());
}

TEST(state_records, are_read_back) {
  state_place s;
  s.place.write("r_state", written_by_hand());
  double x[3] = {};
  std::int32_t n[2] = {};
  EXPECT_EQ(s.read([&](state_reader& in) {
    in.block("sol", x, 3);
    in.block("ntr", n, 2);
    in.block("none", x, 0);
    in.finish();
  }),
            0);
  EXPECT_TRUE(std::equal(x, x + 3, reals) && std::equal(n, n + 2, integers));
}

// Blocks beyond any buffer, before, across and after its end.
TEST(state_records, of_any_length_are_read_back) {
  state_place s;
  std::vector<std::int64_t> lengths = {1, 32000, 33000, 70000, 3, 262144 / 8, 32767};
  std::vector<std::vector<double>> blocks;
  double value = 0;
  for (const std::int64_t n : lengths) {
    std::vector<double>& block = blocks.emplace_back();
    for (std::int64_t i = 0; i < n; ++i) block.push_back(value += 0.5);
  }
  state_writer out;
  ASSERT_TRUE(out.open(s.path()));
  for (const std::vector<double>& block : blocks)
    out.block("x", block.data(), static_cast<std::int64_t>(block.size()));
  ASSERT_TRUE(out.finish());
  EXPECT_EQ(s.read([&](state_reader& in) {
    for (const std::vector<double>& block : blocks) {
      std::vector<double> found(block.size());
      in.block("x", found.data(), static_cast<std::int64_t>(found.size()));
      EXPECT_TRUE(found == block);
    }
    in.finish();
  }),
            0);
}

TEST(state_records, that_end_anywhere_are_refused) {
  state_place s;
  const std::string whole = written_by_hand();
  for (std::size_t n = 0; n < whole.size(); ++n) {
    s.place.write("r_state", whole.substr(0, n));
    EXPECT_EQ(s.open_only(), exit_diagnosed) << n;
  }
  EXPECT_TRUE(
      s.says("ERROR - Illegal input in r_state: checksum = another, legal: the SHA-256 of all bytes before "
             "it: the file was cut or changed\n\nZEPH terminates.\n"))
      << s.listing.str();
  s.place.write("r_state", whole.substr(0, 20));
  s.open_only();
  EXPECT_TRUE(s.says("ERROR - Illegal input in r_state: head = no state, legal: a state of a chain"))
      << s.listing.str();
}

TEST(state_records, with_any_bit_changed_or_a_byte_more_are_refused) {
  state_place s;
  const std::string whole = written_by_hand();
  for (std::size_t n = 0; n < whole.size(); ++n)
    for (const int bit : {0, 3, 7}) {
      std::string changed = whole;
      changed[n] = static_cast<char>(changed[n] ^ (1 << bit));
      s.place.write("r_state", changed);
      EXPECT_EQ(s.open_only(), exit_diagnosed) << n;
    }
  for (const std::string& longer : {whole + "0", whole + whole, "Z" + whole}) {
    s.place.write("r_state", longer);
    EXPECT_EQ(s.open_only(), exit_diagnosed);
  }
}

// Sealed by a right sum: names and sizes are still held against what the run has.
TEST(state_records, of_another_name_or_size_are_refused_by_name) {
  state_place s;
  double x[4] = {};
  std::int32_t n[4] = {};
  s.place.write("r_state", written_by_hand());
  const auto refused = [&](auto read, const std::string& text) {
    EXPECT_EQ(s.read(read), exit_diagnosed);
    EXPECT_TRUE(s.says("ERROR - Illegal input in r_state: " + text)) << s.listing.str();
  };
  refused([&](state_reader& in) { in.block("pev", x, 3); },
          "pev = another block, legal: the block of this name");
  refused([&](state_reader& in) { in.block("solution", x, 3); }, "solution = another block");
  refused([&](state_reader& in) { in.block("sol", x, 4); },
          "sol = 3 elements of 8 bytes, legal: 4 elements of 8 bytes");
  refused([&](state_reader& in) { in.block("sol", n, 3); },
          "sol = 3 elements of 8 bytes, legal: 3 elements of 4 bytes");
  refused(
      [&](state_reader& in) {
        in.block("sol", x, 3);
        in.finish();
      },
      "end = 47 bytes more, legal: the end of the last block"); // 27 of ntr, 20 of none
  refused(
      [&](state_reader& in) {
        in.block("sol", x, 3);
        in.block("ntr", n, 2);
        in.block("none", x, 0);
        in.block("more", x, 0);
      },
      "more = another block");
}

// Lengths and counts that no file can hold take no memory.
TEST(state_records, of_absurd_sizes_are_refused) {
  state_place s;
  double x[2] = {};
  for (const std::int64_t count : {std::int64_t{2}, std::int64_t{-1}, std::int64_t{1} << 62, INT64_MAX}) {
    s.place.write("r_state", sealed("ZEPH state 1" + block_bytes("sol", 8, count, "12345678")));
    EXPECT_EQ(s.read([&](state_reader& in) { in.block("sol", x, 2); }), exit_diagnosed) << count;
  }
  for (const std::int32_t length : {0, -1, 4, INT32_MAX, INT32_MIN}) {
    s.place.write("r_state", sealed("ZEPH state 1" + bytes_as_stored(length) + "sol" + std::string(40, '1')));
    EXPECT_EQ(s.read([&](state_reader& in) { in.block("sol", x, 2); }), exit_diagnosed) << length;
  }
}

TEST(state_records, that_can_not_be_written_are_reported) {
  const state_place s;
  state_writer out;
  EXPECT_FALSE(out.open(s.place / "missing/statelast"));
  write_all(out);
  EXPECT_FALSE(out.finish());
  ASSERT_TRUE(out.open("/dev/full"));
  write_all(out);
  EXPECT_FALSE(out.finish());
}

} // namespace
