#include "prepare/description/description_words.h"
#include "prepare/description/model_description.h"

#include "prepare/description/description_checks.h"
#include "prepare/description/text_places.h"
#include "support/places.h"

#include <cmath>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

namespace zeph::prepare {
namespace {

struct result {
  model_description d;
  message_log log;
};

result read(std::string_view text) {
  result r;
  r.d = parse_description(text, "model.toml", r.log);
  return r;
}

// The messages without source lines, one per line.
std::string messages_for(const result& r) {
  std::string text;
  for (message m : r.log.entries) {
    m.source_line.clear();
    m.hint.clear();
    text += message_text(m);
  }
  return text;
}

std::string row_names(const factor_section& f) {
  std::string text;
  for (const factor_row& r : f.rows) text += r.name + " ";
  return text;
}

// A description with one trait y and one factor a, to which one thing is added.
std::string small(std::string_view more = "", std::string_view formula = "1 + sex + (1 | a)",
                  std::string_view factor = "") {
  return "[data]\nfile = \"d.csv\"\n[factor.a]\n" + std::string(factor) + "[trait.y]\nformula = \"" +
         std::string(formula) + "\"\n" + std::string(more);
}

constexpr const char* GRYPHON = R"toml(title = "Gryphons: birth weight"

[data]
file    = "gryphon.csv"
missing = ["NA"]

[factor.animal]
pedigree = "gryphonped.csv"

[trait.bwt]
formula = "1 + sex + (1 | animal)"

[run]
analysis = "gibbs"
burnin   = 10000
rounds   = 200000
interval = 20
seeds    = [1201, 707]
)toml";

constexpr const char* MATERNAL =
    R"toml(title = "Birth and weaning weight, with the dam's effect on birth weight"

[data]
file = "calves.csv"

[factor.genetic]
pedigree = { file = "pedigree.csv", animal = "id", sire = "sire", dam = "dam" }
order    = ["bwt.animal", "wwt.animal", "bwt.dam"]
start    = [[18.0,  6.0, 8.0],
            [ 6.0, 40.0, 0.0],
            [ 8.0,  0.0, 9.0]]
prior_df = 6

[factor.dampe]

[trait.bwt]
formula = "1 + sex + herd:year + (1 | genetic | animal) + (1 | genetic | dam) + (1 | dampe | dam)"

[trait.wwt]
formula = "1 + sex + herd:year + age + (1 | genetic | animal)"

[covariable.age]
center = true

[residual]
start = [[30.0, 8.0], [8.0, 60.0]]

[run]
analysis = "gibbs"
burnin   = 20000
rounds   = 400000
interval = 40
seeds    = [1202, 708]
)toml";

constexpr const char* TEST_DAY = R"toml(title = "Test-day milk"

[data]
file = "testday.csv"

[covariable.dim]
range = [5, 305]

[factor.genetic]
pedigree = "pedigree.csv"

[factor.pe]

[trait.milk]
formula = "1 + htd + season:leg(dim, 4) + (leg(dim, 2) | genetic | cow) + (leg(dim, 2) | pe | cow)"

[residual]
groups = "stage"

[run]
analysis = "gibbs"
burnin   = 50000
rounds   = 500000
interval = 50
seeds    = [1203, 709]
)toml";

constexpr const char* CALVING = R"toml(title = "Calving ease (4 classes) and birth weight"

[data]
file = "calving.csv"

[factor.genetic]
pedigree = "pedigree.csv"

[factor.herdyear]

[trait.ease]
kind       = "ordered"
categories = ["easy", "assisted", "hard", "caesarean"]
formula    = "1 + sex + parity + (1 | herdyear) + (1 | genetic | animal)"

[trait.bwt]
formula = "1 + sex + parity + (1 | herdyear) + (1 | genetic | animal)"

[run]
analysis = "gibbs"
burnin   = 20000
rounds   = 500000
interval = 50
seeds    = [1204, 710]
)toml";

constexpr const char* MIXTURE =
    R"toml(title = "Somatic cell score as a mixture of healthy and infected udders"

[data]
file = "scs.csv"

[factor.genetic]
pedigree = "pedigree.csv"

[trait.scs]
formula = "shift(infected) + 1 + herd + parity + (1 | genetic | cow)"

[trait.infected]
kind    = "indicator"
formula = "1 + (1 | genetic | cow)"
first   = { upper = 0.2, of = "scs" }

[residual]
groups = "infected"

[run]
analysis = "gibbs"
burnin   = 20000
rounds   = 200000
interval = 20
seeds    = [1205, 711]
)toml";

constexpr const char* CURE = R"toml([data]
file = "cows.csv"
[trait.ill]
kind = "sequence"
categories = ["no", "yes"]
subject = "cow"
position = "period"
formula = "1 + season + (1 | herd)"
[trait.able]
kind = "cured"
of = "ill"
formula = "1"
[trait.days]
kind = "censored"
limits = { code = "c", upper = "u" }
formula = "1 + season"
[factor.herd]
[residual]
free = [["days", "able"]]
[run]
analysis = "gibbs"
)toml";

// ---- the examples of docs/prepare.md

TEST(model_description, one_trait_with_a_pedigree_is_read) {
  const result r = read(GRYPHON);
  EXPECT_EQ(messages_for(r), "");
  EXPECT_EQ(r.d.title.value, "Gryphons: birth weight");
  EXPECT_EQ(r.d.data.file.value, "gryphon.csv");
  EXPECT_EQ(r.d.data.file.at.line, 4);
  EXPECT_EQ(r.d.data.file.at.column, 11);
  ASSERT_EQ(r.d.data.missing.size(), 1U);
  EXPECT_EQ(r.d.data.missing[0].value, "NA");
  ASSERT_EQ(r.d.factors.size(), 1U);
  const factor_section& f = r.d.factors[0];
  EXPECT_EQ(f.kind, relationship_kind::pedigree);
  EXPECT_EQ(f.pedigree.file.value, "gryphonped.csv");
  EXPECT_EQ(f.pedigree.sire.value, "sire");
  EXPECT_FALSE(f.pedigree.sire.given);
  EXPECT_FALSE(f.pedigree.selfing.value);
  EXPECT_EQ(f.at.line, 7);
  EXPECT_EQ(f.at.column, 9);
  EXPECT_EQ(row_names(f), "bwt.animal ");
  ASSERT_EQ(r.d.traits.size(), 1U);
  EXPECT_EQ(r.d.traits[0].column.value, "bwt");
  EXPECT_EQ(r.d.traits[0].kind.value, trait_kind::gaussian);
  EXPECT_TRUE(r.d.traits[0].terms.mean);
  EXPECT_EQ(effect_text(r.d.traits[0].terms.fixed.at(0)), "sex");
  EXPECT_EQ(r.d.traits[0].terms.fixed[0].covariable, -1);
  EXPECT_EQ(r.d.run.analysis.value, analysis_type::gibbs);
  EXPECT_EQ(r.d.run.burnin.value, 10000);
  EXPECT_EQ(r.d.run.rounds.value, 200000);
  EXPECT_EQ(r.d.run.interval.value, 20);
  EXPECT_EQ(r.d.run.seed_a.value, 1201);
  EXPECT_EQ(r.d.run.seed_b.value, 707);
}

