// Tables of text cells. Expected values by hand.
#include "prepare/tables/column_numbers.h"
#include "prepare/tables/csv_columns.h"
#include "prepare/tables/csv_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>

namespace zeph::prepare {
namespace {

csv_columns table_of(std::string_view text, message_log& log, const csv_layout& layout = {}) {
  return read_csv_text(text, "calves.csv", layout, log);
}

std::string only_message(const message_log& log) {
  return log.entries.size() == 1 ? message_text(log.entries[0])
                                 : std::to_string(log.entries.size()) + " messages\n" + full_text(log);
}

std::vector<std::string> row_of(const csv_columns& t, std::size_t r) {
  std::vector<std::string> row;
  for (std::size_t c = 0; c < t.n_columns(); ++c) row.emplace_back(t.cell(c, r));
  return row;
}

using words = std::vector<std::string>;

TEST(csv_columns, reads_cells_and_lines) {
  message_log log;
  const csv_columns t = table_of("id,sex,bwt\nA1,1,30.5\nA2, 2 ,31\n", log);
  EXPECT_TRUE(log.entries.empty()) << full_text(log);
  EXPECT_EQ(t.header, (words{"id", "sex", "bwt"}));
  ASSERT_EQ(t.n_records(), 2U);
  EXPECT_EQ(row_of(t, 0), (words{"A1", "1", "30.5"}));
  EXPECT_EQ(row_of(t, 1), (words{"A2", "2", "31"})); // blanks around a cell are trimmed
  EXPECT_EQ(t.line, (std::vector<std::int64_t>{2, 3}));
}

TEST(csv_columns, takes_quotes_with_separators_doubled_quotes_and_line_breaks) {
  message_log log;
  const csv_columns t = table_of("id,note\n1,\"a, \"\"b\"\"\"\n2,\"two\nlines\"\n3,\" c \"\n", log);
  EXPECT_TRUE(log.entries.empty()) << full_text(log);
  ASSERT_EQ(t.n_records(), 3U);
  EXPECT_EQ(t.cell(1, 0), "a, \"b\"");
  EXPECT_EQ(t.cell(1, 1), "two\nlines");
  EXPECT_EQ(t.cell(1, 2), "c");
  EXPECT_EQ(t.line, (std::vector<std::int64_t>{2, 3, 5})); // the record of line 3 ends in line 4
}

TEST(csv_columns, takes_byte_order_mark_all_line_ends_and_empty_lines) {
  for (const std::string end : {"\n", "\r\n", "\r"}) {
    message_log log;
    const csv_columns t =
        table_of("\xEF\xBB\xBF" + end + "id,x" + end + end + "a,1" + end + "  " + end + "b,2", log);
    EXPECT_TRUE(log.entries.empty()) << full_text(log);
    EXPECT_EQ(t.header, (words{"id", "x"}));
    ASSERT_EQ(t.n_records(), 2U);
    EXPECT_EQ(row_of(t, 1), (words{"b", "2"}));
    EXPECT_EQ(t.line, (std::vector<std::int64_t>{4, 6}));
  }
}

TEST(csv_columns, finds_the_separator_in_the_first_line) {
  const std::vector<std::pair<std::string, char>> cases{{"id;a,b;c\n1;2;3\n", ';'},
                                                        {"id\ta\n1\t2\n", '\t'},
                                                        {"id,a\n1,2\n", ','},
                                                        {"id  a\n 1   2 \n", ' '},
                                                        {"id\n1\n2\n", ','}};
  for (const auto& [text, separator] : cases) {
    message_log log;
    const csv_columns t = table_of(text, log);
    EXPECT_TRUE(log.entries.empty()) << full_text(log);
    EXPECT_EQ(t.layout.separator, separator) << text;
    EXPECT_EQ(t.cell(0, 0), "1");
  }
}

TEST(csv_columns, reads_blank_separated_cells_with_tabs_and_quotes) {
  message_log log;
  const csv_columns t = table_of("id herd\n  1\t \"big farm\"  \n\n2 \"\"\n", log, {.separator = ' '});
  EXPECT_TRUE(log.entries.empty()) << full_text(log);
  ASSERT_EQ(t.n_records(), 2U);
  EXPECT_EQ(row_of(t, 0), (words{"1", "big farm"}));
  EXPECT_EQ(row_of(t, 1), (words{"2", ""}));
  EXPECT_EQ(t.line, (std::vector<std::int64_t>{2, 4}));
}

TEST(csv_columns, takes_names_from_the_layout_when_the_file_has_no_header) {
  message_log log;
  const csv_columns t = table_of("1,2\n3,4\n", log, {.columns = {"id", "x"}});
  EXPECT_TRUE(log.entries.empty()) << full_text(log);
  EXPECT_EQ(t.n_records(), 2U);
  EXPECT_EQ(find_column(t, "x"), 1U);
}

TEST(csv_columns, refuses_a_first_line_of_numbers) {
  message_log log;
  table_of("1,2,30.5\n2,1,31\n", log);
  EXPECT_EQ(only_message(log),
            "calves.csv:1: error: the first line holds the number 1; it must hold the names of "
            "the columns\n");
}

TEST(csv_columns, refuses_two_columns_of_one_name_but_not_unnamed_ones) {
  message_log log;
  table_of("\"\",id,bwt,id\n1,2,3,4\n", log);
  EXPECT_EQ(only_message(log), "calves.csv:1: error: two columns have the name \"id\"\n");
  message_log quiet;
  table_of(",id,\n1,2,3\n", quiet);
  EXPECT_TRUE(quiet.entries.empty());
}

TEST(csv_columns, reports_ragged_rows_with_their_line) {
  message_log log;
  const csv_columns t = table_of("id,x,y\n1,2,3\n1,2\n1,2,3,4\n\n5\n6,7,8\n", log);
  ASSERT_EQ(log.entries.size(), 3U);
  EXPECT_EQ(message_text(log.entries[0]),
            "calves.csv:3: error: 2 values here, but 3 columns in the header\n");
  EXPECT_EQ(message_text(log.entries[1]),
            "calves.csv:4: error: 4 values here, but 3 columns in the header\n");
  EXPECT_EQ(message_text(log.entries[2]), "calves.csv:6: error: 1 value here, but 3 columns in the header\n");
  EXPECT_EQ(t.n_records(), 2U); // the others stay whole
  EXPECT_EQ(row_of(t, 1), (words{"6", "7", "8"}));
}

TEST(csv_columns, refuses_empty_and_header_only_and_absent_files) {
  message_log empty, header, absent;
  table_of("\n  \n", empty);
  EXPECT_EQ(only_message(empty), "calves.csv: error: the file is empty\n");
  table_of("id,x\n", header);
  EXPECT_EQ(only_message(header), "calves.csv: error: there are no records below the header\n");
  read_csv("no/such/calves.csv", {}, absent);
  EXPECT_EQ(only_message(absent),
            "no/such/calves.csv: error: the file can't be read: there is no such file\n");
}

TEST(csv_columns, a_folder_in_place_of_a_file_is_reported) {
  message_log log;
  read_csv("/", {}, log);
  EXPECT_EQ(only_message(log), "/: error: the file can't be read: it is a folder\n");
}

TEST(csv_columns, the_first_line_with_too_many_values_hints_at_the_separator) {
  message_log log;
  table_of("id,x\n1,2,5\n3,4\n3\n", log);
  ASSERT_EQ(log.entries.size(), 2U);
  EXPECT_EQ(log.entries[0].hint, "put quotes around a value that contains the separator");
  EXPECT_EQ(log.entries[1].hint, "");
}

TEST(csv_columns, refuses_quotes_left_open_or_inside_a_cell) {
  message_log open, inside;
  table_of("id,x\n1,2\n3,\"4\n5,6\n", open);
  EXPECT_EQ(only_message(open), "calves.csv:3: error: a quote is opened here and never closed\n");
  table_of("id,x\n1,a\"b\n", inside);
  ASSERT_EQ(count_of(inside, severity::error), 2);
  EXPECT_EQ(message_text(inside.entries[0]), "calves.csv:2: error: a value contains a quote; put the "
                                             "whole value in quotes and write the inner "
                                             "quote twice\n");
}

TEST(csv_columns, reports_an_unknown_column_with_those_there_are) {
  message_log log;
  const csv_columns t = table_of("id,sex,herd,year,bwt,wwt,agew\n1,1,1,1,1,1,1\n", log);
  EXPECT_EQ(require_column(t, "age", log), no_column);
  ASSERT_EQ(log.entries.size(), 1U);
  EXPECT_EQ(log.entries[0].text, "no column \"age\"; the columns are: id, sex, herd, year, bwt, wwt, agew");
  EXPECT_EQ(require_column(t, "wwt", log), 5U);
  EXPECT_EQ(find_column(t, ""), no_column);
}

TEST(csv_columns, knows_missing_cells) {
  message_log log;
  const csv_columns t = table_of("id,x\n1, NA \n2,\n3,-999\n4,-999.0\n", log, {.missing = {"NA", "-999"}});
  EXPECT_TRUE(is_missing(t, 1, 0));
  EXPECT_TRUE(is_missing(t, 1, 1));
  EXPECT_TRUE(is_missing(t, 1, 2));
  EXPECT_FALSE(is_missing(t, 1, 3)); // codes are texts
}

TEST(csv_columns, reads_numbers_in_their_spellings) {
  const std::vector<std::pair<std::string, double>> good{{"12.4", 12.4}, {"+3", 3.0},    {"-0", 0.0},
                                                         {".5", 0.5},    {"5.", 5.0},    {"1e3", 1000.0},
                                                         {"1E-2", 0.01}, {"-.25", -0.25}};
  double v = 0.0;
  for (const auto& [text, value] : good) {
    EXPECT_TRUE(number_in(text, '.', v)) << text;
    EXPECT_EQ(v, value) << text;
  }
  for (const std::string text :
       {"", "+", "+-3", "abc", "1,5", "1 2", "0x10", "nan", "inf", "1e999", "--1", "3kg"})
    EXPECT_FALSE(number_in(text, '.', v)) << text;
  EXPECT_TRUE(number_in("12,4", ',', v));
  EXPECT_EQ(v, 12.4);
  EXPECT_FALSE(number_in("12.4", ',', v));
  EXPECT_FALSE(number_in("1.234,5", ',', v));
}

TEST(csv_columns, reports_cells_that_are_no_numbers_with_line_and_hint) {
  message_log log;
  const csv_columns t = table_of("id;bwt\n1;12,4\n2;x\n3;\n4;9\n", log);
  const std::vector<double> x = column_numbers(t, 1, log);
  ASSERT_EQ(log.entries.size(), 2U);
  EXPECT_EQ(message_text(log.entries[0]),
            "calves.csv:2: error: \"12,4\" in column bwt is not a number (decimal comma? "
            "set decimal = \",\" in [data])\n");
  EXPECT_EQ(message_text(log.entries[1]), "calves.csv:3: error: \"x\" in column bwt is not a number\n");
  EXPECT_TRUE(std::isnan(x[0]) && std::isnan(x[1]) && std::isnan(x[2]));
  EXPECT_EQ(x[3], 9.0);
}

TEST(csv_columns, shows_ten_bad_cells_and_counts_all) {
  std::string text = "id,bwt\n";
  for (int k = 0; k < 25; ++k) text += "1,x" + std::to_string(k) + "\n";
  message_log log;
  column_numbers(table_of(text, log), 1, log);
  EXPECT_EQ(count_of(log, severity::error), 25);
  const std::string screen = screen_text(log);
  EXPECT_NE(screen.find("calves.csv:11:"), std::string::npos);
  EXPECT_EQ(screen.find("calves.csv:12:"), std::string::npos);
  EXPECT_NE(screen.find("15"), std::string::npos) << screen; // more of them
}

TEST(csv_columns, one_wrong_text_is_one_error_with_its_count_and_first_lines) {
  std::string text = "id,bwt\n";
  for (int k = 0; k < 7; ++k) text += "1,high\n2,3\n";
  message_log log;
  column_numbers(table_of(text + "3,low\n", log), 1, log);
  EXPECT_EQ(
      full_text(log),
      "calves.csv:2: error: \"high\" in column bwt is not a number (7 records, lines 2, 4, 6, 8, 10, ..)\n"
      "calves.csv:16: error: \"low\" in column bwt is not a number\n");
}

TEST(csv_columns, decimal_commas_are_one_error) {
  message_log log;
  column_numbers(table_of("id;bwt\n1;12,4\n2;13,1\n3;12\n4;14,5\n", log), 1, log);
  EXPECT_EQ(full_text(log),
            "calves.csv:2: error: \"12,4\" in column bwt is not a number (decimal comma? set decimal = "
            "\",\" in [data]) (3 such records, lines 2, 3, 5)\n");
}

TEST(csv_columns, missing_codes_of_numbers_count_by_value_and_of_classes_by_text) {
  message_log log;
  const csv_columns t =
      table_of("id,x\n1,-999.0\n2,-9.99e2\n3,NA\n4,-998\n", log, {.missing = {"NA", "-999"}});
  const std::vector<double> x = column_numbers(t, 1, log);
  EXPECT_TRUE(log.entries.empty()) << full_text(log);
  EXPECT_TRUE(std::isnan(x[0]) && std::isnan(x[1]) && std::isnan(x[2]));
  EXPECT_EQ(x[3], -998.0);
  EXPECT_FALSE(is_missing(t, 1, 0));
  message_log comma;
  const csv_columns u = table_of("id;x\n1;-999,0\n", comma, {.decimal = ',', .missing = {"-999.0"}});
  EXPECT_TRUE(std::isnan(column_numbers(u, 1, comma)[0]));
}

TEST(csv_columns, words_for_no_value_name_the_key_that_says_so) {
  for (const std::string word : {"NaN", ".", "na", "*", "-"}) {
    message_log log;
    column_numbers(table_of("id,x\n1,2\n2," + word + "\n", log, {.missing = {"NA"}}), 1, log);
    EXPECT_EQ(only_message(log), "calves.csv:3: error: \"" + word + "\" in column x is not a number\n" +
                                     "    if it means that there is no value: [data] missing = [\"NA\", \"" +
                                     word + "\"]\n");
  }
}

TEST(csv_columns, long_cells_are_cut_and_control_bytes_are_visible) {
  message_log log;
  column_numbers(table_of("id,x\n1," + std::string(50, 'a') + "\n2,b\x01\x1B[31m\n", log), 1, log);
  ASSERT_EQ(log.entries.size(), 2U);
  EXPECT_EQ(log.entries[0].text, "\"" + std::string(40, 'a') + "..\" in column x is not a number");
  EXPECT_EQ(log.entries[1].text, "\"b\\x01\\x1B[31m\" in column x is not a number");
}

TEST(csv_columns, finds_the_first_fraction) {
  message_log log;
  const csv_columns t = table_of("a,b,c\n1,1,x\n2.0,2.5,1.5\n3,0.5,y\n", log);
  EXPECT_EQ(first_fraction(t, 0), 3U);
  EXPECT_EQ(first_fraction(t, 1), 1U);
  EXPECT_EQ(first_fraction(t, 2), 1U);
}

TEST(csv_columns, statistics_pass_over_missing_values) {
  // 2 4 4 4 5 5 7 9: mean 5, sum of squares 32, SD sqrt(32 / 7)
  const double nan = std::nan("");
  const column_statistics s = statistics_of(std::vector<double>{2, 4, nan, 4, 4, 5, 5, 7, 9, nan});
  EXPECT_EQ(s.n, 8U);
  EXPECT_EQ(s.mean, 5.0);
  EXPECT_DOUBLE_EQ(s.sd, std::sqrt(32.0 / 7.0));
  EXPECT_EQ(s.min, 2.0);
  EXPECT_EQ(s.max, 9.0);
  EXPECT_EQ(statistics_of(std::vector<double>{nan}).n, 0U);
  EXPECT_EQ(statistics_of(std::vector<double>{3.0}).sd, 0.0);
}

std::string suspicion(const std::vector<double>& values) {
  csv_columns t;
  t.file = "calves.csv";
  t.header = {"bwt"};
  message_log log;
  warn_of_missing_codes(t, 0, values, log);
  return full_text(log);
}

TEST(csv_columns, suspects_zeros_far_below_the_rest) {
  EXPECT_EQ(suspicion({0, 25, 22, 0, 21.5, 27, 24, 23}),
            "calves.csv: warning: bwt is exactly 0 in 2 of 8 records, the next smallest value is 21.5;\n"
            "    if 0 means missing, add it to [data] missing\n");
}

TEST(csv_columns, suspects_codes_of_nines) {
  EXPECT_EQ(
      suspicion({-999, 88, 120, 341, 200, 160, 280, -999}),
      "calves.csv: warning: bwt is -999 in 2 records, all others lie between 88 and 341: missing code?\n");
  EXPECT_EQ(
      suspicion({9999, 88, 120, 341, 200, 160, 280}),
      "calves.csv: warning: bwt is 9999 in 1 record, all others lie between 88 and 341: missing code?\n");
  EXPECT_EQ(suspicion({-1, 88, 95, 100, 105, 99}),
            "calves.csv: warning: bwt is -1 in 1 record, all others lie between 88 and 105: missing code?\n");
}

TEST(csv_columns, suspects_nothing_in_honest_columns) {
  EXPECT_EQ(suspicion({0, 1, 0, 1, 1, 0}), "");             // two categories
  EXPECT_EQ(suspicion({0, 1, 2, 3, 0, 1, 2}), "");          // a count
  EXPECT_EQ(suspicion({-3, -1, 0, 2, 1.5, -0.5}), "");      // deviations
  EXPECT_EQ(suspicion({99, 97, 98, 100.5, 101}), "");       // 99 among others
  EXPECT_EQ(suspicion({5, 305, 120, 60, 0, 200, 250}), ""); // zero not far
  EXPECT_EQ(suspicion({}), "");
}

TEST(csv_columns, holds_many_cells) {
  constexpr std::size_t N = 50000;
  std::string text = "a,b,c,d\n";
  for (std::size_t r = 0; r < N; ++r) text += std::to_string(r) + ",x,," + std::to_string(2 * r) + "\n";
  message_log log;
  const csv_columns t = table_of(text, log);
  ASSERT_EQ(t.n_records(), N);
  for (const std::size_t r : {std::size_t{0}, N / 2, N - 1}) {
    EXPECT_EQ(t.cell(0, r), std::to_string(r));
    EXPECT_EQ(t.cell(2, r), "");
    EXPECT_EQ(t.cell(3, r), std::to_string(2 * r));
  }
}

} // namespace
} // namespace zeph::prepare
