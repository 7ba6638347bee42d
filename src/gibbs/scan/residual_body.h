// The fast body of the scan: it keeps the residuals of all records and touches
// each entry of a group once when the group is entered and once when its change
// goes into the residuals. What a round does, and in which order, is that of the
// plain body (record_pass); numbers agree to rounding.
#pragma once

#include "gibbs/scan/scan_records.h"
#include "input/run_records.h"

namespace zeph {

// Which body scans the rounds of this run; the first call chooses it and builds the
// form. The fast one serves every model but
//  - above test level 1, whose prints show whole right-hand sides, diagonal
//    blocks and records as the plain body reads them;
//  - designs that can't be stored as columns (build_residual_form).
scan_body body_of(scan_records& r, const directives& asked);

struct residual_body {
  // Before begin_round: E up to date, and the values of a record come from there. begin_round then finds it
  // so; who changes y or solutions in between keeps E with them.
  void ready_head(scan_records& r, const directives& asked, const round_state& state) const;
  // Brings E up to date with the solutions, and sums the round's diagonal blocks where they change.
  void begin_round(scan_records& r, const directives& asked, const round_state& state,
                   scan_stage stage) const;
  // RHS of group g: what its records give, the level's own part included.
  void enter_group(scan_records& r, const directives& asked, const round_state& state, scan_stage stage,
                   std::int32_t g) const;
  // The levels in order, as scan_levels; levels of small order are drawn in line.
  void solve_group(scan_records& r, const directives& asked, round_state& state, chain_counts& counts,
                   scan_stage stage, std::int32_t g, solver_sums& sums) const;
  // Orders that are drawn in line: from the sums that the draws have left; larger ones: from the blocks;
  // levels that meet in a record: by a pass over the records, with the group's change in the residuals.
  void sum_factor(scan_records& r, const directives& asked, std::int32_t g) const;
  void take_factor(scan_records& r, const round_state& state, std::int32_t g) const;
  void restrict_group(scan_records& r, std::int32_t g) const;
  void leave_group(scan_records& r, std::int32_t g) const;
  void residual_pass(scan_records& r, const directives& asked, const round_state& state, double& lik) const;
  // E holds y - Z b of all records; the values of a record come from there.
  void ready_values(scan_records& r, const directives& asked) const;
};

// E(rec,t) = y - Z b for the records lo+1..hi with sol as it is now. For missing traits y is
// what Y_M holds; in the solver their residual is 0.
void fresh_residuals(const model_records& model, const equation_layout& layout, const design_store& design,
                     const sampler_store& sampler, residual_form& fast, const directives& asked,
                     std::int64_t lo, std::int64_t hi);

} // namespace zeph
