// The move of a random factor: U -> U A', G -> A G A', A of the factor's order p near the identity.
//
// With B = A - I, the residual matrices and all other locations given, the likelihood is Gaussian in B
// (factor_sums), and B is drawn from it, N(K^-1 vec H, K^-1). The move is accepted with probability
// min(1, exp(r)),
//   r = (N - DDF - nu - p) log |det A| - tr(V (A'^-1 G^-1 A^-1 - G^-1)) / 2,
// N levels, DDF degrees of freedom that the draw of G takes from them, nu and V of G's prior: inverse Wishart
// (nu, V), or nu = -(p + 1) and V = 0 for the uniform one. Powers of |A|: of U N, of G p + 1, of A -> A^-1
// -2 p, of the two normalising constants of the proposals p, of the prior of U -DDF, of that of G
// -(nu + p + 1). J. S. Liu and Y. N. Wu, Journal of the American Statistical Association 94 (1999) 1264-1274;
// J. S. Liu and C. Sabatti, Biometrika 87 (2000) 353-369.
#pragma once

#include "gibbs/moves/move_store.h"
#include "input/run_records.h"
#include "input/sampler_store.h"
#include "numerics/random_sources.h"

namespace zeph {

// Inverse Wishart prior of a factor's leading p rows: nu degrees of freedom, scale weight COV_MAT[1..p]; the
// uniform one as nu = -(p + 1), weight 0.
struct factor_prior {
  std::int64_t nu = 0;
  double weight = 0;
};

// exact: the degrees of freedom belong to the whole factor, of which smaller models have the leading rows.
factor_prior prior_of_factor(const model_records& model, const directives& asked, std::int32_t k,
                             std::int32_t p);

// Rounds in which a factor of p rows in force moves: every one up to 4 rows, else each max(1, p^2/18)-th.
bool moves_in_round(std::int32_t p, std::int64_t round);

// Adds to the sums the entries of record irec in levels of factor k, with e = work.values.res as taken (with
// the roots of the weights) and the solutions as they are.
void add_record_to_sums(const struct scan_records& r, std::int32_t irec, std::int32_t k, std::int32_t p,
                        factor_sums& sums);

// Proposes A from work.sums, p^2 normals and a uniform of the Marsaglia source; true where it is accepted: A
// and its inverse are then in the work. Nothing is drawn where K has no safe factor.
bool propose_factor_move(move_work& work, marsaglia_source& source, const model_records& model,
                         const sampler_store& sampler, std::int32_t k, std::int32_t p,
                         const factor_prior& prior, double exponent, bool burn_in, move_count& count);

// U -> U A' and GIF -> A'^-1 GIF A^-1 for factor k (base: its first equation less 1, stride rows a level).
// change (levels times stride, may be null): A u - u is added. square (packed, may be null): S -> A S A'.
void take_factor_move(move_work& work, sampler_store& sampler, std::int32_t k, std::int32_t p,
                      std::int32_t levels, std::int32_t stride, std::int64_t base, double* change,
                      double* square);

} // namespace zeph
