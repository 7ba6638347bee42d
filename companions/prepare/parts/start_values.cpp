#include "prepare/parts/start_values.h"

#include "listing/reporting.h"
#include "prepare/description/description_messages.h"

#include "numerics/lapack_calls.h"
#include "numerics/normal_functions.h"
#include "prepare/messages/messages.h"
#include "shared/indexing.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <set>
#include <sstream>

namespace zeph::prepare {

namespace {

start_matrix zero_matrix(int order) {
  return {order, std::vector<double>(from0(order) * from0(order), 0.0), false};
}

start_matrix given_matrix(const matrix_value& m) { return {m.order, m.value, true}; }

trait_summary summary_of(const data_columns& data, const record_selection& records, std::size_t t) {
  std::vector<double> y;
  const std::vector<double>& column = data.traits[t].y;
  for (const std::uint32_t r : records.records)
    if (records.present[t][r] != 0) y.push_back(column[r]);
  return {statistics_of(y)};
}

// Of the liability whose outer thresholds are 0 and 1, by the shares of the first and of the last category.
double liability_variance(const trait_values& values, const record_selection& records, std::size_t t) {
  const auto last = static_cast<double>(values.categories.size());
  double n = 0.0, n_first = 0.0, n_last = 0.0;
  for (const std::uint32_t r : records.records) {
    if (records.present[t][r] == 0) continue;
    n += 1.0;
    n_first += values.y[r] == 1.0 ? 1.0 : 0.0;
    n_last += values.y[r] == last ? 1.0 : 0.0;
  }
  std::ostringstream listing;
  reporting report(listing);
  double below_last = 1.0 - n_last / n, below_second = n_first / n;
  const double width = NORMAL_INVCDF(report, below_last) - NORMAL_INVCDF(report, below_second);
  return 1.0 / (width * width);
}

double variance_of(const model_description& d, const data_columns& data, const record_selection& records,
                   const start_values& s, std::size_t t, message_log& log) {
  if (has_unit_variance(d.traits[t].kind.value)) return 2.0; // half of it is the residual
  if (d.traits[t].kind.value == trait_kind::ordered) return liability_variance(data.traits[t], records, t);
  const double variance = s.traits[t].observed.sd * s.traits[t].observed.sd;
  if (variance > 0.0) return variance;
  add_warning(log, {}, fmt::format("{} has no variance; 1 is taken for its start values", d.traits[t].name));
  return 1.0;
}

// Mean square of a contribution's coefficient over the records where its trait is present.
double mean_square(const record_selection& records, const contribution& c) {
  if (c.constant) return c.factor * c.factor;
  double sum = 0.0;
  std::size_t n = 0;
  for (const std::uint32_t r : records.records) {
    if (records.present[from0(c.trait)][r] == 0) continue;
    sum += c.curve.value[r] * c.curve.value[r];
    ++n;
  }
  return n > 0 && sum > 0.0 ? sum / static_cast<double>(n) : 1.0;
}

const contribution& first_of_row(const factor_levels& f, int row) {
  return *std::ranges::find(f.contributions, row, &contribution::row);
}

std::vector<int> factors_per_trait(const std::vector<factor_levels>& factors, std::size_t nt) {
  std::vector<int> out(nt, 0);
  for (const factor_levels& f : factors)
    for (const int t : std::set<int>(f.row_trait.begin(), f.row_trait.end())) ++out[from0(t)];
  return out;
}

start_matrix default_matrix(const record_selection& records, const factor_levels& f,
                            const std::vector<double>& variance, const std::vector<int>& n_factors) {
  start_matrix out = zero_matrix(f.order());
  for (int i = 0; i < f.order(); ++i) {
    const auto t = from0(f.row_trait[static_cast<std::size_t>(i)]);
    const auto rows = std::ranges::count(f.row_trait, static_cast<int>(t));
    const double share = 0.5 * variance[t] / n_factors[t] / static_cast<double>(rows);
    out.at(i, i) = share / mean_square(records, first_of_row(f, i + 1));
  }
  return out;
}

start_matrix default_residual(const model_description& d, const std::vector<double>& variance,
                              const std::vector<int>& n_factors) {
  start_matrix out = zero_matrix(static_cast<int>(variance.size()));
  for (int t = 0; t < out.order; ++t) {
    const auto at = from0(t);
    const bool half = n_factors[at] > 0 || has_unit_variance(d.traits[at].kind.value);
    out.at(t, t) = half ? 0.5 * variance[at] : variance[at];
  }
  return out;
}

void add_groups(const model_description& d, const std::vector<std::string>& codes, start_values& s,
                message_log& log) {
  s.group_codes = codes;
  for (const std::string& code : codes) {
    const auto at = std::ranges::find(d.residual.start_by_group, code, &group_start::code);
    s.residual_groups.push_back(at == d.residual.start_by_group.end() ? s.residual : given_matrix(at->start));
  }
  for (const group_start& g : d.residual.start_by_group)
    if (std::ranges::find(codes, g.code) == codes.end())
      error_at(
          d, log, g.at,
          fmt::format("no record is in residual group \"{}\"; the groups are: {}", g.code, joined(codes)));
}

} // namespace

bool inverse_of_part(const start_matrix& m, const std::vector<int>& kept, std::vector<double>& inverse,
                     double& log_determinant) {
  const int n = static_cast<int>(kept.size());
  const auto size = from0(n) * from0(n);
  std::vector<double> a(size), b(size, 0.0);
  inverse.assign(m.value.size(), 0.0);
  log_determinant = 0.0;
  if (n == 0) return true;
  const auto at = [n](int i, int j) { return from0(j * n + i); };
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i) a[at(i, j)] = m.at(kept[from0(i)], kept[from0(j)]);
  int info = 0;
  DPOTRF(n, a.data(), n, info);
  if (info != 0) return false;
  for (int i = 0; i < n; ++i) {
    b[at(i, i)] = 1.0;
    log_determinant += 2.0 * std::log(a[at(i, i)]);
  }
  DPOTRS(n, n, a.data(), n, b.data(), n, info);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i) // the mean of both triangles: exactly symmetric
      inverse[from0(kept[static_cast<std::size_t>(i)] * m.order + kept[static_cast<std::size_t>(j)])] =
          0.5 * (b[at(i, j)] + b[at(j, i)]);
  return info == 0;
}

bool inverse_of(const start_matrix& m, std::vector<double>& inverse, double& log_determinant) {
  std::vector<int> all(from0(m.order));
  std::iota(all.begin(), all.end(), 0);
  return inverse_of_part(m, all, inverse, log_determinant);
}

start_values make_start_values(const model_description& d, const data_columns& data,
                               const record_selection& records, const std::vector<factor_levels>& factors,
                               const std::vector<std::string>& group_codes, message_log& log) {
  start_values s;
  std::vector<double> variance;
  for (std::size_t t = 0; t < d.traits.size(); ++t) {
    s.traits.push_back(summary_of(data, records, t));
    variance.push_back(variance_of(d, data, records, s, t, log));
  }
  const std::vector<int> n_factors = factors_per_trait(factors, d.traits.size());
  for (const factor_levels& f : factors) {
    const matrix_value& start = d.factors[f.section].start;
    s.factors.push_back(start.order > 0 ? given_matrix(start)
                                        : default_matrix(records, f, variance, n_factors));
  }
  s.residual =
      d.residual.start.order > 0 ? given_matrix(d.residual.start) : default_residual(d, variance, n_factors);
  add_groups(d, group_codes, s, log);
  return s;
}

} // namespace zeph::prepare
