#include "control/run_driver.h"

#include "control/chain_loop.h"
#include "formats/sequential_file.h"
#include "gibbs/scan/gibscan.h"
#include "support/run_case.h"

#include <map>

namespace {

using namespace zeph_test;

const std::string terminated = "\n\nZEPH terminates.\n";

// Solutions from the file of the same name.
std::vector<double> solpostmean(const run_case& c) {
  sequential_reader file;
  EXPECT_TRUE(file.open(c.directory / "solpostmean"));
  std::int32_t neq = 0, e = 0;
  file.next();
  file.take(neq);
  std::vector<double> list(static_cast<std::size_t>(neq));
  for (double& value : list) {
    file.next();
    file.take(e);
    file.take(value);
  }
  EXPECT_EQ(file.code(), 0);
  return list;
}

TEST(run_driver, solves_the_textbook_example_and_ends_with_0) {
  run_case c;
  EXPECT_EQ(c.go(run_case::lines(0, 0, 5000, 1)), 0);
  EXPECT_EQ(c.text().find(banner_text), 0U);
  EXPECT_NE(c.text().find("\nGS-solver converged\n\n"), std::string::npos);
  EXPECT_TRUE(c.ends_with("\n\n End of ZEPH    \n"));
  EXPECT_EQ(c.directory.read("status"), "Program ZEPH has concluded\n");
  EXPECT_FALSE(c.directory.has("py"));
  EXPECT_TRUE(c.directory.has("gibsol"));
  EXPECT_TRUE(c.directory.has("scr31"));
  EXPECT_FALSE(c.directory.has("ZEPH.log"));
  const std::vector<double> found = solpostmean(c);
  ASSERT_EQ(found.size(), 10U);
  for (std::size_t e = 0; e < 10; ++e) EXPECT_NEAR(found[e], example_solutions[e], 2e-7);
}

TEST(run_driver, writes_samples_in_type_1) {
  run_case c;
  EXPECT_EQ(c.go(run_case::lines(1, 100, 20, 2)), 0);
  EXPECT_TRUE(c.directory.has("py"));
  EXPECT_TRUE(c.directory.has("lpm"));
  EXPECT_NE(c.text().find("\nModel fit statistics         \n"), std::string::npos);
  const std::vector<double> found = solpostmean(c);
  for (std::size_t e = 0; e < 10; ++e) EXPECT_NEAR(found[e], example_solutions[e], 1e-5);
}

TEST(run_driver, keeps_samples_of_solutions_and_residuals_when_asked) {
  run_case c;
  c.m->n_sol_cv = -1;
  c.m->l_residuals = true;
  c.m->model_kind = 2;
  EXPECT_EQ(c.go(run_case::lines(1, 3, 20, 2)), 0);
  // a record has 4 bytes before and 4 after it; 10 samples of 10 equations, of 5 records
  EXPECT_EQ(c.directory.read("sol.samples").size(), 8U + 4U + 10U * (8U + 4U + 10U * 8U));
  EXPECT_EQ(c.directory.read("res.samples").size(), 10U * 5U * (8U + 4U + 4U + 8U));
  run_case solver; // the solver takes no samples
  solver.m->n_sol_cv = -1;
  EXPECT_EQ(solver.go(run_case::lines(0, 3, 20, 2)), 0);
  EXPECT_FALSE(solver.directory.has("sol.samples"));
}

TEST(run_driver, addresses_nothing_by_a_pair_without_covariance_before_its_check) {
  run_case c;
  c.m->n_norcov = 1;
  c.m->NORCOV.take(1, 2);
  c.m->NORCOV(1, 1) = 1000000000; // far beyond any storage of the run
  c.m->NORCOV(1, 2) = 1;
  EXPECT_EQ(c.go(run_case::lines(1, 0, 2, 1)), 16);
  EXPECT_NE(c.text().find("ERROR - Illegal input in MODINF: NORCOV(1,1) = 1000000000, legal: 1\n"),
            std::string::npos)
      << c.text();
}

TEST(run_driver, takes_an_analysis_type_below_0_as_0) {
  run_case c;
  EXPECT_EQ(c.go(run_case::lines(-7, 0, 2, 1)), 0);
  EXPECT_NE(c.text().find("Round="), std::string::npos);
}

TEST(run_driver, continues_to_the_reports_after_STOP_in_burn_in) {
  run_case c;
  c.directory.write("STOP", "");
  EXPECT_EQ(c.go(run_case::lines(1, 5, 20, 2)), 0);
  EXPECT_NE(c.text().find("graceously\n\nModel fit statistics"), std::string::npos);
  EXPECT_FALSE(c.directory.has("gibsol")); // no samples
  EXPECT_EQ(c.directory.read("status"), "Program ZEPH has concluded\n");
}

TEST(run_driver, stops_at_a_structure_whose_variance_can_not_be_sampled) {
  run_case c;
  c.d.factors[0].structure = "SNP";
  c.make_model();
  EXPECT_EQ(c.go(run_case::lines(2, 0, 4, 1)), 0); // its solutions can
  EXPECT_EQ(c.go(run_case::lines(3, 0, 4, 1)), 16);
  EXPECT_TRUE(c.ends_with("Unknown co-variance structure SNP         \nFor random factor            1\n"))
      << c.text();
}

TEST(run_driver, honours_restrictions) {
  run_case c;
  c.d.traits[0].effects = {{1, 2}, {1, 2}}; // the sexes twice
  c.make_model();
  std::vector<std::vector<std::int32_t>> codes;
  for (std::int32_t l : {1, 2, 1, 2, 1, 2, 3, 4, 5, 6, 7, 8}) codes.push_back({0, l, 1, l, 0, 0});
  write_integer_records(c.directory / "CODE_TABLE", codes);
  EXPECT_EQ(c.go(run_case::lines(0, 0, 5000, 1, 0, "10\n1.0\n1.0\n0\n0\n1\n")), 0);
  EXPECT_NE(c.text().find("No of restrictions imposed ........................          1\n\n" +
                          std::string(30, ' ') + "  1          4\n"),
            std::string::npos);
  const std::vector<double> found = solpostmean(c);
  EXPECT_EQ(found[3], 0.0);
  for (std::size_t e = 4; e < 12; ++e) EXPECT_NEAR(found[e], example_solutions[e - 2], 2e-7);
}

TEST(run_driver, prints_sizes_at_test_level_1_and_structures_above) {
  const auto integer = [](std::int64_t x) {
    const std::string text = std::to_string(x);
    return " " + std::string(11 - text.size(), ' ') + text;
  };
  run_case c;
  EXPECT_EQ(c.go(run_case::lines(0, 0, 1, 1, 1)), 0);
  const std::string sizes =
      "nramat,nralev,nbegr" + integer(1) + integer(8) + integer(2) + "\nnbega" + integer(2) +
      "\nrmat(:)%n_rc" + integer(1) + integer(1) + "\nk,i,j,rmat(k)%cov_mat\n" + integer(1) + integer(1) +
      integer(1) + std::string(22, ' ') + "1.0\n" + integer(2) + integer(1) + integer(1) +
      std::string(21, ' ') + "40.0\niv_50" + integer(5) + "\nmodel(:)%n_reg" + integer(0) + "\nnregt" +
      integer(0) + "\nnt" + integer(1) + "\nmnef" + integer(1) + "\n";
  EXPECT_NE(c.text().find(sizes), std::string::npos);
  EXPECT_EQ(c.text().find("Structure of the random effects"), std::string::npos);
  EXPECT_EQ(c.text().find("Gibbs rounds concluded"), std::string::npos);
  EXPECT_EQ(c.go(run_case::lines(0, 0, 1, 1, 2)), 0);
  EXPECT_EQ(c.text().find("nramat,nralev"), std::string::npos);
  EXPECT_NE(c.text().find("\n\n        Structure of the random effects in the model\n" + integer(1) +
                          integer(1) + "\n"),
            std::string::npos);
  EXPECT_NE(c.text().find("Determinant of initial G-Matrice(s)\n"), std::string::npos);
  EXPECT_NE(c.text().find("Prior co-variance matrices\n"), std::string::npos);
  EXPECT_TRUE(c.ends_with("Gibbs rounds concluded\n\n End of ZEPH    \n"));
}

TEST(run_driver, stops_when_input_files_are_missing) {
  for (const std::string name : {"RCDATA_I", "RCDATA_R", "MODINF", "CODE_TABLE"}) {
    run_case c;
    c.write(run_case::lines(0, 0, 1, 1));
    c.directory.remove(name);
    EXPECT_EQ(c.go(), 16);
    EXPECT_EQ(c.text(), "File \"" + name + "\" not found\nError in opening files." + terminated);
    EXPECT_FALSE(c.directory.has("status"));
  }
}

TEST(run_driver, stops_at_a_model_of_another_version) {
  run_case c;
  c.write(run_case::lines(0, 0, 1, 1));
  std::string bytes = c.directory.read("MODINF");
  bytes[4] = '5'; // after the length of the first record
  c.directory.write("MODINF", bytes);
  EXPECT_EQ(c.go(), 16);
  EXPECT_EQ(c.text().find("The file with model information (MODINF) "), 2U);
  EXPECT_TRUE(c.ends_with("Rerun qva1 with the right version\nError in opening files." + terminated));
}

TEST(run_driver, stops_at_a_model_that_ends_early) {
  run_case c;
  c.write(run_case::lines(0, 0, 1, 1));
  c.directory.write("MODINF", c.directory.read("MODINF").substr(0, 300));
  EXPECT_EQ(c.go(), 16);
  EXPECT_TRUE(c.ends_with("Error in opening files." + terminated));
}

TEST(run_driver, asks_for_both_restart_files) {
  for (const std::string name : {"r_parm", "oldsol"}) {
    run_case c;
    c.write("no directive line is read\n");
    c.directory.write(name, "");
    EXPECT_EQ(c.go(), 16);
    EXPECT_EQ(c.text(), banner_text +
                            "\nA restart of a Gibbs chain requires that the files:\n"
                            "r_parm and oldsol are in the current directory.\n" +
                            (name == "r_parm" ? "Only r_parm is present." : "Only oldsol is present") +
                            terminated);
    EXPECT_EQ(c.directory.read("status"), "Program QVAgib initializing\n");
  }
}

TEST(run_driver, stops_without_its_directive_file) {
  run_case c;
  c.write("");
  c.directory.remove("dir");
  EXPECT_EQ(c.go(), 16);
  EXPECT_TRUE(c.ends_with("ERROR  - reading 1. input line for zeph from the directive file\n\nFatal error\n\n"
                          "See list file for details\n\nQVA1 terminates wth exit code 16\n"));
}

TEST(run_driver, stops_without_data) {
  run_case c;
  c.integers.clear();
  c.reals.clear();
  EXPECT_EQ(c.go(run_case::lines(0, 0, 1, 1)), 16);
  EXPECT_TRUE(c.ends_with("Data not found\nZEPH terminates.\n"));
}

TEST(run_driver, stops_when_the_number_of_records_is_not_that_of_the_model) {
  run_case c;
  c.integers.pop_back();
  c.reals.pop_back();
  EXPECT_EQ(c.go(run_case::lines(0, 0, 1, 1)), 16);
  EXPECT_TRUE(c.ends_with("ZEPH terminates.\n"));
  EXPECT_EQ(c.text().find("Data not found"), std::string::npos);
}

TEST(run_driver, stops_without_a_relationship_file) {
  run_case c;
  c.directory.remove("AINV1");
  EXPECT_EQ(c.go(run_case::lines(0, 0, 1, 1)), 16);
}

TEST(run_driver, ends_the_analysis_over_models_without_a_factor_of_two_rows) {
  for (const std::int32_t type : {5, 6, 7}) {
    run_case c;
    c.d.factors[0].structure = "I";
    c.make_model();
    EXPECT_EQ(c.go(run_case::lines(type, 0, 1, 1)), 16);
    EXPECT_TRUE(
        c.ends_with("\nNo pedigree file found\nAll random effects have covariance matrix of dimension one\n\n"
                    "ZEPH terminates. \n"))
        << type << c.text();
  }
}

TEST(run_driver, runs_the_sampler_of_solutions_to_its_end) {
  run_case c;
  EXPECT_EQ(c.go(run_case::lines(2, 2, 6, 2)), 0) << c.text();
  EXPECT_TRUE(c.directory.has("lastsol"));
  EXPECT_FALSE(c.directory.has("gib.samples"));
}

TEST(run_driver, draws_start_values_of_missing_traits_above_type_0) {
  for (const std::int32_t type : {0, 1, 2}) {
    run_case c;
    c.integers[2] = {2, 6, 0, 0, 3};
    EXPECT_EQ(c.go(run_case::lines(type, 0, 1, 1)), 0) << type << c.text();
  }
}

// CODE_TABLE is read by the reports of the end; the example has 10 levels.
TEST(run_driver, finds_a_code_table_that_ends_early_before_the_first_round) {
  for (const std::int32_t type : {0, 2, 3}) {
    run_case c;
    c.write(run_case::lines(type, 0, 4, 1));
    std::string codes = c.directory.read("CODE_TABLE");
    c.directory.write("CODE_TABLE", codes.substr(0, codes.size() - 1));
    EXPECT_EQ(c.go(), 16) << type;
    EXPECT_TRUE(c.ends_with(
        "READ  CODE_TABLE - iostat =           -1\n\n\ni2 :            8\nnralev(k) :            8\n"))
        << c.text();
    EXPECT_EQ(c.directory.read("status"), "Program QVAgib initializing\n");
    EXPECT_FALSE(c.directory.has("gib.samples"));
  }
}

// The words of the reader of pedigrees, and before TD_FACTOR is looked at, legal or not.
TEST(run_driver, ends_with_code_2_at_two_pedigrees_for_deviations_of_progeny) {
  for (const std::int32_t factor : {0, 1, 2, 3}) {
    run_case c;
    c.d.factors = {{"PED", 8, 1, {{1, 2, 1}}}, {"PED", 8, 1, {{1, 2, 1}}}};
    c.make_model();
    c.m->L_TD = c.m->L_PTD = true;
    c.m->TD_FACTOR = factor;
    EXPECT_EQ(c.go("0 0\n12 34\n0 1 1\n1 0\n2 0\n3 0\n"), 2) << c.text();
    EXPECT_TRUE(c.ends_with("More than one pedigree file found\nNot currently supported in ZEPH\n"))
        << c.text();
  }
}

// A directory of the file's name, or of that beside it, serves for any fault of opening.
TEST(run_driver, finds_result_files_that_can_not_be_made_before_the_first_round) {
  for (const char* name : {"gparout", "PAROUT", "gparlast", "lastsol", "gibsol", "solpostmean"})
    for (const char* ending : {"", ".part"}) {
      run_case c;
      c.write(run_case::lines(3, 0, 4, 1));
      std::filesystem::create_directories(c.directory / (std::string(name) + ending) + "/kept");
      EXPECT_EQ(c.go(), 16) << name << ending;
      EXPECT_TRUE(
          c.ends_with(illegal_input_text(name, "write", "open", "the file can be opened and written")))
          << c.text();
      EXPECT_EQ(c.directory.read("py"), "") << name << ending;
      EXPECT_EQ(c.directory.read("status"), "Program QVAgib initializing\n");
    }
}

TEST(run_driver, finds_sample_files_that_can_not_be_made_before_the_first_round) {
  for (const char* name : {"py", "lpm", "gib.samples", "scr31", "sol.samples", "res.samples"}) {
    run_case c;
    c.m->n_sol_cv = -1;
    c.m->l_residuals = true;
    c.m->model_kind = 2;
    c.write(run_case::lines(3, 0, 4, 1));
    std::filesystem::create_directories(c.directory / name);
    EXPECT_EQ(c.go(), 16) << name;
    EXPECT_TRUE(c.ends_with(illegal_input_text(name, "write", "open", "the file can be opened and written")))
        << c.text();
    EXPECT_EQ(c.directory.read("status"), "Program QVAgib initializing\n");
  }
}

// Rounds are numbered up to 2^31 - 1. STOP ends the runs that start.
TEST(run_driver, finds_more_rounds_than_32_bits_number_before_the_first_round) {
  for (const std::int32_t type : {0, 1, 3, 5, 6}) {
    run_case c;
    c.directory.write("STOP", "");
    EXPECT_EQ(c.go(run_case::lines(type, 5, 2147483643, 1)), 16) << type;
    EXPECT_TRUE(
        c.ends_with(illegal_input_text("dir", "nround", "2147483643", "at most 2147483642 after round 5")))
        << c.text();
    EXPECT_EQ(c.directory.read("status"), "Program QVAgib initializing\n");
    EXPECT_FALSE(c.directory.has("scr31"));
  }
  run_case most;
  most.directory.write("STOP", "");
  EXPECT_EQ(most.go(run_case::lines(1, 5, 2147483642, 1)), 0) << most.text();
}

TEST(run_driver, counts_the_rounds_of_the_chain_that_is_continued_to_those_of_32_bits) {
  run_case c;
  ASSERT_EQ(c.go(run_case::lines(3, 0, 3, 1)), 0) << c.text();
  std::filesystem::rename(c.directory / "lastsol", c.directory / "oldsol");
  std::filesystem::rename(c.directory / "gparlast", c.directory / "r_parm");
  c.directory.write("STOP", "");
  EXPECT_EQ(c.go(run_case::lines(3, 0, 2147483645, 1)), 16);
  EXPECT_TRUE(
      c.ends_with(illegal_input_text("dir", "nround", "2147483645", "at most 2147483644 after round 3")))
      << c.text();
  EXPECT_EQ(c.go(run_case::lines(3, 0, 2147483644, 1)), 0) << c.text();
}

TEST(run_driver, leaves_results_of_a_former_run_as_they_were_until_its_own_are_whole) {
  run_case c;
  c.directory.write("gibsol", "former\n");
  c.directory.write("gib.samples", "former\n");
  c.write(run_case::lines(3, 0, 0, 1)); // no samples: nothing to report
  EXPECT_EQ(c.go(), 0) << c.text();
  EXPECT_EQ(c.directory.read("gibsol"), "former\n");
  EXPECT_FALSE(c.directory.has("gibsol.part"));
}

// The list is printed and looked up between its own lines and that of the restrictions.
TEST(run_driver, finds_class_effect_covariates_before_restrictions) {
  run_case c;
  EXPECT_EQ(c.go(run_case::lines(0, 0, 1, 1, 0, "10\n1.0\n1.0\n0\n1\n1 9 1\n1 1\n0\n1\n")), 16);
  const std::string option = "Standardize option ..............................          0\n";
  EXPECT_TRUE(c.ends_with(option + illegal_input_text("dir", "FETOCV%effect(1)", "9", "1..1"))) << c.text();
}

TEST(run_driver, stops_at_seeds_that_the_source_does_not_take) {
  run_case c; // type 1 starts the source of the scan
  std::string text = run_case::lines(1, 0, 1, 1);
  text.replace(text.find("12 34"), 5, "31329 1");
  EXPECT_EQ(c.go(text), 16);
  run_case solver; // type 0 does not
  text.replace(0, 1, "0");
  EXPECT_EQ(solver.go(text), 0);
}

TEST(run_driver, reports_each_allocation_that_fails) {
  std::int64_t calls = 0;
  {
    run_case c;
    c.write(run_case::lines(1, 1, 4, 2));
    run r(c.listing, c.directory.path());
    ASSERT_EQ(exit_code_of_run(r), 0);
    calls = r.report.door.calls;
  }
  EXPECT_GT(calls, 100);
  run_case c;
  c.write(run_case::lines(1, 1, 4, 2));
  for (std::int64_t n = 1; n <= calls; ++n) {
    std::ostringstream listing;
    c.directory.remove("ZEPH.log");
    run r(listing, c.directory.path());
    r.report.door.fail_at = n;
    const int code = exit_code_of_run(r);
    const std::string text = listing.str(), log = c.directory.read("ZEPH.log");
    if (text.find("\n\nERROR allocating memory\n\nZEPH terminates.\n") != std::string::npos) {
      EXPECT_EQ(code, 0) << n; // stores that this run does not need: reported, and it continues
      continue;
    }
    EXPECT_EQ(code, 16) << n;
    EXPECT_NE(text.find("\nZEPH: FATAL ERROR\n\nTrying to allocate memory for:  "), std::string::npos) << n;
    const std::string end = "\n\nProgram terminates with exit code 16\n";
    EXPECT_EQ(text.substr(text.size() - end.size()), end) << n;
    EXPECT_EQ(log.find("ZEPH FATAL ERROR\n\n Trying to allocate memory for: "), 0U) << n;
  }
}

// Two runs side by side, round by round, and the same two alone.
TEST(start_run, keeps_two_runs_apart) {
  const auto other = [](run_case& c) {
    c.d.residual = {10.0};
    c.reals = {{1.5F}, {2.5F}, {-3.5F}, {4.5F}, {6.0F}};
    c.make_model();
    c.write(run_case::lines(1, 2, 8, 2));
  };
  const auto rounds = [](run& r, std::int64_t first, std::int64_t last) {
    scan_records records = records_of(r);
    for (r.state.iround = first; r.state.iround <= last; ++r.state.iround)
      GIBSCAN(records, r.asked, r.state, r.counts, r.files);
  };
  std::vector<double> alone[2];
  std::string said[2], py;
  for (int i = 0; i < 2; ++i) {
    run_case c;
    if (i == 0)
      c.write(run_case::lines(0, 0, 10, 1));
    else
      other(c);
    run r(c.listing, c.directory.path());
    start_run(r);
    rounds(r, 1, 10);
    alone[i].assign(r.sampler.sol.begin(), r.sampler.sol.end());
    said[i] = c.text();
    if (i == 1) py = c.directory.read("py");
  }
  run_case first, second;
  first.write(run_case::lines(0, 0, 10, 1));
  other(second);
  run a(first.listing, first.directory.path()), b(second.listing, second.directory.path());
  start_run(a);
  start_run(b);
  for (std::int64_t round = 1; round <= 10; ++round) {
    rounds(b, round, round);
    rounds(a, round, round);
  }
  EXPECT_EQ(std::vector<double>(a.sampler.sol.begin(), a.sampler.sol.end()), alone[0]);
  EXPECT_EQ(std::vector<double>(b.sampler.sol.begin(), b.sampler.sol.end()), alone[1]);
  EXPECT_EQ(first.text(), said[0]);
  EXPECT_EQ(second.text(), said[1]);
  EXPECT_EQ(second.directory.read("py"), py);
}

TEST(exit_code_of_run, reports_a_listing_that_can_not_be_written) {
  run_case c;
  c.write(run_case::lines(0, 0, 1, 1));
  std::ostream nowhere(nullptr);
  run r(nowhere, c.directory.path());
  EXPECT_EQ(exit_code_of_run(r), 16);
}

} // namespace