TEST(model_description, two_traits_with_a_maternal_effect_are_read) {
  const result r = read(MATERNAL);
  EXPECT_EQ(messages_for(r), "");
  ASSERT_EQ(r.d.factors.size(), 2U);
  const factor_section& g = r.d.factors[0];
  EXPECT_EQ(g.name, "genetic");
  EXPECT_EQ(g.pedigree.animal.value, "id");
  EXPECT_TRUE(g.pedigree.animal.given);
  EXPECT_EQ(row_names(g), "bwt.animal wwt.animal bwt.dam ");
  EXPECT_EQ(g.rows[1].trait, 1);
  EXPECT_EQ(g.rows[2].trait, 0);
  EXPECT_EQ(g.rows[2].term, 1);
  EXPECT_EQ(g.rows[2].effect, -1);
  EXPECT_EQ(g.start.order, 3);
  const std::vector<double> start = {18, 6, 8, 6, 40, 0, 8, 0, 9};
  EXPECT_EQ(g.start.value, start);
  EXPECT_EQ(g.prior_df.value, 6);
  EXPECT_EQ(r.d.factors[1].kind, relationship_kind::identity);
  EXPECT_EQ(row_names(r.d.factors[1]), "bwt.dam ");
  ASSERT_EQ(r.d.traits.size(), 2U);
  EXPECT_EQ(r.d.traits[1].terms.fixed.at(2).covariable, 0);
  ASSERT_NE(find_covariable(r.d, "age"), nullptr);
  EXPECT_EQ(find_covariable(r.d, "age")->center.value, centering::mean);
  EXPECT_EQ(r.d.residual.start.order, 2);
  EXPECT_EQ(r.d.residual.start.value[1], 8.0);
}

TEST(model_description, random_regressions_with_residual_groups_are_read) {
  const result r = read(TEST_DAY);
  EXPECT_EQ(messages_for(r), "");
  ASSERT_EQ(r.d.factors.size(), 2U);
  EXPECT_EQ(row_names(r.d.factors[0]), "milk.leg0 milk.leg1 milk.leg2 ");
  EXPECT_EQ(row_names(r.d.factors[1]), "milk.leg0 milk.leg1 milk.leg2 ");
  for (int degree = 0; degree <= 2; ++degree) {
    EXPECT_EQ(r.d.factors[1].rows[static_cast<std::size_t>(degree)].degree, degree);
    EXPECT_EQ(r.d.factors[1].rows[static_cast<std::size_t>(degree)].effect, 0);
    EXPECT_EQ(r.d.factors[1].rows[static_cast<std::size_t>(degree)].term, 1);
  }
  const effect& nested = r.d.traits[0].terms.fixed.at(1);
  EXPECT_EQ(effect_text(nested), "season:leg(dim,4)");
  EXPECT_EQ(nested.covariable, 1);
  EXPECT_EQ(r.d.covariables.at(0).low.value, 5.0);
  EXPECT_EQ(r.d.covariables.at(0).high.value, 305.0);
  EXPECT_EQ(r.d.residual.groups.value, "stage");
}

TEST(model_description, an_ordered_trait_is_read) {
  const result r = read(CALVING);
  EXPECT_EQ(messages_for(r), "");
  ASSERT_EQ(r.d.traits.size(), 2U);
  EXPECT_EQ(r.d.traits[0].kind.value, trait_kind::ordered);
  ASSERT_EQ(r.d.traits[0].categories.size(), 4U);
  EXPECT_EQ(r.d.traits[0].categories[3].value, "caesarean");
  EXPECT_EQ(row_names(r.d.factors[0]), "ease.animal bwt.animal ");
}

TEST(model_description, a_mixture_is_read) {
  const result r = read(MIXTURE);
  EXPECT_EQ(messages_for(r), "");
  EXPECT_EQ(r.d.traits.at(0).terms.shifts.at(0).trait, "infected");
  EXPECT_EQ(r.d.traits.at(1).first_upper.value, 0.2);
  EXPECT_EQ(r.d.traits.at(1).first_of.value, "scs");
}

// The blocks of the page that begin with a title are whole descriptions.
TEST(model_description, the_examples_of_the_page_are_read_without_a_message) {
  std::ifstream page(zeph_test::source_folder() + "/docs/prepare.md");
  ASSERT_TRUE(page);
  const std::string text{std::istreambuf_iterator<char>(page), std::istreambuf_iterator<char>()};
  const std::string opening = "```toml\ntitle";
  int n = 0;
  for (std::size_t at = text.find(opening); at != std::string::npos; at = text.find(opening, at + 1)) {
    const std::size_t begin = at + opening.size() - 5;
    EXPECT_EQ(messages_for(read(text.substr(begin, text.find("```", begin) - begin))), "");
    ++n;
  }
  EXPECT_EQ(n, 5);
}

TEST(model_description, a_trait_takes_column_and_weight) {
  const result r = read(small("column = \"y1\"\nweight = \"w\"\n"));
  EXPECT_EQ(messages_for(r), "");
  EXPECT_EQ(r.d.traits[0].column.value, "y1");
  EXPECT_EQ(r.d.traits[0].weight.value, "w");
}

// ---- defaults and all keys

TEST(model_description, what_is_not_given_has_its_default) {
  const result r = read(small());
  EXPECT_EQ(messages_for(r), "");
  EXPECT_EQ(r.d.title.value, "");
  ASSERT_EQ(r.d.data.missing.size(), 1U);
  EXPECT_EQ(r.d.data.missing[0].value, "NA");
  EXPECT_FALSE(r.d.data.missing[0].given);
  EXPECT_EQ(r.d.data.decimal.value, '.');
  EXPECT_EQ(r.d.data.separator.value, ',');
  EXPECT_TRUE(r.d.data.columns.empty());
  EXPECT_EQ(r.d.factors[0].start.order, 0);
  EXPECT_EQ(r.d.factors[0].prior_df.value, 0);
  EXPECT_FALSE(r.d.residual.groups.given);
  EXPECT_EQ(r.d.keep.solutions.value, kept_solutions::none);
  EXPECT_FALSE(r.d.keep.residuals.value);
  EXPECT_EQ(r.d.run.analysis.value, analysis_type::solve);
  EXPECT_EQ(r.d.run.burnin.value, 0);
  EXPECT_EQ(r.d.run.rounds.value, 100000);
  EXPECT_EQ(r.d.run.interval.value, 1);
  EXPECT_EQ(r.d.run.seed_a.value, 0);
  EXPECT_FALSE(r.d.run.restrict_solutions.value);
  const result chain = read(small("[run]\nanalysis = \"predict\"\n"));
  EXPECT_EQ(chain.d.run.burnin.value, 10000);
  EXPECT_EQ(chain.d.run.interval.value, 10);
}

TEST(model_description, the_data_section_takes_all_its_keys) {
  const result r =
      read("[trait.y]\nformula=\"1\"\n[data]\nfile='d.csv'\nmissing=['', 'x', -999, 1_000, 1.50]\n"
           "decimal=','\nseparator='blanks'\ncolumns=['id','y']\n");
  EXPECT_EQ(messages_for(r), "");
  std::string missing;
  for (const text_value& m : r.d.data.missing) missing += m.value + " ";
  EXPECT_EQ(missing, "x -999 1000 1.50 "); // as they are in the file, without the underscore
  EXPECT_EQ(r.d.data.decimal.value, ',');
  EXPECT_EQ(r.d.data.separator.value, ' ');
  EXPECT_EQ(r.d.data.columns.size(), 2U);
  EXPECT_EQ(
      read("[trait.y]\nformula=\"1\"\n[data]\nfile='d'\nseparator='tab'\nmissing=0").d.data.separator.value,
      '\t');
  EXPECT_EQ(read("[trait.y]\nformula=\"1\"\n[data]\nfile='d'\ndecimal=','").d.data.separator.value, ';');
}

