// A small run in memory for the tests of this folder: a model of rows, records
// filled entry by entry, and the same equations as full matrices.
//
// The model of two traits, 19 equations in 6 groups:
//   group 1  equations  1- 2  plain regressions of trait 1 and of trait 2
//   group 2  equations  3- 4  regression of trait 1 nested in 2 levels
//   group 3  equations  5- 6  class effect of trait 1, 2 levels
//   group 4  equations  7- 8  class effect of trait 2, 2 levels
//   group 5  equations  9-16  factor 1, "PED", 4 levels of order 2
//   group 6  equations 17-19  factor 2, "I", 3 levels of order 1
#pragma once

#include "control/start_values.h"
#include "gibbs/scan/gibscan.h"
#include "gibbs/scan/scan_records.h"
#include "support/chain_frame.h"
#include "support/check.h"
#include "support/dense_matrix.h"
#include "support/model_builder.h"
#include "support/scratch_directory.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace zeph_test {

// Fields of a free-format row: a blank and 11, 24 or 16 columns.
inline std::string field(const std::string& text, std::size_t width) {
  return " " + std::string(text.size() < width ? width - text.size() : 0, ' ') + text;
}
inline std::string I(std::int64_t x) { return field(std::to_string(x), 11); }
inline std::string R8(const std::string& text) { return field(text, 24); }
inline std::string R4(const std::string& text) { return field(text, 16); }

struct scan_case {
  explicit scan_case(const described_model& d) : m(build_model(d)) {}

  // Layout, stores and start values; what that prints goes elsewhere.
  void start(std::int32_t entries) {
    heard_run quiet(directory.path());
    count_equations(m, layout, quiet.report);
    SETGROUPS(m, layout, quiet.report, 0);
    QVAgib_ALLOC(m, s, quiet.report);
    allocate_equations(layout, s, quiet.report);
    allocate_dispersion(m, layout, f.state, s, quiet.report);
    start_from_priors(m, f.asked, s, quiet.report);
    MME_ALLOC(m, entries, design, quiet.report);
    design.nobs = m.nobs();
    for (std::int32_t r = 1; r <= design.nobs; ++r) {
      observe(r, (1 << m.nt) - 1);
      design.IRESG_M(r) = 1;
      for (std::int32_t t = 1; t <= m.nt; ++t) weigh(r, t, 1.0F);
    }
    read_relationships(m, relations, quiet.report);
    allocate_round_work(m, layout, work, quiet.report);
  }

  void observe(std::int32_t r, std::int32_t mask) { design.ISIT_M(r) = design.C_ISIT_M(r) = mask; }
  void weigh(std::int32_t r, std::int32_t t, float root) {
    design.WV_SQRT_M(t, r) = root;
    design.WV_M(t, r) = root * root;
  }
  std::int32_t equation(std::int32_t g, std::int32_t l, std::int32_t p) const {
    return static_cast<std::int32_t>(layout.group(g).base + (l - 1) * layout.group(g).stride + p);
  }
  // One more entry of record r: trait t, place p of level l of group g.
  void entry(std::int32_t r, std::int32_t t, std::int32_t g, std::int32_t l, std::int32_t p, double z) {
    const std::int32_t e = ++design.M_M(r);
    design.XD1_M(e, r) = equation(g, l, p);
    design.XD2_M(e, r) = t;
    design.XD3_M(e, r) = g;
    design.XD4_M(e, r) = l;
    design.XD5_M(e, r) = p;
    const bool random = layout.group(g).kind == group_kind::random_factor;
    design.XD7_M(e, r) = random ? layout.group(g).number : 0;
    design.ZD_M(e, r) = z;
  }

  scan_records records() {
    return {m, layout, design, relations, s, categories, mixtures, work, sources, run.report};
  }
  std::string said() {
    std::string text = run.text();
    run.listing.str("");
    return text;
  }

  scratch_directory directory;
  heard_run run{directory.path()};
  model_records m;
  equation_layout layout;
  design_store design;
  relationship_store relations;
  sampler_store s;
  category_store categories;
  mixture_store mixtures;
  round_work work;
  random_sources sources{run.report};
  zeph_test::chain_frame f;
  sample_files files;
};

// Numbers of a fixed sequence, between low and high.
struct number_sequence {
  explicit number_sequence(std::uint32_t seed) : source(seed) {}
  double between(double low, double high) {
    return low + (high - low) * static_cast<double>(source()) / 4294967296.0;
  }
  std::int32_t one_of(std::int32_t n) {
    return static_cast<std::int32_t>(source() % static_cast<std::uint32_t>(n)) + 1;
  }
  std::mt19937 source;
};

