#include "prepare/model/trait_records.h"

#include "input/structures.h"
#include "prepare/model/short_names.h"
#include "shared/indexing.h"

#include <algorithm>

namespace zeph::prepare {

namespace {

constexpr std::int32_t first_input = 1000001;

std::int32_t count(std::size_t n) { return static_cast<std::int32_t>(n); }

// A nested regression reads a level in every record: where there is none its covariable is 0 and level 1 will
// do.
std::vector<std::int32_t> without_zero(std::vector<std::int32_t> level) {
  for (std::int32_t& l : level) l = std::max(l, 1);
  return level;
}

void fill_effect(trait_record& m, std::int32_t e, std::int32_t column, bool equations) {
  m.EF_INP(e) = m.carried.EF_RCI(e) = column;
  m.INTERCEPT(e) = equations ? 1 : 0;
  m.carried.EF_COEFF(e) = 1.0F;
}

void fill_class(int t, std::int32_t j, prepared_model& p) {
  trait_record& m = p.model.MODEL(t + 1);
  const class_effect& c = p.fixed[from0(t)].classes[from1(j)];
  const std::vector<std::int32_t> level = c.intercept ? c.level : without_zero(c.level);
  // the input number of an effect whose solutions are a covariable is its own
  const std::int32_t column = c.source ? append_integers(p.rows, values_of_used(p.records, level))
                                       : add_integers(p.rows, p.records, level);
  fill_effect(m, j, column, c.intercept);
  m.f_ef_inp(j) = m.f_ef_rci(j) = column;
  m.F_EF_NAME(j) = padded(p.names.classes[from0(t)][from1(j)], short_width);
  m.carried.F_INTERCEPT(j) = c.intercept ? 1 : 0;
  m.carried.F_EF_COEFF(j) = 1.0F;
  p.model.NLEV(t + 1, j) = c.n_levels();
}

void fill_random(trait_record& m, std::int32_t j, int k, std::int32_t column, const std::string& name) {
  fill_effect(m, m.n_f + j, column, true);
  m.r_ef_inp(j) = m.r_ef_rci(j) = column;
  m.carried.R_EF_NAME(j) = padded(cut_name(name), short_width);
  m.carried.R_INTERCEPT(j) = 1;
  m.carried.R_EF_COEFF(j) = 1.0F;
  m.r_ef_matno(j) = k;
}

void fill_fixed_regression(int t, std::int32_t j, prepared_model& p) {
  trait_record& m = p.model.MODEL(t + 1);
  const fixed_regression& x = p.fixed[from0(t)].regressions[from1(j)];
  m.REG_TYPE(j) = x.nested < 0 ? 0 : 1;
  m.carried.REG_N_LEVEL(j) = 1;
  if (x.indicator >= 0) { // the input number is that of the indicator's column
    m.REG_MIXTURE(j) = 1;
    m.REG_INP(j) = x.indicator + 1;
    m.REG_RCI(j) = append_reals(p.rows, p.records, x.value);
    return;
  }
  m.REG_RCI(j) = m.REG_INP(j) = add_reals(p.rows, p.records, x.value);
  if (x.solution >= 0) m.REG_INP(j) = solution_input(x.solution);
  if (x.nested < 0) return;
  const class_effect& c = p.fixed[from0(t)].classes[from0(x.nested)];
  m.REG_N_RCI(j) = m.carried.REG_N_INP(j) = add_integers(p.rows, p.records, without_zero(c.level));
  m.REG_N_EF_INP(j) = x.nested + 1;
  m.carried.REG_NAME_N(j) = padded(cut_name(c.name, nesting_width), nesting_width);
  m.carried.REG_N_LEVEL(j) = c.n_levels();
}

void fill_random_regression(int t, std::int32_t j, int k, const contribution& c, prepared_model& p) {
  trait_record& m = p.model.MODEL(t + 1);
  m.REG_TYPE(j) = random_regression;
  m.REG_RCI(j) = m.REG_INP(j) = add_reals(p.rows, p.records, c.curve.value);
  m.REG_R_MATNO(j) = k;
  m.carried.REG_N_LEVEL(j) = p.factors[from1(k)].n_levels();
}

// Codes and upper limits of a censored trait.
void fill_censoring(int t, prepared_model& p, trait_record& m) {
  const trait_values& values = p.data.traits[from0(t)];
  m.L_CENS = true;
  m.CENS_RCI = m.carried.CENS_INP = add_integers(p.rows, p.records, values.code);
  m.UPPER_RCI = m.carried.UPPER_INP = add_reals(p.rows, p.records, values.upper);
}

// Partners: the sequence and its trait of kind cured, a mixed trait and its indicator.
void fill_partners(const trait_section& trait, prepared_model& p, trait_record& m) {
  if (trait.kind.value == trait_kind::sequence) {
    m.link2 = trait.partner + 1;
    m.SEQ_RCI = m.carried.m18_11 = add_integers(p.rows, p.records, p.records.sequences.position);
  }
  if (trait.kind.value == trait_kind::cured) m.link1 = trait.partner + 1;
  m.L_MIX_TRAIT = trait.indicator >= 0;
  m.MIX_EQ_TYPE = trait.indicator + 1;
}

void fill_observation(const model_description& d, int t, prepared_model& p) {
  const trait_section& trait = d.traits[from0(t)];
  trait_record& m = p.model.MODEL(t + 1);
  m.TRAIT_TYPE = static_cast<std::int32_t>(trait.kind.value);
  m.TRAIT_NAME = padded(p.names.traits[from0(t)], short_width);
  m.Y_RCI = m.TRAIT_INP = t + 1; // the observations are the first columns
  fill_partners(trait, p, m);
  if (trait.kind.value == trait_kind::censored) fill_censoring(t, p, m);
  if (trait.weight.value.empty()) return;
  m.WGT_FLAG = 1;
  m.carried.WGT_NAME = padded(cut_name(trait.weight.value), short_width);
  m.WGT_RCI = m.carried.WGT_INP = add_reals(p.rows, p.records, p.data.number(trait.weight.value));
  p.model.carried.TraitIdWithWeight(t + 1) = t + 1;
}

} // namespace

std::int32_t solution_input(int k) { return first_input + k; }

trait_random random_of_trait(const std::vector<factor_levels>& factors, int t) {
  trait_random out;
  for (std::size_t k = 0; k < factors.size(); ++k) {
    const int number = static_cast<int>(k) + 1;
    int last_row = 0;
    for (const contribution& c : factors[k].contributions) {
      if (c.trait != t) continue;
      const std::pair<int, std::string> effect{number, c.column};
      if (std::ranges::find(out.effects, effect) == out.effects.end()) out.effects.push_back(effect);
      if (!c.constant && c.row != last_row) out.curves.emplace_back(number, &c);
      last_row = c.row;
    }
  }
  return out;
}

void size_trait(const prepared_model& p, int t, trait_record& out) {
  const fixed_part& fixed = p.fixed[from0(t)];
  const trait_random random = random_of_trait(p.factors, t);
  out.n_f = count(fixed.classes.size());
  out.n_r = count(random.effects.size());
  out.n_ef = out.n_f + out.n_r;
  out.n_reg = count(fixed.regressions.size() + random.curves.size());
}

void fill_trait(const model_description& d, int t,
                const std::vector<std::map<std::string, std::int32_t>>& level_column, prepared_model& p) {
  trait_record& m = p.model.MODEL(t + 1);
  fill_observation(d, t, p);
  for (std::int32_t j = 1; j <= m.n_f; ++j) fill_class(t, j, p);

  const trait_random random = random_of_trait(p.factors, t);
  for (std::int32_t j = 1; j <= m.n_r; ++j) {
    const auto& [k, column] = random.effects[from1(j)];
    fill_random(m, j, k, level_column[from1(k)].at(column), column);
  }
  const auto n_fixed = count(p.fixed[from0(t)].regressions.size());
  for (std::int32_t j = 1; j <= n_fixed; ++j) fill_fixed_regression(t, j, p);
  for (std::int32_t j = n_fixed + 1; j <= m.n_reg; ++j) {
    const auto& [k, c] = random.curves[from0(j - n_fixed - 1)];
    fill_random_regression(t, j, k, *c, p);
  }
  for (std::int32_t j = 1; j <= m.n_reg; ++j)
    m.REG_NAME(j) = padded(p.names.covariables[from0(t)][from1(j)], short_width);
}

std::int64_t number_equations(prepared_model& p) {
  model_records& m = p.model;
  std::int64_t next = 0;
  const auto take = [&next](std::int32_t& offset, std::int64_t n) {
    offset = static_cast<std::int32_t>(std::min<std::int64_t>(next, INT32_MAX));
    next += n;
  };
  for (const std::int32_t kind : {0, 1})
    for (std::int32_t i = 1; i <= m.nt; ++i)
      for (std::int32_t j = 1; j <= m.MODEL(i).n_reg; ++j)
        if (m.MODEL(i).REG_TYPE(j) == kind) take(m.NBEGREG(i, j), m.MODEL(i).carried.REG_N_LEVEL(j));
  m.nfreg = static_cast<std::int32_t>(next);
  for (std::int32_t j = 1; j <= m.mnef; ++j)
    for (std::int32_t i = 1; i <= m.nt; ++i)
      if (j <= m.MODEL(i).n_f) take(m.NBEGF(i, j), m.MODEL(i).INTERCEPT(j) != 0 ? m.NLEV(i, j) : 0);
  m.nfeq = static_cast<std::int32_t>(next);
  for (const bool pedigrees : {false, true})
    for (std::int32_t k = 1; k <= m.nramat; ++k)
      if ((p.factors[from1(k)].structure == structure_kind::pedigree) == pedigrees)
        take(m.NBEGRA(k), static_cast<std::int64_t>(m.RMAT(k).n_rc) * m.NRALEV(k));
  take(m.NBEGRA(m.nramat + 1), 0);
  for (std::int32_t k = 1; k <= m.nramat; ++k)
    for (std::int32_t c = 1; c <= m.RMAT(k).n_cont; ++c)
      m.carried.NBEGRAT(c, k) = m.NBEGRA(k) + m.RMAT(k).CONT_POS(c) - 1;
  return next;
}

} // namespace zeph::prepare
