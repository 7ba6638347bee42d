// Which pairs of factors are on the same levels, from models of three records of two traits that are changed
// one at a time. What is expected is read off the records as they are written here.
#include "gibbs/moves/pair_setup.h"

#include "gibbs/scan_case.h"

namespace zeph_test {
namespace {

// Factors 1 (4 levels) and 2 (3 levels) of order 2, places 1 and 2 of traits 1 and 2; factor 3 of order 1.
// Records are of levels (2,1), (4,3) and (2,1): levels 1 and 3 of factor 1 and level 2 of factor 2 have none.
struct setup_case : scan_case {
  setup_case() : scan_case(described()) { start(12); }

  static described_model described() {
    described_model d;
    d.traits.resize(2);
    d.factors = {
        {"I", 4, 2, {{1, 1, 1}, {2, 1, 2}}}, {"I", 3, 2, {{1, 2, 1}, {2, 2, 2}}}, {"I", 2, 1, {{1, 3, 1}}}};
    d.integers = 6;
    d.reals = 3;
    d.records = 3;
    d.residual = {1.0, 0.0, 0.0, 1.0};
    return d;
  }
  std::int32_t group(std::int32_t k) const { return layout.group_of_factor(k, m.nramat); }
  // Both places of a level of factor k.
  void both(std::int32_t r, std::int32_t k, std::int32_t l) {
    entry(r, 1, group(k), l, 1, 1.0);
    entry(r, 2, group(k), l, 2, 0.5);
  }
  void usual() {
    both(1, 1, 2), both(1, 2, 1);
    both(2, 1, 4), both(2, 2, 3);
    both(3, 2, 1), both(3, 1, 2); // in the other order
  }
  std::vector<pair_move> pairs() {
    std::vector<pair_move> found;
    find_pairs(m, design, found, run.report);
    return found;
  }
};

TEST(pair_setup, joins_the_levels_that_meet_in_the_records) {
  setup_case c;
  c.usual();
  c.entry(1, 1, c.group(3), 1, 1, 1.0); // of order 1: no pair with it
  const auto pairs = c.pairs();
  ASSERT_EQ(pairs.size(), 1U);
  EXPECT_EQ(pairs[0].k, 1);
  EXPECT_EQ(pairs[0].other, 2);
  const std::vector<std::int32_t> partner(pairs[0].partner.begin(), pairs[0].partner.end());
  const std::vector<std::int32_t> back(pairs[0].back.begin(), pairs[0].back.end());
  EXPECT_EQ(partner, (std::vector<std::int32_t>{0, 1, 0, 3}));
  EXPECT_EQ(back, (std::vector<std::int32_t>{2, 0, 4}));
}

TEST(pair_setup, takes_entries_of_a_level_in_any_order) {
  setup_case c;
  c.both(1, 1, 2);
  c.entry(1, 2, c.group(2), 1, 2, 0.5);
  c.entry(1, 1, c.group(2), 1, 1, 1.0);
  EXPECT_EQ(c.pairs().size(), 1U);
}

TEST(pair_setup, leaves_out_entries_that_the_records_do_not_use) {
  setup_case c;
  c.usual();
  c.entry(1, 1, c.group(2), 2, 1, 3.0);
  c.design.XD2_M(c.design.M_M(1), 1) = 0;
  EXPECT_EQ(c.pairs().size(), 1U);
}

// Each of these is the usual case but for one thing.
TEST(pair_setup, refuses_a_record_of_one_factor_only) {
  for (const std::int32_t k : {1, 2}) {
    setup_case c;
    c.both(1, 1, 2), c.both(1, 2, 1);
    c.both(2, k, 3);
    EXPECT_TRUE(c.pairs().empty()) << k;
  }
}

TEST(pair_setup, refuses_unequal_coefficients) {
  setup_case c;
  c.usual();
  c.design.ZD_M(1, 2) = 1.0000001;
  EXPECT_TRUE(c.pairs().empty());
}

TEST(pair_setup, refuses_unequal_places_and_traits) {
  setup_case place, trait;
  for (setup_case* c : {&place, &trait}) c->both(1, 1, 2), c->entry(1, 1, c->group(2), 1, 1, 1.0);
  place.entry(1, 2, place.group(2), 1, 1, 0.5);
  trait.entry(1, 1, trait.group(2), 1, 2, 0.5);
  EXPECT_TRUE(place.pairs().empty());
  EXPECT_TRUE(trait.pairs().empty());
}

TEST(pair_setup, refuses_a_record_with_one_entry_more) {
  setup_case c;
  c.usual();
  c.entry(3, 1, c.group(2), 1, 1, 1.0);
  EXPECT_TRUE(c.pairs().empty());
}

TEST(pair_setup, refuses_a_level_with_two_partners) {
  setup_case first, second;
  first.usual(), second.usual();
  for (std::int32_t e = 1; e <= 4; ++e) { // record 3: level 1 of factor 2 with level 3; level 2 with level 2
    if (first.design.XD7_M(e, 3) == 1) first.design.XD4_M(e, 3) = 3;
    if (second.design.XD7_M(e, 3) == 2) second.design.XD4_M(e, 3) = 2;
  }
  EXPECT_TRUE(first.pairs().empty());
  EXPECT_TRUE(second.pairs().empty());
}

TEST(pair_setup, refuses_two_levels_of_a_factor_in_a_record) {
  setup_case c;
  c.usual();
  c.both(2, 1, 1), c.both(2, 2, 2);
  EXPECT_TRUE(c.pairs().empty());
}

TEST(pair_setup, refuses_coefficients_that_change) {
  setup_case c;
  c.usual();
  c.design.XD6_M(1, 1) = 1;
  EXPECT_TRUE(c.pairs().empty());
}

TEST(pair_setup, refuses_unequal_orders) {
  setup_case c;
  for (std::int32_t r = 1; r <= 3; ++r) {
    c.entry(r, 1, c.group(1), r, 1, 1.0);
    c.entry(r, 1, c.group(3), 1 + r % 2, 1, 1.0);
  }
  EXPECT_TRUE(c.pairs().empty());
}

TEST(pair_setup, refuses_reduced_animal_models_and_phantom_groups) {
  for (const std::int32_t k : {1, 2}) {
    setup_case usual, ram, groups, old;
    for (setup_case* c : {&usual, &ram, &groups, &old})
      c->m.RMAT(k).CV_STRUCT = padded("PED", 12), c->usual();
    EXPECT_EQ(usual.pairs().size(), 1U) << k;
    ram.m.RMAT(k).L_RAM = true;
    groups.m.RMAT(k).n_phg = 1;
    old.m.RMAT(k).r36 = 16;
    for (setup_case* c : {&ram, &groups, &old}) EXPECT_TRUE(c->pairs().empty()) << k;
  }
}

TEST(pair_setup, refuses_factors_without_records) {
  setup_case c;
  c.entry(1, 1, c.group(3), 1, 1, 1.0);
  EXPECT_TRUE(c.pairs().empty());
}

TEST(pair_setup, finds_each_pair_of_three_factors) {
  setup_case c;
  c.m.RMAT(3).n_rc = 2; // as an order alone: the entries are written below
  for (std::int32_t r = 1; r <= 2; ++r)
    for (std::int32_t k = 1; k <= 3; ++k) c.both(r, k, r);
  const auto pairs = c.pairs();
  ASSERT_EQ(pairs.size(), 3U);
  const std::vector<std::pair<std::int32_t, std::int32_t>> expected = {{1, 2}, {1, 3}, {2, 3}};
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(std::pair(pairs[i].k, pairs[i].other), expected[i]);
}

TEST(pair_setup, reports_storage_that_it_can_not_have) {
  const auto find = [](std::int64_t fail_at, std::int64_t& calls) {
    setup_case c;
    c.usual();
    c.run.report.door = {0, fail_at};
    std::string text;
    if (fail_at == 0)
      c.pairs();
    else
      text = expect_stop(16, c.run, [&](reporting&) { c.pairs(); });
    calls = c.run.report.door.calls;
    return text;
  };
  std::int64_t calls = 0, reached = 0;
  find(0, calls);
  EXPECT_GT(calls, 4);
  for (std::int64_t n = 1; n <= calls; ++n) {
    const std::string text = find(n, reached);
    EXPECT_NE(text.find("Called in                    :  find_pairs\n"), std::string::npos) << text;
  }
}

} // namespace
} // namespace zeph_test
