// Values of one record from its entries and from kept residuals, and what follows a change of an
// observation or a coefficient. Expected values: sums over the entries, by hand.
#include "gibbs/residuals/record_values.h"

#include "gibbs/scan_case.h"

namespace {

using namespace zeph_test;

record_entries entries(const scan_case& c) { return {c.design, c.layout, c.s.sol, c.f.asked.analysis_type}; }

// y - Z b of a record, not weighted, from the full design.
double residual(const scan_case& c, std::int32_t r, std::int32_t t) {
  double fitted = 0;
  for (std::int32_t i = 1; i <= c.design.M_M(r); ++i)
    if (c.design.XD2_M(i, r) == t) fitted += c.design.ZD_M(i, r) * c.s.sol(c.design.XD1_M(i, r));
  return static_cast<double>(c.design.Y_M(t, r)) - fitted;
}

// Two traits, weights, missing traits, some solutions; E holds the residuals of all records.
struct value_case : two_trait_case {
  explicit value_case(analysis analysis_type, bool missing = false)
      : two_trait_case(12, true, missing, false) {
    number_sequence x(31);
    for (double& value : s.sol) value = x.between(-1, 1);
    f.asked.analysis_type = analysis_type;
    E.take(12, 2);
    for (std::int32_t r = 1; r <= 12; ++r)
      for (std::int32_t t = 1; t <= 2; ++t) E(r, t) = residual(*this, r, t);
  }
  record_values& values(bool kept) {
    kept ? values_from_residuals(work.values, E) : values_from_entries(work.values);
    return work.values;
  }
  mat<double> E;
};

TEST(take_record, gives_observations_less_fitted_values_times_roots_of_weights) {
  for (const bool kept : {false, true}) {
    value_case c(analysis::sums);
    for (std::int32_t r = 1; r <= 12; ++r) {
      take_record(entries(c), c.values(kept), r);
      for (std::int32_t t = 1; t <= 2; ++t) {
        EXPECT_NEAR(c.work.values.res(t), residual(c, r, t) * static_cast<double>(c.design.WV_SQRT_M(t, r)),
                    1e-14);
        EXPECT_NEAR(c.work.values.fitted(t), static_cast<double>(c.design.Y_M(t, r)) - residual(c, r, t),
                    1e-14);
      }
      read_record(entries(c), c.values(kept), r);
      for (std::int32_t t = 1; t <= 2; ++t) EXPECT_NEAR(c.work.values.res(t), residual(c, r, t), 1e-14);
    }
  }
}

TEST(take_record, gives_0_for_missing_traits_in_the_solver) {
  for (const bool kept : {false, true}) {
    value_case c(analysis::solve, true);
    std::int32_t missing = 0;
    for (std::int32_t r = 1; r <= 12; ++r) {
      take_record(entries(c), c.values(kept), r);
      for (std::int32_t t = 1; t <= 2; ++t) {
        if (trait_present(c.design.ISIT_M(r), t, 2)) continue;
        EXPECT_EQ(c.work.values.res(t), 0.0);
        EXPECT_EQ(c.work.values.fitted(t), 0.0);
        ++missing;
      }
    }
    EXPECT_GT(missing, 0);
  }
}

TEST(take_record, leaves_rows_beyond_the_current_model_out) {
  two_trait_case c(1, false, false, false), less(1, false, false, false);
  for (two_trait_case* x : {&c, &less}) {
    number_sequence numbers(31);
    for (double& value : x->s.sol) value = numbers.between(-1, 1);
    x->f.asked.analysis_type = analysis::sums;
  }
  c.layout.NGR(5, 2) = 1;
  for (std::int32_t l = 1; l <= 4; ++l) less.s.sol(less.equation(5, l, 2)) = 0.0;
  take_record(entries(c), c.work.values, 1);
  take_record(entries(less), less.work.values, 1);
  for (std::int32_t t = 1; t <= 2; ++t) EXPECT_EQ(c.work.values.res(t), less.work.values.res(t));
}

TEST(add_fitted, rounds_each_sum_to_the_precision_of_its_row) {
  value_case c(analysis::sums);
  float row[2] = {0.0F, 0.0F}, expected[2] = {0.0F, 0.0F};
  for (std::int32_t i = 1; i <= c.design.M_M(3); ++i) {
    float& sum = expected[c.design.XD2_M(i, 3) - 1];
    sum = static_cast<float>(static_cast<double>(sum) + c.s.sol(c.design.XD1_M(i, 3)) * c.design.ZD_M(i, 3));
  }
  add_fitted(entries(c), 3, row);
  for (int t = 0; t < 2; ++t) EXPECT_EQ(row[t], expected[t]);
}

TEST(store_observation, moves_the_kept_residual_by_the_change) {
  value_case c(analysis::sums);
  const double before = residual(c, 4, 2);
  const float y = c.design.Y_M(2, 4);
  store_observation(c.design, c.values(true), 4, 2, y + 0.5F);
  EXPECT_EQ(c.design.Y_M(2, 4), y + 0.5F);
  EXPECT_NEAR(c.E(4, 2), before + 0.5, 1e-14);
  EXPECT_NEAR(c.E(4, 2), residual(c, 4, 2), 1e-14);
  const double other = c.E(4, 1);
  store_observation(c.design, c.values(false), 4, 1, 9.0F); // not kept: Y_M alone
  EXPECT_EQ(c.design.Y_M(1, 4), 9.0F);
  EXPECT_EQ(c.E(4, 1), other);
}

TEST(store_coefficient, moves_the_kept_residual_by_the_change_times_the_solution) {
  value_case c(analysis::sums);
  const std::int32_t t = c.design.XD2_M(2, 5);
  store_coefficient(c.design, entries(c), c.values(true), 5, 2, 0.25);
  EXPECT_EQ(c.design.ZD_M(2, 5), 0.25);
  EXPECT_NEAR(c.E(5, t), residual(c, 5, t), 1e-14);
}

TEST(store_coefficient, leaves_the_residual_where_the_entry_is_not_in_the_model) {
  value_case c(analysis::sums);
  c.layout.NGR(5, 2) = 1; // factor 1 with its first row alone
  for (std::int32_t e = 1; e <= c.design.M_M(1); ++e) {
    if (entry_active(c.design, c.layout, 1, e, analysis::sums)) continue;
    const double before = c.E(1, c.design.XD2_M(e, 1));
    store_coefficient(c.design, entries(c), c.values(true), 1, e, 7.0);
    EXPECT_EQ(c.design.ZD_M(e, 1), 7.0);
    EXPECT_EQ(c.E(1, c.design.XD2_M(e, 1)), before);
  }
}

TEST(entry_active, asks_for_a_trait_above_type_0_only) {
  two_trait_case c(1, false, false, false);
  EXPECT_TRUE(entry_active(c.design, c.layout, 1, 1, analysis::sums));
  c.design.XD2_M(1, 1) = 0;
  EXPECT_FALSE(entry_active(c.design, c.layout, 1, 1, analysis::sums));
  EXPECT_TRUE(entry_active(c.design, c.layout, 1, 1, analysis::solve));
}

TEST(entry_active, is_false_for_rows_of_a_factor_beyond_the_current_model) {
  two_trait_case c(1, false, false, false);
  c.layout.NGR(5, 2) = 1; // factor 1 with its first row alone
  for (std::int32_t e = 1; e <= c.design.M_M(1); ++e) {
    const bool second_row = c.design.XD7_M(e, 1) == 1 && c.design.XD5_M(e, 1) == 2;
    EXPECT_EQ(entry_active(c.design, c.layout, 1, e, analysis::solve), !second_row);
    EXPECT_EQ(entry_active(c.design, c.layout, 1, e, analysis::sums), !second_row);
  }
}

} // namespace
