#include "results/final_reports.h"

#include "samples/accumulators.h"
#include "support/chain_frame.h"
#include "support/result_case.h"

using namespace results_test;
using namespace zeph;

namespace {

struct run_end : result_case {
  model_records m = dairy_model();
  equation_layout layout = dairy_layout();
  design_store design;
  prediction_store predictions;
  category_store categories;
  mixture_store mixtures;
  deviation_store deviations;
  sampler_store store;
  random_sources sources{report};
  zeph_test::chain_frame frame;
  sample_files files;
  explicit run_end(std::int32_t analysis_type) {
    write_dairy_codes(*this);
    frame.asked.analysis_type = analysis_of(analysis_type);
    frame.state.iround = 10;
    frame.state.ntr = {2, 1, 2};
    fill_quarters(store.sol);
    for (vec<double>* x : {&store.solpostmean, &store.pev, &store.sols}) x->take(dairy_neq);
    for (mat<double>* x : {&store.PARPOSTMEAN, &store.PARVAR, &store.pars}) x->take(3, 3);
  }
  void open() { open_sample_files(m, layout, frame.asked, files, report); }
  void samples(int n) {
    for (int i = 0; i < n; ++i) {
      write_py(files, frame.state, 2.0, report);
      accumulate_solutions(m, layout, store, frame.counts);
    }
  }
  void finish() {
    final_reports({m, layout, design, categories, mixtures, predictions, deviations, store, sources,
                   frame.asked, frame.state, frame.counts, files, report});
  }
};

std::string quarters_file() {
  record_bytes bytes;
  bytes.i(16).end();
  for (int e = 1; e <= 16; ++e) bytes.i(e).r(e / 4.0).end();
  return bytes.str();
}

const std::string header_row = "0  1  7   1           0           0           0         0.00000    \n";
const std::string title =
    "\n    Posterior mean (P_MEAN) and standard error (P_STD) for fixed and random effects\n\n";

} // namespace

TEST(final_reports, solver_writes_its_last_solutions) {
  run_end c(0);
  c.open();
  c.finish();
  EXPECT_EQ(c.content("gibsol").substr(0, header_row.size()), header_row);
  EXPECT_NE(c.content("gibsol").find("2  2  1   0          20           3           2         2.00000    \n"),
            std::string::npos);
  EXPECT_EQ(c.content("solpostmean"), quarters_file());
  const std::string listing = c.said();
  EXPECT_EQ(listing.substr(0, title.size()), title); // no fit statistics, no blank line before it
  EXPECT_FALSE(c.exists("py"));
  EXPECT_FALSE(c.exists("lpm"));
  EXPECT_EQ(c.store.sols(16), 4.0); // handed over
  EXPECT_EQ(c.store.solpostmean(16), 0.0);
}

TEST(final_reports, sums_of_three_samples_give_fit_solutions_and_description_in_this_order) {
  run_end c(1);
  c.m.l_sol_samples = true;
  c.m.n_sol_cv = -1;
  c.open();
  c.samples(3);
  c.finish();
  EXPECT_EQ(c.content("gibsol").substr(0, header_row.size()), header_row);
  EXPECT_EQ(c.content("solpostmean"), quarters_file()); // mean of three equal samples
  const std::string listing = c.said();
  const auto fit = listing.find("\nModel fit statistics         \n");
  const auto solutions = listing.find("\n\n\n\n    Posterior mean"); // ends of a row and of three blank lines
  const auto description = listing.find("\n A binary filen named \"sol.samples\" has been created\n");
  EXPECT_EQ(fit, 0u);
  EXPECT_LT(fit, solutions);
  EXPECT_LT(solutions, description);
  EXPECT_NE(description, std::string::npos);
  EXPECT_EQ(c.frame.counts.nsamples, 0.0);
}

TEST(final_reports, fewer_than_two_samples_write_no_solutions) {
  for (const int n : {0, 1}) {
    run_end c(1);
    c.open();
    c.samples(n);
    c.finish();
    EXPECT_FALSE(c.exists("gibsol"));
    EXPECT_FALSE(c.exists("solpostmean"));
    EXPECT_NE(c.content("lpm"), "");
    const std::string listing = c.said();
    EXPECT_EQ(listing.find("Posterior mean"), std::string::npos);
  }
}

namespace {

// A sampler's end: two data records, all matrices drawn equal to 1 on the diagonal.
struct sampler_end : run_end {
  explicit sampler_end(std::int32_t analysis_type) : run_end(analysis_type) {
    QVAgib_ALLOC(m, store, report);
    EXPECT_EQ(ZEPHVAR_ALLOC(m, store, report), 0);
    store.sscp.take(3, 3);
    for (cube<double>* x : {&store.RCOV, &store.RCOVI}) x->take(2, 2, 1);
    for (vec<double>* x : {&store.IDET_RVAR, &store.LVDET}) x->take(3);
    for (vec<double>* x : {&store.dic_s, &store.dic_m}) x->take(2);
    store.dic_ressum.take(2, 2);
    store.dic_rrsum.take(2, 1);
    for (std::int32_t c = 1; c <= 3; ++c) store.sscp(1, c) = store.sscp(3, c) = 1.0;
    for (std::int32_t t = 1; t <= 2; ++t) store.RCOV(t, t, 1) = 1.0;
    design.nobs = 2;
    design.M_M.take(2);
    zeph_test::fill_vec(design.IRESG_M, {1, 1});
    count_group_records(m, design);
    RMARIN(sources.marsaglia, 12, 34);
    frame.asked.isamp = 1;
  }
  void matrix_samples(int n) {
    for (int i = 0; i < n; ++i) {
      accumulate_covariances(m, store, frame.state);
      write_gib_samples(m, store, frame.state, files, report);
      accumulate_deviance(m, store, frame.asked, frame.state);
    }
    samples(n);
  }
};

} // namespace

