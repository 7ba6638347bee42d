// The fast body against the plain body: one round, or several, from a common
// state. The plain body is tested against full matrices (record_pass_test).
#include "gibbs/scan/residual_body.h"

#include "gibbs/matrices/covariance_draws.h"
#include "gibbs/residuals/fast_residual_pass.h"
#include "gibbs/residuals/residual_sums.h"
#include "gibbs/scan_case.h"

#include <cmath>
#include <functional>
#include <limits>
#include <set>

namespace {

using namespace zeph_test;

using change = std::function<void(two_trait_case&)>;

struct layout_of_case {
  bool weights = false, missing = false, groups = false;
};

// A started case; the plain body runs when `plain`.
struct body_case : two_trait_case {
  body_case(const layout_of_case& l, std::int32_t analysis_type, const change& make, bool plain)
      : two_trait_case(60, l.weights, l.missing, l.groups, 11) {
    heard_run quiet;
    mark_zero_covariances(m, s, quiet.report);
    EXPECT_EQ(ZEPHVAR_ALLOC(m, s, quiet.report), 0);
    fill_vec(f.asked.PDF, {9, 8, 9});
    fill_vec(f.asked.DDF, {4, 3, 0});
    count_group_records(m, design);
    number_sequence x(5);
    for (double& u : s.sol) u = x.between(-2, 2);
    SETALL(sources.combined, 12345, 67890);
    RMARIN(sources.marsaglia, 1802, 9373);
    f.asked.analysis_type = analysis_of(analysis_type);
    f.asked.isamp = 1000;
    f.asked.nburn = 1000;
    if (make) make(*this);
    scan_records r = records();
    if (analysis_type > 0) start_missing_traits(r);
    if (plain) work.body = scan_body::plain;
  }
  void round() {
    ++f.state.iround;
    scan_records r = records();
    GIBSCAN(r, f.asked, f.state, f.counts, files);
  }
};

void expect_near_all(const double* a, const double* b, std::int64_t n, double bound,
                     const std::string& what) {
  double size = 0;
  for (std::int64_t i = 0; i < n; ++i) size = std::max({size, std::fabs(a[i]), std::fabs(b[i])});
  for (std::int64_t i = 0; i < n; ++i) EXPECT_NEAR(a[i], b[i], bound * (size + 1e-300)) << what << " " << i;
}

void expect_same_rounds(const layout_of_case& l, std::int32_t analysis_type, const change& make = {},
                        int rounds = 5) {
  body_case plain(l, analysis_type, make, true), fast(l, analysis_type, make, false);
  for (int round = 1; round <= rounds; ++round) {
    plain.round();
    fast.round();
    ASSERT_EQ(fast.work.body, scan_body::fast);
    const std::string at = " type " + std::to_string(analysis_type) + " round " + std::to_string(round);
    for (std::int32_t g = 1; g <= plain.layout.ngroups && round == 1; ++g) {
      if (plain.layout.NGR(g, 2) == 0) continue;
      const std::int64_t base = plain.layout.group(g).base;
      for (std::int32_t level = 0; level < plain.layout.NGR(g, 1); ++level) {
        const std::int64_t e0 = base + level * plain.layout.group(g).stride;
        expect_near_all(plain.s.RHS.data() + e0, fast.s.RHS.data() + e0, plain.layout.NGR(g, 2), 1e-10,
                        "RHS of group " + std::to_string(g) + at);
      }
    }
    expect_near_all(plain.s.sol.data(), fast.s.sol.data(), plain.s.sol.size(), 1e-9, "sol" + at);
    expect_near_all(plain.s.sscp.data(), fast.s.sscp.data(), plain.s.sscp.size(), 1e-9, "sscp" + at);
    expect_near_all(plain.s.RCOV.data(), fast.s.RCOV.data(), plain.s.RCOV.size(), 1e-9, "RCOV" + at);
    expect_near_all(plain.s.GIF.data(), fast.s.GIF.data(), plain.s.GIF.size(), 1e-9, "GIF" + at);
    for (std::int64_t i = 0; i < plain.design.Y_M.size(); ++i) {
      if (std::isnan(plain.design.Y_M.data()[i])) continue;
      EXPECT_NEAR(plain.design.Y_M.data()[i], fast.design.Y_M.data()[i], 1e-5F) << "Y_M" << at;
    }
  }
}

const layout_of_case ALL_LAYOUTS[] = {{false, false, false}, {true, false, false}, {false, true, false},
                                      {false, false, true},  {true, true, false},  {false, true, true},
                                      {true, true, true}};

TEST(residual_body, makes_the_rounds_of_the_plain_body_with_weights_missing_traits_and_groups) {
  for (const layout_of_case& l : ALL_LAYOUTS)
    for (std::int32_t type = 0; type <= 4; ++type) expect_same_rounds(l, type);
}

TEST(residual_body, leaves_a_record_without_entries_out) {
  for (std::int32_t type = 0; type <= 3; ++type)
    expect_same_rounds({false, true, false}, type, [](two_trait_case& c) { c.design.M_M(2) = 0; });
}

TEST(residual_body, takes_restrictions_of_every_group_as_each_group_ends) {
  for (std::int32_t type = 0; type <= 2; ++type)
    expect_same_rounds({true, true, true}, type, [](two_trait_case& c) {
      c.s.IREST.take(4);
      c.s.n_IREST = 4;
      const std::int32_t restricted[] = {1, 6, 12, 18}; // start values that are not 0
      std::copy(restricted, restricted + 4, c.s.IREST.begin());
    });
}

TEST(residual_body, follows_a_smaller_model) {
  for (std::int32_t type = 1; type <= 3; ++type) {
    expect_same_rounds({true, true, false}, type,
                       [](two_trait_case& c) { c.layout.NGR(5, 2) = c.f.state.ntr[0] = 1; });
    expect_same_rounds({true, true, false}, type,
                       [](two_trait_case& c) { c.layout.NGR(6, 2) = c.f.state.ntr[1] = 0; });
  }
}

TEST(residual_body, follows_a_model_that_changes_between_rounds) {
  body_case plain({true, true, false}, 5, {}, true), fast({true, true, false}, 5, {}, false);
  for (int round = 1; round <= 6; ++round) {
    for (body_case* c : {&plain, &fast}) {
      c->layout.NGR(5, 2) = c->f.state.ntr[0] = 1 + round % 2;
      c->s.sol(10) = 0.1 * round; // a move of the model changes solutions between scans
      c->round();
    }
    expect_near_all(plain.s.sol.data(), fast.s.sol.data(), plain.s.sol.size(), 1e-9, "sol");
  }
}

TEST(residual_body, keeps_groups_that_are_not_to_be_updated) {
  for (std::int32_t type = 0; type <= 3; ++type)
    expect_same_rounds({false, true, false}, type,
                       [](two_trait_case& c) { c.f.state.gropd(3) = c.f.state.gropd(5) = 0; });
}

TEST(residual_body, takes_entries_without_trait_as_absent_above_type_0) {
  for (std::int32_t type = 1; type <= 3; ++type)
    expect_same_rounds({false, false, true}, type, [](two_trait_case& c) { c.design.XD2_M(2, 3) = 0; });
}

TEST(residual_body, takes_the_second_list_of_a_reduced_animal_model) {
  expect_same_rounds({false, false, false}, 3, [](two_trait_case& c) {
    c.m.RMAT(1).L_RAM = true;
    write_elements(c.directory / "AINV_RAM1",
                   {{1, 1, 1.5}, {2, 2, 1.0}, {3, 3, 2.0}, {4, 4, 1.25}, {4, 3, -0.5}});
    heard_run quiet(c.directory.path());
    c.relations = relationship_store{};
    read_relationships(c.m, c.relations, quiet.report);
  });
}

TEST(residual_body, sees_coefficients_of_mixtures_and_residual_groups_that_move) {
  for (const bool groups : {false, true}) {
    const change mixture = [](two_trait_case& c) {
      c.m.MODEL(2).TRAIT_TYPE = trait_mixture;
      for (std::int32_t r = 1; r <= c.design.nobs; ++r) c.design.XD6_M(1, r) = 2;
    };
    body_case plain({true, false, groups}, 1, mixture, true), fast({true, false, groups}, 1, mixture, false);
    for (int round = 1; round <= 4; ++round) {
      for (body_case* c : {&plain, &fast}) {
        for (std::int32_t r = 1; r <= c->design.nobs; ++r) {
          c->design.ZD_M(1, r) = (r + round) % 3 == 0 ? 1.0 : 0.0;
          if (groups) c->design.IRESG_M(r) = 1 + (r + round) % 2;
          c->design.Y_M(2, r) = static_cast<float>((r * round) % 5); // liabilities change too
        }
        c->round();
      }
      expect_near_all(plain.s.sol.data(), fast.s.sol.data(), plain.s.sol.size(), 1e-9, "sol");
    }
  }
}

TEST(residual_body, passes_what_is_there_for_a_missing_trait_in_the_solver) {
  expect_same_rounds({false, true, false}, 0, [](two_trait_case& c) {
    for (std::int32_t r = 1; r <= c.design.nobs; ++r)
      for (std::int32_t t = 1; t <= 2; ++t)
        if (!trait_present(c.design.ISIT_M(r), t, 2))
          c.design.Y_M(t, r) = std::numeric_limits<float>::quiet_NaN();
  });
}

// Every list that the form grows is asked for at the door of allocations.
TEST(residual_body, names_its_slots_terms_and_masks_when_they_can_not_be_stored) {
  const auto build = [](std::int64_t fail_at, std::int64_t& calls) {
    body_case c({false, true, true}, 3, {}, false);
    c.run.report.door = {0, fail_at};
    scan_records r = c.records();
    std::string text;
    if (fail_at == 0)
      build_residual_form(r, c.f.asked);
    else
      text = expect_stop(16, c.run, [&](reporting&) { build_residual_form(r, c.f.asked); });
    calls = c.run.report.door.calls;
    return text;
  };
  std::int64_t calls = 0, reached = 0;
  build(0, calls);
  std::set<std::string> names;
  const std::string label = "Trying to allocate memory for:  ";
  for (std::int64_t n = 1; n <= calls; ++n) {
    const std::string text = build(n, reached);
    const std::size_t at = text.find(label) + label.size();
    names.insert(text.substr(at, text.find('\n', at) - at));
    EXPECT_NE(text.find("Called in                    :  residual_form\n"), std::string::npos) << text;
  }
  for (const char* name : {"slots", "slot%head", "slot%place", "slot%size", "slot%row", "terms", "masks"})
    EXPECT_TRUE(names.contains(name)) << name;
}

TEST(residual_body, gives_way_to_the_plain_body_at_test_level_2) {
  for (const std::int32_t level : {1, 2}) {
    body_case c({false, false, false}, 1, {}, false);
    c.f.asked.test_level = level;
    scan_records r = c.records();
    const scan_body chosen = level == 2 ? scan_body::plain : scan_body::fast;
    EXPECT_EQ(body_of(r, c.f.asked), chosen);
    c.f.asked.test_level = 3 - level; // the choice is that of the run: asked once
    EXPECT_EQ(body_of(r, c.f.asked), chosen);
  }
}

TEST(residual_body, gives_way_where_entries_do_not_follow_the_numbering_of_their_group) {
  body_case c(
      {false, false, false}, 1, [](two_trait_case& d) { d.design.XD1_M(1, 1) = 2; }, false);
  scan_records r = c.records();
  EXPECT_EQ(body_of(r, c.f.asked), scan_body::plain);
  body_case untraited(
      {false, false, false}, 0, [](two_trait_case& d) { d.design.XD2_M(1, 1) = 0; }, false);
  scan_records q = untraited.records();
  EXPECT_EQ(body_of(q, untraited.f.asked), scan_body::plain);
}

#ifdef ZEPH_DEBUG_VIEWS
// Builds with checks hold the residuals against fresh ones in every hundredth round.
TEST(residual_body_death, a_residual_that_drifted_ends_the_process) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const double drift : {1e-14, 1e-3}) {
    body_case c({true, true, true}, 3, {}, false);
    for (int round = 1; round < 100; ++round) c.round();
    c.f.state.iround = 100;
    scan_records r = c.records();
    residual_body body;
    body.begin_round(r, c.f.asked, c.f.state, scan_stage::all);
    c.work.fast.E(7, 1) += drift;
    const auto enter = [&] { body.enter_group(r, c.f.asked, c.f.state, scan_stage::all, 1); };
    if (drift > 1e-9)
      EXPECT_DEATH(enter(), "residuals drifted by .* in round 100");
    else
      enter();
  }
}

