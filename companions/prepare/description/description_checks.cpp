#include "prepare/description/description_checks.h"

#include "prepare/description/description_words.h"
#include "prepare/description/text_places.h"

#include "prepare/description/derived_checks.h"
#include "prepare/description/deviation_checks.h"
#include "prepare/description/factor_rows.h"
#include "prepare/description/kind_checks.h"
#include "prepare/description/sampler_checks.h"
#include "prepare/description/solution_checks.h"
#include "shared/indexing.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <limits>
#include <set>
#include <utility>

extern "C" void dsyev_(const char* jobz, const char* uplo, const int* n, double* a, const int* lda, double* w,
                       double* work, const int* lwork, int* info, std::size_t jobz_length,
                       std::size_t uplo_length);

namespace zeph::prepare {

namespace {

constexpr int most_traits = 20;

template <typename Section> std::vector<std::string> names_of(const std::vector<Section>& sections) {
  std::vector<std::string> names;
  for (const Section& s : sections) names.push_back(s.name);
  return names;
}

template <typename Section> int index_of(const std::vector<Section>& sections, std::string_view name) {
  for (std::size_t i = 0; i < sections.size(); ++i)
    if (sections[i].name == name) return static_cast<int>(i);
  return -1;
}

// ---- formulas

message& error_in_formula(const model_description& d, message_log& log, const trait_section& t,
                          std::size_t offset, std::string text) {
  return error_at(d, log, place_in_text(d, t.formula_text, offset), std::move(text));
}

// Sets effect::covariable. A column is a class unless it has a table [covariable.x].
void mark_covariable(const model_description& d, message_log& log, const trait_section& t, effect& e) {
  for (std::size_t i = 0; i < e.atoms.size(); ++i) {
    const atom& a = e.atoms[i];
    if (a.kind == atom_kind::column && find_covariable(d, a.name) == nullptr) continue;
    if (e.covariable >= 0)
      error_in_formula(d, log, t, e.at.begin,
                       fmt::format("effect {} holds two covariables; make their product a column of the data",
                                   effect_text(e)));
    else
      e.covariable = static_cast<int>(i);
  }
}

void refuse_own_observation(const model_description& d, message_log& log, const trait_section& t,
                            const effect& e) {
  for (const atom& a : e.atoms) {
    const covariable_section* c = find_covariable(d, a.name);
    if ((c == nullptr ? a.name : c->column.value) != t.column.value) continue;
    error_in_formula(d, log, t, a.name_at.begin,
                     fmt::format("{} is the observation of this trait and can't explain itself", a.name));
  }
}

void check_left(const model_description& d, message_log& log, const trait_section& t, const effect& e) {
  if (e.covariable >= 0 && e.atoms.size() == 1) return;
  message& m =
      error_in_formula(d, log, t, e.at.begin,
                       fmt::format("{} appears on the left of '|' but is {}", effect_text(e),
                                   e.covariable < 0 ? "not a covariable"
                                                    : "a product with a class, which is not yet supported"));
  if (e.covariable < 0 && e.atoms.size() == 1)
    m.hint = fmt::format("if it is a number, add a table [covariable.{}]", e.atoms.front().name);
}

// "[factor.genetic]", [factor."herd:year"]: as the table's line is written.
std::string table_of_factor(const std::string& name) {
  const bool bare = std::ranges::all_of(name, [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
  });
  return bare ? fmt::format("[factor.{}]", name) : fmt::format("[factor.\"{}\"]", name);
}

void check_factor_name(const model_description& d, message_log& log, const trait_section& t,
                       const random_term& r) {
  if (index_of(d.factors, r.factor) >= 0) return;
  message& m =
      error_in_formula(d, log, t, r.factor_at.begin, fmt::format("factor \"{}\" is not defined", r.factor));
  m.hint = nearest_hint(r.factor, names_of(d.factors));
  if (m.hint.empty()) m.hint = fmt::format("add a table {}", table_of_factor(r.factor));
}

void check_part(const model_description& d, message_log& log, const trait_section& t,
                const named_part& part) {
  if (find_covariable(d, part.name) != nullptr)
    error_in_formula(d, log, t, part.at.begin,
                     fmt::format("{} is a covariable and can't number the levels of a factor", part.name));
  if (part.name == t.column.value)
    error_in_formula(d, log, t, part.at.begin,
                     fmt::format("{} is the observation of this trait and can't explain itself", part.name));
}

// A pedigree has animals, and a name of one text means either a column or a combination in all of a
// description.
void check_combination(const model_description& d, message_log& log, const trait_section& t,
                       const random_term& r, const named_column& c) {
  const int k = index_of(d.factors, r.factor);
  if (c.parts.size() > 1 && k >= 0 && d.factors[from0(k)].kind == relationship_kind::pedigree)
    error_in_formula(
        d, log, t, c.at.begin,
        fmt::format("{} is a combination of classes and can't name the animals of a pedigree", c.name));
  for (const trait_section& other : d.traits)
    for (const random_term& term : other.terms.random)
      for (const named_column& column : term.columns)
        if (column.name == c.name && names_of(column.parts) != names_of(c.parts))
          error_in_formula(
              d, log, t, c.at.begin,
              fmt::format("{} is a column in one place and a combination of classes in another", c.name))
              .hint = "give the column another name";
}

void check_random_term(const model_description& d, message_log& log, const trait_section& t,
                       const random_term& r) {
  check_factor_name(d, log, t, r);
  for (const effect& e : r.left) check_left(d, log, t, e);
  for (const named_column& c : r.columns) {
    check_combination(d, log, t, r, c);
    for (const named_part& part : c.parts) check_part(d, log, t, part);
  }
}

void read_formula(model_description& d, message_log& log, trait_section& t) {
  if (!t.formula_text.given) return;
  std::vector<formula_fault> faults;
  parse_formula(t.formula_text.value, t.terms, faults);
  for (const formula_fault& f : faults) error_in_formula(d, log, t, f.at, f.text).hint = f.hint;
  for (effect& e : t.terms.fixed) {
    mark_covariable(d, log, t, e);
    refuse_own_observation(d, log, t, e);
  }
  for (random_term& r : t.terms.random) {
    for (effect& e : r.left) {
      mark_covariable(d, log, t, e);
      refuse_own_observation(d, log, t, e);
    }
    check_random_term(d, log, t, r);
  }
}

template <typename Visit> void for_each_effect(const trait_section& t, Visit visit) {
  for (const effect& e : t.terms.fixed) visit(e);
  for (const random_term& r : t.terms.random)
    for (const effect& e : r.left) visit(e);
}

// A covariable of leg or poly that is a class elsewhere is most likely a missing [covariable.x].
void warn_of_classes_in_curves(const model_description& d, message_log& log) {
  std::set<std::string> curves, told;
  for (const trait_section& t : d.traits)
    for_each_effect(t, [&curves](const effect& e) {
      for (const atom& a : e.atoms)
        if (a.kind != atom_kind::column) curves.insert(a.name);
    });
  for (const trait_section& t : d.traits)
    for_each_effect(t, [&](const effect& e) {
      for (const atom& a : e.atoms) {
        const bool is_class = a.kind == atom_kind::column && find_covariable(d, a.name) == nullptr;
        if (!is_class || !curves.contains(a.name) || !told.insert(a.name).second) continue;
        warning_at(d, log, place_in_text(d, t.formula_text, a.at.begin),
                   fmt::format("{} is a class here and a covariable in leg or poly", a.name))
            .hint = fmt::format("if it is a number here too, add a table [covariable.{}]", a.name);
      }
    });
}

// ---- factors

void check_factors(model_description& d, message_log& log, bool formulas_are_good) {
  make_rows(d, log);
  if (!formulas_are_good) return; // the lists of rows may lack some
  for (factor_section& f : d.factors) {
    if (f.rows.empty())
      warning_at(d, log, f.at, fmt::format("[factor.{}] is used in no formula", f.name));
    else if (!f.order.empty())
      apply_order(d, log, f);
  }
}

// ---- matrices

// order 0: not known, so only the matrix alone is judged.
void check_matrix(const model_description& d, message_log& log, const matrix_value& m,
                  const std::string& what, int order, const std::vector<std::string>& rows) {
  if (m.order == 0) return;
  if (order > 0 && m.order != order) {
    error_at(
        d, log, m.at,
        fmt::format("{} is {} x {}, but its order is {}: {}", what, m.order, m.order, order, joined(rows)));
    return;
  }
  if (!is_positive_definite(m))
    error_at(d, log, m.at,
             fmt::format("{} is not positive definite (smallest eigenvalue {:.2g})", what,
                         smallest_eigenvalue(m)));
}

// A prior of order q is proper from q + 2 degrees of freedom on; the files hold a whole number. order 0: not
// known.
void refuse_fraction(const model_description& d, message_log& log, const prior_degrees& prior_df, int order,
                     const std::string& title) {
  if (prior_df.fraction == 0.0) return;
  const bool small = order > 0 && prior_df.value < order + 2;
  const std::string nearest =
      small ? fmt::format("with order {} the nearest are 0 (flat) and {}", order, order + 2)
            : fmt::format("the nearest are {} and {}", prior_df.value, prior_df.value + 1);
  message& m = error_at(d, log, prior_df.at,
                        fmt::format("{} prior_df = {}: the item is a whole number; {}", title,
                                    prior_df.value + prior_df.fraction, nearest));
  if (order == 0) m.hint = "0 is flat, and so is all up to the order of the matrix + 1";
}

void warn_of_flat_prior(const model_description& d, message_log& log, const prior_degrees& prior_df,
                        int order, const std::string& title) {
  if (prior_df.fraction > 0.0 || order < 1 || prior_df.value < 1 || prior_df.value > order + 1) return;
  warning_at(d, log, prior_df.at,
             fmt::format("{} prior_df = {} with order {} is taken as flat; give {} or more, or 0", title,
                         prior_df.value, order, order + 2));
}

// The analysis runs over models with fewer rows of this factor.
bool compares_rows(const model_description& d, const factor_section& f) {
  return has_several_models(d.run.analysis.value) && f.rows.size() > 1;
}

void check_factor_matrices(const model_description& d, message_log& log, bool formulas_are_good) {
  for (const factor_section& f : d.factors) {
    const std::string title = fmt::format("[factor.{}]", f.name);
    const int order = formulas_are_good ? static_cast<int>(f.rows.size()) : 0;
    check_matrix(d, log, f.start, title + " start", order, names_of(f.rows));
    refuse_fraction(d, log, f.prior_df, order, title);
    if (!compares_rows(d, f)) warn_of_flat_prior(d, log, f.prior_df, order, title);
  }
}

void check_residual(const model_description& d, message_log& log) {
  const residual_section& r = d.residual;
  const int nt = static_cast<int>(d.traits.size());
  const std::vector<std::string> names = names_of(d.traits);
  check_matrix(d, log, r.start, "[residual] start", nt, names);
  check_residual_start(d, log, r.start, "[residual] start");
  refuse_fraction(d, log, r.prior_df, nt, "[residual]");
  warn_of_flat_prior(d, log, r.prior_df, nt, "[residual]");
  for (const group_start& g : r.start_by_group) {
    const std::string what = fmt::format("[residual] start_by_group {}", g.code);
    check_matrix(d, log, g.start, what, nt, names);
    check_residual_start(d, log, g.start, what);
  }
  if (!r.start_by_group.empty() && !r.groups.given)
    error_at(d, log, r.start_by_group.front().at, "[residual] start_by_group needs groups = \"column\"");
}

// ---- traits, covariables, [keep], [run]

bool reads_column(const trait_section& t) {
  return t.kind.value != trait_kind::cured && (t.kind.value != trait_kind::indicator || t.column.given);
}

void check_traits(const model_description& d, message_log& log) {
  if (d.traits.empty()) error_at(d, log, {}, "there is no trait; add a table [trait.NAME] with a formula");
  if (d.traits.size() > most_traits) {
    error_at(d, log, d.traits.back().at,
             fmt::format("{} traits; at most {} are possible", d.traits.size(), most_traits));
    return;
  }
  for (std::size_t i = 0; i < d.traits.size(); ++i) {
    for (std::size_t j = 0; j < i; ++j)
      if (reads_column(d.traits[i]) && reads_column(d.traits[j]) &&
          d.traits[i].column.value == d.traits[j].column.value)
        warning_at(d, log, d.traits[i].at,
                   fmt::format("traits {} and {} read the same column {}", d.traits[j].name, d.traits[i].name,
                               d.traits[i].column.value));
  }
}

void warn_of_unused_covariables(const model_description& d, message_log& log) {
  std::set<std::string> used;
  for (const trait_section& t : d.traits)
    for_each_effect(t, [&used](const effect& e) {
      for (const atom& a : e.atoms) used.insert(a.name);
    });
  for (const covariable_section& c : d.covariables)
    if (!used.contains(c.name))
      warning_at(d, log, c.at, fmt::format("[covariable.{}] is used in no formula", c.name));
}

// Words of [keep] solutions: factors, effects and "trait.effect"; "1" is the mean.
std::vector<std::string> kept_words(const model_description& d) {
  std::vector<std::string> words = names_of(d.factors);
  std::set<std::string> effects;
  for (const trait_section& t : d.traits) {
    std::vector<std::string> own;
    if (t.terms.mean) own.emplace_back("1");
    for (const shift_term& shift : t.terms.shifts) own.push_back(shift_text(shift));
    for (const effect& e : t.terms.fixed) own.push_back(effect_text(e));
    for (const std::string& word : own) {
      if (effects.insert(word).second) words.push_back(word);
      words.push_back(t.name + "." + word);
    }
  }
  return words;
}

void check_keep(const model_description& d, message_log& log) {
  if (d.keep.effects.empty()) return;
  const std::vector<std::string> words = kept_words(d);
  for (const text_value& e : d.keep.effects)
    if (std::find(words.begin(), words.end(), e.value) == words.end())
      error_at(d, log, e.at,
               fmt::format("[keep] solutions: \"{}\" is neither a factor nor an effect; known: {}", e.value,
                           joined(words)))
          .hint = nearest_hint(e.value, words);
}

bool has_groups(const factor_section& f) {
  return f.kind == relationship_kind::pedigree &&
         (f.pedigree.group_pattern.given || !f.pedigree.group_codes.empty());
}

// Chains over models: moves know "I" and "PED" factors only, one pedigree, no phantom groups, and a factor
// of two rows or more is needed. The rows are known when the formulas are good.
void check_model_moves(const model_description& d, message_log& log, bool rows_known) {
  const run_section& r = d.run;
  const bool moves = moves_between_models(r.analysis.value);
  int pedigrees = 0;
  std::size_t largest = 0;
  for (const factor_section& f : d.factors) {
    largest = std::max(largest, f.rows.size());
    const bool pedigree = f.kind == relationship_kind::pedigree;
    if (moves && !pedigree && f.kind != relationship_kind::identity)
      error_at(
          d, log, r.analysis.at,
          fmt::format("analysis \"jump\" takes factors with identity or pedigree only; [factor.{}] is {} {}",
                      f.name, f.kind == relationship_kind::inverse ? "an" : "a", word_of(f.kind)));
    if (has_groups(f))
      error_at(d, log, r.analysis.at,
               fmt::format("analysis \"{}\" takes no phantom parent groups; [factor.{}] has them",
                           word_of(r.analysis.value), f.name));
    if (pedigree && ++pedigrees == 2)
      error_at(d, log, r.analysis.at,
               fmt::format("analysis \"{}\" takes one factor with a pedigree; [factor.{}] is the second",
                           word_of(r.analysis.value), f.name));
  }
  if (rows_known && largest < 2)
    error_at(d, log, r.analysis.at,
             fmt::format("analysis \"{}\" needs a factor of two rows or more", word_of(r.analysis.value)));
}

void check_run(const model_description& d, message_log& log, bool rows_known) {
  const run_section& r = d.run;
  if (has_several_models(r.analysis.value)) check_model_moves(d, log, rows_known);
  if (r.restrict_solutions.value && samples_matrices(r.analysis.value))
    error_at(d, log, r.restrict_solutions.at,
             fmt::format("restrict works in the analyses solve, sums and predict, not in {}",
                         word_of(r.analysis.value)));
  if (r.continue_chain.value && !r.saves_state())
    for (const trait_section& t : d.traits)
      if (t.kind.value == trait_kind::ordered) {
        error_at(d, log, r.continue_chain.at,
                 "restarting is not possible with an ordered trait; remove [run] continue");
        break;
      }
  if (std::int64_t{r.burnin.value} + r.rounds.value > std::numeric_limits<std::int32_t>::max())
    error_at(d, log, r.rounds.given ? r.rounds.at : r.burnin.at,
             fmt::format("[run] burnin + rounds = {}: rounds are numbered up to {}",
                         std::int64_t{r.burnin.value} + r.rounds.value,
                         std::numeric_limits<std::int32_t>::max()));
  if (samples_solutions(r.analysis.value) && r.interval.value > r.rounds.value)
    warning_at(d, log, r.interval.given ? r.interval.at : r.rounds.at,
               fmt::format("interval = {} is above rounds = {}: no sample is kept", r.interval.value,
                           r.rounds.value));
}

} // namespace

double smallest_eigenvalue(const matrix_value& m) {
  std::vector<double> a = m.value;
  const int n = m.order, lwork = 34 * n; // (block size 32 + 2) n
  std::vector<double> w(from0(n)), work(from0(lwork));
  int info = 0;
  dsyev_("N", "L", &n, a.data(), &n, w.data(), work.data(), &lwork, &info, 1, 1);
  return info == 0 ? w.front() : std::numeric_limits<double>::quiet_NaN();
}

bool is_positive_definite(const matrix_value& m) {
  constexpr double smallest = 1e-10; // of the matrix with ones on the diagonal
  matrix_value scaled = m;
  const std::size_t n = from0(m.order);
  for (std::size_t i = 0; i < n; ++i)
    if (!(m.value[i * n + i] > 0.0)) return false;
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = 0; j < n; ++j)
      scaled.value[i * n + j] =
          m.value[i * n + j] / std::sqrt(m.value[i * n + i]) / std::sqrt(m.value[j * n + j]);
  return std::all_of(scaled.value.begin(), scaled.value.end(), [](double x) { return std::isfinite(x); }) &&
         smallest_eigenvalue(scaled) > smallest;
}

void check_description(model_description& d, message_log& log) {
  const int before = count_of(log, severity::error);
  for (trait_section& t : d.traits) read_formula(d, log, t);
  const bool all_given = std::all_of(d.traits.begin(), d.traits.end(),
                                     [](const trait_section& t) { return t.formula_text.given; });
  const bool formulas_are_good = all_given && count_of(log, severity::error) == before;
  warn_of_classes_in_curves(d, log);
  check_factors(d, log, formulas_are_good);
  check_factor_matrices(d, log, formulas_are_good);
  check_traits(d, log);
  link_kinds(d, log, formulas_are_good);
  link_solutions(d, log, formulas_are_good);
  warn_of_unused_covariables(d, log);
  check_residual(d, log);
  check_keep(d, log);
  if (formulas_are_good) check_derived(d, log);
  check_deviations(d, log, formulas_are_good);
  check_run(d, log, formulas_are_good);
  check_sampler(d, log, formulas_are_good);
}

} // namespace zeph::prepare
