// Trait deviations against their definitions, computed densely from the records
// that the test made itself: mean residual plus level solution; twice the
// progeny's deviation less the mate's solution, weighted by information.
#include "gibbs/residuals/trait_deviations.h"

#include "formats/free_format.h"

#include "gibbs/scan_case.h"

#include <cmath>

namespace {

using namespace zeph_test;

constexpr std::int32_t animals = 28, levels = 30; // levels 29 and 30 are parent groups

struct deviation_layout {
  std::int32_t nt = 1;
  bool missing = false, weights = false;
  bool swapped = false; // rows of the factor: trait 2 first
};

described_model described(const deviation_layout& l, std::int32_t records) {
  described_model d;
  d.traits.resize(static_cast<std::size_t>(l.nt));
  described_factor factor{"PED", levels, l.nt, {}};
  for (std::int32_t t = 1; t <= l.nt; ++t) {
    described_trait& trait = d.traits[static_cast<std::size_t>(t - 1)];
    trait.regressions = {{3}};
    trait.effects = {{1, 3}};
    if (l.weights) trait.weight_place = 4;
    factor.contributions.push_back({t, 2, l.swapped ? l.nt + 1 - t : t});
  }
  d.factors = {factor};
  d.integers = 6;
  d.reals = 4;
  d.records = records;
  d.residual = l.nt == 1 ? std::vector<double>{2.0} : std::vector<double>{2.0, 0.5, 0.5, 1.0};
  return d;
}

// A case of `records` records of animals with parents among those before them.
// Every seventh record has its dam in the factor too.
struct deviation_case : scan_case {
  deviation_layout l;
  std::vector<std::int32_t> animal, herd, second; // second: a further level of the factor, 0: none
  std::vector<double> age;
  std::vector<std::int32_t> sire, dam; // [level]
  deviation_store deviations;

  deviation_case(const deviation_layout& chosen, std::int32_t analysis_type, std::int32_t records = 60)
      : scan_case(described(chosen, records)), l(chosen) {
    std::vector<element> diagonal;
    for (std::int32_t i = 1; i <= levels; ++i) diagonal.push_back({i, i, 1.0});
    write_elements(directory / "AINV1", diagonal);
    start(8);
    f.asked.analysis_type = analysis_of(analysis_type);
    f.state.iround = 40;
    m.L_TD = m.L_PTD = true;
    m.TD_FACTOR = 1;
    design.G_TD_LEVEL.take(records);
    number_sequence x(17);
    for (double& u : s.sol) u = x.between(-2, 2);
    make_records(records, x);
    make_pedigree(x);
    heard_run quiet;
    allocate_deviations(m, deviations, quiet.report);
    count_level_records(m, design, deviations);
    count_progeny(m, relations, deviations);
  }

  void make_records(std::int32_t records, number_sequence& x) {
    for (std::int32_t r = 1; r <= records; ++r) {
      if (l.missing && r % 3 == 0) observe(r, l.nt == 1 ? 0 : 1 + (r / 3) % 2);
      animal.push_back(x.one_of(animals - 6) + 6); // animals 1 to 6 have no records
      herd.push_back(x.one_of(3));
      second.push_back(r % 7 == 0 ? x.one_of(levels) : 0);
      age.push_back(x.between(-1, 1));
      design.G_TD_LEVEL(r) = animal.back();
      for (std::int32_t t = 1; t <= l.nt; ++t) {
        design.Y_M(t, r) = static_cast<float>(x.between(-3, 5));
        if (l.weights) weigh(r, t, 0.5F * static_cast<float>(x.one_of(4)));
        if (!present(r, t)) continue;
        entry(r, t, 1, 1, t, age.back());
        entry(r, t, 1 + t, herd.back(), 1, 1.0);
        entry(r, t, 2 + l.nt, animal.back(), row(t), 1.0);
        if (second.back() > 0) entry(r, t, 2 + l.nt, second.back(), row(t), 0.5);
      }
    }
  }
  // Animals 7 and 8 have no parents, 9 and 10 one; those of 11 and 12 are a group
  // and an animal, and two groups.
  void make_pedigree(number_sequence& x) {
    sire.assign(levels + 1, 0);
    dam.assign(levels + 1, 0);
    for (std::int32_t a = 9; a <= animals; ++a) {
      sire[static_cast<std::size_t>(a)] = x.one_of(4);
      dam[static_cast<std::size_t>(a)] = 4 + x.one_of(a - 5);
    }
    dam[9] = 0;
    sire[10] = 0;
    sire[11] = -29;
    sire[12] = -29;
    dam[12] = -30;
    relations.pedmat.take(2, levels);
    relations.pedigree_factor = 1;
    for (std::int32_t a = 1; a <= levels; ++a) {
      relations.pedmat(1, a) = sire[static_cast<std::size_t>(a)];
      relations.pedmat(2, a) = dam[static_cast<std::size_t>(a)];
    }
  }

