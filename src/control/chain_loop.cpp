#include "control/chain_loop.h"

#include "formats/free_format.h"
#include "gibbs/moves/moves.h"
#include "gibbs/residuals/trait_deviations.h"
#include "gibbs/scan/gibscan.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "listing/work_files.h"
#include "samples/accumulators.h"

#include <algorithm>

namespace zeph {
namespace {

void say_three_times(reporting& report, std::string_view text) {
  for (int i = 0; i < 3; ++i) say(report, text);
}

void say_converged(reporting& report) {
  say(report);
  say(report, "GS-solver converged");
  say(report);
}

void say_label_switches(reporting& report, std::string_view label, std::int32_t count) {
  if (count <= 0) return;
  say(report);
  say_count(report, label, count);
}

void burn_in(run& r, scan_records& records) {
  const directives& asked = r.asked;
  round_state& state = r.state;
  chain_counts& counts = r.counts;
  counts.stop_seen = false;
  if (r.saved.finished == 0) counts.nlabel = 0;
  for (state.iround = r.saved.finished + 1; state.iround <= asked.nburn; ++state.iround) {
    GIBSCAN(records, asked, state, counts, r.files);
    if (state.ist == GS_CONVERGED) {
      say_converged(r.report);
      break;
    }
    // kept: "graceously" here, "graciously" below
    if (!round_ends_the_run(r, true)) continue;
    counts.stop_seen = true;
    say_three_times(r.report, "Stop signal received. Processing ends graceously");
    break;
  }
  say_label_switches(r.report, "No of times that label switchning ocure (burnin)...", counts.nlabel);
}

void sample(run& r, scan_records& records) {
  const directives& asked = r.asked;
  round_state& state = r.state;
  chain_counts& counts = r.counts;
  if (r.saved.finished <= counts.P_ROUND) counts.nlabel = 0;
  // round numbers continue after the burn-in, or after the run that is continued
  const std::int64_t last = counts.P_ROUND + asked.nround;
  for (state.iround = std::max(r.saved.finished, counts.P_ROUND) + 1; state.iround <= last; ++state.iround) {
    GIBSCAN(records, asked, state, counts, r.files);
    if (state.ist == GS_CONVERGED) {
      say_converged(r.report);
      break;
    }
    if (asked.test_level > 0 && state.iround % 100 == 0)
      say(r.report, free_row().text("Gibbs:iround").i(state.iround).str());
    // the interval divides the round whether or not trait deviations are wanted
    if (asked.isamp == 0) computation_impossible(r.report, "ZEPH", "sampling interval is 0");
    if (state.iround % asked.isamp == 0 && r.deviations.factor > 0)
      TD_PTD(records, asked, state, r.deviations);
    if (is_sample_round(asked, state)) accumulate_deviance(r.model, r.sampler, asked, state);
    if (round_ends_the_run(r, is_sample_round(asked, state))) {
      say_three_times(r.report, "Stop signal received. Processing ends graciously");
      break;
    }
  }
  say_label_switches(r.report, "No of times that label switching occure (sampling).", counts.nlabel);
}

// Exact chains of mixtures and cure sequences: how often a record or subject kept its component since a flat
// prior needs it there.
void say_kept_components(run& r) {
  if (!r.asked.sampler.exact) return;
  for (std::int32_t t = 1; t <= r.model.nt; ++t) {
    const std::int64_t kept = r.work.sweep.components[static_cast<std::size_t>(t - 1)].kept;
    if (kept > 0)
      say(r.report,
          free_row().text("Components kept for their prior: trait ").i(t).text(" times").i(kept).str());
  }
}

} // namespace

void run_chain(run& r) {
  take_state(r);
  scan_records records = records_of(r);
  const bool sampling = r.asked.restart || (r.saved.continued && r.saved.finished > r.counts.P_ROUND);
  if (!sampling) burn_in(r, records);
  if (!r.counts.stop_seen) sample(r, records);
  save_state(r);
  say_kept_components(r);
  report_moves(r.work.moves, r.report);
}

} // namespace zeph
