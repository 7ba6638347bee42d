// Small dense algebra of the moves: normal proposals from their precision, and the decision. Matrices are
// column-major with leading dimension ld; nothing is allocated.
#pragma once

#include "gibbs/moves/move_store.h"
#include "numerics/random_sources.h"

namespace zeph {

inline constexpr double least_pivot = 1e-10; // of the diagonal element that it comes from

// a = L, L L' = a, lower triangle of order n in place. False where a squared diagonal element of L is at most
// least_pivot times that of a, or is no number; a is then spoilt.
bool factor_safely(double* a, std::int64_t ld, std::int32_t n);

// x = L'^-1 x.
void solve_upper(const double* L, std::int64_t ld, std::int32_t n, double* x);

// inverse = a^-1 of order n and log_det = log |det a|; a is spoilt. False where a is singular or no number.
bool invert_with_det(double* a, std::int64_t ld, std::int32_t n, double* inverse, double& log_det);

// tr(V (A'^-1 P A^-1 - P)) for symmetric V(i,j) = weight start(i,j) and P, all of order n.
double change_of_trace(const mat<double>& start, double weight, const double* P, std::int64_t ldp,
                       const double* A_inverse, std::int64_t ld, std::int32_t n);

// P = A'^-1 P A^-1, symmetric; work: n x n with leading dimension ld.
void transform_precision(double* P, std::int64_t ldp, const double* A_inverse, std::int64_t ld,
                         std::int32_t n, double* work);

// Draws a uniform of the Marsaglia source, in any case, and counts: true where its logarithm is below r and
// the proposal is legal. A ratio that is no number is not accepted.
bool accept_move(marsaglia_source& source, double r, bool legal, bool burn_in, move_count& count);

} // namespace zeph
