// What the moves of binary and of ordered traits share: a trait's fixed effects, its rows of all random
// factors and their matrices scaled together, and the powers of the scale in the priors.
#pragma once

#include "gibbs/moves/move_store.h"
#include "gibbs/residuals/record_values.h"
#include "input/run_records.h"
#include "input/sampler_store.h"

#include <array>

namespace zeph {

struct scan_records;

// With G's rows and columns of the trait times c, ln of the priors of all u and G changes by
//   m ln c - (2 c1/c + c2/c^2 - 2 c1 - c2)/2.
struct scale_terms {
  double m = 0;
  double c1 = 0; // sum over factors of tr(V_ot G^-1_to), o the rows that are not the trait's
  double c2 = 0; // sum over factors of tr(V_tt G^-1_tt)
};

// Over all factors, with their rows in force.
scale_terms terms_of_factors(const scan_records& r, const directives& asked, const trait_move& trait);

// Residuals of a trait in some records: e with the root of its weight, as the conditionals of the latent work
// want it, and its mean given the record's other residuals.
struct trait_residuals {
  static constexpr std::int32_t most = 256;
  std::array<double, most> e, mean;
};

// Those of records lo+1..hi, at most `most`, into places 0, 1, ...
void read_residuals(scan_records& r, const directives& asked, std::int32_t t, std::int32_t lo,
                    std::int32_t hi, trait_residuals& x);

// Fixed effects and rows of u times c; GIF follows: rows and columns of the trait divided by c.
void scale_solutions(scan_records& r, const trait_move& trait, double c);

// stored = y of a record, an observation or the imputed residual of a missing trait, whose fitted value has
// become c times what it was; a kept residual e follows.
inline void store_scaled(float& stored, double* e, float y, double c) {
  if (e != nullptr) *e = static_cast<double>(y) - c * (static_cast<double>(stored) - *e);
  stored = y;
}

// Residuals of trait t that the scan body keeps, record by record; null: it keeps none.
inline double* kept_residuals(const record_values& values, std::int32_t t) {
  return values.kept == nullptr ? nullptr : values.kept->unchecked_col(t);
}

} // namespace zeph
