#include "control/start_values.h"

#include "numerics/packed_matrix.h"
#include "support/chain_frame.h"
#include "support/check.h"
#include "support/dense_matrix.h"
#include "support/model_builder.h"

#include <cmath>

namespace {

using namespace zeph_test;

std::string field(const std::string& text, std::size_t width) {
  return " " + std::string(text.size() < width ? width - text.size() : 0, ' ') + text;
}
std::string I(std::int64_t x) { return field(std::to_string(x), 11); }
std::string R8(const std::string& text) { return field(text, 24); }

// Three traits, one factor of order 2 and one of order 1.
struct start_case {
  explicit start_case(std::int32_t groups, bool grouped = true)
      : m(build_model(described(groups, grouped))) {}

  static described_model described(std::int32_t groups, bool grouped) {
    described_model d;
    d.traits.resize(3);
    d.factors = {{"I", 4, 2, {{1, 1, 1}, {2, 1, 2}}}, {"I", 3, 1, {{3, 2, 1}}}};
    d.integers = 5, d.reals = 3, d.records = 2;
    d.residual_groups = groups;
    d.group_place = grouped ? 2 : 0;
    d.residual = prior().cells;
    return d;
  }
  static const dense_matrix& prior() {
    static const dense_matrix R(3, {4.0, 1.0, -0.5, 1.0, 3.0, 0.75, -0.5, 0.75, 2.0});
    return R;
  }
  static dense_matrix own_matrix(std::int32_t g) {
    dense_matrix R = prior();
    for (std::int64_t i = 1; i <= 3; ++i) R(i, i) += 0.5 * g;
    R(1, 2) = R(2, 1) = -0.25 * g;
    return R;
  }
  void set_matrix(std::int32_t g, const dense_matrix& R) {
    for (std::int32_t i = 1; i <= 3; ++i)
      for (std::int32_t j = 1; j <= 3; ++j) m.residual().HETGR_COV_MAT(g, i, j) = R(i, j);
  }

  void allocate_all() {
    heard_run quiet;
    count_equations(m, layout, quiet.report);
    SETGROUPS(m, layout, quiet.report, 0);
    QVAgib_ALLOC(m, s, quiet.report);
    allocate_dispersion(m, layout, f.state, s, quiet.report);
  }
  void start() {
    allocate_all();
    start_from_priors(m, f.asked, s, run.report);
  }