  bool present(std::int32_t r, std::int32_t t) const { return trait_present(design.ISIT_M(r), t, l.nt); }
  std::int32_t row(std::int32_t t) const { return l.swapped ? l.nt + 1 - t : t; }
  double u(std::int32_t level, std::int32_t t) const {
    return level == 0 ? 0.0 : s.sol(equation(2 + l.nt, level, row(t)));
  }
  void compute() {
    scan_records r = records();
    TD_PTD(r, f.asked, f.state, deviations);
  }
};

// The definitions, in full.
struct dense_deviations {
  const deviation_case& c;
  std::vector<dense_matrix> W;                  // [level]
  std::vector<std::vector<double>> TD, PTD;     // [level][t]
  std::vector<std::vector<std::int32_t>> n, np; // [level][t]

  explicit dense_deviations(const deviation_case& from) : c(from) {
    const std::size_t rows = levels + 1, nt = static_cast<std::size_t>(c.l.nt) + 1;
    W.assign(rows, dense_matrix(c.l.nt));
    TD.assign(rows, std::vector<double>(nt));
    PTD = TD;
    n.assign(rows, std::vector<std::int32_t>(nt));
    np = n;
    for (std::int32_t r = 1; r <= c.design.nobs; ++r) add_record(r);
    for (std::size_t a = 1; a < rows; ++a)
      for (std::size_t t = 1; t < nt; ++t)
        if (n[a][t] > 0)
          TD[a][t] = TD[a][t] / n[a][t] + c.u(static_cast<std::int32_t>(a), static_cast<std::int32_t>(t));
    for (std::size_t parent = 1; parent < rows; ++parent) find_progeny(static_cast<std::int32_t>(parent));
  }

