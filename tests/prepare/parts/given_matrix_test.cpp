// Matrices that the user gives. Inverses are checked by multiplying back; small ones by hand.
#include "prepare/parts/given_matrix.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <random>

#include <fmt/format.h>

namespace zeph::prepare {
namespace {

using words = std::vector<std::string>;
using matrix = std::vector<std::vector<double>>;

given_inverse read(const std::string& text, matrix_kind kind, message_log& log,
                   matrix_form form = matrix_form::by_columns) {
  matrix_request request;
  request.file = "G.txt";
  request.kind = kind;
  request.form = form;
  return given_matrix_of_text(text, request, log);
}

matrix dense(const given_inverse& g) {
  const std::size_t n = g.identification.size();
  matrix a(n, std::vector<double>(n, 0.0));
  for (const matrix_element& e : g.element) {
    const auto i = static_cast<std::size_t>(e.i - 1), j = static_cast<std::size_t>(e.j - 1);
    a[i][j] = a[j][i] = e.v;
  }
  return a;
}

void expect_equal(const matrix& a, const matrix& b, double bound) {
  ASSERT_EQ(a.size(), b.size());
  for (std::size_t i = 0; i < a.size(); ++i)
    for (std::size_t j = 0; j < a.size(); ++j) EXPECT_NEAR(a[i][j], b[i][j], bound) << i << " " << j;
}

std::string only_message(const message_log& log) {
  return log.entries.size() == 1 ? message_text(log.entries[0])
                                 : std::to_string(log.entries.size()) + " messages\n" + full_text(log);
}

TEST(given_matrix, an_inverse_is_used_as_it_is) {
  message_log log;
  const given_inverse g = read("b b 2\na a 1.5\r\n\na b -0.5\nc c 1\nc a 0\n", matrix_kind::inverse, log);
  EXPECT_TRUE(log.entries.empty()) << full_text(log);
  EXPECT_EQ(g.identification, (words{"b", "a", "c"})); // order of first appearance
  ASSERT_EQ(g.element.size(), 4U);                     // zeros off the diagonal are left out
  expect_equal(dense(g), {{2, -0.5, 0}, {-0.5, 1.5, 0}, {0, 0, 1}}, 0.0);
  for (std::size_t k = 1; k < g.element.size(); ++k)
    EXPECT_LT(std::pair(g.element[k - 1].i, g.element[k - 1].j), std::pair(g.element[k].i, g.element[k].j));
}

TEST(given_matrix, triplets_may_have_a_heading_commas_and_both_triangles) {
  message_log log;
  const given_inverse g =
      read("\xEF\xBB\xBFid1,id2,value\n\"a\",\"a\",2\na,b,1\nb,a,1\nb,b,2\n", matrix_kind::inverse, log);
  EXPECT_TRUE(log.entries.empty()) << full_text(log);
  EXPECT_EQ(g.identification, (words{"a", "b"}));
  expect_equal(dense(g), {{2, 1}, {1, 2}}, 0.0);
}

TEST(given_matrix, a_relationship_matrix_is_inverted) {
  // [2 1; 1 2] has the inverse [2 -1; -1 2] / 3
  for (const std::string text :
       {"a a 2\nb a 1\nb b 2\n", "a b\n2 1\n1 2\n", "a;b\na;2;1\nb;1;2\n", "id,a,b\na,2,1\nb,1,2\n"}) {
    message_log log;
    const given_inverse g = read(text, matrix_kind::relationship, log);
    EXPECT_TRUE(log.entries.empty()) << text << full_text(log);
    EXPECT_EQ(g.identification, (words{"a", "b"})) << text;
    expect_equal(dense(g), {{2.0 / 3, -1.0 / 3}, {-1.0 / 3, 2.0 / 3}}, 1e-15);
    EXPECT_EQ(g.blended, 0.0);
  }
}

TEST(given_matrix, a_square_of_three_is_kept_apart_from_triplets) {
  message_log log;
  const given_inverse named = read("a b c\n4 0 0\n0 2 0\n0 0 1\n", matrix_kind::relationship, log);
  EXPECT_TRUE(log.entries.empty()) << full_text(log);
  expect_equal(dense(named), {{0.25, 0, 0}, {0, 0.5, 0}, {0, 0, 1}}, 1e-15);
  // identifications that are numbers: the form must be said
  const given_inverse said =
      read("1 2 3\n4 0 0\n0 2 0\n0 0 1\n", matrix_kind::relationship, log, matrix_form::dense);
  EXPECT_TRUE(log.entries.empty()) << full_text(log);
  EXPECT_EQ(said.identification, (words{"1", "2", "3"}));
  const given_inverse triplets =
      read("1 1 4\n2 2 2\n3 3 1\n", matrix_kind::relationship, log, matrix_form::triplets);
  EXPECT_TRUE(log.entries.empty()) << full_text(log);
  expect_equal(dense(triplets), dense(said), 0.0);
}

TEST(given_matrix, random_matrices_go_there_and_back) {
  for (const auto& [n, seed] : {std::pair{1, 1U}, {5, 2U}, {40, 3U}}) {
    std::mt19937 draw(seed);
    const auto order = static_cast<std::size_t>(n);
    matrix a(order, std::vector<double>(order, 0.0)), b = a;
    for (auto& row : b)
      for (double& v : row) v = static_cast<double>(draw() % 2001) / 1000.0 - 1.0;
    for (std::size_t i = 0; i < order; ++i)
      for (std::size_t j = 0; j < order; ++j) {
        for (std::size_t k = 0; k < order; ++k) a[i][j] += b[i][k] * b[j][k] / n;
        if (i == j) a[i][j] += 0.5;
      }
    std::string square, triplets;
    for (std::size_t i = 0; i < order; ++i) square += "A" + std::to_string(i) + " ";
    square += "\n";
    for (std::size_t i = 0; i < order; ++i) {
      for (std::size_t j = 0; j < order; ++j) {
        square += fmt::format("{} ", a[i][j]);
        if (j <= i) triplets += fmt::format("A{} A{} {}\n", i, j, a[i][j]);
      }
      square += "\n";
    }
    for (const std::string& text : {square, triplets}) {
      message_log log;
      const given_inverse g = read(text, matrix_kind::relationship, log,
                                   text == square ? matrix_form::dense : matrix_form::triplets);
      EXPECT_TRUE(log.entries.empty()) << full_text(log);
      const matrix inverse = dense(g);
      for (std::size_t i = 0; i < order; ++i)
        for (std::size_t j = 0; j < order; ++j) {
          double x = 0.0;
          for (std::size_t k = 0; k < order; ++k) x += a[i][k] * inverse[k][j];
          EXPECT_NEAR(x, i == j ? 1.0 : 0.0, 1e-12);
        }
    }
  }
}

TEST(given_matrix, a_matrix_that_is_not_positive_definite_is_refused) {
  // [1 1.5; 1.5 1]: eigenvalues 2.5 and -0.5
  message_log log;
  const given_inverse g = read("a b\n1 1.5\n1.5 1\n", matrix_kind::relationship, log);
  EXPECT_EQ(only_message(log),
            "G.txt: error: the matrix is not positive definite (smallest eigenvalue -0.5 of 2)\n");
  EXPECT_TRUE(g.element.empty());
  EXPECT_NEAR(g.smallest_eigenvalue, -0.5, 1e-14);
}

TEST(given_matrix, a_singular_matrix_is_blended_and_reported) {
  // all ones: eigenvalues 0 and 2; with 0.05 I: 0.95 J + 0.05 I = [1 0.95; 0.95 1]
  message_log log;
  const given_inverse g = read("a b\n1 1\n1 1\n", matrix_kind::relationship, log);
  ASSERT_EQ(log.entries.size(), 1U);
  EXPECT_EQ(log.entries[0].level, severity::warning);
  EXPECT_TRUE(log.entries[0].text.starts_with("smallest eigenvalue ")) << log.entries[0].text;
  EXPECT_TRUE(log.entries[0].text.ends_with(" of 2; blended with 0.05 I (set blend = ...)"))
      << log.entries[0].text;
  EXPECT_EQ(g.blended, 0.05);
  const double d = 1.0 - 0.95 * 0.95;
  expect_equal(dense(g), {{1 / d, -0.95 / d}, {-0.95 / d, 1 / d}}, 1e-12);
}

TEST(given_matrix, a_near_singular_matrix_is_blended) {
  // eigenvalues 2e-9 and 2 - 2e-9
  message_log log;
  const given_inverse g = read("a b\n1 0.999999998\n0.999999998 1\n", matrix_kind::relationship, log);
  EXPECT_EQ(only_message(log),
            "G.txt: warning: smallest eigenvalue 2e-09 of 2; blended with 0.05 I (set blend = ...)\n");
  EXPECT_EQ(g.blended, 0.05);
}

TEST(given_matrix, blending_asked_for_uses_the_given_matrix) {
  matrix_request request;
  request.file = "G.txt";
  request.kind = matrix_kind::relationship;
  request.blend = 0.2;
  request.blend_with = [](std::span<const std::string> id) {
    EXPECT_EQ(words(id.begin(), id.end()), (words{"a", "b"}));
    return std::vector<double>{1.0, 0.5, 0.5, 1.0};
  };
  request.blend_name = "A";
  message_log log;
  const given_inverse g = given_matrix_of_text("a b\n1.5 0\n0 1.5\n", request, log);
  EXPECT_TRUE(log.entries.empty()) << full_text(log); // asked for: nothing to report
  EXPECT_EQ(g.blended, 0.2);
  const double d = 1.4 * 1.4 - 0.1 * 0.1; // 0.8 x 1.5 + 0.2 = 1.4, 0.2 x 0.5 = 0.1
  expect_equal(dense(g), {{1.4 / d, -0.1 / d}, {-0.1 / d, 1.4 / d}}, 1e-15);

  message_log singular;
  given_matrix_of_text("a b\n1 1\n1 1\n", request, singular);
  ASSERT_EQ(singular.entries.size(), 1U);
  EXPECT_TRUE(singular.entries[0].text.ends_with("of 2; blended with 0.2 A")) << singular.entries[0].text;
}

TEST(given_matrix, blending_with_zero_leaves_a_singular_matrix_singular) {
  matrix_request request;
  request.file = "G.txt";
  request.kind = matrix_kind::relationship;
  request.blend = 0.0;
  message_log log;
  EXPECT_TRUE(given_matrix_of_text("a b\n1 1\n1 1\n", request, log).element.empty());
  EXPECT_EQ(count_of(log, severity::error), 1);
  EXPECT_NE(full_text(log).find("set blend = ..."), std::string::npos);
}

TEST(given_matrix, reports_faults_with_their_lines) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"a a 1\na b x\nb b 1\n", "G.txt:2: error: \"x\" is not a number\n"},
      {"a a 1\na b\nb b 1\n",
       "G.txt:2: error: expected three values here: identification, identification, number\n"},
      {"a a 1\na b 0.5\nb b 1\nb a 0.4\n",
       "G.txt:4: error: the element of \"b\" and \"a\" is 0.4 here and 0.5 in line 2\n"},
      {"a a 1\na b 0.5\n", "G.txt: error: \"b\" has no diagonal element\n"},
      {"a a 1\nb b -2\n", "G.txt: error: the diagonal element of \"b\" is -2, not above 0\n"}};
  for (const auto& [text, expected] : cases) {
    message_log log;
    EXPECT_TRUE(read(text, matrix_kind::inverse, log, matrix_form::triplets).element.empty());
    EXPECT_EQ(only_message(log), expected) << text;
  }
  const std::vector<std::pair<std::string, std::string>> squares{
      {"a b c d\n1 0 0 0\n0 1 0\n0 0 1 0\n0 0 0 1\n", "G.txt:3: error: 3 values here, 4 expected\n"},
      {"a b c d\n1 0 0 0\n0 1 0 0\n", "G.txt:1: error: 4 different identifications here, but 2 rows below\n"},
      {"a a\n1 0\n0 1\n", "G.txt:1: error: 1 different identifications here, but 2 rows below\n"},
      {"a b\na 1 0\nc 0 1\n", "G.txt:3: error: the row of \"c\" is where that of \"b\" is expected\n"},
      {"a b\n1 0.5\n0.4 1\n",
       "G.txt:3: error: the element of \"b\" and \"a\" is 0.4 here and 0.5 in line 2\n"}};
  for (const auto& [text, expected] : squares) {
    message_log log;
    EXPECT_TRUE(read(text, matrix_kind::inverse, log, matrix_form::dense).element.empty());
    EXPECT_EQ(only_message(log), expected) << text;
  }
}