// The same builds check each equation number that the walk over the records takes.
TEST(residual_body_death, an_equation_beyond_its_group_ends_the_process) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  body_case c({false, false, false}, 1, {}, false);
  c.round();
  scan_records r = c.records();
  residual_body body;
  body.begin_round(r, c.f.asked, c.f.state, scan_stage::all);
  const std::int64_t extent = std::int64_t{r.layout.NGR(1, 1)} * r.layout.group(1).stride;
  c.work.fast.groups[0].slots[0].row(1) = static_cast<std::int32_t>(extent);
  EXPECT_DEATH(body.enter_group(r, c.f.asked, c.f.state, scan_stage::all, 1),
               "array index [0-9]+ is outside 0\\.\\.");
}
#endif

// lik of a record far out: the density is 0 in 64 bits and its log infinite.
TEST(fast_residual_pass, scores_records_one_by_one_when_a_density_may_be_0) {
  for (const bool missing : {false, true})
    for (const float y : {200.0F, 52.5F}) { // 37 and more, and nearly so many standard deviations
      const change far = [y](two_trait_case& c) { c.design.Y_M(1, 5) = y; };
      body_case plain({false, missing, false}, 2, far, true), fast({false, missing, false}, 2, far, false);
      double lik[2] = {};
      for (int i = 0; i < 2; ++i) {
        body_case& c = i == 0 ? plain : fast;
        scan_records r = c.records();
        c.s.sscp.fill(0.0);
        EXPECT_EQ(body_of(r, c.f.asked) == scan_body::fast, i == 1);
        if (i == 0)
          Bddrmc_sscp(r, c.f.asked, c.f.state, lik[0]);
        else
          fast_residual_pass(r, c.f.asked, c.f.state, lik[1]);
      }
      if (std::isinf(lik[0]))
        EXPECT_EQ(lik[0], lik[1]);
      else
        EXPECT_NEAR(lik[0], lik[1], 1e-9 * lik[0]);
      EXPECT_EQ(std::isinf(lik[0]), y > 100.0F);
    }
}

