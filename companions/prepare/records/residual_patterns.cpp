#include "prepare/records/residual_patterns.h"

#include "prepare/messages/messages.h"
#include "prepare/tables/level_codes.h"

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
  const std::vector<double>& member = data.traits[static_cast<std::size_t>(indicator)].y;
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

const start_matrix& start_of_group(const start_values& s, std::size_t g) {
  return s.residual_groups.empty() ? s.residual : s.residual_groups[g];
}

// Records of group g (1-based), all together and by pairs of traits.
void count_group(const record_selection& records, const residual_patterns& p, std::int32_t g,
                 structure_record& residual) {
  const int nt = static_cast<int>(records.present.size());
  for (std::size_t i = 0; i < records.records.size(); ++i) {
    if (!p.group.empty() && p.group[i] != g) continue;
    ++residual.HETG_N_OBS(g);
    const std::vector<int> traits = traits_of(p.mask[static_cast<std::size_t>(p.pattern[i] - 1)], nt);
    for (const int s : traits)
      for (const int t : traits) ++residual.carried.HETGR_NOBS(g, s + 1, t + 1);
  }
}

void fill_group(const residual_patterns& p, const start_matrix& start, std::int32_t g,
                const std::string& title, structure_record& residual, message_log& log) {
  const int nt = start.order;
  residual.carried.HETGR_L_PR(g) = 1;
  for (int i = 0; i < nt; ++i)
    for (int j = 0; j < nt; ++j) residual.HETGR_COV_MAT(g, i + 1, j + 1) = start.at(i, j);
  std::vector<double> inverse;
  for (std::int32_t q = 1; q <= residual.n_pat; ++q) {
    double log_determinant = 0.0;
    if (!inverse_of_part(start, traits_of(p.mask[static_cast<std::size_t>(q - 1)], nt), inverse,
                         log_determinant)) {
      add_error(log, {}, title + " start is not positive definite");
      return;
    }
    residual.HETGR_RDET(g, q) = log_determinant;
    for (int i = 0; i < nt; ++i)
      for (int j = 0; j < nt; ++j)
        residual.HETGR_RIIF(g, q, i + 1, j + 1) = inverse[static_cast<std::size_t>(i * nt + j)];
  }
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
      const std::string& a = d.traits[static_cast<std::size_t>(i)].name;
      const std::string& b = d.traits[static_cast<std::size_t>(j)].name;
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

void fill_residual(const model_description& d, const record_selection& records,
                   const residual_patterns& patterns, const start_values& start, structure_record& residual,
                   message_log& log) {
  const int nt = start.residual.order;
  for (int i = 0; i < nt; ++i)
    for (int j = 0; j < nt; ++j)
      residual.COV_MAT(i + 1, j + 1) = residual.P_COV_MAT(i + 1, j + 1) = start.residual.at(i, j);
  for (const auto* list : {&d.residual.zero, &d.residual.apart})
    for (const trait_pair& z : *list) {
      residual.carried.L_RCOV_ZERO(z.first + 1, z.second + 1) = 1;
      residual.carried.L_RCOV_ZERO(z.second + 1, z.first + 1) = 1;
    }
  for (std::int32_t q = 1; q <= residual.n_pat; ++q) {
    const auto at = static_cast<std::size_t>(q - 1);
    residual.carried.ISIT(q) = patterns.mask[at];
    residual.carried.ISIT_B(q) = static_cast<std::int32_t>(patterns.n_records[at]);
    residual.carried.ISIT_C(q) = q;
  }
  for (std::int32_t g = 1; g <= residual.n_hetgr; ++g) {
    const auto at = static_cast<std::size_t>(g - 1);
    residual.HETGR_CODE(g) = patterns.group_numbers.empty() ? 1 : patterns.group_numbers[at];
    const std::string title = patterns.group_codes.empty()
                                  ? "[residual]"
                                  : fmt::format("[residual] group {}", patterns.group_codes[at]);
    count_group(records, patterns, g, residual);
    fill_group(patterns, start_of_group(start, at), g, title, residual, log);
  }
}

} // namespace zeph::prepare
