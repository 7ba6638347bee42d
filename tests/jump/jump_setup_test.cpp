#include "jump/jump_setup.h"

#include "support/check.h"
#include "support/jump_case.h"
#include "support/run_state.h"

#include <cmath>

namespace {

using namespace zeph_test;

// A factor of order 4 on trait 1, rows 2 to 4 by random regressions, and one of order 2.
jump_options curve_and_plain() { return {{{"I", 4, 8, true}, {"I", 2, 6}}, 2}; }

std::vector<std::int32_t> codes_of_trait(const run& r, std::int32_t trait) {
  const vec<std::int32_t>& codes = r.model.MODEL(trait).REG_TYPE;
  return {codes.begin(), codes.end()};
}

TEST(set_structure, marks_the_active_rows_of_the_factor_and_sets_all_groups) {
  jump_case c(curve_and_plain());
  c.start(c.lines(6, 0, 1, 1));
  jump_records records = jump_records_of(*c.r);
  set_structure(records, {3, 2, 2}, 1);
  EXPECT_EQ(codes_of_trait(*c.r, 1), (std::vector<std::int32_t>{2, 2, 3})); // rows 2 and 3 active
  const std::int32_t last = c.r->layout.ngroups;
  EXPECT_EQ(c.r->layout.NGR(last - 1, 2), 3);
  EXPECT_EQ(c.r->layout.NGR(last, 2), 2);
  set_structure(records, {1, 1, 2}, 1); // one row: every regression is inactive
  EXPECT_EQ(codes_of_trait(*c.r, 1), (std::vector<std::int32_t>{3, 3, 3}));
  EXPECT_EQ(c.r->layout.NGR(last, 2), 1);
  set_structure(records, {4, 1, 2}, 1);
  EXPECT_EQ(codes_of_trait(*c.r, 1), (std::vector<std::int32_t>{2, 2, 2}));
}

TEST(set_structure, leaves_codes_of_other_kinds_and_other_factors) {
  jump_case c(curve_and_plain());
  c.start(c.lines(6, 0, 1, 1));
  jump_records records = jump_records_of(*c.r);
  vec<std::int32_t>& codes = c.r->model.MODEL(1).REG_TYPE;
  codes(1) = 0, codes(2) = 1;
  set_structure(records, {1, 1, 2}, 1);
  EXPECT_EQ(codes_of_trait(*c.r, 1), (std::vector<std::int32_t>{0, 1, 3}));
  c.r->model.MODEL(1).REG_R_MATNO(3) = 2;
  codes(3) = 2;
  set_structure(records, {1, 1, 2}, 1);
  EXPECT_EQ(codes(3), 2);
}

TEST(set_structure, has_no_codes_for_a_factor_beyond_the_traits) {
  jump_case c({{{"I", 2, 8, true}, {"I", 3, 6, true}}, 1}); // factor 2, one trait
  c.start(c.lines(6, 0, 1, 1));
  jump_records records = jump_records_of(*c.r);
  const std::vector<std::int32_t> before = codes_of_trait(*c.r, 1);
  set_structure(records, {1, 1, 1}, 2);
  EXPECT_EQ(codes_of_trait(*c.r, 1), before);
  EXPECT_EQ(c.r->layout.NGR(c.r->layout.ngroups, 2), 1); // the groups follow all the same
}

TEST(jump_setup, starts_with_one_row_of_each_factor) {
  jump_case c({{{"I", 1, 6}, {"I", 3, 8}}, 3});
  c.start(c.lines(6, 0, 1, 1));
  c.r->sampler.PARPOSTMEAN.fill(2.5);
  c.r->sampler.PARVAR.fill(3.5);
  jump_records records = jump_records_of(*c.r);
  jump_setup(records, c.r->relations, analysis::jump);
  EXPECT_EQ(c.r->state.ntr, (std::vector<std::int32_t>{1, 1, 3}));
  EXPECT_EQ(c.r->sampler.GIF(1, 1, 1), 1.0 / 1.25); // COV_MAT(1,1)
  EXPECT_EQ(c.r->sampler.GIF(1, 1, 2), 1.0 / 1.25);
  EXPECT_EQ(c.m->RMAT(2).COV_MAT(1, 1), 1.25);
  EXPECT_EQ(c.r->layout.NGR(c.r->layout.ngroups, 2), 1);
  for (const double x : c.r->sampler.PARPOSTMEAN) EXPECT_EQ(x, 2.5);
  for (const double x : c.r->sampler.PARVAR) EXPECT_EQ(x, 3.5);
  EXPECT_TRUE(c.says("No pedigree file found"));
}

TEST(jump_setup, keeps_the_model_below_code_6) {
  jump_case c({{{"I", 3, 8}}, 3});
  c.start(c.lines(6, 0, 1, 1));
  jump_records records = jump_records_of(*c.r);
  jump_setup(records, c.r->relations, analysis::models);
  EXPECT_EQ(c.r->state.ntr, (std::vector<std::int32_t>{3, 3}));
}

TEST(jump_setup, stops_without_a_factor_of_two_rows) {
  for (const std::int32_t type : {5, 6}) {
    jump_case c({{{"I", 1, 8}}, 3});
    EXPECT_EQ(c.go(c.lines(type, 0, 1, 1)), 16);
    const std::string end =
        "\nAll random effects have covariance matrix of dimension one\n\nZEPH terminates. \n";
    EXPECT_EQ(c.text().substr(c.text().size() - end.size()), end);
    EXPECT_FALSE(c.directory.has("zeinfo"));
  }
}

TEST(jump_setup, knows_the_log_determinant_of_the_relationships) {
  jump_case c({{{"I", 2, 8}, {"PED", 3, 14}}, 3});
  c.start_moves(c.lines(6, 0, 1, 1));
  EXPECT_EQ(c.r->jump.log_det_A(1), 0.0);
  const dense_matrix A = relationship_of(made_pedigree(14));
  EXPECT_NEAR(c.r->jump.log_det_A(2), std::log(dense_inverse(A).determinant), 1e-10);
}

TEST(jump_setup, does_not_look_at_the_pedigree_of_a_factor_that_never_moves) {
  jump_case c({{{"I", 2, 8}, {"PED", 1, 14}}, 3});
  c.start_moves(c.lines(6, 0, 1, 1));
  EXPECT_EQ(c.r->jump.log_det_A(2), 0.0);
  EXPECT_TRUE(c.r->jump.settled.empty());
}

TEST(jump_setup, stops_at_a_loop_in_the_pedigree) {
  jump_case c({{{"PED", 2, 14}}, 2});
  auto parents = made_pedigree(14);
  parents[4] = {6, 0}, parents[5] = {5, 0}; // 5 and 6
  std::vector<std::int32_t> row;
  for (const auto& pair : parents) row.insert(row.end(), pair.begin(), pair.end());
  write_integer_records(c.directory / "PEDFILE1", {row});
  EXPECT_EQ(c.go(c.lines(6, 0, 1, 1)), 16);
  EXPECT_TRUE(c.says(illegal_input_text("PEDFILE1", "level", "5", "no level among its own ancestors")));
}

TEST(jump_setup, takes_its_stores_through_the_one_door) {
  jump_case c({{{"I", 3, 8}}, 3});
  c.start(c.lines(6, 0, 1, 1));
  jump_records records = jump_records_of(*c.r);
  const std::int64_t before = c.r->report.door.calls;
  jump_setup(records, c.r->relations, analysis::jump);
  const std::int64_t calls = c.r->report.door.calls - before;
  EXPECT_GE(calls, 10);
  for (std::int64_t n = 1; n <= calls; ++n) {
    jump_case failing({{{"I", 3, 8}}, 3});
    failing.start(failing.lines(6, 0, 1, 1));
    jump_records of = jump_records_of(*failing.r);
    failing.r->report.door.fail_at = failing.r->report.door.calls + n;
    try {
      jump_setup(of, failing.r->relations, analysis::jump);
      ADD_FAILURE() << "no stop at call " << n;
    } catch (const run_stop& stop) {
      EXPECT_EQ(stop.exit_code, 16);
    }
    EXPECT_TRUE(failing.says("Program terminates with exit code 16"));
  }
}

TEST(zeinfo, holds_one_word_until_its_first_row_replaces_it) {
  jump_case c({{{"I", 2, 8}}, 2});
  c.start_moves(c.lines(6, 0, 1, 1));
  EXPECT_EQ(c.directory.read("zeinfo"), "starting\n");
  write_zeinfo(c.r->jump, "a row", c.r->report);
  flush_zeinfo(c.r->jump, c.r->report);
  EXPECT_EQ(c.directory.read("zeinfo"), "a row\n"); // readable while it is open
  write_zeinfo(c.r->jump, "another", c.r->report);
  close_zeinfo(c.r->jump, c.r->report);
  EXPECT_EQ(c.directory.read("zeinfo"), "a row\nanother\n");
}

TEST(zeinfo, stops_where_it_cannot_be_written) {
  jump_case c({{{"I", 2, 8}}, 2});
  std::filesystem::create_directory(c.directory / "zeinfo");
  EXPECT_EQ(c.go(c.lines(6, 0, 1, 1)), 16);
  EXPECT_TRUE(c.says("Illegal input in zeinfo: write = open"));
}

} // namespace
