#include "numerics/published_tables.h"

#include "csv_rows.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <map>
#include <string>

namespace zeph {
namespace {

// name or name(index) -> pattern of the column with this number
std::map<std::string, std::uint64_t> patterns(const std::string& file, std::size_t column) {
  std::map<std::string, std::uint64_t> bits;
  for (const auto& row : csv_rows("constants/" + file)) {
    const std::string name = row[1] == "0" ? row[0] : row[0] + "(" + row[1] + ")";
    bits[name] = std::stoull(row[column], nullptr, 16);
  }
  return bits;
}

// Takes away what has been compared: at the end nothing is left.
struct compared {
  std::map<std::string, std::uint64_t> bits;
  void one(const std::string& name, std::uint64_t pattern) {
    ASSERT_EQ(bits.count(name), 1U) << name;
    EXPECT_EQ(pattern, bits[name]) << name;
    bits.erase(name);
  }
  void number(const std::string& name, double x) { one(name, std::bit_cast<std::uint64_t>(x)); }
  void number(const std::string& name, float x) { one(name, std::bit_cast<std::uint32_t>(x)); }
  template <class real, int n> void table(const std::string& name, const real (&x)[n]) {
    for (int i = 0; i < n; ++i) number(name + "(" + std::to_string(i + 1) + ")", x[i]);
  }
  ~compared() { EXPECT_EQ(bits.size(), 0U); }
};

template <class real> void compare_fl5(std::size_t column) {
  compared file{patterns("normal_fl5.csv", column)};
  ASSERT_EQ(file.bits.size(), 32U + 31U + 31U + 31U);
  file.table("A", fl5_tables<real>::A);
  file.table("D", fl5_tables<real>::D);
  file.table("T", fl5_tables<real>::T);
  file.table("H", fl5_tables<real>::H);
}
TEST(published_tables, fl5_in_32_bits_has_the_printed_patterns) { compare_fl5<float>(3); }
TEST(published_tables, fl5_in_64_bits_has_the_printed_patterns) { compare_fl5<double>(4); }

TEST(published_tables, gamma_constants_have_the_printed_patterns) {
  using t = gamma_tables;
  compared file{patterns("gamma_gd_gs.csv", 3)};
  ASSERT_EQ(file.bits.size(), 7U + 7U + 5U + 22U);
  file.table("Q", t::Q);
  file.table("A", t::A);
  file.table("E", t::E);
  const std::map<std::string, float> numbers = {{"sqrt32", t::sqrt32},
                                                {"tau1", t::tau1},
                                                {"limit_1", t::limit_1},
                                                {"limit_2", t::limit_2},
                                                {"b1_0", t::b1_0},
                                                {"b1_2", t::b1_2},
                                                {"si1", t::si1},
                                                {"c1_m1", t::c1_m1},
                                                {"c1_0", t::c1_0},
                                                {"c1_1", t::c1_1},
                                                {"b2_0", t::b2_0},
                                                {"b2_2", t::b2_2},
                                                {"si2_m1", t::si2_m1},
                                                {"si2_0", t::si2_0},
                                                {"c2_m1", t::c2_m1},
                                                {"c2_0", t::c2_0},
                                                {"b3", t::b3},
                                                {"si3", t::si3},
                                                {"c3_m1", t::c3_m1},
                                                {"large_q", t::large_q},
                                                {"exp_limit", t::exp_limit},
                                                {"gs_factor", t::gs_factor}};
  for (const auto& [name, x] : numbers) file.number(name, x);
}

TEST(published_tables, exponential_table_has_the_printed_patterns) {
  compared file{patterns("exponential_sa.csv", 3)};
  ASSERT_EQ(file.bits.size(), 8U);
  file.table("Q", exponential_tables::Q);
}

TEST(published_tables, cody_tables_have_the_printed_patterns) {
  using t = cody_tables;
  compared file{patterns("normal_cdf_cody.csv", 3)};
  ASSERT_EQ(file.bits.size(), 5U + 4U + 9U + 8U + 6U + 5U + 6U);
  file.table("A", t::A);
  file.table("B", t::B);
  file.table("C", t::C);
  file.table("D", t::D);
  file.table("P", t::P);
  file.table("Q", t::Q);
  file.number("sqrpi", t::sqrpi);
  file.number("thrsh", t::thrsh);
  file.number("root32", t::root32);
  file.number("sixten", t::sixten);
  file.number("eps", t::eps);
  file.number("min", t::min);
}

TEST(published_tables, inverse_tables_have_the_printed_patterns) {
  using t = inverse_tables;
  compared file{patterns("normal_inverse_start.csv", 3)};
  ASSERT_EQ(file.bits.size(), 5U + 5U + 3U);
  file.table("XNUM", t::XNUM);
  file.table("XDEN", t::XDEN);
  file.number("eps", t::eps);
  file.number("r2pi", t::r2pi);
  file.number("nhalf", t::nhalf);
  EXPECT_EQ(t::maxit, 100);
}

} // namespace
} // namespace zeph
