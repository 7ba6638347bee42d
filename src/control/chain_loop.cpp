#include "control/chain_loop.h"

#include "formats/free_format.h"
#include "gibbs/residuals/trait_deviations.h"
#include "gibbs/scan/gibscan.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "listing/work_files.h"
#include "samples/accumulators.h"

namespace zeph {
namespace {

bool stop_asked(const reporting& report) { return file_exists(report, "STOP"); }

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
  run_frame& f = r.frame;
  f.stop_seen = false;
  f.nlabel = 0;
  for (f.iround = 1; f.iround <= f.nburn; ++f.iround) {
    GIBSCAN(records, f, r.files);
    if (f.ist == GS_CONVERGED) {
      say_converged(r.report);
      break;
    }
    if (!stop_asked(r.report)) continue;
    f.stop_seen = true;
    say_three_times(r.report, "Stop signal received. Processing ends graceously");
    break;
  }
  say_label_switches(r.report, "No of times that label switchning ocure (burnin)...", f.nlabel);
  f.P_ROUND = f.nburn > 0 ? f.nburn : 0;
}

void sample(run& r, scan_records& records) {
  run_frame& f = r.frame;
  f.nlabel = 0;
  const std::int64_t last = f.P_ROUND + f.nround;
  for (f.iround = f.P_ROUND + 1; f.iround <= last; ++f.iround) {
    GIBSCAN(records, f, r.files);
    if (f.ist == GS_CONVERGED) {
      say_converged(r.report);
      break;
    }
    if (f.test_level > 0 && f.iround % 100 == 0)
      say(r.report, free_row().text("Gibbs:iround").i(f.iround).str());
    // the interval divides the round whether or not trait deviations are wanted
    if (f.isamp == 0) computation_impossible(r.report, "ZEPH", "sampling interval is 0");
    if (f.iround % f.isamp == 0 && r.deviations.factor > 0) TD_PTD(records, f, r.deviations);
    if (is_sample_round(f)) accumulate_deviance(r.model, r.sampler, f);
    if (is_sample_round(f) && stop_asked(r.report)) {
      say_three_times(r.report, "Stop signal received. Processing ends graciously");
      break;
    }
  }
  say_label_switches(r.report, "No of times that label switching occure (sampling).", f.nlabel);
}

} // namespace

void run_chain(run& r) {
  scan_records records = records_of(r);
  if (!r.frame.restart) burn_in(r, records);
  if (!r.frame.stop_seen) sample(r, records);
}

} // namespace zeph
