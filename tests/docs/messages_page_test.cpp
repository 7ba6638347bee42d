// docs/messages.md against the sources. Every text of a program that holds two
// words or more must be on the page, and every text of the page in the
// sources of its program. On the page three dots take the place of a value.
#include "docs/source_literals.h"
#include "support/places.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

namespace {

namespace fs = std::filesystem;
using namespace zeph_test;

struct told_text {
  std::string where; // file:line
  std::string text;
};

struct page_row {
  int line = 0;
  std::vector<std::string> texts; // the code spans of the first cell
};

struct program {
  std::string_view heading;              // of its part of the page
  std::vector<std::string_view> folders; // its sources
};

const std::vector<program>& programs() {
  static const std::vector<program> all = {{"## ZEPH", {"src"}},
                                           {"## zeph-prepare", {"companions/prepare"}},
                                           {"## zeph-chains", {"companions/chains"}},
                                           {"## zeph-watch", {"companions/watch"}},
                                           {"## zeph-report", {"companions/report"}}};
  return all;
}

// Sources whose texts are no messages.
constexpr std::array<std::string_view, 2> report_sources = {
    "companions/prepare/output/summary.cpp",               // the summary of a preparation
    "companions/prepare/description/description_keys.cpp", // what the keys of a description are
};

// Beginnings of literals that are no messages.
struct other_text {
  std::string_view file, text;
};
constexpr std::array<other_text, 27> other_texts = {{
    {"companions/chains/processes.cpp", "\"$0\" >> listing.txt"},                // shell
    {"companions/chains/processes.cpp", "host {}\npid"},                         // a file of a segment
    {"companions/chains/segment_state.cpp", "Current round is"},                 // looked for in `status`
    {"companions/chains/segment_state.cpp", "Program ZEPH has concluded"},       // looked for in `status`
    {"companions/chains/segment_state.cpp", "Stop signal received."},            // looked for in a listing
    {"companions/chains/segment_state.cpp", "The chain continues from r_state"}, // looked for in a listing
    {"companions/chains/segment_state.cpp", "ZEPH terminates."},                 // passed over in a listing
    {"companions/chains/state_files.cpp", "ZEPH state 1"},                       // the head of a file
    {"companions/chains/slurm_batch.cpp", "Invalid job id"}, // looked for in what squeue says
    {"companions/chains/slurm_batch.cpp", "#SBATCH"},        // a batch file
    {"companions/chains/study_records.cpp", "# Several chains of one model"}, // TOML
    {"companions/chains/study_records.cpp", "\n[["},                          // TOML
    {"companions/chains/study_records.cpp", "chain = {}"},                    // TOML
    // what --help says first
    {"companions/chains/main.cpp", "Runs several chains of a work directory"},
    {"companions/prepare/main.cpp", "Makes a work directory for ZEPH"},
    {"companions/watch/main.cpp", "Shows the state of running chains"},
    // names of kinds of repeated faults, of which ten are shown
    {"companions/prepare/parts/covariable_values.cpp", "outside range "},
    {"companions/prepare/parts/factor_levels.cpp", "no level in "},
    {"companions/prepare/parts/given_matrix.cpp", "two values "},
    {"companions/prepare/parts/pedigree.cpp", "different parents "},
    {"companions/prepare/parts/pedigree.cpp", "equal lines "},
    {"companions/prepare/parts/pedigree.cpp", "group line "},
    {"companions/prepare/parts/pedigree.cpp", "no animal "},
    {"companions/prepare/parts/pedigree.cpp", "not in pedigree "},
    {"companions/prepare/parts/pedigree.cpp", "sire and dam "},
    {"companions/prepare/parts/pedigree_inverse.cpp", "no variance "},
    {"companions/prepare/records/trait_values.cpp", "values of "},
}};

std::string content(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// Help texts of the command line, and asserts.
bool is_no_message(const std::string& file, const text_literal& literal) {
  for (const std::string_view call : {"add_option(", "add_flag(", "add_subcommand(", "static_assert("})
    if (literal.call.find(call) != std::string::npos) return true;
  return std::any_of(other_texts.begin(), other_texts.end(), [&](const other_text& other) {
    return other.file == file && literal.text.starts_with(other.text);
  });
}

// The calls of an R source that print something; none: all of it does.
std::vector<std::string> doors_of(const std::string& file) {
  for (const std::string_view whole : {"R/verdict.R", "R/join_segments.R"})
    if (file.ends_with(whole)) return {};
  return {"stop_report(", "remarks$add("};
}

std::vector<told_text> texts_of(const program& p) {
  std::vector<told_text> texts;
  const fs::path root = source_folder();
  for (const std::string_view folder : p.folders)
    for (const auto& entry : fs::recursive_directory_iterator(root / folder)) {
      const std::string extension = entry.path().extension().string();
      const std::string name = fs::relative(entry.path(), root).string();
      if (std::find(report_sources.begin(), report_sources.end(), name) != report_sources.end()) continue;
      std::vector<text_literal> literals;
      if (extension == ".h" || extension == ".cpp") literals = cpp_literals(content(entry.path()));
      if (extension == ".R") literals = r_literals(content(entry.path()), doors_of(name));
      for (text_literal& literal : literals)
        if (!is_no_message(name, literal))
          texts.push_back({name + ":" + std::to_string(literal.line), std::move(literal.text)});
    }
  return texts;
}

// The code spans of a cell: between single back quotes, or between double ones with a blank inside each.
std::vector<std::string> code_spans(std::string_view cell) {
  std::vector<std::string> spans;
  for (std::size_t at = cell.find('`'); at != std::string_view::npos; at = cell.find('`', at)) {
    const bool twice = cell.substr(at, 2) == "``";
    const std::string_view quote = twice ? "``" : "`";
    at += quote.size();
    const std::size_t end = cell.find(quote, at);
    if (end == std::string_view::npos) break;
    spans.emplace_back(cell.substr(at, end - at));
    at = end + quote.size();
  }
  return spans;
}

// The first cell of a table row; "\|" is a bar within it.
std::string first_cell(std::string_view row) {
  std::string cell;
  for (std::size_t at = 1; at < row.size() && row[at] != '|'; ++at) {
    if (row.substr(at, 2) == "\\|") ++at;
    cell += row[at];
  }
  return cell;
}

// The tables below the heading of a program, each with the rows that quote texts.
std::vector<std::vector<page_row>> tables_of(const program& p) {
  std::vector<std::vector<page_row>> tables;
  std::ifstream page(fs::path(source_folder()) / "docs" / "messages.md");
  bool within = false;
  int number = 0;
  for (std::string line; std::getline(page, line);) {
    ++number;
    if (line.starts_with("## ")) within = line == p.heading;
    if (line.starts_with("|--")) tables.emplace_back();
    if (!within || !line.starts_with("| `") || tables.empty()) continue;
    tables.back().push_back({number, code_spans(first_cell(line))});
  }
  std::erase_if(tables, [](const std::vector<page_row>& rows) { return rows.empty(); });
  return tables;
}

bool holds(const std::vector<std::string>& pieces, const std::string& piece) {
  return std::any_of(pieces.begin(), pieces.end(),
                     [&](const std::string& text) { return text.find(piece) != std::string::npos; });
}

TEST(messages_page, every_text_of_a_program_is_on_the_page) {
  for (const program& p : programs()) {
    std::vector<std::string> told;
    for (const std::vector<page_row>& rows : tables_of(p))
      for (const page_row& row : rows)
        for (const std::string& text : row.texts)
          for (std::string& piece : fixed_pieces(text)) told.push_back(std::move(piece));
    for (const told_text& text : texts_of(p))
      for (const std::string& piece : fixed_pieces(text.text))
        EXPECT_TRUE(!is_prose(piece) || holds(told, piece))
            << text.where << ": docs/messages.md has no \"" << piece << "\" below " << p.heading;
  }
}

TEST(messages_page, every_text_of_the_page_is_in_the_sources) {
  for (const program& p : programs()) {
    std::vector<std::string> pieces;
    for (const told_text& text : texts_of(p))
      for (std::string& piece : fixed_pieces(text.text)) pieces.push_back(std::move(piece));
    for (const std::vector<page_row>& rows : tables_of(p))
      for (const page_row& row : rows)
        for (const std::string& text : row.texts)
          for (const std::string& piece : fixed_pieces(text))
            EXPECT_TRUE(holds(pieces, piece)) << "docs/messages.md:" << row.line << ": no source of "
                                              << p.heading << " has \"" << piece << "\"";
  }
}

TEST(messages_page, rows_of_a_table_are_in_the_order_of_their_letters) {
  const auto letters = [](const page_row& row) {
    std::string key;
    for (const char c : row.texts.empty() ? std::string() : row.texts.front())
      if (std::isalpha(static_cast<unsigned char>(c)) != 0)
        key += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return key;
  };
  for (const program& p : programs())
    for (const std::vector<page_row>& rows : tables_of(p))
      for (std::size_t i = 1; i < rows.size(); ++i)
        EXPECT_LE(letters(rows[i - 1]), letters(rows[i])) << "docs/messages.md:" << rows[i].line;
}

TEST(messages_page, every_program_has_its_tables) {
  for (const program& p : programs()) EXPECT_FALSE(tables_of(p).empty()) << p.heading;
}

// What the three readers above rest on.
TEST(messages_page, literals_are_separated_from_comments_characters_and_raw_texts) {
  const std::string source =
      "#include \"a b.h\"\n// \"no text\"\nsay(r, \"one \"\n  \"two\", '\"', f(\"three\\n\"));\n"
      "x = R\"(four)\"; // 1'000\ny = 1'000 + g(\"five\");";
  const std::vector<text_literal> found = cpp_literals(source);
  ASSERT_EQ(found.size(), 3U);
  EXPECT_EQ(found[0].text, "one two");
  EXPECT_EQ(found[0].line, 3);
  EXPECT_EQ(found[1].text, "three\n");
  EXPECT_EQ(found[2].text, "five");
  EXPECT_NE(found[2].call.find("g("), std::string::npos);
}

TEST(messages_page, literals_of_r_are_those_within_the_named_calls) {
  const std::vector<text_literal> found =
      r_literals("# \"no\"\nstop_report(\"a\", paste(\"b\", x), 'c')\ny <- paste(\"d\")", {"stop_report("});
  ASSERT_EQ(found.size(), 3U);
  EXPECT_EQ(found[1].text, "b");
  EXPECT_EQ(found[2].text, "c");
}

TEST(messages_page, a_text_is_cut_at_its_values) {
  const std::vector<std::string> pieces =
      fixed_pieces("{} has {:.2g} rows,\nsay {{ file = .. }} Label ......");
  ASSERT_EQ(pieces.size(), 3U);
  EXPECT_EQ(pieces[0], "has");
  EXPECT_EQ(pieces[1], "rows,");
  EXPECT_EQ(pieces[2], "say { file = .. } Label");
  EXPECT_TRUE(is_prose("Data not found"));
  EXPECT_FALSE(is_prose("rmat(k)%cov_mat"));
  EXPECT_FALSE(is_prose("i = "));
}

} // namespace
