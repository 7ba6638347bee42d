#include "results/threshold_report.h"

#include "formats/free_format.h"
#include "listing/listing_rows.h"

#include <cmath>

namespace zeph {

void report_thresholds(const category_store& categories, const directives& asked, const chain_counts& counts,
                       reporting& report) {
  if (categories.catstr.empty() || solves(asked.analysis_type)) return;
  say(report, "       Posterior mean and Std of thresholds");
  for (const category_record& c : categories.catstr) {
    say(report, free_row().text("       Trait").i(c.trait).str());
    for (std::int32_t k = 1; k <= c.ncat_t - 1; ++k) {
      const double s = c.thrpostm(k), n = counts.nsamples;
      // kept: divisor N, not N - 1
      const double d = c.thrpostsd(k) - s * s / n;
      say(report, free_row().i(k).r8(s / n).r8(d < 0 ? 0.0 : std::sqrt(d / n)).str());
    }
  }
}

void clear_threshold_sums(category_store& categories) {
  for (category_record& c : categories.catstr) {
    c.thrpostm.fill(0.0);
    c.thrpostsd.fill(0.0);
  }
}

} // namespace zeph
