// A run with covariables made from solutions, 22 equations in 6 groups:
//   group 1  equations  1- 2  plain regressions of trait 1, of trait 2 (turned)
//   group 2  equations  3- 4  regression of trait 2 nested in sex (turned)
//   group 3  equations  5- 9  herd of trait 1, source of the plain regression
//   group 4  equations 10-11  sex of trait 2
//   group 5  equations 12-19  factor 1, "PED", 4 animals, order 2
//   group 6  equations 20-22  factor 2, "I", 3 pens of trait 1, source of the
//                             nested regression, with covariable x3 as base
// Each level of a group occurs once in a record.
#pragma once

#include "gibbs/scan_case.h"
#include "input/class_effect_covariates.h"

namespace zeph_test {

struct staged_options {
  bool weights = false, missing = false, groups = false;
  std::int32_t stdef = 0;
  bool related = false; // the second source is the animal's solution for trait 2, not the pen
};

inline described_model staged_description(const staged_options& o, std::int32_t records) {
  described_model d;
  d.traits.resize(2);
  d.traits[0].regressions = {{3}};
  d.traits[0].effects = {{1, 5}};
  d.traits[1].regressions = {{4}, {5, 1, 1}};
  d.traits[1].effects = {{2, 2}};
  if (o.weights) d.traits[0].weight_place = 3;
  d.factors = {{"PED", 4, 2, {{1, 3, 1}, {2, 3, 2}}}, {"I", 3, 1, {{1, 4, 1}}}};
  d.integers = 7;
  d.reals = 5;
  d.records = records;
  d.residual = {2.0, 0.5, 0.5, 1.0};
  if (o.groups) {
    d.group_place = 4;
    d.residual_groups = 2;
  }
  return d;
}

// Input numbers of the effects of a trait: 100 and the place of the level for
// class effects, the same for the random effect in `place` with factor k.
inline void number_effects(trait_record& t, std::int32_t place, std::int32_t k) {
  t.n_r = 1;
  t.n_ef = t.n_f + 1;
  t.EF_INP.take(t.n_ef);
  for (vec<std::int32_t>* x : {&t.r_ef_inp, &t.r_ef_rci, &t.r_ef_matno, &t.carried.ass_rf}) x->take(1);
  for (std::int32_t j = 1; j <= t.n_f; ++j) t.EF_INP(j) = t.f_ef_inp(j) = 100 + t.f_ef_rci(j);
  t.EF_INP(t.n_ef) = t.r_ef_inp(1) = 100 + place;
  t.r_ef_rci(1) = place;
  t.r_ef_matno(1) = k;
}

struct staged_record {
  std::int32_t herd, sex, animal, pen;
  float x3, x4, x5;
};

struct staged_case : scan_case {
  staged_options o;
  std::vector<staged_record> rows;

  explicit staged_case(const staged_options& chosen, std::int32_t analysis_type, std::int32_t records = 60)
      : scan_case(staged_description(chosen, records)), o(chosen) {
    const double gif[4] = {2.0, 0.5, 0.5, 1.25};
    std::copy(gif, gif + 4, m.RMAT(1).GIF.begin());
    m.RMAT(2).GIF(1, 1) = 3.0;
    for (std::int32_t h = 1; o.groups && h <= 2; ++h) set_group_matrix(m, h, group_matrix(h));
    write_elements(directory / "AINV1", four_level_inverse());
    number_effects(m.MODEL(1), 4, 2);
    number_effects(m.MODEL(2), 3, 1);
    start(10);
    f.asked.analysis_type = analysis_of(analysis_type);
    f.asked.stdef = o.stdef;
    f.asked.FETOCV = {{1, 1, 1, {4}, {0}}, {o.related ? 2 : 1, 2, 1, {5}, {3}}};
    f.asked.nfeto = 2;
    number_sequence x(23);
    make_records(records, x);
    for (double& u : s.sol) u = x.between(-2, 2);
    heard_run quiet;
    FETOCV(m, layout, f.asked, "DIR", design, quiet.report);
    for (std::int32_t r = 1; r <= records; ++r) keep(r, quiet.report);
    mark_zero_covariances(m, s, quiet.report);
    EXPECT_EQ(ZEPHVAR_ALLOC(m, s, quiet.report), 0);
    fill_vec(f.asked.PDF, {9, 8, 9});
    fill_vec(f.asked.DDF, {4, 3, 0});
    count_group_records(m, design);
    SETALL(sources.combined, 12345, 67890);
    RMARIN(sources.marsaglia, 1802, 9373);
    f.asked.isamp = f.asked.nburn = 100000;
  }