inline described_model two_trait_description(std::int32_t records, bool weights = false) {
  described_model d;
  d.traits.resize(2);
  d.traits[0].regressions = {{3}, {4, 1, 1}};
  d.traits[0].effects = {{1, 2}};
  d.traits[1].regressions = {{3}};
  d.traits[1].effects = {{1, 2}};
  if (weights) d.traits[0].weight_place = 4;
  d.factors = {{"PED", 4, 2, {{1, 2, 1}, {2, 2, 2}}}, {"I", 3, 1, {{1, 3, 1}, {2, 3, 1}}}};
  d.integers = 6;
  d.reals = 4;
  d.records = records;
  d.residual = {2.0, 0.5, 0.5, 1.0};
  return d;
}

inline const std::vector<element>& four_level_inverse() {
  static const std::vector<element> elements = {{1, 1, 3.0}, {2, 2, 2.5},  {3, 3, 2.0},  {4, 4, 2.25},
                                                {2, 1, 0.5}, {3, 1, -1.0}, {4, 2, -1.0}, {4, 3, 0.25}};
  return elements;
}

// Sets R of group h, and the inverses of its observed parts, in the residual.
inline void set_group_matrix(model_records& m, std::int32_t h, const dense_matrix& R) {
  structure_record& residual = m.residual();
  for (std::int32_t p = 1; p <= residual.n_pat; ++p) {
    std::vector<std::int32_t> seen;
    for (std::int32_t t = 1; t <= m.nt; ++t)
      if (trait_present(p, t, m.nt)) seen.push_back(t);
    dense_matrix part(static_cast<std::int64_t>(seen.size()));
    for (std::size_t i = 0; i < seen.size(); ++i)
      for (std::size_t j = 0; j < seen.size(); ++j)
        part(static_cast<std::int64_t>(i) + 1, static_cast<std::int64_t>(j) + 1) = R(seen[i], seen[j]);
    const dense_matrix inverse = dense_inverse(part).inverse;
    for (std::size_t i = 0; i < seen.size(); ++i)
      for (std::size_t j = 0; j < seen.size(); ++j)
        residual.HETGR_RIIF(h, p, seen[i], seen[j]) =
            inverse(static_cast<std::int64_t>(i) + 1, static_cast<std::int64_t>(j) + 1);
  }
  for (std::int32_t i = 1; i <= m.nt; ++i)
    for (std::int32_t j = 1; j <= m.nt; ++j) residual.HETGR_COV_MAT(h, i, j) = R(i, j);
}

inline const dense_matrix& group_matrix(std::int32_t h) {
  static const dense_matrix one(2, {2.0, 0.5, 0.5, 1.0}), two(2, {3.0, -0.75, -0.75, 1.5});
  return h == 1 ? one : two;
}

// The model above with `records` random records; in some of them levels of
// factor 1 meet, two coefficients are in one equation, or a trait is missing.
struct two_trait_case : scan_case {
  two_trait_case(std::int32_t records, bool weights, bool missing, bool groups, std::uint32_t seed = 7)
      : scan_case(described(records, weights, groups)) {
    const double gif[4] = {2.0, 0.5, 0.5, 1.25};
    std::copy(gif, gif + 4, m.RMAT(1).GIF.begin());
    m.RMAT(2).GIF(1, 1) = 3.0;
    for (std::int32_t h = 1; groups && h <= 2; ++h) set_group_matrix(m, h, group_matrix(h));
    write_elements(directory / "AINV1", four_level_inverse());
    start(10);
    number_sequence x(seed);
    for (std::int32_t r = 1; r <= records; ++r) {
      if (missing && r % 4 == 0) observe(r, 1 + (r / 4) % 2);
      if (groups) design.IRESG_M(r) = x.one_of(2);
      for (std::int32_t t = 1; t <= 2; ++t) {
        design.Y_M(t, r) = static_cast<float>(x.between(-3, 5));
        if (weights) weigh(r, t, 0.5F * static_cast<float>(x.one_of(4)));
      }
      fill_record(r, x);
    }
  }

  static described_model described(std::int32_t records, bool weights, bool groups) {
    described_model d = two_trait_description(records, weights);
    if (groups) {
      d.group_place = 3;
      d.residual_groups = 2;
    }
    return d;
  }

  void fill_record(std::int32_t r, number_sequence& x) {
    const std::int32_t level = x.one_of(2), animal = x.one_of(4), dam = x.one_of(4), pen = x.one_of(3);
    const double age = x.between(-1, 1);
    const bool first = trait_present(design.ISIT_M(r), 1, 2), second = trait_present(design.ISIT_M(r), 2, 2);
    if (first) entry(r, 1, 1, 1, 1, age);
    if (second) entry(r, 2, 1, 1, 2, age);
    if (first) entry(r, 1, 2, level, 1, x.between(0, 2));
    if (first) entry(r, 1, 3, level, 1, 1.0);
    if (second) entry(r, 2, 4, x.one_of(2), 1, 1.0);
    if (first) entry(r, 1, 5, animal, 1, 1.0);
    if (second) entry(r, 2, 5, animal, 2, 1.0);
    if (first) entry(r, 1, 5, dam, 1, 0.5); // may meet the animal's own equation
    if (first) entry(r, 1, 6, pen, 1, 0.75);
    if (second) entry(r, 2, 6, pen, 1, 1.0); // the same equation for both traits
  }
};

