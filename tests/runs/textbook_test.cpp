// Published examples, from their CSV files through zeph-prepare and the solver.
// Every answer agrees with the dense solution of full precision that is
// beside the published digits (README of tests/data/textbook); the variances
// are those of the source.
#include "runs/dense_relationships.h"
#include "runs/textbook_sets.h"
#include "support/check.h"

#include <gtest/gtest.h>

namespace {

using namespace zeph_test;

class textbook : public ::testing::Test {
protected:
  void take(const std::string& set) { directory.take_files_of(textbook_folder(set)); }

  prepared_run solved(const textbook_example& e) {
    if (!directory.has("data.csv")) take(e.set);
    prepared_run out = prepare_and_solve(
        directory, "[data]\nfile = \"data.csv\"\n[run]\nanalysis = \"solve\"\nrounds = 20000\n" + e.toml);
    EXPECT_TRUE(out.prepared) << out.messages;
    EXPECT_EQ(out.run.exit_code, 0) << out.run.listing;
    EXPECT_TRUE(out.run.says("GS-solver converged"));
    return out;
  }
  void holds(const textbook_example& e) {
    const prepared_run run = solved(e);
    if (run.solution.empty()) return;
    textbook_comparison comparison(e, run.solution);
    comparison.compare_solutions();
    comparison.compare_fixed_part();
    EXPECT_GT(comparison.compared, 0);
    RecordProperty("error", std::to_string(comparison.error * 1e9) + "e-9");
    RecordProperty("compared", comparison.compared);
  }

  // VanRaden 2008, first method: (M - 2p)(M - 2p)' / (2 sum p (1 - p)).
  named_matrix genomic_relationship() const {
    const csv_table g = csv_of_text(directory.read("genotypes.csv"));
    named_matrix out{{}, dense_matrix(static_cast<std::int64_t>(g.size()))};
    double scale = 0.0;
    for (std::size_t i = 0; i < g.size(); ++i) out.id.push_back(g.cell(i, "animal"));
    for (int s = 1; s <= 10; ++s) {
      const std::string marker = "s" + std::to_string(s);
      double mean = 0.0;
      for (std::size_t i = 0; i < g.size(); ++i)
        mean += number_in(g.cell(i, marker)) / static_cast<double>(g.size());
      scale += mean * (1.0 - 0.5 * mean); // 2 p (1 - p), p = mean / 2
      for (std::size_t i = 0; i < g.size(); ++i)
        for (std::size_t j = 0; j < g.size(); ++j)
          out.cells(static_cast<std::int64_t>(i) + 1, static_cast<std::int64_t>(j) + 1) +=
              (number_in(g.cell(i, marker)) - mean) * (number_in(g.cell(j, marker)) - mean);
    }
    for (double& x : out.cells.cells) x /= scale;
    return out;
  }
  // Only the animals of the reference set have records in the examples.
  void keep_reference_records() {
    std::istringstream in(directory.read("data.csv"));
    std::string line, kept;
    for (int i = 0; std::getline(in, line); ++i)
      if (i == 0 || line.ends_with("reference")) kept += line + "\n";
    directory.write("data.csv", kept);
  }

  scratch_directory directory;
};

// ---- one trait

TEST_F(textbook, example_4_1_animal_model) {
  holds({"mrode_4_1_animal",
         R"toml([trait.wwg]
formula = "1 + sex + (1 | animal)"
[factor.animal]
pedigree = "pedigree.csv"
start = 20
[residual]
start = 40
)toml",
         {{"sex", "class|wwg|sex|{l}"}, {"animal", "factor|animal|wwg.animal|{l}"}}});
}

TEST_F(textbook, example_4_2_sire_model) {
  holds({"mrode_4_2_sire",
         R"toml([trait.wwg]
formula = "1 + sex + (1 | sire)"
[factor.sire]
pedigree = "pedigree.csv"
start = 5
[residual]
start = 55
)toml",
         {{"sex", "class|wwg|sex|{l}"}, {"sire", "factor|sire|wwg.sire|{l}"}}});
}

