#include "prepare/records/data_rows.h"

#include <algorithm>
#include <cmath>

namespace zeph::prepare {

namespace {

// RCDATA_R is of 32 bits.
float as_stored(double x) { return std::isnan(x) ? 0.0F : static_cast<float>(x); }

std::vector<float> stored(const record_selection& records, const std::vector<double>& value) {
  std::vector<float> column;
  column.reserve(records.n_used());
  for (const std::uint32_t r : records.records) column.push_back(as_stored(value[r]));
  return column;
}

} // namespace

std::vector<std::int32_t> values_of_used(const record_selection& records,
                                         const std::vector<std::int32_t>& value) {
  std::vector<std::int32_t> column;
  column.reserve(records.n_used());
  for (const std::uint32_t r : records.records) column.push_back(value[r]);
  return column;
}

std::int32_t add_integers(data_rows& rows, const record_selection& records,
                          const std::vector<std::int32_t>& value) {
  std::vector<std::int32_t> column = values_of_used(records, value);
  rows.own.resize(rows.integers.size(), 0);
  for (std::size_t c = 0; c < rows.integers.size(); ++c)
    if (rows.own[c] == 0 && rows.integers[c] == column) return static_cast<std::int32_t>(c) + 1;
  rows.integers.push_back(std::move(column));
  return static_cast<std::int32_t>(rows.integers.size());
}

std::int32_t add_reals(data_rows& rows, const record_selection& records, const std::vector<double>& value) {
  std::vector<float> column = stored(records, value);
  const auto first = rows.reals.begin() + static_cast<std::ptrdiff_t>(rows.n_observations);
  const auto at = std::find(first, rows.reals.end(), column);
  const auto number = static_cast<std::int32_t>(at - rows.reals.begin()) + 1;
  if (at == rows.reals.end()) rows.reals.push_back(std::move(column));
  return number;
}

std::int32_t append_reals(data_rows& rows, const record_selection& records,
                          const std::vector<double>& value) {
  rows.reals.push_back(stored(records, value));
  return static_cast<std::int32_t>(rows.reals.size());
}

std::int32_t add_observations(data_rows& rows, const record_selection& records, std::size_t t,
                              const std::vector<double>& value) {
  std::vector<float> column;
  column.reserve(records.n_used());
  for (const std::uint32_t r : records.records)
    column.push_back(records.present[t][r] != 0 ? as_stored(value[r]) : 0.0F);
  rows.reals.push_back(std::move(column));
  rows.n_observations = rows.reals.size();
  return static_cast<std::int32_t>(rows.reals.size());
}

std::int32_t append_integers(data_rows& rows, std::vector<std::int32_t> value) {
  rows.integers.push_back(std::move(value));
  rows.own.resize(rows.integers.size(), 0);
  rows.own.back() = 1;
  return static_cast<std::int32_t>(rows.integers.size());
}

} // namespace zeph::prepare
