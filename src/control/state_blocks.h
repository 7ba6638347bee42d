// What the state of a chain holds: the blocks of statelast in their order. The routines here are walks
// that a writer and a reader of blocks take alike (samples/state_records.h).
//
// Every member of the records of a run (control/run.h) is one of these; who adds a member decides:
//   constant  after the start of the run, and the same again in a run on the same inputs
//   work      written before it is read in every round, or in the reports of the end
//   STATE     anything else: it belongs into a block below
//
// report            constant or of the listing alone
// asked             constant but for STATE: the seeds where the clock gave them, nburn and restart in force
// state             STATE: iround, as the round that is finished, ntr; work: ist; constant: gropd, matopd
// counts            STATE: P_ROUND, nsamples, nsamp_pred, nlabel; work: stop_seen
// model             constant but for HETG_N_OBS of the residual, which is counted from IRESG_M, and the codes
//                   2 and 3 of REG_TYPE, whose difference nothing reads
// layout            constant but for NGR(:,2), which is ntr; work: DI; STATE: CDI where a chain moves between
//                   models, since a move down reads those of the last move up
// design            constant: equations, traits, weights, masks, bounds, codes; STATE: Y_M, IRESG_M, ZD_M of
//                   mixture indicators and of covariables made from solutions, LOG_Z, CURE_YHAT;
//                   work: XD, ZD, ZEPH_RES (written in the round that fills it), means and centred
//                   solutions of the covariables
// relations         constant
// sampler           STATE: sol, GIF, GDET, RDET, RCOV, RCOVI, IDET_RVAR, LVDET, sscp, SCALE of IW_STR and the
//                   sums solpostmean, pev, PARPOSTMEAN, PARVAR, dic_ressum, dic_rrsum, dic_s;
//                   work: RHS, the other members of IW_STR, dic_m; constant: nf, G, LNCOV, IREST;
//                   of density STATE: samples, top, sum, mean, ss, total; constant: position, without;
//                   SRCOV, SRCOVI, W_RCOV, COVSAMPM, sols and pars are read by nothing
// categories        STATE: thr, thrpostm, thrpostsd; work: minu, maxu; constant: catobs, ncat_t, trait
// mixtures          STATE: mix_pi, its sums, TAU_STAT, MIXZ_COUNT, MIXZ_LAST; membership_made is true in a
//                   chain that is continued; constant: flag
// deviations        STATE: calls, TD, PTD and their sums; work: W, W_PTD, A, block, inverse, v, traits_ptd;
//                   constant: factor, levels, row, N_TD, N_PTD
// sources           STATE: the Marsaglia source, as the state that single draws would have left, and the one
//                   that it saved last; all of the combined source; work: the gamma draws' set-up, which
//                   follows from the shape of a draw; ranmar_last is read by nothing
// work              work, but STATE: E of the fast body where its valid_round says that the next round begins
//                   with it: residuals of imputed values differ in their last bits from those computed
//                   from scratch. The form itself is constant, and is built before E is read. Of the exact
//                   sampler STATE: records and kept of sweep.components, SCALE of matrices.parts;
//                   constant: meetings but for their inverse, which is work; work: density.
//                   Of moves STATE: the counts of each; constant: what moves; work: their work
// files, jump.zeinfo  the growing files; their lengths are in the state, their rows in themselves
// jump              STATE: blocks_made; work: the move of the round, conversion, saved_sscp, diagnostic;
//                   constant: log_det_A, settled, blocks_stay
// predictions       STATE: s, q; constant: record, trait, value
// r_parm            closed before the first round
// saved             of this unit
#pragma once

#include "control/run.h"
#include "gibbs/scan/residual_body.h"

#include <array>

