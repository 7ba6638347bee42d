// Observations of all kinds of traits, from the words of the data to the numbers of the files; expected
// values by hand from the data beside them.
#include "support/prepared_case.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fmt/format.h>

namespace {

using zeph_test::prepared_case;

std::string model(const std::string& trait, const std::string& more = "") {
  return "[data]\nfile = \"data.csv\"\n[run]\nanalysis = \"gibbs\"\n[trait.y]\nformula = \"1\"\n" + trait +
         more;
}

prepared_case with(const std::string& trait, const std::string& data, const std::string& more = "") {
  return prepared_case(model(trait, more), {{"data.csv", data}});
}

// Lines of RCDATA_R and RCDATA_I by column: of a trait's observation, code, upper limit.
std::vector<float> reals(const prepared_case& c, std::int32_t column) {
  return c.p.rows.reals.at(static_cast<std::size_t>(column - 1));
}
std::vector<std::int32_t> integers(const prepared_case& c, std::int32_t column) {
  return c.p.rows.integers.at(static_cast<std::size_t>(column - 1));
}

// ---- categories

TEST(trait_values, ordered_labels_become_their_places) {
  const prepared_case c = with("kind = \"ordered\"\ncategories = [\"easy\", \"hard\", \"cut\"]\n",
                               "y\ncut\neasy\nNA\nhard\neasy\n");
  ASSERT_TRUE(c.p.complete) << c.messages();
  EXPECT_EQ(c.p.model.MODEL(1).TRAIT_TYPE, 3);
  EXPECT_EQ(c.p.model.ncat, 1);
  EXPECT_EQ(reals(c, 1), (std::vector<float>{3, 1, 2, 1}));
  EXPECT_FALSE(c.says("can't be continued")) << c.messages();
}

TEST(trait_values, labels_of_an_ordered_trait_are_shown_ready_for_the_list) {
  const prepared_case c = with("kind = \"ordered\"\n", "y\nhard\neasy\nNA\ncut\neasy\n");
  EXPECT_TRUE(c.says(
      "data.csv:2: error: \"hard\" in column y is not a number: name the categories of y, the lowest first,\n"
      "    by these put in their order: categories = [\"cut\", \"easy\", \"hard\"]\n"))
      << c.messages();
}

TEST(trait_values, numbers_of_an_ordered_trait_need_no_list) {
  const prepared_case c = with("kind = \"ordered\"\n", "y\n2\n10\n2.0\n5\n");
  ASSERT_TRUE(c.p.complete) << c.messages();
  EXPECT_EQ(reals(c, 1), (std::vector<float>{1, 3, 1, 2}));
  EXPECT_EQ(c.p.data.traits[0].categories, (std::vector<std::string>{"2", "5", "10"}));
  EXPECT_TRUE(
      with("kind = \"ordered\"\n", "y\n1\n2\n1\n").says("y is ordered and has 2 categories; two are kind"));
  EXPECT_TRUE(with("kind = \"ordered\"\n", "y\n1\nb\n1\n")
                  .says("data.csv:3: error: \"b\" in column y is not a number"));
}

TEST(trait_values, an_empty_category_is_refused_by_name) {
  const prepared_case c =
      with("kind = \"ordered\"\ncategories = [\"easy\", \"assisted\", \"hard\", \"caesarean\"]\n",
           "y\neasy\nhard\nassisted\n");
  EXPECT_FALSE(c.p.complete);
  EXPECT_EQ(c.messages(), "data.csv: error: y has no record of \"caesarean\"; leave the category out\n");
}

TEST(trait_values, a_label_outside_of_the_categories_is_reported_with_its_line) {
  const prepared_case c =
      with("kind = \"ordered\"\ncategories = [\"easy\", \"hard\", \"cut\"]\n", "y\ncut\neasy\nhrad\nhard\n");
  EXPECT_TRUE(
      c.says("data.csv:4: error: \"hrad\" in column y is not a category of y; they are: easy, hard, cut\n"))
      << c.messages();
}

TEST(trait_values, one_wrong_label_is_one_error_with_the_nearest_label) {
  const std::string kind = "kind = \"ordered\"\ncategories = [\"easy\", \"hard\", \"cut\"]\n";
  const prepared_case c = with(kind, "y\ncut\neasy\nhrad\nhard\nhrad\n.\n");
  EXPECT_EQ(
      c.messages(),
      "data.csv:4: error: \"hrad\" in column y is not a category of y; they are: easy, hard, cut (2 records, "
      "lines 4, 6)\n    did you mean \"hard\"?\n"
      "data.csv:7: error: \".\" in column y is not a category of y; they are: easy, hard, cut\n"
      "    if it means that there is no value: [data] missing = [\"NA\", \".\"]\n");
}

TEST(trait_values, missing_codes_of_numbers_count_by_value) {
  const prepared_case c({"[data]\nfile = \"data.csv\"\nmissing = [-9]\n[run]\nanalysis = \"gibbs\"\n"
                         "[trait.y]\nformula = \"1\"\nkind = \"ordered\"\n"},
                        {{"data.csv", "y\n1\n2\n-9.0\n3\n"}});
  ASSERT_TRUE(c.p.complete) << c.messages();
  EXPECT_EQ(reals(c, 1), (std::vector<float>{1, 2, 3}));
}

TEST(trait_values, two_labels_become_zero_and_one) {
  const prepared_case c = with("kind = \"binary\"\ncategories = [\"N\", \"Y\"]\n", "y\nN\nY\nY\nNA\n");
  ASSERT_TRUE(c.p.complete) << c.messages();
  EXPECT_EQ(c.p.model.MODEL(1).TRAIT_TYPE, 4);
  EXPECT_EQ(reals(c, 1), (std::vector<float>{0, 1, 1}));
  EXPECT_TRUE(with("kind = \"binary\"\n", "y\n0\n1\n2\n")
                  .says("\"2\" in column y is not a category of y; they are: 0, 1\n"
                        "    name the two, categories = [\"no\", \"yes\"]; more are kind = \"ordered\"\n"));
  EXPECT_TRUE(with("kind = \"binary\"\n", "y\n1\n1\n").says("y has no record of \"0\"\n"));
}

// ---- censoring

TEST(trait_values, codes_of_censoring_are_numbers_or_words) {
  const prepared_case c =
      with("kind = \"censored\"\nlimits = { code = \"c\", upper = \"u\" }\n",
           "y,c,u\n5,0,NA\n6,right,NA\n7,-1,NA\n8,interval,9\n8,2,8\n4,none,1\n3,NA,NA\nNA,1,NA\n");
  ASSERT_TRUE(c.p.complete) << c.messages();
  const zeph::trait_record& m = c.p.model.MODEL(1);
  EXPECT_EQ(m.TRAIT_TYPE, 2);
  EXPECT_TRUE(m.L_CENS);
  EXPECT_EQ(reals(c, m.Y_RCI), (std::vector<float>{5, 6, 7, 8, 8, 4}));
  EXPECT_EQ(integers(c, m.CENS_RCI), (std::vector<std::int32_t>{0, 1, -1, 2, 0, 0})); // no width: observed
  EXPECT_EQ(reals(c, m.UPPER_RCI), (std::vector<float>{0, 0, 0, 9, 0, 0}));
}

TEST(trait_values, events_and_pairs_of_bounds_tell_censoring_too) {
  const prepared_case e =
      with("kind = \"censored\"\nlimits = { event = \"dead\" }\n", "y,dead\n5,1\n6,0\n7,1\n8,NA\n");
  ASSERT_TRUE(e.p.complete) << e.messages();
  EXPECT_EQ(integers(e, e.p.model.MODEL(1).CENS_RCI), (std::vector<std::int32_t>{0, 1, 0}));
  const prepared_case b =
      with("kind = \"censored\"\nlimits = { upper = \"u\" }\n", "y,u\n5,5\n6,NA\nNA,7\n8,9.5\nNA,NA\n");
  ASSERT_TRUE(b.p.complete) << b.messages();
  const zeph::trait_record& m = b.p.model.MODEL(1);
  EXPECT_EQ(reals(b, m.Y_RCI), (std::vector<float>{5, 6, 7, 8}));
  EXPECT_EQ(integers(b, m.CENS_RCI), (std::vector<std::int32_t>{0, 1, -1, 2}));
  EXPECT_EQ(reals(b, m.UPPER_RCI), (std::vector<float>{0, 0, 0, 9.5F}));
}

TEST(trait_values, faults_of_censoring_are_reported_with_their_lines) {
  const prepared_case c = with("kind = \"censored\"\nlimits = { code = \"c\", upper = \"u\" }\n",
                               "y,c,u\n5,2,4\n6,2,NA\n7,3,NA\n1e6,1,NA\n8,0,NA\n");
  EXPECT_EQ(
      c.messages(),
      "data.csv:4: error: \"3\" in column c is not a censoring code: -1 left, 0 none, 1 right, 2 interval\n"
      "data.csv:2: error: the upper limit 4 of y lies below the lower one, 5\n"
      "data.csv:3: error: the interval of y from 6 has no upper limit\n"
      "data.csv:5: error: 1000000 of y is too large for a censored trait: 999999 means no bound; use "
      "another unit\n");
  EXPECT_TRUE(with("kind = \"censored\"\nlimits = { event = \"e\" }\n", "y,e\n5,2\n4,1\n")
                  .says("data.csv:2: error: \"2\" in column e: 1 means that the event was observed, 0 that "
                        "it was not"));
}

// ---- mixtures

const std::string SHIFTED = "[trait.z]\nkind = \"indicator\"\n";

prepared_case mixture(const std::string& indicator, const std::string& data,
                      const std::string& residual = "") {
  return prepared_case(
      "[data]\nfile = \"data.csv\"\n[run]\nanalysis = \"gibbs\"\n[covariable.x]\n[trait.w]\n"
      "formula = \"1\"\n[trait.y]\nformula = \"x + shift(z)\"\n[trait.z]\nkind = \"indicator\"\n" +
          indicator + residual,
      {{"data.csv", data}});
}

const std::string SCORES =
    "w,x,y,k,m\n1,1,3.5,a,0\n2,1,9,a,1\n3,2,4,b,0\n4,2,8,b,1\n5,3,3,b,NA\n6,4,NA,a,1\n";

TEST(trait_values, the_largest_share_begins_in_component_one) {
  const prepared_case c = mixture("formula = \"1 + k\"\nfirst = { upper = 0.4, of = \"y\" }\n", SCORES);
  ASSERT_TRUE(c.p.complete) << c.messages();
  const zeph::model_records& m = c.p.model;
  EXPECT_EQ(m.MODEL(3).TRAIT_TYPE, 5);
  // present in all records, 2 of the 5 values are 9 and 8
  EXPECT_EQ(reals(c, m.MODEL(3).Y_RCI), (std::vector<float>{0, 1, 0, 1, 0, 0}));
  EXPECT_EQ(integers(c, m.iv_50 - 2), (std::vector<std::int32_t>{7, 7, 7, 7, 7, 5})); // masks 4 w, 2 y, 1 z
  EXPECT_TRUE(m.MODEL(2).L_MIX_TRAIT);
  EXPECT_FALSE(m.MODEL(1).L_MIX_TRAIT);
  EXPECT_EQ(m.MODEL(2).MIX_EQ_TYPE, 3);
  // the distance is the first of its regressions, its input number that of the indicator
  ASSERT_EQ(m.MODEL(2).n_reg, 2);
  EXPECT_TRUE(m.MODEL(2).REG_MIXTURE(1));
  EXPECT_FALSE(m.MODEL(2).REG_MIXTURE(2));
  EXPECT_EQ(m.MODEL(2).REG_TYPE(1), 0);
  EXPECT_EQ(m.MODEL(2).REG_INP(1), m.MODEL(3).TRAIT_INP);
  // a column of its own: the indicator's is rescaled when it is read
  EXPECT_NE(m.MODEL(2).REG_RCI(1), m.MODEL(3).Y_RCI);
  EXPECT_EQ(reals(c, m.MODEL(2).REG_RCI(1)), (std::vector<float>{0, 1, 0, 1, 0, 0}));
  EXPECT_EQ(m.residual().n_hetgr, 1);
  // covariances of w and y with z are held at zero
  EXPECT_EQ(m.n_norcov, 2);
  EXPECT_EQ(m.residual().COV_MAT(3, 3), 1.0);
  EXPECT_TRUE(m.residual().carried.L_RCOV_ZERO(3, 1));
}

TEST(trait_values, a_shift_can_be_kept_by_its_name) {
  const prepared_case c = mixture("formula = \"1\"\n", SCORES, "[keep]\nsolutions = [\"shift(z)\"]\n");
  ASSERT_TRUE(c.p.complete) << c.messages();
  ASSERT_EQ(c.p.model.n_sol_cv, 1);
  EXPECT_EQ(c.p.model.SOL_CV_EQ_NO(1), c.p.model.NBEGREG(2, 1) + 1);
}

TEST(trait_values, half_of_the_mixed_trait_begins_in_component_one_unless_said) {
  const prepared_case c = mixture("formula = \"1\"\n", SCORES);
  ASSERT_TRUE(c.p.complete) << c.messages();
  EXPECT_EQ(reals(c, 3), (std::vector<float>{0, 1, 1, 1, 0, 0})); // 3 of 5
}

TEST(trait_values, first_memberships_can_be_a_column) {
  const prepared_case c = mixture("formula = \"1\"\ncolumn = \"m\"\n", SCORES);
  ASSERT_TRUE(c.p.complete) << c.messages();
  EXPECT_EQ(reals(c, 3), (std::vector<float>{0, 1, 0, 1, 0, 1})); // a missing one is 0
}

TEST(trait_values, residual_groups_follow_the_first_memberships) {
  const prepared_case c =
      mixture("formula = \"1\"\ncolumn = \"m\"\n", SCORES,
              "[residual]\ngroups = \"z\"\nstart_by_group = { 1 = [[9, 0, 0], [0, 8, 0], [0, 0, "
              "1]] }\n");
  ASSERT_TRUE(c.p.complete) << c.messages();
  const zeph::structure_record& r = c.p.model.residual();
  EXPECT_EQ(r.CV_STRUCT, "GROUP       ");
  EXPECT_EQ(r.n_hetgr, 2);
  EXPECT_EQ(integers(c, r.HETGR_RCI), (std::vector<std::int32_t>{1, 2, 1, 2, 1, 2}));
  EXPECT_EQ(r.HETGR_CODE(1), 0);
  EXPECT_EQ(r.HETGR_CODE(2), 1);
  EXPECT_EQ(r.HETGR_COV_MAT(2, 1, 1), 9.0);
  EXPECT_TRUE(c.says("fewer than 7 records\n    in some round; [residual] prior_df = 5 or more is safer"))
      << c.messages();
}

TEST(trait_values, a_component_of_lower_mean_is_warned_of) {
  const prepared_case c =
      mixture("formula = \"1\"\ncolumn = \"m\"\n", "w,x,y,m\n1,1,9,0\n2,2,5,1\n3,4,8,0\n4,1,6,1\n");
  ASSERT_TRUE(c.p.complete) << c.messages();
  EXPECT_TRUE(c.says("component 1 of z begins with mean 5.5 of y, component 0 with 8.5")) << c.messages();
  EXPECT_TRUE(mixture("formula = \"1\"\ncolumn = \"m\"\n", "w,x,y,m\n1,1,9,0\n2,2,5,0\n3,4,8,0\n4,1,6,0\n")
                  .says("error: no record of y begins in component 1 of z"));
}

TEST(trait_values, a_mixed_trait_is_missing_with_its_indicator) {
  const prepared_case c =
      mixture("formula = \"1 + k\"\n", "w,x,y,k\n1,1,9,a\n2,2,5,NA\n3,4,8,b\n4,1,6,b\nNA,3,4,a\n");
  ASSERT_TRUE(c.p.complete) << c.messages();
  EXPECT_EQ(integers(c, c.p.model.iv_50 - 2), (std::vector<std::int32_t>{7, 4, 7, 7, 3}));
  EXPECT_TRUE(c.says("k is missing in 1 record with z: z set missing there"));
  EXPECT_TRUE(c.says("z is missing in 1 record with y: y set missing there"));
}

// ---- sequences

prepared_case cure(const std::string& data, const std::string& keys = "position = \"k\"\n",
                   const std::string& cured = "") {
  return prepared_case(
      "[data]\nfile = \"data.csv\"\n[run]\nanalysis = \"gibbs\"\n[trait.failed]\nformula = \"1\"\n"
      "kind = \"sequence\"\nsubject = \"cow\"\n" +
          keys + "[trait.able]\nkind = \"cured\"\nof = \"failed\"\nformula = \"1" + cured + "\"\n",
      {{"data.csv", data}});
}

const std::string COWS = "cow,k,failed,h\nB,2,1,p\nA,1,0,p\nB,1,0,q\nC,1,0,q\nA,3,0,q\nA,2,NA,p\nA,4,0,q\n";

TEST(trait_values, records_of_a_subject_are_together_in_their_order) {
  const prepared_case c = cure(COWS);
  ASSERT_TRUE(c.p.complete) << c.messages();
  const zeph::model_records& m = c.p.model;
  EXPECT_EQ(m.MODEL(1).TRAIT_TYPE, 7);
  EXPECT_EQ(m.MODEL(2).TRAIT_TYPE, 8);
  EXPECT_EQ(m.MODEL(1).link2, 2);
  EXPECT_EQ(m.MODEL(2).link1, 1);
  // the third record of A has no observation and leaves the sequence; B comes first in the file
  EXPECT_EQ(integers(c, m.iv_50), (std::vector<std::int32_t>{3, 1, 2, 5, 7, 4}));
  EXPECT_EQ(integers(c, m.MODEL(1).SEQ_RCI), (std::vector<std::int32_t>{1, -2, 1, 2, -3, -1}));
  EXPECT_EQ(m.n_cure_seq, 3);
  // the second trait is present at the end of each sequence; it begins as 1 where the subject failed
  EXPECT_EQ(integers(c, m.iv_50 - 2), (std::vector<std::int32_t>{2, 3, 2, 2, 3, 3}));
  EXPECT_EQ(reals(c, 1), (std::vector<float>{0, 1, 0, 0, 0, 0}));
  EXPECT_EQ(reals(c, 2), (std::vector<float>{0, 1, 0, 0, 0, 0}));
  EXPECT_EQ(m.residual().COV_MAT(1, 1), 1.0);
  EXPECT_EQ(m.residual().COV_MAT(2, 2), 1.0);
  EXPECT_EQ(m.n_norcov, 0); // the draw has no such covariance
}

TEST(trait_values, without_positions_the_order_of_the_file_counts) {
  const prepared_case c = cure(COWS, "");
  ASSERT_TRUE(c.p.complete) << c.messages();
  EXPECT_EQ(integers(c, c.p.model.iv_50), (std::vector<std::int32_t>{1, 3, 2, 5, 7, 4}));
}

TEST(trait_values, positions_out_of_order_are_refused) {
  EXPECT_EQ(cure("cow,k,failed\nA,1,0\nA,3,0\nB,1,1\nB,1,0\nC,0,1\nD,1.5,0\n").messages(),
            "data.csv:3: error: the sequence of subject A is out of order: position 3 follows 1\n"
            "data.csv:5: error: position 1 of subject B appears twice\n"
            "data.csv:6: error: position 0 of subject C: positions are whole numbers from 1\n"
            "data.csv:7: error: position 1.5 of subject D: positions are whole numbers from 1\n");
}

TEST(trait_values, a_sequence_without_columns_of_its_cured_trait_is_taken_out) {
  const prepared_case c = cure("cow,k,failed,h\nA,1,0,p\nA,2,1,NA\nB,1,0,q\nC,1,1,NA\nC,2,0,q\nD,1,0,p\n",
                               "position = \"k\"\n", " + h");
  ASSERT_TRUE(c.p.complete) << c.messages();
  EXPECT_EQ(integers(c, c.p.model.iv_50), (std::vector<std::int32_t>{3, 4, 5, 6}));
  EXPECT_TRUE(c.says("able is missing at the end of the sequence in 2 records with failed")) << c.messages();
}

TEST(trait_values, other_records_are_sequences_of_their_own) {
  const prepared_case c(
      "[data]\nfile = \"data.csv\"\n[run]\nanalysis = \"gibbs\"\n[trait.y]\nformula = "
      "\"1\"\n[trait.failed]\nformula "
      "= \"1\"\nkind = \"sequence\"\nsubject = \"cow\"\n[trait.able]\nkind = \"cured\"\nof = "
      "\"failed\"\nformula = \"1\"\n",
      {{"data.csv", "cow,failed,y\nA,0,1\nNA,NA,2\nA,1,3\nB,0,NA\nA,NA,7\n"}});
  ASSERT_TRUE(c.p.complete) << c.messages();
  EXPECT_EQ(integers(c, c.p.model.iv_50), (std::vector<std::int32_t>{1, 3, 2, 4, 5}));
  EXPECT_EQ(integers(c, c.p.model.MODEL(2).SEQ_RCI), (std::vector<std::int32_t>{1, -2, -1, -1, -1}));
}

TEST(trait_values, sequences_that_all_end_with_an_event_are_warned_of) {
  EXPECT_TRUE(cure("cow,k,failed\nA,1,0\nA,2,1\nB,1,1\n")
                  .says("all sequences of failed end with an event: the data say nothing about able"));
}

// ---- columns, start values, warnings

TEST(trait_values, an_observation_column_is_not_shared) {
  const prepared_case c("[data]\nfile = \"data.csv\"\n[run]\nanalysis = \"gibbs\"\n[trait.cd]\nkind = "
                        "\"binary\"\nformula = \"1\"\n[trait.y]\nformula = \"1 + cd\"\n[covariable.cd]\n",
                        {{"data.csv", "cd,y\n0,1\n1,2\n1,4\n0,3\n"}});
  ASSERT_TRUE(c.p.complete) << c.messages();
  EXPECT_NE(c.p.model.MODEL(2).REG_RCI(1), c.p.model.MODEL(1).Y_RCI);
  EXPECT_EQ(reals(c, c.p.model.MODEL(2).REG_RCI(1)), (std::vector<float>{0, 1, 1, 0}));
}

// Thresholds 0 and 1 of a liability with shares 0.25 below and 0.25 above: 2 x 0.6744898 standard deviations
// apart.
TEST(trait_values, start_values_are_those_of_the_liability_scale) {
  const prepared_case c(
      "[data]\nfile = \"data.csv\"\n[run]\nanalysis = \"gibbs\"\n[trait.e]\nkind = "
      "\"ordered\"\nformula = \"1 + (1 | a)\"\n[trait.cd]\nkind = \"binary\"\nformula = \"1 + (1 | "
      "a)\"\n[trait.f]\nkind = \"binary\"\ncolumn = \"cd\"\nformula = \"1\"\n[factor.a]\n",
      {{"data.csv", "e,cd,a\n1,0,1\n2,1,1\n2,1,2\n3,0,2\n"}});
  ASSERT_TRUE(c.p.complete) << c.messages();
  const double variance = 1.0 / (4.0 * 0.6744897501960817 * 0.6744897501960817);
  const zeph::model_records& m = c.p.model;
  EXPECT_NEAR(m.residual().COV_MAT(1, 1), 0.5 * variance, 1e-12);
  EXPECT_NEAR(m.RMAT(1).COV_MAT(1, 1), 0.5 * variance, 1e-12);
  EXPECT_EQ(m.residual().COV_MAT(2, 2), 1.0);
  EXPECT_EQ(m.RMAT(1).COV_MAT(2, 2), 1.0);
  EXPECT_EQ(m.residual().COV_MAT(3, 3), 1.0); // also without a factor
}

TEST(trait_values, levels_of_one_outer_category_are_warned_of) {
  const prepared_case c = with("kind = \"binary\"\n", "y,h\n0,1\n1,1\n1,2\n1,2\n0,3\n",
                               "[trait.x]\nformula = \"1\"\n"
                               "column = \"h\"\n");
  EXPECT_FALSE(c.says("one outer category"));
  const prepared_case h(
      "[data]\nfile = \"data.csv\"\n[run]\nanalysis = \"gibbs\"\n[trait.y]\nformula = \"1 + "
      "h\"\nkind = \"binary\"\n",
      {{"data.csv", "y,h\n0,1\n1,1\n1,2\n1,2\n0,3\n"}});
  EXPECT_TRUE(h.says("y has only one outer category in h:2, h:3: the solution there has no posterior"))
      << h.messages();
}

} // namespace
