// Typed reading of TOML values: each routine checks the type, keeps the place, and reports a fault with its
// line and caret. A value of the wrong type leaves the default; reading continues, so that all faults are
// reported in one pass.
#pragma once

#include "prepare/description/description_messages.h"
#include "shared/toml_parser.h"

#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zeph::prepare {

// A table that is being read, and where faults go.
struct table_view {
  const toml::table* table = nullptr; // may be null: then every key is absent
  std::string title;                  // as it appears in messages: "[data]", "[factor.genetic]"
  model_description* description = nullptr;
  message_log* log = nullptr;
};

text_place place_of(const toml::node& node);
text_place place_of(const toml::key& key);

// The value of a key, or null.
const toml::node* find(const table_view& t, std::string_view key);

// "a text", "a whole number", .. for messages.
std::string type_word(const toml::node& node);

// Reports "[data] file must be a text, not a list". `what`: the left side of the sentence.
void wrong_type(const table_view& t, const toml::node& node, std::string_view what, std::string_view wanted);

// Each reads key `key` of `t`; `fallback` is the value when the key is absent or wrong.
text_value read_text(const table_view& t, std::string_view key, std::string fallback = {});
stated<bool> read_truth(const table_view& t, std::string_view key, bool fallback);
stated<std::int32_t> read_whole(const table_view& t, std::string_view key, std::int32_t fallback,
                                std::int32_t low,
                                std::int32_t high = std::numeric_limits<std::int32_t>::max());
stated<double> read_number(const table_view& t, std::string_view key, double fallback);

// A list of texts that are not empty; a single text is a list of one.
std::vector<text_value> read_texts(const table_view& t, std::string_view key);

// The same with numbers among them, which are kept as written in the file; empty texts are passed over.
std::vector<text_value> read_codes(const table_view& t, std::string_view key);

// One of `words`; the result is its index, or `fallback` when absent or unknown.
stated<std::size_t> read_word(const table_view& t, std::string_view key, std::span<const std::string> words,
                              std::size_t fallback);

// A list of finite numbers; empty when the key is absent, or after a fault.
stated<std::vector<double>> read_numbers(const table_view& t, std::string_view key);

// A text that is not empty, of a node; not given after a fault. `what` names it in the message.
text_value text_of(const table_view& t, const toml::node& node, std::string_view what);

// A finite number, or not given after a fault.
stated<double> number_of(const table_view& t, const toml::node& node, std::string_view what);

// A whole number within low..high, or not given after a fault.
stated<std::int32_t> whole_of(const table_view& t, const toml::node& node, std::string_view what,
                              std::int32_t low, std::int32_t high);

// A symmetric matrix: full rows, rows of the lower triangle, or a single number. Order 0 after a fault.
matrix_value matrix_of(const table_view& t, const toml::node& node, std::string_view what);

// The table of a key; null when absent or no table (reported).
const toml::table* read_table(const table_view& t, std::string_view key);

// Key and value of all entries, in the order of the file.
using table_entry = std::pair<const toml::key*, const toml::node*>;
std::vector<table_entry> entries_by_place(const toml::table& table);

// Reports every key that is not among `known`, with the nearest known key; `elsewhere` gives, for a key that
// another table knows, the title of that table, or an empty text.
void refuse_unknown_keys(const table_view& t, std::span<const std::string> known,
                         std::string (*elsewhere)(std::string_view key));

// The largest number of dots in one dotted key: 2 in "a.b.c". The parser of TOML makes a table for each.
int most_dots_of_a_key(std::string_view toml_text);

} // namespace zeph::prepare
