#include "control/directives.h"

#include "support/chain_frame.h"
#include "support/check.h"
#include "support/model_builder.h"
#include "support/scratch_directory.h"

#include <cstdlib>

namespace {

using namespace zeph_test;

std::string blanks(std::size_t n) { return std::string(n, ' '); }
std::string integer(std::int64_t x, std::size_t width) {
  const std::string text = std::to_string(x);
  return blanks(width - text.size()) + text;
}
// Echo row: a label of 51 characters to column 60, the value in 11 columns.
std::string echo(const std::string& label, std::int64_t value) {
  return blanks(60 - label.size()) + label + integer(value, 11) + "\n";
}
std::string label_row(const std::string& label) { return blanks(60 - label.size()) + label + "\n"; }
// Table row: 30 blanks, the number in 3 columns, two values in 11.
std::string df_row(std::int64_t k, std::int64_t prior, std::int64_t data) {
  return blanks(30) + integer(k, 3) + integer(prior, 11) + integer(data, 11) + "\n";
}
std::string flat_row(std::int64_t k, std::int64_t data) {
  return blanks(30) + integer(k, 3) + blanks(9) + "Flat" + integer(data, 9) + "\n";
}
std::string free_integer(std::int64_t x) { return " " + integer(x, 11); }

const std::string fatal = "\nFatal error\n\nSee list file for details\n\nQVA1 terminates wth exit code 16\n";
const std::string line_error = "ERROR  - reading input line for zeph from the directive file\n";
const std::string type_label = "Kode for type of analysis .........................";
const std::string test_label = "Level of test information printed .................";
const std::string a_label = "Starting value A for RNG ..........................";
const std::string b_label = "Starting value B for RNG ..........................";
const std::string clock_label = "Starting value A for RNG set based on system time .";
const std::string burn_label = "No of Burn-in rounds ..............................";
const std::string rounds_label = "No of sampling rounds .............................";
const std::string interval_label = "Sampling interval .................................";
const std::string prodf_label = "DF for proposal distribution ......................";
const std::string df_head =
    "\n   Degrees of freedom        \n" + blanks(30) + "Effect     Prior     Data     \n";

// Two traits, a pedigree factor of order 2 with 8 levels, 2 of them phantom
// groups, an identity factor of order 1 with 4 levels, 9 records.
struct directive_case {
  directive_case() : m(build_model(described())) {
    m.mi_text.fill(std::string(200, ' '));
    m.mi_text[0].replace(0, 3, "dir");
    m.RMAT(1).n_phg = 2;
    m.RMAT(1).r36 = 1;
  }
  static described_model described() {
    described_model d;
    d.traits.resize(2);
    d.traits[0].effects = {{1, 3}, {2, 2}};
    d.traits[1].effects = {{1, 3}};
    d.factors = {{"PED", 8, 2, {{1, 3, 1}, {2, 3, 2}}}, {"I", 4, 1, {{2, 4, 1}}}};
    d.integers = 7, d.reals = 2, d.records = 9;
    return d;
  }

  void call(const std::string& text) {
    directory.write("dir", text);
    open_directives(m, lines, run.report);
    read_directives(m, f.asked, sources, lines, run.report);
  }
  // What the lines print.
  std::string read(const std::string& text) {
    call(text);
    return run.text();
  }
  // The same where they end the run.
  std::string stop(const std::string& text) {
    return expect_stop(16, run, [&](reporting&) { call(text); });
  }
  std::string optional(const std::string& text) {
    directory.write("dir", text);
    EXPECT_TRUE(lines.open(directory / "dir"));
    if (read_covariate_directives(m, f.asked, lines, run.report))
      read_restriction_directive(m, f.asked, s, lines, run.report);
    return run.text();
  }
  std::string optional_stop(const std::string& text) {
    return expect_stop(16, run, [&](reporting&) { optional(text); });
  }

