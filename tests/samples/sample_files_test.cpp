#include "samples/sample_files.h"

#include "support/chain_frame.h"
#include "support/result_case.h"

#include <limits>

using namespace results_test;
using namespace zeph;

namespace {

struct sampling : result_case {
  model_records m = dairy_model();
  equation_layout layout = dairy_layout();
  sampler_store store;
  design_store design;
  zeph_test::chain_frame frame;
  sample_files files;
  sampling() {
    fill_quarters(store.sol);
    frame.asked.analysis_type = analysis::sums;
    frame.state.iround = 40;
    frame.state.ntr = {2, 1, 2};
  }
  void open() { open_sample_files(m, layout, frame.asked, files, report); }
  void close() { close_sample_files(files, report); }
  void keep_residuals() {
    m.l_residuals = true;
    m.model_kind = 2;
    design.nobs = 2;
    design.OBS_POS_M.take(2);
    design.OBS_POS_M(1) = 11;
    design.OBS_POS_M(2) = 9;
    design.ZEPH_RES.take(2, 2);
    design.ZEPH_RES(1, 1) = 0.5;
    design.ZEPH_RES(2, 1) = -0.25;
    design.ZEPH_RES(1, 2) = 3.0;
    design.ZEPH_RES(2, 2) = 0.0;
  }
};

const std::string write_rule = "the file can be opened and written";

} // namespace

TEST(sample_files, analysis_0_opens_scr31_only) {
  sampling c;
  c.frame.asked.analysis_type = analysis::solve;
  c.m.n_sol_cv = -1;
  c.keep_residuals();
  c.open();
  c.close();
  EXPECT_TRUE(c.exists("scr31"));
  for (const char* file : {"py", "lpm", "sol.samples", "res.samples", "gib.samples"})
    EXPECT_FALSE(c.exists(file));
}

TEST(sample_files, selector_0_opens_no_sol_samples) {
  sampling c;
  c.open();
  c.close();
  for (const char* file : {"py", "lpm", "scr31"}) EXPECT_EQ(c.content(file), "") << file;
  for (const char* file : {"py", "lpm", "scr31"}) EXPECT_TRUE(c.exists(file)) << file;
  EXPECT_FALSE(c.exists("sol.samples"));
  EXPECT_FALSE(c.exists("res.samples"));
}

TEST(sample_files, residual_samples_need_both_flags) {
  for (const std::int32_t kind : {1, 2})
    for (const bool flag : {false, true}) {
      sampling c;
      c.m.model_kind = kind;
      c.m.l_residuals = flag;
      c.open();
      EXPECT_EQ(c.exists("res.samples"), flag && kind == 2);
    }
}

TEST(sample_files, opening_empties_files_of_an_earlier_run) {
  sampling c;
  c.write("py", "old\n");
  c.write("lpm", "old\n");
  c.open();
  EXPECT_EQ(c.content("py"), "");
  EXPECT_EQ(c.content("lpm"), "");
}

TEST(sample_files, py_row_holds_round_model_vector_and_likelihood_and_is_flushed) {
  sampling c;
  c.frame.state.ntr = {2, 1, 2, 0, 0}; // entries after the residual are not written
  c.open();
  write_py(c.files, c.frame.state, 12.5, c.report);
  const std::string row = "          40           2           1           2                     12.5\n";
  EXPECT_EQ(c.content("py"), row); // while it is open
  c.frame.state.iround = 45;
  write_py(c.files, c.frame.state, std::numeric_limits<double>::quiet_NaN(), c.report);
  EXPECT_EQ(c.content("py"),
            row + "          45           2           1           2                      NaN\n");
}

TEST(sample_files, first_row_of_a_next_model_replaces_py) {
  sampling c;
  c.open();
  write_py(c.files, c.frame.state, 1.5, c.report);
  c.files.py.close(); // as the fit statistics leave it
  EXPECT_NE(c.content("py"), "");
  write_py(c.files, c.frame.state, 2.5, c.report);
  write_py(c.files, c.frame.state, 3.5, c.report);
  EXPECT_EQ(c.content("py"), "          40           2           1           2                      2.5\n"
                             "          40           2           1           2                      3.5\n");
}