TEST(model_description, every_relationship_of_the_levels_is_read) {
  const result r = read(R"toml([data]
file = "d.csv"
[factor.p]
pedigree = { file = "p.csv", selfing = true, groups = ["G1", 2] }
[factor.q]
pedigree = { file = "p.csv", groups = "G*" }
[factor.i]
inverse = "i.txt"
[factor.r]
relationship = { file = "r.txt", form = "dense" }
[factor.d]
dominance = { file = "d.txt", form = "triplets", holds = "inverse" }
[factor.c]
correlation = "c.txt"
[trait.y]
formula = "1 + (1|p|a) + (1|q|a) + (1|i|a) + (1|r|a) + (1|d|a) + (1|c|a)"
)toml");
  EXPECT_EQ(messages_for(r), "");
  ASSERT_EQ(r.d.factors.size(), 6U);
  EXPECT_TRUE(r.d.factors[0].pedigree.selfing.value);
  ASSERT_EQ(r.d.factors[0].pedigree.group_codes.size(), 2U);
  EXPECT_EQ(r.d.factors[0].pedigree.group_codes[1].value, "2");
  EXPECT_EQ(r.d.factors[1].pedigree.group_pattern.value, "G*");
  EXPECT_EQ(r.d.factors[2].kind, relationship_kind::inverse);
  EXPECT_TRUE(r.d.factors[2].matrix.holds_inverse.value);
  EXPECT_EQ(r.d.factors[2].matrix.form.value, matrix_form::by_columns);
  EXPECT_EQ(r.d.factors[3].matrix.form.value, matrix_form::dense);
  EXPECT_FALSE(r.d.factors[3].matrix.holds_inverse.value);
  EXPECT_EQ(r.d.factors[4].matrix.form.value, matrix_form::triplets);
  EXPECT_TRUE(r.d.factors[4].matrix.holds_inverse.value);
  EXPECT_EQ(r.d.factors[5].matrix.file.value, "c.txt");
  EXPECT_EQ(word_of(r.d.factors[5].kind), "correlation");
}

TEST(model_description, blending_is_a_share_of_a_matrix_that_is_inverted) {
  const result r =
      read(small("[factor.b]\nrelationship = { file = \"G.txt\", blend = 0.01 }\n", "1 + (1|a) + (1|b)"));
  EXPECT_EQ(messages_for(r), "");
  EXPECT_TRUE(r.d.factors[1].matrix.blend.given);
  EXPECT_EQ(r.d.factors[1].matrix.blend.value, 0.01);
  EXPECT_FALSE(read(small("[factor.b]\nrelationship = \"G\"")).d.factors[1].matrix.blend.given);
  EXPECT_EQ(messages_for(
                read(small("[factor.b]\nrelationship = { file = \"G\", blend = 1 }", "1 + (1|a) + (1|b)"))),
            "model.toml:7:38: error: [factor.b] relationship blend must be from 0 to below 1\n");
  EXPECT_EQ(
      messages_for(read(small("[factor.b]\ndominance = { file = \"G\", holds = \"inverse\", blend = 0.1 }",
                              "1 + (1|a) + (1|b)"))),
      "model.toml:7:54: error: [factor.b] dominance blend needs the matrix, not its inverse\n");
}

TEST(model_description, start_matrices_may_be_full_a_triangle_or_a_number) {
  EXPECT_EQ(read(small("[residual]\nstart = 40")).d.residual.start.value, std::vector<double>{40.0});
  EXPECT_EQ(read(small("[residual]\nstart = [40]")).d.residual.start.order, 1);
  EXPECT_EQ(read(small("[residual]\nstart = [[40.5]]")).d.residual.start.value, std::vector<double>{40.5});
  const result r = read("[data]\nfile='d'\n[trait.y]\nformula='1'\n[trait.z]\nformula='1'\n"
                        "[residual]\nstart = [[4], [1, 9]]");
  EXPECT_EQ(messages_for(r), "");
  EXPECT_EQ(r.d.residual.start.value, (std::vector<double>{4, 1, 1, 9}));
}

TEST(model_description, the_residual_section_takes_all_its_keys) {
  const result r = read(R"toml([data]
file = "d.csv"
[trait.yw]
formula = "1"
[trait.fat]
formula = "1"
[residual]
start = [[77, 0], [0, 70]]
prior_df = 5
zero = [["fat", "yw"]]
groups = "class"
[residual.start_by_group]
z2 = [[70, 0], [0, 80]]
1 = [[60, 0], [0, 90]]
)toml");
  EXPECT_EQ(messages_for(r), "");
  ASSERT_EQ(r.d.residual.zero.size(), 1U);
  EXPECT_EQ(r.d.residual.zero[0].first, 0);
  EXPECT_EQ(r.d.residual.zero[0].second, 1);
  ASSERT_EQ(r.d.residual.start_by_group.size(), 2U);
  EXPECT_EQ(r.d.residual.start_by_group[0].code, "z2"); // in the order of the file
  EXPECT_EQ(r.d.residual.start_by_group[1].code, "1");
  EXPECT_EQ(r.d.residual.start_by_group[1].start.value[3], 90.0);
}

TEST(model_description, kept_solutions_are_all_none_or_named) {
  EXPECT_EQ(read(small("[keep]\nsolutions = true")).d.keep.solutions.value, kept_solutions::all);
  EXPECT_EQ(read(small("[keep]\nsolutions = false")).d.keep.solutions.value, kept_solutions::none);
  const result r = read(small("[keep]\nsolutions = [\"a\", \"sex\", \"y.sex\", \"1\"]\nresiduals = true"));
  EXPECT_EQ(messages_for(r), "");
  EXPECT_EQ(r.d.keep.solutions.value, kept_solutions::listed);
  EXPECT_EQ(r.d.keep.effects.size(), 4U);
  EXPECT_TRUE(r.d.keep.residuals.value);
  const result bad = read(small("[keep]\nsolutions = [\"sez\"]"));
  EXPECT_EQ(
      messages_for(bad),
      "model.toml:7:14: error: [keep] solutions: \"sez\" is neither a factor nor an effect; known: a, 1, "
      "y.1, sex, y.sex\n");
  EXPECT_EQ(bad.log.entries[0].hint, "did you mean \"sex\"?");
}

TEST(model_description, the_run_section_takes_all_its_keys) {
  const result r = read(small("[run]\nanalysis = \"sums\"\nrestrict = true\ntest_level = 2\ncontinue = true\n"
                              "prune = true\nrounds = 50\n"));
  EXPECT_EQ(messages_for(r), "");
  EXPECT_EQ(static_cast<int>(r.d.run.analysis.value), 1);
  EXPECT_TRUE(r.d.run.restrict_solutions.value);
  EXPECT_EQ(r.d.run.test_level.value, 2);
  EXPECT_TRUE(r.d.run.continue_chain.value);
  EXPECT_TRUE(r.d.run.prune.value);
  EXPECT_EQ(r.d.run.rounds.value, 50);
}

