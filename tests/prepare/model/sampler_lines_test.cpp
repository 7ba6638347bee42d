#include "prepare/model/sampler_lines.h"

#include "support/prepared_case.h"

#include <gtest/gtest.h>

namespace {

using zeph_test::prepared_case;
using words = std::vector<std::string>;

// An animal and its dam meet in three of the four records.
prepared_case calves(const std::string& run, const std::string& more = "") {
  return prepared_case("[data]\nfile = \"d.csv\"\n[run]\n" + run +
                           "[factor.genetic]\npedigree = \"p.csv\"\n[trait.bw]\n"
                           "formula = \"1 + (1 | genetic | id) + (1 | genetic | dam)\"\n" +
                           more,
                       {{"d.csv", "id,dam,x,bw\n3,2,1,30\n4,2,2,34\n5,3,3,29\n2,NA,4,31\n"},
                        {"p.csv", "animal,sire,dam\n1,0,0\n2,0,0\n3,1,2\n4,1,2\n5,1,3\n"}});
}

// A solver takes the word where levels meet, so that it converges.
TEST(sampler_lines, of_a_solver_have_exact_where_levels_meet) {
  for (const char* analysis : {"solve", "sums"}) {
    const std::string run = "analysis = \"" + std::string(analysis) + "\"\n";
    const prepared_case meeting = calves(run);
    ASSERT_TRUE(meeting.p.complete) << meeting.messages();
    EXPECT_EQ(meeting.p.sampler, words{"exact"}) << analysis;
    EXPECT_FALSE(meeting.says("meet in")) << meeting.messages();
    EXPECT_EQ(calves(run + "sampler = \"classic\"\n").p.sampler, words{}) << analysis;
    const prepared_case apart("[data]\nfile = \"d.csv\"\n[run]\n" + run +
                                  "[factor.herd]\n[trait.y]\nformula = \"1 + (1 | herd)\"\n",
                              {{"d.csv", "herd,y\n1,3\n2,4\n1,5\n2,8\n"}});
    ASSERT_TRUE(apart.p.complete) << apart.messages();
    EXPECT_EQ(apart.p.sampler, words{}) << analysis;
  }
}

TEST(sampler_lines, of_a_solver_that_can_not_be_exact_come_with_the_reasons_and_the_meeting) {
  const prepared_case c = calves("analysis = \"solve\"\ntest_level = 2\n");
  ASSERT_TRUE(c.p.complete) << c.messages();
  EXPECT_EQ(c.p.sampler, words{});
  EXPECT_TRUE(c.says("warning: levels of a factor meet in a record, and this solver can't take their newest "
                     "values, since\n"))
      << c.messages();
  EXPECT_TRUE(c.says(":5:14: test_level = 2: an exact run prints no test output above 1\n    Change that, or "
                     "set [run] sampler = \"classic\" if such a solver is what you want\n"))
      << c.messages();
  EXPECT_TRUE(c.says("two levels of genetic meet in 3 records")) << c.messages();
  EXPECT_FALSE(c.says("sampler = \"exact\" draws")) << c.messages();
}

// 12 records, six or fewer in component 1 at the start; a flat prior of two matrices of order 2 needs 6.
prepared_case mixture(const std::string& run, const std::string& upper, const std::string& residual = "") {
  std::string data = "scs\n";
  for (int i = 1; i <= 12; ++i) data += std::to_string(i * i) + "\n";
  return prepared_case("[data]\nfile = \"d.csv\"\n[run]\nanalysis = \"gibbs\"\n" + run +
                           "[trait.scs]\nformula = \"1 + shift(m)\"\n[trait.m]\nkind = \"indicator\"\n"
                           "formula = \"1\"\nfirst = { upper = " +
                           upper + " }\n[residual]\ngroups = \"m\"\n" + residual,
                       {{"d.csv", data}});
}

TEST(sampler_lines, have_no_exact_where_a_component_begins_with_fewer_records_than_a_flat_prior_needs) {
  const std::string reason = "4 of 12 in component 1 of m at the start, where a flat residual prior needs 6: "
                             "give [residual] prior_df = 4 or more, or other first memberships\n";
  const prepared_case half = mixture("", "0.5");
  ASSERT_TRUE(half.p.complete) << half.messages();
  EXPECT_EQ(half.p.sampler, (words{"exact", "state 10", "moves"}));
  const prepared_case third = mixture("", "0.34");
  ASSERT_TRUE(third.p.complete) << third.messages();
  EXPECT_EQ(third.p.sampler, (words{"state 10", "moves"}));
  EXPECT_TRUE(third.says("this chain is classic, and its limit may differ")) << third.messages();
  EXPECT_TRUE(third.says(reason)) << third.messages();
  EXPECT_TRUE(third.says("residual matrices by component and a flat prior")) << third.messages();
  const prepared_case wanted = mixture("sampler = \"exact\"\n", "0.34");
  EXPECT_FALSE(wanted.p.complete);
  EXPECT_TRUE(wanted.says("error: sampler = \"exact\": " + reason)) << wanted.messages();
  EXPECT_EQ(mixture("", "0.34", "prior_df = 4\n").p.sampler, (words{"exact", "state 10", "moves"}));
}

// What was taken since an exact chain takes it is an error once the data show that there is none.
TEST(sampler_lines, that_the_data_keep_from_exact_leave_nothing_that_needs_it) {
  const prepared_case c = mixture("density_points = 64\n", "0.34", "free = [[\"scs\", \"m\"]]\n");
  EXPECT_FALSE(c.p.complete);
  EXPECT_TRUE(c.says("4 of 12 in component 1 of m")) << c.messages();
  EXPECT_TRUE(c.says("error: [run] density_points needs sampler = \"exact\"")) << c.messages();
  EXPECT_TRUE(c.says("such a chain loses a component")) << c.messages();
}

TEST(sampler_lines, have_no_exact_where_all_sequences_end_with_an_event) {
  const auto cows = [](const std::string& last) {
    return prepared_case(
        "[data]\nfile = \"d.csv\"\n[run]\nanalysis = \"gibbs\"\n[trait.ill]\nformula = \"1\"\n"
        "kind = \"sequence\"\nsubject = \"cow\"\n[trait.risk]\nkind = \"cured\"\nof = \"ill\"\n"
        "formula = \"1\"\n",
        {{"d.csv", "cow,ill\n1,0\n1,1\n2,0\n2,1\n3,0\n3," + last + "\n"}});
  };
  EXPECT_EQ(cows("0").p.sampler, (words{"exact", "state 10", "moves"}));
  const prepared_case all = cows("1");
  ASSERT_TRUE(all.p.complete) << all.messages();
  EXPECT_EQ(all.p.sampler, (words{"state 10", "moves"}));
  EXPECT_TRUE(all.says("all sequences of ill end with an event, so that no subject is cured: make it kind = "
                       "\"binary\" and leave risk out\n"))
      << all.messages();
}

TEST(sampler_lines, without_density_points_come_with_a_note_where_records_have_three_latent_values) {
  const auto scores = [](const std::string& run, bool third) {
    std::string traits;
    for (const std::string name : {"a", "b", "c"})
      if (third || name != "c") traits += "[trait." + name + "]\nkind = \"binary\"\nformula = \"1\"\n";
    return prepared_case("[data]\nfile = \"d.csv\"\n[run]\nanalysis = \"gibbs\"\n" + run + traits,
                         {{"d.csv", "a,b,c\n0,1,1\n1,1,0\n1,0,0\n0,0,1\n1,1,1\n0,1,0\n"}});
  };
  const std::string note = "note: records with three and more latent values have no density, and py will be "
                           "NaN: [run] density_points = 256 computes it\n";
  EXPECT_TRUE(scores("", true).says(note));
  EXPECT_FALSE(scores("", false).says(note));
  EXPECT_FALSE(scores("sampler = \"classic\"\n", true).says(note));
  const prepared_case given = scores("density_points = 64\n", true);
  EXPECT_FALSE(given.says(note));
  EXPECT_EQ(given.p.sampler, (words{"exact", "state 10", "moves", "density 64"})) << given.messages();
}

// The state has thresholds and liabilities too.
TEST(sampler_lines, without_state_come_with_a_note_that_an_ordered_trait_can_not_be_continued) {
  const auto ordered = [](const std::string& run) {
    return prepared_case("[data]\nfile = \"d.csv\"\n[run]\nanalysis = \"gibbs\"\n" + run +
                             "[trait.y]\nkind = \"ordered\"\nformula = \"1\"\n",
                         {{"d.csv", "y\n1\n2\n3\n1\n2\n3\n"}});
  };
  const std::string note = "with an ordered trait the chain can't be continued; choose its length now";
  EXPECT_FALSE(ordered("").says(note));
  EXPECT_FALSE(ordered("sampler = \"classic\"\nstate_every = 5\n").says(note));
  EXPECT_TRUE(ordered("sampler = \"classic\"\n").says(note));
  EXPECT_TRUE(ordered("state_every = false\n").says(note));
}

} // namespace