namespace zeph {

inline constexpr std::string_view names_of_growing_files[] = {
    "gib.samples", "py", "lpm", "sol.samples", "res.samples", "mix_pi", "threshold", "scr31", "zeinfo"};
inline constexpr std::size_t growing_files = std::size(names_of_growing_files);

// visit(n, writer) for each growing file in the order of their names.
template <class Visit> void each_growing_file(run& r, Visit&& visit) {
  visit(0, r.files.gib_samples), visit(1, r.files.py), visit(2, r.files.lpm);
  visit(3, r.files.sol_samples), visit(4, r.files.res_samples), visit(5, r.files.mix_pi);
  visit(6, r.files.threshold), visit(7, r.files.scr31), visit(8, r.jump.zeinfo);
}

// ---- where the chain was

// Sums of the inputs; a reader finds those of the file in `digits`.
template <class Door> void walk_inputs(Door& door, std::vector<input_print>& inputs) {
  for (input_print& input : inputs)
    door.block("SHA-256 of " + input.name, input.digits.data(), static_cast<std::int64_t>(sha256::length));
}

// p.ntr has its length.
template <class Door> void walk_position(Door& door, chain_position& p) {
  door.block("analysis type", &p.analysis_type, 1);
  door.block("phase", &p.sampling, 1);
  door.block("round", &p.round, 1);
  door.block("P_ROUND", &p.P_ROUND, 1);
  door.block("model", p.ntr.data(), static_cast<std::int64_t>(p.ntr.size()));
  door.block("seeds", p.seeds, 2);
  door.block("burn-in", &p.nburn, 1);
  door.block("restart", &p.restart, 1);
}

template <class Door> void walk_growing_files(Door& door, std::array<growing_file, growing_files>& files) {
  for (std::size_t n = 0; n < growing_files; ++n) {
    const std::string name(names_of_growing_files[n]);
    door.block("length of " + name, &files[n].length, 1);
    door.block("end of " + name, files[n].end.data(), static_cast<std::int64_t>(sha256::length));
  }
}

// ---- the values of the chain

template <class Door> void walk_sampler(Door& door, sampler_store& s) {
  block_of(door, "sol", s.sol);
  block_of(door, "GIF", s.GIF);
  block_of(door, "GDET", s.GDET);
  block_of(door, "RDET", s.RDET);
  block_of(door, "RCOV", s.RCOV);
  block_of(door, "RCOVI", s.RCOVI);
  block_of(door, "IDET_RVAR", s.IDET_RVAR);
  block_of(door, "LVDET", s.LVDET);
  block_of(door, "sscp", s.sscp);
  std::size_t f = 0;
  for (inverse_wishart_store& store : s.IW_STR) block_of(door, "SCALE " + std::to_string(++f), store.SCALE);
  block_of(door, "solpostmean", s.solpostmean);
  block_of(door, "pev", s.pev);
  block_of(door, "PARPOSTMEAN", s.PARPOSTMEAN);
  block_of(door, "PARVAR", s.PARVAR);
  block_of(door, "dic_ressum", s.dic_ressum);
  block_of(door, "dic_rrsum", s.dic_rrsum);
  block_of(door, "dic_s", s.dic_s);
}

// visit(coefficient) for each ZD_M that the chain changes, record by record.
template <class Visit>
void each_changing_coefficient(const equation_layout& layout, design_store& design, const directives& asked,
                               Visit&& visit) {
  for (std::int32_t irec = 1; irec <= design.nobs; ++irec)
    for (std::int32_t e = 1; e <= design.M_M(irec); ++e)
      if (design.XD2_M(e, irec) > 0 && coefficient_changes(layout, design, asked, irec, e))
        visit(design.ZD_M(e, irec));
}

template <class Door>
void walk_design(Door& door, const equation_layout& layout, const directives& asked, design_store& d) {
  block_of(door, "Y_M", d.Y_M);
  block_of(door, "IRESG_M", d.IRESG_M);
  block_of(door, "CURE_YHAT", d.CURE_YHAT);
  block_of(door, "LOG_Z", d.LOG_Z);
  std::int64_t n = 0;
  each_changing_coefficient(layout, d, asked, [&](double&) { ++n; });
  door.begin("ZD_M", sizeof(double), n);
  each_changing_coefficient(layout, d, asked, [&](double& z) { door.bytes(&z, sizeof z); });
}

template <class Door> void walk_latent(Door& door, category_store& categories, mixture_store& mixtures) {
  for (category_record& c : categories.catstr) {
    const std::string trait = " " + std::to_string(c.trait);
    block_of(door, "thr" + trait, c.thr);
    block_of(door, "thrpostm" + trait, c.thrpostm);
    block_of(door, "thrpostsd" + trait, c.thrpostsd);
  }
  block_of(door, "mix_pi", mixtures.mix_pi);
  block_of(door, "mix_pi_sum", mixtures.mix_pi_sum);
  block_of(door, "mix_pi_ss", mixtures.mix_pi_ss);
  std::size_t t = 0;
  for (tau_sums& sums : mixtures.TAU_STAT) {
    const std::string trait = " " + std::to_string(++t);
    block_of(door, "TAU_STAT%SUM" + trait, sums.SUM);
    block_of(door, "TAU_STAT%SS" + trait, sums.SS);
  }
  block_of(door, "MIXZ_COUNT", mixtures.MIXZ_COUNT);
  block_of(door, "MIXZ_LAST", mixtures.MIXZ_LAST);
}

template <class Door> void walk_deviations(Door& door, deviation_store& d) {
  door.block("TD_PTD calls", &d.calls, 1);
  block_of(door, "TD", d.TD);
  block_of(door, "S_TD", d.S_TD);
  block_of(door, "SS_TD", d.SS_TD);
  block_of(door, "PTD", d.PTD);
  block_of(door, "S_PTD", d.S_PTD);
  block_of(door, "SS_PTD", d.SS_PTD);
}

template <class Door> void walk_counts(Door& door, chain_counts& counts, prediction_store& predictions) {
  door.block("nsamples", &counts.nsamples, 1);
  door.block("nsamp_pred", &counts.nsamp_pred, 1);
  door.block("nlabel", &counts.nlabel, 1);
  door.begin("YPRED", 2 * sizeof(double), static_cast<std::int64_t>(predictions.YPRED.size()));
  for (prediction& y : predictions.YPRED) {
    door.bytes(&y.s, sizeof y.s);
    door.bytes(&y.q, sizeof y.q);
  }
}

// ---- random sources

template <class Door> void walk_marsaglia(Door& door, const std::string& name, marsaglia_state& s) {
  door.block(name + " U", s.U.data(), static_cast<std::int64_t>(s.U.size()));
  double reals[] = {s.C, s.CD, s.CM};
  std::int32_t integers[] = {s.I97, s.J97, s.TEST};
  door.block(name + " C", reals, 3);
  door.block(name + " I97", integers, 3);
  if constexpr (Door::reads) {
    s.C = reals[0], s.CD = reals[1], s.CM = reals[2];
    s.I97 = integers[0], s.J97 = integers[1], s.TEST = integers[2] != 0;
  }
}

// curntg, qrgnin, qrgnsd; then ig1, ig2, lg1, lg2, cg1, cg2, qanti of each virtual generator.
template <class Door> void walk_combined(Door& door, combined_source& s) {
  std::array<std::int32_t, 3> head = {s.curntg, s.qrgnin, s.qrgnsd};
  door.block("combined source", head.data(), 3);
  door.begin("virtual generators", 7 * sizeof(std::int32_t), virtual_generators);
  for (virtual_generator& g : s.generators) {
    std::int32_t of[7] = {g.ig1, g.ig2, g.lg1, g.lg2, g.cg1, g.cg2, g.qanti};
    door.bytes(of, sizeof of);
    if constexpr (Door::reads) {
      g.ig1 = of[0], g.ig2 = of[1], g.lg1 = of[2], g.lg2 = of[3], g.cg1 = of[4], g.cg2 = of[5];
      g.qanti = of[6] != 0;
    }
  }
  if constexpr (Door::reads) s.curntg = head[0], s.qrgnin = head[1] != 0, s.qrgnsd = head[2] != 0;
}

// ---- exact sampler, moves between models, residuals

template <class Door> void walk_exact(Door& door, round_work& work, density_store& density) {
  std::size_t t = 0;
  for (component_counts& c : work.sweep.components) {
    const std::string trait = " " + std::to_string(++t);
    door.block("components" + trait, c.records, 2);
    door.block("components kept" + trait, &c.kept, 1);
  }
  door.block("density samples", &density.samples, 1);
  door.block("density total", &density.total, 1);
  block_of(door, "density top", density.top);
  block_of(door, "density sum", density.sum);
  block_of(door, "density mean", density.mean);
  block_of(door, "density ss", density.ss);
  std::size_t b = 0;
  for (residual_part& part : work.matrices.parts.parts)
    block_of(door, "SCALE of part " + std::to_string(++b), part.SCALE);
}

// How often each move was tried and accepted, in burn-in and after. Nothing in chains without moves.
template <class Door> void walk_moves(Door& door, move_store& moves) {
  if (!moves.on) return;
  const auto counts = [&](const std::string& name, move_count& count) {
    door.block(name + " tried", count.tried, 2);
    door.block(name + " accepted", count.accepted, 2);
  };
  std::size_t k = 0;
  for (factor_move& move : moves.factors) counts("moves of factor " + std::to_string(++k), move.count);
  for (pair_move& move : moves.pairs) {
    const std::string pair =
        "moves of factors " + std::to_string(move.k) + " and " + std::to_string(move.other);
    counts(pair + ", first", move.count[0]);
    counts(pair + ", second", move.count[1]);
  }
  for (trait_move& move : moves.traits) counts("moves of trait " + std::to_string(move.t), move.count);
}

template <class Door> void walk_jump(Door& door, run& r) {
  if (!moves_between_models(r.asked.analysis_type)) return;
  std::int32_t made = r.jump.blocks_made;
  door.block("blocks_made", &made, 1);
  if constexpr (Door::reads) r.jump.blocks_made = made != 0;
  for (std::int32_t k = 1; r.jump.blocks_made && k <= r.model.nramat; ++k)
    block_of(door, "CDI " + std::to_string(k), r.layout.CDI_of(r.layout.group_of_factor(k, r.model.nramat)));
}

// E last: its form is built from what was read before it, and checked.
template <class Door> void walk_residuals(Door& door, run& r, std::int64_t next_round) {
  residual_form& fast = r.work.fast;
  std::int32_t kept = r.work.body == scan_body::fast && fast.valid_round == next_round;
  door.block("residuals kept", &kept, 1);
  if (kept == 0) return;
  if constexpr (Door::reads) {
    scan_records records = records_of(r);
    if (body_of(records, r.asked) != scan_body::fast) fast.E.release(); // no room: refused by its size
    fast.valid_round = next_round;
  }
  block_of(door, "E", fast.E);
}

// All but the residuals, which walk_residuals takes last. `now`: the Marsaglia source.
template <class Door> void walk_chain(Door& door, run& r, marsaglia_state& now) {
  walk_sampler(door, r.sampler);
  walk_design(door, r.layout, r.asked, r.design);
  walk_latent(door, r.categories, r.mixtures);
  walk_deviations(door, r.deviations);
  walk_counts(door, r.counts, r.predictions);
  walk_marsaglia(door, "Marsaglia source", now);
  walk_marsaglia(door, "saved source", r.sources.marsaglia.saved);
  walk_combined(door, r.sources.combined);
  walk_exact(door, r.work, r.sampler.density);
  walk_moves(door, r.work.moves);
  walk_jump(door, r);
}

} // namespace zeph
