// A public data set of field size: 4641 animals with one record each, with the
// published variances. The solutions are put back into the equations, by sums
// over records and pedigree lines.
#include "runs/named_solutions.h"
#include "support/check.h"
#include "support/skip_reasons.h"

#include <cmath>
#include <gtest/gtest.h>

namespace {

using namespace zeph_test;

struct field_model {
  std::string trait, toml;
  double animal_variance;
  std::map<std::string, double> residual_variance; // by class; "" for all
};

// Elements of A below the diagonal, row by row, by the tabular method: the
// animals of this set come after their parents and are numbered 1, 2, ..
std::vector<double> mendelian_variances(const csv_table& pedigree) {
  const std::size_t n = pedigree.size();
  std::vector<double> a(n * (n + 1) / 2), variance(n);
  const auto element = [&](std::size_t i, std::size_t j) -> double& {
    return i >= j ? a[i * (i + 1) / 2 + j] : a[j * (j + 1) / 2 + i];
  };
  for (std::size_t i = 0; i < n; ++i) {
    const auto s = static_cast<std::size_t>(number_in(pedigree.cell(i, "sire")));
    const auto d = static_cast<std::size_t>(number_in(pedigree.cell(i, "dam")));
    for (std::size_t j = 0; j < i; ++j)
      element(i, j) = 0.5 * ((s > 0 ? element(s - 1, j) : 0.0) + (d > 0 ? element(d - 1, j) : 0.0));
    element(i, i) = 1.0 + (s > 0 && d > 0 ? 0.5 * element(s - 1, d - 1) : 0.0);
    variance[i] = 1.0;
    for (const std::size_t p : {s, d})
      if (p > 0) variance[i] -= 0.25 * element(p - 1, p - 1);
  }
  return variance;
}

// Right-hand sides, and what the solutions leave of them.
struct equation_residuals {
  named_values right_side, rest;
  double largest(const named_values& x) const {
    double out = 0.0;
    for (const auto& [name, value] : x) out = std::max(out, std::fabs(value));
    return out;
  }
};

std::string animal_name(const std::string& trait, const std::string& id) {
  return "factor|animal|" + trait + ".animal|" + id;
}

void add_records(const field_model& m, const csv_table& data, const named_values& solution,
                 equation_residuals& e) {
  for (std::size_t r = 0; r < data.size(); ++r) {
    if (data.cell(r, m.trait) == "NA") continue;
    std::vector<std::string> names = {animal_name(m.trait, data.cell(r, "animal"))};
    for (const char* effect : {"farm", "sex", "year"})
      names.push_back("class|" + m.trait + "|" + effect + "|" + data.cell(r, effect));
    const auto group = m.residual_variance.find(data.cell(r, "class"));
    const double variance = group == m.residual_variance.end() ? m.residual_variance.at("") : group->second;
    const double weight = static_cast<float>(number_in(data.cell(r, "weight"))) / variance;
    const double y = static_cast<float>(number_in(data.cell(r, m.trait)));
    double fitted = 0.0;
    for (const std::string& name : names)
      if (const auto at = solution.find(name); at != solution.end())
        fitted += at->second; // else a reference level
    for (const std::string& name : names) {
      e.right_side[name] += weight * y;
      e.rest[name] += weight * (y - fitted);
    }
  }
}

// A^-1 u = T' D^-1 T u: with m = (u - u(sire)/2 - u(dam)/2) / D each line gives
// m to the animal and -m/2 to its parents.
void take_out_relationship(const field_model& m, const csv_table& pedigree, const named_values& solution,
                           equation_residuals& e) {
  const std::vector<double> variance = mendelian_variances(pedigree);
  for (std::size_t i = 0; i < pedigree.size(); ++i) {
    const std::string name = animal_name(m.trait, pedigree.cell(i, "animal"));
    std::vector<std::string> parents;
    for (const char* column : {"sire", "dam"})
      if (pedigree.cell(i, column) != "0") parents.push_back(animal_name(m.trait, pedigree.cell(i, column)));
    double deviation = solution.at(name);
    for (const std::string& parent : parents) deviation -= 0.5 * solution.at(parent);
    deviation /= variance[i] * m.animal_variance;
    e.rest[name] -= deviation;
    for (const std::string& parent : parents) e.rest[parent] += 0.5 * deviation;
  }
}

void solves(const field_model& m) {
  const std::string folder = shared_folder("data/textbook/blupf90_tutorial_simdata");
  if (folder.empty()) GTEST_SKIP() << no_shared;
  scratch_directory directory;
  directory.take_files_of(folder);
  const prepared_run run = prepare_and_solve(
      directory, "[data]\nfile = \"data.csv\"\n[run]\nanalysis = \"solve\"\nrounds = 5000\n" + m.toml);
  ASSERT_TRUE(run.prepared) << run.messages;
  ASSERT_EQ(run.run.exit_code, 0) << run.run.listing;
  equation_residuals e;
  add_records(m, csv_of_file(folder + "data.csv"), run.solution, e);
  take_out_relationship(m, csv_of_file(folder + "pedigree.csv"), run.solution, e);
  const double share = e.largest(e.rest) / e.largest(e.right_side);
  EXPECT_LT(share, 1e-6);
  EXPECT_GE(e.rest.size(), run.solution.size());
  ::testing::Test::RecordProperty("error", std::to_string(share * 1e9) + "e-9");
}

TEST(field_size, weighted_records_of_one_trait) {
  solves({"y1",
          R"toml([trait.y1]
weight = "weight"
formula = "1 + farm + sex + year + (1 | animal)"
[factor.animal]
pedigree = "pedigree.csv"
start = 38.538
[residual]
start = 62.691
)toml",
          38.538,
          {{"", 62.691}}});
}

TEST(field_size, residual_variance_by_class) {
  solves({"z1",
          R"toml([trait.z1]
weight = "weight"
formula = "1 + farm + sex + year + (1 | animal)"
[factor.animal]
pedigree = "pedigree.csv"
start = 39.845
[residual]
groups = "class"
start = 72.313
[residual.start_by_group]
"1" = 72.313
"2" = 78.248
"3" = 80.646
)toml",
          39.845,
          {{"1", 72.313}, {"2", 78.248}, {"3", 80.646}}});
}

} // namespace
