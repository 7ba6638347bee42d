#include "prepare/description/sampler_checks.h"

#include "prepare/description/model_description.h"

#include <gtest/gtest.h>

namespace zeph::prepare {
namespace {

struct result {
  model_description d;
  message_log log;
};

// [run] holds the lines of `run`, from line 4 on.
result read(const std::string& run, const std::string& tables) {
  result r;
  r.d = parse_description("[data]\nfile = \"d.csv\"\n[run]\n" + run + tables, "m.toml", r.log);
  return r;
}

// Messages without source lines and hints.
std::string said(const std::string& run, const std::string& tables = "[trait.y]\nformula = \"1 + (1 | a)\"\n"
                                                                     "[factor.a]\n") {
  std::string text;
  for (message m : read(run, tables).log.entries) {
    m.source_line.clear();
    m.hint.clear();
    text += message_text(m);
  }
  return text;
}

const std::string GIBBS = "analysis = \"gibbs\"\n", EXACT = GIBBS + "sampler = \"exact\"\n",
                  CLASSIC = GIBBS + "sampler = \"classic\"\n";

const std::string ROWS = "[trait.y]\nformula = \"1 + (x | a)\"\n[covariable.x]\n[factor.a]\n";
const std::string PLAIN = "[trait.y]\nformula = \"1\"\n";

TEST(sampler_words, of_a_chain_are_exact_with_a_state_every_ten_minutes_when_nothing_is_said) {
  for (const char* analysis : {"predict", "gibbs", "models", "jump"}) {
    const result r = read("analysis = \"" + std::string(analysis) + "\"\n", ROWS + "prior_df = 4\n");
    EXPECT_EQ(full_text(r.log), "");
    EXPECT_TRUE(r.d.run.is_exact()) << analysis;
    EXPECT_EQ(r.d.run.state_every.value, 10) << analysis;
    EXPECT_FALSE(r.d.run.density_points.given);
  }
}

// Whether levels meet in their records is known with the data.
TEST(sampler_words, of_a_solver_are_none_when_nothing_is_said) {
  for (const char* analysis : {"solve", "sums"}) {
    const result r = read("analysis = \"" + std::string(analysis) + "\"\n", PLAIN);
    EXPECT_FALSE(r.d.run.is_exact()) << analysis;
    EXPECT_FALSE(r.d.run.saves_state()) << analysis;
  }
}

TEST(sampler_words, of_a_chain_that_is_said_to_be_classic_save_no_state_by_themselves) {
  const result r = read(CLASSIC, PLAIN);
  EXPECT_EQ(full_text(r.log), "");
  EXPECT_FALSE(r.d.run.is_exact());
  EXPECT_FALSE(r.d.run.saves_state());
  EXPECT_EQ(read(CLASSIC + "state_every = 3\n", PLAIN).d.run.state_every.value, 3);
}

TEST(sampler_words, are_read) {
  const result r = read(EXACT + "state_every = 0\ndensity_points = 4096\n", "[trait.y]\nformula = \"1\"\n");
  EXPECT_EQ(full_text(r.log), "");
  EXPECT_TRUE(r.d.run.is_exact());
  EXPECT_TRUE(r.d.run.saves_state());
  EXPECT_EQ(r.d.run.state_every.value, 0);
  EXPECT_EQ(r.d.run.density_points.value, 4096);
  EXPECT_FALSE(read(GIBBS + "state_every = false\n", "").d.run.saves_state());
}

TEST(sampler_words, out_of_their_range_are_errors) {
  EXPECT_EQ(said(GIBBS + "state_every = -1\n"),
            "m.toml:5:15: error: [run] state_every = -1 must be from 0 to 1000000\n");
  EXPECT_EQ(said(GIBBS + "state_every = true\n"),
            "m.toml:5:15: error: [run] state_every must be false or a whole number, not true or false\n");
  EXPECT_EQ(said(EXACT + "density_points = 8\n"),
            "m.toml:6:18: error: [run] density_points = 8 must be from 16 to 4096\n");
  EXPECT_EQ(said(GIBBS + "sampler = \"precise\"\n"),
            "m.toml:5:11: error: unknown [run] sampler \"precise\"; known: classic, exact\n");
}

TEST(sampler_words, that_need_others_say_so) {
  EXPECT_EQ(said("state_every = 10\n"),
            "m.toml:4:15: error: [run] state_every: analysis \"solve\" has no chain "
            "whose state could be saved\n");
  EXPECT_EQ(said("state_every = false\n"), "");
  EXPECT_EQ(said(GIBBS + "density_points = 64\n"), "");
  EXPECT_EQ(said(CLASSIC + "density_points = 64\n"),
            "m.toml:6:18: error: [run] density_points needs sampler = \"exact\"\n");
  EXPECT_EQ(said("density_points = 64\n"),
            "m.toml:4:18: error: [run] density_points needs sampler = \"exact\"\n");
}

TEST(sampler_moves, are_on_in_chains_that_sample_the_matrices_of_one_model) {
  const auto on = [](const std::string& run) { return read(run, ROWS + "prior_df = 4\n").d.run.moves.value; };
  EXPECT_TRUE(on(GIBBS));
  EXPECT_TRUE(on(EXACT));
  EXPECT_TRUE(on(GIBBS + "test_level = 2\n")); // classic, but not said to be
  EXPECT_FALSE(on(GIBBS + "moves = false\n"));
  EXPECT_FALSE(on(CLASSIC));
  EXPECT_TRUE(on(CLASSIC + "moves = true\n"));
  for (const std::string analysis : {"solve", "sums", "predict", "models", "jump"})
    EXPECT_FALSE(on("analysis = \"" + analysis + "\"\n")) << analysis;
}

TEST(sampler_moves, may_be_asked_for_in_every_chain) {
  for (const std::string analysis : {"predict", "gibbs", "models", "jump"})
    EXPECT_EQ(said("analysis = \"" + analysis + "\"\nmoves = true\n", ROWS + "prior_df = 4\n"), "")
        << analysis;
  EXPECT_EQ(said(CLASSIC + "moves = true\n"), "");
}

TEST(sampler_moves, of_solvers_are_errors) {
  EXPECT_EQ(said("moves = true\n"),
            "m.toml:4:9: error: [run] moves: analysis \"solve\" has none, since moves belong to "
            "sampled matrices\n");
  EXPECT_EQ(
      said("analysis = \"sums\"\nmoves = true\n"),
      "m.toml:5:9: error: [run] moves: analysis \"sums\" has none, since moves belong to sampled matrices\n");
  EXPECT_EQ(said("moves = false\n"), "");
  EXPECT_EQ(said(GIBBS + "moves = 1\n"),
            "m.toml:5:9: error: [run] moves must be true or false, not a whole number\n");
}

// A round of two stages has none.
TEST(sampler_moves, are_off_where_covariables_are_made_from_solutions) {
  const std::string tables = "[covariable.size]\nsolution = \"s.herd\"\n[trait.s]\nformula = \"1 + herd\"\n"
                             "[trait.y]\nformula = \"1 + size\"\n[residual]\nzero = [[\"s\", \"y\"]]\n";
  EXPECT_FALSE(read(GIBBS, tables).d.run.moves.value);
  EXPECT_EQ(said(CLASSIC, tables), "");
  EXPECT_EQ(said(CLASSIC + "moves = false\n", tables), "");
  EXPECT_EQ(
      said(CLASSIC + "moves = true\n", tables),
      "m.toml:6:9: error: [run] moves: a round with covariables made from solutions has two stages, and no "
      "moves\n");
}

TEST(model_prior, is_one_weight_above_0_for_each_number_of_rows_of_an_exact_jump) {
  const std::string jump = "analysis = \"jump\"\nsampler = \"exact\"\n", proper = "prior_df = 6\n";
  EXPECT_EQ(said(jump, ROWS + proper + "model_prior = [3, 0.5]\n"), "");
  EXPECT_EQ(
      said(jump, ROWS + proper + "model_prior = [3]\n"),
      "m.toml:11:15: error: [factor.a] model_prior has 1 weights and 2 rows: one weight for each number of "
      "rows\n");
  EXPECT_EQ(said(jump, ROWS + proper + "model_prior = [3, 0]\n"),
            "m.toml:11:15: error: [factor.a] model_prior: weights are above 0\n");
  EXPECT_EQ(said(EXACT, ROWS + "model_prior = [3, 1]\n"),
            "m.toml:10:15: error: [factor.a] model_prior needs [run] analysis = \"jump\"\n");
  EXPECT_EQ(said(CLASSIC, ROWS + "model_prior = [3, 1]\n"),
            "m.toml:10:15: error: [factor.a] model_prior needs [run] analysis = \"jump\"\n"
            "m.toml:10:15: error: [factor.a] model_prior needs [run] sampler = \"exact\"\n");
  EXPECT_EQ(said("analysis = \"jump\"\n", ROWS + proper + "model_prior = [3, 0.5]\n"), "");
}

TEST(exact_descriptions, compare_numbers_of_rows_under_proper_priors_only) {
  const std::string jump = "analysis = \"jump\"\nsampler = \"exact\"\n";
  EXPECT_EQ(said(jump, ROWS),
            "m.toml:9:9: error: sampler = \"exact\": [factor.a] prior_df = 0 is flat, and under a flat prior "
            "the comparison of models depends on the units of the traits: give 4 or more\n");
  EXPECT_EQ(said(jump, ROWS + "prior_df = 4\n"), "");
}

TEST(exact_descriptions, with_what_no_exact_chain_exists_for_are_errors) {
  EXPECT_EQ(said(EXACT + "test_level = 2\n"), "m.toml:6:14: error: sampler = \"exact\": test_level = 2: an "
                                              "exact run prints no test output above 1\n");
  EXPECT_EQ(said(EXACT + "continue = true\nstate_every = false\n"),
            "m.toml:6:12: error: sampler = \"exact\": continue = true: an exact chain continues from its "
            "saved state alone, and state_every = false saves none\n");
  EXPECT_EQ(said(EXACT + "continue = true\n"), "");
  EXPECT_EQ(said("sampler = \"exact\"\ncontinue = true\n"),
            "m.toml:5:12: error: sampler = \"exact\": continue = true: an exact solver begins from zero\n");
  EXPECT_EQ(said(EXACT, "[trait.y]\nformula = \"1 + shift(m)\"\n[trait.m]\nkind = \"indicator\"\n"
                        "formula = \"1 + sex\"\n"),
            "m.toml:10:11: error: sampler = \"exact\": m has fixed effects beside its mean, which some "
            "allocation of the records separates: make them random\n");
}

// The graph of free pairs: y and z are joined to b, so that the pair (y, z) held at zero lies inside a part
// with a trait of unit variance.
TEST(exact_descriptions, hold_no_covariance_at_zero_inside_a_part_with_a_fixed_variance) {
  const std::string traits = "[trait.y]\nformula = \"1\"\n[trait.z]\nformula = \"1\"\n"
                             "[trait.b]\nkind = \"binary\"\nformula = \"1\"\n[residual]\n";
  EXPECT_EQ(
      said(EXACT, traits + "zero = [[\"y\", \"z\"]]\n"),
      "m.toml:14:9: error: sampler = \"exact\": no draw holds the residual covariance of y and z at zero "
      "in one part with b, whose variance is 1: free it, or hold all that join them\n");
  EXPECT_EQ(said(EXACT, traits + "zero = [[\"y\", \"z\"], [\"y\", \"b\"]]\n"), "");
  EXPECT_EQ(said(CLASSIC, traits + "zero = [[\"y\", \"z\"]]\n"), "");
}

// What the classic chain warns of or refuses and the exact one draws.
TEST(exact_descriptions, take_weights_of_latent_traits_and_free_covariances_beside_groups) {
  const std::string weight = "[trait.b]\nkind = \"binary\"\nformula = \"1\"\nweight = \"w\"\n";
  EXPECT_EQ(said(CLASSIC, weight),
            "m.toml:9:10: error: [trait.b] weight: a trait of kind binary takes no weight\n");
  EXPECT_EQ(read(CLASSIC, weight).log.entries.front().hint, "sampler = \"exact\" takes it");
  EXPECT_EQ(said(EXACT, weight), "");
  EXPECT_EQ(said(GIBBS, weight), "");
  const std::string mixture = "[trait.y]\nformula = \"1 + shift(m)\"\n[trait.m]\nkind = \"indicator\"\n"
                              "formula = \"1\"\n[residual]\ngroups = \"m\"\nfree = [[\"y\", \"m\"]]\n";
  EXPECT_NE(said(CLASSIC, mixture), "");
  EXPECT_EQ(said(EXACT, mixture), "");
  EXPECT_EQ(said(GIBBS, mixture), "");
}

const std::string REASONS = "m.toml:4:12: warning: this chain is classic, and its limit may differ from the "
                            "posterior of the model. It can't be exact, since\n";

TEST(classic_by_default, is_a_chain_that_can_not_be_exact_and_one_warning_has_all_reasons) {
  const std::string mixture = "[trait.y]\nformula = \"1 + shift(m)\"\n[trait.m]\nkind = \"indicator\"\n"
                              "formula = \"1 + sex\"\n";
  EXPECT_EQ(
      said(GIBBS + "test_level = 2\n", mixture),
      REASONS +
          "      m.toml:5:14: test_level = 2: an exact run prints no test output above 1\n"
          "      m.toml:10:11: m has fixed effects beside its mean, which some allocation of the records "
          "separates: make them random\n"
          "    Change these, or set [run] sampler = \"classic\" if such a chain is what you want\n");
  const result r = read(GIBBS, mixture);
  EXPECT_FALSE(r.d.run.is_exact());
  EXPECT_EQ(r.d.run.state_every.value, 10); // the words are independent
  EXPECT_EQ(said(CLASSIC + "test_level = 2\n", mixture), "");
}

TEST(classic_by_default, is_a_chain_over_models_with_flat_priors_as_its_warning_says) {
  EXPECT_EQ(said("analysis = \"models\"\n", ROWS),
            REASONS +
                "      m.toml:8:9: [factor.a] prior_df = 0 is flat, and under a flat prior the comparison of "
                "models "
                "depends on the units of the traits: give 4 or more\n"
                "    Change that, or set [run] sampler = \"classic\" if such a chain is what you want\n");
}

// What the classic chain can't do stays an error; the reasons say what to change instead.
TEST(classic_by_default, refuses_what_only_an_exact_chain_takes) {
  const result r =
      read(GIBBS + "test_level = 2\n", "[trait.b]\nkind = \"binary\"\nformula = \"1\"\nweight = \"w\"\n");
  ASSERT_EQ(r.log.entries.size(), 2U);
  EXPECT_NE(r.log.entries[0].text.find("It can't be exact, since\n  m.toml:5:14: test_level = 2"),
            std::string::npos);
  EXPECT_EQ(r.log.entries[1].text, "[trait.b] weight: a trait of kind binary takes no weight");
  EXPECT_EQ(r.log.entries[1].hint, "an exact chain takes it: see the warning of what prevents one");
}

// The whole state has thresholds and liabilities too.
TEST(saved_states, continue_chains_of_ordered_and_censored_traits) {
  const std::string ordered = "[trait.o]\nkind = \"ordered\"\nformula = \"1\"\n",
                    censored = "[trait.c]\nkind = \"censored\"\nlimits = { event = \"e\" }\n"
                               "formula = \"1\"\n";
  const std::string refused = "m.toml:6:12: error: restarting is not possible with an ordered trait; remove "
                              "[run] continue\n";
  EXPECT_EQ(said(CLASSIC + "continue = true\n", ordered), refused);
  EXPECT_EQ(said(CLASSIC + "continue = true\nstate_every = 10\n", ordered), "");
  EXPECT_EQ(said(GIBBS + "continue = true\n", ordered), "");
  EXPECT_EQ(said(GIBBS + "continue = true\n", censored), "");
  EXPECT_NE(said(CLASSIC + "continue = true\n", censored), "");
}

TEST(saved_states, left_out_let_a_chain_continue_as_a_classic_one) {
  EXPECT_EQ(
      said(GIBBS + "continue = true\nstate_every = false\n"),
      REASONS +
          "      m.toml:5:12: continue = true: an exact chain continues from its saved state alone, and "
          "state_every = false saves none\n"
          "    Change that, or set [run] sampler = \"classic\" if such a chain is what you want\n");
}

} // namespace
} // namespace zeph::prepare
