#include "prepare/messages/messages.h"

#include <gtest/gtest.h>

namespace zeph::prepare {
namespace {

const std::vector<std::string> KEYS = {"file", "missing", "decimal", "separator", "columns"};

TEST(messages, parts_that_are_not_known_are_left_out) {
  message_log log;
  add_error(log, {}, "ease has no record");
  add_warning(log, {"calves.csv", 0, 0}, "wwt is -999 in 87 records");
  add_note(log, {"calves.csv", 218, 0}, "a");
  add_error(log, {"model.toml", 11, 17}, "b");
  EXPECT_EQ(full_text(log), "error: ease has no record\n"
                            "calves.csv: warning: wwt is -999 in 87 records\n"
                            "calves.csv:218: note: a\n"
                            "model.toml:11:17: error: b\n");
}

// The caret of column 11 is 3 + 10 characters from the left.
TEST(messages, the_caret_is_under_the_column_with_the_hint_after_it) {
  message_log log;
  message& m = add_error(log, {"m.toml", 2, 11}, "bad");
  m.source_line = "formula = \"x\"";
  m.hint = "did you mean \"y\"?";
  EXPECT_EQ(message_text(m), "m.toml:2:11: error: bad\n"
                             "   formula = \"x\"\n"
                             "             ^ did you mean \"y\"?\n");
}

TEST(messages, a_tab_in_the_source_line_is_shown_as_one_blank) {
  message_log log;
  message& m = add_error(log, {"m.toml", 2, 3}, "bad");
  m.source_line = "\ta = 1";
  EXPECT_EQ(message_text(m), "m.toml:2:3: error: bad\n    a = 1\n     ^\n");
}

TEST(messages, a_hint_without_a_source_line_has_a_line_of_its_own) {
  message_log log;
  message& m = add_error(log, {"calves.csv", 0, 0}, "no column \"agew\"");
  m.hint = "did you mean \"age\"?";
  EXPECT_EQ(message_text(m), "calves.csv: error: no column \"agew\"\n    did you mean \"age\"?\n");
}

TEST(messages, further_lines_of_a_text_are_indented) {
  message_log log;
  EXPECT_EQ(message_text(add_warning(log, {"c.csv", 0, 0}, "bwt is exactly 0;\nif 0 means missing, say so")),
            "c.csv: warning: bwt is exactly 0;\n    if 0 means missing, say so\n");
}

TEST(messages, ten_of_a_kind_are_shown_and_all_are_listed) {
  message_log log;
  for (int i = 1; i <= 13; ++i) add_error(log, {"c.csv", i, 0}, "no number", "number");
  add_error(log, {"c.csv", 99, 0}, "alone");
  const std::string screen = screen_text(log);
  EXPECT_NE(screen.find("c.csv:10: error: no number\n    and 3 more of this kind (prepare.txt lists them)\n"),
            std::string::npos);
  EXPECT_EQ(screen.find("c.csv:11:"), std::string::npos);
  EXPECT_NE(screen.find("c.csv:99: error: alone\n"), std::string::npos);
  EXPECT_NE(full_text(log).find("c.csv:13: error: no number\n"), std::string::npos);
}

TEST(messages, exactly_ten_of_a_kind_are_not_followed_by_a_count) {
  message_log log;
  for (int i = 1; i <= 10; ++i) add_error(log, {"c.csv", i, 0}, "no number", "number");
  EXPECT_EQ(screen_text(log), full_text(log));
}

TEST(messages, warnings_and_errors_of_one_kind_are_counted_apart) {
  message_log log;
  for (int i = 1; i <= 10; ++i) add_error(log, {"c.csv", i, 0}, "e", "k");
  for (int i = 1; i <= 10; ++i) add_warning(log, {"c.csv", i, 0}, "w", "k");
  EXPECT_EQ(screen_text(log), full_text(log));
}

TEST(messages, errors_alone_set_the_exit_code) {
  message_log log;
  EXPECT_EQ(exit_code(log), 0);
  add_note(log, {}, "n");
  add_warning(log, {}, "w");
  EXPECT_EQ(exit_code(log), 0);
  add_error(log, {}, "e");
  EXPECT_EQ(exit_code(log), 1);
  EXPECT_EQ(count_of(log, severity::warning), 1);
}

TEST(messages, sorting_begins_at_the_given_message_and_puts_those_without_a_line_last) {
  message_log log;
  add_error(log, {"a", 9, 1}, "kept first");
  add_error(log, {"b", 0, 0}, "no line");
  add_error(log, {"b", 5, 2}, "third");
  add_error(log, {"b", 5, 1}, "second");
  add_error(log, {"b", 5, 2}, "fourth");
  sort_by_place(log, 1);
  std::string order;
  for (const message& m : log.entries) order += m.text + ";";
  EXPECT_EQ(order, "kept first;second;third;fourth;no line;");
  sort_by_place(log, 99); // beyond the end: nothing to do
}

TEST(messages, the_nearest_word_is_found_over_one_slip_of_each_kind) {
  EXPECT_EQ(nearest_word("mising", KEYS), "missing");      // left out
  EXPECT_EQ(nearest_word("fiile", KEYS), "file");          // too many
  EXPECT_EQ(nearest_word("decimel", KEYS), "decimal");     // changed
  EXPECT_EQ(nearest_word("sepaartor", KEYS), "separator"); // swapped
  EXPECT_EQ(nearest_word("FILE", KEYS), "file");           // upper case
}

TEST(messages, a_word_without_likeness_has_no_nearest_word) {
  EXPECT_EQ(nearest_word("burnin", KEYS), std::nullopt);
  EXPECT_EQ(nearest_word("", KEYS), std::nullopt);
  EXPECT_EQ(nearest_word("x", std::vector<std::string>{"y"}), std::nullopt); // all letters changed
  EXPECT_EQ(nearest_word("file", {}), std::nullopt);
  EXPECT_EQ(nearest_word(std::string(100000, 'f'), KEYS), std::nullopt);
  EXPECT_EQ(nearest_hint("burnin", KEYS), "");
}

TEST(messages, of_equally_near_words_the_first_is_taken) {
  EXPECT_EQ(nearest_word("sira", std::vector<std::string>{"sirb", "sire"}), "sirb");
  EXPECT_EQ(nearest_hint("gentic", std::vector<std::string>{"dampe", "genetic"}),
            "did you mean \"genetic\"?");
}

TEST(messages, long_lists_are_cut_with_their_number) {
  EXPECT_EQ(joined(KEYS), "file, missing, decimal, separator, columns");
  EXPECT_EQ(joined(KEYS, 2), "file, missing, ... (5 in all)");
  EXPECT_EQ(joined({}), "");
}

TEST(messages, texts_of_the_data_are_cut_and_their_control_bytes_shown) {
  EXPECT_EQ(shown("K17"), "K17");
  EXPECT_EQ(shown("abcdef", 3), "abc..");
  EXPECT_EQ(shown("\xC3\xB8\xC3\xB8\xC3\xB8", 3), "\xC3\xB8\xC3\xB8\xC3\xB8"); // three characters
  EXPECT_EQ(shown(std::string_view("a\0b\n\x1B\x7F", 6)), "a\\x00b\\x0A\\x1B\\x7F");
  message_log log;
  add_error(log, {}, "first\nsecond \x07");
  EXPECT_EQ(message_text(log.entries[0]), "error: first\n    second \\x07\n");
}

TEST(messages, characters_are_code_points) {
  EXPECT_EQ(characters("abc"), 3);
  EXPECT_EQ(characters("k\xC3\xB8n"), 3); // o with stroke, two bytes
  EXPECT_EQ(characters(""), 0);
}

} // namespace
} // namespace zeph::prepare
