// The walk over the groups of a round, and what a body of the scan offers it:
//   ready_head      before a round: says where the values of a record come from, for moves of traits
//   begin_round     head of a pass over the groups: what all groups need of the records
//   enter_group     RHS of group g = what its levels get from the records, with sol as it is
//   solve_group     its levels in order, links taken out, solved or drawn
//   sum_factor      work.moves.work.sums of a random factor that moves now, its levels drawn
//   take_factor     that factor's move: solutions, and what the body has made from them
//   restrict_group  restricted equations go to 0
//   leave_group     the group's solutions have changed
//   residual_pass   after the groups: residuals, their products, missing traits, density (Bddrmc_sscp)
//   ready_values    says where the values of a record come from in the passes over latent traits
// Two bodies do so: record_pass, which says what a round means, and residual_body. Draws, their
// order and what is written are the same; numbers agree to rounding.
#pragma once

#include "gibbs/moves/factor_moves.h"
#include "gibbs/scan/scan_records.h"

namespace zeph {

// True when group g belongs to the stage that the scan is in.
inline bool in_stage(const design_store& design, scan_stage stage, std::int32_t g) {
  return stage == scan_stage::all || design.covariates.feeds(g) == (stage == scan_stage::sources);
}

// The move of the random factor of group g, right after its last level.
template <class Body>
void move_factor(const Body& body, scan_records& r, const directives& asked, const round_state& state,
                 std::int32_t g) {
  if (!factor_moves_now(r, state, g)) return;
  body.sum_factor(r, asked, g);
  if (decide_factor_move(r, asked, state, g)) body.take_factor(r, state, g);
}

// All groups of the stage in order.
template <class Body>
void scan_groups(Body& body, scan_records& r, const directives& asked, round_state& state,
                 chain_counts& counts, scan_stage stage, solver_sums& sums) {
  for (std::int32_t g = 1; g <= r.layout.ngroups; ++g) {
    if (!in_stage(r.design, stage, g)) continue;
    if (asked.test_level > 1) say_group_start(r.report, g);
    body.enter_group(r, asked, state, stage, g);
    body.solve_group(r, asked, state, counts, stage, g, sums);
    move_factor(body, r, asked, state, g);
    body.restrict_group(r, g);
    body.leave_group(r, g);
  }
}

} // namespace zeph
