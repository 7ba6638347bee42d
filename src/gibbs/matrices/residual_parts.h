// Draw of a residual matrix with covariances held at zero, part by part.
//
// A pair of traits is free when its covariance is neither held at zero by the model nor zero by kind
// (kinds 5, 7 and 8 with each other and with 4). The connected parts of the graph of free pairs are
// independent given the residuals, and each is drawn by itself, parts by their first trait. Of part b, p
// traits of nt, n records, v prior degrees of freedom:
//   inverse Wishart prior, v - nt + p degrees of freedom, scale (v - nt - 1) R0_b (mean R0_b), or uniform
//   when v <= nt + 1: df = n + v - nt + p or n - p - 1.
// A part without a pair held at zero: the draws of a whole matrix, of order p. Another one, for each trait j
// in turn, o the others, V = R_oo, C the columns of the identity for the free covariances s of j, S the sums
// of squares with the prior:
//   A = C'V^-1 S_oo V^-1 C,  m = A^-1 C'V^-1 S_oj,  q = S_jj - m'A m,
//   g = q/chi-square(df + p - 1 - |s|),  s ~ N(m, g A^-1),  R_oj = C s,  R_jj = g + s'C'V^-1 C s,
// the full conditional distribution of row j: R. Silva and Z. Ghahramani, Journal of Machine Learning
// Research 10 (2009) 1187-1238.
#pragma once

#include "gibbs/matrices/constrained_wishart.h"
#include "input/sampler_store.h"

#include <vector>

namespace zeph {

struct residual_part {
  std::vector<std::int32_t> traits;            // ascending, from 1
  bool held = false;                           // some pair in it is held at zero
  std::vector<std::vector<std::int32_t>> free; // [j], positions in the part, from 0: free covariances of j
  mat<double> R, S, S_inverse, W;              // p x p: present matrix, sums, their inverse, the draw
  vec<double> SCALE;                           // p
  constrained_work constrained;                // when variances are fixed
  mat<double> V, V_inverse;                    // p - 1
  mat<double> A, B, T;                         // largest |s| x |s|, p - 1 x |s|, twice
  vec<double> m, z;                            // |s|
};

// The part that a trait is in.
struct free_part {
  std::vector<std::int32_t> traits; // ascending, from 1
  bool held = false;                // some pair in it is held at zero
  std::int32_t free = 0;            // free covariances of the trait
};
free_part free_part_of(const model_records& m, std::int32_t t, reporting& report);

struct residual_parts {
  std::vector<residual_part> parts; // empty: the matrix is one part without zeros, drawn whole
};

// Finds the parts and takes their work areas. A pair held at zero within a part of fixed variances has no
// draw: item NORCOV of the file `sampler`, code 16.
void find_residual_parts(const model_records& m, const directives& asked, residual_parts& parts,
                         matrix_draw_work& matrix_work, reporting& report);

// W (nt x nt) holds the sums of squares with the prior, scale (v - nt - 1) R0 where v > nt + 1; on return the
// draw. R: the current matrix. From the combined source: of a part without zeros what `rinvwish` or
// `rinvwish_con` takes, else per trait one gamma deviate and |s| normals.
void draw_residual_parts(reporting& report, random_sources& sources, residual_parts& parts, const double* R,
                         std::int64_t records, std::int64_t prior_df, mat<double>& W,
                         matrix_draw_work& matrix_work);

} // namespace zeph
