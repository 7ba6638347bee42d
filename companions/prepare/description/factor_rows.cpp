#include "prepare/description/factor_rows.h"

#include "prepare/description/text_places.h"
#include "shared/indexing.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace zeph::prepare {

namespace {

// What names a row and distinguishes two coefficients of one kind.
struct row_words {
  std::string trait, label, covariable, columns;
};

std::string columns_text(const random_term& r) {
  std::string text;
  for (const named_column& c : r.columns) text += (text.empty() ? "" : "+") + c.name;
  return text;
}

row_words words_of(const model_description& d, const factor_row& row) {
  const trait_section& t = d.traits[from0(row.trait)];
  const random_term& r = t.terms.random[from0(row.term)];
  row_words words{t.name, "", "", columns_text(r)};
  if (row.effect < 0) {
    words.label = words.columns;
    return words;
  }
  const atom& a = r.left[from0(row.effect)].atoms.front();
  if (a.kind == atom_kind::column) {
    words.label = a.name;
  } else {
    words.label = fmt::format("{}{}", a.kind == atom_kind::leg ? "leg" : "poly", row.degree);
    words.covariable = a.name;
  }
  return words;
}

// Level 0: trait.label; 1: trait.label.column; 2: trait.label.covariable.column.
std::string name_at_level(const row_words& w, int level) {
  std::string name = w.trait + "." + w.label;
  if (level >= 2 && !w.covariable.empty()) name += "." + w.covariable;
  if (level >= 1) name += "." + w.columns;
  return name;
}

// The shortest names that distinguish the rows of a factor.
void name_rows(const model_description& d, std::vector<factor_row>& rows) {
  std::vector<row_words> words;
  for (factor_row& row : rows) {
    words.push_back(words_of(d, row));
    row.name = name_at_level(words.back(), 0);
  }
  for (int level = 1; level <= 2; ++level) {
    std::map<std::string, int> uses;
    for (const factor_row& row : rows) ++uses[row.name];
    for (std::size_t i = 0; i < rows.size(); ++i)
      if (uses[rows[i].name] > 1) rows[i].name = name_at_level(words[i], level);
  }
}

// The rows of one random term: its 1, then its effects in the order of the formula.
void append_rows(const random_term& r, int trait, int term, std::vector<factor_row>& rows) {
  int curve = -1; // the first leg or poly carries the implied 1 as its degree 0
  for (std::size_t k = 0; k < r.left.size() && curve < 0; ++k)
    if (r.left[k].atoms.front().kind != atom_kind::column) curve = static_cast<int>(k);
  if (r.constant) rows.push_back({"", trait, term, curve, 0});
  for (std::size_t k = 0; k < r.left.size(); ++k) {
    const int order = r.left[k].atoms.front().order;
    for (int degree = order > 0 ? 1 : 0; degree <= std::min(order, largest_order); ++degree)
      rows.push_back({"", trait, term, static_cast<int>(k), degree});
  }
}

// Two rows with the same coefficient on the same column are one effect twice.
void refuse_equal_rows(const model_description& d, message_log& log, const factor_section& f) {
  std::set<std::vector<std::string>> seen;
  for (const factor_row& row : f.rows) {
    const row_words w = words_of(d, row);
    const trait_section& t = d.traits[from0(row.trait)];
    const random_term& r = t.terms.random[from0(row.term)];
    const bool constant = row.effect < 0 || (row.degree == 0 && !w.covariable.empty());
    const std::vector<std::string> key = constant ? std::vector{w.trait, std::string("1"), w.columns}
                                                  : std::vector{w.trait, w.label, w.covariable, w.columns};
    if (seen.insert(key).second) continue;
    error_at(
        d, log, place_in_text(d, t.formula_text, r.at.begin),
        fmt::format("factor {} has {} of column {} twice", f.name, constant ? "the 1" : w.label, w.columns));
  }
}

} // namespace

void make_rows(model_description& d, message_log& log) {
  for (std::size_t i = 0; i < d.traits.size(); ++i)
    for (std::size_t k = 0; k < d.traits[i].terms.random.size(); ++k) {
      const random_term& r = d.traits[i].terms.random[k];
      for (factor_section& f : d.factors)
        if (f.name == r.factor) append_rows(r, static_cast<int>(i), static_cast<int>(k), f.rows);
    }
  for (factor_section& f : d.factors) {
    name_rows(d, f.rows);
    refuse_equal_rows(d, log, f);
  }
}

void apply_order(const model_description& d, message_log& log, factor_section& f) {
  std::vector<factor_row> ordered;
  std::vector<std::string> left;
  for (const factor_row& row : f.rows) left.push_back(row.name);
  const std::vector<std::string> all = left;
  for (const text_value& word : f.order) {
    const auto found = std::find(left.begin(), left.end(), word.value);
    if (found != left.end()) {
      const auto row = std::find(all.begin(), all.end(), word.value) - all.begin();
      ordered.push_back(f.rows[from0(row)]);
      left.erase(found);
    } else if (std::find(all.begin(), all.end(), word.value) != all.end()) {
      error_at(d, log, word.at, fmt::format("[factor.{}] order names \"{}\" twice", f.name, word.value));
    } else {
      error_at(d, log, word.at,
               fmt::format("[factor.{}] order: there is no \"{}\"; the rows are: {}", f.name, word.value,
                           joined(all)))
          .hint = nearest_hint(word.value, all);
    }
  }
  if (!left.empty())
    error_at(d, log, f.order.front().at,
             fmt::format("[factor.{}] order leaves out {}", f.name, joined(left)));
  if (ordered.size() == f.rows.size()) f.rows = std::move(ordered);
}

} // namespace zeph::prepare