TEST(sample_files, sol_samples_hold_all_solutions_for_selector_minus_1) {
  sampling c;
  c.m.n_sol_cv = -1;
  c.open();
  EXPECT_EQ(c.content("sol.samples"), record_bytes().i(16).end().str()); // neq, before any sample
  write_solution_samples(c.m, c.layout, c.store, c.frame.state, c.files, c.report);
  c.frame.state.iround = 50;
  c.store.sol.fill(-1.0);
  write_solution_samples(c.m, c.layout, c.store, c.frame.state, c.files, c.report);
  c.close();
  record_bytes expected;
  expected.i(16).end().i(40);
  for (int e = 1; e <= 16; ++e) expected.r(e / 4.0);
  expected.end().i(50);
  for (int e = 1; e <= 16; ++e) expected.r(-1.0);
  EXPECT_EQ(c.content("sol.samples"), expected.end().str());
  EXPECT_EQ(c.said(), "");
}

TEST(sample_files, chosen_equations_get_a_record_each_and_rows_on_the_listing) {
  sampling c;
  c.m.n_sol_cv = 2;
  zeph_test::fill_vec(c.m.SOL_CV_EQ_NO, {7, 3});
  c.open();
  write_solution_samples(c.m, c.layout, c.store, c.frame.state, c.files, c.report);
  c.close();
  EXPECT_EQ(c.content("sol.samples"),
            record_bytes().i(16).end().i(40).i(7).r(1.75).end().i(40).i(3).r(0.75).end().str());
  EXPECT_EQ(c.said(), "iround,sol_cv%eq_no,sol)\n"
                      "          40           7                     1.75\n"
                      "          40           3                     0.75\n");
}

TEST(sample_files, rows_that_a_smaller_model_leaves_out_are_sampled_as_zero) {
  sampling c;
  c.layout = dairy_layout(1); // row 2 of factor 1: equations 10, 12, 14
  c.m.n_sol_cv = -1;
  c.open();
  write_solution_samples(c.m, c.layout, c.store, c.frame.state, c.files, c.report);
  c.close();
  record_bytes expected;
  expected.i(16).end().i(40);
  for (int e = 1; e <= 16; ++e) expected.r(e == 10 || e == 12 || e == 14 ? 0.0 : e / 4.0);
  EXPECT_EQ(c.content("sol.samples"), expected.end().str());

  sampling chosen;
  chosen.layout = dairy_layout(1);
  chosen.m.n_sol_cv = 2;
  zeph_test::fill_vec(chosen.m.SOL_CV_EQ_NO, {12, 13});
  chosen.open();
  write_solution_samples(chosen.m, chosen.layout, chosen.store, chosen.frame.state, chosen.files,
                         chosen.report);
  chosen.close();
  EXPECT_EQ(chosen.content("sol.samples"),
            record_bytes().i(16).end().i(40).i(12).r(0.0).end().i(40).i(13).r(3.25).end().str());
}

TEST(sample_files, selector_0_writes_no_solutions) {
  sampling c;
  c.open();
  write_solution_samples(c.m, c.layout, c.store, c.frame.state, c.files, c.report);
  EXPECT_FALSE(c.exists("sol.samples"));
  EXPECT_EQ(c.said(), "");
}

TEST(sample_files, res_samples_hold_round_position_and_residuals) {
  sampling c;
  c.keep_residuals();
  c.open();
  write_residual_samples(c.m, c.design, c.frame.state, c.files, c.report);
  c.close();
  EXPECT_EQ(c.content("res.samples"),
            record_bytes().i(40).i(11).r(0.5).r(-0.25).end().i(40).i(9).r(3.0).r(0.0).end().str());
}

TEST(sample_files, description_of_both_files_for_one_trait) {
  sampling c;
  c.m.n_sol_cv = -1;
  c.m.l_sol_samples = true;
  c.keep_residuals();
  c.m.nt = 1;
  c.open();
  describe_sample_files(c.m, c.files, c.report);
  EXPECT_EQ(c.said(), "\n A binary filen named \"sol.samples\" has been created\n"
                      "\nFile description\n"
                      "\n The first record number of solutions (neq)\n"
                      " The following records contains sample round (integer) and\n"
                      " the solution vector with neq elements (real*8)\n"
                      "\nA binary filen named \"res.samples\" has been created\n"
                      "\nDescription of variables\n"
                      "\n no.  Type     Content\n"
                      "   1 Integer*4  Record number (position) in the input file\n"
                      "   2 Real*8     Residual for trait 1\n");
}