  double root_weight(std::int32_t r, std::int32_t t) const {
    return static_cast<double>(c.design.WV_SQRT_M(t, r));
  }
  void add_record(std::int32_t r) {
    const std::size_t i = static_cast<std::size_t>(r - 1), a = static_cast<std::size_t>(c.animal[i]);
    const dense_matrix inverse = dense_equations::residual_inverse(c, r, c.f.asked.analysis_type);
    const double coefficients = c.second[i] > 0 ? 2.0 : 1.0;
    for (std::int32_t t = 1; t <= c.l.nt; ++t) {
      if (!c.present(r, t)) continue;
      double fitted = c.age[i] * c.s.sol(t) + c.s.sol(c.equation(1 + t, c.herd[i], 1)) + c.u(c.animal[i], t);
      if (c.second[i] > 0) fitted += 0.5 * c.u(c.second[i], t);
      TD[a][static_cast<std::size_t>(t)] +=
          root_weight(r, t) * (static_cast<double>(c.design.Y_M(t, r)) - fitted);
      ++n[a][static_cast<std::size_t>(t)];
      for (std::int32_t j = 1; j <= c.l.nt; ++j)
        if (c.present(r, j)) W[a](t, j) += coefficients * coefficients * inverse(t, j);
    }
  }
  void find_progeny(std::int32_t parent) {
    dense_matrix sum(c.l.nt);
    dense_vector right(c.l.nt);
    std::vector<std::int32_t>& count = np[static_cast<std::size_t>(parent)];
    for (std::size_t a = 1; a <= animals; ++a) {
      const std::int32_t s = std::abs(c.sire[a]), d = std::abs(c.dam[a]);
      if ((s != parent && d != parent) || (n[a][1] == 0 && (c.l.nt == 1 || n[a][2] == 0))) continue;
      const std::int32_t mate = s == parent ? d : s;
      const double w = mate > 0 ? 1.0 : static_cast<double>(2.0F / 3.0F);
      for (std::int32_t i = 1; i <= c.l.nt; ++i) {
        if (c.sire[a] == parent || c.dam[a] == parent) // not as a group
          count[static_cast<std::size_t>(i)] += n[a][static_cast<std::size_t>(i)] > 0;
        for (std::int32_t j = 1; j <= c.l.nt; ++j) {
          sum(i, j) += w * W[a](i, j);
          right(i) += w * W[a](i, j) * (2.0 * TD[a][static_cast<std::size_t>(j)] - c.u(mate, j));
        }
      }
    }
    for (std::int32_t i = 1; i <= c.l.nt; ++i)
      if (count[static_cast<std::size_t>(i)] == 0) sum(i, i) = 1.0; // apart from the others
    const dense_vector x = solve(sum, right);
    for (std::int32_t i = 1; i <= c.l.nt; ++i)
      if (count[static_cast<std::size_t>(i)] > 0)
        PTD[static_cast<std::size_t>(parent)][static_cast<std::size_t>(i)] = x(i);
  }
};

void expect_definitions(const deviation_layout& l, std::int32_t analysis_type) {
  deviation_case c(l, analysis_type);
  c.compute();
  const dense_deviations dense(c);
  int with_progeny = 0, without_records = 0;
  for (std::int32_t level = 1; level <= levels; ++level)
    for (std::int32_t t = 1; t <= l.nt; ++t) {
      const auto a = static_cast<std::size_t>(level), i = static_cast<std::size_t>(t);
      EXPECT_EQ(c.deviations.N_TD(t, level), dense.n[a][i]) << level;
      EXPECT_EQ(c.deviations.N_PTD(t, level), dense.np[a][i]) << level;
      EXPECT_NEAR(c.deviations.TD(t, level), dense.TD[a][i], 1e-10) << level;
      EXPECT_NEAR(c.deviations.PTD(t, level), dense.PTD[a][i], 1e-10) << level;
      EXPECT_NEAR(c.deviations.S_TD(t, level), dense.TD[a][i], 1e-10) << level;
      EXPECT_NEAR(c.deviations.SS_PTD(t, level), dense.PTD[a][i] * dense.PTD[a][i], 1e-9) << level;
      with_progeny += dense.np[a][i] > 0;
      without_records += dense.n[a][i] == 0;
    }
  EXPECT_GT(with_progeny, 8);
  EXPECT_GE(without_records, 8); // animals 1 to 6 and the groups
}

TEST(TD_PTD, follows_the_definitions_for_one_and_two_traits) {
  for (const std::int32_t type : {0, 1, 3})
    for (const bool weights : {false, true})
      for (const bool missing : {false, true}) {
        expect_definitions({1, missing, weights}, type);
        expect_definitions({2, missing, weights}, type);
        expect_definitions({2, missing, weights, true}, type);
      }
}

TEST(TD_PTD, changes_no_state_of_the_chain) {
  deviation_case c({2, true, true}, 3);
  const std::vector<double> sol(c.s.sol.begin(), c.s.sol.end());
  const std::vector<float> y(c.design.Y_M.begin(), c.design.Y_M.end());
  c.compute();
  EXPECT_TRUE(std::equal(sol.begin(), sol.end(), c.s.sol.begin()));
  EXPECT_TRUE(std::equal(y.begin(), y.end(), c.design.Y_M.begin()));
}

TEST(TD_PTD, sums_over_the_calls_and_begins_each_from_zero) {
  deviation_case c({2, true, false}, 3);
  c.compute();
  const double once = c.deviations.PTD(1, 3);
  ASSERT_NE(once, 0.0);
  c.compute();
  EXPECT_DOUBLE_EQ(c.deviations.PTD(1, 3), once);
  EXPECT_DOUBLE_EQ(c.deviations.S_PTD(1, 3), 2.0 * once);
  EXPECT_DOUBLE_EQ(c.deviations.SS_PTD(1, 3), 2.0 * once * once);
  EXPECT_EQ(c.deviations.calls, 2);
}

TEST(TD_PTD, gives_a_level_without_records_nothing_and_its_parents_nothing_from_it) {
  deviation_case c({1, false, false}, 3);
  c.relations.pedmat(1, 3) = 1; // animal 3 has no records
  c.compute();
  const double without = c.deviations.PTD(1, 1);
  c.relations.pedmat(1, 3) = 2;
  c.compute();
  EXPECT_DOUBLE_EQ(c.deviations.PTD(1, 1), without);
  EXPECT_EQ(c.deviations.TD(1, 3), 0.0);
  EXPECT_EQ(c.deviations.S_TD(1, 3), 0.0);
}

// One progeny with one record: W cancels, and so does the weight of 2/3 of a
// single parent: PTD = 2 TD - 0.
TEST(TD_PTD, takes_no_mate_where_one_parent_is_known) {
  deviation_case c({1, false, false}, 3);
  c.relations.pedmat.fill(0);
  c.relations.pedmat(2, 20) = 5;
  count_progeny(c.m, c.relations, c.deviations);
  ASSERT_GT(c.deviations.N_TD(1, 20), 0);
  c.compute();
  EXPECT_EQ(c.deviations.N_PTD(1, 5), 1);
  EXPECT_NEAR(c.deviations.PTD(1, 5), 2.0 * c.deviations.TD(1, 20), 1e-12);
}

TEST(TD_PTD, leaves_progeny_whose_information_is_singular_at_0) {
  deviation_case c({2, false, true}, 3);
  c.relations.pedmat.fill(0);
  c.relations.pedmat(1, 20) = 5;
  count_progeny(c.m, c.relations, c.deviations);
  for (std::int32_t r = 1; r <= c.design.nobs; ++r) c.weigh(r, 2, 0.0F); // trait 2 says nothing
  c.compute();
  EXPECT_EQ(c.deviations.N_PTD(2, 5), 1);
  EXPECT_EQ(c.deviations.PTD(1, 5), 0.0);
  EXPECT_EQ(c.deviations.PTD(2, 5), 0.0);
}

TEST(TD_PTD, passes_over_records_of_level_0) {
  deviation_case c({1, false, false}, 3);
  c.compute();
  const std::int32_t animal = c.animal[0];
  const double before = c.deviations.TD(1, animal);
  c.design.G_TD_LEVEL(1) = 0;
  count_level_records(c.m, c.design, c.deviations);
  c.compute();
  EXPECT_NE(c.deviations.TD(1, animal), before);
}

TEST(TD_PTD, writes_levels_with_more_progeny_than_the_limit_at_the_interval) {
  deviation_case c({2, false, false}, 3);
  c.m.PTD_INT = 20;
  c.m.PTD_LIMIT = 2;
  c.f.state.iround = 39;
  c.compute();
  EXPECT_FALSE(c.directory.has("PTD39"));
  c.f.state.iround = 40;
  c.compute();
  std::string expected;
  for (std::int32_t level = 1; level <= levels; ++level) {
    const std::int32_t n = std::max(c.deviations.N_PTD(1, level), c.deviations.N_PTD(2, level));
    if (n <= 2) continue;
    free_row row;
    row.i(level).i(c.deviations.N_PTD(1, level)).i(c.deviations.N_PTD(2, level));
    expected += row.r8(c.deviations.PTD(1, level)).r8(c.deviations.PTD(2, level)).str() + "\n";
  }
  ASSERT_FALSE(expected.empty());
  EXPECT_EQ(c.directory.read("PTD40"), expected);
  c.f.state.iround = 1234560; // seven digits
  c.compute();
  EXPECT_TRUE(c.directory.has("PTD1234560"));
}

TEST(TD_PTD, writes_no_file_of_progeny_when_none_are_wanted) {
  deviation_case c({1, false, false}, 3);
  c.m.PTD_INT = 20;
  c.deviations.progeny = false;
  c.compute();
  EXPECT_FALSE(c.directory.has("PTD40"));
}

// A group counts as the mate of a parent by its absolute value; of its own it has
// no progeny, no PTD, no sums and no row, whatever the limit.
TEST(TD_PTD, gives_parent_groups_nothing_of_their_own) {
  deviation_case c({1, false, false}, 3);
  c.m.PTD_INT = 1;
  c.m.PTD_LIMIT = 0;
  c.compute();
  for (const std::int32_t group : {29, 30}) {
    EXPECT_EQ(c.deviations.N_PTD(1, group), 0);
    EXPECT_EQ(c.deviations.PTD(1, group), 0.0);
    EXPECT_EQ(c.deviations.S_PTD(1, group), 0.0);
  }
  std::istringstream rows(c.directory.read("PTD40"));
  int listed = 0;
  for (std::string row; std::getline(rows, row); ++listed) EXPECT_LT(std::stoi(row), 29) << row;
  EXPECT_GT(listed, 8);
  // 11 has a group and dam 4+: the dam's deviation is the same when the group is an animal
  const std::int32_t dam = c.dam[11];
  const double with_group = c.deviations.PTD(1, dam);
  c.relations.pedmat(1, 11) = 29;
  c.compute();
  EXPECT_EQ(c.deviations.PTD(1, dam), with_group);
}

TEST(TD_PTD, finds_no_progeny_without_a_pedigree) {
  deviation_case c({1, false, false}, 3);
  c.relations.pedigree_factor = 0;
  c.deviations.N_PTD.fill(0);
  count_progeny(c.m, c.relations, c.deviations);
  c.compute();
  for (std::int32_t level = 1; level <= levels; ++level) EXPECT_EQ(c.deviations.PTD(1, level), 0.0);
}

} // namespace