TEST(given_matrix, comment_lines_are_one_error) {
  const std::string cause =
      "error: a line that begins with # is not an element; a matrix file has no comments: "
      "remove them";
  const std::vector<std::pair<std::string, std::string>> cases{
      {"# G of the herd 7\n# by K, 2010\na a 1\na b 0.5\nb b 1\n",
       "G.txt:1: " + cause + " (2 in all, lines 1, 2)\n"},
      {"a a 1\na b 0.5\n#\nb b 1\n", "G.txt:3: " + cause + "\n"},
      {"#by K\na b\n1 0.5\n0.5 1\n", "G.txt:1: " + cause + "\n"},
      {"# G\n# by K\na b c\n1 0 0\n0 1 0\n0 0 1\n", "G.txt:1: " + cause + " (2 in all, lines 1, 2)\n"}};
  for (const auto& [text, expected] : cases) {
    message_log log;
    EXPECT_TRUE(read(text, matrix_kind::inverse, log).element.empty());
    EXPECT_EQ(only_message(log), expected) << text;
  }
}

TEST(given_matrix, a_number_sign_in_headings_and_identifications_is_no_comment) {
  for (const std::string text :
       {"#id1 id2 v\na a 1\na b 0.5\nb b 1\n", "#1 #1 1\n#1 #2 0.5\n#2 #2 1\n", "# a b\n1 0.5\n0.5 1\n",
        "#a b\n1 0.5\n0.5 1\n", "#id a b\na 1 0.5\nb 0.5 1\n"}) {
    message_log log;
    EXPECT_EQ(read(text, matrix_kind::inverse, log).element.size(), 3U) << text << full_text(log);
  }
}

