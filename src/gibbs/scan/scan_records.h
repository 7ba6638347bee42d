// The records of a run that a round works on, and the work records of its units, from all wings.
//
// From outside this wing is entered by gibscan.h, one round; by the bodies (record_pass.h, residual_body.h)
// and record_product.h where a pass of another unit walks the records itself, as the moves between models
// and the mixtures do; and by this header, which holds what a round is handed.
#pragma once

#include "gibbs/latent/latent_updates.h"
#include "gibbs/matrices/covariance_draws.h"
#include "gibbs/moves/move_store.h"
#include "gibbs/residuals/record_density.h"
#include "gibbs/residuals/record_values.h"
#include "gibbs/residuals/residual_sums.h"
#include "gibbs/scan/group_scan.h"
#include "gibbs/scan/level_meetings.h"
#include "gibbs/scan/record_product.h"
#include "gibbs/scan/residual_form.h"
#include "input/mixture_store.h"

namespace zeph {

// What the units of a round work in, each in its own; sized once before the chain.
struct round_work {
  level_work levels;
  residual_inverses inverses;
  record_values values;
  missing_draws missing;
  latent_work latent;
  mixture_work mixture;
  sweep_work sweep;        // of the exact sampler
  level_meetings meetings; // of the exact sampler
  density_work density;    // of the exact sampler
  covariance_work matrices;
  move_store moves;
  scan_body body = scan_body::unchosen;
  residual_form fast; // of the fast body
};

// Sizes them; a failure is reported under the routine that uses the array. Needs the groups.
void allocate_round_work(const model_records& m, const equation_layout& layout, round_work& work,
                         reporting& report);

// The records of one run that a round reads and changes: what GIBSCAN, the scan bodies and the
// passes over all records take. The routines that they call take what they touch.
struct scan_records {
  model_records& model;
  equation_layout& layout;
  design_store& design;
  const relationship_store& relations;
  sampler_store& sampler;
  category_store& categories;
  mixture_store& mixtures;
  round_work& work;
  random_sources& sources;
  reporting& report;
};

// The entries of the records, with the solutions as they are.
inline record_entries entries_of(const design_store& design, const equation_layout& layout,
                                 const sampler_store& sampler, analysis analysis_type) {
  return {design, layout, sampler.sol, analysis_type};
}
inline record_entries entries_of(scan_records& r, analysis analysis_type) {
  return entries_of(r.design, r.layout, r.sampler, analysis_type);
}

} // namespace zeph
