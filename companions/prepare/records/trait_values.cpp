#include "prepare/records/trait_values.h"

#include "prepare/messages/messages.h"
#include "prepare/messages/repeated_cells.h"
#include "prepare/tables/missing_codes.h"
#include "shared/indexing.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <set>
#include <unordered_map>
#include <utility>

namespace zeph::prepare {

namespace {

constexpr double missing_value = std::numeric_limits<double>::quiet_NaN();
constexpr std::size_t most_categories = 100; // of an ordered trait without a list of them

using number_columns = std::map<std::string, std::vector<double>>;

// What the readers of one trait have at hand.
struct trait_reader {
  const model_description& d;
  const trait_section& trait;
  const csv_columns& table;
  const number_columns& numbers;
  message_log& log;

  message& fault(std::size_t r, const std::string& text) const {
    return add_error(log, {table.file, static_cast<int>(table.line[r]), 0}, text, "values of " + trait.name);
  }
  [[nodiscard]] std::size_t n() const { return table.n_records(); }
};

// One fault for each text of a column; text_of(cell) is its message, the hint what the text may mean.
template <class TextOf>
void refuse_cells(const trait_reader& in, const repeated_cells& wrong, std::span<const std::string> known,
                  const TextOf& text_of) {
  for (const repeated_cell& cell : wrong.cells) {
    message& m = add_error(in.log, {in.table.file, static_cast<int>(cell.lines.first.front()), 0},
                           text_of(shown(cell.text)), "values of " + in.trait.name);
    m.text += where_in_words(cell.lines);
    m.hint = missing_hint(in.table, cell.text);
    if (m.hint.empty()) m.hint = nearest_hint(cell.text, known);
  }
}

// ---- categories

bool numeric_cell(const csv_columns& table, std::size_t c, std::size_t r, double& value) {
  return number_in(table.cell(c, r), table.layout.decimal, value);
}

// `categories = ["easy", "hard"]` of the texts of the column in the order of letters; of many the first.
std::string categories_line(const trait_reader& in, std::size_t c) {
  constexpr std::size_t most = 12;
  std::set<std::string, std::less<>> texts;
  for (std::size_t r = 0; r < in.n() && texts.size() <= most; ++r)
    if (!is_missing(in.table, c, r)) texts.emplace(in.table.cell(c, r));
  std::string list;
  for (const std::string& text : texts)
    list += fmt::format("{}\"{}\"", list.empty() ? "" : ", ", shown(text));
  return fmt::format("categories = [{}]{}", list, texts.size() > most ? " and so on" : "");
}

// Numbers of the column, ascending, as they are written first.
std::vector<std::string> categories_of_numbers(const trait_reader& in, std::size_t c) {
  std::map<double, std::string> seen;
  for (std::size_t r = 0; r < in.n(); ++r) {
    double value = 0.0;
    if (is_missing_number(in.table, c, r)) continue;
    if (!numeric_cell(in.table, c, r, value)) {
      in.fault(r,
               fmt::format(
                   "\"{}\" in column {} is not a number: name the categories of {}, the lowest first,\n"
                   "by these put in their order: {}",
                   shown(in.table.cell(c, r)), in.trait.column.value, in.trait.name, categories_line(in, c)))
          .hint = missing_hint(in.table, in.table.cell(c, r));
      return {};
    }
    seen.emplace(value, in.table.cell(c, r));
  }
  if (seen.size() > most_categories)
    add_error(in.log, {in.table.file, 0, 0},
              fmt::format("{} is ordered and has {} categories; is it kind = \"gaussian\"?", in.trait.name,
                          seen.size()));
  else if (seen.size() < 3)
    add_error(in.log, {in.table.file, 0, 0},
              fmt::format("{} is ordered and has {} categories; two are kind = \"binary\"", in.trait.name,
                          seen.size()));
  std::vector<std::string> out;
  for (const auto& [value, text] : seen) out.push_back(text);
  return out;
}

// The texts that mean 1, 2, .. (ordered) or 0, 1; a number is all of its spellings.
void number_categories(const trait_reader& in, std::size_t c, double first, trait_values& out) {
  std::unordered_map<std::string, double> by_text;
  std::map<double, double> by_number;
  for (std::size_t k = 0; k < out.categories.size(); ++k) {
    const double code = first + static_cast<double>(k);
    double value = 0.0;
    by_text.emplace(out.categories[k], code);
    if (number_in(out.categories[k], in.table.layout.decimal, value)) by_number.emplace(value, code);
  }
  out.y.assign(in.n(), missing_value);
  repeated_cells wrong;
  for (std::size_t r = 0; r < in.n(); ++r) {
    if (is_missing_number(in.table, c, r)) continue;
    double value = 0.0;
    const auto text = by_text.find(std::string(in.table.cell(c, r)));
    if (text != by_text.end())
      out.y[r] = text->second;
    else if (numeric_cell(in.table, c, r, value) && by_number.contains(value))
      out.y[r] = by_number.at(value);
    else
      add_cell(wrong, in.table.cell(c, r), in.table.line[r]);
  }
  const std::size_t first_fault = in.log.entries.size();
  refuse_cells(in, wrong, out.categories, [&](const std::string& cell) {
    return fmt::format("\"{}\" in column {} is not a category of {}; they are: {}", cell,
                       in.trait.column.value, in.trait.name, joined(out.categories));
  });
  if (!wrong.cells.empty() && in.trait.categories.empty() && in.log.entries[first_fault].hint.empty())
    in.log.entries[first_fault].hint =
        "name the two, categories = [\"no\", \"yes\"]; more are kind = \"ordered\"";
}

void read_categories(const trait_reader& in, trait_values& out) {
  const std::size_t c = find_column(in.table, in.trait.column.value);
  const bool ordered = in.trait.kind.value == trait_kind::ordered;
  for (const text_value& text : in.trait.categories) out.categories.push_back(text.value);
  if (out.categories.empty())
    out.categories = ordered ? categories_of_numbers(in, c) : std::vector<std::string>{"0", "1"};
  number_categories(in, c, ordered ? 1.0 : 0.0, out);
}

// ---- censoring

const std::vector<std::string> censoring_words{"left", "none", "right", "interval"};

bool code_in(std::string_view cell, char decimal, std::int32_t& code) {
  for (std::int32_t k = 0; k < 4; ++k)
    if (cell == censoring_words[from0(k)]) {
      code = k - 1;
      return true;
    }
  double value = 0.0;
  if (!number_in(cell, decimal, value)) return false;
  for (std::int32_t k = -1; k <= 2; ++k)
    if (value == k) {
      code = k;
      return true;
    }
  return false;
}

void read_codes(const trait_reader& in, trait_values& out) {
  const std::size_t c = find_column(in.table, in.trait.limits_code.value);
  repeated_cells wrong;
  for (std::size_t r = 0; r < in.n(); ++r) {
    if (is_missing_number(in.table, c, r))
      out.y[r] = missing_value;
    else if (!code_in(in.table.cell(c, r), in.table.layout.decimal, out.code[r]))
      add_cell(wrong, in.table.cell(c, r), in.table.line[r]);
  }
  refuse_cells(in, wrong, censoring_words, [&](const std::string& cell) {
    return fmt::format("\"{}\" in column {} is not a censoring code: -1 left, 0 none, 1 right, 2 interval",
                       cell, in.trait.limits_code.value);
  });
}

void read_events(const trait_reader& in, trait_values& out) {
  const std::size_t c = find_column(in.table, in.trait.limits_event.value);
  repeated_cells wrong;
  for (std::size_t r = 0; r < in.n(); ++r) {
    double event = 0.0;
    if (is_missing_number(in.table, c, r))
      out.y[r] = missing_value;
    else if (!numeric_cell(in.table, c, r, event) || (event != 0.0 && event != 1.0))
      add_cell(wrong, in.table.cell(c, r), in.table.line[r]);
    else
      out.code[r] = event == 1.0 ? observed : censored_right;
  }
  refuse_cells(in, wrong, {}, [&](const std::string& cell) {
    return fmt::format("\"{}\" in column {}: 1 means that the event was observed, 0 that it was not", cell,
                       in.trait.limits_event.value);
  });
}

// A pair of bounds, either of which may be missing.
void codes_of_pairs(const std::vector<double>& upper, trait_values& out) {
  for (std::size_t r = 0; r < out.y.size(); ++r) {
    const bool low = !std::isnan(out.y[r]), high = !std::isnan(upper[r]);
    if (low && high) out.code[r] = censored_interval;
    if (low && !high) out.code[r] = censored_right;
    if (low || !high) continue;
    out.code[r] = censored_left;
    out.y[r] = upper[r];
  }
}

// Upper bounds of the intervals, and bounds that the files can hold.
void check_bounds(const trait_reader& in, const std::vector<double>* upper, trait_values& out) {
  for (std::size_t r = 0; r < in.n(); ++r) {
    if (std::isnan(out.y[r])) continue;
    if (out.code[r] == censored_interval) {
      const double high = upper == nullptr ? missing_value : (*upper)[r];
      if (std::isnan(high))
        in.fault(r, fmt::format("the interval of {} from {:g} has no upper limit", in.trait.name, out.y[r]));
      else if (high < out.y[r])
        in.fault(r, fmt::format("the upper limit {:g} of {} lies below the lower one, {:g}", high,
                                in.trait.name, out.y[r]));
      else if (static_cast<float>(high) > static_cast<float>(out.y[r]))
        out.upper[r] = high;
      else
        out.code[r] = observed;
    }
    if (std::fabs(out.y[r]) >= no_bound || out.upper[r] >= no_bound)
      in.fault(r, fmt::format("{} of {} is too large for a censored trait: {:g} means no bound; "
                              "use another unit",
                              std::fabs(out.y[r]) >= no_bound ? out.y[r] : out.upper[r], in.trait.name,
                              no_bound));
  }
}

void read_censored(const trait_reader& in, trait_values& out) {
  out.y = in.numbers.at(in.trait.column.value);
  out.code.assign(in.n(), observed);
  out.upper.assign(in.n(), 0.0);
  const std::vector<double>* upper =
      in.trait.limits_upper.given ? &in.numbers.at(in.trait.limits_upper.value) : nullptr;
  if (in.trait.limits_code.given)
    read_codes(in, out);
  else if (in.trait.limits_event.given)
    read_events(in, out);
  else
    codes_of_pairs(*upper, out);
  check_bounds(in, upper, out);
}

// ---- memberships

// The records with the largest values begin in component 1; of equal ones the first.
void top_share(const std::vector<double>& y, double share, std::vector<double>& member) {
  std::vector<std::size_t> order;
  for (std::size_t r = 0; r < y.size(); ++r)
    if (!std::isnan(y[r])) order.push_back(r);
  std::ranges::stable_sort(order, [&y](std::size_t a, std::size_t b) { return y[a] > y[b]; });
  if (order.size() < 2) return;
  const auto wanted = from0(std::lround(share * static_cast<double>(order.size())));
  const std::size_t n = std::clamp<std::size_t>(wanted, 1, order.size() - 1);
  for (std::size_t i = 0; i < n; ++i) member[order[i]] = 1.0;
}

void read_membership(const trait_reader& in, int number, const std::vector<trait_values>& values,
                     trait_values& out) {
  if (in.trait.column.given) {
    out.categories = {"0", "1"};
    number_categories(in, find_column(in.table, in.trait.column.value), 0.0, out);
    out.categories.clear();
    for (std::size_t r = 0; r < in.n(); ++r)
      if (std::isnan(out.y[r])) out.y[r] = 0.0;
    return;
  }
  out.y.assign(in.n(), 0.0);
  for (std::size_t t = 0; t < in.d.traits.size(); ++t) {
    const bool wanted = in.trait.first_of.given ? in.d.traits[t].name == in.trait.first_of.value
                                                : in.d.traits[t].indicator == number;
    if (!wanted) continue;
    top_share(values[t].y, in.trait.first_upper.given ? in.trait.first_upper.value : 0.5, out.y);
    return;
  }
}

// ---- sequences

// 1 in all records of the subjects with an event in one of them.
void read_cured(const trait_reader& in, const std::vector<trait_values>& values, trait_values& out) {
  const std::size_t partner = from0(in.trait.partner);
  const std::vector<double>& event = values[partner].y;
  const std::size_t c = find_column(in.table, in.d.traits[partner].subject.value);
  std::set<std::string, std::less<>> failed;
  for (std::size_t r = 0; r < in.n(); ++r)
    if (event[r] == 1.0) failed.emplace(in.table.cell(c, r));
  out.y.resize(in.n());
  for (std::size_t r = 0; r < in.n(); ++r) out.y[r] = failed.contains(in.table.cell(c, r)) ? 1.0 : 0.0;
}

} // namespace

std::vector<trait_values> read_trait_values(const model_description& d, const csv_columns& table,
                                            const number_columns& numbers, message_log& log) {
  std::vector<trait_values> out(d.traits.size());
  for (const bool derived : {false, true}) // these need the values of others
    for (std::size_t t = 0; t < d.traits.size(); ++t) {
      const trait_reader in{d, d.traits[t], table, numbers, log};
      const trait_kind kind = in.trait.kind.value;
      if (derived != (kind == trait_kind::indicator || kind == trait_kind::cured)) continue;
      if (kind == trait_kind::gaussian)
        out[t].y = numbers.at(in.trait.column.value);
      else if (kind == trait_kind::censored)
        read_censored(in, out[t]);
      else if (kind == trait_kind::indicator)
        read_membership(in, static_cast<int>(t), out, out[t]);
      else if (kind == trait_kind::cured)
        read_cured(in, out, out[t]);
      else
        read_categories(in, out[t]);
    }
  return out;
}

} // namespace zeph::prepare