TEST(model_description, traits_factors_and_covariables_keep_the_order_of_the_file) {
  const result r = read("[trait.zz]\nformula='1 + x + (1|b)+(1|a)'\n[factor.b]\n[covariable.x]\n[trait.aa]\n"
                        "formula='1 + w'\n[factor.a]\n[covariable.w]\n[data]\nfile='d'\n");
  EXPECT_EQ(messages_for(r), "");
  EXPECT_EQ(r.d.traits[0].name, "zz");
  EXPECT_EQ(r.d.traits[1].name, "aa");
  EXPECT_EQ(r.d.factors[0].name, "b");
  EXPECT_EQ(r.d.covariables[0].name, "x");
  EXPECT_EQ(r.d.covariables[1].name, "w");
}

TEST(model_description, files_are_meant_from_the_folder_of_the_description) {
  message_log log;
  const model_description d = parse_description(small(), "some/where/model.toml", log);
  EXPECT_EQ(path_of(d, "d.csv"), "some/where/d.csv");
  EXPECT_EQ(path_of(d, "/abs/d.csv"), "/abs/d.csv");
}

// ---- rows of the factors

TEST(model_description, rows_are_by_trait_and_within_it_as_in_the_formula) {
  const result r =
      read("[data]\nfile='d'\n[factor.g]\n[covariable.x]\n[trait.b]\n"
           "formula='(x | g | animal) + (1 | g | dam)'\n[trait.a]\nformula='(0 + x | g | animal)'\n");
  EXPECT_EQ(messages_for(r), "");
  EXPECT_EQ(row_names(r.d.factors[0]), "b.animal b.x b.dam a.x ");
  EXPECT_EQ(r.d.factors[0].rows[1].effect, 0);
  EXPECT_EQ(r.d.factors[0].rows[1].degree, 0);
}

TEST(model_description, zero_takes_the_curve_of_degree_zero_away) {
  const result r = read(small("", "1 + (0 + leg(dim,2) | a | cow)"));
  EXPECT_EQ(row_names(r.d.factors[0]), "y.leg1 y.leg2 ");
}

TEST(model_description, powers_beside_a_covariable_have_rows_of_their_own) {
  const result r = read(small("[covariable.x]\n", "1 + (x + poly(dim,2) | a | cow)"));
  EXPECT_EQ(messages_for(r), "");
  EXPECT_EQ(row_names(r.d.factors[0]), "y.poly0 y.x y.poly1 y.poly2 ");
  EXPECT_EQ(r.d.factors[0].rows[0].effect, 1); // the 1 is carried by poly(dim,2)
}

TEST(model_description, equal_row_names_get_the_column_and_then_the_covariable) {
  const result columns = read(small("", "1 + (leg(dim,1) | a | cow) + (leg(dim,1) | a | dam)"));
  EXPECT_EQ(messages_for(columns), "");
  EXPECT_EQ(row_names(columns.d.factors[0]), "y.leg0.cow y.leg1.cow y.leg0.dam y.leg1.dam ");
  const result curves = read(small("", "1 + (leg(dim,1) + leg(age,1) | a | cow)"));
  EXPECT_EQ(messages_for(curves), "");
  EXPECT_EQ(row_names(curves.d.factors[0]), "y.leg0 y.leg1.dim.cow y.leg1.age.cow ");
}

TEST(model_description, two_mates_of_a_record_share_one_row) {
  const result r = read(small("", "1 + (1 | a | animal) + (1 | a | mate1 + mate2)"));
  EXPECT_EQ(messages_for(r), "");
  EXPECT_EQ(row_names(r.d.factors[0]), "y.animal y.mate1+mate2 ");
}

TEST(model_description, an_effect_given_twice_in_a_factor_is_an_error) {
  EXPECT_EQ(messages_for(read(small("", "1 + (1 | a | cow) + (leg(dim,1) | a | cow)"))),
            "model.toml:5:32: error: factor a has the 1 of column cow twice\n");
  EXPECT_EQ(messages_for(read(small("[covariable.x]", "1 + (x | a | cow) + (0 + x | a | cow)"))),
            "model.toml:5:32: error: factor a has x of column cow twice\n");
}

TEST(model_description, order_must_name_every_row_once) {
  const std::string formula = "1 + (1 | a | cow) + (1 | a | dam)";
  const std::string head =
      "[data]\nfile = \"d\"\n[trait.y]\nformula = \"" + formula + "\"\n[factor.a]\norder = ";
  EXPECT_EQ(row_names(read(head + "[\"y.dam\", \"y.cow\"]").d.factors[0]), "y.dam y.cow ");
  EXPECT_EQ(messages_for(read(head + "[\"y.dam\", \"y.dam\"]")),
            "model.toml:6:10: error: [factor.a] order leaves out y.cow\n"
            "model.toml:6:19: error: [factor.a] order names \"y.dam\" twice\n");
  const result r = read(head + "[\"y.dam\", \"y.cov\"]");
  EXPECT_EQ(messages_for(r),
            "model.toml:6:10: error: [factor.a] order leaves out y.cow\n"
            "model.toml:6:19: error: [factor.a] order: there is no \"y.cov\"; the rows are: y.cow, y.dam\n");
  EXPECT_EQ(r.log.entries[1].hint, "did you mean \"y.cow\"?");
}

// ---- wording and carets

TEST(model_description, an_unknown_factor_is_reported_with_caret_and_the_nearest_name) {
  const result r = read("[data]\nfile = \"d\"\n[factor.genetic]\n[factor.dampe]\n[trait.y]\n"
                        "formula = \"1 + sex + (1 | gentic | animal) + (1 | dampe | dam)\"\n");
  ASSERT_EQ(r.log.entries.size(), 1U);
  // formula = "  is 11 characters, then 15 of the formula: the g is in column 27
  EXPECT_EQ(full_text(r.log), "model.toml:6:27: error: factor \"gentic\" is not defined\n"
                              "   formula = \"1 + sex + (1 | gentic | animal) + (1 | dampe | dam)\"\n"
                              "                             ^ did you mean \"genetic\"?\n");
}

TEST(model_description, a_factor_without_a_like_name_gets_the_table_to_add) {
  const result r = read(small("", "1 + (1 | a) + (1 | litter)"));
  EXPECT_EQ(messages_for(r), "model.toml:5:31: error: factor \"litter\" is not defined\n");
  EXPECT_EQ(r.log.entries[0].hint, "add a table [factor.litter]");
}

TEST(model_description, a_fault_of_the_grammar_is_marked_at_its_column) {
  const result r = read(small("", "1 + (1 a | a)"));
  EXPECT_EQ(full_text(r.log), "model.toml:5:19: error: expected '|' and the name of a factor\n"
                              "   formula = \"1 + (1 a | a)\"\n"
                              "                     ^\n");
}

TEST(model_description, carets_are_right_in_all_kinds_of_strings) {
  const std::string head = "[data]\nfile = 'd'\n[trait.y]\n";
  const auto place = [&head](const std::string& value) {
    const result r = read(head + "formula = " + value + "\n");
    EXPECT_EQ(r.log.entries.size(), 1U) << messages_for(r);
    return std::pair{r.log.entries.at(0).at.line, r.log.entries.at(0).at.column};
  };
  using p = std::pair<int, int>;
  EXPECT_EQ(place("'1 + ?'"), p(4, 16));                // literal: 11 + 4 + 1
  EXPECT_EQ(place("\"1\\t+ ?\""), p(4, 17));            // an escape of two signs
  EXPECT_EQ(place("\"\\u0061\\u00e5 + ?\""), p(4, 27)); // 6 + 6 signs for two letters
  EXPECT_EQ(place("\"k\xC3\xB8n + ?\""), p(4, 18));     // a letter of two bytes is one column
  EXPECT_EQ(place("\"\"\"\n1 +\n ?\"\"\""), p(6, 2));
  EXPECT_EQ(place("\"\"\"1 + \\\n   \n  a + ?\"\"\""), p(6, 7));
  EXPECT_EQ(place("'''1 +\r\n ?'''"), p(5, 2));
  EXPECT_EQ(place("\"1 + \""), p(4, 16)); // at the closing quote
}

