#include "input/data_loading.h"

#include "input_frame.h"
#include "support/model_builder.h"

#include <cmath>
#include <filesystem>
#include <gtest/gtest.h>
#include <limits>

namespace {

using namespace zeph_test;

constexpr float nan = std::numeric_limits<float>::quiet_NaN();

using integers = std::vector<std::vector<std::int32_t>>;
using reals = std::vector<std::vector<float>>;

// A model, its layout and its data files, loaded or refused.
struct loaded {
  explicit loaded(const described_model& d) : m(build_model(d)) {}
  // Fills the layout and writes the files; the listing of the layout goes elsewhere.
  void write(const integers& i, const reals& r) {
    count_equations(m, layout, quiet.report);
    SETGROUPS(m, layout, quiet.report, 0);
    write_integer_records(frame.path("RCDATA_I"), i);
    write_real_records(frame.path("RCDATA_R"), r);
  }
  int read() { return READTOMEM(m, layout, design, relations, frame.report); }
  int load(const integers& i, const reals& r) {
    write(i, r);
    return read();
  }
  // Row r as text: equation trait group level place type factor x coefficient.
  std::vector<std::string> row(std::int64_t r) const {
    std::vector<std::string> entries;
    for (std::int32_t e = 1; e <= design.M_M(r); ++e) {
      std::ostringstream text;
      text << design.XD1_M(e, r) << ' ' << design.XD2_M(e, r) << ' ' << design.XD3_M(e, r) << ' '
           << design.XD4_M(e, r) << ' ' << design.XD5_M(e, r) << ' ' << design.XD6_M(e, r) << ' '
           << design.XD7_M(e, r) << " x " << design.ZD_M(e, r);
      entries.push_back(text.str());
    }
    return entries;
  }
  heard_run quiet;
  input_frame frame;
  model_records m;
  equation_layout layout;
  design_store design;
  relationship_store relations;
};

using rows = std::vector<std::string>;

// Equations 1 2 plain | 3-5 nested | 6-8, 9-11 class effects | 12-19 factor of
// order 2. Integers: effect 1, animal, effect 2, mask, pattern, position.
// Reals: y1, y2, x, z.
described_model two_traits(std::int32_t records) {
  described_model d;
  d.traits.resize(2);
  d.traits[0].regressions = {{3}, {4, 1, 1}};
  d.traits[0].effects = {{1, 3}};
  d.traits[1].regressions = {{3}};
  d.traits[1].effects = {{1, 3}, {3, 2, false}};
  d.factors = {{"I", 4, 2, {{1, 2, 1}, {2, 2, 2}}}};
  d.integers = 6;
  d.reals = 4;
  d.records = records;
  return d;
}

// One trait and one factor of these contributions; integers: three levels,
// mask, pattern, position; reals: y, x1, x2.
described_model one_factor(std::int32_t levels, std::int32_t order, const std::vector<contribution>& list) {
  described_model d;
  d.traits.resize(1);
  d.factors = {{"I", levels, order, list}};
  d.integers = 6;
  d.reals = 3;
  d.records = 1;
  return d;
}

TEST(largest_record, adds_regressions_effects_and_contributions) {
  model_records m = build_model(two_traits(0));
  EXPECT_EQ(largest_record(m), 3 + 2 + 2); // three regressions, two effects with equations, two contributions
  m.RMAT(1).carried.n_reff = 4;
  fill_vec<logical>(m.RMAT(1).INTERCEPT, {1, 1, 0, 1});
  EXPECT_EQ(largest_record(m), 3 + 2 + 3); // more true intercepts than contributions
}

TEST(READTOMEM, builds_the_row_of_a_complete_record) {
  loaded f(two_traits(1));
  EXPECT_EQ(f.load({{2, 3, 1, 3, 3, 77}}, {{10.5F, -2.0F, 0.5F, 4.0F}}), 0);
  // worked out by hand from the layout above; factor: 11 + (3-1) x 2 + 1, + 2
  const rows expected = {"1 1 1 1 1 0 0 x 0.5", "2 2 1 1 2 0 0 x 0.5", "4 1 2 2 1 0 0 x 4",
                         "7 1 3 2 1 0 0 x 1",   "10 2 4 2 1 0 0 x 1",  "16 1 5 3 1 0 1 x 1",
                         "17 2 5 3 2 0 1 x 1"};
  EXPECT_EQ(f.row(1), expected);
  EXPECT_EQ(f.design.Y_M(1, 1), 10.5F);
  EXPECT_EQ(f.design.Y_M(2, 1), -2.0F);
  EXPECT_EQ(f.design.ISIT_M(1), 3);
  EXPECT_EQ(f.design.C_ISIT_M(1), 3);
  EXPECT_EQ(f.design.IRESG_M(1), 1);
  EXPECT_EQ(f.design.WV_M(2, 1), 1.0F);
  EXPECT_EQ(f.design.WV_SQRT_M(1, 1), 1.0F);
  EXPECT_EQ(f.design.nobs, 1);
  EXPECT_EQ(f.design.m, 7);
  EXPECT_EQ(f.frame.listing(), "\n         No of observations read ...........................          1\n");
}

TEST(READTOMEM, leaves_missing_traits_out_of_the_row_but_copies_their_values) {
  loaded f(two_traits(2));
  EXPECT_EQ(
      f.load({{3, 1, 0, 2, 2, 1}, {1, 4, 0, 1, 1, 2}}, {{1.0F, nan, 2.0F, 3.0F}, {9.0F, 8.0F, 7.0F, nan}}),
      0);
  const rows first = {"1 1 1 1 1 0 0 x 2", "5 1 2 3 1 0 0 x 3", "8 1 3 3 1 0 0 x 1", "12 1 5 1 1 0 1 x 1"};
  const rows second = {"2 2 1 1 2 0 0 x 7", "9 2 4 1 1 0 0 x 1", "19 2 5 4 2 0 1 x 1"};
  EXPECT_EQ(f.row(1), first); // mask 2: trait 1 alone
  EXPECT_EQ(f.row(2), second);
  EXPECT_TRUE(std::isnan(f.design.Y_M(2, 1)));
  EXPECT_EQ(f.design.Y_M(1, 2), 9.0F);
}

TEST(READTOMEM, counts_a_record_without_traits) {
  loaded f(two_traits(1));
  EXPECT_EQ(f.load({{99, -5, 0, 0, 0, 1}}, {{1.0F, 2.0F, nan, nan}}), 0);
  EXPECT_EQ(f.design.M_M(1), 0);
  EXPECT_EQ(f.design.Y_M(2, 1), 2.0F);
}

TEST(READTOMEM, skips_missing_levels_without_moving_later_groups) {
  described_model d;
  d.traits.resize(1);
  d.traits[0].effects = {{1, 2}, {2, 2}};
  d.factors = {{"I", 2, 1, {{1, 3, 1}}}};
  d.integers = 6;
  d.reals = 1;
  d.records = 3;
  loaded f(d); // 1-2, 3-4, 5-6
  EXPECT_EQ(f.load({{0, 1, 2, 1, 1, 1}, {-4, 2, 0, 1, 1, 2}, {2, 0, 1, 1, 1, 3}}, {{1.0F}, {1.0F}, {1.0F}}),
            0);
  EXPECT_EQ(f.row(1), (rows{"3 1 2 1 1 0 0 x 1", "6 1 3 2 1 0 1 x 1"}));
  EXPECT_EQ(f.row(2), (rows{"4 1 2 2 1 0 0 x 1"}));
  EXPECT_EQ(f.row(3), (rows{"2 1 1 2 1 0 0 x 1", "5 1 3 1 1 0 1 x 1"}));
}

TEST(READTOMEM, numbers_factor_groups_by_structure) {
  described_model d = one_factor(3, 1, {{1, 1, 1}});
  d.factors.push_back({"I", 2, 1, {{1, 2, 1}}});
  d.factors.push_back({"I", 2, 1, {{1, 3, 1}}});
  loaded f(d);
  EXPECT_EQ(f.load({{3, 0, 2, 1, 1, 1}}, {{1, 0, 0}}), 0);
  EXPECT_EQ(f.row(1), (rows{"3 1 1 3 1 0 1 x 1", "7 1 3 2 1 0 3 x 1"})); // bases 0, 3, 5
}

TEST(READTOMEM, addresses_later_rows_of_a_block_by_CONT_RC) {
  // order 3: CONT_POS 1 with CONT_RC 2 is row 2, CONT_POS 2 with CONT_RC 2 is row 3
  loaded f(one_factor(3, 3, {{1, 1, 1, 0, 1.0, 2}, {1, 1, 2, 0, 0.5, 2}}));
  EXPECT_EQ(f.load({{2, 0, 0, 1, 1, 1}}, {{1, 0, 0}}), 0);
  EXPECT_EQ(f.row(1), (rows{"5 1 1 2 2 0 1 x 1", "6 1 1 2 3 0 1 x 0.5"}));
}

TEST(READTOMEM, takes_level_and_place_from_the_equation_when_CONT_RC_is_a_level) {
  // order 2, level column 1, CONT_POS 2, CONT_RC 4: equation 4 + (0 + 0 + 2) - 1 = 5 = level 3, place 1
  loaded f(one_factor(4, 2, {{1, 1, 2, 0, 1.0, 4, true}}));
  EXPECT_EQ(f.load({{1, 0, 0, 1, 1, 1}}, {{1, 0, 0}}), 0);
  EXPECT_EQ(f.row(1), (rows{"5 1 1 3 1 0 1 x 1"}));
}

TEST(READTOMEM, multiplies_random_covariables_and_drops_exact_zeros) {
  loaded f(one_factor(2, 3, {{1, 1, 1}, {1, 1, 2, 2, 3.0}, {1, 1, 3, 3, 2.0}}));
  EXPECT_EQ(f.load({{2, 0, 0, 1, 1, 1}}, {{1, 0.0F, 1.5F}}), 0);
  EXPECT_EQ(f.row(1), (rows{"4 1 1 2 1 0 1 x 1", "6 1 1 2 3 0 1 x 3"}));

  loaded g(one_factor(2, 3, {{1, 1, 1}, {1, 1, 2, 2, 3.0}, {1, 1, 3, 3, 2.0}}));
  EXPECT_EQ(g.load({{1, 0, 0, 1, 1, 1}}, {{1, -0.0F, 1e-30F}}),
            0); // minus zero is zero, the smallest number isn't
  EXPECT_EQ(g.design.M_M(1), 2);
  EXPECT_EQ(g.design.ZD_M(2, 1), static_cast<double>(1e-30F) * 2.0);
}

TEST(READTOMEM, widens_a_covariable_before_the_product) {
  loaded f(one_factor(1, 1, {{1, 1, 1, 2, 0.1}}));
  EXPECT_EQ(f.load({{1, 0, 0, 1, 1, 1}}, {{1, 0.3F, 0}}), 0);
  EXPECT_EQ(f.design.ZD_M(1, 1), static_cast<double>(0.3F) * 0.1);
}

TEST(READTOMEM, keeps_zero_covariables_of_a_mixture_trait_and_marks_them) {
  described_model d = one_factor(2, 2, {{1, 1, 1}, {1, 1, 2, 2}});
  d.traits[0].mix_eq_type = 5;
  d.traits[0].regressions = {{3, 0, 0, true}, {2}};
  loaded f(d);
  EXPECT_EQ(f.load({{1, 0, 0, 1, 1, 1}}, {{1, 0.0F, -0.1F}}), 0);
  EXPECT_EQ(f.row(1),
            (rows{"1 1 1 1 1 5 0 x -0.1", "2 1 1 1 2 0 0 x 0", "3 1 2 1 1 0 1 x 1", "4 1 2 1 2 5 1 x 0"}));
}

TEST(READTOMEM, gives_regressions_of_a_random_factor_no_entry_of_their_own) {
  described_model d = one_factor(2, 1, {{1, 1, 1, 2}});
  d.traits[0].regressions = {{2, 2}, {3}, {3, 9}};
  loaded f(d);
  EXPECT_EQ(f.load({{2, 0, 0, 1, 1, 1}}, {{1, 4.0F, 6.0F}}), 0);
  EXPECT_EQ(f.row(1), (rows{"1 1 1 1 1 0 0 x 6", "3 1 2 2 1 0 1 x 4"}));
}

TEST(READTOMEM, keeps_the_order_of_building_among_equal_equations) {
  // direct and maternal contribution to one row of the matrix; cow 2 is her own dam here
  loaded f(one_factor(3, 1, {{1, 1, 1, 0, 1.0}, {1, 2, 1, 0, 0.5}, {1, 3, 1, 0, 0.25}}));
  EXPECT_EQ(f.load({{2, 1, 2, 1, 1, 1}}, {{1, 0, 0}}), 0);
  EXPECT_EQ(f.row(1), (rows{"1 1 1 1 1 0 1 x 0.5", "2 1 1 2 1 0 1 x 1", "2 1 1 2 1 0 1 x 0.25"}));
}

TEST(READTOMEM, has_room_for_more_contributions_than_intercepts) {
  described_model d = one_factor(3, 1, {{1, 1, 1}, {1, 2, 1}, {1, 3, 1}});
  loaded f(d);
  f.m.RMAT(1).carried.n_reff = 1;
  fill_vec<logical>(f.m.RMAT(1).INTERCEPT, {1});
  EXPECT_EQ(f.load({{1, 2, 3, 1, 1, 1}}, {{1, 0, 0}}), 0);
  EXPECT_EQ(f.design.M_M(1), 3);
}

TEST(READTOMEM, takes_weights_of_present_traits) {
  described_model d;
  d.traits.resize(2);
  d.traits[0].weight_place = 3;
  d.integers = 3;
  d.reals = 3;
  d.records = 3;
  loaded f(d);
  EXPECT_EQ(f.load({{3, 3, 1}, {1, 1, 2}, {2, 2, 3}}, {{1, 1, 2.0F}, {1, 1, -7.0F}, {1, 1, 0.0F}}), 0);
  EXPECT_EQ(f.design.WV_M(1, 1), 2.0F);
  EXPECT_EQ(f.design.WV_SQRT_M(1, 1), 1.41421356F); // root of 2 to 32 bits
  EXPECT_EQ(f.design.WV_M(2, 1), 1.0F);
  EXPECT_EQ(f.design.WV_M(1, 2), 1.0F); // missing: the value isn't looked at
  EXPECT_EQ(f.design.WV_SQRT_M(1, 3), 0.0F);
}

TEST(READTOMEM, takes_the_residual_group_of_structure_GROUP) {
  described_model d;
  d.traits.resize(1);
  d.residual_groups = 3;
  d.group_place = 1;
  d.integers = 4;
  d.reals = 1;
  d.records = 2;
  loaded f(d);
  EXPECT_EQ(f.load({{3, 1, 1, 1}, {1, 1, 1, 2}}, {{1}, {1}}), 0);
  EXPECT_EQ(f.design.IRESG_M(1), 3);
  EXPECT_EQ(f.design.IRESG_M(2), 1);
}

TEST(READTOMEM, keeps_positions_when_residuals_are_kept) {
  loaded f(two_traits(1));
  f.m.l_residuals = true;
  f.m.model_kind = 2;
  EXPECT_EQ(f.load({{1, 1, 1, 3, 3, 4711}}, {{1, 1, 1, 1}}), 0);
  EXPECT_EQ(f.design.OBS_POS_M(1), 4711);
}

TEST(READTOMEM, brings_latent_traits_near_zero_in_single_precision) {
  for (const std::int32_t kind : {4, 5, 8}) {
    described_model d;
    d.traits.resize(2);
    d.traits[0].kind = kind;
    d.traits[0].regressions = {{1}}; // a covariable taken from the trait's own column
    d.integers = 3;
    d.reals = 2;
    d.records = 3;
    loaded f(d);
    EXPECT_EQ(f.load({{3, 3, 1}, {3, 3, 2}, {1, 1, 3}}, {{0.0F, 5.0F}, {1.0F, 5.0F}, {1.0F, 5.0F}}), 0);
    EXPECT_EQ(f.design.Y_M(1, 1), -0.1F);
    EXPECT_EQ(f.design.Y_M(1, 2), 0.2F - 0.1F);
    EXPECT_EQ(f.design.Y_M(2, 2), 5.0F); // an ordinary trait
    EXPECT_EQ(f.design.Y_M(1, 3), 1.0F); // missing: as it is
    EXPECT_EQ(f.design.ZD_M(1, 1), static_cast<double>(-0.1F));
  }
}

TEST(READTOMEM, leaves_ordered_categories_as_they_are) {
  described_model d;
  d.traits.resize(1);
  d.traits[0].kind = 3;
  d.integers = 3;
  d.reals = d.records = 1;
  loaded f(d);
  EXPECT_EQ(f.load({{1, 1, 1}}, {{2.0F}}), 0);
  EXPECT_EQ(f.design.Y_M(1, 1), 2.0F);
}

// One censored trait; integers: code, mask, pattern, position; reals: y, upper.
described_model censored(std::int32_t records) {
  described_model d;
  d.traits.resize(1);
  d.traits[0].kind = 2;
  d.traits[0].code_place = 1;
  d.traits[0].upper_place = 2;
  d.integers = 4;
  d.reals = 2;
  d.records = records;
  return d;
}

TEST(READTOMEM, sets_the_bounds_of_censored_observations) {
  loaded f(censored(7));
  EXPECT_EQ(
      f.load(
          {{0, 1, 1, 1}, {-1, 1, 1, 2}, {1, 1, 1, 3}, {2, 1, 1, 4}, {9, 1, 1, 5}, {1, 0, 0, 6}, {0, 0, 0, 7}},
          {{4, 0}, {4, 0}, {4, 0}, {4, 6}, {4, 0}, {4, 0}, {nan, 0}}),
      0);
  const std::int32_t codes[6] = {0, -1, 1, 2, 9, 1};
  const float low[6] = {4, -999999, 4, 4, 4, 4}, high[6] = {4, 4, 999999, 6, 4, 999999};
  for (int r = 1; r <= 6; ++r) { // the sixth is missing and filled all the same
    EXPECT_EQ(f.design.CENS_M(1, r), codes[r - 1]) << r;
    EXPECT_EQ(f.design.Y_MMIN(1, r), low[r - 1]) << r;
    EXPECT_EQ(f.design.Y_MMAX(1, r), high[r - 1]) << r;
  }
}

// A sequence trait and its cured fraction; integers: position in the sequence,
// mask, pattern, position; reals: y1, y2.
described_model cure(std::int32_t records) {
  described_model d;
  d.traits.resize(2);
  d.traits[0].kind = 7;
  d.traits[0].sequence_place = 1;
  d.traits[1].kind = 8;
  d.integers = 4;
  d.reals = 2;
  d.records = records;
  return d;
}

TEST(READTOMEM, stores_sequence_positions_and_status) {
  loaded f(cure(4));
  f.m.n_cure_seq = 3;
  EXPECT_EQ(
      f.load({{1, 2, 2, 1}, {2, 2, 2, 2}, {-3, 3, 3, 3}, {-1, 1, 1, 4}}, {{0, 0}, {0, 0}, {1, 0}, {0.5F, 1}}),
      0);
  const std::int32_t position[4] = {1, 2, -3, -1}, status[4] = {0, 0, 1, 0}; // record 4 misses it
  for (int r = 1; r <= 4; ++r) {
    EXPECT_EQ(f.design.SEQ_M(r), position[r - 1]);
    EXPECT_EQ(f.design.CURE_Y[0](r), status[r - 1]) << r;
  }
  EXPECT_EQ(f.design.Y_M(1, 3), 0.2F - 0.1F);
}

TEST(READTOMEM, stores_the_level_of_the_deviation_factor) {
  described_model d = one_factor(3, 1, {{1, 1, 1}});
  d.records = 2;
  loaded f(d);
  f.m.L_TD = true;
  f.m.TD_FACTOR = 1;
  EXPECT_EQ(f.load({{3, 0, 0, 1, 1, 1}, {0, 0, 0, 1, 1, 2}}, {{1, 0, 0}, {1, 0, 0}}), 0);
  EXPECT_EQ(f.design.G_TD_LEVEL(1), 3);
  EXPECT_EQ(f.design.G_TD_LEVEL(2), 0);
}

TEST(READTOMEM, accepts_rows_without_entries) {
  described_model d;
  d.traits.resize(1);
  d.integers = 3;
  d.reals = d.records = 1;
  loaded f(d);
  EXPECT_EQ(f.load({{1, 1, 1}}, {{2.5F}}), 0);
  EXPECT_EQ(f.design.m, 0);
  EXPECT_EQ(f.design.M_M(1), 0);
  EXPECT_EQ(f.design.Y_M(1, 1), 2.5F);
}

TEST(READTOMEM, reports_an_empty_file_and_still_reads_relationships) {
  for (const bool integers_empty : {true, false}) {
    loaded f(two_traits(1));
    f.m.RMAT(1).CV_STRUCT = "COR         ";
    write_elements(f.frame.path("COR1"), {{1, 1, 1.0}, {2, 2, 1.0}, {3, 3, 1.0}, {4, 4, 1.0}});
    integers i = {{1, 1, 1, 3, 3, 1}};
    reals r = {{1, 1, 1, 1}};
    if (integers_empty)
      i.clear();
    else
      r.clear();
    EXPECT_EQ(f.load(i, r), 1);
    EXPECT_EQ(f.design.nobs, 0);
    EXPECT_EQ(f.relations.of(1).diag(4), 1.0);
    EXPECT_EQ(f.frame.listing(), "\n"
                                 "ERROR  reading 1st record from RCDATA. Error code=           -1\n"
                                 "\n"
                                 "\n"
                                 "         No of observations read ...........................          0\n"
                                 "          ERROR reading RCDATA. Expected no. of obsevations           1\n"
                                 "\n"
                                 "\n"
                                 "         Reading variance structure for random effect ......          1\n"
                                 "         Number of elements in variance structure ..........          4\n");
  }
}

TEST(READTOMEM, reports_a_missing_file_and_a_short_first_record) {
  loaded f(two_traits(1));
  f.write({{1, 1, 1, 3, 3, 1}}, {{1, 1, 1, 1}});
  std::filesystem::remove(f.frame.path("RCDATA_R"));
  EXPECT_EQ(f.read(), 1);

  loaded g(two_traits(1));
  EXPECT_EQ(g.load({{1, 1, 1, 3, 3}}, {{1, 1, 1, 1}}), 1); // five integers for six
  EXPECT_TRUE(g.frame.says("ERROR  reading 1st record from RCDATA. Error code=           67\n"));
}

TEST(READTOMEM, reports_a_number_of_records_that_is_not_the_models) {
  const integers i(3, {1, 1, 1, 3, 3, 1});
  const reals r = {{1, 1, 1, 1}, {2, 1, 1, 1}, {3, 1, 1, 1}};
  loaded shorter(two_traits(5));
  EXPECT_EQ(shorter.load(i, r), 2);
  EXPECT_EQ(shorter.design.nobs, 3);
  EXPECT_EQ(shorter.design.Y_M(1, 3), 3.0F); // the whole file is stored
  EXPECT_EQ(shorter.frame.listing(),
            "\n"
            "         No of observations read ...........................          3\n"
            "          ERROR reading RCDATA. Expected no. of obsevations           5\n"
            "\n");
  loaded longer(two_traits(2));
  EXPECT_EQ(longer.load(i, r), 2);
  EXPECT_EQ(longer.design.nobs, 2);
  EXPECT_TRUE(longer.frame.says("          3\n          ERROR reading RCDATA"));
}

TEST(READTOMEM, ends_at_a_short_record_or_where_one_file_ends) {
  loaded f(two_traits(2));
  EXPECT_EQ(f.load({{1, 1, 1, 3, 3, 1}, {1, 1, 1, 3}}, {{1, 1, 1, 1}, {1, 1, 1, 1}}), 2);
  EXPECT_EQ(f.design.nobs, 1);
  loaded g(two_traits(2));
  EXPECT_EQ(g.load({{1, 1, 1, 3, 3, 1}, {1, 1, 1, 3, 3, 2}}, {{1, 1, 1, 1}}), 2);
  EXPECT_EQ(g.design.nobs, 1);
}

TEST(READTOMEM, passes_over_what_follows_the_items_of_a_record) {
  loaded f(two_traits(1));
  EXPECT_EQ(f.load({{1, 1, 1, 3, 3, 1, 99}}, {{1, 1, 1, 1, 99}}), 0);
  EXPECT_EQ(f.design.M_M(1), 7);
}

TEST(READTOMEM, holds_no_data_for_a_model_of_no_records) {
  loaded f(two_traits(0));
  EXPECT_EQ(f.load({}, {}), 1);
  EXPECT_EQ(f.design.nobs, 0);
}

TEST(READTOMEM, returns_1_when_a_relationship_file_is_empty) {
  loaded f(two_traits(1));
  f.m.RMAT(1).CV_STRUCT = "PED         ";
  EXPECT_EQ(f.load({{1, 1, 1, 3, 3, 1}}, {{1, 1, 1, 1}}), 1);
}

// One thing damaged in a good second record: place, new value, message.
struct damaged_integer {
  std::size_t place;
  std::int32_t value;
  std::string message;
};
struct damaged_real {
  std::size_t place;
  float value;
  std::string message;
};

// One trait with everything that is checked. Integers: effect, nesting effect,
// animal, group, deviation level, mask, pattern, position; reals: y, x, nested
// x, random x, weight.
described_model checked_model() {
  described_model d;
  d.traits.resize(1);
  d.traits[0].effects = {{1, 2}, {2, 3, false}};
  d.traits[0].regressions = {{2}, {3, 1, 2}, {4, 2}};
  d.traits[0].weight_place = 5;
  d.factors = {{"I", 4, 2, {{1, 3, 1}, {1, 3, 2, 4}}}, {"I", 2, 1, {{1, 5, 1}}}};
  d.residual_groups = 2;
  d.group_place = 4;
  d.integers = 8;
  d.reals = 5;
  d.records = 2;
  return d;
}

void expect_refusal(integers i, reals r, const std::string& message) {
  loaded f(checked_model());
  f.m.L_TD = true;
  f.m.TD_FACTOR = 2;
  f.m.RMAT(2).R_EFF_RCI(1) = 5;
  f.write(i, r);
  EXPECT_EQ(f.frame.exit_code([&] { f.read(); }), message.empty() ? 0 : 16) << message;
  const std::string expected = "\nERROR - Illegal input in " + message + "\n\nZEPH terminates.\n";
  if (!message.empty()) {
    EXPECT_EQ(f.frame.listing(), expected);
  }
}

TEST(READTOMEM, refuses_each_damaged_integer_with_its_record) {
  const damaged_integer cases[] = {
      {0, 2, ""},
      {0, 3, "RCDATA_I: level of fixed effect(2,1,1) = 3, legal: 1..2"},
      {1, 4, "RCDATA_I: level of nested regression(2,1,2) = 4, legal: 1..3"},
      {1, 0, "RCDATA_I: level of nested regression(2,1,2) = 0, legal: 1..3"},
      {2, 5, "RCDATA_I: level of random factor(2,1,1) = 5, legal: 1..4"},
      {2, -1, "RCDATA_I: level of random factor(2,1,1) = -1, legal: 1..4"},
      {2, 2147483647, "RCDATA_I: level of random factor(2,1,1) = 2147483647, legal: 1..4"},
      {3, 0, "RCDATA_I: residual group(2) = 0, legal: 1..2"},
      {3, 3, "RCDATA_I: residual group(2) = 3, legal: 1..2"},
      {4, 3, "RCDATA_I: level of TD_FACTOR(2) = 3, legal: 0..2"},
      {4, -1, "RCDATA_I: level of TD_FACTOR(2) = -1, legal: 0..2"},
      {5, 2, "RCDATA_I: mask of traits(2) = 2, legal: 0..1"},
      {5, -1, "RCDATA_I: mask of traits(2) = -1, legal: 0..1"},
      {6, 2, "RCDATA_I: missing pattern(2) = 2, legal: 0..1"},
      {6, -1, "RCDATA_I: missing pattern(2) = -1, legal: 0..1"},
  };
  for (const damaged_integer& c : cases) {
    integers i(2, {1, 1, 1, 1, 1, 1, 1, 1});
    i[1][c.place] = c.value;
    expect_refusal(i, reals(2, {1, 1, 1, 1, 1}), c.message);
  }
}

TEST(READTOMEM, refuses_each_damaged_real_with_its_record) {
  const float inf = std::numeric_limits<float>::infinity();
  const damaged_real cases[] = {
      {0, nan, "RCDATA_R: observation(2,1) = NaN, legal: a finite number"},
      {0, -inf, "RCDATA_R: observation(2,1) = -Infinity, legal: a finite number"},
      {1, inf, "RCDATA_R: covariable(2,1,1) = Infinity, legal: a finite number"},
      {2, nan, "RCDATA_R: covariable(2,1,2) = NaN, legal: a finite number"},
      {3, nan, "RCDATA_R: covariable of random factor(2,1,2) = NaN, legal: a finite number"},
      {4, nan, "RCDATA_R: weight(2,1) = NaN, legal: a finite number, not negative"},
      {4, -0.5F, "RCDATA_R: weight(2,1) = -0.5, legal: a finite number, not negative"},
  };
  for (const damaged_real& c : cases) {
    reals r(2, {1, 1, 1, 1, 1});
    r[1][c.place] = c.value;
    expect_refusal(integers(2, {1, 1, 1, 1, 1, 1, 1, 1}), r, c.message);
  }
}

TEST(READTOMEM, does_not_check_what_a_record_does_not_use) {
  reals r(2, {1, 1, 1, 1, 1});
  r[1] = {nan, nan, nan, nan, -1};
  integers i(2, {1, 1, 1, 1, 1, 1, 1, 1});
  i[1] = {99, 99, 99, 1, 0, 0, 0, 0}; // no trait
  expect_refusal(i, r, "");
  r[1] = {1, 1, 1, nan, 1};
  i[1] = {1, 1, 0, 1, 1, 1, 1, 1}; // no animal, so no random covariable
  expect_refusal(i, r, "");
}

TEST(READTOMEM, refuses_equations_outside_the_factor_or_the_system) {
  loaded f(one_factor(3, 2, {{1, 1, 2, 0, 1.0, 6, true}})); // 6 + (l-1) x 2 + 2 - 1
  f.write({{1, 0, 0, 1, 1, 1}}, {{1, 0, 0}});
  EXPECT_EQ(f.frame.exit_code([&] { f.read(); }), 16);
  EXPECT_TRUE(f.frame.says("RCDATA_I: equation of random factor(1,1,1) = 7, legal: 1..6"));

  loaded g(two_traits(1));
  g.m.NBEGF(1, 1) = 19;
  g.write({{1, 1, 1, 3, 3, 1}}, {{1, 1, 1, 1}});
  EXPECT_EQ(g.frame.exit_code([&] { g.read(); }), 16);
  EXPECT_TRUE(g.frame.says("RCDATA_I: equation(1,4) = 20, legal: 1..19"));
}

TEST(READTOMEM, refuses_interval_bounds_out_of_order_or_not_numbers) {
  loaded f(censored(1));
  f.write({{2, 1, 1, 1}}, {{4.0F, 3.5F}});
  EXPECT_EQ(f.frame.exit_code([&] { f.read(); }), 16);
  EXPECT_TRUE(f.frame.says("RCDATA_R: upper limit(1,1) = 3.5, legal: not below the observation"));

  loaded g(censored(1));
  g.write({{2, 1, 1, 1}}, {{4.0F, nan}});
  EXPECT_EQ(g.frame.exit_code([&] { g.read(); }), 16);
}

// The mask calls the trait missing; whatever is in its places has no effect.
TEST(READTOMEM, tests_no_observation_or_limit_of_a_missing_trait) {
  loaded f(censored(4));
  EXPECT_EQ(f.load({{1, 0, 0, 1}, {-1, 0, 0, 2}, {2, 0, 0, 3}, {2, 0, 0, 4}},
                   {{nan, 0}, {nan, 0}, {nan, nan}, {4.0F, 3.5F}}),
            0)
      << f.frame.listing();
  EXPECT_EQ(f.design.Y_MMIN(1, 4), 4.0F);
  EXPECT_EQ(f.design.Y_MMAX(1, 4), 3.5F);
}

TEST(READTOMEM, needs_the_place_of_the_upper_limit_at_the_first_interval_only) {
  described_model d = censored(3);
  d.traits[0].upper_place = 0;
  loaded f(d);
  EXPECT_EQ(f.load({{1, 1, 1, 1}, {-1, 1, 1, 2}, {0, 1, 1, 3}}, {{4, 0}, {4, 0}, {4, 0}}), 0);

  for (const std::int32_t place : {0, -1, 3}) {
    d.traits[0].upper_place = place;
    loaded g(d);
    g.write({{1, 1, 1, 1}, {2, 1, 1, 2}, {0, 1, 1, 3}}, {{4, 0}, {4, 6}, {4, 0}});
    EXPECT_EQ(g.frame.exit_code([&] { g.read(); }), 16);
    EXPECT_EQ(g.frame.listing(),
              illegal_input_text("MODINF", "MODEL%UPPER_RCI(1)", std::to_string(place), "1..2"));
  }
}

TEST(READTOMEM, refuses_broken_sequences) {
  const std::vector<std::pair<std::vector<std::int32_t>, std::string>> cases = {
      {{1, -2, 1, -2}, ""},
      {{0, -1, -1, -1}, "sequence position(1) = 0, legal: positions in order, at most 2"},
      {{2, -2, -1, -1}, "sequence position(1) = 2"},
      {{1, 1, -2, -1}, "sequence position(2) = 1"},
      {{1, -2, -2, -1}, "sequence position(3) = -2"},
      {{1, 2, -3, -1}, "sequence position(3) = -3"}, // beyond n_cure_seq
      {{-1, -1, -1, 1}, "sequence position(4) = 1, legal: negative on the last record"},
      {{-2147483647 - 1, -1, -1, -1}, "sequence position(1) = -2147483648"},
  };
  for (const auto& [positions, message] : cases) {
    loaded f(cure(4));
    f.m.n_cure_seq = 2;
    integers i;
    for (const std::int32_t p : positions) i.push_back({p, 3, 3, 1});
    f.write(i, reals(4, {1, 1}));
    EXPECT_EQ(f.frame.exit_code([&] { f.read(); }), message.empty() ? 0 : 16) << message;
    if (!message.empty()) {
      EXPECT_TRUE(f.frame.says("RCDATA_I: " + message)) << f.frame.listing();
    }
  }
}

TEST(READTOMEM, does_not_check_records_beyond_the_models_number) {
  loaded f(two_traits(1));
  EXPECT_EQ(f.load({{1, 1, 1, 3, 3, 1}, {99, 99, 99, 99, 99, 99}}, {{1, 1, 1, 1}, {nan, nan, nan, nan}}), 2);
}

TEST(READTOMEM, sorts_long_rows) {
  // 3 traits x 20 effects, equations effect-outer: built trait by trait, so far out of order
  described_model d;
  d.traits.resize(3);
  for (auto& t : d.traits)
    for (std::int32_t j = 1; j <= 20; ++j) t.effects.push_back({j, 1});
  d.integers = 23;
  d.reals = 3;
  d.records = 1;
  loaded f(d);
  std::vector<std::int32_t> record(20, 1);
  record.insert(record.end(), {7, 7, 1});
  EXPECT_EQ(f.load({record}, {{1, 1, 1}}), 0);
  ASSERT_EQ(f.design.M_M(1), 60);
  for (std::int32_t e = 1; e <= 60; ++e) {
    EXPECT_EQ(f.design.XD1_M(e, 1), e);
    EXPECT_EQ(f.design.XD2_M(e, 1), (e - 1) % 3 + 1);                    // trait inner
    EXPECT_EQ(f.design.XD3_M(e, 1), (e - 1) % 3 * 20 + (e - 1) / 3 + 1); // groups: trait outer
  }
}

TEST(READTOMEM, stops_at_each_failed_allocation_under_its_name) {
  const auto names = walk_of_allocations([](input_frame& frame) {
    const model_records m = build_model(two_traits(1));
    equation_layout layout;
    heard_run quiet;
    count_equations(m, layout, quiet.report);
    SETGROUPS(m, layout, quiet.report, 0);
    write_integer_records(frame.path("RCDATA_I"), {{1, 1, 1, 3, 3, 1}});
    write_real_records(frame.path("RCDATA_R"), {{1, 1, 1, 1}});
    design_store design;
    relationship_store relations;
    READTOMEM(m, layout, design, relations, frame.report);
  });
  std::vector<std::string> expected = {"freg_grp in READTOMXD", "iinp in QVAgib_ALLOC",
                                       "rinp in QVAgib_ALLOC", "keys in READTOMXD"};
  for (const char* name : {"XD", "XD1_M", "XD2_M", "XD3_M", "XD4_M", "XD5_M", "XD6_M", "XD7_M", "ZD", "ZD_M",
                           "Y_M", "WV_M", "WV_SQRT_M", "ISIT_M", "C_ISIT_M", "M_M", "IRESG_M"})
    expected.push_back(std::string(name) + " in MME_ALLOC");
  expected.push_back("CV_STR in READTOMEM");
  expected.push_back("CV_STR_RAM in READTOMEM");
  EXPECT_EQ(names, expected);
}

} // namespace
