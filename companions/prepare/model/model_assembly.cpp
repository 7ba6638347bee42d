#include "prepare/model/model_assembly.h"

#include "prepare/description/description_words.h"

#include "input/model_information.h"
#include "input/structures.h"
#include "listing/reporting.h"
#include "listing/stops.h"
#include "prepare/messages/messages.h"
#include "prepare/model/directive_lines.h"
#include "prepare/model/equation_ranges.h"
#include "prepare/model/factor_records.h"
#include "prepare/model/number_checks.h"
#include "prepare/model/residual_record.h"
#include "prepare/model/sampler_lines.h"
#include "prepare/model/short_names.h"
#include "prepare/model/solution_covariables.h"
#include "prepare/model/trait_records.h"
#include "prepare/parts/kind_warnings.h"
#include "shared/indexing.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <sstream>
#include <unordered_map>

namespace zeph::prepare {

namespace {

constexpr std::size_t most_traits_of_a_model = 20;

bool faulty(const message_log& log, int errors_before) {
  return count_of(log, severity::error) > errors_before;
}

// ---- names

std::map<std::string, std::string> short_by_long(const std::vector<std::string>& all) {
  std::vector<std::string> distinct;
  for (const std::string& name : all)
    if (std::ranges::find(distinct, name) == distinct.end()) distinct.push_back(name);
  const std::vector<std::string> cut = short_names(distinct);
  std::map<std::string, std::string> out;
  for (std::size_t i = 0; i < cut.size(); ++i) out.emplace(distinct[i], cut[i]);
  return out;
}

// The same long name has the same short one in all traits.
std::vector<std::vector<std::string>> shortened(const std::vector<std::vector<std::string>>& names) {
  std::vector<std::string> all;
  for (const auto& row : names) all.insert(all.end(), row.begin(), row.end());
  const std::map<std::string, std::string> table = short_by_long(all);
  std::vector<std::vector<std::string>> out = names;
  for (auto& row : out)
    for (std::string& name : row) name = table.at(name);
  return out;
}

// A row is named after its trait where the trait has no other row in the factor.
std::vector<std::string> row_names(const factor_levels& f, const std::vector<std::string>& traits) {
  std::vector<std::string> out;
  for (std::size_t i = 0; i < f.row_names.size(); ++i) {
    const bool only = std::ranges::count(f.row_trait, f.row_trait[i]) == 1;
    out.push_back(only ? traits[from0(f.row_trait[i])] : f.row_names[i]);
  }
  return short_names(out);
}

model_names names_of(const model_description& d, const prepared_model& p) {
  std::vector<std::string> traits;
  for (const trait_section& t : d.traits) traits.push_back(t.name);
  std::vector<std::vector<std::string>> classes, covariables;
  for (std::size_t t = 0; t < d.traits.size(); ++t) {
    classes.emplace_back();
    covariables.emplace_back();
    for (const class_effect& c : p.fixed[t].classes) classes[t].push_back(c.name);
    for (const fixed_regression& x : p.fixed[t].regressions) covariables[t].push_back(x.covariable);
    for (const auto& [k, c] : random_of_trait(p.factors, static_cast<int>(t)).curves)
      covariables[t].push_back(c->curve.name);
  }
  model_names out{short_names(traits), shortened(classes), shortened(covariables), {}};
  for (const factor_levels& f : p.factors) out.rows.push_back(row_names(f, out.traits));
  return out;
}

// ---- sizes

void set_sizes(const model_description& d, prepared_model& p) {
  model_records& m = p.model;
  m.nt = static_cast<std::int32_t>(d.traits.size());
  m.nramat = static_cast<std::int32_t>(p.factors.size());
  m.data_dims[2] = static_cast<std::int32_t>(p.records.n_used());
  m.MODEL_rows.resize(d.traits.size());
  m.RMAT_rows.resize(p.factors.size() + 1);
  for (std::int32_t i = 1; i <= m.nt; ++i) {
    size_trait(p, i - 1, m.MODEL(i));
    m.mnef = std::max(m.mnef, m.MODEL(i).n_f);
    m.mxreg = std::max(m.mxreg, m.MODEL(i).n_reg);
    m.nregt += m.MODEL(i).n_reg;
  }
  for (std::int32_t k = 1; k <= m.nramat; ++k) size_factor(p.factors[from1(k)], m.RMAT(k));
  structure_record& residual = m.residual();
  residual.n_rc = residual.n_t = m.nt;
  residual.n_pat = static_cast<std::int32_t>(p.patterns.mask.size());
  residual.n_hetgr = std::max(1, static_cast<std::int32_t>(p.patterns.group_codes.size()));
  residual.CV_STRUCT = padded(
      std::string(p.patterns.group_codes.empty() ? row_of(structure_kind::identity).name : residual_groups),
      12);
  m.n_norcov = static_cast<std::int32_t>(d.residual.zero.size());
  m.iv_50 = 3; // at least; the columns are counted once they exist
}

bool take_arrays(prepared_model& p, message_log& log) {
  std::ostringstream listing;
  reporting report(listing);
  try {
    allocate_modinf(p.model, report);
    return true;
  } catch (const run_stop&) {
    add_error(log, {}, "the model is too large for its files:\n" + listing.str());
    return false;
  }
}

// ---- header

void fill_header(const model_description& d, const prepare_options& options, prepared_model& p) {
  model_records& m = p.model;
  m.qv_version = "6";
  m.qv_release = "5.6";
  m.run_stamp = options.run_stamp;
  for (std::string& text : m.mi_text) text = padded("", 200);
  m.mi_text[0] = padded(directive_file, 200);
  m.l_residuals = d.keep.residuals.value;
  m.model_kind = m.l_residuals ? 2 : 0;
  m.test_level = d.run.test_level.value;
  m.ncat = static_cast<std::int32_t>(std::ranges::count_if(
      d.traits, [](const trait_section& t) { return t.kind.value == trait_kind::ordered; }));
  m.n_cure_seq = p.records.sequences.position.empty() ? 0 : p.records.sequences.longest;
  for (std::int32_t i = 1; i <= m.nt; ++i) m.SPRE(i) = 1.0;
  std::int32_t row = 0;
  for (const trait_pair& z : d.residual.zero) {
    ++row;
    m.NORCOV(row, 1) = z.second + 1;
    m.NORCOV(row, 2) = z.first + 1;
  }
}

// The factor whose levels get trait deviations. Means over samples are reported in a chain, the last values
// of a solver.
void mark_deviations(const model_description& d, prepared_model& p) {
  model_records& m = p.model;
  for (std::size_t k = 0; k < p.factors.size(); ++k) {
    const factor_section& f = d.factors[p.factors[k].section];
    if (f.deviations.value == deviation_kind::none) continue;
    m.L_TD = true;
    m.L_PTD = f.deviations.value == deviation_kind::progeny;
    m.TD_FACTOR = static_cast<std::int32_t>(k) + 1;
    m.carried.TD_TYPE = m.L_PTD ? "PTD " : "TD  ";
    m.PTD_INT = f.deviations_every.value;
    m.PTD_LIMIT = f.deviations_above.value;
    if (samples_solutions(d.run.analysis.value)) m.model_kind = 2;
  }
}

void fill_residual_rows(const model_description& d, prepared_model& p, message_log& log) {
  structure_record& residual = p.model.residual();
  residual.r36 = 1;
  for (std::int32_t i = 1; i <= p.model.nt; ++i) {
    residual.TRAIT_NO(i) = residual.TRAIT_INP(i) = residual.T_NO(i) = i;
    residual.T_NAME(i) = padded(p.names.traits[from1(i)], short_width);
  }
  if (!p.patterns.group.empty()) {
    residual.HETGR_RCI = residual.carried.HETGR_INP = append_integers(p.rows, p.patterns.group);
    residual.carried.HETGR_NAME = padded(cut_name(d.residual.groups.value), short_width);
  }
  fill_residual(d, p.records, p.patterns, p.start, residual, log);
}

// The three last columns of every record.
void add_record_columns(prepared_model& p) {
  std::vector<std::int32_t> mask, position;
  for (const std::int32_t q : p.patterns.pattern) mask.push_back(p.patterns.mask[from1(q)]);
  for (const std::uint32_t r : p.records.records) position.push_back(static_cast<std::int32_t>(r) + 1);
  append_integers(p.rows, std::move(mask));
  append_integers(p.rows, p.patterns.pattern);
  p.model.iv_50 = append_integers(p.rows, std::move(position));
  p.model.n_real = static_cast<std::int32_t>(p.rows.reals.size());
}

// Sum of n_reg, of class effects with equations, and per factor the larger of its effects with a constant and
// its contributions.
std::int64_t largest_row_of(const model_records& m) {
  std::int64_t out = m.nregt;
  for (std::int32_t i = 1; i <= m.nt; ++i)
    for (std::int32_t j = 1; j <= m.MODEL(i).n_f; ++j) out += m.MODEL(i).INTERCEPT(j);
  for (std::int32_t k = 1; k <= m.nramat; ++k) {
    const structure_record& r = m.RMAT(k);
    std::int64_t n = 0;
    for (std::int32_t e = 1; e <= r.carried.n_reff; ++e) n += r.INTERCEPT(e);
    out += std::max<std::int64_t>(n, r.n_cont);
  }
  return out;
}

void keep_samples(const model_description& d, prepared_model& p, message_log& log) {
  model_records& m = p.model;
  if (d.keep.solutions.value == kept_solutions::all) m.n_sol_cv = -1;
  if (d.keep.solutions.value == kept_solutions::listed) {
    const std::vector<std::int32_t> kept = kept_equations(d, equation_ranges(d, p), log);
    m.n_sol_cv = static_cast<std::int32_t>(kept.size());
    m.SOL_CV_EQ_NO.take(m.n_sol_cv);
    std::ranges::copy(kept, m.SOL_CV_EQ_NO.begin());
  }
  m.l_sol_samples = m.n_sol_cv != 0;
}

// ---- warnings that need the whole model

void warn_of_chain(const model_description& d, const prepared_model& p, message_log& log) {
  const analysis_type analysis = d.run.analysis.value;
  for (const factor_levels& f : p.factors) {
    if (f.n_groups > 0 && samples_solutions(analysis) && !has_several_models(analysis))
      add_warning(
          log, {},
          fmt::format("the phantom groups of {} and the fixed effects are confounded: in a chain only "
                      "contrasts have a mean",
                      f.name));
    const std::int32_t df = d.factors[f.section].prior_df.value;
    const int room = f.n_levels() - f.n_groups - f.order() - 1;
    if (!samples_matrices(analysis) || df > f.order() + 1 || room > f.order() + 3) continue;
    add_warning(
        log, {},
        fmt::format("{} has {} levels and a flat prior: its variances have no finite {}; give prior_df",
                    f.name, f.n_levels() - f.n_groups, room > f.order() + 1 ? "variance" : "mean"));
  }
}

// The one column of a factor with a single row and contribution, or none.
const std::vector<std::int32_t>* only_column(const factor_levels& f) {
  return f.contributions.size() == 1 ? &f.level.at(f.contributions.front().column) : nullptr;
}

// True when every level of one column goes with a single level of the other, both ways, in all used records.
bool go_together(const prepared_model& p, const std::vector<std::int32_t>& a,
                 const std::vector<std::int32_t>& b) {
  std::unordered_map<std::int32_t, std::int32_t> b_of, a_of;
  for (const std::uint32_t r : p.records.records)
    if (b_of.try_emplace(a[r], b[r]).first->second != b[r] ||
        a_of.try_emplace(b[r], a[r]).first->second != a[r])
      return false;
  return true;
}

void warn_of_twins(const prepared_model& p, message_log& log) {
  for (std::size_t i = 0; i < p.factors.size(); ++i)
    for (std::size_t j = i + 1; j < p.factors.size(); ++j) {
      const factor_levels &f = p.factors[i], &g = p.factors[j];
      const auto *a = only_column(f), *b = only_column(g);
      if (a == nullptr || b == nullptr || f.row_trait != g.row_trait) continue;
      if (f.contributions.front().column == g.contributions.front().column && f.structure != g.structure)
        continue;
      if (go_together(p, *a, *b))
        add_warning(
            log, {},
            fmt::format(
                "{} and {} cannot be distinguished: every level of one goes with one level of the other",
                f.name, g.name));
    }
}

// The kinds of the traits, and [residual] zero, leave no element of the residual matrix open.
bool residual_is_held(const model_description& d) {
  std::set<std::pair<int, int>> held;
  for (const auto* list : {&d.residual.zero, &d.residual.apart})
    for (const trait_pair& pair : *list) held.insert(std::minmax(pair.first, pair.second));
  return std::ranges::all_of(d.traits,
                             [](const trait_section& t) { return has_unit_variance(t.kind.value); }) &&
         held.size() == d.traits.size() * (d.traits.size() - 1) / 2;
}

// A solver or a prediction takes the matrices as they start.
void warn_of_defaults(const model_description& d, const prepared_model& p, message_log& log) {
  if (samples_matrices(d.run.analysis.value)) return;
  std::vector<std::string> defaults;
  for (const factor_levels& f : p.factors)
    if (d.factors[f.section].start.order == 0) defaults.push_back("[factor." + f.name + "]");
  const bool grouped =
      !p.start.residual_groups.empty() &&
      std::ranges::all_of(p.start.residual_groups, [](const start_matrix& m) { return m.given; });
  if (d.residual.start.order == 0 && !grouped && !residual_is_held(d)) defaults.emplace_back("[residual]");
  if (!defaults.empty())
    add_warning(log, {},
                fmt::format("analysis \"{}\" uses the covariances given in start, and {} {} no start: "
                            "the defaults below are used",
                            word_of(d.run.analysis.value), joined(defaults),
                            defaults.size() == 1 ? "has" : "have"));
}

// An identity factor with a level for each record.
void warn_of_likeness(const prepared_model& p, message_log& log) {
  for (const factor_levels& f : p.factors) {
    if (f.structure != structure_kind::identity || f.order() != 1) continue;
    if (std::ranges::all_of(f.n_records, [](std::int64_t n) { return n <= 1; }))
      add_warning(
          log, {},
          fmt::format("{} and the residual cannot be distinguished: every level has one record", f.name));
  }
}

std::vector<std::int32_t> prior_df_of(const model_description& d, const prepared_model& p) {
  std::vector<std::int32_t> out;
  for (const factor_levels& f : p.factors) out.push_back(d.factors[f.section].prior_df.value);
  out.push_back(d.residual.prior_df.value);
  return out;
}

// Records into the model's records, columns and equations.
void fill_model(const model_description& d, const prepare_options& options, prepared_model& p,
                message_log& log) {
  set_sizes(d, p);
  p.names = names_of(d, p);
  if (!take_arrays(p, log)) return;
  fill_header(d, options, p);
  mark_deviations(d, p);

  const auto nt = static_cast<int>(d.traits.size());
  for (int t = 0; t < nt; ++t) add_observations(p.rows, p.records, from0(t), p.data.traits[from0(t)].y);
  std::vector<std::map<std::string, std::int32_t>> level_column;
  for (const factor_levels& f : p.factors) level_column.push_back(add_level_columns(d, f, p));
  for (int t = 0; t < nt; ++t) fill_trait(d, t, level_column, p);
  for (int k = 1; k <= p.model.nramat; ++k) fill_factor(d, k, level_column[from1(k)], p, log);
  fill_residual_rows(d, p, log);
  add_record_columns(p);

  if (number_equations(p) > std::numeric_limits<std::int32_t>::max())
    add_error(log, {}, "the model has more equations than the files can number (2147483647)");
  keep_samples(d, p, log);
  p.largest_row = largest_row_of(p.model);
  p.directives = directive_lines(d.run, prior_df_of(d, p), solution_lines(d, p));
  p.sampler = sampler_lines(d, p);
}

bool check_size(const model_description& d, const data_columns& data, message_log& log) {
  if (d.traits.size() > most_traits_of_a_model)
    add_error(log, {},
              fmt::format("{} traits are too many, {} at most", d.traits.size(), most_traits_of_a_model));
  if (data.n_records() > from0(std::numeric_limits<std::int32_t>::max()))
    add_error(log, {}, "more records than the files can number (2147483647)");
  return d.traits.size() <= most_traits_of_a_model;
}

} // namespace

prepared_model assemble_model(const model_description& d, const prepare_options& options, message_log& log) {
  prepared_model p;
  const int errors = count_of(log, severity::error);
  p.data = read_data_columns(d, log);
  if (!check_size(d, p.data, log) || faulty(log, errors)) return p;
  p.records = select_records(d, p.data, log);

  p.factors = make_factors(d, p.data, p.records, options.prune || d.run.prune.value, log);
  for (int t = 0; t < static_cast<int>(d.traits.size()); ++t)
    p.fixed.push_back(make_fixed_part(d, p.data, p.records, t, log));
  if (faulty(log, errors)) return p;
  p.exact = choose_exact(d, p, log);
  if (!p.exact) warn_of_meetings(d, p.data, p.factors, log);
  if (faulty(log, errors)) return p;
  complete_source_levels(d, p, log);
  if (faulty(log, errors)) return p;

  refuse_unfit_numbers(p, log);
  check_information(d, p, log);
  p.patterns = make_patterns(d, p.data, p.records, log);
  p.start = make_start_values(d, p.data, p.records, p.factors, p.patterns.group_codes, log);
  if (faulty(log, errors)) return p;
  fill_model(d, options, p, log);
  if (faulty(log, errors)) return p;
  warn_of_precision(d, p, log);
  warn_of_chain(d, p, log);
  warn_of_likeness(p, log);
  warn_of_twins(p, log);
  warn_of_defaults(d, p, log);
  warn_of_kinds(d, p.data, p.records, p.fixed, p.exact, log);
  note_missing_density(d, p, log);
  p.complete = !faulty(log, errors);
  return p;
}

} // namespace zeph::prepare
