#include "results/covariance_report.h"

#include "support/chain_frame.h"
#include "support/result_case.h"

using namespace results_test;
using namespace zeph;

namespace {

struct matrices : result_case {
  model_records m = dairy_model();
  sampler_store store;
  zeph_test::chain_frame frame;
  explicit matrices(std::int32_t groups = 1) {
    m.residual().n_hetgr = groups;
    m.residual().HETGR_CODE.take(range(0, groups));
    store.G = groups;
    for (mat<double>* x : {&store.PARPOSTMEAN, &store.PARVAR}) x->take(28, 2 + groups);
    set(1, {1.5, -0.25, 4}, {0.5, 0, 1});
    set(2, {12345678.5}, {1e-9});
    set(3, {10, 2, 3}, {2, 1, 0.125});
    m.residual().HETGR_CODE(1) = 7;
    frame.asked.analysis_type = analysis::gibbs;
    frame.state.ntr = {2, 1, 2};
  }
  void set(std::int32_t k, const std::vector<double>& means, const std::vector<double>& sds) {
    for (std::size_t e = 0; e < means.size(); ++e) {
      store.PARPOSTMEAN(e + 1, k) = means[e];
      store.PARVAR(e + 1, k) = sds[e];
    }
  }
  std::string run() {
    report_covariances(m, store, frame.state, report);
    return said();
  }
};

// The edges of the columns are easier to see with the blanks counted out.
const std::string factor_blocks = "\n"
                                  "   Posterior mean and standard error of all (co)variances\n"
                                  "\n"
                                  "   Random effect no            1\n"
                                  "   Means\n"
                                  "                1               2\n"
                                  "     1         1.5000000\n"
                                  "     2        -0.2500000       4.0000000\n"
                                  "\n"
                                  "   Standard Errors           \n"
                                  "                1               2\n"
                                  "     1         0.5000000\n"
                                  "     2         0.0000000       1.0000000\n"
                                  "\n"
                                  "   Random effect no            2\n"
                                  "   Means\n"
                                  "                1\n"
                                  "     1  12345678.5000000\n"
                                  "\n"
                                  "   Standard Errors           \n"
                                  "                1\n"
                                  "     1         0.0000000\n"
                                  "\n"
                                  "  Posterior mean and SD of residual dispersion\n"
                                  "\n";

std::string residual_block(const std::string& number) {
  return "\n"
         "   Random effect no            " +
         number +
         "\n"
         "   Means\n"
         "                1               2\n"
         "     1        10.0000000\n"
         "     2         2.0000000       3.0000000\n"
         "\n"
         "   Standard Errors           \n"
         "                1               2\n"
         "     1         2.0000000\n"
         "     2         1.0000000       0.1250000\n";
}

} // namespace

TEST(covariance_report, listing_shows_means_and_deviations_of_each_matrix) {
  matrices c;
  EXPECT_EQ(c.run(), factor_blocks + residual_block("3"));
}

TEST(covariance_report, groups_are_named_when_there_are_two) {
  matrices c(2);
  c.m.residual().HETGR_CODE(2) = 11;
  c.set(4, {10, 2, 3}, {2, 1, 0.125});
  EXPECT_EQ(c.run(), factor_blocks + " Group code:            7  CV-matrix no.:           3\n" +
                         residual_block("3") + " Group code:           11  CV-matrix no.:           4\n" +
                         residual_block("4"));
}

TEST(covariance_report, gparout_has_mean_deviation_and_model_vector) {
  matrices c;
  c.run();
  // 3I3, 2G25.15, 2X, 5I4: three entries of the vector, then zeros
  EXPECT_EQ(c.content("gparout"),
            "  1  1  1     1.50000000000000        0.500000000000000         2   1   2   0   0\n"
            "  1  2  1   -0.250000000000000         0.00000000000000         2   1   2   0   0\n"
            "  1  2  2     4.00000000000000         1.00000000000000         2   1   2   0   0\n"
            "  2  1  1     12345678.5000000        0.100000000000000E-08     2   1   2   0   0\n"
            "  3  1  1     10.0000000000000         2.00000000000000         2   1   2   0   0\n"
            "  3  2  1     2.00000000000000         1.00000000000000         2   1   2   0   0\n"
            "  3  2  2     3.00000000000000        0.125000000000000         2   1   2   0   0\n");
}