TEST(final_reports, sampler_reports_fit_deviance_matrices_solutions_in_this_order) {
  sampler_end c(3);
  c.open();
  c.matrix_samples(3);
  c.finish();
  const std::string listing = c.said();
  const char* order[] = {"\nModel fit statistics         \n", "\nDIC per trait                            \n",
                         "\n   Posterior mean and standard error of all (co)variances\n",
                         "\n  Posterior mean and SD of residual dispersion\n",
                         "\n\n\n    Posterior mean (P_MEAN)"};
  std::size_t last = 0;
  for (const char* text : order) {
    const auto at = listing.find(text);
    ASSERT_NE(at, std::string::npos) << text << listing;
    EXPECT_GE(at, last);
    last = at;
  }
  for (const char* file : {"gparout", "PAROUT", "gibsol", "solpostmean", "lastsol", "gparlast", "lpm"})
    EXPECT_TRUE(c.exists(file)) << file;
  EXPECT_FALSE(c.exists("ypredicted"));
  EXPECT_EQ(c.content("lastsol"), quarters_file()); // the last solutions are those of all samples
  EXPECT_EQ(c.store.pars(1, 1), 1.0);               // handed over
  EXPECT_EQ(c.store.PARVAR(1, 1), 0.0);
}

TEST(final_reports, sampler_of_given_matrices_leaves_its_solutions_only) {
  sampler_end c(2);
  c.open();
  c.samples(3);
  c.finish();
  EXPECT_TRUE(c.exists("lastsol"));
  for (const char* file : {"gparout", "PAROUT", "gparlast", "gib.samples"})
    EXPECT_FALSE(c.exists(file)) << file;
  EXPECT_EQ(c.said().find("DIC per trait"), std::string::npos);
  // option 4: the second column is the standard deviation, 0 for equal samples
  EXPECT_NE(c.content("gibsol").find("2.00000             0.00000    \n"), std::string::npos);
}

TEST(final_reports, state_is_kept_whatever_the_number_of_samples) {
  for (const int n : {0, 1}) {
    sampler_end c(3);
    c.open();
    c.matrix_samples(n);
    c.finish();
    EXPECT_TRUE(c.exists("lastsol"));
    EXPECT_TRUE(c.exists("gparlast"));
    EXPECT_FALSE(c.exists("gibsol"));
    EXPECT_EQ(c.exists("gparout"), n == 1);
    const std::string listing = c.said();
    EXPECT_EQ(listing.find("(co)variances") != std::string::npos, n == 1);
    EXPECT_EQ(listing.find("NaN            NaN") != std::string::npos, n == 0); // DIC and pD without samples
    EXPECT_EQ(c.store.PARPOSTMEAN(1, 1), 0.0);                                  // starts clean
  }
}

TEST(final_reports, filled_predictions_are_written) {
  run_end c(1);
  c.frame.counts.nsamp_pred = 2;
  c.predictions.YPRED = {{1, 2, 0.0F, 3.0, 5.0}};
  c.open();
  c.finish();
  EXPECT_TRUE(c.exists("ypredicted"));
}

TEST(final_reports, dust_is_zero_in_solpostmean_too) {
  run_end c(0);
  c.store.sol(1) = 1e-14;
  c.open();
  c.finish();
  record_bytes head;
  head.i(16).end().i(1).r(0.0).end();
  EXPECT_EQ(c.content("solpostmean").substr(0, head.str().size()), head.str());
}

TEST(final_reports, files_of_an_earlier_run_are_replaced) {
  run_end c(0);
  c.write("gibsol", std::string(100000, 'x'));
  c.write("solpostmean", std::string(100000, 'x'));
  c.open();
  c.finish();
  EXPECT_EQ(c.content("gibsol").find('x'), std::string::npos);
  EXPECT_EQ(c.content("solpostmean"), quarters_file());
  EXPECT_FALSE(c.exists("gibsol.part"));
  EXPECT_FALSE(c.exists("solpostmean.part"));
}

TEST(final_reports, write_faults_of_solpostmean_stop_with_code_16) {
  run_end full(0), blocked(0);
  const std::string rule = "the file can be opened and written";
  full.open();
  std::filesystem::create_symlink("/dev/full", full.path("solpostmean"));
  EXPECT_EQ(exit_code_of([&] { write_solpostmean(full.layout, full.store, full.report); }), 16);
  EXPECT_EQ(full.said(), "\nERROR - solpostmean: no space left on the device\n\nZEPH terminates.\n");
  std::filesystem::create_directory(blocked.path("solpostmean"));
  EXPECT_EQ(exit_code_of([&] { write_solpostmean(blocked.layout, blocked.store, blocked.report); }), 16);
  EXPECT_EQ(blocked.said(), zeph_test::illegal_input_text("solpostmean", "write", "open", rule));
}
