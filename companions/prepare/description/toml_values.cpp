#include "prepare/description/toml_values.h"

#include "shared/indexing.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

namespace zeph::prepare {

namespace {

text_place place(const toml::source_region& region) {
  return {static_cast<int>(region.begin.line), static_cast<int>(region.begin.column)};
}

// Bytes from the character before which `column` - 1 characters are.
std::size_t byte_of_column(std::string_view line, int column) {
  std::size_t byte = 0;
  for (int i = 1; i < column && byte < line.size(); ++i) do
      ++byte;
    while (byte < line.size() && (static_cast<unsigned char>(line[byte]) & 0xC0U) == 0x80U);
  return byte;
}

// A number as written in the file, without the underscores that TOML allows in it.
std::string number_text(const table_view& t, const toml::node& node) {
  const text_place at = place_of(node);
  if (at.line < 1 || at.line > static_cast<int>(t.description->lines.size())) return {};
  const std::string_view line = t.description->lines[from0(at.line) - 1];
  const std::size_t begin = byte_of_column(line, at.column);
  std::size_t end = begin;
  while (end < line.size() && std::string_view(" \t,]}#").find(line[end]) == std::string_view::npos) ++end;
  std::string text(line.substr(begin, end - begin));
  std::erase(text, '_');
  return text;
}

// Rows of a matrix as written; false after a fault.
bool rows_of(const table_view& t, const toml::array& list, std::string_view what,
             std::vector<std::vector<double>>& rows) {
  bool good = true;
  for (const toml::node& row : list) {
    rows.emplace_back();
    const toml::array* cells = row.as_array();
    if (cells == nullptr) {
      wrong_type(t, row, fmt::format("row {} of {}", rows.size(), what), "a list of numbers");
      return false;
    }
    for (const toml::node& cell : *cells) {
      const std::string name =
          fmt::format("{}, row {}, column {},", what, rows.size(), rows.back().size() + 1);
      const stated<double> x = number_of(t, cell, name);
      good = good && x.given;
      rows.back().push_back(x.value);
    }
  }
  return good;
}

// All rows of length n, or row i of length i.
bool shape_is_legal(const std::vector<std::vector<double>>& rows, bool& triangle) {
  bool full = true;
  triangle = rows.size() > 1;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    full = full && rows[i].size() == rows.size();
    triangle = triangle && rows[i].size() == i + 1;
  }
  return full || triangle;
}

bool is_symmetric(const table_view& t, text_place at, const matrix_value& m, std::string_view what) {
  const std::size_t n = from0(m.order);
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = 0; j < i; ++j) {
      const double a = m.value[i * n + j], b = m.value[j * n + i];
      if (std::fabs(a - b) <= 1e-8 * std::max(std::fabs(a), std::fabs(b))) continue;
      error_at(*t.description, *t.log, at,
               fmt::format("{} is not symmetric: row {}, column {} is {}, row {}, column {} is {}", what,
                           j + 1, i + 1, b, i + 1, j + 1, a));
      return false;
    }
  return true;
}

std::string named(const table_view& t, std::string_view key) {
  return t.title.empty() ? std::string(key) : fmt::format("{} {}", t.title, key);
}

// The elements of a list, or the single text (or number) that serves as a list of one.
std::vector<const toml::node*> elements_of(const table_view& t, std::string_view key, bool numbers) {
  std::vector<const toml::node*> elements;
  const toml::node* node = find(t, key);
  if (node == nullptr) return elements;
  if (const toml::array* array = node->as_array())
    for (const toml::node& element : *array) elements.push_back(&element);
  else if (node->is_string() || (numbers && node->is_number()))
    elements.push_back(node);
  else
    wrong_type(t, *node, named(t, key), "a list of texts");
  return elements;
}

// Skips a TOML string that begins at i; i is just after it afterwards.
void skip_string(std::string_view text, std::size_t& i) {
  const char quote = text[i];
  const bool several = text.substr(i, 3) == std::string(3, quote);
  const std::string end(several ? 3 : 1, quote);
  i += end.size();
  while (i < text.size() && text.substr(i, end.size()) != end) {
    if (!several && text[i] == '\n') return;
    i += (quote == '"' && text[i] == '\\') ? 2 : 1;
  }
  i = std::min(i + end.size(), text.size());
}

} // namespace

text_place place_of(const toml::node& node) { return place(node.source()); }
text_place place_of(const toml::key& key) { return place(key.source()); }

const toml::node* find(const table_view& t, std::string_view key) {
  return t.table == nullptr ? nullptr : t.table->get(key);
}

