#include "prepare/description/solution_checks.h"

#include "prepare/description/description_words.h"
#include "prepare/description/effect_columns.h"
#include "prepare/description/text_places.h"
#include "shared/indexing.h"

#include <algorithm>
#include <fmt/format.h>
#include <set>

namespace zeph::prepare {

namespace {

std::string title_of(const covariable_section& c) { return fmt::format("[covariable.{}]", c.name); }

bool is_solution(const covariable_section& c) { return c.solution.given; }

// ---- keys

void check_keys(const model_description& d, message_log& log, const covariable_section& c) {
  if (!is_solution(c)) {
    for (const text_place* place :
         {c.times.given ? &c.times.at : nullptr, c.standardize.given ? &c.standardize.at : nullptr})
      if (place != nullptr)
        error_at(d, log, *place, title_of(c) + " times and standardize need solution = \"trait.effect\"");
    return;
  }
  if (c.column.given)
    error_at(d, log, c.column.at,
             title_of(c) + " is a solution and has no column; a factor beside it is times");
  if (c.low.given || c.center.given)
    error_at(d, log, c.low.given ? c.low.at : c.center.at,
             title_of(c) + " is a solution, taken from its mean: no range and no center");
}

void check_standardize(const model_description& d, message_log& log) {
  const covariable_section* first = nullptr;
  for (const covariable_section& c : d.covariables) {
    if (!is_solution(c)) continue;
    if (first == nullptr) first = &c;
    if (c.standardize.value != first->standardize.value)
      error_at(d, log, c.standardize.given ? c.standardize.at : c.at,
               fmt::format("{} standardize differs from that of {}: one rule holds for all", title_of(c),
                           title_of(*first)));
  }
}

// ---- source

bool is_class(const effect& e) { return covariable_atom(e) == nullptr; }

// Words that may follow the trait's name.
std::vector<std::string> sources_of(const trait_section& t) {
  std::vector<std::string> out;
  for (const effect& e : t.terms.fixed)
    if (is_class(e)) out.push_back(t.name + "." + effect_text(e));
  for (const random_term& r : t.terms.random)
    if (r.constant && r.columns.size() == 1) out.push_back(t.name + "." + r.columns.front().name);
  return out;
}

// Looks for the effect in the terms of trait t; true when it is found.
bool find_source(const trait_section& t, int number, const std::string& word, covariable_section& c) {
  for (std::size_t i = 0; i < t.terms.fixed.size(); ++i)
    if (is_class(t.terms.fixed[i]) && t.name + "." + effect_text(t.terms.fixed[i]) == word) {
      c.source_trait = number;
      c.source_columns = class_columns(t.terms.fixed[i]);
      return true;
    }
  for (const random_term& r : t.terms.random)
    if (r.constant && r.columns.size() == 1 && t.name + "." + r.columns.front().name == word) {
      c.source_trait = number;
      c.source_factor = r.factor;
      for (const named_part& part : r.columns.front().parts) c.source_columns.push_back(part.name);
      return true;
    }
  return false;
}

void link_source(const model_description& d, message_log& log, covariable_section& c) {
  std::vector<std::string> known;
  for (std::size_t t = 0; t < d.traits.size(); ++t) {
    if (find_source(d.traits[t], static_cast<int>(t), c.solution.value, c)) return;
    for (std::string& word : sources_of(d.traits[t])) known.push_back(std::move(word));
  }
  error_at(d, log, c.solution.at,
           fmt::format("{} solution: \"{}\" is not a class effect of a trait; known: {}", title_of(c),
                       c.solution.value, joined(known)))
      .hint = nearest_hint(c.solution.value, known);
}

// ---- uses

template <class Visit> void for_each_atom(const effect& e, const Visit& visit) {
  for (const atom& a : e.atoms) visit(a);
}

void refuse_use(const model_description& d, message_log& log, const trait_section& t, const atom& x,
                const std::string& what) {
  error_at(d, log, place_in_text(d, t.formula_text, x.at.begin),
           fmt::format("{} is made from solutions and {}", x.name, what));
}

// The uses of one trait's formula; `turned` gets the traits that explain it.
void check_uses(const model_description& d, message_log& log, int number, std::set<int>& sources) {
  const trait_section& t = d.traits[from0(number)];
  for (const effect& e : t.terms.fixed)
    for_each_atom(e, [&](const atom& a) {
      const covariable_section* c = solution_covariable(d, a);
      if (c == nullptr) return;
      if (a.kind != atom_kind::column) refuse_use(d, log, t, a, "takes no " + atom_text(a));
      if (c->source_trait == number)
        refuse_use(d, log, t, a, fmt::format("can't explain its own trait {}", t.name));
      else if (c->source_trait >= 0)
        sources.insert(c->source_trait);
    });
  for (const random_term& r : t.terms.random)
    for (const effect& e : r.left)
      for_each_atom(e, [&](const atom& a) {
        if (solution_covariable(d, a) != nullptr) refuse_use(d, log, t, a, "can't appear on the left of '|'");
      });
}

// True when trait t is reached from one of its own sources.
bool explains_itself(const std::vector<std::set<int>>& sources, int t) {
  std::vector<int> open(sources[from0(t)].begin(), sources[from0(t)].end());
  std::set<int> seen;
  while (!open.empty()) {
    const int s = open.back();
    open.pop_back();
    if (s == t) return true;
    if (seen.insert(s).second) open.insert(open.end(), sources[from0(s)].begin(), sources[from0(s)].end());
  }
  return false;
}

bool shares_factor(const model_description& d, int a, int b) {
  for (const factor_section& f : d.factors) {
    bool first = false, second = false;
    for (const factor_row& row : f.rows) {
      first = first || row.trait == a;
      second = second || row.trait == b;
    }
    if (first && second) return true;
  }
  return false;
}

bool residuals_apart(const model_description& d, int a, int b) {
  return std::ranges::any_of(d.residual.zero, [&](const trait_pair& p) {
    return p.first == std::min(a, b) && p.second == std::max(a, b);
  });
}

void warn_of_covariance(const model_description& d, message_log& log, int turned,
                        const std::set<int>& sources) {
  if (!samples_solutions(d.run.analysis.value)) return;
  for (const int s : sources) {
    if (residuals_apart(d, s, turned) && !shares_factor(d, s, turned)) continue;
    const std::string &a = d.traits[from0(s)].name, &b = d.traits[from0(turned)].name;
    warning_at(
        d, log, d.traits[from0(turned)].at,
        fmt::format("{} explains {} by its solutions, and the two share covariances: the chain is then "
                    "not one of a posterior distribution",
                    a, b))
        .hint =
        fmt::format("say [residual] zero = [[\"{}\", \"{}\"]], and give each a factor of its own", a, b);
  }
}

void check_kinds(const model_description& d, message_log& log, const covariable_section& c) {
  for (const trait_section& t : d.traits)
    if (t.kind.value == trait_kind::ordered || t.kind.value == trait_kind::censored)
      error_at(d, log, c.at,
               fmt::format("{} is made from solutions, and then no trait may be of kind {} ({})", title_of(c),
                           word_of(t.kind.value), t.name));
  if (has_several_models(d.run.analysis.value))
    error_at(d, log, c.at,
             fmt::format("{} is made from solutions, which analysis \"{}\" doesn't do", title_of(c),
                         word_of(d.run.analysis.value)));
}

} // namespace

std::string source_name(const covariable_section& c) {
  std::string name;
  for (const std::string& column : c.source_columns) name += (name.empty() ? "" : ":") + column;
  return name;
}

bool is_source(const model_description& d, int t, const std::vector<std::string>& columns) {
  return std::ranges::any_of(d.covariables, [&](const covariable_section& c) {
    return c.solution.given && c.source_trait == t && c.source_factor.empty() && c.source_columns == columns;
  });
}

bool is_random_source(const model_description& d, const std::string& factor, const std::string& column) {
  return std::ranges::any_of(d.covariables, [&](const covariable_section& c) {
    return c.solution.given && c.source_factor == factor && source_name(c) == column;
  });
}

const covariable_section* solution_covariable(const model_description& d, const atom& x) {
  const covariable_section* c = find_covariable(d, x.name);
  return c != nullptr && is_solution(*c) ? c : nullptr;
}

void link_solutions(model_description& d, message_log& log, bool formulas_are_good) {
  for (covariable_section& c : d.covariables) {
    check_keys(d, log, c);
    if (!is_solution(c)) continue;
    check_kinds(d, log, c);
    if (formulas_are_good) link_source(d, log, c);
  }
  check_standardize(d, log);
  std::vector<std::set<int>> sources(d.traits.size());
  for (std::size_t t = 0; t < d.traits.size(); ++t) check_uses(d, log, static_cast<int>(t), sources[t]);
  for (std::size_t t = 0; t < d.traits.size(); ++t) {
    if (explains_itself(sources, static_cast<int>(t)))
      error_at(d, log, d.traits[t].at,
               fmt::format("the solutions of {} explain it by way of other traits", d.traits[t].name));
    warn_of_covariance(d, log, static_cast<int>(t), sources[t]);
  }
}

} // namespace zeph::prepare
