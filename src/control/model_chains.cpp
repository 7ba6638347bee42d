#include "control/model_chains.h"

#include "formats/free_format.h"
#include "gibbs/moves/moves.h"
#include "gibbs/scan/gibscan.h"
#include "jump/jump_rounds.h"
#include "jump/jump_setup.h"
#include "listing/listing_rows.h"
#include "results/final_reports.h"

#include <algorithm>

namespace zeph {
namespace {

void say_stopped(reporting& report) {
  for (int i = 0; i < 3; ++i) say(report, "Stop signal received. Processing ends graceously");
}

// Rounds up to the last one, from the one after those that are finished. False when a file STOP ended
// them, for which only chains whose state is saved look.
bool run_rounds(run& r, scan_records& records, std::int64_t last) {
  for (r.state.iround = r.saved.finished + 1; r.state.iround <= last; ++r.state.iround) {
    GIBSCAN(records, r.asked, r.state, r.counts, r.files);
    if (!round_ends_the_run(r, false)) continue;
    say_stopped(r.report);
    return false;
  }
  return true;
}

void say_number(reporting& report, std::string_view name, std::int32_t number) {
  say(report, free_row().text(name).i(number).str());
}

void say_model(const run& r, reporting& report) {
  free_row row;
  row.text("Current model");
  for (const std::int32_t dimension : r.state.ntr) row.i(dimension);
  say(report);
  say(report, row.str());
}

bool has_next_model(const run& r) {
  for (std::int32_t k = 1; k <= r.model.nramat; ++k)
    if (r.state.ntr[static_cast<std::size_t>(k - 1)] < r.model.RMAT(k).n_rc) return true;
  return false;
}

void set_dimension(run& r, jump_records& records, std::int32_t k, std::int32_t dimension) {
  r.state.ntr[static_cast<std::size_t>(k - 1)] = dimension;
  set_structure(records, r.state.ntr, k);
}

} // namespace

void report_run(run& r) {
  final_reports({r.model, r.layout, r.design, r.categories, r.mixtures, r.predictions, r.deviations,
                 r.sampler, r.sources, r.asked, r.state, r.counts, r.files, r.report});
}

bool next_model(run& r) {
  jump_records records = jump_records_of(r);
  std::int32_t i = r.model.nramat;
  // an odometer: the last factor below its full dimension takes one row more, those after it go back to one
  for (; i >= 1; --i) {
    say_number(r.report, "i", i);
    const std::int32_t dimension = r.state.ntr[static_cast<std::size_t>(i - 1)];
    if (dimension >= r.model.RMAT(i).n_rc) continue;
    set_dimension(r, records, i, dimension + 1);
    break;
  }
  if (i < 1) return false;
  for (std::int32_t j = i + 1; j <= r.model.nramat; ++j) {
    say_number(r.report, "j", j);
    set_dimension(r, records, j, 1);
  }
  // each model starts from the start matrices; solutions and residual matrices stay
  for (std::int32_t k = 1; k <= r.model.nramat; ++k) invert_start_matrix(records, k);
  return true;
}

void run_models(run& r) {
  jump_records records = jump_records_of(r);
  jump_setup(records, r.relations, analysis::jump);
  take_state(r);
  const std::int64_t last = r.counts.P_ROUND + std::max(r.asked.nround, 0);
  for (;;) {
    say_model(r, r.report);
    const bool whole = run_rounds(r, records.scan, last);
    if (!whole || !has_next_model(r)) {
      save_state(r);
      report_moves(r.work.moves, r.report);
    }
    report_run(r);
    if (!whole || !next_model(r)) return;
    ++r.saved.model_number;
    r.saved.finished = 0;
    // the next model empties py: an older state can't be continued then
    if (saves_between_rounds(r)) save_state(r);
  }
}

void run_jump_rounds(run& r) {
  jump_records records = jump_records_of(r);
  round_state& state = r.state;
  const std::int64_t burned = std::max(r.asked.nburn, 0), last = burned + r.asked.nround;
  for (state.iround = std::max(r.saved.finished, burned) + 1; state.iround <= last; ++state.iround) {
    jump_round(records, r.files);
    if (!round_ends_the_run(r, is_sample_round(r.asked, state))) continue;
    return say_stopped(r.report);
  }
}

void run_jump_chain(run& r) {
  jump_records records = jump_records_of(r);
  jump_setup(records, r.relations, r.asked.analysis_type);
  take_state(r);
  if (run_rounds(r, records.scan, r.counts.P_ROUND)) run_jump_rounds(r);
  save_state(r);
  report_moves(r.work.moves, r.report);
  report_run(r);
}

} // namespace zeph