TEST(given_matrix, decimal_commas_are_one_error) {
  const std::string cause = "\" has a decimal comma; a matrix file takes decimal points";
  const std::vector<std::pair<std::string, std::string>> cases{
      {"a;a;1,5\na;b;0,5\nb;b;1\n", "G.txt:1: error: \"1,5" + cause + " (2 in all, lines 1, 2)\n"},
      {"a a 1\na b 0,5\nb b 1\n", "G.txt:2: error: \"0,5" + cause + "\n"},
      {"a\tb\n1,0\t0,5\n0,5\t1,0\n", "G.txt:2: error: \"1,0" + cause + " (2 in all, lines 2, 3)\n"}};
  for (const auto& [text, expected] : cases) {
    message_log log;
    EXPECT_TRUE(read(text, matrix_kind::inverse, log).element.empty());
    EXPECT_EQ(only_message(log), expected) << text;
  }
  message_log log; // commas between the values
  EXPECT_EQ(read("a,a,1\na, b, 0.5\nb,b,1\n", matrix_kind::inverse, log).element.size(), 3U)
      << full_text(log);
}

TEST(given_matrix, empty_and_absent_files_are_reported) {
  message_log empty, heading, absent;
  read(" \n\n", matrix_kind::inverse, empty);
  EXPECT_EQ(only_message(empty), "G.txt: error: the file is empty\n");
  read("id1 id2 value\n", matrix_kind::inverse, heading, matrix_form::triplets);
  EXPECT_EQ(only_message(heading), "G.txt: error: the file holds no elements\n");
  matrix_request request;
  request.file = "no/such/G.txt";
  read_given_matrix(request, absent);
  EXPECT_EQ(only_message(absent), "no/such/G.txt: error: the file can't be read: there is no such file\n");
}

