#include "gibbs/scan/gibscan.h"

#include "gibbs/residuals/residual_sums.h"
#include "gibbs/scan_case.h"

#include <cmath>
#include <cstdlib>

namespace {

using namespace zeph_test;

// R. A. Mrode, Linear Models for the Prediction of Animal Breeding Values: the
// animal model of weaning weights, example 3.1 of the third edition, 4.1 of the
// fourth. Five calves, sex and animal, residual variance 40, additive
// variance 20. The book's order of equations is ours: males, females, animals 1
// to 8; so the rounds can be compared one by one.
struct weaning_case : scan_case {
  static described_model described() {
    described_model d;
    d.traits.resize(1);
    d.traits[0].effects = {{1, 2}};
    d.factors = {{"PED", 8, 1, {{1, 2, 1}}}};
    d.integers = 5, d.reals = 1, d.records = 5;
    d.residual = {40.0};
    return d;
  }

  weaning_case() : scan_case(described()) {
    m.RMAT(1).GIF(1, 1) = 1.0 / 20.0;
    write_elements(directory / "AINV1", inverse_elements());
    start(2);
    const std::int32_t animal[5] = {4, 5, 6, 7, 8}, sex[5] = {1, 2, 2, 1, 1};
    const float gain[5] = {4.5F, 2.9F, 3.9F, 3.5F, 5.0F};
    for (std::int32_t r = 1; r <= 5; ++r) {
      entry(r, 1, 1, sex[r - 1], 1, 1.0);
      entry(r, 1, 2, animal[r - 1], 1, 1.0);
      design.Y_M(1, r) = gain[r - 1];
    }
  }

  // Henderson's rules; no animal is inbred.
  static std::vector<element> inverse_elements() {
    const std::int32_t parents[8][2] = {{0, 0}, {0, 0}, {0, 0}, {1, 0}, {3, 2}, {1, 2}, {4, 5}, {3, 6}};
    dense_matrix a(8);
    for (std::int32_t i = 1; i <= 8; ++i) {
      std::vector<std::int32_t> known;
      for (const std::int32_t p : parents[i - 1])
        if (p > 0) known.push_back(p);
      const double d = 4.0 / (4.0 - static_cast<double>(known.size()));
      a(i, i) += d;
      for (const std::int32_t p : known) {
        a(i, p) -= d / 2;
        a(p, i) -= d / 2;
        for (const std::int32_t q : known) a(p, q) += d / 4;
      }
    }
    std::vector<element> elements;
    for (std::int32_t i = 1; i <= 8; ++i)
      for (std::int32_t j = 1; j <= i; ++j)
        if (a(i, j) != 0.0) elements.push_back({i, j, a(i, j)});
    return elements;
  }

