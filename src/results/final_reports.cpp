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
#include "results/waic.h"
#include "samples/accumulators.h"
#include "samples/restart.h"

namespace zeph {
namespace {

// Solutions with their codes, the sample files, the binary solutions.
void report_solutions(const final_records& r) {
  if (static_cast<std::int64_t>(r.counts.nsamples) > 0) say(r.report);
  const std::int32_t option = samples_solutions(r.asked.analysis_type) ? 4 : 1;
  SOLWRITE(option, r.model, r.sampler.IREST, r.sampler.n_IREST, r.sampler.solpostmean, r.sampler.pev,
           "gibsol", r.report);
  describe_sample_files(r.model, r.files, r.report);
  report_deviations(r.model, r.deviations, r.asked, r.report);
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
  const bool matrices = samples_matrices(r.asked.analysis_type);
  if (!solves(r.asked.analysis_type) && r.asked.sampler.exact)
    report_waic(r.sampler.density, r.state, r.files, r.report);
  else if (!solves(r.asked.analysis_type))
    report_model_fit(r.state, r.files, r.report);
  if (matrices) report_deviance(r.model, r.design, r.counts, r.sampler, r.report);

  // from here on the sums over samples are means and variances
  solution_moments(r.asked, r.counts, r.sampler);
  covariance_moments(r.model, r.asked, r.state, r.counts, r.sampler);
  report_thresholds(r.categories, r.asked, r.counts, r.report);

  if (matrices && static_cast<std::int64_t>(r.counts.nsamples) >= 1)
    report_covariances(r.model, r.sampler, r.state, r.report);
  report_mixing_proportions(r.model, r.mixtures, r.asked, r.counts, r.report);
  report_predictions(r.counts, r.predictions, r.report);
  std::int32_t failed = 0; // icode of the file of memberships that could not be made
  if (r.counts.nsamples > 1 || solves(r.asked.analysis_type)) {
    report_solutions(r);
    write_taupostmean(r.model, r.mixtures, r.counts, r.design.nobs, r.report);
    failed = write_memberships(r.model, r.design, r.mixtures, r.asked, r.state, r.counts, r.report);
  }

  // the state of the chain is saved for any number of samples, and before a failed report ends the run
  if (samples_solutions(r.asked.analysis_type)) write_lastsol(r.layout, r.sampler, r.files.state, r.report);
  if (matrices)
    write_gparlast(r.model, r.design, r.sampler, r.sources, r.asked, r.state, r.files.state, r.report);

  if (failed != 0) stop_memberships(failed, r.report);
  hand_over_sums(r.sampler, r.counts);
  clear_mixture_sums(r.mixtures);
  clear_threshold_sums(r.categories);
}

} // namespace zeph