// Sexes and groups share one mean, so that sums of a sex and an animal, and
// differences of animals and groups, are what the data determine.
TEST_F(textbook, example_4_4_phantom_groups) {
  const textbook_example e{"mrode_4_4_groups",
                           R"toml([trait.wwg]
formula = "1 + sex + (1 | animal)"
[factor.animal]
pedigree = { file = "pedigree.csv", groups = "G?" }
start = 20
[residual]
start = 40
)toml",
                           {}};
  const prepared_run run = solved(e);
  ASSERT_FALSE(run.solution.empty());
  textbook_comparison comparison(e, run.solution);
  const auto found = [&](const textbook_answer& a) {
    return run.solution.at(a.quantity == "sex" ? "class|wwg|sex|" + a.level
                                               : "factor|animal|wwg.animal|" + a.level);
  };
  const textbook_answer* first = nullptr; // animal 1
  for (const textbook_answer& a : comparison.answers)
    if (a.quantity == "animal" && a.level == "1") first = &a;
  ASSERT_NE(first, nullptr);
  for (const textbook_answer& a : comparison.answers) {
    const double sign = a.quantity == "sex" ? 1.0 : -1.0;
    comparison.hold(found(a) + sign * found(*first), a.computed + sign * first->computed,
                    comparison.largest.at("animal1"), a.quantity + " " + a.level);
  }
  EXPECT_EQ(comparison.compared, 12);
  RecordProperty("error", std::to_string(comparison.error * 1e9) + "e-9");
}

TEST_F(textbook, example_5_1_repeated_records) {
  holds({"mrode_5_1_repeatability",
         R"toml([trait.fat]
formula = "1 + hys + parity + (1 | animal) + (1 | pe | animal)"
[factor.animal]
pedigree = "pedigree.csv"
start = 20
[factor.pe]
start = 12
[residual]
start = 28
)toml",
         {{"animal", "factor|animal|fat.animal|{l}"}, {"pe", "factor|pe|fat.animal|{l}"}},
         {{"hys", "hys", "class|fat|hys|{l}"}, {"parity", "parity", "class|fat|parity|{l}"}},
         {"1"},
         "fat"});
}

TEST_F(textbook, example_5_2_common_environment) {
  holds({"mrode_5_2_litter",
         R"toml([trait.ww]
formula = "1 + sex + (1 | animal) + (1 | litter | dam)"
[factor.animal]
pedigree = "pedigree.csv"
start = 20
[factor.litter]
start = 15
[residual]
start = 65
)toml",
         {{"sex", "class|ww|sex|{l}"},
          {"animal", "factor|animal|ww.animal|{l}"},
          {"litter", "factor|litter|ww.dam|{l}"}}});
}

// ---- several traits

const char* const two_traits = R"toml([trait.wwg]
formula = "1 + sex + (1 | animal)"
[trait.pwg]
formula = "1 + sex + (1 | animal)"
[factor.animal]
pedigree = "pedigree.csv"
start = [[20, 18], [18, 40]]
[residual]
start = [[40, 11], [11, 30]]
)toml";

TEST_F(textbook, example_6_1_two_traits) {
  holds({"mrode_6_1_two_traits",
         two_traits,
         {{"sex", "class|{t}|sex|{l}"}, {"animal", "factor|animal|{t}.animal|{l}"}}});
}

TEST_F(textbook, example_6_2_missing_records) {
  holds({"mrode_6_2_missing",
         two_traits,
         {{"sex", "class|{t}|sex|{l}"}, {"animal", "factor|animal|{t}.animal|{l}"}}});
}

TEST_F(textbook, example_6_3_unequal_models) {
  holds({"mrode_6_3_unequal",
         R"toml([trait.fat1]
formula = "1 + hys1 + (1 | animal)"
[trait.fat2]
formula = "1 + hys2 + (1 | animal)"
[factor.animal]
pedigree = "pedigree.csv"
start = [[35, 28], [28, 30]]
[residual]
start = [[65, 27], [27, 70]]
)toml",
         {{"hys1", "class|fat1|hys1|{l}"},
          {"hys2", "class|fat2|hys2|{l}"},
          {"animal", "factor|animal|{t}.animal|{l}"}}});
}

