// Which traits move their scale, why others don't, and what belongs to them.
#include "gibbs/moves/trait_setup.h"

#include "gibbs/moves/trait_case.h"

namespace zeph_test {
namespace {

// Traits: 1 Gaussian, 2 ordered, 3 binary, 4 Gaussian; two factors.
trait_setting four_traits() {
  trait_setting x;
  x.kinds = {1, 3, 4, 1};
  x.categories = 4;
  x.factors = 1;
  x.fixed = true;
  return x;
}

struct setup_case : trait_case {
  explicit setup_case(const trait_setting& x = four_traits()) : trait_case(x) {
    draw_factors();
    draw_data();
    for (std::int32_t k = 1; k <= is.categories; ++k) categories.catobs(1, k) = k;
  }
  void expect(std::int32_t t, std::string_view why) {
    find();
    EXPECT_EQ(move_of(t).why, why);
    EXPECT_EQ(move_of(t).moves, why.empty());
  }
};

TEST(trait_setup, lists_ordered_and_binary_traits_ascending) {
  setup_case c;
  c.find();
  ASSERT_EQ(c.work.moves.traits.size(), 2U);
  EXPECT_EQ(c.work.moves.traits[0].t, 2);
  EXPECT_EQ(c.work.moves.traits[0].c, 1);
  EXPECT_EQ(c.work.moves.traits[1].t, 3);
  for (const trait_move& x : c.work.moves.traits) EXPECT_TRUE(x.moves) << x.why;
}

TEST(trait_setup, finds_equations_and_rows) {
  setup_case c;
  c.find();
  const trait_move& x = c.move_of(3);
  const std::int32_t first = c.m.NBEGF(3, 1) + 1;
  EXPECT_EQ(x.equations, (std::vector<std::int32_t>{first, first + 1}));
  EXPECT_EQ(x.n_t, 2);
  EXPECT_EQ(x.rows, (std::vector<std::vector<std::int32_t>>{{3}}));
}

// Plain and nested regressions belong to the trait too.
TEST(trait_setup, finds_regressions) {
  two_trait_case c(8, false, false, false);
  c.m.MODEL(1).TRAIT_TYPE = trait_liability;
  c.f.asked.analysis_type = analysis::gibbs;
  c.f.state.matopd.fill(1);
  scan_records all = c.records();
  find_traits(all, c.f.asked, c.f.state);
  const trait_move& x = c.work.moves.traits.at(0);
  EXPECT_EQ(x.equations, (std::vector<std::int32_t>{1, 3, 4, 5, 6}));
  EXPECT_EQ(x.why, "a row of a random factor is shared with another trait"); // of factor 2
}

TEST(trait_setup, counts_equations_with_records_that_are_not_restricted) {
  setup_case c;
  for (std::int32_t r = 1; r <= c.is.records; ++r) // all of trait 3 in level 1
    for (std::int32_t j = 1; j <= c.design.M_M(r); ++j)
      if (c.design.XD2_M(j, r) == 3 && c.design.XD7_M(j, r) == 0) c.design.XD1_M(j, r) = c.m.NBEGF(3, 1) + 1;
  c.find();
  EXPECT_EQ(c.move_of(3).n_t, 1);
  EXPECT_EQ(c.move_of(2).n_t, 2);
  c.s.IREST.take(1);
  c.s.IREST(1) = c.m.NBEGF(2, 1) + 2;
  c.s.n_IREST = 1;
  c.find();
  EXPECT_EQ(c.move_of(2).n_t, 1);
}

TEST(trait_setup, finds_the_part_of_the_residual_matrix_and_its_free_covariances) {
  setup_case whole;
  whole.find();
  EXPECT_EQ(whole.move_of(2).part, (std::vector<std::int32_t>{1, 2, 3, 4}));
  EXPECT_EQ(whole.move_of(2).free, 3);
  trait_setting x = four_traits();
  x.zeros = {{1, 2}, {2, 4}, {1, 3}, {3, 4}};
  setup_case two(x);
  two.find();
  EXPECT_EQ(two.move_of(2).part, (std::vector<std::int32_t>{2, 3}));
  EXPECT_EQ(two.move_of(2).free, 1);
}

// The zero by kind of an indicator and a binary trait joins nothing and holds nothing.
TEST(trait_setup, takes_zeros_by_kind_for_none) {
  setup_case c;
  c.m.MODEL(4).TRAIT_TYPE = trait_mixture;
  c.find();
  EXPECT_EQ(c.move_of(2).part, (std::vector<std::int32_t>{1, 2, 3, 4}));
  EXPECT_EQ(c.move_of(2).free, 3);
  EXPECT_TRUE(c.move_of(2).moves);
}

TEST(trait_setup, refuses_a_shared_row_to_both_traits) {
  setup_case c;
  for (std::int32_t j = 1; j <= c.design.M_M(1); ++j)
    if (c.design.XD2_M(j, 1) == 3 && c.design.XD7_M(j, 1) == 1) c.design.XD5_M(j, 1) = 2;
  c.expect(2, "a row of a random factor is shared with another trait");
  c.expect(3, "a row of a random factor is shared with another trait");
}

// A row of nobody is not scaled with the trait.
TEST(trait_setup, gives_a_row_without_entries_to_nobody) {
  setup_case c;
  for (std::int32_t r = 1; r <= c.is.records; ++r)
    for (std::int32_t j = 1; j <= c.design.M_M(r); ++j)
      if (c.design.XD7_M(j, r) == 1 && c.design.XD2_M(j, r) == 3) c.design.XD2_M(j, r) = 0;
  c.find();
  EXPECT_TRUE(c.move_of(3).moves);
  EXPECT_EQ(c.move_of(3).rows, (std::vector<std::vector<std::int32_t>>{{}}));
}

TEST(trait_setup, refuses_a_reduced_animal_model_and_parent_groups) {
  setup_case c;
  c.m.RMAT(1).CV_STRUCT = padded("PED", 12);
  c.expect(3, "");
  c.m.RMAT(1).L_RAM = true;
  c.expect(3, "reduced animal model");
  c.m.RMAT(1).L_RAM = false;
  c.m.RMAT(1).r36 = 16;
  c.expect(2, "phantom parent groups");
  c.m.RMAT(1).r36 = 0;
  c.m.RMAT(1).n_phg = 2;
  c.expect(3, "phantom parent groups");
}

TEST(trait_setup, refuses_matrices_that_are_not_drawn) {
  setup_case c;
  c.f.asked.analysis_type = analysis::predict;
  c.expect(2, "matrices as given");
  c.expect(3, "matrices as given");
  c.f.asked.analysis_type = analysis::gibbs;
  c.f.state.matopd(c.m.nramat + 1) = 0; // the residual one
  c.expect(2, "a matrix is not drawn");
  c.expect(3, "");
  c.f.state.matopd(1) = 0;
  c.expect(3, "a matrix is not drawn");
}

TEST(trait_setup, refuses_mixtures) {
  setup_case c;
  c.m.MODEL(3).L_MIX_TRAIT = true;
  c.expect(3, "mixtures");
  for (std::int32_t j = 1; j <= c.design.M_M(1); ++j)
    if (c.design.XD2_M(j, 1) == 2) c.design.XD6_M(j, 1) = 4;
  c.expect(2, "mixtures");
}

TEST(trait_setup, refuses_few_or_empty_categories) {
  setup_case c;
  for (std::int32_t r = 1; r <= c.is.records; ++r) c.categories.catobs(1, r) = 1 + r % 2;
  c.expect(2, "no records in the two highest categories");
  c.categories.catobs(1, 1) = 3;
  c.expect(2, "");
  c.categories.catstr[0].ncat_t = 2;
  c.expect(2, "fewer than three categories");
}

TEST(trait_setup, refuses_a_zero_in_the_part_without_exact_draws) {
  trait_setting x = four_traits();
  x.zeros = {{1, 4}}; // joined by trait 2
  x.exact = false;
  setup_case plain(x);
  plain.expect(2, "a residual covariance is held at zero");
  plain.expect(3, "");
  x.zeros = {{1, 2}, {2, 3}, {2, 4}}; // trait 2 is a part of its own
  setup_case alone(x);
  alone.expect(2, "");
  EXPECT_EQ(alone.move_of(2).free, 0);
}

} // namespace
} // namespace zeph_test
