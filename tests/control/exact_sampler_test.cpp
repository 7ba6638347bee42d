#include "control/exact_sampler.h"

#include "support/run_case.h"

namespace {

using namespace zeph_test;

std::string refused(run_case& c, const std::string& directives) {
  c.directory.write("sampler", "exact\n");
  EXPECT_EQ(c.go(directives), 16);
  const std::size_t at = c.text().find("ERROR - Illegal input in sampler: ");
  return at == std::string::npos ? c.text() : c.text().substr(at, c.text().find('\n', at) - at);
}
std::string illegal(const std::string& rest) { return "ERROR - Illegal input in sampler: " + rest; }

// A complete Gaussian model whose levels do not meet: no step of the round is another one.
TEST(exact_sampler, leaves_a_complete_gaussian_chain_as_it_is) {
  for (const std::int32_t type : {2, 3, 4}) {
    run_case plain, exact;
    plain.m->n_sol_cv = exact.m->n_sol_cv = -1;
    exact.directory.write("sampler", "exact\n");
    EXPECT_EQ(plain.go(run_case::lines(type, 10, 50, 2)), 0);
    EXPECT_EQ(exact.go(run_case::lines(type, 10, 50, 2)), 0);
    for (const char* name : {"sol.samples", "lastsol"})
      EXPECT_EQ(plain.directory.read(name), exact.directory.read(name)) << name << type;
    if (type > 2) {
      EXPECT_EQ(plain.directory.read("gib.samples"), exact.directory.read("gib.samples"));
    }
  }
}

// py of one record y of variance R around its fitted value: (ln(2 pi R) + e^2/R)/2, summed over five records.
TEST(exact_sampler, writes_the_density_of_the_data_with_its_constant) {
  run_case c;
  c.m->n_sol_cv = -1;
  c.m->l_residuals = true;
  c.m->model_kind = 2;
  c.directory.write("sampler", "exact\n");
  ASSERT_EQ(c.go(run_case::lines(2, 0, 1, 1)), 0);
  sequential_reader residuals;
  ASSERT_TRUE(residuals.open(c.directory / "res.samples"));
  double expected = 0;
  for (int r = 1; r <= 5; ++r) {
    std::int32_t round = 0, position = 0;
    double e = 0;
    residuals.next();
    residuals.take(round);
    residuals.take(position);
    residuals.take(e);
    expected += 0.5 * (std::log(2 * std::acos(-1.0) * 40.0) + e * e / 40.0);
  }
  ASSERT_EQ(residuals.code(), 0);
  std::istringstream py(c.directory.read("py"));
  std::int64_t round = 0, rows = 0, residual = 0;
  double density = 0;
  py >> round >> rows >> residual >> density;
  EXPECT_NEAR(density, expected, 1e-9);
}

// One sample: lppd is the density itself; two and more: closed forms of the rows that the file keeps.
TEST(exact_sampler, sums_the_criterion_over_the_units_of_the_file) {
  run_case c;
  c.directory.write("sampler", "exact\n");
  ASSERT_EQ(c.go(run_case::lines(2, 10, 400, 1)), 0);
  std::istringstream waic(c.directory.read("waic"));
  double lppd = 0, p = 0, mean = 0;
  for (std::int32_t unit = 1; unit <= 5; ++unit) {
    std::int64_t position = 0, samples = 0;
    double lme = 0, average = 0, ss = 0;
    waic >> position >> samples >> lme >> average >> ss;
    EXPECT_EQ(position, unit);
    EXPECT_EQ(samples, 400);
    EXPECT_GE(lme, average); // Jensen
    lppd += lme, p += ss / 399, mean -= average;
  }
  std::istringstream lpm(c.directory.read("lpm"));
  std::int64_t rows = 0, residual = 0, samples = 0;
  double elpd = 0, p_waic = 0, average = 0;
  lpm >> rows >> residual >> samples >> elpd >> p_waic >> average;
  EXPECT_NEAR(elpd, lppd - p, 1e-9);
  EXPECT_NEAR(p_waic, p, 1e-10);
  EXPECT_NEAR(average, mean, 1e-9);
}

TEST(exact_sampler, refuses_what_it_has_no_draw_for) {
  run_case level;
  EXPECT_EQ(refused(level, run_case::lines(2, 0, 3, 1, 2)),
            illegal("exact = test level 2, legal: test level 0 or 1"));
  run_case solver;
  solver.m->MODEL(1).TRAIT_TYPE = trait_liability;
  EXPECT_EQ(refused(solver, run_case::lines(0, 0, 3, 1)),
            illegal("TRAIT_TYPE(1) = 4, legal: 1 below type of analysis 2: a solver has no exact step for "
                    "latent values"));
  run_case restarted;
  restarted.directory.write("oldsol", "");
  restarted.directory.write("r_parm", "");
  run_case made;
  made.m->n_sol_cv = -1;
  ASSERT_EQ(made.go(run_case::lines(3, 0, 3, 1)), 0);
  restarted.directory.write("oldsol", made.directory.read("lastsol"));
  restarted.directory.write("r_parm", made.directory.read("gparlast"));
  EXPECT_EQ(
      refused(restarted, run_case::lines(3, 0, 3, 1)),
      illegal("exact = r_parm and oldsol, legal: continue a chain from r_state: the two files do not hold "
              "the state of an exact chain"));
}

TEST(exact_sampler, refuses_a_structure_whose_rows_can_not_come_and_go) {
  run_case c;
  c.d.factors = {{"SNP", 8, 2, {{1, 2, 1}, {1, 3, 2}}}};
  c.make_model();
  c.m->RMAT(1).GIF(2, 2) = 1.0 / 20.0;
  EXPECT_EQ(
      refused(c, run_case::lines(6, 0, 3, 1)),
      illegal("CV_STRUCT(1) = SNP, legal: no structure or a pedigree for a factor whose rows come and go"));
}

TEST(exact_sampler, refuses_a_present_trait_without_weight) {
  run_case c;
  c.d.traits[0].weight_place = 2;
  c.d.reals = 2;
  c.make_model();
  for (std::vector<float>& row : c.reals) row.push_back(1.0F);
  c.reals[2][1] = 0.0F;
  EXPECT_EQ(refused(c, run_case::lines(2, 0, 3, 1)),
            illegal("weight(3,1) = 0, legal: above 0: make the trait missing in this record"));
}

} // namespace
