#include "prepare/parts/covariable_values.h"

#include "prepare/tables/column_numbers.h"

#include "prepare/description/effect_columns.h"

#include "prepare/messages/messages.h"

#include <fmt/format.h>

#include <cmath>
#include <limits>

namespace zeph::prepare {

namespace {

void refuse_outside(const data_columns& data, const std::string& column, const covariable_scale& s,
                    message_log& log) {
  const std::vector<double>& x = data.number(column);
  for (std::size_t r = 0; r < x.size(); ++r)
    if (x[r] < s.low || x[r] > s.high)
      add_error(log, {data.table.file, static_cast<int>(data.table.line[r]), 0},
                fmt::format("{} = {} is outside its range {} to {}", column, x[r], s.low, s.high),
                "outside range " + column);
}

double mean_in_use(const std::vector<double>& x, const record_selection& records) {
  double sum = 0.0;
  std::size_t n = 0;
  for (const std::uint32_t r : records.records) {
    if (std::isnan(x[r])) continue;
    sum += x[r];
    ++n;
  }
  return n == 0 ? 0.0 : sum / static_cast<double>(n);
}

double power(double x, int n) {
  double out = 1.0;
  for (int i = 0; i < n; ++i) out *= x;
  return out;
}

} // namespace

double normalised_legendre(int n, double x) {
  double before = 0.0, p = 1.0; // P_-1 (unused), P_0
  for (int i = 0; i < n; ++i) {
    const double next = ((2 * i + 1) * x * p - i * before) / (i + 1);
    before = p;
    p = next;
  }
  return std::sqrt((2.0 * n + 1.0) / 2.0) * p;
}

covariable_scale scale_of(const model_description& d, const data_columns& data,
                          const record_selection& records, const atom& x, message_log& log) {
  const covariable_section* section = find_covariable(d, x.name);
  const std::string column = column_of_covariable(d, x.name);
  const std::vector<double>& value = data.number(column);
  covariable_scale s;
  s.name = x.name;
  if (section != nullptr && section->low.given) {
    s.low = section->low.value;
    s.high = section->high.value;
    refuse_outside(data, column, s, log);
    s.mapped = x.kind != atom_kind::column;
  } else if (x.kind == atom_kind::leg) {
    const column_statistics found = statistics_of(value);
    s.mapped = true;
    s.low = found.min;
    s.high = found.max;
    if (!(s.low < s.high))
      add_error(log, {data.table.file, 0, 0},
                fmt::format("{} has one value only: leg({}, {}) has no range", column, x.name, x.order));
  }
  if (s.mapped || section == nullptr) return s;
  if (section->center.value == centering::mean) s.shift = mean_in_use(value, records);
  if (section->center.value == centering::value) s.shift = section->center_value;
  return s;
}

covariable_curve curve_of(const model_description& d, const data_columns& data, const covariable_scale& scale,
                          const atom& x, int degree) {
  covariable_curve out;
  out.name = x.name;
  if (x.kind == atom_kind::leg) out.name += fmt::format(".leg{}", degree);
  if (x.kind == atom_kind::poly) out.name += fmt::format(".poly{}", degree);
  if (x.kind != atom_kind::column && degree == 0) {
    out.constant = true;
    out.factor = x.kind == atom_kind::leg ? normalised_legendre(0, 0.0) : 1.0;
    return out;
  }
  out.value = data.number(column_of_covariable(d, x.name));
  for (double& v : out.value) {
    const double u = scale.mapped ? 2.0 * (v - scale.low) / (scale.high - scale.low) - 1.0 : v - scale.shift;
    v = x.kind == atom_kind::leg ? normalised_legendre(degree, u)
                                 : power(u, x.kind == atom_kind::poly ? degree : 1);
  }
  return out;
}

} // namespace zeph::prepare