std::string type_word(const toml::node& node) {
  if (node.is_string()) return "a text";
  if (node.is_integer()) return "a whole number";
  if (node.is_floating_point()) return "a number";
  if (node.is_boolean()) return "true or false";
  if (node.is_array()) return "a list";
  return node.is_table() ? "a table" : "a date or time";
}

void wrong_type(const table_view& t, const toml::node& node, std::string_view what, std::string_view wanted) {
  error_at(*t.description, *t.log, place_of(node),
           fmt::format("{} must be {}, not {}", what, wanted, type_word(node)));
}

text_value text_of(const table_view& t, const toml::node& node, std::string_view what) {
  text_value v;
  v.at = place_of(node);
  if (!node.is_string()) {
    wrong_type(t, node, what, "a text");
    return v;
  }
  v.value = node.as_string()->get();
  v.given = !v.value.empty() && v.value.find('\0') == std::string::npos;
  if (!v.given) error_at(*t.description, *t.log, v.at, fmt::format("{} is empty or not text", what));
  return v;
}

stated<double> number_of(const table_view& t, const toml::node& node, std::string_view what) {
  stated<double> v;
  v.at = place_of(node);
  if (node.is_integer())
    v.value = static_cast<double>(node.as_integer()->get());
  else if (node.is_floating_point())
    v.value = node.as_floating_point()->get();
  else {
    wrong_type(t, node, what, "a number");
    return v;
  }
  v.given = std::isfinite(v.value);
  if (!v.given) {
    error_at(*t.description, *t.log, v.at, fmt::format("{} must be a finite number", what));
    v.value = 0.0;
  }
  return v;
}

stated<std::int32_t> whole_of(const table_view& t, const toml::node& node, std::string_view what,
                              std::int32_t low, std::int32_t high) {
  stated<std::int32_t> v;
  v.at = place_of(node);
  if (!node.is_integer()) {
    wrong_type(t, node, what, "a whole number");
    return v;
  }
  const std::int64_t x = node.as_integer()->get();
  v.given = x >= low && x <= high;
  if (v.given)
    v.value = static_cast<std::int32_t>(x);
  else if (high == std::numeric_limits<std::int32_t>::max() && x < low)
    error_at(*t.description, *t.log, v.at,
             fmt::format("{} = {} must be a whole number from {} up", what, x, low));
  else
    error_at(*t.description, *t.log, v.at, fmt::format("{} = {} must be from {} to {}", what, x, low, high));
  return v;
}

text_value read_text(const table_view& t, std::string_view key, std::string fallback) {
  const toml::node* node = find(t, key);
  if (node != nullptr) {
    text_value v = text_of(t, *node, named(t, key));
    if (v.given) return v;
  }
  return {std::move(fallback), {}, false};
}

stated<bool> read_truth(const table_view& t, std::string_view key, bool fallback) {
  const toml::node* node = find(t, key);
  if (node == nullptr) return {fallback, {}, false};
  if (node->is_boolean()) return {node->as_boolean()->get(), place_of(*node), true};
  wrong_type(t, *node, named(t, key), "true or false");
  return {fallback, {}, false};
}

stated<std::int32_t> read_whole(const table_view& t, std::string_view key, std::int32_t fallback,
                                std::int32_t low, std::int32_t high) {
  const toml::node* node = find(t, key);
  if (node != nullptr) {
    const stated<std::int32_t> v = whole_of(t, *node, named(t, key), low, high);
    if (v.given) return v;
  }
  return {fallback, {}, false};
}

stated<double> read_number(const table_view& t, std::string_view key, double fallback) {
  const toml::node* node = find(t, key);
  if (node != nullptr) {
    const stated<double> v = number_of(t, *node, named(t, key));
    if (v.given) return v;
  }
  return {fallback, {}, false};
}

stated<std::vector<double>> read_numbers(const table_view& t, std::string_view key) {
  const toml::node* node = find(t, key);
  if (node == nullptr) return {};
  if (!node->is_array()) {
    wrong_type(t, *node, named(t, key), "a list of numbers");
    return {};
  }
  stated<std::vector<double>> out{{}, place_of(*node), true};
  for (const toml::node& element : *node->as_array()) {
    const stated<double> x = number_of(t, element, named(t, key));
    if (!x.given) return {};
    out.value.push_back(x.value);
  }
  return out;
}

