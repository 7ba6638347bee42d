#include "prepare/output/summary.h"

#include "support/prepared_case.h"

#include <gtest/gtest.h>

namespace {

using zeph_test::prepared_case;

// Two traits, a covariable, a pedigree; all numbers by hand: wwg 4.5 2.9 3.9 3.5 has mean 3.7 and squared
// deviations 0.64 0.64 0.04 0.04 (variance 1.36/3); pwg 6 8 7 has mean 7 and standard deviation 1.
const std::string TOML = R"TOML(title = "Two gains"
[data]
file = "d.csv"
[covariable.age]
center = true
[factor.animal]
pedigree = "p.csv"
prior_df = 6
start = [[20.0, 18.0], [18.0, 40.0]]
[trait.wwg]
formula = "1 + sex + (1 | animal)"
[trait.pwg]
formula = "1 + age + (1 | animal)"
[residual]
prior_df = 5
start = [[40.0, 11.0], [11.0, 30.0]]
[run]
analysis = "gibbs"
burnin = 100
rounds = 1000
)TOML";
const std::string DATA =
    "animal,sex,age,wwg,pwg\n4,M,10,4.5,6\n5,F,12,2.9,NA\n6,F,14,3.9,8\n7,M,NA,3.5,7.5\n8,NA,12,5,7\n"
    "8,M,12,NA,NA\n";
const std::string PEDIGREE = "animal,sire,dam\n4,1,0\n5,3,2\n6,1,2\n7,4,5\n8,3,6\n";

const std::string SCREEN = R"TOML(Two gains

Records of d.csv: 6 read, 5 used, 1 dropped without a trait
  wwg set missing in 1: sex is missing
  pwg set missing in 1: age is missing

Missing patterns (+ present, - missing)
   No   Records   wwg pwg
    1         2   +   +
    2         2   +   -
    3         1   -   +

Trait               Records        Mean          SD     Minimum     Maximum
wwg                       4         3.7      0.6733         2.9         4.5
pwg                       3           7           1           6           8

Trait             Fixed effect               Levels
wwg               sex                             2   smallest F with 2
pwg               mean                            1   smallest mean with 3
pwg               age                             1   regression

Covariables
  age: less 12

Random factors
  1 animal: 8 levels, pedigree, average F 0, 21 elements in the inverse
    start as given, prior degrees of freedom 6
    wwg.animal                 20
    pwg.animal                 18           40
  residual
    start as given, prior degrees of freedom 5
    wwg                        40
    pwg                        11           30

Equations 20, of them fixed 4
Design in memory: 0.0 MB (36 bytes x 5 entries x 5 records)
Analysis "gibbs": 100 rounds of burn-in, 1000 rounds, interval 10
Sampler: exact, state 10, moves
)TOML";

TEST(summary, screen_shows_records_patterns_traits_effects_factors_and_sizes) {
  const prepared_case c(TOML, {{"d.csv", DATA}, {"p.csv", PEDIGREE}});
  ASSERT_TRUE(c.p.complete) << c.messages();
  EXPECT_EQ(zeph::prepare::summary_text(c.description, c.p), SCREEN);
}

TEST(summary, details_name_the_lines_where_a_trait_was_made_missing_and_every_level) {
  const prepared_case c(TOML, {{"d.csv", DATA}, {"p.csv", PEDIGREE}});
  const std::string text = zeph::prepare::detail_text(c.description, c.p);
  EXPECT_NE(text.find("wwg set missing because sex is missing, lines of d.csv:\n 6\n"), std::string::npos)
      << text;
  EXPECT_NE(text.find("pwg set missing because age is missing, lines of d.csv:\n 5\n"), std::string::npos)
      << text;
  EXPECT_NE(text.find("sex:F                                  2  kept\n"), std::string::npos) << text;
}

} // namespace
