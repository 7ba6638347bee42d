// The plain body of the scan: it reads all records once at the head of a round
// and once per group, and rebuilds every record product each time. It is the
// meaning of the scan; faster bodies are tested against it.
// What a body offers: scan_groups.h.
#pragma once

#include "gibbs/moves/factor_moves.h"
#include "gibbs/scan/scan_records.h"
#include "input/run_records.h"

namespace zeph {

// Rebuilds RHS and the diagonal blocks DI from all records:
//   RHS(e) = sum over records of ZDRII y,  DI = diagonal blocks of Z'R^-1 Z,
// then adds the prior precision GIF(i,j,r) times the level's diagonal element
// of the relationship inverse to the blocks of each factor r with traits in the
// model (ntr(r) rows). A call with round 0 keeps the blocks without the precision in CDI.
void bddrmc_init(scan_records& r, std::int64_t iround, analysis analysis_type,
                 const std::vector<std::int32_t>& ntr, scan_stage stage = scan_stage::all);
inline void bddrmc_init(scan_records& r, const directives& asked, const round_state& state,
                        scan_stage stage) {
  bddrmc_init(r, state.iround, asked.analysis_type, state.ntr, stage);
}

// Takes out of the right-hand sides of group g the part of every equation that
// does not share both group and level, with sol as it is now.
void BDDRMC_GS(scan_records& r, const directives& asked, const round_state& state, scan_stage stage,
               std::int32_t g);

// Prints one record for testing, with the columns that nxd = 2..7 names. With
// any other nxd only the message routine is called and the run continues.
void BDDRMC_XD_PRINT(const model_records& model, const design_store& design, const sampler_store& sampler,
                     const residual_inverses& inverses, reporting& report, std::string_view name,
                     std::int32_t irec, std::int32_t nxd);

struct record_pass {
  void ready_head(scan_records& r, const directives&, const round_state&) const {
    values_from_entries(r.work.values);
  }
  void begin_round(scan_records& r, const directives& asked, const round_state& state,
                   scan_stage stage) const {
    bddrmc_init(r, asked, state, stage);
  }
  void enter_group(scan_records& r, const directives& asked, const round_state& state, scan_stage stage,
                   std::int32_t g) const {
    BDDRMC_GS(r, asked, state, stage, g);
  }
  void solve_group(scan_records& r, const directives& asked, round_state& state, chain_counts& counts,
                   scan_stage stage, std::int32_t g, solver_sums& sums) const {
    scan_levels(r, asked, state, counts, stage, g, sums);
  }
  void sum_factor(scan_records& r, const directives& asked, std::int32_t g) const {
    values_from_entries(r.work.values);
    sum_factor_by_records(r, asked, r.layout.group(g).number, r.layout.NGR(g, 2));
  }
  void take_factor(scan_records& r, const round_state&, std::int32_t g) const {
    take_factor_move(r.work.moves.work, r.layout, r.sampler, g, nullptr, nullptr);
  }
  void restrict_group(scan_records& r, std::int32_t) const { restrict_solutions(r.sampler); }
  void leave_group(scan_records&, std::int32_t) const {}
  void residual_pass(scan_records& r, const directives& asked, const round_state& state, double& lik) const {
    Bddrmc_sscp(r, asked, state, lik);
  }
  void ready_values(scan_records& r, const directives&) const { values_from_entries(r.work.values); }
};

} // namespace zeph
