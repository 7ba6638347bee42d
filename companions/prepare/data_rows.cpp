#include "prepare/data_rows.h"

#include <algorithm>
#include <cmath>

namespace zeph::prepare {

namespace {

// Shares none of the first `own` columns.
template <class T>
std::int32_t add_once(std::vector<std::vector<T>>& columns, std::vector<T> column, std::size_t own = 0) {
  const auto at = std::find(columns.begin() + static_cast<std::ptrdiff_t>(own), columns.end(), column);
  const auto number = static_cast<std::int32_t>(at - columns.begin()) + 1;
  if (at == columns.end()) columns.push_back(std::move(column));
  return number;
}

// RCDATA_R is of 32 bits.
float as_stored(double x) { return std::isnan(x) ? 0.0F : static_cast<float>(x); }

std::vector<float> stored(const record_selection& records, const std::vector<double>& value) {
  std::vector<float> column;
  column.reserve(records.n_used());
  for (const std::uint32_t r : records.records) column.push_back(as_stored(value[r]));
  return column;
}

} // namespace

std::int32_t add_integers(data_rows& rows, const record_selection& records,
                          const std::vector<std::int32_t>& value) {
  std::vector<std::int32_t> column;
  column.reserve(records.n_used());
  for (const std::uint32_t r : records.records) column.push_back(value[r]);
  return add_once(rows.integers, std::move(column));
}

std::int32_t add_reals(data_rows& rows, const record_selection& records, const std::vector<double>& value) {
  return add_once(rows.reals, stored(records, value), rows.n_observations);
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
  return static_cast<std::int32_t>(rows.integers.size());
}

} // namespace zeph::prepare