TEST_F(textbook, example_6_4_no_residual_covariance) {
  holds({"mrode_6_4_no_residual_cov",
         R"toml([trait.yw]
formula = "1 + hys + (1 | animal)"
[trait.fat]
formula = "1 + hys + (1 | animal)"
[factor.animal]
pedigree = "pedigree.csv"
start = [[43, 18], [18, 30]]
[residual]
start = [[77, 0], [0, 70]]
zero = [["yw", "fat"]]
)toml",
         {{"hys", "class|{t}|hys|{l}"}, {"animal", "factor|animal|{t}.animal|{l}"}}});
}

// A linear model for a trait of 0 and 1 beside a Gaussian one. The pedigree has
// sires and maternal grandsires, so the relationship is made here.
TEST_F(textbook, example_15_2_linear_model_of_a_binary_trait) {
  take("mrode_15_2_linear_binary");
  directory.write("relationship.txt",
                  triplets_of(sire_relationship(csv_of_text(directory.read("pedigree_sire_mgs.csv")))));
  holds({"mrode_15_2_linear_binary",
         R"toml([trait.bw]
formula = "1 + origin + season + sex + (1 | sire)"
[trait.cd]
formula = "1 + origin + season + sex + (1 | sire)"
[factor.sire]
relationship = "relationship.txt"
start = [[0.7178, 0.1131], [0.1131, 0.0466]]
[residual]
start = [[20, 2.089], [2.089, 1.036]]
)toml",
         {{"sire", "factor|sire|{t}.sire|{l}"}},
         {{"origin", "origin", "class|{t}|origin|{l}"},
          {"season", "season", "class|{t}|season|{l}"},
          {"sex", "sex", "class|{t}|sex|{l}"}},
         {"bw", "cd"}});
}

// ---- several effects in one factor

TEST_F(textbook, example_8_1_maternal_effects) {
  holds({"mrode_8_1_maternal",
         R"toml([trait.bw]
formula = "1 + herd + pen + (1 | genetic | animal) + (1 | genetic | dam) + (1 | mpe | dam)"
[factor.genetic]
pedigree = "pedigree.csv"
start = [[150, -40], [-40, 90]]
[factor.mpe]
start = 40
[residual]
start = 350
)toml",
         {{"direct", "factor|genetic|bw.animal|{l}"},
          {"maternal", "factor|genetic|bw.dam|{l}"},
          {"mpe", "factor|mpe|bw.dam|{l}"}},
         {{"herd", "herd", "class|bw|herd|{l}"}, {"pen", "pen", "class|bw|pen|{l}"}},
         {"1"},
         "bw"});
}

TEST_F(textbook, example_9_1_social_effects) {
  holds({"mrode_9_1_social",
         R"toml([trait.gr]
formula = "1 + sex + (1 | genetic | animal) + (1 | genetic | mate1 + mate2) + (1 | pen) + (1 | litter)"
[factor.genetic]
pedigree = "pedigree.csv"
start = [[25.7, 2.25], [2.25, 3.6]]
[factor.pen]
start = 12.12
[factor.litter]
start = 12.5
[residual]
start = 48.48
)toml",
         {{"sex", "class|gr|sex|{l}"},
          {"direct", "factor|genetic|gr.animal|{l}"},
          {"social", "factor|genetic|gr.mate1+mate2|{l}"},
          {"pen", "factor|pen|gr.pen|{l}"},
          {"litter", "factor|litter|gr.litter|{l}"}}});
}

// ---- test-day records: curves over the days 4 to 310

const std::vector<fixed_column> test_day_curve = {{"htd", "htd", "class|fat|htd|{l}"},
                                                  {"curve", "p0", "no equation of its own", true},
                                                  {"curve", "p1", "regression|fat|dim.leg1|", true},
                                                  {"curve", "p2", "regression|fat|dim.leg2|", true},
                                                  {"curve", "p3", "regression|fat|dim.leg3|", true},
                                                  {"curve", "p4", "regression|fat|dim.leg4|", true}};

