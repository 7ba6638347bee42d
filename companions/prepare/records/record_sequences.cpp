#include "prepare/records/record_sequences.h"

#include "prepare/messages/messages.h"
#include "shared/indexing.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <unordered_map>

namespace zeph::prepare {

namespace {

// Records of the file by subject, in order of first appearance; missing subjects are left out.
std::vector<std::vector<std::size_t>> records_by_subject(const csv_columns& table, std::size_t column) {
  std::unordered_map<std::string_view, std::size_t> number;
  std::vector<std::vector<std::size_t>> out;
  for (std::size_t r = 0; r < table.n_records(); ++r) {
    if (is_missing(table, column, r)) continue;
    const auto [at, fresh] = number.try_emplace(table.cell(column, r), out.size());
    if (fresh) out.emplace_back();
    out[at->second].push_back(r);
  }
  return out;
}

void fault(const data_columns& data, std::size_t r, const std::string& text, message_log& log) {
  add_error(log, {data.table.file, static_cast<int>(data.table.line[r]), 0}, text, "position in a sequence");
}

// Sorts the records of one subject by position, which runs 1, 2, .. without a gap.
void sort_by_position(const data_columns& data, const std::vector<double>& position,
                      const std::string& subject, std::vector<std::size_t>& records, message_log& log) {
  std::erase_if(records, [&](std::size_t r) { return std::isnan(position[r]); });
  std::ranges::stable_sort(records, [&](std::size_t a, std::size_t b) { return position[a] < position[b]; });
  double expected = 1.0;
  for (const std::size_t r : records) {
    const double found = position[r];
    if (found != std::floor(found) || found < 1.0)
      fault(data, r,
            fmt::format("position {:g} of subject {}: positions are whole numbers from 1", found,
                        shown(subject)),
            log);
    else if (found < expected)
      fault(data, r, fmt::format("position {:g} of subject {} appears twice", found, shown(subject)), log);
    else if (found > expected)
      fault(data, r,
            fmt::format("the sequence of subject {} is out of order: position {:g} follows {:g}",
                        shown(subject), found, expected - 1.0),
            log);
    else {
      expected += 1.0;
      continue;
    }
    return;
  }
}

} // namespace

record_sequences make_sequences(const model_description& d, const data_columns& data, int t,
                                const std::vector<std::uint8_t>& present, message_log& log) {
  const trait_section& trait = d.traits[from0(t)];
  const std::vector<double>& event = data.traits[from0(t)].y;
  const std::size_t column = find_column(data.table, trait.subject.value);
  record_sequences out;
  out.position.assign(data.n_records(), -1);
  out.rank.resize(data.n_records());
  const auto width = static_cast<std::int64_t>(data.n_records()) + 1;
  for (std::size_t r = 0; r < out.rank.size(); ++r) out.rank[r] = static_cast<std::int64_t>(r) * width;
  for (std::vector<std::size_t>& records : records_by_subject(data.table, column)) {
    const std::string subject(data.table.cell(column, records.front()));
    if (trait.position.given)
      sort_by_position(data, data.number(trait.position.value), subject, records, log);
    std::erase_if(records, [&present](std::size_t r) { return present[r] == 0; });
    if (records.empty()) continue;
    const std::int64_t first =
        static_cast<std::int64_t>(*std::ranges::min_element(records)) * width; // where the subject is
    std::int32_t place = 0;
    bool failed = false;
    for (const std::size_t r : records) {
      out.position[r] = ++place;
      out.rank[r] = first + place;
      failed = failed || event[r] == 1.0;
    }
    out.position[records.back()] = -place;
    out.longest = std::max(out.longest, place);
    ++out.n_subjects;
    out.n_with_event += failed ? 1 : 0;
  }
  return out;
}

} // namespace zeph::prepare
