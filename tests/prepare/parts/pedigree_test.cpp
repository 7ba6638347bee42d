// Reading and checking pedigrees. Expected values by hand.
#include "prepare/parts/pedigree.h"
#include "prepare/tables/csv_reader.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace zeph::prepare {
namespace {

using words = std::vector<std::string>;
using numbers = std::vector<std::int32_t>;

pedigree read(const std::string& text, message_log& log, pedigree_request request = {}) {
  request.file = "pedigree.csv";
  const csv_columns t = read_csv_text(text, request.file, request.layout, log);
  return pedigree_of_table(t, request, log);
}

// The first message, when there is one message only.
std::string only_message(const message_log& log) {
  return log.entries.size() == 1 ? message_text(log.entries[0])
                                 : std::to_string(log.entries.size()) + " messages\n" + full_text(log);
}

TEST(pedigree, keeps_the_order_of_a_file_with_parents_first) {
  // Mrode 2014, Linear Models for the Prediction of Animal Breeding Values, table 2.1
  message_log log;
  const pedigree p = read("animal,sire,dam\n1,0,0\n2,0,0\n3,1,2\n4,1,0\n5,4,3\n6,5,2\n", log);
  EXPECT_TRUE(log.entries.empty()) << full_text(log);
  EXPECT_EQ(p.identification, (words{"1", "2", "3", "4", "5", "6"}));
  EXPECT_EQ(p.sire, (numbers{0, 0, 1, 1, 4, 5}));
  EXPECT_EQ(p.dam, (numbers{0, 0, 2, 0, 3, 2}));
  EXPECT_EQ(p.number_of.at("5"), 5);
  EXPECT_EQ(p.line, (std::vector<std::int64_t>{2, 3, 4, 5, 6, 7}));
}

TEST(pedigree, puts_parents_before_progeny) {
  message_log plain;
  const pedigree q = read("animal,sire,dam\nc,a,b\nb,0,0\na,0,0\nd,c,b\n", plain);
  EXPECT_TRUE(plain.entries.empty()) << full_text(plain);
  ASSERT_EQ(q.n_animals(), 4);
  for (std::int32_t a = 1; a <= 4; ++a) {
    EXPECT_LT(q.sire[static_cast<std::size_t>(a - 1)], a);
    EXPECT_LT(q.dam[static_cast<std::size_t>(a - 1)], a);
  }
  const auto c = static_cast<std::size_t>(q.number_of.at("c") - 1);
  EXPECT_EQ(q.identification[static_cast<std::size_t>(q.sire[c] - 1)], "a");
  EXPECT_EQ(q.identification[static_cast<std::size_t>(q.dam[c] - 1)], "b");
  EXPECT_EQ(q.line[c], 2);
}

TEST(pedigree, knows_usual_and_given_column_names) {
  for (const std::string header : {"id,father,mother", "Animal,Sire,Dam", "ID,SIRE,mother"}) {
    message_log log;
    EXPECT_EQ(read(header + "\n1,0,0\n2,1,0\n", log).n_animals(), 2) << header << full_text(log);
  }
  message_log log;
  const pedigree p =
      read("pa,ma,year,calf\n0,0,1,x\nx,0,2,y\n", log, {.animal = "calf", .sire = "pa", .dam = "ma"});
  EXPECT_TRUE(log.entries.empty()) << full_text(log);
  EXPECT_EQ(p.identification, (words{"x", "y"}));
  EXPECT_EQ(p.sire, (numbers{0, 1}));
}

TEST(pedigree, refuses_columns_without_header) {
  message_log log;
  read("1,0,0\n2,1,0\n", log);
  ASSERT_FALSE(log.entries.empty());
  EXPECT_EQ(message_text(log.entries.back()),
            "pedigree.csv: error: the columns have no header; say which is sire and which is dam:\n"
            "    pedigree = { file = .., columns = [\"animal\", \"sire\", \"dam\"] }\n");
}

TEST(pedigree, refuses_a_header_that_does_not_tell) {
  message_log log, named;
  read("a,b,c\n1,0,0\n", log);
  EXPECT_EQ(only_message(log),
            "pedigree.csv: error: the header does not name animal, sire and dam; the columns are: a, b, c\n"
            "    say which is which: pedigree = { file = .., animal = .., sire = .., dam = .. }\n");
  read("animal,sire,dam\n1,0,0\n", named, {.sire = "father"});
  ASSERT_EQ(named.entries.size(), 1U);
  EXPECT_EQ(named.entries[0].text, "no column \"father\"; the columns are: animal, sire, dam");
}

TEST(pedigree, takes_all_codes_of_an_unknown_parent) {
  message_log log;
  const pedigree p =
      read("animal,sire,dam\n1,,0\n2,NA,.\n3,-9,1\n", log, {.layout = {.missing = {".", "-9"}}});
  EXPECT_TRUE(log.entries.empty()) << full_text(log);
  EXPECT_EQ(p.sire, (numbers{0, 0, 0}));
  EXPECT_EQ(p.dam, (numbers{0, 0, 1}));
}

TEST(pedigree, adds_parents_without_a_line_as_founders) {
  message_log log, one;
  const pedigree p = read("animal,sire,dam\n3,1,2\n4,1,3\n", log);
  EXPECT_EQ(log.entries[1].text, "2 parents have no line of their own; added as founders") << full_text(log);
  EXPECT_EQ(p.identification, (words{"1", "2", "3", "4"}));
  EXPECT_EQ(p.line, (std::vector<std::int64_t>{0, 0, 2, 3}));
  read("animal,sire,dam\n3,1,0\n", one);
  EXPECT_EQ(full_text(one), "pedigree.csv: note: 1 parent has no line of its own; added as a founder\n"
                            "pedigree.csv: note: \"1\" has 1 progeny\n");
}

TEST(pedigree, reports_two_lines_of_an_animal) {
  message_log equal, different;
  const pedigree p = read("animal,sire,dam\n1,0,0\nK17,1,NA\nK17,1,0\n", equal);
  EXPECT_EQ(only_message(equal),
            "pedigree.csv:4: note: animal \"K17\" has two identical lines (first: line 3)\n");
  EXPECT_EQ(p.n_animals(), 2);
  const pedigree none = read("animal,sire,dam\n1,0,0\n2,0,0\nK17,1,0\nK17,2,0\n", different);
  EXPECT_EQ(only_message(different),
            "pedigree.csv:5: error: animal \"K17\" has two lines with different parents (first: line 4)\n");
  EXPECT_EQ(none.n_animals(), 0);
}

TEST(pedigree, reports_a_sire_that_is_a_dam_unless_selfing_is_allowed) {
  const std::string text = "animal,sire,dam\nM5,0,0\n1,M5,0\n2,0,M5\n";
  message_log log, plants;
  EXPECT_EQ(read(text, log).n_animals(), 0);
  EXPECT_EQ(only_message(log),
            "pedigree.csv: error: \"M5\" is a sire in line 3 and a dam in line 4 (plants: set "
            "selfing = true)\n");
  EXPECT_EQ(read(text, plants, {.selfing = true}).n_animals(), 3);
  EXPECT_TRUE(plants.entries.empty());
}

TEST(pedigree, names_the_animals_of_a_loop) {
  message_log log;
  const pedigree p = read("animal,sire,dam\nX,0,0\nA12,A40,0\nA40,A77,0\nA77,A12,X\nB,A12,0\n", log);
  EXPECT_EQ(only_message(log),
            "pedigree.csv: error: loop of 3 animals: A12 (line 3) -> A40 (line 4) -> A77 (line 5) "
            "-> A12\n");
  EXPECT_EQ(p.n_animals(), 0);
}

TEST(pedigree, names_every_loop_and_an_animal_that_is_its_own_parent) {
  message_log log;
  read("animal,sire,dam\na,b,0\nb,a,0\nc,c,0\nd,a,0\ne,f,0\nf,e,0\n", log);
  ASSERT_EQ(log.entries.size(), 3U) << full_text(log);
  EXPECT_EQ(log.entries[0].text, "loop of 2 animals: a (line 2) -> b (line 3) -> a");
  EXPECT_EQ(log.entries[1].text, "loop of 1 animal: c (line 4) -> c");
  EXPECT_EQ(log.entries[2].text, "loop of 2 animals: e (line 6) -> f (line 7) -> e");
}

TEST(pedigree, phantom_groups_take_the_place_of_unknown_parents) {
  // Mrode 2014, example of section 3.6 (groups by sex of the unknown parent)
  const std::string text = "animal,sire,dam\n1,G1,G2\n2,G1,G2\n3,G1,G2\n4,1,G2\n5,3,2\n6,1,2\n7,4,5\n8,3,6\n";
  for (const bool by_pattern : {false, true}) {
    message_log log;
    pedigree_request request;
    if (by_pattern)
      request.group_pattern = "G*";
    else
      request.groups = {"G1", "G2"};
    const pedigree p = read(text, log, request);
    EXPECT_TRUE(log.entries.empty()) << full_text(log);
    EXPECT_EQ(p.n_animals(), 8);
    EXPECT_EQ(p.group, (words{"G1", "G2"}));
    EXPECT_EQ(p.sire, (numbers{-1, -1, -1, 1, 3, 1, 4, 3}));
    EXPECT_EQ(p.dam, (numbers{-2, -2, -2, -2, 2, 2, 5, 6}));
  }
}

TEST(pedigree, groups_keep_the_declared_order_and_unused_ones_are_reported) {
  message_log log;
  const pedigree p = read("animal,sire,dam\n1,late,early\n", log, {.groups = {"early", "idle", "late"}});
  EXPECT_EQ(only_message(log),
            "pedigree.csv: warning: phantom parent group \"idle\" is nobody's parent; it is left out\n");
  EXPECT_EQ(p.group, (words{"early", "late"}));
  EXPECT_EQ(p.sire, (numbers{-2}));
  EXPECT_EQ(p.dam, (numbers{-1}));
  message_log pattern;
  read("animal,sire,dam\n1,0,0\n", pattern, {.group_pattern = "G??"});
  EXPECT_EQ(only_message(pattern),
            "pedigree.csv: warning: no parent matches the pattern \"G??\" of phantom parent groups\n");
}

TEST(pedigree, patterns_of_groups) {
  // letters of a parent against the pattern: those that match are groups, the others founders
  const std::vector<std::tuple<std::string, std::string, bool>> cases{
      {"G*", "G", true},  {"G*", "XG", false},      {"*G", "aGbG", true}, {"?1", "G1", true},
      {"?1", "1", false}, {"a*b*c", "axxbc", true}, {"a*b", "abx", false}};
  for (const auto& [pattern, parent, group] : cases) {
    message_log log;
    const pedigree p =
        read("animal,sire,dam\nzz9," + parent + ",0\n", log, {.groups = {}, .group_pattern = pattern});
    EXPECT_EQ(p.n_groups(), group ? 1 : 0) << pattern << " " << parent;
    EXPECT_EQ(p.n_animals(), group ? 1 : 2) << pattern << " " << parent;
  }
}

TEST(pedigree, refuses_lines_of_groups_and_of_unknown_codes) {
  message_log group, unknown;
  read("animal,sire,dam\nG1,0,0\n1,G1,0\n", group, {.groups = {"G1"}});
  ASSERT_FALSE(group.entries.empty());
  EXPECT_EQ(message_text(group.entries[0]),
            "pedigree.csv:2: error: \"G1\" is a phantom parent group and cannot have a line of its own\n");
  read("animal,sire,dam\n0,1,0\n1,0,0\n", unknown);
  EXPECT_EQ(only_message(unknown),
            "pedigree.csv:2: error: \"0\" is the code of an unknown parent, not of an animal\n");
}

TEST(pedigree, looks_up_the_animals_of_the_data) {
  message_log log;
  const pedigree p = read("animal,sire,dam\n1,0,0\nD1,0,0\n", log);
  const csv_columns data =
      read_csv_text("calf,dam\n1,D1\n1,D0912\n1,NA\n1,D0912\n1,D7\n", "calves.csv", {.missing = {"NA"}}, log);
  const column_animals found = animals_of_column(p, data, 1, log);
  EXPECT_EQ(found.animal, (numbers{2, 0, 0, 0, 0}));
  EXPECT_EQ(found.n_unknown, 2);
  ASSERT_EQ(log.entries.size(), 2U);
  EXPECT_EQ(message_text(log.entries[0]),
            "calves.csv:3: error: dam of record 2 (\"D0912\") is neither in the pedigree nor a missing code "
            "(2 records, lines 3, 5)\n");
}

TEST(pedigree, prunes_animals_without_connection_to_data) {
  message_log log;
  const pedigree p = read("animal,sire,dam\n1,G1,0\n2,G2,0\n3,G3,0\n4,1,3\n5,1,3\n6,2,0\n", log,
                          {.groups = {"G1", "G2", "G3"}});
  const std::vector<std::uint8_t> seen{0, 0, 0, 0, 1, 0}; // animal 5: its parents 1 and 3 connect
  const std::vector<std::uint8_t> connected = connected_to_data(p, seen);
  EXPECT_EQ(connected, (std::vector<std::uint8_t>{1, 0, 1, 0, 1, 0}));
  numbers number;
  const pedigree q = pruned(p, connected, number);
  EXPECT_EQ(q.identification, (words{"1", "3", "5"}));
  EXPECT_EQ(q.group, (words{"G1", "G3"})); // G2 has no progeny left
  EXPECT_EQ(q.sire, (numbers{-1, -2, 1}));
  EXPECT_EQ(q.dam, (numbers{0, 0, 2}));
  EXPECT_EQ(number, (numbers{1, 0, 2, 0, 3, 0}));
  EXPECT_EQ(q.number_of.at("5"), 3);
}

TEST(pedigree, notes_its_size) {
  message_log log, complete;
  const pedigree p = read("animal,sire,dam\n1,0,0\n2,1,0\n3,0,0\n", log);
  note_pedigree_size(p, std::vector<std::uint8_t>{0, 1, 0}, 4, log);
  EXPECT_EQ(only_message(log),
            "pedigree.csv: note: 3 animals, 4 of 5 with records not in it; 1 without connection to "
            "data (--prune leaves them out)\n");
  note_pedigree_size(p, std::vector<std::uint8_t>{0, 1, 1}, 0, complete);
  EXPECT_EQ(only_message(complete), "pedigree.csv: note: 3 animals, 2 with records\n");
}

TEST(pedigree, a_chain_of_many_generations_is_ordered) {
  constexpr int N = 20000; // the youngest first: the deepest way through the graph
  std::string text = "animal,sire,dam\n";
  for (int a = N; a >= 1; --a) text += std::to_string(a) + "," + std::to_string(a - 1) + ",0\n";
  message_log log;
  const pedigree p = read(text, log);
  EXPECT_TRUE(log.entries.empty()) << full_text(log);
  ASSERT_EQ(p.n_animals(), N);
  EXPECT_EQ(p.identification.front(), "1");
  EXPECT_EQ(p.identification.back(), std::to_string(N));
}

TEST(pedigree, an_absent_file_is_reported) {
  message_log log;
  EXPECT_EQ(read_pedigree({.file = "no/such/pedigree.csv"}, log).n_animals(), 0);
  EXPECT_EQ(only_message(log),
            "no/such/pedigree.csv: error: the file can't be read: there is no such file\n");
}

} // namespace
} // namespace zeph::prepare
