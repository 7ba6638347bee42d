#include "prepare/records/solution_values.h"

#include "shared/check_sum.h"

namespace zeph::prepare {

namespace {

// A number between 1 and 2 that the text alone decides.
double number_of_text(const std::string& text) {
  std::uint64_t h = shared::fnv1a64(text);
  h ^= h >> 29;
  return 1.0 + static_cast<double>((h * 0xBF58476D1CE4E5B9U) >> 11) * 0x1p-53;
}

} // namespace

std::vector<std::size_t> source_places(const data_columns& data, const covariable_section& c) {
  std::vector<std::size_t> places;
  for (const std::string& name : c.source_columns) places.push_back(find_column(data.table, name));
  return places;
}

std::string source_level(const csv_columns& table, const std::vector<std::size_t>& places, std::size_t r) {
  std::string out;
  for (const std::size_t c : places) {
    if (is_missing(table, c, r)) return {};
    if (c != places.front()) out += ':';
    out += table.cell(c, r);
  }
  return out;
}

std::vector<double> solution_bases(const data_columns& data, const covariable_section& c) {
  if (!c.times.value.empty()) return data.number(c.times.value);
  return std::vector<double>(data.n_records(), 1.0);
}

std::vector<double> stand_in_values(const data_columns& data, const covariable_section& c) {
  std::vector<double> out = solution_bases(data, c);
  const std::vector<std::size_t> places = source_places(data, c);
  for (std::size_t r = 0; r < out.size(); ++r) out[r] *= number_of_text(source_level(data.table, places, r));
  return out;
}

} // namespace zeph::prepare