  void round(std::int64_t number, std::int32_t analysis_type = 0) {
    f.state.iround = number;
    f.asked.analysis_type = analysis_of(analysis_type);
    scan_records all = records();
    GIBSCAN(all, f.asked, f.state, f.counts, files);
  }
};

TEST(GIBSCAN, gives_the_rounds_of_the_textbook_example_from_its_start) {
  // "book": means of the sexes and deviations from them; published digits of
  // rounds 1, 2 and 20
  weaning_case c;
  const double start[10] = {13.0 / 3, 3.4, 0, 0, 0, 1.0 / 6, -0.5, 0.5, -5.0 / 6, 2.0 / 3};
  std::copy(start, start + 10, c.s.sol.begin());
  const std::vector<std::pair<std::int64_t, std::vector<double>>> published = {
      {1, {4.333, 3.4, 0.333, -0.083, -0.021, -0.119, -0.376, 0.392, -0.364, 0.282}},
      {2, {4.4, 3.392, 0.194, -0.035, -0.136, 0.001, -0.261, 0.254, -0.284, 0.167}},
      {20, {4.359, 3.405, 0.098, -0.019, -0.041, -0.009, -0.186, 0.177, -0.25, 0.183}}};
  std::int64_t at = 0;
  for (const auto& [number, values] : published) {
    while (at < number) c.round(++at);
    for (std::int32_t e = 1; e <= 10; ++e)
      EXPECT_NEAR(c.s.sol(e), values[static_cast<std::size_t>(e - 1)], 0.0011)
          << "round " << number << " equation " << e;
  }
}

TEST(GIBSCAN, gives_the_gauss_seidel_rounds_of_the_textbook_equations_from_zero) {
  // Gauss-Seidel rounds 1 to 5 of the example's equations from zero, computed
  // with exact fractions of its data outside this program
  const double rounds[5][10] = {
      {4.333333333333333, 3.4, 0.0, 0.0, 0.0, 0.03571428571428578, -0.08928571428571426, 0.08333333333333333,
       -0.18809523809523815, 0.1666666666666668},
      {4.328571428571428, 3.4029761904761906, 0.05844155844155846, -0.01758658008658008, 0.022253787878787956,
       -0.00804730983302417, -0.14363082354153778, 0.14830221861471862, -0.22638553906411046,
       0.20250811688311715},
      {4.3439749106713395, 3.3976643024634097, 0.08276216478326867, -0.023918290628923727,
       -0.0016573353256590373, -0.009164059760070844, -0.16540376212345423, 0.17111616915619562,
       -0.23862211088767787, 0.1989885513979468},
      {4.3495992064166, 3.3971437964836295, 0.09652687707124197, -0.020861181920025035, -0.020771352171796376,
       -0.007015106422895443, -0.17510633000328882, 0.17882267479774913, -0.24276841585379358,
       0.19330068776706105},
      {4.352160944836543, 3.3981418276027697, 0.10067810625954439, -0.018118516124706843,
       -0.03107888078637445, -0.006075851041738912, -0.17933292701513004, 0.18077626483123374,
       -0.24459570019005614, 0.1894467726506351}};
  weaning_case c;
  for (std::int64_t number = 1; number <= 5; ++number) {
    c.round(number);
    for (std::int32_t e = 1; e <= 10; ++e)
      EXPECT_NEAR(c.s.sol(e), rounds[number - 1][e - 1], 1e-7) << "round " << number << " equation " << e;
  }
}

TEST(GIBSCAN, converges_to_the_published_solutions_and_sets_the_mark) {
  weaning_case c;
  std::int64_t number = 0;
  do {
    c.round(++number);
    ASSERT_LT(number, 1000);
  } while (c.f.state.ist != GS_CONVERGED);
  // solutions of the book's equations to 16 digits
  const double solutions[10] = {4.358502329854957,     3.4044300059066783,   0.09844457570387843,
                                -0.018770099100875903, -0.04108420292708659, -0.008663122661941913,
                                -0.18573209949465452,  0.17687208768129992,  -0.249458554833632,
                                0.18261468793069413};
  for (std::int32_t e = 1; e <= 10; ++e) EXPECT_NEAR(c.s.sol(e), solutions[e - 1], 2e-7); // data are 32-bit
}

TEST(GIBSCAN, prints_round_and_relative_change_in_the_solver_and_infinity_does_not_stop_it) {
  weaning_case c;
  c.round(1);
  EXPECT_EQ(c.said(), "Round=" + I(1) + "  Cd= " + R8("Infinity") + "\n");
  EXPECT_EQ(c.f.state.ist, 0);
  const std::vector<double> before(c.s.sol.begin(), c.s.sol.end());
  c.round(2);
  double ssd = 0, ssq = 0;
  for (std::int32_t e = 1; e <= 10; ++e) {
    const double old = before[static_cast<std::size_t>(e - 1)];
    ssd += (c.s.sol(e) - old) * (c.s.sol(e) - old);
    ssq += old * old;
  }
  const std::string text = c.said(), head = "Round=" + I(2) + "  Cd= ";
  ASSERT_EQ(text.substr(0, head.size()), head);
  EXPECT_NEAR(std::strtod(text.c_str() + head.size(), nullptr), std::sqrt(ssd / ssq), 1e-14);
}

TEST(GIBSCAN, takes_a_change_that_is_no_number_as_no_convergence) {
  weaning_case c;
  c.design.Y_M.fill(0.0F); // all solutions stay 0
  c.round(1);
  EXPECT_EQ(c.said(), "Round=" + I(1) + "  Cd= " + R8("NaN") + "\n");
  EXPECT_EQ(c.f.state.ist, 0);
}

TEST(GIBSCAN, relaxes_from_round_101_on) {
  for (const std::int32_t analysis_type : {0, 1}) {
    weaning_case plain, relaxed;
    for (weaning_case* c : {&plain, &relaxed})
      for (std::int32_t e = 1; e <= 10; ++e) c->s.sol(e) = 0.5 * e;
    plain.f.asked.nburn = relaxed.f.asked.nburn = 1000; // no sample rounds
    plain.round(100, analysis_type);
    relaxed.round(101, analysis_type);
    for (std::int32_t e = 1; e <= 2; ++e) { // the first group: both see the same solutions
      const double found = plain.s.sol(e), before = 0.5 * e;
      EXPECT_NEAR(relaxed.s.sol(e), found + 0.4000000059604645 * (found - before), 1e-14);
    }
  }
}

TEST(GIBSCAN, judges_convergence_by_the_change_before_relaxation) {
  // the first group alone, where both rounds find the same
  weaning_case plain, relaxed;
  for (weaning_case* c : {&plain, &relaxed}) {
    for (std::int32_t e = 1; e <= 10; ++e) c->s.sol(e) = 0.5 * e;
    c->f.state.gropd(2) = 0;
  }
  plain.round(100);
  relaxed.round(101);
  const std::string first = plain.said(), second = relaxed.said();
  EXPECT_NE(plain.s.sol(1), relaxed.s.sol(1));
  EXPECT_EQ(first.substr(first.find("Cd=")), second.substr(second.find("Cd=")));
}

TEST(GIBSCAN, rewrites_the_status_file) {
  weaning_case c;
  c.f.asked.nburn = 30, c.f.asked.nround = 2147483647;
  c.round(1);
  c.round(17);
  EXPECT_EQ(c.directory.read("status"),
            "Current round is" + I(17) + " out of" + I(2147483677) + " in model" + I(1) + I(1) + "\n");
}

TEST(GIBSCAN, writes_py_and_sums_samples_in_the_sample_rounds_of_type_1) {
  weaning_case c;
  c.f.asked.analysis_type = analysis::sums;
  c.f.asked.nburn = 2, c.f.asked.isamp = 2;
  open_sample_files(c.m, c.layout, c.f.asked, c.files, c.run.report);
  std::string expected;
  double sum = 0, squares = 0, samples = 0;
  std::vector<double> liks;
  for (std::int64_t number = 1; number <= 6; ++number) {
    c.round(number, 1);
    if (number != 4 && number != 6) continue;
    samples += 1;
    sum += c.s.sol(3);
    squares += c.s.sol(3) * c.s.sol(3);
    double lik = 0;
    zeph_test::chain_frame apart;
    apart.asked.analysis_type = analysis::sums;
    apart.asked.nburn = 1000;
    apart.state.iround = number;
    scan_records all = c.records();
    Bddrmc_sscp(all, apart.asked, apart.state, lik);
    liks.push_back(lik);
  }
  EXPECT_EQ(c.f.counts.nsamples, samples);
  EXPECT_EQ(c.s.solpostmean(3), sum);
  EXPECT_EQ(c.s.pev(3), squares);
  const std::string py = c.directory.read("py"); // flushed row by row
  const std::size_t second = py.find('\n') + 1;
  EXPECT_EQ(py.substr(0, 36), I(4) + I(1) + I(1));
  EXPECT_EQ(py.substr(second, 36), I(6) + I(1) + I(1));
  EXPECT_NEAR(std::strtod(py.c_str() + 36, nullptr), liks[0], 1e-13);
  EXPECT_NEAR(std::strtod(py.c_str() + second + 36, nullptr), liks[1], 1e-13);
  EXPECT_EQ(py.find('\n', second), py.size() - 1);
  EXPECT_EQ(c.said(), ""); // no convergence line
}

TEST(GIBSCAN, never_sets_the_mark_in_type_1) {
  weaning_case c;
  c.f.asked.nburn = 1000;
  for (std::int64_t number = 1; number <= 150; ++number) c.round(number, 1);
  EXPECT_EQ(c.f.state.ist, 0);
}

TEST(GIBSCAN, returns_the_problems_of_the_last_block) {
  weaning_case last;
  last.s.GIF.fill(0.0);   // animals without records hang on nothing
  last.design.M_M(5) = 1; // animal 8 has no record
  last.round(1, 1);
  EXPECT_EQ(last.f.state.ist, 1);
  weaning_case earlier;
  earlier.s.GIF.fill(0.0);
  earlier.round(1, 1); // animals 1 to 3 fail, 8 does not
  EXPECT_EQ(earlier.f.state.ist, 0);
  const std::string text = earlier.said();
  EXPECT_NE(text.find("Linear dependency in group= " + I(2) + " Level= " + I(3)), std::string::npos);
  EXPECT_EQ(earlier.run.report.nlines, 3);
}

TEST(GIBSCAN, stops_when_its_dependency_prints_pass_1000_lines) {
  weaning_case c;
  c.s.GIF.fill(0.0);
  c.run.report.nlines = 998;
  const std::string text = expect_stop(16, c.run, [&](reporting&) { c.round(1); });
  EXPECT_NE(text.find("\n\nMore then 1000 lines printed\nProgram terminates\n"), std::string::npos);
}

TEST(GIBSCAN, prints_the_equations_before_the_groups_at_test_level_3) {
  weaning_case c;
  c.f.asked.test_level = 3;
  c.round(1);
  const std::string text = c.said();
  const std::size_t blocks = text.find("First diagonal block in each group\n");
  const std::size_t groups = text.find("Starting on group" + I(1) + "\n");
  ASSERT_NE(groups, std::string::npos);
  EXPECT_EQ(blocks, 0U);
  EXPECT_GT(text.find("Starting on group" + I(2) + "\n"), groups);
  c.f.asked.test_level = 2;
  c.round(2);
  const std::string less = c.said();
  EXPECT_EQ(less.find("Current rhs"), std::string::npos);
  EXPECT_EQ(less.find("Starting on group" + I(1) + "\n"), 0U);
}

} // namespace
