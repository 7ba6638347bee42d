#include "prepare/records/residual_patterns.h"

#include "input/structures.h"
#include "prepare/messages/messages.h"
#include "prepare/tables/level_codes.h"
#include "shared/indexing.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

namespace zeph::prepare {

namespace {

std::int32_t mask_of(const record_selection& records, std::size_t r) {
  std::int32_t mask = 0;
  for (const std::vector<std::uint8_t>& present : records.present)
    mask = 2 * mask + (present[r] != 0 ? 1 : 0);
  return mask;
}

// The groups are the components of a mixture, first by their first members.
void add_components(const data_columns& data, const record_selection& records, int indicator,
                    residual_patterns& out) {
  out.group_codes = {"0", "1"};
  out.group_numbers = {0, 1};
  const std::vector<double>& member = data.traits[from0(indicator)].y;
  for (const std::uint32_t r : records.records) out.group.push_back(member[r] == 1.0 ? 2 : 1);
}

void add_groups(const model_description& d, const data_columns& data, const record_selection& records,
                residual_patterns& out) {
  if (d.residual.groups.value.empty()) return;
  if (d.residual.indicator >= 0) return add_components(data, records, d.residual.indicator, out);
  const std::size_t c[] = {find_column(data.table, d.residual.groups.value)};
  const level_codes codes = codes_of_columns(data.table, c, records.use);
  out.group_codes = codes.identification;
  out.group_numbers = codes.code;
  for (const std::uint32_t r : records.records) out.group.push_back(codes.level[r]);
}

void warn_of_apart_traits(const model_description& d, const residual_patterns& p, message_log& log) {
  const int nt = static_cast<int>(d.traits.size());
  for (int i = 0; i < nt; ++i)
    for (int j = i + 1; j < nt; ++j) {
      const std::int32_t both = (1 << (nt - 1 - i)) | (1 << (nt - 1 - j));
      bool met = false;
      for (std::size_t q = 0; q < p.mask.size(); ++q)
        met = met || ((p.mask[q] & both) == both && p.n_records[q] > 0);
      const auto is_pair = [&](const trait_pair& z) { return z.first == i && z.second == j; };
      const bool held =
          std::ranges::any_of(d.residual.zero, is_pair) || std::ranges::any_of(d.residual.apart, is_pair);
      if (met || held) continue;
      const std::string& a = d.traits[from0(i)].name;
      const std::string& b = d.traits[from0(j)].name;
      add_warning(log, {},
                  fmt::format("no record has both {} and {}: the data say nothing about their residual "
                              "covariance (zero = [[\"{}\", \"{}\"]] in [residual] holds it at zero)",
                              a, b, a, b));
    }
}

} // namespace

std::vector<int> traits_of(std::int32_t mask, int nt) {
  std::vector<int> out;
  for (int t = 0; t < nt; ++t)
    if ((mask >> (nt - 1 - t)) & 1) out.push_back(t);
  return out;
}

residual_patterns make_patterns(const model_description& d, const data_columns& data,
                                const record_selection& records, message_log& log) {
  residual_patterns out;
  const auto nt = static_cast<int>(d.traits.size());
  const std::int32_t complete = (1 << nt) - 1;
  std::map<std::int32_t, std::int64_t, std::greater<>> count{{complete, 0}};
  for (const std::uint32_t r : records.records) ++count[mask_of(records, r)];
  std::map<std::int32_t, std::int32_t> number;
  for (const auto& [mask, n] : count) {
    out.mask.push_back(mask);
    out.n_records.push_back(n);
    number[mask] = static_cast<std::int32_t>(out.mask.size());
  }
  for (const std::uint32_t r : records.records) out.pattern.push_back(number.at(mask_of(records, r)));
  add_groups(d, data, records, out);
  warn_of_apart_traits(d, out, log);
  return out;
}

} // namespace zeph::prepare
