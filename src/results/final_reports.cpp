#include "results/final_reports.h"

#include "results/accumulators.h"
#include "results/model_fit.h"
#include "results/solution_writer.h"
#include "results/whole_file.h"

namespace zeph {
namespace {

// Solutions with their codes, the sample files, the binary solutions.
void report_solutions(const model_records& m, const equation_layout& layout, sampler_store& store,
                      const run_frame& frame, const sample_files& files, reporting& report) {
  if (static_cast<std::int64_t>(frame.nsamples) > 0) say(report);
  const std::int32_t option = frame.analysis_type < 2 ? 1 : 4;
  SOLWRITE(option, m, store.IREST, store.n_IREST, store.solpostmean, store.pev, "gibsol", report);
  describe_sample_files(m, files, report);
  write_solpostmean(layout, store, report);
}

} // namespace

void write_solpostmean(const equation_layout& layout, const sampler_store& store, reporting& report) {
  constexpr std::string_view name = "solpostmean";
  whole_file whole(report, name);
  sequential_writer out;
  if (!out.open(whole.path())) write_fault(report, name, "open");
  out.begin();
  out.put(layout.neq);
  bool written = out.end();
  for (std::int32_t e = 1; e <= layout.neq && written; ++e) {
    out.begin();
    out.put(e);
    out.put(store.solpostmean(e));
    written = out.end();
  }
  if (!written || !out.close()) write_fault(report, name, "write");
  whole.publish(report);
}

void final_reports(const model_records& m, const equation_layout& layout, sampler_store& store,
                   run_frame& frame, sample_files& files, reporting& report) {
  if (frame.analysis_type > 0) report_model_fit(frame, files, report);

  solution_moments(frame, store);

  if (frame.nsamples > 1 || frame.analysis_type <= 0)
    report_solutions(m, layout, store, frame, files, report);

  hand_over_sums(store, frame);
}

} // namespace zeph
