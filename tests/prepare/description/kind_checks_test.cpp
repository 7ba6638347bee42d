#include "prepare/description/kind_checks.h"

#include "prepare/description/model_description.h"

#include <gtest/gtest.h>

namespace zeph::prepare {
namespace {

struct result {
  model_description d;
  message_log log;
};

// A chain over the given tables.
result read(const std::string& tables) {
  result r;
  r.d =
      parse_description("[data]\nfile = \"d.csv\"\n[run]\nanalysis = \"gibbs\"\n" + tables, "m.toml", r.log);
  return r;
}

// The same in as many lines.
result read_classic(const std::string& tables) {
  result r;
  r.d = parse_description(
      "run = { analysis = \"gibbs\", sampler = \"classic\" }\n[data]\nfile = \"d.csv\"\n\n" + tables,
      "m.toml", r.log);
  return r;
}

// Messages without source lines and hints.
std::string told_by(const result& r) {
  std::string text;
  for (message m : r.log.entries) {
    m.source_line.clear();
    m.hint.clear();
    text += message_text(m);
  }
  return text;
}
std::string messages_for(const std::string& tables) { return told_by(read(tables)); }
std::string told_of_classic(const std::string& tables) { return told_by(read_classic(tables)); }

std::string trait(const std::string& name, const std::string& keys, const std::string& formula = "1") {
  return "[trait." + name + "]\nformula = \"" + formula + "\"\n" + keys;
}

using pairs = std::vector<std::pair<int, int>>;

pairs pairs_of(const std::vector<trait_pair>& list) {
  pairs out;
  for (const trait_pair& p : list) out.emplace_back(p.first, p.second);
  return out;
}

const std::string MIXED = trait("scs", "", "shift(infected)") + trait("infected", "kind = \"indicator\"\n");
const std::string CURE = trait("failed", "kind = \"sequence\"\nsubject = \"cow\"\n") +
                         trait("able", "kind = \"cured\"\nof = \"failed\"\n");

// ---- partners

TEST(kinds, a_shift_finds_its_indicator) {
  const result r = read(MIXED);
  EXPECT_EQ(full_text(r.log), "");
  EXPECT_EQ(r.d.traits[0].indicator, 1);
  EXPECT_EQ(r.d.traits[1].indicator, -1);
  EXPECT_EQ(r.d.residual.indicator, -1);
  EXPECT_EQ(read(MIXED + "[residual]\ngroups = \"infected\"\n").d.residual.indicator, 1);
}

TEST(kinds, a_sequence_and_its_cured_trait_find_each_other) {
  const result r = read(CURE);
  EXPECT_EQ(full_text(r.log), "");
  EXPECT_EQ(r.d.traits[0].partner, 1);
  EXPECT_EQ(r.d.traits[1].partner, 0);
}

TEST(kinds, a_shift_needs_an_indicator_and_an_indicator_a_shift) {
  EXPECT_EQ(messages_for(trait("y", "", "shift(z)")), "m.toml:6:18: error: there is no trait \"z\"\n");
  EXPECT_EQ(messages_for(trait("y", "", "shift(z)") + trait("z", "")),
            "m.toml:6:18: error: shift(..) takes a trait of kind indicator, and z is of kind gaussian\n");
  EXPECT_EQ(messages_for(trait("y", "") + trait("z", "kind = \"indicator\"\n")),
            "m.toml:9:8: error: [trait.z] is an indicator, and no formula holds shift(z)\n");
}

TEST(kinds, a_mixed_trait_is_one_of_numbers_without_weight_or_random_curve) {
  const std::string z = trait("z", "kind = \"indicator\"\n");
  EXPECT_EQ(messages_for(trait("y", "kind = \"binary\"\n", "shift(z)") + z),
            "m.toml:6:12: error: shift(..) needs a trait of numbers, and y is of kind binary\n");
  EXPECT_EQ(told_of_classic(trait("y", "weight = \"w\"\n", "shift(z)") + z),
            "m.toml:7:10: error: [trait.y] weight: a trait with shift(..) takes no weight\n");
  EXPECT_EQ(messages_for(trait("y", "weight = \"w\"\n", "shift(z)") + z), "");
  EXPECT_EQ(
      messages_for(trait("y", "", "shift(z) + (x | a)") + z + "[factor.a]\n[covariable.x]\n"),
      "m.toml:6:12: error: a formula can't have both shift(..) and a random regression: its curves would "
      "be switched too\n");
  EXPECT_EQ(messages_for(trait("y", "", "shift(z) + shift(z)") + z),
            "m.toml:6:23: error: a formula holds one shift(..) at most\n");
}

TEST(kinds, the_indicator_alone_chooses_residual_groups) {
  EXPECT_EQ(
      messages_for(MIXED + "[residual]\ngroups = \"herd\"\n"),
      "m.toml:11:10: error: [residual] groups: the indicator infected chooses between two groups; name it, "
      "or leave groups out\n");
}

TEST(kinds, two_indicators_of_a_classic_chain_are_warned_of) {
  const std::string two = MIXED + trait("y", "", "shift(z)") + trait("z", "kind = \"indicator\"\n");
  EXPECT_NE(told_of_classic(two).find("m.toml:14:8: warning: more than one indicator"), std::string::npos)
      << told_of_classic(two);
  EXPECT_EQ(messages_for(two), "");
}

TEST(kinds, the_partners_of_a_sequence_are_complete) {
  EXPECT_EQ(messages_for(trait("failed", "kind = \"sequence\"\n")),
            "m.toml:7:8: error: [trait.failed] kind = \"sequence\" needs subject = \"column\"\n"
            "m.toml:7:8: error: [trait.failed] is a sequence, and no trait of kind cured names it (of = "
            "\"failed\")\n");
  EXPECT_EQ(messages_for(trait("able", "kind = \"cured\"\n")),
            "m.toml:7:8: error: [trait.able] kind = \"cured\" needs of = \"trait\"\n");
  EXPECT_EQ(messages_for(trait("y", "") + trait("able", "kind = \"cured\"\nof = \"y\"\ncolumn = \"c\"\n")),
            "m.toml:10:6: error: [trait.able] of: y is of kind gaussian, not sequence\n"
            "m.toml:11:10: error: [trait.able] a trait of kind cured is never observed and has no column\n");
  EXPECT_EQ(messages_for(CURE + trait("able2", "kind = \"cured\"\nof = \"failed\"\n")),
            "m.toml:16:6: error: [trait.able2] of: failed has its trait of kind cured already\n");
}

// ---- keys

TEST(kinds, keys_of_a_kind_need_that_kind) {
  EXPECT_EQ(messages_for(
                trait("y", "categories = [1, 2]\nlimits = {code = \"c\"}\nfirst = {upper = 2, of = \"z\"}\n"
                           "subject = \"s\"\nof = \"y\"\n")),
            "m.toml:7:15: error: [trait.y] categories need kind = \"ordered\", \"binary\" or \"sequence\"\n"
            "m.toml:8:18: error: [trait.y] limits need kind = \"censored\"\n"
            "m.toml:9:18: error: [trait.y] first needs kind = \"indicator\"\n"
            "m.toml:9:18: error: [trait.y] first: upper must be between 0 and 1\n"
            "m.toml:9:26: error: there is no trait \"z\"\n"
            "m.toml:10:11: error: [trait.y] subject and position need kind = \"sequence\"\n"
            "m.toml:11:6: error: [trait.y] of needs kind = \"cured\"\n");
}

TEST(kinds, latent_traits_of_a_classic_chain_take_no_weight) {
  for (const char* kind : {"censored", "ordered", "binary"})
    EXPECT_NE(told_of_classic(trait("y", std::string("weight = \"w\"\nlimits = {event = \"e\"}\nkind = \"") +
                                             kind + "\"\n"))
                  .find(std::string("[trait.y] weight: a trait of kind ") + kind + " takes no weight\n"),
              std::string::npos);
}

TEST(kinds, latent_traits_need_a_chain) {
  message_log log;
  parse_description("[data]\nfile = \"d\"\n[trait.y]\nformula = \"1\"\nkind = \"binary\"\n", "m.toml", log);
  ASSERT_EQ(log.entries.size(), 1U);
  EXPECT_EQ(log.entries[0].text, "kind = \"binary\" needs a chain, and [run] analysis is \"solve\"");
}

TEST(kinds, numbers_of_categories_fit_the_kind) {
  EXPECT_EQ(messages_for(trait("y", "kind = \"ordered\"\ncategories = [\"a\", \"b\"]\n")),
            "m.toml:8:15: error: [trait.y] categories: an ordered trait has three or more\n");
  EXPECT_EQ(messages_for(trait("y", "kind = \"binary\"\ncategories = [\"a\", \"b\", \"a\"]\n")),
            "m.toml:8:15: error: [trait.y] categories: kind binary has two, the one for 0 and the one for 1\n"
            "m.toml:8:25: error: [trait.y] categories names \"a\" twice\n");
}

TEST(kinds, a_censored_trait_has_one_way_to_tell_its_limits) {
  EXPECT_EQ(messages_for(trait("y", "kind = \"censored\"\n")),
            "m.toml:7:8: error: [trait.y] kind = \"censored\" needs limits = { code = \"column\", upper = "
            "\"column\" }, { event = \"column\" } or { upper = \"column\" }\n");
  EXPECT_EQ(messages_for(trait("y", "kind = \"censored\"\nlimits = {event = \"e\", upper = \"u\"}\n")),
            "m.toml:8:19: error: [trait.y] limits: event is given alone, without code and upper\n");
}

TEST(kinds, first_memberships_have_one_source) {
  EXPECT_EQ(
      messages_for(trait("y", "", "shift(z)") +
                   trait("z", "kind = \"indicator\"\ncolumn = \"m\"\nfirst = {upper = 0.2}\n")),
      "m.toml:10:10: error: [trait.z] the first memberships come from column or from first, not from both\n");
  EXPECT_EQ(messages_for(trait("y", "", "shift(z)") +
                         trait("z", "kind = \"indicator\"\nfirst = {of = \"b\"}\n") +
                         trait("b", "kind = \"binary\"\n")),
            "m.toml:10:15: error: [trait.z] first: b has no numbers, it is of kind binary\n");
}

TEST(kinds, values_that_a_continued_chain_loses_are_reported) {
  message_log log;
  parse_description(
      "[data]\nfile = \"d\"\n[trait.y]\nformula = \"1\"\nkind = \"censored\"\nlimits = { event = "
      "\"e\" }\n[run]\nanalysis = \"gibbs\"\nsampler = \"classic\"\ncontinue = true\n",
      "m.toml", log);
  ASSERT_EQ(log.entries.size(), 1U);
  EXPECT_EQ(
      log.entries[0].text,
      "the values of y (kind censored) are not kept between runs: a continued chain draws them from scratch");
}

// ---- residual (co)variances
//
// By the kinds: free variances gaussian, censored, ordered; variance 1 and free correlations binary; variance
// 1 and no covariance with the other of variance 1 indicator, sequence, cured.

TEST(kinds, an_indicator_is_held_apart_from_all_others) {
  const result r = read(MIXED + trait("cd", "kind = \"binary\"\n") + trait("y", ""));
  EXPECT_EQ(pairs_of(r.d.residual.zero), (pairs{{0, 1}, {1, 3}})); // with scs and y
  EXPECT_EQ(pairs_of(r.d.residual.apart), (pairs{{1, 2}}));        // with cd, in every draw
}

TEST(kinds, both_traits_of_a_cure_are_held_apart) {
  const result r = read(CURE + trait("y", ""));
  EXPECT_EQ(pairs_of(r.d.residual.zero), (pairs{{0, 2}, {1, 2}}));
  EXPECT_EQ(pairs_of(r.d.residual.apart), (pairs{{0, 1}}));
}

TEST(kinds, a_binary_trait_keeps_its_covariances) {
  const result r =
      read(trait("y", "") + trait("cd", "kind = \"binary\"\n") + trait("ce", "kind = \"binary\"\n"));
  EXPECT_TRUE(r.d.residual.zero.empty());
  EXPECT_TRUE(r.d.residual.apart.empty());
}

TEST(kinds, a_stated_pair_is_once_and_not_among_those_of_every_draw) {
  const result r =
      read(MIXED + trait("cd", "kind = \"binary\"\n") +
           "[residual]\nzero = [[\"scs\", \"infected\"], [\"cd\", \"infected\"], [\"scs\", \"cd\"]]\n");
  EXPECT_EQ(pairs_of(r.d.residual.zero), (pairs{{0, 1}, {0, 2}}));
  EXPECT_EQ(pairs_of(r.d.residual.apart), (pairs{{1, 2}}));
}

TEST(kinds, a_pair_can_be_left_free_with_a_warning) {
  const std::string free = "[residual]\nfree = [[\"infected\", \"scs\"]]\n";
  EXPECT_TRUE(read(MIXED + free).d.residual.zero.empty());
  EXPECT_EQ(messages_for(MIXED + free), "");
  EXPECT_EQ(told_of_classic(MIXED + free),
            "m.toml:11:9: warning: with a residual covariance of scs and infected the chain is "
            "not exact: the memberships are drawn\n    with the liability of the round "
            "before\n");
  EXPECT_EQ(
      messages_for(MIXED +
                   "[residual]\nzero = [[\"scs\", \"infected\"]]\nfree = [[\"scs\", \"infected\"]]\n"),
      "m.toml:12:9: error: [residual] holds the covariance of scs and infected at zero and leaves it free\n");
  EXPECT_EQ(told_of_classic(MIXED + "[residual]\ngroups = \"infected\"\nfree = [[\"scs\", \"infected\"]]\n"),
            "m.toml:12:9: error: [residual] free: with residual groups by infected the covariance of scs and "
            "infected stays at zero: such a chain loses a component\n");
  EXPECT_EQ(messages_for(CURE + "[residual]\nfree = [[\"failed\", \"able\"]]\n"),
            "m.toml:14:9: error: [residual] free: failed and able never have a residual covariance, by their "
            "kinds\n");
  EXPECT_EQ(messages_for(trait("y", "") + trait("x", "") + "[residual]\nfree = [[\"y\", \"x\"]]\n"),
            "m.toml:10:9: warning: [residual] free: the covariance of y and x is free anyway\n");
}

TEST(kinds, start_matrices_have_the_variance_and_the_zeros_of_the_kinds) {
  EXPECT_EQ(messages_for(MIXED + "[residual]\nstart = [[4, 0], [0, 1]]\n"), "");
  EXPECT_EQ(
      messages_for(MIXED + "[residual]\nstart = [[4, 0.5], [0.5, 2]]\n"),
      "m.toml:11:9: error: [residual] start is 2 at the variance of infected, which is 1 for kind "
      "indicator\n"
      "m.toml:11:9: error: [residual] start is 0.5 between scs and infected, which their kinds hold at 0\n");
  EXPECT_EQ(
      messages_for(MIXED + "[residual]\nstart = [[4, 0.5], [0.5, 1]]\nzero = [[\"scs\", \"infected\"]]\n"),
      "m.toml:11:9: error: [residual] start is 0.5 between scs and infected, which [residual] zero holds "
      "at 0\n");
  EXPECT_EQ(
      messages_for(MIXED + "[residual]\ngroups = \"infected\"\nstart_by_group = { 1 = [[4, 0], [0, 3]] }\n"),
      "m.toml:12:24: error: [residual] start_by_group 1 is 3 at the variance of infected, which is 1 for "
      "kind indicator\n");
}

} // namespace
} // namespace zeph::prepare
