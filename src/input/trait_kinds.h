// The table of trait kinds: what the number in TRAIT_TYPE of a trait means.
#pragma once

#include "input/model_records.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace zeph {

// How the residual matrix holds the variance of a trait.
enum class residual_variance : std::int32_t {
  free,
  unit,              // 1, correlations with other traits of unit variance free
  unit_uncorrelated, // 1, covariance 0 with every other trait of unit variance
  undefined          // no draw is defined
};

// The pass over the records that draws the values of a trait.
enum class value_pass : std::int32_t { none, bounds, liabilities, mixtures, sequences, undefined };

struct trait_kind_row {
  std::int32_t number;   // TRAIT_TYPE
  std::string_view word; // in descriptions and reports
  residual_variance variance;
  value_pass pass;
  bool scaled;     // observations are 0 and 1 of a latent scale: they are moved when read
  bool stored;     // its values are part of the saved state
  bool thresholds; // between its categories
  bool proportion; // of one of two components, sampled
  bool indicator;  // mixture regressions of other traits can name it

  // Values that change in a chain and that a continued chain draws again.
  constexpr bool forgotten() const { return pass != value_pass::none && !stored; }
};

inline constexpr std::array<trait_kind_row, 7> kind_rows = {{
    // number, word, variance, pass, scaled, stored, thresholds, proportion, indicator
    {trait_gaussian, "gaussian", residual_variance::free, value_pass::none, false, false, false, false,
     false},
    {trait_censored, "censored", residual_variance::free, value_pass::bounds, false, false, false, false,
     false},
    {trait_categorical, "ordered", residual_variance::free, value_pass::liabilities, false, true, true, false,
     false},
    {trait_liability, "binary", residual_variance::unit, value_pass::liabilities, true, true, false, false,
     false},
    {trait_mixture, "indicator", residual_variance::unit_uncorrelated, value_pass::mixtures, true, true,
     false, true, true},
    {trait_sequence, "sequence", residual_variance::unit_uncorrelated, value_pass::sequences, true, false,
     false, false, true},
    {trait_cured, "cured", residual_variance::unit_uncorrelated, value_pass::sequences, true, false, false,
     true, true},
}};

// The row of a number. Those without a row are refused by a chain that samples
// matrices; kept: their observations are moved, as those of latent traits, from
// number 4 on.
const trait_kind_row& kind_of(std::int32_t number);
inline const trait_kind_row& kind_of(const trait_record& trait) { return kind_of(trait.TRAIT_TYPE); }

// The numbers of the table as a rule in messages: "1, 2, .. or 8".
std::string legal_kinds();

// True when a trait of the model is drawn by the pass; has a proportion.
bool has_pass(const model_records& m, value_pass pass);
bool has_proportion(const model_records& m);

} // namespace zeph
