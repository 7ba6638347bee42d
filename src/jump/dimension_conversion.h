// From one dimension of a random factor to the next: a new last row of its
// matrix, and new solutions for every level with the conversion that belongs to
// them. n is the dimension in the large model, m = n - 1 the one in the small.
#pragma once

#include "numerics/arrays.h"
#include "numerics/matrix_draws.h"

#include <cstdint>

namespace zeph {

struct jump_records;

// Work of the conversion of one level, of the largest order met.
struct conversion_work {
  vec<double> aijmax;           // last test before a complete conversion: aijmax(1)/aijmax(n) at most 3
  mat<double> M, Minv;          // of the conversion matrix
  mat<double> pn, pn_lost;      // the conversion matrix, and a copy that its factor destroys
  vec<double> packed;           // a factor's matrix, packed
  vec<logical> swept;           // its rows
  vec<double> ginv, b;          // packed inverse of the leading block; coefficients of the last row on it
  vec<double> w;                // a level's solutions before the conversion
  bool singular_told = false;   // the listing has the line on a singular conversion
  matrix_draw_work matrix_work; // of sciwhinag
};

// Sizes the work for factors up to this order; aijmax(1) = 4, all others 1: every
// level takes the simple conversion, which is its own reverse.
void fit_conversion_work(reporting& report, conversion_work& work, std::int32_t order);

// What the levels of a factor share: packed inverse of the leading n-1 rows of its
// matrix, coefficients b of row n on them, conditional standard deviation of row n.
struct conversion_terms {
  std::int32_t n = 0;
  const double* ginv = nullptr;
  const double* b = nullptr;
  double cstd = 0;
};

// Draws rows m+1..n of cov (n x n, leading dimension ld) given its leading block from the
// inverse Wishart distribution (df, scale) of the whole. From the combined source: one
// `wishart_draw` of order n - m, then one `mvn_draw` of (n - m) m. A block without
// inverse is reported ("T3inv", "LittleT1", "Lambda11" "not p.d."; "npd matrix
// sampled"), stop, code 16; df below n - m stops as in wishart_draw.
void sciwhinag(reporting& report, random_sources& sources, matrix_draw_work& work, std::int32_t n,
               std::int32_t m, double* cov, std::int64_t ld, std::int64_t df, const double* scale,
               std::int64_t lds);

// For identity factors; jump.large_model, jump.cov_new and jump.jump_down describe the move.
// sol(l,n) is normal given sol(l,1..m) with row n of the matrix:
//   up:   z of `ranmar_kr_normals`, a number a level; sol(l,n) = b' sol(l,1..m) + cstd z
//   down: z = (sol(l,n) - b' sol(l,1..m)) / cstd, sol stays
// prop_z = z, conv_sol = the converted solutions (pup, pdn), jacobian grows. Data
// blocks come from CDI. A matrix with a pivot below 1e-12 is reported, stop, code 16.
void samppegm(jump_records& r, std::int32_t k);

// For pedigree factors; jump.new_model describes the move. Up: trait m of each level in
// the order of the generations, c_l sd z + half the sum of the known parents' values,
// c_l^2 = 1 - (known parents)/4, sd the conditional standard deviation of row m; then
// the regression on the level's other traits is added. Down: the same solved for z. z, conv_sol
// = sol, and jacobian = sum of ln(c_l sd) are those of the large model's last row. A
// proposed dimension 1 (m < 2) is reported, stop, code 16; kept: a pedigree
// factor that has grown can't go back to one trait.
void sampanim(jump_records& r, std::int32_t k);

// Conversion of a level on the way up. block: packed data block of the level, order n;
// u: its n - 1 solutions; elast, z: conditional mean and standard normal of the new one; out(1..n).
// With w = (u, elast + cstd z):
//   complete: out = pn' w, pn = [D (D + ginv)^-1, 0; -b'/cstd, 1/cstd], D the data block
//   simple:   out = w, when pn has not full rank, or the ratio test fails
// jacobian += ln cstd, complete: + ln det pn. level is reported with a singular pn, once a move.
void pup(reporting& report, conversion_work& work, std::int32_t level, const double* block,
         const conversion_terms& t, double elast, double z, const double* u, double* out, double& jacobian);

// On the way down, u the level's n solutions. A data block whose first element is below 1.2
// takes the simple conversion, out = u and jacobian += ln cstd, without a look at pn.
void pdn(reporting& report, conversion_work& work, std::int32_t level, const double* block,
         const conversion_terms& t, const double* u, double* out, double& jacobian);

} // namespace zeph
