// Inbreeding and A inverse against published numbers and against the dense relationship matrix, which is made
// here by the tabular method (Henderson 1976) and inverted by Gauss-Jordan elimination.
#include "prepare/parts/pedigree_inverse.h"
#include "prepare/tables/csv_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace zeph::prepare {
namespace {

using matrix = std::vector<std::vector<double>>; // [row][column], from 0

matrix zeros(std::size_t n, std::size_t m) { return matrix(n, std::vector<double>(m, 0.0)); }

// a(i,j) = (a(s_i,j) + a(d_i,j)) / 2 for j < i, a(i,i) = 1 + a(s_i,d_i) / 2
matrix tabular(const pedigree& p) {
  const auto n = static_cast<std::size_t>(p.n_animals());
  matrix a = zeros(n, n);
  const auto at = [&](std::int32_t i, std::size_t j) {
    return i > 0 ? a[static_cast<std::size_t>(i - 1)][j] : 0.0;
  };
  for (std::size_t i = 0; i < n; ++i) {
    for (std::size_t j = 0; j < i; ++j) a[i][j] = a[j][i] = 0.5 * (at(p.sire[i], j) + at(p.dam[i], j));
    a[i][i] = 1.0;
    if (p.sire[i] > 0 && p.dam[i] > 0) a[i][i] += 0.5 * at(p.sire[i], static_cast<std::size_t>(p.dam[i] - 1));
  }
  return a;
}

matrix inverse(matrix a) {
  const std::size_t n = a.size();
  matrix b = zeros(n, n);
  for (std::size_t i = 0; i < n; ++i) b[i][i] = 1.0;
  for (std::size_t c = 0; c < n; ++c) {
    std::size_t best = c;
    for (std::size_t i = c; i < n; ++i)
      if (std::abs(a[i][c]) > std::abs(a[best][c])) best = i;
    std::swap(a[c], a[best]);
    std::swap(b[c], b[best]);
    const double pivot = a[c][c];
    for (std::size_t j = 0; j < n; ++j) {
      a[c][j] /= pivot;
      b[c][j] /= pivot;
    }
    for (std::size_t i = 0; i < n; ++i) {
      const double f = a[i][c];
      if (i == c || f == 0.0) continue;
      for (std::size_t j = 0; j < n; ++j) {
        a[i][j] -= f * a[c][j];
        b[i][j] -= f * b[c][j];
      }
    }
  }
  return b;
}

matrix dense(const std::vector<matrix_element>& element, std::size_t n) {
  matrix a = zeros(n, n);
  for (const matrix_element& e : element) {
    const auto i = static_cast<std::size_t>(e.i - 1), j = static_cast<std::size_t>(e.j - 1);
    a[i][j] = a[j][i] = e.v;
  }
  return a;
}

double largest_difference(const matrix& a, const matrix& b) {
  double d = 0.0;
  for (std::size_t i = 0; i < a.size(); ++i)
    for (std::size_t j = 0; j < a[i].size(); ++j) d = std::max(d, std::abs(a[i][j] - b[i][j]));
  return d;
}

// Sorted, lower triangle, no pair twice, all diagonals.
void expect_in_order(const std::vector<matrix_element>& element, std::int32_t n) {
  std::int32_t diagonals = 0;
  for (std::size_t k = 0; k < element.size(); ++k) {
    ASSERT_GE(element[k].i, element[k].j);
    ASSERT_GE(element[k].j, 1);
    ASSERT_LE(element[k].i, n);
    if (k > 0) {
      ASSERT_LT(std::pair(element[k - 1].i, element[k - 1].j), std::pair(element[k].i, element[k].j));
    }
    if (element[k].i == element[k].j) ++diagonals;
  }
  EXPECT_EQ(diagonals, n);
}

pedigree read(const std::string& text, const pedigree_request& request = {}) {
  message_log log;
  const csv_columns t = read_csv_text(text, "pedigree.csv", request.layout, log);
  pedigree p = pedigree_of_table(t, request, log);
  EXPECT_EQ(count_of(log, severity::error), 0) << full_text(log);
  return p;
}

// n animals of few parents (hence inbred), the lines in mixed order; parents unknown in one of `unknown`
// cases, when they are groups G1.. of n_groups, if there are any.
pedigree random_pedigree(int n, unsigned unknown, unsigned n_groups, unsigned seed, bool selfing = false) {
  std::mt19937 draw(seed);
  std::vector<std::string> line;
  for (int a = 1; a <= n; ++a) {
    std::string text = std::to_string(a);
    for (int sex = 0; sex < 2; ++sex) {
      const auto reach = static_cast<unsigned>(std::min(a - 1, 25)); // young parents
      int parent = reach == 0 ? 0 : a - 1 - static_cast<int>(draw() % reach);
      if (!selfing && parent > 0 && parent % 2 != sex) --parent; // odd and even are the sexes
      if (draw() % unknown == 0) parent = 0;
      if (parent > 0)
        text += "," + std::to_string(parent);
      else
        text += n_groups > 0 && draw() % 4 != 0 ? ",G" + std::to_string(1 + draw() % n_groups) : ",0";
    }
    line.push_back(text + "\n");
  }
  for (std::size_t k = line.size(); k-- > 1;) std::swap(line[k], line[draw() % (k + 1)]);
  std::string text = "animal,sire,dam\n";
  for (const std::string& l : line) text += l;
  pedigree_request request;
  request.group_pattern = n_groups > 0 ? "G*" : "";
  request.selfing = selfing;
  return read(text, request);
}

const std::string mrode_2_1 = "animal,sire,dam\n1,0,0\n2,0,0\n3,1,2\n4,1,0\n5,4,3\n6,5,2\n";
const std::string mrode_3_1 = "animal,sire,dam\n1,0,0\n2,0,0\n3,0,0\n4,1,0\n5,3,2\n6,1,2\n7,4,5\n8,3,6\n";

TEST(pedigree_inverse, inbreeding_of_a_published_pedigree) {
  // Mrode 2014, table 2.1 and the matrix below it: a(5,5) = a(6,6) = 1.125
  EXPECT_EQ(inbreeding_of(read(mrode_2_1)), (std::vector<double>{0, 0, 0, 0, 0.125, 0.125}));
}

TEST(pedigree_inverse, inverse_of_a_published_pedigree) {
  // Mrode 2014, example 2.4; by hand 1/d = 1 1 2 4/3 2 32/15, as d(6) = 1/2 - 0.125/4
  const pedigree p = read(mrode_2_1);
  message_log log;
  const auto element = a_inverse(p, inbreeding_of(p), group_place::after_animals, log);
  const double b4 = 4.0 / 3.0, b6 = 32.0 / 15.0;
  const matrix expected{{1.5 + b4 / 4, 0.5, -1, -b4 / 2, 0, 0},
                        {0.5, 1.5 + b6 / 4, -1, 0, b6 / 4, -b6 / 2},
                        {-1, -1, 2.5, 0.5, -1, 0},
                        {-b4 / 2, 0, 0.5, b4 + 0.5, -1, 0},
                        {0, b6 / 4, -1, -1, 2 + b6 / 4, -b6 / 2},
                        {0, -b6 / 2, 0, 0, -b6 / 2, b6}};
  EXPECT_LT(largest_difference(dense(element, 6), expected), 1e-14);
  EXPECT_NEAR(element[2].v, 2.033, 0.0005); // (2,2) as printed
  expect_in_order(element, 6);
}

TEST(pedigree_inverse, published_solutions_of_an_animal_model) {
  // Mrode 2014, example 3.1: variances 20 and 40, so the ratio is 2; solutions printed there
  const pedigree p = read(mrode_3_1);
  message_log log;
  const matrix ainv = dense(a_inverse(p, inbreeding_of(p), group_place::after_animals, log), 8);
  matrix c = zeros(10, 10); // males, females, animals 1..8
  std::vector<double> rhs(10, 0.0);
  const std::vector<std::tuple<std::size_t, std::size_t, double>> records{
      {4, 0, 4.5}, {5, 1, 2.9}, {6, 1, 3.9}, {7, 0, 3.5}, {8, 0, 5.0}};
  for (const auto& [animal, sex, y] : records) {
    for (const std::size_t i : {sex, animal + 1}) {
      rhs[i] += y;
      for (const std::size_t j : {sex, animal + 1}) c[i][j] += 1.0;
    }
  }
  for (std::size_t i = 0; i < 8; ++i)
    for (std::size_t j = 0; j < 8; ++j) c[i + 2][j + 2] += 2.0 * ainv[i][j];
  const matrix ci = inverse(c);
  const std::vector<double> printed{4.358,  3.404,  0.098, -0.019, -0.041,
                                    -0.009, -0.186, 0.177, -0.249, 0.183};
  for (std::size_t i = 0; i < 10; ++i) {
    double x = 0.0;
    for (std::size_t j = 0; j < 10; ++j) x += ci[i][j] * rhs[j];
    EXPECT_NEAR(x, printed[i], 0.00051) << i;
  }
}

TEST(pedigree_inverse, published_solutions_with_phantom_groups) {
  // Mrode 2014, example 3.4: group 1 set to 0; solutions printed there
  pedigree_request request;
  request.groups = {"G1", "G2"};
  const pedigree p =
      read("animal,sire,dam\n1,G1,G2\n2,G1,G2\n3,G1,G2\n4,1,G2\n5,3,2\n6,1,2\n7,4,5\n8,3,6\n", request);
  message_log log;
  const auto element = a_inverse(p, inbreeding_of(p), group_place::after_animals, log);
  expect_in_order(element, 10);
  const matrix ainv = dense(element, 10);
  matrix c = zeros(12, 12); // males, females, animals 1..8, groups
  std::vector<double> rhs(12, 0.0);
  const std::vector<std::tuple<std::size_t, std::size_t, double>> records{
      {4, 0, 4.5}, {5, 1, 2.9}, {6, 1, 3.9}, {7, 0, 3.5}, {8, 0, 5.0}};
  for (const auto& [animal, sex, y] : records)
    for (const std::size_t i : {sex, animal + 1}) {
      rhs[i] += y;
      for (const std::size_t j : {sex, animal + 1}) c[i][j] += 1.0;
    }
  for (std::size_t i = 0; i < 10; ++i)
    for (std::size_t j = 0; j < 10; ++j) c[i + 2][j + 2] += 2.0 * ainv[i][j];
  for (std::size_t i = 0; i < 12; ++i) c[i][10] = c[10][i] = i == 10 ? 1.0 : 0.0; // G1 = 0
  const matrix ci = inverse(c);
  const std::vector<double> printed{5.458,  4.313,  -0.767, -0.923, -0.963, -1.268,
                                    -1.099, -0.728, -1.338, -0.768, 0.0,    -1.769};
  for (std::size_t i = 0; i < 12; ++i) {
    double x = 0.0;
    for (std::size_t j = 0; j < 12; ++j) x += ci[i][j] * rhs[j];
    EXPECT_NEAR(x, printed[i], 0.00051) << i;
  }
}

TEST(pedigree_inverse, agrees_with_the_tabular_matrix_on_random_pedigrees) {
  for (const auto& [n, unknown, seed] : {std::tuple{30, 5U, 1U},
                                         {80, 12U, 2U},
                                         {120, 40U, 3U},
                                         {200, 20U, 4U},
                                         {200, 60U, 5U},
                                         {200, 3U, 6U}}) {
    const pedigree p = random_pedigree(n, unknown, 0, seed);
    const auto order = static_cast<std::size_t>(n);
    const matrix a = tabular(p);
    const std::vector<double> f = inbreeding_of(p);
    double inbred = 0.0;
    for (std::size_t i = 0; i < order; ++i) {
      EXPECT_NEAR(f[i], a[i][i] - 1.0, 1e-12);
      inbred = std::max(inbred, f[i]);
    }
    EXPECT_GT(inbred, 0.05);
    message_log log;
    const auto element = a_inverse(p, f, group_place::after_animals, log);
    expect_in_order(element, n);
    EXPECT_LT(largest_difference(dense(element, order), inverse(a)), 1e-10) << seed;
  }
}

TEST(pedigree_inverse, agrees_with_the_tabular_matrix_when_plants_self) {
  const pedigree p = random_pedigree(60, 10, 0, 7, true);
  EXPECT_FALSE(std::equal(p.sire.begin(), p.sire.end(), p.dam.begin(),
                          [](std::int32_t s, std::int32_t d) { return s != d || s == 0; }));
  const matrix a = tabular(p);
  const std::vector<double> f = inbreeding_of(p);
  for (std::size_t i = 0; i < 60; ++i) EXPECT_NEAR(f[i], a[i][i] - 1.0, 1e-12);
  message_log log;
  const auto element = a_inverse(p, f, group_place::after_animals, log);
  EXPECT_LT(largest_difference(dense(element, 60), inverse(a)), 1e-9);
}

TEST(pedigree_inverse, selfed_animal_by_hand) {
  // F(2) = 1/2; d(2) = 1/2; A = [1 1; 1 3/2], its inverse [3 -2; -2 2]
  pedigree_request request;
  request.selfing = true;
  const pedigree p = read("animal,sire,dam\n1,0,0\n2,1,1\n", request);
  EXPECT_EQ(inbreeding_of(p), (std::vector<double>{0, 0.5}));
  message_log log;
  EXPECT_LT(largest_difference(dense(a_inverse(p, inbreeding_of(p), group_place::after_animals, log), 2),
                               {{3, -2}, {-2, 2}}),
            1e-15);
}

TEST(pedigree_inverse, groups_agree_with_the_dense_formula) {
  // Quaas 1988: with Q the share of each group in each animal and B the inverse of A (groups unknown),
  // the matrix of (animals, groups) is [B, -BQ; -Q'B, Q'BQ]
  for (const unsigned seed : {11U, 12U, 13U}) {
    const pedigree p = random_pedigree(100, 6, 4, seed);
    ASSERT_EQ(p.n_groups(), 4);
    const std::size_t n = 100, g = 4;
    matrix q = zeros(n, g);
    for (std::size_t a = 0; a < n; ++a)
      for (const std::int32_t parent : {p.sire[a], p.dam[a]})
        for (std::size_t k = 0; k < g; ++k) {
          if (parent > 0) q[a][k] += 0.5 * q[static_cast<std::size_t>(parent - 1)][k];
          if (parent == -static_cast<std::int32_t>(k + 1)) q[a][k] += 0.5;
        }
    const matrix b = inverse(tabular(p));
    matrix t = zeros(n + g, n); // T = [I, -Q]
    for (std::size_t a = 0; a < n; ++a) {
      t[a][a] = 1.0;
      for (std::size_t k = 0; k < g; ++k) t[n + k][a] = -q[a][k];
    }
    matrix expected = zeros(n + g, n + g);
    for (std::size_t i = 0; i < n + g; ++i)
      for (std::size_t k = 0; k < n; ++k) {
        double x = 0.0;
        for (std::size_t h = 0; h < n; ++h) x += t[i][h] * b[h][k];
        for (std::size_t j = 0; j < n + g; ++j) expected[i][j] += x * t[j][k];
      }
    message_log log;
    const auto after = a_inverse(p, inbreeding_of(p), group_place::after_animals, log);
    expect_in_order(after, 104);
    EXPECT_LT(largest_difference(dense(after, n + g), expected), 1e-10) << seed;

    const auto before = a_inverse(p, inbreeding_of(p), group_place::before_animals, log);
    expect_in_order(before, 104);
    const matrix moved = dense(before, n + g);
    const auto place = [&](std::size_t i) { return i < n ? i + g : i - n; };
    for (std::size_t i = 0; i < n + g; ++i)
      for (std::size_t j = 0; j < n + g; ++j) ASSERT_NEAR(moved[place(i)][place(j)], expected[i][j], 1e-10);
  }
}

TEST(pedigree_inverse, one_group_for_both_parents_by_hand) {
  // d = 1: rows animal (1, -1), group (-1, 1)
  pedigree_request request;
  request.groups = {"G"};
  const pedigree p = read("animal,sire,dam\n1,G,G\n", request);
  message_log log;
  const auto element = a_inverse(p, inbreeding_of(p), group_place::after_animals, log);
  EXPECT_LT(largest_difference(dense(element, 2), {{1, -1}, {-1, 1}}), 1e-15);
}

TEST(pedigree_inverse, inbreeding_left_out_gives_the_plain_rules) {
  // 1/d is 1, 4/3 or 2 by the number of known parents alone
  const pedigree p = read(mrode_2_1);
  EXPECT_EQ(mendelian_variance_of(p, {}), (std::vector<double>{1, 1, 0.5, 0.75, 0.5, 0.5}));
  EXPECT_EQ(mendelian_variance_of(p, inbreeding_of(p)), (std::vector<double>{1, 1, 0.5, 0.75, 0.5, 0.46875}));
  message_log log;
  const matrix a = dense(a_inverse(p, {}, group_place::after_animals, log), 6);
  EXPECT_DOUBLE_EQ(a[5][5], 2.0);
  EXPECT_DOUBLE_EQ(a[4][5], -1.0);
  EXPECT_DOUBLE_EQ(a[1][1], 2.0);
}

TEST(pedigree_inverse, full_sibs_share_their_coefficient) {
  const pedigree p = read("animal,sire,dam\ns,0,0\nd,0,0\na,s,d\nb,s,d\nc,a,b\ne,a,b\nf,a,b\n");
  const std::vector<double> f = inbreeding_of(p); // full-sib mating: 1/4
  for (const char* id : {"c", "e", "f"}) EXPECT_EQ(f[static_cast<std::size_t>(p.number_of.at(id) - 1)], 0.25);
}

TEST(pedigree_inverse, continued_full_sib_mating_follows_its_recursion) {
  // F(t) = 1/4 + F(t-1)/2 + F(t-2)/4 (Wright 1921)
  std::string text = "animal,sire,dam\nm0,0,0\nf0,0,0\n";
  for (int t = 1; t <= 30; ++t)
    for (const std::string sex : {"m", "f"})
      text += sex + std::to_string(t) + ",m" + std::to_string(t - 1) + ",f" + std::to_string(t - 1) + "\n";
  const pedigree p = read(text);
  const std::vector<double> f = inbreeding_of(p);
  double last = 0.0, before = 0.0;
  for (int t = 2; t <= 30; ++t) {
    const double now = 0.25 + 0.5 * last + 0.25 * before;
    EXPECT_NEAR(f[static_cast<std::size_t>(p.number_of.at("m" + std::to_string(t)) - 1)], now, 1e-12);
    before = last;
    last = now;
  }
}

TEST(pedigree_inverse, complete_inbreeding_has_no_inverse) {
  pedigree_request request;
  request.selfing = true;
  std::string text = "animal,sire,dam\n0a,0,0\n"; // d halves with every selfing
  for (int t = 1; t <= 60; ++t)
    text += std::to_string(t) + "a," + std::to_string(t - 1) + "a," + std::to_string(t - 1) + "a\n";
  const pedigree p = read(text, request);
  message_log log;
  EXPECT_TRUE(a_inverse(p, inbreeding_of(p), group_place::after_animals, log).empty());
  ASSERT_FALSE(log.entries.empty());
  EXPECT_NE(log.entries[0].text.find("no Mendelian variance"), std::string::npos);
}

TEST(pedigree_inverse, parents_of_levels_mark_groups_by_a_minus) {
  pedigree_request request;
  request.groups = {"G1", "G2"};
  const pedigree p = read("animal,sire,dam\n1,G1,G2\n2,0,G2\n3,1,2\n", request);
  EXPECT_EQ(parents_of_levels(p, group_place::after_animals),
            (std::vector<std::int32_t>{-4, -5, 0, -5, 1, 2, 0, 0, 0, 0}));
  EXPECT_EQ(parents_of_levels(p, group_place::before_animals),
            (std::vector<std::int32_t>{0, 0, 0, 0, -1, -2, 0, -2, 3, 4}));
}

TEST(pedigree_inverse, relationship_block_is_part_of_the_tabular_matrix) {
  for (const unsigned seed : {21U, 22U}) {
    const pedigree p = random_pedigree(150, 15, 0, seed);
    const matrix a = tabular(p);
    const std::vector<std::int32_t> animals{150, 3, 77, 120, 121, 9};
    const std::vector<double> block = relationship_block(p, inbreeding_of(p), animals);
    for (std::size_t i = 0; i < animals.size(); ++i)
      for (std::size_t j = 0; j < animals.size(); ++j)
        EXPECT_NEAR(block[j * animals.size() + i],
                    a[static_cast<std::size_t>(animals[i] - 1)][static_cast<std::size_t>(animals[j] - 1)],
                    1e-12);
  }
}

TEST(pedigree_inverse, an_empty_pedigree_gives_nothing) {
  const pedigree none;
  message_log log;
  EXPECT_TRUE(inbreeding_of(none).empty());
  EXPECT_TRUE(a_inverse(none, {}, group_place::after_animals, log).empty());
  EXPECT_TRUE(log.entries.empty());
}

} // namespace
} // namespace zeph::prepare
