#include "prepare/parts/fixed_part.h"

#include "prepare/description/effect_columns.h"
#include "prepare/description/solution_checks.h"
#include "prepare/messages/messages.h"
#include "prepare/records/solution_values.h"
#include "prepare/tables/level_codes.h"
#include "shared/indexing.h"

#include <algorithm>
#include <limits>

namespace zeph::prepare {

namespace {

// A class of the trait over its present records, all levels that occur.
struct trait_class {
  std::vector<std::string> columns;
  level_codes codes;
};

// An effect of the coding, and where its parts are.
struct coded_effect {
  int klass = -1; // index into working_part::classes, or -1
  int curve = -1; // index into working_part::curves, or -1
};

struct working_part {
  std::vector<trait_class> classes;
  std::vector<covariable_curve> curves; // values cleared where the trait is missing
  std::vector<coded_effect> effects;
};

level_codes mean_class(const std::vector<std::uint8_t>& present) {
  level_codes out;
  out.name = "mean";
  out.identification = {"mean"};
  out.code = {1};
  out.level.assign(present.begin(), present.end());
  out.n_records = {std::count(present.begin(), present.end(), 1)};
  out.codes_are_identifications = true;
  return out;
}

int class_of(const data_columns& data, const std::vector<std::uint8_t>& present,
             const std::vector<std::string>& columns, working_part& work, message_log& log) {
  for (std::size_t i = 0; i < work.classes.size(); ++i)
    if (work.classes[i].columns == columns) return static_cast<int>(i);
  std::vector<std::size_t> places;
  for (const std::string& name : columns) places.push_back(find_column(data.table, name));
  work.classes.push_back({columns, codes_of_columns(data.table, places, present)});
  check_class_size(data.table, work.classes.back().codes, log);
  return static_cast<int>(work.classes.size()) - 1;
}

// A covariable made from solutions.
void add_solution(const model_description& d, const data_columns& data,
                  const std::vector<std::uint8_t>& present, const covariable_section& c, int klass,
                  working_part& work) {
  covariable_curve curve;
  curve.name = c.name;
  curve.solution = static_cast<int>(&c - d.covariables.data());
  curve.value = solution_bases(data, c);
  curve.stand_in = stand_in_values(data, c);
  for (std::size_t r = 0; r < present.size(); ++r)
    if (present[r] == 0) curve.value[r] = curve.stand_in[r] = 0.0;
  work.curves.push_back(std::move(curve));
  work.effects.push_back({klass, static_cast<int>(work.curves.size()) - 1});
}

void add_curves(const model_description& d, const data_columns& data, const record_selection& records,
                const std::vector<std::uint8_t>& present, const effect& e, int klass, working_part& work,
                fixed_part& out, message_log& log) {
  const atom& x = *covariable_atom(e);
  if (const covariable_section* solution = solution_covariable(d, x)) {
    add_solution(d, data, present, *solution, klass, work);
    return;
  }
  const covariable_scale scale = scale_of(d, data, records, x, log);
  out.scales.push_back(scale);
  const int last = x.kind == atom_kind::column ? 1 : x.order;
  for (int degree = 1; degree <= last; ++degree) {
    covariable_curve curve = curve_of(d, data, scale, x, degree);
    for (std::size_t r = 0; r < present.size(); ++r)
      if (present[r] == 0) curve.value[r] = 0.0;
    work.curves.push_back(std::move(curve));
    work.effects.push_back({klass, static_cast<int>(work.curves.size()) - 1});
  }
}

working_part gather(const model_description& d, const data_columns& data, const record_selection& records,
                    int t, fixed_part& out, message_log& log) {
  const trait_section& trait = d.traits[from0(t)];
  const std::vector<std::uint8_t>& present = records.present[from0(t)];
  working_part work;
  const bool absorbed =
      std::ranges::any_of(trait.terms.fixed, [](const effect& e) { return covariable_atom(e) == nullptr; });
  if (trait.terms.mean && !absorbed) {
    work.classes.push_back({{}, mean_class(present)});
    work.effects.push_back({0, -1});
  }
  for (const effect& e : trait.terms.fixed) {
    const std::vector<std::string> columns = class_columns(e);
    const int klass = columns.empty() ? -1 : class_of(data, present, columns, work, log);
    if (covariable_atom(e) == nullptr)
      work.effects.push_back({klass, -1});
    else
      add_curves(d, data, records, present, e, klass, work, out, log);
  }
  return work;
}

std::string name_of(const working_part& work, const coded_effect& e) {
  const std::string klass = e.klass < 0 ? "" : work.classes[from0(e.klass)].codes.name;
  if (e.curve < 0) return klass;
  const std::string& x = work.curves[from0(e.curve)].name;
  return klass.empty() ? x : klass + ":" + x;
}

std::vector<fixed_effect> effects_for_coding(const model_description& d, int t, const working_part& work) {
  std::vector<fixed_effect> out;
  for (const coded_effect& e : work.effects) {
    fixed_effect f;
    f.name = name_of(work, e);
    if (e.klass >= 0) {
      const level_codes& codes = work.classes[from0(e.klass)].codes;
      f.level = codes.level;
      f.n_levels = codes.n_levels();
      f.identification = codes.identification;
    }
    if (e.curve >= 0) {
      const covariable_curve& curve = work.curves[from0(e.curve)];
      f.covariable = curve.solution < 0 ? curve.value : curve.stand_in;
    } else if (e.klass >= 0) {
      f.whole = is_source(d, t, work.classes[from0(e.klass)].columns);
    }
    out.push_back(f);
  }
  return out;
}

// The class with its levels renumbered; a level with new number 0 leaves the row.
class_effect renumbered(const level_codes& codes, const std::vector<std::int32_t>& new_level) {
  class_effect out;
  out.name = codes.name;
  const std::int32_t n = new_level.empty() ? 0 : *std::ranges::max_element(new_level);
  out.identification.resize(from0(n));
  out.code.resize(from0(n));
  out.n_records.resize(from0(n));
  for (std::size_t l = 0; l < new_level.size(); ++l) {
    if (new_level[l] == 0) continue;
    const auto at = from1(new_level[l]);
    out.identification[at] = codes.identification[l];
    out.code[at] = codes.code[l];
    out.n_records[at] = codes.n_records[l];
  }
  out.level.resize(codes.level.size());
  for (std::size_t r = 0; r < codes.level.size(); ++r)
    out.level[r] = codes.level[r] == 0 ? 0 : new_level[from1(codes.level[r])];
  return out;
}

// The class effect that a nested regression names: one of those there with the same name and levels, else a
// new one without equations.
int nesting_class(class_effect wanted, fixed_part& out) {
  for (std::size_t i = 0; i < out.classes.size(); ++i)
    if (out.classes[i].name == wanted.name && out.classes[i].identification == wanted.identification)
      return static_cast<int>(i);
  wanted.intercept = false;
  out.classes.push_back(std::move(wanted));
  return static_cast<int>(out.classes.size()) - 1;
}

void place_regression(const working_part& work, const coded_effect& e,
                      const std::vector<std::int32_t>& new_level, fixed_part& out) {
  const covariable_curve& curve = work.curves[from0(e.curve)];
  fixed_regression regression{name_of(work, e), curve.name, -1, curve.value, curve.solution, -1};
  if (e.klass < 0) {
    if (!new_level.empty() && new_level[0] == 0) return;
    out.regressions.push_back(std::move(regression));
    return;
  }
  class_effect wanted = renumbered(work.classes[from0(e.klass)].codes, new_level);
  if (wanted.n_levels() == 0) return;
  for (std::size_t r = 0; r < wanted.level.size(); ++r)
    if (wanted.level[r] == 0) regression.value[r] = 0.0; // trait missing, or a dropped level
  regression.nested = nesting_class(std::move(wanted), out);
  out.regressions.push_back(std::move(regression));
}

// A level with data that effect i lost.
std::string lost_level(const fixed_coding& coding, const std::vector<fixed_effect>& effects, std::size_t i) {
  for (const column_decision& c : coding.column)
    if (from0(c.effect) == i && c.state != column_state::kept && c.state != column_state::no_data)
      return column_name(effects[i], c.level) + ": " + c.why;
  return {};
}

void place_effects(const working_part& work, const std::vector<fixed_effect>& effects,
                   const fixed_coding& coding, fixed_part& out) {
  for (std::size_t i = 0; i < work.effects.size(); ++i) {
    const coded_effect& e = work.effects[i];
    if (e.curve >= 0) continue;
    class_effect placed = renumbered(work.classes[from0(e.klass)].codes, coding.new_level[i]);
    placed.source = effects[i].whole;
    placed.lost = placed.source ? lost_level(coding, effects, i) : "";
    if (placed.n_levels() > 0) out.classes.push_back(std::move(placed));
  }
  for (const bool nested : {false, true})
    for (std::size_t i = 0; i < work.effects.size(); ++i)
      if (work.effects[i].curve >= 0 && (work.effects[i].klass >= 0) == nested)
        place_regression(work, work.effects[i], coding.new_level[i], out);
}

// The distance between the components of a mixture: where the trait is present, 1 in component 1.
void place_shift(const model_description& d, const data_columns& data, const record_selection& records, int t,
                 fixed_part& out) {
  const trait_section& trait = d.traits[from0(t)];
  if (trait.indicator < 0) return;
  const auto indicator = from0(trait.indicator);
  fixed_regression shift{shift_text(trait.terms.shifts.front()),
                         d.traits[indicator].name,
                         -1,
                         data.traits[indicator].y,
                         -1,
                         trait.indicator};
  for (std::size_t r = 0; r < shift.value.size(); ++r)
    if (records.present[from0(t)][r] == 0) shift.value[r] = 0.0;
  out.regressions.push_back(std::move(shift));
}

} // namespace

fixed_part make_fixed_part(const model_description& d, const data_columns& data,
                           const record_selection& records, int t, message_log& log) {
  fixed_part out;
  const int errors = count_of(log, severity::error);
  const working_part work = gather(d, data, records, t, out, log);
  if (count_of(log, severity::error) > errors) return out;

  const std::vector<fixed_effect> effects = effects_for_coding(d, t, work);
  const std::vector<std::uint8_t>& present = records.present[from0(t)];
  const std::string& trait = d.traits[from0(t)].name;
  const fixed_coding coding = d.run.restrict_solutions.value
                                  ? full_coding(effects, present)
                                  : code_fixed_part(trait, effects, present, false, log);
  for (const column_decision& c : coding.column)
    out.coding.push_back({column_name(effects[from0(c.effect)], c.level), c.n_records, c.state, c.why});
  place_shift(d, data, records, t, out);
  place_effects(work, effects, coding, out);
  return out;
}

} // namespace zeph::prepare
