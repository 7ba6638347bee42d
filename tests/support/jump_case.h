// Small runs over models: records of traits with a class effect each and random
// factors of any order, identity or pedigree, in a scratch directory.
#pragma once

#include "control/model_chains.h"
#include "control/run_driver.h"
#include "gibbs/scan/gibscan.h"
#include "input/modinf_items.h"
#include "input/modinf_writer.h"
#include "jump/jump_setup.h"
#include "support/dense_matrix.h"
#include "support/model_builder.h"
#include "support/modinf_file.h"
#include "support/scratch_directory.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace zeph_test {

// One factor of a jump case. Its row i belongs to trait i; with `curve` all rows belong to
// trait 1: 1 and random regressions.
struct jump_factor {
  std::string structure = "I";
  std::int32_t order = 2;
  std::int32_t levels = 12;
  bool curve = false;
};

struct jump_options {
  std::vector<jump_factor> factors;
  std::int32_t traits = 2;
  std::int32_t records = 60;
  bool missing = false;
  bool weights = false;
  std::int32_t groups = 1;
  std::int32_t prior_df = 6; // added to the order of each factor
  std::uint32_t seed = 5;
};

// Parents of animal i = 1..: founders first, later ones of two, one or no known parents;
// inbred matings occur.
inline std::vector<std::array<std::int32_t, 2>> made_pedigree(std::int32_t animals) {
  std::vector<std::array<std::int32_t, 2>> parents;
  for (std::int32_t i = 1; i <= animals; ++i) {
    if (i <= 4)
      parents.push_back({0, 0});
    else if (i % 5 == 0)
      parents.push_back({i - 2, 0});
    else
      parents.push_back({1 + (i * 3) % (i - 1), 1 + (i * 5 + 1) % (i - 1)});
    if (parents.back()[0] == parents.back()[1]) parents.back()[1] = 0;
  }
  return parents;
}

// Tabular method; parents come before progeny.
inline dense_matrix relationship_of(const std::vector<std::array<std::int32_t, 2>>& parents) {
  const auto n = static_cast<std::int64_t>(parents.size());
  dense_matrix A(n);
  for (std::int64_t i = 1; i <= n; ++i) {
    const auto [s, d] = parents[static_cast<std::size_t>(i - 1)];
    for (std::int64_t j = 1; j < i; ++j)
      A(i, j) = A(j, i) = 0.5 * ((s > 0 ? A(s, j) : 0.0) + (d > 0 ? A(d, j) : 0.0));
    A(i, i) = 1.0 + (s > 0 && d > 0 ? 0.5 * A(s, d) : 0.0);
  }
  return A;
}

inline void write_pedigree(const scratch_directory& directory, const std::string& number,
                           const std::vector<std::array<std::int32_t, 2>>& parents) {
  const dense_matrix inverse = dense_inverse(relationship_of(parents)).inverse;
  std::vector<element> elements;
  for (std::int32_t i = 1; i <= inverse.n; ++i)
    for (std::int32_t j = 1; j <= i; ++j)
      if (i == j || std::fabs(inverse(i, j)) > 1e-9) elements.push_back({i, j, inverse(i, j)});
  write_elements(directory / ("AINV" + number), elements);
  std::vector<std::int32_t> row;
  for (const auto& pair : parents) row.insert(row.end(), pair.begin(), pair.end());
  write_integer_records(directory / ("PEDFILE" + number), {row});
}

struct jump_case {
  explicit jump_case(const jump_options& with) : options(with) {
    describe();
    m = std::make_unique<model_records>(build_model(d));
    for (std::int32_t k = 1; k <= m->nramat; ++k) set_start_matrix(k);
    name_random_regressions();
    make_records();
    for (std::int32_t k = 1; k <= m->nramat; ++k)
      if (structure_is(m->RMAT(k), "PED"))
        write_pedigree(directory, std::to_string(k), made_pedigree(m->NRALEV(k)));
    make_codes();
  }

