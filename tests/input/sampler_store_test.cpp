#include "input/sampler_store.h"

#include "support/check.h"
#include "support/model_builder.h"

namespace {

using namespace zeph_test;

// Factors of orders 2 and 1, two traits, two residual groups.
model_records two_factor_model() {
  described_model d;
  d.traits.resize(2);
  d.factors = {{"I", 2, 2, {{1, 1, 1}, {2, 1, 2}}}, {"I", 2, 1, {{1, 1, 1}}}};
  d.residual_groups = 2;
  return build_model(d);
}

} // namespace

TEST(ZEPHVAR_ALLOC, makes_a_store_for_each_factor_and_residual_group) {
  heard_run run;
  const model_records m = two_factor_model();
  sampler_store s;
  EXPECT_EQ(ZEPHVAR_ALLOC(m, s, run.report), 0);
  ASSERT_EQ(s.IW_STR.size(), 4u);
  const std::int64_t orders[] = {2, 1, 2, 2};
  for (std::int64_t f = 1; f <= 4; ++f) {
    inverse_wishart_store& x = IW_STR_of(s, f, "test", run.report);
    for (const mat<double>* y : {&x.sscp_f, &x.W, &x.W_INV}) {
      EXPECT_EQ(y->extent(1), orders[f - 1]);
      EXPECT_EQ(y->extent(2), orders[f - 1]);
    }
    ASSERT_EQ(x.SCALE.size(), orders[f - 1]);
    for (const double scale : x.SCALE) EXPECT_EQ(scale, 1.0);
  }
}

TEST(ZEPHVAR_ALLOC, returns_every_failure_and_says_nothing) {
  const model_records m = two_factor_model();
  heard_run counted;
  sampler_store all;
  ASSERT_EQ(ZEPHVAR_ALLOC(m, all, counted.report), 0);
  EXPECT_EQ(counted.report.door.calls, 1 + 4 * 4);
  for (std::int64_t n = 1; n <= counted.report.door.calls; ++n) {
    heard_run run;
    run.report.door.fail_at = n;
    sampler_store s;
    EXPECT_EQ(ZEPHVAR_ALLOC(m, s, run.report), 41);
    EXPECT_TRUE(s.IW_STR.empty());
    EXPECT_EQ(run.text(), "");
  }
}

TEST(IW_STR, that_could_not_be_had_stops_the_routine_that_needs_it) {
  const std::string text = expect_stop(16, [](reporting& report) {
    sampler_store s;
    IW_STR_of(s, 1, "sample_covariances", report);
  });
  EXPECT_EQ(text, "\nERROR - Computation impossible in sample_covariances: no storage for IW_STR\n"
                  "\nZEPH terminates.\n");
}
