#include "jump/jump_rounds.h"

#include "jump/model_moves.h"
#include "support/check.h"
#include "support/jump_case.h"
#include "support/run_state.h"

#include <cmath>
#include <set>

namespace {

using namespace zeph_test;

// The rows that one round leaves in zeinfo, as numbers; T is 1 and F 0.
struct told_round {
  std::vector<double> data, solutions, matrix, moves, round;
};

std::vector<double> numbers_of(const std::string& line) {
  std::istringstream words(line);
  std::vector<double> values;
  for (std::string word; words >> word;)
    values.push_back(word == "T" ? 1.0 : word == "F" ? 0.0 : std::strtod(word.c_str(), nullptr));
  return values;
}

std::vector<told_round> told_rounds(const std::string& zeinfo) {
  std::vector<std::vector<double>> rows;
  std::istringstream lines(zeinfo);
  for (std::string line; std::getline(lines, line);) rows.push_back(numbers_of(line));
  std::vector<told_round> rounds;
  EXPECT_EQ(rows.size() % 6, 0U);
  for (std::size_t i = 0; i + 6 <= rows.size(); i += 6) {
    EXPECT_TRUE(rows[i].empty()); // a blank line ahead
    rounds.push_back({rows[i + 1], rows[i + 2], rows[i + 3], rows[i + 4], rows[i + 5]});
  }
  return rounds;
}

// The ratio of the move from the small to the large model, from the rows alone.
double assembled(const told_round& t) {
  const double ssq_l = t.data.at(1), ssq_s = t.data.at(2), fit_l = t.data.at(3), fit_s = t.data.at(4);
  const double D_l = t.solutions.at(1), D_s = t.solutions.at(2), Q = t.solutions.at(3),
               jacobian = t.solutions.at(4);
  const double A = t.matrix.at(1), A_less_C = t.matrix.at(4);
  EXPECT_NEAR(t.data.at(5), 0.5 * (ssq_s + fit_s - ssq_l - fit_l), 1e-9);
  EXPECT_NEAR(t.solutions.at(5), D_l - (D_s + Q) + jacobian, 1e-9);
  EXPECT_NEAR(t.matrix.at(3) + A_less_C, t.matrix.at(2) + A - 2.0 * (A - A_less_C), 1e-9); // B - C + A - C
  return t.moves.at(1) - t.moves.at(2) + jacobian + (D_l - D_s) + A_less_C - Q +
         0.5 * (fit_s - fit_l - ssq_l + ssq_s);
}

class jump_chain : public ::testing::TestWithParam<named_jump> {};

TEST_P(jump_chain, takes_in_every_round_the_ratio_that_its_rows_tell) {
  jump_case c(GetParam().options);
  ASSERT_EQ(c.go(c.lines(6, 5, 60, 2)), 0) << c.text();
  const std::vector<told_round> rounds = told_rounds(c.directory.read("zeinfo"));
  ASSERT_EQ(rounds.size(), 60U);
  const auto n = static_cast<std::size_t>(c.m->nramat + 1);
  std::vector<double> model(n, 1.0);
  model.back() = c.m->nt;
  for (std::size_t i = 0; i < rounds.size(); ++i) {
    const told_round& t = rounds[i];
    for (const auto* row : {&t.data, &t.solutions, &t.matrix, &t.moves, &t.round})
      EXPECT_EQ(row->at(0), static_cast<double>(6 + i));
    ASSERT_EQ(t.round.size(), 1 + 2 * n + 6);
    const std::vector<double> cur(t.round.begin() + 1, t.round.begin() + 1 + static_cast<long>(n));
    const std::vector<double> proposed(t.round.begin() + 1 + static_cast<long>(n),
                                       t.round.begin() + 1 + 2 * static_cast<long>(n));
    EXPECT_EQ(cur, model);
    const double* rest = t.round.data() + 1 + 2 * n; // p_up, p_down, jump_down, log_ratio, log_u, accepted
    const bool down = rest[2] != 0.0;
    const double ratio = assembled(t);
    EXPECT_NEAR(t.moves.at(3), ratio, 1e-9 * (1.0 + std::fabs(ratio)));
    EXPECT_NEAR(rest[3], down ? -ratio : ratio, 1e-9 * (1.0 + std::fabs(ratio)));
    EXPECT_EQ(rest[5] != 0.0, std::min(0.0, rest[3]) > rest[4]);
    // one factor moves by one, and the probabilities are those of its dimension
    std::int32_t moved = 0;
    for (std::size_t k = 0; k < n; ++k) {
      if (cur[k] == proposed[k]) continue;
      ++moved;
      EXPECT_EQ(proposed[k] - cur[k], down ? -1.0 : 1.0);
      const double high = c.m->RMAT(static_cast<std::int64_t>(k + 1)).n_rc;
      const double up = cur[k] == high ? 0.0 : cur[k] == 1.0 ? 1.0 : 0.5;
      EXPECT_EQ(rest[0], up);
      EXPECT_EQ(rest[1], 1.0 - up);
      const double m_s = std::min(cur[k], proposed[k]), m_l = m_s + 1.0;
      EXPECT_NEAR(t.moves.at(1), m_s == 1.0 ? 0.0 : std::log(0.5), 1e-15);
      EXPECT_NEAR(t.moves.at(2), m_l == high ? 0.0 : std::log(0.5), 1e-15);
    }
    EXPECT_EQ(moved, 1);
    if (rest[5] != 0.0) model = proposed;
  }
}

INSTANTIATE_TEST_SUITE_P(models, jump_chain, ::testing::ValuesIn(jump_models()),
                         [](const auto& set) { return set.param.name; });

} // namespace
