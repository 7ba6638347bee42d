// The model description as plain records. The keys that fill them, and their defaults, are in
// model_description.h.
#pragma once

#include "input/analysis.h"
#include "input/trait_kinds.h"
#include "prepare/description/formula.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace zeph::prepare {

struct text_place {
  int line = 0;
  int column = 0;
};

// A value of the description, or its default.
template <typename T> struct stated {
  T value{};
  text_place at;      // of the value
  bool given = false; // false: the default applies
};

using text_value = stated<std::string>;

// Degrees of freedom of a prior. A number with a fraction is an error, reported when the order of the matrix
// is known; `value` is then that without the fraction.
struct prior_degrees : stated<std::int32_t> {
  double fraction = 0.0; // 0 to below 1
};

// A square matrix given as rows, full and symmetric after reading; element (i,j), 0-based, is value[i * order
// + j]. order 0: not given.
struct matrix_value {
  int order = 0;
  std::vector<double> value;
  text_place at;
};

struct data_section {
  text_place at; // of the table; {0,0} when it is missing (an error)
  text_value file;
  std::vector<text_value> missing; // numbers as written in the file ("-999"); an empty cell is not listed
  stated<char> decimal;            // '.' or ','
  stated<char> separator;          // ',' ';' '\t', or ' ' for any run of blanks and tabs
  std::vector<text_value> columns; // empty: the file has a header line
};

enum class relationship_kind {
  identity,
  pedigree,
  inverse,
  relationship,
  genotypes,
  single_step,
  dominance,
  correlation
};
// by_columns: triplets when the file has three columns
enum class matrix_form { by_columns, triplets, dense };

// pedigree = ..
struct pedigree_source {
  text_value file;
  text_value animal, sire, dam;        // columns; not given: "animal", "sire", "dam", or another usual name
  std::vector<text_value> columns;     // names of the columns; empty: the file has a header line
  stated<bool> selfing;                // an animal may be sire and dam
  std::vector<text_value> group_codes; // phantom parent groups by code,
  text_value group_pattern;            // or by a pattern with * and ?; both empty: no groups
  std::vector<text_value> unknown;     // codes of an unknown parent, beside the usual ones
  std::vector<text_value> founders;    // parents without a line that are animals, whatever they look like
};

// inverse = .., relationship = .., correlation = .., dominance = ..
struct matrix_source {
  text_value file;
  stated<matrix_form> form;
  stated<bool> holds_inverse; // the file needs no inversion; always true for `inverse`
  stated<double> blend;       // 0..1, weight of the identity that is blended in before the inversion
};

// One row of a factor's covariance matrix, that is one coefficient of a trait: what (trait, random term,
// effect of its left side, degree) put into a record. `name` is the word of `order`, G[..] and the reports:
//   trait.column      the 1 of a term on `column` ("bwt.animal"; two columns: "gr.mate1+mate2")
//   trait.leg0 ..     the degrees of leg(x, n); trait.poly0 .. of poly(x, n)
//   trait.x           a covariable x; a product of covariables is not possible here
// Names that two rows of one factor would share get a ".column" ("milk.leg1.cow", "milk.leg1.dam"), and
// those that are then still equal the covariable before that ("milk.leg1.dim.cow", "milk.leg1.age.cow").
struct factor_row {
  std::string name;
  int trait = 0;   // 0-based, into model_description::traits
  int term = 0;    // 0-based, into formula::random of that trait
  int effect = -1; // 0-based, into random_term::left; -1: a plain 1 (covariable 1.0)
  int degree = 0;  // leg, poly: 0..order. Degree 0 is 1/sqrt(2) for leg, 1 for poly
};

// Trait deviations of the levels of a factor: of their own records, or of those of the progeny too.
enum class deviation_kind { none, own, progeny };

struct factor_section {
  std::string name;
  text_place at; // of the table's name
  relationship_kind kind = relationship_kind::identity;
  text_place kind_at;
  pedigree_source pedigree; // kind pedigree
  matrix_source matrix;     // kinds inverse, relationship, correlation, dominance
  matrix_value start;
  prior_degrees prior_df;
  stated<std::vector<double>> model_prior; // weights of 1, 2, .. rows; empty: all alike
  std::vector<text_value> order;
  stated<deviation_kind> deviations;
  stated<std::int32_t> deviations_every, deviations_above; // rounds between files of PTD (0: none), progeny
  // The rows in their final order: `order` when given, else by trait, within it by term and effect of the
  // formula. Rows of one trait in one factor that agree in (effect, degree) and differ in the column are rows
  // of their own.
  std::vector<factor_row> rows; // empty: no formula uses the factor (a warning)
};

// The numbers and all that is known of a kind are in input/trait_kinds.h.
enum class trait_kind : std::int32_t {
  gaussian = trait_gaussian,
  censored = trait_censored,
  ordered = trait_categorical,
  binary = trait_liability,
  indicator = trait_mixture,
  sequence = trait_sequence,
  cured = trait_cured
};
inline const trait_kind_row& kind_of(trait_kind kind) {
  return zeph::kind_of(static_cast<std::int32_t>(kind));
}

