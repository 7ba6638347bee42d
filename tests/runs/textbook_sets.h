// The published examples: where they are, how their answers are found among
// named solutions, and how close both are.
#pragma once

#include "runs/named_solutions.h"
#include "support/places.h"

#include <cmath>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace zeph_test {

inline std::string textbook_folder(const std::string& set) {
  return zeph_test::source_folder() + "/tests/data/textbook/" + set + "/";
}

// A column of the fixed part: the class of a record, or (covariable) its
// number, times the solution.
struct fixed_column {
  std::string quantity; // in the answers
  std::string column;   // of data.csv
  std::string key;      // of the solution, with {t} and {l}
  bool covariable = false;
};

struct textbook_example {
  std::string set;
  std::string toml;                       // tables after [data] and [run]
  std::map<std::string, std::string> key; // quantity or "quantity:level" -> solution, with {t} and {l}
  // Not unique: only the sum over these columns is compared, per record and trait.
  std::vector<fixed_column> fixed = {};
  std::vector<std::string> traits = {}; // of that sum, as the answers name them
  std::string trait = "";               // name of trait "1" of the answers
  std::string prefix = "";              // of the quantities that belong to this model
};

inline std::string filled(std::string text, const std::string& mark, const std::string& value) {
  for (std::size_t at = text.find(mark); at != std::string::npos; at = text.find(mark))
    text.replace(at, 3, value);
  return text;
}

struct textbook_answer {
  std::string quantity, trait, level, published;
  double computed = 0.0;
};

class textbook_comparison {
public:
  textbook_comparison(const textbook_example& e, const named_values& found) : example(e), solution(found) {
    const csv_table table = csv_of_file(textbook_folder(e.set) + "answers.csv");
    for (std::size_t i = 0; i < table.size(); ++i) {
      if (!table.cell(i, "quantity").starts_with(e.prefix)) continue;
      answers.push_back({table.cell(i, "quantity").substr(e.prefix.size()), table.cell(i, "trait"),
                         table.cell(i, "level"), table.cell(i, "published"),
                         number_in(table.cell(i, "computed"))});
      double& scale = largest[answers.back().quantity + answers.back().trait];
      scale = std::max(scale, std::fabs(answers.back().computed));
    }
  }

  // Compares every answer that is a solution. Standard errors, reliabilities and
  // error variances are none; neither are the columns of `fixed`.
  void compare_solutions() {
    static const std::set<std::string> no_solution = {"sep", "reliability", "pev"};
    for (const textbook_answer& a : answers) {
      const std::string key = key_of(a);
      if (key.empty()) {
        EXPECT_TRUE(no_solution.contains(a.quantity) || is_fixed(a))
            << "no key for " << a.quantity << " " << a.level;
        continue;
      }
      const auto at = solution.find(key);
      ASSERT_NE(at, solution.end()) << key;
      hold(at->second, a.computed, largest[a.quantity + a.trait], key);
      // the printed digits: iterated solutions of the sources are some units of
      // the last one off, and 8 digits came from a solver in 32 bits
      const std::size_t point = a.published.find('.');
      const int digits = point == std::string::npos ? 0 : static_cast<int>(a.published.size() - point - 1);
      const double unit = digits > 6 ? 2e-6 : std::pow(10.0, -digits);
      EXPECT_NEAR(at->second, number_in(a.published), 5.0 * unit) << key;
    }
  }

  // The sum of the fixed columns in every record. A column that zeph-prepare
  // left out (a reference level) has the solution 0.
  void compare_fixed_part() {
    const csv_table data = csv_of_file(textbook_folder(example.set) + "data.csv");
    for (const std::string& trait : example.traits)
      for (std::size_t r = 0; r < data.size(); ++r) {
        double found = 0.0, computed = 0.0;
        for (const fixed_column& x : example.fixed) {
          const std::string cell = data.cell(r, x.column), level = x.covariable ? x.column : cell;
          const double z = x.covariable ? number_in(cell) : 1.0;
          const auto at = solution.find(filled(filled(x.key, "{t}", name_of(trait)), "{l}", level));
          if (at != solution.end()) found += z * at->second;
          computed += z * computed_of(x.quantity, trait, level);
        }
        hold(found, computed, std::fabs(computed),
             "fixed part of record " + std::to_string(r + 1) + " of trait " + trait);
      }
  }

  // `scale`: the largest answer of that kind. Smaller ones can't be relative to
  // themselves: observations are held in 32 bits, which moves all solutions by
  // some 1e-8 of the observations.
  void hold(double found, double computed, double scale, const std::string& what) {
    const double share = std::fabs(found - computed) / scale;
    EXPECT_LT(share, 1e-6) << what << ": " << found << ", computed " << computed;
    error = std::max(error, share);
    ++compared;
  }

  std::vector<textbook_answer> answers;
  std::map<std::string, double> largest; // computed answer of a quantity and trait
  double error = 0.0;                    // largest relative difference
  int compared = 0;

private:
  std::string name_of(const std::string& trait) const { return trait == "1" ? example.trait : trait; }
  std::string key_of(const textbook_answer& a) const {
    auto at = example.key.find(a.quantity + ":" + a.level);
    if (at == example.key.end()) at = example.key.find(a.quantity);
    return at == example.key.end() ? "" : filled(filled(at->second, "{t}", name_of(a.trait)), "{l}", a.level);
  }
  bool is_fixed(const textbook_answer& a) const {
    for (const fixed_column& x : example.fixed)
      if (x.quantity == a.quantity) return true;
    return false;
  }
  double computed_of(const std::string& quantity, const std::string& trait, const std::string& level) const {
    for (const textbook_answer& a : answers)
      if (a.quantity == quantity && a.trait == trait && a.level == level) return a.computed;
    ADD_FAILURE() << "no answer for " << quantity << " " << trait << " " << level;
    return 0.0;
  }

  const textbook_example& example;
  const named_values& solution;
};

} // namespace zeph_test