TEST(covariance_report, PAROUT_has_means_and_codes_of_groups) {
  matrices c;
  c.run();
  // 3I3, G25.15 for factors; 2X, I8 after it for residual groups
  EXPECT_EQ(c.content("PAROUT"), "  1  1  1     1.50000000000000    \n"
                                 "  1  2  1   -0.250000000000000    \n"
                                 "  1  2  2     4.00000000000000    \n"
                                 "  2  1  1     12345678.5000000    \n"
                                 "  3  1  1     10.0000000000000             7\n"
                                 "  3  2  1     2.00000000000000             7\n"
                                 "  3  2  2     3.00000000000000             7\n");
}

TEST(covariance_report, model_vector_is_cut_at_five_entries) {
  matrices c;
  for (int k = 0; k < 4; ++k) c.m.RMAT_rows.emplace(c.m.RMAT_rows.begin());
  c.m.nramat = 6;
  c.frame.state.ntr = {1, 2, 1, 1, 1, 1, 1};
  for (mat<double>* x : {&c.store.PARPOSTMEAN, &c.store.PARVAR}) x->take(28, 7);
  c.run();
  // 3I3, 2G25.15, 2X are 61 columns
  EXPECT_EQ(c.content("gparout").substr(61, 24), "   1   2   1   1   1\n  2");
}

TEST(covariance_report, lines_hold_six_values_and_a_sixth_value_ends_its_line) {
  matrices c;
  c.m = dairy_model();
  c.m.RMAT_rows.erase(c.m.RMAT_rows.begin() + 1);
  c.m.nramat = 1;
  c.frame.state.ntr = {7, 1};
  for (mat<double>* x : {&c.store.PARPOSTMEAN, &c.store.PARVAR}) x->take(28, 2);
  for (std::int32_t e = 1; e <= 28; ++e) c.store.PARPOSTMEAN(e, 1) = e;
  const std::string text = c.run();
  const std::string means =
      "   Means\n"
      "                1               2               3               4               5               6\n"
      "                7\n"
      "     1         1.0000000\n"
      "     2         2.0000000       3.0000000\n"
      "     3         4.0000000       5.0000000       6.0000000\n"
      "     4         7.0000000       8.0000000       9.0000000      10.0000000\n"
      "     5        11.0000000      12.0000000      13.0000000      14.0000000      15.0000000\n"
      "     6        16.0000000      17.0000000      18.0000000      19.0000000      20.0000000      "
      "21.0000000\n"
      "\n"
      "     7        22.0000000      23.0000000      24.0000000      25.0000000      26.0000000      "
      "27.0000000\n"
      "              28.0000000\n"
      "\n"
      "   Standard Errors           \n";
  EXPECT_NE(text.find(means), std::string::npos) << text;
}

TEST(covariance_report, files_of_the_model_before_are_replaced) {
  matrices c;
  c.write("gparout", std::string(100000, 'x'));
  c.write("PAROUT", std::string(100000, 'x'));
  c.run();
  EXPECT_EQ(c.content("gparout").find('x'), std::string::npos);
  EXPECT_EQ(c.content("PAROUT").find('x'), std::string::npos);
}

TEST(covariance_report, write_faults_stop_with_code_16) {
  const std::string rule = "the file can be opened and written";
  for (const std::string name : {"gparout", "PAROUT"}) {
    matrices full, blocked;
    full.make_full(name);
    EXPECT_EQ(exit_code_of([&] { full.run(); }), 16);
    const std::string end =
        "\nERROR - " + std::string(name) + ": no space left on the device\n\nZEPH terminates.\n";
    const std::string listing = full.said();
    EXPECT_EQ(listing.substr(listing.size() - end.size()), end);
    blocked.make_directory(name);
    EXPECT_EQ(exit_code_of([&] { blocked.run(); }), 16);
    EXPECT_EQ(blocked.said(), zeph_test::illegal_input_text(name, "write", "open", rule));
  }
}