TEST_F(textbook, example_10_1_fixed_curve) {
  holds({"mrode_10_1_fixed_regression",
         R"toml([trait.fat]
formula = "1 + htd + leg(dim, 4) + (1 | animal) + (1 | pe | animal)"
[covariable.dim]
range = [4, 310]
[factor.animal]
pedigree = "pedigree.csv"
start = 5.521
[factor.pe]
start = 8.470
[residual]
start = 3.710
)toml",
         {{"animal", "factor|animal|fat.animal|{l}"}, {"pe", "factor|pe|fat.animal|{l}"}},
         test_day_curve,
         {"1"},
         "fat"});
}

TEST_F(textbook, example_10_2_random_curves) {
  holds({"mrode_10_2_random_regression",
         R"toml([trait.fat]
formula = "1 + htd + leg(dim, 4) + (leg(dim, 2) | animal) + (leg(dim, 2) | pe | animal)"
[covariable.dim]
range = [4, 310]
[factor.animal]
pedigree = "pedigree.csv"
start = [[3.297, 0.594, -1.381], [0.594, 0.921, -0.289], [-1.381, -0.289, 1.005]]
[factor.pe]
start = [[6.872, -0.254, -1.101], [-0.254, 3.171, 0.167], [-1.101, 0.167, 2.457]]
[residual]
start = 3.710
)toml",
         {{"animal_p0", "factor|animal|fat.leg0|{l}"},
          {"animal_p1", "factor|animal|fat.leg1|{l}"},
          {"animal_p2", "factor|animal|fat.leg2|{l}"},
          {"pe_p0", "factor|pe|fat.leg0|{l}"},
          {"pe_p1", "factor|pe|fat.leg1|{l}"},
          {"pe_p2", "factor|pe|fat.leg2|{l}"}},
         test_day_curve,
         {"1"},
         "fat"});
}

// ---- matrices made here

TEST_F(textbook, example_11_3_genomic_relationship) {
  take("mrode_11_3_gblup");
  named_matrix g = genomic_relationship();
  for (std::int64_t i = 1; i <= g.cells.n; ++i) g.cells(i, i) += 0.01;
  directory.write("relationship.txt", square_of(g));
  keep_reference_records();
  holds({"mrode_11_3_gblup",
         R"toml([trait.dyd]
formula = "1 + (1 | animal)"
[factor.animal]
relationship = { file = "relationship.txt", form = "dense" }
start = 35.241
[residual]
start = 245
)toml",
         {{"mean", "class|dyd|mean|mean"}, {"animal", "factor|animal|dyd.animal|{l}"}}});
}

// Blended 0.95 G + 0.05 A22, then a + b G with the means of diagonal and
// off-diagonal elements of A22 (Christensen et al. 2012); H^-1 is A^-1 with
// G^-1 - A22^-1 added among the genotyped.
TEST_F(textbook, example_12_1_single_step) {
  take("mrode_12_1_single_step");
  const named_matrix a = tabular_relationship(ordered_pedigree(csv_of_text(directory.read("pedigree.csv"))));
  const named_matrix genomic = genomic_relationship();
  const std::int64_t n = genomic.cells.n;
  const auto place = [&](std::int64_t i) { return a.row_of(genomic.id[static_cast<std::size_t>(i - 1)]); };
  dense_matrix a22(n), g(n);
  double trace_a = 0.0, trace_g = 0.0, sum_a = 0.0, sum_g = 0.0;
  for (std::int64_t i = 1; i <= n; ++i)
    for (std::int64_t j = 1; j <= n; ++j) {
      a22(i, j) = a.cells(place(i), place(j));
      g(i, j) = 0.95 * genomic.cells(i, j) + 0.05 * a22(i, j);
      (i == j ? trace_a : sum_a) += a22(i, j);
      (i == j ? trace_g : sum_g) += g(i, j);
    }
  const auto order = static_cast<double>(n), pairs = order * (order - 1.0);
  const double slope = (trace_a / order - sum_a / pairs) / (trace_g / order - sum_g / pairs);
  const double shift = (trace_a - slope * trace_g) / order;
  for (double& x : g.cells) x = shift + slope * x;
  EXPECT_NEAR(shift, 0.202, 0.0005); // as printed in the source
  EXPECT_NEAR(slope, 0.709, 0.0005);
  named_matrix h = inverse_of(a);
  const dense_matrix g_inverse = dense_inverse(g).inverse, a22_inverse = dense_inverse(a22).inverse;
  for (std::int64_t i = 1; i <= n; ++i)
    for (std::int64_t j = 1; j <= n; ++j) h.cells(place(i), place(j)) += g_inverse(i, j) - a22_inverse(i, j);
  directory.write("inverse.txt", triplets_of(h));
  keep_reference_records();
  holds({"mrode_12_1_single_step",
         R"toml([trait.dyd]
formula = "1 + (1 | animal)"
[factor.animal]
inverse = "inverse.txt"
start = 35.241
[residual]
start = 245
)toml",
         {{"mean", "class|dyd|mean|mean"}, {"animal", "factor|animal|dyd.animal|{l}"}}});
}

