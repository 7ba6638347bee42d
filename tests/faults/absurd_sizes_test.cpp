// Sizes that no machine has, in the whole programs with a gigabyte of memory: counts
// near 2^31, products beyond 64 bits, arrays of more bytes than there are. Each ends
// with the allocation report or the message of the input, never by a signal.
#include "faults/child_program.h"
#include "support/skip_reasons.h"

#include <algorithm>
#include <cstring>

namespace {

using namespace zeph_test;

child_options with_a_gigabyte() {
  child_options with;
  with.memory = rlim_t{1} << 30;
  return with;
}

// A 32-bit number of MODINF: the framed record, counted from 1, and the byte in it.
// The records are those of docs/files.md; n_abgr is 0, so that NABGR has none.
struct size_place {
  std::string item;
  int record = 0;
  std::size_t byte = 0;
  std::string work = "three3_t3"; // where the size is in use
};

const std::vector<size_place>& sizes_of_modinf() {
  static const std::vector<size_place> all = {
      {"nobs", 4, 28},     {"nt", 6, 0},      {"n_abgr", 8, 0},  {"n_cure_seq", 9, 4, "cure_t3"},
      {"mnef", 10, 0},     {"mxreg", 10, 12}, {"nramat", 11, 0}, {"nfeq", 14, 0},
      {"NLEV(1,1)", 15, 0}};
  return all;
}

// Where the data of a framed record begin.
std::size_t record_at(const std::string& bytes, int record) {
  std::size_t at = 0;
  for (std::int32_t length = 0; record > 1; --record, at += static_cast<std::size_t>(length) + 8)
    std::memcpy(&length, bytes.data() + at, 4);
  return at + 4;
}

std::int32_t integer_at(const std::string& bytes, std::size_t at) {
  std::int32_t value = 0;
  std::memcpy(&value, bytes.data() + at, 4);
  return value;
}

bool tells_allocation(const std::string& listing) {
  return listing.find("Trying to allocate memory for: ") != std::string::npos &&
         listing.ends_with("\n\nProgram terminates with exit code 16\n");
}
bool tells_input(const std::string& listing, const std::string& item = {}) {
  return listing.find("ERROR - Illegal input in MODINF: " + item) != std::string::npos;
}

class work_of_absurd_sizes : public testing::Test {
protected:
  void SetUp() override {
    if (!calls_can_fail()) GTEST_SKIP() << sanitizer_build;
  }
  // MODINF of a directory that runs as it is.
  std::string modinf_of(const std::string& work) {
    place.take_files_of(source_folder() + "/tests/data/workdirs/" + work);
    EXPECT_EQ(run_zeph(place.path(), with_a_gigabyte()).code, 0);
    return place.read("MODINF");
  }
  // The end of a run with one number of MODINF changed.
  child_end end_with(std::string modinf, std::size_t at, std::int32_t value) {
    std::memcpy(modinf.data() + at, &value, 4);
    place.write("MODINF", modinf);
    return run_zeph(place.path(), with_a_gigabyte());
  }
  scratch_directory place;
};

TEST_F(work_of_absurd_sizes, ends_with_the_allocation_report_or_the_message_of_the_input) {
  for (const size_place& size : sizes_of_modinf()) {
    const std::string modinf = modinf_of(size.work);
    for (const std::int32_t value : {2147483647, 2147483646, 1 << 30, 300000000}) {
      const child_end end = end_with(modinf, record_at(modinf, size.record) + size.byte, value);
      // of a record that is shorter than its size the end of the file may be reported
      const bool told = tells_allocation(end.listing) || tells_input(end.listing) ||
                        end.listing.find("Unexpected end of file on model information") != std::string::npos;
      EXPECT_TRUE(end.code == 16 && told) << size.item << " = " << value << ": " << end.code << end.all();
    }
  }
}

// Equations of factors of two and three rows are counted in 64 bits; solutions take 8 bytes each.
TEST_F(work_of_absurd_sizes, counts_equations_beyond_32_bits) {
  const std::string modinf = modinf_of("three3_t3");
  const std::int32_t nt = integer_at(modinf, record_at(modinf, 6)),
                     mnef = integer_at(modinf, record_at(modinf, 10));
  const std::size_t NRALEV = record_at(modinf, 15) + static_cast<std::size_t>(4 * nt * mnef);
  const child_end beyond = end_with(modinf, NRALEV, 2147483647);
  EXPECT_EQ(beyond.code, 16);
  EXPECT_TRUE(tells_input(beyond.listing, "neq = 4294967294, legal: 0..2147483647"))
      << beyond.all(); // 2 x 2147483647
  const child_end large = end_with(modinf, NRALEV + 4, 150000000);
  EXPECT_EQ(large.code, 16);
  EXPECT_TRUE(tells_allocation(large.listing)) << large.all();
}

// ---- zeph-prepare: code 1 and the place for what is wrong, 2 where storage ends

class preparation_of_absurd_sizes : public work_of_absurd_sizes {
protected:
  void SetUp() override {
    work_of_absurd_sizes::SetUp();
    place.write("data.csv", "g,y\na,1.5\nb,2.5\na,2.0\nb,3.5\n");
  }
  child_end prepared(const std::string& run, const std::string& traits = "[trait.y]\nformula = \"1 + g\"\n",
                     rlim_t memory = rlim_t{1} << 30) {
    place.write("model.toml",
                "[data]\nfile = \"data.csv\"\n[run]\nanalysis = \"gibbs\"\n" + run + "\n" + traits);
    child_options with;
    with.memory = memory;
    return run_child({program("zeph-prepare"), "model.toml", "--into", "work"}, place.path(), with);
  }
};

TEST_F(preparation_of_absurd_sizes, reports_the_place_of_a_number_beyond_32_bits) {
  EXPECT_EQ(prepared("burnin = 0\nrounds = 2147483647").code, 0); // their sum numbers the last round
  for (const std::string key : {"burnin", "rounds", "interval", "test_level"})
    for (const std::string value : {"2147483648", "9223372036854775807", "-9223372036854775808",
                                    "9223372036854775808", "1e300", "99999999999999999999999999"}) {
      const child_end end = prepared(key + " = " + value);
      EXPECT_EQ(end.code, 1) << key << value << end.all();
      EXPECT_TRUE(end.errors.starts_with("model.toml:5:")) << end.all();
    }
}

TEST_F(preparation_of_absurd_sizes, reports_the_order_of_a_curve_that_no_number_holds) {
  for (const std::string order : {"2147483648", "18446744073709551617"}) {
    const child_end end = prepared("", "[trait.y]\nformula = \"1 + leg(g, " + order + ")\"\n");
    EXPECT_EQ(end.code, 1) << end.all();
    EXPECT_NE(end.errors.find("the order of leg must be from 1 to 12"), std::string::npos) << end.all();
  }
}

TEST_F(preparation_of_absurd_sizes, refuses_thousands_of_traits_at_once) {
  std::string traits;
  for (int i = 0; i < 3000; ++i)
    traits += "[trait.t" + std::to_string(i) + "]\ncolumn = \"y\"\nformula = \"1\"\n";
  const child_end end = prepared("", traits);
  EXPECT_EQ(end.code, 1);
  EXPECT_NE(end.errors.find("3000 traits; at most 20 are possible"), std::string::npos) << end.all();
}

TEST_F(preparation_of_absurd_sizes, says_so_where_the_records_do_not_fit_into_memory) {
  std::string records = "g,y\n";
  for (int i = 0; i < 4000000; ++i) records += i % 2 == 0 ? "a,1.5\n" : "b,2.5\n";
  place.write("data.csv", records);
  const child_end end = prepared("", "[trait.y]\nformula = \"1 + g\"\n", rlim_t{64} << 20);
  EXPECT_EQ(end.code, 2) << end.all();
  EXPECT_EQ(end.errors, "zeph-prepare: out of memory; use fewer levels or records, or a machine with more\n");
  EXPECT_FALSE(place.has("work"));
}

} // namespace