TEST(sample_files, description_of_residuals_for_two_traits) {
  sampling c;
  c.keep_residuals();
  c.open();
  describe_sample_files(c.m, c.files, c.report);
  EXPECT_EQ(c.said(), "\nA binary filen named \"res.samples\" has been created\n"
                      "\nDescription of variables\n"
                      "\n no.      Type     Content\n"
                      "   1     Integer*4  Record number (position) in the input file\n"
                      "   2 -   3 Real*8     Residuals for trait 1 -  2\n");
}

TEST(sample_files, description_needs_the_flag_and_the_file) {
  sampling flag_only, file_only;
  flag_only.m.l_sol_samples = true;
  flag_only.open();
  describe_sample_files(flag_only.m, flag_only.files, flag_only.report);
  EXPECT_EQ(flag_only.said(), "");
  file_only.m.n_sol_cv = -1;
  file_only.open();
  describe_sample_files(file_only.m, file_only.files, file_only.report);
  EXPECT_EQ(file_only.said(), "");
}

TEST(sample_files, file_that_cannot_be_opened_stops_with_code_16) {
  for (const std::string file : {"py", "lpm", "sol.samples", "res.samples", "scr31"}) {
    sampling c;
    c.m.n_sol_cv = -1;
    c.keep_residuals();
    std::filesystem::create_directory(c.path(file));
    EXPECT_EQ(exit_code_of([&] { c.open(); }), 16) << file;
    EXPECT_EQ(c.said(), zeph_test::illegal_input_text(file, "write", "open", write_rule));
  }
}

TEST(sample_files, shares_of_mixtures_that_cannot_be_written_stop_in_their_own_words) {
  sampling c;
  std::filesystem::create_symlink("/dev/full", c.path("mix_pi"));
  ASSERT_TRUE(c.files.mix_pi.open(c.path("mix_pi")));
  vec<double> shares;
  shares.take(2);
  EXPECT_EQ(exit_code_of([&] { write_mix_pi(c.files, c.frame.state, shares, c.report); }), 16);
  EXPECT_EQ(c.said(), "\nERROR in subroutine WR_MIXZ\n\nProgram terminates\n");
}

TEST(sample_files, write_to_a_full_device_stops_with_code_16) {
  sampling py, sol, res;
  std::filesystem::create_symlink("/dev/full", py.path("py"));
  py.open();
  EXPECT_EQ(exit_code_of([&] { write_py(py.files, py.frame.state, 1.0, py.report); }), 16);
  EXPECT_EQ(py.said(), "\nERROR - py: no space left on the device\n\nZEPH terminates.\n");

  sol.m.n_sol_cv = -1;
  std::filesystem::create_symlink("/dev/full", sol.path("sol.samples"));
  EXPECT_EQ(exit_code_of([&] { sol.open(); }), 16); // with the first record
  EXPECT_EQ(sol.said(), "\nERROR - sol.samples: no space left on the device\n\nZEPH terminates.\n");

  res.keep_residuals();
  std::filesystem::create_symlink("/dev/full", res.path("res.samples"));
  res.open();
  EXPECT_EQ(exit_code_of(
                [&] { write_residual_samples(res.m, res.design, res.frame.state, res.files, res.report); }),
            16);
  EXPECT_EQ(res.said(), "\nERROR - res.samples: no space left on the device\n\nZEPH terminates.\n");
}

namespace {

void fill_draws(sampling& c, std::int32_t groups) {
  c.frame.asked.analysis_type = analysis::gibbs;
  c.m.residual().n_hetgr = groups;
  c.m.residual().HETGR_CODE.take(range(0, groups));
  c.store.G = groups;
  c.store.sscp.take(3, 2 + groups);
  const double draws[3][3] = {{123.456, -0.5, 2e7}, {0.001, 9, 9}, {1, 0, 10}};
  for (std::int32_t k = 1; k <= 3; ++k)
    for (std::int32_t e = 1; e <= 3; ++e) c.store.sscp(e, k) = draws[k - 1][e - 1];
  c.m.residual().HETGR_CODE(1) = 7;
}

// I8, 3I4, G15.6, I11
const std::string seven_rows = "      40   1   1   1    123.456              0\n"
                               "      40   1   2   1  -0.500000              0\n"
                               "      40   1   2   2   0.200000E+08          0\n"
                               "      40   2   1   1   0.100000E-02          0\n"
                               "      40   3   1   1    1.00000              7\n"
                               "      40   3   2   1    0.00000              7\n"
                               "      40   3   2   2    10.0000              7\n";

} // namespace

