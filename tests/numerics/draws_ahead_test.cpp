// Blocks of uniforms and rows of normals against one number at a time: the same
// values, and the same state at every place of a block.
#include "numerics/matrix_draws.h"
#include "numerics/normal_draws.h"
#include "plain_ranmar.h"
#include "stops.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bitset>
#include <limits>
#include <vector>

namespace zeph {
namespace {

using zeph_test::plain_ranmar;
using zeph_test::same_state;

constexpr std::int32_t one = marsaglia_source::one, block = marsaglia_source::block;

struct pair_of_sources : kept_listing {
  marsaglia_source ahead{report};
  plain_ranmar plain{start(ahead)};
  static marsaglia_state start(marsaglia_source& source) {
    RMARIN(source, 1802, 9373);
    return ranmar_state(source);
  }
  double plain_normal() { return fl5_normal<double>(plain); }
  bool agree() const { return same_state(ranmar_state(ahead), plain); }
};

// A state of whole numbers, and its sequences both ways: x(1..97) oldest first.
struct whole_state {
  std::int64_t x[98], c;
  explicit whole_state(const marsaglia_state& s) : c(static_cast<std::int64_t>(s.C * one)) {
    for (int n = 1; n <= 97; ++n)
      x[n] = static_cast<std::int64_t>(s.U[static_cast<std::size_t>((s.I97 + 97 - n) % 97)] * one);
  }
  void back() { // x(n-97) = x(n) + x(n-33) mod 1, c(n-1) = c(n) + CD mod CM
    const std::int64_t oldest = (x[97] + x[64]) % one;
    for (int n = 97; n > 1; --n) x[n] = x[n - 1];
    x[1] = oldest;
    c = (c + marsaglia_source::CD) % marsaglia_source::CM;
  }
  // The k-th draw from here becomes v 2^-24; k = 1..33.
  void plant(int k, std::int64_t v) {
    const std::int64_t later = (c + static_cast<std::int64_t>(marsaglia_source::CM) * k -
                                static_cast<std::int64_t>(marsaglia_source::CD) * k) %
                               marsaglia_source::CM;
    x[k] = (later + v + x[k + 64]) % one;
  }
  marsaglia_state state() const {
    marsaglia_state s;
    for (int n = 1; n <= 97; ++n) s.U[static_cast<std::size_t>(97 - n)] = static_cast<double>(x[n]) / one;
    s.C = static_cast<double>(c) / one;
    s.CD = 7654321.0 / one;
    s.CM = 16777213.0 / one;
    s.I97 = 97;
    s.J97 = 33;
    s.TEST = true;
    return s;
  }
};

// A state whose draws number place+1, place+2, .. are the planted ones.
marsaglia_state planted(int place, const std::vector<std::int64_t>& values) {
  kept_listing listing;
  marsaglia_source source(listing.report);
  RMARIN(source, 12, 345);
  whole_state at(ranmar_state(source));
  for (std::size_t k = 0; k < values.size(); ++k) at.plant(static_cast<int>(k + 1), values[k]);
  for (int n = 0; n < place; ++n) at.back();
  return at.state();
}

TEST(ranmar_fill, gives_the_uniforms_of_the_published_generator) {
  pair_of_sources s;
  std::vector<double> x(10007);
  std::int64_t left = 10000000, wrong = 0;
  for (std::int64_t n = 1; left > 0; n = n * 3 % 10007, left -= n) {
    ranmar_fill(s.ahead, x.data(), n);
    for (std::int64_t i = 0; i < n; ++i) wrong += x[static_cast<std::size_t>(i)] != s.plain();
  }
  EXPECT_EQ(wrong, 0);
  EXPECT_TRUE(s.agree());
}

TEST(ranmar_snorms, gives_the_normals_of_the_algorithm_on_the_published_generator) {
  pair_of_sources s;
  std::vector<double> x(10007);
  std::int64_t left = 5000000, wrong = 0;
  for (std::int64_t n = 1; left > 0; n = n * 3 % 10007, left -= n) {
    ranmar_snorms(s.ahead, x.data(), n);
    for (std::int64_t i = 0; i < n; ++i) wrong += x[static_cast<std::size_t>(i)] != s.plain_normal();
  }
  EXPECT_EQ(wrong, 0);
  EXPECT_TRUE(s.agree());
}

TEST(ranmar_state, is_that_of_single_draws_after_any_count) {
  pair_of_sources s;
  for (int n = 0; n < 3 * block; ++n) {
    ASSERT_TRUE(s.agree()) << n;
    marsaglia_source other(s.report);
    ranmar_restore(other, ranmar_state(s.ahead));
    plain_ranmar same = s.plain;
    for (int i = 0; i < 300; ++i) ASSERT_EQ(RANMAR(other), same()) << n << " " << i;
    ASSERT_TRUE(same_state(ranmar_state(other), same)) << n;
    ASSERT_EQ(RANMAR(s.ahead), s.plain());
  }
}

// Every kind of draw begins at every place of a block.
TEST(draws_ahead, agree_with_single_draws_however_they_are_mixed) {
  pair_of_sources s;
  constexpr int kinds = 6;
  std::bitset<block + 1> begun[kinds];
  double x[800], y[800];
  std::uint32_t coin = 1;
  for (int turn = 0; turn < 60000; ++turn) {
    coin = coin * 1664525U + 1013904223U;
    const int kind = static_cast<int>((coin >> 8) % kinds);
    const int n = static_cast<int>((coin >> 12) % (turn % 50 == 0 ? 800 : 30));
    begun[kind].set(static_cast<std::size_t>(s.ahead.used));
    int drawn = n;
    switch (kind) {
    case 0:
      for (int i = 0; i < n; ++i) x[i] = RANMAR(s.ahead), y[i] = s.plain();
      break;
    case 1:
      ranmar_fill(s.ahead, x, n);
      for (int i = 0; i < n; ++i) y[i] = s.plain();
      break;
    case 2:
      for (int i = 0; i < n; ++i) x[i] = ranmar_snorm(s.ahead), y[i] = s.plain_normal();
      break;
    case 3:
      ranmar_snorms(s.ahead, x, n);
      for (int i = 0; i < n; ++i) y[i] = s.plain_normal();
      break;
    case 4: {
      ranmar_draws draws(s.ahead);
      for (int i = 0; i < n; ++i) {
        const bool normal = i % 20 != 19;
        x[i] = normal ? ranmar_snorm(draws) : draws.next();
        y[i] = normal ? s.plain_normal() : s.plain();
      }
      break;
    }
    default: { // save, continue in another source, come back
      ranmar_save(s.ahead);
      ASSERT_TRUE(same_state(s.ahead.saved, s.plain));
      marsaglia_source other(s.report);
      ranmar_restore(other, s.ahead.saved);
      ranmar_kr_normals(other, x, n);
      ranmar_kr_normals(s.ahead, y, n);
      ASSERT_TRUE(same_state(ranmar_state(other), ranmar_state(s.ahead)));
      s.plain = plain_ranmar(ranmar_state(other));
      if (turn % 2 == 0) ranmar_restore(s.ahead, s.plain); // a block that begins here
    }
    }
    for (int i = 0; i < drawn; ++i) ASSERT_EQ(x[i], y[i]) << turn << " kind " << kind << " " << i;
    ASSERT_TRUE(s.agree()) << turn << " kind " << kind;
  }
  for (const auto& places : begun) EXPECT_GE(places.count(), static_cast<std::size_t>(block));
}

TEST(draws_ahead, pass_over_exact_zeros_at_every_place_of_a_block) {
  const std::vector<std::int64_t> zeros[] = {{0}, {0, 0}, {0, 0, 0, 5, 0}};
  for (int place = 0; place <= block + 1; ++place)
    for (const auto& values : zeros) {
      pair_of_sources s;
      s.plain = plain_ranmar(planted(place, values));
      ranmar_restore(s.ahead, s.plain);
      for (int i = 0; i < place + 3; ++i) {
        ASSERT_EQ(RANMAR(s.ahead), s.plain()) << place;
        ASSERT_TRUE(s.agree()) << place << " " << i;
      }
      ASSERT_GE(s.plain.zeros, static_cast<std::int64_t>(values.size() > 2 ? 4 : values.size()));
      pair_of_sources t;
      t.plain = plain_ranmar(planted(place, values));
      ranmar_restore(t.ahead, t.plain);
      double x[400];
      ranmar_snorms(t.ahead, x, 400);
      for (const double normal : x) ASSERT_EQ(normal, t.plain_normal()) << place;
      ASSERT_TRUE(t.agree()) << place;
    }
}

// The ends of all cells of the first uniform, 1/2 and the depths of the tail among them.
TEST(draws_ahead, agree_at_the_ends_of_all_cells_of_the_first_uniform) {
  std::vector<std::int64_t> firsts;
  for (const fl5_cell& cell : fl5_first.of)
    for (const std::int64_t near : {-1, 0, 1, 2}) firsts.push_back(std::int64_t{cell.limit} + near);
  for (int bit = 0; bit < 24; ++bit)
    for (const std::int64_t near : {-1, 0, 1}) {
      firsts.push_back((std::int64_t{1} << bit) + near);
      firsts.push_back(one / 2 + (std::int64_t{1} << bit) + near);
    }
  for (const std::int64_t first : firsts) {
    if (first < 1 || first >= one) continue;
    const marsaglia_state state = planted(0, {first});
    pair_of_sources s, t;
    s.plain = t.plain = plain_ranmar(state);
    ranmar_restore(s.ahead, state);
    ranmar_restore(t.ahead, state);
    double x[40];
    ranmar_snorms(t.ahead, x, 40);
    ASSERT_EQ(ranmar_snorm(s.ahead), s.plain_normal()) << first;
    ASSERT_TRUE(s.agree()) << first;
    for (const double normal : x) ASSERT_EQ(normal, t.plain_normal()) << first;
    ASSERT_TRUE(t.agree()) << first;
  }
}

// Second to fifth uniforms on either side of the tests they meet.
TEST(draws_ahead, agree_in_all_courses_of_wedge_and_tail) {
  const std::int64_t levels[] = {1, one / 64, one / 2, one - 1};
  for (int j = 0; j < 64; ++j)
    for (int course = 0; course < 256; ++course) {
      const std::int64_t first =
          std::max<std::int64_t>(1, (std::int64_t{j} << fl5_cells::bits) + course * 40);
      const marsaglia_state state = planted(0, {first, levels[course % 4], levels[course / 4 % 4],
                                                levels[course / 16 % 4], levels[course / 64]});
      pair_of_sources s;
      s.plain = plain_ranmar(state);
      ranmar_restore(s.ahead, state);
      double x[20];
      ranmar_snorms(s.ahead, x, 20);
      for (const double normal : x) ASSERT_EQ(normal, s.plain_normal()) << j << " " << course;
      ASSERT_TRUE(s.agree()) << j << " " << course;
    }
}

TEST(ranmar_draws, of_an_unstarted_source_stop) {
  kept_listing run;
  marsaglia_source source(run.report);
  EXPECT_EQ(run.exit_code([&] { ranmar_draws draws(source); }), 16);
  EXPECT_EQ(run.out.str(), " Call the init routine (RMARIN) before calling RANMAR\n");
}

TEST(ranmar_restore, of_a_state_that_draws_cannot_leave_leaves_the_source_unstarted) {
  pair_of_sources s;
  const marsaglia_state good = ranmar_state(s.ahead);
  const auto refused = [&](auto&& damage) {
    marsaglia_state state = good;
    damage(state);
    marsaglia_source source(s.report);
    ranmar_restore(source, state);
    return !source.TEST;
  };
  EXPECT_FALSE(refused([](marsaglia_state&) {}));
  EXPECT_TRUE(refused([](marsaglia_state& x) { x.TEST = false; }));
  EXPECT_TRUE(refused([](marsaglia_state& x) { x.U[96] = 1.0; }));
  EXPECT_TRUE(refused([](marsaglia_state& x) { x.U[0] = -0x1p-24; }));
  EXPECT_TRUE(refused([](marsaglia_state& x) { x.U[5] = 0x1p-25; }));
  EXPECT_TRUE(refused([](marsaglia_state& x) { x.C = x.CM; }));
  EXPECT_TRUE(refused([](marsaglia_state& x) { x.CD = 0.25; }));
  EXPECT_TRUE(refused([](marsaglia_state& x) { x.CM = 0.75; }));
  EXPECT_TRUE(refused([](marsaglia_state& x) { x.I97 = 96; }));
  EXPECT_TRUE(refused([](marsaglia_state& x) { x.I97 = 98, x.J97 = 34; }));
  EXPECT_TRUE(refused([](marsaglia_state& x) { x.I97 = 0, x.J97 = 33; }));
}

// The step of the published routine, by Schrage's quotient in 32 bits.
template <std::int32_t a, std::int32_t m> std::int32_t schrage_step(std::int32_t s) {
  constexpr std::int32_t q = m / a, r = m % a;
  const std::int32_t k = s / q;
  const std::int32_t next = a * (s - k * q) - k * r;
  return next < 0 ? next + m : next;
}

TEST(congruential_step, is_the_published_step_for_seeds_of_any_size) {
  using source = combined_source;
  constexpr std::int32_t least = std::numeric_limits<std::int32_t>::min();
  constexpr std::int32_t greatest = std::numeric_limits<std::int32_t>::max();
  std::int32_t s1 = 1, s2 = 1;
  for (int n = 0; n < 1000000; ++n) {
    const auto spread = static_cast<std::int32_t>(least + n * std::int64_t{4294}); // over the whole range
    for (const std::int32_t s :
         {spread, greatest - n, least + n, n - 500000, source::m1 - n, source::m2 - n}) {
      ASSERT_EQ((congruential_step<source::a1, source::m1>(s)), (schrage_step<source::a1, source::m1>(s)))
          << s;
      ASSERT_EQ((congruential_step<source::a2, source::m2>(s)), (schrage_step<source::a2, source::m2>(s)))
          << s;
    }
    const std::int32_t next1 = schrage_step<source::a1, source::m1>(s1);
    const std::int32_t next2 = schrage_step<source::a2, source::m2>(s2);
    ASSERT_EQ((congruential_step<source::a1, source::m1>(s1)), next1);
    ASSERT_EQ((congruential_step<source::a2, source::m2>(s2)), next2);
    s1 = next1;
    s2 = next2;
  }
}

} // namespace
} // namespace zeph