TEST(model_description, a_byte_order_mark_and_line_ends_of_two_signs_are_passed_over) {
  const result r = read("\xEF\xBB\xBF[data]\r\nfile = \"d\"\r\n[trait.y]\r\nformula = \"1 + ?\"\r\n");
  ASSERT_EQ(r.log.entries.size(), 1U);
  EXPECT_EQ(r.log.entries[0].at.column, 16);
  EXPECT_EQ(r.log.entries[0].source_line, "formula = \"1 + ?\"");
}

TEST(model_description, an_unknown_key_is_reported_with_the_known_ones) {
  const result r = read("[data]\nfile = \"d\"\nmising = [\"NA\"]\n[trait.y]\nformula = \"1\"\n");
  EXPECT_EQ(full_text(r.log),
            "model.toml:3:1: error: unknown key \"mising\" in [data]; known: file, missing, "
            "decimal, separator, columns\n"
            "   mising = [\"NA\"]\n"
            "   ^ did you mean \"missing\"?\n");
}

TEST(model_description, unknown_keys_are_reported_in_every_table) {
  const result r = read(R"toml(titel = "x"
[data]
file = "d"
[factor.a]
pedigree = { file = "p", sires = "s" }
strat = 1
[factor.b]
inverse = { file = "i", holds = "matrix" }
[trait.y]
formula = "1 + x + (1|a)+(1|b)"
limits = { cod = "c" }
first = { uper = 0.1 }
burnin = 3
[covariable.x]
centre = true
[residual]
group = "c"
[keep]
solution = true
[run]
seed = 1
[dat]
)toml");
  std::vector<std::string> first_words;
  for (const message& m : r.log.entries) first_words.push_back(m.text.substr(0, m.text.find(';')));
  const std::vector<std::string> expected = {"unknown key \"titel\"",
                                             "unknown key \"sires\" in [factor.a] pedigree",
                                             "unknown key \"strat\" in [factor.a]",
                                             "unknown key \"holds\" in [factor.b] inverse",
                                             "unknown key \"cod\" in [trait.y] limits",
                                             "unknown key \"uper\" in [trait.y] first",
                                             "unknown key \"burnin\" in [trait.y]",
                                             "unknown key \"centre\" in [covariable.x]",
                                             "unknown key \"group\" in [residual]",
                                             "unknown key \"solution\" in [keep]",
                                             "unknown key \"seed\" in [run]",
                                             "unknown key \"dat\""};
  EXPECT_EQ(first_words, expected);
  EXPECT_EQ(r.log.entries[6].hint, "\"burnin\" belongs in [run]");
  EXPECT_EQ(r.log.entries[11].hint, "did you mean \"data\"?");
}

TEST(model_description, a_value_of_the_wrong_type_is_reported_with_its_place) {
  const result r = read(R"toml(title = 3
[data]
file = ["d"]
missing = true
decimal = ";"
[factor.a]
pedigree = 7
start = "x"
prior_df = 1.5
order = 3
[trait.y]
formula = 12
weight = 1
[covariable.x]
range = [1]
center = "yes"
[residual]
zero = "y"
[keep]
solutions = 3
residuals = "no"
[run]
analysis = "gibs"
burnin = -1
rounds = 99999999999
seeds = [1]
restrict = 1
)toml");
  EXPECT_EQ(messages_for(r), R"toml(model.toml:1:9: error: title must be a text, not a whole number
model.toml:3:8: error: [data] file must be a text, not a list
model.toml:4:11: error: [data] missing must be a list of texts, not true or false
model.toml:5:11: error: unknown [data] decimal ";"; known: ., ,
model.toml:7:12: error: [factor.a] pedigree must be a file name or a table { file = .. }, not a whole number
model.toml:8:9: error: [factor.a] start must be a number, not a text
model.toml:9:12: error: [factor.a] prior_df = 1.5: the item is a whole number; the nearest are 1 and 2
model.toml:10:9: error: [factor.a] order must be a list of texts, not a whole number
model.toml:12:11: error: [trait.y] formula must be a text, not a whole number
model.toml:13:10: error: [trait.y] weight must be a text, not a whole number
model.toml:14:13: warning: [covariable.x] is used in no formula
model.toml:15:9: error: [covariable.x] range must be a list of two numbers, [low, high]
model.toml:16:10: error: [covariable.x] center must be true, false or a number, not a text
model.toml:18:8: error: [residual] zero must be a list of pairs, [["a", "b"]], not a text
model.toml:20:13: error: [keep] solutions must be true, false or a list of effects, not a whole number
model.toml:21:13: error: [keep] residuals must be true or false, not a text
model.toml:23:12: error: unknown [run] analysis "gibs"; known: solve, sums, predict, gibbs, models, jump
model.toml:24:10: error: [run] burnin = -1 must be a whole number from 0 up
model.toml:25:10: error: [run] rounds = 99999999999 must be from 1 to 2147483647
model.toml:26:9: error: [run] seeds must be a list of two whole numbers
model.toml:27:12: error: [run] restrict must be true or false, not a whole number
)toml");
}

TEST(model_description, what_is_needed_is_asked_for) {
  EXPECT_EQ(messages_for(read("")),
            "model.toml: error: there is no table [data] that names the file of the records\n"
            "model.toml: error: there is no trait; add a table [trait.NAME] with a formula\n");
  EXPECT_EQ(
      messages_for(read(
          "[data]\n[trait.y]\n[factor.a]\npedigree = { sire = \"s\" }\ninverse = { form = \"dense\" }\n")),
      "model.toml:1:2: error: [data] needs file = \"...\"\n"
      "model.toml:2:8: error: [trait.y] needs formula = \"...\"\n"
      "model.toml:4:12: error: [factor.a] pedigree needs file = \"...\"\n"
      "model.toml:5:1: error: [factor.a] has both pedigree and inverse; a factor takes one of them\n");
}

TEST(model_description, tables_that_are_no_tables_are_reported) {
  EXPECT_EQ(messages_for(read("data = 1\n[[trait]]\nformula = \"1\"\n[factor]\na = 2\n")),
            "model.toml:1:8: error: data must be a table, not a whole number\n"
            "model.toml:2:1: error: trait must be a table, not a list\n"
            "model.toml:5:5: error: [factor.a] must be a table, not a whole number\n"
            "model.toml: error: there is no trait; add a table [trait.NAME] with a formula\n");
}

TEST(model_description, faults_of_toml_itself_carry_their_place) {
  const result twice = read("[data]\nfile = \"d\"\nfile = \"e\"\n");
  ASSERT_EQ(twice.log.entries.size(), 1U);
  EXPECT_EQ(twice.log.entries[0].at.line, 3);
  const result open = read("title = \"x\n");
  ASSERT_EQ(open.log.entries.size(), 1U);
  EXPECT_EQ(open.log.entries[0].at.line, 1);
  EXPECT_EQ(open.log.entries[0].source_line, "title = \"x");
  EXPECT_EQ(exit_code(open.log), 1);
}