  std::string lines(std::int32_t type, std::int32_t burn, std::int32_t rounds, std::int32_t interval,
                    std::int32_t test_level = 0) const {
    std::ostringstream text;
    text << type << ' ' << test_level << "\n1802 9373\n" << burn << ' ' << rounds << ' ' << interval << '\n';
    for (std::int32_t k = 1; k <= m->nramat; ++k)
      text << k << ' ' << (options.prior_df > 0 ? m->RMAT(k).n_rc + options.prior_df : 0) << '\n';
    text << m->nramat + 1 << ' ' << m->nt + 8 << '\n';
    return text.str();
  }
  void write(const std::string& directives) {
    write_model(*m, directory / "MODINF");
    write_integer_records(directory / "RCDATA_I", integers);
    write_real_records(directory / "RCDATA_R", reals);
    directory.write("dir", directives);
  }
  // A run started with these lines, before its first round.
  void start(const std::string& directives) {
    write(directives);
    listing.str("");
    r = std::make_unique<run>(listing, directory.path());
    start_run(*r);
  }
  // The same with the smallest model and the stores of the moves.
  void start_moves(const std::string& directives) {
    start(directives);
    jump_records records = jump_records_of(*r);
    jump_setup(records, r->relations, analysis::jump);
    listing.str("");
  }
  void set_model(const std::vector<std::int32_t>& dimensions) {
    jump_records records = jump_records_of(*r);
    for (std::int32_t k = 1; k <= m->nramat; ++k)
      r->state.ntr[static_cast<std::size_t>(k - 1)] = dimensions[static_cast<std::size_t>(k - 1)];
    for (std::int32_t k = 1; k <= m->nramat; ++k) {
      set_structure(records, r->state.ntr, k);
      invert_start_matrix(records, k);
    }
  }
  void scan() {
    scan_records records = records_of(*r);
    ++r->state.iround;
    GIBSCAN(records, r->asked, r->state, r->counts, r->files);
  }
  int go(const std::string& directives) {
    write(directives);
    listing.str("");
    run whole(listing, directory.path());
    return exit_code_of_run(whole);
  }
  std::string text() const { return listing.str(); }
  bool says(const std::string& words) const { return text().find(words) != std::string::npos; }

  scratch_directory directory;
  std::ostringstream listing;
  jump_options options;
  described_model d;
  std::unique_ptr<model_records> m;
  std::unique_ptr<run> r;
  std::vector<std::vector<std::int32_t>> integers;
  std::vector<std::vector<float>> reals;

private:
  // integers: class, group, level of each factor, mask, pattern, position;
  // reals: traits, a covariable for each random regression, a weight
  void describe() {
    const std::int32_t nt = options.traits, first_covariable = nt + 1;
    d.traits.resize(static_cast<std::size_t>(nt));
    for (described_trait& t : d.traits) t.effects = {{1, 2}};
    std::int32_t place = 2, covariables = 0;
    for (const jump_factor& f : options.factors) {
      described_factor made{f.structure, f.levels, f.order, {}};
      ++place;
      for (std::int32_t i = 1; i <= f.order; ++i) {
        contribution c{f.curve ? 1 : i, place, i};
        if (f.curve && i > 1) {
          c.covariable = first_covariable + i - 2;
          covariables = std::max(covariables, i - 1);
        }
        made.contributions.push_back(c);
      }
      d.factors.push_back(made);
    }
    for (std::int32_t c = 0; c < covariables; ++c)
      d.traits[0].regressions.push_back({first_covariable + c, 2});
    if (options.weights) d.traits[0].weight_place = first_covariable + covariables;
    d.integers = place + 3;
    d.reals = nt + covariables + 1;
    d.records = options.records;
    if (options.groups > 1) {
      d.group_place = 2;
      d.residual_groups = options.groups;
    }
    for (std::int32_t i = 0; i < nt; ++i)
      for (std::int32_t j = 0; j < nt; ++j) d.residual.push_back(i == j ? 2.0 : 0.3);
  }

  void set_start_matrix(std::int32_t k) {
    structure_record& f = m->RMAT(k);
    dense_matrix G(f.n_rc);
    for (std::int32_t i = 1; i <= f.n_rc; ++i)
      for (std::int32_t j = 1; j <= f.n_rc; ++j) G(i, j) = i == j ? 1.0 + 0.25 * i : 0.3;
    const dense_matrix inverse = dense_inverse(G).inverse;
    for (std::int32_t i = 1; i <= f.n_rc; ++i)
      for (std::int32_t j = 1; j <= f.n_rc; ++j) {
        f.COV_MAT(i, j) = G(i, j);
        f.GIF(i, j) = inverse(i, j);
      }
  }

