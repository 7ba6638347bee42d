#include "prepare/description/deviation_checks.h"

#include "prepare/description/description_words.h"

#include "prepare/messages/messages.h"
#include "shared/indexing.h"

#include <fmt/format.h>
#include <set>

namespace zeph::prepare {

namespace {

message& refuse(const model_description& d, message_log& log, const factor_section& f, std::string text) {
  return error_at(d, log, f.deviations.at, fmt::format("[factor.{}] deviations{}", f.name, text));
}

void check_rows(const model_description& d, message_log& log, const factor_section& f) {
  std::string column;
  std::set<int> traits;
  for (const factor_row& row : f.rows) {
    const trait_section& t = d.traits[from0(row.trait)];
    const random_term& term = t.terms.random[from0(row.term)];
    if (row.effect >= 0) refuse(d, log, f, fmt::format(": {} is a random regression and has none", row.name));
    if (term.columns.size() > 1)
      refuse(d, log, f, fmt::format(": {} takes two levels of a record", row.name));
    if (!traits.insert(row.trait).second) continue;
    if (column.empty()) column = term.columns.front().name;
    if (term.columns.front().name == column) continue;
    refuse(d, log, f,
           fmt::format(" are those of {}, and the first row of {} is {}", column, t.name, row.name))
        .hint = "put the rows of one column first: order = [..]";
  }
}

void check_keys(const model_description& d, message_log& log, const factor_section& f) {
  if (f.deviations.value == deviation_kind::progeny) return;
  for (const stated<std::int32_t>* key : {&f.deviations_every, &f.deviations_above})
    if (key->given)
      error_at(d, log, key->at,
               fmt::format("[factor.{}] deviations_every and deviations_above need deviations = \"progeny\"",
                           f.name));
}

void check_pedigrees(const model_description& d, message_log& log, const factor_section& f) {
  if (f.kind != relationship_kind::pedigree) refuse(d, log, f, " = \"progeny\" needs a pedigree");
  for (const factor_section& other : d.factors)
    if (&other != &f && other.kind == relationship_kind::pedigree)
      refuse(d, log, f,
             fmt::format(" = \"progeny\" takes no second factor with pedigree, and [factor.{}] is one",
                         other.name));
}

} // namespace

void check_deviations(const model_description& d, message_log& log, bool formulas_are_good) {
  const factor_section* marked = nullptr;
  for (const factor_section& f : d.factors) {
    check_keys(d, log, f);
    if (f.deviations.value == deviation_kind::none) continue;
    if (marked != nullptr)
      refuse(d, log, f, fmt::format(": [factor.{}] has them, and one factor can", marked->name));
    marked = &f;
    if (f.deviations.value == deviation_kind::progeny) check_pedigrees(d, log, f);
    if (has_several_models(d.run.analysis.value))
      refuse(d, log, f, fmt::format(": analysis \"{}\" gives none", word_of(d.run.analysis.value)));
    if (formulas_are_good) check_rows(d, log, f);
  }
}

} // namespace zeph::prepare
