#include "gibbs/moves/move_listing.h"
#include "gibbs/moves/moves.h"
#include "gibbs/moves/pair_setup.h"
#include "gibbs/moves/trait_setup.h"
#include "gibbs/scan/scan_records.h"
#include "input/structures.h"
#include "listing/listing_rows.h"

#include <algorithm>
#include <string>

namespace zeph {
namespace {

// Why the run has no moves at all; empty: it has.
std::string_view reason_of_run(const directives& asked) {
  if (!samples_solutions(asked.analysis_type)) return "off: a solver has no chain";
  if (scans_in_two_stages(asked)) return "off: covariables made from solutions";
  return {};
}

// Factors of which two levels meet in a record.
void find_meeting_levels(const model_records& model, const design_store& d, std::vector<factor_move>& moves) {
  std::vector<std::int32_t> level(moves.size());
  for (std::int32_t irec = 1; irec <= d.nobs; ++irec) {
    std::ranges::fill(level, 0);
    for (std::int32_t j = 1; j <= d.M_M(irec); ++j) {
      const std::int32_t k = d.XD7_M(j, irec);
      if (k < 1 || k > model.nramat || d.XD2_M(j, irec) <= 0) continue;
      const auto at = static_cast<std::size_t>(k - 1);
      if (level[at] == 0) level[at] = d.XD4_M(j, irec);
      if (level[at] != d.XD4_M(j, irec)) moves[at].meets = true;
    }
  }
}

std::string_view why_no_move(const structure_record& factor, const directives& asked,
                             const round_state& state, std::int32_t k) {
  if (!samples_matrices(asked.analysis_type)) return "matrices as given";
  if (is_pedigree(factor) && factor.L_RAM) return "reduced animal model";
  if (has_parent_groups(factor)) return "phantom parent groups";
  if (factor.n_rc < 1) return "no rows";
  if (state.matopd(k) == 0) return "its matrix is not drawn";
  return {};
}

void find_factors(scan_records& r, const directives& asked, const round_state& state) {
  std::vector<factor_move>& moves = r.work.moves.factors;
  allocate_rows(r.report, moves, "factors", "find_moves", r.model.nramat);
  find_meeting_levels(r.model, r.design, moves);
  for (std::int32_t k = 1; k <= r.model.nramat; ++k) {
    factor_move& move = moves[static_cast<std::size_t>(k - 1)];
    // simultaneous over-relaxation of levels that use the values from the entry of the group can diverge
    move.relaxed = asked.sampler.exact || !move.meets;
    move.why = why_no_move(r.model.RMAT(k), asked, state, k);
    move.moves = move.why.empty();
  }
}

// Work of the factors' and pairs' moves: for the largest order of a factor that moves.
void allocate_move_work(const model_records& model, const std::vector<factor_move>& moves, move_work& w,
                        reporting& report) {
  std::int64_t p = 0;
  for (std::int32_t k = 1; k <= model.nramat; ++k)
    if (moves[static_cast<std::size_t>(k - 1)].moves) p = std::max<std::int64_t>(p, model.RMAT(k).n_rc);
  if (p == 0) return;
  allocate(report, w.sums.H, "H", "find_moves", p, p);
  allocate(report, w.sums.K, "K", "find_moves", p * p, p * p);
  for (mat<double>* x : {&w.A, &w.A_inverse, &w.C}) allocate(report, *x, "A", "find_moves", p, p);
  allocate(report, w.m, "m", "find_moves", p * p);
  allocate(report, w.row, "row", "find_moves", 2 * p);
}

} // namespace

void find_moves(scan_records& r, const directives& asked, const round_state& state) {
  if (!asked.sampler.moves) return;
  say(r.report);
  if (const std::string_view reason = reason_of_run(asked); !reason.empty()) {
    say_no_moves(reason, r.report);
    return;
  }
  move_store& moves = r.work.moves;
  moves.on = true;
  find_factors(r, asked, state);
  if (samples_matrices(asked.analysis_type)) find_pairs(r.model, r.design, moves.pairs, r.report);
  find_traits(r, asked, state);
  allocate_move_work(r.model, moves.factors, moves.work, r.report);
  say_moves(r.model, moves, r.report);
}

} // namespace zeph
