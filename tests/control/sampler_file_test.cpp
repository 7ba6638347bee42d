#include "control/sampler_file.h"

#include "support/run_case.h"

namespace {

using namespace zeph_test;

// What the run says with this file, from the place where the word is wrong on.
std::string refusal(const std::string& sampler, std::int32_t type = 2) {
  run_case c;
  c.directory.write("sampler", sampler);
  EXPECT_EQ(c.go(run_case::lines(type, 0, 3, 1)), 16) << sampler;
  const std::size_t at = c.text().find("ERROR - Illegal input in sampler: ");
  return at == std::string::npos ? c.text() : c.text().substr(at, c.text().find('\n', at) - at);
}
std::string illegal(const std::string& rest) { return "ERROR - Illegal input in sampler: " + rest; }

TEST(sampler_file, of_comments_changes_nothing) {
  run_case with, without;
  with.directory.write("sampler", "# exact\n\n   # nothing\n");
  EXPECT_EQ(with.go(run_case::lines(3, 5, 20, 1)), 0);
  EXPECT_EQ(without.go(run_case::lines(3, 5, 20, 1)), 0);
  for (const char* name : {"gib.samples", "lastsol", "py", "gibsol", "lpm"})
    EXPECT_EQ(with.directory.read(name), without.directory.read(name)) << name;
  EXPECT_EQ(with.text(), without.text());
}

TEST(sampler_file, is_repeated_on_the_listing) {
  run_case c;
  c.directory.write("sampler", "density 32 # points\nexact\n");
  EXPECT_EQ(c.go(run_case::lines(2, 5, 20, 1)), 0);
  EXPECT_NE(c.text().find("\nWords of the file sampler\n  exact\n  density          32\n"),
            std::string::npos);
}

TEST(sampler_file, refuses_what_is_no_word_or_no_value) {
  EXPECT_EQ(refusal("# first\nexakt\n"),
            illegal("word(2) = exakt, legal: exact, state, moves, model_prior or density"));
  EXPECT_EQ(refusal("exact 1\n"), illegal("exact = 1 values, legal: no value"));
  EXPECT_EQ(refusal("exact\nexact\n"), illegal("exact(2) = given twice, legal: once"));
  EXPECT_EQ(refusal("exact\ndensity 15\n"), illegal("density(1) = 15, legal: 16 to 4096 points"));
  EXPECT_EQ(refusal("exact\ndensity 1e3\n"), illegal("density(1) = 1e3, legal: 16 to 4096 points"));
  EXPECT_EQ(refusal("exact\ndensity\n"), illegal("density = 0 values, legal: 16 to 4096 points"));
  EXPECT_EQ(refusal("density 32\n"), illegal("density = 32, legal: only together with exact"));
  EXPECT_EQ(refusal("exact\nmodel_prior 2 1\n"), illegal("model_prior(1) = 2, legal: a random factor"));
  EXPECT_EQ(refusal("exact\nmodel_prior 1 1 2\n"),
            illegal("model_prior(1) = 2 weights, legal: one for each of 1 numbers of rows"));
  for (const char* weight : {"0", "-1", "nan", "inf", "x"})
    EXPECT_EQ(refusal(std::string("exact\nmodel_prior 1 ") + weight),
              illegal("model_prior(1,1) = " + std::string(weight) + ", legal: a finite number above 0"));
  EXPECT_EQ(refusal("exact\nmodel_prior 1 1\nmodel_prior 1 1\n"),
            illegal("model_prior(1) = given twice, legal: once a factor"));
  EXPECT_EQ(
      refusal("exact\nmodel_prior 1 1\n"),
      illegal(
          "model_prior(1) = given, legal: type of analysis 6 and above: chains that move between models"));
  EXPECT_EQ(refusal("model_prior 1 1\n"), illegal("model_prior(1) = given, legal: only together with exact"));
}

// What the listing says of moves, line by line, without blanks before it.
std::vector<std::string> lines_of_moves(const std::string& listing) {
  std::vector<std::string> found;
  std::istringstream lines(listing);
  bool here = false;
  for (std::string line; std::getline(lines, line);) {
    const std::size_t at = line.find_first_not_of(' ');
    here =
        (here && line.find(" ...") != std::string::npos) || line.find("Moves that mix") != std::string::npos;
    if (here) found.push_back(line.substr(at));
  }
  return found;
}

TEST(sampler_file, takes_the_word_moves) {
  using rows = std::vector<std::string>;
  const std::string dots(36, '.'), factor_dots(31, '.');
  const auto listing_of = [](std::int32_t type) {
    run_case c;
    c.directory.write("sampler", "moves\n");
    EXPECT_EQ(c.go(run_case::lines(type, 0, 3, 1)), 0) << c.text();
    EXPECT_NE(c.text().find("\nWords of the file sampler\n  moves\n"), std::string::npos) << c.text();
    return lines_of_moves(c.text());
  };
  EXPECT_EQ(listing_of(0), rows{"Moves that mix " + dots + " off: a solver has no chain"});
  EXPECT_EQ(listing_of(2),
            (rows{"Moves that mix " + dots + " on",
                  "Random factor no  1 " + factor_dots + " relaxed draws; no move: matrices as given"}));
  EXPECT_EQ(listing_of(3), (rows{"Moves that mix " + dots + " on",
                                 "Random factor no  1 " + factor_dots + " relaxed draws, moves"}));
  EXPECT_EQ(refusal("moves 1"), illegal("moves = 1 values, legal: no value"));
  EXPECT_EQ(refusal("moves\nmoves"), illegal("moves(2) = given twice, legal: once"));
}

TEST(sampler_file, takes_the_word_state_with_minutes_or_without) {
  const std::pair<const char*, const char*> words[] = {{"state\n", "  state          10\n"},
                                                       {"state 0 # at the end\n", "  state           0\n"},
                                                       {"state 1000000", "  state     1000000\n"}};
  for (const auto& [sampler, repeated] : words) {
    run_case c;
    c.directory.write("sampler", sampler);
    EXPECT_EQ(c.go(run_case::lines(2, 0, 3, 1)), 0) << c.text();
    EXPECT_NE(c.text().find(std::string("\nWords of the file sampler\n") + repeated), std::string::npos)
        << c.text();
  }
  for (const char* minutes : {"-1", "1000001", "1.5", "x", "99999999999"})
    EXPECT_EQ(refusal(std::string("state ") + minutes),
              illegal("state(1) = " + std::string(minutes) + ", legal: 0 to 1000000 minutes"));
  EXPECT_EQ(refusal("state 1 2\n"), illegal("state = 2 values, legal: at most one number, of minutes"));
  EXPECT_EQ(refusal("state\nstate 5\n"), illegal("state(2) = given twice, legal: once"));
  for (const std::int32_t type : {0, 1})
    EXPECT_EQ(refusal("state 5\n", type),
              illegal("state = 5, legal: type of analysis 2 and above: a solver has no state to save"));
}

TEST(sampler_file, that_can_not_be_read_ends_the_run) {
  run_case c;
  std::filesystem::create_directory(c.directory / "sampler");
  EXPECT_EQ(c.go(run_case::lines(2, 0, 3, 1)), 16);
  EXPECT_NE(c.text().find("Illegal input in sampler: read"), std::string::npos);
}

} // namespace