// The equations of a case as full matrices: data part D = Z'R^-1 Z, prior part
// P = A^-1 x G^-1, right-hand side b = Z'R^-1 y.
struct dense_equations {
  dense_equations(const scan_case& c, analysis analysis_type)
      : D(c.layout.neq), P(c.layout.neq), b(c.layout.neq) {
    for (std::int32_t r = 1; r <= c.design.nobs; ++r) add_record(c, r, analysis_type);
    for (std::int32_t k = 1; k <= c.m.nramat; ++k) add_factor(c, k);
  }

  // D + P
  dense_matrix sum() const {
    dense_matrix total = D;
    for (std::size_t i = 0; i < total.cells.size(); ++i) total.cells[i] += P.cells[i];
    return total;
  }

  static std::int32_t active_rows(const scan_case& c, std::int32_t g) { return c.layout.NGR(g, 2); }

  void add_record(const scan_case& c, std::int32_t r, analysis analysis_type) {
    const std::int32_t nt = c.m.nt, neq = c.layout.neq;
    std::vector<dense_vector> z(static_cast<std::size_t>(nt), dense_vector(neq));
    for (std::int32_t e = 1; e <= c.design.M_M(r); ++e) {
      const std::int32_t place = c.design.XD5_M(e, r), group = c.design.XD3_M(e, r);
      if (c.design.XD7_M(e, r) > 0 && place > active_rows(c, group)) continue;
      z[static_cast<std::size_t>(c.design.XD2_M(e, r) - 1)](c.design.XD1_M(e, r)) += c.design.ZD_M(e, r);
    }
    const dense_matrix w = residual_inverse(c, r, analysis_type);
    for (std::int32_t i = 1; i <= nt; ++i)
      for (std::int32_t j = 1; j <= nt; ++j) {
        if (w(i, j) == 0.0) continue;
        const dense_vector& zi = z[static_cast<std::size_t>(i - 1)];
        const dense_vector& zj = z[static_cast<std::size_t>(j - 1)];
        for (std::int32_t e = 1; e <= neq; ++e) {
          if (zi(e) == 0.0) continue;
          b(e) += zi(e) * w(i, j) * static_cast<double>(c.design.Y_M(j, r));
          for (std::int32_t h = 1; h <= neq; ++h) D(e, h) += zi(e) * w(i, j) * zj(h);
        }
      }
  }

  // W^1/2 R^-1 W^1/2, R of the observed traits for analysis type 0
  static dense_matrix residual_inverse(const scan_case& c, std::int32_t r, analysis analysis_type) {
    const std::int32_t nt = c.m.nt, h = c.design.IRESG_M(r);
    const bool own = structure_is(c.m.residual(), "GROUP");
    dense_matrix R(nt), mask(nt);
    for (std::int32_t i = 1; i <= nt; ++i)
      for (std::int32_t j = 1; j <= nt; ++j) {
        const bool seen = !solves(analysis_type) || (trait_present(c.design.ISIT_M(r), i, nt) &&
                                                     trait_present(c.design.ISIT_M(r), j, nt));
        const double value = own ? c.m.residual().HETGR_COV_MAT(h, i, j) : c.m.residual().COV_MAT(i, j);
        R(i, j) = seen ? value : (i == j ? 1.0 : 0.0); // a missing trait is independent
        mask(i, j) = seen ? 1.0 : 0.0;
      }
    dense_matrix inverse = dense_inverse(R).inverse;
    for (std::int32_t i = 1; i <= nt; ++i)
      for (std::int32_t j = 1; j <= nt; ++j)
        inverse(i, j) *= mask(i, j) * static_cast<double>(c.design.WV_SQRT_M(i, r)) *
                         static_cast<double>(c.design.WV_SQRT_M(j, r));
    return inverse;
  }

  void add_factor(const scan_case& c, std::int32_t k) {
    const std::int32_t g = c.layout.group_of_factor(k, c.m.nramat), levels = c.m.NRALEV(k);
    dense_matrix a(levels);
    if (structure_is(c.m.RMAT(k), "I"))
      for (std::int32_t l = 1; l <= levels; ++l) a(l, l) = 1.0;
    else
      for (const element& e : four_level_inverse()) a(e.i, e.j) = a(e.j, e.i) = e.v;
    for (std::int32_t l = 1; l <= levels; ++l)
      for (std::int32_t h = 1; h <= levels; ++h)
        for (std::int32_t i = 1; i <= active_rows(c, g); ++i)
          for (std::int32_t j = 1; j <= active_rows(c, g); ++j)
            P(c.equation(g, l, i), c.equation(g, h, j)) += a(l, h) * c.m.RMAT(k).GIF(i, j);
  }

  dense_matrix D, P;
  dense_vector b;
};

} // namespace zeph_test
