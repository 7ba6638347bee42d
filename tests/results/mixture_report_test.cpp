#include "results/mixture_report.h"

#include "support/chain_frame.h"
#include "support/result_case.h"

#include <cmath>

using namespace results_test;
using namespace zeph;

namespace {

// Two records of two traits, trait 2 the indicator of trait 1; 4 sample rounds.
struct mixture_end : result_case {
  model_records m;
  design_store design;
  mixture_store mixtures;
  zeph_test::chain_frame frame;
  mixture_end() {
    zeph_test::described_model d;
    d.traits.resize(2);
    d.traits[0].mix_eq_type = 2;
    d.traits[1].kind = trait_mixture;
    d.records = 2;
    m = zeph_test::build_model(d);
    allocate_mixtures(m, mixtures, report);
    design.nobs = 2;
    design.Y_M.take(2, 2);
    design.Y_M(1, 1) = 1.5F;
    design.Y_M(2, 2) = -0.25F;
    mixtures.MIXZ_COUNT(1, 1) = 3;
    mixtures.MIXZ_LAST(1, 2) = 1;
    frame.asked.analysis_type = analysis::gibbs;
    frame.counts.nsamples = 4;
    frame.asked.nburn = 10;
    frame.counts.P_ROUND = 10;
    frame.asked.isamp = 5;
    frame.state.iround = 30;
    zeph_test::write_integer_records(path("RCDATA_I"), {{701, 9}, {702, 9}});
  }
  std::string field(const std::string& text, std::size_t width) const {
    return " " + std::string(width - text.size(), ' ') + text;
  }
};

} // namespace

TEST(report_mixing_proportions, gives_mean_and_standard_deviation_of_the_samples) {
  mixture_end c;
  for (const double x : {0.1, 0.2, 0.3, 0.4}) {
    c.mixtures.mix_pi_sum(1) += x;
    c.mixtures.mix_pi_ss(1) += x * x;
  }
  report_mixing_proportions(c.m, c.mixtures, c.frame.asked, c.frame.counts, c.report);
  // root of 0.05/3
  EXPECT_EQ(c.said(), "\n  Posterior mean and standard error of for mixing proportion\n"
                      "              0.2500000       0.1290994\n");
}

TEST(report_mixing_proportions, gives_no_number_beside_no_number) {
  mixture_end c;
  c.mixtures.mix_pi_sum(1) = c.mixtures.mix_pi_ss(1) = std::nan("");
  c.mixtures.TAU_STAT[1].SUM.fill(std::nan(""));
  c.mixtures.TAU_STAT[1].SS.fill(std::nan(""));
  report_mixing_proportions(c.m, c.mixtures, c.frame.asked, c.frame.counts, c.report);
  EXPECT_TRUE(c.said().ends_with("\n                    NaN             NaN\n"));
  write_taupostmean(c.m, c.mixtures, c.frame.counts, 1, c.report);
  EXPECT_EQ(c.content("taupostmean"), c.field("NaN", 24) + c.field("NaN", 24) + "\n");
}

// Rounding can leave a sum of squares below that of the mean: the root is 0.
TEST(report_mixing_proportions, gives_0_for_a_negative_spread) {
  mixture_end c;
  c.mixtures.mix_pi_sum(1) = 2.0;
  c.mixtures.mix_pi_ss(1) = 1.0 - 1e-15;
  report_mixing_proportions(c.m, c.mixtures, c.frame.asked, c.frame.counts, c.report);
  EXPECT_TRUE(c.said().ends_with("\n              0.5000000       0.0000000\n"));
}

TEST(report_mixing_proportions, says_nothing_of_models_without_mixtures) {
  mixture_end c;
  c.mixtures.flag = false;
  report_mixing_proportions(c.m, c.mixtures, c.frame.asked, c.frame.counts, c.report);
  write_taupostmean(c.m, c.mixtures, c.frame.counts, 2, c.report);
  EXPECT_EQ(
      write_memberships(c.m, c.design, c.mixtures, c.frame.asked, c.frame.state, c.frame.counts, c.report),
      0);
  EXPECT_EQ(c.said(), "");
  EXPECT_FALSE(c.exists("taupostmean") || c.exists("mixz_prob") || c.exists("mixz_last"));
}

