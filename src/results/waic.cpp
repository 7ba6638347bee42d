#include "results/waic.h"

#include "formats/column_format.h"
#include "formats/whole_file.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "listing/work_files.h"

#include <cmath>

namespace zeph {
namespace {

constexpr std::string_view name = "waic";
constexpr double doubtful_variance = 0.4;

double log_mean_exp(const density_store& d, std::int64_t u) {
  return d.top(u) + std::log(d.sum(u) / static_cast<double>(d.samples));
}

double variance_of(const density_store& d, std::int64_t u) {
  return d.samples > 1 ? d.ss(u) / static_cast<double>(d.samples - 1) : 0.0;
}

void write_units(const density_store& d, sample_files& files, reporting& report) {
  whole_file whole(path_of(report, name));
  text_writer out;
  if (!out.open(whole.path())) write_fault(report, name, "open");
  bool written = true;
  for (std::int64_t u = 1; u <= d.position.size() && d.samples > 0 && written; ++u) {
    files.row.clear().i(d.position(u)).i(d.samples).r8(log_mean_exp(d, u)).r8(d.mean(u)).r8(d.ss(u));
    written = out.line(files.row.str());
  }
  if (!written || !out.close() || !whole.publish()) write_fault(report, name, "write");
}

} // namespace

waic_statistics waic_of(const density_store& d) {
  waic_statistics w;
  w.units = d.position.size();
  double sum = 0, squares = 0;
  for (std::int64_t u = 1; u <= w.units; ++u) {
    const double lppd = log_mean_exp(d, u), v = variance_of(d, u);
    w.lppd += lppd;
    w.p_waic += v;
    if (v > doubtful_variance) ++w.doubtful;
    sum += lppd - v;
    squares += (lppd - v) * (lppd - v);
  }
  const auto n = static_cast<double>(w.units);
  w.elpd = w.lppd - w.p_waic;
  w.se = w.units > 1 ? std::sqrt(n * (squares - sum * sum / n) / (n - 1)) : 0.0;
  return w;
}

void report_waic(density_store& d, const round_state& state, sample_files& files, reporting& report) {
  if (!files.py.close()) write_fault(report, "py", "write");
  const waic_statistics w = waic_of(d);
  const double mean = -d.total / static_cast<double>(d.samples);
  const auto real_row = [&report](std::string_view label, double value) {
    say(report, column_line().X(1).T(1).A(label, 50).F(value, 18, 8).str());
  };
  const auto count_row = [&report](std::string_view label, std::int64_t value) {
    say(report, column_line().X(1).T(1).A(label, 60).I(value, 8).str());
  };
  say(report);
  say(report, "Predictive fit (WAIC)        ");
  say(report);
  real_row("Log pointwise predictive density         ", w.lppd);
  real_row("Effective number of parameters, p_waic   ", w.p_waic);
  real_row("Expected log predictive density, elpd    ", w.elpd);
  real_row("Standard error of elpd                   ", w.se);
  real_row("Average(-log(p(y|theta))                 ", mean);
  count_row("No of samples                            ", d.samples);
  count_row("No of units                              ", w.units);
  count_row("No of units of variance above 0.4        ", w.doubtful);
  say(report);

  free_row row;
  for (std::size_t k = 0; k < static_cast<std::size_t>(files.n_vector); ++k) row.i(state.ntr[k]);
  row.i(d.samples).r8(w.elpd).r8(w.p_waic).r8(mean);
  if (!files.lpm.line(row.str()) || !files.lpm.flush()) write_fault(report, "lpm", "write");
  write_units(d, files, report);
  d.samples = 0;
  d.total = 0;
}

} // namespace zeph
