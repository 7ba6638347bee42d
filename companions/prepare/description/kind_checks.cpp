#include "prepare/description/kind_checks.h"

#include "prepare/description/description_words.h"
#include "prepare/description/text_places.h"
#include "shared/indexing.h"

#include <algorithm>
#include <fmt/format.h>

namespace zeph::prepare {

namespace {

using kind = trait_kind;

std::size_t at(int i) { return from0(i); }

bool is_one_of(kind k, std::initializer_list<kind> list) {
  return std::find(list.begin(), list.end(), k) != list.end();
}

std::string title_of(const trait_section& t) { return fmt::format("[trait.{}]", t.name); }

int find_trait(const model_description& d, const std::string& name) {
  const auto found = std::ranges::find(d.traits, name, &trait_section::name);
  return found == d.traits.end() ? -1 : static_cast<int>(found - d.traits.begin());
}

// A trait that a key or a formula names; -1 after a fault.
int known_trait(const model_description& d, message_log& log, const std::string& name, text_place place) {
  const int t = find_trait(d, name);
  if (t >= 0) return t;
  std::vector<std::string> names;
  for (const trait_section& s : d.traits) names.push_back(s.name);
  error_at(d, log, place, fmt::format("there is no trait \"{}\"", name)).hint = nearest_hint(name, names);
  return -1;
}

// Where the kind was stated, or the table.
text_place place_of_kind(const trait_section& t) { return t.kind.given ? t.kind.at : t.at; }

// ---- keys of one trait

void refuse_key(const model_description& d, message_log& log, const trait_section& t, bool given,
                text_place place, std::initializer_list<kind> wanted, const char* sentence) {
  if (given && !is_one_of(t.kind.value, wanted)) error_at(d, log, place, title_of(t) + " " + sentence);
}

void check_keys(const model_description& d, message_log& log, const trait_section& t) {
  const text_place categories = t.categories.empty() ? text_place{} : t.categories.front().at;
  refuse_key(d, log, t, !t.categories.empty(), categories, {kind::ordered, kind::binary, kind::sequence},
             "categories need kind = \"ordered\", \"binary\" or \"sequence\"");
  for (const text_value* limit : {&t.limits_code, &t.limits_event, &t.limits_upper})
    refuse_key(d, log, t, limit->given, limit->at, {kind::censored}, "limits need kind = \"censored\"");
  refuse_key(d, log, t, t.first_upper.given || t.first_of.given,
             t.first_upper.given ? t.first_upper.at : t.first_of.at, {kind::indicator},
             "first needs kind = \"indicator\"");
  for (const text_value* key : {&t.subject, &t.position})
    refuse_key(d, log, t, key->given, key->at, {kind::sequence},
               "subject and position need kind = \"sequence\"");
  refuse_key(d, log, t, t.of.given, t.of.at, {kind::cured}, "of needs kind = \"cured\"");
}

void check_categories(const model_description& d, message_log& log, const trait_section& t) {
  for (std::size_t i = 0; i < t.categories.size(); ++i)
    for (std::size_t j = 0; j < i; ++j)
      if (t.categories[i].value == t.categories[j].value)
        error_at(d, log, t.categories[i].at,
                 fmt::format("{} categories names \"{}\" twice", title_of(t), t.categories[i].value));
  const std::size_t n = t.categories.size();
  if (n == 0) return;
  if (t.kind.value == kind::ordered && n < 3)
    error_at(d, log, t.categories.front().at, title_of(t) + " categories: an ordered trait has three or more")
        .hint = n == 2 ? "two categories are kind = \"binary\"" : "";
  if (is_one_of(t.kind.value, {kind::binary, kind::sequence}) && n != 2)
    error_at(d, log, t.categories.front().at,
             fmt::format("{} categories: kind {} has two, the one for 0 and the one for 1", title_of(t),
                         word_of(t.kind.value)));
}

void check_limits(const model_description& d, message_log& log, const trait_section& t) {
  if (t.kind.value != kind::censored) return;
  if (!t.limits_code.given && !t.limits_event.given && !t.limits_upper.given)
    error_at(d, log, place_of_kind(t),
             title_of(t) + " kind = \"censored\" needs limits = { code = \"column\", upper = \"column\" }, "
                           "{ event = \"column\" } or { upper = \"column\" }");
  if (t.limits_event.given && (t.limits_code.given || t.limits_upper.given))
    error_at(d, log, t.limits_event.at,
             title_of(t) + " limits: event is given alone, without code and upper");
}

void check_first(const model_description& d, message_log& log, const trait_section& t) {
  if (t.first_upper.given && !(t.first_upper.value > 0.0 && t.first_upper.value < 1.0))
    error_at(d, log, t.first_upper.at, title_of(t) + " first: upper must be between 0 and 1");
  if (!t.first_of.given) return;
  const int of = known_trait(d, log, t.first_of.value, t.first_of.at);
  if (of >= 0 && !is_one_of(d.traits[at(of)].kind.value, {kind::gaussian, kind::censored}))
    error_at(d, log, t.first_of.at,
             fmt::format("{} first: {} has no numbers, it is of kind {}", title_of(t), t.first_of.value,
                         word_of(d.traits[at(of)].kind.value)));
}

// Latent values are drawn in every round, so that a solver never converges.
void check_analysis(const model_description& d, message_log& log, const trait_section& t) {
  if (t.kind.value == kind::gaussian || samples_solutions(d.run.analysis.value)) return;
  error_at(d, log, place_of_kind(t),
           fmt::format("kind = \"{}\" needs a chain, and [run] analysis is \"{}\"", word_of(t.kind.value),
                       word_of(d.run.analysis.value)))
      .hint = "set analysis = \"gibbs\", or \"predict\" with given (co)variances";
}

// ---- mixtures

text_place place_in_formula(const model_description& d, const trait_section& t, std::size_t offset) {
  return place_in_text(d, t.formula_text, offset);
}

bool has_random_covariable(const trait_section& t) {
  return std::ranges::any_of(t.terms.random, [](const random_term& r) { return !r.left.empty(); });
}

void check_mixed_trait(const model_description& d, message_log& log, const trait_section& t) {
  const text_place place = place_in_formula(d, t, t.terms.shifts.front().at.begin);
  if (t.terms.shifts.size() > 1)
    error_at(d, log, place_in_formula(d, t, t.terms.shifts[1].at.begin),
             "a formula holds one shift(..) at most");
  if (!is_one_of(t.kind.value, {kind::gaussian, kind::censored}))
    error_at(d, log, place,
             fmt::format("shift(..) needs a trait of numbers, and {} is of kind {}", t.name,
                         word_of(t.kind.value)));
  if (has_random_covariable(t))
    error_at(d, log, place,
             "a formula can't have both shift(..) and a random regression: its curves would be switched too");
}

void link_indicators(model_description& d, message_log& log) {
  for (trait_section& t : d.traits) {
    for (const shift_term& s : t.terms.shifts) {
      const text_place place = place_in_formula(d, t, s.trait_at.begin);
      const int i = known_trait(d, log, s.trait, place);
      if (i < 0) continue;
      if (d.traits[at(i)].kind.value != kind::indicator)
        error_at(d, log, place,
                 fmt::format("shift(..) takes a trait of kind indicator, and {} is of kind {}", s.trait,
                             word_of(d.traits[at(i)].kind.value)));
      else
        t.indicator = i;
    }
    if (!t.terms.shifts.empty()) check_mixed_trait(d, log, t);
  }
}

void check_indicator(const model_description& d, message_log& log, int i, bool formulas_are_good) {
  const trait_section& t = d.traits[at(i)];
  const bool used = std::ranges::any_of(d.traits, [i](const trait_section& s) { return s.indicator == i; });
  if (!used && formulas_are_good)
    error_at(d, log, place_of_kind(t),
             fmt::format("[trait.{}] is an indicator, and no formula holds shift({})", t.name, t.name));
  if (t.column.given && (t.first_upper.given || t.first_of.given))
    error_at(d, log, t.column.at,
             title_of(t) + " the first memberships come from column or from first, not from both");
}

void check_indicators(model_description& d, message_log& log, bool formulas_are_good) {
  int last = -1, n = 0;
  for (int i = 0; i < static_cast<int>(d.traits.size()); ++i) {
    if (d.traits[at(i)].kind.value != kind::indicator) continue;
    check_indicator(d, log, i, formulas_are_good);
    last = i;
    ++n;
  }
  residual_section& r = d.residual;
  if (n == 0 || !r.groups.given) return;
  if (r.groups.value == d.traits[at(last)].name)
    r.indicator = last;
  else
    error_at(
        d, log, r.groups.at,
        fmt::format("[residual] groups: the {}indicator {} chooses between two groups; name it, or leave "
                    "groups out",
                    n > 1 ? "last " : "", d.traits[at(last)].name));
}

// ---- sequences

void link_cured(model_description& d, message_log& log, int i) {
  trait_section& t = d.traits[at(i)];
  if (t.column.given)
    error_at(d, log, t.column.at, title_of(t) + " a trait of kind cured is never observed and has no column");
  if (!t.of.given) {
    error_at(d, log, place_of_kind(t), title_of(t) + " kind = \"cured\" needs of = \"trait\"").hint =
        "name its trait of kind sequence";
    return;
  }
  const int s = known_trait(d, log, t.of.value, t.of.at);
  if (s < 0) return;
  trait_section& partner = d.traits[at(s)];
  if (partner.kind.value != kind::sequence) {
    error_at(d, log, t.of.at,
             fmt::format("{} of: {} is of kind {}, not sequence", title_of(t), partner.name,
                         word_of(partner.kind.value)));
  } else if (partner.partner >= 0) {
    error_at(d, log, t.of.at,
             fmt::format("{} of: {} has its trait of kind cured already", title_of(t), partner.name));
  } else {
    t.partner = s;
    partner.partner = i;
  }
}

void check_sequence(const model_description& d, message_log& log, int i) {
  const trait_section& t = d.traits[at(i)];
  if (!t.subject.given)
    error_at(d, log, place_of_kind(t), title_of(t) + " kind = \"sequence\" needs subject = \"column\"");
  const bool first = std::none_of(d.traits.begin(), d.traits.begin() + i,
                                  [](const trait_section& s) { return s.kind.value == kind::sequence; });
  if (!first)
    error_at(d, log, place_of_kind(t), "a model holds one trait of kind sequence at most");
  else if (t.partner < 0)
    error_at(d, log, place_of_kind(t),
             fmt::format("[trait.{}] is a sequence, and no trait of kind cured names it (of = \"{}\")",
                         t.name, t.name));
}

void link_sequences(model_description& d, message_log& log) {
  const int nt = static_cast<int>(d.traits.size());
  for (int i = 0; i < nt; ++i)
    if (d.traits[at(i)].kind.value == kind::cured) link_cured(d, log, i);
  for (int i = 0; i < nt; ++i)
    if (d.traits[at(i)].kind.value == kind::sequence) check_sequence(d, log, i);
}

// ---- residual covariances

bool has_pair(const std::vector<trait_pair>& list, int i, int j) {
  return std::ranges::any_of(list, [&](const trait_pair& p) { return p.first == i && p.second == j; });
}

void hold_pair(model_description& d, int i, int j) {
  const kind a = d.traits[at(i)].kind.value, b = d.traits[at(j)].kind.value;
  if (!stands_apart(a) && !stands_apart(b)) return;
  residual_section& r = d.residual;
  if (has_unit_variance(a) && has_unit_variance(b))
    r.apart.push_back({i, j, {}});
  else if (!has_pair(r.free, i, j) && !has_pair(r.zero, i, j))
    r.zero.push_back({i, j, {}});
}

void check_free(const model_description& d, message_log& log, const trait_pair& p) {
  const residual_section& r = d.residual;
  const kind a = d.traits[at(p.first)].kind.value, b = d.traits[at(p.second)].kind.value;
  const std::string names = pair_text(d, p);
  if (has_pair(r.apart, p.first, p.second))
    error_at(d, log, p.at,
             fmt::format("[residual] free: {} never have a residual covariance, by their kinds", names));
  else if (has_pair(r.zero, p.first, p.second))
    error_at(d, log, p.at,
             fmt::format("[residual] holds the covariance of {} at zero and leaves it free", names));
  else if (!stands_apart(a) && !stands_apart(b))
    warning_at(d, log, p.at, fmt::format("[residual] free: the covariance of {} is free anyway", names));
}

void hold_covariances(model_description& d, message_log& log) {
  const int nt = static_cast<int>(d.traits.size());
  for (int i = 0; i < nt; ++i)
    for (int j = i + 1; j < nt; ++j) hold_pair(d, i, j);
  // what is zero in every draw needs no holding
  std::erase_if(d.residual.zero,
                [&](const trait_pair& p) { return has_pair(d.residual.apart, p.first, p.second); });
  for (const trait_pair& p : d.residual.free) check_free(d, log, p);
}

void warn_of_lost_values(const model_description& d, message_log& log) {
  if (!d.run.continue_chain.value || d.run.saves_state()) return;
  for (const trait_section& t : d.traits)
    if (is_one_of(t.kind.value, {kind::censored, kind::sequence, kind::cured})) {
      warning_at(d, log, d.run.continue_chain.at,
                 fmt::format("the values of {} (kind {}) are not kept between runs: a continued chain draws "
                             "them from scratch",
                             t.name, word_of(t.kind.value)));
      return;
    }
}

} // namespace

std::string pair_text(const model_description& d, const trait_pair& p) {
  return fmt::format("{} and {}", d.traits[at(p.first)].name, d.traits[at(p.second)].name);
}

void link_kinds(model_description& d, message_log& log, bool formulas_are_good) {
  for (const trait_section& t : d.traits) {
    check_keys(d, log, t);
    check_categories(d, log, t);
    check_limits(d, log, t);
    check_first(d, log, t);
    check_analysis(d, log, t);
  }
  link_indicators(d, log);
  check_indicators(d, log, formulas_are_good);
  link_sequences(d, log);
  hold_covariances(d, log);
  warn_of_lost_values(d, log);
}

void check_residual_start(const model_description& d, message_log& log, const matrix_value& m,
                          const std::string& what) {
  if (m.order != static_cast<int>(d.traits.size())) return;
  const auto element = [&m](int i, int j) { return m.value[at(i * m.order + j)]; };
  for (int t = 0; t < m.order; ++t)
    if (has_unit_variance(d.traits[at(t)].kind.value) && element(t, t) != 1.0)
      error_at(d, log, m.at,
               fmt::format("{} is {} at the variance of {}, which is 1 for kind {}", what, element(t, t),
                           d.traits[at(t)].name, word_of(d.traits[at(t)].kind.value)));
  for (const auto* list : {&d.residual.zero, &d.residual.apart})
    for (const trait_pair& p : *list)
      if (element(p.first, p.second) != 0.0)
        error_at(d, log, m.at,
                 fmt::format("{} is {} between {}, which {} at 0", what, element(p.first, p.second),
                             pair_text(d, p), p.at.line > 0 ? "[residual] zero holds" : "their kinds hold"));
}

} // namespace zeph::prepare
