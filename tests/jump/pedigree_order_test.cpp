#include "jump/pedigree_order.h"

#include "support/check.h"
#include "support/jump_case.h"

#include <cmath>

namespace {

using namespace zeph_test;

mat<std::int32_t> parents_as(const std::vector<std::array<std::int32_t, 2>>& parents) {
  mat<std::int32_t> pedmat;
  pedmat.take(2, static_cast<std::int64_t>(parents.size()));
  for (std::size_t i = 0; i < parents.size(); ++i)
    for (std::int64_t x = 1; x <= 2; ++x)
      pedmat(x, static_cast<std::int64_t>(i + 1)) = parents[i][static_cast<std::size_t>(x - 1)];
  return pedmat;
}

// The rows of a full symmetric matrix, as they are read from a file that holds each
// element off the diagonal in `parts` equal parts.
relationship_rows rows_of(const dense_matrix& a, double least = 1e-9, std::int32_t parts = 1) {
  relationship_rows rows;
  std::int64_t nodes = 0;
  for (std::int32_t i = 1; i <= a.n; ++i)
    for (std::int32_t j = 1; j <= a.n; ++j) nodes += i != j && std::fabs(a(i, j)) > least ? parts : 0;
  rows.diag.take(a.n);
  rows.start.take(a.n + 1);
  rows.col.take(nodes);
  rows.val.take(nodes);
  std::int64_t at = 1;
  for (std::int32_t i = 1; i <= a.n; ++i) {
    rows.diag(i) = a(i, i);
    rows.start(i) = at;
    for (std::int32_t j = 1; j <= a.n; ++j) {
      if (i == j || std::fabs(a(i, j)) <= least) continue;
      for (std::int32_t part = 0; part < parts; ++part) {
        rows.col(at) = j;
        rows.val(at++) = a(i, j) / parts;
      }
    }
  }
  rows.start(a.n + 1) = at;
  return rows;
}

TEST(settle_levels, passes_until_every_level_has_its_parents_before_it) {
  heard_run run;
  // 1 has 3 and 5, 2 none, 3 has 2, 4 has 1 and 2, 5 none: first pass 2 3 5, second 1 4
  const mat<std::int32_t> pedmat = parents_as({{3, 5}, {0, 0}, {2, 0}, {1, 2}, {0, 0}});
  EXPECT_EQ(settle_levels(pedmat, 5, "PEDFILE1", run.report), (std::vector<std::int32_t>{2, 3, 5, 1, 4}));
  const mat<std::int32_t> negative = parents_as({{0, 0}, {-1, 0}}); // a parent by its absolute value
  EXPECT_EQ(settle_levels(negative, 2, "PEDFILE1", run.report), (std::vector<std::int32_t>{1, 2}));
}

TEST(settle_levels, stops_at_a_loop) {
  const mat<std::int32_t> pedmat = parents_as({{0, 0}, {3, 1}, {2, 0}});
  const std::string text =
      expect_stop(16, [&](reporting& report) { settle_levels(pedmat, 3, "PEDFILE2", report); });
  EXPECT_EQ(text, illegal_input_text("PEDFILE2", "level", "2", "no level among its own ancestors"));
}

TEST(log_det_relationship, is_that_of_the_full_matrix_with_inbreeding) {
  heard_run run;
  for (const std::int32_t animals : {5, 12, 40}) {
    const auto parents = made_pedigree(animals);
    const dense_matrix A = relationship_of(parents);
    double inbred = 0;
    for (std::int32_t i = 1; i <= animals; ++i) inbred += A(i, i) - 1.0;
    EXPECT_TRUE(animals < 10 || inbred > 0.1);
    const auto settled = settle_levels(parents_as(parents), animals, "PEDFILE1", run.report);
    const double found =
        log_det_relationship(rows_of(dense_inverse(A).inverse), settled, "AINV1", run.report);
    EXPECT_NEAR(found, std::log(dense_inverse(A).determinant), 1e-9);
  }
}

TEST(log_det_relationship, counts_the_known_parents_without_inbreeding) {
  heard_run run;
  // |A| is the product of the Mendelian variances: 1, 1, 3/4, 1/2, 1/2
  const std::vector<std::array<std::int32_t, 2>> parents = {{0, 0}, {0, 0}, {1, 0}, {1, 2}, {3, 2}};
  const dense_matrix A = relationship_of(parents);
  const auto settled = settle_levels(parents_as(parents), 5, "PEDFILE1", run.report);
  const double found = log_det_relationship(rows_of(dense_inverse(A).inverse), settled, "AINV1", run.report);
  EXPECT_NEAR(found, std::log(0.75 * 0.5 * 0.5), 1e-12);
}

TEST(log_det_relationship, fills_in_where_the_links_are_not_those_of_the_pedigree) {
  heard_run run;
  const dense_matrix inverse(
      4, {4.0, 1.0, 0.0, 0.5, 1.0, 3.0, -1.0, 0.7, 0.0, -1.0, 2.0, 0.0, 0.5, 0.7, 0.0, 5.0});
  const double found = log_det_relationship(rows_of(inverse), {4, 2, 3, 1}, "AINV1", run.report);
  EXPECT_NEAR(found, -std::log(dense_inverse(inverse).determinant), 1e-12);
}

// Animals 1, 11, 13, the sire of 11 is 1: |A| = 3/4, in whichever order they are.
TEST(log_det_relationship, adds_up_an_element_that_is_in_parts) {
  heard_run run;
  const dense_matrix inverse(3, {4.0 / 3, -2.0 / 3, 0, -2.0 / 3, 4.0 / 3, 0, 0, 0, 1.0});
  for (const std::int32_t parts : {1, 2, 3})
    for (const std::vector<std::int32_t>& settled : {std::vector<std::int32_t>{1, 2, 3}, {3, 2, 1}})
      EXPECT_NEAR(log_det_relationship(rows_of(inverse, 1e-9, parts), settled, "AINV1", run.report),
                  -std::log(4.0 / 3), 1e-15);
  const auto parents = made_pedigree(40); // with inbreeding
  const dense_matrix A = relationship_of(parents);
  const auto settled = settle_levels(parents_as(parents), 40, "PEDFILE1", run.report);
  EXPECT_NEAR(log_det_relationship(rows_of(dense_inverse(A).inverse, 1e-9, 2), settled, "AINV1", run.report),
              std::log(dense_inverse(A).determinant), 1e-9);
}

TEST(log_det_relationship, stops_at_a_pivot_that_is_not_positive) {
  const dense_matrix inverse(2, {1.0, 2.0, 2.0, 3.0}); // pivots 3 and 1 - 4/3
  const std::string text = expect_stop(16, [&](reporting& report) {
    log_det_relationship(rows_of(inverse), {1, 2}, "AINV3", report);
  });
  EXPECT_EQ(text, illegal_input_text("AINV3", "pivot of level(1)", "-0.333333", "above 0"));
}

} // namespace
