// Coding of the fixed part. The rank of random designs is that of LAPACK's dgesvd for the dense matrix with
// all levels; which columns depend on earlier ones is found by that rank, column by column.
#include "prepare/parts/fixed_rank.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>

extern "C" void dgesvd_(const char* jobu, const char* jobvt, const int* m, const int* n, double* a,
                        const int* lda, double* s, double* u, const int* ldu, double* vt, const int* ldvt,
                        double* work, const int* lwork, int* info);

namespace zeph::prepare {
namespace {

using levels = std::vector<std::int32_t>;
using words = std::vector<std::string>;
using column = std::vector<double>;

words numbered(std::int32_t n) {
  words w;
  for (std::int32_t l = 1; l <= n; ++l) w.push_back(std::to_string(l));
  return w;
}

// Number of singular values above 1e-8 of the largest, columns scaled to length 1.
int dense_rank(const std::vector<column>& x) {
  if (x.empty() || x[0].empty()) return 0;
  const int m = static_cast<int>(x[0].size()), n = static_cast<int>(x.size()), one = 1;
  std::vector<double> a;
  for (const column& c : x) {
    const double length = std::sqrt(std::inner_product(c.begin(), c.end(), c.begin(), 0.0));
    for (const double v : c) a.push_back(length > 0.0 ? v / length : 0.0);
  }
  int info = 0, lwork = 10 * (m + n);
  std::vector<double> s(static_cast<std::size_t>(std::min(m, n))), work(static_cast<std::size_t>(lwork));
  double none = 0.0;
  dgesvd_("N", "N", &m, &n, a.data(), &m, s.data(), &none, &one, &none, &one, work.data(), &lwork, &info);
  EXPECT_EQ(info, 0);
  return static_cast<int>(std::count_if(s.begin(), s.end(), [&](double v) { return v > 1e-8 * s[0]; }));
}

column design_column(const fixed_effect& e, std::int32_t level, std::size_t n_records) {
  column c(n_records, 0.0);
  for (std::size_t r = 0; r < n_records; ++r)
    if (e.level.empty() || e.level[r] == level) c[r] = e.covariable.empty() ? 1.0 : e.covariable[r];
  return c;
}

std::vector<column> all_columns(std::span<const fixed_effect> effects, std::size_t n_records) {
  std::vector<column> x;
  for (const fixed_effect& e : effects)
    for (std::int32_t l = 1; l <= e.n_levels; ++l) x.push_back(design_column(e, l, n_records));
  return x;
}

std::vector<column> kept_columns(std::span<const fixed_effect> effects, const fixed_coding& coding,
                                 std::size_t n_records) {
  std::vector<column> x;
  for (const column_decision& d : coding.column)
    if (d.state == column_state::kept)
      x.push_back(design_column(effects[static_cast<std::size_t>(d.effect)], d.level, n_records));
  return x;
}

// Names of the columns in a state.
words names_in(std::span<const fixed_effect> effects, const fixed_coding& coding, column_state state) {
  words w;
  for (const column_decision& d : coding.column)
    if (d.state == state) w.push_back(column_name(effects[static_cast<std::size_t>(d.effect)], d.level));
  return w;
}

TEST(fixed_rank, widest_class_keeps_all_and_others_lose_their_largest_level) {
  const levels sex{1, 2, 2, 1, 2, 2}, herd{1, 1, 2, 2, 3, 3};
  const words sexes{"M", "F"}, herds = numbered(3);
  const std::vector<fixed_effect> effects{{"sex", sex, {}, 2, sexes}, {"herd", herd, {}, 3, herds}};
  message_log log;
  const fixed_coding c = code_fixed_part("bwt", effects, {}, true, log);
  EXPECT_TRUE(log.entries.empty()) << full_text(log);
  EXPECT_EQ(names_in(effects, c, column_state::reference), (words{"sex:F"})); // 4 of 6 records
  EXPECT_EQ(c.new_level, (std::vector<levels>{{1, 0}, {1, 2, 3}}));
  EXPECT_EQ(c.n_kept, (levels{1, 3}));
  EXPECT_EQ(c.rank, 4);
  EXPECT_EQ(c.column[1].n_records, 4);
  EXPECT_EQ(c.column[1].why, "most records of sex; its mean is in herd");
}

TEST(fixed_rank, first_of_equal_effects_and_levels_is_taken) {
  const levels a{1, 1, 2, 2}, b{1, 2, 1, 2};
  const words two = numbered(2);
  const std::vector<fixed_effect> effects{{"a", a, {}, 2, two}, {"b", b, {}, 2, two}};
  message_log log;
  const fixed_coding c = code_fixed_part("y", effects, {}, true, log);
  EXPECT_EQ(names_in(effects, c, column_state::reference), (words{"b:1"}));
  EXPECT_EQ(c.rank, 3);
}

TEST(fixed_rank, columns_with_the_same_records_are_named) {
  // damage 4 occurs in herd and year 7:1998 only, and there alone
  levels damage, herd_year;
  for (std::int32_t r = 0; r < 12; ++r) {
    damage.push_back(4);
    herd_year.push_back(2);
  }
  for (std::int32_t r = 0; r < 30; ++r) {
    damage.push_back(r % 3 + 1);
    herd_year.push_back(r % 10 < 5 ? 1 : 3 + r % 4);
  }
  const words damages = numbered(4), herd_years{"7:1997", "7:1998", "8:1996", "8:1997", "8:1998", "9:1998"};
  // damage 4 would be the reference (12 records against 10): let damage 1 have more
  for (std::int32_t r = 0; r < 5; ++r) {
    damage.push_back(1);
    herd_year.push_back(1);
  }
  const std::vector<fixed_effect> effects{{"damage", damage, {}, 4, damages},
                                          {"herd:year", herd_year, {}, 6, herd_years}};
  for (const bool is_error : {true, false}) {
    message_log log;
    const fixed_coding c = code_fixed_part("wwt", effects, {}, is_error, log);
    ASSERT_EQ(log.entries.size(), 1U);
    EXPECT_EQ(
        message_text(log.entries[0]),
        std::string(is_error ? "error" : "warning") +
            ": fixed effects of wwt are dependent: damage:4 = herd:year:[7:1998] (the same 12 records); "
            "damage:4 is dropped\n");
    EXPECT_EQ(names_in(effects, c, column_state::dependent), (words{"damage:4"}));
    EXPECT_EQ(c.column[3].why, "= herd:year:[7:1998] (the same 12 records)");
    EXPECT_EQ(c.new_level[0], (levels{0, 1, 2, 0}));
    EXPECT_EQ(c.rank, 8);
  }
}

TEST(fixed_rank, a_class_that_refines_another_takes_its_place) {
  // herd within region: all of region but the reference depends on herd
  const levels region{1, 1, 1, 1, 2, 2, 3, 3, 3}, herd{1, 1, 2, 2, 3, 3, 4, 5, 5};
  const words regions = numbered(3), herds = numbered(5);
  const std::vector<fixed_effect> effects{{"region", region, {}, 3, regions}, {"herd", herd, {}, 5, herds}};
  message_log log;
  const fixed_coding c = code_fixed_part("y", effects, {}, true, log);
  EXPECT_EQ(names_in(effects, c, column_state::reference), (words{"region:1"}));
  EXPECT_EQ(names_in(effects, c, column_state::dependent), (words{"region:2", "region:3"}));
  ASSERT_EQ(log.entries.size(), 2U);
  EXPECT_EQ(log.entries[0].text,
            "fixed effects of y are dependent: region:2 = herd:3 (the same 2 records); region:2 is dropped");
  EXPECT_EQ(log.entries[1].text,
            "fixed effects of y are dependent: region:3 = herd:4 + herd:5; region:3 is dropped");
  EXPECT_EQ(c.rank, 5);
}

TEST(fixed_rank, a_covariable_that_is_constant_within_the_class_is_dropped) {
  const levels year{1, 1, 2, 2, 3, 3};
  const column birth{2001, 2001, 2002, 2002, 2003, 2003}, age{10, 12, 9, 13, 11, 10},
      twice{20, 24, 18, 26, 22, 20};
  const words years{"2001", "2002", "2003"};
  const std::vector<fixed_effect> effects{{"birth", {}, birth, 1, {}},
                                          {"year", year, {}, 3, years},
                                          {"age", {}, age, 1, {}},
                                          {"twice", {}, twice, 1, {}}};
  message_log log;
  const fixed_coding c = code_fixed_part("y", effects, {}, false, log);
  EXPECT_EQ(names_in(effects, c, column_state::dependent), (words{"birth", "twice"}));
  ASSERT_EQ(log.entries.size(), 2U);
  EXPECT_EQ(log.entries[0].text,
            "fixed effects of y are dependent: birth = 2001 x year:2001 + 2002 x year:2002 + "
            "2003 x year:2003; birth is dropped");
  EXPECT_EQ(log.entries[1].text, "fixed effects of y are dependent: twice = 2 x age; twice is dropped");
  EXPECT_EQ(c.rank, 4);
}

TEST(fixed_rank, a_constant_covariable_is_the_mean) {
  const levels sex{1, 2, 1, 2};
  const column three{3.3, 3.3, 3.3, 3.3};
  const words two = numbered(2);
  const std::vector<fixed_effect> effects{{"sex", sex, {}, 2, two}, {"x", {}, three, 1, {}}};
  message_log log;
  const fixed_coding c = code_fixed_part("y", effects, {}, true, log);
  ASSERT_EQ(log.entries.size(), 1U);
  EXPECT_EQ(log.entries[0].text,
            "fixed effects of y are dependent: x = 3.3 x sex:1 + 3.3 x sex:2; x is dropped");
  EXPECT_EQ(c.rank, 2);
}

TEST(fixed_rank, a_covariable_far_from_zero_is_kept) {
  // years beside the mean: a share of 1e-3 of the column's length is its own
  column year, square;
  levels mean(31, 1);
  for (int k = 0; k < 31; ++k) {
    year.push_back(1990.0 + k);
    square.push_back(year.back() * year.back());
  }
  const words one{"1"};
  const std::vector<fixed_effect> effects{
      {"1", mean, {}, 1, one}, {"year", {}, year, 1, {}}, {"square", {}, square, 1, {}}};
  message_log log;
  const fixed_coding c = code_fixed_part("y", effects, {}, true, log);
  EXPECT_TRUE(log.entries.empty()) << full_text(log);
  EXPECT_EQ(c.rank, 3);
}

TEST(fixed_rank, a_mean_beside_a_class_is_its_reference) {
  const levels mean{1, 1, 1, 1}, sex{1, 2, 2, 1};
  const words one{""}, two = numbered(2);
  const std::vector<fixed_effect> effects{{"1", mean, {}, 1, one}, {"sex", sex, {}, 2, two}};
  message_log log;
  const fixed_coding c = code_fixed_part("y", effects, {}, true, log);
  EXPECT_TRUE(log.entries.empty());
  EXPECT_EQ(c.n_kept, (levels{0, 2}));
  EXPECT_EQ(c.rank, 2);
}

TEST(fixed_rank, regressions_alone_need_no_class) {
  const column x{1, 2, 3, 4}, z{1, 0, 1, 0}, sum{2, 2, 4, 4};
  const std::vector<fixed_effect> effects{{"x", {}, x, 1, {}}, {"z", {}, z, 1, {}}, {"s", {}, sum, 1, {}}};
  message_log log;
  const fixed_coding c = code_fixed_part("y", effects, {}, true, log);
  ASSERT_EQ(log.entries.size(), 1U);
  EXPECT_EQ(log.entries[0].text, "fixed effects of y are dependent: s = x + z; s is dropped");
  EXPECT_EQ(c.rank, 2);
}

TEST(fixed_rank, nested_regressions_have_a_column_per_level) {
  // within season 2 the covariable doesn't vary: its slope hangs together with the season
  const levels season{1, 1, 1, 2, 2, 2};
  const column x{1, 2, 3, 5, 5, 5};
  const words two{"dry", "wet"};
  const std::vector<fixed_effect> effects{{"season", season, {}, 2, two}, {"season:x", season, x, 2, two}};
  message_log log;
  const fixed_coding c = code_fixed_part("y", effects, {}, true, log);
  ASSERT_EQ(log.entries.size(), 1U);
  EXPECT_EQ(log.entries[0].text,
            "fixed effects of y are dependent: season:x:[wet] = 5 x season:wet; season:x:[wet] is dropped");
  EXPECT_EQ(c.new_level[1], (levels{1, 0}));
  EXPECT_EQ(c.rank, 3);
}

TEST(fixed_rank, only_records_of_the_trait_count_and_empty_levels_are_reported) {
  const levels sex{1, 2, 3, 1, 2, 0}, herd{1, 1, 1, 2, 2, 2};
  const words three = numbered(3), two = numbered(2);
  const std::vector<fixed_effect> effects{{"sex", sex, {}, 3, three}, {"herd", herd, {}, 2, two}};
  message_log log;
  const std::vector<std::uint8_t> use{1, 1, 0, 1, 1, 0};
  const fixed_coding c = code_fixed_part("y", effects, use, true, log);
  EXPECT_TRUE(log.entries.empty()) << full_text(log);
  EXPECT_EQ(names_in(effects, c, column_state::no_data), (words{"sex:3"}));
  EXPECT_EQ(c.rank, 3);
  EXPECT_EQ(c.new_level[0], (levels{1, 2, 0})); // as many levels as herd, and the first
}

TEST(fixed_rank, an_effect_of_part_of_the_records_has_no_reference) {
  // treatment 0 in half of the records: its columns don't sum to the mean, so both are needed
  const levels herd{1, 1, 1, 2, 2, 2, 3, 3}, treatment{0, 1, 2, 0, 1, 2, 0, 0};
  const words three = numbered(3), two = numbered(2);
  const std::vector<fixed_effect> effects{{"herd", herd, {}, 3, three}, {"treatment", treatment, {}, 2, two}};
  message_log log;
  const fixed_coding c = code_fixed_part("y", effects, {}, true, log);
  EXPECT_TRUE(log.entries.empty()) << full_text(log);
  EXPECT_EQ(c.rank, dense_rank(all_columns(effects, 8)));
  EXPECT_EQ(c.rank, 5);
}

TEST(fixed_rank, rank_and_span_are_those_of_a_dense_decomposition) {
  // two to four classes, some of them hanging together, with regressions, plain and nested
  for (unsigned seed = 1; seed <= 40; ++seed) {
    std::mt19937 draw(seed);
    const std::size_t n = 20 + draw() % 60;
    const std::size_t n_class = 2 + draw() % 3;
    std::vector<levels> level(n_class, levels(n));
    std::vector<std::int32_t> size;
    for (std::size_t e = 0; e < n_class; ++e) {
      size.push_back(2 + static_cast<std::int32_t>(draw() % 9));
      for (std::int32_t& l : level[e])
        l = 1 + static_cast<std::int32_t>(draw() % static_cast<unsigned>(size[e]));
    }
    if (seed % 2 == 0) // the second class follows from the first
      for (std::size_t r = 0; r < n; ++r)
        level[1][r] = (level[0][r] + 1) / 2 > size[1] ? 1 : (level[0][r] + 1) / 2;
    column x(n), constant(n);
    for (std::size_t r = 0; r < n; ++r) {
      x[r] = 10.0 + static_cast<double>(draw() % 100) / 7.0;
      constant[r] = 0.3 * level[0][r] + 4.0; // within the levels of the first class
    }
    const words names = numbered(11);
    std::vector<fixed_effect> effects;
    for (std::size_t e = 0; e < n_class; ++e)
      effects.push_back({"c" + std::to_string(e), level[e], {}, size[e], names});
    effects.push_back({"x", {}, x, 1, {}});
    effects.push_back({"c0:x", level[0], x, size[0], names});
    effects.push_back({"k", {}, constant, 1, {}});

    message_log log;
    const fixed_coding c = code_fixed_part("y", effects, {}, false, log);
    const std::vector<column> kept = kept_columns(effects, c, n);
    EXPECT_EQ(c.rank, dense_rank(all_columns(effects, n))) << seed;
    EXPECT_EQ(static_cast<std::int64_t>(kept.size()), c.rank) << seed;
    EXPECT_EQ(c.rank, dense_rank(kept)) << seed;
  }
}

TEST(fixed_rank, the_later_column_is_dropped) {
  // every dependent column depends on kept columns before it: the widest class, then by effect and level
  for (unsigned seed = 1; seed <= 15; ++seed) {
    std::mt19937 draw(100 + seed);
    const std::size_t n = 40;
    levels a(n), b(n), ab(n), wide(n);
    for (std::size_t r = 0; r < n; ++r) {
      a[r] = 1 + static_cast<std::int32_t>(draw() % 3);
      b[r] = 1 + static_cast<std::int32_t>(draw() % 3);
      ab[r] = (a[r] - 1) * 3 + b[r];
      wide[r] = 1 + static_cast<std::int32_t>(draw() % 12);
    }
    const words names = numbered(12);
    const std::vector<fixed_effect> effects{{"a", a, {}, 3, names},
                                            {"ab", ab, {}, 9, names},
                                            {"wide", wide, {}, 12, names},
                                            {"b", b, {}, 3, names}};
    message_log log;
    const fixed_coding c = code_fixed_part("y", effects, {}, false, log);
    std::vector<const column_decision*> order;
    for (const int e : {2, 0, 1, 3})
      for (const column_decision& d : c.column)
        if (d.effect == e) order.push_back(&d);
    std::vector<column> before;
    for (const column_decision* d : order) {
      if (d->state == column_state::reference || d->state == column_state::no_data) continue;
      before.push_back(design_column(effects[static_cast<std::size_t>(d->effect)], d->level, n));
      const bool independent = dense_rank(before) == static_cast<int>(before.size());
      EXPECT_EQ(independent, d->state == column_state::kept)
          << seed << " effect " << d->effect << " " << d->level;
      if (!independent) before.pop_back();
    }
  }
}

// Two classes in connected pairs, in three large parts of `size` levels of the narrower class that don't
// touch, a part with one level of it and two of the other, and one with a level of each. The rank of a
// two-way classification is the number of levels of both less the number of parts. n_random: further pairs
// per level.
void check_parts(std::int32_t size, std::int32_t n_random) {
  const std::int32_t more = size + 33, n_second = 3 * size + 2, n_wide = 3 * more + 3;
  levels wide, second;
  const auto add = [&](std::int32_t w, std::int32_t s) {
    wide.push_back(w);
    second.push_back(s);
  };
  std::mt19937 draw(5);
  for (std::int32_t part = 0; part < 3; ++part)
    for (std::int32_t k = 0; k < more; ++k) {
      const std::int32_t w = part * more + k + 1, s0 = part * size + 1;
      add(w, s0 + k % size);
      add(w, s0 + (k + 1) % size);
      for (std::int32_t q = 0; q < n_random; ++q)
        if (n_random > 1 || k % 100 == 0)
          add(w, s0 + static_cast<std::int32_t>(draw() % static_cast<unsigned>(size)));
    }
  add(n_wide - 2, n_second - 1);
  add(n_wide - 1, n_second - 1);
  for (std::int32_t k = 0; k < 5; ++k) add(n_wide, n_second);

  const words names = numbered(n_wide);
  const std::vector<fixed_effect> effects{{"second", second, {}, n_second, names},
                                          {"wide", wide, {}, n_wide, names}};
  message_log log;
  const fixed_coding c = code_fixed_part("y", effects, {}, false, log);
  EXPECT_EQ(c.rank, n_wide + n_second - 5);
  const words reference = names_in(effects, c, column_state::reference);
  ASSERT_EQ(reference.size(), 1U);
  // in every part without the reference the last level is dropped
  words expected;
  for (const std::int32_t l : {size, 2 * size, 3 * size, n_second - 1, n_second})
    expected.push_back("second:" + std::to_string(l));
  const std::int32_t part = (std::stoi(reference[0].substr(7)) - 1) / size;
  expected.erase(expected.begin() + part);
  EXPECT_EQ(names_in(effects, c, column_state::dependent), expected);
  const std::string text = full_text(log);
  EXPECT_NE(text.find("second:" + std::to_string(n_second) + " = wide:" + std::to_string(n_wide) +
                      " (the same 5 records)"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("second:" + std::to_string(n_second - 1) + " = wide:" + std::to_string(n_wide - 2) +
                      " + wide:" + std::to_string(n_wide - 1) + ";"),
            std::string::npos)
      << text;
}

TEST(fixed_rank, parts_that_do_not_touch_cost_a_column_each) {
  check_parts(40, 1);
  check_parts(40, 30);
}

TEST(fixed_rank, thousands_of_columns_that_touch_few_others_are_factored_as_a_sparse_matrix) {
  check_parts(530, 1);
}

TEST(fixed_rank, thousands_of_columns_that_touch_many_others_are_factored_with_pivoting) {
  check_parts(510, 6);
}

TEST(fixed_rank, tens_of_thousands_of_columns_are_factored_as_a_sparse_matrix) { check_parts(7000, 1); }

TEST(fixed_rank, full_coding_keeps_every_level) {
  const levels sex{1, 2, 1, 2}, herd{1, 1, 3, 3};
  const words two = numbered(2), three = numbered(3);
  const std::vector<fixed_effect> effects{{"sex", sex, {}, 2, two}, {"herd", herd, {}, 3, three}};
  const fixed_coding c = full_coding(effects, {});
  EXPECT_EQ(c.new_level, (std::vector<levels>{{1, 2}, {1, 2, 3}}));
  EXPECT_EQ(c.rank, 5);
  EXPECT_EQ(names_in(effects, c, column_state::no_data), (words{"herd:2"}));
}

TEST(fixed_rank, no_effects_have_rank_zero) {
  message_log log;
  EXPECT_EQ(code_fixed_part("y", {}, {}, true, log).rank, 0);
  EXPECT_TRUE(log.entries.empty());
}

} // namespace
} // namespace zeph::prepare