  heard_run run;
  model_records m;
  equation_layout layout;
  sampler_store s;
  zeph_test::chain_frame f;
};

// RCOV, its inverse, 1 / root of the determinant and -log determinant of group g.
void expect_group(const start_case& c, std::int32_t g, const dense_matrix& R) {
  const dense_inverse made(R);
  for (std::int32_t i = 1; i <= 3; ++i)
    for (std::int32_t j = 1; j <= 3; ++j) {
      EXPECT_EQ(c.s.RCOV(i, j, g), R(i, j));
      EXPECT_NEAR(c.s.RCOVI(i, j, g), made.inverse(i, j), 1e-14);
    }
  EXPECT_NEAR(c.s.IDET_RVAR(2 + g), 1.0 / std::sqrt(made.determinant), 1e-14);
  EXPECT_NEAR(c.s.LVDET(2 + g), -std::log(made.determinant), 1e-13);
}

TEST(start_from_priors, gives_one_matrix_without_groups) {
  start_case c(1, false);
  c.start();
  EXPECT_EQ(c.s.G, 1);
  expect_group(c, 1, start_case::prior());
  EXPECT_EQ(c.run.text(), "");
}

TEST(start_from_priors, gives_every_group_the_one_prior_when_they_have_none_of_their_own) {
  start_case c(3);
  c.set_matrix(1, start_case::own_matrix(1));
  c.set_matrix(3, start_case::own_matrix(3)); // group 2 has none: own matrices are used by all or by none
  c.start();
  for (std::int32_t g = 1; g <= 3; ++g) expect_group(c, g, start_case::prior());
}

TEST(start_from_priors, gives_every_group_its_own_matrix) {
  start_case c(3);
  for (std::int32_t g = 1; g <= 3; ++g) c.set_matrix(g, start_case::own_matrix(g));
  c.start();
  for (std::int32_t g = 1; g <= 3; ++g) expect_group(c, g, start_case::own_matrix(g));
}

TEST(start_from_priors, reads_no_matrices_of_groups_when_the_residual_has_no_groups) {
  start_case c(2, false);
  for (std::int32_t g = 1; g <= 2; ++g) c.set_matrix(g, start_case::own_matrix(g));
  c.start();
  expect_group(c, 1, start_case::prior());
  expect_group(c, 2, start_case::prior());
}

TEST(start_from_priors, takes_the_stored_inverse_when_it_is_one) {
  start_case c(2);
  const dense_matrix inverse = dense_inverse(start_case::prior()).inverse;
  for (std::int32_t i = 1; i <= 3; ++i)
    for (std::int32_t j = 1; j <= 3; ++j) c.m.residual().HETGR_RIIF(1, 1, i, j) = inverse(i, j) + 1e-9;
  c.start();
  for (std::int32_t g = 1; g <= 2; ++g)
    for (std::int32_t i = 1; i <= 3; ++i)
      for (std::int32_t j = 1; j <= 3; ++j) EXPECT_EQ(c.s.RCOVI(i, j, g), inverse(i, j) + 1e-9);
}

TEST(start_from_priors, takes_no_stored_inverse_for_groups_with_their_own_matrices) {
  start_case c(2);
  const dense_matrix inverse = dense_inverse(start_case::prior()).inverse;
  for (std::int32_t i = 1; i <= 3; ++i)
    for (std::int32_t j = 1; j <= 3; ++j) c.m.residual().HETGR_RIIF(1, 1, i, j) = inverse(i, j);
  for (std::int32_t g = 1; g <= 2; ++g) c.set_matrix(g, start_case::own_matrix(g));
  c.start();
  for (std::int32_t g = 1; g <= 2; ++g) expect_group(c, g, start_case::own_matrix(g));
}

TEST(start_from_priors, makes_the_inverse_itself_when_the_stored_one_is_another_pattern) {
  start_case c(1, false);
  // pattern 1 observes trait 3 alone
  EXPECT_EQ(c.m.residual().HETGR_RIIF(1, 1, 1, 1), 0.0);
  EXPECT_EQ(c.m.residual().HETGR_RIIF(1, 1, 3, 3), 0.5);
  c.start();
  expect_group(c, 1, start_case::prior());
}

TEST(start_from_priors, takes_inverses_and_determinants_of_the_factors_as_stored) {
  start_case c(1, false);
  const double gif[4] = {2.0, 0.25, 0.25, 1.5};
  std::copy(gif, gif + 4, c.m.RMAT(1).GIF.begin());
  c.m.RMAT(1).r3304 = -1.25;
  c.m.RMAT(2).GIF(1, 1) = 8.0;
  c.start();
  EXPECT_EQ(c.s.GDET(1), -1.25);
  for (std::int32_t i = 1; i <= 2; ++i)
    for (std::int32_t j = 1; j <= 2; ++j) EXPECT_EQ(c.s.GIF(i, j, 1), gif[(i - 1) * 2 + j - 1]);
  EXPECT_EQ(c.s.GIF(1, 1, 2), 8.0);
  EXPECT_EQ(c.s.GIF(3, 3, 1), 0.0); // beyond the order of the factor
  EXPECT_EQ(c.s.GIF(2, 2, 2), 0.0);
}

TEST(start_from_priors, names_every_group_that_is_not_positive_definite_before_it_stops) {
  start_case c(3);
  for (std::int32_t g = 1; g <= 3; ++g) c.set_matrix(g, start_case::own_matrix(g));
  dense_matrix flat = start_case::own_matrix(1);
  flat(2, 1) = flat(1, 2) = 6.0; // determinant of the leading two rows 4.5 x 3.5 - 36 < 0
  c.set_matrix(1, flat);
  dense_matrix single = start_case::own_matrix(3);
  for (std::int64_t i = 1; i <= 3; ++i) single(3, i) = single(i, 3) = single(2, i);
  single(3, 3) = single(2, 2); // rows 2 and 3 alike: the last pivot is 0
  c.set_matrix(3, single);
  c.allocate_all();
  const std::string text =
      expect_stop(16, c.run, [&](reporting& report) { start_from_priors(c.m, c.f.asked, c.s, report); });
  const std::string line = "Residual co-variance matrix not P.D. in group";
  EXPECT_EQ(text.find(line + I(1) + "\n"), 0U);
  EXPECT_EQ(text.find(line + I(2)), std::string::npos);
  const std::string end = line + I(3) + "\n\nZEPH terminates.\n";
  EXPECT_EQ(text.substr(text.size() - end.size()), end);
}

TEST(start_from_priors, prints_determinants_and_pattern_inverses_at_test_level_2) {
  described_model d;
  d.traits.resize(2);
  d.factors = {{"I", 4, 1, {{1, 1, 1}}}, {"I", 3, 1, {{2, 2, 1}}}};
  d.integers = 5, d.reals = 2;
  d.residual = {4.0, 1.0, 1.0, 0.5}; // inverse (0.5, -1; -1, 4)
  heard_run quiet, run;
  model_records m = build_model(d);
  m.RMAT(1).r3304 = 1.5;
  m.RMAT(2).r3304 = -0.25;
  for (std::int32_t p = 1; p <= 3; ++p) m.residual().HETGR_RDET(1, p) = 0.125 * p;
  for (double& x : m.residual().HETGR_RIIF) x += 0.0; // no zero with a sign
  equation_layout layout;
  sampler_store s;
  zeph_test::chain_frame f;
  count_equations(m, layout, quiet.report);
  SETGROUPS(m, layout, quiet.report, 0);
  QVAgib_ALLOC(m, s, quiet.report);
  allocate_dispersion(m, layout, f.state, s, quiet.report);
  f.asked.test_level = 1;
  start_from_priors(m, f.asked, s, run.report);
  EXPECT_EQ(run.text(), "");
  f.asked.test_level = 2;
  start_from_priors(m, f.asked, s, run.report);
  const std::string zero = R8("0.0"), row0 = zero + zero + "\n", half = R8("0.5");
  const std::string determinants =
      "Determinant of initial G-Matrice(s)\n" + std::string(30, ' ') + "    1     1.50000000000000    \n" +
      std::string(30, ' ') + "    2   -0.250000000000000    \nDet. of all existing R-Matrices \n" + I(1) +
      I(1) + R8("0.125") + "\n" + I(1) + I(2) + R8("0.25") + "\n" + I(1) + I(3) + R8("0.375") + "\n";
  // pattern 1: trait 2 alone; 2: trait 1 alone; 3: both
  EXPECT_EQ(run.text(), determinants +
                            "    All possible R-inverses from initial R\n"
                            "   Residual variance group .............." +
                            I(1) + "\nMissing data pattern " + I(1) + "\n" + row0 + zero + R8("2.0") +
                            "\nMissing data pattern " + I(2) + "\n" + R8("0.25") + zero + "\n" + row0 +
                            "Missing data pattern " + I(3) + "\n" + half + R8("-1.0") + "\n" + R8("-1.0") +
                            R8("4.0") + "\n");
}

TEST(start_from_priors, prints_no_pattern_inverses_for_one_trait) {
  described_model d;
  d.traits.resize(1);
  d.integers = 3, d.reals = 1;
  heard_run quiet, run;
  const model_records m = build_model(d);
  equation_layout layout;
  sampler_store s;
  zeph_test::chain_frame f;
  count_equations(m, layout, quiet.report);
  SETGROUPS(m, layout, quiet.report, 0);
  QVAgib_ALLOC(m, s, quiet.report);
  allocate_dispersion(m, layout, f.state, s, quiet.report);
  f.asked.test_level = 2;
  start_from_priors(m, f.asked, s, run.report);
  EXPECT_EQ(run.text(), "Determinant of initial G-Matrice(s)\nDet. of all existing R-Matrices \n" + I(1) +
                            I(1) + R8("0.0") + "\n");
}

TEST(print_start_matrices, shows_priors_and_residual_matrices) {
  described_model d;
  d.traits.resize(2);
  d.factors = {{"I", 4, 2, {{1, 1, 1}, {2, 1, 2}}}};
  d.integers = 5, d.reals = 2;
  d.residual = {4.0, 1.0, 1.0, 0.5}; // inverse (0.5, -1; -1, 4)
  heard_run quiet, run;
  model_records m = build_model(d);
  const double cov[4] = {3.0, 0.5, 0.75, 1.0}; // columns; unequal halves show the order
  std::copy(cov, cov + 4, m.RMAT(1).COV_MAT.begin());
  equation_layout layout;
  sampler_store s;
  zeph_test::chain_frame f;
  count_equations(m, layout, quiet.report);
  SETGROUPS(m, layout, quiet.report, 0);
  QVAgib_ALLOC(m, s, quiet.report);
  allocate_dispersion(m, layout, f.state, s, quiet.report);
  start_from_priors(m, f.asked, s, quiet.report);
  print_start_matrices(m, s, run.report);
  EXPECT_EQ(run.text(), "Prior co-variance matrices\nMatrix no " + I(1) + "\n" + R8("3.0") + R8("0.75") +
                            "\n" + R8("0.5") + R8("1.0") + "\nResidual dispersion parameters\nrcov " +
                            R8("4.0") + R8("1.0") + R8("1.0") + R8("0.5") + "\nrcovi " + R8("0.5") +
                            R8("-1.0") + R8("-1.0") + R8("4.0") + "\n");
}

TEST(allocate_dispersion, prints_the_number_of_residual_groups_and_sizes_the_stores) {
  start_case c(3);
  heard_run quiet;
  count_equations(c.m, c.layout, quiet.report);
  SETGROUPS(c.m, c.layout, quiet.report, 0);
  QVAgib_ALLOC(c.m, c.s, quiet.report);
  allocate_dispersion(c.m, c.layout, c.f.state, c.s, c.run.report);
  EXPECT_EQ(c.run.text(), "         No of groups for residual variance ................          3\n");
  EXPECT_EQ(c.s.sscp.extent(1), 6); // packed order 3
  EXPECT_EQ(c.s.sscp.extent(2), 5); // 2 factors, 3 groups
  EXPECT_EQ(c.s.IDET_RVAR.size(), 5);
  EXPECT_EQ(c.f.state.matopd.size(), 6);
  EXPECT_EQ(c.f.state.matopd(5), 1);
  EXPECT_EQ(c.f.state.matopd(6), 0); // the last is not active
  EXPECT_EQ(c.f.state.gropd.size(), 2);
  EXPECT_EQ(c.f.state.gropd(2), 1);
  EXPECT_EQ(c.f.state.ntr, (std::vector<std::int32_t>{2, 1, 3}));
}

TEST(allocate_dispersion, counts_one_group_when_the_model_names_none) {
  start_case c(0, false);
  heard_run quiet;
  count_equations(c.m, c.layout, quiet.report);
  SETGROUPS(c.m, c.layout, quiet.report, 0);
  allocate_dispersion(c.m, c.layout, c.f.state, c.s, c.run.report);
  EXPECT_EQ(c.s.G, 1);
}

TEST(mark_zero_covariances, marks_the_packed_places_of_the_pairs) {
  start_case c(1, false);
  c.m.n_norcov = 2;
  c.m.NORCOV.take(6, 2);
  c.m.NORCOV(1, 1) = 1, c.m.NORCOV(1, 2) = 3;
  c.m.NORCOV(2, 1) = 3, c.m.NORCOV(2, 2) = 2;
  mark_zero_covariances(c.m, c.s, c.run.report);
  // (1,1) (2,1) (2,2) (3,1) (3,2) (3,3)
  const logical expected[6] = {0, 0, 0, 1, 1, 0};
  for (std::int32_t k = 1; k <= 6; ++k) EXPECT_EQ(c.s.LNCOV(k), expected[k - 1]);
}

TEST(allocate_equations, takes_five_vectors_of_all_equations) {
  heard_run run;
  equation_layout layout;
  layout.neq = 7;
  sampler_store s;
  allocate_equations(layout, s, run.report);
  for (const vec<double>* x : {&s.RHS, &s.sol, &s.solpostmean, &s.pev, &s.sols}) EXPECT_EQ(x->size(), 7);
  for (int n = 1; n <= 5; ++n) {
    heard_run failing;
    failing.report.door.fail_at = n;
    const char* names[5] = {"RHS", "sol", "solpostmean", "pev", "sols"};
    EXPECT_EQ(expect_stop(16, failing, [&](reporting& report) { allocate_equations(layout, s, report); }),
              allocation_text(names[n - 1], "7", "ZEPH1"));
  }
}

} // namespace
