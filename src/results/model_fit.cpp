#include "results/model_fit.h"

#include "formats/column_format.h"
#include "formats/free_format.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "listing/work_files.h"

#include <cmath>
#include <limits>

namespace zeph {
namespace {

// The value v of the next row; false after the last row. Round and model
// vector are read as reals and dropped, so that no round is too large.
bool next_row(free_reader& py, std::int32_t n_vector, std::int64_t row, double& v, reporting& report) {
  py.begin_read();
  int code = 0;
  for (std::int32_t item = 0; item < n_vector + 2 && code == 0; ++item) code = py.real(v);
  py.end_read();
  if (code == free_reader::read_fault) read_fault(report, "py");
  if (code > 0) illegal_input(report, "py", "row", {row}, "a text", "numbers only");
  return code == 0;
}

} // namespace

fit_statistics fit_of_py(std::int32_t n_vector, reporting& report) {
  free_reader py;
  if (!py.open(path_of(report, "py"))) write_fault(report, "py", "open");
  fit_statistics fit;
  double v = 0;
  // kept: the largest of no values is the lowest finite number
  fit.m = -std::numeric_limits<double>::max();
  for (; next_row(py, n_vector, fit.nsamp_py + 1, v, report); ++fit.nsamp_py)
    if (v > fit.m) fit.m = v;

  py.rewind();
  for (std::int64_t row = 1; row <= fit.nsamp_py && next_row(py, n_vector, row, v, report); ++row) {
    // S = sum of exp(v - m), m the largest v, so that no term overflows
    fit.S += std::exp(v - fit.m);
    fit.Q += v * v;
    fit.T += v;
  }
  const auto n = static_cast<double>(fit.nsamp_py);
  // kept: the sign of the logarithm; the harmonic mean of the densities has -log(S/n) - m
  fit.L = std::log(fit.S / n) - fit.m;
  fit.V = fit.nsamp_py < 2 ? 0.0 : (fit.Q - fit.T * fit.T / n) / (n - 1);
  fit.A = fit.T / n;
  return fit;
}

void report_model_fit(const round_state& state, sample_files& files, reporting& report) {
  if (!files.py.close()) write_fault(report, "py", "write");
  const fit_statistics fit = fit_of_py(files.n_vector, report);

  const auto real_row = [&report](std::string_view label, double value) {
    say(report, column_line().X(1).T(1).A(label, 50).F(value, 18, 8).str());
  };
  say(report);
  say(report, "Model fit statistics         ");
  say(report);
  real_row("Log Marginal Likelihood:p(y)             ", fit.L);
  real_row("Var(-log(p(y|theta))                     ", fit.V);
  real_row("Average(-log(p(y|theta))                 ", fit.A);
  say(report,
      column_line().X(1).T(1).A("No of samples                            ", 60).I(fit.nsamp_py, 8).str());
  say(report);

  free_row row;
  for (std::size_t k = 0; k < static_cast<std::size_t>(files.n_vector); ++k) row.i(state.ntr[k]);
  row.i(fit.nsamp_py).r8(fit.L).r8(fit.V).r8(fit.A);
  if (!files.lpm.line(row.str()) || !files.lpm.flush()) write_fault(report, "lpm", "write");
}

} // namespace zeph
