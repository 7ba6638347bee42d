#include "prepare/parts/fixed_rank.h"

#include "prepare/parts/column_dependence.h"
#include "prepare/tables/level_codes.h"
#include "shared/indexing.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace zeph::prepare {

namespace {

constexpr double constant_column = 1e-7; // spread of a covariable over its mean, below which it is a constant
constexpr std::size_t most_terms = 6;    // of a combination that is shown

bool is_class(const fixed_effect& e) { return e.covariable.empty(); }

std::int32_t level_at(const fixed_effect& e, std::size_t r) { return e.level.empty() ? 1 : e.level[r]; }

double value_at(const fixed_effect& e, std::size_t r) { return is_class(e) ? 1.0 : e.covariable[r]; }

std::size_t n_records_of(std::span<const fixed_effect> effects) {
  return effects.empty() ? 0 : std::max(effects[0].level.size(), effects[0].covariable.size());
}

bool used(std::span<const std::uint8_t> use, std::size_t r) { return use.empty() || use[r] != 0; }

// Index in the table of level 1 of every effect.
std::vector<std::size_t> first_lines(std::span<const fixed_effect> effects) {
  std::vector<std::size_t> first;
  std::size_t n = 0;
  for (const fixed_effect& e : effects) {
    first.push_back(n);
    n += from0(e.n_levels);
  }
  return first;
}

// The whole table, every column kept for now, with its counts.
std::vector<column_decision> all_columns(std::span<const fixed_effect> effects,
                                         std::span<const std::uint8_t> use) {
  std::vector<column_decision> table;
  for (std::size_t e = 0; e < effects.size(); ++e)
    for (std::int32_t l = 1; l <= effects[e].n_levels; ++l)
      table.push_back({static_cast<std::int32_t>(e), l, 0, {}, {}});
  const std::vector<std::size_t> first = first_lines(effects);
  for (std::size_t e = 0; e < effects.size(); ++e)
    for (std::size_t r = 0; r < n_records_of(effects); ++r)
      if (const std::int32_t l = level_at(effects[e], r);
          used(use, r) && l > 0 && value_at(effects[e], r) != 0.0)
        ++table[first[e] + from1(l)].n_records;
  for (column_decision& d : table)
    if (d.n_records == 0) {
      d.state = column_state::no_data;
      d.why = "no record";
    }
  return table;
}

// True when every record in use has a level of the effect: its columns sum to the mean.
bool covers_all(const fixed_effect& e, std::span<const std::uint8_t> use) {
  for (std::size_t r = 0; r < e.level.size(); ++r)
    if (used(use, r) && e.level[r] <= 0) return false;
  return !e.level.empty();
}

// The class effect with most levels that have data; -1: none.
std::ptrdiff_t widest_class(std::span<const fixed_effect> effects,
                            const std::vector<column_decision>& table) {
  std::vector<std::int64_t> n(effects.size(), 0);
  for (const column_decision& d : table)
    if (d.state != column_state::no_data) ++n[from0(d.effect)];
  const auto before = [&](std::size_t a, std::size_t b) {
    return effects[a].whole != effects[b].whole ? effects[a].whole : n[a] > n[b];
  };
  std::ptrdiff_t widest = -1;
  for (std::size_t e = 0; e < effects.size(); ++e)
    if (is_class(effects[e]) && (widest < 0 || before(e, from0(widest))))
      widest = static_cast<std::ptrdiff_t>(e);
  return widest;
}

void choose_references(std::span<const fixed_effect> effects, std::span<const std::uint8_t> use,
                       std::size_t widest, std::vector<column_decision>& table) {
  if (!covers_all(effects[widest], use)) return;
  const std::vector<std::size_t> first = first_lines(effects);
  for (std::size_t e = 0; e < effects.size(); ++e) {
    if (e == widest || !is_class(effects[e]) || !covers_all(effects[e], use)) continue;
    const auto begin = table.begin() + static_cast<std::ptrdiff_t>(first[e]);
    const auto most = std::max_element(begin, begin + effects[e].n_levels, [](const auto& a, const auto& b) {
      return a.n_records < b.n_records;
    });
    if (effects[e].n_levels < 1 || most->n_records == 0) continue;
    most->state = column_state::reference;
    most->why = fmt::format("most records of {}; its mean is in {}", effects[e].name, effects[widest].name);
  }
}

// Mean over the records of a plain regression, which the widest class takes up; 0 for all others.
double center_of(const fixed_effect& e, std::span<const std::uint8_t> use, bool mean_is_in_class) {
  if (is_class(e) || !e.level.empty() || !mean_is_in_class) return 0.0;
  double sum = 0.0;
  std::size_t n = 0;
  for (std::size_t r = 0; r < e.covariable.size(); ++r)
    if (used(use, r)) {
      sum += e.covariable[r];
      ++n;
    }
  return n == 0 ? 0.0 : sum / static_cast<double>(n);
}

fixed_columns collect_columns(std::span<const fixed_effect> effects, std::span<const std::uint8_t> use,
                              std::ptrdiff_t widest, const std::vector<column_decision>& table) {
  fixed_columns x;
  const std::vector<std::size_t> first = first_lines(effects);
  std::vector<std::int32_t> column_of(table.size(), -1);
  const auto take = [&](std::size_t e) {
    for (std::size_t k = first[e]; k < first[e] + from0(effects[e].n_levels); ++k)
      if (table[k].state == column_state::kept) {
        column_of[k] = x.n();
        x.decision.push_back(k);
      }
  };
  if (widest >= 0) take(from0(widest));
  x.n_wide = x.n();
  for (std::size_t e = 0; e < effects.size(); ++e)
    if (static_cast<std::ptrdiff_t>(e) != widest) take(e);

  const bool mean_is_in_class = widest >= 0 && covers_all(effects[from0(widest)], use);
  std::vector<double> center;
  for (const fixed_effect& e : effects) center.push_back(center_of(e, use, mean_is_in_class));
  x.start.push_back(0);
  for (std::size_t r = 0; r < n_records_of(effects); ++r) {
    if (!used(use, r)) continue;
    for (std::size_t e = 0; e < effects.size(); ++e) {
      const std::int32_t l = level_at(effects[e], r);
      if (l <= 0) continue;
      const std::int32_t c = column_of[first[e] + from1(l)];
      if (c < 0) continue;
      x.column.push_back(c);
      x.value.push_back(value_at(effects[e], r) - center[e]);
    }
    x.start.push_back(x.column.size());
  }
  // a covariable without spread is a multiple of the mean: what is left of it is rounding
  std::vector<double> spread(x.decision.size(), 0.0);
  for (std::size_t k = 0; k < x.column.size(); ++k)
    spread[from0(x.column[k])] = std::max(spread[from0(x.column[k])], std::abs(x.value[k]));
  for (std::size_t k = 0; k < x.column.size(); ++k) {
    const auto c = from0(x.column[k]);
    const auto e = from0(table[x.decision[c]].effect);
    if (spread[c] <= constant_column * std::abs(center[e])) x.value[k] = 0.0;
  }
  return x;
}

// Coefficients of the widest class: in each level the mean of what the other terms leave of the column. The
// values are those of the covariables as they are, not centred.
void add_wide_terms(std::span<const fixed_effect> effects, std::span<const std::uint8_t> use,
                    const std::vector<column_decision>& table, const fixed_columns& x, combination& c) {
  std::vector<double> coefficient(x.decision.size(), 0.0);
  for (const auto& [column, v] : c.term) coefficient[from0(column)] = -v;
  coefficient[from0(c.column)] = 1.0;
  std::vector<double> sum(from0(x.n_wide), 0.0);
  std::vector<std::size_t> n(sum.size(), 0);
  std::size_t u = 0; // of the records in use
  for (std::size_t r = 0; r < n_records_of(effects); ++r) {
    if (!used(use, r)) continue;
    const std::int32_t w = wide_column(x, u);
    if (w >= 0) {
      ++n[from0(w)];
      for (std::size_t k = x.start[u]; k < x.start[u + 1]; ++k) {
        const auto column = from0(x.column[k]);
        if (x.column[k] < x.n_wide || coefficient[column] == 0.0) continue;
        const auto e = from0(table[x.decision[column]].effect);
        sum[from0(w)] += coefficient[column] * value_at(effects[e], r);
      }
    }
    ++u;
  }
  for (std::size_t w = sum.size(); w-- > 0;)
    if (n[w] > 0 && std::abs(sum[w]) > no_coefficient * static_cast<double>(n[w]))
      c.term.insert(c.term.begin(), {static_cast<std::int32_t>(w), sum[w] / static_cast<double>(n[w])});
}

std::string name_of(std::span<const fixed_effect> effects, const column_decision& d) {
  return column_name(effects[from0(d.effect)], d.level);
}

// "herd:year:[7:1998] (the same 12 records)", "a:1 + a:2 - 0.5 x b:3", ...
std::string combination_text(std::span<const fixed_effect> effects, const std::vector<column_decision>& table,
                             const fixed_columns& x, const combination& c) {
  constexpr double whole_number =
      1e-6; // coefficients of class effects come out as whole numbers but for rounding
  const column_decision& own = table[x.decision[from0(c.column)]];
  std::string text;
  for (std::size_t k = 0; k < c.term.size() && k < most_terms; ++k) {
    const auto& [column, v] = c.term[k];
    text += v < 0.0 ? (k == 0 ? "-" : " - ") : (k == 0 ? "" : " + ");
    if (std::abs(std::abs(v) - 1.0) > whole_number) text += fmt::format("{:.6g} x ", std::abs(v));
    text += name_of(effects, table[x.decision[from0(column)]]);
  }
  if (c.term.empty()) return "0";
  if (c.term.size() > most_terms) text += fmt::format(" + ... ({} terms)", c.term.size());
  const column_decision& other = table[x.decision[from0(c.term[0].first)]];
  const bool classes = is_class(effects[from0(own.effect)]) && is_class(effects[from0(other.effect)]);
  if (classes && c.term.size() == 1 && own.n_records == other.n_records)
    text += own.n_records == 1 ? " (the same record)" : fmt::format(" (the same {} records)", own.n_records);
  return text;
}

void number_kept_levels(std::span<const fixed_effect> effects, fixed_coding& coding) {
  coding.new_level.clear();
  coding.n_kept.assign(effects.size(), 0);
  coding.rank = 0;
  for (const fixed_effect& e : effects) coding.new_level.emplace_back(from0(e.n_levels), 0);
  for (const column_decision& d : coding.column)
    if (d.state == column_state::kept) {
      const auto e = from0(d.effect);
      coding.new_level[e][from1(d.level)] = ++coding.n_kept[e];
      ++coding.rank;
    }
}

} // namespace