TEST(sample_files, gib_samples_have_a_row_for_each_element_of_the_triangles) {
  sampling c;
  fill_draws(c, 1);
  c.open();
  write_gib_samples(c.m, c.store, c.frame.state, c.files, c.report);
  EXPECT_EQ(c.content("gib.samples"), seven_rows); // flushed, the file is still open
  c.close();
  EXPECT_EQ(c.content("gib.samples"), seven_rows);
}

TEST(sample_files, gib_samples_have_a_block_for_each_residual_group) {
  sampling c;
  fill_draws(c, 2);
  c.m.residual().HETGR_CODE(2) = -3;
  c.store.sscp(1, 4) = 0.25, c.store.sscp(2, 4) = -0.125, c.store.sscp(3, 4) = 1e-99;
  c.open();
  write_gib_samples(c.m, c.store, c.frame.state, c.files, c.report);
  EXPECT_EQ(c.content("gib.samples"), seven_rows + "      40   4   1   1   0.250000             -3\n"
                                                   "      40   4   2   1  -0.125000             -3\n"
                                                   "      40   4   2   2   0.100000E-98         -3\n");
}

TEST(sample_files, gib_samples_of_a_smaller_model_have_its_rows) {
  sampling c;
  fill_draws(c, 1);
  c.frame.state.ntr = {1, 1, 2};
  c.open();
  write_gib_samples(c.m, c.store, c.frame.state, c.files, c.report);
  const std::string text = c.content("gib.samples");
  EXPECT_EQ(text.substr(0, 94), "      40   1   1   1    123.456              0\n"
                                "      40   2   1   1   0.100000E-02          0\n");
}

TEST(sample_files, gib_samples_are_opened_from_type_3_on) {
  for (const std::int32_t type : {1, 2, 3, 4}) {
    sampling c;
    c.frame.asked.analysis_type = analysis_of(type);
    c.open();
    EXPECT_EQ(c.exists("gib.samples"), type >= 3);
  }
}

TEST(sample_files, every_sample_reaches_its_file_at_once) {
  sampling c;
  fill_draws(c, 1);
  c.keep_residuals();
  c.m.n_sol_cv = -1;
  c.open();
  write_solution_samples(c.m, c.layout, c.store, c.frame.state, c.files, c.report);
  write_residual_samples(c.m, c.design, c.frame.state, c.files, c.report);
  // neq, then round and 16 solutions; two records of round, position and two residuals
  EXPECT_EQ(c.content("sol.samples").size(), 12u + 8 + 4 + 16 * 8);
  EXPECT_EQ(c.content("res.samples").size(), 2u * (8 + 8 + 2 * 8));
  c.m.n_sol_cv = 2;
  zeph_test::fill_vec(c.m.SOL_CV_EQ_NO, {12, 13});
  write_solution_samples(c.m, c.layout, c.store, c.frame.state, c.files, c.report);
  EXPECT_EQ(c.content("sol.samples").size(), 12u + 8 + 4 + 16 * 8 + 2 * (8 + 16));
}

TEST(sample_files, write_faults_of_gib_samples_stop_with_code_16) {
  sampling blocked, full;
  blocked.make_directory("gib.samples");
  full.make_full("gib.samples");
  for (sampling* c : {&blocked, &full}) fill_draws(*c, 1);
  EXPECT_EQ(exit_code_of([&] { blocked.open(); }), 16);
  EXPECT_EQ(blocked.said(), zeph_test::illegal_input_text("gib.samples", "write", "open", write_rule));
  full.open();
  EXPECT_EQ(
      exit_code_of([&] { write_gib_samples(full.m, full.store, full.frame.state, full.files, full.report); }),
      16);
  EXPECT_EQ(full.said(), "\nERROR - gib.samples: no space left on the device\n\nZEPH terminates.\n");
}
