#include "formats/column_format.h"
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

constexpr int label_width = 51, label_end = 60;

// A label, dots up to its width, then the words.
void say_words(reporting& report, std::string label, std::string_view words) {
  label.append(" ");
  label.append(static_cast<std::size_t>(std::max(0, label_width - static_cast<int>(label.size()))), '.');
  say(report,
      column_line().X(1).T(1).A(label, label_end).X(1).A(words, static_cast<int>(words.size())).str());
}

std::string factor_label(std::int32_t k) { return "Random factor no" + format_I(k, 3); }
std::string pair_label(const pair_move& pair) {
  return "Random factors no" + format_I(pair.k, 3) + " and" + format_I(pair.other, 3);
}
std::string trait_label(std::int32_t t) { return "Trait no" + format_I(t, 3); }

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

std::string words_of(const factor_move& move) {
  const std::string draws =
      move.relaxed ? "relaxed draws" : "draws as without the word: levels meet in a record";
  if (!move.moves) return draws + "; no move: " + std::string(move.why);
  return move.relaxed ? draws + ", moves" : "moves; " + draws;
}

std::string words_of(const trait_move& move, bool binary) {
  if (!move.moves) return "no move: " + std::string(move.why);
  return binary ? "scale moves" : "thresholds and scale move";
}

void say_moves(const model_records& model, const move_store& moves, reporting& report) {
  say_words(report, "Moves that mix", "on");
  std::int32_t k = 0;
  for (const factor_move& move : moves.factors) say_words(report, factor_label(++k), words_of(move));
  for (const pair_move& pair : moves.pairs) say_words(report, pair_label(pair), "levels exchange");
  for (const trait_move& move : moves.traits)
    say_words(report, trait_label(move.t), words_of(move, model.MODEL(move.t).TRAIT_TYPE == trait_liability));
}

// ---- shares at the end

constexpr double rare_share = 0.2;

void say_share(reporting& report, const std::string& label, const move_count& count) {
  column_line line;
  std::string words = "Accepted moves, " + label + " ";
  words.append(static_cast<std::size_t>(std::max(0, label_width - static_cast<int>(words.size()))), '.');
  line.X(1).T(1).A(words, label_end).X(1);
  for (const int when : {0, 1}) {
    if (count.tried[when] == 0)
      line.A("-", 8);
    else
      line.F(static_cast<double>(count.accepted[when]) / static_cast<double>(count.tried[when]), 8, 3);
  }
  say(report, line.str());
  if (count.tried[1] > 0 &&
      static_cast<double>(count.accepted[1]) < rare_share * static_cast<double>(count.tried[1]))
    say(report, "NOTE: this move rarely succeeds; the chain is right but gains little");
}

std::string in_a_sentence(std::string label) {
  label[0] = static_cast<char>(label[0] - 'A' + 'a');
  return label;
}

} // namespace

void find_moves(scan_records& r, const directives& asked, const round_state& state) {
  if (!asked.sampler.moves) return;
  say(r.report);
  if (const std::string_view reason = reason_of_run(asked); !reason.empty()) {
    say_words(r.report, "Moves that mix", reason);
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

void report_moves(const move_store& moves, reporting& report) {
  if (!moves.on) return;
  say(report);
  std::int32_t k = 0;
  for (const factor_move& move : moves.factors)
    if (++k; move.moves) say_share(report, in_a_sentence(factor_label(k)), move.count);
  for (const pair_move& pair : moves.pairs) {
    say_share(report, in_a_sentence(pair_label(pair)) + ", first", pair.count[0]);
    say_share(report, in_a_sentence(pair_label(pair)) + ", second", pair.count[1]);
  }
  for (const trait_move& move : moves.traits)
    if (move.moves) say_share(report, in_a_sentence(trait_label(move.t)), move.count);
}

} // namespace zeph
