// Faults of a whole CSV file: one cause, one error. Expected texts by hand.
#include "prepare/tables/csv_reader.h"
#include "prepare/tables/csv_shape.h"

#include "support/prepared_case.h"

#include <gtest/gtest.h>

namespace zeph::prepare {
namespace {

std::string messages_for(const std::string& text, const csv_layout& layout = {}) {
  message_log log;
  read_csv_text(text, "d.csv", layout, log);
  return full_text(log);
}

TEST(csv_shape, counts_values_outside_quotes) {
  EXPECT_EQ(width_of_line("a;\"b;c\";d", ';'), 3U);
  EXPECT_EQ(width_of_line("  \"a b\" c\td ", ' '), 3U);
  EXPECT_EQ(width_of_line("\ta\t", '\t'), 3U);
  EXPECT_EQ(width_of_line("  ", ','), 0U);
  EXPECT_EQ(separator_of("\"birth weight\" \"sex\""), ' '); // as R's write.table writes names
  EXPECT_EQ(separator_of("\"birth weight\""), ',');
}

TEST(csv_shape, comment_lines_are_one_error) {
  EXPECT_EQ(
      messages_for("# herd book\n# made by K, in 2010\nid,x\n1,2\n#3,4,5\n6,7\n"),
      "d.csv:1: error: a line that begins with # is not a record; a CSV file has no comments: remove them "
      "(3 in all, lines 1, 2, 5)\n");
  EXPECT_EQ(
      messages_for("id,x\n1,2\n# the \"old\" herd\n3,4\n"),
      "d.csv:3: error: a line that begins with # is not a record; a CSV file has no comments: remove them\n");
}

TEST(csv_shape, a_number_sign_in_names_quotes_and_codes_is_no_comment) {
  EXPECT_EQ(messages_for("#id,x\n1,2\n#3,4\n"), "");
  EXPECT_EQ(messages_for("id,x\n1,\"two\n#lines\"\n3,4\n"), "");
}

TEST(csv_shape, a_separator_that_is_not_the_files_is_one_error) {
  EXPECT_EQ(messages_for("id;sex;x\n1;2;3\n", {.separator = ','}),
            "d.csv: error: the first line is separated by \";\" and not by \",\"; set separator = \";\" in "
            "[data]\n");
  EXPECT_EQ(
      messages_for("id, sex, x\n1, 2, 3\n", {.separator = ' '}),
      "d.csv: error: the first line is separated by \",\" and not by \"blanks\"; set separator = \",\" in "
      "[data]\n");
  EXPECT_EQ(messages_for("id;sex;x\n1,2,3\n4,5,6\n"),
            "d.csv:2: error: 1 value here, but 3 columns in the header (2 records, lines 2, 3):\n"
            "    line 1 is separated by \";\" and the records by \",\"; use one for both\n");
}

TEST(csv_shape, a_header_one_short_is_one_error) {
  const std::string r = "line 1 lacks a name, as in tables that R writes with row names: write.table(.., "
                        "row.names = FALSE)";
  EXPECT_EQ(messages_for("\"id\" \"x\"\n\"1\" 101 2\n\"2\" 102 4\n"),
            "d.csv:2: error: 3 values here, but 2 columns in the header (2 records, lines 2, 3):\n    " + r +
                "\n");
  EXPECT_EQ(messages_for("id,x\n1,2,5\n3,4,5\n"),
            "d.csv:2: error: 3 values here, but 2 columns in the header (2 records, lines 2, 3):\n    " + r +
                ",\n    or fractions are written with a comma: then separator = \";\" and decimal = \",\"\n");
  EXPECT_EQ(messages_for("id,x\n1,2,\n3,4,\n"),
            "d.csv:2: error: 3 values here, but 2 columns in the header (2 records, lines 2, 3):\n"
            "    every record ends with a separator; remove it, or name the column in line 1\n");
}

TEST(csv_shape, rows_of_one_wrong_width_are_one_error) {
  EXPECT_EQ(messages_for("id,x\n1,2\n1\n2\n1,2,3\n3\n"),
            "d.csv:3: error: 1 value here, but 2 columns in the header (3 records, lines 3, 4, 6)\n"
            "d.csv:5: error: 3 values here, but 2 columns in the header\n");
}

// No error of a column follows the one that names the cause.
TEST(csv_shape, nothing_follows_the_cause) {
  const std::string model = "[trait.y]\nformula = \"1 + sex\"\n[data]\nfile = \"d.csv\"\n";
  const std::string numbers = "1,2\n2,3\n", comment = "# y by sex\nsex,y\n1,2\n2,3\n",
                    wide = "sex;y\n1;2\n2;3\n";
  const zeph_test::prepared_case a(model, {{"d.csv", numbers}}), b(model, {{"d.csv", comment}}),
      c(model + "separator = \",\"\n", {{"d.csv", wide}}), e(model, {{"d.csv", "sex y\n1 2 3\n2 4 3\n"}});
  for (const zeph_test::prepared_case* one : {&a, &b, &c, &e})
    EXPECT_EQ(count_of(one->log, severity::error), 1) << one->messages();
}

} // namespace
} // namespace zeph::prepare
