#include "control/model_chains.h"

#include "formats/free_format.h"
#include "gibbs/scan/gibscan.h"
#include "jump/jump_rounds.h"
#include "jump/jump_setup.h"
#include "listing/listing_rows.h"
#include "results/final_reports.h"

#include <algorithm>

namespace zeph {
namespace {

void run_rounds(run& r, scan_records& records, std::int64_t last) {
  for (r.state.iround = 1; r.state.iround <= last; ++r.state.iround)
    GIBSCAN(records, r.asked, r.state, r.counts, r.files);
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
  do {
    say_model(r, r.report);
    run_rounds(r, records.scan, r.counts.P_ROUND + std::max(r.asked.nround, 0));
    report_run(r);
  } while (next_model(r));
}

void run_jump_chain(run& r) {
  jump_records records = jump_records_of(r);
  jump_setup(records, r.relations, r.asked.analysis_type);
  run_rounds(r, records.scan, r.counts.P_ROUND);
  jump_rounds(records, r.files);
  report_run(r);
}

} // namespace zeph