std::string column_name(const fixed_effect& effect, std::int32_t level) {
  const auto l = from1(level);
  if (effect.level.empty()) return effect.name;
  return level_name(effect.name, l < effect.identification.size() ? shown(effect.identification[l])
                                                                  : fmt::format("{}", level));
}

fixed_coding code_fixed_part(const std::string& trait, std::span<const fixed_effect> effects,
                             std::span<const std::uint8_t> use, bool dependence_is_error, message_log& log) {
  fixed_coding coding;
  coding.column = all_columns(effects, use);
  const std::ptrdiff_t widest = widest_class(effects, coding.column);
  if (widest >= 0) choose_references(effects, use, from0(widest), coding.column);

  const fixed_columns x = collect_columns(effects, use, widest, coding.column);
  bool good = false;
  std::vector<combination> dependent = dependent_columns(x, good);
  if (!good)
    add_error(
        log, {},
        fmt::format("no memory to find the rank of the fixed effects of {} ({} columns)", trait, x.n()));
  for (std::size_t k = 0; k < dependent.size(); ++k) {
    combination& c = dependent[k];
    column_decision& d = coding.column[x.decision[from0(c.column)]];
    std::string why = "columns before it";
    if (k < most_combined) {
      if (c.term.empty() || c.term[0].first >= x.n_wide) add_wide_terms(effects, use, coding.column, x, c);
      why = combination_text(effects, coding.column, x, c);
    }
    d.why = "= " + why;
    const std::string name = name_of(effects, d);
    std::string text =
        fmt::format("fixed effects of {} are dependent: {} = {}; {} is dropped", trait, name, why, name);
    if (dependence_is_error)
      add_error(log, {}, std::move(text), "rank " + trait);
    else
      add_warning(log, {}, std::move(text), "rank " + trait);
  }
  for (const combination& c : dependent)
    coding.column[x.decision[from0(c.column)]].state = column_state::dependent;
  number_kept_levels(effects, coding);
  return coding;
}

fixed_coding full_coding(std::span<const fixed_effect> effects, std::span<const std::uint8_t> use) {
  fixed_coding coding;
  coding.column = all_columns(effects, use);
  for (column_decision& d : coding.column) d.state = column_state::kept;
  number_kept_levels(effects, coding);
  for (column_decision& d : coding.column)
    if (d.n_records == 0) d.state = column_state::no_data;
  return coding;
}

} // namespace zeph::prepare