// A variance below the tolerance of the sweeps leaves its row unswept: the trait is scored by
// what it shows alone, and says nothing of the missing ones.
TEST(fast_residual_pass, scores_and_imputes_beside_a_trait_of_next_to_no_variance) {
  const change tiny = [](two_trait_case& c) {
    for (std::int32_t h = 1; h <= c.s.G; ++h) {
      c.s.RCOV(1, 1, h) *= 1e-14;
      c.s.RCOV(1, 2, h) = c.s.RCOV(2, 1, h) = 0.5e-7 * c.s.RCOV(2, 2, h);
    }
    for (std::int32_t r = 1; r <= c.design.nobs; ++r) c.design.Y_M(1, r) *= 1e-7F;
    for (double& x : c.s.sol) x *= 1e-8;
  };
  body_case plain({false, true, false}, 2, tiny, true), fast({false, true, false}, 2, tiny, false);
  double lik[2] = {};
  scan_records r = plain.records(), q = fast.records();
  plain.s.sscp.fill(0.0);
  fast.s.sscp.fill(0.0);
  Bddrmc_sscp(r, plain.f.asked, plain.f.state, lik[0]);
  EXPECT_EQ(body_of(q, fast.f.asked), scan_body::fast);
  fast_residual_pass(q, fast.f.asked, fast.f.state, lik[1]);
  EXPECT_NEAR(lik[0], lik[1], 1e-6 * lik[0]);
  for (std::int64_t i = 0; i < plain.design.Y_M.size(); ++i) {
    const auto y = static_cast<double>(plain.design.Y_M.data()[i]);
    EXPECT_NEAR(y, static_cast<double>(fast.design.Y_M.data()[i]), 1e-5 * std::fabs(y));
  }
}

} // namespace
