#include "results/prediction_report.h"

#include "formats/column_format.h"
#include "formats/free_format.h"
#include "formats/text_file.h"
#include "formats/whole_file.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "listing/work_files.h"

#include <cmath>

namespace zeph {

void report_predictions(const chain_counts& counts, const prediction_store& predictions, reporting& report) {
  if (counts.nsamp_pred < 1) return;
  constexpr std::string_view name = "ypredicted";
  const double p = counts.nsamp_pred;
  say(report);
  say(report, "   Predictive distributions written on file \"ypredicted\"");
  say(report, free_row().text("   No of samples included").i(counts.nsamp_pred).str());

  whole_file whole(path_of(report, name));
  text_writer out;
  if (!out.open(whole.path())) write_fault(report, name, "open");
  for (const prediction& y : predictions.YPRED) {
    // s, q: sum and sum of squares of the p predicted values
    const double sd = std::sqrt((y.q - y.s * y.s / p) / (p - 1)), mean = y.s / p;
    column_line row;
    row.X(1).I(y.record, 8).I(y.trait, 8).F(static_cast<double>(y.value), 18, 7).F(mean, 18, 7).F(sd, 18, 7);
    out.line(row.str());
  }
  if (!out.close() || !whole.publish()) write_fault(report, name, "write");
}

} // namespace zeph
