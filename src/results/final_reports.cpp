#include "results/final_reports.h"

#include "formats/whole_file.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "listing/work_files.h"
#include "results/covariance_report.h"
#include "results/deviance.h"
#include "results/deviation_output.h"
#include "results/mixture_report.h"
#include "results/model_fit.h"
#include "results/prediction_report.h"
#include "results/solution_writer.h"
#include "results/threshold_report.h"
#include "samples/accumulators.h"
#include "samples/restart.h"

namespace zeph {
namespace {

// Solutions with their codes, the sample files, the binary solutions.
void report_solutions(const final_records& r) {
  if (static_cast<std::int64_t>(r.frame.nsamples) > 0) say(r.report);
  const std::int32_t option = r.frame.analysis_type < 2 ? 1 : 4;
  SOLWRITE(option, r.model, r.sampler.IREST, r.sampler.n_IREST, r.sampler.solpostmean, r.sampler.pev,
           "gibsol", r.report);
  describe_sample_files(r.model, r.files, r.report);
  report_deviations(r.model, r.deviations, r.frame, r.report);
  write_solpostmean(r.layout, r.sampler, r.report);
}

} // namespace

void write_solpostmean(const equation_layout& layout, const sampler_store& store, reporting& report) {
  constexpr std::string_view name = "solpostmean";
  whole_file whole(path_of(report, name));
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
  if (!written || !out.close() || !whole.publish()) write_fault(report, name, "write");
}

void final_reports(const final_records& r) {
  const bool samples_matrices = r.frame.analysis_type > 2;
  if (r.frame.analysis_type > 0) report_model_fit(r.frame, r.files, r.report);
  if (samples_matrices) report_deviance(r.model, r.design, r.frame, r.sampler, r.report);

  solution_moments(r.frame, r.sampler);
  covariance_moments(r.model, r.frame, r.sampler);
  report_thresholds(r.categories, r.frame, r.report);

  if (samples_matrices && static_cast<std::int64_t>(r.frame.nsamples) >= 1)
    report_covariances(r.model, r.sampler, r.frame, r.report);
  report_mixing_proportions(r.model, r.mixtures, r.frame, r.report);
  report_predictions(r.frame, r.predictions, r.report);
  std::int32_t failed = 0; // icode of the file of memberships that could not be made
  if (r.frame.nsamples > 1 || r.frame.analysis_type <= 0) {
    report_solutions(r);
    write_taupostmean(r.model, r.mixtures, r.frame, r.design.nobs, r.report);
    failed = write_memberships(r.model, r.design, r.mixtures, r.frame, r.report);
  }

  if (r.frame.analysis_type >= 2) write_lastsol(r.layout, r.sampler, r.report);
  if (samples_matrices) write_gparlast(r.model, r.design, r.sampler, r.sources, r.frame, r.report);

  if (failed != 0) stop_memberships(failed, r.report);
  hand_over_sums(r.sampler, r.frame);
  clear_mixture_sums(r.mixtures);
  clear_threshold_sums(r.categories);
}

} // namespace zeph