struct trait_section {
  std::string name;
  text_place at;
  text_value formula_text;
  formula terms; // covariable indices of all effects are set
  text_value column;
  stated<trait_kind> kind;
  text_value weight;                  // empty: none
  std::vector<text_value> categories; // ordered, binary, sequence: lowest first; empty: numbers as they are
  // Censored: columns. With `code` it says how (and `upper` serves its intervals); with `event` alone 0 is
  // right censored; with `upper` alone the pair of columns are the bounds.
  text_value limits_code, limits_upper, limits_event;
  stated<double> first_upper;   // indicator: share of the records that begin in component 1
  text_value first_of;          // by the values of that trait; not given: of the first trait with shift(..)
  text_value subject, position; // sequence: columns; position empty: the order of the file
  text_value of;                // cured: the trait of kind sequence
  int partner = -1;             // sequence and cured: number of the other, 0-based
  int indicator = -1;           // a trait with shift(..): number of that indicator, 0-based
};

// The residual variance of the kind is 1.
inline bool has_unit_variance(trait_kind kind) { return kind_of(kind).variance != residual_variance::free; }
// It has no residual covariance with other traits of unit variance.
inline bool stands_apart(trait_kind kind) {
  return kind_of(kind).variance == residual_variance::unit_uncorrelated;
}

enum class centering { none, mean, value };

struct covariable_section {
  std::string name;
  text_place at;
  text_value column;
  stated<double> low, high; // both given or none; low < high
  stated<centering> center;
  double center_value = 0.0; // centering::value
  // A covariable that is made in the run, from the solutions of a class effect of another trait:
  text_value solution; // "trait.effect"; not given: a column of the data
  text_value times;    // column that the solutions are multiplied by; empty: none
  stated<bool> standardize;
  int source_trait = -1;     // 0-based; -1: not found
  std::string source_factor; // the effect is random; empty: a "fixed" class effect
  std::vector<std::string> source_columns;
};

struct group_start {
  std::string code; // as in the data
  text_place at;
  matrix_value start;
};

struct trait_pair {
  int first = 0, second = 0; // 0-based trait numbers, first < second
  text_place at;             // {0, 0}: not stated, the kinds require it
};

struct residual_section {
  text_place at;
  matrix_value start;
  prior_degrees prior_df;
  std::vector<trait_pair> zero; // covariances held at zero, stated or required by the kinds
  std::vector<trait_pair>
      apart; // covariances that are zero in every draw: two traits of unit variance, one of which
             // is held apart
  std::vector<trait_pair> free; // stated: not to be held at zero
  text_value groups;            // column, or an indicator trait; empty: one group
  int indicator = -1;           // groups names this trait (0-based)
  std::vector<group_start> start_by_group;
};

struct derived_value {
  std::string name;
  text_place at;
  text_value text;
};

enum class kept_solutions { none, all, listed };

struct keep_section {
  text_place at;
  stated<kept_solutions> solutions;
  std::vector<text_value> effects; // kept_solutions::listed
  stated<bool> residuals;
};

using analysis_type = zeph::analysis;

enum class sampler_kind {
  classic, // draws in the order and with the conditions that published chains have
  exact    // every step draws from its full conditional distribution
};

struct run_section {
  text_place at;
  stated<analysis_type> analysis;
  stated<std::int32_t> burnin, rounds, interval;
  stated<std::int32_t> seed_a, seed_b;
  stated<bool> restrict_solutions; // key: restrict
  stated<std::int32_t> test_level;
  stated<bool> continue_chain; // key: continue
  stated<bool> prune;
  stated<sampler_kind> sampler;                    // not stated: that of a chain is chosen by check_sampler
  stated<std::int32_t> state_every{-1, {}, false}; // minutes between saves of the state; below 0: not saved
  stated<bool> moves;                              // steps that mix; not stated: chosen by check_sampler
  stated<std::int32_t> density_points;             // of records with three and more latent values; 0: none

  bool is_exact() const { return sampler.value == sampler_kind::exact; }
  bool is_said_classic() const { return sampler.given && !is_exact(); }
  bool saves_state() const { return state_every.value >= 0; }
};

struct model_description {
  std::string path;               // as given; the file part of messages
  std::vector<std::string> lines; // of the file, without line ends
  text_value title;
  data_section data;
  std::vector<factor_section> factors; // these four in the order of the file
  std::vector<trait_section> traits;
  std::vector<covariable_section> covariables;
  residual_section residual;
  std::vector<derived_value> derive;
  keep_section keep;
  run_section run;
};

// A file of the description, relative to the working directory.
std::filesystem::path path_of(const model_description& description, const std::string& file);

// The covariable of that name, or none.
const covariable_section* find_covariable(const model_description& description, std::string_view name);

} // namespace zeph::prepare