  void make_records(std::int32_t records, number_sequence& x) {
    for (std::int32_t r = 1; r <= records; ++r) {
      if (o.missing && r % 4 == 0) observe(r, 1 + (r / 4) % 2);
      if (o.groups) design.IRESG_M(r) = x.one_of(2);
      for (std::int32_t t = 1; t <= 2; ++t) {
        design.Y_M(t, r) = static_cast<float>(x.between(-3, 5));
        if (o.weights) weigh(r, t, 0.5F * static_cast<float>(x.one_of(4)));
      }
      const auto real = [&](double low, double high) { return static_cast<float>(x.between(low, high)); };
      rows.push_back(
          {x.one_of(5), x.one_of(2), x.one_of(4), x.one_of(3), real(-1, 1), real(0, 2), real(0, 1)});
      if (r % 9 == 0) rows.back().herd = 0; // no level: the covariable is 0
      enter(r, rows.back());
    }
  }
  void enter(std::int32_t r, const staged_record& row) {
    if (trait_present(design.ISIT_M(r), 1, 2)) {
      entry(r, 1, 1, 1, 1, static_cast<double>(row.x3));
      if (row.herd > 0) entry(r, 1, 3, row.herd, 1, 1.0);
      entry(r, 1, 5, row.animal, 1, 1.0);
      entry(r, 1, 6, row.pen, 1, 1.0);
    }
    if (!trait_present(design.ISIT_M(r), 2, 2)) return;
    entry(r, 2, 1, 1, 2, static_cast<double>(row.x4));
    entry(r, 2, 2, row.sex, 1, static_cast<double>(row.x5));
    entry(r, 2, 4, row.sex, 1, 1.0);
    entry(r, 2, 5, row.animal, 2, 1.0);
  }
  void keep(std::int32_t r, reporting& report) {
    const staged_record& row = rows[static_cast<std::size_t>(r - 1)];
    vec<std::int32_t> IINP;
    vec<float> RINP;
    fill_vec(IINP, {row.herd, row.sex, row.animal, row.pen, 0, 0, 0});
    fill_vec(RINP, {0.0F, 0.0F, row.x3, row.x4, row.x5});
    keep_covariates(r, IINP, RINP, design, report);
  }

  // Observations that follow the model: herds, pens and animals of trait 1, and what
  // they do to trait 2.
  void follow_the_model() {
    number_sequence x(31);
    for (std::int32_t r = 1; r <= design.nobs; ++r) {
      const staged_record& row = rows[static_cast<std::size_t>(r - 1)];
      const double herd = row.herd > 0 ? 2.0 * row.herd - 6.0 : 0.0, pen = 1.5 * row.pen - 3.0;
      const double animal = 0.75 * row.animal - 1.875, x4 = static_cast<double>(row.x4);
      const double effect = static_cast<double>(row.x3) * (o.related ? animal : pen);
      design.Y_M(1, r) = static_cast<float>(10.0 + herd + pen + animal + x.between(-1, 1));
      design.Y_M(2, r) =
          static_cast<float>(3.0 * row.sex + 0.75 * x4 * herd + 0.5 * effect + animal + x.between(-1, 1));
    }
  }

  // Coefficients of a record's turned regressions, by their definition, from sol:
  // 0 the plain one, 1 the nested one.
  double coefficient(std::int32_t r, int which) const {
    const staged_record& row = rows[static_cast<std::size_t>(r - 1)];
    std::vector<double> solutions;
    std::int32_t level = 0;
    if (which == 0) {
      for (std::int32_t l = 1; l <= 5; ++l) solutions.push_back(s.sol(equation(3, l, 1)));
      level = row.herd;
    } else if (o.related) {
      for (std::int32_t l = 1; l <= 4; ++l) solutions.push_back(s.sol(equation(5, l, 2)));
      level = row.animal;
    } else {
      for (std::int32_t l = 1; l <= 3; ++l) solutions.push_back(s.sol(equation(6, l, 1)));
      level = row.pen;
    }
    if (level == 0) return 0.0;
    const auto n = static_cast<double>(solutions.size());
    double mean = 0, variance = 0;
    for (const double x : solutions) mean += x / n;
    for (const double x : solutions) variance += (x - mean) * (x - mean) / (n - 1);
    const double scale = o.stdef != 0 ? std::sqrt(variance) : 1.0;
    const double base = static_cast<double>(which == 0 ? row.x4 : row.x3);
    return base * (solutions[static_cast<std::size_t>(level - 1)] - mean) / scale;
  }

  void round() {
    ++f.state.iround;
    scan_records r = records();
    GIBSCAN(r, f.asked, f.state, f.counts, files);
  }
};

} // namespace zeph_test
