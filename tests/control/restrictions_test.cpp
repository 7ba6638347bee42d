#include "control/restrictions.h"

#include "support/chain_frame.h"
#include "support/check.h"
#include "support/model_builder.h"

namespace {

using namespace zeph_test;

std::string blanks(std::size_t n) { return std::string(n, ' '); }
std::string integer(std::int64_t x, std::size_t width) {
  const std::string text = std::to_string(x);
  return blanks(width - text.size()) + text;
}
std::string head(std::int32_t count) {
  return "\n" + blanks(9) + "No of restrictions imposed ........................" + integer(count, 11) +
         "\n\n";
}
std::string row(std::int32_t trait, std::int32_t equation) {
  return blanks(30) + integer(trait, 3) + integer(equation, 11) + "\n";
}

// Trait 1: two plain regressions, class effects of 3, 2 and 4 levels; trait 2:
// class effects of 3 and 2 levels; trait 3: one of 5 levels. Equations, effects
// outside, traits inside: 1-2 regressions | 3-5, 6-8, 9-13 effect 1 | 14-15,
// 16-17 effect 2 | 18-21 effect 3 of trait 1.
struct restricted_case {
  restricted_case() : m(build_model(described())) {}
  static described_model described() {
    described_model d;
    d.traits.resize(3);
    d.traits[0].regressions = {{4}, {5}};
    d.traits[0].effects = {{1, 3}, {2, 2}, {3, 4}};
    d.traits[1].effects = {{1, 3}, {2, 2}};
    d.traits[2].effects = {{1, 5}};
    d.factors = {{"PED", 6, 2, {{1, 4, 1}, {3, 4, 2}}}, {"I", 3, 1, {{2, 5, 1}}}};
    d.integers = 8, d.reals = 5;
    return d;
  }
  std::string impose(std::int32_t analysis_type = 0) {
    f.asked.analysis_type = analysis_of(analysis_type);
    impose_restrictions(m, f.asked, s, run.report);
    return run.text();
  }
  std::vector<std::int32_t> list() const { return {s.IREST.begin(), s.IREST.begin() + s.n_IREST}; }

  heard_run run;
  model_records m;
  zeph_test::chain_frame f;
  sampler_store s;
};

TEST(impose_restrictions, holds_the_last_level_of_every_effect_of_a_trait_but_its_first) {
  for (const std::int32_t type : {0, 1, 2}) {
    restricted_case c;
    EXPECT_EQ(c.impose(type), head(3) + row(1, 15) + row(1, 21) + row(2, 17));
    EXPECT_EQ(c.list(), (std::vector<std::int32_t>{15, 21, 17}));
  }
}

TEST(impose_restrictions, spares_no_effect_of_the_traits_of_a_factor_with_phantom_groups) {
  restricted_case c;
  c.m.RMAT(1).r36 = 26;
  EXPECT_EQ(c.impose(), head(5) + row(1, 5) + row(1, 15) + row(1, 21) + row(2, 17) + row(3, 13));
}

TEST(impose_restrictions, does_so_only_for_a_pedigree_whose_groups_are_not_restricted) {
  restricted_case restricted, other_code, other_structure;
  restricted.m.RMAT(1).r36 = 6;
  restricted.m.RMAT(1).r216 = true;
  other_code.m.RMAT(1).r36 = 60;
  other_structure.m.RMAT(2).r36 = 6;
  for (restricted_case* c : {&restricted, &other_code, &other_structure})
    EXPECT_EQ(c->impose().find(head(3)), 0U);
}

TEST(impose_restrictions, marks_the_first_such_factor_alone) {
  restricted_case c;
  c.m.RMAT(1).r36 = 6;
  c.m.RMAT(2).r36 = 6;
  c.m.RMAT(2).CV_STRUCT = "PED         "; // its trait 2 is not marked
  EXPECT_EQ(c.impose().find(head(5)), 0U);
  restricted_case second;
  second.m.RMAT(2).r36 = 6;
  second.m.RMAT(2).CV_STRUCT = "PED         ";
  EXPECT_EQ(second.impose(), head(4) + row(1, 15) + row(1, 21) + row(2, 8) + row(2, 17));
}

TEST(impose_restrictions, passes_effects_without_equations) {
  restricted_case c;
  c.m.MODEL(1).INTERCEPT(1) = 0; // then the second effect is the first with equations
  EXPECT_EQ(c.impose(), head(2) + row(1, 21) + row(2, 17));
}

TEST(impose_restrictions, passes_effects_without_levels) {
  restricted_case c;
  c.m.NLEV(1, 1) = 0; // then the second effect is the first with equations
  EXPECT_EQ(c.impose(), head(2) + row(1, 21) + row(2, 17));
  restricted_case marked; // no effect of traits 1 and 3 is excepted
  marked.m.RMAT(1).r36 = 6;
  marked.m.NLEV(1, 1) = 0;
  EXPECT_EQ(marked.impose(), head(4) + row(1, 15) + row(1, 21) + row(2, 17) + row(3, 13));
}

TEST(impose_restrictions, may_have_nothing_to_restrict) {
  described_model d;
  d.traits.resize(1);
  d.traits[0].effects = {{1, 3}};
  d.integers = 4, d.reals = 1;
  const model_records m = build_model(d);
  heard_run run;
  zeph_test::chain_frame f;
  sampler_store s;
  impose_restrictions(m, f.asked, s, run.report);
  EXPECT_EQ(run.text(), head(0));
  EXPECT_EQ(s.n_IREST, 0);
}

TEST(impose_restrictions, says_that_it_does_not_work_above_type_2) {
  for (const std::int32_t type : {3, 4, 6}) {
    restricted_case c;
    EXPECT_EQ(c.impose(type), "\n" + blanks(9) + "It has been specified that restrictions should be  \n" +
                                  blanks(9) + "imposed, but this do not work for analyse type > 2 \n" +
                                  blanks(9) + "The  analysis continues without restrictions       \n\n");
    EXPECT_EQ(c.s.n_IREST, 0);
    EXPECT_FALSE(c.s.IREST.allocated());
  }
}

TEST(impose_restrictions, reports_a_failed_allocation) {
  restricted_case c;
  c.run.report.door.fail_at = 1;
  EXPECT_EQ(expect_stop(16, c.run, [&](reporting&) { c.impose(); }),
            head(3) + allocation_text("IREST", "3", "ZEPH"));
}

} // namespace