  void name_random_regressions() {
    for (std::size_t k = 0; k < options.factors.size(); ++k)
      if (options.factors[k].curve)
        for (std::int32_t j = 1; j <= m->MODEL(1).n_reg; ++j)
          m->MODEL(1).REG_R_MATNO(j) = static_cast<std::int32_t>(k + 1);
  }

  void make_records() {
    std::mt19937 source(options.seed);
    const auto uniform = [&] { return static_cast<double>(source()) / 4294967296.0; };
    const auto normal = [&] { return uniform() + uniform() + uniform() + uniform() - 2.0; };
    std::vector<std::vector<double>> effects;
    for (const jump_factor& f : options.factors) {
      effects.emplace_back();
      for (std::int32_t i = 0; i < f.levels * f.order; ++i) effects.back().push_back(1.5 * normal());
    }
    const std::int32_t nt = options.traits, full = (1 << nt) - 1;
    for (std::int32_t rec = 1; rec <= options.records; ++rec) {
      std::vector<std::int32_t> row = {1 + rec % 2, options.groups > 1 ? 1 + rec % options.groups : 1};
      std::vector<double> y(static_cast<std::size_t>(nt));
      std::vector<float> covariables;
      for (std::int32_t c = nt + 1; c < d.reals; ++c) covariables.push_back(static_cast<float>(uniform()));
      for (double& value : y) value = 5.0 + 2.0 * normal();
      for (std::size_t k = 0; k < options.factors.size(); ++k) {
        const jump_factor& f = options.factors[k];
        const auto level = static_cast<std::int32_t>(source() % static_cast<std::uint32_t>(f.levels));
        row.push_back(level + 1);
        for (std::int32_t i = 0; i < f.order; ++i)
          y[static_cast<std::size_t>(f.curve ? 0 : i)] +=
              effects[k][static_cast<std::size_t>(level * f.order + i)] *
              (f.curve && i > 0 ? static_cast<double>(covariables[static_cast<std::size_t>(i - 1)]) : 1.0);
      }
      const std::int32_t mask =
          options.missing && rec % 4 == 0 ? full & ~(1 << (rec / 4) % nt) : full; // some trait is missing
      row.insert(row.end(), {mask, mask, rec});
      integers.push_back(row);
      reals.emplace_back();
      for (const double value : y) reals.back().push_back(static_cast<float>(value));
      reals.back().insert(reals.back().end(), covariables.begin(), covariables.end());
      reals.back().push_back(options.weights ? 0.5F + static_cast<float>(uniform()) : 1.0F);
    }
  }

  void make_codes() {
    std::vector<std::vector<std::int32_t>> codes;
    for (std::int32_t t = 1; t <= options.traits; ++t)
      for (std::int32_t l = 1; l <= 2; ++l) codes.push_back({0, l, 3, l, 0, 0});
    for (const jump_factor& f : options.factors)
      for (std::int32_t l = 1; l <= f.levels; ++l) codes.push_back({0, 100 + l, 1, l, 0, 0});
    write_integer_records(directory / "CODE_TABLE", codes);
  }
};

// The models of the tests of moves, by name.
struct named_jump {
  std::string name;
  jump_options options;
};
inline std::vector<named_jump> jump_models() {
  return {{"identity2", {{{"I", 2, 12}}, 2}},
          {"identity3", {{{"I", 3, 12}}, 3}},
          {"identity4", {{{"I", 4, 12}}, 4}},
          {"two_identities", {{{"I", 2, 10}, {"I", 3, 8}}, 3}},
          {"with_order_1", {{{"I", 1, 9}, {"I", 3, 10}}, 3}},
          {"curve", {{{"I", 3, 12, true}}, 1}},
          {"missing_weights_groups", {{{"I", 2, 12}, {"I", 2, 6}}, 2, 60, true, true, 2}},
          {"flat_prior", {{{"I", 2, 20}}, 2, 80, false, false, 1, 0}}};
}

} // namespace zeph_test
