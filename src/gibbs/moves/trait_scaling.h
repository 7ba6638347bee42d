// What the moves of binary and of ordered traits share: a trait's fixed effects, its rows of all random factors
// and their matrices scaled together, and the powers of the scale in the priors.
#pragma once

#include "gibbs/moves/move_store.h"
#include "input/run_records.h"
#include "input/sampler_store.h"

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

// Fixed effects and rows of u times c; GIF follows: rows and columns of the trait divided by c.
void scale_solutions(scan_records& r, const trait_move& trait, double c);

// Y_M = y of record irec, an observation or the imputed residual of a missing trait; the kept residual is that
// of a fitted value times c.
void store_scaled(scan_records& r, std::int32_t irec, std::int32_t t, float y, double c);

} // namespace zeph
