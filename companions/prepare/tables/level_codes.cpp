#include "prepare/tables/level_codes.h"
#include "shared/indexing.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <numeric>
#include <unordered_map>

namespace zeph::prepare {

namespace {

// An integer in any spelling ("07", "+7") for the order of levels.
bool any_integer(std::string_view text, std::int64_t& value) {
  if (text.size() > 1 && text.front() == '+') text.remove_prefix(1);
  const auto [stop, fault] = std::from_chars(text.data(), text.data() + text.size(), value);
  return fault == std::errc{} && stop == text.data() + text.size();
}

// The different texts of one column in ascending order, and the place of each record's text in it (-1:
// missing).
struct ranked_column {
  std::vector<std::string_view> text;
  std::vector<std::int32_t> rank; // size n records, from 0
};

void sort_texts(std::vector<std::string_view>& text) {
  std::vector<std::pair<std::int64_t, std::string_view>> number(text.size());
  bool integers = true;
  for (std::size_t k = 0; k < text.size(); ++k) {
    number[k].second = text[k];
    integers = integers && any_integer(text[k], number[k].first);
  }
  if (!integers) {
    std::sort(text.begin(), text.end());
    return;
  }
  std::sort(number.begin(), number.end());
  for (std::size_t k = 0; k < text.size(); ++k) text[k] = number[k].second;
}

ranked_column rank_column(const csv_columns& table, std::size_t c, std::span<const std::uint8_t> use) {
  ranked_column column;
  column.rank.assign(table.n_records(), -1);
  std::unordered_map<std::string_view, std::int32_t> seen;
  for (std::size_t r = 0; r < table.n_records(); ++r) {
    if ((!use.empty() && use[r] == 0) || is_missing(table, c, r)) continue;
    const std::string_view cell = table.cell(c, r);
    const auto [at, fresh] = seen.try_emplace(cell, static_cast<std::int32_t>(column.text.size()));
    if (fresh) column.text.push_back(cell);
    column.rank[r] = at->second;
  }
  sort_texts(column.text);
  std::vector<std::int32_t> place(column.text.size());
  for (std::size_t k = 0; k < column.text.size(); ++k)
    place[from0(seen.at(column.text[k]))] = static_cast<std::int32_t>(k);
  for (std::int32_t& rank : column.rank)
    if (rank >= 0) rank = place[from0(rank)];
  return column;
}

// Combines the levels so far (0-based, -1 missing; n of them) with the next column: the pairs that occur, in
// order.
void combine(const ranked_column& next, std::vector<std::int32_t>& level,
             std::vector<std::string>& identification) {
  const auto width = static_cast<std::int64_t>(next.text.size());
  std::vector<std::int64_t> key(level.size(), -1);
  std::vector<std::int64_t> keys;
  for (std::size_t r = 0; r < level.size(); ++r)
    if (level[r] >= 0 && next.rank[r] >= 0) keys.push_back(key[r] = level[r] * width + next.rank[r]);
  std::sort(keys.begin(), keys.end());
  keys.erase(std::unique(keys.begin(), keys.end()), keys.end());

  std::vector<std::string> pairs;
  for (const std::int64_t k : keys)
    pairs.push_back(identification[from0(k / width)] + ":" + std::string(next.text[from0(k % width)]));
  for (std::size_t r = 0; r < level.size(); ++r)
    level[r] =
        key[r] < 0
            ? -1
            : static_cast<std::int32_t>(std::lower_bound(keys.begin(), keys.end(), key[r]) - keys.begin());
  identification = std::move(pairs);
}

} // namespace

bool plain_integer(std::string_view text, std::int32_t& value) {
  const std::string_view digits = text.starts_with('-') ? text.substr(1) : text;
  if (digits.empty() || (digits.front() == '0' && (digits.size() > 1 || digits.size() < text.size())))
    return false;
  const auto [stop, fault] = std::from_chars(text.data(), text.data() + text.size(), value);
  return fault == std::errc{} && stop == text.data() + text.size();
}

bool codes_of_identifications(std::span<const std::string> identification, std::vector<std::int32_t>& code) {
  code.resize(identification.size());
  bool integers = true;
  for (std::size_t l = 0; l < code.size() && integers; ++l)
    integers = plain_integer(identification[l], code[l]);
  if (integers) {
    std::vector<std::int32_t> sorted = code;
    std::sort(sorted.begin(), sorted.end());
    integers = std::adjacent_find(sorted.begin(), sorted.end()) == sorted.end();
  }
  if (!integers) std::iota(code.begin(), code.end(), 1);
  return integers;
}

level_codes codes_of_columns(const csv_columns& table, std::span<const std::size_t> columns,
                             std::span<const std::uint8_t> use) {
  level_codes codes;
  for (std::size_t k = 0; k < columns.size(); ++k) {
    const ranked_column next = rank_column(table, columns[k], use);
    if (k == 0) {
      codes.name = table.header[columns[k]];
      codes.level = next.rank;
      codes.identification.assign(next.text.begin(), next.text.end());
    } else {
      codes.name += ":" + table.header[columns[k]];
      combine(next, codes.level, codes.identification);
    }
  }
  codes.n_records.assign(codes.identification.size(), 0);
  // a combination may drop levels of its first columns, so records are counted at the end
  for (std::int32_t& level : codes.level)
    if (++level > 0) ++codes.n_records[from1(level)];
  codes.codes_are_identifications = codes_of_identifications(codes.identification, codes.code);
  return codes;
}

std::string level_name(std::string_view effect, std::string_view identification) {
  const bool combined = effect.find(':') != std::string_view::npos;
  return combined ? fmt::format("{}:[{}]", effect, identification)
                  : fmt::format("{}:{}", effect, identification);
}

void check_class_size(const csv_columns& table, const level_codes& codes, message_log& log) {
  constexpr std::int64_t few = 100;
  std::int64_t n = 0;
  for (const std::int64_t count : codes.n_records) n += count;
  const std::int64_t n_levels = codes.n_levels();
  if (n_levels <= few || 10 * n_levels <= 9 * n || codes.name.find(':') != std::string::npos) return;
  std::int64_t value = 0;
  if (!std::all_of(codes.identification.begin(), codes.identification.end(),
                   [&](const std::string& text) { return any_integer(text, value); }))
    return;
  add_error(
      log, {table.file, 0, 0},
      fmt::format("{} is used as a class and has {} levels in {} records; a covariable? add [covariable.{}]",
                  codes.name, n_levels, n, codes.name));
}

} // namespace zeph::prepare
