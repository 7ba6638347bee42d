#include "input/deviation_store.h"

#include "input_frame.h"
#include "support/model_builder.h"

#include <gtest/gtest.h>

namespace {

using namespace zeph_test;
using namespace zeph;

// Two traits; factor 1 "PED" of order 3 with rows of traits 2, 1, 2.
model_records deviation_model(std::int32_t levels) {
  described_model d;
  d.traits.resize(2);
  d.factors = {{"PED", levels, 3, {{2, 1, 1}, {1, 1, 2}, {2, 2, 3}}}};
  d.integers = 5;
  d.reals = 2;
  model_records m = build_model(d);
  m.L_TD = m.L_PTD = true;
  m.TD_FACTOR = 1;
  return m;
}

TEST(allocate_deviations, takes_the_first_row_that_names_the_trait) {
  input_frame frame;
  deviation_store d;
  allocate_deviations(deviation_model(4), d, frame.report);
  EXPECT_EQ(d.row(1), 2);
  EXPECT_EQ(d.row(2), 1);
  EXPECT_EQ(d.levels, 4);
}

TEST(allocate_deviations, takes_the_trait_number_where_no_row_names_a_trait) {
  input_frame frame;
  model_records m = deviation_model(4);
  m.RMAT(1).TRAIT_NO.fill(0);
  deviation_store d;
  allocate_deviations(m, d, frame.report);
  EXPECT_EQ(d.row(1), 1);
  EXPECT_EQ(d.row(2), 2);
  m.RMAT(1).n_rc = 1; // trait 2 has no row
  deviation_store small;
  allocate_deviations(m, small, frame.report);
  EXPECT_EQ(small.row(2), 0);
}

TEST(allocate_deviations, leaves_a_trait_that_is_not_named_without_a_row) {
  input_frame frame;
  model_records m = deviation_model(4);
  m.RMAT(1).TRAIT_NO.fill(2);
  deviation_store d;
  allocate_deviations(m, d, frame.report);
  EXPECT_EQ(d.row(1), 0);
  EXPECT_EQ(d.row(2), 1);
}

TEST(allocate_deviations, takes_nothing_when_none_are_wanted) {
  input_frame frame;
  model_records m = deviation_model(4);
  m.L_TD = false;
  deviation_store d;
  allocate_deviations(m, d, frame.report);
  EXPECT_EQ(d.factor, 0);
  EXPECT_EQ(frame.report.door.calls, 0);
}

TEST(allocate_deviations, reports_each_store_that_it_cannot_have) {
  std::int64_t calls = 0;
  {
    input_frame frame;
    deviation_store d;
    allocate_deviations(deviation_model(4), d, frame.report);
    calls = frame.report.door.calls;
  }
  EXPECT_GE(calls, 10);
  for (std::int64_t n = 1; n <= calls; ++n) {
    input_frame frame;
    frame.report.door.fail_at = n;
    deviation_store d;
    const model_records m = deviation_model(4);
    EXPECT_EQ(frame.exit_code([&] { allocate_deviations(m, d, frame.report); }), 16) << n;
  }
}

TEST(count_level_records, counts_records_by_level_and_present_trait) {
  input_frame frame;
  const model_records m = deviation_model(4);
  deviation_store d;
  allocate_deviations(m, d, frame.report);
  design_store design;
  design.nobs = 5;
  fill_vec(design.G_TD_LEVEL, {2, 2, 0, 4, 2});
  fill_vec(design.ISIT_M, {3, 2, 3, 1, 3}); // trait 1 is the higher bit
  count_level_records(m, design, d);
  EXPECT_EQ(d.N_TD(1, 2), 3);
  EXPECT_EQ(d.N_TD(2, 2), 2);
  EXPECT_EQ(d.N_TD(1, 4), 0);
  EXPECT_EQ(d.N_TD(2, 4), 1);
  EXPECT_TRUE(has_records(d, 4));
  EXPECT_FALSE(has_records(d, 1));

  d.row(1) = 0; // a trait without a row has no records
  count_level_records(m, design, d);
  EXPECT_EQ(d.N_TD(1, 2), 0);
}

TEST(count_progeny, counts_by_parent_above_0_the_progeny_with_records_of_the_trait) {
  input_frame frame;
  const model_records m = deviation_model(5);
  deviation_store d;
  allocate_deviations(m, d, frame.report);
  d.N_TD(1, 3) = 2;
  d.N_TD(2, 3) = 1;
  d.N_TD(2, 4) = 7;
  relationship_store relations;
  relations.pedmat.take(2, 5);
  const std::int32_t parents[] = {0, 0, 0, 0, 1, 2, 1, -5, 1, 1};
  std::copy(parents, parents + 10, relations.pedmat.begin());
  relations.pedigree_factor = 1;
  count_progeny(m, relations, d);
  EXPECT_EQ(d.N_PTD(1, 1), 1);
  EXPECT_EQ(d.N_PTD(2, 1), 2);
  EXPECT_EQ(d.N_PTD(1, 2), 1);
  EXPECT_EQ(d.N_PTD(2, 5), 0); // a group has none counted
  EXPECT_FALSE(has_progeny(d, 5));
  EXPECT_FALSE(has_progeny(d, 3));

  relations.pedigree_factor = 0; // no pedigree
  d.N_PTD.fill(0);
  count_progeny(m, relations, d);
  EXPECT_FALSE(has_progeny(d, 1));
}

} // namespace
