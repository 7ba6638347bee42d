// Draw of a residual covariance matrix of which some variances are fixed at 1:
// an inverse Wishart matrix under the restrictions that liabilities bring.
//
// The traits fall into three lists of positions in the matrix:
//   lc   free variances (Gaussian, censored, ordered categories)
//   cc   variance 1, correlations among them free (binary liabilities)
//   ccu  variance 1, covariance 0 with every other trait of cc and ccu (mixture
//        indicators, sequences)
// Covariances of lc with both others are free. With C = cc then ccu, P = R_CC,
// T1 = R_ll - R_lC P^-1 R_Cl and T2 = P^-1 R_Cl, the inverse Wishart kernel
// |R|^-(df+p+1)/2 exp(-tr(S R^-1)/2) falls into independent parts:
//   T1           inverse Wishart, df, S_ll - S_lC S_CC^-1 S_Cl
//   T2 given T1  normal, mean S_CC^-1 S_Cl, covariance T1 (x) S_CC^-1
//   P            restricted inverse Wishart, of the cc block with nu = df - l + u
// I. R. Korsgaard, A. H. Andersen and D. Sorensen, Genetics Selection Evolution
// 31 (1999) 177-181; I. R. Korsgaard and others, Genetics Selection Evolution 35
// (2003) 159-183. docs/model.md derives the draw.
#pragma once

#include "input/model_records.h"
#include "input/run_records.h"
#include "numerics/matrix_draws.h"

#include <vector>

namespace zeph {

// Positions in the residual matrix, from 1, ascending.
struct residual_lists {
  std::vector<std::int32_t> lc, cc, ccu;
  std::vector<std::int32_t> C; // cc, then ccu
};

// Lists and work areas, made once at the start of a run. c = cc + ccu traits.
struct constrained_work {
  residual_lists lists;
  mat<double> S, A;                               // nt x nt: sums of squares, their inverse
  mat<double> S_CC, S_CC_inverse;                 // c x c
  mat<double> T1, Q, A_ll;                        // l x l
  mat<double> T2;                                 // c x l
  mat<double> H, V, L1, L2;                       // l c x l c
  vec<double> mean, x;                            // l c
  mat<double> P, P_new, Z, S_KK_inverse, inverse; // cc x cc
  mat<double> P_C;                                // c x c
  vec<double> d, scale_new;                       // cc
};

// Sorts the traits into the lists and takes the work areas. When matrices are
// sampled, a trait of a type that has no list is illegal input of MODINF (code 16).
void prepare_residual_draw(const model_records& m, const directives& asked, constrained_work& work,
                           matrix_draw_work& matrix_work, reporting& report);

// The same for the matrix of these traits alone (ascending, from 1): the lists are positions among them.
void prepare_part_draw(const model_records& m, const directives& asked,
                       const std::vector<std::int32_t>& traits, constrained_work& work,
                       matrix_draw_work& matrix_work, reporting& report);

// W = one draw for the sums of squares work.S with inverse work.A (nt x nt, both
// triangles), df degrees of freedom; R: the current matrix. From the combined
// source, in this order: with lc the draw of T1, then of T2; with two and more of
// cc five steps of an exact accept-or-reject chain for their correlations, each
// one gamma deviate per trait, one inverse Wishart matrix, one uniform. SCALE (nt)
// keeps the scale of the proposal taken last at the positions of cc. Without
// constrained traits W is `rinvwish`(A, df). Degrees of freedom below the order of
// a block stop as in `wishart_draw`.
void rinvwish_con(reporting& report, random_sources& sources, constrained_work& work, const double* R,
                  std::int64_t df, mat<double>& W, vec<double>& SCALE, matrix_draw_work& matrix_work);

} // namespace zeph
