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

#include "gibbs/matrices/covariance_draws.h"
#include "gibbs/moves/move_store.h"
#include "input/run_records.h"
#include "input/sampler_store.h"
#include "numerics/random_sources.h"

namespace zeph {

struct scan_records;

// Rounds in which a factor of p rows in force moves: every one up to 4 rows, else each max(1, p^2/18)-th.
bool moves_in_round(std::int32_t p, std::int64_t round);

// True when the factor of group g moves after its last level in this round; false for other groups.
bool factor_moves_now(const scan_records& r, const round_state& state, std::int32_t g);

// Zero, of a factor with p rows.
void clear_sums(factor_sums& sums, std::int32_t p);

// work.sums of factor k, p rows, from a pass over the records: e from where work.values has it, with the
// roots of the weights, and the solutions as they are.
void sum_factor_by_records(scan_records& r, const directives& asked, std::int32_t k, std::int32_t p);

// Proposes the move of group g from work.sums and decides it, with the prior with which the round draws the
// matrix: propose_factor_move.
bool decide_factor_move(scan_records& r, const directives& asked, const round_state& state, std::int32_t g);

// Proposes A from work.sums, p^2 normals and a uniform of the Marsaglia source; true where it is accepted: A
// and its inverse are then in the work. Nothing is drawn where K has no safe factor.
bool propose_factor_move(move_work& work, marsaglia_source& source, const model_records& model,
                         const sampler_store& sampler, std::int32_t k, std::int32_t p,
                         const factor_prior& prior, double exponent, bool burn_in, move_count& count);

// U -> U A' and GIF -> A'^-1 GIF A^-1 for the factor of group g, A that of the work. change (levels times
// stride, may be null): A u - u is added. square (packed, may be null): S -> A S A'.
void take_factor_move(move_work& work, const equation_layout& layout, sampler_store& sampler, std::int32_t g,
                      double* change, double* square);

} // namespace zeph