TEST(model_description, a_file_that_is_not_there_is_reported) {
  message_log log;
  read_description("no/such/model.toml", log);
  EXPECT_EQ(full_text(log), "no/such/model.toml: error: the file can't be read: there is no such file\n");
  read_description(".", log);
  ASSERT_EQ(log.entries.size(), 2U);
  EXPECT_EQ(message_text(log.entries[1]), ".: error: the file can't be read: it is a folder\n");
}

TEST(model_description, a_description_on_disk_is_read) {
  const std::string path = testing::TempDir() + "zeph_description_test.toml";
  std::ofstream(path) << GRYPHON;
  message_log log;
  const model_description d = read_description(path, log);
  EXPECT_TRUE(log.entries.empty());
  EXPECT_EQ(d.path, path);
  EXPECT_EQ(d.traits.size(), 1U);
  EXPECT_EQ(d.lines.at(0), "title = \"Gryphons: birth weight\"");
}

// ---- checks of meaning

TEST(model_description, a_class_on_the_left_of_a_bar_is_refused) {
  const result r = read(small("", "1 + (days | a | cow)"));
  EXPECT_EQ(messages_for(r),
            "model.toml:5:17: error: days appears on the left of '|' but is not a covariable\n");
  EXPECT_EQ(r.log.entries[0].hint, "if it is a number, add a table [covariable.days]");
  EXPECT_EQ(
      messages_for(read(small("[covariable.x]", "1 + (sex:x | a | cow)"))),
      "model.toml:5:17: error: sex:x appears on the left of '|' but is a product with a class, which is "
      "not yet "
      "supported\n");
}

TEST(model_description, two_covariables_in_one_effect_are_refused) {
  EXPECT_EQ(
      messages_for(read(small("[covariable.x]", "1 + x:leg(dim,2) + (1|a)"))),
      "model.toml:5:16: error: effect x:leg(dim,2) holds two covariables; make their product a column of the "
      "data\n");
}

TEST(model_description, a_covariable_can_not_number_levels) {
  EXPECT_EQ(messages_for(read(small("[covariable.x]", "1 + x + (1 | a | x)"))),
            "model.toml:5:29: error: x is a covariable and can't number the levels of a factor\n");
}

TEST(model_description, a_trait_can_not_explain_itself) {
  EXPECT_EQ(messages_for(read(small("", "1 + y + (1 | a)"))),
            "model.toml:5:16: error: y is the observation of this trait and can't explain itself\n");
  EXPECT_EQ(messages_for(read(small("[covariable.x]\ncolumn = \"y\"\n", "1 + x + (1 | a)"))),
            "model.toml:5:16: error: x is the observation of this trait and can't explain itself\n");
}

TEST(model_description, what_no_formula_uses_is_warned_of) {
  const result r = read(small("[covariable.x]\n[factor.unused]\nstart = [[1, 0], [0, 1]]\n"));
  EXPECT_EQ(messages_for(r), "model.toml:6:13: warning: [covariable.x] is used in no formula\n"
                             "model.toml:7:9: warning: [factor.unused] is used in no formula\n");
  EXPECT_EQ(exit_code(r.log), 0);
}

TEST(model_description, a_class_that_is_a_curve_elsewhere_is_warned_of) {
  EXPECT_EQ(messages_for(read(small("", "1 + dim + (leg(dim,1) | a | cow)"))),
            "model.toml:5:16: warning: dim is a class here and a covariable in leg or poly\n");
}

TEST(model_description, traits_of_one_column_are_warned_of) {
  EXPECT_EQ(messages_for(read(small("[trait.z]\ncolumn = \"y\"\nformula = \"1\"\n"))),
            "model.toml:6:8: warning: traits y and z read the same column y\n");
}

// [[1, 2], [2, 1]] has the eigenvalues 3 and -1; [[3, 4], [4, 3]] has 7 and -1.
TEST(model_description, a_start_that_is_not_positive_definite_is_reported_with_its_smallest_eigenvalue) {
  const std::string two = "1 + (1 | a | cow) + (1 | a | dam)";
  const std::string head = "[data]\nfile = \"d\"\n[trait.y]\nformula = \"" + two + "\"\n[factor.a]\nstart = ";
  EXPECT_EQ(messages_for(read(head + "[[1, 2], [2, 1]]")),
            "model.toml:6:9: error: [factor.a] start is not positive definite (smallest eigenvalue -1)\n");
  EXPECT_EQ(messages_for(read(head + "[[1, 1.31], [1.31, 1]]")), // 1 - 1.31
            "model.toml:6:9: error: [factor.a] start is not positive definite (smallest eigenvalue -0.31)\n");
  EXPECT_EQ(count_of(read(head + "[[1, 1], [1, 1]]").log, severity::error), 1); // singular
  EXPECT_EQ(messages_for(read(head + "[[1e12, 0], [0, 1e-12]]")), "");          // scales far apart are legal
}

TEST(model_description, matrices_of_wrong_shape_are_reported) {
  const auto first = [](const std::string& start) {
    return messages_for(read(small("[residual]\nstart = " + start)));
  };
  EXPECT_EQ(first("[[1, 0], [0, 1]]"),
            "model.toml:7:9: error: [residual] start is 2 x 2, but its order is 1: y\n");
  EXPECT_EQ(first("[[1, 2, 3], [1]]"), "model.toml:7:9: error: [residual] start must be a square matrix, "
                                       "[[..], [..]], or its lower triangle\n");
  EXPECT_EQ(first("[]"), "model.toml:7:9: error: [residual] start must be a square matrix, [[..], [..]], or "
                         "its lower triangle\n");
  EXPECT_EQ(first("[[1, 2], [3, 4]]"),
            "model.toml:7:9: error: [residual] start is not symmetric: row 1, column 2 is "
            "2, row 2, column 1 is 3\n");
  EXPECT_EQ(first("[1, 2]"),
            "model.toml:7:10: error: row 1 of [residual] start must be a list of numbers, not a "
            "whole number\n");
  EXPECT_EQ(first("[[nan]]"),
            "model.toml:7:11: error: [residual] start, row 1, column 1, must be a finite number\n");
  EXPECT_EQ(first("-inf"), "model.toml:7:9: error: [residual] start must be a finite number\n");
  EXPECT_EQ(first("0"),
            "model.toml:7:9: error: [residual] start is not positive definite (smallest eigenvalue 0)\n");
}

TEST(model_description, a_prior_df_that_acts_as_flat_is_warned_of) {
  std::string text = MATERNAL; // factor genetic has order 3
  text.replace(text.find("prior_df = 6"), 12, "prior_df = 4");
  const result r = read(text);
  EXPECT_EQ(messages_for(r),
            "model.toml:12:12: warning: [factor.genetic] prior_df = 4 with order 3 is taken as flat; give 5 "
            "or more, or 0\n");
  EXPECT_EQ(messages_for(read(small("[residual]\nprior_df = 3\n"))), "");
  EXPECT_EQ(messages_for(read(small("[residual]\nprior_df = 2\n"))),
            "model.toml:7:12: warning: [residual] prior_df = 2 with order 1 is taken as flat; give 3 or "
            "more, or 0\n");
}

