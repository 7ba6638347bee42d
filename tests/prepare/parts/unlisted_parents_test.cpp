// Parents without a line of their own: founders, or codes of "unknown". Expected values by hand.
#include "prepare/parts/unlisted_parents.h"
#include "prepare/tables/csv_reader.h"

#include "prepare/tables/missing_words.h"
#include "support/prepared_case.h"

#include <gtest/gtest.h>

namespace zeph::prepare {
namespace {

using words = std::vector<std::string>;

pedigree read(const std::string& text, message_log& log, pedigree_request request = {}) {
  request.file = "p.csv";
  request.factor = "animal";
  return pedigree_of_table(read_csv_text(text, request.file, request.layout, log), request, log);
}

// Animals 1 to 8, of which 1 and 2 are founders; the parents of the last six are given.
std::string eight(const std::string& sire, const std::string& dam) {
  std::string text = "animal,sire,dam\n1,0,0\n2,0,0\n";
  for (int a = 3; a <= 8; ++a) text += std::to_string(a) + "," + sire + "," + dam + "\n";
  return text;
}

std::string advice(const std::string& code) {
  return "    add it to [factor.animal] pedigree = { unknown = [\"" + code +
         "\"] }, beside file = \"p.csv\";\n    if it is an animal, add it to founders = [\"" + code +
         "\"] there\n";
}

TEST(unlisted_parents, codes_that_look_like_unknown_are_errors_with_both_ways_out) {
  for (const std::string code :
       {".", "-", "**", "999", "9999", "00", "0.0", "-9", "-999", "unknown", "Unknown", "none", "na", "n/a",
        "#N/A", "NaN", "null", "missing", "Unknown sire"}) {
    message_log log;
    EXPECT_EQ(read(eight(code, "2"), log).n_animals(), 0) << code;
    EXPECT_EQ(full_text(log),
              "p.csv:4: error: \"" + code +
                  "\" is the sire of 6 animals, has no line of its own and looks like a code of "
                  "an unknown parent:\n" +
                  advice(code));
  }
}

TEST(unlisted_parents, a_code_that_is_sire_and_dam_gets_that_advice_and_not_selfing) {
  message_log log;
  read(eight("U7", "U7"), log); // looks like a name, but no animal is both
  EXPECT_EQ(full_text(log),
            "p.csv:4: error: \"U7\" is the sire of 6 animals and the dam of 6, and has no line of "
            "its own: a code of an unknown parent?\n" +
                advice("U7"));
  message_log plants;
  EXPECT_EQ(read(eight("U7", "U7"), plants, {.selfing = true}).n_animals(), 9);
}

TEST(unlisted_parents, nines_among_larger_animals_are_an_animal_unless_sire_and_dam) {
  const std::string large = "animal,sire,dam\n1500,999,0\n1501,0,0\n1502,999,1500\n";
  message_log log, both;
  EXPECT_EQ(read(large, log).n_animals(), 4) << full_text(log);
  EXPECT_EQ(count_of(log, severity::error), 0);
  read(large + "1503,1501,999\n", both, {.selfing = true});
  EXPECT_EQ(count_of(both, severity::error), 1) << full_text(both);
}

TEST(unlisted_parents, negative_numbers_are_animals_where_animals_are_negative) {
  message_log log;
  EXPECT_EQ(read("animal,sire,dam\n-5,-7,0\n3,-7,-5\n", log).n_animals(), 3);
  EXPECT_EQ(count_of(log, severity::error), 0) << full_text(log);
}

TEST(unlisted_parents, the_lists_of_the_description_decide) {
  message_log unknown, founders, empty;
  const pedigree p = read(eight("999", "."), unknown, {.unknown = {"999", "."}});
  EXPECT_TRUE(unknown.entries.empty()) << full_text(unknown);
  EXPECT_EQ(p.n_animals(), 8);
  EXPECT_EQ(p.sire, std::vector<std::int32_t>(8, 0));
  const pedigree q = read(eight("999", "2"), founders, {.founders = {"999"}});
  EXPECT_EQ(q.n_animals(), 9);
  EXPECT_EQ(full_text(founders), "p.csv: note: 1 parent has no line of its own; added as a founder\n"
                                 "p.csv: note: \"999\" has 6 progeny\n");
  // also in place of the usual codes
  const pedigree zero = read("animal,sire,dam\n1,,\n2,0,1\n", empty, {.founders = {"0"}});
  EXPECT_EQ(zero.n_animals(), 3);
}

TEST(unlisted_parents, a_line_of_an_unknown_code_is_refused) {
  message_log log;
  read("animal,sire,dam\n999,0,0\n1,999,0\n", log, {.unknown = {"999"}});
  EXPECT_EQ(full_text(log), "p.csv:2: error: \"999\" is the code of an unknown parent, not of an animal\n");
}

TEST(unlisted_parents, are_named_with_their_progeny_most_first) {
  message_log log;
  std::string text = "animal,sire,dam\n";
  int animal = 100;
  for (int p = 1; p <= 12; ++p) // parent Sp has p progeny; the last 12 of 78
    for (int k = 0; k < p; ++k) text += std::to_string(++animal) + ",S" + std::to_string(p) + ",0\n";
  EXPECT_EQ(read(text, log).n_animals(), 78 + 12);
  ASSERT_EQ(log.entries.size(), 13U) << full_text(log);
  EXPECT_EQ(log.entries[0].text, "12 parents have no line of their own; added as founders");
  EXPECT_EQ(log.entries[1].text, "\"S12\" has 12 progeny");
  EXPECT_EQ(log.entries[12].text, "\"S1\" has 1 progeny");
  const std::string screen = screen_text(log); // ten of them
  EXPECT_NE(screen.find("\"S3\" has"), std::string::npos) << screen;
  EXPECT_EQ(screen.find("\"S2\" has"), std::string::npos) << screen;
}

// 8 animals with a parent: 2 progeny are a quarter of them, 3 are more.
TEST(unlisted_parents, one_with_more_than_a_quarter_of_all_progeny_is_warned_of) {
  const std::string text = "animal,sire,dam\n1,0,0\n2,1,0\n3,1,0\n4,1,0\n5,1,0\n6,1,0\n7,K,0\n8,K,0\n";
  message_log quarter, more, told;
  read(text + "9,1,0\n", quarter);
  EXPECT_EQ(count_of(quarter, severity::warning), 0) << full_text(quarter);
  read(text + "9,K,0\n", more);
  ASSERT_EQ(count_of(more, severity::warning), 1) << full_text(more);
  EXPECT_NE(full_text(more).find(
                "p.csv: warning: \"K\" has no line of its own and is a parent of 3 of the 8 animals "
                "with a known parent; is it a code of an unknown parent?\n" +
                advice("K")),
            std::string::npos)
      << full_text(more);
  read(text + "9,K,0\n", told, {.founders = {"K"}});
  EXPECT_EQ(count_of(told, severity::warning), 0) << full_text(told);
}

TEST(unlisted_parents, words_for_nothing) {
  for (const char* word :
       {".", "-", "*", "?", "na", "NA", "<NA>", "N.A.", "nan", "None", "(null)", "unknown", "unk"})
    EXPECT_TRUE(is_word_for_nothing(word)) << word;
  for (const char* word : {"", "a", "12", "Nana", "NA-1", "nothing else", "\xC3\xB8", "K17"})
    EXPECT_FALSE(is_word_for_nothing(word)) << word;
}

// The made pedigree of the fault: every animal of unknown origin was one founder's progeny, with inbreeding.
TEST(unlisted_parents, the_keys_of_the_description_reach_the_pedigree) {
  const std::string model =
      "[data]\nfile = \"d.csv\"\n[trait.y]\nformula = \"1 + (1 | animal)\"\n[factor.animal]\n";
  const std::map<std::string, std::string> files{{"d.csv", "animal,y\n3,1\n4,2\n5,4\n6,3\n7,2\n8,1\n"},
                                                 {"p.csv", eight("999", "999")}};
  const zeph_test::prepared_case silent(model + "pedigree = \"p.csv\"\n", files);
  EXPECT_TRUE(silent.says("add it to [factor.animal] pedigree = { unknown = [\"999\"] }"))
      << silent.messages();
  EXPECT_FALSE(silent.says("selfing")) << silent.messages();
  const zeph_test::prepared_case mended(model + "pedigree = { file = \"p.csv\", unknown = [999] }\n", files);
  ASSERT_TRUE(mended.p.complete) << mended.messages();
  EXPECT_EQ(mended.p.factors[0].n_levels(), 8);
  const zeph_test::prepared_case both(
      model + "pedigree = { file = \"p.csv\", unknown = [\"x\", \"7\"], founders = [\"7\"] }\n", files);
  EXPECT_TRUE(
      both.says("model.toml:6:46: error: [factor.animal] pedigree: \"7\" is in unknown and in founders"))
      << both.messages();
  const zeph_test::prepared_case group(
      model + "pedigree = { file = \"p.csv\", unknown = [\"G1\"], groups = [\"G1\"] }\n", files);
  EXPECT_TRUE(group.says("error: [factor.animal] pedigree: \"G1\" is in unknown and in groups"))
      << group.messages();
}

} // namespace
} // namespace zeph::prepare