TEST_F(textbook, example_13_1_dominance) {
  take("mrode_13_1_dominance");
  directory.write("dominance.txt", triplets_of(dominance_relationship(
                                       ordered_pedigree(csv_of_text(directory.read("pedigree.csv"))))));
  holds({"mrode_13_1_dominance",
         R"toml([trait.ww]
formula = "1 + pen + (1 | animal) + (1 | dominance | animal)"
[factor.animal]
pedigree = "pedigree.csv"
start = 90
[factor.dominance]
dominance = "dominance.txt"
start = 80
[residual]
start = 120
)toml",
         {{"pen", "class|ww|pen|{l}"},
          {"animal", "factor|animal|ww.animal|{l}"},
          {"dominance", "factor|dominance|ww.animal|{l}"}}});
}

// ---- three models of the small tutorial; its relationships ignore inbreeding

class tutorial : public textbook {
protected:
  tutorial() {
    take("tutorial_small");
    directory.write("inverse.txt", triplets_of(inverse_without_inbreeding(
                                       ordered_pedigree(csv_of_text(directory.read("pedigree.csv"))))));
  }
};

TEST_F(tutorial, two_class_effects_and_a_covariable) {
  holds({"tutorial_small",
         R"toml([trait.y1]
formula = "1 + a + s + x + (1 | animal)"
[covariable.x]
[factor.animal]
inverse = "inverse.txt"
start = 0.5
[residual]
start = 2.0
)toml",
         {{"animal", "factor|animal|y1.animal|{l}"}, {"x", "regression|y1|x|"}},
         {},
         {},
         "",
         "m1_"});
}

TEST_F(tutorial, one_of_the_classes_random) {
  holds({"tutorial_small",
         R"toml([trait.y1]
formula = "1 + a + x + (1 | animal) + (1 | s)"
[covariable.x]
[factor.animal]
inverse = "inverse.txt"
start = 0.5
[factor.s]
start = 1.0
[residual]
start = 2.0
)toml",
         {{"animal", "factor|animal|y1.animal|{l}"},
          {"s", "factor|s|y1.s|{l}"},
          {"a", "class|y1|a|{l}"},
          {"x", "regression|y1|x|"}},
         {},
         {},
         "",
         "m2_"});
}

TEST_F(tutorial, two_traits) {
  holds({"tutorial_small",
         R"toml([trait.y1]
formula = "1 + a + s + x + (1 | animal)"
[trait.y2]
formula = "1 + a + s + x + (1 | animal)"
[covariable.x]
[factor.animal]
inverse = "inverse.txt"
start = [[0.5, -0.25], [-0.25, 1.0]]
[residual]
start = [[2.0, 1.0], [1.0, 1.5]]
)toml",
         {{"animal", "factor|animal|{t}.animal|{l}"}, {"x", "regression|{t}|x|"}},
         {},
         {},
         "",
         "m3_"});
}

} // namespace