TEST(report_mixing_proportions, says_nothing_of_the_solver) {
  mixture_end c;
  c.frame.asked.analysis_type = analysis::solve;
  c.frame.counts.nsamples = 0;
  report_mixing_proportions(c.m, c.mixtures, c.frame.asked, c.frame.counts, c.report);
  EXPECT_EQ(c.said(), "");
}

TEST(taupostmean, holds_mean_and_deviation_and_one_where_it_never_left_one) {
  mixture_end c;
  c.mixtures.TAU_STAT[1].SUM(1) = c.mixtures.TAU_STAT[1].SS(1) = 4.0;
  c.mixtures.TAU_STAT[1].SUM(2) = 1.0; // 0.5, 0.5, 0, 0
  c.mixtures.TAU_STAT[1].SS(2) = 0.5;
  write_taupostmean(c.m, c.mixtures, c.frame.counts, 2, c.report);
  EXPECT_EQ(c.content("taupostmean"), c.field("1.0", 24) + c.field("0.0", 24) + "\n" + c.field("0.25", 24) +
                                          c.field("0.2886751345948129", 24) + "\n");
}

TEST(WR_MIXZ, writes_a_row_per_record_of_the_data) {
  mixture_end c;
  EXPECT_EQ(WR_MIXZ(c.m, c.design, c.mixtures, c.frame.asked, c.frame.counts, 1, 30, c.report), 0);
  EXPECT_EQ(WR_MIXZ(c.m, c.design, c.mixtures, c.frame.asked, c.frame.counts, 2, 30, c.report), 0);
  const std::string share[2] = {c.field("0.75", 16), c.field("0.0", 16)}; // 3 x 5 / 20
  const std::string number[2] = {c.field("701", 11), c.field("702", 11)}, one = c.field("1", 11),
                    none = c.field("0", 11);
  std::string text = c.content("mixz_prob");
  EXPECT_EQ(text.substr(0, text.find('\n')),
            c.field("2", 11) + c.field("30", 11) + c.field("10", 11) + c.field("5", 11));
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3);
  EXPECT_NE(text.find(number[0] + share[0]), std::string::npos) << text;
  text = c.content("mixz_last");
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
  EXPECT_EQ(text.find(number[0] + share[0]), 0U) << text;
  EXPECT_NE(text.find(none + none + c.field("1.5", 16)), std::string::npos) << text;
  EXPECT_NE(text.find(one + none), std::string::npos) << text;
  EXPECT_NE(text.find(c.field("-0.25", 16) + "\n"), std::string::npos) << text;
}

TEST(WR_MIXZ, makes_its_files_again_for_the_next_model_of_the_run) {
  mixture_end c;
  EXPECT_EQ(WR_MIXZ(c.m, c.design, c.mixtures, c.frame.asked, c.frame.counts, 1, 30, c.report), 0);
  c.mixtures.MIXZ_COUNT(1, 1) = 0;
  EXPECT_EQ(WR_MIXZ(c.m, c.design, c.mixtures, c.frame.asked, c.frame.counts, 1, 30, c.report), 0);
  EXPECT_EQ(c.content("mixz_prob").find("0.75"), std::string::npos);
}

TEST(WR_MIXZ, counts_an_interval_below_1_as_1) {
  for (const std::int32_t interval : {0, -3}) {
    mixture_end c;
    c.frame.asked.isamp = interval;
    EXPECT_EQ(WR_MIXZ(c.m, c.design, c.mixtures, c.frame.asked, c.frame.counts, 2, 22, c.report), 0);
    EXPECT_EQ(c.content("mixz_last").find(c.field("701", 11) + c.field("0.25", 16)), 0U); // 3 / 12
  }
}

