#include "input/relationships.h"

#include "input_frame.h"
#include "support/model_builder.h"

#include <cmath>
#include <fstream>
#include <gtest/gtest.h>
#include <limits>

namespace {

using namespace zeph_test;

// Factors of one equation per level, with these structures and levels.
model_records factors(const std::vector<std::pair<std::string, std::int32_t>>& list) {
  described_model d;
  d.traits.resize(1);
  for (const auto& [name, levels] : list) d.factors.push_back({name, levels, 1, {{1, 1, 1}}});
  return build_model(d);
}

// The walk of a row as text: "level:value" for each element.
std::string walk(const relationship_rows& rows, std::int64_t r) {
  std::ostringstream text;
  text << r << ':' << rows.diag(r);
  for (std::int64_t e = rows.start(r); e < rows.start(r + 1); ++e)
    text << ' ' << rows.col(e) << ':' << rows.val(e);
  return text.str();
}

TEST(read_relationships, walks_the_diagonal_first_then_the_newest_element) {
  input_frame frame;
  const model_records m = factors({{"PED", 4}});
  write_elements(frame.path("AINV1"), {{1, 1, 2.0},
                                       {2, 1, -0.5},
                                       {2, 2, 3.0},
                                       {3, 1, -1.0},
                                       {1, 4, 0.25},
                                       {3, 3, 4.0},
                                       {4, 4, 5.0},
                                       {4, 3, 7.0}});
  relationship_store relations;
  EXPECT_EQ(read_relationships(m, relations, frame.report), 0);
  // lists made by hand: each element at the head of the lists of both levels
  EXPECT_EQ(walk(relations.of(1), 1), "1:2 4:0.25 3:-1 2:-0.5");
  EXPECT_EQ(walk(relations.of(1), 2), "2:3 1:-0.5");
  EXPECT_EQ(walk(relations.of(1), 3), "3:4 4:7 1:-1");
  EXPECT_EQ(walk(relations.of(1), 4), "4:5 3:7 1:0.25");
  EXPECT_EQ(frame.listing(), "\n"
                             "         Reading variance structure for random effect ......          1\n"
                             "         Number of elements in variance structure ..........          8\n");
}

TEST(read_relationships, replaces_a_second_diagonal_and_keeps_a_second_off_diagonal) {
  input_frame frame;
  const model_records m = factors({{"GREL", 2}});
  write_elements(frame.path("GINV1"), {{1, 1, 2.0}, {2, 1, 0.5}, {2, 2, 3.0}, {1, 2, 0.75}, {1, 1, 9.0}});
  relationship_store relations;
  EXPECT_EQ(read_relationships(m, relations, frame.report), 0);
  EXPECT_EQ(walk(relations.of(1), 1), "1:9 2:0.75 2:0.5");
  EXPECT_EQ(walk(relations.of(1), 2), "2:3 1:0.75 1:0.5");
}

TEST(read_relationships, names_the_file_by_structure_and_factor) {
  const std::pair<std::string, std::string> names[] = {
      {"PED", "AINV"}, {"PGMIX", "HINV"}, {"GREL", "GINV"}, {"COR", "COR"}, {"DOM", "DOM"}};
  for (const auto& [structure, prefix] : names) {
    input_frame frame;
    const model_records m = factors({{"I", 2}, {structure, 1}});
    write_elements(frame.path(prefix + "2"), {{1, 1, 6.0}});
    relationship_store relations;
    EXPECT_EQ(read_relationships(m, relations, frame.report), 0) << structure;
    EXPECT_EQ(walk(relations.of(2), 1), "1:6");
  }
}

TEST(read_relationships, writes_the_factors_number_in_full) {
  input_frame frame;
  std::vector<std::pair<std::string, std::int32_t>> list(12, {"I", 1});
  list[11] = {"COR", 1};
  write_elements(frame.path("COR12"), {{1, 1, 1.5}});
  relationship_store relations;
  EXPECT_EQ(read_relationships(factors(list), relations, frame.report), 0);
  EXPECT_EQ(walk(relations.of(12), 1), "1:1.5");
}

TEST(read_relationships, opens_no_file_for_identities) {
  input_frame frame;
  relationship_store relations;
  EXPECT_EQ(read_relationships(factors({{"I", 2}, {"I", 3}}), relations, frame.report), 0);
  EXPECT_EQ(frame.listing(), "");
  EXPECT_FALSE(relations.of(1).present());
}

TEST(read_relationships, makes_snp_and_absorbed_qtl_rows_without_a_file) {
  input_frame frame;
  relationship_store relations;
  EXPECT_EQ(read_relationships(factors({{"SNP", 2}, {"ABS_QTL", 1}}), relations, frame.report), 0);
  EXPECT_EQ(walk(relations.of(1), 1), "1:1");
  EXPECT_EQ(walk(relations.of(1), 2), "2:1");
  EXPECT_EQ(walk(relations.of(2), 1), "1:1");
  EXPECT_EQ(frame.listing(), "");
}

TEST(read_relationships, reports_an_empty_or_missing_file_and_continues) {
  for (const bool exists : {true, false}) {
    input_frame frame;
    if (exists) write_elements(frame.path("AINV1"), {});
    write_elements(frame.path("COR2"), {{1, 1, 1.0}});
    relationship_store relations;
    EXPECT_EQ(read_relationships(factors({{"PED", 3}, {"COR", 1}}), relations, frame.report), 1);
    EXPECT_EQ(frame.listing(), "\n"
                               "         Reading variance structure for random effect ......          1\n"
                               "\n"
                               "ERROR  reading 1st record for variance structure            1\n"
                               "       error code           -1\n"
                               "\n"
                               "         Number of elements in variance structure ..........          0\n"
                               "\n"
                               "         Reading variance structure for random effect ......          2\n"
                               "         Number of elements in variance structure ..........          1\n");
    EXPECT_EQ(walk(relations.of(2), 1), "1:1");
  }
}

struct damage {
  std::vector<element> elements;
  std::string message;
};

TEST(read_relationships, refuses_elements_outside_the_levels_or_not_finite) {
  const double nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();
  const damage cases[] = {
      {{{1, 1, 1.0}, {0, 1, 1.0}}, "row(2) = 0, legal: 1..3"},
      {{{4, 4, 1.0}}, "row(1) = 4, legal: 1..3"},
      {{{1, -2, 1.0}}, "column(1) = -2, legal: 1..3"},
      {{{1, 2147483647, 1.0}}, "column(1) = 2147483647, legal: 1..3"},
      {{{1, 1, 1.0}, {2, 2, 1.0}, {3, 1, nan}}, "value(3) = NaN, legal: a finite number"},
      {{{2, 2, -inf}}, "value(1) = -Infinity, legal: a finite number"},
      {{{1, 1, 1.0}, {3, 3, 1.0}, {2, 3, 1.0}}, "diagonal element(2) = missing, legal: one for every level"},
  };
  for (const damage& c : cases) {
    input_frame frame;
    write_elements(frame.path("AINV1"), c.elements);
    relationship_store relations;
    const model_records m = factors({{"PED", 3}});
    EXPECT_EQ(frame.exit_code([&] { read_relationships(m, relations, frame.report); }), 16) << c.message;
    EXPECT_TRUE(frame.says("\nERROR - Illegal input in AINV1: " + c.message + "\n\nZEPH terminates.\n"))
        << frame.listing();
  }
}

TEST(read_relationships, ends_at_a_broken_frame_or_a_short_record) {
  input_frame frame;
  write_elements(frame.path("COR1"), {{1, 1, 1.0}, {2, 2, 1.0}, {2, 1, 0.5}});
  std::filesystem::resize_file(frame.path("COR1"), 3 * 24 - 1); // the last frame is cut
  relationship_store relations;
  const model_records m = factors({{"COR", 2}});
  EXPECT_EQ(read_relationships(m, relations, frame.report), 0);
  EXPECT_EQ(walk(relations.of(1), 1), "1:1");

  write_integer_records(frame.path("COR1"), {{1, 1}});
  EXPECT_EQ(read_relationships(m, relations, frame.report), 1);
  EXPECT_TRUE(frame.says("       error code           67\n"));
}

TEST(read_relationships, reads_the_second_list_of_a_reduced_animal_model) {
  input_frame frame;
  model_records m = factors({{"PED", 3}});
  m.RMAT(1).L_RAM = true;
  write_elements(frame.path("AINV1"), {{1, 1, 1.0}, {2, 2, 1.0}, {3, 3, 1.0}});
  write_elements(frame.path("AINV_RAM1"), {{1, 1, 2.0}, {2, 2, 4.0}, {2, 1, -1.0}});
  relationship_store relations;
  EXPECT_EQ(read_relationships(m, relations, frame.report), 0);
  EXPECT_EQ(walk(relations.ram_of(1), 1), "1:2 2:-1");
  EXPECT_EQ(walk(relations.ram_of(1), 3), "3:0"); // a level that isn't in the file
  EXPECT_TRUE(frame.says("         Reduced Animal Model for sampling dispersion parm..\n"
                         "         Reading RAM pedigree for random effect ............          1\n"
                         "         Number of elements read in RAM A-inverse ..........          3\n"));
}

TEST(read_relationships, reports_a_missing_second_list) {
  input_frame frame;
  model_records m = factors({{"PED", 1}});
  m.RMAT(1).L_RAM = true;
  write_elements(frame.path("AINV1"), {{1, 1, 1.0}});
  relationship_store relations;
  EXPECT_EQ(read_relationships(m, relations, frame.report), 1);
  EXPECT_TRUE(frame.says("\nERROR  reading 1st record for RAM variance structure            1\n"
                         "       error code           -1\n\n"));
}

TEST(read_relationships, reads_no_second_list_for_other_structures) {
  input_frame frame;
  model_records m = factors({{"PGMIX", 1}});
  m.RMAT(1).L_RAM = true;
  write_elements(frame.path("HINV1"), {{1, 1, 1.0}});
  relationship_store relations;
  EXPECT_EQ(read_relationships(m, relations, frame.report), 0);
  EXPECT_FALSE(relations.ram_of(1).present());
}

TEST(read_relationships, stops_at_each_failed_allocation_under_its_name) {
  const auto names = walk_of_allocations([&](input_frame& frame) {
    model_records m = factors({{"PED", 2}, {"SNP", 1}});
    write_elements(frame.path("AINV1"), {{1, 1, 1.0}, {2, 2, 1.0}});
    relationship_store relations;
    read_relationships(m, relations, frame.report);
  });
  std::vector<std::string> expected = {"CV_STR in READTOMEM", "CV_STR_RAM in READTOMEM"};
  expected.insert(expected.end(), 8, "AILST in READTOMEM");
  EXPECT_EQ(names, expected);
}

TEST(read_relationships, agrees_with_linked_lists_on_a_scattered_file) {
  constexpr std::int32_t n = 50;
  std::vector<element> elements;
  std::vector<std::vector<std::pair<std::int32_t, double>>> lists(n + 1); // newest last
  std::uint32_t state = 12345;                                            // congruential, 32 bits
  const auto next = [&](std::int32_t below) {
    state = state * 1664525U + 1013904223U;
    return static_cast<std::int32_t>((state >> 8) % static_cast<std::uint32_t>(below));
  };
  for (std::int32_t r = 1; r <= n; ++r) elements.push_back({r, r, r + 0.5});
  for (int e = 0; e < 2000; ++e) {
    const std::int32_t i = next(n) + 1, j = next(n) + 1;
    if (i == j) continue;
    elements.push_back({i, j, static_cast<double>(e)});
    lists[static_cast<std::size_t>(j)].push_back({i, e});
    lists[static_cast<std::size_t>(i)].push_back({j, e});
  }
  input_frame frame;
  write_elements(frame.path("DOM1"), elements);
  relationship_store relations;
  EXPECT_EQ(read_relationships(factors({{"DOM", n}}), relations, frame.report), 0);
  for (std::int32_t r = 1; r <= n; ++r) {
    const auto& list = lists[static_cast<std::size_t>(r)];
    const relationship_rows& rows = relations.of(1);
    ASSERT_EQ(rows.start(r + 1) - rows.start(r), static_cast<std::int64_t>(list.size()));
    EXPECT_EQ(rows.diag(r), r + 0.5);
    std::int64_t at = rows.start(r);
    for (auto node = list.rbegin(); node != list.rend(); ++node, ++at) {
      ASSERT_EQ(rows.col(at), node->first);
      ASSERT_EQ(rows.val(at), node->second);
    }
  }
}

TEST(count_ram_diagonals, counts_diagonals_or_gives_the_other_number) {
  input_frame frame;
  write_elements(frame.path("AINV_RAM3"), {{1, 1, 2.0}, {2, 1, 4.0}, {5, 5, -1.0}});
  EXPECT_EQ(count_ram_diagonals(3, 99, frame.report), 2);
  EXPECT_EQ(count_ram_diagonals(4, 99, frame.report), 99);
}

// A pedigree file of n levels in records of at most `size`; parents of level l
// are l - 1 and -(l - 2), 0 where there is none.
void write_pedigree(const std::string& path, std::int32_t n, std::int32_t size) {
  std::vector<std::vector<std::int32_t>> records;
  for (std::int32_t l = 1; l <= n; ++l) {
    if ((l - 1) % size == 0) records.emplace_back();
    records.back().push_back(l - 1);
    records.back().push_back(l > 2 ? 2 - l : 0);
  }
  write_integer_records(path, records);
}

TEST(PEDFILE, reads_sire_and_dam_of_each_level) {
  input_frame frame;
  const model_records m = factors({{"I", 2}, {"PED", 3}});
  write_pedigree(frame.path("PEDFILE2"), 3, 100000);
  relationship_store relations;
  PEDFILE(m, relations, frame.report);
  EXPECT_EQ(relations.pedigree_factor, 2);
  EXPECT_EQ(relations.pedmat(1, 3), 2);
  EXPECT_EQ(relations.pedmat(2, 3), -1);
  EXPECT_EQ(relations.pedmat(1, 1), 0);
  PEDFILE(m, relations, frame.report); // and again
  EXPECT_EQ(relations.pedmat(1, 3), 2);
  EXPECT_EQ(frame.listing(), "");
}

TEST(PEDFILE, starts_a_second_record_after_100000_levels) {
  for (const std::int32_t n : {100000, 100001}) {
    input_frame frame;
    const model_records m = factors({{"PED", n}});
    write_pedigree(frame.path("PEDFILE1"), n, 100000);
    relationship_store relations;
    EXPECT_EQ(frame.exit_code([&] { PEDFILE(m, relations, frame.report); }), 0) << n;
    EXPECT_EQ(relations.pedmat(1, n), n - 1);
    EXPECT_EQ(relations.pedmat(2, n), 2 - n);
  }
}

TEST(PEDFILE, stops_with_code_2_at_a_truncated_or_missing_file) {
  {
    input_frame frame;
    const model_records m = factors({{"PED", 100001}});
    write_pedigree(frame.path("PEDFILE1"), 100000, 100000); // the second record is missing
    relationship_store relations;
    EXPECT_EQ(frame.exit_code([&] { PEDFILE(m, relations, frame.report); }), 2);
    EXPECT_EQ(frame.listing(), "Error reading pedigree info          -1\n");
  }
  {
    input_frame frame;
    const model_records m = factors({{"PED", 4}});
    write_pedigree(frame.path("PEDFILE1"), 3, 100000); // a record of 3 levels for 4
    relationship_store relations;
    EXPECT_EQ(frame.exit_code([&] { PEDFILE(m, relations, frame.report); }), 2);
    EXPECT_EQ(frame.listing(), "Error reading pedigree info          67\n");
  }
  {
    input_frame frame;
    const model_records m = factors({{"PED", 4}});
    relationship_store relations;
    EXPECT_EQ(frame.exit_code([&] { PEDFILE(m, relations, frame.report); }), 2);
    EXPECT_EQ(frame.listing(), "Error reading pedigree info          -1\n");
  }
}

TEST(PEDFILE, refuses_two_pedigree_factors_and_passes_none) {
  input_frame frame;
  relationship_store relations;
  const model_records two = factors({{"PED", 1}, {"I", 1}, {"PED", 1}});
  EXPECT_EQ(frame.exit_code([&] { PEDFILE(two, relations, frame.report); }), 2);
  EXPECT_EQ(frame.listing(), "More than one pedigree file found\nNot currently supported in ZEPH\n");

  input_frame other;
  PEDFILE(factors({{"PGMIX", 1}}), relations, other.report);
  EXPECT_EQ(other.listing(), "No pedigree file found\n");
  EXPECT_EQ(relations.pedigree_factor, 0);
}

TEST(PEDFILE, refuses_parents_beyond_the_levels) {
  for (const std::int32_t parent : {3, -3, std::numeric_limits<std::int32_t>::min()}) {
    input_frame frame;
    const model_records m = factors({{"PED", 2}});
    write_integer_records(frame.path("PEDFILE1"), {{0, 0, 1, parent}});
    relationship_store relations;
    EXPECT_EQ(frame.exit_code([&] { PEDFILE(m, relations, frame.report); }), 16);
    EXPECT_TRUE(frame.says("ERROR - Illegal input in PEDFILE1: parent(2,2) = " + std::to_string(parent) +
                           ", legal: -2..2"));
  }
}

TEST(PEDFILE, reports_the_failed_allocation_itself) {
  input_frame frame;
  frame.report.door.fail_at = 1;
  const model_records m = factors({{"PED", 2}});
  relationship_store relations;
  EXPECT_EQ(frame.exit_code([&] { PEDFILE(m, relations, frame.report); }), 2);
  EXPECT_EQ(frame.listing(), "Allocation of pedmat failed\n");
}

} // namespace