std::vector<text_value> read_texts(const table_view& t, std::string_view key) {
  std::vector<text_value> list;
  for (const toml::node* node : elements_of(t, key, false)) {
    text_value v = text_of(t, *node, named(t, key));
    if (v.given) list.push_back(std::move(v));
  }
  return list;
}

std::vector<text_value> read_codes(const table_view& t, std::string_view key) {
  std::vector<text_value> list;
  for (const toml::node* node : elements_of(t, key, true)) {
    if (node->is_string() && node->as_string()->get().empty()) continue;
    text_value v = node->is_number() ? text_value{number_text(t, *node), place_of(*node), true}
                                     : text_of(t, *node, named(t, key));
    if (v.given) list.push_back(std::move(v));
  }
  return list;
}

stated<std::size_t> read_word(const table_view& t, std::string_view key, std::span<const std::string> words,
                              std::size_t fallback) {
  const text_value v = read_text(t, key);
  if (!v.given) return {fallback, {}, false};
  const auto found = std::find(words.begin(), words.end(), v.value);
  if (found != words.end()) return {from0(found - words.begin()), v.at, true};
  message& m = error_at(*t.description, *t.log, v.at,
                        fmt::format("unknown {} \"{}\"; known: {}", named(t, key), v.value, joined(words)));
  m.hint = nearest_hint(v.value, words);
  return {fallback, {}, false};
}

matrix_value matrix_of(const table_view& t, const toml::node& node, std::string_view what) {
  matrix_value none, m;
  m.at = place_of(node);
  std::vector<std::vector<double>> rows;
  const toml::array* list = node.as_array();
  if (list == nullptr || (list->size() == 1 && list->get(0)->is_number())) {
    const stated<double> x = number_of(t, list == nullptr ? node : *list->get(0), what);
    if (!x.given) return none;
    rows = {{x.value}};
  } else if (!rows_of(t, *list, what, rows)) {
    return none;
  }
  bool triangle = false;
  if (rows.empty() || !shape_is_legal(rows, triangle)) {
    error_at(*t.description, *t.log, m.at,
             fmt::format("{} must be a square matrix, [[..], [..]], or its lower triangle", what));
    return none;
  }
  const std::size_t n = rows.size();
  m.order = static_cast<int>(n);
  m.value.resize(n * n);
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = 0; j < n; ++j) m.value[i * n + j] = triangle && j > i ? rows[j][i] : rows[i][j];
  return is_symmetric(t, m.at, m, what) ? m : none;
}

const toml::table* read_table(const table_view& t, std::string_view key) {
  const toml::node* node = find(t, key);
  if (node == nullptr) return nullptr;
  if (!node->is_table()) wrong_type(t, *node, named(t, key), "a table");
  return node->as_table();
}

std::vector<table_entry> entries_by_place(const toml::table& table) {
  std::vector<table_entry> entries;
  for (auto&& [key, node] : table) entries.emplace_back(&key, &node);
  std::stable_sort(entries.begin(), entries.end(), [](const table_entry& a, const table_entry& b) {
    const text_place p = place_of(*a.first), q = place_of(*b.first);
    return std::pair{p.line, p.column} < std::pair{q.line, q.column};
  });
  return entries;
}

void refuse_unknown_keys(const table_view& t, std::span<const std::string> known,
                         std::string (*elsewhere)(std::string_view key)) {
  if (t.table == nullptr) return;
  for (const auto& [key, node] : entries_by_place(*t.table)) {
    const std::string name(key->str());
    if (std::find(known.begin(), known.end(), name) != known.end()) continue;
    const std::string where = t.title.empty() ? "" : " in " + t.title;
    message& m = error_at(*t.description, *t.log, place_of(*key),
                          fmt::format("unknown key \"{}\"{}; known: {}", name, where, joined(known)));
    const std::string other = elsewhere(name);
    m.hint = other.empty() ? nearest_hint(name, known) : fmt::format("\"{}\" belongs in {}", name, other);
  }
}

int most_dots_of_a_key(std::string_view toml_text) {
  int most = 0, dots = 0;
  for (std::size_t i = 0; i < toml_text.size();) {
    const char c = toml_text[i];
    if (c == '"' || c == '\'') {
      skip_string(toml_text, i);
      continue;
    }
    if (c == '#') {
      i = std::min(toml_text.find('\n', i), toml_text.size());
      continue;
    }
    if (c == '.') most = std::max(most, ++dots);
    if (std::string_view(",=[]{}\n").find(c) != std::string_view::npos) dots = 0;
    ++i;
  }
  return most;
}

} // namespace zeph::prepare