TEST(given_matrix, correlations_other_than_one_on_the_diagonal_are_reported) {
  message_log log, good;
  read("a a 1.2\na b 0.5\nb b 1\n", matrix_kind::correlation, log);
  EXPECT_EQ(only_message(log),
            "G.txt: warning: the diagonal element of \"a\" is 1.2; that of a correlation matrix is 1\n");
  expect_equal(dense(read("a a 1\na b 0.5\nb b 1\n", matrix_kind::correlation, good)),
               {{4.0 / 3, -2.0 / 3}, {-2.0 / 3, 4.0 / 3}}, 1e-15);
  EXPECT_TRUE(good.entries.empty());
}

// x of C x = r by Gauss-Jordan elimination.
std::vector<double> solved(matrix c, std::vector<double> r) {
  const std::size_t n = r.size();
  for (std::size_t k = 0; k < n; ++k) {
    std::size_t best = k;
    for (std::size_t i = k; i < n; ++i)
      if (std::abs(c[i][k]) > std::abs(c[best][k])) best = i;
    std::swap(c[k], c[best]);
    std::swap(r[k], r[best]);
    for (std::size_t i = 0; i < n; ++i) {
      if (i == k) continue;
      const double f = c[i][k] / c[k][k];
      for (std::size_t j = k; j < n; ++j) c[i][j] -= f * c[k][j];
      r[i] -= f * r[k];
    }
  }
  for (std::size_t k = 0; k < n; ++k) r[k] /= c[k][k];
  return r;
}

