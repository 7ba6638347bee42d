// The published threshold examples as chains with given (co)variances, against
// the posterior means of a sampler in numpy that draws all location effects
// jointly (README of tests/data/textbook).
#pragma once

#include "runs/dense_relationships.h"
#include "runs/latent_chains.h"
#include "runs/textbook_sets.h"

namespace zeph_test {

inline std::string chain_of_rounds(int rounds, int seed) {
  return "[keep]\nsolutions = true\n[run]\nanalysis = \"predict\"\nburnin = 1000\ninterval = 10\nrounds = " +
         std::to_string(rounds) + "\nseeds = [" + std::to_string(seed) + ", 711]\n";
}

inline latent_chain textbook_chain(const scratch_directory& directory, const std::string& toml, int rounds,
                                   int seed) {
  const prepared_run run = prepare_and_solve(directory, toml + chain_of_rounds(rounds, seed));
  if (!run.prepared || run.run.exit_code != 0) throw std::runtime_error(run.messages + run.run.listing);
  return chain_in(directory / "work/", false);
}

inline double error_in(const std::string& cell, double unknown) {
  return cell == "NA" ? unknown : number_in(cell);
}

// Three ordered categories, thresholds 0 and 1.
inline void hold_ordered_categories(const std::string& setting, double R, double G, int rounds) {
  const scratch_directory directory;
  directory.take_files_of(textbook_folder("mrode_15_1_threshold"));
  const latent_chain chain =
      textbook_chain(directory,
                     "[data]\nfile = \"data.csv\"\n[factor.sire]\npedigree = \"pedigree.csv\"\nstart = " +
                         std::to_string(G) +
                         "\n[trait.score]\nkind = \"ordered\"\nformula = \"1 + herd + sex + (1 | "
                         "sire)\"\n[residual]\nstart = " +
                         std::to_string(R) + "\n",
                     rounds, 1501);
  // the chain has no separate mean: of the sexes the one not coded is 0
  const std::map<std::string, std::pair<std::string, std::string>> names = {
      {"herd2-herd1", {"class|score|herd|2", "class|score|herd|1"}},
      {"sire1", {"factor|sire|score.sire|1", ""}},
      {"sire2", {"factor|sire|score.sire|2", ""}},
      {"sire3", {"factor|sire|score.sire|3", ""}},
      {"sire4", {"factor|sire|score.sire|4", ""}}};
  const csv_table answers = csv_of_file(textbook_folder("mrode_15_1_threshold") + "answers_gibbs.csv");
  int compared = 0;
  for (std::size_t i = 0; i < answers.size(); ++i) {
    if (answers.cell(i, "setting") != setting) continue;
    const std::string quantity = answers.cell(i, "quantity");
    const double mean = number_in(answers.cell(i, "mean")), error = number_in(answers.cell(i, "mc_error"));
    if (quantity == "sexF-sexM")
      hold(chain, {"sexM-sexF", "class|score|sex|M", "", -mean, error});
    else
      hold(chain, {quantity, names.at(quantity).first, names.at(quantity).second, mean, error});
    ++compared;
  }
  EXPECT_EQ(compared, 6);
}

// A binary trait beside a Gaussian one.
inline void hold_binary_and_gaussian(int rounds) {
  const scratch_directory directory;
  directory.take_files_of(textbook_folder("mrode_15_2_linear_binary"));
  directory.write("relationship.txt",
                  triplets_of(sire_relationship(csv_of_text(directory.read("pedigree_sire_mgs.csv")))));
  const latent_chain chain =
      textbook_chain(directory,
                     "[data]\nfile = \"data.csv\"\n[factor.sire]\nrelationship = \"relationship.txt\"\n"
                     "start = [[0.0300, 0.0302], [0.0302, 0.7178]]\n[trait.cd]\nkind = \"binary\"\n"
                     "formula = \"1 + origin + season + sex + (1 | sire)\"\n[trait.bw]\n"
                     "formula = \"1 + origin + season + sex + (1 | sire)\"\n[residual]\nstart = [[1, "
                     "2.0527], [2.0527, 20]]\n",
                     rounds, 1502);
  const csv_table answers = csv_of_file(textbook_folder("mrode_15_2_linear_binary") + "answers_gibbs.csv");
  for (std::size_t i = 0; i < answers.size(); ++i) {
    const std::string trait = answers.cell(i, "trait"), quantity = answers.cell(i, "quantity");
    const double mean = number_in(answers.cell(i, "mean"));
    // the differences of origins come without an error; the largest of the others is 0.0036
    const double error = error_in(answers.cell(i, "mc_error"), 0.0036);
    const std::string klass = "class|" + trait + "|", name = trait + " " + quantity;
    if (quantity == "origin2-origin1")
      hold(chain, {name, klass + "origin|2", klass + "origin|1", mean, error});
    else if (quantity == "season1-season2") // the season of most records is not coded
      hold(chain, {name, klass + "season|1", "", mean, error});
    else if (quantity == "sex1-sex2")
      hold(chain, {trait + " sex2-sex1", klass + "sex|2", "", -mean, error});
    else
      hold(chain,
           {name, "factor|sire|" + trait + ".sire|" + quantity.substr(quantity.size() - 1), "", mean, error});
  }
  EXPECT_EQ(answers.size(), 18U);
}

} // namespace zeph_test
