#include "prepare/model/number_checks.h"

#include "prepare/tables/column_numbers.h"

#include "prepare/messages/messages.h"
#include "shared/indexing.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

namespace zeph::prepare {

namespace {

constexpr double largest_mean_per_sd = 10000.0;  // 32-bit reals hold 7 digits
constexpr double largest_rounding_per_sd = 1e-3; // of one value

// ---- range

// Reports the first record of trait t whose value is beyond 32-bit reals.
void refuse_beyond_range(const prepared_model& p, std::size_t t, const std::string& name,
                         const std::vector<double>& value, std::set<std::string>& reported,
                         message_log& log) {
  constexpr double largest = std::numeric_limits<float>::max();
  const auto found = std::ranges::find_if(p.records.records, [&](std::uint32_t r) {
    return p.records.present[t][r] != 0 && !(std::fabs(value[r]) <= largest);
  });
  if (found == p.records.records.end() || !reported.insert(name).second) return;
  add_error(log, {p.data.table.file, static_cast<int>(p.data.table.line[*found]), 0},
            fmt::format("{} is {:.4g} here, beyond what 32 bits hold (3.4e38): use a larger unit", name,
                        value[*found]));
}

// ---- information

// Columns of the fixed part that have equations.
std::int64_t rank_of(const fixed_part& part) {
  return std::ranges::count(part.coding, column_state::kept, &coding_row::state);
}

void add_by_prior(bool flat, message_log& log, const std::string& text) {
  if (flat)
    add_error(log, {}, text).hint = "give [residual] prior_df and start";
  else
    add_warning(log, {}, text);
}

column_statistics observed_in_use(const prepared_model& p, std::size_t t) {
  std::vector<double> y;
  for (const std::uint32_t r : p.records.records)
    if (p.records.present[t][r] != 0) y.push_back(p.data.traits[t].y[r]);
  return statistics_of(y);
}

// ---- digits

struct used_values {
  std::vector<double> value;
  column_statistics statistics;
};

// Values in the records of a trait; with `pass_zeros` those of 0, which also mean dropped levels, are
// left out.
used_values values_in_use(const prepared_model& p, std::size_t t, const std::vector<double>& x,
                          bool pass_zeros) {
  used_values out;
  for (const std::uint32_t r : p.records.records)
    if (p.records.present[t][r] != 0 && !(pass_zeros && x[r] == 0.0)) out.value.push_back(x[r]);
  out.statistics = statistics_of(out.value);
  return out;
}

double largest_rounding(const std::vector<double>& value) {
  double out = 0.0;
  for (const double x : value) out = std::max(out, std::fabs(x - static_cast<double>(static_cast<float>(x))));
  return out;
}

void warn_of_digits(const std::string& file, const std::string& name, const used_values& used,
                    message_log& log) {
  const column_statistics& s = used.statistics;
  if (s.n < 2 || !(s.sd > 0.0)) return;
  const double lost = largest_rounding(used.value) / s.sd;
  if (lost > largest_rounding_per_sd)
    add_warning(
        log, {file, 0, 0},
        fmt::format("32 bits round {} by up to {:.2g} of its standard deviation: subtract a constant\n"
                    "(a covariable: center = true in [covariable.{}])",
                    name, lost, name));
  else if (std::fabs(s.mean) / s.sd > largest_mean_per_sd)
    add_warning(
        log, {file, 0, 0},
        fmt::format("mean of {} is {:.0f} times its standard deviation, and the files hold 7 digits:\n"
                    "subtract a constant (a covariable: center = true in [covariable.{}])",
                    name, std::fabs(s.mean) / s.sd, name));
}

} // namespace

void refuse_unfit_numbers(const prepared_model& p, message_log& log) {
  std::set<std::string> reported;
  for (std::size_t t = 0; t < p.fixed.size(); ++t)
    for (const fixed_regression& x : p.fixed[t].regressions)
      refuse_beyond_range(p, t, x.covariable, x.value, reported, log);
  for (const factor_levels& f : p.factors)
    for (const contribution& c : f.contributions)
      if (!c.constant) refuse_beyond_range(p, from0(c.trait), c.curve.name, c.curve.value, reported, log);
}

void check_information(const model_description& d, const prepared_model& p, message_log& log) {
  if (!samples_matrices(d.run.analysis.value)) return; // the matrices are not drawn
  const bool flat = d.residual.prior_df.value <= static_cast<std::int32_t>(d.traits.size()) + 1;
  for (std::size_t t = 0; t < d.traits.size(); ++t) {
    const trait_section& trait = d.traits[t];
    if (has_unit_variance(trait.kind.value)) continue;
    const column_statistics s = observed_in_use(p, t);
    const std::int64_t rank = rank_of(p.fixed[t]);
    const auto n = static_cast<std::int64_t>(s.n);
    if (n < rank + 2)
      add_by_prior(
          flat, log,
          fmt::format("{} has {} and {} fixed equation{}: a residual variance needs {} records or more",
                      trait.name, records_in_words(n), rank, rank == 1 ? "" : "s", rank + 2));
    else if (s.min == s.max)
      add_by_prior(flat, log,
                   fmt::format("{} is {:g} in all records in use: it has no variance", trait.name, s.min));
  }
}

void warn_of_precision(const model_description& d, const prepared_model& p, message_log& log) {
  const std::string& file = p.data.table.file;
  std::set<std::string> reported; // a covariable may appear in many terms
  for (std::size_t t = 0; t < d.traits.size(); ++t) {
    warn_of_digits(file, d.traits[t].name, values_in_use(p, t, p.data.traits[t].y, false), log);
    for (const fixed_regression& x : p.fixed[t].regressions)
      if (x.indicator < 0 && reported.insert(x.covariable).second)
        warn_of_digits(file, x.covariable, values_in_use(p, t, x.value, true), log);
  }
  for (const factor_levels& f : p.factors)
    for (const contribution& c : f.contributions)
      if (!c.constant && reported.insert(c.curve.name).second)
        warn_of_digits(file, c.curve.name, values_in_use(p, from0(c.trait), c.curve.value, true), log);
}

} // namespace zeph::prepare