TEST(given_matrix, published_solutions_of_a_dominance_model) {
  // Mrode 2014, example 12.1: variances 90 (additive), 80 (dominance), 120 (residual); solutions printed
  // there
  const std::vector<std::int32_t> sire{0, 0, 0, 0, 1, 3, 6, 0, 3, 3, 6, 6},
      dam{0, 0, 0, 0, 2, 4, 5, 5, 8, 8, 8, 8};
  pedigree p;
  p.sire = sire;
  p.dam = dam;
  p.line.assign(12, 0);
  for (int a = 1; a <= 12; ++a) p.identification.push_back(std::to_string(a));
  matrix add(13, std::vector<double>(13, 0.0)); // tabular, row and column 0: unknown
  for (std::size_t i = 1; i <= 12; ++i) {
    const auto s = static_cast<std::size_t>(sire[i - 1]), d = static_cast<std::size_t>(dam[i - 1]);
    for (std::size_t j = 1; j < i; ++j) add[i][j] = add[j][i] = 0.5 * (add[s][j] + add[d][j]);
    add[i][i] = 1.0 + 0.5 * add[s][d];
  }
  // d(i,j) = (a(s_i,s_j) a(d_i,d_j) + a(s_i,d_j) a(d_i,s_j)) / 4, 1 on the diagonal
  std::string text;
  for (std::size_t i = 1; i <= 12; ++i)
    for (std::size_t j = 1; j <= i; ++j) {
      const auto si = static_cast<std::size_t>(sire[i - 1]), di = static_cast<std::size_t>(dam[i - 1]);
      const auto sj = static_cast<std::size_t>(sire[j - 1]), dj = static_cast<std::size_t>(dam[j - 1]);
      const double d = i == j ? 1.0 : 0.25 * (add[si][sj] * add[di][dj] + add[si][dj] * add[di][sj]);
      text += fmt::format("{} {} {}\n", i, j, d);
    }
  message_log log;
  const matrix dinv = dense(read(text, matrix_kind::dominance, log));
  given_inverse a;
  a.identification = p.identification;
  a.element = a_inverse(p, inbreeding_of(p), group_place::after_animals, log);
  const matrix ainv = dense(a);
  EXPECT_TRUE(log.entries.empty()) << full_text(log);

  matrix c(26, std::vector<double>(26, 0.0)); // pens, additive 1..12, dominance 1..12
  std::vector<double> rhs(26, 0.0);
  const std::vector<double> y{17.0, 20.0, 18.0, 13.5, 20.0, 15.0, 25.0, 19.5}; // animals 5..12, pens 1 and 2
  for (std::size_t k = 0; k < 8; ++k)
    for (const std::size_t i : {k / 4, k + 6, k + 18}) {
      rhs[i] += y[k];
      for (const std::size_t j : {k / 4, k + 6, k + 18}) c[i][j] += 1.0;
    }
  for (std::size_t i = 0; i < 12; ++i)
    for (std::size_t j = 0; j < 12; ++j) {
      c[i + 2][j + 2] += 120.0 / 90.0 * ainv[i][j];
      c[i + 14][j + 14] += 120.0 / 80.0 * dinv[i][j];
    }
  const std::vector<double> printed{16.98,  20.03,  -0.160, -0.160, 0.059,  0.819,  -0.320, 1.259, 0.555,
                                    -0.998, -0.350, -1.350, 1.061,  -0.039, 0.0,    0.0,    0.0,   0.0,
                                    0.136,  0.705,  0.237,  -0.993, 0.0,    -1.333, 1.428,  -0.038};
  const std::vector<double> x = solved(c, rhs);
  for (std::size_t i = 0; i < 26; ++i) EXPECT_NEAR(x[i], printed[i], i < 2 ? 0.0051 : 0.00051) << i;
}

} // namespace
} // namespace zeph::prepare
