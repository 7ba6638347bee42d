// The table of keys against the page of the keys, and against what the parser takes.
#include "prepare/description/description_keys.h"

#include "prepare/description/model_description.h"
#include "support/places.h"

#include <fmt/format.h>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <set>

namespace zeph::prepare {
namespace {

using key_set = std::set<std::string>;

key_set set_of(std::initializer_list<key_section> sections) {
  key_set keys;
  for (const key_section section : sections)
    for (std::string& key : keys_of(section)) keys.insert(std::move(key));
  return keys;
}

std::vector<std::string> code_spans(std::string_view text) {
  std::vector<std::string> spans;
  for (std::size_t at = text.find('`'); at != std::string_view::npos; at = text.find('`', at)) {
    const std::size_t end = text.find('`', at + 1);
    if (end == std::string_view::npos) break;
    spans.emplace_back(text.substr(at + 1, end - at - 1));
    at = end + 1;
  }
  return spans;
}

// "code" and "upper" of `{ code = "c", upper = "u" }`
void add_inner_keys(std::string_view span, key_set& keys) {
  if (!span.starts_with("{ ")) return;
  for (std::size_t at = span.find(" = "); at != std::string_view::npos; at = span.find(" = ", at + 1)) {
    const std::size_t begin = span.find_last_of(" {", at - 1);
    keys.insert(std::string(span.substr(begin + 1, at - begin - 1)));
  }
}

// What docs/prepare.md names: the first cells of each table whose head is `Key`, by the heading above it or
// the sentence that introduces it; the keys inside limits and first, by the cells that show them.
struct keys_page {
  std::map<std::string, key_set> keys;

  keys_page() {
    std::ifstream page(zeph_test::source_folder() + "/docs/prepare.md");
    std::string title;
    bool of_keys = false;
    for (std::string line; std::getline(page, line);) {
      if (line.starts_with("#") || line.starts_with("The table of ")) title = line;
      if (line.starts_with("### [")) keys["top"].insert(line.substr(5, line.find_first_of(".]") - 5));
      if (line.starts_with("`title` ")) keys["top"].insert("title");
      if (line.starts_with("| Key |")) of_keys = true;
      if (line.empty()) of_keys = false;
      if (!line.starts_with("| `")) continue;
      const std::vector<std::string> first = code_spans(line.substr(1, line.find('|', 1)));
      if (of_keys) keys[title].insert(first.begin(), first.end());
      for (const std::string& span : code_spans(line)) {
        if (title == "### censored") add_inner_keys(span, keys["limits"]);
        if (of_keys && first.front() == "first") add_inner_keys(span, keys["first"]);
      }
    }
  }
};

TEST(description_keys, are_those_of_the_page_of_keys) {
  using s = key_section;
  keys_page page;
  EXPECT_EQ(page.keys["top"], set_of({s::top}));
  EXPECT_EQ(page.keys["### [data]"], set_of({s::data}));
  EXPECT_EQ(page.keys["### [factor.NAME]"], set_of({s::factor}));
  EXPECT_EQ(page.keys["The table of `pedigree`:"], set_of({s::pedigree}));
  EXPECT_EQ(page.keys["The table of a matrix:"], set_of({s::inverse, s::relationship, s::matrix_or_inverse}));
  EXPECT_EQ(page.keys["### [trait.NAME]"], set_of({s::trait}));
  EXPECT_EQ(page.keys["### [covariable.NAME]"], set_of({s::covariable}));
  EXPECT_EQ(page.keys["### [residual]"], set_of({s::residual}));
  EXPECT_EQ(page.keys["### [keep]"], set_of({s::keep}));
  EXPECT_EQ(page.keys["### [run]"], set_of({s::run}));
  EXPECT_EQ(page.keys["limits"], set_of({s::limits}));
  EXPECT_EQ(page.keys["first"], set_of({s::first}));
  EXPECT_EQ(page.keys.size(), 12U); // no table of keys beside these
}

// A description in which the key has the value, in the table that holds it.
std::string described(const key_row& row, std::string_view value) {
  const std::string entry = fmt::format("{} = {}", row.key, value);
  switch (row.section) {
  case key_section::top:
    return entry + "\n";
  case key_section::pedigree:
    return fmt::format("[factor.f]\npedigree = {{ {} }}\n", entry);
  case key_section::inverse:
    return fmt::format("[factor.f]\ninverse = {{ {} }}\n", entry);
  case key_section::relationship:
    return fmt::format("[factor.f]\nrelationship = {{ {} }}\n", entry);
  case key_section::matrix_or_inverse:
    return fmt::format("[factor.f]\ncorrelation = {{ {} }}\n", entry);
  case key_section::limits:
    return fmt::format("[trait.t]\nlimits = {{ {} }}\n", entry);
  case key_section::first:
    return fmt::format("[trait.t]\nfirst = {{ {} }}\n", entry);
  default: {
    const std::string title(section_titles.at(static_cast<std::size_t>(row.section)));
    return fmt::format("{}\n{}\n", title, entry);
  }
  }
}

std::string messages_of(const std::string& text) {
  message_log log;
  parse_description(text, "model.toml", log);
  return full_text(log);
}

// As the messages name it.
const std::map<key_type, std::string>& words_of_types() {
  using k = key_type;
  static const std::map<key_type, std::string> words = {
      {k::text, "a text"},
      {k::texts, "a list of texts"},
      {k::codes, "a list of texts"},
      {k::truth, "true or false"},
      {k::whole, "a whole number"},
      {k::number, "a number"},
      {k::truth_or_number, "true, false or a number"},
      {k::false_or_whole, "false or a whole number"},
      {k::numbers, "a list of numbers"},
      {k::truth_or_texts, "true, false or a list of effects"},
      {k::word, "a text"},
      {k::pairs, "a list of pairs"},
      {k::matrices, "a table"},
      {k::table, "a table"},
      {k::file_or_table, "a file name or a table"}};
  return words;
}

// No key takes a date.
TEST(description_keys, are_read_as_values_of_their_types) {
  for (const key_row& row : description_keys()) {
    const std::string text = messages_of(described(row, "1979-05-27"));
    EXPECT_EQ(text.find("unknown key"), std::string::npos) << text;
    const auto word = words_of_types().find(row.type);
    if (word == words_of_types().end()) continue;
    EXPECT_NE(text.find(fmt::format("{} must be {}", row.key, word->second)), std::string::npos)
        << row.key << "\n"
        << text;
  }
}

TEST(description_keys, have_a_line_that_says_what_they_are) {
  for (const key_row& row : description_keys()) {
    EXPECT_FALSE(row.meaning.empty()) << row.key;
    EXPECT_EQ(row.meaning.find('\n'), std::string_view::npos) << row.key;
  }
}

TEST(description_keys, of_another_table_are_named_with_it) {
  EXPECT_NE(messages_of("[run]\nweight = \"w\"\n").find("\"weight\" belongs in [trait.NAME]"),
            std::string::npos);
  EXPECT_NE(messages_of("[keep]\nburnin = 5\n").find("\"burnin\" belongs in [run]"), std::string::npos);
}

} // namespace
} // namespace zeph::prepare
