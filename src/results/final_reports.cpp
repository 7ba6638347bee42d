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
void report_solutions(const model_records& m, const equation_layout& layout, sampler_store& store,
                      const deviation_store& deviations, const directives& asked, const chain_counts& counts,
                      const sample_files& files, reporting& report) {
  if (static_cast<std::int64_t>(counts.nsamples) > 0) say(report);
  const std::int32_t option = asked.analysis_type < 2 ? 1 : 4;
  SOLWRITE(option, m, store.IREST, store.n_IREST, store.solpostmean, store.pev, "gibsol", report);
  describe_sample_files(m, files, report);
  report_deviations(m, deviations, asked, report);
  write_solpostmean(layout, store, report);
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

void final_reports(const model_records& m, const equation_layout& layout, const design_store& design,
                   category_store& categories, mixture_store& mixtures, const prediction_store& predictions,
                   const deviation_store& deviations, sampler_store& store, random_sources& sources,
                   const directives& asked, const round_state& state, chain_counts& counts,
                   sample_files& files, reporting& report) {
  const bool samples_matrices = asked.analysis_type > 2;
  if (asked.analysis_type > 0) report_model_fit(state, files, report);
  if (samples_matrices) report_deviance(m, design, counts, store, report);

  solution_moments(asked, counts, store);
  covariance_moments(m, asked, state, counts, store);
  report_thresholds(categories, asked, counts, report);

  if (samples_matrices && static_cast<std::int64_t>(counts.nsamples) >= 1)
    report_covariances(m, store, state, report);
  report_mixing_proportions(m, mixtures, asked, counts, report);
  report_predictions(counts, predictions, report);
  std::int32_t failed = 0; // icode of the file of memberships that could not be made
  if (counts.nsamples > 1 || asked.analysis_type <= 0) {
    report_solutions(m, layout, store, deviations, asked, counts, files, report);
    write_taupostmean(m, mixtures, counts, design.nobs, report);
    failed = write_memberships(m, design, mixtures, asked, state, counts, report);
  }

  if (asked.analysis_type >= 2) write_lastsol(layout, store, files.state, report);
  if (samples_matrices) write_gparlast(m, design, store, sources, asked, state, files.state, report);

  if (failed != 0) stop_memberships(failed, report);
  hand_over_sums(store, counts);
  clear_mixture_sums(mixtures);
  clear_threshold_sums(categories);
}

} // namespace zeph