  scratch_directory directory;
  heard_run run{directory.path()};
  model_records m;
  zeph_test::chain_frame f;
  sampler_store s;
  random_sources sources{run.report};
  free_reader lines;
};

const std::string good_df = "1 0\n2 0\n3 0\n";

std::string first_echo(std::int32_t type, std::int32_t level) {
  return echo(type_label, type) + echo(test_label, level);
}
std::string seeds_echo(std::int32_t a, std::int32_t b) { return echo(a_label, a) + echo(b_label, b); }
std::string rounds_echo(std::int32_t burn, std::int32_t rounds, std::int32_t interval) {
  return echo(burn_label, burn) + echo(rounds_label, rounds) + echo(interval_label, interval);
}

TEST(directives, echo_the_first_three_lines) {
  directive_case c;
  EXPECT_EQ(c.read("2 1\n1201 707\n100 2000 10\n" + good_df),
            first_echo(2, 1) + seeds_echo(1201, 707) + rounds_echo(100, 2000, 10));
  EXPECT_EQ(c.f.asked.analysis_type, analysis::predict);
  EXPECT_EQ(c.f.asked.test_level, 1);
  EXPECT_EQ(c.f.asked.seed_a, 1201);
  EXPECT_EQ(c.f.asked.seed_b, 707);
  EXPECT_EQ(c.f.asked.nburn, 100);
  EXPECT_EQ(c.f.asked.nround, 2000);
  EXPECT_EQ(c.f.asked.isamp, 10);
}

TEST(directives, take_commas_repeats_and_values_over_lines) {
  directive_case c;
  EXPECT_EQ(c.read("0,1 dropped\n\n2*7\n3*4, also dropped\n1,\n0\n2 , 5\n\t3 0\r\n"),
            first_echo(0, 1) + seeds_echo(7, 7) + rounds_echo(4, 4, 4));
  EXPECT_EQ(c.f.asked.PDF(1), 0);
  EXPECT_EQ(c.f.asked.PDF(2), 5);
}

TEST(directives, start_the_combined_source_with_seed_a) {
  directive_case c;
  c.read("2 0\n1201 707\n0 1 1\n" + good_df);
  heard_run other;
  combined_source expected(other.report);
  ranlib_start(expected, 1201);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(next_integer(c.sources.combined), next_integer(expected));
  EXPECT_FALSE(c.sources.marsaglia.TEST); // started later
}

// The value of the n-th echo row with this label.
std::int32_t echoed(const std::string& text, const std::string& label, int n) {
  std::size_t at = text.find(label);
  for (int i = 1; i < n; ++i) at = text.find(label, at + 1);
  return at == std::string::npos ? -1 : std::atoi(text.c_str() + at + label.size());
}

const std::string keep_seeds = "\n" + label_row("It is the set starting values that must be used    ") +
                               label_row("in a restart of the chain                          ") + "\n";

TEST(directives, set_seeds_of_zero_by_the_clock_both_with_the_label_of_a) {
  directive_case c;
  const std::string text = c.read("2 0\n0 0\n0 1 1\n" + good_df);
  const std::int32_t a = echoed(text, clock_label, 1), b = echoed(text, clock_label, 2);
  for (const std::int32_t seed : {a, b}) {
    EXPECT_GE(seed, 1000);
    EXPECT_LE(seed, 10000);
  }
  EXPECT_EQ(text, first_echo(2, 0) + echo("Specified starting value A for RNG ................", 0) +
                      echo(clock_label, a) + echo("Specified starting value B for RNG ................", 0) +
                      echo(clock_label, b) + keep_seeds + rounds_echo(0, 1, 1));
  EXPECT_EQ(c.f.asked.seed_a, a);
  EXPECT_EQ(c.f.asked.seed_b, b);
  heard_run other;
  combined_source expected(other.report);
  ranlib_start(expected, a);
  EXPECT_EQ(next_integer(c.sources.combined), next_integer(expected));
}

TEST(directives, do_not_start_the_combined_source_when_seed_b_alone_is_zero) {
  directive_case c;
  const std::string text = c.read("2 0\n1201 0\n0 1 1\n" + good_df);
  const std::int32_t b = echoed(text, clock_label, 1);
  EXPECT_EQ(text, first_echo(2, 0) + echo("Specified starting value B for RNG ................", 0) +
                      echo(clock_label, b) + keep_seeds + rounds_echo(0, 1, 1));
  EXPECT_EQ(c.f.asked.seed_a, 1201);
  EXPECT_FALSE(c.sources.combined.qrgnin);
}

TEST(directives, start_the_combined_source_when_seed_a_alone_is_zero_and_leave_b) {
  directive_case c;
  const std::string text = c.read("2 0\n0 707\n0 1 1\n" + good_df);
  const std::int32_t a = echoed(text, clock_label, 1);
  EXPECT_EQ(text, first_echo(2, 0) + echo("Specified starting value A for RNG ................", 0) +
                      echo(clock_label, a) + keep_seeds + rounds_echo(0, 1, 1));
  EXPECT_TRUE(c.sources.combined.qrgnin);
  EXPECT_EQ(c.f.asked.seed_b, 707);
}

TEST(directives, drop_the_burn_in_of_a_restart_with_four_rows) {
  directive_case c;
  c.f.asked.restart = true;
  EXPECT_EQ(c.read("2 0\n1 2\n50 60 7\n" + good_df),
            first_echo(2, 0) + seeds_echo(1, 2) + echo(prodf_label, 0) +
                echo("No of Burn-in rounds specified ....................", 50) +
                label_row("But this is a restart of the chain ................") +
                echo("No of Burn-in rounds set to .......................", 0) + echo(rounds_label, 60) +
                echo(interval_label, 7));
  EXPECT_EQ(c.f.asked.nburn, 0);
}

TEST(directives, echo_a_burn_in_of_zero_plainly_on_a_restart) {
  directive_case c;
  c.f.asked.restart = true;
  EXPECT_EQ(c.read("2 0\n1 2\n0 60 7\n" + good_df),
            first_echo(2, 0) + seeds_echo(1, 2) + rounds_echo(0, 60, 7));
}

TEST(directives, stop_at_each_of_the_first_lines_that_can_not_be_read) {
  const auto error = [](int n) {
    return "ERROR  - reading " + std::to_string(n) + ". input line for zeph from the directive file\n" +
           fatal;
  };
  const std::string one = first_echo(2, 0), two = one + seeds_echo(1, 2);
  for (const char* text : {"", "\n\n", "x 1\n", "2\n", "2 y\n", "2.0 1\n", "2147483648 0\n"}) {
    directive_case c;
    EXPECT_EQ(c.stop(text), error(1)) << text;
  }
  for (const char* text : {"2 0\n", "2 0\n1\n", "2 0\n1 z\n"}) {
    directive_case c;
    EXPECT_EQ(c.stop(text), one + error(2)) << text;
  }
  for (const char* text : {"2 0\n1 2\n", "2 0\n1 2\n5 6\n", "2 0\n1 2\n5 6 1.5\n"}) {
    directive_case c;
    EXPECT_EQ(c.stop(text), two + error(3)) << text;
  }
}

TEST(directives, of_a_missing_file_fail_at_line_1) {
  directive_case c;
  EXPECT_EQ(expect_stop(16, c.run, [&](reporting& report) { open_directives(c.m, c.lines, report); }),
            "ERROR  - reading 1. input line for zeph from the directive file\n" + fatal);
}

TEST(directives, named_DUMMY_end_the_run) {
  directive_case c;
  c.m.mi_text[0] = "DUMMY" + blanks(195);
  EXPECT_EQ(expect_stop(16, c.run, [&](reporting& report) { open_directives(c.m, c.lines, report); }),
            "\nERROR - File with additional input to ZEPH not found\n\nZEPH terminates.\n");
  c.m.mi_text.fill(blanks(200)); // no name at all
  EXPECT_EQ(directive_file_name(c.m, c.run.report), "DUMMY");
}

TEST(directive_file_name, is_the_only_one_given_in_whichever_field) {
  for (std::size_t i = 0; i < 5; ++i) {
    directive_case c;
    c.m.mi_text.fill(blanks(200));
    c.m.mi_text[i] = "here or not" + blanks(189);
    EXPECT_EQ(directive_file_name(c.m, c.run.report), "here or not");
  }
}

TEST(directive_file_name, of_several_is_the_first_that_begins_with_two_integers) {
  directive_case c;
  c.m.mi_text = {"title", "absent", "text", "numbers", "more"};
  c.directory.write("text", "A text\n");
  c.directory.write("numbers", "\n2\n0 1\n");
  c.directory.write("more", "2 0\n");
  EXPECT_EQ(directive_file_name(c.m, c.run.report), "numbers");
  c.directory.remove("numbers");
  EXPECT_EQ(directive_file_name(c.m, c.run.report), "more");
  c.directory.remove("more");
  EXPECT_EQ(directive_file_name(c.m, c.run.report), "text"); // the first that exists
  c.directory.remove("text");
  EXPECT_EQ(directive_file_name(c.m, c.run.report), "title");
  c.m.mi_text[3] = "DUMMY";
  EXPECT_EQ(directive_file_name(c.m, c.run.report), "DUMMY");
}

TEST(directives, are_in_the_work_directory_or_under_a_full_path) {
  directive_case c;
  scratch_directory elsewhere;
  elsewhere.write("lines", "2 0\n1 2\n0 1 1\n" + good_df);
  c.m.mi_text[0] = elsewhere / "lines";
  open_directives(c.m, c.lines, c.run.report);
  read_directives(c.m, c.f.asked, c.sources, c.lines, c.run.report);
  EXPECT_EQ(c.f.asked.nround, 1);
}

const std::string start3 = "3 0\n1 2\n0 1 1\n";
const std::string echo3 = first_echo(3, 0) + seeds_echo(1, 2) + rounds_echo(0, 1, 1);

TEST(directives, print_degrees_of_freedom_from_type_3_on) {
  directive_case c;
  // dim + 1: 3 for the pedigree factor, 2 for the other, 3 for the residual;
  // data: 8 levels less 2 phantom groups, 4 levels, 9 records
  EXPECT_EQ(c.read(start3 + "1 4\n2 3\n3 10\n"),
            echo3 + df_head + df_row(1, 4, 6) + df_row(2, 3, 4) + df_row(3, 10, 9));
  EXPECT_EQ(c.f.asked.DDF(1), 6);
  EXPECT_EQ(c.f.asked.DDF(2), 4);
  EXPECT_EQ(c.f.asked.DDF(3), 9);
}

TEST(directives, call_a_prior_flat_up_to_dimension_plus_1_with_a_warning_unless_it_is_0) {
  directive_case c;
  const std::string warning =
      blanks(42) + "WARNING WARNING WARNING WARNING WARNING\n" + blanks(42) + "Prior df = ";
  const std::string end = " <= dim + 1 -> Flat prior assumed\n";
  EXPECT_EQ(c.read(start3 + "1 3\n2 0\n3 -1\n"), echo3 + df_head + flat_row(1, 6) + warning + " 3" + end +
                                                     flat_row(2, 4) + flat_row(3, 9) + warning + "-1" + end);
  EXPECT_EQ(c.f.asked.PDF(1), 3); // kept as read
}

TEST(directives, print_no_degrees_of_freedom_below_type_3) {
  for (const char* type : {"0", "1", "2"}) {
    directive_case c;
    const std::string text = c.read(std::string(type) + " 0\n1 2\n0 1 1\n1 3\n2 0\n3 9\n");
    EXPECT_EQ(text.find("Degrees"), std::string::npos);
    EXPECT_EQ(c.f.asked.PDF(3), 9);
  }
}

TEST(directives, count_the_levels_of_a_reduced_animal_model_in_its_own_file) {
  directive_case c;
  c.m.RMAT(1).L_RAM = true;
  write_elements(c.directory / "AINV_RAM1",
                 {{1, 1, 2.0}, {2, 1, -1.0}, {2, 2, 2.0}, {3, 3, 1.0}, {3, 3, 1.5}});
  c.read("2 0\n1 2\n0 1 1\n" + good_df);
  EXPECT_EQ(c.f.asked.DDF(1), 4 - 2); // elements with i = j, less the phantom groups
  directive_case without;
  without.m.RMAT(1).L_RAM = true; // the file can't be read
  without.read("2 0\n1 2\n0 1 1\n" + good_df);
  EXPECT_EQ(without.f.asked.DDF(1), 8 - 2);
}

TEST(directives, stop_at_a_line_of_degrees_of_freedom_that_can_not_be_read) {
  for (const std::string text : {"1 0\n", "1 0\n2\n", "1 0\n2 x\n", "1 0\nx\n"}) {
    directive_case c;
    EXPECT_EQ(c.stop("2 0\n1 2\n0 1 1\n" + text),
              first_echo(2, 0) + seeds_echo(1, 2) + rounds_echo(0, 1, 1) + line_error +
                  "         line should contain random factor no. and prior degrees of freedom\n"
                  "         for random factor no." +
                  free_integer(2) + "\n" + fatal);
  }
}

TEST(directives, stop_when_a_factor_is_missing_in_the_degrees_of_freedom) {
  directive_case c;
  EXPECT_EQ(c.stop("2 0\n1 2\n0 1 1\n1 0\n3 0\n"),
            first_echo(2, 0) + seeds_echo(1, 2) + rounds_echo(0, 1, 1) + "Missing prior df for " +
                free_integer(2) + free_integer(3) + "\n\nZEPH terminates.\n");
}

TEST(directives, refuse_prior_degrees_of_freedom_above_2_000_000_000) {
  directive_case largest;
  largest.read("2 0\n1 2\n0 1 1\n1 2000000000\n2 0\n3 2000000000\n");
  EXPECT_EQ(largest.f.asked.PDF(3), 2000000000);
  directive_case c;
  EXPECT_EQ(c.stop("2 0\n1 2\n0 1 1\n1 0\n2 2000000001\n3 0\n"),
            first_echo(2, 0) + seeds_echo(1, 2) + rounds_echo(0, 1, 1) +
                illegal_input_text("dir", "PDF(2)", "2000000001", "at most 2000000000"));
}

const std::string start2 = "2 0\n1 2\n0 1 1\n" + good_df;
const std::string echo2 = first_echo(2, 0) + seeds_echo(1, 2) + rounds_echo(0, 1, 1);
const std::string var_echo =
    blanks(9) + "Variance of proposal distribution .................        0.25000000\n";
const std::string coef_echo =
    blanks(9) + "Conversion coefficient for co-variances ...........       -1.50000000\n";

TEST(directives, echo_the_proposal_values) {
  directive_case c;
  EXPECT_EQ(c.read(start2 + "12\n0.25\n-1.5D0\n"), echo2 + echo(prodf_label, 12) + var_echo + coef_echo);
  EXPECT_EQ(c.f.asked.prodf, 12);
  EXPECT_EQ(c.f.asked.prop_var, 0.25);
  EXPECT_EQ(c.f.asked.conv_coef, -1.5);
}

TEST(directives, may_end_before_the_proposal_values_which_then_are_defined) {
  for (const char* tail : {"", "\n \n"}) {
    directive_case c;
    EXPECT_EQ(c.read(start2 + tail), echo2);
    EXPECT_EQ(c.f.asked.prodf, 10);
    EXPECT_EQ(c.f.asked.prop_var, 1.0);
    EXPECT_EQ(c.f.asked.conv_coef, 1.0);
  }
}

TEST(directives, stop_at_a_bad_line_of_proposal_values) {
  directive_case c;
  EXPECT_EQ(c.stop(start2 + "ten\n"),
            echo2 + line_error + "iostat = " + free_integer(59) + "  prodf : " + free_integer(0) +
                "\n         line should contain DF for proposal distribution\n" + fatal);
  for (const char* tail : {"12\n", "12\nlarge\n"}) {
    directive_case variance;
    EXPECT_EQ(variance.stop(start2 + tail),
              echo2 + echo(prodf_label, 12) + line_error +
                  "         line should contain Variance of proposal distribution\n" + fatal);
  }
  for (const char* tail : {"12\n0.25\n", "12\n0.25\nnone\n"}) {
    directive_case coefficient;
    EXPECT_EQ(coefficient.stop(start2 + tail),
              echo2 + echo(prodf_label, 12) + var_echo + line_error +
                  "         line should contain Conversion coefficient for co-variances\n" + fatal);
  }
}

TEST(directives, with_proposal_values_are_confined_to_types_0_to_3) {
  for (const std::int32_t type : {-1, 4, 5, 6, 17}) {
    directive_case c;
    const std::string text = c.stop(std::to_string(type) + " 0\n1 2\n0 1 1\n" + good_df + "12\n0.25\n-1.5\n");
    const std::string end = coef_echo +
                            "\nERROR - Illegal value for type of analysis: " + free_integer(type) +
                            "\n        Legal value are: 0, 1, 2 and 3\n" + fatal;
    ASSERT_GT(text.size(), end.size());
    EXPECT_EQ(text.substr(text.size() - end.size()), end);
  }
  for (const std::int32_t type : {0, 1, 2, 3}) {
    directive_case c;
    c.read(std::to_string(type) + " 0\n1 2\n0 1 1\n" + good_df + "12\n0.25\n-1.5\n");
    EXPECT_EQ(c.f.asked.analysis_type, analysis_of(type));
  }
}

TEST(directives, without_proposal_values_accept_any_type) {
  for (const std::int32_t type : {-1, 4, 5, 6, 17}) {
    directive_case c;
    c.read(std::to_string(type) + " 0\n1 2\n0 1 1\n" + good_df);
    EXPECT_EQ(c.f.asked.analysis_type, analysis_of(type));
  }
}

TEST(directives, refuse_phantom_parent_groups_from_type_4_on) {
  const std::string text = "\n\nIN MODELS WITH PHANTOM PARENT GROUPS\n"
                           "IS NOT IMPLEMENTED IN ZEPH FOR ANALYSE TYPE > 3\n\nProgram terminates\n";
  for (const std::int32_t code : {6, 16, 106}) {
    directive_case c;
    c.m.RMAT(1).r36 = code;
    EXPECT_EQ(c.stop("4 0\n1 2\n0 1 1\n" + good_df), first_echo(4, 0) + text);
    directive_case below;
    below.m.RMAT(1).r36 = code;
    below.read("3 0\n1 2\n0 1 1\n" + good_df);
  }
  directive_case other_code, other_structure;
  other_code.m.RMAT(1).r36 = 61;
  other_code.read("4 0\n1 2\n0 1 1\n" + good_df);
  other_structure.m.RMAT(2).r36 = 6; // no pedigree
  other_structure.read("4 0\n1 2\n0 1 1\n" + good_df);
}

const std::string censored_label = "No of Right cencored traits .......................";
const std::string covariates_label = "No of Class-effect solutions used as covariates ...";

TEST(optional_directives, echo_counts_and_lists) {
  directive_case c;
  EXPECT_EQ(c.optional("2\n1\n2\n0\n0\n"), "\n" + echo(censored_label, 2) + blanks(30) + "  1          1\n" +
                                               blanks(30) + "  2          2\n\n" + echo(covariates_label, 0));
  EXPECT_EQ(c.f.asked.cens_trait, (std::vector<std::int32_t>{1, 2}));
  EXPECT_EQ(c.f.asked.irest_flag, 0);
}

TEST(optional_directives, may_end_at_each_line) {
  const std::string none = "\n" + echo(censored_label, 0), both = none + "\n" + echo(covariates_label, 0);
  for (const auto& [text, expected] : std::vector<std::pair<std::string, std::string>>{
           {"", ""}, {"0\n", none}, {"0\n0\n", both}, {"0 0 0\n0\n0\n", both}}) {
    directive_case c;
    EXPECT_EQ(c.optional(text), expected);
    EXPECT_EQ(c.s.n_IREST, 0);
  }
  directive_case list; // the file ends in the list of censored traits: no trait is echoed
  EXPECT_EQ(list.optional("2\n1\n"), "\n" + echo(censored_label, 2));
  EXPECT_TRUE(list.f.asked.cens_trait.empty());
}

TEST(optional_directives, are_positional) {
  directive_case c; // the one number is read as censored traits, never as restrictions
  EXPECT_EQ(c.optional("1\n2\n"), "\n" + echo(censored_label, 1) + blanks(30) + "  1          2\n");
  EXPECT_EQ(c.f.asked.irest_flag, 0);
  directive_case all;
  all.optional("0\n0\n1\n");
  EXPECT_EQ(all.f.asked.irest_flag, 1);
  EXPECT_EQ(all.s.n_IREST, 1); // the second class effect of trait 1
}

TEST(optional_directives, take_negative_counts_as_none) {
  directive_case c;
  EXPECT_EQ(c.optional("-2\n-1\n0\n"), "\n" + echo(censored_label, -2) + "\n" + echo(covariates_label, -1));
}

TEST(optional_directives, hold_class_effect_solutions_as_covariates) {
  directive_case c;
  c.f.asked.analysis_type = analysis::predict;
  EXPECT_EQ(c.optional("0\n2\n1 2 3\n11 12 13\n21 22 23\n2 1 0\n1\n0\n"),
            "\n" + echo(censored_label, 0) + "\n" + echo(covariates_label, 2));
  // the second entry has no covariates, so that its lists are an empty read: one line is dropped
  ASSERT_EQ(c.f.asked.FETOCV.size(), 2U);
  EXPECT_EQ(c.f.asked.FETOCV[0].trait, 1);
  EXPECT_EQ(c.f.asked.FETOCV[0].effect, 2);
  EXPECT_EQ(c.f.asked.FETOCV[0].CVNO, (std::vector<std::int32_t>{11, 12, 13}));
  EXPECT_EQ(c.f.asked.FETOCV[0].ACVNO, (std::vector<std::int32_t>{21, 22, 23}));
  EXPECT_EQ(c.f.asked.FETOCV[1].trait, 2);
  EXPECT_EQ(c.f.asked.stdef, 0);
}

TEST(optional_directives, hold_no_covariates_when_the_file_ends_before_one_of_them) {
  directive_case c;
  c.optional("0\n2\n1 2 1\n11 21\n");
  EXPECT_EQ(c.f.asked.nfeto, 0);
  EXPECT_TRUE(c.f.asked.FETOCV.empty());
  directive_case early;
  early.optional("0\n1\n");
  EXPECT_EQ(early.f.asked.nfeto, 0);
}

TEST(optional_directives, fail_in_the_lists_of_a_covariate_and_at_the_standardize_option) {
  const std::string start = "\n" + echo(censored_label, 0) + "\n" + echo(covariates_label, 1);
  for (const char* text : {"0\n1\n1 2 1\n", "0\n1\n1 2 1\n11\n", "0\n1\n1 2 1\n11 x\n",
                           "0\n1\n1 2 1\n11 21\n", "0\n1\n1 2 1\n11 21\ny\n", "0\n1\n1 2\ny\n"}) {
    directive_case c;
    EXPECT_EQ(c.optional_stop(text), start + line_error + fatal) << text;
  }
}

TEST(optional_directives, fail_at_a_text_in_place_of_a_number) {
  const std::string none = "\n" + echo(censored_label, 0), both = none + "\n" + echo(covariates_label, 0);
  for (const auto& [text, expected] :
       std::vector<std::pair<std::string, std::string>>{{"x\n", ""},
                                                        {"0\n1.5\n", none},
                                                        {"0\n0\nyes\n", both},
                                                        {"1\nx\n", "\n" + echo(censored_label, 1)}}) {
    directive_case c;
    EXPECT_EQ(c.optional_stop(text), expected + line_error + fatal) << text;
  }
}

TEST(optional_directives, refuse_more_censored_traits_than_traits) {
  directive_case c;
  EXPECT_EQ(c.optional_stop("3\n1 2 2\n"),
            "\n" + echo(censored_label, 3) +
                illegal_input_text("dir", "ncens", "3", "at most the number of traits"));
}

} // namespace