// A proper prior of order q has q + 2 degrees of freedom or more; 0 is flat.
TEST(model_description, a_prior_df_with_a_fraction_names_the_nearest_legal_values_of_its_order) {
  const auto residual = [](const std::string& df) { // order 1
    return messages_for(read(small("[residual]\nprior_df = " + df + "\n")));
  };
  const auto genetic = [](const std::string& df) { // order 3
    std::string text = MATERNAL;
    text.replace(text.find("prior_df = 6"), 12, "prior_df = " + df);
    return messages_for(read(text));
  };
  const std::string whole = ": the item is a whole number; ";
  const std::string of_residual = "model.toml:7:12: error: [residual] prior_df = ",
                    of_genetic = "model.toml:12:12: error: [factor.genetic] prior_df = ";
  EXPECT_EQ(residual("3.5"), of_residual + "3.5" + whole + "the nearest are 3 and 4\n");
  EXPECT_EQ(genetic("5.25"), of_genetic + "5.25" + whole + "the nearest are 5 and 6\n");
  for (const std::string df : {"0.5", "1.5", "2.5"})
    EXPECT_EQ(residual(df), of_residual + df + whole + "with order 1 the nearest are 0 (flat) and 3\n");
  for (const std::string df : {"2.5", "4.75"})
    EXPECT_EQ(genetic(df), of_genetic + df + whole + "with order 3 the nearest are 0 (flat) and 5\n");
  EXPECT_EQ(residual("3.0"), "");
}

// ZEPH refuses more.
TEST(model_description, a_prior_df_is_at_most_2_000_000_000) {
  const auto residual = [](const std::string& df) {
    return messages_for(read(small("[residual]\nprior_df = " + df + "\n")));
  };
  for (const std::string df : {"2000000000", "2000000000.0"}) EXPECT_EQ(residual(df), "");
  EXPECT_EQ(residual("2000000001"),
            "model.toml:7:12: error: [residual] prior_df = 2000000001 must be from 0 to 2000000000\n");
  EXPECT_EQ(residual("2000000001.0"),
            "model.toml:7:12: error: [residual] prior_df must be a whole number from 0 to 2000000000\n");
}

// The rows of a factor that no formula uses are not known.
TEST(model_description, a_prior_df_with_a_fraction_and_no_order_names_its_neighbours) {
  const result r = read(small("[factor.b]\nprior_df = 1.5\n"));
  ASSERT_FALSE(r.log.entries.empty());
  EXPECT_EQ(
      message_text(r.log.entries.back()),
      "model.toml:7:12: error: [factor.b] prior_df = 1.5: the item is a whole number; the nearest are 1 "
      "and 2\n   prior_df = 1.5\n              ^ 0 is flat, and so is all up to the order of the matrix "
      "+ 1\n");
}

// The files number rounds in 32 bits: 2147483647 at most.
TEST(model_description, burn_in_and_rounds_together_are_no_more_than_rounds_can_be_numbered) {
  const std::string run = "[run]\nanalysis = \"predict\"\nburnin = 1000\nrounds = ";
  EXPECT_EQ(messages_for(read(small(run + "2147482647\n"))), "");
  EXPECT_EQ(
      messages_for(read(small(run + "2147482648\n"))),
      "model.toml:9:10: error: [run] burnin + rounds = 2147483648: rounds are numbered up to 2147483647\n");
}

// The one error has no warning of a flat prior beside it.
TEST(model_description, a_prior_df_with_a_fraction_is_one_message_in_an_analysis_over_models) {
  const result r =
      read(small("[covariable.x]\n[run]\nanalysis = \"models\"\n", "1 + (x|a)", "prior_df = 2.5\n"));
  EXPECT_EQ(messages_for(r),
            "model.toml:4:12: error: [factor.a] prior_df = 2.5: the item is a whole number; with "
            "order 2 the nearest are 0 (flat) and 4\n");
}

TEST(model_description, zero_pairs_must_name_two_traits_and_be_zero_in_the_start) {
  const std::string head =
      "[data]\nfile='d'\n[trait.yw]\nformula='1'\n[trait.fat]\nformula='1'\n[residual]\n";
  const result unknown = read(head + "zero = [['yw', 'fet']]");
  EXPECT_EQ(messages_for(unknown), "model.toml:8:16: error: [residual] zero: there is no trait \"fet\"\n");
  EXPECT_EQ(unknown.log.entries[0].hint, "did you mean \"fat\"?");
  EXPECT_EQ(messages_for(read(head + "zero = [['yw', 'yw']]")),
            "model.toml:8:9: error: [residual] zero: a pair needs two different traits\n");
  EXPECT_EQ(messages_for(read(head + "zero = [['yw']]")),
            "model.toml:8:9: error: [residual] zero must be a list of pairs of traits, [[\"a\", \"b\"]]\n");
  EXPECT_EQ(
      messages_for(read(head + "zero = [['yw', 'fat']]\nstart = [[4, 1], [1, 4]]")),
      "model.toml:9:9: error: [residual] start is 1 between yw and fat, which [residual] zero holds at 0\n");
  EXPECT_EQ(messages_for(read(head + "start_by_group = { 1 = [[4, 1], [1, 4]] }")),
            "model.toml:8:20: error: [residual] start_by_group needs groups = \"column\"\n");
}

TEST(model_description, restrictions_work_up_to_predict) {
  EXPECT_EQ(messages_for(read(small("[run]\nanalysis = \"predict\"\nrestrict = true"))), "");
  EXPECT_EQ(messages_for(read(small("[run]\nanalysis = \"gibbs\"\nrestrict = true"))),
            "model.toml:8:12: error: restrict works in the analyses solve, sums and predict, not in gibbs\n");
}

TEST(model_description, an_interval_above_the_rounds_is_warned_of) {
  EXPECT_EQ(messages_for(read(small("[run]\nanalysis = \"gibbs\"\nrounds = 5\ninterval = 6\n"))),
            "model.toml:9:12: warning: interval = 6 is above rounds = 5: no sample is kept\n");
}

TEST(model_description, seeds_keep_within_the_limits_of_the_generator) {
  EXPECT_EQ(messages_for(read(small("[run]\nseeds = [31328, 30081]"))), "");
  EXPECT_EQ(messages_for(read(small("[run]\nseeds = [31329, 30082]"))),
            "model.toml:7:10: error: [run] seeds: the first = 31329 must be from 0 to 31328\n"
            "model.toml:7:17: error: [run] seeds: the second = 30082 must be from 0 to 30081\n");
}

TEST(model_description, separator_and_decimal_can_not_be_alike) {
  EXPECT_EQ(messages_for(read("[data]\nfile='d'\ndecimal=','\nseparator=','\n[trait.y]\nformula='1'")),
            "model.toml:4:11: error: [data] separator and decimal can't both be a comma\n");
}

TEST(model_description, a_range_must_rise) {
  EXPECT_EQ(messages_for(read(small("[covariable.x]\nrange = [5, 5]", "1 + x + (1|a)"))),
            "model.toml:7:9: error: [covariable.x] range: 5 is not below 5\n");
}

TEST(model_description, more_than_twenty_traits_are_refused) {
  std::string text = "[data]\nfile='d'\n";
  for (int i = 0; i < 21; ++i) text += "[trait.t" + std::to_string(i) + "]\nformula='1'\n";
  EXPECT_EQ(messages_for(read(text)), "model.toml:43:8: error: 21 traits; at most 20 are possible\n");
}

// ---- known, but of a later version

