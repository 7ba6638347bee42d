#include "numerics/random_sources.h"

#include "stops.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

namespace zeph {
namespace {

struct both_sources : kept_listing {
  random_sources sources{report};
  marsaglia_source& ranmar = sources.marsaglia;
  combined_source& ranlib = sources.combined;
};

// ---- Marsaglia source ----

// The published generator in whole numbers of 2^-24, written from the paper:
// a lagged Fibonacci sequence x(n-97) - x(n-33) mod 1 less an arithmetic one.
struct whole_number_generator {
  static constexpr std::int64_t one = 1 << 24;
  std::vector<std::int64_t> x; // grows: x(n)
  std::int64_t c = 362436;
  whole_number_generator(int ij, int kl) {
    std::int64_t a[3] = {ij / 177 % 177 + 2, ij % 177 + 2, kl / 169 % 178 + 1}, l = kl % 169;
    for (int n = 0; n < 97; ++n) {
      std::int64_t s = 0;
      for (int bit = 23; bit >= 0; --bit) {
        const std::int64_t m = a[0] * a[1] % 179 * a[2] % 179;
        a[0] = a[1];
        a[1] = a[2];
        a[2] = m;
        l = (53 * l + 1) % 169;
        if (l * m % 64 >= 32) s |= std::int64_t{1} << bit;
      }
      x.insert(x.begin(), s); // U(97) is used first
    }
  }
  std::int64_t draw() { // 0 included
    const std::size_t n = x.size();
    x.push_back((x[n - 97] - x[n - 33] + one) % one);
    c = c < 7654321 ? c - 7654321 + 16777213 : c - 7654321;
    return (x.back() - c + one) % one;
  }
};

// The check that the authors publish with the generator.
TEST(RANMAR, passes_the_published_check) {
  both_sources run;
  RMARIN(run.ranmar, 1802, 9373);
  for (int i = 0; i < 20000; ++i) RANMAR(run.ranmar);
  for (const double expected : {6533892.0, 14220222.0, 7275067.0, 6172232.0, 8354498.0, 10633180.0})
    EXPECT_EQ(4096.0 * 4096.0 * RANMAR(run.ranmar), expected);
}

TEST(RANMAR, is_the_published_generator_for_seeds_of_the_whole_range) {
  const std::pair<int, int> seeds[] = {{0, 0},     {31328, 30081}, {1802, 9373},
                                       {31328, 0}, {0, 30081},     {12345, 6789}};
  for (const auto& [ij, kl] : seeds) {
    both_sources run;
    RMARIN(run.ranmar, ij, kl);
    whole_number_generator reference(ij, kl);
    for (int i = 0; i < 3000; ++i) {
      std::int64_t whole = reference.draw();
      if (whole == 0) whole = reference.draw();
      ASSERT_EQ(RANMAR(run.ranmar) * 16777216.0, static_cast<double>(whole)) << ij << " " << kl << " " << i;
    }
  }
}

TEST(RANMAR, keeps_the_uniform_drawn_last) {
  both_sources run;
  RMARIN(run.ranmar, 1, 2);
  const double uni = RANMAR(run.ranmar);
  EXPECT_EQ(ranmar_last(run.ranmar), uni);
  double x[7];
  ranmar_fill(run.ranmar, x, 7);
  EXPECT_EQ(ranmar_last(run.ranmar), x[6]);
  RMARIN(run.ranmar, 3, 4);
  EXPECT_EQ(ranmar_last(run.ranmar), x[6]);
}

TEST(RANMAR, before_the_start_stops) {
  const std::string text = " Call the init routine (RMARIN) before calling RANMAR\n";
  both_sources run;
  EXPECT_EQ(run.exit_code([&] { RANMAR(run.ranmar); }), 16);
  EXPECT_EQ(run.out.str(), text);
  double x[1] = {-1.0};
  EXPECT_EQ(run.exit_code([&] { ranmar_fill(run.ranmar, x, 1); }), 16);
  EXPECT_EQ(run.out.str(), text + text);
  EXPECT_EQ(x[0], -1.0);
}

// U(97) - U(33) equal to the new C makes the published draw exactly 0.
TEST(RANMAR, draws_again_after_an_exact_zero) {
  both_sources run;
  RMARIN(run.ranmar, 1802, 9373);
  marsaglia_state state = ranmar_state(run.ranmar);
  state.U[32] = 0.0;
  state.U[96] = (362436.0 - 7654321.0 + 16777213.0) / 16777216.0;
  ranmar_restore(run.ranmar, state);
  whole_number_generator reference(1802, 9373);
  reference.x[97 - 33] = 0;
  reference.x[0] = 362436 - 7654321 + 16777213;
  ASSERT_EQ(reference.draw(), 0);
  for (int i = 0; i < 200; ++i)
    ASSERT_EQ(RANMAR(run.ranmar) * 16777216.0, static_cast<double>(reference.draw())) << i;
}

TEST(RMARIN, takes_the_ends_of_both_ranges) {
  both_sources run;
  RMARIN(run.ranmar, 0, 0);
  const marsaglia_state state = ranmar_state(run.ranmar);
  EXPECT_TRUE(state.TEST);
  EXPECT_EQ(state.I97, 97);
  EXPECT_EQ(state.J97, 33);
  RMARIN(run.ranmar, 31328, 30081);
  EXPECT_EQ(run.out.str(), "");
}

TEST(RMARIN, stops_at_seeds_out_of_range) {
  const std::pair<int, int> seeds[] = {{31329, 0}, {1, 30082}, {-1, 0}, {0, -1}};
  for (const auto& [ij, kl] : seeds) {
    both_sources run;
    EXPECT_EQ(run.exit_code([&, ij = ij, kl = kl] { RMARIN(run.ranmar, ij, kl); }), 16);
    EXPECT_EQ(run.out.str(), " The first random number seed must have a value between 0 and 31328\n"
                             " The second seed must have a value between 0 and 30081\n");
    EXPECT_FALSE(run.ranmar.TEST);
  }
}

bool same_state(const marsaglia_source& one, const marsaglia_source& other) {
  const marsaglia_state a = ranmar_state(one), b = ranmar_state(other);
  return a.U == b.U && a.C == b.C && a.CD == b.CD && a.CM == b.CM && a.I97 == b.I97 && a.J97 == b.J97 &&
         a.TEST == b.TEST;
}

TEST(ranmar_fill, draws_and_leaves_what_repeated_calls_do) {
  both_sources one, other;
  RMARIN(one.ranmar, 77, 88);
  RMARIN(other.ranmar, 77, 88);
  for (const int n : {1, 96, 97, 98, 0, -4, 1000}) {
    std::vector<double> x(1000, -1.0);
    ranmar_fill(one.ranmar, x.data(), n);
    for (int i = 0; i < n; ++i) ASSERT_EQ(x[static_cast<std::size_t>(i)], RANMAR(other.ranmar));
    if (n < 1000) {
      EXPECT_EQ(x[static_cast<std::size_t>(n > 0 ? n : 0)], -1.0);
    }
    EXPECT_TRUE(same_state(one.ranmar, other.ranmar));
    EXPECT_EQ(ranmar_last(one.ranmar), ranmar_last(other.ranmar));
  }
}

TEST(saved_state, continues_the_stream_of_the_save_point_in_another_run) {
  const scratch place;
  both_sources first, second;
  RMARIN(first.ranmar, 1802, 9373);
  for (int i = 0; i < 500; ++i) RANMAR(first.ranmar);
  ranmar_save(first.ranmar);
  std::vector<double> beyond(300);
  ranmar_fill(first.ranmar, beyond.data(), 300); // drawn after the save point, before the writing

  sequential_writer writer;
  ASSERT_TRUE(writer.open(place.path + "r_parm"));
  EXPECT_TRUE(ranmar_write(first.ranmar, writer));
  ASSERT_TRUE(writer.close());
  sequential_reader reader;
  ASSERT_TRUE(reader.open(place.path + "r_parm"));
  EXPECT_EQ(ranmar_read(second.ranmar, reader), 0);
  EXPECT_EQ(reader.record_length(), 812);
  EXPECT_EQ(reader.bytes_left(), 0);
  for (const double expected : beyond) ASSERT_EQ(RANMAR(second.ranmar), expected);
}

// 97 x 8 + 3 x 8 + 3 x 4 = 812 = hexadecimal 32C, framed before and after.
TEST(saved_state, is_one_record_of_812_bytes_in_little_endian_order) {
  const scratch place;
  both_sources run;
  RMARIN(run.ranmar, 1802, 9373);
  RANMAR(run.ranmar);
  ranmar_save(run.ranmar);
  sequential_writer writer;
  ASSERT_TRUE(writer.open(place.path + "r_parm"));
  ASSERT_TRUE(ranmar_write(run.ranmar, writer));
  ASSERT_TRUE(writer.close());

  std::ifstream file(place.path + "r_parm", std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  ASSERT_EQ(bytes.size(), 820U);
  const std::string frame("\x2C\x03\x00\x00", 4);
  EXPECT_EQ(bytes.substr(0, 4), frame);
  EXPECT_EQ(bytes.substr(816), frame);
  EXPECT_EQ(std::memcmp(bytes.data() + 4, run.ranmar.saved.U.data(), 776), 0);
  const double tail[3] = {(362436.0 - 7654321.0 + 16777213.0) / 16777216.0, 7654321.0 / 16777216.0,
                          16777213.0 / 16777216.0};
  EXPECT_EQ(std::memcmp(bytes.data() + 780, tail, 24), 0);
  EXPECT_EQ(bytes.substr(804, 12), std::string("\x60\0\0\0\x20\0\0\0\x01\0\0\0", 12)); // 96, 32, true
}

TEST(saved_state, record_that_is_short_or_missing_is_reported) {
  const scratch place;
  both_sources run;
  sequential_writer writer;
  ASSERT_TRUE(writer.open(place.path + "r_parm"));
  writer.begin();
  for (int i = 0; i < 100; ++i) writer.put(0.25);
  writer.end();
  ASSERT_TRUE(writer.close());
  sequential_reader reader;
  ASSERT_TRUE(reader.open(place.path + "r_parm"));
  EXPECT_EQ(ranmar_read(run.ranmar, reader), 67); // the record ended before its items did
  EXPECT_EQ(ranmar_read(run.ranmar, reader), -1); // end of the file
  EXPECT_FALSE(run.ranmar.TEST);
}

// ---- Combined source ----

constexpr std::int64_t M1 = 2147483563, M2 = 2147483399;

__extension__ using wide = __int128;
std::int64_t modular_product(std::int64_t a, std::int64_t s, std::int64_t m) {
  return static_cast<std::int64_t>(static_cast<wide>(a) * s % m);
}
// a**(2**squarings) mod m
std::int64_t modular_power(std::int64_t a, int squarings, std::int64_t m) {
  for (int i = 0; i < squarings; ++i) a = modular_product(a, a, m);
  return a;
}

// The combined generator straight from its definition.
struct plain_combined {
  std::int64_t s1, s2;
  std::int64_t draw() {
    s1 = modular_product(40014, s1, M1);
    s2 = modular_product(40692, s2, M2);
    const std::int64_t z = s1 - s2;
    return z < 1 ? z + M1 - 1 : z;
  }
};

TEST(combined_constants, are_the_published_ones) {
  EXPECT_EQ(combined_source::a1, 40014);
  EXPECT_EQ(combined_source::m1, 2147483563);
  EXPECT_EQ(combined_source::a2, 40692);
  EXPECT_EQ(combined_source::m2, 2147483399);
  EXPECT_EQ(combined_source::a1w, modular_power(40014, 30, M1));
  EXPECT_EQ(combined_source::a2w, modular_power(40692, 30, M2));
  EXPECT_EQ(combined_source::a1vw, modular_power(40014, 50, M1));
  EXPECT_EQ(combined_source::a2vw, modular_power(40692, 50, M2));
  EXPECT_EQ(4.656613057E-10F, std::ldexp(1.0F, -31));
}

TEST(MLTMOD, is_the_product_modulo_m) {
  kept_listing run;
  const std::int32_t moduli[] = {2147483563, 2147483399, 2147483647, 1073741824, 65537,
                                 65536,      65535,      32769,      32768};
  for (const std::int32_t m : moduli) {
    plain_combined any{12345, 67890};
    for (int i = 0; i < 4000; ++i) {
      const auto a = static_cast<std::int32_t>(any.draw() % (m - 1) + 1),
                 s = static_cast<std::int32_t>(any.draw() % (m - 1) + 1);
      ASSERT_EQ(MLTMOD(run.report, a, s, m), modular_product(a, s, m)) << a << " " << s << " " << m;
    }
    for (const std::int32_t a :
         {1, 2, 32767, 32768, 32769, 65536, 1073741823, 1073741824, 1073774592, m / 2, m - 2, m - 1})
      for (const std::int32_t s : {1, 2, 3, 32768, 65535, m / 2, m - 1})
        if (a < m && s < m) {
          ASSERT_EQ(MLTMOD(run.report, a, s, m), modular_product(a, s, m)) << a << " " << s << " " << m;
        }
  }
}

TEST(MLTMOD, takes_small_moduli) {
  kept_listing run;
  for (std::int32_t m = 2; m <= 40; ++m)
    for (std::int32_t a = 1; a < m; ++a)
      for (std::int32_t s = 1; s < m; ++s) ASSERT_EQ(MLTMOD(run.report, a, s, m), a * s % m);
}

TEST(MLTMOD, stops_at_operands_out_of_order) {
  const std::int32_t operands[][3] = {{0, 1, 10}, {-1, 1, 10}, {10, 1, 10},
                                      {1, 0, 10}, {1, 10, 10}, {1, -5, 10}};
  for (const auto& [a, s, m] : operands) {
    kept_listing run;
    EXPECT_EQ(run.exit_code([&, a = a, s = s, m = m] { MLTMOD(run.report, a, s, m); }), 16);
  }
  kept_listing run;
  EXPECT_EQ(run.exit_code([&] { MLTMOD(run.report, 7, 11, 11); }), 16);
  EXPECT_EQ(run.out.str(), " A, M, S out of order in MLTMOD - ABORT!\n"
                           " A =            7  S =           11  M =           11\n"
                           " MLTMOD requires: 0 < A < M; 0 < S < M\n");
}

TEST(next_integer, before_any_seed_starts_from_the_default_seeds) {
  both_sources unseeded, seeded;
  SETALL(seeded.ranlib, 1234567890, 123456789);
  plain_combined reference{1234567890, 123456789};
  for (int i = 0; i < 5000; ++i) {
    const std::int32_t z = next_integer(unseeded.ranlib);
    ASSERT_EQ(z, next_integer(seeded.ranlib));
    ASSERT_EQ(z, reference.draw());
  }
  for (std::size_t g = 0; g < 32; ++g) {
    EXPECT_EQ(unseeded.ranlib.generators[g].ig1, seeded.ranlib.generators[g].ig1);
    EXPECT_EQ(unseeded.ranlib.generators[g].ig2, seeded.ranlib.generators[g].ig2);
  }
}

TEST(next_integer, of_an_antithetic_generator_is_the_complement) {
  both_sources run;
  SETALL(run.ranlib, 42, 4711);
  run.ranlib.generators[0].qanti = true;
  plain_combined reference{42, 4711};
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(next_integer(run.ranlib), M1 - reference.draw());
}

TEST(SETALL, spaces_the_virtual_generators_by_a_power_of_draws) {
  both_sources run;
  SETALL(run.ranlib, 20231, 977);
  EXPECT_EQ(run.ranlib.curntg, 1);
  std::int64_t s1 = 20231, s2 = 977;
  for (int g = 1; g <= 32; ++g) {
    const virtual_generator& one = run.ranlib.generators[static_cast<std::size_t>(g - 1)];
    EXPECT_EQ(one.ig1, s1);
    EXPECT_EQ(one.ig2, s2);
    EXPECT_EQ(one.lg1, s1);
    EXPECT_EQ(one.lg2, s2);
    EXPECT_EQ(one.cg1, s1);
    EXPECT_EQ(one.cg2, s2);
    s1 = modular_product(modular_power(40014, 50, M1), s1, M1);
    s2 = modular_product(modular_power(40692, 50, M2), s2, M2);
  }
}

TEST(SETALL, keeps_the_current_generator) {
  both_sources run;
  SETALL(run.ranlib, 5, 6);
  SETCGN(run.ranlib, 17);
  SETALL(run.ranlib, 5, 6);
  EXPECT_EQ(run.ranlib.curntg, 17);
  plain_combined reference{run.ranlib.generators[16].ig1, run.ranlib.generators[16].ig2};
  for (int i = 0; i < 100; ++i) ASSERT_EQ(next_integer(run.ranlib), reference.draw());
  EXPECT_EQ(run.ranlib.generators[0].cg1, 5); // the others stay as they are
}

TEST(SETALL, stops_at_a_seed_that_cannot_be_multiplied) {
  both_sources run;
  EXPECT_EQ(run.exit_code([&] { SETALL(run.ranlib, 0, 6); }), 16);
  EXPECT_EQ(run.out.str(), " A, M, S out of order in MLTMOD - ABORT!\n"
                           " A =   2082007225  S =            0  M =   2147483563\n"
                           " MLTMOD requires: 0 < A < M; 0 < S < M\n");
}

TEST(GETSD, gives_seeds_that_continue_the_stream) {
  both_sources first, second;
  ranlib_start(first.ranlib, 20240131);
  for (int i = 0; i < 777; ++i) ranf(first.ranlib);
  std::int32_t s1, s2;
  GETSD(first.ranlib, s1, s2);
  SETALL(second.ranlib, s1, s2);
  for (int i = 0; i < 777; ++i) ASSERT_EQ(ranf(first.ranlib), ranf(second.ranlib));
}

TEST(ranlib_start, leaves_generator_1_at_the_seed_and_the_others_at_the_defaults) {
  both_sources run, defaults;
  ranlib_start(run.ranlib, 31415926);
  EXPECT_TRUE(run.ranlib.qrgnin);
  EXPECT_TRUE(run.ranlib.qrgnsd);
  std::int32_t s1, s2;
  GETSD(run.ranlib, s1, s2);
  EXPECT_EQ(s1, 31415926);
  EXPECT_EQ(s2, 31415926);
  next_integer(defaults.ranlib);
  EXPECT_EQ(run.ranlib.generators[1].ig1, defaults.ranlib.generators[1].ig1);
  plain_combined reference{31415926, 31415926};
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(next_integer(run.ranlib), reference.draw());
}

TEST(INITGN, restarts_at_initial_seeds_block_or_next_block) {
  both_sources run;
  SETALL(run.ranlib, 1000, 2000);
  for (int i = 0; i < 10; ++i) next_integer(run.ranlib);
  INITGN(run.ranlib, 1); // 2**30 draws beyond the block's seeds, not beyond the current ones
  const auto b1 = modular_product(modular_power(40014, 30, M1), 1000, M1);
  const auto b2 = modular_product(modular_power(40692, 30, M2), 2000, M2);
  const virtual_generator& g = run.ranlib.generators[0];
  EXPECT_EQ(g.lg1, b1);
  EXPECT_EQ(g.lg2, b2);
  EXPECT_EQ(g.cg1, b1);
  EXPECT_EQ(g.cg2, b2);
  for (int i = 0; i < 10; ++i) next_integer(run.ranlib);
  INITGN(run.ranlib, 0);
  EXPECT_EQ(g.cg1, b1);
  EXPECT_EQ(g.cg2, b2);
  INITGN(run.ranlib, -1);
  EXPECT_EQ(g.cg1, 1000);
  EXPECT_EQ(g.lg2, 2000);
  EXPECT_EQ(g.ig1, 1000);
}

TEST(INITGN, stops_at_any_other_kind) {
  for (const std::int32_t kind : {2, -2}) {
    both_sources run;
    SETALL(run.ranlib, 1, 1);
    EXPECT_EQ(run.exit_code([&] { INITGN(run.ranlib, kind); }), 16);
    EXPECT_EQ(run.out.str(), "ISDTYP NOT IN RANGE\n");
  }
}

TEST(combined_source, calls_before_the_constants_are_set_stop) {
  std::int32_t s1 = 0, s2 = 0;
  both_sources first, second, third;
  EXPECT_EQ(first.exit_code([&] { INITGN(first.ranlib, -1); }), 16);
  EXPECT_EQ(first.out.str(), " INITGN called before random number generator   initialized -- abort!\n");
  EXPECT_EQ(second.exit_code([&] { SETSD(second.ranlib, 1, 2); }), 16);
  EXPECT_EQ(second.out.str(), " SETSD called before random number generator   initialized -- abort!\n");
  EXPECT_EQ(third.exit_code([&] { GETSD(third.ranlib, s1, s2); }), 16);
  EXPECT_EQ(third.out.str(), " GETSD called before random number generator   initialized -- abort!\n");
}

TEST(SETCGN, stops_outside_the_32_generators) {
  for (const std::int32_t g : {0, 33, -1}) {
    both_sources run;
    EXPECT_EQ(run.exit_code([&] { SETCGN(run.ranlib, g); }), 16);
    EXPECT_EQ(run.out.str(),
              " Generator number out of range in SETCGN:  Legal range is 1 to           32  -- ABORT!\n");
    EXPECT_EQ(run.ranlib.curntg, 1);
  }
  both_sources run;
  SETCGN(run.ranlib, 32);
  EXPECT_EQ(run.ranlib.curntg, 32);
}

TEST(ranf, is_the_integer_in_32_bits_times_2_to_minus_31) {
  both_sources run;
  plain_combined reference{1234567890, 123456789};
  for (int i = 0; i < 20000; ++i) {
    const float u = ranf(run.ranlib);
    ASSERT_EQ(u, std::ldexp(static_cast<float>(reference.draw()), -31));
    ASSERT_GT(u, 0.0F);
    ASSERT_LT(u, 1.0F);
  }
}

// The largest and the smallest integer, by current seeds one step before them.
TEST(ranf, lies_inside_0_and_1_at_the_ends) {
  both_sources run;
  SETALL(run.ranlib, 1, 1);
  virtual_generator& g = run.ranlib.generators[0];
  // z = 1 needs s1 = s2 + 1: step back from 2 and 1 by the inverse multipliers a**(m-2)
  const auto inverse = [](std::int64_t a, std::int64_t m) {
    std::int64_t result = 1;
    for (std::int64_t e = m - 2; e > 0; e /= 2, a = modular_product(a, a, m))
      if (e % 2 == 1) result = modular_product(result, a, m);
    return result;
  };
  g.cg1 = static_cast<std::int32_t>(modular_product(2, inverse(40014, M1), M1));
  g.cg2 = static_cast<std::int32_t>(inverse(40692, M2));
  EXPECT_EQ(ranf(run.ranlib), std::ldexp(1.0F, -31));
  g.cg1 = static_cast<std::int32_t>(inverse(40014, M1)); // s1 = s2 = 1: z = 0 becomes m1 - 1
  g.cg2 = static_cast<std::int32_t>(inverse(40692, M2));
  EXPECT_EQ(ranf(run.ranlib), 1.0F - std::ldexp(1.0F, -24));
}

TEST(uniform_range, without_bounds_is_ranf_widened) {
  both_sources one, other;
  for (int i = 0; i < 100; ++i) ASSERT_EQ(uniform_range(one.ranlib), static_cast<double>(ranf(other.ranlib)));
}

TEST(uniform_range, scales_in_64_bits) {
  both_sources one, other;
  for (int i = 0; i < 100; ++i) {
    const double u = static_cast<double>(ranf(other.ranlib));
    ASSERT_EQ(uniform_range(one.ranlib, -3.0, 1e9), -3.0 + u * (1e9 + 3.0));
  }
}

TEST(random_sources, of_two_runs_share_nothing) {
  both_sources one, other;
  RMARIN(one.ranmar, 3, 4);
  ranlib_start(one.ranlib, 99);
  for (int i = 0; i < 10; ++i) RANMAR(one.ranmar);
  EXPECT_FALSE(other.ranmar.TEST);
  EXPECT_FALSE(other.ranlib.qrgnin);
  both_sources again;
  RMARIN(again.ranmar, 3, 4);
  RMARIN(one.ranmar, 3, 4);
  for (int i = 0; i < 100; ++i) ASSERT_EQ(RANMAR(one.ranmar), RANMAR(again.ranmar));
}

} // namespace
} // namespace zeph
