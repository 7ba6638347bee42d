#include "input/design_store.h"

#include "input/sampler_store.h"
#include "input_frame.h"
#include "support/model_builder.h"

#include <gtest/gtest.h>

namespace {

using namespace zeph_test;

described_model kinds(const std::vector<std::int32_t>& list, std::int32_t records) {
  described_model d;
  d.traits.resize(list.size());
  for (std::size_t i = 0; i < list.size(); ++i) d.traits[i].kind = list[i];
  d.records = records;
  return d;
}

TEST(MME_ALLOC, makes_the_stores_of_an_ordinary_model) {
  input_frame frame;
  design_store design;
  MME_ALLOC(build_model(kinds({1, 1}, 5)), 3, design, frame.report);
  EXPECT_EQ(design.m, 3);
  for (const auto* x : {&design.XD1_M, &design.XD2_M, &design.XD3_M, &design.XD4_M, &design.XD5_M,
                        &design.XD6_M, &design.XD7_M}) {
    EXPECT_EQ(x->extent(1), 3);
    EXPECT_EQ(x->extent(2), 5);
  }
  EXPECT_EQ(design.ZD_M.size(), 15);
  EXPECT_EQ(design.Y_M.extent(1), 2);
  EXPECT_EQ(design.WV_SQRT_M.extent(2), 5);
  EXPECT_EQ(design.IRESG_M.size(), 5);
}

TEST(MME_ALLOC, makes_nothing_for_kinds_and_wishes_that_do_not_occur) {
  input_frame frame;
  design_store design;
  MME_ALLOC(build_model(kinds({1, 3, 4, 5}, 2)), 1, design, frame.report);
  EXPECT_TRUE(design.CURE_Y.empty());
  for (const bool made :
       {design.SEQ_M.allocated(), design.CURE_YHAT.allocated(), design.LOG_Z.allocated(),
        design.CENS_M.allocated(), design.Y_MMIN.allocated(), design.Y_MMAX.allocated(),
        design.OBS_POS_M.allocated(), design.ZEPH_RES.allocated(), design.G_TD_LEVEL.allocated()})
    EXPECT_FALSE(made);
}

TEST(MME_ALLOC, keeps_residuals_only_when_both_flags_hold) {
  for (const bool wanted : {false, true})
    for (const std::int32_t kind : {1, 2}) {
      input_frame frame;
      design_store design;
      model_records m = build_model(kinds({1}, 2));
      m.l_residuals = wanted;
      m.model_kind = kind;
      MME_ALLOC(m, 1, design, frame.report);
      EXPECT_EQ(design.OBS_POS_M.allocated(), wanted && kind == 2);
      EXPECT_EQ(design.ZEPH_RES.allocated(), wanted && kind == 2);
    }
}

TEST(MME_ALLOC, makes_status_arrays_for_traits_of_kind_7_alone) {
  input_frame frame;
  design_store design;
  model_records m = build_model(kinds({1, 7, 8}, 4));
  m.n_cure_seq = 6;
  MME_ALLOC(m, 1, design, frame.report);
  ASSERT_EQ(design.CURE_Y.size(), 3U);
  EXPECT_FALSE(design.CURE_Y[0].allocated());
  EXPECT_EQ(design.CURE_Y[1].size(), 4);
  EXPECT_FALSE(design.CURE_Y[2].allocated());
  EXPECT_EQ(design.CURE_YHAT.extent(2), 6);
  EXPECT_EQ(design.LOG_Z.extent(1), 3);
}

TEST(MME_ALLOC, accepts_rows_and_data_of_length_zero) {
  input_frame frame;
  design_store design;
  EXPECT_EQ(frame.exit_code([&] { MME_ALLOC(build_model(kinds({1}, 0)), 0, design, frame.report); }), 0);
  EXPECT_EQ(design.XD1_M.size(), 0);
  EXPECT_EQ(design.Y_M.size(), 0);
}

TEST(MME_ALLOC, stops_at_each_failed_allocation_under_its_name) {
  const auto names = walk_of_allocations([](input_frame& frame) {
    model_records m = build_model(kinds({2, 7}, 3));
    m.l_residuals = m.L_TD = true;
    m.model_kind = 2;
    design_store design;
    MME_ALLOC(m, 2, design, frame.report);
  });
  std::vector<std::string> expected;
  for (const char* name :
       {"XD",       "XD1_M",     "XD2_M",   "XD3_M",     "XD4_M",    "XD5_M",     "XD6_M",
        "XD7_M",    "ZD",        "ZD_M",    "Y_M",       "WV_M",     "WV_SQRT_M", "ISIT_M",
        "C_ISIT_M", "M_M",       "IRESG_M", "OBS_POS_M", "ZEPH_RES", "CURE_Y",    "CURE_Y",
        "SEQ_M",    "CURE_YHAT", "LOG_Z",   "CENS_M",    "Y_MMIN",   "Y_MMAX",    "ZEPH_TD%REC_ID"})
    expected.push_back(std::string(name) + " in MME_ALLOC");
  EXPECT_EQ(names, expected);
}

TEST(MME_ALLOC, reports_elements_and_status) {
  input_frame frame;
  frame.report.door.fail_at = 2;
  design_store design;
  const model_records m = build_model(kinds({1}, 7));
  EXPECT_EQ(frame.exit_code([&] { MME_ALLOC(m, 3, design, frame.report); }), 16);
  EXPECT_EQ(frame.listing(), allocation_text("XD1_M", "21", "MME_ALLOC")); // 3 x 7
}

TEST(QVAgib_ALLOC, takes_the_larger_of_traits_and_orders) {
  described_model d = kinds({1, 1}, 1);
  d.factors = {{"I", 2, 3, {{1, 1, 1}}}, {"I", 2, 1, {{1, 1, 1}}}};
  d.residual_groups = 4;
  input_frame frame;
  sampler_store s;
  QVAgib_ALLOC(build_model(d), s, frame.report);
  EXPECT_EQ(s.nf, 3);
  EXPECT_EQ(s.G, 4);
  EXPECT_EQ(s.GIF.extent(1), 3);
  EXPECT_EQ(s.GIF.extent(3), 2);
  EXPECT_EQ(s.RDET.size(), 3); // 2^2 - 1
  EXPECT_EQ(s.COVSAMPM.extent(2), 2);
}

TEST(QVAgib_ALLOC, stops_at_each_failed_allocation_under_its_name) {
  const auto names = walk_of_allocations([](input_frame& frame) {
    sampler_store s;
    QVAgib_ALLOC(build_model(kinds({1}, 1)), s, frame.report);
  });
  const std::vector<std::string> expected = {"GIF in QVAgib_ALLOC", "GDET in QVAgib_ALLOC",
                                             "RDET in QVAgib_ALLOC", "COVSAMPM in SAMPMRES"};
  EXPECT_EQ(names, expected);
}

TEST(count_group_records, counts_by_residual_group_from_zero) {
  described_model d = kinds({1}, 4);
  d.residual_groups = 3;
  model_records m = build_model(d);
  m.residual().HETG_N_OBS.fill(77);
  design_store design;
  design.nobs = 4;
  fill_vec(design.IRESG_M, {3, 1, 3, 3});
  count_group_records(m, design);
  const vec<std::int32_t>& count = m.residual().HETG_N_OBS;
  EXPECT_EQ(std::vector<std::int32_t>(count.begin(), count.end()), (std::vector<std::int32_t>{0, 1, 0, 3}));
}

TEST(count_group_records, takes_the_place_0_of_a_model_without_groups) {
  described_model d = kinds({1}, 2);
  d.residual_groups = 0;
  model_records m = build_model(d);
  design_store design;
  design.nobs = 2;
  fill_vec(design.IRESG_M, {1, 1});
  count_group_records(m, design);
  EXPECT_EQ(m.residual().HETG_N_OBS(0), 2);
}

} // namespace