TEST(model_description, what_is_not_yet_supported_is_refused_by_name) {
  const result r = read(R"toml([data]
file = "d"
[factor.a]
genotypes = { file = "g.bed" }
[factor.b]
single_step = "x"
[trait.y]
formula = "1 + (1|a) + (1|b)"
kind = "censored"
limits = { code = "c", upper = "u" }
[derive]
h2 = "G[a,y.a,y.a] / 2"
[run]
analysis = "gibbs"
)toml");
  EXPECT_EQ(messages_for(r),
            R"toml(model.toml:4:1: error: [factor.a] genotypes is not yet supported by this version
model.toml:6:1: error: [factor.b] single_step is not yet supported by this version
)toml");
  EXPECT_EQ(r.d.traits[0].limits_upper.value, "u");
  EXPECT_EQ(r.d.derive.at(0).text.value, "G[a,y.a,y.a] / 2");
}

TEST(model_description, jump_names_the_factors_that_it_can_not_take) {
  const result r =
      read(small("[factor.genomic]\ninverse = \"i\"\n[factor.g]\npedigree = {file = \"p\", groups = "
                 "\"G*\"}\n[run]\nanalysis = \"jump\"\n",
                 "1 + (1|a) + (1|genomic) + (1|g)"));
  EXPECT_EQ(messages_for(r),
            "model.toml:11:12: error: analysis \"jump\" takes factors with identity or pedigree only; "
            "[factor.genomic] is an inverse\n"
            "model.toml:11:12: error: analysis \"jump\" takes no phantom parent groups; [factor.g] has them\n"
            "model.toml:11:12: error: analysis \"jump\" needs a factor of two rows or more\n");
}

TEST(model_description, chains_over_models_need_a_factor_of_two_rows_and_one_pedigree_at_most) {
  for (const std::string analysis : {"models", "jump"}) {
    const std::string run = "[run]\nanalysis = \"" + analysis + "\"\n";
    EXPECT_TRUE(messages_for(read(small(run, "1 + (1|a)")))
                    .find("error: analysis \"" + analysis + "\" needs a factor of two rows or more\n") !=
                std::string::npos);
    const std::string two =
        messages_for(read(small("[factor.g]\npedigree = \"p\"\n[factor.h]\npedigree = \"q\"\n"
                                "[covariable.x]\n" +
                                    run,
                                "1 + (x|a) + (1|g) + (1|h)")));
    EXPECT_TRUE(two.find("error: analysis \"" + analysis +
                         "\" takes one factor with a pedigree; [factor.h] is the second\n") !=
                std::string::npos)
        << two;
    EXPECT_EQ(messages_for(read(small("[covariable.x]\n" + run, "1 + (x|a)", "prior_df = 4\n"))), "");
  }
}

// Rows + 1 degrees of freedom or fewer are no proper prior of a matrix, and without one the comparison of
// numbers of rows hangs on the units of the traits.
TEST(model_description, classic_chains_over_models_warn_of_factors_without_a_proper_prior) {
  const auto warned = [](const std::string& analysis, const std::string& prior, const std::string& formula) {
    return messages_for(read(small(
        "[covariable.x]\n[run]\nanalysis = \"" + analysis + "\"\nsampler = \"classic\"\n", formula, prior)));
  };
  for (const std::string analysis : {"models", "jump"}) {
    const std::string text =
        "warning: analysis \"" + analysis + "\" compares numbers of rows, and [factor.a] has ";
    const std::string end = ": the result depends on the units of the traits; give prior_df = 4 or more\n";
    EXPECT_EQ(warned(analysis, "", "1 + (x|a)"),
              "model.toml:8:12: " + text + "2 rows and a flat prior (prior_df = 0)" + end);
    for (const std::string df : {"2", "3"})
      EXPECT_EQ(warned(analysis, "prior_df = " + df + "\n", "1 + (x|a)"),
                "model.toml:4:12: " + text + "2 rows and a flat prior (prior_df = " + df + ")" + end);
    EXPECT_EQ(warned(analysis, "prior_df = 4\n", "1 + (x|a)"), "");
    // a factor of one row has no smaller model
    EXPECT_EQ(warned(analysis, "", "1 + (1|a) + (x|b)").find("[factor.a]"), std::string::npos);
  }
  EXPECT_EQ(warned("gibbs", "", "1 + (x|a)"), "");
}

TEST(model_description, classic_jump_warns_that_a_pedigree_factor_ends_the_run) {
  const std::string jump =
      messages_for(read(small("[factor.g]\npedigree = \"p\"\n[covariable.x]\n[run]\nanalysis = "
                              "\"jump\"\nsampler = \"classic\"\n",
                              "1 + (1|a) + (x|g)")));
  EXPECT_TRUE(jump.find("warning: the run ends (code 16) at the first move of [factor.g] down to one row: a "
                        "pedigree factor can't go back there\n") != std::string::npos)
      << jump;
}

TEST(model_description, an_ordered_trait_can_not_be_continued_without_its_saved_state) {
  EXPECT_EQ(messages_for(read(std::string(CALVING) + "continue = true\n")), "");
  const result r = read(std::string(CALVING) + "sampler = \"classic\"\ncontinue = true\n");
  EXPECT_EQ(messages_for(r),
            "model.toml:26:12: error: restarting is not possible with an ordered trait; remove [run] "
            "continue\n");
}

// ---- matrices

TEST(description_checks, the_smallest_eigenvalue_is_found) {
  // second differences of order 3: 2 - sqrt(2), 2, 2 + sqrt(2)
  const matrix_value m{3, {2, -1, 0, -1, 2, -1, 0, -1, 2}, {}};
  EXPECT_NEAR(smallest_eigenvalue(m), 2.0 - std::sqrt(2.0), 1e-14);
  EXPECT_TRUE(is_positive_definite(m));
}

// ---- any text

TEST(model_description, no_text_at_all_can_break_the_reading) {
  EXPECT_GT(read("a = " + std::string(100000, '[')).log.entries.size(), 0U);
  std::string dotted = "[a";
  for (int i = 0; i < 100000; ++i) dotted += ".a";
  EXPECT_EQ(messages_for(read(dotted + "]")),
            "model.toml: error: this is not a model description: a key has more than 16 dots\n");
  EXPECT_GT(read(std::string("\0\xFF\xFE", 3)).log.entries.size(), 0U);
  EXPECT_GT(read(std::string(std::size_t{17} << 20, ' ')).log.entries.size(), 0U);

  EXPECT_EQ(messages_for(read("\n[+a]")).substr(0, 20), "model.toml:2:2: erro"); // no sign of a key
  EXPECT_EQ(messages_for(read("\n\xC3\xA5ge = 1")).substr(0, 20),
            "model.toml:2:1: erro"); // a letter outside ASCII

  const std::vector<std::string> bases = {GRYPHON, MATERNAL, TEST_DAY, CALVING, MIXTURE, CURE};
  const std::string signs = "\"'[]{}=.,#\n\\ 0(|)+:-x\xC3";
  std::uint32_t state = 2024; // linear congruential generator: the same texts in every run
  const auto next = [&state](std::size_t n) {
    state = state * 1664525U + 1013904223U;
    return (state >> 8) % n;
  };
  for (int i = 0; i < 3000; ++i) {
    std::string text = bases[next(bases.size())];
    for (int k = 0; k < 3; ++k) {
      const std::size_t at = next(text.size());
      switch (next(3)) {
      case 0:
        text[at] = signs[next(signs.size())];
        break;
      case 1:
        text.erase(at, 1 + next(20));
        break;
      default:
        text.insert(at, text.substr(next(text.size()), next(30)));
        break;
      }
    }
    const result r = read(text);
    for (const message& m : r.log.entries) EXPECT_FALSE(message_text(m).empty());
  }
}

} // namespace
} // namespace zeph::prepare
