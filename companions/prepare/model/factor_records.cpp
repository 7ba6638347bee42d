#include "prepare/model/factor_records.h"

#include "input/structures.h"
#include "prepare/description/solution_checks.h"
#include "prepare/messages/messages.h"
#include "prepare/model/short_names.h"
#include "shared/indexing.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace zeph::prepare {

namespace {

constexpr std::int32_t code_plain = 1;
constexpr std::int32_t code_with_groups = 6; // last digit 6: phantom parent groups

std::vector<std::string> columns_of(const factor_levels& f) {
  std::vector<std::string> out;
  for (const contribution& c : f.contributions)
    if (std::ranges::find(out, c.column) == out.end()) out.push_back(c.column);
  return out;
}

void fill_rows(const factor_levels& f, const std::vector<std::string>& names, structure_record& m) {
  for (int i = 0; i < f.order(); ++i) {
    m.TRAIT_NO(i + 1) = m.TRAIT_INP(i + 1) = f.row_trait[from0(i)] + 1;
    m.T_NO(i + 1) = i + 1;
    m.T_NAME(i + 1) = padded(names[from0(i)], short_width);
    m.carried.TRAIT_BLK_SIZE(i + 1) = 1;
    m.carried.TRAIT_BLK_STAERT(i + 1) = i + 1;
    m.carried.R_EFF(i + 1) = i + 1;
  }
}

void fill_contribution(const contribution& c, std::int32_t n, std::int32_t level_column, prepared_model& p,
                       structure_record& m) {
  m.CONT_POS(n) = c.row;
  m.CONT_RC(n) = 1;
  m.CONT_T_NO(n) = m.carried.CONT_T_INP(n) = m.carried.CONT_T_RCI(n) = c.trait + 1;
  m.carried.CONT_EFF(n) = 1;
  m.carried.CONT_EFF_INP(n) = m.CONT_EFF_RCI(n) = level_column;
  m.carried.CONT_ID_NO(n) = padded(cut_name(c.column), short_width);
  m.carried.CONT_T_NAME(n) = padded(p.names.traits[from0(c.trait)], short_width);
  m.carried.CONT_RR_NAME(n) = padded(cut_name(c.curve.name), short_width);
  m.CONT_COEFF(n) = c.constant ? c.factor : 1.0;
  m.CONT_RR_EFF(n) = c.constant ? 0 : 1;
  if (!c.constant) m.CONT_RR_RCI(n) = m.carried.CONT_RR_INP(n) = add_reals(p.rows, p.records, c.curve.value);
}

void fill_effects(const factor_levels& f, const std::map<std::string, std::int32_t>& level_column,
                  structure_record& m) {
  std::int32_t e = 0;
  for (const factor_effect& effect : effects_of(f)) {
    ++e;
    m.carried.R_EFF_INP(e) = m.carried.T_R_ID_RCI(e) = level_column.at(effect.column);
    m.carried.N_RR(e) = effect.n_coefficients;
    m.INTERCEPT(e) = effect.intercept ? 1 : 0;
  }
  std::int32_t c = 0;
  for (const std::string& column : columns_of(f)) {
    ++c;
    m.carried.RANDOM_ID_INP(c) = m.R_EFF_RCI(c) = level_column.at(column);
  }
}

void fill_groups(const factor_levels& f, structure_record& m) {
  m.r36 = f.n_groups > 0 ? code_with_groups : code_plain;
  for (std::int32_t g = 1; g <= f.n_groups; ++g) {
    const std::int32_t level = f.n_levels() - f.n_groups + g;
    m.carried.PHG_LIST(1, g) = f.code[from1(level)];
    m.carried.PHG_LIST(2, g) = level;
  }
}

} // namespace

std::vector<factor_effect> effects_of(const factor_levels& f) {
  std::vector<factor_effect> out;
  for (const contribution& c : f.contributions) {
    auto found = std::ranges::find_if(
        out, [&c](const factor_effect& e) { return e.trait == c.trait && e.column == c.column; });
    if (found == out.end()) found = out.insert(out.end(), {c.trait, c.column, false, 0});
    found->intercept = found->intercept || c.constant;
    ++found->n_coefficients;
  }
  return out;
}

void size_factor(const factor_levels& f, structure_record& out) {
  out.n_cont = static_cast<std::int32_t>(f.contributions.size());
  out.n_rc = out.n_t = f.order();
  out.n_rid = static_cast<std::int32_t>(columns_of(f).size());
  out.carried.n_reff = static_cast<std::int32_t>(effects_of(f).size());
  out.n_phg = f.n_groups;
  out.CV_STRUCT = padded(std::string(row_of(f.structure).name), 12);
}

std::map<std::string, std::int32_t> add_level_columns(const model_description& d, const factor_levels& f,
                                                      prepared_model& p) {
  std::map<std::string, std::int32_t> out;
  for (const std::string& column : columns_of(f)) {
    const std::vector<std::int32_t>& level = f.level.at(column);
    // the input number of an effect whose solutions are a covariable is its own
    out.emplace(column, is_random_source(d, f.name, column)
                            ? append_integers(p.rows, values_of_used(p.records, level))
                            : add_integers(p.rows, p.records, level));
  }
  return out;
}

void fill_factor(const model_description& d, int k, const std::map<std::string, std::int32_t>& level_column,
                 prepared_model& p, message_log& log) {
  const factor_levels& f = p.factors[from1(k)];
  structure_record& m = p.model.RMAT(k);
  m.QTL_FACTOR = 0;
  p.model.NRALEV(k) = f.n_levels();
  fill_rows(f, p.names.rows[from1(k)], m);
  std::int32_t n = 0;
  for (const contribution& c : f.contributions) fill_contribution(c, ++n, level_column.at(c.column), p, m);
  fill_effects(f, level_column, m);
  fill_groups(f, m);

  const start_matrix& start = p.start.factors[from1(k)];
  std::vector<double> inverse;
  if (!inverse_of(start, inverse, m.r3304)) {
    add_error(log, {}, fmt::format("[factor.{}] start is not positive definite", d.factors[f.section].name));
    return;
  }
  for (int i = 0; i < f.order(); ++i)
    for (int j = 0; j < f.order(); ++j) {
      m.COV_MAT(i + 1, j + 1) = m.P_COV_MAT(i + 1, j + 1) = start.at(i, j);
      m.GIF(i + 1, j + 1) = inverse[from0(i * f.order() + j)];
    }
}

} // namespace zeph::prepare
