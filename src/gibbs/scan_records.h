// What one round of the scan works on, and its work areas.
#pragma once

#include "gibbs/constrained_wishart.h"
#include "gibbs/mixture_distance.h"
#include "gibbs/record_values.h"
#include "gibbs/residual_conditional.h"
#include "gibbs/residual_form.h"
#include "input/category_store.h"
#include "input/design_store.h"
#include "input/equation_layout.h"
#include "input/mixture_store.h"
#include "input/relationships.h"
#include "input/sampler_store.h"
#include "numerics/matrix_draws.h"
#include "numerics/random_sources.h"

namespace zeph {

// Work areas of the scan, sized once before the chain.
struct scan_work {
  std::int32_t nmax = 0;                // largest number of equations of a level
  vec<double> PARM;                     // packed bordered block of a level, of order max(nmax, nt) + 1
  vec<logical> LOGI;                    // its rows: swept or not
  vec<double> PARMS;                    // swept triangle of the last block
  vec<double> link_sums;                // nmax: sums of relationship element times solution
  vec<std::int32_t> IW2;                // nt: missing traits of a record
  residual_conditional conditional;     // a residual matrix swept on some of its traits
  record_values values;                 // of the current record
  mat<double> riff;                     // nt x nt: residual inverse of the current record
  vec<double> CMAT;                     // nmax^2, column-major: block of a level, then its factor
  vec<double> MEAN, WORK, W;            // max(nmax, nt): mean, standard normals, deviates of a level
  vec<double> COV;                      // nt^2: covariance of the missing traits given the others
  vec<double> X;                        // max(nmax, nt): one draw
  vec<double> GMN;                      // gmn_size(nt): set-up of the draw of missing traits
  matrix_draw_work matrix_work;         // of the multivariate draws
  vec<logical> pos, cured;              // nt: what its latent traits are known to be
  vec<logical> z, l_mix_z;              // nt: its indicators; the traits whose mixture coefficients are on
  vec<double> e1, e0;                   // nt: its residuals in component 1 and 0
  std::vector<std::int32_t> distances;  // equations of mixture distances in group 1
  vec<std::int32_t> category;           // nt
  cube<double> conditional_coefficient; // nt x nt x groups: of trait i in the mean of trait t, (i,t,h)
  mat<double> conditional_variance;     // nt x groups
  constrained_work constrained;         // of residual matrices with fixed variances
  residual_form fast;                   // of the fast body
  array<double, 4> pattern_inverse;     // nt x nt x patterns (0:n_pat) x groups: HETGR_RIIF, matrix first
};

// The records of one run that the scan reads and changes.
struct scan_records {
  model_records& model;
  equation_layout& layout;
  design_store& design;
  const relationship_store& relations;
  sampler_store& sampler;
  category_store& categories;
  mixture_store& mixtures;
  scan_work& work;
  random_sources& sources;
  reporting& report;
};

// The entries of the records, with the solutions as they are.
inline record_entries entries_of(const scan_records& r, std::int32_t analysis_type) {
  return {r.design, r.layout, r.sampler.sol, analysis_type};
}

// Allocates the work areas; failures are reported under the routine that
// uses them. Needs the groups.
void allocate_scan_work(const model_records& m, const equation_layout& layout, scan_work& work,
                        reporting& report);

} // namespace zeph
