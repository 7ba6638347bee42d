// Levels of class columns. Expected values by hand.
#include "prepare/tables/csv_reader.h"
#include "prepare/tables/level_codes.h"

#include <gtest/gtest.h>

namespace zeph::prepare {
namespace {

using words = std::vector<std::string>;
using codes = std::vector<std::int32_t>;
using counts = std::vector<std::int64_t>;

csv_columns table_of(const std::string& text) {
  message_log log;
  csv_columns t = read_csv_text(text, "calves.csv", {.missing = {"NA"}}, log);
  EXPECT_TRUE(log.entries.empty()) << full_text(log);
  return t;
}

TEST(level_codes, integers_are_sorted_by_number_and_passed_through) {
  const csv_columns t = table_of("herd\n10\n9\n-3\n10\nNA\n100\n");
  const level_codes l = codes_of_columns(t, std::vector<std::size_t>{0});
  EXPECT_EQ(l.name, "herd");
  EXPECT_EQ(l.identification, (words{"-3", "9", "10", "100"}));
  EXPECT_EQ(l.code, (codes{-3, 9, 10, 100}));
  EXPECT_TRUE(l.codes_are_identifications);
  EXPECT_EQ(l.level, (codes{3, 2, 1, 3, 0, 4}));
  EXPECT_EQ(l.n_records, (counts{1, 1, 2, 1}));
}

TEST(level_codes, texts_are_sorted_by_text_and_get_running_codes) {
  const csv_columns t = table_of("sex\nM\nF\n10\n9\n");
  const level_codes l = codes_of_columns(t, std::vector<std::size_t>{0});
  EXPECT_EQ(l.identification, (words{"10", "9", "F", "M"}));
  EXPECT_EQ(l.code, (codes{1, 2, 3, 4}));
  EXPECT_FALSE(l.codes_are_identifications);
  EXPECT_EQ(l.level, (codes{4, 3, 1, 2}));
}

TEST(level_codes, integers_in_other_spelling_or_too_large_get_running_codes) {
  const csv_columns zeros = table_of("month\n01\n1\n10\n02\n");
  const level_codes l = codes_of_columns(zeros, std::vector<std::size_t>{0});
  EXPECT_EQ(l.identification, (words{"01", "1", "02", "10"})); // by number, equal numbers by text
  EXPECT_EQ(l.code, (codes{1, 2, 3, 4}));
  EXPECT_FALSE(l.codes_are_identifications);

  const csv_columns large = table_of("id\n2147483648\n7\n");
  const level_codes big = codes_of_columns(large, std::vector<std::size_t>{0});
  EXPECT_EQ(big.identification, (words{"7", "2147483648"}));
  EXPECT_EQ(big.code, (codes{1, 2}));
}

TEST(level_codes, combinations_are_the_pairs_that_occur) {
  const csv_columns t = table_of("herd,year\n7,1998\n10,1997\n7,1997\n7,NA\n7,1998\n10,1998\nNA,1998\n");
  const level_codes l = codes_of_columns(t, std::vector<std::size_t>{0, 1});
  EXPECT_EQ(l.name, "herd:year");
  EXPECT_EQ(l.identification, (words{"7:1997", "7:1998", "10:1997", "10:1998"}));
  EXPECT_EQ(l.level, (codes{2, 3, 1, 0, 2, 4, 0}));
  EXPECT_EQ(l.n_records, (counts{1, 2, 1, 1}));
  EXPECT_EQ(l.code, (codes{1, 2, 3, 4}));
}

TEST(level_codes, combinations_of_three_columns) {
  const csv_columns t = table_of("a,b,c\n2,x,1\n1,y,1\n1,x,2\n1,x,1\n");
  const level_codes l = codes_of_columns(t, std::vector<std::size_t>{0, 1, 2});
  EXPECT_EQ(l.identification, (words{"1:x:1", "1:x:2", "1:y:1", "2:x:1"}));
  EXPECT_EQ(l.level, (codes{4, 3, 2, 1}));
}

TEST(level_codes, only_records_in_use_make_levels) {
  const csv_columns t = table_of("herd\n1\n2\n3\n2\n");
  const level_codes l =
      codes_of_columns(t, std::vector<std::size_t>{0}, std::vector<std::uint8_t>{0, 1, 0, 1});
  EXPECT_EQ(l.identification, (words{"2"}));
  EXPECT_EQ(l.level, (codes{0, 1, 0, 1}));
  EXPECT_EQ(l.n_records, (counts{2}));
}

TEST(level_codes, plain_integers_are_those_that_print_back) {
  std::int32_t v = 0;
  for (const std::string text : {"0", "7", "-12", "2147483647", "-2147483648"}) {
    EXPECT_TRUE(plain_integer(text, v)) << text;
    EXPECT_EQ(std::to_string(v), text);
  }
  for (const std::string text : {"", "-", "+7", "07", "-0", "00", "7.0", "2147483648", "1e3", " 7", "7 "})
    EXPECT_FALSE(plain_integer(text, v)) << text;
}

TEST(level_codes, codes_of_given_identifications_keep_their_order) {
  codes code;
  EXPECT_TRUE(codes_of_identifications(words{"30", "4", "-1"}, code));
  EXPECT_EQ(code, (codes{30, 4, -1}));
  EXPECT_FALSE(codes_of_identifications(words{"30", "A4"}, code));
  EXPECT_EQ(code, (codes{1, 2}));
  EXPECT_FALSE(codes_of_identifications(words{"5", "5"}, code));
  EXPECT_EQ(code, (codes{1, 2}));
}

TEST(level_codes, names_of_levels) {
  EXPECT_EQ(level_name("damage", "4"), "damage:4");
  EXPECT_EQ(level_name("herd:year", "7:1998"), "herd:year:[7:1998]");
}

TEST(level_codes, a_class_of_numbers_with_a_level_per_record_is_refused) {
  std::string text = "herd,name\n";
  for (int r = 0; r < 200; ++r) text += std::to_string(r < 190 ? r : 0) + ",n" + std::to_string(r) + "\n";
  const csv_columns t = table_of(text);
  message_log log;
  check_class_size(t, codes_of_columns(t, std::vector<std::size_t>{0}), log);
  ASSERT_EQ(log.entries.size(), 1U);
  EXPECT_EQ(message_text(log.entries[0]),
            "calves.csv: error: herd is used as a class and has 190 levels in 200 records; a covariable? add "
            "[covariable.herd]\n");
  check_class_size(t, codes_of_columns(t, std::vector<std::size_t>{1}), log); // texts can't be a covariable
  const csv_columns few = table_of("herd\n1\n2\n3\n4\n");
  check_class_size(few, codes_of_columns(few, std::vector<std::size_t>{0}), log); // too few records to judge
  EXPECT_EQ(log.entries.size(), 1U);
}

} // namespace
} // namespace zeph::prepare