// 30 rounds were stored with the state, and 20 were run since.
TEST(memberships, of_a_continued_chain_are_shares_of_the_rounds_since) {
  mixture_end c;
  c.frame.asked.nburn = 0;
  c.frame.counts.P_ROUND = 30;
  c.frame.asked.nround = 20;
  c.frame.state.iround = 51;
  EXPECT_EQ(
      write_memberships(c.m, c.design, c.mixtures, c.frame.asked, c.frame.state, c.frame.counts, c.report),
      0);
  EXPECT_NE(c.content("mixz_prob").find(c.field("701", 11) + c.field("0.75", 16)), std::string::npos);
}

TEST(WR_MIXZ, divides_by_nothing_when_no_round_was_counted) {
  mixture_end c;
  EXPECT_EQ(WR_MIXZ(c.m, c.design, c.mixtures, c.frame.asked, c.frame.counts, 2, 10, c.report), 0);
  EXPECT_EQ(c.content("mixz_last").find("0.75"), std::string::npos);
}

TEST(WR_MIXZ, refuses_other_codes_existing_files_and_missing_records) {
  mixture_end c;
  EXPECT_NE(WR_MIXZ(c.m, c.design, c.mixtures, c.frame.asked, c.frame.counts, 3, 30, c.report), 0);
  EXPECT_EQ(c.said(),
            "\nWR-MIXZ called with icode= " + c.field("3", 11) + "\n\nLegal values for icode is 1 or 2\n");
  c.write("mixz_last", "old");
  EXPECT_NE(WR_MIXZ(c.m, c.design, c.mixtures, c.frame.asked, c.frame.counts, 2, 30, c.report), 0);
  EXPECT_EQ(c.content("mixz_last"), "old");
  zeph_test::write_integer_records(c.path("RCDATA_I"), {{701, 9}});
  EXPECT_NE(WR_MIXZ(c.m, c.design, c.mixtures, c.frame.asked, c.frame.counts, 1, 30, c.report), 0);
  EXPECT_EQ(c.said(), "\nERROR  reading 1st record from RCDATA. Error code= " + c.field("-1", 11) + "\n\n");
  EXPECT_FALSE(c.exists("mixz_prob"));
}

TEST(memberships, of_the_last_round_are_written_also_when_their_shares_are_not) {
  mixture_end c;
  c.write("mixz_prob", "old");
  EXPECT_EQ(
      write_memberships(c.m, c.design, c.mixtures, c.frame.asked, c.frame.state, c.frame.counts, c.report),
      1);
  EXPECT_EQ(c.content("mixz_prob"), "old");
  EXPECT_EQ(c.content("mixz_last").find(c.field("701", 11)), 0U);
  EXPECT_EQ(c.said(), ""); // the caller reports it when the state is saved
}

TEST(memberships, name_the_first_file_that_failed) {
  mixture_end both, last;
  for (mixture_end* c : {&both, &last}) c->write("mixz_last", "old");
  both.write("mixz_prob", "old");
  EXPECT_EQ(write_memberships(both.m, both.design, both.mixtures, both.frame.asked, both.frame.state,
                              both.frame.counts, both.report),
            1);
  EXPECT_EQ(write_memberships(last.m, last.design, last.mixtures, last.frame.asked, last.frame.state,
                              last.frame.counts, last.report),
            2);
  EXPECT_TRUE(last.exists("mixz_prob"));
}

TEST(memberships, that_failed_stop_with_the_words_of_their_file) {
  for (const std::int32_t icode : {1, 2}) {
    mixture_end c;
    try {
      stop_memberships(icode, c.report);
    } catch (const run_stop& stop) {
      EXPECT_EQ(stop.exit_code, 16);
    }
    EXPECT_EQ(c.said(),
              icode == 1
                  ? "\nERROR in subroutine WR_MIXZ\n\nProgram terminates\n"
                  : "\nERROR in subroutine WR_MIXZ storing last mixture variable for the last round\n\n");
  }
}
